#include "terrainDbFactory/DtLayerToScene.h"

#include <GeographicLib/Geocentric.hpp>

#include <cmath>
#include <cstring>
#include <limits>

#include "terrainCS/Coordinate_System.h"
#include "zorUtil/DtCoordinateConverter.h"
#include "zorUtil/DtCoordinateSystem.h"

using kelZor::DtCoordinateConverter;

// ------------------------------------------------------------------ the scene's converter

std::unique_ptr<DtCoordinateConverter> DtLayerToScene::sceneConverter(const Coordinate_System* cs,
                                                                      std::string& problem) {
    const int kind = cs ? cs->kind() : Coordinate_System::Geocentric;
    if (const auto* utm = dynamic_cast<const DtUtmCS*>(cs); utm && kind == Coordinate_System::Utm) {
        double easting = 0.0, northing = 0.0;
        if (!utm->frameZero(easting, northing)) {
            problem = "the scene's false origin lies nowhere in UTM zone " +
                      std::to_string(utm->zoneNumber()) + utm->hemisphere();
            return nullptr;
        }
        auto converter = std::make_unique<kelZor::DtUtmCoordinateConverter>();
        const bool shifted = utm->originPlacement() == DtUtmCS::OriginAtFrameZero;
        // The system tells the frame's (0, 0); its height is the scene's, which says it.
        double height = 0.0;
        if (shifted)
            kelZor::DtCoordinateSystem::falseOriginHeight(utm->zoneNumber(), utm->hemisphere(),
                                                          easting, northing, height);
        converter->init(easting, northing, height, utm->zoneNumber(), utm->hemisphere(), shifted);
        return converter;
    }
    if (const auto* lcc = dynamic_cast<const DtLambertConformalCS*>(cs);
        lcc && kind == Coordinate_System::Lambert) {
        auto converter = std::make_unique<kelZor::DtLambertCoordinateConverter>();
        converter->init(lcc->originLatitudeDegrees(), lcc->originLongitudeDegrees(),
                        DtRad2Deg(lcc->parallel1()), DtRad2Deg(lcc->parallel2()));
        return converter;
    }
    if (kind == Coordinate_System::FlatEarth) {
        auto converter = std::make_unique<kelZor::DtFlatEarthCoordinateConverter>();
        converter->init(DtDeg2Rad(cs->originLatitudeDegrees()),
                        DtDeg2Rad(cs->originLongitudeDegrees()));
        return converter;
    }
    return std::make_unique<kelZor::DtGeocentricCoordinateConverter>();
}

// ------------------------------------------------------------------ the road to WGS84

namespace {

DtTransformPtr transformToWgs84(const OGRSpatialReference& source, bool threeD, bool strict) {
    const OGRSpatialReference target = DtWgs84(threeD);
    OGRCoordinateTransformationOptions options;
    options.SetBallparkAllowed(!strict);
    return DtTransformPtr(OGRCreateCoordinateTransformation(&source, &target, options));
}

// A system whose third axis means something: a compound one's heights are above its
// vertical datum, a 3-D one's above its ellipsoid.
bool hasHeights(const OGRSpatialReference& srs) {
    return srs.IsCompound() || srs.GetAxesCount() >= 3;
}

}  // namespace

bool DtLayerToScene::chooseRoad(const OGRSpatialReference& layerSystem, DtWgs84Road& road,
                                std::string& problem, std::string& note) {
    road.source.reset(layerSystem.Clone());
    road.threeD = hasHeights(layerSystem);
    road.strict = false;
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    // Without ballpark operations PROJ refuses a vertical datum whose geoid grid it lacks,
    // instead of taking its heights as ellipsoidal without a word.
    if (road.threeD && transformToWgs84(*road.source, true, true)) {
        road.strict = true;
        return true;
    }
    CPLErrorReset();
    if (!transformToWgs84(*road.source, road.threeD, false)) {
        problem = "no transformation to WGS84: " + DtGdalMessages::last("OGR knows none");
        return false;
    }
    if (road.threeD && layerSystem.IsCompound()) {
        const char* name = layerSystem.GetName();
        note = std::string("heights in \"") + (name ? name : "its compound system") +
               "\" are taken as heights above the ellipsoid: PROJ has no grid for its vertical "
               "datum here";
    }
    return true;
}

// ------------------------------------------------------------------ UTM layers in a UTM scene
//
// A layer in the scene's own UTM zone reaches the scene by a shift alone: the full road
// (to WGS84 by OGR, geocentric, the scene's projection) only undoes and redoes the same
// projection. The shift is taken only where the full road is known to agree: the corners
// of a box of easting and northing well inside the zone (and a height off the ground) go
// the full road when the layer starts, and each must land shifted by the same amount to a
// micrometre; that also proves the layer's datum, units and axis order are the scene's.
// Batches with any coordinate outside the box keep the full road, so its verdicts on odd
// coordinates stand.

