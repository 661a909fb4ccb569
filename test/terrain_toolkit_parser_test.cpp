// The toolkit, project and metafile header parsers and the step from the scene's system
// to the loader's, on files written here with GDAL/OGR.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "TempDir.h"
#include "VectorFiles.h"
#include "hxutil/DtNotify.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtMetaFileHeaderParser.h"
#include "zorTerrain/DtTdbToolCoordSysFactory.h"
#include "zorTerrain/DtTerrainProjectHeaderParser.h"
#include "zorTerrain/DtTerrainToolkitHeaderParser.h"
#include "zorTerrain/zorTerrain.h"
#include "zorUtil/DtCoordinateSystem.h"

using namespace kelZor;

namespace {

struct Answer {
    bool valid;
    std::string type;
    std::string parameters;
    std::string patch;  // the file name of the one patch, or ""
};

Answer ask(DtHeaderParser& parser) {
    const bool valid = parser.isValid();
    const auto& patches = parser.terrainPatchRecords();
    return {valid, parser.terrainCoordinateSystem(), parser.terrainCoordinateSystemParameters(),
            patches.size() == 1 ? patches.front().terrainPatchDefinitionRecord().filename() : ""};
}

Answer toolkit(const std::string& path) {
    DtTerrainToolkitHeaderParser parser(path);
    return ask(parser);
}

const std::vector<TestFeature> onePoint = {{"POINT (580000 4480000)", {}, {}, {}}};

}  // namespace

TEST(TerrainToolkitHeaderParser, eachKindInTheHostsWords) {
    TempDir dir;
    const int notifyLevel = DtNotifyLevel = 3;
    ASSERT_TRUE(writeDted(dir.file("N40_W075.DT1"), 40, -75, [](int, int) { return 0; }));
    const Answer dted = toolkit(dir.file("N40_W075.DT1"));
    EXPECT_TRUE(dted.valid);
    EXPECT_EQ(dted.type, "Flat Earth");  // capital extension: still a DTED cell
    EXPECT_EQ(dted.parameters, "40.5,-74.5");
    EXPECT_EQ(dted.patch, dir.file("N40_W075.DT1"));
    EXPECT_NO_THROW(DtCoordinateSystem(dted.type, dted.parameters));

    ASSERT_TRUE(writeVector(dir.file("utm.shp"), srsFromEpsg(32618).get(), onePoint));
    const Answer utm = toolkit(dir.file("utm.shp"));
    EXPECT_EQ(utm.type, DtCoordinateConverter::UTM);
    const DtCoordinateSystem rebuilt(utm.type, utm.parameters);
    ASSERT_NE(rebuilt.utmConverter(), nullptr);
    EXPECT_EQ(rebuilt.utmConverter()->effectiveZone(), 18);
    EXPECT_EQ(rebuilt.utmConverter()->hemisphere(), 'N');

    ASSERT_TRUE(writeVector(dir.file("lcc.shp"), srsFromEpsg(2264).get(), onePoint));
    const Answer lcc = toolkit(dir.file("lcc.shp"));
    EXPECT_EQ(lcc.type, DtCoordinateConverter::Lambert);
    const DtCoordinateSystem lambert(lcc.type, lcc.parameters);
    EXPECT_NEAR(lambert.lambertConverter()->originLatitude(), 33.75, 1e-9);
    EXPECT_NEAR(lambert.lambertConverter()->originLongitude(), -79.0, 1e-9);
    EXPECT_NEAR(lambert.lambertConverter()->parallel1(), 36.1666666666667, 1e-9);
    EXPECT_NEAR(lambert.lambertConverter()->parallel2(), 34.3333333333333, 1e-9);

    ASSERT_TRUE(
        writeVector(dir.file("geo.shp"), srsFromEpsg(4326).get(), {{"POINT (1 2)", {}, {}, {}}}));
    const Answer geographic = toolkit(dir.file("geo.shp"));
    EXPECT_TRUE(geographic.valid);
    EXPECT_EQ(geographic.type, "Geographic");
    EXPECT_EQ(geographic.parameters, "");

    ASSERT_TRUE(
        writeVector(dir.file("plate.shp"), srsFromEpsg(4087).get(), {{"POINT (1 2)", {}, {}, {}}}));
    EXPECT_EQ(toolkit(dir.file("plate.shp")).type, DtCoordinateConverter::FlatEarth);

    ASSERT_TRUE(writeVector(dir.file("bare.shp"), nullptr, {{"POINT (1 2)", {}, {}, {}}}));
    const Answer bare = toolkit(dir.file("bare.shp"));
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
    const Answer answer = ask(found);
    EXPECT_TRUE(answer.valid);
    EXPECT_EQ(answer.type, DtCoordinateConverter::UTM);
    EXPECT_EQ(answer.patch, "../data/terrain/t.shp");
    EXPECT_EQ(found.filePath(), "../data/terrain/t.shp");

    // No parser for the named file: the toolkit parser asks the loader about it.
    ASSERT_TRUE(writeVector(dir.file("data/terrain/u.json"), srsFromEpsg(32618).get(), onePoint,
                            "GeoJSON"));
    Project fallback(de, metafile(dir, "project/q.tproj", "u.json"));
    const Answer fell = ask(fallback);
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
    const Answer answer = ask(relative);
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
