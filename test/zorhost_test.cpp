// zorhost as a person meets it: the real binary, its output, its exit status.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Inspect.h"
#include "InspectCommand.h"
#include "TempDir.h"
#include "ZorhostRun.h"
#include "hxutil/DtException.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrain.h"
#include "zorUtil/templateUtil.h"

TEST(Zorhost, inspectsTheSampleSetByDefault) {
    const ZorhostRun run = zorhost("inspect --json");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    for (const char* expected :
         {"\"parser\":\"DtOpenFlightHeaderParser\"", "\"coordinateSystem\":\"FlatEarth\"",
          "\"coordinateSystem\":\"Lambert\"", "\"coordinateSystem\":\"Geocentric\"",
          "\"parser\":\"DtGeoTiffHeaderParser\"", "\"schema\":\"Terrain\"",
          "\"parser\":\"DtMetaFlightHeaderParser\"", "\"parser\":\"DtSorrelKslHeaderParser\"",
          "\"filename\":\"data/sample/geocentric.flt\"", "\"parser\":\"DtWktHeaderParser\"",
          // the terrain database loader's files, a metafile and a project
          "\"coordinateSystem\":\"Flat Earth\",\"parameters\":\"45.5,9.5\"",
          "valley.gdb\",\"parser\":\"DtTerrainToolkitHeaderParser\"",
          "valley_points.shp\",\"parser\":\"DtTerrainToolkitHeaderParser\"",
          "\"parser\":\"DtMetaFileHeaderParser\"", "\"filename\":\"../data/terrain/n45_e009.dt0\"",
          "\"parser\":\"DtTerrainProjectHeaderParser\""}) {
        EXPECT_NE(run.out.find(expected), std::string::npos) << expected;
    }
    EXPECT_EQ(run.out.front(), '[');
}

TEST(Zorhost, eachProblemIsOneLineNamingThePath) {
    TempDir dir;
    const std::string good = std::string(ZOR_SAMPLE_DIR) + "/utm_zone32n.flt";
    const std::string unknown = dir.write("model.xyz", "x");
    const std::string noExtension = dir.write("README", "x");
    const std::string missing = dir.file("gone.flt");
    const std::string folder = dir.file("folder.flt");
    mkdir(folder.c_str(), 0755);
    const std::string shortFile = dir.write("short.flt", "tiny");

    const ZorhostRun run =
        zorhost("inspect --json '" + good + "' '" + unknown + "' '" + noExtension + "' '" +
                missing + "' '" + folder + "' '" + shortFile + "'");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(countLines(run.err), 5u) << run.err;
    for (const std::string& expected :
         {unknown + ": no parser is registered for the extension \"xyz\"",
          noExtension + ": has no extension", missing + ": no such file",
          folder + ": is a directory", shortFile + ": DtOpenFlightHeaderParser does not accept"}) {
        EXPECT_NE(run.err.find(expected), std::string::npos) << expected;
    }
    EXPECT_NE(run.out.find("\"parser\":null"), std::string::npos);
    EXPECT_NE(run.out.find("\"valid\":true"), std::string::npos);
}

TEST(Zorhost, aParserAskedByItsName) {
    const std::string dted = std::string(ZOR_SAMPLE_DIR) + "/data/terrain/n45_e009.dt0";
    const ZorhostRun run = zorhost("inspect --parser DtTerrainToolkitHeaderParser '" + dted + "'");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("coordinate system: FlatEarth (the parser's text: \"Flat Earth\")"),
              std::string::npos)
        << run.out;
}

TEST(Zorhost, usageAndPluginProblems) {
    EXPECT_EQ(zorhost("").status, 2);
    EXPECT_EQ(zorhost("inspect --bogus").status, 2);
    EXPECT_EQ(zorhost("inspect --plugin").status, 2);
    const ZorhostRun help = zorhost("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* word : {"inspect", "--plugin", "ZORTERRAIN_PLUGIN", "parsers", "publish"}) {
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    }
    const ZorhostRun commandHelp = zorhost("tiles --help");
    EXPECT_EQ(commandHelp.status, 0);
    for (const char* word : {"--dataset", "--level", "--json"})
        EXPECT_NE(commandHelp.out.find(word), std::string::npos) << word;
    const ZorhostRun missingOption = zorhost("tiles doc.mft");
    EXPECT_EQ(missingOption.status, 2);
    EXPECT_NE(missingOption.err.find("--dataset is required"), std::string::npos)
        << missingOption.err;
    const ZorhostRun badPlugin = zorhost("--plugin /nonexistent/lib.so inspect");
    EXPECT_EQ(badPlugin.status, 1);
    EXPECT_NE(badPlugin.err.find("/nonexistent/lib.so"), std::string::npos);

    const ZorhostRun parsers = zorhost("parsers");
    EXPECT_EQ(parsers.status, 0);
    EXPECT_NE(parsers.out.find("DtOpenFlightHeaderParser: flt"), std::string::npos);
}

