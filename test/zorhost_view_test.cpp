// zorhost view, looked at as a person looks at it: the picture rendered off-screen (under
// Xvfb with Mesa's software renderer where there is no display) read back through GDAL,
// each prop sought where the camera's own projection puts it, and the scene graph read
// back through OpenSceneGraph against the positions `props` prints.
#include <gtest/gtest.h>

#include <osg/MatrixTransform>
#include <osg/NodeVisitor>
#include <osgDB/ReadFile>

#include <Eigen/Dense>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "MapStyle.h"
#include "Picture.h"
#include "TempDir.h"
#include "VectorFiles.h"
#include "ViewScene.h"
#include "ZorhostRun.h"

namespace {

// zorhost view on Mesa's software renderer, single-threaded (the same pixels on every
// machine, and no renderer threads of Mesa's for ThreadSanitizer to see), on the display
// there is, else on a virtual one of its own. Mesa unloads its driver when the picture's
// context goes, leaving a few hundred bytes LeakSanitizer can no longer name, so leaks
// are not sought in these runs; the scene-graph runs (no OpenGL) still seek them.
ZorhostRun view(const std::string& arguments) {
    const char* display = std::getenv("DISPLAY");
    const std::string software =
        "LIBGL_ALWAYS_SOFTWARE=1 LP_NUM_THREADS=0 ASAN_OPTIONS=\"$ASAN_OPTIONS:detect_leaks=0\" ";
    const std::string onDisplay =
        display && *display ? "" : "xvfb-run -a -s '-screen 0 1280x1024x24'";
    return zorhost("view " + arguments, software + onDisplay);
}

// 101 x 101 posts of 10 m over 499500..500500 E, 5039500..5040500 N in UTM 32 N: a plane
// rising 0.2 m a metre to the east and 0.1 to the north from 400 m at (500000, 5040000),
// so that the mesh's triangles are the surface itself.
std::string writeSlope(const TempDir& dir) {
    const std::string path = dir.file("slope.tif");
    EXPECT_TRUE(writeUtm32nDem(path, 101, 101, 499495, 5040505, 10, [](int col, int row) {
        const double east = 10.0 * col - 500, north = 500 - 10.0 * row;
        return 400.0 + 0.2 * east + 0.1 * north;
    }));
    return path;
}

struct Scene {
    std::string dem, props, rules;
};

// A house facing north at (500000, 5040000), one facing east 40 m east of it, and a third
// far off, so that the placeholders are sized for a scene a kilometre across.
Scene writeScene(const TempDir& dir) {
    Scene scene;
    scene.dem = writeSlope(dir);
    scene.props = dir.file("houses.shp");
    EXPECT_TRUE(writeVector(scene.props, srsFromEpsg(32632).get(),
                            {{"POINT (500000 5040000)", {{"ECC", "AL015"}}, {{"HDG", 0}}, {}},
                             {"POINT (500040 5040000)", {{"ECC", "AL015"}}, {{"HDG", 90}}, {}},
                             {"POINT (499600 5039600)", {{"ECC", "AL015"}}, {{"HDG", 0}}, {}}}));
    scene.rules = dir.write("rules.json", R"({"models": {"house": "house.flt"},
        "rules": [{"fields": {"ECC": "AL015"}, "model": "house", "propType": "building",
                   "rotationField": "HDG"}]})");
    return scene;
}

// The props `zorhost props --json` places of the scene, as it gives them.
Json placedProps(const Scene& scene) {
    const ZorhostRun placed = zorhost("props " + scene.props + " --rules " + scene.rules +
                                      " --terrain " + scene.dem + " --json");
    EXPECT_EQ(placed.status, 0) << placed.err;
    return placed.status == 0 ? Json::parse(placed.out)["props"] : Json::array();
}

std::string inputs(const Scene& scene) {
    return " --terrain " + scene.dem + " --props " + scene.props + " --rules " + scene.rules;
}

// The camera zorhost says it used.
struct Camera {
    double heading = 0, pitch = 0, range = 0, fieldOfView = 0;
    Eigen::Vector3d target;
    bool read = false;
};

