// The feature adder and the field value reader over real vector files written with OGR
// in the test's directory, into a UTM scene checked against GeographicLib.
#include <gtest/gtest.h>
#include <GeographicLib/UTMUPS.hpp>

#include <cmath>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "TempDir.h"
#include "VectorFiles.h"
#include "hxutil/DtNotify.h"
#include "terrainDbFactory/DtTdbManager.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/DtTdbFeatureAdder.h"
#include "zorTerrain/DtTdbFeatureFieldValueReader.h"
#include "zorTerrain/DtTdbToolCoordSysFactory.h"
#include "zorTerrain/zorTerrain.h"

using namespace kelZor;

namespace {

// An engine in zone 18 north with the plug-in registered and its log kept.
struct Engine {
    DtDe de;
    std::ostringstream log;

    Engine() {
        zorTerrain::init(de);
        DtUtmCoordinateConverter utm;
        utm.init(18, 'N', true);
        de.sharedState().coordinateSystem() =
            DtCoordinateSystem(DtCoordinateConverter::UTM, utm.stringRep());
        de.log().setTarget(&log);
    }

    void addFeatures(DtFeatureLayer& layer) {
        std::unique_ptr<DtFeatureAdder> adder(de.featureAdderCreator()->create(de));
        adder->addFeatures(layer);
    }

    bool readValues(const std::string& file, std::map<std::string, std::set<std::string>>& out) {
        return DtFeatureFieldValueReaderFactory::instance(de).defaultReader()->readValuesFromFile(
            file, out);
    }
};

struct Utm {
    double x = 0, y = 0;
};

Utm utmOf(double lon, double lat) {
    int zone = 0;
    bool north = true;
    Utm p;
    GeographicLib::UTMUPS::Forward(lat, lon, zone, north, p.x, p.y, 18);
    return p;
}

void expectAt(const DtVector64& v, double lon, double lat) {
    const Utm expected = utmOf(lon, lat);
    EXPECT_NEAR(v.x(), expected.x, 1e-3);
    EXPECT_NEAR(v.y(), expected.y, 1e-3);
    EXPECT_NEAR(v.z(), 0.0, 1e-3);
}

// A geodatabase in WGS84 with every road the adder can take: free points with and
// without the optional attributes, codes it must skip, two roads meeting at a junction
// and an area.
std::string writeValley(const TempDir& dir) {
    const std::string gdb = dir.file("valley.gdb");
    const auto wgs84 = srsFromEpsg(4326);
    TestFeature full{"POINT (-75.0 42.0)", {{"ECC", "AL015"}}, {}, {}};
    full.reals = {{"WID", 12.5}, {"LEN", 20}, {"HGT", 9}, {"AOO", 90}};
    const std::vector<TestFeature> sites = {
        full,
        {"POINT (-75.01 42.01)", {{"ECC", "AL15"}}, {}, {}},
        {"POINT (-75.02 42.02)", {{"ECC", ""}}, {}, {}},   // no code: skipped
        {"POINT (-75.03 42.03)", {{"ECC", "A"}}, {}, {}},  // no two letters: skipped
        {"POINT (-75.04 42.04)", {{"ECC", "AL65537"}}, {{"AOO", 0}}, {}},
        {"POINT (-75.05 42.05)", {{"ECC", "ALxyz"}}, {}, {}},
    };
    const std::vector<TestFeature> roads = {
        {"LINESTRING (-75.1 42.1,-75.0 42.1)", {{"ECC", "AP030"}}, {}, {}},
        {"LINESTRING (-75.0 42.1,-75.0 42.2,-74.9 42.2)", {{"ECC", "AP030"}}, {}, {}},
    };
    const std::vector<TestFeature> areas = {
        // Clockwise, as the format stores an outer ring: what is read is what was written.
        {"POLYGON ((-75.2 42.3,-75.1 42.4,-75.1 42.3,-75.2 42.3))", {{"ECC", "BH080"}}, {}, {}},
    };
    EXPECT_TRUE(writeVector(gdb, wgs84.get(), sites, "OpenFileGDB", "sites", wkbPoint));
    EXPECT_TRUE(writeVector(gdb, wgs84.get(), roads, "OpenFileGDB", "roads", wkbLineString));
    EXPECT_TRUE(writeVector(gdb, wgs84.get(), areas, "OpenFileGDB", "areas", wkbPolygon));
    return gdb;
}

struct Seen {
    std::vector<const DtPointFeature*> points;
    std::vector<const DtEdgeFeature*> lines;
    std::vector<const DtArealFeature*> areas;
    std::string order;
};

Seen walk(const DtFeatureLayer& layer) {
    Seen seen;
    layer.featureSet().forEach(
        [&](const DtPointFeature& f) { seen.points.push_back(&f), seen.order += 'p'; },
        [&](const DtEdgeFeature& f) { seen.lines.push_back(&f), seen.order += 'l'; },
        [&](const DtArealFeature& f) { seen.areas.push_back(&f), seen.order += 'a'; });
    return seen;
}

}  // namespace