// zorhost knows the plug-in only through the library it is told to load: with a copy
// elsewhere, that copy alone is loaded, for the parser road and the MetaFlight module.
TEST(Zorhost, loadsThePluginItNamesAndNoOther) {
    TempDir dir;
    const std::string copy = dir.file("libzorTerrain.so");
    std::filesystem::copy_file(ZOR_PLUGIN_PATH, copy);
    for (const std::string& command :
         {std::string("inspect '") + ZOR_SAMPLE_DIR + "/utm_zone32n.flt'",
          std::string("describe '") + ZOR_SAMPLE_DIR + "/zone33_quad.mft'"}) {
        SCOPED_TRACE(command);
        const ZorhostRun run = zorhost("--plugin '" + copy + "' " + command, "LD_DEBUG=files");
        EXPECT_EQ(run.status, 0);
        std::istringstream lines(run.err);
        std::vector<std::string> loaded;
        for (std::string line; std::getline(lines, line);) {
            if (line.find("calling init:") != std::string::npos &&
                line.find("libzorTerrain") != std::string::npos) {
                loaded.push_back(line.substr(line.find('/')));
            }
        }
        ASSERT_EQ(loaded.size(), 1u) << run.err.substr(0, 2000);
        EXPECT_EQ(loaded[0], copy);
    }
}

namespace {
class ThrowingParser : public kelZor::DtHeaderParser {
public:
    using DtHeaderParser::DtHeaderParser;
    bool isValid() override { ZOR_THROW_CORRUPTED_STATE("Unsupported Database Coordinate System"); }
};
class ThrowingCreator : public kelZor::DtHeaderParserCreator {
public:
    kelZor::DtHeaderParser* create(kelZor::DtDe&, const std::string& path) const override {
        return new ThrowingParser(path);
    }
};
}  // namespace

TEST(Zorhost, anExceptionThroughIsValidBecomesAProblem) {
    TempDir dir;
    kelZor::DtDe de;
    kelZor::zorTerrain::init(de);
    auto& factory = kelZor::DtHeaderParserFactory::instance(de);
    factory.registerCreator("ThrowingParser", new ThrowingCreator);
    factory.registerExtension("boom", "ThrowingParser");
    std::ostringstream out, err;
    const int status = runInspect(de, {dir.write("a.boom", "x")}, false, out, err);
    EXPECT_EQ(status, 1);
    EXPECT_NE(err.str().find("ThrowingParser threw: DtCorruptedState: Unsupported Database "
                             "Coordinate System"),
              std::string::npos)
        << err.str();
    EXPECT_NE(out.str().find("valid:             no"), std::string::npos);
}

namespace {
const std::string quad = std::string(ZOR_SAMPLE_DIR) + "/zone33_quad.mft";
const std::string valley = std::string(ZOR_SAMPLE_DIR) + "/metaflight/alpine_valley.mft";
}  // namespace

TEST(ZorhostMetaFlight, describeShowsDatasetsAndLevels) {
    const ZorhostRun text = zorhost("describe '" + valley + "'");
    EXPECT_EQ(text.status, 0) << text.err;
    for (const char* expected :
         {"geometry datasets: 2", "DatasetName:        valley",
          "grid system:        UTM32N (UTM zone 32 N)", "data system:        Geodetic (GEODETIC)",
          "3: L3  divisions 4x4  columns 32  rows 32  FILE_GEOM", "virtual texture datasets: 1",
          "tile texels:        256", "2: T2  divisions 2x2  columns 4  rows 4"}) {
        EXPECT_NE(text.out.find(expected), std::string::npos) << expected;
    }
    const ZorhostRun json = zorhost("describe --json '" + quad + "'");
    EXPECT_EQ(json.status, 0);
    for (const char* expected :
         {"\"key\":\"Terrain\"", "\"switchIn\":1000", "\"switchOut\":8000", "\"columns\":8",
          "\"rows\":4", "\"hierarchyType\":\"SUBSTITUTIVE\""}) {
        EXPECT_NE(json.out.find(expected), std::string::npos) << expected;
    }
}

