#include "PropCommands.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <memory>
#include <set>
#include <sstream>

#include "EngineReport.h"
#include "PropFacing.h"
#include "SceneOutput.h"
#include "TextNumbers.h"
#include "hxutil/DtFilename.h"
#include "kelArchives/DtPropRecord.h"
#include "matrix/DtAngles.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtPropAdder.h"

using kelArchives::DtAddPropsRuleRecord;
using kelZor::DtDe;
using kelZor::DtProp;

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

RulesFile readRules(const std::string& content) {
    Json json;
    try {
        json = Json::parse(content);
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

const GeoJsonWriter::Fields propFields = {{"rule", OFTInteger},
                                          {"name", OFTString},
                                          {"propType", OFTString},
                                          {"model", OFTString},
                                          {"headingDegrees", OFTReal},
                                          {"qx", OFTReal},
                                          {"qy", OFTReal},
                                          {"qz", OFTReal},
                                          {"qw", OFTReal}};

class PropReport {
public:
    PropReport(const PropsRequest& request, const SceneChoice& scene, std::ostream& out)
        : request_(request), scene_(scene), output_(out, scene, request.json) {}

    bool openGeoJson(std::string& error) {
        std::vector<std::string> inputs = request_.terrains;
        inputs.push_back(request_.file);
        inputs.push_back(request_.rules);
        return output_.openGeoJson({request_.geojson, inputs, request_.overwrite}, propFields, true,
                                   error);
    }
    void begin() { output_.begin("props"); }
    void addRule(size_t index, const DtAddPropsRuleRecord& rule,
                 const kelZor::DtTerrainLayer& layer, size_t first);
    // `notes` are the engine's; what zorhost adds of its own goes to `err` as well.
    bool end(const DtDe& de, const std::vector<std::string>& notes, const FileLoad& load,
             std::ostream& err, std::string& error);
    size_t unplaced() const { return unplaced_; }

private:
    void addProp(size_t rule, const DtProp& prop);

    const PropsRequest& request_;
    const SceneChoice& scene_;
    SceneOutput output_;
    Json perRule_ = Json::array();
    size_t unplaced_ = 0;
    std::string firstUnplaced_;
};

void PropReport::addRule(size_t index, const DtAddPropsRuleRecord& rule,
                         const kelZor::DtTerrainLayer& layer, size_t first) {
    const size_t added = layer.numProps() - first;
    perRule_.push_back({{"rule", index}, {"added", added}});
    if (!output_.json()) {
        output_.out() << "rule " << index << ": " << conditionText(rule) << " -> "
                      << rule.modelDefinition() << " (" << rule.propType() << "): " << added
                      << (added == 1 ? " prop" : " props") << "\n";
    }
    for (size_t i = first; i < layer.numProps(); ++i)
        addProp(index, layer.prop(i));
}

void PropReport::addProp(size_t rule, const DtProp& prop) {
    const kelArchives::DtPropRecord& r = prop.record();
    const double* p = r.position();
    const double* q = r.orientation();
    const bool isPlaced = propPlaced(r);
    if (!isPlaced && unplaced_++ == 0)
        firstUnplaced_ = prop.name();
    const Json heading = isPlaced ? Json(propHeadingDegrees(scene_.system, r)) : Json(nullptr);
    const Wgs84Position where =
        isPlaced ? sceneToWgs84(scene_.system, DtVector64(p[0], p[1], p[2])) : Wgs84Position();
    if (output_.array()) {
        output_.array()->add(
            {{"rule", rule},
             {"name", prop.name()},
             {"propType", prop.propType()},
             {"model", r.modelDefOrNodeAddress()},
             {"placed", isPlaced},
             {"position", {p[0], p[1], p[2]}},
             {"wgs84", isPlaced ? Json{where.lon, where.lat, where.height} : Json(nullptr)},
             {"headingDegrees", heading},
             {"orientation", {q[0], q[1], q[2], q[3]}}});
    } else if (isPlaced) {
        output_.out() << "  " << prop.name() << "  " << prop.propType() << "  "
                      << r.modelDefOrNodeAddress() << "  at " << metresText(p[0], p[1], p[2])
                      << " (lat " << degreesText(where.lat) << ", lon " << degreesText(where.lon)
                      << ")  heading " << degreesText(heading.get<double>()) << " deg  orientation "
                      << degreesText(q[0]) << " " << degreesText(q[1]) << " " << degreesText(q[2])
                      << " " << degreesText(q[3]) << "\n";
    } else {
        output_.out() << "  " << prop.name() << "  " << prop.propType() << "  "
                      << r.modelDefOrNodeAddress()
                      << "  not placed: no terrain below or above it (left at the origin)\n";
    }
    if (output_.wantsGeoJson() && isPlaced) {
        output_.addGeoJson(GeoJsonWriter::Point, {where},
                           {{"rule", rule},
                            {"name", prop.name()},
                            {"propType", prop.propType()},
                            {"model", r.modelDefOrNodeAddress()},
                            {"headingDegrees", heading},
                            {"qx", q[0]},
                            {"qy", q[1]},
                            {"qz", q[2]},
                            {"qw", q[3]}});
    }
}

bool PropReport::end(const DtDe& de, const std::vector<std::string>& notes, const FileLoad& load,
                     std::ostream& err, std::string& error) {
    std::vector<std::string> said = notes;
    if (unplaced_ > 0) {
        said.push_back(request_.file + ": " + std::to_string(unplaced_) +
                       (unplaced_ == 1 ? " prop" : " props") +
                       " not placed: no --terrain source lies below or above (the engine "
                       "leaves each at the origin; the first is " +
                       firstUnplaced_ + ")");
        err << "zorhost: " << said.back() << "\n";
    }
    if (unplaced_ > 0 && output_.wantsGeoJson()) {
        said.push_back(request_.geojson + ": " + std::to_string(unplaced_) +
                       (unplaced_ == 1 ? " prop" : " props") +
                       " not placed (no terrain below or above) left out");
        err << "zorhost: " << said.back() << "\n";
    }
    return output_.end(de, Json{{"rules", perRule_}, {"load", loadJson(load, "props")}}, said,
                       request_.file, err, error);
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

int runProps(DtDe& de, const PropsRequest& request, std::ostream& out, std::ostream& err) {
    if (const std::string problem = loadOptionsProblem(request.load); !problem.empty()) {
        err << "zorhost: " << problem << "\n";
        return 2;
    }
    RulesFile rules;
    if (const int status = readRulesFile(request.rules, rules, err))
        return status;
    for (const std::string& file : request.terrains) {
        if (!exists(file)) {
            err << "zorhost: " << file << ": no such file\n";
            return 1;
        }
    }
    if (!exists(request.file)) {
        err << "zorhost: " << request.file << ": no such file\n";
        return 1;
    }
    kelZor::DtPropAdderCreator* creator = propAdderCreatorFor(de, request.file, err);
    if (!creator || !addElevationSources(de, request.terrains, err))
        return 1;
    // The vector file's system before the DEMs': the props are its points.
    std::vector<std::string> candidates = {request.file};
    candidates.insert(candidates.end(), request.terrains.begin(), request.terrains.end());
    const LoadAccount account(request.load);
    SceneChoice scene;
    const SceneProblem problem = chooseScene(de, request.scene, candidates, scene);
    if (problem.status != 0) {
        err << "zorhost: " << problem.message << "\n";
        return problem.status;
    }
    printSceneWarnings(scene, err);
    de.sharedState().coordinateSystem() = scene.system;
    defineModels(de, rules);
    PropReport report(request, scene, out);
    std::string error;
    if (!report.openGeoJson(error)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }

    const EngineReport engine(de);
    kelZor::DtAgentManagerInterface agents;
    std::unique_ptr<kelZor::DtPropAdder> adder(creator->create(request.file, agents));
    kelZor::DtTerrainLayer layer;
    report.begin();
    for (size_t i = 0; i < rules.rules.size() && engine.filesNotLoaded().empty(); ++i) {
        const size_t first = layer.numProps();
        adder->addProps(rules.rules[i], &layer);
        report.addRule(i, rules.rules[i], layer, first);
    }
    engine.printProblems(err);
    FileLoad load = account.load(request.file);
    warnUnmatchedRules(load, rules, err);
    load.madePerLayer = false;
    load.featureReasons = false;
    load.madeInFile = layer.numProps();
    load.more.push_back(
        {"linesAndAreas", "lines or areas, of which no prop is made", load.linesAndAreas()});
    if (const std::string line = loadLine(load, "prop"); !line.empty())
        err << "zorhost: " << line << "\n";
    const bool written = report.end(de, engine.notes(), load, err, error);
    if (!written) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    const bool failed = engine.anyError() || report.unplaced() > 0 || producedNothing(load);
    return failed ? 1 : 0;
}
