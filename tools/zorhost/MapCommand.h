// `zorhost map`: a picture of what the engine makes of terrain files - the ground of the
// DEMs, the features the feature adder loads, the props the prop adder places and the
// tiles of a MetaFlight level - drawn in the scene's plane and georeferenced, so that a
// person sees at a glance whether props stand on the right hillside and how a level tiles
// an area.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "LoadReport.h"
#include "MetaFlightCommands.h"

namespace kelZor {
class DtDe;
}

struct MapRequest {
    std::string output;  // the PNG; its world file and .aux.xml go beside it
    std::vector<std::string> terrains;
    std::vector<std::string> features;
    std::string props, rules;
    std::string tiles, dataset;
    int level = 0;
    std::string scene;           // as for features; empty: chosen from the data
    std::vector<double> extent;  // min x, min y, max x, max y in the plane; empty: what is drawn
    std::vector<int> size;       // width and height in pixels; empty: 1024 on the longer side
    std::string title;           // empty: the inputs' names
    bool overwrite = false;
    LoadOptions load;
};

// The tile footprints of zorhost's module; null when the module is not loaded.
using TileFootprintSource = int (*)(const TilesRequest& request, const TileVisitor& visit,
                                    std::ostream& err);

// 0 when the picture is written and the engine was told no error; 2 for a request that
// cannot be drawn (nothing given to draw, a malformed or empty extent, a size over 16384
// pixels, a malformed --scene or load option); 1 when an input cannot be used, holds
// nothing the scene can place, a file with objects gave nothing, a prop was not placed
// or the engine was told an error.
int runMap(kelZor::DtDe& de, const MapRequest& request, TileFootprintSource tiles,
           std::ostream& out, std::ostream& err);

// The longest side a picture may have, in pixels.
const int mapMaxSide = 16384;
