#include "Scene.h"

#include <vector>

#include "Inspect.h"
#include "hxutil/DtException.h"
#include "matrix/DtAngles.h"
#include "matrix/DtGeodeticCoord.h"
#include "zorCore/DtDe.h"

using kelZor::DtCoordinateConverter;
using kelZor::DtCoordinateSystem;

namespace {

bool isSceneKind(const std::string& type) {
    return type == DtCoordinateConverter::UTM || type == DtCoordinateConverter::Lambert ||
           type == DtCoordinateConverter::FlatEarth;
}

SceneProblem fromText(const std::string& option, SceneChoice& scene) {
    const size_t colon = option.find(':');
    const std::string type = option.substr(0, colon);
    const std::string parameters = colon == std::string::npos ? "" : option.substr(colon + 1);
    try {
        scene.system = DtCoordinateSystem(type, parameters);
    } catch (const DtException& error) {
        return {2, "--scene " + option + ": " + error.message()};
    }
    scene.origin = "as given";
    return {};
}

SceneProblem fromFile(kelZor::DtDe& de, const std::string& path, SceneChoice& scene) {
    const InspectResult answer = inspectPath(de, path);
    if (!answer.valid)
        return {1, "--scene @" + path + ": " + answer.problem};
    if (answer.coordinateSystem.empty())
        return {1, "--scene @" + path + ": " + answer.parser + " gives no coordinate system"};
    try {
        scene.system = DtCoordinateSystem(answer.coordinateSystem, answer.parameters);
    } catch (const DtException& error) {
        return {1, "--scene @" + path + ": " + error.message()};
    }
    scene.origin = "the system of " + path;
    return {};
}

}  // namespace

SceneProblem chooseScene(kelZor::DtDe& de, const std::string& option,
                         const std::vector<std::string>& candidates, SceneChoice& scene) {
    if (!option.empty())
        return option[0] == '@' ? fromFile(de, option.substr(1), scene) : fromText(option, scene);
    for (const std::string& path : candidates) {
        const InspectResult answer = inspectPath(de, path);
        if (!answer.valid)
            continue;
        try {
            // Built first: the type text may be an alias ("Flat Earth") of a kind.
            DtCoordinateSystem system(answer.coordinateSystem, answer.parameters);
            if (isSceneKind(system.type())) {
                scene.system = system;
                scene.origin = "the system of " + path;
                return {};
            }
        } catch (const DtException&) {
            // Not a system the host can rebuild: try the next, else geocentric.
        }
    }
    scene.system = DtCoordinateSystem();
    scene.origin = "geocentric: no UTM, Lambert or flat-earth system in the data";
    return {};
}

std::string sceneLine(const SceneChoice& scene) {
    const std::string parameters = scene.system.converter()->stringRep();
    return "scene: " + scene.system.type() + (parameters.empty() ? "" : " " + parameters) + " (" +
           scene.origin + ")";
}

Json sceneJson(const DtCoordinateSystem& system) {
    return Json{{"type", system.type()}, {"parameters", system.converter()->stringRep()}};
}

Wgs84Position sceneToWgs84(const DtCoordinateSystem& system, const DtVector64& position) {
    DtVector64 geocentric;
    system.converter()->cigToGeoc(position, geocentric);
    DtGeodeticCoord geodetic(DtGlobalEllipsoid());
    geodetic.setGeocentric(geocentric);
    return {DtRad2Deg(geodetic.lon()), DtRad2Deg(geodetic.lat()), geodetic.alt()};
}

Json positionJson(const DtVector64& position) {
    return Json::array({position.x(), position.y(), position.z()});
}