TEST(FaccCode, lettersAndTheLow16BitsOfWhatAtoiReads) {
    EXPECT_EQ(DtFaccCode("AL015"), DtFaccCode("AL15"));
    EXPECT_EQ(DtFaccCode("AL015"), DtFaccCode('A', 'L', 15));
    EXPECT_EQ(DtFaccCode("AL65537").number(), 1);
    EXPECT_EQ(DtFaccCode("ALxyz").number(), 0);
    EXPECT_EQ(DtFaccCode("AL 12x4").number(), 12);
    EXPECT_EQ(DtFaccCode("AL-1").number(), 65535);
    EXPECT_EQ(DtFaccCode("AL99999999999999999999999").number(), 65535);  // no overflow
    EXPECT_EQ(DtFaccCode("AL015").text(), "AL15");
    EXPECT_EQ(DtFaccCode("A").text(), "A0");
    EXPECT_EQ(DtFaccCode("").text(), "0");
}

TEST(FeatureAdder, pointsThenLinesAndAreasWhereGeographicLibPutsThem) {
    TempDir dir;
    const std::string gdb = writeValley(dir);
    Engine engine;
    DtNotifyLevel = 3;
    DtFeatureLayer layer(gdb);
    engine.addFeatures(layer);
    EXPECT_EQ(DtNotifyLevel, 3);
    DtNotifyLevel = 0;
    EXPECT_TRUE(engine.de.reportedErrors().empty()) << engine.log.str();

    const Seen seen = walk(layer);
    // Four taken points, the junction and three road ends add nothing, two roads, one area.
    EXPECT_EQ(seen.order, "pppplla");
    ASSERT_EQ(seen.points.size(), 4u);
    ASSERT_EQ(seen.lines.size(), 2u);
    ASSERT_EQ(seen.areas.size(), 1u);
    EXPECT_EQ(layer.featureSet().count(DtFeature::Point), 4u);

    const DtPointFeature& full = *seen.points[0];
    EXPECT_EQ(full.featureId(), 1u);  // geodatabase FIDs start at 1
    EXPECT_EQ(full.code(), DtFaccCode('A', 'L', 15));
    expectAt(full.location(), -75.0, 42.0);
    EXPECT_EQ(full.dimensions(), DtVector64(12.5, 20, 9));
    ASSERT_TRUE(full.rotation().has_value());
    EXPECT_DOUBLE_EQ(*full.rotation(), M_PI / 2);

    const DtPointFeature& bare = *seen.points[1];
    EXPECT_EQ(bare.code(), full.code());
    EXPECT_EQ(bare.dimensions(), DtVector64(0, 0, 0));
    EXPECT_FALSE(bare.rotation().has_value());
    expectAt(bare.location(), -75.01, 42.01);

    EXPECT_EQ(seen.points[2]->featureId(), 5u);
    EXPECT_EQ(seen.points[2]->code().number(), 1);
    ASSERT_TRUE(seen.points[2]->rotation().has_value());  // a heading of 0 is set
    EXPECT_EQ(*seen.points[2]->rotation(), 0.0);
    EXPECT_EQ(seen.points[3]->code().text(), "AL0");

    ASSERT_EQ(seen.lines[1]->vertices().size(), 3u);
    expectAt(seen.lines[1]->vertices()[0], -75.0, 42.1);
    expectAt(seen.lines[1]->vertices()[2], -74.9, 42.2);
    EXPECT_EQ(seen.lines[0]->code().text(), "AP30");
    EXPECT_EQ(seen.lines[0]->featureId(), 1u);
    EXPECT_EQ(seen.lines[1]->featureId(), 2u);
    // The outline as stored: closed by its last vertex, nothing added or reordered.
    const std::vector<DtVector64>& outline = seen.areas[0]->vertices();
    ASSERT_EQ(outline.size(), 4u);
    expectAt(outline[1], -75.1, 42.4);
    EXPECT_EQ(outline[0], outline[3]);

    // Each feature names the network object it came from.
    DtTdbManager manager;
    DtString error;
    ASSERT_TRUE(manager.loadFor3DVisualization(
        DtFilename(gdb.c_str()),
        DtTdbToolCoordSysFactory::create(engine.de.sharedState().coordinateSystem()), &error));
    const DtVectorNetwork& network = *manager.terrainDatabase()->vectorNetwork();
    EXPECT_EQ(full.id(), network.node(0)->id());
    EXPECT_EQ(seen.areas[0]->id(), network.edge(2)->id());

    // A second load into the same layer adds everything again.
    engine.addFeatures(layer);
    EXPECT_EQ(walk(layer).order,
              "pppplla"
              "pppplla");
}

