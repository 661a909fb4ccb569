#include "zorCore/DtGeoTiffHeaderParser.h"

#include <ogr_spatialref.h>
#include <ogr_srs_api.h>

#include <cstring>
#include <memory>

#include "zorCore/DtGdalSupport.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

namespace {

bool isLambertConformalConic(const char* projection) {
    return projection && (std::strcmp(projection, SRS_PT_LAMBERT_CONFORMAL_CONIC_2SP) == 0 ||
                          std::strcmp(projection, SRS_PT_LAMBERT_CONFORMAL_CONIC_1SP) == 0);
}

std::unique_ptr<DtCoordinateConverter> lambertOf(const OGRSpatialReference& srs,
                                                 const char* projection) {
    const double originLat = srs.GetNormProjParm(SRS_PP_LATITUDE_OF_ORIGIN, 0.0);
    const double originLon = srs.GetNormProjParm(SRS_PP_CENTRAL_MERIDIAN, 0.0);
    double parallel1 = originLat;
    double parallel2 = originLat;
    if (std::strcmp(projection, SRS_PT_LAMBERT_CONFORMAL_CONIC_2SP) == 0) {
        parallel1 = srs.GetNormProjParm(SRS_PP_STANDARD_PARALLEL_1, originLat);
        parallel2 = srs.GetNormProjParm(SRS_PP_STANDARD_PARALLEL_2, originLat);
    }
    auto lambert = std::make_unique<DtLambertCoordinateConverter>();
    lambert->init(originLat, originLon, parallel1, parallel2);
    return lambert;
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
        const char* projection = srs.GetAttrValue("PROJECTION");
        if (isLambertConformalConic(projection))
            return lambertOf(srs, projection);
        return nullptr;
    }
    if (srs.IsGeographic() || srs.IsGeocentric()) {
        return std::make_unique<DtGeocentricCoordinateConverter>();
    }
    return nullptr;
}

}  // namespace

bool DtGeoTiffHeaderParser::isValid() {
    GDALDatasetUniquePtr dataset = DtOpenRaster(filePath_, "GTiff");
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
    if (!DtOpenRaster(filePath_, nullptr))
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
