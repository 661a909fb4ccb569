// A position as WGS84 longitude and latitude in degrees and ellipsoidal height in metres:
// how zorhost hands places to GIS formats and pictures.
#pragma once

struct Wgs84Position {
    double lon = 0.0, lat = 0.0, height = 0.0;
};
