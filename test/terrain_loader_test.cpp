// The terrain database loader on real files written here with GDAL/OGR; positions are
// checked against GeographicLib's own UTMUPS and LocalCartesian.
#include <gtest/gtest.h>

#include <GeographicLib/LocalCartesian.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <array>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <memory>
#include <sstream>

#include "TempDir.h"
#include "VectorFiles.h"
#include "ZorhostRun.h"
#include "hxutil/DtNotify.h"
#include "terrainDbFactory/DtTdbManager.h"
#include "zorTerrain/DtTdbSceneLoad.h"

namespace {

std::unique_ptr<Coordinate_System> systemOf(const std::string& path, DtString* error = nullptr) {
    DtTdbManager manager;
    return std::unique_ptr<Coordinate_System>(
        manager.coordinateSystemFrom(DtFilename(path), DtFilename::nullFilename(), error));
}

// A load that works hands the system to the database; one that fails leaves it here.
bool load(DtTdbManager& manager, const std::string& path, std::unique_ptr<Coordinate_System> cs,
          DtString& error) {
    const bool loaded = manager.loadFor3DVisualization(DtFilename(path), cs.get(), &error);
    if (loaded)
        cs.release();
    return loaded;
}

// What the loader writes to its warning stream while it lives.
class WarnCapture {
public:
    WarnCapture() { DtWarn.setTarget(&text_); }
    ~WarnCapture() { DtWarn.setTarget(nullptr); }
    std::string text() const {
        DtWarn.flush();
        return text_.str();
    }

private:
    std::ostringstream text_;
};

std::vector<TestFeature> pointsAt(std::initializer_list<const char*> wkts) {
    std::vector<TestFeature> features;
    for (const char* wkt : wkts)
        features.push_back({wkt, {}, {}, {}});
    return features;
}

}  // namespace

TEST(TerrainLoader, coordinateSystemsOfRealFiles) {
    TempDir dir;
    ASSERT_TRUE(writeDted(dir.file("n40_w075.dt1"), 40, -75, [](int, int) { return 10; }));
    const auto dted = systemOf(dir.file("n40_w075.dt1"));
    ASSERT_NE(dynamic_cast<const DtUtmCS*>(dted.get()), nullptr);
    EXPECT_EQ(static_cast<const DtUtmCS&>(*dted).zone(), 18);
    EXPECT_NEAR(dted->originLatitudeDegrees(), 40.5, 1e-9);
    EXPECT_NEAR(dted->originLongitudeDegrees(), -74.5, 1e-9);

    ASSERT_TRUE(writeVector(dir.file("utm18n.shp"), srsFromEpsg(32618).get(),
                            pointsAt({"POINT (580000 4480000)", "POINT (600000 4500000)"})));
    const auto utm = systemOf(dir.file("utm18n.shp"));
    ASSERT_NE(dynamic_cast<const DtUtmCS*>(utm.get()), nullptr);
    EXPECT_EQ(utm->kind(), 2);
    EXPECT_EQ(static_cast<const DtUtmCS&>(*utm).zone(), 18);
    EXPECT_EQ(static_cast<const DtUtmCS&>(*utm).hemisphere(), 'N');
    double lat = 0, lon = 0;
    GeographicLib::UTMUPS::Reverse(18, true, 590000, 4490000, lat, lon);  // the extent's centre
    EXPECT_NEAR(utm->originLatitudeDegrees(), lat, 1e-7);
    EXPECT_NEAR(utm->originLongitudeDegrees(), lon, 1e-7);

    ASSERT_TRUE(writeVector(dir.file("utm33s.shp"), srsFromEpsg(32733).get(),
                            pointsAt({"POINT (500000 6000000)"})));
    EXPECT_EQ(static_cast<const DtUtmCS&>(*systemOf(dir.file("utm33s.shp"))).hemisphere(), 'S');

    // NAD83 / North Carolina in US survey feet: Lambert 2SP, angles in degrees whatever
    // the linear unit.
    ASSERT_TRUE(writeVector(dir.file("lcc.shp"), srsFromEpsg(2264).get(),
                            pointsAt({"POINT (2000000 600000)"})));
    const auto lcc = systemOf(dir.file("lcc.shp"));
    const auto* lambert = dynamic_cast<const DtLambertConformalCS*>(lcc.get());
    ASSERT_NE(lambert, nullptr);
    EXPECT_NEAR(lambert->originLatitudeDegrees(), 33.75, 1e-9);
    EXPECT_NEAR(lambert->originLongitudeDegrees(), -79.0, 1e-9);
    EXPECT_NEAR(DtRad2Deg(lambert->parallel1()), 36.16666666666666, 1e-9);
    EXPECT_NEAR(DtRad2Deg(lambert->parallel2()), 34.33333333333334, 1e-9);

    const std::pair<int, std::pair<int, const char*>> others[] = {
        {4326, {3, "Geographic"}},
        {4087, {6, "FlatEarth"}},  // equirectangular
        {3857, {0, "WGS 84 / Pseudo-Mercator"}},
    };
    for (const auto& [epsg, expected] : others) {
        SCOPED_TRACE(epsg);
        const std::string path = dir.file("epsg" + std::to_string(epsg) + ".shp");
        ASSERT_TRUE(writeVector(path, srsFromEpsg(epsg).get(), pointsAt({"POINT (1 2)"})));
        const auto system = systemOf(path);
        ASSERT_NE(system, nullptr);
        EXPECT_EQ(system->kind(), expected.first);
        EXPECT_EQ(system->typeName(), expected.second);
    }
}

