#include "MapPicture.h"

#include <filesystem>

#include "MapCanvas.h"
#include "gdalsupport/DtGdalScope.h"

std::string MapPicture::worldFileOf(const std::string& png) {
    return std::filesystem::path(png).replace_extension(".pgw").string();
}

std::string MapPicture::auxFileOf(const std::string& png) {
    return png + ".aux.xml";
}

bool MapPicture::begin(const std::string& png, const std::vector<std::string>& inputs,
                       bool overwrite, std::string& problem) {
    png_ = png;
    return file_.begin(png, inputs, overwrite, problem, {worldFileOf(png), auxFileOf(png)});
}

bool MapPicture::write(MapCanvas& canvas, const MapGrid& grid, const std::string& wkt,
                       std::string& problem) {
    const std::string picture = file_.temporaryPath();
    if (!canvas.writePng(picture, problem))
        return false;
    double transform[6];
    grid.geoTransform(transform);
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    if (!GDALWriteWorldFile(picture.c_str(), "pgw", transform)) {
        problem = worldFileOf(png_) + " cannot be written: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    // GDAL keeps what a PNG cannot hold in its .aux.xml, written as the dataset closes:
    // the coordinate system, and the geotransform to every digit (a world file has ten
    // decimals, too few for a picture in degrees).
    GDALDatasetUniquePtr dataset(
        GDALDataset::Open(picture.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    OGRSpatialReference srs;
    if (dataset && !wkt.empty() && srs.importFromWkt(wkt.c_str()) == OGRERR_NONE) {
        dataset->SetSpatialRef(&srs);
        dataset->SetGeoTransform(transform);
    }
    dataset.reset();
    return file_.commit(problem);
}
