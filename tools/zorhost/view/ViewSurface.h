// The terrain of a view as the triangle mesh it is drawn with: a grid of the scene's plane
// whose nodes are put on the ground exactly as the terrain puts a prop there (clamped
// along the scene's up through the same elevation sources), so that what stands on the
// terrain stands on the mesh. Marks are draped on the mesh itself, between its nodes
// too, so that a line never dips under the triangles it is drawn over.
//
//   ViewSurface surface(grid, plane, terrain, origin);
//   DtVector64 p;
//   if (surface.drape({x, y}, lift, p)) ...
#pragma once

#include <osg/Geometry>
#include <osg/ref_ptr>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "MapGrid.h"
#include "ScenePlane.h"
#include "matrix/DtVector64.h"

namespace kelZor {
class DtTerrain;
class DtCoordinateSystem;
}  // namespace kelZor

class ViewSurface {
public:
    // `grid` gives the mesh's extent and its nodes: (width + 1) by (height + 1) of them.
    ViewSurface(const MapGrid& grid, const ScenePlane& plane,
                const kelZor::DtCoordinateSystem& scene, const kelZor::DtTerrain& terrain);

    // The scene position the mesh is drawn relative to (its vertices are floats).
    const DtVector64& origin() const { return origin_; }
    bool empty() const { return covered_ == 0; }
    size_t nodesCovered() const { return covered_; }
    // The length of a cell's side in the plane.
    double cellSize() const { return grid_.pixelWidth(); }
    const MapGrid& grid() const { return grid_; }

    // The mesh's triangles, relative to origin(), with texture coordinates of a picture of
    // the grid (its north row first); null when no node is on the ground.
    osg::ref_ptr<osg::Geometry> geometry() const;

    // The point of the mesh over a place of the plane, `lift` metres up; false where the
    // mesh has no triangle.
    bool drape(const PlanePoint& place, double lift, DtVector64& position) const;
    // The scene's up at a scene position, a unit vector.
    DtVector64 up(const DtVector64& position) const;

    // The cells whose centres lie inside a polygon of the plane (even-odd; its points
    // finite): `cell(column, row)` for each, row 0 the southernmost.
    template <typename Cell>
    void forCellsInside(const std::vector<PlanePoint>& ring, Cell cell) const;
    // The two triangles of a cell, as six draped positions; false where a corner is off
    // the ground.
    bool cellTriangles(int column, int row, double lift, DtVector64 corners[6]) const;

private:
    size_t index(int column, int row) const {
        return static_cast<size_t>(row) * (grid_.width + 1) + column;
    }
    PlanePoint nodePlace(int column, int row) const;

    MapGrid grid_;
    const kelZor::DtCoordinateSystem& scene_;
    DtVector64 origin_;
    std::vector<DtVector64> nodes_;  // scene positions, row 0 the southernmost
    std::vector<uint8_t> onGround_;
    size_t covered_ = 0;
};

template <typename Cell>
void ViewSurface::forCellsInside(const std::vector<PlanePoint>& ring, Cell cell) const {
    if (ring.size() < 3)
        return;
    std::vector<double> crossings;
    const double size = cellSize();
    // Only the rows the ring spans: a small area costs its own rows, not the mesh's.
    double south = ring.front().y, north = ring.front().y;
    for (const PlanePoint& p : ring) {
        south = std::min(south, p.y);
        north = std::max(north, p.y);
    }
    const double firstRow = std::max(0.0, std::floor((south - grid_.minY) / size));
    const double lastRow =
        std::min<double>(grid_.height - 1, std::ceil((north - grid_.minY) / size));
    if (!(firstRow <= lastRow))
        return;
    for (int row = static_cast<int>(firstRow); row <= static_cast<int>(lastRow); ++row) {
        const double y = grid_.minY + (row + 0.5) * size;
        crossings.clear();
        for (size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
            const PlanePoint& a = ring[i];
            const PlanePoint& b = ring[j];
            if ((a.y > y) != (b.y > y))
                crossings.push_back(a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x));
        }
        std::sort(crossings.begin(), crossings.end());
        for (size_t k = 0; k + 1 < crossings.size(); k += 2) {
            // Columns whose centres lie between this pair of crossings.
            const double first = std::ceil((crossings[k] - grid_.minX) / size - 0.5);
            const double last = std::floor((crossings[k + 1] - grid_.minX) / size - 0.5);
            const int from = static_cast<int>(std::max(0.0, first));
            const int to = static_cast<int>(std::min<double>(grid_.width - 1, last));
            for (int column = from; column <= to; ++column)
                cell(column, row);
        }
    }
}
