#include "ViewSurface.h"

#include <osg/PrimitiveSet>

#include <cmath>

#include "zorCore/DtTerrain.h"
#include "zorUtil/DtCoordinateSystem.h"

namespace {

DtVector64 plus(const DtVector64& a, const DtVector64& b, double scale = 1.0) {
    return DtVector64(a.x() + scale * b.x(), a.y() + scale * b.y(), a.z() + scale * b.z());
}

DtVector64 minus(const DtVector64& a, const DtVector64& b) {
    return DtVector64(a.x() - b.x(), a.y() - b.y(), a.z() - b.z());
}

}  // namespace

ViewSurface::ViewSurface(const MapGrid& grid, const ScenePlane& plane,
                         const kelZor::DtCoordinateSystem& scene, const kelZor::DtTerrain& terrain)
    : grid_(grid), scene_(scene) {
    const size_t count = static_cast<size_t>(grid_.width + 1) * (grid_.height + 1);
    nodes_.assign(count, DtVector64());
    onGround_.assign(count, 0);
    for (int row = 0; row <= grid_.height; ++row) {
        for (int column = 0; column <= grid_.width; ++column) {
            DtVector64 start;
            if (!plane.toScene(nodePlace(column, row), start))
                continue;
            const DtVector64 u = up(start);
            double x, y, z;
            if (!terrain.clampToTerrain(start.x(), start.y(), start.z(), u.x(), u.y(), u.z(), x, y,
                                        z))
                continue;
            nodes_[index(column, row)] = DtVector64(x, y, z);
            onGround_[index(column, row)] = 1;
            ++covered_;
        }
    }
    DtVector64 centre;
    if (plane.toScene(nodePlace(grid_.width / 2, grid_.height / 2), centre))
        origin_ = centre;
}

PlanePoint ViewSurface::nodePlace(int column, int row) const {
    return {grid_.minX + column * grid_.pixelWidth(), grid_.minY + row * grid_.pixelHeight()};
}

DtVector64 ViewSurface::up(const DtVector64& position) const {
    DtVector64 east, north, u(0.0, 0.0, 1.0);
    try {
        scene_.converter()->levelAxes(position, east, north, u);
    } catch (...) {
        return DtVector64(0.0, 0.0, 1.0);  // a place the converter cannot take: the scene's z
    }
    return u;
}

osg::ref_ptr<osg::Geometry> ViewSurface::geometry() const {
    if (empty())
        return nullptr;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array(nodes_.size());
    osg::ref_ptr<osg::Vec2Array> texture = new osg::Vec2Array(nodes_.size());
    for (int row = 0; row <= grid_.height; ++row) {
        for (int column = 0; column <= grid_.width; ++column) {
            const DtVector64 p = minus(nodes_[index(column, row)], origin_);
            (*vertices)[index(column, row)].set(p.x(), p.y(), p.z());
            (*texture)[index(column, row)].set(
                static_cast<float>(column) / grid_.width,
                1.0f - static_cast<float>(row) / grid_.height);  // the picture's north row first
        }
    }
    osg::ref_ptr<osg::DrawElementsUInt> triangles = new osg::DrawElementsUInt(GL_TRIANGLES);
    for (int row = 0; row < grid_.height; ++row) {
        for (int column = 0; column < grid_.width; ++column) {
            const unsigned a = index(column, row), b = index(column + 1, row),
                           c = index(column + 1, row + 1), d = index(column, row + 1);
            auto triangle = [&](unsigned p, unsigned q, unsigned r) {
                if (!onGround_[p] || !onGround_[q] || !onGround_[r])
                    return;
                triangles->push_back(p);
                triangles->push_back(q);
                triangles->push_back(r);
            };
            triangle(a, b, c);
            triangle(a, c, d);
        }
    }
    osg::ref_ptr<osg::Geometry> mesh = new osg::Geometry;
    mesh->setName("terrain");
    mesh->setUseVertexBufferObjects(true);
    mesh->setVertexArray(vertices);
    mesh->setTexCoordArray(0, texture);
    mesh->addPrimitiveSet(triangles);
    osg::ref_ptr<osg::Vec4Array> white = new osg::Vec4Array;
    white->push_back(osg::Vec4(1, 1, 1, 1));
    mesh->setColorArray(white, osg::Array::BIND_OVERALL);
    return mesh;
}

bool ViewSurface::drape(const PlanePoint& place, double lift, DtVector64& position) const {
    const double u = (place.x - grid_.minX) / grid_.pixelWidth();
    const double v = (place.y - grid_.minY) / grid_.pixelHeight();
    if (!(u >= 0.0 && v >= 0.0 && u <= grid_.width && v <= grid_.height))
        return false;
    const int column = std::min(grid_.width - 1, static_cast<int>(u));
    const int row = std::min(grid_.height - 1, static_cast<int>(v));
    const double fx = u - column, fy = v - row;
    const size_t a = index(column, row), b = index(column + 1, row), c = index(column + 1, row + 1),
                 d = index(column, row + 1);
    // The mesh's own split of the cell: a-b-c below the diagonal, a-c-d above it.
    const bool lower = fx >= fy;
    if (!onGround_[a] || !onGround_[c] || !onGround_[lower ? b : d])
        return false;
    DtVector64 p;
    if (lower)
        p = plus(plus(nodes_[a], minus(nodes_[b], nodes_[a]), fx), minus(nodes_[c], nodes_[b]), fy);
    else
        p = plus(plus(nodes_[a], minus(nodes_[d], nodes_[a]), fy), minus(nodes_[c], nodes_[d]), fx);
    position = lift == 0.0 ? p : plus(p, up(p), lift);
    return true;
}

bool ViewSurface::cellTriangles(int column, int row, double lift, DtVector64 corners[6]) const {
    const size_t a = index(column, row), b = index(column + 1, row), c = index(column + 1, row + 1),
                 d = index(column, row + 1);
    if (!onGround_[a] || !onGround_[b] || !onGround_[c] || !onGround_[d])
        return false;
    const size_t order[6] = {a, b, c, a, c, d};
    for (int i = 0; i < 6; ++i)
        corners[i] = plus(nodes_[order[i]], up(nodes_[order[i]]), lift);
    return true;
}