TEST(TerrainLoader, filesWithoutASystemAnswerNullWithAReason) {
    kelZor::DtQuietLoader quiet;
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("bare.shp"), nullptr, pointsAt({"POINT (1 2)"})));
    ASSERT_TRUE(writeVector(dir.file("garbage.shp"), nullptr, pointsAt({"POINT (1 2)"})));
    dir.write("garbage.prj", "PROJCS[\"nothing\" \x01\x02 not wkt");
    dir.write("cell.c7b", "x");
    std::filesystem::create_directories(dir.file("folder.dt1"));
    std::filesystem::create_directories(dir.file("empty.gdb"));
    const std::pair<std::string, std::string> cases[] = {
        {"bare.shp", "no layer with a coordinate system"},
        {"garbage.shp", "no layer with a coordinate system"},
        {"cell.c7b", "the \"c7b\" format is not read by this loader"},
        {"missing.shp", "no such file"},
        {"folder.dt1", "not a terrain source this loader reads"},
        {"empty.gdb", "not a terrain source this loader reads"},
    };
    for (const auto& [name, reason] : cases) {
        SCOPED_TRACE(name);
        DtString error;
        EXPECT_EQ(systemOf(dir.file(name), &error), nullptr);
        EXPECT_EQ(error.stdString(), dir.file(name) + ": " + reason);
        DtTdbManager manager;
        EXPECT_FALSE(
            load(manager, dir.file(name), std::make_unique<Coordinate_System>(false, 0.0), error));
        EXPECT_EQ(error.stdString().rfind(dir.file(name) + ": ", 0), 0u) << error.stdString();
        EXPECT_EQ(manager.terrainDatabase(), nullptr);
    }
}

