// The host terrain's elevation sources on GeoTIFFs written here with GDAL: no-data of any
// type, scale and offset, longitudes in either convention, and a clamp that answers
// false instead of throwing.
#include <gtest/gtest.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "TempDir.h"
#include "hxutil/DtNotify.h"
#include "zorCore/DtTerrain.h"
#include "zorUtil/DtCoordinateConverter.h"

using namespace kelZor;

namespace {

struct Raster {
    int width = 3, height = 3;
    double transform[6] = {8.5, 0.5, 0.0, 46.5, 0.0, -0.5};  // three posts from 8.75, 46.25
    GDALDataType type = GDT_Float64;
    int epsg = 4326;
    std::vector<double> values = std::vector<double>(9, 100.0);
    std::function<void(GDALRasterBand&)> band = [](GDALRasterBand&) {};
};

std::string writeTiff(const TempDir& dir, const std::string& name, const Raster& r) {
    GDALAllRegister();
    GDALDatasetUniquePtr memory(GetGDALDriverManager()->GetDriverByName("MEM")->Create(
        "", r.width, r.height, 1, r.type, nullptr));
    memory->SetGeoTransform(const_cast<double*>(r.transform));
    OGRSpatialReference srs;
    srs.importFromEPSG(r.epsg);
    memory->SetSpatialRef(&srs);
    GDALRasterBand& band = *memory->GetRasterBand(1);
    EXPECT_EQ(band.RasterIO(GF_Write, 0, 0, r.width, r.height, const_cast<double*>(r.values.data()),
                            r.width, r.height, GDT_Float64, 0, 0),
              CE_None);
    r.band(band);
    const std::string path = dir.file(name);
    GDALDatasetUniquePtr(GetGDALDriverManager()->GetDriverByName("GTiff")->CreateCopy(
        path.c_str(), memory.get(), FALSE, nullptr, nullptr, nullptr));
    return path;
}

double heightAt(const std::string& path, double lon, double lat, bool& found) {
    std::string error;
    const auto source = DtElevationSource::read(path, error);
    EXPECT_NE(source, nullptr) << error;
    double height = -12345.0;
    found = source && source->heightAt(lon, lat, height);
    return height;
}

}  // namespace

// A Float64 no-data value is no height, however a float would round it; a band's scale
// and offset turn its numbers into metres.
TEST(ElevationSource, noDataOfAnyTypeAndScaledBands) {
    TempDir dir;
    Raster float64;
    float64.values[4] = -9999.9;
    float64.band = [](GDALRasterBand& band) { band.SetNoDataValue(-9999.9); };
    const std::string withHole = writeTiff(dir, "hole.tif", float64);
    bool found = true;
    heightAt(withHole, 9.25, 45.75, found);  // the post itself
    EXPECT_FALSE(found);
    heightAt(withHole, 8.9, 46.1, found);  // between it and its neighbours
    EXPECT_FALSE(found);
    EXPECT_NEAR(heightAt(withHole, 8.75, 46.25, found), 100.0, 1e-9);  // a corner post
    EXPECT_TRUE(found);

    Raster decimetres;
    decimetres.type = GDT_Int16;
    decimetres.values = {10, 20, 30, 40, 8848, 60, 70, 80, 90};
    decimetres.band = [](GDALRasterBand& band) {
        band.SetScale(0.1);
        band.SetOffset(-2.0);
    };
    const std::string scaled = writeTiff(dir, "dm.tif", decimetres);
    EXPECT_NEAR(heightAt(scaled, 9.25, 45.75, found), 882.8, 1e-4);
    EXPECT_TRUE(found);
}

// A global DEM whose longitudes run 0..360 covers a place given at -170.
TEST(ElevationSource, longitudesInEitherConvention) {
    TempDir dir;
    Raster global;
    global.width = 360;
    global.height = 3;
    global.transform[0] = 0.0;
    global.transform[1] = 1.0;
    global.transform[3] = 1.5;
    global.transform[5] = -1.0;
    global.values.assign(360 * 3, 0.0);
    for (int col = 0; col < 360; ++col)
        global.values[360 + col] = col;  // the middle row: the post's own longitude
    const std::string path = writeTiff(dir, "global.tif", global);
    bool found = false;
    EXPECT_NEAR(heightAt(path, -169.5, 0.0, found), 190.0, 1e-9);
    EXPECT_TRUE(found);
    EXPECT_NEAR(heightAt(path, 10.5, 0.0, found), 10.0, 1e-9);
    EXPECT_TRUE(found);
}

