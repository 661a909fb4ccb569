// The files of a map: the PNG, its world file (.pgw) and, where GDAL can write the
// plane's coordinate system, its .aux.xml, so that GDAL and any GIS open it in place.
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
    // False with the reason when the PNG or a companion may not be written.
    bool begin(const std::string& png, const std::vector<std::string>& inputs, bool overwrite,
               std::string& problem);
    // Writes the picture and its georeference, and puts them in place.
    bool write(MapCanvas& canvas, const MapGrid& grid, const std::string& wkt,
               std::string& problem);

    static std::string worldFileOf(const std::string& png);
    static std::string auxFileOf(const std::string& png);

private:
    OutputFile file_;
    std::string png_;
};
