#include "LevelGrids.h"

#include <exception>

#include "zorTerrain/DtMetaFlightDescription.h"

using kelZor::DtMetaFlightDescription;

std::vector<LevelGrid> levelGrids(const DtMetaFlightDescription& d, const std::string& key,
                                  bool virtualTexture) {
    const unsigned count = virtualTexture ? d.numberOfVirtualTextureGridLevels(key)
                                          : d.numberOfGeometryGridLevels(key);
    std::vector<LevelGrid> grids(count);
    uint64_t columns = 1, rows = 1;
    for (unsigned level = 0; level < count; ++level) {
        const int l = static_cast<int>(level);
        LevelGrid& g = grids[level];
        try {
            g.colDivisions = virtualTexture ? d.virtualTextureGridLevelColDivisions(key, l)
                                            : d.geometryGridLevelColDivisions(key, l);
            g.rowDivisions = virtualTexture ? d.virtualTextureGridLevelRowDivisions(key, l)
                                            : d.geometryGridLevelRowDivisions(key, l);
        } catch (const std::exception&) {
            break;  // this level and those below it have no grid the library can give
        }
        // Kept below 2^31 before each step, so a 32-bit factor cannot overflow 64 bits.
        columns = columns < maxGridSide ? columns * g.colDivisions : columns;
        rows = rows < maxGridSide ? rows * g.rowDivisions : rows;
        g.columns = columns;
        g.rows = rows;
        g.known = true;
    }
    return grids;
}

std::string levelProblem(const std::string& key, unsigned level, const LevelGrid& g) {
    if (!g.known)
        return "";
    const std::string where = "dataset \"" + key + "\" level " + std::to_string(level) + ": ";
    const std::string divisions = std::to_string(g.colDivisions) + " x " +
                                  std::to_string(g.rowDivisions) + " divisions (as read)";
    if (g.colDivisions == 0 || g.rowDivisions == 0)
        return where + divisions + ": a level divides each tile above it at least once";
    if (g.columns >= maxGridSide || g.rows >= maxGridSide) {
        return where + divisions + " make " + std::to_string(g.columns) + " columns and " +
               std::to_string(g.rows) + " rows: 2^31 or more either way is no grid to walk";
    }
    return "";
}

std::string gridProblem(const DtMetaFlightDescription& d) {
    for (bool virtualTexture : {false, true}) {
        const unsigned datasets =
            virtualTexture ? d.numberOfVirtualTextureDatasets() : d.numberOfGeometryDatasets();
        for (unsigned i = 0; i < datasets; ++i) {
            const int index = static_cast<int>(i);
            const std::string& key =
                virtualTexture ? d.virtualTextureDatasetName(index) : d.geometryDatasetName(index);
            const std::vector<LevelGrid> grids = levelGrids(d, key, virtualTexture);
            for (unsigned level = 0; level < grids.size(); ++level) {
                if (std::string problem = levelProblem(key, level, grids[level]); !problem.empty())
                    return problem;
            }
        }
    }
    return "";
}
