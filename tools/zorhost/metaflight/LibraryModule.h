// zorhost-library.so: what zorhost does with the plug-in's exported classes directly, as
// an engine that links the library may: the MetaFlight commands, and registering the
// metafile parser, which the plug-in's init leaves to the host. The module links the
// plug-in by its soname; zorhost loads it only after the plug-in, so it binds to the copy
// zorhost loaded and never brings a second one.
#pragma once

#include "MetaFlightCommands.h"

namespace kelZor {
class DtDe;
}

struct LibraryCommands {
    int (*describe)(const DescribeRequest& request, std::ostream& out, std::ostream& err);
    int (*tiles)(const TilesRequest& request, std::ostream& out, std::ostream& err);
    int (*tileFootprints)(const TilesRequest& request, const TileVisitor& visit, std::ostream& err);
    int (*tileGrid)(const TilesRequest& request, const TileGridVisitor& visit, std::ostream& err);
    int (*check)(const CheckRequest& request, std::ostream& out, std::ostream& err);
    // The same answers as structures, for a front end that formats its own.
    int (*describeAnswer)(const std::string& document, Json& answer, std::ostream& err);
    std::unique_ptr<TileCursor> (*openTileCursor)(const TilesRequest& request, std::ostream& err);
    int (*checkRecords)(const CheckRequest& request, RecordSink& records, std::ostream& err);
    int (*convert)(const ConvertRequest& request, std::ostream& out, std::ostream& err);
    int (*publish)(const PublishRequest& request, std::ostream& out, std::ostream& err);
    // Registers DtMetaFileHeaderParser under its class name, with no extension.
    void (*registerMetaFileParser)(kelZor::DtDe& de);
};

#define ZORHOST_MODULE_EXPORT __attribute__((visibility("default")))
#define ZORHOST_LIBRARY_ENTRY "zorhostLibraryCommands"
// The module's one entry, found by zorhost with dlsym.
extern "C" ZORHOST_MODULE_EXPORT const LibraryCommands* zorhostLibraryCommands();
