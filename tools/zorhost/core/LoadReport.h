// What zorhost says of every vector file a command loads: the objects read, what the
// engine made of them, and each reason an object made nothing. The plug-in skips such
// objects in silence, as its contract with the engine says; zorhost opens a load session
// on the host's loader around the plug-in's calls and tells.
//
//   LoadAccount account(options);
//   adder->addFeatures(layer);
//   FileLoad load = account.load(file);
//   load.countFeatures(layer.featureSet());
//   err << loadLine(load, "features");
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "terrainDbFactory/DtTdbLoadSession.h"

namespace kelZor {
class DtFeatureSet;
}

// How the loads read codes and systems: --code-field, --code, --srs, --oo.
struct LoadOptions {
    std::vector<std::string> codeFields;
    std::string code;
    std::string srs;
    std::vector<std::string> openOptions;  // NAME=VALUE, for OGR's driver
};

// The reason a load option cannot be used, for a usage error; "" when all can.
std::string loadOptionsProblem(const LoadOptions& options);

struct LayerLoad {
    DtTdbLayerReport report;
    uint64_t made = 0;  // features (or props) the engine made of the layer's objects
};

// A reason of the command's own for objects that made nothing (props: lines and areas).
struct CommandReason {
    std::string key;
    std::string text;
    uint64_t count;
};

struct FileLoad {
    std::string file;
    bool loaded = false;  // false: the file gave no report (it did not load, or is no
                          // vector source)
    std::vector<LayerLoad> layers;
    std::vector<CommandReason> more;
    // What was made of the whole file, when it cannot be told per layer (props).
    bool madePerLayer = true;
    uint64_t madeInFile = 0;
    // Whether an object's id and code decide what it gives (features: yes; props and
    // values read any point's fields).
    bool featureReasons = true;

    uint64_t objects() const;
    uint64_t made() const;
    // Objects read that reached the network as points.
    uint64_t points() const;
    // Objects that reached the network as lines or areas.
    uint64_t linesAndAreas() const;
    // Counts the features of `set` against the layers that made them.
    void countFeatures(const kelZor::DtFeatureSet& set);
};

class LoadAccount {
public:
    explicit LoadAccount(const LoadOptions& options);
    ~LoadAccount();
    LoadAccount(const LoadAccount&) = delete;
    LoadAccount& operator=(const LoadAccount&) = delete;

    // The first load of `file` since the account opened (props loads its file once per
    // rule: the objects are the same each time).
    FileLoad load(const std::string& file) const;

private:
    std::unique_ptr<DtTdbLoadSession> session_;
};

// One line (no "zorhost: " and no newline) with the counts and each reason, or "" when
// every object made something and there is nothing to remark. `madeWord` is "feature"
// or "prop".
std::string loadLine(const FileLoad& load, const char* madeWord);
// The same as JSON: file, objects, made under `madeKey`, and per layer the counts and
// reasons ({"count", "firstFid"}).
Json loadJson(const FileLoad& load, const char* madeKey);

// Whether a file that has objects gave the engine nothing of them.
inline bool producedNothing(const FileLoad& load) {
    return load.loaded && load.objects() > 0 && load.made() == 0;
}
