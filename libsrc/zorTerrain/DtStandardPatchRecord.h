// The one shape in which every header parser of this library reports a terrain patch:
// a model definition named after the patch file, in the parser's coordinate system, of
// schema "Terrain", wrapped in a terrain patch record.
#pragma once

#include <list>
#include <string>

#include "kelArchives/DtModelDefinitionRecord.h"

namespace kelZor {

void appendStandardPatchRecord(std::list<kelArchives::DtTerrainPatchRecord>& records,
                               const std::string& patchPath, const std::string& coordinateSystem,
                               const std::string& parameters);

}  // namespace kelZor
