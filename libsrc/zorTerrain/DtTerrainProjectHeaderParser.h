// Header parser of terrain projects: a metafile whose 3-D view names the terrain file
// the project shows, laid out under "../data/terrain". The parser stands for that file
// and asks the host's parser of it; when that gives nothing it answers as a toolkit
// parser of the file (or of the project itself, when it names none). The host reaches
// it by its registered name only: no extension leads to it.
#pragma once

#include <string>

#include "zorTerrain/DtTerrainToolkitHeaderParser.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtTerrainProjectHeaderParser : public DtTerrainToolkitHeaderParser {
public:
    DtTerrainProjectHeaderParser(DtDe& de, const std::string& filePath);
    bool isValid() override;

protected:
    // True with the terrain file's path as the project layout places it; on false the
    // argument is untouched.
    virtual bool getView3DFilename(std::string& view3dFilePath);

private:
    DtDe& de_;
};

class ZOR_TERRAIN_EXPORT DtTerrainProjectHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
