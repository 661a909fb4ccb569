#include "ViewScene.h"

#include <osg/BlendFunc>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/MatrixTransform>
#include <osg/Point>
#include <osg/PolygonOffset>
#include <osg/Texture2D>
#include <osgDB/ReadFile>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>

#include "MapStyle.h"
#include "PropFacing.h"
#include "zorCore/DtFeatureSet.h"

namespace {

osg::Vec4 rgba(const MapColour& colour, double alpha = 1.0) {
    return osg::Vec4(colour.r, colour.g, colour.b, alpha);
}

MapColour scaled(const MapColour& colour, double shade) {
    return {colour.r * shade, colour.g * shade, colour.b * shade};
}

MapColour towardsWhite(const MapColour& colour, double t) {
    return {colour.r + (1.0 - colour.r) * t, colour.g + (1.0 - colour.g) * t,
            colour.b + (1.0 - colour.b) * t};
}

osg::ref_ptr<osg::Geometry> marks(const std::vector<osg::Vec3>& vertices, const osg::Vec4& colour,
                                  GLenum mode) {
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(new osg::Vec3Array(vertices.begin(), vertices.end()));
    osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
    colours->push_back(colour);
    geometry->setColorArray(colours, osg::Array::BIND_OVERALL);
    geometry->addPrimitiveSet(new osg::DrawArrays(mode, 0, static_cast<GLsizei>(vertices.size())));
    return geometry;
}

osg::ref_ptr<osg::MatrixTransform> atOrigin(const DtVector64& origin, const std::string& name) {
    osg::ref_ptr<osg::MatrixTransform> group =
        new osg::MatrixTransform(osg::Matrixd::translate(origin.x(), origin.y(), origin.z()));
    group->setName(name);
    group->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return group;
}

// A box of `width` by `width` by `height` standing on (0, 0, 0), with a wedge on its +y
// face that narrows to an edge `width` ahead: from above a house pointing forward, from
// the side a post as tall as the prop is drawn. Unlit, its faces shaded by their own
// colours, so that it reads the same from any side and a picture gives back its colour.
osg::ref_ptr<osg::Geode> placeholder(const MapColour& colour, double width, double height) {
    const float h = static_cast<float>(width / 2.0), z = static_cast<float>(height);
    const float nose = static_cast<float>(1.5 * width);
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
    auto quad = [&](osg::Vec3 a, osg::Vec3 b, osg::Vec3 c, osg::Vec3 d, const MapColour& paint) {
        for (const osg::Vec3& v : {a, b, c, a, c, d}) {
            vertices->push_back(v);
            colours->push_back(rgba(paint));
        }
    };
    auto triangle = [&](osg::Vec3 a, osg::Vec3 b, osg::Vec3 c, const MapColour& paint) {
        for (const osg::Vec3& v : {a, b, c}) {
            vertices->push_back(v);
            colours->push_back(rgba(paint));
        }
    };
    const MapColour side = scaled(colour, placeholderSideShade);
    const MapColour end = scaled(colour, placeholderEndShade);
    const MapColour front = towardsWhite(colour, placeholderFrontTint);
    // The body: top, bottom, the four sides.
    quad({-h, -h, z}, {h, -h, z}, {h, h, z}, {-h, h, z}, colour);
    quad({-h, -h, 0}, {-h, h, 0}, {h, h, 0}, {h, -h, 0}, end);
    quad({h, -h, 0}, {h, h, 0}, {h, h, z}, {h, -h, z}, side);
    quad({-h, h, 0}, {-h, -h, 0}, {-h, -h, z}, {-h, h, z}, side);
    quad({-h, -h, 0}, {h, -h, 0}, {h, -h, z}, {-h, -h, z}, end);
    // The wedge ahead of the +y face, in the front's tint.
    triangle({-h, h, z}, {h, h, z}, {0, nose, z}, front);
    triangle({h, h, 0}, {-h, h, 0}, {0, nose, 0}, front);
    quad({h, h, 0}, {0, nose, 0}, {0, nose, z}, {h, h, z}, scaled(front, placeholderSideShade));
    quad({0, nose, 0}, {-h, h, 0}, {-h, h, z}, {0, nose, z}, scaled(front, placeholderSideShade));

    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colours, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(
        new osg::DrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(vertices->size())));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->setName("placeholder");
    geode->addDrawable(geometry);
    geode->getOrCreateStateSet()->setMode(GL_LIGHTING, osg::StateAttribute::OFF);
    return geode;
}

