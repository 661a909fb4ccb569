#include "MapCommand.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>

#include "EngineReport.h"
#include "MapCanvas.h"
#include "MapGround.h"
#include "MapPainter.h"
#include "MapPicture.h"
#include "OutputFile.h"
#include "Progress.h"
#include "PropFacing.h"
#include "PropsLoad.h"
#include "Scene.h"
#include "ScenePlane.h"
#include "TextNumbers.h"
#include "gdalsupport/DtGdalScope.h"
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

bool exists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

std::string fileName(const std::string& path) {
    std::string name = std::filesystem::path(path).filename().string();
    return name.empty() ? std::filesystem::path(path).parent_path().filename().string() : name;
}

}  // namespace

std::vector<std::string> inputsOf(const MapRequest& request) {
    std::vector<std::string> inputs = request.features;
    for (const std::string* path :
         {&request.props, &request.rules, &request.tiles, &request.ground.rampFile}) {
        if (!path->empty())
            inputs.push_back(*path);
    }
    inputs.insert(inputs.end(), request.terrains.begin(), request.terrains.end());
    return inputs;
}

namespace {

// A request that cannot be drawn, whatever the files hold: exit 2.
std::string usageProblem(const MapRequest& request) {
    if (const std::string kind = MapPicture::extensionProblem(request.output); !kind.empty())
        return kind;
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
    if (!request.ground.rampFile.empty()) {
        if (const std::string problem = rampProblem(request.ground.rampFile); !problem.empty())
            return request.ground.rampFile + ": " + problem;
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

TilesRequest tilesRequest(const MapRequest& request) {
    TilesRequest tiles;
    tiles.document = request.tiles;
    tiles.dataset = request.dataset;
    tiles.level = request.level;
    return tiles;
}

bool tilesReachable(const MapRequest& request, const TileSources& sources, std::ostream& err) {
    if (request.tiles.empty() || (sources.footprints && sources.grid))
        return true;
    err << "zorhost: " << request.tiles
        << ": cannot draw tiles: zorhost's MetaFlight module is not loaded\n";
    return false;
}

// The asked level's grid as a whole, to `use`; 1 when it cannot be had.
int withTileGrid(const MapRequest& request, const TileSources& sources, const TileGridVisitor& use,
                 std::ostream& err) {
    if (request.tiles.empty())
        return 0;
    if (!tilesReachable(request, sources, err))
        return 1;
    return sources.grid(tilesRequest(request), use, err);
}

// The outline of a level's grid, `perSide` places along each side.
std::vector<Wgs84Position> gridOutline(const TileLevelGrid& grid, int perSide = 32) {
    std::vector<Wgs84Position> outline;
    for (int side = 0; side < 4; ++side) {
        for (int i = 0; i < perSide; ++i) {
            const double t = static_cast<double>(i) / perSide;
            const double fx = side == 0 ? t : side == 1 ? 1.0 : side == 2 ? 1.0 - t : 0.0;
            const double fy = side == 0 ? 0.0 : side == 1 ? t : side == 2 ? 1.0 : 1.0 - t;
            outline.push_back(grid.at(fx, fy));
        }
    }
    return outline;
}

// ---------------------------------------------------------------- a geocentric plane

// Longitudes by the degree, with the least and most in each, so that the arc the data
// take can be found either side of the antimeridian without holding them.
class LongitudeArc {
public:
    void add(double lon, double lat) {
        if (!std::isfinite(lon) || !std::isfinite(lat))
            return;
        lon = std::remainder(lon, 360.0);  // -180 to 180
        const int bin = std::min(359, static_cast<int>(std::floor(lon + 180.0)));
        Bin& b = bins_[bin];
        b.least = b.any ? std::min(b.least, lon) : lon;
        b.most = b.any ? std::max(b.most, lon) : lon;
        b.any = true;
        south_ = std::min(south_, lat);
        north_ = std::max(north_, lat);
    }
    bool empty() const { return !(south_ <= north_); }
    // The centre of the shortest arc that holds every longitude, and that arc's length.
    PlaneCentre centre() const {
        PlaneCentre centre;
        if (empty())
            return centre;
        // The widest run of empty bins is the gap the arc leaves.
        int gapStart = 0, gapLength = 0;
        for (int start = 0; start < 360; ++start) {
            if (bins_[start].any || bins_[(start + 359) % 360].any == false)
                continue;
            int length = 0;
            while (length < 360 && !bins_[(start + length) % 360].any)
                ++length;
            if (length > gapLength)
                gapStart = start, gapLength = length;
        }
        if (gapLength == 0) {  // all round the globe
            centre.lon = 0.0;
            centre.lonSpan = 360.0;
        } else {
            const Bin& first = bins_[(gapStart + gapLength) % 360];
            const Bin& last = bins_[(gapStart + 359) % 360];
            double west = first.least, east = last.most;
            if (east < west)
                east += 360.0;
            centre.lon = std::remainder((west + east) / 2.0, 360.0);
            centre.lonSpan = east - west;
        }
        centre.lat = (south_ + north_) / 2.0;
        return centre;
    }

private:
    struct Bin {
        bool any = false;
        double least = 0.0, most = 0.0;
    };
    std::array<Bin, 360> bins_;
    double south_ = std::numeric_limits<double>::infinity();
    double north_ = -std::numeric_limits<double>::infinity();
};

std::string wgs84Wkt() {
    char* text = nullptr;
    DtWgs84().exportToWkt(&text);
    std::string wkt = text ? text : "";
    CPLFree(text);
    return wkt;
}

// Where a geocentric scene's picture is centred: on what it draws, or on --extent.
int geocentricCentre(const MapRequest& request, const MapContent& content,
                     const kelZor::DtCoordinateSystem& scene, const TileSources& tiles,
                     PlaneCentre& centre, std::ostream& err) {
    if (!request.extent.empty()) {
        const std::vector<double>& e = request.extent;
        centre = {(e[0] + e[2]) / 2.0, (e[1] + e[3]) / 2.0, e[2] - e[0]};
        return 0;
    }
    LongitudeArc arc;
    auto addScene = [&](const DtVector64& v) {
        double lat, lon, h;
        scene.converter()->cigToGeodetic(v, lat, lon, h);
        arc.add(lon, lat);
    };
    for (const auto& layer : content.layers) {
        layer->featureSet().forEach(
            [&](const kelZor::DtPointFeature& f) { addScene(f.location()); },
            [&](const kelZor::DtEdgeFeature& f) {
                for (const DtVector64& v : f.vertices())
                    addScene(v);
            },
            [&](const kelZor::DtArealFeature& f) {
                for (const DtVector64& v : f.vertices())
                    addScene(v);
            });
    }
    for (size_t i = 0; i < content.props.numProps(); ++i) {
        const kelArchives::DtPropRecord& record = content.props.prop(i).record();
        if (propPlaced(record))
            addScene(propPosition(record));
    }
    const int status = withTileGrid(
        request, tiles,
        [&](const TileLevelGrid& grid) {
            for (const Wgs84Position& p : gridOutline(grid))
                arc.add(p.lon, p.lat);
        },
        err);
    double dem[4];
    if (arc.empty() && demExtent(request.terrains, wgs84Wkt(), dem)) {
        for (double fx : {0.0, 0.5, 1.0})
            for (double fy : {0.0, 0.5, 1.0})
                arc.add(dem[0] + (dem[2] - dem[0]) * fx, dem[1] + (dem[3] - dem[1]) * fy);
    }
    centre = arc.centre();
    return status;
}

// ---------------------------------------------------------------- the picture's grid

// The extent of what is drawn: features, placed props and tiles; the DEMs' when there
// are none of those.
int contentBounds(const MapRequest& request, const MapContent& content, const ScenePlane& plane,
                  const TileSources& tiles, PlaneBounds& bounds, std::ostream& err) {
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
    const int status = withTileGrid(
        request, tiles,
        [&](const TileLevelGrid& grid) {
            for (const Wgs84Position& corner : gridOutline(grid)) {
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

// --extent in the plane: a geocentric scene's is longitude and latitude, whose box the
// plane bends.
PlaneBounds extentInPlane(const MapRequest& request, const ScenePlane& plane) {
    const std::vector<double>& e = request.extent;
    PlaneBounds b;
    if (!plane.ofItsOwn()) {
        b.add({e[0], e[1]});
        b.add({e[2], e[3]});
        return b;
    }
    const int perSide = 64;
    for (int i = 0; i <= perSide; ++i) {
        const double t = static_cast<double>(i) / perSide;
        for (const Wgs84Position& place : {Wgs84Position{e[0] + (e[2] - e[0]) * t, e[1], 0.0},
                                           Wgs84Position{e[0] + (e[2] - e[0]) * t, e[3], 0.0},
                                           Wgs84Position{e[0], e[1] + (e[3] - e[1]) * t, 0.0},
                                           Wgs84Position{e[2], e[1] + (e[3] - e[1]) * t, 0.0}}) {
            PlanePoint p;
            if (plane.fromWgs84(place, p))
                b.add(p);
        }
    }
    return b;
}

// Room around what is drawn, and a shape a picture can have.
PlaneBounds withMargin(PlaneBounds b) {
    double span = std::max(b.maxX - b.minX, b.maxY - b.minY);
    if (!(span > 0.0))
        span = 100.0;  // a single place: about a hundred metres round it
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

// Square pixels, whatever the extent and size asked: the extent grows about its centre
// the shorter way to the picture's shape.
MapGrid gridFor(const MapRequest& request, const PlaneBounds& drawn, const PlaneBounds& asked) {
    const PlaneBounds b = request.extent.empty() ? withMargin(drawn) : asked;
    const double w = b.maxX - b.minX, h = b.maxY - b.minY;
    MapGrid grid;
    if (!request.size.empty()) {
        grid.width = request.size[0];
        grid.height = request.size[1];
    } else {
        const double aspect = w / h;
        grid.width = aspect >= 1.0 ? defaultLongSide
                                   : std::max(1, static_cast<int>(defaultLongSide * aspect + 0.5));
        grid.height = aspect >= 1.0 ? std::max(1, static_cast<int>(defaultLongSide / aspect + 0.5))
                                    : defaultLongSide;
    }
    const double pixel = std::max(w / grid.width, h / grid.height);
    const double cx = (b.minX + b.maxX) / 2.0, cy = (b.minY + b.maxY) / 2.0;
    grid.minX = cx - pixel * grid.width / 2.0;
    grid.maxY = cy + pixel * grid.height / 2.0;
    grid.maxX = grid.minX + pixel * grid.width;
    grid.minY = grid.maxY - pixel * grid.height;
    return grid;
}

std::string defaultTitle(const MapRequest& request) {
    std::string title;
    for (const std::string& path : inputsOf(request)) {
        if (path == request.rules || path == request.ground.rampFile)
            continue;
        title += (title.empty() ? "" : ", ") + fileName(path);
    }
    const size_t longest = 80;
    return title.size() > longest ? title.substr(0, longest - 3) + "..." : title;
}

// The tiles of the level: each outlined where they are far enough apart to be seen; as
// the grid's outline with every so many lines when they are not, in time that grows with
// the picture rather than with the tiles.
int drawTiles(const MapRequest& request, const TileSources& sources, MapPainter& painter,
              std::ostream& err) {
    if (request.tiles.empty())
        return 0;
    bool dense = false;
    int status = withTileGrid(
        request, sources, [&](const TileLevelGrid& grid) { dense = painter.denseTiles(grid); },
        err);
    if (status != 0 || dense)
        return status;
    Progress progress(err, "map: drawing tiles", request.progress);
    const TileVisitor draw = painter.tiles();
    size_t done = 0;
    const size_t total = painter.tileCount();
    return sources.footprints(
        tilesRequest(request),
        [&](const TileFootprint& tile) {
            draw(tile);
            progress.update(++done, total);
        },
        err);
}

}  // namespace

int loadScene(DtDe& de, const MapRequest& request, const TileSources& tiles,
              const std::function<bool()>& outputsReady, LoadedScene& loaded, std::ostream& err) {
    const std::string usage = usageProblem(request);
    if (!usage.empty()) {
        err << "zorhost: " << request.command << ": " << usage << "\n";
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
    if (!tilesReachable(request, tiles, err))
        return 1;
    const LoadAccount account(request.load);
    MapContent& content = loaded.content;
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
    SceneChoice& scene = loaded.scene;
    const SceneProblem sceneProblem = chooseScene(de, request.scene, candidates, scene);
    if (sceneProblem.status != 0) {
        err << "zorhost: " << sceneProblem.message << "\n";
        return sceneProblem.status;
    }
    printSceneWarnings(scene, err);
    de.sharedState().coordinateSystem() = scene.system;
    if (!outputsReady())
        return 1;

    loaded.engine = std::make_unique<EngineReport>(de);
    const EngineReport& engine = *loaded.engine;
    if (loadFeatures(de, request, engine, content, err) != 0 ||
        placeProps(de, request, engine, content, err) != 0) {
        engine.printProblems(err);
        return 1;
    }
    engine.printProblems(err);
    loaded.loadsGaveAll = reportLoads(request, content, account, err);
    PlaneCentre centre;
    if (scene.system.type() == kelZor::DtCoordinateConverter::Geocentric &&
        geocentricCentre(request, content, scene.system, tiles, centre, err) != 0)
        return 1;
    loaded.plane = std::make_unique<ScenePlane>(scene.system, centre);
    const ScenePlane& plane = *loaded.plane;
    PlaneBounds& bounds = loaded.drawn;
    if (request.extent.empty() && contentBounds(request, content, plane, tiles, bounds, err) != 0)
        return 1;
    loaded.asked = request.extent.empty() ? PlaneBounds() : extentInPlane(request, plane);
    if ((request.extent.empty() ? bounds : loaded.asked).empty()) {
        err << "zorhost: " << request.command
            << ": nothing to draw: the inputs hold nothing the scene can place\n";
        return 1;
    }
    return 0;
}

MapGrid mapGrid(const MapRequest& request, const LoadedScene& loaded) {
    return gridFor(request, loaded.drawn, loaded.asked);
}

int runMap(DtDe& de, const MapRequest& request, const TileSources& tiles, std::ostream& out,
           std::ostream& err) {
    MapPicture picture;
    std::string error;
    LoadedScene loaded;
    const auto pictureReady = [&] {
        if (picture.begin(request.output, inputsOf(request), request.overwrite, error))
            return true;
        err << "zorhost: " << request.output << ": " << error << "\n";
        return false;
    };
    if (const int status = loadScene(de, request, tiles, pictureReady, loaded, err))
        return status;
    const SceneChoice& scene = loaded.scene;
    const ScenePlane& plane = *loaded.plane;
    const MapContent& content = loaded.content;
    const EngineReport& engine = *loaded.engine;
    const MapGrid grid = mapGrid(request, loaded);
    MapCanvas canvas(grid);
    Ground ground;
    Progress warping(err, "map: warping the DEMs", request.progress);
    if (!canvas.ok(error) ||
        !makeGround(request.terrains, grid, plane.wkt(), request.ground, ground, error, &warping)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    for (const std::string& note : ground.notes)
        err << "zorhost: " << note << "\n";
    canvas.paintGround(ground.pixels);
    MapPainter painter(canvas, plane, content, request.cells);
    painter.areasAndLines();
    if (drawTiles(request, tiles, painter, err) != 0)
        return 1;
    canvas.labelTiles();
    painter.points();
    painter.props();
    Furniture furniture;
    furniture.title = request.title.empty() ? defaultTitle(request) : request.title;
    furniture.sceneText = sceneLine(scene);
    furniture.legend = painter.legend(request, ground);
    furniture.ramp = ground.ramp;
    furniture.placement = request.legend;
    canvas.finish(furniture);
    if (!picture.write(canvas, grid, plane.wkt(), error)) {
        err << "zorhost: " << request.output << ": " << error << "\n";
        return 1;
    }
    if (request.summary) {
        *request.summary = {canvas.pictureWidth(),
                            canvas.pictureHeight(),
                            grid.width,
                            grid.height,
                            grid.minX,
                            grid.minY,
                            grid.maxX,
                            grid.maxY,
                            plane.description(),
                            plane.wkt()};
    }
    out << sceneLine(scene) << "\n"
        << "map: " << request.output << ", " << canvas.pictureWidth() << " x "
        << canvas.pictureHeight() << " pixels";
    if (canvas.furnitureOutside())
        out << " (the frame " << grid.width << " x " << grid.height
            << ", the legend in a panel east of it)";
    out << ", the frame over x " << metresText(grid.minX) << " to " << metresText(grid.maxX)
        << ", y " << metresText(grid.minY) << " to " << metresText(grid.maxY) << " (m";
    if (plane.ofItsOwn())
        out << ", " << plane.description();
    out << ")\n";
    painter.summary(request, out);
    if (!ground.pixels.empty()) {
        out << "ground: " << request.terrains.size()
            << (request.terrains.size() == 1 ? " DEM" : " DEMs") << ", heights "
            << metresText(ground.lowest) << " to " << metresText(ground.highest) << " m\n";
    }
    engine.printErrors(err, request.props.empty() ? request.output : request.props);
    return engine.anyError() || !loaded.loadsGaveAll ? 1 : 0;
}
