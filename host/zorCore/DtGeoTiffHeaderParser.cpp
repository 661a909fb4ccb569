#include "zorCore/DtGeoTiffHeaderParser.h"

#include <ogr_spatialref.h>
#include <ogr_srs_api.h>

#include <memory>

#include "gdalsupport/DtGdalScope.h"
#include "gdalsupport/DtSrsParameters.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

namespace {

// A raster opened read-only, with only `driver` when it is not null; null on failure.
GDALDatasetUniquePtr openRaster(const std::string& path, const char* driver) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    const char* const drivers[] = {driver, nullptr};
    return GDALDatasetUniquePtr(
        GDALDataset::FromHandle(GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY,
                                           driver ? drivers : nullptr, nullptr, nullptr)));
}

// The converter kind of a raster's coordinate system, or null for one we do not serve.
std::unique_ptr<DtCoordinateConverter> converterOf(const OGRSpatialReference& srs) {
    if (srs.IsProjected()) {
        int north = 1;
        const int zone = srs.GetUTMZone(&north);
        if (zone > 0) {
            auto utm = std::make_unique<DtUtmCoordinateConverter>();
            utm->init(zone, north ? 'N' : 'S', false);
            return utm;
        }
        DtLambertCone cone;
        if (!DtLambertConeOf(srs, cone))
            return nullptr;
        auto lambert = std::make_unique<DtLambertCoordinateConverter>();
        lambert->init(cone.originLat, cone.originLon, cone.parallel1, cone.parallel2);
        return lambert;
    }
    if (srs.IsGeographic() || srs.IsGeocentric()) {
        return std::make_unique<DtGeocentricCoordinateConverter>();
    }
    return nullptr;
}

}  // namespace

bool DtGeoTiffHeaderParser::isValid() {
    GDALDatasetUniquePtr dataset = openRaster(filePath_, "GTiff");
    if (!dataset)
        return false;
    const OGRSpatialReference* srs = dataset->GetSpatialRef();
    if (!srs)
        return false;
    std::unique_ptr<DtCoordinateConverter> converter = converterOf(*srs);
    if (!converter)
        return false;
    terrainCoordinateSystem_ = converter->type();
    terrainCoordinateSystemParameters_ = converter->stringRep();
    addStandardPatchRecord(filePath_);
    return true;
}

DtHeaderParser* DtGeoTiffHeaderParserCreator::create(DtDe&, const std::string& filePath) const {
    return new DtGeoTiffHeaderParser(filePath);
}

bool DtImageHeaderParser::isValid() {
    if (!openRaster(filePath_, nullptr))
        return false;
    terrainCoordinateSystem_.clear();
    terrainCoordinateSystemParameters_.clear();
    addStandardPatchRecord(filePath_);
    return true;
}

DtHeaderParser* DtImageHeaderParserCreator::create(DtDe&, const std::string& filePath) const {
    return new DtImageHeaderParser(filePath);
}

}  // namespace kelZor
