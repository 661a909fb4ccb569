// Where a view is seen from, and the three ways to see it: a picture rendered off-screen
// (a pbuffer on the X display; Xvfb and Mesa's software renderer are enough), the scene
// graph written for any OpenSceneGraph viewer, or a window to walk about in.
#pragma once

#include <osg/BoundingBox>
#include <osg/Node>
#include <osg/Vec3d>

#include <string>
#include <vector>

namespace kelZor {
class DtCoordinateConverter;
}

// The camera a person asks for: heading and pitch in degrees (heading from north towards
// east, pitch below the horizon negative), range in metres from the target; 0: far
// enough for the whole scene.
struct CameraRequest {
    double heading = 45.0, pitch = -35.0, range = 0.0;
};

// The camera in the scene's frame.
struct CameraPose {
    osg::Vec3d eye, target, up;
    double heading = 0.0, pitch = 0.0, range = 0.0;
    double fieldOfView = 30.0;  // degrees, of the picture's height
};

// Looks at `target` (a scene position) from `request`'s heading, pitch and range, in the
// level frame of the scene there; a range of 0 puts all of `drawn` (the scene's box) in
// view of a picture `aspect` times as wide as high.
CameraPose cameraPose(const kelZor::DtCoordinateConverter& converter, const osg::Vec3d& target,
                      const CameraRequest& request, const osg::BoundingBox& drawn, double aspect);

// Whether an X display is named; an off-screen picture and a window both need one.
bool haveDisplay();

// Renders one frame of `scene` at width x height into a PNG at `path`; false with the
// reason.
bool renderPng(osg::Node& scene, const CameraPose& camera, int width, int height,
               const std::string& path, std::string& problem);

// Writes the graph, its textures inside, to `path` (.osgb); false with the reason.
bool writeSceneGraph(osg::Node& scene, const std::string& path, std::string& problem);

// A window of width x height on the scene until it is closed: trackball and terrain
// manipulators, the camera's view as home, a line of the keys over it; false with the
// reason.
bool showWindow(osg::Node& scene, const CameraPose& camera, int width, int height,
                std::string& problem);

// OpenSceneGraph's own notices kept off stderr (zorhost says what matters in its words),
// unless OSG_NOTIFY_LEVEL asks for them.
void quietSceneGraphNotices();
