#include "SceneOutput.h"

#include "zorCore/DtDe.h"

bool SceneOutput::openGeoJson(const GeoJsonWriter::Target& target,
                              const GeoJsonWriter::Fields& fields, bool threeD,
                              std::string& error) {
    if (target.path.empty())
        return true;
    geojson_ = std::make_unique<GeoJsonWriter>();
    if (geojson_->open(target, fields, threeD, error))
        return true;
    geojson_.reset();
    return false;
}

void SceneOutput::begin(const char* arrayKey) {
    if (json_) {
        out_ << "{\"scene\":" << jsonText(sceneJson(scene_.system)) << ",\"" << arrayKey << "\":";
        array_ = std::make_unique<JsonArrayStream>(out_);
    } else {
        out_ << sceneLine(scene_) << "\n";
    }
}

void SceneOutput::addGeoJson(GeoJsonWriter::Shape shape, const std::vector<Wgs84Position>& vertices,
                             const Json& properties) {
    if (geojson_ && geojsonError_.empty())
        geojson_->add(shape, vertices, properties, geojsonError_);
}

Json SceneOutput::errorsJson(const kelZor::DtDe& de) {
    Json errors = Json::array();
    for (const kelZor::DtReportedError& e : de.reportedErrors())
        errors.push_back({{"code", static_cast<int>(e.error.code())}, {"text", e.error.message()}});
    return errors;
}

bool SceneOutput::end(const kelZor::DtDe& de, const Json& moreJson,
                      const std::vector<std::string>& notes, const std::string& file,
                      std::ostream& err, std::string& error) {
    const Json errors = errorsJson(de);
    if (array_) {
        array_->close();
        for (const auto& [key, value] : moreJson.items())
            out_ << ",\"" << key << "\":" << jsonText(value);
        out_ << ",\"errors\":" << jsonText(errors) << ",\"notes\":" << jsonText(Json(notes))
             << "}\n";
    }
    for (const Json& e : errors) {
        err << "zorhost: " << file << ": engine error " << e["code"].get<int>() << ": "
            << e["text"].get<std::string>() << "\n";
    }
    if (geojson_ && geojsonError_.empty())
        geojson_->close(geojsonError_);
    error = geojsonError_;
    return error.empty();
}