osg::ref_ptr<osg::Image> groundImage(const Ground& ground, const MapGrid& grid) {
    osg::ref_ptr<osg::Image> image = new osg::Image;
    image->allocateImage(grid.width, grid.height, 1, GL_BGRA, GL_UNSIGNED_BYTE);
    image->setInternalTextureFormat(GL_RGBA);
    // Cairo's ARGB32 is B, G, R, A in memory on this machine's byte order: GL's BGRA.
    std::memcpy(image->data(), ground.pixels.data(), ground.pixels.size() * sizeof(uint32_t));
    image->setName("ground");
    return image;
}

}  // namespace

ViewScene::ViewScene(const LoadedScene& loaded, const MapRequest& request,
                     const ViewSurface* surface, const Ground* ground, const MapGrid& groundGrid)
    : loaded_(loaded),
      request_(request),
      surface_(surface && !surface->empty() ? surface : nullptr),
      ground_(ground),
      groundGrid_(groundGrid) {
    span_ = std::max(groundGrid_.maxX - groundGrid_.minX, groundGrid_.maxY - groundGrid_.minY);
    if (!(span_ > 0.0))
        span_ = 100.0;
    lift_ = std::max(0.2, span_ * 0.0005);
    if (surface_) {
        origin_ = surface_->origin();
    } else {
        const PlanePoint centre{(groundGrid_.minX + groundGrid_.maxX) / 2.0,
                                (groundGrid_.minY + groundGrid_.maxY) / 2.0};
        loaded_.plane->toScene(centre, origin_);
    }
    root_ = new osg::Group;
    root_->setName("zorhost view");
}

osg::Vec3 ViewScene::relative(const DtVector64& position) const {
    return osg::Vec3(position.x() - origin_.x(), position.y() - origin_.y(),
                     position.z() - origin_.z());
}

bool ViewScene::build(const TileSources& tiles, std::ostream& err) {
    addTerrain();
    addFeatures();
    counts_.featureSamplesOffGround = offGround_;
    offGround_ = 0;
    const bool built = addTiles(tiles, err) && addProps(err);
    counts_.tileSamplesOffGround = offGround_;
    return built;
}

void ViewScene::addTerrain() {
    if (!surface_)
        return;
    osg::ref_ptr<osg::Geometry> mesh = surface_->geometry();
    counts_.meshNodes = surface_->nodesCovered();
    counts_.meshTriangles = mesh->getPrimitiveSet(0)->getNumIndices() / 3;
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(mesh);
    osg::StateSet* state = geode->getOrCreateStateSet();
    // The ground's relief is the map's hillshade, in the picture: no light of GL's on it.
    // Pushed back a little so that what is draped on it wins the depth test.
    state->setAttributeAndModes(new osg::PolygonOffset(1.0f, 1.0f));
    if (ground_ && !ground_->pixels.empty()) {
        osg::ref_ptr<osg::Texture2D> texture =
            new osg::Texture2D(groundImage(*ground_, groundGrid_));
        texture->setResizeNonPowerOfTwoHint(false);
        texture->setWrap(osg::Texture::WRAP_S, osg::Texture::CLAMP_TO_EDGE);
        texture->setWrap(osg::Texture::WRAP_T, osg::Texture::CLAMP_TO_EDGE);
        texture->setFilter(osg::Texture::MIN_FILTER, osg::Texture::LINEAR_MIPMAP_LINEAR);
        texture->setFilter(osg::Texture::MAG_FILTER, osg::Texture::LINEAR);
        state->setTextureAttributeAndModes(0, texture);
    }
    osg::ref_ptr<osg::MatrixTransform> terrain = atOrigin(origin_, "terrain");
    terrain->addChild(geode);
    root_->addChild(terrain);
}

