#include "ViewRender.h"

#include <osg/Camera>
#include <osg/Geode>
#include <osg/GraphicsContext>
#include <osg/Image>
#include <osg/Notify>
#include <osgDB/FileNameUtils>
#include <osgDB/Options>
#include <osgDB/Registry>
#include <osgDB/WriteFile>
#include <osgGA/KeySwitchMatrixManipulator>
#include <osgGA/StateSetManipulator>
#include <osgGA/TerrainManipulator>
#include <osgGA/TrackballManipulator>
#include <osgText/Text>
#include <osgViewer/Viewer>
#include <osgViewer/ViewerEventHandlers>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <ostream>

#include "CheckedFile.h"
#include "matrix/DtVector64.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace {

// Lets an OpenSceneGraph writer write through a checked file, whose faults it would not
// see itself.
bool writeThroughCheckedFile(const std::string& path, std::string& problem,
                             const std::function<bool(std::ostream&)>& write) {
    CheckedFile file;
    bool written = false;
    if (file.open(path)) {
        std::ostream stream(&file.buffer());
        written = write(stream) && stream.flush().good();
    }
    if (!file.close() || !written) {
        problem = file.failed() ? "cannot be written: " + file.problem()
                                : std::string("cannot be written (OpenSceneGraph's writer failed)");
        return false;
    }
    return true;
}

const osg::Vec4 skyColour(0.80, 0.87, 0.94, 1.0);

osg::Vec3d vec(const DtVector64& v) {
    return osg::Vec3d(v.x(), v.y(), v.z());
}

double radians(double degrees) {
    return degrees * M_PI / 180.0;
}

// The camera's lens and frame, the same for a picture and a window.
void setLens(osg::Camera& camera, const CameraPose& pose, double aspect) {
    camera.setProjectionMatrixAsPerspective(pose.fieldOfView, aspect, 1.0, 10.0);
    camera.setComputeNearFarMode(osg::CullSettings::COMPUTE_NEAR_FAR_USING_BOUNDING_VOLUMES);
    // A prop a few pixels across is what a person looks for: never culled as small.
    camera.setCullingMode(camera.getCullingMode() & ~osg::CullSettings::SMALL_FEATURE_CULLING);
    camera.setClearColor(skyColour);
}

class KeepNotices : public osg::NotifyHandler {
public:
    void notify(osg::NotifySeverity, const char*) override {}
};

// Reads the frame back once it is drawn.
class Capture : public osg::Camera::DrawCallback {
public:
    explicit Capture(osg::Image* image) : image_(image) {}
    void operator()(osg::RenderInfo&) const override {
        image_->readPixels(0, 0, image_->s(), image_->t(), GL_RGB, GL_UNSIGNED_BYTE);
    }

private:
    osg::ref_ptr<osg::Image> image_;
};

osg::ref_ptr<osg::Camera> keysOverlay(int width, int height) {
    osg::ref_ptr<osgText::Text> text = new osgText::Text;
    text->setText(
        "h: the keys   space: home view   1: trackball   2: terrain   w: wireframe   "
        "s: statistics   f: full screen   Esc: quit");
    text->setCharacterSize(14.0f);
    text->setPosition(osg::Vec3(10.0f, 10.0f, 0.0f));
    text->setColor(osg::Vec4(0.1f, 0.1f, 0.1f, 1.0f));
    text->setBackdropType(osgText::Text::OUTLINE);
    text->setBackdropColor(osg::Vec4(1.0f, 1.0f, 1.0f, 0.8f));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(text);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    osg::ref_ptr<osg::Camera> hud = new osg::Camera;
    hud->setProjectionMatrixAsOrtho2D(0, width, 0, height);
    hud->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    hud->setViewMatrix(osg::Matrix::identity());
    hud->setClearMask(GL_DEPTH_BUFFER_BIT);
    hud->setRenderOrder(osg::Camera::POST_RENDER);
    hud->setAllowEventFocus(false);
    hud->addChild(geode);
    return hud;
}

}  // namespace

CameraPose cameraPose(const kelZor::DtCoordinateConverter& converter, const osg::Vec3d& target,
                      const CameraRequest& request, const osg::BoundingBox& box, double aspect) {
    CameraPose pose;
    pose.heading = request.heading;
    pose.pitch = request.pitch;
    DtVector64 east(1, 0, 0), north(0, 1, 0), up(0, 0, 1);
    try {
        converter.levelAxes(DtVector64(target.x(), target.y(), target.z()), east, north, up);
    } catch (...) {
        // A place the converter cannot take: the scene's own axes.
    }
    const double h = radians(request.heading), p = radians(request.pitch);
    const osg::Vec3d ahead = vec(east) * std::sin(h) + vec(north) * std::cos(h);
    const osg::Vec3d look = ahead * std::cos(p) + vec(up) * std::sin(p);
    pose.range = request.range;
    pose.up = vec(up) * std::cos(p) - ahead * std::sin(p);
    if (!(pose.range > 0.0)) {
        // Near enough that each corner of the scene's box is just inside the picture:
        // a corner v from the target is at depth range + v.look, and must be within the
        // half-angles of view across and up at that depth.
        const double high = std::tan(radians(pose.fieldOfView) / 2.0), across = high * aspect;
        const osg::Vec3d side = look ^ pose.up;
        double range = 1.0;
        for (unsigned corner = 0; box.valid() && corner < 8; ++corner) {
            const osg::Vec3d v = osg::Vec3d(box.corner(corner)) - target;
            range = std::max({range, std::abs(v * side) / across - v * look,
                              std::abs(v * pose.up) / high - v * look});
        }
        pose.range = 1.05 * range;
    }
    pose.target = target;
    pose.eye = target - look * pose.range;
    return pose;
}

