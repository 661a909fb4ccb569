#include "PropsLoad.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "EngineReport.h"
#include "PropFacing.h"
#include "hxutil/DtFilename.h"
#include "kelArchives/DtPropRecord.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtPropAdder.h"

using kelArchives::DtAddPropsRuleRecord;
using kelZor::DtDe;

namespace {

// Thrown with the place and what is wrong there.
struct RulesError {
    std::string message;
};

const Json& member(const Json& object, const char* key, const std::string& where, bool required) {
    static const Json absent;
    const auto found = object.find(key);
    if (found == object.end()) {
        if (required)
            throw RulesError{where + ": \"" + key + "\" is missing"};
        return absent;
    }
    return *found;
}

std::string text(const Json& value, const std::string& where) {
    if (!value.is_string())
        throw RulesError{where + ": must be a text"};
    return value.get<std::string>();
}

DtAddPropsRuleRecord readRule(const Json& json, const std::string& where) {
    if (!json.is_object())
        throw RulesError{where + ": must be an object"};
    DtAddPropsRuleRecord rule;
    const Json& fields = member(json, "fields", where, true);
    if (!fields.is_object())
        throw RulesError{where + ".fields: must be an object"};
    for (const auto& [field, value] : fields.items())
        rule.setFieldValue(field, text(value, where + ".fields." + field));
    rule.setModelDefinition(text(member(json, "model", where, true), where + ".model"));
    rule.setPropType(text(member(json, "propType", where, true), where + ".propType"));
    const Json& rotation = member(json, "rotationField", where, false);
    if (!rotation.is_null())
        rule.setRotationField(text(rotation, where + ".rotationField"));
    return rule;
}

// nlohmann's tree builder behind a watch on the nesting: a value deeper than
// maxRulesDepth stops the parse at once, with the path to it (a tree that deep would
// overflow the stack when it is copied).
class DepthLimit : public nlohmann::detail::json_sax_dom_parser<Json> {
    using Builder = nlohmann::detail::json_sax_dom_parser<Json>;

public:
    explicit DepthLimit(Json& tree) : Builder(tree, true) {}

    bool null() { return element() && Builder::null(); }
    bool boolean(bool value) { return element() && Builder::boolean(value); }
    bool number_integer(number_integer_t value) {
        return element() && Builder::number_integer(value);
    }
    bool number_unsigned(number_unsigned_t value) {
        return element() && Builder::number_unsigned(value);
    }
    bool number_float(number_float_t value, const string_t& text) {
        return element() && Builder::number_float(value, text);
    }
    bool string(string_t& value) { return element() && Builder::string(value); }
    bool binary(binary_t& value) { return element() && Builder::binary(value); }
    bool start_object(std::size_t size) { return enter(false) && Builder::start_object(size); }
    bool start_array(std::size_t size) { return enter(true) && Builder::start_array(size); }
    bool end_object() { return leave() && Builder::end_object(); }
    bool end_array() { return leave() && Builder::end_array(); }
    bool key(string_t& name) {
        open_.back().key = name;
        return Builder::key(name);
    }

    // The path of the value that went too deep ("" when none did).
    const std::string& tooDeep() const { return tooDeep_; }

private:
    struct Level {
        bool array;
        size_t next = 0;  // an array's next index
        std::string key;  // an object's current key
    };
    bool element() {
        if (!open_.empty() && open_.back().array)
            ++open_.back().next;
        return true;
    }
    bool enter(bool array) {
        element();
        if (open_.size() >= static_cast<size_t>(maxRulesDepth)) {
            tooDeep_ = path();
            return false;
        }
        open_.push_back({array, 0, {}});
        return true;
    }
    bool leave() {
        open_.pop_back();
        return true;
    }
    std::string path() const {
        std::string text;
        for (const Level& level : open_) {
            if (level.array)
                text += "[" + std::to_string(level.next - 1) + "]";
            else
                text += (text.empty() ? "" : ".") + level.key;
        }
        return text;
    }
    std::vector<Level> open_;
    std::string tooDeep_;
};

RulesFile readRules(const std::string& content) {
    Json json;
    try {
        DepthLimit builder(json);
        if (!Json::sax_parse(content, &builder)) {
            throw RulesError{builder.tooDeep() + ": nested deeper than " +
                             std::to_string(maxRulesDepth) + " levels"};
        }
    } catch (const Json::exception& e) {  // syntax, and numbers no double holds
        const std::string what = e.what();
        const size_t end = what.find("] ");
        throw RulesError{end == std::string::npos ? what : what.substr(end + 2)};
    }
    if (!json.is_object())
        throw RulesError{"must be one JSON object with \"models\" and \"rules\""};
    RulesFile file;
    const Json& models = member(json, "models", "the file", false);
    if (!models.is_null() && !models.is_object())
        throw RulesError{"models: must be an object from name to model file"};
    if (models.is_object()) {
        for (const auto& [name, model] : models.items())
            file.models.emplace_back(name, text(model, "models." + name));
    }
    const Json& rules = member(json, "rules", "the file", true);
    if (!rules.is_array())
        throw RulesError{"rules: must be an array"};
    for (size_t i = 0; i < rules.size(); ++i)
        file.rules.push_back(readRule(rules[i], "rules[" + std::to_string(i) + "]"));
    return file;
}

bool exists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

}  // namespace