// Positions the scene cannot place give false, never an exception: a UTM position on the
// zone's singular meridian, a Lambert scene whose parallels make no cone, NaN.
TEST(ElevationSource, theClampAnswersFalseWhereItCannotPlace) {
    DtTerrain terrain;
    DtUtmCoordinateConverter utm;
    utm.init(32, 'N', false);
    DtCoordinateSystem utmScene(std::make_unique<DtUtmCoordinateConverter>(utm));
    terrain.setCoordinateSystem(&utmScene);
    double x = 1, y = 2, z = 3;
    EXPECT_TRUE(terrain.clampToTerrain(500000, 5000000, 50, 0, 0, 1, x, y, z));
    EXPECT_NEAR(z, 0.0, 1e-9);  // no source: the ellipsoid
    x = y = z = 7;
    EXPECT_FALSE(terrain.clampToTerrain(1e300, 5000000, 0, 0, 0, 1, x, y, z));
    EXPECT_FALSE(terrain.clampToTerrain(std::nan(""), 5000000, 0, 0, 0, 1, x, y, z));
    EXPECT_FALSE(terrain.clampToTerrain(500000, 5000000, 0, 0, 0, 0, x, y, z));
    EXPECT_EQ(x, 7.0);  // nothing written

    auto impossible = std::make_unique<DtLambertCoordinateConverter>();
    impossible->init(0.0, 0.0, 95.0, 10.0);
    DtCoordinateSystem lambertScene(std::move(impossible));
    terrain.setCoordinateSystem(&lambertScene);
    EXPECT_NO_THROW(EXPECT_FALSE(terrain.clampToTerrain(1, 2, 3, 0, 0, 1, x, y, z)));
}

// Sources are read a block at a time, never whole: a grid whose header claims ten
// billion posts is taken, its missing rows cover nothing (said once), and what it has
// answers; a row of 1.2 million posts lands each post where it belongs; the posts kept
// stay within the cache's budget however many are read.
TEST(ElevationSource, sourcesAreReadABlockAtATimeWhateverTheyClaim) {
    TempDir dir;
    // Post (row, column) holds row * 1000 + column % 1000; cells of 0.0001 degrees.
    auto grid = [&dir](const std::string& stem, long columns, long rows, int rowsWritten) {
        std::string text = "ncols " + std::to_string(columns) + "\nnrows " + std::to_string(rows) +
                           "\nxllcorner 0\nyllcorner 0\ncellsize 0.0001\n";
        for (int r = 0; r < rowsWritten; ++r) {
            for (long c = 0; c < columns; ++c)
                text += std::to_string(r * 1000 + c % 1000) + (c + 1 < columns ? " " : "\n");
        }
        std::ofstream(dir.file(stem + ".asc")) << text;
        OGRSpatialReference wgs84;
        wgs84.SetWellKnownGeogCS("WGS84");
        char* wkt = nullptr;
        wgs84.exportToWkt(&wkt);
        std::ofstream(dir.file(stem + ".prj")) << wkt;
        CPLFree(wkt);
        return dir.file(stem + ".asc");
    };
    std::string error;
    const auto huge = DtElevationSource::read(grid("huge", 100000, 100000, 2), error);
    ASSERT_NE(huge, nullptr) << error;
    double height = -1.0;
    std::ostringstream warnings;
    DtWarn.setTarget(&warnings);
    EXPECT_TRUE(huge->heightAt(0.00055, 9.99995, height));  // row 0, column 5
    EXPECT_NEAR(height, 5.0, 1e-6);
    EXPECT_FALSE(huge->heightAt(0.00055, 5.0, height));  // a row the file does not hold
    EXPECT_FALSE(huge->heightAt(0.00065, 4.0, height));
    DtWarn.setTarget(nullptr);
    EXPECT_EQ(warnings.str(), dir.file("huge.asc") +
                                  ": some of its heights cannot be read: no place there is "
                                  "covered\n");

    auto cache = std::make_shared<DtPostCache>(size_t(1) << 20);
    const auto wide = DtElevationSource::read(grid("wide", 1200000, 2, 2), error, cache);
    ASSERT_NE(wide, nullptr) << error;
    ASSERT_TRUE(wide->heightAt(0.00055, 0.00015, height));  // row 0, column 5
    EXPECT_NEAR(height, 5.0, 1e-6);
    ASSERT_TRUE(wide->heightAt(110.00005, 0.00005, height));  // row 1, column 1100000
    EXPECT_NEAR(height, 1000.0, 1e-6);
    EXPECT_LE(cache->bytesHeld(), size_t(1200000) * sizeof(float));  // one row's block
}

