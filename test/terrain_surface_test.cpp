// The terrain's sources as one surface, in the scene's heights: DEMs written here with
// GDAL, heights checked against a bilinear sample of the posts as GDAL itself reads them
// (from each file, or from the mosaic gdalbuildvrt makes of several) and against
// gdaltransform for vertical datums and units.
#include <gtest/gtest.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <Eigen/Geometry>
#include <GeographicLib/LocalCartesian.hpp>

#include <cmath>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "DtedCell.h"
#include "JsonOutput.h"
#include "TempDir.h"
#include "VectorFiles.h"
#include "ZorhostRun.h"
#include "hxutil/DtNotify.h"
#include "zorCore/DtTerrain.h"

using namespace kelZor;

namespace {

struct Dem {
    int width = 11, height = 11;
    double transform[6] = {9.0, 0.01, 0.0, 45.6, 0.0, -0.01};
    std::string srs = "EPSG:4326";
    std::string unit;
    std::function<double(int col, int row)> post = [](int col, int row) {
        return 200.0 + 10.0 * col + 3.0 * row + 0.5 * col * row;
    };
};

std::string writeDem(const std::string& path, const Dem& dem) {
    GDALAllRegister();
    GDALDatasetUniquePtr out(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        path.c_str(), dem.width, dem.height, 1, GDT_Float32, nullptr));
    out->SetGeoTransform(const_cast<double*>(dem.transform));
    OGRSpatialReference srs;
    srs.SetFromUserInput(dem.srs.c_str());
    out->SetSpatialRef(&srs);
    std::vector<float> values;
    for (int row = 0; row < dem.height; ++row) {
        for (int col = 0; col < dem.width; ++col)
            values.push_back(static_cast<float>(dem.post(col, row)));
    }
    GDALRasterBand& band = *out->GetRasterBand(1);
    EXPECT_EQ(band.RasterIO(GF_Write, 0, 0, dem.width, dem.height, values.data(), dem.width,
                            dem.height, GDT_Float32, 0, 0),
              CE_None);
    if (!dem.unit.empty())
        band.SetUnitType(dem.unit.c_str());
    return path;
}

// The bilinear sample of the four posts around (x, y), in the raster's own coordinates,
// as GDAL reads the posts.
double gdalBilinear(const std::string& path, double x, double y) {
    GDALDatasetUniquePtr raster(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER));
    double gt[6], inverse[6];
    EXPECT_EQ(raster->GetGeoTransform(gt), CE_None);
    EXPECT_TRUE(GDALInvGeoTransform(gt, inverse));
    const double col = inverse[0] + inverse[1] * x + inverse[2] * y - 0.5;
    const double row = inverse[3] + inverse[4] * x + inverse[5] * y - 0.5;
    const int c0 = static_cast<int>(std::floor(col)), r0 = static_cast<int>(std::floor(row));
    double posts[4];
    EXPECT_EQ(
        raster->GetRasterBand(1)->RasterIO(GF_Read, c0, r0, 2, 2, posts, 2, 2, GDT_Float64, 0, 0),
        CE_None);
    const double fc = col - c0, fr = row - r0;
    return (posts[0] * (1 - fc) + posts[1] * fc) * (1 - fr) +
           (posts[2] * (1 - fc) + posts[3] * fc) * fr;
}

// gdaltransform's longitude, latitude and height above the WGS84 ellipsoid (EPSG:4979)
// of a position in `srs`.
void gdalTransform(const std::string& srs, double x, double y, double z, double& lon, double& lat,
                   double& h) {
    std::ostringstream command;
    command.precision(17);
    command << "echo " << x << " " << y << " " << z << " | gdaltransform -s_srs " << srs
            << " -t_srs EPSG:4979";
    std::istringstream answer(shell(command.str()));
    answer >> lon >> lat >> h;
}

struct Terrain {
    DtTerrain terrain;
    std::ostringstream warnings;
    explicit Terrain(const std::vector<std::string>& sources) {
        DtWarn.setTarget(&warnings);
        for (const std::string& source : sources) {
            std::string error;
            EXPECT_TRUE(terrain.addElevationSource(source, error)) << error;
        }
        DtWarn.setTarget(nullptr);
    }
    bool height(double lon, double lat, double& h) const {
        return terrain.groundHeight(lon, lat, h);
    }
};