std::string conditionText(const kelArchives::DtAddPropsRuleRecord& rule) {
    std::string text;
    for (const auto& [field, value] : rule.fieldValueMap())
        text += (text.empty() ? "" : " and ") + field + "=" + value;
    return text.empty() ? "(no condition)" : text;
}

bool parseRules(const std::string& text, RulesFile& rules, std::string& problem) {
    try {
        rules = readRules(text);
        return true;
    } catch (const RulesError& e) {
        problem = e.message;
        return false;
    }
}

int readRulesFile(const std::string& path, RulesFile& rules, std::ostream& err) {
    std::string problem = exists(path) ? "cannot be read" : "no such file";
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    if (!in || !(content << in.rdbuf())) {
        err << "zorhost: " << path << ": " << problem << "\n";
        return 1;
    }
    if (!parseRules(content.str(), rules, problem)) {
        err << "zorhost: " << path << ": " << problem << "\n";
        return 2;
    }
    return 0;
}

kelZor::DtPropAdderCreator* propAdderCreatorFor(DtDe& de, const std::string& file,
                                                std::ostream& err) {
    kelZor::DtPropAdderCreator* creator =
        kelZor::DtPropAdderFactory::instance(de).creatorForFile(file);
    if (!creator) {
        err << "zorhost: " << file << ": no prop adder is registered for the extension \""
            << DtFilename(file.c_str()).extension().stdString() << "\"\n";
    }
    return creator;
}

bool addElevationSources(DtDe& de, const std::vector<std::string>& dems, std::ostream& err) {
    kelZor::DtTerrain& terrain = de.scene().terrain();
    const EngineReport notes(de);  // what a source's heights need said (a missing geoid grid)
    for (const std::string& dem : dems) {
        std::string error;
        if (!terrain.addElevationSource(dem, error)) {
            err << "zorhost: " << error << "\n";
            return false;
        }
    }
    notes.printProblems(err);
    return true;
}

void defineModels(DtDe& de, const RulesFile& rules) {
    for (const auto& [name, file] : rules.models) {
        kelArchives::DtModelDefinitionRecord model;
        model.setName(name);
        model.setFilename(file);
        model.setSchema("Model");
        de.sharedState().modelDefinitionManager().addDefinition(model);
    }
}

void warnUnmatchedRules(const FileLoad& load, const RulesFile& rules, std::ostream& err) {
    if (!load.loaded)
        return;                   // the file's own failure is said
    std::set<std::string> names;  // what the points carry
    for (const LayerLoad& layer : load.layers) {
        if (layer.report.points > 0)
            names.insert(layer.report.attributes.begin(), layer.report.attributes.end());
    }
    for (size_t i = 0; i < rules.rules.size(); ++i) {
        const DtAddPropsRuleRecord& rule = rules.rules[i];
        const std::string which = "zorhost: " + load.file + ": rule " + std::to_string(i);
        for (const auto& [field, value] : rule.fieldValueMap()) {
            if (names.count(field) == 0)
                err << which << " names the field \"" << field << "\", which no point has\n";
        }
        if (!rule.rotationField().empty() && names.count(rule.rotationField()) == 0) {
            err << which << "'s rotation field \"" << rule.rotationField()
                << "\" is no field of the points: its props face heading 0\n";
        }
    }
}

