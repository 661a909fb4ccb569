#include "TileFootprints.h"

#include <boost/make_shared.hpp>

#include <stdexcept>

#include "matrix/DtAngles.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtTilePathGenerator.h"

using kelZor::DtMetaFlightDescription;
using Types = kelZor::DtMetaFlightTypes;
using CoordSys = boost::shared_ptr<Types::CoordSysType>;

namespace {

// Where a description's conversion takes grid positions to be placed on the earth.
CoordSys wgs84Geodetic() {
    auto geodetic = boost::make_shared<Types::NonProjectedCoordSys>();
    geodetic->name = "WGS84";
    geodetic->unitsCategory.value = Types::UnitsCategory::ANGULAR_DISTANCE;
    geodetic->geoType.value = Types::GeoType::GEODETIC;
    return geodetic;
}

// A coverage: its origin and extent in its own system, and that system.
struct Grid {
    CoordSys system;
    Types::Position2D origin, extent;
    bool angular = false;

    explicit Grid(const Types::Coverage* coverage) {
        if (!coverage || !coverage->coordSysUsed.target)
            throw std::runtime_error("the dataset has no coverage in a coordinate system");
        system = coverage->coordSysUsed.target;
        origin = coverage->origin;
        extent = coverage->extent;
        angular = system->unitsCategory.value == Types::UnitsCategory::ANGULAR_DISTANCE;
    }

    // A point of the coverage by its fractions along x and y, in WGS84. An angular
    // grid's x is longitude and y latitude in degrees, as the description reads it.
    Wgs84Position at(const CoordSys& wgs84, double fx, double fy) const {
        const double gx = origin.x + extent.x * fx;
        const double gy = origin.y + extent.y * fy;
        double x = angular ? DtDeg2Rad(gy) : gx;
        double y = angular ? DtDeg2Rad(gx) : gy;
        double z = 0.0;
        DtMetaFlightDescription::convertPosition(system, wgs84, x, y, z);
        return {DtRad2Deg(y), DtRad2Deg(x), z};
    }
};

}  // namespace

void forEachTileFootprint(const DtMetaFlightDescription& d, const std::string& key, unsigned level,
                          const TileVisitor& visit) {
    const Grid grid(d.database()->geometryGridDataset.at(key)->gridStack.coverageUsed.target.get());
    const CoordSys wgs84 = wgs84Geodetic();
    const kelZor::DtTilePathGenerator names(d, key, static_cast<int>(level));
    const double rows = names.rows(), columns = names.columns();
    TileFootprint tile;
    tile.level = level;
    for (unsigned row = 0; row < names.rows(); ++row) {
        for (unsigned col = 0; col < names.columns(); ++col) {
            tile.row = row;
            tile.col = col;
            tile.corners[0] = grid.at(wgs84, col / columns, row / rows);
            tile.corners[1] = grid.at(wgs84, (col + 1) / columns, row / rows);
            tile.corners[2] = grid.at(wgs84, (col + 1) / columns, (row + 1) / rows);
            tile.corners[3] = grid.at(wgs84, col / columns, (row + 1) / rows);
            names.path(row, col, tile.path);
            visit(tile);
        }
    }
}

void withTileLevelGrid(const DtMetaFlightDescription& d, const std::string& key, unsigned level,
                       const TileGridVisitor& visit) {
    const Grid grid(d.database()->geometryGridDataset.at(key)->gridStack.coverageUsed.target.get());
    const CoordSys wgs84 = wgs84Geodetic();
    const kelZor::DtTilePathGenerator names(d, key, static_cast<int>(level));
    TileLevelGrid whole;
    whole.level = level;
    whole.rows = names.rows();
    whole.columns = names.columns();
    whole.at = [&grid, &wgs84](double fx, double fy) { return grid.at(wgs84, fx, fy); };
    visit(whole);
}

std::vector<Wgs84Position> coverageOutline(const Types::Coverage* coverage, unsigned perSide) {
    const Grid grid(coverage);
    const CoordSys wgs84 = wgs84Geodetic();
    const double n = perSide > 0 ? perSide : 1;
    std::vector<Wgs84Position> outline;
    for (unsigned i = 0; i < n; ++i)
        outline.push_back(grid.at(wgs84, i / n, 0.0));
    for (unsigned i = 0; i < n; ++i)
        outline.push_back(grid.at(wgs84, 1.0, i / n));
    for (unsigned i = 0; i < n; ++i)
        outline.push_back(grid.at(wgs84, 1.0 - i / n, 1.0));
    for (unsigned i = 0; i < n; ++i)
        outline.push_back(grid.at(wgs84, 0.0, 1.0 - i / n));
    outline.push_back(outline.front());
    return outline;
}
