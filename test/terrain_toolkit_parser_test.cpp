// The toolkit, project and metafile header parsers and the step from the scene's system
// to the loader's, on files written here with GDAL/OGR.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "ParserAnswer.h"
#include "TempDir.h"
#include "VectorFiles.h"
#include "hxutil/DtNotify.h"
#include "terrainDbFactory/DtTdbManager.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtMetaFileHeaderParser.h"
#include "zorTerrain/DtTdbToolCoordSysFactory.h"
#include "zorTerrain/DtTerrainProjectHeaderParser.h"
#include "zorTerrain/DtTerrainToolkitHeaderParser.h"
#include "zorTerrain/zorTerrain.h"
#include "zorUtil/DtCoordinateSystem.h"

using namespace kelZor;

namespace {

ParserAnswer ask(DtHeaderParser& parser) {
    return askParser(parser);
}

ParserAnswer toolkit(const std::string& path) {
    return askParser(DtTerrainToolkitHeaderParser(path));
}

const std::vector<TestFeature> onePoint = {{"POINT (580000 4480000)", {}, {}, {}}};

}  // namespace

TEST(TerrainToolkitHeaderParser, eachKindInTheHostsWords) {
    TempDir dir;
    const int notifyLevel = DtNotifyLevel = 3;
    ASSERT_TRUE(writeDted(dir.file("N40_W075.DT1"), 40, -75, [](int, int) { return 0; }));
    const ParserAnswer dted = toolkit(dir.file("N40_W075.DT1"));
    EXPECT_TRUE(dted.valid);
    EXPECT_EQ(dted.type, "Flat Earth");  // capital extension: still a DTED cell
    EXPECT_EQ(dted.parameters, "40.5,-74.5");
    EXPECT_EQ(dted.patch, dir.file("N40_W075.DT1"));
    EXPECT_NO_THROW(DtCoordinateSystem(dted.type, dted.parameters));

    ASSERT_TRUE(writeVector(dir.file("utm.shp"), srsFromEpsg(32618).get(), onePoint));
    const ParserAnswer utm = toolkit(dir.file("utm.shp"));
    EXPECT_EQ(utm.type, DtCoordinateConverter::UTM);
    const DtCoordinateSystem rebuilt(utm.type, utm.parameters);
    ASSERT_NE(rebuilt.utmConverter(), nullptr);
    EXPECT_EQ(rebuilt.utmConverter()->effectiveZone(), 18);
    EXPECT_EQ(rebuilt.utmConverter()->hemisphere(), 'N');

    ASSERT_TRUE(writeVector(dir.file("lcc.shp"), srsFromEpsg(2264).get(), onePoint));
    const ParserAnswer lcc = toolkit(dir.file("lcc.shp"));
    EXPECT_EQ(lcc.type, DtCoordinateConverter::Lambert);
    const DtCoordinateSystem lambert(lcc.type, lcc.parameters);
    EXPECT_NEAR(lambert.lambertConverter()->originLatitude(), 33.75, 1e-9);
    EXPECT_NEAR(lambert.lambertConverter()->originLongitude(), -79.0, 1e-9);
    EXPECT_NEAR(lambert.lambertConverter()->parallel1(), 36.1666666666667, 1e-9);
    EXPECT_NEAR(lambert.lambertConverter()->parallel2(), 34.3333333333333, 1e-9);

    ASSERT_TRUE(
        writeVector(dir.file("geo.shp"), srsFromEpsg(4326).get(), {{"POINT (1 2)", {}, {}, {}}}));
    const ParserAnswer geographic = toolkit(dir.file("geo.shp"));
    EXPECT_TRUE(geographic.valid);
    EXPECT_EQ(geographic.type, "Geographic");
    EXPECT_EQ(geographic.parameters, "");

    ASSERT_TRUE(
        writeVector(dir.file("plate.shp"), srsFromEpsg(4087).get(), {{"POINT (1 2)", {}, {}, {}}}));
    EXPECT_EQ(toolkit(dir.file("plate.shp")).type, DtCoordinateConverter::FlatEarth);

    ASSERT_TRUE(writeVector(dir.file("bare.shp"), nullptr, {{"POINT (1 2)", {}, {}, {}}}));
    const ParserAnswer bare = toolkit(dir.file("bare.shp"));
    EXPECT_FALSE(bare.valid);
    EXPECT_EQ(bare.patch, "");
    EXPECT_EQ(DtNotifyLevel, notifyLevel);
    DtNotifyLevel = 0;
}

