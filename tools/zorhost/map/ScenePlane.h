// The plane a scene is drawn in: its own easting and northing for a UTM, Lambert or
// flat-earth scene (the x and y zorhost prints); for a geocentric scene, a conformal
// plane centred on the data - a transverse Mercator on the centre's meridian, or a
// Mercator true at the centre's latitude when the data span more than a third of the
// globe - so that distances and angles at the centre are true in every direction and
// data either side of the antimeridian lie together. The host's converter takes every
// point there, so a picture shows what the engine holds; the plane's coordinate system,
// written for GDAL, lets GDAL reproject DEMs into it and a GIS open the picture in place.
//
//   ScenePlane plane(scene.system, centre);
//   PlanePoint p = plane.fromScene(feature.location());
#pragma once

#include <memory>
#include <string>

#include "Wgs84Position.h"
#include "matrix/DtVector64.h"
#include "zorUtil/DtCoordinateSystem.h"

struct PlanePoint {
    double x = 0.0, y = 0.0;
};

// Where a geocentric scene's plane is centred, and how far east to west its data reach.
struct PlaneCentre {
    double lon = 0.0, lat = 0.0;
    double lonSpan = 0.0;  // degrees
};

class ScenePlane {
public:
    // `centre` matters only for a geocentric scene.
    ScenePlane(const kelZor::DtCoordinateSystem& scene, const PlaneCentre& centre);
    ~ScenePlane();

    // A plane of the picture's own rather than the scene's x and y.
    bool ofItsOwn() const { return ofItsOwn_; }
    // Not finite where the plane has no place for the position.
    PlanePoint fromScene(const DtVector64& position) const;
    // False where the scene's projection has no answer (a UTM zone's singular meridian).
    bool fromWgs84(const Wgs84Position& place, PlanePoint& point) const;

    // The scene position at a point of the plane: its x and y with z 0 in the scene's own
    // plane, on the ellipsoid in a plane of its own; false where the plane has none.
    bool toScene(const PlanePoint& point, DtVector64& position) const;

    // The plane's coordinate system as WKT, or "" when it has no georeference (a
    // Cartesian scene) or GDAL cannot describe it exactly.
    const std::string& wkt() const { return wkt_; }
    // What the plane is, for a person: "transverse Mercator on 9.0012 E".
    const std::string& description() const { return description_; }

private:
    class Conformal;
    std::string describedWkt() const;
    const kelZor::DtCoordinateSystem& scene_;
    bool ofItsOwn_ = false;
    std::unique_ptr<Conformal> conformal_;
    std::string wkt_, description_;
};