// A DTED level-0 post's height, a function of the place alone so that abutting cells
// share their edge posts, and uneven enough that a post from the wrong side shows.
int dtedHeight(int cellLat, int cellLon, int row, int col) {
    const int lonIndex = cellLon * 120 + col, latIndex = cellLat * 120 + (120 - row);
    return 300 + (lonIndex * 37 % 101) + (latIndex * 13 % 47);
}

std::string writeCell(const TempDir& dir, int lat, int lon) {
    const std::string path =
        dir.file("n" + std::to_string(lat) + "_e" + std::to_string(1000 + lon).substr(1) + ".dt0");
    EXPECT_TRUE(writeDtedCell(path, lat, lon, 121, [lat, lon](int row, int col) {
        return dtedHeight(lat, lon, row, col);
    }));
    return path;
}

std::string buildVrt(const TempDir& dir, const std::string& name,
                     const std::vector<std::string>& sources) {
    std::string command = "gdalbuildvrt -q " + dir.file(name);
    for (const std::string& source : sources)
        command += " " + source;
    EXPECT_EQ(shell(command + " 2>&1"), "");
    return dir.file(name);
}

}  // namespace

// A DEM's heights above a vertical datum reach the ellipsoid through PROJ (EGM96's geoid
// from PROJ's grid), in metres whatever unit its vertical system or its band declares; a
// datum PROJ has no grid for is taken as it is, in metres, and said once.
TEST(TerrainSurface, heightsAreEllipsoidalMetresWhateverTheDemDeclares) {
    TempDir dir;
    Dem egm96;
    egm96.srs = "EPSG:4326+5773";
    const Terrain geoid({writeDem(dir.file("egm96.tif"), egm96)});
    double lon, lat, expected, h = 0.0;
    gdalTransform("EPSG:4326+5773", 9.0234, 45.5567,
                  gdalBilinear(dir.file("egm96.tif"), 9.0234, 45.5567), lon, lat, expected);
    ASSERT_TRUE(geoid.height(9.0234, 45.5567, h));
    EXPECT_NEAR(h, expected, 1e-3);
    EXPECT_GT(h - gdalBilinear(dir.file("egm96.tif"), 9.0234, 45.5567), 40.0);  // the geoid
    EXPECT_EQ(geoid.warnings.str(), "");

    // New York's Long Island in US feet, NAVD88 heights in US feet.
    Dem feet;
    feet.srs = "EPSG:2263+6360";
    feet.transform[0] = 980000.0, feet.transform[1] = 100.0;
    feet.transform[3] = 200000.0, feet.transform[5] = -100.0;
    feet.post = [](int col, int row) { return 480.0 + 3.0 * col - 2.0 * row; };
    const Terrain usFeet({writeDem(dir.file("feet.tif"), feet)});
    const double x = 980437.0, y = 199371.0;
    gdalTransform("EPSG:2263+6360", x, y, gdalBilinear(dir.file("feet.tif"), x, y), lon, lat,
                  expected);
    ASSERT_TRUE(usFeet.height(lon, lat, h));
    EXPECT_NEAR(h, expected, 1e-3);
    EXPECT_NEAR(h, gdalBilinear(dir.file("feet.tif"), x, y) * 1200.0 / 3937.0, 1e-3);
    EXPECT_NE(usFeet.warnings.str().find("feet.tif: heights in \""), std::string::npos)
        << usFeet.warnings.str();
    EXPECT_EQ(countLines(usFeet.warnings.str()), 1u);

    Dem bandInFeet;
    bandInFeet.unit = "ft";
    const Terrain ft({writeDem(dir.file("ft.tif"), bandInFeet)});
    ASSERT_TRUE(ft.height(9.0234, 45.5567, h));
    EXPECT_NEAR(h, gdalBilinear(dir.file("ft.tif"), 9.0234, 45.5567) * 0.3048, 1e-4);
}

