// zorhost under hostile input, each limit at the limit and past it: rules nested too
// deep, a KSL description that would grow without end, MetaFlight divisions whose
// products wrap, a file name with control characters. The answer is the one the README
// gives (status 2 or 1 and one line), never a crash, an exhausted machine or a wrong
// answer with status 0.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <fstream>
#include <string>

#include "ZorhostRun.h"

namespace {

const std::string sample = std::string(ZOR_SAMPLE_DIR) + "/";

// A rules file whose one rule's fields hold values nested `depth` deep in all (the file's
// own object is 1).
std::string nestedRules(int depth) {
    // file 1, rules 2, the rule 3, fields 4, then "a" objects down to `depth`.
    std::string open, close;
    for (int level = 5; level <= depth; ++level) {
        open += "{\"a\":";
        close += "}";
    }
    return "{\"rules\":[{\"model\":\"m\",\"propType\":\"p\",\"fields\":{\"f\":" + open + "\"v\"" +
           close + "}}]}";
}

// zorhost run by fork and exec, with its peak memory.
struct Measured {
    int status;
    long peakKilobytes;
    std::string err;
};

Measured measured(const std::string& arguments) {
    TempDir dir;
    const std::string command = std::string("cd '") + ZOR_SOURCE_DIR + "' && exec '" +
                                ZORHOST_PATH + "' " + arguments + " >/dev/null 2>'" +
                                dir.file("err") + "'";
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int raw = 0;
    rusage usage{};
    wait4(child, &raw, 0, &usage);
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, usage.ru_maxrss, slurp(dir.file("err"))};
}

// One MetaFlight document of one dataset whose levels have these divisions.
std::string documentWith(const TempDir& dir, const std::vector<std::string>& divisions) {
    std::string grid, levels;
    for (size_t i = 0; i < divisions.size(); ++i) {
        grid += "<GridLevel><LevelName>L" + std::to_string(i) + "</LevelName><NumColDivisions>" +
                divisions[i] + "</NumColDivisions><NumRowDivisions>2</NumRowDivisions></GridLevel>";
        levels +=
            "<GeometryGridLevel><TileType>FILE_LOD_GEOM</TileType><LocalizedType>LOCALIZED"
            "</LocalizedType><SwitchOut_DistanceUsed refTo=\"D\"/><SwitchIn_DistanceUsed "
            "refTo=\"D\"/></GeometryGridLevel>";
    }
    return dir.write(
        "grid.mft",
        "<MetaFlightRoot><Database name=\"X\"><Ellipsoid name=\"WGS84\"><SemiMajorRadius>6378137"
        "</SemiMajorRadius><SemiMinorRadius>6356752.3</SemiMinorRadius></Ellipsoid>"
        "<ProjectedCoordSys name=\"Z\"><UnitsCategory>LINEAR_DISTANCE</UnitsCategory>"
        "<HorizontalDatumUsed refTo=\"Ellipsoid:WGS84\"/><UTM><Zone>32</Zone><Hemisphere>NORTH"
        "</Hemisphere></UTM></ProjectedCoordSys><GridStructure name=\"G\">" +
            grid +
            "</GridStructure><Coverage name=\"C\"><CoordSysUsed refTo=\"Z\"/><Origin><X>500000</X>"
            "<Y>5000000</Y></Origin><Extent><X>1000</X><Y>1000</Y></Extent></Coverage>"
            "<SwitchDistanceTable name=\"T\"><SwitchDistance name=\"D\"><Value>100</Value>"
            "</SwitchDistance></SwitchDistanceTable><GeometryGridDataset name=\"Terrain\">"
            "<DatasetName>Terrain</DatasetName><HierarchyType>SUBSTITUTIVE</HierarchyType>"
            "<CoordSysUsed refTo=\"Z\"/><SwitchDistanceTableUsed refTo=\"T\"/><GridStack>"
            "<GridStructureUsed refTo=\"G\"/><CoverageUsed refTo=\"C\"/><FileNamePattern>"
            "t_$(ROW)_$(COL).flt</FileNamePattern></GridStack>" +
            levels + "</GeometryGridDataset></Database></MetaFlightRoot>");
}

}  // namespace

