// `zorhost props`: the rules of a rules file applied to a vector file through the prop
// adder the plug-in registered for its extension, on a terrain of real elevation.
#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "LoadReport.h"
#include "kelArchives/DtPropRecord.h"

namespace kelZor {
class DtDe;
class DtPropAdderCreator;
}  // namespace kelZor

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

// What a rules file holds: the model definitions the scene knows (name, model file) and
// the rules in the order they are applied.
struct RulesFile {
    std::vector<std::pair<std::string, std::string>> models;
    std::vector<kelArchives::DtAddPropsRuleRecord> rules;
};

// Reads a rules file's text; false with where and what is wrong in `problem`.
bool parseRules(const std::string& text, RulesFile& rules, std::string& problem);

// A rule's condition as a person reads it: "ECC=AL015 and NAM=barn".
std::string conditionText(const kelArchives::DtAddPropsRuleRecord& rule);

// What props and map share. Each says what went wrong in one line on `err`.
// A rules file read and parsed: 0, else 1 (cannot be read) or 2 (malformed).
int readRulesFile(const std::string& path, RulesFile& rules, std::ostream& err);
// The prop adder registered for the file's extension, or null.
kelZor::DtPropAdderCreator* propAdderCreatorFor(kelZor::DtDe& de, const std::string& file,
                                                std::ostream& err);
// The DEMs under the scene's terrain, the first answering first; false when one is not.
bool addElevationSources(kelZor::DtDe& de, const std::vector<std::string>& dems, std::ostream& err);
// The rules file's models made known to the scene.
void defineModels(kelZor::DtDe& de, const RulesFile& rules);

// What the rules ask of the file's points that none of them has: a field, a rotation
// field; one line each on `err`, naming the file.
void warnUnmatchedRules(const FileLoad& load, const RulesFile& rules, std::ostream& err);

// Prints the scene, each prop, the count per rule and the errors the engine was told,
// and on stderr what the load made nothing of. 2 for a malformed rules file, --scene or
// load option; 1 for a file or DEM that cannot be used, when the engine was told an
// error (a model that does not exist), a prop was not placed or a file with objects gave
// no prop.
int runProps(kelZor::DtDe& de, const PropsRequest& request, std::ostream& out, std::ostream& err);
