#include "zorTerrain/DtNestedHeaderParser.h"

#include <memory>

#include "zorCore/DtHeaderParser.h"

namespace kelZor {

bool askNestedParser(DtDe& de, const std::string& path, std::string& coordinateSystem,
                     std::string& parameters,
                     std::list<kelArchives::DtTerrainPatchRecord>& patchRecords) {
    const std::unique_ptr<DtHeaderParser> parser(
        DtHeaderParserFactory::instance(de).createHeaderParser(path));
    if (!parser || !parser->isValid())
        return false;
    coordinateSystem = parser->terrainCoordinateSystem();
    parameters = parser->terrainCoordinateSystemParameters();
    patchRecords = parser->terrainPatchRecords();
    return true;
}

}  // namespace kelZor