// Rules nested to the limit are read (and refused for what they hold, not their depth);
// one level more is refused with the path to it; 100,000 levels the same, not a crash.
TEST(ZorhostBounds, rulesNestedTooDeepAreRefusedWhileRead) {
    TempDir dir;
    const std::string points = sample + "valley_points.shp";
    const std::string at = dir.write("at.json", nestedRules(64));
    const ZorhostRun atLimit = zorhost("props " + points + " --rules " + at);
    EXPECT_EQ(atLimit.status, 2);
    EXPECT_EQ(atLimit.err.find("nested deeper"), std::string::npos) << atLimit.err;
    EXPECT_NE(atLimit.err.find("rules[0].fields.f: must be a text"), std::string::npos)
        << atLimit.err;

    for (int depth : {65, 100000}) {
        SCOPED_TRACE(depth);
        const std::string past = dir.write("past.json", nestedRules(depth));
        for (const std::string& command :
             {"props " + points + " --rules " + past,
              "map " + dir.file("m.png") + " --props " + points + " --rules " + past}) {
            const ZorhostRun run = zorhost(command);
            EXPECT_EQ(run.status, 2) << run.err;
            EXPECT_NE(run.err.find(past + ": rules[0].fields.f.a.a"), std::string::npos) << run.err;
            EXPECT_NE(run.err.find(": nested deeper than 64 levels"), std::string::npos) << run.err;
            EXPECT_EQ(countLines(run.err), 1u) << run.err;
        }
    }
}

// A KSL description that doubles a string over and over, or lists ten million items,
// ends with the budget's line, in far less memory than it asks for; a string and a list
// at their limits are read.
TEST(ZorhostBounds, aKslEvaluationStaysWithinItsBudget) {
    TempDir dir;
    std::string bomb = "(setq a \"0123456789\")\n";
    for (int i = 0; i < 12; ++i)
        bomb += "(setq a (strcat a a a a a a a a a a))\n";
    std::string longList = "(setq a (list";
    for (int i = 0; i < 10000000; ++i)
        longList += " 1";
    longList += "))\n";
    const std::pair<std::string, std::string> cases[] = {
        {dir.write("bomb.ksl", bomb), "a string longer than 16 MB (the limit of one string)"},
        {dir.write("long.ksl", longList),
         "a list longer than 262144 items (the limit of one list)"},
    };
    for (const auto& [file, limit] : cases) {
        SCOPED_TRACE(file);
        const Measured run = measured("inspect " + file);
        EXPECT_EQ(run.status, 1) << run.err;
        EXPECT_NE(run.err.find(file), std::string::npos) << run.err;
        EXPECT_NE(run.err.find(limit), std::string::npos) << run.err;
#ifndef ZOR_SANITIZED
        EXPECT_LT(run.peakKilobytes, 512L * 1024) << "peak " << run.peakKilobytes << " kB";
#endif
    }

    // At the limits: a string of exactly 16 MB and a list of exactly 262144 items.
    const std::string megabyte(1 << 20, 'x');
    std::string atLimit = "(setq m \"" + megabyte + "\")\n(setq s (strcat";
    for (int i = 0; i < 16; ++i)
        atLimit += " m";
    atLimit += "))\n(setq l (list";
    for (int i = 0; i < (1 << 18); ++i)
        atLimit += " 1";
    atLimit += "))\n";
    const ZorhostRun fits = zorhost("inspect " + dir.write("fits.ksl", atLimit));
    EXPECT_EQ(fits.err.find("the limit of"), std::string::npos) << fits.err;
    // One byte more each.
    const ZorhostRun string = zorhost(
        "inspect " + dir.write("string.ksl", "(setq m \"" + megabyte +
                                                 "\")\n(setq s (strcat m m m m m m m m m m m m "
                                                 "m m m m \"x\"))\n"));
    EXPECT_NE(string.err.find("string.ksl:2: a string longer than 16 MB"), std::string::npos)
        << string.err;
    const ZorhostRun list = zorhost(
        "inspect " + dir.write("list.ksl", atLimit.substr(0, atLimit.size() - 3) + " 1))\n"));
    EXPECT_NE(list.err.find("a list longer than 262144 items"), std::string::npos) << list.err;

    // Strings each within their limit that add up past what one evaluation may make.
    std::string many = "(setq m \"" + megabyte + "\")\n";
    for (int i = 0; i < 20; ++i)
        many += "(setq s" + std::to_string(i) + " (strcat m m m m m m m m m m m m m m m m))\n";
    const ZorhostRun budget = zorhost("inspect " + dir.write("many.ksl", many));
    EXPECT_NE(budget.err.find("the evaluation takes more than 256 MB (the limit of one "
                              "evaluation)"),
              std::string::npos)
        << budget.err;
}

