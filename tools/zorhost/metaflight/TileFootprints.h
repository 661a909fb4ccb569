// Where a MetaFlight dataset's tiles and coverage lie on the earth: the grid's own
// corners, each moved to WGS84 by the description's conversion, the same road the tile
// centres of `zorhost tiles` take. Part of zorhost-library.so.
#pragma once

#include <string>
#include <vector>

#include "TileFootprint.h"
#include "zorTerrain/DtMetaFlightTypes.h"

namespace kelZor {
class DtMetaFlightDescription;
}

// Each tile of one level, row by row, made as it is visited: a level of a million tiles
// is never held. Throws what the description throws for a grid it cannot convert.
void forEachTileFootprint(const kelZor::DtMetaFlightDescription& d, const std::string& key,
                          unsigned level, const TileVisitor& visit);

// The level's grid as a whole, to `visit`.
void withTileLevelGrid(const kelZor::DtMetaFlightDescription& d, const std::string& key,
                       unsigned level, const TileGridVisitor& visit);

// A coverage (null: none, which throws) as a closed outline, counter-clockwise, with `perSide`
// points along each side so that its curve in WGS84 shows.
std::vector<Wgs84Position> coverageOutline(const kelZor::DtMetaFlightTypes::Coverage* coverage,
                                           unsigned perSide = 16);