namespace {

constexpr double SafeEastingMin = 100e3, SafeEastingMax = 900e3;
constexpr double SafeNorthingMin = 1200e3, SafeNorthingMax = 9300e3;

bool insideSafeBox(double easting, double northing, double height) {
    return easting >= SafeEastingMin && easting <= SafeEastingMax && northing >= SafeNorthingMin &&
           northing <= SafeNorthingMax && std::isfinite(height);
}

}  // namespace

DtLayerToScene::DtLayerToScene(const DtWgs84Road& road, const DtCoordinateConverter& scene)
    : converter_(scene) {
    if (road.source) {
        toWgs84_ = transformToWgs84(*road.source, road.threeD, road.strict);
        shift_ = shiftToScene();
    }
}

const char* DtLayerToScene::wgs84ToScene(double lon, double lat, double height,
                                         DtVector64& cig) const {
    if (!std::isfinite(lon) || !std::isfinite(lat) || !std::isfinite(height))
        return "it is no finite position";
    if (std::fabs(lat) > 90.0)
        return "its latitude lies beyond the pole (are the file's axes swapped?)";
    double X, Y, Z;
    GeographicLib::Geocentric::WGS84().Forward(lat, lon, height, X, Y, Z);
    try {
        converter_.geocToCig(DtVector64(X, Y, Z), cig);
    } catch (const std::exception&) {
        return "the scene's projection has no finite answer there";
    }
    if (!std::isfinite(cig.x()) || !std::isfinite(cig.y()) || !std::isfinite(cig.z()))
        return "the scene's projection has no finite answer there";
    return nullptr;
}

bool DtLayerToScene::placeOne(double x, double y, double z, DtVector64& cig) const {
    int done = 0;
    return toWgs84_ && toWgs84_->Transform(1, &x, &y, &z, &done) && done &&
           !wgs84ToScene(x, y, z, cig);
}

std::optional<DtVector64> DtLayerToScene::shiftToScene() const {
    if (std::strcmp(converter_.type(), DtCoordinateConverter::UTM) != 0)
        return std::nullopt;
    const double probes[5][3] = {{SafeEastingMin, SafeNorthingMin, 0.0},
                                 {SafeEastingMax, SafeNorthingMin, 0.0},
                                 {SafeEastingMin, SafeNorthingMax, 0.0},
                                 {SafeEastingMax, SafeNorthingMax, 0.0},
                                 {500e3, 5000e3, 1000.0}};
    // A probe outside the layer's projection is an answer, not a problem to print.
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    std::optional<DtVector64> shift;
    for (const auto& probe : probes) {
        DtVector64 cig;
        if (!placeOne(probe[0], probe[1], probe[2], cig))
            return std::nullopt;
        const DtVector64 here(probe[0] - cig.x(), probe[1] - cig.y(), probe[2] - cig.z());
        if (!shift)
            shift = here;
        else if (std::abs(here.x() - shift->x()) > 1e-6 || std::abs(here.y() - shift->y()) > 1e-6 ||
                 std::abs(here.z() - shift->z()) > 1e-6)
            return std::nullopt;
    }
    return shift;
}

bool DtLayerToScene::shiftable(const std::vector<double>& x, const std::vector<double>& y,
                               const std::vector<double>& z) const {
    if (!shift_)
        return false;
    for (size_t i = 0; i < x.size(); ++i) {
        if (!insideSafeBox(x[i], y[i], z[i]))
            return false;
    }
    return true;
}

void DtLayerToScene::fail(std::vector<DtPoint>& scene, const char* reason) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    scene.emplace_back(nan, nan, nan);
    if (firstFailure_.empty())
        firstFailure_ = reason;
}

void DtLayerToScene::place(std::vector<double>& x, std::vector<double>& y, std::vector<double>& z,
                           std::vector<DtPoint>& scene) {
    scene.clear();
    firstFailure_.clear();
    if (shiftable(x, y, z)) {
        const DtVector64 shift = *shift_;
        for (size_t i = 0; i < x.size(); ++i)
            scene.emplace_back(x[i] - shift.x(), y[i] - shift.y(), z[i] - shift.z());
        return;
    }
    transformed_.assign(x.size(), 0);
    // Which points failed is in the flags: OGR's answer is false when any one did.
    if (toWgs84_ && !x.empty())
        toWgs84_->Transform(static_cast<int>(x.size()), x.data(), y.data(), z.data(),
                            transformed_.data());
    for (size_t i = 0; i < x.size(); ++i) {
        DtVector64 cig;
        const char* reason =
            transformed_[i] ? wgs84ToScene(x[i], y[i], z[i], cig) : "OGR cannot take it to WGS84";
        if (reason)
            fail(scene, reason);
        else
            scene.emplace_back(cig.x(), cig.y(), cig.z());
    }
}
