// A picture's grid: the part of the scene's plane it shows and its pixels. Pixel (0, 0)
// is the north-west corner; a pixel's centre is at half-integers, as in GDAL.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "ScenePlane.h"

// The extent of what is drawn in the plane; empty until a finite point is added.
struct PlaneBounds {
    double minX = std::numeric_limits<double>::infinity();
    double minY = std::numeric_limits<double>::infinity();
    double maxX = -std::numeric_limits<double>::infinity();
    double maxY = -std::numeric_limits<double>::infinity();

    void add(const PlanePoint& p) {
        if (!std::isfinite(p.x) || !std::isfinite(p.y))
            return;
        minX = std::min(minX, p.x);
        minY = std::min(minY, p.y);
        maxX = std::max(maxX, p.x);
        maxY = std::max(maxY, p.y);
    }
    bool empty() const { return !(minX <= maxX && minY <= maxY); }
};

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
