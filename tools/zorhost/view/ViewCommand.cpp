#include "ViewCommand.h"

#include <osg/ComputeBoundsVisitor>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>

#include "MapGround.h"
#include "OutputFile.h"
#include "Progress.h"
#include "PropsLoad.h"
#include "TextNumbers.h"
#include "ViewScene.h"
#include "ViewSurface.h"
#include "zorCore/DtDe.h"

using kelZor::DtDe;

namespace {

const int defaultWidth = 1024, defaultHeight = 768;
// The mesh has at most this many cells along its longer side: a million nodes, which a
// software renderer draws in a second.
const int meshLongestSide = 1024;
// And at least this many, however far apart the posts: between posts the surface props
// stand on is interpolated, which the mesh follows only with nodes there.
const int meshLeastSide = 256;

std::string extensionOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool allFinite(const std::vector<double>& values) {
    return std::all_of(values.begin(), values.end(), [](double v) { return std::isfinite(v); });
}

// What the view itself cannot make, whatever the files hold: exit 2.
std::string usageProblem(const ViewRequest& request) {
    if (!request.png.empty() && extensionOf(request.png) != ".png")
        return "--png " + request.png + ": the picture is a PNG: give a name ending in .png";
    const std::string graph = extensionOf(request.osgb);
    if (!request.osgb.empty() && graph != ".osgb" && graph != ".osgt" && graph != ".osg" &&
        graph != ".ive")
        return "--osgb " + request.osgb +
               ": give a scene graph OpenSceneGraph writes: .osgb (or .osgt, .osg, .ive)";
    if (!request.png.empty() && request.png == request.osgb)
        return "--png and --osgb name the same file";
    for (int side : request.size) {
        if (side < 1 || side > viewMaxSide)
            return "--size: " + std::to_string(side) + " pixels is not a side from 1 to " +
                   std::to_string(viewMaxSide);
    }
    if (!allFinite(request.camera) || !allFinite(request.target))
        return "--camera and --target take finite numbers";
    if (request.camera.size() >= 2 && std::abs(request.camera[1]) > 90.0)
        return "--camera: a pitch of " + metresText(request.camera[1]) +
               " degrees: give -90 (straight down) to 90";
    if (request.camera.size() == 3 && !(request.camera[2] > 0.0))
        return "--camera: the range must be more than 0 metres";
    return "";
}

// The mesh's grid over the map's frame: a node per post of the DEMs, from meshLeastSide to
// meshLongestSide cells along the longer side.
MapGrid meshGrid(const MapGrid& frame, double postSpacing) {
    const double w = frame.maxX - frame.minX, h = frame.maxY - frame.minY;
    const double longer = std::max(w, h);
    const double cell = std::max({frame.pixelWidth(), longer / meshLongestSide,
                                  std::min(postSpacing, longer / meshLeastSide)});
    MapGrid grid = frame;
    grid.width = std::max(1, static_cast<int>(std::ceil(w / cell - 1e-9)));
    grid.height = std::max(1, static_cast<int>(std::ceil(h / cell - 1e-9)));
    grid.maxX = grid.minX + grid.width * cell;
    grid.maxY = grid.minY + grid.height * cell;
    return grid;
}

// The ground's picture over the mesh: as many pixels as the rendered picture has along
// its longer side, at least 1024.
MapGrid groundGrid(const MapGrid& mesh, int longest) {
    const double w = mesh.maxX - mesh.minX, h = mesh.maxY - mesh.minY;
    MapGrid grid = mesh;
    const double pixel = std::max(w, h) / longest;
    grid.width = std::max(1, static_cast<int>(std::round(w / pixel)));
    grid.height = std::max(1, static_cast<int>(std::round(h / pixel)));
    return grid;
}

// The point looked at: --target on the ground (or at height 0 off it), else the middle of
// what is drawn.
bool targetOf(const ViewRequest& request, const LoadedScene& loaded, const ViewSurface* surface,
              const osg::BoundingBox& drawn, osg::Vec3d& target) {
    if (request.target.empty()) {
        if (!drawn.valid())
            return false;
        target = drawn.center();
        return true;
    }
    const ScenePlane& plane = *loaded.plane;
    PlanePoint place{request.target[0], request.target[1]};
    if (plane.ofItsOwn() && !plane.fromWgs84({request.target[0], request.target[1], 0.0}, place))
        return false;
    DtVector64 p;
    if (!(surface && surface->drape(place, 0.0, p)) && !plane.toScene(place, p))
        return false;
    target.set(p.x(), p.y(), p.z());
    return true;
}

std::string countText(size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

void summarise(const ViewRequest& request, const LoadedScene& loaded, const ViewScene& view,
               const ViewSurface* surface, const CameraPose& pose, int width, int height,
               std::ostream& out) {
    out << sceneLine(loaded.scene) << "\n";
    if (!request.png.empty())
        out << "view: " << request.png << ", " << width << " x " << height << " pixels\n";
    if (!request.osgb.empty())
        out << "scene graph: " << request.osgb << "\n";
    out << "camera: heading " << metresText(pose.heading) << ", pitch " << metresText(pose.pitch)
        << " degrees, range " << metresText(pose.range) << " m, looking at "
        << metresText(pose.target.x()) << ", " << metresText(pose.target.y()) << ", "
        << metresText(pose.target.z()) << " (field of view " << metresText(pose.fieldOfView)
        << " degrees high)\n";
    const ViewCounts& c = view.counts();
    if (surface && !surface->empty()) {
        out << "terrain: " << countText(c.meshNodes, "node", "nodes") << " on the ground, "
            << countText(c.meshTriangles, "triangle", "triangles") << ", a node every "
            << metresText(surface->cellSize()) << " m\n";
    }
    if (c.points + c.lines + c.areas > 0) {
        out << "features: " << countText(c.points, "point", "points") << ", "
            << countText(c.lines, "line", "lines") << ", " << countText(c.areas, "area", "areas");
        if (c.featureSamplesOffGround > 0)
            out << " (off the terrain in places, not drawn there)";
        out << "\n";
    }
    if (c.tileLines > 0) {
        out << "tiles: level " << request.inputs.level << ", "
            << countText(c.tileLines, "line", "lines");
        if (c.tileLineEvery > 1)
            out << " (one every " << c.tileLineEvery << " tiles)";
        if (c.tileSamplesOffGround > 0)
            out << " (off the terrain in places, not drawn there)";
        out << "\n";
    }
    if (c.props > 0) {
        out << "props: " << c.props << " placed, " << c.models << " as models, " << c.placeholders
            << " as placeholders";
        if (c.placeholders > 0)
            out << " (" << metresText(c.placeholderWidth) << " m wide, "
                << metresText(c.placeholderHeight) << " m tall, front +y)";
        out << "\n";
        for (const std::string& model : c.modelsRead)
            out << "props: model " << model << " read\n";
        for (const std::string& model : c.modelsMissing)
            out << "props: model " << model << " is not on disk: drawn as placeholders\n";
    }
}

}  // namespace

int runView(DtDe& de, const ViewRequest& request, const TileSources& tiles, std::ostream& out,
            std::ostream& err) {
    if (const std::string usage = usageProblem(request); !usage.empty()) {
        err << "zorhost: view: " << usage << "\n";
        return 2;
    }
    MapRequest inputs = request.inputs;
    inputs.command = "view";
    inputs.extent.clear();
    inputs.size.clear();
    const bool window = request.png.empty() && request.osgb.empty();
    quietSceneGraphNotices();

    OutputFile pngFile, graphFile;
    const auto outputsReady = [&] {
        std::string problem;
        for (auto [path, file] :
             {std::make_pair(&request.png, &pngFile), std::make_pair(&request.osgb, &graphFile)}) {
            if (!path->empty() &&
                !file->begin(*path, inputsOf(inputs), inputs.overwrite, problem)) {
                err << "zorhost: " << *path << ": " << problem << "\n";
                return false;
            }
        }
        if ((window || !request.png.empty()) && !haveDisplay()) {
            err << "zorhost: view: no X display (DISPLAY is not set): "
                << (window ? "give --png OUT.png or --osgb OUT.osgb, or "
                           : "an off-screen picture needs one too: ")
                << "run under xvfb-run\n";
            return false;
        }
        return true;
    };
    LoadedScene loaded;
    if (const int status = loadScene(de, inputs, tiles, outputsReady, loaded, err))
        return status;
    if (inputs.props.empty() && !addElevationSources(de, inputs.terrains, err))
        return 1;

    const int width = request.size.empty() ? defaultWidth : request.size[0];
    const int height = request.size.size() < 2 ? defaultHeight : request.size[1];
    const MapGrid frame = mapGrid(inputs, loaded);
    const ScenePlane& plane = *loaded.plane;
    std::unique_ptr<ViewSurface> surface;
    Ground ground;
    MapGrid picture = frame;
    if (!inputs.terrains.empty()) {
        const MapGrid mesh = meshGrid(frame, demPostSpacing(inputs.terrains, plane.wkt()));
        surface =
            std::make_unique<ViewSurface>(mesh, plane, loaded.scene.system, de.scene().terrain());
        picture = groundGrid(mesh, std::min(4096, std::max({1024, width, height})));
        std::string problem;
        Progress warping(err, "view: warping the DEMs", inputs.progress);
        if (!makeGround(inputs.terrains, picture, plane.wkt(), inputs.ground, ground, problem,
                        &warping)) {
            err << "zorhost: " << problem << "\n";
            return 1;
        }
        for (const std::string& note : ground.notes)
            err << "zorhost: " << note << "\n";
    }
    ViewScene view(loaded, inputs, surface.get(), &ground, picture);
    const bool built = view.build(tiles, err);
    osg::ref_ptr<osg::Group> root = view.root();

    osg::ComputeBoundsVisitor bounds;
    root->accept(bounds);
    const osg::BoundingBox& drawn = bounds.getBoundingBox();
    osg::Vec3d target;
    if (!targetOf(request, loaded, surface.get(), drawn, target)) {
        if (request.target.empty())
            err << "zorhost: view: nothing to look at: nothing loaded lies on the terrain\n";
        else
            err << "zorhost: view: --target " << metresText(request.target[0]) << ", "
                << metresText(request.target[1]) << ": the scene has no place there\n";
        return 1;
    }
    CameraRequest asked;
    if (!request.camera.empty())
        asked.heading = request.camera[0];
    if (request.camera.size() >= 2)
        asked.pitch = request.camera[1];
    if (request.camera.size() >= 3)
        asked.range = request.camera[2];
    const CameraPose pose = cameraPose(*loaded.scene.system.converter(), target, asked, drawn,
                                       static_cast<double>(width) / height);
    std::string problem;
    if (!request.osgb.empty()) {
        if (!writeSceneGraph(*root, graphFile.temporaryPath(), problem) ||
            !graphFile.commit(problem)) {
            err << "zorhost: " << request.osgb << ": " << problem << "\n";
            return 1;
        }
    }
    if (!request.png.empty()) {
        if (!renderPng(*root, pose, width, height, pngFile.temporaryPath(), problem) ||
            !pngFile.commit(problem)) {
            err << "zorhost: " << request.png << ": " << problem << "\n";
            return 1;
        }
    }
    summarise(request, loaded, view, surface.get(), pose, width, height, out);
    out.flush();
    if (window && !showWindow(*root, pose, width, height, problem)) {
        err << "zorhost: view: " << problem << "\n";
        return 1;
    }
    loaded.engine->printErrors(err, inputs.props.empty() ? "view" : inputs.props);
    return !built || loaded.engine->anyError() || !loaded.loadsGaveAll ? 1 : 0;
}