void ViewScene::drapeLine(const std::vector<PlanePoint>& line, const std::vector<DtVector64>& own,
                          double lift, std::vector<osg::Vec3>& segments) {
    const double step = surface_ ? surface_->cellSize() / 2.0 : 0.0;
    for (size_t i = 0; i + 1 < line.size(); ++i) {
        const PlanePoint& a = line[i];
        const PlanePoint& b = line[i + 1];
        const double length = std::hypot(b.x - a.x, b.y - a.y);
        if (!std::isfinite(length))
            continue;
        // At most as many samples as the mesh has cells along the line.
        const double most = surface_ ? surface_->grid().width + surface_->grid().height : 1.0;
        const int samples =
            step > 0.0 ? static_cast<int>(std::min(most, std::ceil(length / step))) : 1;
        DtVector64 previous;
        bool havePrevious = false;
        for (int k = 0; k <= std::max(1, samples); ++k) {
            const double t = static_cast<double>(k) / std::max(1, samples);
            DtVector64 p;
            if (surface_ &&
                !surface_->drape({a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t}, lift, p)) {
                // Off the terrain: left out rather than dropped to a height of its own.
                havePrevious = false;
                ++offGround_;
                continue;
            }
            if (!surface_) {
                if (i + 1 >= own.size()) {
                    havePrevious = false;
                    continue;
                }
                const DtVector64 &u = own[i], &v = own[i + 1];
                p = DtVector64(u.x() + (v.x() - u.x()) * t, u.y() + (v.y() - u.y()) * t,
                               u.z() + (v.z() - u.z()) * t);
            }
            if (havePrevious) {
                segments.push_back(relative(previous));
                segments.push_back(relative(p));
            }
            previous = p;
            havePrevious = true;
        }
    }
}

void ViewScene::addFeatures() {
    struct Marks {
        std::vector<osg::Vec3> points, lines, areas;
        MapColour colour;
    };
    std::map<char, Marks> byCategory;
    const ScenePlane& plane = *loaded_.plane;
    auto inPlane = [&](const std::vector<DtVector64>& vertices) {
        std::vector<PlanePoint> points;
        for (const DtVector64& v : vertices)
            points.push_back(plane.fromScene(v));
        return points;
    };
    for (const auto& layer : loaded_.content.layers) {
        layer->featureSet().forEach(
            [&](const kelZor::DtPointFeature& f) {
                const FaccCategory& category = faccCategory(f.code().text());
                Marks& m = byCategory[category.letter];
                m.colour = category.colour;
                DtVector64 p = f.location();
                if (surface_ && !surface_->drape(plane.fromScene(p), lift_, p)) {
                    ++offGround_;
                    return;
                }
                m.points.push_back(relative(p));
                ++counts_.points;
            },
            [&](const kelZor::DtEdgeFeature& f) {
                const FaccCategory& category = faccCategory(f.code().text());
                Marks& m = byCategory[category.letter];
                m.colour = category.colour;
                drapeLine(inPlane(f.vertices()), f.vertices(), lift_, m.lines);
                ++counts_.lines;
            },
            [&](const kelZor::DtArealFeature& f) {
                const FaccCategory& category = faccCategory(f.code().text());
                Marks& m = byCategory[category.letter];
                m.colour = category.colour;
                std::vector<PlanePoint> ring = inPlane(f.vertices());
                ring.erase(std::remove_if(ring.begin(), ring.end(),
                                          [](const PlanePoint& p) {
                                              return !std::isfinite(p.x) || !std::isfinite(p.y);
                                          }),
                           ring.end());
                if (surface_) {
                    surface_->forCellsInside(ring, [&](int column, int row) {
                        DtVector64 corners[6];
                        if (surface_->cellTriangles(column, row, lift_ / 2.0, corners)) {
                            for (const DtVector64& c : corners)
                                m.areas.push_back(relative(c));
                        }
                    });
                }
                std::vector<PlanePoint> closed = ring;
                std::vector<DtVector64> own = f.vertices();
                if (!closed.empty()) {
                    closed.push_back(closed.front());
                    own.push_back(own.front());
                }
                drapeLine(closed, own, lift_, m.lines);
                ++counts_.areas;
            });
    }
    if (byCategory.empty())
        return;
    osg::ref_ptr<osg::MatrixTransform> features = atOrigin(origin_, "features");
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    for (const auto& [letter, m] : byCategory) {
        if (!m.areas.empty()) {
            osg::ref_ptr<osg::Geometry> areas = marks(m.areas, rgba(m.colour, 0.4), GL_TRIANGLES);
            osg::StateSet* state = areas->getOrCreateStateSet();
            state->setAttributeAndModes(new osg::BlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA));
            state->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
            geode->addDrawable(areas);
        }
        if (!m.lines.empty())
            geode->addDrawable(marks(m.lines, rgba(m.colour), GL_LINES));
        if (!m.points.empty())
            geode->addDrawable(marks(m.points, rgba(m.colour), GL_POINTS));
    }
    osg::StateSet* state = geode->getOrCreateStateSet();
    state->setAttributeAndModes(new osg::LineWidth(2.0f));
    state->setAttributeAndModes(new osg::Point(7.0f));
    features->addChild(geode);
    root_->addChild(features);
}