namespace {

// What a function that says its problems on a stream said, moved to `lines`.
void takeLines(std::ostringstream& said, std::vector<std::string>& lines) {
    for (std::string& line : saidLines(said.str()))
        lines.push_back(std::move(line));
    said.str("");
}

}  // namespace

PropsLoad::PropsLoad(DtDe& de, PropsQuery query) : de_(de), query_(std::move(query)) {}

PropsLoad::~PropsLoad() = default;

bool PropsLoad::prepare() {
    std::ostringstream said;
    auto refuse = [&](int status) {
        takeLines(said, answer_.problems);
        answer_.status = status;
        return false;
    };
    if (const std::string problem = loadOptionsProblem(query_.load); !problem.empty()) {
        said << problem << "\n";
        return refuse(2);
    }
    if (!query_.rulesText.empty()) {
        std::string problem;
        if (!parseRules(query_.rulesText, answer_.rules, problem)) {
            said << "rules: " << problem << "\n";
            return refuse(2);
        }
    } else if (const int status = readRulesFile(query_.rules, answer_.rules, said)) {
        return refuse(status);
    }
    for (const std::string& file : query_.terrains) {
        if (!exists(file)) {
            said << file << ": no such file\n";
            return refuse(1);
        }
    }
    if (!exists(query_.file)) {
        said << query_.file << ": no such file\n";
        return refuse(1);
    }
    creator_ = propAdderCreatorFor(de_, query_.file, said);
    // A request's terrain is its DEMs alone, whatever an engine answered before.
    de_.scene().terrain().removeElevationSources();
    if (!creator_ || !addElevationSources(de_, query_.terrains, said))
        return refuse(1);
    takeLines(said, answer_.problems);
    // The vector file's system before the DEMs': the props are its points.
    std::vector<std::string> candidates = {query_.file};
    candidates.insert(candidates.end(), query_.terrains.begin(), query_.terrains.end());
    account_.emplace(query_.load);
    const SceneProblem problem = chooseScene(de_, query_.scene, candidates, answer_.scene);
    if (problem.status != 0) {
        said << problem.message << "\n";
        return refuse(problem.status);
    }
    for (const std::string& warning : answer_.scene.warnings)
        answer_.problems.push_back("warning: " + warning);
    de_.sharedState().coordinateSystem() = answer_.scene.system;
    defineModels(de_, answer_.rules);
    return true;
}

void PropsLoad::load() {
    const EngineReport engine(de_);
    answer_.agents = std::make_unique<kelZor::DtAgentManagerInterface>();
    answer_.layer = std::make_unique<kelZor::DtTerrainLayer>();
    std::unique_ptr<kelZor::DtPropAdder> adder(creator_->create(query_.file, *answer_.agents));
    answer_.ruleStarts.push_back(0);
    for (size_t i = 0; i < answer_.rules.rules.size() && engine.filesNotLoaded().empty(); ++i) {
        adder->addProps(answer_.rules.rules[i], answer_.layer.get());
        answer_.ruleStarts.push_back(answer_.layer->numProps());
    }
    answer_.notes = engine.notes();
    answer_.problems.insert(answer_.problems.end(), answer_.notes.begin(), answer_.notes.end());
    for (const std::string& file : engine.filesNotLoaded())
        answer_.problems.push_back(file + ": " + engine.whyNotLoaded(file));
    FileLoad& load = answer_.load;
    load = account_->load(query_.file);
    account_.reset();  // sessions nest per thread: this one ends with its load
    std::ostringstream said;
    warnUnmatchedRules(load, answer_.rules, said);
    takeLines(said, answer_.problems);
    load.madePerLayer = false;
    load.featureReasons = false;
    load.madeInFile = answer_.layer->numProps();
    load.more.push_back(
        {"linesAndAreas", "lines or areas, of which no prop is made", load.linesAndAreas()});
    if (const std::string line = loadLine(load, "prop"); !line.empty())
        answer_.problems.push_back(line);
    answer_.engineError = engine.anyError();
    for (size_t i = 0; i < answer_.layer->numProps(); ++i)
        answer_.unplaced += propPlaced(answer_.layer->prop(i).record()) ? 0 : 1;
    answer_.status = answer_.engineError || answer_.unplaced > 0 || producedNothing(load) ? 1 : 0;
}
