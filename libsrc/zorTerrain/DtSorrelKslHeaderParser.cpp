#include "zorTerrain/DtSorrelKslHeaderParser.h"

#include "zorTerrain/DtSorrelKslFileReader.h"
#include "zorTerrain/DtStandardPatchRecord.h"

namespace kelZor {

DtSorrelKslHeaderParser::DtSorrelKslHeaderParser(const std::string& filePath)
    : DtHeaderParser(filePath) {}

bool DtSorrelKslHeaderParser::isValid() {
    DtSorrelKslFileReader reader;
    if (!reader.load(filePath_.c_str()))
        return false;
    // Written before the records, which copy them.
    terrainCoordinateSystem_ = reader.type().stdString();
    terrainCoordinateSystemParameters_ = reader.origin().stdString();
    bool added = false;
    for (const DtListItem* item = reader.filenames().first(); item; item = item->next()) {
        if (const auto* patch = static_cast<const DtFilename*>(item->data())) {
            addTerrainPatchRecord(patch->stdString());
            added = true;
        }
    }
    return added;
}

void DtSorrelKslHeaderParser::addTerrainPatchRecord(const std::string& patchFile) {
    appendStandardPatchRecord(terrainPatchRecords_, patchFile, terrainCoordinateSystem_,
                              terrainCoordinateSystemParameters_);
}

DtHeaderParser* DtSorrelKslHeaderParserCreator::create(DtDe&, const std::string& filePath) const {
    return new DtSorrelKslHeaderParser(filePath);
}

}  // namespace kelZor