TEST(TerrainToolkitHeaderParser, theSceneSystemInTheLoadersClasses) {
    DtCoordinateSystem flat(DtCoordinateConverter::FlatEarth, "45.5,10");
    std::unique_ptr<Coordinate_System> cs(DtTdbToolCoordSysFactory::create(flat));
    ASSERT_NE(dynamic_cast<DtFlatEarthCS*>(cs.get()), nullptr);
    EXPECT_NEAR(cs->originLatitudeDegrees(), 45.5, 1e-12);
    EXPECT_NEAR(cs->originLongitudeDegrees(), 10.0, 1e-12);

    auto utmConverter = std::make_unique<DtUtmCoordinateConverter>();
    utmConverter->init(-33.9, 18.4, 34, 0);
    cs.reset(DtTdbToolCoordSysFactory::create(DtCoordinateSystem(std::move(utmConverter))));
    const auto* utm = dynamic_cast<DtUtmCS*>(cs.get());
    ASSERT_NE(utm, nullptr);
    EXPECT_EQ(utm->zone(), -34);  // the loader's name of zone 34 south
    EXPECT_EQ(utm->hemisphere(), 'S');
    EXPECT_EQ(utm->scaleFactor(), 0.9996);
    EXPECT_FALSE(utm->hasVerticalOffset());
    EXPECT_EQ(utm->verticalOffset(), 0.0);

    cs.reset(DtTdbToolCoordSysFactory::create(
        DtCoordinateSystem(DtCoordinateConverter::Lambert, "23,-96,29.5,45.5")));
    const auto* lambert = dynamic_cast<DtLambertConformalCS*>(cs.get());
    ASSERT_NE(lambert, nullptr);
    EXPECT_NEAR(DtRad2Deg(lambert->parallel1()), 29.5, 1e-12);
    EXPECT_NEAR(DtRad2Deg(lambert->parallel2()), 45.5, 1e-12);

    for (const char* type : {DtCoordinateConverter::Geocentric, DtCoordinateConverter::Cartesian}) {
        cs.reset(DtTdbToolCoordSysFactory::create(DtCoordinateSystem(type, "")));
        ASSERT_NE(cs, nullptr);
        EXPECT_EQ(cs->kind(), Coordinate_System::Geocentric);
        EXPECT_EQ(dynamic_cast<DtUtmCS*>(cs.get()), nullptr);
    }
}

namespace {

// A project or metafile naming `terrain`, in `folder`.
std::string metafile(const TempDir& dir, const std::string& name, const std::string& terrain) {
    return dir.write(name, "; test\n[3DView]\nterrain = " + terrain + "\n");
}

// A project parser that tells where it looked.
struct Project : DtTerrainProjectHeaderParser {
    using DtTerrainProjectHeaderParser::DtTerrainProjectHeaderParser;
    using DtTerrainProjectHeaderParser::getView3DFilename;
};

}  // namespace

