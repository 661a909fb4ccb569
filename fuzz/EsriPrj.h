// The .prj a shapefile of an EPSG system carries (ESRI WKT), for targets that hand OGR
// shapefiles; "" for code 0, a shapefile without one.
#pragma once

#include <cpl_conv.h>
#include <ogr_spatialref.h>

#include <string>

inline std::string esriPrj(int epsg) {
    if (!epsg)
        return "";
    OGRSpatialReference srs;
    srs.importFromEPSG(epsg);
    srs.morphToESRI();
    char* wkt = nullptr;
    srs.exportToWkt(&wkt);
    const std::string text = wkt ? wkt : "";
    CPLFree(wkt);
    return text;
}
