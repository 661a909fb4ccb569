#include "FeatureRecords.h"

#include "SceneOutput.h"
#include "matrix/DtAngles.h"

using kelZor::DtEdgeFeature;
using kelZor::DtFeature;
using kelZor::DtPointFeature;

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

Json headingJson(const DtPointFeature& f) {
    return f.rotation() ? Json(DtRad2Deg(*f.rotation())) : Json(nullptr);
}

Json featureJson(const DtPointFeature& f) {
    Json j = identityJson(DtFeature::Point, f);
    j["location"] = positionJson(f.location());
    j["dimensions"] = positionJson(f.dimensions());
    j["headingDegrees"] = headingJson(f);
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