// Divisions whose product reaches 2^31 (65536 on two levels wraps to 0 in 32 bits; "-2"
// is read as 4294967294) or is 0 are refused, naming the level and the value as read;
// 2^31 - 1 columns are still a grid.
TEST(ZorhostBounds, divisionsThatWrapAreRefused) {
    TempDir dir;
    const std::pair<std::vector<std::string>, std::string> refused[] = {
        {{"65536", "65536"},
         "dataset \"Terrain\" level 1: 65536 x 2 divisions (as read) make 4294967296 columns"},
        {{"-2"}, "dataset \"Terrain\" level 0: 4294967294 x 2 divisions (as read)"},
        {{"2", "0"}, "level 1: 0 x 2 divisions (as read): a level divides each tile"},
        {{"2147483648"}, "2147483648 columns and 2 rows: 2^31 or more"},
    };
    for (const auto& [divisions, said] : refused) {
        SCOPED_TRACE(said);
        const std::string doc = documentWith(dir, divisions);
        for (const std::string& command :
             {"describe " + doc, "describe --json " + doc, "tiles " + doc + " --dataset Terrain",
              "check " + doc,
              "map " + dir.file("m.png") + " --tiles " + doc + " --dataset Terrain --level 0"}) {
            const ZorhostRun run = zorhost(command);
            EXPECT_EQ(run.status, 1) << command << "\n" << run.out << run.err;
            EXPECT_NE(run.err.find(said), std::string::npos) << command << "\n" << run.err;
        }
    }
    const ZorhostRun edge = zorhost("describe " + documentWith(dir, {"2147483647"}));
    EXPECT_EQ(edge.status, 0) << edge.err;
    EXPECT_NE(edge.out.find("columns 2147483647  rows 2"), std::string::npos) << edge.out;
}

// A file name with a line end or a tab in it is said on one line, escaped.
TEST(ZorhostBounds, controlCharactersInNamesAreEscaped) {
    TempDir dir;
    const std::string name = dir.path() + "/two\nlines\t.shp";
    const ZorhostRun missing = zorhost("features '" + name + "'");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(countLines(missing.err), 1u) << missing.err;
    EXPECT_NE(missing.err.find("two\\nlines\\t.shp"), std::string::npos) << missing.err;

    // GDAL's own message of several lines (a VRT that refers to itself) is one line.
    const std::string vrt = dir.write(
        "self.vrt",
        "<VRTDataset rasterXSize=\"2\" rasterYSize=\"2\"><VRTRasterBand dataType=\"Byte\" "
        "band=\"1\"><SimpleSource><SourceFilename relativeToVRT=\"1\">self.vrt</SourceFilename>"
        "<SourceBand>1</SourceBand></SimpleSource></VRTRasterBand></VRTDataset>");
    const ZorhostRun self = zorhost("map " + dir.file("m.png") + " --terrain " + vrt);
    EXPECT_EQ(self.status, 1) << self.err;
    EXPECT_EQ(countLines(self.err), 1u) << self.err;
}

// A CSV of points read without its coordinate columns accounts for its objects (none
// made: status 1); with the driver's open options it gives its points.
TEST(ZorhostBounds, objectsWithoutGeometryAreCountedAndOpenOptionsReadThem) {
    TempDir dir;
    const std::string csv =
        dir.write("pts.csv", "id,lon,lat,ECC\n1,9.0,45.5,AL015\n2,9.1,45.6,AL015\n");
    const ZorhostRun plain = zorhost("features " + csv + " --json");
    EXPECT_EQ(plain.status, 1) << plain.err;
    EXPECT_NE(plain.err.find("2 objects read, 0 features made; 2 objects made none: 2 without a "
                             "geometry"),
              std::string::npos)
        << plain.err;
    const ZorhostRun read = zorhost("features " + csv +
                                    " --oo X_POSSIBLE_NAMES=lon --oo Y_POSSIBLE_NAMES=lat --srs "
                                    "EPSG:4326");
    EXPECT_EQ(read.status, 0) << read.err;
    EXPECT_NE(read.out.find("features: 2 point"), std::string::npos) << read.out;
    const ZorhostRun bad = zorhost("features " + csv + " --oo lon");
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("--oo lon: an open option is NAME=VALUE"), std::string::npos) << bad.err;
}
