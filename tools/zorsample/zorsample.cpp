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
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

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
    if (srs.importFromEPSG(32733) != OGRERR_NONE) return false;
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

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: zorsample DIR\n";
        return 2;
    }
    const std::string directory = argv[1];
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
    if (!ok)
        std::cerr << "zorsample: could not write every sample into " << directory << "\n";
    return ok ? 0 : 1;
}
