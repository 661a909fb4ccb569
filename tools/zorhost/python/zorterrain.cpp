// zorterrain: the engine's answers in Python, a second front end on zorhost's core and
// the same plug-in, loaded by dlopen as zorhost loads it. Records are the dictionaries
// `zorhost ... --json` prints; failures are exceptions carrying zorhost's one-line
// messages (ValueError for a request, OSError for a file); whatever else the engine says
// goes to the "zorterrain" logger. The engine's work runs without the GIL, one call at a
// time in the process: the engine's notices are process-wide.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Engine.h"
#include "EngineReport.h"
#include "FeatureLoad.h"
#include "FeatureRecords.h"
#include "Inspect.h"
#include "LibraryModule.h"
#include "LoadReport.h"
#include "MapCommand.h"
#include "PropFacing.h"
#include "PropRecords.h"
#include "PropsLoad.h"
#include "Scene.h"
#include "SceneOutput.h"
#include "Values.h"
#include "zorCore/DtDe.h"

namespace py = pybind11;

namespace {

// The engine's state (its notices, the scene) is the process's: one call at a time.
std::mutex& engineLock() {
    static std::mutex lock;
    return lock;
}

py::object toPython(const Json& value) {
    switch (value.type()) {
        case Json::value_t::null:
            return py::none();
        case Json::value_t::boolean:
            return py::bool_(value.get<bool>());
        case Json::value_t::number_integer:
            return py::int_(value.get<int64_t>());
        case Json::value_t::number_unsigned:
            return py::int_(value.get<uint64_t>());
        case Json::value_t::number_float:
            return py::float_(value.get<double>());
        case Json::value_t::string:
            return py::str(value.get_ref<const std::string&>());
        case Json::value_t::array: {
            py::list list;
            for (const Json& item : value)
                list.append(toPython(item));
            return std::move(list);
        }
        case Json::value_t::object: {
            py::dict dict;
            for (const auto& [key, item] : value.items())
                dict[py::str(key)] = toPython(item);
            return std::move(dict);
        }
        default:
            return py::none();
    }
}

void log(const std::string& level, const std::string& line) {
    py::module_::import("logging").attr("getLogger")("zorterrain").attr(level.c_str())(line);
}

// The lines before the last go to the logger; the last is the exception's message.
[[noreturn]] void fail(int status, const std::vector<std::string>& lines) {
    for (size_t i = 0; i + 1 < lines.size(); ++i)
        log("warning", lines[i]);
    const std::string message = lines.empty() ? "failed" : lines.back();
    if (status == 2)
        throw py::value_error(message);
    PyErr_SetString(PyExc_OSError, message.c_str());
    throw py::error_already_set();
}

// A loaded layer's features, made dictionaries one at a time as Python asks.
class Features {
public:
    Features(std::unique_ptr<FeaturesLoad> run, py::object engine)
        : run_(std::move(run)), engine_(std::move(engine)) {
        run_->answer().layer->featureSet().forEach(
            [this](const kelZor::DtPointFeature& f) {
                order_.push_back({kelZor::DtFeature::Point, &f});
            },
            [this](const kelZor::DtEdgeFeature& f) {
                order_.push_back({kelZor::DtFeature::Linear, &f});
            },
            [this](const kelZor::DtArealFeature& f) {
                order_.push_back({kelZor::DtFeature::Areal, &f});
            });
    }
    py::dict next() {
        if (at_ >= order_.size())
            throw py::stop_iteration();
        const auto& [kind, feature] = order_[at_++];
        const Json record =
            kind == kelZor::DtFeature::Point
                ? featureJson(*static_cast<const kelZor::DtPointFeature*>(feature))
                : featureJson(kind, *static_cast<const kelZor::DtEdgeFeature*>(feature));
        return toPython(record);
    }
    size_t size() const { return order_.size(); }
    py::object load() const { return toPython(loadJson(run_->answer().load, "features")); }
    py::object scene() const { return toPython(sceneJson(run_->answer().scene.system)); }
    py::list notes() const { return py::cast(run_->answer().notes); }

private:
    std::unique_ptr<FeaturesLoad> run_;
    py::object engine_;  // alive while its features are
    std::vector<std::pair<kelZor::DtFeature::Kind, const kelZor::DtFeature*>> order_;
    size_t at_ = 0;
};

// A list of records as a sink collects them.
class RecordList : public RecordSink {
public:
    void add(const Json& element) override { records.push_back(element); }
    std::vector<Json> records;
};

// The tiles of a tiles request, made as Python asks for the next.
class Tiles {
public:
    Tiles(std::unique_ptr<TileCursor> cursor, py::object engine)
        : cursor_(std::move(cursor)), engine_(std::move(engine)) {}
    py::object next() {
        Json record;
        bool more = false;
        try {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            more = cursor_->next(record);
        } catch (const std::exception& e) {
            fail(1, {e.what()});
        }
        if (!more)
            throw py::stop_iteration();
        return toPython(record);
    }

private:
    std::unique_ptr<TileCursor> cursor_;
    py::object engine_;
};

// `props --json`'s object: the scene, each prop, the count per rule, the load, the
// engine's errors and the notes.
Json propsJson(const PropsAnswer& answer, const std::string& file, const kelZor::DtDe& de) {
    Json props = Json::array(), rules = Json::array();
    std::vector<std::string> notes = answer.notes;
    std::string firstUnplaced;
    for (size_t rule = 0; rule + 1 < answer.ruleStarts.size(); ++rule) {
        rules.push_back(
            {{"rule", rule}, {"added", answer.ruleStarts[rule + 1] - answer.ruleStarts[rule]}});
        for (size_t i = answer.ruleStarts[rule]; i < answer.ruleStarts[rule + 1]; ++i) {
            const kelZor::DtProp& prop = answer.layer->prop(i);
            props.push_back(propJson(rule, prop, answer.scene.system));
            if (firstUnplaced.empty() && !propPlaced(prop.record()))
                firstUnplaced = prop.name();
        }
    }
    if (answer.unplaced > 0)
        notes.push_back(unplacedLine(file, answer.unplaced, firstUnplaced));
    return {{"scene", sceneJson(answer.scene.system)},
            {"props", props},
            {"rules", rules},
            {"load", loadJson(answer.load, "props")},
            {"errors", SceneOutput::errorsJson(de)},
            {"notes", notes}};
}

// An installed module lies in LIB/python3/dist-packages, the plug-in in LIB and zorhost's
// MetaFlight module in LIB/zorhost: found from here before the build tree's.
EngineOptions installedBeside(const std::string& plugin, const std::string& configDir) {
    EngineOptions options{plugin, configDir, ""};
    Dl_info self{};
    if (!dladdr(reinterpret_cast<void*>(&installedBeside), &self) || !self.dli_fname)
        return options;
    const std::filesystem::path lib =
        std::filesystem::path(self.dli_fname).parent_path().parent_path().parent_path();
    std::error_code ignored;
    const char* environment = std::getenv("ZORTERRAIN_PLUGIN");
    const bool chosen = !plugin.empty() || (environment && *environment);
    if (!chosen && std::filesystem::exists(lib / "libzorTerrain.so", ignored))
        options.plugin = (lib / "libzorTerrain.so").string();
    if (std::filesystem::exists(lib / "zorhost" / "zorhost-library.so", ignored))
        options.module = (lib / "zorhost" / "zorhost-library.so").string();
    return options;
}

class PyEngine {
public:
    PyEngine(const std::string& plugin, const std::string& configDir) {
        std::string error;
        bool opened = false;
        const EngineOptions options = installedBeside(plugin, configDir);
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            opened = engine_.open(options, error);
        }
        if (!opened)
            fail(1, {error});
    }

