#include "FeatureCommands.h"

#include <cmath>
#include <iomanip>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "SceneOutput.h"
#include "matrix/DtAngles.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtFeatureAdder.h"
#include "zorCore/DtFeatureFieldValueReader.h"

using kelZor::DtArealFeature;
using kelZor::DtDe;
using kelZor::DtEdgeFeature;
using kelZor::DtFeature;
using kelZor::DtFeatureLayer;
using kelZor::DtPointFeature;

namespace {

const char* kindName(DtFeature::Kind kind) {
    switch (kind) {
        case DtFeature::Point:
            return "point";
        case DtFeature::Linear:
            return "linear";
        case DtFeature::Areal:
            return "areal";
    }
    return "?";
}

Json identityJson(DtFeature::Kind kind, const DtFeature& f) {
    return Json{{"kind", kindName(kind)},
                {"featureId", f.featureId()},
                {"facc", f.code().text()},
                {"id", f.id()}};
}

Json rotationJson(const DtPointFeature& f) {
    return f.rotation() ? Json(*f.rotation()) : Json(nullptr);
}

Json featureJson(const DtPointFeature& f) {
    Json j = identityJson(DtFeature::Point, f);
    j["location"] = positionJson(f.location());
    j["dimensions"] = positionJson(f.dimensions());
    j["rotation"] = rotationJson(f);
    return j;
}

Json featureJson(DtFeature::Kind kind, const DtEdgeFeature& f) {
    Json j = identityJson(kind, f);
    Json vertices = Json::array();
    for (const DtVector64& v : f.vertices())
        vertices.push_back(positionJson(v));
    j["vertices"] = std::move(vertices);
    return j;
}

std::ostream& operator<<(std::ostream& out, const DtVector64& v) {
    return out << v.x() << " " << v.y() << " " << v.z();
}

void printIdentity(std::ostream& out, DtFeature::Kind kind, const DtFeature& f) {
    out << std::left << std::setw(7) << kindName(kind) << std::right << " fid " << f.featureId()
        << "  " << f.code().text() << "  id " << f.id();
}

void printFeature(std::ostream& out, const DtPointFeature& f) {
    printIdentity(out, DtFeature::Point, f);
    out << "  at " << f.location() << "  size " << f.dimensions() << "  heading ";
    if (f.rotation())
        out << DtRad2Deg(*f.rotation()) << " deg";
    else
        out << "not set";
    out << "\n";
}

void printFeature(std::ostream& out, DtFeature::Kind kind, const DtEdgeFeature& f) {
    printIdentity(out, kind, f);
    out << "  " << f.vertices().size() << " vertices\n";
}

const GeoJsonWriter::Fields geoJsonFields = {
    {"kind", OFTString}, {"featureId", OFTInteger64}, {"facc", OFTString}, {"id", OFTInteger64},
    {"width", OFTReal},  {"length", OFTReal},         {"height", OFTReal}, {"rotation", OFTReal},
};

// Prints (text or JSON) and writes GeoJSON in one walk over the layer, so nothing is
// held a second time.
class FeatureReport {
public:
    FeatureReport(const FeaturesRequest& request, const SceneChoice& scene, std::ostream& out)
        : request_(request), scene_(scene), output_(out, scene, request.json) {}

    bool run(const DtFeatureLayer& layer, const DtDe& de, std::string& error);

private:
    void onPoint(const DtPointFeature& f);
    void onEdge(DtFeature::Kind kind, const DtEdgeFeature& f);
    void writeGeoJson(GeoJsonWriter::Shape shape, const std::vector<DtVector64>& vertices,
                      const Json& properties);

