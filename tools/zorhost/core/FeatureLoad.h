// `features` as a front end asks it, nothing printed: a vector file loaded through the
// feature adder the plug-in registered, into the scene chosen as zorhost chooses it; the
// answer holds the features, what the load made of every object, the lines to say (each
// naming the file) and the exit status zorhost gives it. The command line formats the
// answer as text, JSON and GeoJSON; the Python module as dictionaries and arrays.
//
//   FeaturesLoad run(de, {file, scene, load});
//   if (!run.prepare() || !run.load()) fail(run.answer().problems);
//   run.answer().layer->featureSet().forEach(...);
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "LoadReport.h"
#include "Scene.h"
#include "zorCore/DtFeatureSet.h"

namespace kelZor {
class DtDe;
}

struct FeaturesQuery {
    std::string file;
    std::string scene;  // TYPE:PARAMETERS, EPSG:N, @FILE, ...; empty: chosen from the file
    LoadOptions load;
};

struct FeaturesAnswer {
    int status = 0;  // zorhost's: 1 for the file, 2 for the request
    // What to say, a line each, without "zorhost: ", in order: scene warnings
    // ("warning: ..."), the libraries' notes, files not loaded and why, the load's account.
    std::vector<std::string> problems;
    SceneChoice scene;
    std::unique_ptr<kelZor::DtFeatureLayer> layer;  // once loaded
    FileLoad load;
    std::vector<std::string> notes;  // the libraries' notes alone
    bool engineError = false;        // the engine was told an error while loading
};

class FeaturesLoad {
public:
    FeaturesLoad(kelZor::DtDe& de, FeaturesQuery query);
    ~FeaturesLoad();
    FeaturesLoad(const FeaturesLoad&) = delete;
    FeaturesLoad& operator=(const FeaturesLoad&) = delete;

    // The checks and the scene, made the engine's; false (status and problems set) when
    // the file cannot be loaded.
    bool prepare();
    // The load; false (status 1) when the engine could not load the file.
    bool load();
    // The status once the answer has been given: 1 when the engine was told an error or a
    // file with objects gave no feature.
    int finalStatus() const;
    FeaturesAnswer& answer() { return answer_; }

private:
    kelZor::DtDe& de_;
    FeaturesQuery query_;
    // Open from the scene's choice to the load's end. A failed prepare leaves it open
    // until this object goes: drop the object before another request begins.
    std::optional<LoadAccount> account_;
    FeaturesAnswer answer_;
};
