// `zorhost view`: the scene in 3-D as the engine would show it - the terrain as the
// surface props are clamped to, the features and tiles draped on it, the props standing
// at their positions facing their headings - in a window, a picture rendered off-screen
// (--png) or a scene graph for any OpenSceneGraph viewer (--osgb).
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "MapCommand.h"
#include "ViewRender.h"

namespace kelZor {
class DtDe;
}

struct ViewRequest {
    // What to load and the ground's colours, as for a map (its output, extent, title and
    // legend unused).
    MapRequest inputs;
    std::string png, osgb;  // neither: a window
    std::vector<int> size;  // the picture's or window's width and height; empty: 1024 x 768
    // heading and pitch in degrees, and the range in metres; empty: 45, -35 and the whole
    // scene in view
    std::vector<double> camera;
    // the point looked at, in the scene's plane (longitude and latitude in a geocentric
    // scene), on the ground; empty: the middle of the scene
    std::vector<double> target;
};

// 0 when every output asked is written (or the window closed) and the loads gave all; 2
// for a request that cannot be made (as map's, and a malformed --camera, --target or
// --size); 1 when an input cannot be used, a prop was not placed, a model cannot be read,
// no display is there to render on, or an output cannot be written.
int runView(kelZor::DtDe& de, const ViewRequest& request, const TileSources& tiles,
            std::ostream& out, std::ostream& err);

// The longest side of a picture rendered off-screen.
const int viewMaxSide = 8192;
