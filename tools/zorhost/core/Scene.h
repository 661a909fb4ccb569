// The scene a vector command loads into: the engine's coordinate system, as the person
// names it (--scene TYPE:PARAMETERS, a coordinate system OSR reads, or @FILE) or as the
// data suggest.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "Wgs84Position.h"
#include "matrix/DtVector64.h"
#include "zorUtil/DtCoordinateSystem.h"

namespace kelZor {
class DtDe;
}

struct SceneChoice {
    kelZor::DtCoordinateSystem system;
    std::string origin;                 // where it came from, for a person
    std::vector<std::string> warnings;  // what a person must know of it (data far away)
};

// Exit status of a scene that cannot be chosen: the option is malformed (2) or its file
// gives no system (1).
struct SceneProblem {
    int status = 0;
    std::string message;
};

// From `option` when given; otherwise the system of the first of `candidates` that has a
// UTM, Lambert or flat-earth one; otherwise geocentric, saying why. A flat-earth or
// Lambert scene whose data lie far from its origin gets a warning.
SceneProblem chooseScene(kelZor::DtDe& de, const std::string& option,
                         const std::vector<std::string>& candidates, SceneChoice& scene);

// Each warning, one line on `err`.
void printSceneWarnings(const SceneChoice& scene, std::ostream& err);

// The engine's kind and parameters of a coordinate system OSR reads (EPSG:n, WKT, a PROJ
// string): UTM, Lambert, flat earth (equirectangular) or geocentric (geographic and
// geocentric systems); false with the reason when the engine has no such kind.
bool sceneFromSrsText(const std::string& text, kelZor::DtCoordinateSystem& system,
                      std::string& reason);

// What `zorhost help scene` prints: each kind's parameters with an example.
extern const char* const sceneKindsHelp;

// The first line the commands print: "scene: TYPE PARAMETERS (origin)".
std::string sceneLine(const SceneChoice& scene);
Json sceneJson(const kelZor::DtCoordinateSystem& system);

// Where a scene position is on the earth.
Wgs84Position sceneToWgs84(const kelZor::DtCoordinateSystem& system, const DtVector64& position);

Json positionJson(const DtVector64& position);
