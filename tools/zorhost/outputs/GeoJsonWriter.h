// Writes what a command placed back out as GeoJSON in WGS84 longitude and latitude,
// through OGR's own driver, so a person can open it in any GIS. The file is an
// OutputFile: never one of the inputs, an existing one only when asked, and written whole
// or not at all.
//
//   GeoJsonWriter out;
//   if (!out.open({"features.geojson", {"roads.shp"}, false}, fields, false, error)) ...
//   out.add(GeoJsonWriter::Point, {{lon, lat, h}}, {{"facc", "AL15"}, {"rotation", nullptr}});
//   if (!out.close(error)) ...
#pragma once

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <string>
#include <utility>
#include <vector>

#include "JsonOutput.h"
#include "OutputFile.h"
#include "Wgs84Position.h"

// Why `path` is no GeoJSON target: its extension names another format GDAL knows (a
// ".shp" would hold GeoJSON text under a shapefile's name); "" when it can be one.
std::string geoJsonTargetProblem(const std::string& path);

class GeoJsonWriter {
public:
    enum Shape { Point, Line, Polygon };
    using Fields = std::vector<std::pair<std::string, OGRFieldType>>;
    struct Target {
        std::string path;
        std::vector<std::string> inputs;  // files the command read, never written over
        bool overwrite = false;
    };

    // False with the reason in `error`, naming the path. `threeD`: heights are kept;
    // otherwise geometries are written with longitude and latitude only.
    bool open(const Target& target, const Fields& fields, bool threeD, std::string& error);
    // One feature; `properties` maps field names to JSON numbers, texts or null. A
    // polygon's ring is closed here when its vertices do not close it themselves.
    bool add(Shape shape, const std::vector<Wgs84Position>& vertices, const Json& properties,
             std::string& error);
    // Writes the file out and puts it in place; false with the reason when that fails,
    // leaving the target as it was.
    bool close(std::string& error);

private:
    OutputFile file_;
    GDALDatasetUniquePtr dataset_;
    OGRLayer* layer_ = nullptr;
    std::string path_;
    bool threeD_ = true;
};
