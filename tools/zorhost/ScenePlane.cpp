#include "ScenePlane.h"

#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/Geodesic.hpp>

#include <cmath>

#include "gdalsupport/DtGdalScope.h"
#include "hxutil/DtException.h"
#include "matrix/DtAngles.h"
#include "matrix/DtGeodeticCoord.h"

using kelZor::DtCoordinateConverter;

namespace {

// The projection of a scene kind on WGS84, before its frame is placed: its numbers are
// then what the scene's x and y are, less a constant shift.
bool projectionOf(const kelZor::DtCoordinateSystem& scene, OGRSpatialReference& srs) {
    srs.SetWellKnownGeogCS("WGS84");
    if (const auto* utm = scene.utmConverter()) {
        const bool north = utm->hemisphere() == 'N';
        if (utm->effectiveZone() == 0)
            return srs.importFromEPSG(north ? 32661 : 32761) == OGRERR_NONE;
        return srs.SetUTM(utm->effectiveZone(), north) == OGRERR_NONE;
    }
    if (const auto* lambert = scene.lambertConverter()) {
        return srs.SetLCC(lambert->parallel1(), lambert->parallel2(), lambert->originLatitude(),
                          lambert->originLongitude(), 0.0, 0.0) == OGRERR_NONE;
    }
    if (const auto* flat = scene.flatEarthConverter()) {
        // The ellipsoidal orthographic projection is the tangent plane's east and north.
        return srs.SetOrthographic(DtRad2Deg(flat->lat()), DtRad2Deg(flat->lon()), 0.0, 0.0) ==
               OGRERR_NONE;
    }
    return false;
}

// Where the projection puts a scene position, through the scene's own converter.
bool projected(const DtCoordinateConverter& converter, OGRCoordinateTransformation& toProjection,
               double x, double y, double& easting, double& northing) {
    double lat = 0.0, lon = 0.0, height = 0.0;
    converter.cigToGeodetic(DtVector64(x, y, 0.0), lat, lon, height);
    easting = lon;
    northing = lat;
    return toProjection.Transform(1, &easting, &northing) && std::isfinite(easting) &&
           std::isfinite(northing);
}

}  // namespace

ScenePlane::ScenePlane(const kelZor::DtCoordinateSystem& scene)
    : scene_(scene), geographic_(scene.type() == DtCoordinateConverter::Geocentric) {
    try {
        wkt_ = describedWkt();
    } catch (const DtException&) {
        wkt_.clear();  // a frame the converter cannot take back: no georeference
    }
}

// The projection shifted so that its numbers are the scene's own: its false easting and
// northing less where the scene's (0, 0) falls. A second place checks that the scene is
// that projection and no more than shifted; otherwise the picture is not georeferenced
// rather than wrongly.
std::string ScenePlane::describedWkt() const {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    OGRSpatialReference srs;
    if (geographic_) {
        srs = DtWgs84();
    } else {
        if (!projectionOf(scene_, srs))
            return "";
        srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        const OGRSpatialReference wgs84 = DtWgs84();
        DtTransformPtr toProjection(OGRCreateCoordinateTransformation(&wgs84, &srs));
        double e0, n0;
        if (!toProjection || !projected(*scene_.converter(), *toProjection, 0.0, 0.0, e0, n0))
            return "";
        srs.SetProjParm(SRS_PP_FALSE_EASTING, srs.GetProjParm(SRS_PP_FALSE_EASTING) - e0);
        srs.SetProjParm(SRS_PP_FALSE_NORTHING, srs.GetProjParm(SRS_PP_FALSE_NORTHING) - n0);
        const std::string name =
            "zorhost scene " + scene_.type() + " " + scene_.converter()->stringRep();
        srs.SetProjCS(name.c_str());
        toProjection.reset(OGRCreateCoordinateTransformation(&wgs84, &srs));
        double e, n;
        const double probe = 1000.0;
        if (!toProjection || !projected(*scene_.converter(), *toProjection, probe, probe, e, n) ||
            std::hypot(e - probe, n - probe) > 0.01)
            return "";
    }
    char* text = nullptr;
    const char* options[] = {"FORMAT=WKT2_2019", nullptr};
    if (srs.exportToWkt(&text, options) != OGRERR_NONE) {
        CPLFree(text);
        return "";
    }
    std::string wkt = text;
    CPLFree(text);
    return wkt;
}

PlanePoint ScenePlane::fromScene(const DtVector64& position) const {
    if (!geographic_)
        return {position.x(), position.y()};
    double lat = 0.0, lon = 0.0, height = 0.0;
    scene_.converter()->cigToGeodetic(position, lat, lon, height);
    return {lon, lat};
}

bool ScenePlane::fromWgs84(const Wgs84Position& place, PlanePoint& point) const {
    if (geographic_) {
        point = {place.lon, place.lat};
        return true;
    }
    double x, y, z;
    GeographicLib::Geocentric::WGS84().Forward(place.lat, place.lon, 0.0, x, y, z);
    DtVector64 cig;
    try {
        scene_.converter()->geocToCig(DtVector64(x, y, z), cig);
    } catch (const DtException&) {
        return false;
    }
    point = {cig.x(), cig.y()};
    return std::isfinite(cig.x()) && std::isfinite(cig.y());
}

double ScenePlane::metresPerUnitX(const PlanePoint& at) const {
    if (!geographic_)
        return 1.0;
    double metres = 0.0;
    const double lat = std::max(-89.9, std::min(89.9, at.y));
    GeographicLib::Geodesic::WGS84().Inverse(lat, at.x - 0.5, lat, at.x + 0.5, metres);
    return metres;
}