TEST(TerrainProjectHeaderParser, theProjectLayoutDecidesWhereTheTerrainLies) {
    TempDir dir;
    DtDe de;
    const std::pair<std::string, std::string> cases[] = {
        {"/abs/terrain.shp", "/abs/terrain.shp"},
        {"../data/terrain/sub/t.shp", "../data/terrain/sub/t.shp"},
        {"..\\data\\terrain\\sub\\t.shp", "..\\data\\terrain\\sub\\t.shp"},
        {"./t.shp", "../data/terrain/t.shp"},
        {".\\t.shp", "../data/terrain/t.shp"},
        {"../data/terrain2/t.shp", "../data/terrain/../data/terrain2/t.shp"},
        {"t.shp", "../data/terrain/t.shp"},
    };
    for (const auto& [named, expected] : cases) {
        SCOPED_TRACE(named);
        Project project(de, metafile(dir, "p.tproj", named));
        std::string found = "untouched";
        ASSERT_TRUE(project.getView3DFilename(found));
        EXPECT_EQ(found, expected);
    }
    Project notAProject(de, dir.write("x.tproj", "\x01\x02 binary [[[ noise\n"));
    std::string untouched = "untouched";
    EXPECT_FALSE(notAProject.getView3DFilename(untouched));
    EXPECT_EQ(untouched, "untouched");
}

TEST(TerrainProjectHeaderParser, asksTheTerrainsParserThenFallsBack) {
    TempDir dir;
    std::filesystem::create_directories(dir.file("project"));
    std::filesystem::create_directories(dir.file("data/terrain"));
    ASSERT_TRUE(writeVector(dir.file("data/terrain/t.shp"), srsFromEpsg(32618).get(), onePoint));
    DtDe de;
    zorTerrain::init(de);
    const std::filesystem::path previous = std::filesystem::current_path();
    std::filesystem::current_path(dir.file("project"));

    Project found(de, metafile(dir, "project/p.tproj", "./t.shp"));
    const ParserAnswer answer = ask(found);
    EXPECT_TRUE(answer.valid);
    EXPECT_EQ(answer.type, DtCoordinateConverter::UTM);
    EXPECT_EQ(answer.patch, "../data/terrain/t.shp");
    EXPECT_EQ(found.filePath(), "../data/terrain/t.shp");

    // No parser for the named file: the toolkit parser asks the loader about it.
    ASSERT_TRUE(writeVector(dir.file("data/terrain/u.json"), srsFromEpsg(32618).get(), onePoint,
                            "GeoJSON"));
    Project fallback(de, metafile(dir, "project/q.tproj", "u.json"));
    const ParserAnswer fell = ask(fallback);
    EXPECT_TRUE(fell.valid);
    EXPECT_EQ(fell.patch, "../data/terrain/u.json");

    // Not a metafile at all: the project file itself is taken as a terrain source.
    Project itself(de, dir.write("project/r.tproj", "\x01\x02"));
    EXPECT_FALSE(ask(itself).valid);
    std::filesystem::current_path(previous);
}

TEST(MetaFileHeaderParser, theDataFileIsFoundBesideTheMetafile) {
    TempDir dir;
    DtDe de;
    zorTerrain::init(de);
    ASSERT_TRUE(writeVector(dir.file("t.shp"), srsFromEpsg(32618).get(), onePoint));
    DtMetaFileHeaderParser relative(de, metafile(dir, "rel.meta", "t.shp"));
    const ParserAnswer answer = ask(relative);
    EXPECT_TRUE(answer.valid);
    EXPECT_EQ(answer.type, DtCoordinateConverter::UTM);
    EXPECT_EQ(answer.patch, dir.file("t.shp"));
    EXPECT_EQ(relative.filePath(), dir.file("rel.meta"));

    DtMetaFileHeaderParser absolute(de, metafile(dir, "abs.meta", dir.file("t.shp")));
    EXPECT_EQ(ask(absolute).patch, dir.file("t.shp"));

    for (const std::string& broken :
         {dir.file("missing.meta"), dir.write("noise.meta", std::string("\0\xff[3DView", 9)),
          metafile(dir, "nothing.meta", "missing.shp"), metafile(dir, "noparser.meta", "x.xyz"),
          dir.write("noview.meta", "[Other]\nterrain = t.shp\n")}) {
        SCOPED_TRACE(broken);
        DtMetaFileHeaderParser parser(de, broken);
        EXPECT_FALSE(parser.isValid());
    }
}

// ------------------------------------------------------------------ systems of files

