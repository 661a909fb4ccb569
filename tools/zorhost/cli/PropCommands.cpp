#include "PropCommands.h"

#include <memory>
#include <string>
#include <vector>

#include "EngineReport.h"
#include "ProblemLines.h"
#include "PropFacing.h"
#include "PropRecords.h"
#include "PropsLoad.h"
#include "SceneOutput.h"
#include "TextNumbers.h"
#include "kelArchives/DtPropRecord.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtPropAdder.h"

using kelArchives::DtAddPropsRuleRecord;
using kelZor::DtDe;
using kelZor::DtProp;

namespace {

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
    // The rule's props: those of [first, end) of the layer.
    void addRule(size_t index, const DtAddPropsRuleRecord& rule,
                 const kelZor::DtTerrainLayer& layer, size_t first, size_t end);
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
                         const kelZor::DtTerrainLayer& layer, size_t first, size_t end) {
    const size_t added = end - first;
    perRule_.push_back({{"rule", index}, {"added", added}});
    if (!output_.json()) {
        output_.out() << "rule " << index << ": " << conditionText(rule) << " -> "
                      << rule.modelDefinition() << " (" << rule.propType() << "): " << added
                      << (added == 1 ? " prop" : " props") << "\n";
    }
    for (size_t i = first; i < end; ++i)
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
        output_.array()->add(propJson(rule, prop, scene_.system));
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
        said.push_back(unplacedLine(request_.file, unplaced_, firstUnplaced_));
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

}  // namespace

int runProps(DtDe& de, const PropsRequest& request, std::ostream& out, std::ostream& err) {
    PropsLoad run(de,
                  {request.file, request.rules, "", request.terrains, request.scene, request.load});
    const PropsAnswer& answer = run.answer();
    ProblemLines sayProblems(answer.problems, err);
    const bool ready = run.prepare();
    sayProblems();
    if (!ready)
        return answer.status;
    PropReport report(request, answer.scene, out);
    std::string error;
    if (!report.openGeoJson(error)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    run.load();
    report.begin();
    for (size_t i = 0; i + 1 < answer.ruleStarts.size(); ++i) {
        report.addRule(i, answer.rules.rules[i], *answer.layer, answer.ruleStarts[i],
                       answer.ruleStarts[i + 1]);
    }
    sayProblems();
    if (!report.end(de, answer.notes, answer.load, err, error)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    return answer.status;
}
