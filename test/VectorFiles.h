// Vector and DTED test data written with GDAL/OGR in the test's own directory.
//
//   TestFeature tree{"POINT (500100 4649900)"};
//   tree.text["ECC"] = "EC030";
//   writeVector(dir.file("trees.shp"), utm18n(), {tree});
#pragma once

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "DtedCell.h"

struct TestFeature {
    std::string wkt;
    std::map<std::string, std::string> text;
    std::map<std::string, int> integers;
    std::map<std::string, double> reals;
};

inline std::shared_ptr<OGRSpatialReference> srsFromEpsg(int epsg) {
    auto srs = std::make_shared<OGRSpatialReference>();
    srs->importFromEPSG(epsg);
    return srs;
}

// One layer per call (a new file or a new layer of a File Geodatabase, whose path is
// the .gdb directory); the fields are those the features use. Null `srs`: none.
inline bool writeVector(const std::string& path, const OGRSpatialReference* srs,
                        const std::vector<TestFeature>& features,
                        const char* driverName = "ESRI Shapefile", const char* layerName = "layer",
                        OGRwkbGeometryType type = wkbUnknown) {
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName);
    if (!driver)
        return false;
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE, nullptr, nullptr, nullptr)));
    if (!dataset)
        dataset.reset(driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!dataset)
        return false;
    if (type == wkbUnknown && !features.empty()) {
        OGRGeometry* first = nullptr;
        OGRGeometryFactory::createFromWkt(features.front().wkt.c_str(), nullptr, &first);
        type = first ? first->getGeometryType() : wkbUnknown;
        OGRGeometryFactory::destroyGeometry(first);
    }
    // CreateLayer takes a non-const system in GDAL 3.6 but only reads it.
    OGRLayer* layer =
        dataset->CreateLayer(layerName, const_cast<OGRSpatialReference*>(srs), type, nullptr);
    if (!layer)
        return false;
    std::set<std::string> created;
    auto field = [&](const std::string& name, OGRFieldType fieldType) {
        if (created.insert(name).second) {
            OGRFieldDefn definition(name.c_str(), fieldType);
            layer->CreateField(&definition);
        }
    };
    for (const TestFeature& f : features) {
        for (const auto& [name, value] : f.text)
            field(name, OFTString);
        for (const auto& [name, value] : f.integers)
            field(name, OFTInteger);
        for (const auto& [name, value] : f.reals)
            field(name, OFTReal);
    }
    for (const TestFeature& f : features) {
        OGRFeatureUniquePtr feature(OGRFeature::CreateFeature(layer->GetLayerDefn()));
        OGRGeometry* geometry = nullptr;
        if (OGRGeometryFactory::createFromWkt(f.wkt.c_str(), nullptr, &geometry) != OGRERR_NONE)
            return false;
        feature->SetGeometryDirectly(geometry);
        for (const auto& [name, value] : f.text)
            feature->SetField(name.c_str(), value.c_str());
        for (const auto& [name, value] : f.integers)
            feature->SetField(name.c_str(), value);
        for (const auto& [name, value] : f.reals)
            feature->SetField(name.c_str(), value);
        if (layer->CreateFeature(feature.get()) != OGRERR_NONE)
            return false;
    }
    return true;
}

// A Float32 GeoTIFF DEM of `columns` x `rows` posts in UTM 32 N, the north-west post's
// corner at (west, north), `spacing` metres apart, heights from `height(column, row)`.
template <typename Height>
bool writeUtm32nDem(const std::string& path, int columns, int rows, double west, double north,
                    double spacing, Height height) {
    GDALAllRegister();
    GDALDatasetUniquePtr dem(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        path.c_str(), columns, rows, 1, GDT_Float32, nullptr));
    if (!dem)
        return false;
    double transform[6] = {west, spacing, 0, north, 0, -spacing};
    dem->SetGeoTransform(transform);
    dem->SetSpatialRef(srsFromEpsg(32632).get());
    std::vector<float> heights(static_cast<size_t>(columns) * rows);
    for (int row = 0; row < rows; ++row)
        for (int col = 0; col < columns; ++col)
            heights[static_cast<size_t>(row) * columns + col] =
                static_cast<float>(height(col, row));
    return dem->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, columns, rows, heights.data(), columns,
                                           rows, GDT_Float32, 0, 0) == CE_None;
}

// A level-0 DTED cell whose south-west corner is (lat, lon), heights from `height`.
template <typename Height>
bool writeDted(const std::string& path, int lat, int lon, Height height) {
    return writeDtedCell(path, lat, lon, 121, height);
}
