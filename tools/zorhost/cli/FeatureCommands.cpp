#include "FeatureCommands.h"

#include <cmath>
#include <filesystem>
#include <iomanip>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "EngineReport.h"
#include "FeatureLoad.h"
#include "FeatureRecords.h"
#include "ProblemLines.h"
#include "SceneOutput.h"
#include "TextNumbers.h"
#include "Values.h"
#include "gdalsupport/DtGdalScope.h"
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

std::string metres(const DtVector64& v) {
    return metresText(v.x(), v.y(), v.z());
}

void printIdentity(std::ostream& out, DtFeature::Kind kind, const DtFeature& f) {
    out << std::left << std::setw(7) << kindName(kind) << std::right << " fid " << f.featureId()
        << "  " << f.code().text() << "  id " << f.id();
}

void printFeature(std::ostream& out, const DtPointFeature& f) {
    printIdentity(out, DtFeature::Point, f);
    out << "  at " << metres(f.location()) << "  size " << metres(f.dimensions()) << "  heading ";
    if (f.rotation())
        out << degreesText(DtRad2Deg(*f.rotation())) << " deg";
    else
        out << "not set";
    out << "\n";
}

void printFeature(std::ostream& out, DtFeature::Kind kind, const DtEdgeFeature& f) {
    printIdentity(out, kind, f);
    out << "  " << f.vertices().size() << " vertices\n";
}

const GeoJsonWriter::Fields geoJsonFields = {
    {"kind", OFTString},  {"featureId", OFTInteger64}, {"facc", OFTString},
    {"id", OFTInteger64}, {"width", OFTReal},          {"length", OFTReal},
    {"height", OFTReal},  {"headingDegrees", OFTReal},
};

// Whether any layer of the source has heights: GeoJSON is written in 3-D only then.
bool sourceHasHeights(const std::string& path) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    if (!dataset)
        return true;
    for (OGRLayer* layer : dataset->GetLayers()) {
        if (layer && wkbHasZ(layer->GetGeomType()))
            return true;
    }
    return false;
}

// Prints (text or JSON) and writes GeoJSON in one walk over the layer, so nothing is
// held a second time.
class FeatureReport {
public:
    FeatureReport(const FeaturesRequest& request, const SceneChoice& scene, std::ostream& out)
        : request_(request), scene_(scene), output_(out, scene, request.json) {}

    bool openGeoJson(std::string& error) {
        return output_.openGeoJson({request_.geojson, {request_.file}, request_.overwrite},
                                   geoJsonFields, sourceHasHeights(request_.file), error);
    }
    bool run(const DtFeatureLayer& layer, const DtDe& de, const std::vector<std::string>& notes,
             const FileLoad& load, std::ostream& err, std::string& error);

private:
    void onPoint(const DtPointFeature& f);
    void onEdge(DtFeature::Kind kind, const DtEdgeFeature& f);
    void writeGeoJson(GeoJsonWriter::Shape shape, const std::vector<DtVector64>& vertices,
                      const Json& properties);

    const FeaturesRequest& request_;
    const SceneChoice& scene_;
    SceneOutput output_;
};

bool FeatureReport::run(const DtFeatureLayer& layer, const DtDe& de,
                        const std::vector<std::string>& notes, const FileLoad& load,
                        std::ostream& err, std::string& error) {
    output_.begin("features");
    layer.featureSet().forEach([this](const DtPointFeature& f) { onPoint(f); },
                               [this](const DtEdgeFeature& f) { onEdge(DtFeature::Linear, f); },
                               [this](const DtArealFeature& f) { onEdge(DtFeature::Areal, f); });
    if (!output_.json()) {
        const kelZor::DtFeatureSet& set = layer.featureSet();
        output_.out() << "features: " << set.count(DtFeature::Point) << " point, "
                      << set.count(DtFeature::Linear) << " linear, " << set.count(DtFeature::Areal)
                      << " areal\n";
    }
    return output_.end(de, Json{{"load", loadJson(load, "features")}}, notes, request_.file, err,
                       error);
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
        properties["headingDegrees"] = headingJson(f);
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

}  // namespace

int runFeatures(DtDe& de, const FeaturesRequest& request, std::ostream& out, std::ostream& err) {
    FeaturesLoad run(de, {request.file, request.scene, request.load});
    const FeaturesAnswer& answer = run.answer();
    ProblemLines sayProblems(answer.problems, err);
    const bool ready = run.prepare();
    sayProblems();
    if (!ready)
        return answer.status;
    FeatureReport report(request, answer.scene, out);
    std::string error;
    if (!report.openGeoJson(error)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    const bool loaded = run.load();
    sayProblems();
    if (!loaded)
        return 1;
    if (!report.run(*answer.layer, de, answer.notes, answer.load, err, error)) {
        err << "zorhost: " << error << "\n";
        return 1;
    }
    return answer.status;
}

int runValues(DtDe& de, const ValuesRequest& request, std::ostream& out, std::ostream& err) {
    const ValuesAnswer answer = readValues(de, request);
    for (const std::string& line : answer.problems)
        err << "zorhost: " << line << "\n";
    if (answer.loads.is_null())  // nothing was read
        return answer.status;
    if (request.json) {
        out << jsonText(valuesJson(answer)) << "\n";
    } else {
        for (const auto& [field, texts] : answer.values) {
            out << field << " (" << texts.size() << (texts.size() == 1 ? " value)" : " values)")
                << "\n";
            for (const std::string& text : texts)
                out << "  " << (text.empty() ? "\"\"" : text) << "\n";
        }
    }
    return answer.status;
}