namespace {

// The first node of `path` loaded into the scene the toolkit parser answers for `sceneOf`.
DtPoint firstNodeInSceneOf(const std::string& sceneOf, const std::string& path) {
    const ParserAnswer answer = toolkit(sceneOf);
    EXPECT_TRUE(answer.valid);
    const DtCoordinateSystem scene(answer.type, answer.parameters);
    std::unique_ptr<Coordinate_System> cs(DtTdbToolCoordSysFactory::create(scene));
    DtTdbManager manager;
    DtString error;
    if (!manager.loadFor3DVisualization(DtFilename(path), cs.get(), &error)) {
        ADD_FAILURE() << error.stdString();
        return DtPoint();
    }
    cs.release();
    const DtVectorNetwork* network = manager.terrainDatabase()->vectorNetwork();
    return network && network->numNodes() > 0 ? network->node(0)->location() : DtPoint();
}

}  // namespace

// A UTM file's hemisphere is its system's (+south), not where its data lie; an empty one
// answers its zone's central meridian on the equator.
TEST(TerrainToolkitHeaderParser, aUtmFilesHemisphereIsItsSystems) {
    TempDir dir;
    // gdaltransform -s_srs EPSG:4326 -t_srs EPSG:32733: 14.5 0.2 gives 444362.1443 10022106.8576
    ASSERT_TRUE(writeVector(dir.file("north33s.shp"), srsFromEpsg(32733).get(),
                            {{"POINT (444362.144270904 10022106.8575515)", {}, {}, {}}}));
    const ParserAnswer answer = toolkit(dir.file("north33s.shp"));
    ASSERT_EQ(answer.type, DtCoordinateConverter::UTM);
    const DtCoordinateSystem scene(answer.type, answer.parameters);
    EXPECT_EQ(scene.utmConverter()->hemisphere(), 'S') << answer.parameters;
    EXPECT_EQ(scene.utmConverter()->effectiveZone(), 33);
    const DtPoint p = firstNodeInSceneOf(dir.file("north33s.shp"), dir.file("north33s.shp"));
    EXPECT_NEAR(p.x(), 444362.1443, 1e-3);
    EXPECT_NEAR(p.y(), 10022106.8576, 1e-3);

    ASSERT_TRUE(writeVector(dir.file("empty18n.shp"), srsFromEpsg(32618).get(), {},
                            "ESRI Shapefile", "empty18n", wkbPoint));
    ASSERT_TRUE(writeVector(dir.file("empty33s.shp"), srsFromEpsg(32733).get(), {},
                            "ESRI Shapefile", "empty33s", wkbPoint));
    EXPECT_EQ(toolkit(dir.file("empty18n.shp")).parameters, "0,-75,18,18,N,0,0,0,0,0");
    EXPECT_EQ(toolkit(dir.file("empty33s.shp")).parameters, "0,15,-33,33,S,0,0,0,0,0");
}

// NTF (Paris) / Lambert zone II: a one-parallel cone with a scale factor, its longitudes
// from the Paris meridian in grads. It answers the same cone with two parallels (as OGR
// converts it), in Greenwich degrees, and a point in Paris lands in that scene where
// GeographicLib puts it: gdaltransform -t_srs EPSG:27572 of 2.3522 48.8566 is 601152.2993
// 2428695.8970; ConicProj -c 47.696014502107 45.898918964343 -l 2.33722917 of 48.8566
// 2.3522 is 1099.1643 228688.7023, of the origin 46.8 2.33722917 is 0 0.0572.
TEST(TerrainToolkitHeaderParser, longitudesAreGreenwichsAndNoScaleIsDropped) {
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("paris.shp"), srsFromEpsg(27572).get(),
                            {{"POINT (601152.299296814 2428695.8969682)", {}, {}, {}}}));
    const ParserAnswer answer = toolkit(dir.file("paris.shp"));
    ASSERT_EQ(answer.type, DtCoordinateConverter::Lambert);
    const DtCoordinateSystem scene(answer.type, answer.parameters);
    const DtLambertCoordinateConverter& lambert = *scene.lambertConverter();
    EXPECT_NEAR(lambert.originLatitude(), 46.8, 1e-9);
    EXPECT_NEAR(lambert.originLongitude(), 2.33722917, 1e-9);
    EXPECT_NEAR(lambert.parallel1(), 47.696014502107, 1e-9);
    EXPECT_NEAR(lambert.parallel2(), 45.898918964343, 1e-9);
    const DtPoint p = firstNodeInSceneOf(dir.file("paris.shp"), dir.file("paris.shp"));
    EXPECT_NEAR(p.x(), 1099.1643, 0.01);
    EXPECT_NEAR(p.y(), 228688.7023 - 0.0572, 0.01);
}