TEST(FeatureAdder, whatDoesNotLoadIsReportedOnceAndTheNotifyLevelComesBack) {
    TempDir dir;
    ASSERT_TRUE(writeDted(dir.file("n42_w075.dt0"), 42, -75, [](int, int) { return 100; }));
    Engine engine;
    DtNotifyLevel = 2;

    DtFeatureLayer silent(dir.file("nothing"));  // missing and no extension: nothing
    engine.addFeatures(silent);
    EXPECT_TRUE(engine.de.reportedErrors().empty());
    EXPECT_TRUE(engine.log.str().empty());

    for (const std::string& name : {dir.file("missing.shp"), dir.file("n42_w075.dt0")}) {
        SCOPED_TRACE(name);
        engine.de.clearReportedErrors();
        engine.log.str("");
        DtFeatureLayer layer(name);
        engine.addFeatures(layer);
        EXPECT_EQ(DtNotifyLevel, 2);
        EXPECT_EQ(layer.featureSet().size(), 0u);
        ASSERT_EQ(engine.de.reportedErrors().size(), 1u);
        const DtReportedError& reported = engine.de.reportedErrors()[0];
        EXPECT_EQ(reported.error.code(), 6);
        EXPECT_EQ(reported.error.arguments(), std::vector<std::string>{name});
        EXPECT_FALSE(reported.notifyUser);
        const std::string log = engine.log.str();
        EXPECT_NE(log.find("<Warning:virtual void kelZor::DtTdbFeatureAdder::addFeatures("
                           "kelZor::DtFeatureLayer&)>\n"
                           "DtTdbFeatureAdder::addFeatures error loading file: "),
                  std::string::npos)
            << log;
    }
    // The loader's reason follows the sentence: for the missing file it names the file.
    EXPECT_EQ(engine.log.str().find("n42_w075.dt0: "), std::string::npos);
    DtNotifyLevel = 0;
}

