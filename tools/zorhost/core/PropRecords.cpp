#include "PropRecords.h"

#include "PropFacing.h"
#include "SceneOutput.h"
#include "zorCore/DtPropAdder.h"

using kelZor::DtProp;
Json propJson(size_t rule, const DtProp& prop, const kelZor::DtCoordinateSystem& scene) {
    const kelArchives::DtPropRecord& r = prop.record();
    const double* p = r.position();
    const double* q = r.orientation();
    const bool isPlaced = propPlaced(r);
    const Wgs84Position where =
        isPlaced ? sceneToWgs84(scene, DtVector64(p[0], p[1], p[2])) : Wgs84Position();
    return {{"rule", rule},
            {"name", prop.name()},
            {"propType", prop.propType()},
            {"model", r.modelDefOrNodeAddress()},
            {"placed", isPlaced},
            {"position", {p[0], p[1], p[2]}},
            {"wgs84", isPlaced ? Json{where.lon, where.lat, where.height} : Json(nullptr)},
            {"headingDegrees", isPlaced ? Json(propHeadingDegrees(scene, r)) : Json(nullptr)},
            {"orientation", {q[0], q[1], q[2], q[3]}}};
}

std::string unplacedLine(const std::string& file, size_t unplaced, const std::string& first) {
    return file + ": " + std::to_string(unplaced) + (unplaced == 1 ? " prop" : " props") +
           " not placed: no --terrain source lies below or above (the engine leaves each at "
           "the origin; the first is " +
           first + ")";
}
