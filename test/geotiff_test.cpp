#include <gtest/gtest.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <memory>
#include <string>

#include "ParserAnswer.h"
#include "TempDir.h"
#include "zorCore/DtGeoTiffHeaderParser.h"
#include "zorUtil/DtCoordinateSystem.h"

using namespace kelZor;

namespace {

// A 4 x 4 raster in the system given as EPSG code or WKT (empty: no system).
std::string makeRaster(const TempDir& dir, const std::string& name, const char* driverName,
                       int epsg) {
    GDALAllRegister();
    const std::string path = dir.file(name);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName);
    if (!driver)
        return path;
    GDALDatasetUniquePtr dataset(driver->Create(path.c_str(), 4, 4, 1, GDT_Byte, nullptr));
    if (!dataset)
        return path;
    if (epsg != 0) {
        OGRSpatialReference srs;
        srs.importFromEPSG(epsg);
        double transform[6] = {0, 1, 0, 0, 0, -1};
        dataset->SetGeoTransform(transform);
        dataset->SetSpatialRef(&srs);
    }
    return path;
}

ParserAnswer askGeoTiff(const std::string& path) {
    return askParser(DtGeoTiffHeaderParser(path));
}

}  // namespace

TEST(GeoTiffHeaderParser, coordinateSystemsBecomeConverterKinds) {
    TempDir dir;
    struct Case {
        int epsg;
        bool valid;
        const char* type;
    };
    const Case cases[] = {
        {32632, true, DtCoordinateConverter::UTM},        // WGS 84 / UTM 32N
        {32733, true, DtCoordinateConverter::UTM},        // WGS 84 / UTM 33S
        {2154, true, DtCoordinateConverter::Lambert},     // RGF93 / Lambert-93 (LCC 2SP)
        {4326, true, DtCoordinateConverter::Geocentric},  // geographic
        {4978, true, DtCoordinateConverter::Geocentric},  // geocentric
        {3857, false, ""},                                // web mercator: not served
        {0, false, ""},                                   // no system at all
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.epsg);
        const ParserAnswer a =
            askGeoTiff(makeRaster(dir, std::to_string(c.epsg) + ".tif", "GTiff", c.epsg));
        EXPECT_EQ(a.valid, c.valid);
        EXPECT_EQ(a.type, c.type);
    }
    const ParserAnswer south = askGeoTiff(dir.file("32733.tif"));
    const DtCoordinateSystem utm(south.type, south.parameters);
    EXPECT_EQ(utm.utmConverter()->zone(), 33);
    EXPECT_EQ(utm.utmConverter()->hemisphere(), 'S');
    const ParserAnswer lambert = askGeoTiff(dir.file("2154.tif"));
    const DtCoordinateSystem lcc(lambert.type, lambert.parameters);
    EXPECT_DOUBLE_EQ(lcc.lambertConverter()->originLatitude(), 46.5);
    EXPECT_DOUBLE_EQ(lcc.lambertConverter()->originLongitude(), 3.0);
    EXPECT_DOUBLE_EQ(lcc.lambertConverter()->parallel1(), 49.0);
    EXPECT_DOUBLE_EQ(lcc.lambertConverter()->parallel2(), 44.0);
}

TEST(GeoTiffHeaderParser, filesThatAreNoGeoTiffAreFalse) {
    TempDir dir;
    EXPECT_FALSE(askGeoTiff(dir.write("text.tif", "II*\0 not really a tiff")).valid);
    EXPECT_FALSE(askGeoTiff(dir.file("missing.tif")).valid);
    EXPECT_FALSE(askGeoTiff(dir.path()).valid);
    // A PNG named .tif: the GeoTIFF parser only speaks TIFF.
    EXPECT_FALSE(askGeoTiff(dir.write("picture.tif", "\x89PNG\r\n\x1a\n")).valid);
}

TEST(ImageHeaderParser, anyImageGdalOpensWithNoCoordinateSystem) {
    TempDir dir;
    GDALAllRegister();
    const std::string tif = makeRaster(dir, "source.tif", "GTiff", 0);
    GDALDatasetUniquePtr source(GDALDataset::Open(tif.c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(source);
    GDALDriver* pngDriver = GetGDALDriverManager()->GetDriverByName("PNG");
    ASSERT_NE(pngDriver, nullptr);
    const std::string png = dir.file("picture.png");
    GDALDatasetUniquePtr(
        pngDriver->CreateCopy(png.c_str(), source.get(), false, nullptr, nullptr, nullptr));

    DtImageHeaderParser parser(png);
    ASSERT_TRUE(parser.isValid());
    EXPECT_EQ(parser.terrainCoordinateSystem(), "");
    EXPECT_EQ(parser.terrainPatchRecords().size(), 1u);
    EXPECT_FALSE(DtImageHeaderParser(dir.write("broken.png", "not an image")).isValid());
}
