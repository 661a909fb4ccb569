// Header parser of the terrain source files the terrain database loader reads itself
// ("gdb", "dt0", "dt1", "dt2", "c4b", "c7b", "c7l", "shp", "dfd"). It asks the loader
// for the file's coordinate system and says it in the host's words; the whole file is
// one patch. A DTED cell in UTM is shown as a flat earth at its origin.
#pragma once

#include <string>

#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtTerrainToolkitHeaderParser : public DtHeaderParser {
public:
    explicit DtTerrainToolkitHeaderParser(const std::string& filePath);
    // False only when the loader finds no coordinate system; the loader stays quiet.
    bool isValid() override;
};

class ZOR_TERRAIN_EXPORT DtTerrainToolkitHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
