#include "MapPicture.h"

#include <cairo.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "MapCanvas.h"
#include "gdalsupport/DtGdalScope.h"

bool MapPicture::isGeoTiff(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".tif" || extension == ".tiff";
}

std::string MapPicture::extensionProblem(const std::string& path) {
    if (path.empty() || isGeoTiff(path))
        return "";
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".png")
        return "";
    return path + ": give a .png or a .tif (.tiff) picture; " +
           (extension.empty() ? std::string("it has no extension")
                              : "\"" + extension + "\" is neither");
}

std::string MapPicture::worldFileOf(const std::string& png) {
    return std::filesystem::path(png).replace_extension(".pgw").string();
}

std::string MapPicture::auxFileOf(const std::string& png) {
    return png + ".aux.xml";
}

bool MapPicture::begin(const std::string& path, const std::vector<std::string>& inputs,
                       bool overwrite, std::string& problem) {
    path_ = path;
    // A GeoTIFF holds its georeference; an .aux.xml left beside it would override it.
    std::vector<std::string> companions = {auxFileOf(path)};
    if (!isGeoTiff(path))
        companions.insert(companions.begin(), worldFileOf(path));
    return file_.begin(path, inputs, overwrite, problem, companions);
}

bool MapPicture::write(MapCanvas& canvas, const MapGrid& grid, const std::string& wkt,
                       std::string& problem) {
    double transform[6];
    grid.geoTransform(transform);
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    const bool written = isGeoTiff(path_) ? writeGeoTiff(canvas, transform, wkt, problem)
                                          : writePng(canvas, transform, wkt, problem);
    if (!written && !file_.writeFault().empty())
        problem = "cannot be written: " + file_.writeFault();  // the cause, not GDAL's echo
    return written && file_.commit(problem);
}

bool MapPicture::writePng(MapCanvas& canvas, const double transform[6], const std::string& wkt,
                          std::string& problem) {
    if (!canvas.writePng(file_.temporaryPath(), problem))
        return false;
    const std::string picture = file_.gdalPath();
    if (!GDALWriteWorldFile(picture.c_str(), "pgw", const_cast<double*>(transform))) {
        problem = worldFileOf(path_) + " cannot be written: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    // GDAL keeps what a PNG cannot hold in its .aux.xml, written as the dataset closes:
    // the coordinate system, and the geotransform to every digit (a world file has ten
    // decimals, too few for a fine picture).
    GDALDatasetUniquePtr dataset(
        GDALDataset::Open(picture.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    OGRSpatialReference srs;
    if (dataset && !wkt.empty() && srs.importFromWkt(wkt.c_str()) == OGRERR_NONE) {
        srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        dataset->SetSpatialRef(&srs);
        dataset->SetGeoTransform(const_cast<double*>(transform));
    }
    dataset.reset();
    return true;
}

namespace {

// Cairo's premultiplied ARGB words as four bands of straight RGBA, in GDAL's memory.
GDALDatasetUniquePtr rgbaOf(cairo_surface_t* surface) {
    const int width = cairo_image_surface_get_width(surface);
    const int height = cairo_image_surface_get_height(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    GDALDatasetUniquePtr rgba(GetGDALDriverManager()->GetDriverByName("MEM")->Create(
        "", width, height, 4, GDT_Byte, nullptr));
    if (!rgba || !data)
        return nullptr;
    std::vector<uint8_t> row(static_cast<size_t>(width) * 4);
    const GDALColorInterp meaning[4] = {GCI_RedBand, GCI_GreenBand, GCI_BlueBand, GCI_AlphaBand};
    for (int band = 0; band < 4; ++band)
        rgba->GetRasterBand(band + 1)->SetColorInterpretation(meaning[band]);
    for (int y = 0; y < height; ++y) {
        const uint32_t* words =
            reinterpret_cast<const uint32_t*>(data + static_cast<size_t>(y) * stride);
        for (int x = 0; x < width; ++x) {
            const uint32_t a = words[x] >> 24;
            for (int c = 0; c < 3; ++c) {
                const uint32_t premultiplied = (words[x] >> (16 - 8 * c)) & 0xFF;
                row[static_cast<size_t>(c) * width + x] =
                    a == 0 ? 0
                           : static_cast<uint8_t>(
                                 std::min<uint32_t>(255, (premultiplied * 255 + a / 2) / a));
            }
            row[static_cast<size_t>(3) * width + x] = static_cast<uint8_t>(a);
        }
        if (rgba->RasterIO(GF_Write, 0, y, width, 1, row.data(), width, 1, GDT_Byte, 4, nullptr, 1,
                           0, static_cast<GSpacing>(width), nullptr) != CE_None)
            return nullptr;
    }
    return rgba;
}

}  // namespace

bool MapPicture::writeGeoTiff(MapCanvas& canvas, const double transform[6], const std::string& wkt,
                              std::string& problem) {
    GDALDatasetUniquePtr rgba = rgbaOf(canvas.picture());
    if (!rgba) {
        problem = "the picture cannot be made: " + DtGdalMessages::last("out of memory");
        return false;
    }
    rgba->SetGeoTransform(const_cast<double*>(transform));
    OGRSpatialReference srs;
    if (!wkt.empty() && srs.importFromWkt(wkt.c_str()) == OGRERR_NONE) {
        srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        rgba->SetSpatialRef(&srs);
    }
    const char* options[] = {"COMPRESS=DEFLATE", "PHOTOMETRIC=RGB", "ALPHA=UNASSOCIATED",
                             "TILED=YES", nullptr};
    GDALDatasetUniquePtr tiff(GetGDALDriverManager()->GetDriverByName("GTiff")->CreateCopy(
        file_.gdalPath().c_str(), rgba.get(), FALSE, const_cast<char**>(options), nullptr,
        nullptr));
    if (!tiff || (tiff->FlushCache(), DtGdalMessages::failed())) {
        problem = "cannot be written: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    tiff.reset();
    return true;
}
