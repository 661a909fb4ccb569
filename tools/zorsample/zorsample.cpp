// zorsample: writes the sample terrain set of data/sample/.
//
//   zorsample DIR
//
// OpenFlight files: a header record (opcode 1, 324 bytes, big-endian) for each
// projection the OpenFlight parser accepts, with the fields it reads set as a modeller
// would: format revision 1640, origin, UTM zone, Lambert parallels. Nothing follows the
// header, as in a database shell before any geometry is added.
// Model file: bytes of a binary model with the keys "WKT Coordinate System" (ESRI WKT of
// EPSG:32733, UTM 33 S, as `gdalsrsinfo -o wkt_esri` writes it), "X Origin" and
// "Y Origin" embedded, as a model writer stores them.
// GeoTIFF: a 16 x 16 Int16 elevation raster in UTM zone 32 north (EPSG:32632), 30 m
// posts, written through GDAL.
// DTED: the level-0 cell N45 E009 (121 x 121 posts of 30"), a smooth valley, written by
// GDAL's DTED driver; a copy lies under project/../data/terrain for the project.
// Vector set, in UTM zone 32 north around 500200 E 5039800 N (inside both rasters),
// written through OGR: valley_points.shp (free points) and valley.gdb (File
// Geodatabase: points, roads meeting at a junction, areas with a hole), with the common
// feature-attribute fields ECC, WID, LEN, HGT, AOO and a name.
// Metafile and project: INI text naming a terrain file (see the README).
// Tiles: the twenty tiny tile files of metaflight/valley_tiles.mft's two levels.
#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "DtedCell.h"
#include "hxutil/DtNet.h"

namespace {

// Byte offsets of the header fields the sample sets.
constexpr size_t headerSize = 324;
constexpr size_t offOpcode = 0, offLength = 2, offIdentifier = 4, offFormatRevision = 12,
                 offProjection = 92, offOriginLat = 220, offOriginLon = 228, offLambertUpper = 236,
                 offLambertLower = 244, offEllipsoid = 268, offUtmZone = 276;

struct FltSample {
    const char* file;
    int projection;
    double originLat, originLon;
    int utmZone;
    double lambertUpper, lambertLower;
};

template <typename Net, typename Value>
void put(std::vector<unsigned char>& record, size_t offset, Value value) {
    Net field;
    field = value;
    std::memcpy(record.data() + offset, field.bytes, sizeof field.bytes);
}

bool writeFlt(const std::string& directory, const FltSample& s) {
    std::vector<unsigned char> record(headerSize, 0);
    put<DtNetInt16>(record, offOpcode, int16_t{1});
    put<DtNetU16>(record, offLength, uint16_t{headerSize});
    std::memcpy(record.data() + offIdentifier, "db", 2);
    put<DtNetInt32>(record, offFormatRevision, int32_t{1640});
    put<DtNetInt32>(record, offProjection, int32_t(s.projection));
    put<DtNetFloat64>(record, offOriginLat, s.originLat);
    put<DtNetFloat64>(record, offOriginLon, s.originLon);
    put<DtNetFloat64>(record, offLambertUpper, s.lambertUpper);
    put<DtNetFloat64>(record, offLambertLower, s.lambertLower);
    put<DtNetInt32>(record, offEllipsoid, int32_t{0});  // WGS84
    put<DtNetInt16>(record, offUtmZone, int16_t(s.utmZone));
    std::ofstream out(directory + "/" + s.file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(record.data()),
              static_cast<std::streamsize>(record.size()));
    return static_cast<bool>(out);
}

bool writeGeoTiff(const std::string& path) {
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    if (!driver)
        return false;
    GDALDatasetUniquePtr dataset(driver->Create(path.c_str(), 16, 16, 1, GDT_Int16, nullptr));
    if (!dataset)
        return false;
    double transform[6] = {500000.0, 30.0, 0.0, 5040000.0, 0.0, -30.0};
    dataset->SetGeoTransform(transform);
    OGRSpatialReference srs;
    srs.importFromEPSG(32632);
    dataset->SetSpatialRef(&srs);
    std::vector<int16_t> heights(16 * 16);
    for (int row = 0; row < 16; ++row) {
        for (int col = 0; col < 16; ++col)
            heights[row * 16 + col] = int16_t(200 + 5 * row + 3 * col);
    }
    return dataset->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 16, 16, heights.data(), 16, 16,
                                               GDT_Int16, 0, 0) == CE_None;
}

