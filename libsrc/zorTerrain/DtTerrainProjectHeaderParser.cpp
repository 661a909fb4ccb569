#include "zorTerrain/DtTerrainProjectHeaderParser.h"

#include <memory>

#include "hxutil/DtFilename.h"
#include "terrainDbFactory/DtTerrainDbFactory.h"
#include "zorTerrain/DtNestedHeaderParser.h"

namespace kelZor {

namespace {

// Whether `path` or a directory above it, cut at whole components, is `layout`.
bool isAtOrBelow(const DtString& path, const char* layout, char separator) {
    DtString pathStr(path);
    do {
        if (pathStr == layout)
            return true;
    } while (pathStr.snipBack(separator, false));
    return false;
}

}  // namespace

DtTerrainProjectHeaderParser::DtTerrainProjectHeaderParser(DtDe& de, const std::string& filePath)
    : DtTerrainToolkitHeaderParser(filePath), de_(de) {}

bool DtTerrainProjectHeaderParser::isValid() {
    std::string view3dFilePath;
    bool valid = false;
    if (getView3DFilename(view3dFilePath)) {
        filePath_ = view3dFilePath;
        valid = askNestedParser(de_, view3dFilePath, terrainCoordinateSystem_,
                                terrainCoordinateSystemParameters_, terrainPatchRecords_);
    }
    if (!valid)
        valid = DtTerrainToolkitHeaderParser::isValid();
    return valid;
}

bool DtTerrainProjectHeaderParser::getView3DFilename(std::string& view3dFilePath) {
    DtTerrainDbFactory databaseFactory;
    databaseFactory.init();
    DtTdbMetafileFactory metafileFactory;
    metafileFactory.init();
    databaseFactory.setMetafileFactory(&metafileFactory);
    DtTdbMetafile metafile(databaseFactory.metafileFactory());
    if (!metafile.init(DtFilename(filePath_)))
        return false;
    const Dt3DViewMetafileRecord* record = metafile.threeDViewMetafileRecord();
    if (!record)
        return false;
    DtFilename result(record->terrainFilename());
    if (result.absolute()) {
        view3dFilePath = result.stdString();
        return true;
    }
    DtFilename path(result);
    path.stripFilename();
    if (isAtOrBelow(path, "../data/terrain", '/') || isAtOrBelow(path, "..\\data\\terrain", '\\')) {
        view3dFilePath = result.stdString();
        return true;
    }
    const DtString pathStr(path);
    if (pathStr[0] == '.' && pathStr[1] == '/')
        result.snipFront('/', false);
    else if (pathStr[0] == '.' && pathStr[1] == '\\')
        result.snipFront('\\', false);
    result.prepend("../data/terrain");
    view3dFilePath = result.stdString();
    return true;
}

DtHeaderParser* DtTerrainProjectHeaderParserCreator::create(DtDe& de,
                                                            const std::string& filePath) const {
    return new DtTerrainProjectHeaderParser(de, filePath);
}

}  // namespace kelZor
