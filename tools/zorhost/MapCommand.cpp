#include "MapCommand.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>

#include "EngineReport.h"
#include "MapCanvas.h"
#include "MapGround.h"
#include "MapPainter.h"
#include "MapPicture.h"
#include "OutputFile.h"
#include "PropCommands.h"
#include "PropFacing.h"
#include "Scene.h"
#include "ScenePlane.h"
#include "TextNumbers.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtFeatureAdder.h"
#include "zorCore/DtPropAdder.h"

using kelZor::DtDe;
using kelZor::DtFeature;

namespace {

const int defaultLongSide = 1024;
// A default picture is at most this much longer than wide, so a road along a meridian
// still gets a map around it.
const double maxDefaultAspect = 4.0;

struct Bounds {
    double minX = std::numeric_limits<double>::infinity();
    double minY = std::numeric_limits<double>::infinity();
    double maxX = -std::numeric_limits<double>::infinity();
    double maxY = -std::numeric_limits<double>::infinity();

    void add(const PlanePoint& p) {
        if (!std::isfinite(p.x) || !std::isfinite(p.y))
            return;
        minX = std::min(minX, p.x);
        minY = std::min(minY, p.y);
        maxX = std::max(maxX, p.x);
        maxY = std::max(maxY, p.y);
    }
    bool empty() const { return !(minX <= maxX && minY <= maxY); }
};

bool exists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

std::string fileName(const std::string& path) {
    std::string name = std::filesystem::path(path).filename().string();
    return name.empty() ? std::filesystem::path(path).parent_path().filename().string() : name;
}

// Everything the map reads, in the order a person named them.
std::vector<std::string> inputsOf(const MapRequest& request) {
    std::vector<std::string> inputs = request.features;
    for (const std::string* path : {&request.props, &request.rules, &request.tiles}) {
        if (!path->empty())
            inputs.push_back(*path);
    }
    inputs.insert(inputs.end(), request.terrains.begin(), request.terrains.end());
    return inputs;
}

// A request that cannot be drawn, whatever the files hold: exit 2.
std::string usageProblem(const MapRequest& request) {
    if (request.terrains.empty() && request.features.empty() && request.props.empty() &&
        request.tiles.empty())
        return "nothing to draw: give --terrain, --features, --props or --tiles";
    if (request.props.empty() != request.rules.empty())
        return "--props and --rules go together: the rules say which props the file makes";
    if (!request.tiles.empty() && request.dataset.empty())
        return "--tiles needs --dataset: the key of the geometry dataset whose tiles to draw";
    if (!request.extent.empty()) {
        const std::vector<double>& e = request.extent;
        if (!std::all_of(e.begin(), e.end(), [](double v) { return std::isfinite(v); }))
            return "--extent: the four numbers must be finite";
        if (!(e[2] > e[0] && e[3] > e[1]))
            return "--extent: the area from " + metresText(e[0]) + ", " + metresText(e[1]) +
                   " to " + metresText(e[2]) + ", " + metresText(e[3]) +
                   " is empty: give MINX,MINY,MAXX,MAXY with each maximum above its minimum";
    }
    for (int side : request.size) {
        if (side < 1 || side > mapMaxSide)
            return "--size: " + std::to_string(side) + " pixels is not a side from 1 to " +
                   std::to_string(mapMaxSide);
    }
    return "";
}

// An input that cannot be used: exit 1.
std::string fileProblem(const MapRequest& request) {
    for (const std::string& path : inputsOf(request)) {
        if (!exists(path))
            return path + ": no such file";
    }
    for (const std::string& dem : request.terrains) {
        const std::string problem = demProblem(dem);
        if (!problem.empty())
            return dem + ": " + problem;
    }
    return "";
}

int loadFeatures(DtDe& de, const MapRequest& request, const EngineReport& engine,
                 MapContent& content, std::ostream& err) {
    if (request.features.empty())
        return 0;
    kelZor::DtFeatureAdderCreator* creator = de.featureAdderCreator();
    if (!creator) {
        err << "zorhost: the plug-in registered no feature adder\n";
        return 1;
    }
    std::unique_ptr<kelZor::DtFeatureAdder> adder(creator->create(de));
    for (const std::string& file : request.features) {
        content.layers.push_back(std::make_unique<kelZor::DtFeatureLayer>(file));
        adder->addFeatures(*content.layers.back());
        if (!engine.filesNotLoaded().empty())
            return 1;
    }
    return 0;
}

int placeProps(DtDe& de, const MapRequest& request, const EngineReport& engine, MapContent& content,
               std::ostream& err) {
    if (request.props.empty())
        return 0;
    kelZor::DtPropAdderCreator* creator = propAdderCreatorFor(de, request.props, err);
    if (!creator)
        return 1;
    defineModels(de, content.rules);
    std::unique_ptr<kelZor::DtPropAdder> adder(creator->create(request.props, content.agents));
    for (size_t i = 0; i < content.rules.rules.size() && engine.filesNotLoaded().empty(); ++i) {
        adder->addProps(content.rules.rules[i], &content.props);
        content.ruleOfProp.resize(content.props.numProps(), i);
    }
    return engine.filesNotLoaded().empty() ? 0 : 1;
}

// What each vector file's load made, on `err`; false when a file with objects gave
// nothing or a prop was not placed.
bool reportLoads(const MapRequest& request, const MapContent& content, const LoadAccount& account,
                 std::ostream& err) {
    bool gaveAll = true;
    for (size_t i = 0; i < request.features.size() && i < content.layers.size(); ++i) {
        FileLoad load = account.load(request.features[i]);
        load.countFeatures(content.layers[i]->featureSet());
        if (const std::string line = loadLine(load, "feature"); !line.empty())
            err << "zorhost: " << line << "\n";
        gaveAll = gaveAll && !producedNothing(load);
    }
    if (request.props.empty())
        return gaveAll;
    FileLoad load = account.load(request.props);
    load.madePerLayer = false;
    load.featureReasons = false;
    load.madeInFile = content.props.numProps();
    load.more.push_back(
        {"linesAndAreas", "lines or areas, of which no prop is made", load.linesAndAreas()});
    warnUnmatchedRules(load, content.rules, err);
    if (const std::string line = loadLine(load, "prop"); !line.empty())
        err << "zorhost: " << line << "\n";
    size_t unplaced = 0;
    for (size_t i = 0; i < content.props.numProps(); ++i)
        unplaced += propPlaced(content.props.prop(i).record()) ? 0 : 1;
    if (unplaced > 0) {
        err << "zorhost: " << request.props << ": " << unplaced
            << (unplaced == 1 ? " prop" : " props")
            << " not placed: no --terrain source lies below or above (not drawn)\n";
    }
    return gaveAll && !producedNothing(load) && unplaced == 0;
}

// The tiles of the asked level, each to `visit`; 1 when they cannot be had.
int visitTiles(const MapRequest& request, TileFootprintSource source, const TileVisitor& visit,
               std::ostream& err) {
    if (request.tiles.empty())
        return 0;
    if (!source) {
        err << "zorhost: " << request.tiles
            << ": cannot draw tiles: zorhost's MetaFlight module is not loaded\n";
        return 1;
    }
    TilesRequest tiles;
    tiles.document = request.tiles;
    tiles.dataset = request.dataset;
    tiles.level = request.level;
    return source(tiles, visit, err);
}

// ---------------------------------------------------------------- the picture's grid

// The extent of what is drawn: features, placed props and tiles; the DEMs' when there
// are none of those.
int contentBounds(const MapRequest& request, const MapContent& content, const ScenePlane& plane,
                  TileFootprintSource tiles, Bounds& bounds, std::ostream& err) {
    for (const auto& layer : content.layers) {
        layer->featureSet().forEach(
            [&](const kelZor::DtPointFeature& f) { bounds.add(plane.fromScene(f.location())); },
            [&](const kelZor::DtEdgeFeature& f) {
                for (const DtVector64& v : f.vertices())
                    bounds.add(plane.fromScene(v));
            },
            [&](const kelZor::DtArealFeature& f) {
                for (const DtVector64& v : f.vertices())
                    bounds.add(plane.fromScene(v));
            });
    }
    for (size_t i = 0; i < content.props.numProps(); ++i) {
        const kelArchives::DtPropRecord& record = content.props.prop(i).record();
        if (propPlaced(record))
            bounds.add(plane.fromScene(propPosition(record)));
    }
    const int status = visitTiles(
        request, tiles,
        [&](const TileFootprint& tile) {
            for (const Wgs84Position& corner : tile.corners) {
                PlanePoint p;
                if (plane.fromWgs84(corner, p))
                    bounds.add(p);
            }
        },
        err);
    double dem[4];
    if (bounds.empty() && demExtent(request.terrains, plane.wkt(), dem)) {
        bounds.add({dem[0], dem[1]});
        bounds.add({dem[2], dem[3]});
    }
    return status;
}

// Room around what is drawn, and a shape a picture can have.
Bounds withMargin(Bounds b, bool geographic) {
    double span = std::max(b.maxX - b.minX, b.maxY - b.minY);
    if (!(span > 0.0))
        span = geographic ? 0.001 : 100.0;  // a single place: about a hundred metres round it
    const double margin = 0.05 * span;
    b.minX -= margin;
    b.maxX += margin;
    b.minY -= margin;
    b.maxY += margin;
    const double least = (std::max(b.maxX - b.minX, b.maxY - b.minY)) / maxDefaultAspect;
    for (auto [low, high] : {std::make_pair(&b.minX, &b.maxX), std::make_pair(&b.minY, &b.maxY)}) {
        const double grow = std::max(0.0, least - (*high - *low)) / 2.0;
        *low -= grow;
        *high += grow;
    }
    return b;
}

// Widens the shorter way so that the extent has the picture's shape: square pixels.
void fitAspect(Bounds& b, int width, int height) {
    const double w = b.maxX - b.minX, h = b.maxY - b.minY;
    const double wanted = static_cast<double>(width) / height;
    if (w / h < wanted) {
        const double grow = (h * wanted - w) / 2.0;
        b.minX -= grow;
        b.maxX += grow;
    } else {
        const double grow = (w / wanted - h) / 2.0;
        b.minY -= grow;
        b.maxY += grow;
    }
}

MapGrid gridFor(const MapRequest& request, Bounds b, bool geographic) {
    const bool extentGiven = !request.extent.empty();
    if (extentGiven)
        b = {request.extent[0], request.extent[1], request.extent[2], request.extent[3]};
    else
        b = withMargin(b, geographic);
    MapGrid grid;
    if (!request.size.empty()) {
        grid.width = request.size[0];
        grid.height = request.size[1];
        if (!extentGiven)
            fitAspect(b, grid.width, grid.height);
    } else {
        const double aspect = (b.maxX - b.minX) / (b.maxY - b.minY);
        grid.width = aspect >= 1.0 ? defaultLongSide
                                   : std::max(1, static_cast<int>(defaultLongSide * aspect + 0.5));
        grid.height = aspect >= 1.0 ? std::max(1, static_cast<int>(defaultLongSide / aspect + 0.5))
                                    : defaultLongSide;
    }
    grid.minX = b.minX;
    grid.minY = b.minY;
    grid.maxX = b.maxX;
    grid.maxY = b.maxY;
    return grid;
}

std::string defaultTitle(const MapRequest& request) {
    std::string title;
    for (const std::string& path : inputsOf(request)) {
        if (path == request.rules)
            continue;
        title += (title.empty() ? "" : ", ") + fileName(path);
    }
    const size_t longest = 80;
    return title.size() > longest ? title.substr(0, longest - 3) + "..." : title;
}

}  // namespace