bool haveDisplay() {
    const char* display = std::getenv("DISPLAY");
    return display && *display;
}

void quietSceneGraphNotices() {
    if (!std::getenv("OSG_NOTIFY_LEVEL"))
        osg::setNotifyHandler(new KeepNotices);
}

bool renderPng(osg::Node& scene, const CameraPose& pose, int width, int height,
               const std::string& path, std::string& problem) {
    osg::ref_ptr<osg::GraphicsContext::Traits> traits = new osg::GraphicsContext::Traits;
    traits->readDISPLAY();
    traits->setUndefinedScreenDetailsToDefaultScreen();
    traits->width = width;
    traits->height = height;
    traits->pbuffer = true;
    traits->doubleBuffer = false;
    traits->depth = 24;
    osg::ref_ptr<osg::GraphicsContext> context =
        osg::GraphicsContext::createGraphicsContext(traits.get());
    if (!context || !context->valid()) {
        problem = "cannot render off-screen: the display " + traits->displayName() +
                  " gives no OpenGL pbuffer of " + std::to_string(width) + " x " +
                  std::to_string(height);
        return false;
    }
    osgViewer::Viewer viewer;
    viewer.setThreadingModel(osgViewer::Viewer::SingleThreaded);
    osg::Camera* camera = viewer.getCamera();
    camera->setGraphicsContext(context.get());
    camera->setViewport(0, 0, width, height);
    camera->setDrawBuffer(GL_FRONT);
    camera->setReadBuffer(GL_FRONT);
    setLens(*camera, pose, static_cast<double>(width) / height);
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(width, height, 1, GL_RGB, GL_UNSIGNED_BYTE);
    camera->setFinalDrawCallback(new Capture(image.get()));
    viewer.setSceneData(&scene);
    viewer.realize();
    if (!viewer.isRealized()) {
        problem = "cannot render off-screen: OpenGL could not be started on the display";
        return false;
    }
    camera->setViewMatrixAsLookAt(pose.eye, pose.target, pose.up);
    viewer.frame();
    viewer.setSceneData(nullptr);  // the scene outlives this viewer
    // GL reads rows from the bottom; OpenSceneGraph's PNG writer writes them from the top.
    osgDB::ReaderWriter* writer = osgDB::Registry::instance()->getReaderWriterForExtension("png");
    if (!writer) {
        problem = "cannot write the PNG (OpenSceneGraph has no PNG writer here)";
        return false;
    }
    return writeThroughCheckedFile(path, problem, [&](std::ostream& stream) {
        return writer->writeImage(*image, stream).success();
    });
}

bool writeSceneGraph(osg::Node& scene, const std::string& path, std::string& problem) {
    const std::string extension = osgDB::getLowerCaseFileExtension(path);
    osgDB::ReaderWriter* writer =
        osgDB::Registry::instance()->getReaderWriterForExtension(extension);
    if (!writer) {
        problem = "cannot write the scene graph (OpenSceneGraph has no writer for it here)";
        return false;
    }
    osg::ref_ptr<osgDB::Options> options = new osgDB::Options("WriteImageHint=IncludeData");
    // Written to a stream, the native formats take their flavour from the options rather
    // than from the file's name.
    options->setPluginStringData("fileType", extension == "osgt"   ? "Ascii"
                                             : extension == "osgx" ? "XML"
                                                                   : "Binary");
    return writeThroughCheckedFile(path, problem, [&](std::ostream& stream) {
        return writer->writeNode(scene, stream, options.get()).success();
    });
}

bool showWindow(osg::Node& scene, const CameraPose& pose, int width, int height,
                std::string& problem) {
    osgViewer::Viewer viewer;
    viewer.setUpViewInWindow(60, 60, width, height);
    osg::ref_ptr<osg::Group> root = new osg::Group;
    root->addChild(&scene);
    root->addChild(keysOverlay(width, height));
    viewer.setSceneData(root);
    osg::ref_ptr<osgGA::KeySwitchMatrixManipulator> manipulators =
        new osgGA::KeySwitchMatrixManipulator;
    osg::ref_ptr<osgGA::TrackballManipulator> trackball = new osgGA::TrackballManipulator;
    osg::ref_ptr<osgGA::TerrainManipulator> terrain = new osgGA::TerrainManipulator;
    for (osgGA::StandardManipulator* manipulator :
         {static_cast<osgGA::StandardManipulator*>(trackball.get()),
          static_cast<osgGA::StandardManipulator*>(terrain.get())}) {
        manipulator->setAutoComputeHomePosition(false);
        manipulator->setHomePosition(pose.eye, pose.target, pose.up);
    }
    manipulators->addMatrixManipulator('1', "Trackball", trackball.get());
    manipulators->addMatrixManipulator('2', "Terrain", terrain.get());
    viewer.setCameraManipulator(manipulators.get());
    viewer.addEventHandler(new osgViewer::HelpHandler);
    viewer.addEventHandler(new osgViewer::StatsHandler);
    viewer.addEventHandler(new osgViewer::WindowSizeHandler);
    viewer.addEventHandler(
        new osgGA::StateSetManipulator(viewer.getCamera()->getOrCreateStateSet()));
    setLens(*viewer.getCamera(), pose, static_cast<double>(width) / height);
    viewer.realize();
    if (!viewer.isRealized()) {
        problem = "cannot open a window on the display";
        return false;
    }
    viewer.run();
    return true;
}
