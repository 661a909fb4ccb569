// Header parser of metafiles: a small file that names the real terrain data file. The
// parser finds that file (relative to the metafile's directory unless absolute) and
// answers what the host's parser of it answers; the patch records name the data file.
// zorTerrain's init does not register it: hosts that want it register it themselves.
#pragma once

#include <string>

#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtMetaFileHeaderParser : public DtHeaderParser {
public:
    DtMetaFileHeaderParser(DtDe& de, const std::string& filePath);
    bool isValid() override;

protected:
    // The data file the metafile names; empty when it cannot be read or names none.
    std::string dataFileNameFromMetaFile(const std::string& metaFile) const;

private:
    DtDe& de_;
};

class ZOR_TERRAIN_EXPORT DtMetaFileHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
