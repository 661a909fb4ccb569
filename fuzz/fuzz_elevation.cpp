// Fuzz target: any bytes as an elevation source of the host's terrain, asked to clamp
// positions in and around it in a UTM, a flat-earth, a Lambert and a geocentric scene.
//
// Input: byte 0 chooses the form: 0 an AAIGrid text with a WGS84 .prj, 1 an AAIGrid
// text with a UTM 32N .prj, 2 a GeoTIFF, 3 a DTED cell; the rest is the file. Whatever
// georeference, data type, no-data, scale and offset it has, clampToTerrain answers
// false or a finite point, and never throws.
#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <GeographicLib/Geocentric.hpp>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "EsriPrj.h"
#include "FuzzSupport.h"
#include "gdalsupport/DtGdalScope.h"
#include "zorCore/DtTerrain.h"
#include "zorUtil/DtCoordinateSystem.h"

namespace {

void check(bool holds) {
    if (!holds)
        __builtin_trap();
}

std::string putFile(const std::string& path, const uint8_t* data, size_t size) {
    if (VSILFILE* file = VSIFOpenL(path.c_str(), "wb")) {
        VSIFWriteL(data, 1, size, file);
        VSIFCloseL(file);
    }
    return path;
}

std::string sourceOf(const uint8_t* data, size_t size) {
    static const std::string wgs84 = esriPrj(4326), utm32 = esriPrj(32632);
    const uint8_t form = data[0] % 4;
    const uint8_t* bytes = data + 1;
    const size_t length = size - 1;
    if (form < 2) {
        const std::string& text = form == 0 ? wgs84 : utm32;
        putFile("/vsimem/fuzz_elevation/dem.prj", reinterpret_cast<const uint8_t*>(text.data()),
                text.size());
        return putFile("/vsimem/fuzz_elevation/dem.asc", bytes, length);
    }
    return putFile(form == 2 ? "/vsimem/fuzz_elevation/dem.tif" : "/vsimem/fuzz_elevation/dem.dt0",
                   bytes, length);
}

// Longitudes and latitudes to ask: a grid over the raster's extent and a little beyond,
// when it has a georeference GDAL can bring to WGS84, and a few fixed places.
std::vector<std::pair<double, double>> placesAround(const std::string& path) {
    std::vector<std::pair<double, double>> places = {
        {9.0, 45.0}, {-170.0, 0.0}, {190.0, 0.5}, {0.0, 90.0}, {15.0, -10.0}};
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    double g[6];
    const OGRSpatialReference* srs = dataset ? dataset->GetSpatialRef() : nullptr;
    if (!srs || dataset->GetGeoTransform(g) != CE_None)
        return places;
    OGRSpatialReference source(*srs), wgs84;
    source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    wgs84.SetWellKnownGeogCS("WGS84");
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    DtTransformPtr toWgs84(OGRCreateCoordinateTransformation(&source, &wgs84));
    if (!toWgs84)
        return places;
    const int width = dataset->GetRasterXSize(), height = dataset->GetRasterYSize();
    for (int i = -1; i <= 5; ++i) {
        for (int j = -1; j <= 5; ++j) {
            const double col = width * (i / 4.0), row = height * (j / 4.0);
            double x = g[0] + g[1] * col + g[2] * row, y = g[3] + g[4] * col + g[5] * row;
            if (toWgs84->Transform(1, &x, &y))
                places.emplace_back(x, y);
        }
    }
    return places;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 256 * 1024)
        return 0;
    // OGR keeps up to a thousand transformations of systems it has seen; a fuzzer shows
    // it a new system with nearly every input.
    static const bool registered =
        (CPLSetConfigOption("OSR_CT_CACHE_SIZE", "16"), GDALAllRegister(), true);
    (void)registered;
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    const std::string path = sourceOf(data, size);
    static const std::vector<kelZor::DtCoordinateSystem> scenes = [] {
        std::vector<kelZor::DtCoordinateSystem> list;
        list.emplace_back(kelZor::DtCoordinateConverter::UTM, "45,9,32,32,N,0,0,0,0,0");
        list.emplace_back(kelZor::DtCoordinateConverter::FlatEarth, "45,9");
        list.emplace_back(kelZor::DtCoordinateConverter::Lambert, "46.8,2.33722917,47.7,45.9");
        list.emplace_back();
        return list;
    }();
    const std::vector<std::pair<double, double>> places = placesAround(path);
    for (const kelZor::DtCoordinateSystem& scene : scenes) {
        kelZor::DtTerrain terrain;
        terrain.setCoordinateSystem(&scene);
        std::string error;
        if (!terrain.addElevationSource(path, error))
            return 0;
        kelZor::DtCoordinateConverter& converter = *scene.converter();
        for (const auto& [lon, lat] : places) {
            if (!(std::fabs(lat) <= 90.0) || !std::isfinite(lon))
                continue;
            double X, Y, Z;
            GeographicLib::Geocentric::WGS84().Forward(lat, lon, 10.0, X, Y, Z);
            DtVector64 position;
            try {
                converter.geocToCig(DtVector64(X, Y, Z), position);
            } catch (const std::exception&) {
                continue;  // the scene cannot hold this place at all
            }
            converter.setReferencePoint(position);
            const DtVector64 up = converter.upVector(position);
            double x = 0, y = 0, z = 0;
            bool clamped = false;
            try {
                clamped = terrain.clampToTerrain(position.x(), position.y(), position.z(), up.x(),
                                                 up.y(), up.z(), x, y, z);
            } catch (...) {
                __builtin_trap();  // it answers false; it never throws
            }
            check(!clamped || (std::isfinite(x) && std::isfinite(y) && std::isfinite(z)));
        }
    }
    return 0;
}
