// What the scene commands (features, props) print around their records: the scene first
// (a line, or the opening of one JSON object and its streamed array), GeoJSON when asked,
// and the errors the engine was told and the notes its libraries wrote, last.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "GeoJsonWriter.h"
#include "JsonOutput.h"
#include "Scene.h"

namespace kelZor {
class DtDe;
}

class SceneOutput {
public:
    SceneOutput(std::ostream& out, const SceneChoice& scene, bool json)
        : out_(out), scene_(scene), json_(json) {}

    // Opens the GeoJSON file before anything is loaded, so that a target it must refuse
    // costs no load. False with the reason in `error`.
    bool openGeoJson(const GeoJsonWriter::Target& target, const GeoJsonWriter::Fields& fields,
                     bool threeD, std::string& error);
    // Writes the scene; records go into the JSON array named `arrayKey`.
    void begin(const char* arrayKey);
    JsonArrayStream* array() { return array_.get(); }
    bool json() const { return json_; }
    std::ostream& out() { return out_; }

    // A GeoJSON feature, when GeoJSON was asked for; the first failure is kept.
    void addGeoJson(GeoJsonWriter::Shape shape, const std::vector<Wgs84Position>& vertices,
                    const Json& properties);
    bool wantsGeoJson() const { return geojson_ != nullptr; }

    // Every error the engine was told, each "code" and "text".
    static Json errorsJson(const kelZor::DtDe& de);
    // Closes the array and writes `moreJson`'s members, the errors and `notes`, and puts
    // the GeoJSON file in place. The errors are problems: each is also one line on `err`
    // naming `file`. False with the reason when GeoJSON failed.
    bool end(const kelZor::DtDe& de, const Json& moreJson, const std::vector<std::string>& notes,
             const std::string& file, std::ostream& err, std::string& error);

private:
    std::ostream& out_;
    const SceneChoice& scene_;
    bool json_;
    std::unique_ptr<JsonArrayStream> array_;
    std::unique_ptr<GeoJsonWriter> geojson_;
    std::string geojsonError_;
};
