// The scene a vector command loads into: the engine's coordinate system, as the person
// names it (--scene TYPE:PARAMETERS or @FILE) or as the data file suggests.
#pragma once

#include <string>

#include "JsonOutput.h"
#include "Wgs84Position.h"
#include "matrix/DtVector64.h"
#include "zorUtil/DtCoordinateSystem.h"

namespace kelZor {
class DtDe;
}

struct SceneChoice {
    kelZor::DtCoordinateSystem system;
    std::string origin;  // where it came from, for a person
};

// Exit status of a scene that cannot be chosen: the option is malformed (2) or its file
// gives no system (1).
struct SceneProblem {
    int status = 0;
    std::string message;
};

// From `option` when given; otherwise the system of each of `candidates` in turn whose
// parser answers a UTM, Lambert or flat-earth one; otherwise geocentric.
SceneProblem chooseScene(kelZor::DtDe& de, const std::string& option,
                         const std::vector<std::string>& candidates, SceneChoice& scene);

// The first line the commands print: "scene: TYPE PARAMETERS (origin)".
std::string sceneLine(const SceneChoice& scene);
Json sceneJson(const kelZor::DtCoordinateSystem& system);

// Where a scene position is on the earth.
Wgs84Position sceneToWgs84(const kelZor::DtCoordinateSystem& system, const DtVector64& position);

Json positionJson(const DtVector64& position);
