#include "DtedCell.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <cstdint>
#include <vector>

bool writeDtedCell(const std::string& path, int lat, int lon, int posts,
                   const std::function<int(int row, int col)>& height) {
    GDALAllRegister();
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDriver* dted = GetGDALDriverManager()->GetDriverByName("DTED");
    if (!memory || !dted || posts < 2)
        return false;
    GDALDatasetUniquePtr cell(memory->Create("", posts, posts, 1, GDT_Int16, nullptr));
    // Posts at whole fractions of a degree; each pixel is centred on its post.
    const double step = 1.0 / (posts - 1);
    double transform[6] = {lon - step / 2, step, 0.0, lat + 1 + step / 2, 0.0, -step};
    cell->SetGeoTransform(transform);
    OGRSpatialReference srs;
    srs.SetWellKnownGeogCS("WGS84");
    cell->SetSpatialRef(&srs);
    std::vector<int16_t> heights(static_cast<size_t>(posts) * posts);
    for (int row = 0; row < posts; ++row) {
        for (int col = 0; col < posts; ++col)
            heights[static_cast<size_t>(row) * posts + col] =
                static_cast<int16_t>(height(row, col));
    }
    if (cell->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, posts, posts, heights.data(), posts, posts,
                                         GDT_Int16, 0, 0) != CE_None) {
        return false;
    }
    GDALDatasetUniquePtr copy(
        dted->CreateCopy(path.c_str(), cell.get(), FALSE, nullptr, nullptr, nullptr));
    return copy != nullptr;
}