TEST(TerrainLoader, pointsLandWhereGeographicLibPutsThem) {
    TempDir dir;
    const double points[][2] = {{-74.0, 40.7}, {-75.2, 39.9}, {-73.1, 41.6}};  // lon, lat
    std::vector<TestFeature> features;
    for (const auto& p : points) {
        features.push_back(
            {"POINT (" + std::to_string(p[0]) + " " + std::to_string(p[1]) + ")", {}, {}, {}});
    }
    ASSERT_TRUE(writeVector(dir.file("wgs84.shp"), srsFromEpsg(4326).get(), features));
    const std::string file = dir.file("wgs84.shp");

    DtTdbManager utmLoad;
    DtString error;
    ASSERT_TRUE(load(
        utmLoad, file,
        std::make_unique<DtUtmCS>(DtDegMinSec::fromLatitude(40.5),
                                  DtDegMinSec::fromLongitude(-74.5), 0, 18, false, 0.0, 0.9996),
        error))
        << error.stdString();
    const DtVectorNetwork& network = *utmLoad.terrainDatabase()->vectorNetwork();
    ASSERT_EQ(network.numNodes(), 3);
    EXPECT_EQ(network.numEdges(), 0);

    DtTdbManager flatLoad;
    ASSERT_TRUE(load(flatLoad, file,
                     std::make_unique<DtFlatEarthCS>(DtDeg2Rad(40.5), DtDeg2Rad(-74.5), false, 0.0),
                     error));
    const GeographicLib::LocalCartesian plane(40.5, -74.5, 0.0);
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const double lon = std::stod(std::to_string(points[i][0]));
        const double lat = std::stod(std::to_string(points[i][1]));
        int zone = 0;
        bool north = true;
        double x = 0, y = 0;
        GeographicLib::UTMUPS::Forward(lat, lon, zone, north, x, y, 18);
        const DtPoint& p = network.node(i)->location();
        EXPECT_NEAR(p.x(), x, 1e-3);
        EXPECT_NEAR(p.y(), y, 1e-3);
        EXPECT_NEAR(p.z(), 0.0, 1e-3);
        EXPECT_EQ(network.node(i)->numConnectedEdges(), 0);
        double e = 0, n = 0, u = 0;
        plane.Forward(lat, lon, 0.0, e, n, u);
        const DtPoint& q = flatLoad.terrainDatabase()->vectorNetwork()->node(i)->location();
        EXPECT_NEAR(q.x(), e, 1e-3);
        EXPECT_NEAR(q.y(), n, 1e-3);
        EXPECT_NEAR(q.z(), u, 1e-3);
    }
}

