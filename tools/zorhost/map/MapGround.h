// The ground of a map: the DEMs warped by GDAL into the picture's grid (abutting DEMs of
// one system and post spacing as one mosaic, so that no seam shows between them; the
// first DEM that covers a place answers, as on the terrain), coloured by gdaldem's
// color-relief with a hypsometric ramp (sea in blues, land from greens through browns to
// white) or the user's, and shaded by gdaldem's hillshade. Where no DEM has a value the
// ground is transparent.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MapGrid.h"
#include "MapStyle.h"

// Why a file cannot be drawn as a DEM (it is not a raster GDAL reads), or "".
std::string demProblem(const std::string& path);

// The plane extent the DEMs cover, [minX, minY, maxX, maxY]; false when none can be
// placed in the plane.
bool demExtent(const std::vector<std::string>& dems, const std::string& planeWkt, double bounds[4]);

// The finest distance between posts of the DEMs in the plane, or 0 when none can be
// placed in it.
double demPostSpacing(const std::vector<std::string>& dems, const std::string& planeWkt);

enum class Relief { None, Hillshade, Multidirectional };

struct GroundStyle {
    std::string rampFile;  // gdaldem color-relief's format; empty: the hypsometric ramp
    Relief relief = Relief::Hillshade;
    double zFactor = 1.0;
    double azimuth = 315.0;  // degrees, of the light; a multidirectional relief ignores it
};

// Why a ramp file cannot be used (GDAL's own words), or "".
std::string rampProblem(const std::string& path);

struct Ground {
    // Cairo's ARGB32 pixels, row by row, premultiplied; empty when nothing is drawn.
    std::vector<uint32_t> pixels;
    double lowest = 0.0, highest = 0.0;  // of what the picture shows
    std::vector<std::string> notes;      // DEMs that could not be drawn, and why
    std::vector<MapColour> ramp;         // the colours from lowest to highest, for the legend
};

// False with the reason when GDAL fails on DEMs it opened.
class Progress;

// `progress`, when given, is told how far the warp has gone.
bool makeGround(const std::vector<std::string>& dems, const MapGrid& grid, const std::string& wkt,
                const GroundStyle& style, Ground& ground, std::string& problem,
                Progress* progress = nullptr);
