// The plane a scene is drawn in: its own easting and northing for a UTM, Lambert or
// flat-earth scene (the x and y zorhost prints), WGS84 longitude and latitude in degrees
// for a geocentric one. The host's converter takes every point there, so a picture shows
// what the engine holds; the plane's coordinate system, written for GDAL, lets GDAL
// reproject DEMs into it and a GIS open the picture in place.
//
//   ScenePlane plane(scene.system);
//   PlanePoint p = plane.fromScene(feature.location());
#pragma once

#include <string>

#include "Wgs84Position.h"
#include "matrix/DtVector64.h"
#include "zorUtil/DtCoordinateSystem.h"

struct PlanePoint {
    double x = 0.0, y = 0.0;
};

class ScenePlane {
public:
    explicit ScenePlane(const kelZor::DtCoordinateSystem& scene);

    // Longitude and latitude in degrees rather than metres.
    bool geographic() const { return geographic_; }
    PlanePoint fromScene(const DtVector64& position) const;
    // False where the scene's projection has no answer (a UTM zone's singular meridian).
    bool fromWgs84(const Wgs84Position& place, PlanePoint& point) const;

    // The plane's coordinate system as WKT, or "" when it has no georeference (a
    // Cartesian scene) or GDAL cannot describe it exactly.
    const std::string& wkt() const { return wkt_; }
    // Metres along the ground per plane unit eastwards at `at`: 1 in a projected plane
    // (grid metres), the length of a degree of longitude there in a geographic one.
    double metresPerUnitX(const PlanePoint& at) const;

private:
    std::string describedWkt() const;
    const kelZor::DtCoordinateSystem& scene_;
    bool geographic_ = false;
    std::string wkt_;
};