Camera cameraOf(const std::string& out) {
    static const std::regex line(
        "camera: heading (\\S+), pitch (\\S+) degrees, range (\\S+) m, looking at (\\S+), "
        "(\\S+), (\\S+) \\(field of view (\\S+) degrees high\\)");
    std::smatch m;
    Camera camera;
    if (!std::regex_search(out, m, line))
        return camera;
    camera.heading = std::stod(m[1]);
    camera.pitch = std::stod(m[2]);
    camera.range = std::stod(m[3]);
    camera.target = {std::stod(m[4]), std::stod(m[5]), std::stod(m[6])};
    camera.fieldOfView = std::stod(m[7]);
    camera.read = true;
    return camera;
}

double placeholderHeight(const std::string& out) {
    std::smatch m;
    static const std::regex size("\\((\\S+) m wide, (\\S+) m tall");
    return std::regex_search(out, m, size) ? std::stod(m[2]) : 0.0;
}

// Where a perspective camera in a UTM scene (up is z, north y) puts a position: pixel
// column and row from the picture's top left.
Eigen::Vector2d project(const Camera& camera, const Eigen::Vector3d& p, int width, int height) {
    const double h = camera.heading * M_PI / 180.0, t = camera.pitch * M_PI / 180.0;
    const Eigen::Vector3d ahead(std::sin(h), std::cos(h), 0.0);
    const Eigen::Vector3d look = ahead * std::cos(t) + Eigen::Vector3d::UnitZ() * std::sin(t);
    const Eigen::Vector3d eye = camera.target - look * camera.range;
    const Eigen::Vector3d up = Eigen::Vector3d::UnitZ() * std::cos(t) - ahead * std::sin(t);
    const Eigen::Vector3d side = look.cross(up).normalized();
    const Eigen::Vector3d d = p - eye;
    const double depth = d.dot(look);
    const double scale = std::tan(camera.fieldOfView * M_PI / 360.0);
    const double x = d.dot(side) / (depth * scale * width / height);
    const double y = d.dot(look.cross(side).normalized() * -1.0) / (depth * scale);
    return {(x + 1.0) / 2.0 * width, (1.0 - y) / 2.0 * height};
}

// The colours a placeholder of `colour` shows on its faces.
std::vector<MapColour> placeholderColours(const MapColour& colour) {
    auto shade = [](const MapColour& c, double s) { return MapColour{c.r * s, c.g * s, c.b * s}; };
    const MapColour front{colour.r + (1 - colour.r) * placeholderFrontTint,
                          colour.g + (1 - colour.g) * placeholderFrontTint,
                          colour.b + (1 - colour.b) * placeholderFrontTint};
    return {colour, shade(colour, placeholderSideShade), shade(colour, placeholderEndShade), front,
            shade(front, placeholderSideShade)};
}

bool isPlaceholder(const Picture& picture, int col, int row, const MapColour& colour) {
    if (col < 0 || row < 0 || col >= picture.width || row >= picture.height)
        return false;
    for (const MapColour& c : placeholderColours(colour)) {
        if (near(picture.at(col, row), c))
            return true;
    }
    return false;
}

// The placed props' transforms in a scene graph zorhost wrote.
std::vector<osg::Vec3d> propTransforms(const std::string& path) {
    struct Collect : osg::NodeVisitor {
        Collect() : osg::NodeVisitor(TRAVERSE_ALL_CHILDREN) {}
        void apply(osg::Group& group) override {
            if (group.getName() == "props") {
                for (unsigned i = 0; i < group.getNumChildren(); ++i) {
                    if (auto* t = dynamic_cast<osg::MatrixTransform*>(group.getChild(i)))
                        positions.push_back(t->getMatrix().getTrans());
                }
                return;
            }
            traverse(group);
        }
        std::vector<osg::Vec3d> positions;
    } collect;
    osg::ref_ptr<osg::Node> graph = osgDB::readRefNodeFile(path);
    if (graph)
        graph->accept(collect);
    return collect.positions;
}

