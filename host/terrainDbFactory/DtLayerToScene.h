// DtLayerToScene: how the coordinates of one layer reach the scene. From the layer's
// system to WGS84 by OGR (to 3-D WGS84 when the system has a vertical datum, so that
// PROJ applies its geoid), then into the scene by the host's converter of the scene's
// kind. A layer in the scene's own UTM zone reaches it by a shift alone where that is
// proven to agree with the full road.
//
//   DtWgs84Road road;
//   if (!DtLayerToScene::chooseRoad(*layer.GetSpatialRef(), road, problem, note)) ...
//   DtLayerToScene toScene(road, *converter);      // in the thread that uses it
//   toScene.place(x, y, z, points);                // NaN points where one cannot be placed
//
// Internal to the loader; not installed.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gdalsupport/DtGdalScope.h"
#include "geometry/DtPoint.h"
#include "matrix/DtVector64.h"

class Coordinate_System;
namespace kelZor {
class DtCoordinateConverter;
}

// The road to WGS84 chosen for a layer.
struct DtWgs84Road {
    std::shared_ptr<const OGRSpatialReference> source;
    bool threeD = false;  // heights through the system's vertical datum
    bool strict = false;  // no ballpark operation: PROJ has what the vertical datum needs
};

class DtLayerToScene {
public:
    // The converter of the system a load is asked for (null: geocentric); null with the
    // reason when that system's frame cannot be set up.
    static std::unique_ptr<kelZor::DtCoordinateConverter> sceneConverter(
        const Coordinate_System* cs, std::string& problem);

    // The road for a layer's system: false with the reason when OGR knows none. `note`
    // gets a sentence when its heights cannot go through their vertical datum.
    static bool chooseRoad(const OGRSpatialReference& layerSystem, DtWgs84Road& road,
                           std::string& problem, std::string& note);

    // Made in the thread that uses it: OGR's transformations are not shared.
    DtLayerToScene(const DtWgs84Road& road, const kelZor::DtCoordinateConverter& scene);

    // The coordinates in the scene, in order, into `scene` (cleared first); one that
    // cannot be placed becomes a point of NaNs. `x`, `y`, `z` are used up.
    void place(std::vector<double>& x, std::vector<double>& y, std::vector<double>& z,
               std::vector<DtPoint>& scene);
    // Why the first coordinate the last place() could not place was refused, or "".
    const std::string& firstFailure() const { return firstFailure_; }

private:
    // The last leg, from WGS84; the reason when the scene cannot hold the point.
    const char* wgs84ToScene(double lon, double lat, double height, DtVector64& cig) const;
    bool placeOne(double x, double y, double z, DtVector64& cig) const;
    std::optional<DtVector64> shiftToScene() const;
    bool shiftable(const std::vector<double>& x, const std::vector<double>& y,
                   const std::vector<double>& z) const;
    void fail(std::vector<DtPoint>& scene, const char* reason);

    const kelZor::DtCoordinateConverter& converter_;
    DtTransformPtr toWgs84_;
    std::optional<DtVector64> shift_;  // what the layer's coordinates less gives the scene's
    std::vector<int> transformed_;
    std::string firstFailure_;
};