    std::string plugin() const { return engine_.pluginPath(); }

    py::list parsers() {
        py::list list;
        for (const auto& [name, extensions] : engine_.parsers())
            list.append(py::make_tuple(name, py::cast(extensions)));
        return list;
    }

    py::object features(py::object self, const std::string& path, const std::string& scene,
                        bool arrays) {
        auto run = std::make_unique<FeaturesLoad>(engine_.de(), FeaturesQuery{path, scene, {}});
        bool loaded = false;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            engine_.de().clearReportedErrors();
            loaded = run->prepare() && run->load();
        }
        // Once loaded, the answer is given, what went wrong in part to the logger.
        const FeaturesAnswer& answer = run->answer();
        if (!loaded)
            fail(answer.status, answer.problems);
        for (const std::string& line : answer.problems)
            log("warning", line);
        if (!arrays)
            return py::cast(Features(std::move(run), std::move(self)));
        return pointArrays(answer);
    }

    py::object values(const std::vector<std::string>& files,
                      const std::vector<std::string>& fields) {
        ValuesRequest request;
        request.files = files;
        request.fields = fields;
        ValuesAnswer answer;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            answer = readValues(engine_.de(), request);
        }
        if (answer.status != 0)
            fail(answer.status, answer.problems);
        for (const std::string& line : answer.problems)
            log("warning", line);
        return toPython(valuesJson(answer));
    }

    // A rules dict as the text a rules file holds. One nested past Python's own recursion
    // limit is refused as a file nested too deep is.
    static std::string rulesText(const py::object& rules) {
        try {
            return py::module_::import("json").attr("dumps")(rules).cast<std::string>();
        } catch (py::error_already_set& e) {
            if (!e.matches(PyExc_RecursionError))
                throw;
            throw py::value_error("rules: nested deeper than " + std::to_string(maxRulesDepth) +
                                  " levels");
        }
    }

    // `rules` is a rules file's path or its object (a dict).
    py::object props(const std::string& path, py::object rules,
                     const std::vector<std::string>& terrain, const std::string& scene) {
        PropsQuery query{path, "", "", terrain, scene, {}};
        if (py::isinstance<py::str>(rules))
            query.rules = rules.cast<std::string>();
        else
            query.rulesText = rulesText(rules);
        PropsLoad run(engine_.de(), query);
        bool ready = false;
        Json answerJson;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            engine_.de().clearReportedErrors();
            ready = run.prepare();
            if (ready) {
                run.load();
                answerJson = propsJson(run.answer(), path, engine_.de());
            }
        }
        // Once the rules ran, the answer is given (props not placed among its notes).
        const PropsAnswer& answer = run.answer();
        if (!ready)
            fail(answer.status, answer.problems);
        for (const std::string& line : answer.problems)
            log("warning", line);
        if (answer.unplaced > 0)
            log("warning", answerJson["notes"].back().get<std::string>());
        return toPython(answerJson);
    }

    py::object inspect(const std::string& path, const std::string& parser) {
        if (!parser.empty()) {
            bool known = false;
            for (const auto& registered : engine_.parsers())
                known = known || registered.first == parser;
            if (!known)
                throw py::value_error("no parser is registered under the name " + parser);
        }
        InspectResult result;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            engine_.de().clearReportedErrors();
            result = inspectPath(engine_.de(), path, parser);
        }
        if (!result.valid)
            log("warning", path + ": " + result.problem);
        return toPython(inspectJson(result));
    }

    py::dict map(const std::string& output, const MapRequest& asked) {
        MapRequest request = asked;
        request.output = output;
        MapSummary summary;
        request.summary = &summary;
        TileSources tiles;
        if (const LibraryCommands* commands = engine_.metaflight()) {
            tiles.footprints = commands->tileFootprints;
            tiles.grid = commands->tileGrid;
        }
        std::ostringstream out, said;
        int status = 0;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            engine_.de().clearReportedErrors();
            engine_.de().scene().terrain().removeElevationSources();
            status = runMap(engine_.de(), request, tiles, out, said);
        }
        const std::vector<std::string> lines = saidLines(said.str());
        if (status != 0 && summary.width == 0)
            fail(status, lines);
        for (const std::string& line : lines)
            log("warning", line);
        py::dict answer;
        answer["path"] = output;
        answer["width"] = summary.width;
        answer["height"] = summary.height;
        answer["frame"] = py::make_tuple(summary.frameWidth, summary.frameHeight);
        answer["extent"] = py::make_tuple(summary.minX, summary.minY, summary.maxX, summary.maxY);
        answer["plane"] = summary.plane;
        answer["wkt"] = summary.wkt;
        return answer;
    }

    py::object describe(const std::string& document) {
        const LibraryCommands& commands = metaflight();
        Json answer;
        std::ostringstream said;
        int status = 0;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            status = commands.describeAnswer(document, answer, said);
        }
        if (status != 0)
            fail(status, saidLines(said.str()));
        return toPython(answer);
    }

    py::object tiles(py::object self, const std::string& document, const std::string& dataset,
                     std::optional<int> level) {
        const LibraryCommands& commands = metaflight();
        if (level && *level < 0)
            throw py::value_error("level " + std::to_string(*level) +
                                  ": levels are counted from 0");
        TilesRequest request;
        request.document = document;
        request.dataset = dataset;
        request.level = level ? *level : -1;
        std::ostringstream said;
        std::unique_ptr<TileCursor> cursor;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            cursor = commands.openTileCursor(request, said);
        }
        if (!cursor)
            fail(1, saidLines(said.str()));
        return py::cast(Tiles(std::move(cursor), std::move(self)));
    }

    py::list check(const std::string& document, const std::vector<std::string>& datasets,
                   const std::vector<unsigned>& levels, const std::vector<std::string>& list) {
        const LibraryCommands& commands = metaflight();
        CheckRequest request;
        request.document = document;
        request.datasets = datasets;
        request.levels = levels;
        request.list = list;
        RecordList records;
        std::ostringstream said;
        {
            py::gil_scoped_release free;
            const std::lock_guard<std::mutex> lock(engineLock());
            commands.checkRecords(request, records, said);
        }
        // An incomplete database is an answer, not a failure: its summary says so.
        if (records.records.empty())
            fail(1, saidLines(said.str()));
        py::list answer;
        for (const Json& record : records.records)
            answer.append(toPython(record));
        return answer;
    }