bool writeModel(const std::string& path) {
    OGRSpatialReference srs;
    if (srs.importFromEPSG(32733) != OGRERR_NONE)
        return false;
    srs.morphToESRI();
    char* wkt = nullptr;
    srs.exportToWkt(&wkt);
    static const char header[] = "\x89OSGB\0\x01\x00model header";
    std::string bytes(header, sizeof header - 1);
    bytes += "WKT Coordinate System: ";
    bytes += wkt ? wkt : "";
    CPLFree(wkt);
    bytes += std::string("\0X Origin: 0\0Y Origin: 0\0", 26);
    bytes += std::string(64, '\x7f');  // stands for the geometry
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    return static_cast<bool>(out);
}

// A valley running north-south over N45 E009.
bool writeDted(const std::string& path) {
    return writeDtedCell(path, 45, 9, 121, [](int row, int col) {
        const double across = (col - 60) / 60.0;
        return static_cast<int>(400 + 900 * across * across + 2 * row);
    });
}

struct Field {
    const char* name;
    OGRFieldType type;
};
const Field fields[] = {{"ECC", OFTString}, {"NAM", OFTString}, {"WID", OFTReal},
                        {"LEN", OFTReal},   {"HGT", OFTReal},   {"AOO", OFTReal}};

// One feature's values, in the order of `fields`; null leaves the field unset.
struct Values {
    const char* ecc;
    const char* name;
    const double* width;
    const double* length;
    const double* height;
    const double* orientation;
};

OGRLayer* createLayer(GDALDataset& dataset, const char* name, OGRwkbGeometryType type) {
    OGRSpatialReference srs;
    srs.importFromEPSG(32632);
    OGRLayer* layer = dataset.CreateLayer(name, &srs, type, nullptr);
    for (const Field& field : fields) {
        OGRFieldDefn definition(field.name, field.type);
        if (!layer || layer->CreateField(&definition) != OGRERR_NONE)
            return nullptr;
    }
    return layer;
}

bool addFeature(OGRLayer& layer, const char* wkt, const Values& v) {
    OGRFeatureUniquePtr feature(OGRFeature::CreateFeature(layer.GetLayerDefn()));
    OGRGeometry* geometry = nullptr;
    if (OGRGeometryFactory::createFromWkt(wkt, nullptr, &geometry) != OGRERR_NONE)
        return false;
    feature->SetGeometryDirectly(geometry);
    if (v.ecc)
        feature->SetField("ECC", v.ecc);
    if (v.name)
        feature->SetField("NAM", v.name);
    const std::pair<const char*, const double*> numbers[] = {
        {"WID", v.width}, {"LEN", v.length}, {"HGT", v.height}, {"AOO", v.orientation}};
    for (const auto& [name, value] : numbers) {
        if (value)
            feature->SetField(name, *value);
    }
    return layer.CreateFeature(feature.get()) == OGRERR_NONE;
}

bool addPoints(OGRLayer& layer) {
    static const double width = 12, length = 20, height = 9, heading = 30, tall = 15;
    return addFeature(layer, "POINT (500100 5039900)",
                      {"AL015", "farm house", &width, &length, &height, &heading}) &&
           addFeature(layer, "POINT (500160 5039880)",
                      {"AL15", "barn", &width, nullptr, &tall, nullptr}) &&
           addFeature(layer, "POINT (500220 5039700)",
                      {"EC030", "oak", nullptr, nullptr, &tall, nullptr}) &&
           addFeature(layer, "POINT (500260 5039720)",
                      {"EC030", "beech", nullptr, nullptr, nullptr, nullptr}) &&
           addFeature(layer, "POINT (500300 5039650)",
                      {nullptr, "survey mark", nullptr, nullptr, nullptr, nullptr});
}

