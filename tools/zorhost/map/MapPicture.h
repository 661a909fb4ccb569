// The files of a map: a PNG with its world file (.pgw) and, where GDAL can write the
// plane's coordinate system, its .aux.xml, so that GDAL and any GIS open it in place; or
// a GeoTIFF (OUT.tif, .tiff) in RGBA with its coordinate system and geotransform inside.
// They are one output: checked together and put in place together, never over an input
// and never in part.
#pragma once

#include <string>
#include <vector>

#include "MapGrid.h"
#include "OutputFile.h"

class MapCanvas;

class MapPicture {
public:
    // False with the reason when the picture or a companion may not be written.
    bool begin(const std::string& path, const std::vector<std::string>& inputs, bool overwrite,
               std::string& problem);
    // Writes the picture and its georeference, and puts them in place.
    bool write(MapCanvas& canvas, const MapGrid& grid, const std::string& wkt,
               std::string& problem);

    static bool isGeoTiff(const std::string& path);
    // Why `path` names no picture map writes (a PNG or a GeoTIFF, by its extension in any
    // case); "" when it does, or is empty.
    static std::string extensionProblem(const std::string& path);
    static std::string worldFileOf(const std::string& png);
    static std::string auxFileOf(const std::string& png);

private:
    bool writePng(MapCanvas& canvas, const double transform[6], const std::string& wkt,
                  std::string& problem);
    bool writeGeoTiff(MapCanvas& canvas, const double transform[6], const std::string& wkt,
                      std::string& problem);
    OutputFile file_;
    std::string path_;
};
