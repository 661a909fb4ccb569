// Parsers that stand for another file (projects, metafiles) ask the host's parser of
// that file and take over its answer.
#pragma once

#include <list>
#include <string>

#include "kelArchives/DtModelDefinitionRecord.h"

namespace kelZor {

class DtDe;

// Asks the parser the host has for `path`. When there is one and it answers true, its
// coordinate system, parameters and patch records replace the given fields and the
// answer is true. The nested parser is deleted on every path; its exceptions pass.
bool askNestedParser(DtDe& de, const std::string& path, std::string& coordinateSystem,
                     std::string& parameters,
                     std::list<kelArchives::DtTerrainPatchRecord>& patchRecords);

}  // namespace kelZor
