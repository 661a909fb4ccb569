// zorhost on files from outside the samples, as a terrain engineer would try them: a
// southern scene, a false origin, a country-wide layer, an attribute table, a latitude
// beyond the pole, a Float64 DEM with no-data. Each answers with exit 0, or one clear line
// and exit 1 - never an abort.
#include <gtest/gtest.h>

#include <gdal_priv.h>

#include <string>

#include "JsonOutput.h"
#include "TempDir.h"
#include "VectorFiles.h"
#include "ZorhostRun.h"

namespace {

const char* const rules =
    R"({"models": {"oak": "oak.flt"},
        "rules": [{"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree"}]})";

void expectNoAbort(const ZorhostRun& run) {
    EXPECT_TRUE(run.status == 0 || run.status == 1) << run.status << run.err;
    EXPECT_EQ(run.err.find("terminate"), std::string::npos) << run.err;
}

TestFeature oak(const std::string& wkt) {
    return {wkt, {{"ECC", "EC030"}}, {}, {}};
}

// A 3 x 3 Float64 DEM in WGS84 around (15, -10), its centre post no-data (-9999.9).
std::string writeHoledDem(const TempDir& dir) {
    GDALAllRegister();
    GDALDatasetUniquePtr dem(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        dir.file("holed.tif").c_str(), 3, 3, 1, GDT_Float64, nullptr));
    double transform[6] = {14.85, 0.1, 0.0, -9.85, 0.0, -0.1};
    dem->SetGeoTransform(transform);
    dem->SetSpatialRef(srsFromEpsg(4326).get());
    double heights[9] = {50, 50, 50, 50, -9999.9, 50, 50, 50, 50};
    dem->GetRasterBand(1)->SetNoDataValue(-9999.9);
    EXPECT_EQ(
        dem->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 3, 3, heights, 3, 3, GDT_Float64, 0, 0),
        CE_None);
    return dir.file("holed.tif");
}

}  // namespace

TEST(ZorhostWorld, southernAndFalseOriginScenesPlacePropsWhereGeographicLibDoes) {
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("south.shp"), srsFromEpsg(4326).get(),
                            {oak("POINT (15 -10)"), oak("POINT (14.9 -10.2)")}));
    const std::string rulesFile = dir.write("rules.json", rules);
    const std::string props =
        "props " + dir.file("south.shp") + " --rules " + rulesFile + " --json";
    // gdaltransform -s_srs EPSG:4326 -t_srs EPSG:32733: 15 -10 is 500000 8894587.5087
    const struct {
        std::string scene;
        double x, y;
    } cases[] = {{"@data/sample/harbour_utm33s.osg", 500000.0, 8894587.5087},
                 {"UTM:0,15,33,33,S,498000,8894000,0,1,0", 2000.0, 587.5087}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.scene);
        const ZorhostRun run = zorhost(props + " --scene " + c.scene);
        expectNoAbort(run);
        ASSERT_EQ(run.status, 0) << run.err;
        const Json answer = Json::parse(run.out);
        ASSERT_EQ(answer["props"].size(), 2u);
        EXPECT_NEAR(answer["props"][0]["position"][0].get<double>(), c.x, 1e-3);
        EXPECT_NEAR(answer["props"][0]["position"][1].get<double>(), c.y, 1e-3);
    }
    // A false origin so far out that no place has it: the load fails with its reason.
    const ZorhostRun nowhere = zorhost(props + " --scene UTM:0,15,33,33,S,1e300,1e300,0,1,0");
    expectNoAbort(nowhere);
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_NE(nowhere.err.find("false origin"), std::string::npos) << nowhere.err;
}

TEST(ZorhostWorld, oddLayersLoadAndSayWhatTheyLeftOut) {
    TempDir dir;
    const std::string gpkg = dir.file("set.gpkg");
    ASSERT_TRUE(writeVector(gpkg, nullptr, {}, "GPKG", "codes", wkbNone));
    ASSERT_TRUE(writeVector(gpkg, srsFromEpsg(32632).get(),
                            {oak("POINT (1310360.06042529 4482347.37239543)"),  // Otranto
                             oak("POINT (500000 5000000)")},
                            "GPKG", "sites", wkbPoint));
    const ZorhostRun italy = zorhost("features --json --scene UTM:42,12,32,32,N,0,0,0,0,0 " + gpkg);
    expectNoAbort(italy);
    ASSERT_EQ(italy.status, 0) << italy.err;
    const Json features = Json::parse(italy.out)["features"];
    EXPECT_EQ(features.size(), 2u);

    const std::string beyond = dir.write("beyond.geojson", R"({"type": "FeatureCollection",
      "features": [{"type": "Feature", "id": 1, "properties": {"ECC": "EC030"},
                    "geometry": {"type": "Point", "coordinates": [9, 91]}},
                   {"type": "Feature", "id": 2, "properties": {"ECC": "EC030", "WID": 1e400},
                    "geometry": {"type": "Point", "coordinates": [9, 45]}}]})");
    for (const std::string& command : {"features " + beyond, "values " + beyond}) {
        SCOPED_TRACE(command);
        const ZorhostRun run = zorhost(command);
        expectNoAbort(run);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_NE(run.err.find("1 object made none: 1 with a coordinate the scene cannot hold (the "
                               "first is feature 1 of layer \"beyond\")"),
                  std::string::npos)
            << run.err;
        // Nor does a real beyond a double's range become a value: it is none, as a null.
        EXPECT_EQ(run.out.find("nan"), std::string::npos) << run.out;
        EXPECT_EQ(run.out.find("inf"), std::string::npos) << run.out;
    }
}

TEST(ZorhostWorld, aPropOverNoDataIsUnplacedNotSunk) {
    TempDir dir;
    ASSERT_TRUE(writeVector(
        dir.file("south.shp"), srsFromEpsg(4326).get(),
        {oak("POINT (15 -10)"), oak("POINT (14.9 -9.95)"), oak("POINT (14.88 -9.88)")}));
    const ZorhostRun run = zorhost(
        "props " + dir.file("south.shp") + " --rules " + dir.write("rules.json", rules) +
        " --terrain " + writeHoledDem(dir) + " --scene @data/sample/harbour_utm33s.osg --json");
    expectNoAbort(run);
    const Json props = Json::parse(run.out)["props"];
    ASSERT_EQ(props.size(), 3u);
    EXPECT_EQ(props[0]["position"][2].get<double>(), 0.0);  // over the hole: at the origin
    // On the outermost posts' line the hole has no share; half a post beyond them, in
    // the margin GDAL's extent adds, no post lies on the far side: not covered.
    EXPECT_NEAR(props[1]["position"][2].get<double>(), 50.0, 1e-6);
    EXPECT_FALSE(props[2]["placed"].get<bool>());
}
