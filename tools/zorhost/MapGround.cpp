#include "MapGround.h"

#include <gdal_utils.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "MapStyle.h"
#include "gdalsupport/DtGdalScope.h"

namespace {

// Marks the warp's empty pixels: far below any ground, and exact in Float32.
const double noData = -1.0e30;

struct TranslateOptionsFree {
    void operator()(GDALTranslateOptions* o) const { GDALTranslateOptionsFree(o); }
};
struct WarpOptionsFree {
    void operator()(GDALWarpAppOptions* o) const { GDALWarpAppOptionsFree(o); }
};
struct DemOptionsFree {
    void operator()(GDALDEMProcessingOptions* o) const { GDALDEMProcessingOptionsFree(o); }
};

GDALDatasetUniquePtr openRaster(const std::string& path) {
    return GDALDatasetUniquePtr(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
}

GDALDatasetUniquePtr own(GDALDatasetH handle) {
    return GDALDatasetUniquePtr(GDALDataset::FromHandle(handle));
}

// The DEM's first band as heights: scale and offset applied, no-data kept, Float32.
GDALDatasetUniquePtr heightsOf(GDALDataset& dem) {
    GDALRasterBand* band = dem.GetRasterBand(1);
    int hasScale = 0, hasOffset = 0;
    const double scale = band->GetScale(&hasScale);
    const double offset = band->GetOffset(&hasOffset);
    CPLStringList args;
    for (const char* arg : {"-of", "VRT", "-b", "1", "-ot", "Float32"})
        args.AddString(arg);
    if ((hasScale && scale != 1.0) || (hasOffset && offset != 0.0)) {
        args.AddString("-unscale");
        int hasNoData = 0;
        const double stored = band->GetNoDataValue(&hasNoData);
        if (hasNoData) {
            // The no-data value stays a stored value; in heights it is that value scaled.
            args.AddString("-a_nodata");
            args.AddString(CPLSPrintf("%.17g", stored * scale + offset));
        }
    }
    std::unique_ptr<GDALTranslateOptions, TranslateOptionsFree> options(
        GDALTranslateOptionsNew(args.List(), nullptr));
    return own(GDALTranslate("", GDALDataset::ToHandle(&dem), options.get(), nullptr));
}

GDALDatasetUniquePtr emptyGrid(const MapGrid& grid, const std::string& wkt) {
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr target(
        memory->Create("", grid.width, grid.height, 1, GDT_Float32, nullptr));
    if (!target)
        return target;
    double transform[6];
    grid.geoTransform(transform);
    target->SetGeoTransform(transform);
    target->SetProjection(wkt.c_str());
    GDALRasterBand* band = target->GetRasterBand(1);
    band->SetNoDataValue(noData);
    band->Fill(noData);
    return target;
}

bool warp(std::vector<GDALDatasetUniquePtr>& sources, GDALDataset& target) {
    std::vector<GDALDatasetH> handles;
    for (auto& source : sources)
        handles.push_back(GDALDataset::ToHandle(source.get()));
    CPLStringList args;
    for (const char* arg : {"-r", "bilinear", "-multi", "-wo", "NUM_THREADS=ALL_CPUS"})
        args.AddString(arg);
    std::unique_ptr<GDALWarpAppOptions, WarpOptionsFree> options(
        GDALWarpAppOptionsNew(args.List(), nullptr));
    return GDALWarp(nullptr, GDALDataset::ToHandle(&target), static_cast<int>(handles.size()),
                    handles.data(), options.get(), nullptr) != nullptr;
}

GDALDatasetUniquePtr hillshade(GDALDataset& heights, bool geographic) {
    CPLStringList args;
    for (const char* arg : {"-of", "MEM", "-compute_edges"})
        args.AddString(arg);
    if (geographic) {
        // Degrees across, metres up: a degree's length (gdaldem's own advice).
        args.AddString("-s");
        args.AddString("111120");
    }
    std::unique_ptr<GDALDEMProcessingOptions, DemOptionsFree> options(
        GDALDEMProcessingOptionsNew(args.List(), nullptr));
    return own(GDALDEMProcessing("", GDALDataset::ToHandle(&heights), "hillshade", nullptr,
                                 options.get(), nullptr));
}

uint32_t argb(const MapColour& c, double shade) {
    auto channel = [shade](double v) {
        return static_cast<uint32_t>(std::clamp(v * shade, 0.0, 1.0) * 255.0 + 0.5);
    };
    return 0xFF000000u | channel(c.r) << 16 | channel(c.g) << 8 | channel(c.b);
}

void colour(const std::vector<float>& heights, const std::vector<uint8_t>& shades, Ground& ground) {
    bool any = false;
    float low = 0.0f, high = 0.0f;
    for (float h : heights) {
        if (h == static_cast<float>(noData))
            continue;
        low = any ? std::min(low, h) : h;
        high = any ? std::max(high, h) : h;
        any = true;
    }
    if (!any)
        return;
    ground.lowest = low;
    ground.highest = high;
    ground.pixels.assign(heights.size(), 0u);
    const double span = high > low ? high - low : 1.0;
    for (size_t i = 0; i < heights.size(); ++i) {
        if (heights[i] == static_cast<float>(noData))
            continue;
        // A flat ground is shown mid-ramp; the hillshade darkens slopes away from the sun.
        const double fraction = high > low ? (heights[i] - low) / span : 0.5;
        const double shade = shades[i] == 0 ? 1.0 : 0.35 + 0.65 * shades[i] / 255.0;
        ground.pixels[i] = argb(elevationColour(fraction), shade);
    }
}

}  // namespace

std::string demProblem(const std::string& path) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    GDALDatasetUniquePtr dem = openRaster(path);
    if (!dem || dem->GetRasterCount() < 1)
        return "is not a raster GDAL can read";
    return "";
}