// Two DTED cells that share their edge posts are one surface: at the seam and just either
// side the height is that of their gdalbuildvrt mosaic, in either order. Half a post
// beyond a cell's outermost posts, where GDAL's extent still reaches, with no cell beyond,
// nothing covers.
TEST(TerrainSurface, abuttingDtedCellsAreOneSurfaceAndTheirMarginsCoverNothing) {
    TempDir dir;
    const std::string west = writeCell(dir, 45, 9), east = writeCell(dir, 45, 10);
    const std::string mosaic = buildVrt(dir, "cells.vrt", {west, east});
    const Terrain westFirst({west, east}), eastFirst({east, west});
    for (const double lon : {10.0, 10.0011, 9.9989, 10.0041, 9.9961}) {
        SCOPED_TRACE(lon);
        double a = 0.0, b = 0.0;
        ASSERT_TRUE(westFirst.height(lon, 45.5003, a));
        ASSERT_TRUE(eastFirst.height(lon, 45.5003, b));
        EXPECT_NEAR(a, gdalBilinear(mosaic, lon, 45.5003), 1e-4);
        EXPECT_NEAR(b, a, 1e-9);
    }
    double h = 0.0;
    EXPECT_FALSE(westFirst.height(11.003, 45.5, h));  // east of the east cell's last posts
    EXPECT_FALSE(westFirst.height(9.7, 44.997, h));   // south of the cells
    EXPECT_TRUE(westFirst.height(11.0, 45.5, h));     // on them
}

// Two GeoTIFF tiles that abut (each pixel an area, no post shared) are interpolated
// across the gap between their outermost posts as their mosaic is; a global DEM whose
// longitudes run 0..360 wraps at its seam.
TEST(TerrainSurface, abuttingTilesAndAGlobalSeamAreInterpolatedAcross) {
    TempDir dir;
    Dem left, right;
    right.transform[0] = 9.11;
    right.post = [](int col, int row) { return 400.0 - 7.0 * col + row * row; };
    const std::string a = writeDem(dir.file("a.tif"), left), b = writeDem(dir.file("b.tif"), right);
    const std::string mosaic = buildVrt(dir, "tiles.vrt", {a, b});
    for (const std::vector<std::string>& order : {std::vector<std::string>{a, b}, {b, a}}) {
        const Terrain tiles(order);
        for (const double lon : {9.1099, 9.1051, 9.1149, 9.11}) {
            SCOPED_TRACE(lon);
            double h = 0.0;
            ASSERT_TRUE(tiles.height(lon, 45.5234, h));
            EXPECT_NEAR(h, gdalBilinear(mosaic, lon, 45.5234), 1e-4);
        }
    }

    Dem global;
    global.width = 360, global.height = 3;
    global.transform[0] = 0.0, global.transform[1] = 1.0;
    global.transform[3] = 1.5, global.transform[5] = -1.0;
    global.post = [](int col, int) { return col % 7 * 100.0 + col; };
    const Terrain world({writeDem(dir.file("global.tif"), global)});
    double h = 0.0;
    ASSERT_TRUE(world.height(-0.3, 0.0, h));  // between the posts at 359.5 and 0.5
    const double p359 = global.post(359, 1), p0 = global.post(0, 1);
    EXPECT_NEAR(h, 0.8 * p359 + 0.2 * p0, 1e-4);
    ASSERT_TRUE(world.height(179.9, 0.0, h));
    EXPECT_NEAR(h, 0.6 * global.post(179, 1) + 0.4 * global.post(180, 1), 1e-4);
}

namespace {

const char* const headingRules =
    R"({"models": {"oak": "oak.flt"},
        "rules": [{"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree",
                   "rotationField": "AOO"}]})";

TestFeature tree(const std::string& wkt) {
    return {wkt, {{"ECC", "EC030"}}, {}, {{"AOO", 90.0}}};
}

// A WGS84 DEM over northern Italy and the Alps, posts 0.05 degrees apart.
std::string writeAlpsDem(const TempDir& dir) {
    Dem alps;
    alps.width = 61, alps.height = 51;
    alps.transform[0] = 8.0, alps.transform[1] = 0.05;
    alps.transform[3] = 47.5, alps.transform[5] = -0.05;
    alps.post = [](int col, int row) { return 300.0 + 20.0 * col + 15.0 * row; };
    return writeDem(dir.file("alps.tif"), alps);
}

}  // namespace