    const FeaturesRequest& request_;
    const SceneChoice& scene_;
    SceneOutput output_;
};

bool FeatureReport::run(const DtFeatureLayer& layer, const DtDe& de, std::string& error) {
    if (!output_.begin("features", request_.geojson, geoJsonFields, error))
        return false;
    layer.featureSet().forEach([this](const DtPointFeature& f) { onPoint(f); },
                               [this](const DtEdgeFeature& f) { onEdge(DtFeature::Linear, f); },
                               [this](const DtArealFeature& f) { onEdge(DtFeature::Areal, f); });
    if (!output_.json()) {
        const kelZor::DtFeatureSet& set = layer.featureSet();
        output_.out() << "features: " << set.count(DtFeature::Point) << " point, "
                      << set.count(DtFeature::Linear) << " linear, " << set.count(DtFeature::Areal)
                      << " areal\n";
    }
    return output_.end(de, Json::object(), error);
}

void FeatureReport::onPoint(const DtPointFeature& f) {
    if (output_.array())
        output_.array()->add(featureJson(f));
    else
        printFeature(output_.out(), f);
    if (output_.wantsGeoJson()) {
        Json properties = identityJson(DtFeature::Point, f);
        properties["width"] = f.dimensions().x();
        properties["length"] = f.dimensions().y();
        properties["height"] = f.dimensions().z();
        properties["rotation"] = rotationJson(f);
        writeGeoJson(GeoJsonWriter::Point, {f.location()}, properties);
    }
}

void FeatureReport::onEdge(DtFeature::Kind kind, const DtEdgeFeature& f) {
    if (output_.array())
        output_.array()->add(featureJson(kind, f));
    else
        printFeature(output_.out(), kind, f);
    if (output_.wantsGeoJson()) {
        writeGeoJson(kind == DtFeature::Linear ? GeoJsonWriter::Line : GeoJsonWriter::Polygon,
                     f.vertices(), identityJson(kind, f));
    }
}

void FeatureReport::writeGeoJson(GeoJsonWriter::Shape shape,
                                 const std::vector<DtVector64>& vertices, const Json& properties) {
    std::vector<Wgs84Position> positions;
    positions.reserve(vertices.size());
    for (const DtVector64& v : vertices)
        positions.push_back(sceneToWgs84(scene_.system, v));
    output_.addGeoJson(shape, positions, properties);
}

bool anyLoadFailed(const DtDe& de) {
    for (const kelZor::DtReportedError& e : de.reportedErrors()) {
        if (e.error.code() == kelZor::DtDeError::FileNotLoaded)
            return true;
    }
    return false;
}

}  // namespace

int runFeatures(DtDe& de, const FeaturesRequest& request, std::ostream& out, std::ostream& err) {
    kelZor::DtFeatureAdderCreator* creator = de.featureAdderCreator();
    if (!creator) {
        err << "zorhost: the plug-in registered no feature adder\n";
        return 1;
    }
    SceneChoice scene;
    const SceneProblem problem = chooseScene(de, request.scene, {request.file}, scene);
    if (problem.status != 0) {
        err << "zorhost: " << problem.message << "\n";
        return problem.status;
    }
    de.sharedState().coordinateSystem() = scene.system;

    DtFeatureLayer layer(request.file);
    std::unique_ptr<kelZor::DtFeatureAdder> adder(creator->create(de));
    adder->addFeatures(layer);
    if (anyLoadFailed(de)) {
        // The engine's log has said what the adder knew; an elevation source loads
        // without complaint but has no vector network.
        err << "zorhost: " << request.file << " gave no vector network to add features from\n";
        return 1;
    }
    std::string error;
    if (!FeatureReport(request, scene, out).run(layer, de, error)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    return 0;
}

int runValues(DtDe& de, const std::vector<std::string>& files, bool json, std::ostream& out,
              std::ostream& err) {
    const kelZor::DtFeatureFieldValueReader* reader =
        kelZor::DtFeatureFieldValueReaderFactory::instance(de).defaultReader();
    if (!reader) {
        err << "zorhost: the plug-in registered no field value reader\n";
        return 1;
    }
    std::map<std::string, std::set<std::string>> values;
    bool allLoaded = true;
    for (const std::string& file : files)
        allLoaded = reader->readValuesFromFile(file, values) && allLoaded;
    if (json) {
        out << jsonText(Json(values)) << "\n";
    } else {
        for (const auto& [field, texts] : values) {
            out << field << " (" << texts.size() << (texts.size() == 1 ? " value)" : " values)")
                << "\n";
            for (const std::string& text : texts)
                out << "  " << (text.empty() ? "\"\"" : text) << "\n";
        }
    }
    return allLoaded ? 0 : 1;
}
