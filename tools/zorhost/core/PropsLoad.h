// The props a rules file makes of a vector file's points, as a front end asks for them,
// nothing printed: the rules read, the prop adder the plug-in registered for the file's
// extension, the DEMs under the scene's terrain, the scene chosen as zorhost chooses it.
#pragma once

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "LoadReport.h"
#include "Scene.h"
#include "kelArchives/DtPropRecord.h"
#include "zorCore/DtPropAdder.h"

namespace kelZor {
class DtDe;
class DtPropAdderCreator;
}  // namespace kelZor

// What a rules file holds: the model definitions the scene knows (name, model file) and
// the rules in the order they are applied.
struct RulesFile {
    std::vector<std::pair<std::string, std::string>> models;
    std::vector<kelArchives::DtAddPropsRuleRecord> rules;
};

// Reads a rules file's text; false with where and what is wrong in `problem`.
bool parseRules(const std::string& text, RulesFile& rules, std::string& problem);
// How deep a rules file's values may nest (the file itself is 1): a deeper one is refused
// while it is read, before a tree that deep exists.
const int maxRulesDepth = 64;

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

// `props` as a front end asks it, nothing printed: the rules applied to the file's points
// through the prop adder registered for its extension, on the DEMs, in the scene chosen
// as zorhost chooses it. The answer holds the props (rule i's are ruleStarts[i] to
// ruleStarts[i + 1]), what the load made of every object, the lines to say (without
// "zorhost: ") and the status.
struct PropsQuery {
    std::string file;
    std::string rules;      // the rules file
    std::string rulesText;  // or its text, given by a front end ("rules" in messages)
    std::vector<std::string> terrains;
    std::string scene;
    LoadOptions load;
};

struct PropsAnswer {
    int status = 0;
    std::vector<std::string> problems;
    SceneChoice scene;
    RulesFile rules;
    std::unique_ptr<kelZor::DtAgentManagerInterface> agents;  // before the props: they refer to it
    std::unique_ptr<kelZor::DtTerrainLayer> layer;
    std::vector<size_t> ruleStarts;
    FileLoad load;
    std::vector<std::string> notes;
    bool engineError = false;
    size_t unplaced = 0;
};

class PropsLoad {
public:
    PropsLoad(kelZor::DtDe& de, PropsQuery query);
    ~PropsLoad();
    PropsLoad(const PropsLoad&) = delete;
    PropsLoad& operator=(const PropsLoad&) = delete;

    // The checks, the rules, the DEMs and the scene; false (status, problems) when the
    // props cannot be made.
    bool prepare();
    // Each rule in turn; the answer's status says how it went.
    void load();
    PropsAnswer& answer() { return answer_; }

private:
    kelZor::DtDe& de_;
    PropsQuery query_;
    kelZor::DtPropAdderCreator* creator_ = nullptr;
    std::optional<LoadAccount> account_;
    PropsAnswer answer_;
};
