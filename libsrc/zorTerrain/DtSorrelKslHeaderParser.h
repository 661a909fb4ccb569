// Header parser of KSL terrain descriptions ("ksl"): the description's coordinate system
// type and origin, and one terrain patch per patch file found on its directory lists.
// A description with no patch found is no terrain: false.
#pragma once

#include <string>

#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtSorrelKslHeaderParser : public DtHeaderParser {
public:
    explicit DtSorrelKslHeaderParser(const std::string& filePath);
    bool isValid() override;

protected:
    void addTerrainPatchRecord(const std::string& patchFile);
};

class ZOR_TERRAIN_EXPORT DtSorrelKslHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
