// A picture zorhost wrote, its pixels and georeference as GDAL reads them back, for the
// tests of map and view.
#pragma once

#include <gdal_priv.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "MapStyle.h"

// A picture's pixels as GDAL reads them back.
struct Picture {
    int width = 0, height = 0;
    double transform[6] = {0, 0, 0, 0, 0, 0};
    std::vector<uint8_t> rgba[3];
    std::string srs;

    explicit Picture(const std::string& path) {
        GDALAllRegister();
        GDALDatasetUniquePtr png(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER));
        // Cairo leaves the alpha band out of a picture with no transparent pixel.
        if (!png || png->GetRasterCount() < 3)
            return;
        width = png->GetRasterXSize();
        height = png->GetRasterYSize();
        png->GetGeoTransform(transform);
        if (const OGRSpatialReference* ref = png->GetSpatialRef()) {
            char* text = nullptr;
            ref->exportToWkt(&text);
            srs = text ? text : "";
            CPLFree(text);
        }
        for (int band = 0; band < 3; ++band) {
            rgba[band].resize(static_cast<size_t>(width) * height);
            if (png->GetRasterBand(band + 1)->RasterIO(GF_Read, 0, 0, width, height,
                                                       rgba[band].data(), width, height, GDT_Byte,
                                                       0, 0) != CE_None)
                width = height = 0;
        }
    }
    // The pixel the world file puts a plane position in.
    void pixelOf(double x, double y, int& col, int& row) const {
        col = static_cast<int>(std::floor((x - transform[0]) / transform[1]));
        row = static_cast<int>(std::floor((y - transform[3]) / transform[5]));
    }
    MapColour at(int col, int row) const {
        const size_t i = static_cast<size_t>(row) * width + col;
        return {rgba[0][i] / 255.0, rgba[1][i] / 255.0, rgba[2][i] / 255.0};
    }
    double brightness(int col, int row) const {
        const MapColour c = at(col, row);
        return 0.299 * c.r + 0.587 * c.g + 0.114 * c.b;
    }
};

inline bool near(const MapColour& a, const MapColour& b) {
    return std::abs(a.red() - b.red()) <= 3 && std::abs(a.green() - b.green()) <= 3 &&
           std::abs(a.blue() - b.blue()) <= 3;
}
