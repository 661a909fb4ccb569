#include "zorTerrain/DtStandardPatchRecord.h"

namespace kelZor {

void appendStandardPatchRecord(std::list<kelArchives::DtTerrainPatchRecord>& records,
                               const std::string& patchPath, const std::string& coordinateSystem,
                               const std::string& parameters) {
    kelArchives::DtModelDefinitionRecord definition;
    definition.setName(patchPath);
    definition.setFilename(patchPath);
    definition.setCoordinateSystem(coordinateSystem);
    definition.setCoordinateSystemParameters(parameters);
    definition.setSchema("Terrain");
    kelArchives::DtTerrainPatchRecord patch;
    patch.setTerrainPatchDefinitionRecord(definition);
    records.push_back(patch);
}

}  // namespace kelZor