// No-data as GDAL's mask decides it, for each kind of mask: a Float64 no-data whose posts
// were rounded through Float32, an Int16 -32768, NaN, a per-dataset mask file (.msk) and
// an alpha band. The post of the hole has no height and nor has a place between it and
// its neighbours; the posts around it keep theirs.
TEST(ElevationSource, holesAreWhereGdalsMaskPutsThem) {
    TempDir dir;
    GDALAllRegister();
    struct Kind {
        std::string name;
        GDALDataType type;
        double hole;
        std::function<void(GDALDataset&)> mark;
    };
    const double rounded = static_cast<double>(static_cast<float>(-9999.9));
    const std::vector<Kind> kinds = {
        {"rounded.tif", GDT_Float64, rounded,
         [](GDALDataset& d) { d.GetRasterBand(1)->SetNoDataValue(-9999.9); }},
        {"int16.tif", GDT_Int16, -32768,
         [](GDALDataset& d) { d.GetRasterBand(1)->SetNoDataValue(-32768); }},
        {"nan.tif", GDT_Float32, std::nan(""), [](GDALDataset&) {}},
        {"masked.tif", GDT_Float32, 100.0,
         [](GDALDataset& d) {
             CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", "NO");
             ASSERT_EQ(d.CreateMaskBand(GMF_PER_DATASET), CE_None);
             CPLSetThreadLocalConfigOption("GDAL_TIFF_INTERNAL_MASK", nullptr);
             std::vector<GByte> valid(9, 255);
             valid[4] = 0;
             ASSERT_EQ(d.GetRasterBand(1)->GetMaskBand()->RasterIO(
                           GF_Write, 0, 0, 3, 3, valid.data(), 3, 3, GDT_Byte, 0, 0),
                       CE_None);
         }},
        {"alpha.tif", GDT_Byte, 100.0,
         [](GDALDataset& d) {
             GDALRasterBand& alpha = *d.GetRasterBand(2);
             alpha.SetColorInterpretation(GCI_AlphaBand);
             std::vector<GByte> opaque(9, 255);
             opaque[4] = 0;
             ASSERT_EQ(alpha.RasterIO(GF_Write, 0, 0, 3, 3, opaque.data(), 3, 3, GDT_Byte, 0, 0),
                       CE_None);
         }},
    };
    for (const Kind& k : kinds) {
        SCOPED_TRACE(k.name);
        const std::string path = dir.file(k.name);
        {
            const bool alpha = k.name == "alpha.tif";
            char** options = alpha ? CSLSetNameValue(nullptr, "ALPHA", "YES") : nullptr;
            GDALDatasetUniquePtr d(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
                path.c_str(), 3, 3, alpha ? 2 : 1, k.type, options));
            CSLDestroy(options);
            ASSERT_TRUE(d);
            double transform[6] = {8.5, 0.5, 0.0, 46.5, 0.0, -0.5};
            d->SetGeoTransform(transform);
            OGRSpatialReference srs;
            srs.importFromEPSG(4326);
            d->SetSpatialRef(&srs);
            // A plane, 100 m at the north-west post, rising 10 m a column and 1 m a row.
            std::vector<double> posts = {100, 110, 120, 101, 111, 121, 102, 112, 122};
            posts[4] = k.hole;
            ASSERT_EQ(d->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 3, 3, posts.data(), 3, 3,
                                                    GDT_Float64, 0, 0),
                      CE_None);
            k.mark(*d);
        }
        bool found = true;
        heightAt(path, 9.25, 45.75, found);  // the hole itself
        EXPECT_FALSE(found);
        heightAt(path, 9.1, 45.9, found);  // between it and its neighbours
        EXPECT_FALSE(found);
        EXPECT_NEAR(heightAt(path, 8.75, 46.25, found), 100.0, 1e-6);  // a corner post
        EXPECT_TRUE(found);
        EXPECT_NEAR(heightAt(path, 9.75, 45.25, found), 122.0, 1e-6);  // the opposite one
        EXPECT_TRUE(found);
    }
}
