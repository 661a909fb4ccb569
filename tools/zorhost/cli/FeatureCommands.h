// `zorhost features` and `zorhost values`: a vector file through the feature adder and
// the field value reader the plug-in registered, as the engine uses them.
#pragma once

#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "LoadReport.h"
#include "Values.h"

namespace kelZor {
class DtDe;
}

struct FeaturesRequest {
    std::string file;
    std::string scene;  // --scene: TYPE:PARAMETERS or @FILE; empty: chosen from the file
    bool json = false;
    std::string geojson;  // where to write the features as GeoJSON; empty: nowhere
    bool overwrite = false;
    LoadOptions load;
};

// Prints the scene, each feature and the counts by kind, and on stderr what the load
// made nothing of; 1 when the file did not load, the engine was told an error or a file
// with objects gave no feature (one line on stderr says why), 2 for a malformed --scene
// or load option.
int runFeatures(kelZor::DtDe& de, const FeaturesRequest& request, std::ostream& out,
                std::ostream& err);

// Every field of the files' free points with its values, gathered into one map; 1 when
// any file did not load or a file with objects gave no point (the others are still
// listed).
int runValues(kelZor::DtDe& de, const ValuesRequest& request, std::ostream& out, std::ostream& err);