bool writePointsShapefile(const std::string& path) {
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
    if (!driver)
        return false;
    GDALDatasetUniquePtr dataset(driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    OGRLayer* layer = dataset ? createLayer(*dataset, "valley_points", wkbPoint) : nullptr;
    return layer && addPoints(*layer);
}

bool writeGeodatabase(const std::string& path) {
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("OpenFileGDB");
    if (!driver)
        return false;
    GDALDatasetUniquePtr dataset(driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!dataset)
        return false;
    OGRLayer* points = createLayer(*dataset, "sites", wkbPoint);
    OGRLayer* roads = createLayer(*dataset, "roads", wkbLineString);
    OGRLayer* areas = createLayer(*dataset, "areas", wkbPolygon);
    if (!points || !roads || !areas || !addPoints(*points))
        return false;
    static const double roadWidth = 6;
    const Values road{"AP030", "valley road", &roadWidth, nullptr, nullptr, nullptr};
    return addFeature(*roads, "LINESTRING (500000 5039600,500150 5039800,500200 5040000)", road) &&
           addFeature(*roads, "LINESTRING (500150 5039800,500400 5039850)",
                      {"AP030", "farm track", nullptr, nullptr, nullptr, nullptr}) &&
           addFeature(*areas,
                      "POLYGON ((500300 5039900,500450 5039900,500450 5040000,500300 5040000,"
                      "500300 5039900),(500350 5039930,500400 5039930,500400 5039970,"
                      "500350 5039930))",
                      {"BH080", "pond with an island", nullptr, nullptr, nullptr, nullptr}) &&
           addFeature(*areas,
                      "POLYGON ((500050 5039650,500120 5039650,500120 5039720,500050 5039650))",
                      {"EC015", "wood", nullptr, nullptr, nullptr, nullptr});
}

bool writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    return static_cast<bool>(out);
}

// The tiles metaflight/valley_tiles.mft names, as its pattern names them: a few bytes
// each, enough for `zorhost check` to find a complete database.
bool writeValleyTiles(const std::string& metaflight) {
    bool ok = true;
    const int sides[] = {2, 4};  // tiles a side at levels L0 and L1
    for (int level = 0; level < 2; ++level) {
        const std::string folder = metaflight + "/Terrain/L" + std::to_string(level);
        std::error_code ignored;
        std::filesystem::create_directories(folder, ignored);
        for (int row = 0; row < sides[level]; ++row) {
            for (int col = 0; col < sides[level]; ++col) {
                char name[32];
                std::snprintf(name, sizeof name, "/tile_%03d_%03d.medf", row, col);
                ok = writeText(folder + name, "medf sample tile: level L" + std::to_string(level) +
                                                  ", row " + std::to_string(row) + ", col " +
                                                  std::to_string(col) + "\n") &&
                     ok;
            }
        }
    }
    return ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: zorsample DIR\n";
        return 2;
    }
    const std::string directory = argv[1];
    GDALAllRegister();
    std::error_code ignored;
    for (const char* folder : {"/project", "/data/terrain"})
        std::filesystem::create_directories(directory + folder, ignored);
    // The vector writers do not replace what is there.
    for (const char* old : {"/valley_points.shp", "/valley_points.shx", "/valley_points.dbf",
                            "/valley_points.prj", "/valley_points.cpg", "/valley.gdb"}) {
        std::filesystem::remove_all(directory + old, ignored);
    }
    const FltSample samples[] = {
        {"flat_earth.flt", 0, 45.5, 10.0, 0, 0.0, 0.0},
        {"utm_zone32n.flt", 4, 45.5, 10.0, 32, 0.0, 0.0},
        {"lambert.flt", 3, 23.0, -96.0, 0, 45.5, 29.5},
        {"geocentric.flt", 6, 0.0, 0.0, 0, 0.0, 0.0},
    };
    bool ok = true;
    for (const FltSample& sample : samples)
        ok = writeFlt(directory, sample) && ok;
    ok = writeGeoTiff(directory + "/elevation_utm32n.tif") && ok;
    ok = writeModel(directory + "/harbour_utm33s.osg") && ok;
    ok = writeDted(directory + "/n45_e009.dt0") && ok;
    ok = writePointsShapefile(directory + "/valley_points.shp") && ok;
    ok = writeGeodatabase(directory + "/valley.gdb") && ok;
    ok = writeText(directory + "/valley.meta",
                   "; A metafile: the terrain a 3-D view shows, relative to this file.\n"
                   "[3DView]\nterrain = valley_points.shp\n") &&
         ok;
    // A project is opened from its own folder; its terrain lies in ../data/terrain.
    ok = writeText(directory + "/project/valley.tproj",
                   "; A terrain project: its 3-D view shows the DTED cell.\n"
                   "[3DView]\nterrain = ./n45_e009.dt0\n") &&
         ok;
    ok = writeDted(directory + "/data/terrain/n45_e009.dt0") && ok;
    ok = writeValleyTiles(directory + "/metaflight") && ok;
    if (!ok)
        std::cerr << "zorsample: could not write every sample into " << directory << "\n";
    return ok ? 0 : 1;
}
