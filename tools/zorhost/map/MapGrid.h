// A picture's grid: the part of the scene's plane it shows and its pixels. Pixel (0, 0)
// is the north-west corner; a pixel's centre is at half-integers, as in GDAL.
#pragma once

#include "ScenePlane.h"

// A place in the picture, in pixels from its north-west corner.
struct MapPixel {
    double x, y;
};

struct MapGrid {
    double minX = 0.0, minY = 0.0, maxX = 1.0, maxY = 1.0;
    int width = 1, height = 1;

    double pixelWidth() const { return (maxX - minX) / width; }
    double pixelHeight() const { return (maxY - minY) / height; }
    double column(double x) const { return (x - minX) / pixelWidth(); }
    double row(double y) const { return (maxY - y) / pixelHeight(); }
    // GDAL's geotransform of the grid, as the world file gives it.
    void geoTransform(double transform[6]) const {
        transform[0] = minX;
        transform[1] = pixelWidth();
        transform[2] = 0.0;
        transform[3] = maxY;
        transform[4] = 0.0;
        transform[5] = -pixelHeight();
    }
    bool contains(const PlanePoint& p) const {
        return p.x >= minX && p.x <= maxX && p.y >= minY && p.y <= maxY;
    }
};