bool ViewScene::addTiles(const TileSources& sources, std::ostream& err) {
    if (request_.tiles.empty())
        return true;
    if (!sources.grid) {
        err << "zorhost: " << request_.tiles
            << ": cannot draw tiles: zorhost's MetaFlight module is not loaded\n";
        return false;
    }
    TilesRequest tiles;
    tiles.document = request_.tiles;
    tiles.dataset = request_.dataset;
    tiles.level = request_.level;
    std::vector<osg::Vec3> segments;
    const int status = sources.grid(
        tiles,
        [&](const TileLevelGrid& grid) {
            // Every tile's edges up to 64 a side; every second, fourth... tile's beyond.
            size_t every = 1;
            while (std::max(grid.rows, grid.columns) / every > 64)
                every *= 2;
            counts_.tileLineEvery = every;
            const int perLine = 128;
            auto line = [&](bool alongRows, double f) {
                std::vector<PlanePoint> places;
                for (int k = 0; k <= perLine; ++k) {
                    const double t = static_cast<double>(k) / perLine;
                    PlanePoint p;
                    if (loaded_.plane->fromWgs84(alongRows ? grid.at(t, f) : grid.at(f, t), p))
                        places.push_back(p);
                }
                drapeLine(places, {}, lift_, segments);
                ++counts_.tileLines;
            };
            for (size_t column = 0; column <= grid.columns; column += every)
                line(false, static_cast<double>(column) / grid.columns);
            if (grid.columns % every != 0)
                line(false, 1.0);
            for (size_t row = 0; row <= grid.rows; row += every)
                line(true, static_cast<double>(row) / grid.rows);
            if (grid.rows % every != 0)
                line(true, 1.0);
        },
        err);
    if (status != 0)
        return false;
    if (segments.empty())
        return true;
    osg::ref_ptr<osg::MatrixTransform> group = atOrigin(origin_, "tiles");
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(marks(segments, rgba(tileLineColour), GL_LINES));
    geode->getOrCreateStateSet()->setAttributeAndModes(new osg::LineWidth(1.5f));
    group->addChild(geode);
    root_->addChild(group);
    return true;
}