// A flat-earth scene's frame is the plane tangent at its origin; a prop stands on its
// point's vertical there as everywhere (its latitude and longitude, by CartConvert, the
// point's), at the terrain's height, and heading 90 faces the local east, not the frame's.
TEST(TerrainSurface, flatEarthPropsStandOnTheirPointsVertical) {
    TempDir dir;
    const std::string dem = writeAlpsDem(dir);
    // About 40 km and 190 km from the origin (45, 9).
    const double points[2][2] = {{9.45, 45.2}, {10.6, 46.2}};
    ASSERT_TRUE(writeVector(dir.file("trees.shp"), srsFromEpsg(4326).get(),
                            {tree("POINT (9.45 45.2)"), tree("POINT (10.6 46.2)")}));
    const ZorhostRun run = zorhost("props " + dir.file("trees.shp") + " --rules " +
                                   dir.write("rules.json", headingRules) + " --terrain " + dem +
                                   " --scene FlatEarth:45,9 --json");
    ASSERT_EQ(run.status, 0) << run.err;
    const Json props = Json::parse(run.out)["props"];
    ASSERT_EQ(props.size(), 2u);
    const GeographicLib::LocalCartesian frame(45.0, 9.0, 0.0);
    for (size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        const Json& p = props[i]["position"];
        std::ostringstream command;
        command.precision(17);
        command << "echo " << p[0].get<double>() << " " << p[1].get<double>() << " "
                << p[2].get<double>() << " | CartConvert -r -l 45 9 0 -p 12";
        double lat = 0.0, lon = 0.0, h = 0.0;
        std::istringstream(shell(command.str())) >> lat >> lon >> h;
        EXPECT_NEAR((lat - points[i][1]) * 111e3, 0.0, 1e-3);
        EXPECT_NEAR((lon - points[i][0]) * 111e3 * std::cos(lat * M_PI / 180.0), 0.0, 1e-3);
        EXPECT_NEAR(h, gdalBilinear(dem, points[i][0], points[i][1]), 1e-3);

        std::vector<double> m(9);
        frame.Reverse(p[0], p[1], p[2], lat, lon, h, m);
        const Json& q = props[i]["orientation"];
        const Eigen::Quaterniond turn(q[3], q[0], q[1], q[2]);
        const Eigen::Vector3d forward = turn * Eigen::Vector3d::UnitY();
        const Eigen::Vector3d east(m[0], m[3], m[6]), up(m[2], m[5], m[8]);
        EXPECT_NEAR(forward.dot(east), 1.0, 1e-12);
        EXPECT_NEAR((turn * Eigen::Vector3d::UnitZ()).dot(up), 1.0, 1e-12);
        EXPECT_NEAR(props[i]["headingDegrees"].get<double>(), 90.0, 1e-9);
    }
}

// A UTM scene's false origin has a height: features and props in that scene stand in one
// frame (the height less it), and GeoJSON gives the ellipsoidal height back.
TEST(TerrainSurface, aFalseOriginsHeightIsOneForFeaturesAndProps) {
    TempDir dir;
    Dem flat;
    flat.post = [](int, int) { return 650.0; };
    flat.transform[0] = 14.95, flat.transform[3] = 47.05;
    const std::string dem = writeDem(dir.file("flat.tif"), flat);
    ASSERT_TRUE(writeVector(dir.file("mark.shp"), srsFromEpsg(4326).get(),
                            {tree("POINT Z (15.01 47.02 650)")}));
    const std::string scene = " --scene UTM:47,15,33,33,N,500000,5000000,100,1,0";
    const ZorhostRun features = zorhost("features " + dir.file("mark.shp") + scene +
                                        " --json --geojson " + dir.file("mark.geojson"));
    const ZorhostRun props =
        zorhost("props " + dir.file("mark.shp") + " --rules " +
                dir.write("rules.json", headingRules) + " --terrain " + dem + scene + " --json");
    ASSERT_EQ(features.status, 0) << features.err;
    ASSERT_EQ(props.status, 0) << props.err;
    const Json location = Json::parse(features.out)["features"][0]["location"];
    const Json position = Json::parse(props.out)["props"][0]["position"];
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(location[k].get<double>(), position[k].get<double>(), 1e-3) << k;
    EXPECT_NEAR(position[2].get<double>(), 550.0, 1e-3);
    const Json geojson = Json::parse(slurp(dir.file("mark.geojson")));
    EXPECT_NEAR(geojson["features"][0]["geometry"]["coordinates"][2].get<double>(), 650.0, 1e-3);
}