TEST(ZorhostMetaFlight, tilesStreamOneRecordPerTile) {
    const ZorhostRun all = zorhost("tiles '" + quad + "' --dataset Terrain");
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_EQ(countLines(all.out), 1u + 8u + 32u);  // header, 4 x 2, then 8 x 4
    const ZorhostRun one = zorhost("tiles '" + quad + "' --dataset Terrain --level 1 --json");
    EXPECT_EQ(one.status, 0);
    EXPECT_NE(one.out.find("{\"level\":1,\"row\":3,\"col\":7,\"center\":[537500.0,5017500.0,"
                           "0.0],\"offset\":[537500.0,5017500.0,0.0],\"path\":\"" +
                           std::string(ZOR_SAMPLE_DIR) + "/Terrain/L1/tile_003_007.medf\"}"),
              std::string::npos)
        << one.out.substr(0, 300);
    EXPECT_EQ(zorhost("tiles '" + quad + "'").status, 2);
}

TEST(ZorhostMetaFlight, convertTakesAndGivesDegrees) {
    // GeoConvert -u: 46.5 11.25 is 32n 672644.4824 5152062.9029.
    const ZorhostRun run =
        zorhost("convert '" + valley + "' --from Geodetic --to UTM32N 46.5 11.25 1000");
    ASSERT_EQ(run.status, 0) << run.err;
    double x = 0, y = 0, z = 0;
    ASSERT_EQ(std::sscanf(run.out.c_str(), "%lf %lf %lf", &x, &y, &z), 3);
    EXPECT_NEAR(x, 672644.4824, 1e-3);
    EXPECT_NEAR(y, 5152062.9029, 1e-3);
    EXPECT_NEAR(z, 1000.0, 1e-6);
    const ZorhostRun back = zorhost(
        "convert '" + valley + "' --from UTM32N --to Geodetic -- 672644.4824 5152062.9029 1000");
    ASSERT_EQ(back.status, 0) << back.err;
    ASSERT_EQ(std::sscanf(back.out.c_str(), "%lf %lf %lf", &x, &y, &z), 3);
    EXPECT_NEAR(x, 46.5, 1e-8);
    EXPECT_NEAR(y, 11.25, 1e-8);

    EXPECT_EQ(zorhost("convert '" + valley + "' --from Nope --to UTM32N 1 2 3").status, 1);
    EXPECT_EQ(zorhost("convert '" + valley + "' --from Geodetic --to UTM32N 1 2").status, 2);
    EXPECT_EQ(zorhost("convert '" + valley + "' --from Geodetic --to UTM32N 1 2 x").status, 2);
}

TEST(ZorhostMetaFlight, publishSaysWhatChanged) {
    TempDir dir;
    const std::string out = dir.file("out.mft");
    const ZorhostRun run = zorhost("publish '" + valley + "' '" + out +
                                   "' --medf --remove-virtual-texture --switch-distance 99000");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(
        run.out.find(
            "1 virtual texture removed; 1 switch distance set to 99000; file format set to medf"),
        std::string::npos)
        << run.out;
    EXPECT_NE(zorhost("describe '" + out + "'").out.find("switch in 24000 out 99000"),
              std::string::npos);

    const std::string broken =
        dir.write("broken.mft", "<Root><Database><GeometryGridDataset/></Database></Root>");
    const ZorhostRun failed =
        zorhost("publish '" + broken + "' '" + out + "' --switch-distance 1 --overwrite");
    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.err.find("Invalid GeometryGridDataset: missing HierarchyType"),
              std::string::npos);
    EXPECT_EQ(zorhost("publish '" + valley + "' '" + dir.file("none/x.mft") + "'").status, 1);
    EXPECT_EQ(zorhost("publish '" + valley + "'").status, 2);
    EXPECT_EQ(zorhost("publish '" + valley + "' '" + out + "' --switch-distance far").status, 2);
}
