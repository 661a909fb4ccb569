#include "FeatureLoad.h"

#include <filesystem>

#include "EngineReport.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtFeatureAdder.h"

FeaturesLoad::FeaturesLoad(kelZor::DtDe& de, FeaturesQuery query)
    : de_(de), query_(std::move(query)) {}

FeaturesLoad::~FeaturesLoad() = default;

bool FeaturesLoad::prepare() {
    auto refuse = [this](int status, const std::string& line) {
        answer_.status = status;
        answer_.problems.push_back(line);
        return false;
    };
    if (!de_.featureAdderCreator())
        return refuse(1, "the plug-in registered no feature adder");
    // The adder passes over a missing file without an extension in silence: zorhost does
    // not.
    std::error_code ignored;
    if (!std::filesystem::exists(query_.file, ignored))
        return refuse(1, query_.file + ": no such file");
    if (const std::string problem = loadOptionsProblem(query_.load); !problem.empty())
        return refuse(2, problem);
    // Open before the scene is chosen: a system given with --srs answers the file's too.
    account_.emplace(query_.load);
    const SceneProblem problem = chooseScene(de_, query_.scene, {query_.file}, answer_.scene);
    if (problem.status != 0)
        return refuse(problem.status, problem.message);
    for (const std::string& warning : answer_.scene.warnings)
        answer_.problems.push_back("warning: " + warning);
    de_.sharedState().coordinateSystem() = answer_.scene.system;
    return true;
}

bool FeaturesLoad::load() {
    answer_.layer = std::make_unique<kelZor::DtFeatureLayer>(query_.file);
    const EngineReport engine(de_);
    std::unique_ptr<kelZor::DtFeatureAdder> adder(de_.featureAdderCreator()->create(de_));
    adder->addFeatures(*answer_.layer);
    answer_.notes = engine.notes();
    answer_.problems.insert(answer_.problems.end(), answer_.notes.begin(), answer_.notes.end());
    const std::vector<std::string> notLoaded = engine.filesNotLoaded();
    for (const std::string& file : notLoaded)
        answer_.problems.push_back(file + ": " + engine.whyNotLoaded(file));
    answer_.engineError = engine.anyError();
    if (!notLoaded.empty()) {
        account_.reset();
        answer_.status = 1;
        return false;
    }
    answer_.load = account_->load(query_.file);
    // Sessions nest per thread: this one ends before another request's may begin, however
    // long the answer is kept.
    account_.reset();
    answer_.load.countFeatures(answer_.layer->featureSet());
    if (const std::string line = loadLine(answer_.load, "feature"); !line.empty())
        answer_.problems.push_back(line);
    answer_.status = finalStatus();
    return true;
}

int FeaturesLoad::finalStatus() const {
    return answer_.engineError || producedNothing(answer_.load) ? 1 : 0;
}