// A layer in the scene's own UTM zone skips the projections; one in the next zone, or
// with a coordinate the full road must judge, does not. All land where GeographicLib
// puts them, and a point no projection can take is left out and said to be.
TEST(TerrainLoader, layersInTheScenesZoneLandAsTheFullRoadPlacesThem) {
    TempDir dir;
    auto utm32 = [] {
        return std::make_unique<DtUtmCS>(DtDegMinSec::fromLatitude(45.5),
                                         DtDegMinSec::fromLongitude(9.0), 0, 32, false, 0.0,
                                         0.9996);
    };
    struct Case {
        int epsg, zone;
        std::vector<std::array<double, 3>> points;  // easting, northing, height
    };
    const Case cases[] = {
        {32632, 32, {{400000, 5000000, 12.5}, {899000, 1300000, 0}, {612345.678, 9200000, -3}}},
        {32632, 32, {{400000, 5000000, 0}, {50000, 5000000, 0}}},  // one outside the safe box
        {32633, 33, {{300000, 5100000, 7}, {250000, 4500000, 0}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.epsg);
        std::vector<TestFeature> features;
        for (const auto& p : c.points) {
            std::ostringstream wkt;
            wkt << std::setprecision(17) << "POINT Z (" << p[0] << " " << p[1] << " " << p[2]
                << ")";
            features.push_back({wkt.str(), {}, {}, {}});
        }
        const std::string file = dir.file("utm" + std::to_string(&c - cases) + ".shp");
        ASSERT_TRUE(writeVector(file, srsFromEpsg(c.epsg).get(), features));
        DtTdbManager manager;
        DtString error;
        ASSERT_TRUE(load(manager, file, utm32(), error)) << error.stdString();
        const DtVectorNetwork& network = *manager.terrainDatabase()->vectorNetwork();
        ASSERT_EQ(network.numNodes(), int(c.points.size()));
        for (size_t i = 0; i < c.points.size(); ++i) {
            SCOPED_TRACE(i);
            double lat, lon, x, y;
            GeographicLib::UTMUPS::Reverse(c.zone, true, c.points[i][0], c.points[i][1], lat, lon);
            int zone;
            bool north;
            GeographicLib::UTMUPS::Forward(lat, lon, zone, north, x, y, 32);
            const DtPoint& p = network.node(int(i))->location();
            EXPECT_NEAR(p.x(), x, 1e-6);
            EXPECT_NEAR(p.y(), y, 1e-6);
            EXPECT_NEAR(p.z(), c.points[i][2], 1e-6);
        }
    }

    const std::vector<TestFeature> unplaceable = {{"POINT (400000 5000000)", {}, {}, {}},
                                                  {"POINT (1e300 5000000)", {}, {}, {}}};
    ASSERT_TRUE(writeVector(dir.file("far.shp"), srsFromEpsg(32632).get(), unplaceable));
    kelZor::DtQuietLoader quiet;  // PROJ's own complaint stays out of the test's output
    const WarnCapture warnings;
    DtTdbManager manager;
    DtString error;
    ASSERT_TRUE(load(manager, dir.file("far.shp"), utm32(), error));
    EXPECT_EQ(manager.terrainDatabase()->vectorNetwork()->numNodes(), 1);
    EXPECT_NE(warnings.text().find("1 feature left out"), std::string::npos) << warnings.text();
}

// Large files are read in batches transformed on another thread: the network must be the
// one a feature-by-feature build makes, and a point that cannot be placed is left out
// wherever it falls, and named.
TEST(TerrainLoader, batchesJoinIntoOneNetworkAndAnUnplaceablePointInALateOneIsNamed) {
    TempDir dir;
    constexpr int lines = 4000, vertices = 10;  // more coordinates than a batch holds
    std::vector<TestFeature> chain;
    for (int i = 0; i < lines; ++i) {
        std::string wkt = "LINESTRING (";
        for (int v = 0; v < vertices; ++v) {
            // Each line ends where the next begins.
            const double lon = -75.0 + (i * (vertices - 1) + v) * 1e-4;
            wkt += (v ? "," : "") + std::to_string(lon) + " 42";
        }
        chain.push_back({wkt + ")", {}, {{"N", i}}, {}});
    }
    ASSERT_TRUE(writeVector(dir.file("chain.shp"), srsFromEpsg(4326).get(), chain));
    DtTdbManager manager;
    DtString error;
    ASSERT_TRUE(load(manager, dir.file("chain.shp"), nullptr, error)) << error.stdString();
    const DtVectorNetwork& network = *manager.terrainDatabase()->vectorNetwork();
    ASSERT_EQ(network.numEdges(), lines);
    ASSERT_EQ(network.numNodes(), lines + 1);
    // Ids in order of making: edge i, then its end junction (its start is the one before).
    for (int i : {0, 1, lines / 2, lines - 1}) {
        SCOPED_TRACE(i);
        const DtNetworkEdge& edge = *network.edge(i);
        int n = -1;
        EXPECT_TRUE(edge.attributes().getInt(DtString("N"), n));
        EXPECT_EQ(n, i);
        EXPECT_TRUE(edge.point(0) == network.node(i)->location());
        EXPECT_TRUE(edge.point(vertices - 1) == network.node(i + 1)->location());
        const DtNetworkNode::EdgeIndices atEnd = network.node(i + 1)->connectedEdges();
        const std::vector<int> expected =
            i + 1 < lines ? std::vector<int>{i, i + 1} : std::vector<int>{i};
        EXPECT_EQ(std::vector<int>(atEnd.begin(), atEnd.end()), expected);
        EXPECT_EQ(network.node(i + 1)->numConnectedEdges(), int(expected.size()));
        EXPECT_EQ(edge.id(), i == 0 ? 1u : network.node(i + 1)->id() - 1);
    }

    std::vector<TestFeature> points;
    for (int i = 0; i < 40000; ++i)
        points.push_back({"POINT (" + std::to_string(400000 + i) + " 4500000)", {}, {}, {}});
    points.push_back({"POINT (1e300 4500000)", {}, {}, {}});
    ASSERT_TRUE(writeVector(dir.file("far.shp"), srsFromEpsg(32618).get(), points));
    kelZor::DtQuietLoader quiet;  // PROJ's own complaint stays out of the test's output
    const WarnCapture warnings;
    DtTdbManager far;
    ASSERT_TRUE(load(far, dir.file("far.shp"), nullptr, error));
    EXPECT_EQ(far.terrainDatabase()->vectorNetwork()->numNodes(), 40000);
    EXPECT_NE(warnings.text().find("1 feature left out: the scene cannot hold a coordinate of "
                                   "each (the first is feature 40000 of layer \"far\""),
              std::string::npos)
        << warnings.text();
}

TEST(TerrainLoader, theNetworkOfAGeodatabase) {
    TempDir dir;
    const std::string gdb = dir.file("set.gdb");
    TestFeature point{"POINT (500100 4649900)",
                      {{"F_CODE", "AL015"}, {"NAM", "house"}},
                      {{"SCORE", 7}},
                      {{"WID", 12.5}, {"LEN", 20}, {"HGT", 9}, {"AOO", 44.6}}};
    TestFeature bare{"MULTIPOINT ((500200 4649900),(500300 4649900))", {}, {}, {}};
    ASSERT_TRUE(
        writeVector(gdb, srsFromEpsg(32618).get(), {point}, "OpenFileGDB", "sites", wkbPoint));
    ASSERT_TRUE(
        writeVector(gdb, srsFromEpsg(32618).get(), {bare}, "OpenFileGDB", "marks", wkbMultiPoint));
    ASSERT_TRUE(
        writeVector(gdb, srsFromEpsg(32618).get(),
                    {{"LINESTRING (500000 4650000,500100 4650100)", {{"ECC", "AP030"}}, {}, {}},
                     {"LINESTRING (500100 4650100,500200 4650000,500300 4650050)", {}, {}, {}}},
                    "OpenFileGDB", "roads", wkbLineString));
    ASSERT_TRUE(
        writeVector(gdb, srsFromEpsg(32618).get(),
                    {{"POLYGON ((500000 4649000,500010 4649000,500010 4649010,500000 4649000),"
                      "(500002 4649001,500003 4649001,500003 4649002,500002 4649001))",
                      {},
                      {},
                      {}}},
                    "OpenFileGDB", "areas", wkbPolygon));

    DtTdbManager manager;
    DtString error;
    ASSERT_TRUE(load(
        manager, gdb,
        std::make_unique<DtUtmCS>(DtDegMinSec::fromLatitude(42.0),
                                  DtDegMinSec::fromLongitude(-75.0), 0, 18, false, 0.0, 0.9996),
        error))
        << error.stdString();
    const DtVectorNetwork& network = *manager.terrainDatabase()->vectorNetwork();
    // Layers in order: one point, two marks, then three junctions of the two roads.
    ASSERT_EQ(network.numNodes(), 6);
    ASSERT_EQ(network.numEdges(), 3);
    const DtNetworkAttributes& house = network.node(0)->attributes();
    int type = -1, fid = -1, score = 0, heading = 0;
    double width = 0, length = 0, height = 0;
    DtString ecc, name;
    EXPECT_TRUE(house.getInt(DtString("DtFeatureType"), type));
    EXPECT_EQ(type, 0);
    EXPECT_TRUE(house.getInt(DtString("DtFidCode"), fid));
    EXPECT_EQ(fid, 1);
    EXPECT_TRUE(house.getString(DtString("ECC"), ecc));
    EXPECT_EQ(ecc, "AL015");
    EXPECT_TRUE(house.getString(DtString("NAM"), name));
    EXPECT_TRUE(house.getInt(DtString("SCORE"), score));
    EXPECT_EQ(score, 7);
    EXPECT_TRUE(house.getDouble(DtString("GDB_Width"), width));
    EXPECT_TRUE(house.getDouble(DtString("GDB_Length"), length));
    EXPECT_TRUE(house.getDouble(DtString("DtHeight"), height));
    EXPECT_EQ(width, 12.5);
    EXPECT_EQ(length, 20.0);
    EXPECT_EQ(height, 9.0);
    EXPECT_TRUE(house.getInt(DtString("DtOrientation"), heading));
    EXPECT_EQ(heading, 45);
    EXPECT_FALSE(network.node(1)->attributes().getString(DtString("ECC"), ecc));

    // The junction both roads share.
    EXPECT_EQ(network.node(4)->numConnectedEdges(), 2);
    EXPECT_EQ(network.node(3)->numConnectedEdges(), 1);
    EXPECT_EQ(network.edge(1)->numPoints(), 3);
    EXPECT_TRUE(network.edge(1)->point(0) == network.node(4)->location());
    // The area: its exterior ring as stored, the hole left out.
    const DtNetworkEdge& area = *network.edge(2);
    EXPECT_EQ(area.numPoints(), 4);
    EXPECT_TRUE(area.attributes().getInt(DtString("DtFeatureType"), type));
    EXPECT_EQ(type, 2);
    EXPECT_EQ(network.node(6), nullptr);
    EXPECT_EQ(network.edge(-1), nullptr);
}

TEST(TerrainLoader, brokenFilesGiveALineAndNoDatabase) {
    TempDir dir;
    std::vector<TestFeature> features;
    for (int i = 0; i < 50; ++i)
        features.push_back({"LINESTRING (0 0,1 1,2 2,3 3)", {{"ECC", "AP030"}}, {}, {}});
    ASSERT_TRUE(writeVector(dir.file("roads.shp"), srsFromEpsg(4326).get(), features));
    for (const char* part : {"shp", "dbf", "shx"}) {
        SCOPED_TRACE(part);
        TempDir broken;
        for (const char* name : {"roads.shp", "roads.dbf", "roads.shx", "roads.prj"})
            std::filesystem::copy_file(dir.file(name), broken.file(name));
        const std::string cut = broken.file(std::string("roads.") + part);
        std::filesystem::resize_file(cut, std::filesystem::file_size(cut) / 2);
        kelZor::DtQuietLoader quiet;
        DtTdbManager manager;
        DtString error;
        const bool loaded = load(manager, broken.file("roads.shp"),
                                 std::make_unique<Coordinate_System>(false, 0.0), error);
        // Either the reader refuses, or it gives what it could read whole: never more.
        if (loaded) {
            EXPECT_LE(manager.terrainDatabase()->vectorNetwork()->numEdges(), 50);
        } else {
            EXPECT_EQ(error.stdString().rfind(broken.file("roads.shp") + ": ", 0), 0u);
            EXPECT_EQ(manager.terrainDatabase(), nullptr);
        }
    }
}

// ------------------------------------------------------------------ layers as they come

// A geodatabase or GeoPackage that also holds an attribute table loads: the table has no
// place and is skipped, as the file systems' answer skips it.
TEST(TerrainLoader, attributeTablesAreSkippedNotFatal) {
    TempDir dir;
    for (const char* driver : {"OpenFileGDB", "GPKG"}) {
        SCOPED_TRACE(driver);
        const std::string path =
            dir.file(std::string("set.") + (driver[0] == 'G' ? "gpkg" : "gdb"));
        ASSERT_TRUE(writeVector(path, nullptr, {}, driver, "codes", wkbNone));
        ASSERT_TRUE(writeVector(path, srsFromEpsg(32632).get(),
                                pointsAt({"POINT (500000 5000000)"}), driver, "sites", wkbPoint));
        DtTdbManager manager;
        DtString error;
        ASSERT_TRUE(load(manager, path, std::make_unique<Coordinate_System>(false, 0.0), error))
            << error.stdString();
        EXPECT_EQ(manager.terrainDatabase()->vectorNetwork()->numNodes(), 1);
        const auto system = systemOf(path);
        ASSERT_NE(system, nullptr);
        EXPECT_EQ(system->kind(), Coordinate_System::Utm);
    }
}

// Italy in zone 32 reaches an easting of 1,279 km; the zone's projection holds there
// (gdaltransform -s_srs EPSG:4326 -t_srs EPSG:32632: 18.5 40.1 gives 1310360.0604
// 4482347.3724). Loaded from WGS84 into a zone 32 scene, and from the layer's own UTM.
TEST(TerrainLoader, aCountryWideLayerLoadsIntoItsZone) {
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("otranto.shp"), srsFromEpsg(4326).get(),
                            pointsAt({"POINT (18.5 40.1)"})));
    ASSERT_TRUE(writeVector(dir.file("otranto32.shp"), srsFromEpsg(32632).get(),
                            pointsAt({"POINT (1310360.06042529 4482347.37239543)"})));
    for (const char* name : {"otranto.shp", "otranto32.shp"}) {
        SCOPED_TRACE(name);
        DtTdbManager manager;
        DtString error;
        ASSERT_TRUE(load(
            manager, dir.file(name),
            std::make_unique<DtUtmCS>(DtDegMinSec::fromLatitude(42.0),
                                      DtDegMinSec::fromLongitude(12.0), 0, 32, false, 0.0, 0.9996),
            error))
            << error.stdString();
        const DtPoint& p = manager.terrainDatabase()->vectorNetwork()->node(0)->location();
        EXPECT_NEAR(p.x(), 1310360.0604, 1e-3);
        EXPECT_NEAR(p.y(), 4482347.3724, 1e-3);
    }
}

