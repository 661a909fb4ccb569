#include "LibraryModule.h"

#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/DtMetaFileHeaderParser.h"

namespace {

void registerMetaFileParser(kelZor::DtDe& de) {
    kelZor::DtHeaderParserFactory::instance(de).registerCreator(
        "DtMetaFileHeaderParser", new kelZor::DtMetaFileHeaderParserCreator);
}

}  // namespace

extern "C" ZORHOST_MODULE_EXPORT const LibraryCommands* zorhostLibraryCommands() {
    static const LibraryCommands commands{
        &runDescribe, &runTiles,       &runTileFootprints,     &runTileGrid,
        &runCheck,    &describeAnswer, &openTileCursor,        &checkRecords,
        &runConvert,  &runPublish,     &registerMetaFileParser};
    return &commands;
}
