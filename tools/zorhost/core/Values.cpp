#include "Values.h"

#include "EngineReport.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtFeatureFieldValueReader.h"

using kelZor::DtDe;

ValuesAnswer readValues(DtDe& de, const ValuesRequest& request) {
    ValuesAnswer answer;
    const kelZor::DtFeatureFieldValueReader* reader =
        kelZor::DtFeatureFieldValueReaderFactory::instance(de).defaultReader();
    if (!reader) {
        answer.status = 1;
        answer.problems.push_back("the plug-in registered no field value reader");
        return answer;
    }
    if (const std::string problem = loadOptionsProblem(request.load); !problem.empty()) {
        answer.status = 2;
        answer.problems.push_back(problem);
        return answer;
    }
    bool allLoaded = true;
    answer.loads = Json::array();
    {
        const LoadAccount account(request.load);
        const EngineReport engine(de);
        for (const std::string& file : request.files) {
            // The reader gathers every file into one map: what each gave is its points.
            allLoaded = reader->readValuesFromFile(file, answer.values) && allLoaded;
            FileLoad load = account.load(file);
            load.madePerLayer = false;
            load.featureReasons = false;
            load.madeInFile = load.points();
            load.more.push_back({"linesAndAreas", "lines or areas, whose fields are not read",
                                 load.linesAndAreas()});
            if (const std::string line = loadLine(load, "point"); !line.empty())
                answer.problems.push_back(line);
            allLoaded = allLoaded && !producedNothing(load);
            answer.loads.push_back(loadJson(load, "points"));
        }
        for (const std::string& note : engine.notes())
            answer.problems.push_back(note);
        for (const std::string& file : engine.filesNotLoaded())
            answer.problems.push_back(file + ": " + engine.whyNotLoaded(file));
    }
    if (!request.fields.empty()) {
        std::map<std::string, std::set<std::string>> chosen;
        for (const std::string& field : request.fields) {
            const auto found = answer.values.find(field);
            if (found == answer.values.end())
                answer.problems.push_back("no free point of the files has the field \"" + field +
                                          "\"");
            else
                chosen.insert(*found);
        }
        answer.values.swap(chosen);
    }
    answer.status = allLoaded ? 0 : 1;
    return answer;
}

Json valuesJson(const ValuesAnswer& answer) {
    return Json{{"values", Json(answer.values)}, {"load", answer.loads}};
}
