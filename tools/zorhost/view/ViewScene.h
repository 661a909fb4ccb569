// The scene graph of `zorhost view`: the terrain mesh under the map's ground picture,
// the features and the tiles draped on it, and each placed prop as a transform of its
// engine position and orientation (the plug-in's quaternion, unchanged) holding its model,
// or a placeholder of its rule's colour that shows its front (+y) and its up (+z).
//
// The graph, by name: "zorhost view" > "terrain", "features", "tiles", "props" > one
// MatrixTransform per prop, named as the prop. Everything but the props is drawn
// relative to the mesh's origin, so that float vertices keep their centimetres in a
// geocentric or projected scene.
#pragma once

#include <osg/Group>
#include <osg/ref_ptr>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "MapCommand.h"
#include "MapGround.h"
#include "ViewSurface.h"

// What a view holds, for a person.
struct ViewCounts {
    size_t meshNodes = 0, meshTriangles = 0;
    size_t points = 0, lines = 0, areas = 0;
    size_t tileLines = 0, tileLineEvery = 1;
    // Places of features (points, or samples along lines) and of tile lines where the
    // terrain has no ground: left out.
    size_t featureSamplesOffGround = 0, tileSamplesOffGround = 0;
    size_t props = 0, placeholders = 0, models = 0;
    double placeholderWidth = 0.0, placeholderHeight = 0.0;  // metres
    std::vector<std::string> modelsRead;                     // the model files drawn
    std::vector<std::string> modelsMissing;                  // named, not on disk
};

// A placeholder's colours, as the tests read them back: its body in its rule's colour
// shaded by face (the top as it is), its front in a tint of it.
const double placeholderSideShade = 0.75;
const double placeholderEndShade = 0.6;
const double placeholderFrontTint = 0.55;  // of the way to white

class ViewScene {
public:
    // `surface` null: no DEM, features and props stand at their own positions.
    ViewScene(const LoadedScene& loaded, const MapRequest& request, const ViewSurface* surface,
              const Ground* ground, const MapGrid& groundGrid);

    // Builds the graph; false (having said why on `err`) when a model file exists that no
    // reader of OpenSceneGraph can read, or the tiles cannot be had.
    bool build(const TileSources& tiles, std::ostream& err);

    osg::ref_ptr<osg::Group> root() const { return root_; }
    const ViewCounts& counts() const { return counts_; }
    // How wide the scene is in metres (the mesh's or the marks' extent), for sizes.
    double span() const { return span_; }

private:
    void addTerrain();
    void addFeatures();
    bool addTiles(const TileSources& tiles, std::ostream& err);
    bool addProps(std::ostream& err);
    double placeholderWidthFor(const kelZor::DtTerrainLayer& props) const;
    osg::ref_ptr<osg::Node> propNode(size_t rule, const kelArchives::DtPropRecord& record,
                                     std::ostream& err, bool& ok);
    // A line of the plane, sampled along each segment and draped; where the mesh has no
    // ground, `own` (the scene positions of the vertices) are joined as they are.
    void drapeLine(const std::vector<PlanePoint>& line, const std::vector<DtVector64>& own,
                   double lift, std::vector<osg::Vec3>& segments);
    osg::Vec3 relative(const DtVector64& position) const;

    const LoadedScene& loaded_;
    const MapRequest& request_;
    const ViewSurface* surface_;
    const Ground* ground_;
    MapGrid groundGrid_;
    DtVector64 origin_;
    double span_ = 100.0, lift_ = 0.5;
    size_t offGround_ = 0;
    osg::ref_ptr<osg::Group> root_;
    ViewCounts counts_;
    std::vector<osg::ref_ptr<osg::Node>> placeholders_;  // per rule
    std::vector<std::pair<std::string, osg::ref_ptr<osg::Node>>> models_;
};
