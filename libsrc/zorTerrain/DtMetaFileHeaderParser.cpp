#include "zorTerrain/DtMetaFileHeaderParser.h"

#include <memory>

#include "hxutil/DtFilename.h"
#include "terrainDbFactory/DtTerrainDbFactory.h"
#include "zorTerrain/DtNestedHeaderParser.h"

namespace kelZor {

DtMetaFileHeaderParser::DtMetaFileHeaderParser(DtDe& de, const std::string& filePath)
    : DtHeaderParser(filePath), de_(de) {}

std::string DtMetaFileHeaderParser::dataFileNameFromMetaFile(const std::string& metaFile) const {
    DtTerrainDbFactory databaseFactory;
    databaseFactory.init();
    DtTdbMetafileFactory metafileFactory;
    metafileFactory.init();
    databaseFactory.setMetafileFactory(&metafileFactory);
    DtFilename realFile;
    const auto metafile = std::make_unique<DtTdbMetafile>(databaseFactory.metafileFactory());
    if (metafile->init(DtFilename(metaFile))) {
        if (const Dt3DViewMetafileRecord* record = metafile->threeDViewMetafileRecord()) {
            realFile = record->terrainFilename();
            if (!realFile.absolute()) {
                // stripFilename keeps the separator: the name goes right behind it.
                DtFilename metaPath(metaFile);
                metaPath.stripFilename();
                metaPath += realFile;
                realFile = metaPath;
            }
        }
    }
    return realFile.stdString();
}

bool DtMetaFileHeaderParser::isValid() {
    return askNestedParser(de_, dataFileNameFromMetaFile(filePath_), terrainCoordinateSystem_,
                           terrainCoordinateSystemParameters_, terrainPatchRecords_);
}

DtHeaderParser* DtMetaFileHeaderParserCreator::create(DtDe& de, const std::string& filePath) const {
    return new DtMetaFileHeaderParser(de, filePath);
}

}  // namespace kelZor
