#include "LoadReport.h"

#include <ogr_spatialref.h>

#include "zorCore/DtFeatureSet.h"

namespace {

// One outcome of a layer's objects, as the report names it.
struct Outcome {
    const char* key;   // JSON
    const char* text;  // after the count in the line
    const char* hint;  // what a person can do, after the first; "" for nothing
    bool madeNothing;  // the objects gave the engine nothing
    DtTdbObjectCount DtTdbLayerReport::*count;
    bool identity;  // about the id and code a feature needs; props and values need neither
};

const Outcome outcomes[] = {
    {"noGeometry", "without a geometry the terrain can place", "", true,
     &DtTdbLayerReport::noGeometry, false},
    {"unplaceable", "with a coordinate the scene cannot hold", "", true,
     &DtTdbLayerReport::unplaceable, false},
    {"noUsableId", "with an id the engine cannot hold (outside 0 to 2147483647)", "", true,
     &DtTdbLayerReport::noUsableId, true},
    {"noCodeField", "without a feature-code field (ECC, F_CODE, FCODE or FACC)",
     "--code-field names another, --code gives one", true, &DtTdbLayerReport::noCodeField, true},
    {"emptyCode", "with an empty feature code", "--code gives one", true,
     &DtTdbLayerReport::emptyCode, true},
    {"shortCode", "with a one-character feature code, which the engine cannot read", "", true,
     &DtTdbLayerReport::shortCode, true},
    {"malformedCode",
     "with a code that is not two letters followed by digits, taken as the "
     "engine reads it",
     "", false, &DtTdbLayerReport::malformedCode, true},
    {"codeGiven", "given the code of --code", "", false, &DtTdbLayerReport::codeGiven, true},
    {"holesDropped", "with holes, kept without them (an areal feature is one outline)", "", false,
     &DtTdbLayerReport::holesDropped, false},
};

std::string countOf(uint64_t count, const char* one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

// The first layer where the outcome occurs.
const LayerLoad* firstWith(const FileLoad& load, const Outcome& outcome) {
    for (const LayerLoad& layer : load.layers) {
        if ((layer.report.*outcome.count).count > 0)
            return &layer;
    }
    return nullptr;
}

// The sum over the file's layers of what `count` takes from each.
template <typename Count>
uint64_t sumOver(const FileLoad& load, Count count) {
    uint64_t sum = 0;
    for (const LayerLoad& layer : load.layers)
        sum += count(layer);
    return sum;
}

uint64_t total(const FileLoad& load, const Outcome& outcome) {
    return sumOver(load, [&](const LayerLoad& l) { return (l.report.*outcome.count).count; });
}

std::string firstText(const LayerLoad& layer, const Outcome& outcome) {
    const DtTdbObjectCount& count = layer.report.*outcome.count;
    std::string text = "the first is ";
    if (outcome.count == &DtTdbLayerReport::malformedCode)
        text += "\"" + layer.report.firstMalformedCode + "\", ";
    return text + "feature " + std::to_string(count.firstFid) + " of layer \"" + layer.report.name +
           "\"";
}

}  // namespace

std::string loadOptionsProblem(const LoadOptions& options) {
    if (!options.code.empty() && !DtTdbLoadSession::isWellFormedCode(options.code)) {
        return "--code " + options.code +
               ": a feature code is two letters followed by digits, as AL020";
    }
    for (const std::string& field : options.codeFields) {
        if (field.empty())
            return "--code-field: a field name cannot be empty";
    }
    for (const std::string& option : options.openOptions) {
        if (option.find('=') == std::string::npos || option[0] == '=')
            return "--oo " + option + ": an open option is NAME=VALUE, as X_POSSIBLE_NAMES=lon";
    }
    if (!options.srs.empty()) {
        OGRSpatialReference srs;
        if (srs.SetFromUserInput(options.srs.c_str()) != OGRERR_NONE) {
            return "--srs " + options.srs +
                   ": not a coordinate system OSR reads (EPSG:n, WKT or a PROJ string)";
        }
    }
    return "";
}

uint64_t FileLoad::objects() const {
    return sumOver(*this, [](const LayerLoad& l) { return l.report.objects; });
}

uint64_t FileLoad::made() const {
    if (!madePerLayer)
        return madeInFile;
    return sumOver(*this, [](const LayerLoad& l) { return l.made; });
}

uint64_t FileLoad::points() const {
    return sumOver(*this, [](const LayerLoad& l) { return l.report.points; });
}

uint64_t FileLoad::linesAndAreas() const {
    return sumOver(*this, [](const LayerLoad& l) { return l.report.lines + l.report.areas; });
}

void FileLoad::countFeatures(const kelZor::DtFeatureSet& set) {
    auto count = [this](const kelZor::DtFeature& feature) {
        for (LayerLoad& layer : layers) {
            if (feature.id() >= layer.report.firstId && feature.id() < layer.report.endId) {
                ++layer.made;
                return;
            }
        }
    };
    set.forEach([&](const kelZor::DtPointFeature& f) { count(f); },
                [&](const kelZor::DtEdgeFeature& f) { count(f); },
                [&](const kelZor::DtArealFeature& f) { count(f); });
}

LoadAccount::LoadAccount(const LoadOptions& options)
    : session_(std::make_unique<DtTdbLoadSession>(DtTdbLoadSession::Options{
          options.codeFields, options.code, options.srs, options.openOptions})) {}

LoadAccount::~LoadAccount() = default;

FileLoad LoadAccount::load(const std::string& file) const {
    FileLoad load;
    load.file = file;
    for (const DtTdbLoadReport& report : session_->reports()) {
        if (report.file != file)
            continue;
        load.loaded = true;
        for (const DtTdbLayerReport& layer : report.layers)
            load.layers.push_back({layer, 0});
        break;
    }
    return load;
}

std::string loadLine(const FileLoad& load, const char* madeWord) {
    std::string nothing, remarks;
    uint64_t madeNothing = 0;
    for (const Outcome& outcome : outcomes) {
        const uint64_t count = total(load, outcome);
        // Codes given with --code were asked for: the JSON counts them, the line need not.
        if (count == 0 || outcome.count == &DtTdbLayerReport::codeGiven ||
            (outcome.identity && !load.featureReasons))
            continue;
        std::string& list = outcome.madeNothing ? nothing : remarks;
        list += (list.empty() ? "" : "; ") + std::to_string(count) + " " + outcome.text + " (" +
                firstText(*firstWith(load, outcome), outcome) +
                (*outcome.hint ? std::string("; ") + outcome.hint : "") + ")";
        madeNothing += outcome.madeNothing ? count : 0;
    }
    for (const CommandReason& reason : load.more) {
        if (reason.count == 0)
            continue;
        nothing += (nothing.empty() ? "" : "; ") + std::to_string(reason.count) + " " + reason.text;
        madeNothing += reason.count;
    }
    const uint64_t objects = load.objects();
    if (nothing.empty() && remarks.empty() && (objects == 0 || load.made() > 0))
        return "";
    std::string line = load.file + ": " + countOf(objects, "object") + " read, " +
                       countOf(load.made(), madeWord) + " made";
    if (!nothing.empty())
        line += "; " + countOf(madeNothing, "object") + " made none: " + nothing;
    if (!remarks.empty())
        line += "; " + remarks;
    return line;
}

Json loadJson(const FileLoad& load, const char* madeKey) {
    Json layers = Json::array();
    for (const LayerLoad& layer : load.layers) {
        Json reasons = Json::object();
        for (const Outcome& outcome : outcomes) {
            const DtTdbObjectCount& count = layer.report.*outcome.count;
            if (count.count == 0 || (outcome.identity && !load.featureReasons))
                continue;
            reasons[outcome.key] = {{"count", count.count}, {"firstFid", count.firstFid}};
            if (outcome.count == &DtTdbLayerReport::malformedCode)
                reasons[outcome.key]["firstCode"] = layer.report.firstMalformedCode;
        }
        Json entry = {{"layer", layer.report.name},
                      {"codeField", layer.report.codeField.empty() ? Json(nullptr)
                                                                   : Json(layer.report.codeField)},
                      {"objects", layer.report.objects}};
        if (load.madePerLayer)
            entry[madeKey] = layer.made;
        entry["reasons"] = std::move(reasons);
        layers.push_back(std::move(entry));
    }
    Json reasons = Json::object();
    for (const CommandReason& reason : load.more) {
        if (reason.count > 0)
            reasons[reason.key] = reason.count;
    }
    return {{"file", load.file},    {"loaded", load.loaded}, {"objects", load.objects()},
            {madeKey, load.made()}, {"reasons", reasons},    {"layers", std::move(layers)}};
}