bool demExtent(const std::vector<std::string>& dems, const std::string& planeWkt,
               double bounds[4]) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    OGRSpatialReference plane;
    if (planeWkt.empty() || plane.importFromWkt(planeWkt.c_str()) != OGRERR_NONE)
        return false;
    plane.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    bool any = false;
    for (const std::string& path : dems) {
        GDALDatasetUniquePtr dem = openRaster(path);
        double t[6];
        if (!dem || !dem->GetSpatialRef() || dem->GetGeoTransform(t) != CE_None)
            continue;
        OGRSpatialReference source(*dem->GetSpatialRef());
        source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        DtTransformPtr toPlane(OGRCreateCoordinateTransformation(&source, &plane));
        const double x0 = t[0], x1 = t[0] + t[1] * dem->GetRasterXSize();
        const double y0 = t[3], y1 = t[3] + t[5] * dem->GetRasterYSize();
        double b[4];
        if (!toPlane ||
            !toPlane->TransformBounds(std::min(x0, x1), std::min(y0, y1), std::max(x0, x1),
                                      std::max(y0, y1), &b[0], &b[1], &b[2], &b[3], 21))
            continue;
        for (int i = 0; i < 2; ++i) {
            bounds[i] = any ? std::min(bounds[i], b[i]) : b[i];
            bounds[i + 2] = any ? std::max(bounds[i + 2], b[i + 2]) : b[i + 2];
        }
        any = true;
    }
    return any;
}

bool makeGround(const std::vector<std::string>& dems, const MapGrid& grid, const std::string& wkt,
                bool geographic, Ground& ground, std::string& problem) {
    if (dems.empty())
        return true;
    if (wkt.empty()) {
        ground.notes.push_back("the DEMs are not drawn: the scene has no place on the earth");
        return true;
    }
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    // The warp writes each source over the ones before: the first DEM goes last.
    std::vector<GDALDatasetUniquePtr> opened, heights;
    for (auto path = dems.rbegin(); path != dems.rend(); ++path) {
        GDALDatasetUniquePtr dem = openRaster(*path);
        if (!dem || !dem->GetSpatialRef()) {
            ground.notes.push_back(*path + ": not drawn: it has no coordinate system");
            continue;
        }
        GDALDatasetUniquePtr band = heightsOf(*dem);
        if (!band) {
            problem = *path + ": " + DtGdalMessages::last("cannot be read");
            return false;
        }
        opened.push_back(std::move(dem));
        heights.push_back(std::move(band));
    }
    if (heights.empty())
        return true;
    GDALDatasetUniquePtr target = emptyGrid(grid, wkt);
    if (!target || !warp(heights, *target)) {
        problem =
            "the DEMs cannot be warped into the picture: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    GDALDatasetUniquePtr shaded = hillshade(*target, geographic);
    const size_t count = static_cast<size_t>(grid.width) * grid.height;
    std::vector<float> elevation(count);
    std::vector<uint8_t> shades(count, 0);
    if (target->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, grid.width, grid.height, elevation.data(),
                                           grid.width, grid.height, GDT_Float32, 0, 0) != CE_None ||
        !shaded ||
        shaded->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, grid.width, grid.height, shades.data(),
                                           grid.width, grid.height, GDT_Byte, 0, 0) != CE_None) {
        problem = "the DEMs cannot be shaded: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    colour(elevation, shades, ground);
    return true;
}