private:
    const LibraryCommands& metaflight() {
        if (!engine_.metaflight())
            fail(1, {engine_.metaflightProblem()});
        return *engine_.metaflight();
    }

    // The points' scene positions, feature ids and FACC codes as numpy arrays.
    static py::object pointArrays(const FeaturesAnswer& answer) {
        const kelZor::DtFeatureSet& set = answer.layer->featureSet();
        const size_t n = set.count(kelZor::DtFeature::Point);
        py::array_t<double> xyz({n, size_t{3}});
        py::array_t<int64_t> fid(n);
        std::vector<std::string> codes;
        codes.reserve(n);
        auto position = xyz.mutable_unchecked<2>();
        auto ids = fid.mutable_unchecked<1>();
        size_t i = 0;
        set.forEach(
            [&](const kelZor::DtPointFeature& f) {
                position(i, 0) = f.location().x();
                position(i, 1) = f.location().y();
                position(i, 2) = f.location().z();
                ids(i) = f.featureId();
                codes.push_back(f.code().text());
                ++i;
            },
            [](const kelZor::DtEdgeFeature&) {}, [](const kelZor::DtArealFeature&) {});
        // The codes as one fixed-width text array, filled here: a million Python strings
        // would cost more than the load.
        size_t widest = 1;
        for (const std::string& code : codes)
            widest = std::max(widest, code.size());
        py::array facc =
            py::module_::import("numpy").attr("zeros")(n, py::str("<U" + std::to_string(widest)));
        auto* characters = static_cast<uint32_t*>(facc.mutable_data());
        for (size_t k = 0; k < n; ++k) {
            for (size_t c = 0; c < codes[k].size(); ++c)
                characters[k * widest + c] = static_cast<unsigned char>(codes[k][c]);
        }
        return py::make_tuple(xyz, fid, facc);
    }

    Engine engine_;
};

}  // namespace

