// The size of each level's grid of tiles, multiplied in 64 bits from the divisions the
// document gives (the library's own totals are 32-bit and wrap), and the levels zorhost
// refuses to walk: divisions of 0 (no tile at all), or 2^31 columns or rows and more.
//
// One pass over the levels: a document of many levels costs its length, not its square.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelZor {
class DtMetaFlightDescription;
}

struct LevelGrid {
    bool known = false;  // false where the library cannot answer the level's divisions
    uint32_t colDivisions = 0, rowDivisions = 0;
    uint64_t columns = 0, rows = 0;
};

const uint64_t maxGridSide = uint64_t{1} << 31;

std::vector<LevelGrid> levelGrids(const kelZor::DtMetaFlightDescription& d, const std::string& key,
                                  bool virtualTexture);
// Why a level of the dataset cannot be walked, naming it and its divisions as read; "".
std::string levelProblem(const std::string& key, unsigned level, const LevelGrid& grid);
// The first such level of any dataset of the document; "" when every level can be.
std::string gridProblem(const kelZor::DtMetaFlightDescription& d);