// What cannot be placed (a latitude beyond the pole, the axes of a file swapped, an
// infinity, a point on the projection's singular meridian) is left out whole, never a
// NaN; the load says once how many, naming the first. Ids the engine cannot hold keep
// their place but carry no DtFidCode, and are said too.
TEST(TerrainLoader, whatCannotBePlacedIsLeftOutAndSaid) {
    TempDir dir;
    const std::string path = dir.write("odd.geojson", R"({"type": "FeatureCollection", "features": [
      {"type": "Feature", "id": 1, "properties": {}, "geometry": {"type": "Point", "coordinates": [9, 45]}},
      {"type": "Feature", "id": 2, "properties": {}, "geometry": {"type": "Point", "coordinates": [9, 91]}},
      {"type": "Feature", "id": 3, "properties": {}, "geometry": {"type": "LineString", "coordinates": [[9, 45], [99, 0]]}},
      {"type": "Feature", "id": 4, "properties": {}, "geometry": {"type": "MultiPoint", "coordinates": [[9.5, 45], [45, 120]]}},
      {"type": "Feature", "id": 5, "properties": {}, "geometry": {"type": "Point", "coordinates": [9.5, 1e999]}},
      {"type": "Feature", "id": 8589934592, "properties": {}, "geometry": {"type": "Point", "coordinates": [9.2, 45]}},
      {"type": "Feature", "id": 2147483648, "properties": {}, "geometry": {"type": "Point", "coordinates": [9.3, 45]}}]})");
    const auto utm32 = [] {
        return std::make_unique<DtUtmCS>(DtDegMinSec::fromLatitude(45.0),
                                         DtDegMinSec::fromLongitude(9.0), 0, 32, false, 0.0,
                                         0.9996);
    };
    const WarnCapture warnings;
    DtTdbManager manager;
    DtString error;
    ASSERT_TRUE(load(manager, path, utm32(), error)) << error.stdString();
    const DtVectorNetwork& network = *manager.terrainDatabase()->vectorNetwork();
    // Features 1 and the two whose ids are too wide stay; 3 (its far end on the equator 90
    // degrees from zone 32's meridian, where the projection has no value) and 4 (a part
    // beyond the pole) go whole.
    std::vector<int> fids;
    int withoutFid = 0;
    for (int i = 0; i < network.numNodes(); ++i) {
        const DtPoint& p = network.node(i)->location();
        EXPECT_TRUE(std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z()));
        int fid = -1;
        if (network.node(i)->attributes().getInt(DtString("DtFidCode"), fid))
            fids.push_back(fid);
        else
            ++withoutFid;
    }
    for (int i = 0; i < network.numEdges(); ++i) {
        for (int v = 0; v < network.edge(i)->numPoints(); ++v)
            EXPECT_TRUE(std::isfinite(network.edge(i)->point(v).x()));
    }
    EXPECT_EQ(withoutFid, 2);
    const std::string said = warnings.text();
    EXPECT_EQ(countLines(said), 2u) << said;
    EXPECT_NE(said.find(path + ": "), std::string::npos) << said;
    EXPECT_NE(said.find("feature 2 of layer \"odd\": its latitude lies beyond the pole"),
              std::string::npos)
        << said;
    EXPECT_NE(said.find("2 features with an id the engine cannot hold"), std::string::npos) << said;
    EXPECT_NE(said.find("the first is 8589934592"), std::string::npos) << said;
    const size_t leftOut = said.find(" features left out");
    ASSERT_NE(leftOut, std::string::npos) << said;
    EXPECT_EQ(said.substr(leftOut - 1, 1), "4");  // 2, 3, 4 and 5
    EXPECT_EQ(fids, std::vector<int>{1});
}