TEST(FieldValueReader, freePointsOfSeveralFilesGatherInOneMap) {
    TempDir dir;
    const auto wgs84 = srsFromEpsg(4326);
    ASSERT_TRUE(writeVector(dir.file("numbers.shp"), wgs84.get(),
                            {{"POINT (-75 42)", {{"KIND", "tree"}}, {{"N", 5}}, {{"H", 2.5}}},
                             {"POINT (-75 42.1)", {{"KIND", "tree"}}, {{"N", 5}}, {{"H", 0.1}}}}));
    ASSERT_TRUE(writeVector(dir.file("texts.shp"), wgs84.get(),
                            {{"POINT (-75.1 42.1)", {{"N", "5"}, {"KIND", "house"}}, {}, {}}}));
    ASSERT_TRUE(writeVector(dir.file("roads.shp"), wgs84.get(),
                            {{"LINESTRING (-75 42,-75.1 42.1)", {{"ECC", "AP030"}}, {}, {}}}));
    Engine engine;
    std::map<std::string, std::set<std::string>> values;
    DtNotifyLevel = 1;
    ASSERT_TRUE(engine.readValues(dir.file("numbers.shp"), values)) << engine.log.str();
    ASSERT_TRUE(engine.readValues(dir.file("texts.shp"), values));
    const auto afterPoints = values;
    ASSERT_TRUE(engine.readValues(dir.file("roads.shp"), values));  // only line ends
    EXPECT_EQ(values, afterPoints);
    EXPECT_EQ(DtNotifyLevel, 1);

    EXPECT_EQ(values["N"], (std::set<std::string>{"5"}));
    EXPECT_EQ(values["KIND"], (std::set<std::string>{"house", "tree"}));
    EXPECT_EQ(values["H"], (std::set<std::string>{"0.1", "2.5"}));
    EXPECT_EQ(values["DtFeatureType"], (std::set<std::string>{"0"}));
    EXPECT_EQ(values["DtFidCode"], (std::set<std::string>{"0", "1"}));  // shapefile FIDs

    // Numbers of every sign and length, each met several times, list as their texts.
    std::vector<TestFeature> numbers;
    std::set<std::string> texts;
    for (const int n : {0, 1, 10, 2, 19, 100, 9, -1, -10, -2, -19, 123456789, -123456789}) {
        texts.insert(std::to_string(n));
        for (int copy = 0; copy < 3; ++copy)
            numbers.push_back({"POINT (-75 42)", {}, {{"COUNT", n}}, {{"H", n / 4.0}}});
    }
    ASSERT_TRUE(writeVector(dir.file("signs.shp"), wgs84.get(), numbers));
    std::map<std::string, std::set<std::string>> signs;
    ASSERT_TRUE(engine.readValues(dir.file("signs.shp"), signs));
    EXPECT_EQ(signs["COUNT"], texts);
    EXPECT_EQ(signs["H"].size(), texts.size());
    EXPECT_EQ(signs["DtFidCode"].size(), numbers.size());

    const auto before = values;
    EXPECT_FALSE(engine.readValues(dir.file("missing.shp"), values));
    EXPECT_EQ(values, before);
    EXPECT_EQ(DtNotifyLevel, 1);
    ASSERT_EQ(engine.de.reportedErrors().size(), 1u);
    EXPECT_EQ(engine.de.reportedErrors()[0].error.code(), 6);
    EXPECT_TRUE(engine.de.reportedErrors()[0].notifyUser);
    EXPECT_NE(engine.log.str().find("DtTdbFeatureFieldValueReader::getFeatureFieldValuePairs - "
                                    "loadFor3DVisualization Error: " +
                                    dir.file("missing.shp") + ": "),
              std::string::npos)
        << engine.log.str();
    DtNotifyLevel = 0;
}

