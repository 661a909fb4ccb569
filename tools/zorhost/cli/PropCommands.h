// `zorhost props`: the rules of a rules file applied to a vector file through the prop
// adder the plug-in registered for its extension, on a terrain of real elevation, printed
// as text, JSON and GeoJSON.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "LoadReport.h"

namespace kelZor {
class DtDe;
}

struct PropsRequest {
    std::string file;
    std::string rules;                  // the rules file (JSON)
    std::vector<std::string> terrains;  // elevation sources, first answers first
    std::string scene;                  // as for features; empty: chosen from the data
    bool json = false;
    std::string geojson;
    bool overwrite = false;
    LoadOptions load;
};

// Prints the scene, each prop, the count per rule and the errors the engine was told,
// and on stderr what the load made nothing of. 2 for a malformed rules file, --scene or
// load option; 1 for a file or DEM that cannot be used, when the engine was told an
// error (a model that does not exist), a prop was not placed or a file with objects gave
// no prop.
int runProps(kelZor::DtDe& de, const PropsRequest& request, std::ostream& out, std::ostream& err);