// Heights above a vertical datum go through its geoid where PROJ has the grid (EGM96 in
// Debian's proj-data: gdaltransform -s_srs EPSG:32632+5773 -t_srs EPSG:4979 of 500000
// 5000000 100 gives a height of 141.5188); where it has none (EGM2008) they are taken as
// they are, and the load says so once.
TEST(TerrainLoader, heightsKeepTheirVerticalDatum) {
    TempDir dir;
    OGRSpatialReference egm96, egm2008;
    ASSERT_EQ(egm96.SetFromUserInput("EPSG:32632+5773"), OGRERR_NONE);
    ASSERT_EQ(egm2008.SetFromUserInput("EPSG:32632+3855"), OGRERR_NONE);
    const std::vector<TestFeature> point = {{"POINT Z (500000 5000000 100)", {}, {}, {}},
                                            {"POINT Z (500100 5000000 100)", {}, {}, {}}};
    ASSERT_TRUE(writeVector(dir.file("egm96.gpkg"), &egm96, point, "GPKG"));
    ASSERT_TRUE(writeVector(dir.file("egm2008.gpkg"), &egm2008, point, "GPKG"));
    std::ostringstream warnings;
    DtWarn.setTarget(&warnings);
    const auto heightIn = [&](const std::string& path) {
        DtTdbManager manager;
        DtString error;
        auto cs =
            std::make_unique<DtUtmCS>(DtDegMinSec::fromLatitude(45.0),
                                      DtDegMinSec::fromLongitude(9.0), 0, 32, false, 0.0, 0.9996);
        EXPECT_TRUE(manager.loadFor3DVisualization(DtFilename(path), cs.get(), &error))
            << error.stdString();
        cs.release();
        return manager.terrainDatabase()->vectorNetwork()->node(0)->location().z();
    };
    EXPECT_NEAR(heightIn(dir.file("egm96.gpkg")), 141.5188, 1e-3);
    EXPECT_EQ(warnings.str(), "");
    EXPECT_NEAR(heightIn(dir.file("egm2008.gpkg")), 100.0, 1e-6);
    DtWarn.setTarget(nullptr);
    const std::string said = warnings.str();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    EXPECT_NE(said.find("are taken as heights above the ellipsoid"), std::string::npos) << said;
}

// A metafile saved with a byte-order mark, and a geodatabase named with the slash that
// shell completion adds.
TEST(MetaFileHeaderParser, aByteOrderMarkAndATrailingSlashAreNoObstacle) {
    TempDir dir;
    DtDe de;
    zorTerrain::init(de);
    ASSERT_TRUE(writeVector(dir.file("t.gdb"), srsFromEpsg(32618).get(), onePoint, "OpenFileGDB",
                            "t", wkbPoint));
    DtMetaFileHeaderParser marked(
        de, dir.write("bom.meta", "\xEF\xBB\xBF[3DView]\nterrain = t.gdb/\n"));
    const ParserAnswer answer = ask(marked);
    EXPECT_TRUE(answer.valid);
    EXPECT_EQ(answer.type, DtCoordinateConverter::UTM);
    EXPECT_EQ(answer.patch, dir.file("t.gdb/"));
    std::unique_ptr<DtHeaderParser> slashed(
        DtHeaderParserFactory::instance(de).createHeaderParser(dir.file("t.gdb/")));
    ASSERT_NE(slashed, nullptr);
    EXPECT_EQ(ask(*slashed).parameters, toolkit(dir.file("t.gdb")).parameters);
}
