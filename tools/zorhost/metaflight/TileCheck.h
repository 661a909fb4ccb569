// Whether a MetaFlight database is on disk: each tile of the chosen datasets and levels
// present, missing, empty or unreadable, and the files under the datasets' directories
// that no tile of any level names. A tile's path is the one the engine would open (the
// tile path generator, behind the document's directory); a path that leaves the
// database's directory is reported and never looked at.
//
// Tiles are decided from one walk of each dataset's directory (the deepest directory
// holding all its tiles): a tile the walk did not find is missing without a stat, and
// only the files found are stat'ed, on a small pool of threads, a chunk at a time, so a
// level of millions of tiles is checked in memory that grows with the files on disk,
// not with the tiles. Results come in tile order to the visitor; nothing is printed.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kelZor {
class DtMetaFlightDescription;
}

// UnreadableDirectory: a tile the walk could not look for, as a directory above it
// cannot be read.
enum class TileState : uint8_t {
    Present,
    Missing,
    Empty,
    Unreadable,
    Outside,
    UnreadableDirectory
};
const uint8_t tileStateCount = 6;
inline const char* tileStateName(TileState state) {
    switch (state) {
        case TileState::Present:
            return "present";
        case TileState::Missing:
            return "missing";
        case TileState::Empty:
            return "empty";
        case TileState::Unreadable:
            return "unreadable";
        case TileState::Outside:
            return "outside";
        case TileState::UnreadableDirectory:
            return "unreadable directory";
    }
    return "?";
}

struct CheckedTile {
    const std::string* dataset;
    bool virtualTexture;
    unsigned level, row, col;
    unsigned rows, columns;  // the level's
    TileState state;
    const std::string* path;  // as generated
};

struct LevelTally {
    std::string dataset;
    bool virtualTexture = false;
    unsigned level = 0;
    uint64_t tiles = 0, present = 0, missing = 0, empty = 0, unreadable = 0, outside = 0,
             unreadableDirectory = 0;
    bool complete() const { return present == tiles; }
};

// A dataset of the document: its kind and the deepest directory that holds every tile
// it names inside the database ("" when it names none there).
struct CheckedDataset {
    std::string key;
    bool virtualTexture = false;
    std::string root;
    std::string outsideExample;  // a path it names outside the database, as generated
    uint64_t outside = 0;
};

struct TileCheckVisitor {
    std::function<void(const CheckedDataset&)> dataset;  // before its levels
    std::function<void(const CheckedTile&)> tile;        // every tile, in order
    std::function<void(const LevelTally&)> level;        // after its tiles
    std::function<void(const std::string& path)> extra;  // in path order, after every level
    // A directory under a dataset's that could not be read (errno), or that is a link the
    // walk does not follow out of the database; before the datasets.
    std::function<void(const std::string& directory, int error)> unreadableDirectory;
    std::function<void(const std::string& directory)> linkedDirectory;
    std::function<void(uint64_t done, uint64_t total)> progress;
};

struct TileCheckPlan {
    std::vector<std::string> datasets;  // keys; empty: every geometry and virtual-texture one
    std::vector<unsigned> levels;       // empty: every level
    int threads = 4;
};

// Throws std::invalid_argument for an unknown dataset or a level a chosen dataset does not
// have (the message names what there is), and what the description throws.
void checkTiles(const kelZor::DtMetaFlightDescription& d, const TileCheckPlan& plan,
                const TileCheckVisitor& visit);
