// `zorhost map`: a picture of what the engine makes of terrain files - the ground of the
// DEMs, the features the feature adder loads, the props the prop adder places and the
// tiles of a MetaFlight level - drawn in the scene's plane and georeferenced, so that a
// person sees at a glance whether props stand on the right hillside and how a level tiles
// an area.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "EngineReport.h"
#include "LoadReport.h"
#include "MapCanvas.h"
#include "MapGround.h"
#include "MetaFlightCommands.h"
#include "PropsLoad.h"
#include "Scene.h"
#include "ScenePlane.h"
#include "zorCore/DtFeatureSet.h"
#include "zorCore/DtPropAdder.h"

namespace kelZor {
class DtDe;
}

// What a map drew, for a front end that gives it as it gives things.
struct MapSummary {
    int width = 0, height = 0;                      // the picture's
    int frameWidth = 0, frameHeight = 0;            // its data frame's
    double minX = 0, minY = 0, maxX = 0, maxY = 0;  // the frame's extent in the plane
    std::string plane;                              // the plane's description
    std::string wkt;                                // its coordinate system
};

struct MapRequest {
    std::string command = "map";  // the command drawing it, as its messages name it
    std::string output;           // the PNG (its world file and .aux.xml go beside it) or GeoTIFF
    std::vector<std::string> terrains;
    std::vector<std::string> features;
    std::string props, rules;
    std::string tiles, dataset;
    int level = 0;
    std::string scene;  // as for features; empty: chosen from the data
    // min x, min y, max x, max y in the scene's plane (longitude and latitude in a
    // geocentric scene); empty: what is drawn
    std::vector<double> extent;
    std::vector<int>
        size;           // the frame's width and height in pixels; empty: 1024 on the longer side
    std::string title;  // empty: the inputs' names
    bool overwrite = false;
    GroundStyle ground;
    LegendPlacement legend = LegendPlacement::Automatic;
    bool progress = false;
    // The level's tiles as `check` found them: each drawn as a cell of its state's colour.
    const TileStates* cells = nullptr;
    MapSummary* summary = nullptr;  // filled when given and the picture is written
    LoadOptions load;
};

// The tiles of zorhost's module, one by one or a level's grid as a whole; null when the
// module is not loaded.
struct TileSources {
    int (*footprints)(const TilesRequest& request, const TileVisitor& visit,
                      std::ostream& err) = nullptr;
    int (*grid)(const TilesRequest& request, const TileGridVisitor& visit,
                std::ostream& err) = nullptr;
};

// 0 when the picture is written and the engine was told no error; 2 for a request that
// cannot be drawn (nothing given to draw, a malformed or empty extent, a size over 16384
// pixels, a malformed --scene or load option); 1 when an input cannot be used, holds
// nothing the scene can place (a --ramp file GDAL cannot read included), a file with objects gave
// nothing, a prop was not placed or the engine was told an error.
int runMap(kelZor::DtDe& de, const MapRequest& request, const TileSources& tiles, std::ostream& out,
           std::ostream& err);

// The longest side a picture may have, in pixels.
const int mapMaxSide = 16384;

// What was loaded through the plug-in, kept for every pass over it.
struct MapContent {
    std::vector<std::unique_ptr<kelZor::DtFeatureLayer>> layers;
    kelZor::DtAgentManagerInterface agents;  // before the props, which refer to it
    kelZor::DtTerrainLayer props;
    std::vector<size_t> ruleOfProp;
    RulesFile rules;
};

// What map and view share: the request's inputs checked, the scene chosen, what the files
// make loaded into it through the plug-in (each load's report said on `err`), and where
// it lies in the scene's plane.
struct LoadedScene {
    SceneChoice scene;
    MapContent content;
    std::unique_ptr<ScenePlane> plane;
    PlaneBounds drawn;  // features, placed props and tiles; the DEMs' when none
    PlaneBounds asked;  // --extent in the plane
    bool loadsGaveAll = true;
    std::unique_ptr<EngineReport> engine;  // what the engine said since the loads began
};

// The exit status runMap would give for the same problem, 0 when loaded. `outputsReady`
// is asked once the inputs are known good, before anything is loaded: false (having said
// why) stops the load with status 1.
int loadScene(kelZor::DtDe& de, const MapRequest& request, const TileSources& tiles,
              const std::function<bool()>& outputsReady, LoadedScene& loaded, std::ostream& err);

// The map's frame of a loaded scene: what was drawn with a margin, or --extent, in
// square pixels of --size or 1024 on the longer side.
MapGrid mapGrid(const MapRequest& request, const LoadedScene& loaded);

// Everything a map reads, in the order a person named them.
std::vector<std::string> inputsOf(const MapRequest& request);