// A DEM in the scene's own UTM zone is reached by a shift of the plane, not a round trip
// through latitude and longitude: it must give what the geocentric scene gives (and GDAL's
// bilinear sample), false origin or not, while a DEM of another zone is still read.
TEST(TerrainSurface, aDemInTheScenesZoneGivesTheSameHeightsByItsPlane) {
    TempDir dir;
    Dem sloped;  // 33N, about 15.1 E 47.0 N, 30 m posts
    sloped.srs = "EPSG:32633";
    sloped.width = 40, sloped.height = 40;
    const double origin[6] = {507000.0, 30.0, 0.0, 5207000.0, 0.0, -30.0};
    std::copy(origin, origin + 6, sloped.transform);
    const std::string east = writeDem(dir.file("east.tif"), sloped);
    Dem west;  // 32N, about 8.9 E 47.0 N, so that its plane is not the scene's
    west.srs = "EPSG:32632";
    west.width = 40, west.height = 40;
    const double westOrigin[6] = {490000.0, 30.0, 0.0, 5207000.0, 0.0, -30.0};
    std::copy(westOrigin, westOrigin + 6, west.transform);
    const std::string other = writeDem(dir.file("west.tif"), west);

    const double places[3][2] = {
        {507345.5, 5206512.25}, {507015.0, 5205845.0}, {490600.0, 5206600.0}};
    std::vector<TestFeature> trees;
    std::vector<double> expected;
    for (int i = 0; i < 3; ++i) {
        const std::string srs = i < 2 ? "EPSG:32633" : "EPSG:32632";
        double lon = 0.0, lat = 0.0, h = 0.0;
        gdalTransform(srs, places[i][0], places[i][1], 0.0, lon, lat, h);
        std::ostringstream wkt;
        wkt.precision(17);
        wkt << "POINT (" << lon << " " << lat << ")";
        trees.push_back(tree(wkt.str()));
        expected.push_back(gdalBilinear(i < 2 ? east : other, places[i][0], places[i][1]));
    }
    ASSERT_TRUE(writeVector(dir.file("trees.shp"), srsFromEpsg(4326).get(), trees));
    const std::string rules = dir.write("rules.json", headingRules);
    for (const std::string scene :
         {"Geocentric:WGS84", "EPSG:32633", "UTM:47,15,33,33,N,500000,5000000,100,1,0"}) {
        SCOPED_TRACE(scene);
        const ZorhostRun run =
            zorhost("props " + dir.file("trees.shp") + " --rules " + rules + " --terrain " + east +
                    " --terrain " + other + " --scene " + scene + " --json");
        ASSERT_EQ(run.status, 0) << run.err;
        const Json props = Json::parse(run.out)["props"];
        ASSERT_EQ(props.size(), 3u);
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(props[i]["wgs84"][2].get<double>(), expected[i], 1e-3) << i;
    }
}

// Where a scene's projection has no answer the point is left out and counted: a country
// layer with Antarctica, whose ring runs along the south pole, in a northern Lambert cone;
// the map's extent comes from what was placed.
TEST(TerrainSurface, aPointTheProjectionCannotHoldIsLeftOutAndCounted) {
    TempDir dir;
    ASSERT_TRUE(
        writeVector(dir.file("countries.shp"), srsFromEpsg(4326).get(),
                    {{"POLYGON ((7 37, 18 37, 18 47, 7 47, 7 37))", {{"ECC", "FA000"}}, {}, {}},
                     {"POLYGON ((-180 -90, -180 -65, 180 -65, 180 -90, -180 -90))",
                      {{"ECC", "FA000"}},
                      {},
                      {}}}));
    const std::string scene = " --scene Lambert:45,9,44,46";
    const ZorhostRun features =
        zorhost("features " + dir.file("countries.shp") + scene + " --json");
    ASSERT_EQ(features.status, 0) << features.err;
    const Json answer = Json::parse(features.out);
    EXPECT_EQ(answer["features"].size(), 1u);
    EXPECT_EQ(answer.at("load").at("layers").at(0).at("reasons").at("unplaceable").at("count"), 1);
    EXPECT_NE(features.err.find("1 with a coordinate the scene cannot hold"), std::string::npos)
        << features.err;

    const ZorhostRun map = zorhost("map " + dir.file("world.png") + " --features " +
                                   dir.file("countries.shp") + scene);
    ASSERT_EQ(map.status, 0) << map.err;
    std::istringstream world(slurp(dir.file("world.pgw")));
    double pixelX = 0, rotation1 = 0, rotation2 = 0, pixelY = 0, left = 0, top = 0;
    world >> pixelX >> rotation1 >> rotation2 >> pixelY >> left >> top;
    EXPECT_LT(std::abs(left), 2e6);  // Italy's box, a thousand kilometres across
    EXPECT_LT(std::abs(top), 2e6);
    EXPECT_LT(pixelX * 1024, 3e6);
}
