// Writes what a command placed back out as GeoJSON in WGS84 longitude and latitude,
// through OGR's own driver, so a person can open it in any GIS.
//
//   GeoJsonWriter out;
//   if (!out.open("features.geojson", {{"facc", OFTString}, {"rotation", OFTReal}}, error)) ...
//   out.add(GeoJsonWriter::Point, {{lon, lat, h}}, {{"facc", "AL15"}, {"rotation", nullptr}});
#pragma once

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <string>
#include <utility>
#include <vector>

#include "JsonOutput.h"
#include "Scene.h"

class GeoJsonWriter {
public:
    enum Shape { Point, Line, Polygon };
    using Fields = std::vector<std::pair<std::string, OGRFieldType>>;

    // Replaces `path`. False with the reason in `error`.
    bool open(const std::string& path, const Fields& fields, std::string& error);
    // One feature; `properties` maps field names to JSON numbers, texts or null. A
    // polygon's ring is closed here when its vertices do not close it themselves.
    bool add(Shape shape, const std::vector<Wgs84Position>& vertices, const Json& properties,
             std::string& error);
    // Writes the file out; false with the reason when that fails.
    bool close(std::string& error);

private:
    GDALDatasetUniquePtr dataset_;
    OGRLayer* layer_ = nullptr;
    std::string path_;
};