PYBIND11_MODULE(zorterrain, m) {
    m.doc() = "The terrain engine's answers, as zorhost gives them";
    py::class_<Features>(m, "Features")
        .def("__iter__", [](Features& f) -> Features& { return f; })
        .def("__next__", &Features::next)
        .def("__len__", &Features::size)
        .def_property_readonly("load", &Features::load)
        .def_property_readonly("scene", &Features::scene)
        .def_property_readonly("notes", &Features::notes);
    py::class_<Tiles>(m, "Tiles")
        .def("__iter__", [](Tiles& t) -> Tiles& { return t; })
        .def("__next__", &Tiles::next);
    py::class_<PyEngine>(m, "Engine")
        .def(py::init<const std::string&, const std::string&>(), py::arg("plugin") = "",
             py::arg("config_dir") = "")
        .def_property_readonly("plugin", &PyEngine::plugin)
        .def("parsers", &PyEngine::parsers)
        .def(
            "features",
            [](py::object self, const std::string& path, const std::string& scene, bool arrays) {
                return self.cast<PyEngine&>().features(self, path, scene, arrays);
            },
            py::arg("path"), py::arg("scene") = "", py::arg("arrays") = false)
        .def("values", &PyEngine::values, py::arg("files"),
             py::arg("fields") = std::vector<std::string>())
        .def("props", &PyEngine::props, py::arg("path"), py::arg("rules"),
             py::arg("terrain") = std::vector<std::string>(), py::arg("scene") = "")
        .def("inspect", &PyEngine::inspect, py::arg("path"), py::arg("parser") = "")
        .def(
            "map",
            [](PyEngine& engine, const std::string& output,
               const std::vector<std::string>& features, const std::vector<std::string>& terrain,
               const std::string& props, const std::string& rules, const std::string& tiles,
               const std::string& dataset, int level, const std::string& scene,
               const std::vector<int>& size, const std::vector<double>& extent, bool overwrite) {
                MapRequest request;
                request.features = features;
                request.terrains = terrain;
                request.props = props;
                request.rules = rules;
                request.tiles = tiles;
                request.dataset = dataset;
                request.level = level;
                request.scene = scene;
                request.size = size;
                request.extent = extent;
                request.overwrite = overwrite;
                return engine.map(output, request);
            },
            py::arg("output"), py::arg("features") = std::vector<std::string>(),
            py::arg("terrain") = std::vector<std::string>(), py::arg("props") = "",
            py::arg("rules") = "", py::arg("tiles") = "", py::arg("dataset") = "",
            py::arg("level") = 0, py::arg("scene") = "", py::arg("size") = std::vector<int>(),
            py::arg("extent") = std::vector<double>(), py::arg("overwrite") = false)
        .def("describe", &PyEngine::describe, py::arg("document"))
        .def(
            "tiles",
            [](py::object self, const std::string& document, const std::string& dataset,
               std::optional<int> level) {
                return self.cast<PyEngine&>().tiles(self, document, dataset, level);
            },
            py::arg("document"), py::arg("dataset"), py::arg("level") = py::none())
        .def("check", &PyEngine::check, py::arg("document"),
             py::arg("datasets") = std::vector<std::string>(),
             py::arg("levels") = std::vector<unsigned>(),
             py::arg("list") = std::vector<std::string>());
}