osg::ref_ptr<osg::Node> ViewScene::propNode(size_t rule, const kelArchives::DtPropRecord& record,
                                            std::ostream& err, bool& ok) {
    // The model file the rules name for the prop's model definition.
    std::string file;
    for (const auto& [name, path] : loaded_.content.rules.models) {
        if (name == record.modelDefOrNodeAddress())
            file = path;
    }
    if (!record.isModelDef())
        file = record.modelDefOrNodeAddress();
    if (!file.empty()) {
        for (const auto& [known, node] : models_) {
            if (known == file) {
                if (node)
                    ++counts_.models;
                else
                    ++counts_.placeholders;
                return node ? node : placeholders_[rule];
            }
        }
        std::filesystem::path path(file);
        if (path.is_relative() && !request_.rules.empty()) {
            const std::filesystem::path beside =
                std::filesystem::path(request_.rules).parent_path() / path;
            std::error_code ignored;
            if (std::filesystem::exists(beside, ignored))
                path = beside;
        }
        osg::ref_ptr<osg::Node> model;
        std::error_code ignored;
        if (std::filesystem::is_regular_file(path, ignored)) {
            model = osgDB::readRefNodeFile(path.string());
            // A model with nothing to draw would leave its props invisible.
            const bool empty = model && !model->getBound().valid();
            if (model && !empty) {
                counts_.modelsRead.push_back(path.string());
            } else {
                err << "zorhost: " << path.string()
                    << (empty ? ": OpenSceneGraph reads nothing to draw in it"
                              : ": no reader of OpenSceneGraph's reads it as a model")
                    << " (its props are drawn as placeholders)\n";
                model = nullptr;
                ok = false;
            }
        } else {
            counts_.modelsMissing.push_back(file);
        }
        models_.emplace_back(file, model);
        if (model) {
            ++counts_.models;
            return model;
        }
    }
    ++counts_.placeholders;
    return placeholders_[rule];
}

// A two-hundredth of the scene, but no wider than half the room each prop has where they
// stand close, so that a forest shows its trees rather than a slab.
double ViewScene::placeholderWidthFor(const kelZor::DtTerrainLayer& props) const {
    PlaneBounds bounds;
    size_t placed = 0;
    for (size_t i = 0; i < props.numProps(); ++i) {
        const kelArchives::DtPropRecord& record = props.prop(i).record();
        if (propPlaced(record)) {
            bounds.add(loaded_.plane->fromScene(propPosition(record)));
            ++placed;
        }
    }
    double width = span_ / 200.0;
    if (placed > 1 && !bounds.empty()) {
        const double area = (bounds.maxX - bounds.minX) * (bounds.maxY - bounds.minY);
        if (area > 0.0)
            width = std::min(width, 0.5 * std::sqrt(area / placed));
    }
    return width;
}

bool ViewScene::addProps(std::ostream& err) {
    const kelZor::DtTerrainLayer& props = loaded_.content.props;
    if (props.numProps() == 0)
        return true;
    counts_.placeholderWidth = std::min(100.0, std::max(0.5, placeholderWidthFor(props)));
    counts_.placeholderHeight = 3.0 * counts_.placeholderWidth;
    for (size_t rule = 0; rule < loaded_.content.rules.rules.size(); ++rule)
        placeholders_.push_back(
            placeholder(ruleColour(rule), counts_.placeholderWidth, counts_.placeholderHeight));
    osg::ref_ptr<osg::Group> group = new osg::Group;
    group->setName("props");
    bool ok = true;
    for (size_t i = 0; i < props.numProps(); ++i) {
        const kelArchives::DtPropRecord& record = props.prop(i).record();
        if (!propPlaced(record) || i >= loaded_.content.ruleOfProp.size())
            continue;
        const double* p = record.position();
        const double* q = record.orientation();
        osg::ref_ptr<osg::MatrixTransform> transform =
            new osg::MatrixTransform(osg::Matrixd::rotate(osg::Quat(q[0], q[1], q[2], q[3])) *
                                     osg::Matrixd::translate(p[0], p[1], p[2]));
        transform->setName(record.name());
        transform->addChild(propNode(loaded_.content.ruleOfProp[i], record, err, ok));
        group->addChild(transform);
        ++counts_.props;
    }
    root_->addChild(group);
    return ok;
}
