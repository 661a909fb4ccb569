// The ground of a map: the DEMs warped by GDAL into the picture's grid (the first DEM
// that covers a place answers, as on the terrain), GDAL's hillshade of that, under an
// elevation colour ramp. Where no DEM has a value the ground is transparent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MapGrid.h"

// Why a file cannot be drawn as a DEM (it is not a raster GDAL reads), or "".
std::string demProblem(const std::string& path);

// The plane extent the DEMs cover, [minX, minY, maxX, maxY]; false when none can be
// placed in the plane.
bool demExtent(const std::vector<std::string>& dems, const std::string& planeWkt, double bounds[4]);

struct Ground {
    // Cairo's ARGB32 pixels, row by row, premultiplied; empty when nothing is drawn.
    std::vector<uint32_t> pixels;
    double lowest = 0.0, highest = 0.0;  // of what the picture shows
    std::vector<std::string> notes;      // DEMs that could not be drawn, and why
};

// False with the reason when GDAL fails on DEMs it opened.
bool makeGround(const std::vector<std::string>& dems, const MapGrid& grid, const std::string& wkt,
                bool geographic, Ground& ground, std::string& problem);