// The pixels of `colour`'s placeholder within `radius` of a place: their centre.
Eigen::Vector2d centreOf(const Picture& picture, const Eigen::Vector2d& around, int radius,
                         const MapColour& colour, size_t& count) {
    Eigen::Vector2d sum(0, 0);
    count = 0;
    for (int row = static_cast<int>(around.y()) - radius; row <= around.y() + radius; ++row) {
        for (int col = static_cast<int>(around.x()) - radius; col <= around.x() + radius; ++col) {
            if (col >= 0 && row >= 0 && col < picture.width && row < picture.height &&
                near(picture.at(col, row), colour)) {
                sum += Eigen::Vector2d(col + 0.5, row + 0.5);
                ++count;
            }
        }
    }
    return count ? Eigen::Vector2d(sum / count) : around;
}

}  // namespace

// A placeholder is where the camera's projection of its prop's position falls, and shows
// its front where its heading points; the scene graph holds each placed prop at the
// position the prop adder gave it.
TEST(ZorhostView, propsStandWhereTheCameraProjectsThemAndFaceTheirHeadings) {
    TempDir dir;
    const Scene scene = writeScene(dir);
    const Json props = placedProps(scene);
    ASSERT_EQ(props.size(), 3u);

    // Seen at a slant from the south-south-west, the graph written beside the picture.
    const ZorhostRun slant =
        view("--png " + dir.file("slant.png") + " --osgb " + dir.file("slant.osgb") +
             " --size 800x600 --camera 20,-50,120 " + "--target 500010,5039990" + inputs(scene));
    ASSERT_EQ(slant.status, 0) << slant.err;
    const std::vector<osg::Vec3d> transforms = propTransforms(dir.file("slant.osgb"));
    ASSERT_EQ(transforms.size(), props.size());
    for (size_t i = 0; i < props.size(); ++i) {
        const Json& position = props[i]["position"];
        for (int axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(transforms[i][axis], position[axis].get<double>(), 1e-6) << i;
    }
    const Camera camera = cameraOf(slant.out);
    ASSERT_TRUE(camera.read) << slant.out;
    const Picture picture(dir.file("slant.png"));
    ASSERT_EQ(picture.width, 800);
    ASSERT_EQ(picture.height, 600);
    for (size_t i = 0; i < 2; ++i) {
        const osg::Vec3d& p = transforms[i];
        const Eigen::Vector2d at = project(camera, {p.x(), p.y(), p.z()}, 800, 600);
        bool found = false;
        for (int dr = -3; dr <= 3 && !found; ++dr)
            for (int dc = -3; dc <= 3 && !found; ++dc)
                found = isPlaceholder(picture, static_cast<int>(at.x()) + dc,
                                      static_cast<int>(at.y()) + dr, ruleColour(0));
        EXPECT_TRUE(found) << "prop " << i << " not within 3 pixels of " << at.transpose();
    }

    // From straight above, north up: the first house's front (its pale wedge) is north of
    // its roof, the second's east of it.
    const ZorhostRun above =
        view("--png " + dir.file("above.png") +
             " --size 800x800 --camera 0,-90,200 --target 500020,5040000" + inputs(scene));
    ASSERT_EQ(above.status, 0) << above.err;
    const Camera top = cameraOf(above.out);
    const Picture roofs(dir.file("above.png"));
    const MapColour roof = ruleColour(0);
    const MapColour front = placeholderColours(roof)[3];
    for (size_t i = 0; i < 2; ++i) {
        const osg::Vec3d& p = transforms[i];
        const Eigen::Vector2d at = project(top, {p.x(), p.y(), p.z()}, 800, 800);
        size_t roofPixels = 0, frontPixels = 0;
        const Eigen::Vector2d body = centreOf(roofs, at, 40, roof, roofPixels);
        const Eigen::Vector2d nose = centreOf(roofs, at, 40, front, frontPixels);
        ASSERT_GT(roofPixels, 20u) << i;
        ASSERT_GT(frontPixels, 10u) << i;
        const Eigen::Vector2d toward = nose - body;
        if (i == 0) {
            EXPECT_LT(toward.y(), -5.0) << "heading 0: the front is up the picture";
            EXPECT_LT(std::abs(toward.x()), 2.0);
        } else {
            EXPECT_GT(toward.x(), 5.0) << "heading 90: the front is to the east";
            EXPECT_LT(std::abs(toward.y()), 2.0);
        }
    }
}

// In a geocentric scene --target is a longitude and latitude, and the camera's frame is
// the level frame there: looking straight down on a prop, its roof is the picture's
// middle and its front is north, up the picture.
TEST(ZorhostView, aGeocentricSceneIsSeenInTheLevelFrameOfItsTarget) {
    TempDir dir;
    const Scene scene = writeScene(dir);
    const Json props = placedProps(scene);
    ASSERT_EQ(props.size(), 3u);
    const Json wgs84 = props[0]["wgs84"];
    char target[64];
    std::snprintf(target, sizeof target, "%.9f,%.9f", wgs84[0].get<double>(),
                  wgs84[1].get<double>());
    const ZorhostRun above = view("--png " + dir.file("g.png") +
                                  " --scene Geocentric:WGS84 --size 400x400 --camera 0,-90,60 "
                                  "--target " +
                                  target + inputs(scene));
    ASSERT_EQ(above.status, 0) << above.err;
    const Picture picture(dir.file("g.png"));
    ASSERT_EQ(picture.width, 400);
    EXPECT_TRUE(near(picture.at(200, 200), ruleColour(0)));
    size_t roofPixels = 0, frontPixels = 0;
    const Eigen::Vector2d middle(200, 200);
    const Eigen::Vector2d body = centreOf(picture, middle, 80, ruleColour(0), roofPixels);
    const Eigen::Vector2d nose =
        centreOf(picture, middle, 80, placeholderColours(ruleColour(0))[3], frontPixels);
    ASSERT_GT(roofPixels, 20u);
    ASSERT_GT(frontPixels, 10u);
    EXPECT_LT(nose.y() - body.y(), -5.0);
    EXPECT_LT(std::abs(nose.x() - body.x()), 2.0);
}

// Seen level from the south, a prop's foot is on the ground's line through its position
// and all of its height shows: floating or sunk by a post's height (a metre of the
// slope northwards here, fifteen pixels) would move one or the other.
TEST(ZorhostView, aPropStandsOnTheSurfaceSeenFromTheSide) {
    TempDir dir;
    const Scene scene = writeScene(dir);
    const ZorhostRun side =
        view("--png " + dir.file("side.png") +
             " --size 800x800 --camera 0,0,100 --target 500000,5040000" + inputs(scene));
    ASSERT_EQ(side.status, 0) << side.err;
    const Camera camera = cameraOf(side.out);
    ASSERT_TRUE(camera.read) << side.out;
    // The target is on the ground under the first house.
    EXPECT_NEAR(camera.target.z(), 400.0, 0.01);
    const double tall = placeholderHeight(side.out);
    ASSERT_GT(tall, 1.0) << side.out;
    const Picture picture(dir.file("side.png"));
    const double pixelsPerMetre = 400.0 / (100.0 * std::tan(camera.fieldOfView * M_PI / 360.0));
    ASSERT_GT(pixelsPerMetre, 10.0);

    // The house's column: its lowest and highest pixels of its own colours.
    const int column = 400;
    int lowest = -1, highest = -1;
    for (int row = 0; row < picture.height; ++row) {
        if (isPlaceholder(picture, column, row, ruleColour(0))) {
            highest = highest < 0 ? row : highest;
            lowest = row;
        }
    }
    ASSERT_GE(lowest, 0) << "no house in column " << column;
    // Its foot on the horizon row, where the ground under it is seen edge-on.
    EXPECT_NEAR(lowest + 1, 400, 2.0);
    EXPECT_NEAR(lowest - highest + 1, tall * pixelsPerMetre, 3.0);
    // Below the foot is ground (not sky): the surface runs up to the prop.
    const MapColour below = picture.at(column, lowest + 3);
    EXPECT_FALSE(near(below, {0.80, 0.87, 0.94})) << "sky under the house";
}

// A picture is a picture: many colours; one over an existing file only with
// --overwrite; outputs and options a view cannot have, refused before anything is drawn.
TEST(ZorhostView, outputsAndRefusals) {
    TempDir dir;
    const Scene scene = writeScene(dir);
    const std::string png = dir.file("view.png");
    const ZorhostRun first = view("--png " + png + inputs(scene));
    ASSERT_EQ(first.status, 0) << first.err;
    const Picture picture(png);
    ASSERT_EQ(picture.width, 1024);
    ASSERT_EQ(picture.height, 768);
    std::set<int> colours;
    for (int row = 0; row < picture.height; row += 7)
        for (int col = 0; col < picture.width; col += 7) {
            const MapColour c = picture.at(col, row);
            colours.insert(c.red() << 16 | c.green() << 8 | c.blue());
        }
    EXPECT_GT(colours.size(), 20u);

    const std::string before = slurp(png);
    const ZorhostRun again = view("--png " + png + inputs(scene));
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find(png), std::string::npos) << again.err;
    EXPECT_EQ(slurp(png), before);
    EXPECT_EQ(view("--png " + png + " --overwrite" + inputs(scene)).status, 0);

    // Without a display: a scene graph still, a picture not, said in one line.
    const ZorhostRun graph =
        zorhost("view --osgb " + dir.file("v.osgb") + inputs(scene), "env -u DISPLAY");
    EXPECT_EQ(graph.status, 0) << graph.err;
    EXPECT_EQ(propTransforms(dir.file("v.osgb")).size(), 3u);
    const ZorhostRun headless =
        zorhost("view --png " + dir.file("none.png") + inputs(scene), "env -u DISPLAY");
    EXPECT_EQ(headless.status, 1);
    EXPECT_NE(headless.err.find("xvfb-run"), std::string::npos) << headless.err;
    EXPECT_EQ(countLines(headless.err), 1u) << headless.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("none.png")));

    // A model OpenSceneGraph reads, named by the rules beside them, stands where the
    // placeholders stood.
    dir.write("house.obj",
              "v -2 -2 0\nv 2 -2 0\nv 2 2 0\nv -2 2 0\nv 0 0 6\n"
              "f 1 2 5\nf 2 3 5\nf 3 4 5\nf 4 1 5\nf 1 4 3 2\n");
    const std::string modelRules =
        dir.write("model-rules.json", R"({"models": {"house": "house.obj"},
        "rules": [{"fields": {"ECC": "AL015"}, "model": "house", "propType": "building",
                   "rotationField": "HDG"}]})");
    const ZorhostRun modelled =
        zorhost("view --osgb " + dir.file("m.osgb") + " --terrain " + scene.dem + " --props " +
                scene.props + " --rules " + modelRules);
    EXPECT_EQ(modelled.status, 0) << modelled.err;
    EXPECT_NE(modelled.out.find("3 placed, 3 as models, 0 as placeholders"), std::string::npos)
        << modelled.out;
    EXPECT_EQ(propTransforms(dir.file("m.osgb")), propTransforms(dir.file("v.osgb")));

    for (const std::string& wrong :
         {std::string("--png ") + dir.file("v.jpg"), "--osgb " + dir.file("v.txt"),
          "--png " + png + " --camera 0,-120", "--png " + png + " --camera 0,-30,0",
          "--png " + png + " --size 9000x10", "--png " + png + " --osgb " + png,
          "--png " + png + " --props " + scene.props}) {
        const ZorhostRun refused = view(wrong + " --overwrite --terrain " + scene.dem);
        EXPECT_EQ(refused.status, 2) << wrong << ": " << refused.err;
        EXPECT_EQ(countLines(refused.err), 1u) << wrong << ": " << refused.err;
    }
    EXPECT_EQ(slurp(png).empty(), false);
}