// A southern scene as the parsers answer one (origin on the equator, hemisphere S: here
// the WKT parser's answer for the sample harbour) and one with a false origin applied: a
// feature lands in the scene's own frame, GeographicLib's easting and northing less the
// false origin (gdaltransform -s_srs EPSG:4326 -t_srs EPSG:32733: 15 -10 gives 500000
// 8894587.5087; 14.9 -10.2 gives 489047.2121 8872472.9783).
TEST(FeatureAdder, southernAndFalseOriginScenesHoldTheirFeatures) {
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("coast.geojson"), srsFromEpsg(4326).get(),
                            {{"POINT (15 -10)", {{"ECC", "BD030"}}, {}, {}},
                             {"LINESTRING (15 -10,14.9 -10.2)", {{"ECC", "BA010"}}, {}, {}}},
                            "GeoJSON", "coast", wkbUnknown));
    Engine parsers;
    std::unique_ptr<DtHeaderParser> harbour(
        DtHeaderParserFactory::instance(parsers.de)
            .createHeaderParser(std::string(ZOR_SAMPLE_DIR) + "/harbour_utm33s.osg"));
    ASSERT_TRUE(harbour && harbour->isValid());
    DtUtmCoordinateConverter shifted;
    shifted.init(498000.0, 8894000.0, 25.0, 33, 'S', true);
    const struct {
        DtCoordinateSystem scene;
        double dx, dy;
    } cases[] = {
        {DtCoordinateSystem(harbour->terrainCoordinateSystem(),
                            harbour->terrainCoordinateSystemParameters()),
         0.0, 0.0},
        {DtCoordinateSystem(DtCoordinateConverter::UTM, shifted.stringRep()), 498000.0, 8894000.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.scene.converter()->stringRep());
        Engine engine;
        engine.de.sharedState().coordinateSystem() = c.scene;
        DtFeatureLayer layer(dir.file("coast.geojson"));
        engine.addFeatures(layer);
        EXPECT_TRUE(engine.de.reportedErrors().empty()) << engine.log.str();
        ASSERT_EQ(layer.featureSet().count(DtFeature::Point), 1u);
        ASSERT_EQ(layer.featureSet().count(DtFeature::Linear), 1u);
        std::vector<DtVector64> at;
        layer.featureSet().forEach([&](const DtPointFeature& f) { at.push_back(f.location()); },
                                   [&](const DtEdgeFeature& f) {
                                       at.insert(at.end(), f.vertices().begin(),
                                                 f.vertices().end());
                                   },
                                   [](const DtArealFeature&) {});
        ASSERT_EQ(at.size(), 3u);
        const double expected[][2] = {
            {500000.0, 8894587.5087}, {500000.0, 8894587.5087}, {489047.2121, 8872472.9783}};
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_NEAR(at[i].x(), expected[i][0] - c.dx, 1e-3);
            EXPECT_NEAR(at[i].y(), expected[i][1] - c.dy, 1e-3);
        }
    }
}

namespace {
struct ThrowingWalk : DtTdbFeatureAdder {
    using DtTdbFeatureAdder::DtTdbFeatureAdder;
    void addFeaturesFromVectorNetwork(const DtVectorNetwork&, DtFeatureLayer&) override {
        throw std::runtime_error("walk failed");
    }
};
}  // namespace

// The level the adders set for the engine's libraries comes back on every path, an
// exception of a subclass's walk included.
TEST(FeatureAdder, theNotifyLevelComesBackWhenTheWalkThrows) {
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("p.shp"), srsFromEpsg(4326).get(),
                            {{"POINT (-75 42)", {{"ECC", "AL015"}}, {}, {}}}));
    Engine engine;
    ThrowingWalk adder(engine.de);
    DtFeatureLayer layer(dir.file("p.shp"));
    DtNotifyLevel = 3;
    EXPECT_THROW(adder.addFeatures(layer), std::runtime_error);
    EXPECT_EQ(DtNotifyLevel, 3);
    DtNotifyLevel = 0;
}