int runMap(DtDe& de, const MapRequest& request, TileFootprintSource tiles, std::ostream& out,
           std::ostream& err) {
    const std::string usage = usageProblem(request);
    if (!usage.empty()) {
        err << "zorhost: map: " << usage << "\n";
        return 2;
    }
    if (const std::string problem = loadOptionsProblem(request.load); !problem.empty()) {
        err << "zorhost: " << problem << "\n";
        return 2;
    }
    const std::string problem = fileProblem(request);
    if (!problem.empty()) {
        err << "zorhost: " << problem << "\n";
        return 1;
    }
    const LoadAccount account(request.load);
    MapContent content;
    if (!request.rules.empty()) {
        if (const int status = readRulesFile(request.rules, content.rules, err))
            return status;
    }
    if (!request.props.empty() && !addElevationSources(de, request.terrains, err))
        return 1;
    std::vector<std::string> candidates = request.features;
    for (const std::string* path : {&request.props, &request.tiles}) {
        if (!path->empty())
            candidates.push_back(*path);
    }
    candidates.insert(candidates.end(), request.terrains.begin(), request.terrains.end());
    SceneChoice scene;
    const SceneProblem sceneProblem = chooseScene(de, request.scene, candidates, scene);
    if (sceneProblem.status != 0) {
        err << "zorhost: " << sceneProblem.message << "\n";
        return sceneProblem.status;
    }
    printSceneWarnings(scene, err);
    de.sharedState().coordinateSystem() = scene.system;
    MapPicture picture;
    std::string error;
    if (!picture.begin(request.output, inputsOf(request), request.overwrite, error)) {
        err << "zorhost: " << request.output << ": " << error << "\n";
        return 1;
    }

    const EngineReport engine(de);
    if (loadFeatures(de, request, engine, content, err) != 0 ||
        placeProps(de, request, engine, content, err) != 0) {
        engine.printProblems(err);
        return 1;
    }
    engine.printProblems(err);
    const bool loadsGaveAll = reportLoads(request, content, account, err);
    const ScenePlane plane(scene.system);
    Bounds bounds;
    if (request.extent.empty() && contentBounds(request, content, plane, tiles, bounds, err) != 0)
        return 1;
    if (request.extent.empty() && bounds.empty()) {
        err << "zorhost: map: nothing to draw: the inputs hold nothing the scene can place\n";
        return 1;
    }
    const MapGrid grid = gridFor(request, bounds, plane.geographic());
    MapCanvas canvas(grid);
    Ground ground;
    if (!canvas.ok(error) ||
        !makeGround(request.terrains, grid, plane.wkt(), plane.geographic(), ground, error)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    for (const std::string& note : ground.notes)
        err << "zorhost: " << note << "\n";
    canvas.paintGround(ground.pixels);
    MapPainter painter(canvas, plane, content);
    painter.areasAndLines();
    if (visitTiles(request, tiles, painter.tiles(), err) != 0)
        return 1;
    canvas.labelTiles();
    painter.points();
    painter.props();
    canvas.legend(painter.legend(request, ground));
    const PlanePoint centre{(grid.minX + grid.maxX) / 2, (grid.minY + grid.maxY) / 2};
    canvas.furniture({request.title.empty() ? defaultTitle(request) : request.title,
                      sceneLine(scene), plane.metresPerUnitX(centre), !plane.geographic()});
    if (!picture.write(canvas, grid, plane.wkt(), error)) {
        err << "zorhost: " << request.output << ": " << error << "\n";
        return 1;
    }
    auto coordinate = [&](double v) { return plane.geographic() ? degreesText(v) : metresText(v); };
    out << sceneLine(scene) << "\n"
        << "map: " << request.output << ", " << grid.width << " x " << grid.height
        << " pixels over x " << coordinate(grid.minX) << " to " << coordinate(grid.maxX) << ", y "
        << coordinate(grid.minY) << " to " << coordinate(grid.maxY)
        << (plane.geographic() ? " (longitude and latitude, degrees)" : " (m)") << "\n";
    painter.summary(request, out);
    if (!ground.pixels.empty()) {
        out << "ground: " << request.terrains.size()
            << (request.terrains.size() == 1 ? " DEM" : " DEMs") << ", heights "
            << metresText(ground.lowest) << " to " << metresText(ground.highest) << " m\n";
    }
    engine.printErrors(err, request.props.empty() ? request.output : request.props);
    return engine.anyError() || !loadsGaveAll ? 1 : 0;
}
