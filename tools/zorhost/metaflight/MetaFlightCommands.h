// The zorhost commands that answer questions about MetaFlight documents: describe,
// tiles, convert and publish. They use the plug-in's exported MetaFlight classes
// directly, as an engine that links the library would, and so live in a module of their
// own (zorhost-library.so, see LibraryModule.h). Each command answers an exit status:
// 0 on success, 1 when the document or a query fails (the message goes to `err`).
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "TileCheck.h"
#include "TileFootprint.h"

struct DescribeRequest {
    std::string document;
    bool json = false;
    std::string geojson;  // where to write each dataset's coverage outline; empty: nowhere
    bool overwrite = false;
};

struct TilesRequest {
    std::string document;
    std::string dataset;
    int level = -1;  // every level when negative
    bool json = false;
    std::string geojson;  // where to write each tile's footprint; empty: nowhere
    bool overwrite = false;
    bool paths = false;  // each tile's path alone, a line each
};

struct CheckRequest {
    std::string document;
    std::vector<std::string> datasets;  // empty: every geometry and virtual-texture dataset
    std::vector<unsigned> levels;       // empty: every level
    bool json = false;
    // What to list: "missing" (with the unreadable and those outside the database),
    // "empty", "extra", "all" (every tile, present ones too); empty: every problem.
    std::vector<std::string> list;
    bool progress = false;
    std::string map;  // a picture of the finest level checked; empty: none
    bool overwrite = false;
    // Also told of each tile, for the picture.
    std::function<void(const CheckedTile&)> alsoEach;
};

struct ConvertRequest {
    std::string document;
    std::string from;
    std::string to;
    double values[3] = {0.0, 0.0, 0.0};
};

struct PublishRequest {
    std::string input;
    std::string output;
    std::string merge;
    bool medf = false;
    bool removeVirtualTexture = false;
    bool setSwitchDistance = false;
    float switchDistance = 0.0f;
    bool overwrite = false;  // OUT may be replaced (IN included)
};

// Each tile record of a tiles request (what `tiles --json` streams), one at a time as a
// front end pulls them; `next` may throw what the description throws.
class TileCursor {
public:
    virtual ~TileCursor() = default;
    // False after the last.
    virtual bool next(Json& record) = 0;
};

int runDescribe(const DescribeRequest& request, std::ostream& out, std::ostream& err);
// The document as `describe --json` gives it; 1 with the message on `err`.
int describeAnswer(const std::string& document, Json& answer, std::ostream& err);
// Null with the message on `err` when the document or the query fails.
std::unique_ptr<TileCursor> openTileCursor(const TilesRequest& request, std::ostream& err);
// The records `check --json` gives, into `records`, nothing printed; the status as check's.
int checkRecords(const CheckRequest& request, RecordSink& records, std::ostream& err);
int runTiles(const TilesRequest& request, std::ostream& out, std::ostream& err);
// The footprint of each tile `request` asks for, to `visit` as it is made, nothing
// printed; 1 with the message on `err` when the document or the query fails.
int runTileFootprints(const TilesRequest& request, const TileVisitor& visit, std::ostream& err);
// The asked level's grid as a whole (its tiles are not visited), to `visit`.
int runTileGrid(const TilesRequest& request, const TileGridVisitor& visit, std::ostream& err);
// The tiles of the document's datasets on disk: a record for each tile listed and each
// file no tile names, then a line per level; 1 when a tile is missing, empty, unreadable
// or names a path outside the database, or the document or query fails.
int runCheck(const CheckRequest& request, std::ostream& out, std::ostream& err);
int runConvert(const ConvertRequest& request, std::ostream& out, std::ostream& err);
// Prints one line on what changed; a failed publish, or an output that could not be
// written, gives the message on `err` and 1.
int runPublish(const PublishRequest& request, std::ostream& out, std::ostream& err);
