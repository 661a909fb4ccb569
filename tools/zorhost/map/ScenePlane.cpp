#include "ScenePlane.h"

#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/TransverseMercator.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <mutex>

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

// The conformal plane of a geocentric scene, centred on its data.
class ScenePlane::Conformal {
public:
    explicit Conformal(const PlaneCentre& centre)
        : lon0_(std::remainder(centre.lon, 360.0)),
          lat0_(std::max(-80.0, std::min(80.0, centre.lat))),
          mercator_(centre.lonSpan > wideSpan) {
        srs_.SetWellKnownGeogCS("WGS84");
        char text[96];
        if (mercator_) {
            srs_.SetMercator2SP(lat0_, 0.0, lon0_, 0.0, 0.0);
            std::snprintf(text, sizeof(text), "Mercator on %.4f, true at %.4f", lon0_, lat0_);
            srs_.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
            const OGRSpatialReference wgs84 = DtWgs84();
            toPlane_.reset(OGRCreateCoordinateTransformation(&wgs84, &srs_));
            fromPlane_.reset(OGRCreateCoordinateTransformation(&srs_, &wgs84));
        } else {
            srs_.SetTM(lat0_, lon0_, 1.0, 0.0, 0.0);
            std::snprintf(text, sizeof(text), "transverse Mercator on %.4f, %.4f", lon0_, lat0_);
            double x = 0.0;
            tm_.Forward(lon0_, lat0_, lon0_, x, northing0_);
        }
        srs_.SetProjCS((std::string("zorhost map plane: ") + text).c_str());
        description_ = text;
    }

    bool forward(double lat, double lon, PlanePoint& p) const {
        if (!mercator_) {
            // Beyond a quarter of the globe from its meridian the plane folds back.
            if (std::abs(std::remainder(lon - lon0_, 360.0)) > 89.0)
                return false;
            tm_.Forward(lon0_, lat, lon, p.x, p.y);
            p.y -= northing0_;
            return std::isfinite(p.x) && std::isfinite(p.y);
        }
        if (!(std::abs(lat) <= 85.0) || !toPlane_)
            return false;
        double x = std::remainder(lon - lon0_, 360.0) + lon0_, y = lat;
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!toPlane_->Transform(1, &x, &y))
            return false;
        p = {x, y};
        return std::isfinite(x) && std::isfinite(y);
    }
    bool reverse(const PlanePoint& p, double& lat, double& lon) const {
        if (!mercator_) {
            tm_.Reverse(lon0_, p.x, p.y + northing0_, lat, lon);
            return std::isfinite(lat) && std::isfinite(lon);
        }
        if (!fromPlane_)
            return false;
        double x = p.x, y = p.y;
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!fromPlane_->Transform(1, &x, &y))
            return false;
        lon = x, lat = y;
        return std::isfinite(x) && std::isfinite(y);
    }
    const OGRSpatialReference& srs() const { return srs_; }
    const std::string& description() const { return description_; }

private:
    static constexpr double wideSpan = 120.0;  // degrees east to west: a third of the globe
    double lon0_, lat0_;
    bool mercator_;
    // Scale 1 on the meridian: true lengths at the centre.
    const GeographicLib::TransverseMercator tm_{GeographicLib::Constants::WGS84_a(),
                                                GeographicLib::Constants::WGS84_f(), 1.0};
    double northing0_ = 0.0;
    OGRSpatialReference srs_;
    DtTransformPtr toPlane_, fromPlane_;
    mutable std::mutex mutex_;
    std::string description_;
};

ScenePlane::ScenePlane(const kelZor::DtCoordinateSystem& scene, const PlaneCentre& centre)
    : scene_(scene), ofItsOwn_(scene.type() == DtCoordinateConverter::Geocentric) {
    DtGdalRegisterOnce();
    if (ofItsOwn_) {
        conformal_ = std::make_unique<Conformal>(centre);
        description_ = conformal_->description();
    } else {
        description_ = "the scene's own x and y";
    }
    try {
        wkt_ = describedWkt();
    } catch (const DtException&) {
        wkt_.clear();  // a frame the converter cannot take back: no georeference
    }
}

ScenePlane::~ScenePlane() = default;

// The projection shifted so that its numbers are the scene's own: its false easting and
// northing less where the scene's (0, 0) falls. A second place checks that the scene is
// that projection and no more than shifted; otherwise the picture is not georeferenced
// rather than wrongly.
std::string ScenePlane::describedWkt() const {
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    OGRSpatialReference srs;
    if (conformal_) {
        srs = conformal_->srs();
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
    if (!conformal_)
        return {position.x(), position.y()};
    double lat = 0.0, lon = 0.0, height = 0.0;
    scene_.converter()->cigToGeodetic(position, lat, lon, height);
    PlanePoint p;
    if (!conformal_->forward(lat, lon, p))
        p.x = p.y = std::numeric_limits<double>::quiet_NaN();
    return p;
}

bool ScenePlane::fromWgs84(const Wgs84Position& place, PlanePoint& point) const {
    if (conformal_)
        return conformal_->forward(place.lat, place.lon, point);
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

bool ScenePlane::toScene(const PlanePoint& point, DtVector64& position) const {
    if (!conformal_) {
        position = DtVector64(point.x, point.y, 0.0);
        return std::isfinite(point.x) && std::isfinite(point.y);
    }
    double lat = 0.0, lon = 0.0, x, y, z;
    if (!conformal_->reverse(point, lat, lon))
        return false;
    GeographicLib::Geocentric::WGS84().Forward(lat, lon, 0.0, x, y, z);
    try {
        scene_.converter()->geocToCig(DtVector64(x, y, z), position);
    } catch (const DtException&) {
        return false;
    }
    return std::isfinite(position.x()) && std::isfinite(position.y()) &&
           std::isfinite(position.z());
}
