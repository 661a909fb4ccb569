// `values` as a front end asks it, nothing printed: the field value reader the plug-in
// registered over one or more vector files, gathered into one map.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "LoadReport.h"

namespace kelZor {
class DtDe;
}

struct ValuesRequest {
    std::vector<std::string> files;
    std::vector<std::string> fields;  // only these; empty: every field
    bool json = false;
    LoadOptions load;
};

// What the field value reader made of the files, nothing printed: every field of their
// free points with its values, each file's load, the lines to say (without "zorhost: ")
// and the status runValues gives.
struct ValuesAnswer {
    int status = 0;
    std::vector<std::string> problems;
    std::map<std::string, std::set<std::string>> values;
    Json loads;  // each file's, as loadJson gives it; null when none was read
};
ValuesAnswer readValues(kelZor::DtDe& de, const ValuesRequest& request);
// `values --json`'s object.
Json valuesJson(const ValuesAnswer& answer);
