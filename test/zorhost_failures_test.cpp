// zorhost's failure modes, one row each: the command, the exit status, a phrase stderr
// must hold, and the files that must be as they were afterwards (inputs, and an output
// that existed before). No row may abort, print GDAL's raw messages or lose a file.
// The rows hold every case of the README's exit status table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "TempDir.h"
#include "VectorFiles.h"
#include "ZorhostRun.h"

namespace fs = std::filesystem;

namespace {

// Every file under `path` (or the file itself) with its bytes.
std::map<std::string, std::string> contentsOf(const std::string& path) {
    std::map<std::string, std::string> contents;
    std::error_code error;
    if (fs::is_directory(path, error)) {
        for (const auto& entry : fs::recursive_directory_iterator(path, error))
            if (entry.is_regular_file())
                contents[entry.path().string()] = slurp(entry.path().string());
        contents[path] = "(directory)";
    } else if (fs::exists(path, error)) {
        contents[path] = slurp(path);
    }
    return contents;
}

struct Row {
    std::string command;
    int status;
    std::string phrase;
    std::vector<std::string> unchanged;
};

}  // namespace

TEST(ZorhostFailures, eachFailureIsOneClearLineAndLosesNothing) {
    TempDir dir;
    const std::string sample = std::string(ZOR_SOURCE_DIR) + "/data/sample/";
    for (const char* part : {".shp", ".shx", ".dbf", ".prj"})
        fs::copy_file(sample + "valley_points" + part, dir.file(std::string("pts") + part));
    fs::copy(sample + "valley.gdb", dir.file("set.gdb"), fs::copy_options::recursive);
    fs::copy_file(sample + "zone33_quad.mft", dir.file("quad.mft"));
    fs::copy_file(sample + "valley_props.json", dir.file("rules.json"));
    fs::create_directory(dir.file("empty"));
    dir.write("old.geojson", "{\"keep\": true}\n");
    dir.write("keep.pgw", "1\n0\n0\n-1\n0\n0\n");
    dir.write("junk.flt", "not a model\n");
    dir.write("junkmodel.json", R"({"models": {"oak": "junk.flt"},
        "rules": [{"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree"}]})");
    const std::string dem = sample + "n45_e009.dt0";
    // An OpenFlight file with its header and nothing under it.
    fs::copy_file(sample + "utm_zone32n.flt", dir.file("header.flt"));
    dir.write("headeronly.json", R"({"models": {"oak": "header.flt"},
        "rules": [{"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree"}]})");
    dir.write("bare.geojson", R"({"type": "FeatureCollection", "features": []})");
    ASSERT_TRUE(fs::copy_file(sample + "valley_points.shp", dir.file("noprj.shp")));
    fs::copy_file(sample + "valley_points.shx", dir.file("noprj.shx"));
    fs::copy_file(sample + "valley_points.dbf", dir.file("noprj.dbf"));
    fs::create_symlink(dir.file("pts.dbf"), dir.file("link.geojson"));
    fs::create_symlink(dir.file("pts.dbf"), dir.file("link.png"));
    // Points without any code field, far from any DEM: nothing the engine makes features
    // or props of, and nothing the sample cell holds up.
    dir.write("nocode.geojson", R"({"type": "FeatureCollection", "features": [
        {"type": "Feature", "properties": {"NAME": "a"},
         "geometry": {"type": "Point", "coordinates": [12.5, 41.9]}}]})");
    ASSERT_TRUE(writeVector(dir.file("far.shp"), srsFromEpsg(4326).get(),
                            {{"POINT (12.5 41.9)", {{"ECC", "EC030"}}, {}, {}}}));
    dir.write("noramp.txt", "# a ramp without a colour\n");
    dir.write("oak.json", R"({"models": {"oak": "oak.flt"}, "rules": [
        {"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree"}]})");
    dir.write("elm.json", R"({"models": {}, "rules": [
        {"fields": {"ECC": "AL015"}, "model": "elm", "propType": "house"}]})");

    const std::string pts = dir.file("pts.shp");
    const std::vector<std::string> shapefile = {pts, dir.file("pts.dbf"), dir.file("pts.shx"),
                                                dir.file("pts.prj")};
    const std::string rules = " --rules " + dir.file("rules.json");
    const std::string quad = dir.file("quad.mft");
    const std::vector<Row> rows = {
        // Outputs: never an input, a directory, or an existing file unasked.
        {"features " + pts + " --geojson " + pts, 2, "names another format", shapefile},
        {"features " + pts + " --geojson " + dir.file("PTS.DBF") + " --overwrite", 2,
         "\".DBF\" names another format (ESRI Shapefile)", shapefile},
        {"features " + pts + " --geojson " + dir.file("link.geojson") + " --overwrite", 1,
         "is one of the inputs", shapefile},
        {"features " + dir.file("set.gdb") + " --geojson " + dir.file("set.gdb/x.geojson"),
         1,
         "is one of the inputs",
         {dir.file("set.gdb")}},
        {"features " + pts + " --geojson " + dir.file("empty") + " --overwrite",
         1,
         "empty: is a directory",
         {dir.file("empty")}},
        {"features " + pts + " --geojson " + dir.file("old.geojson"),
         1,
         "exists; give --overwrite to replace it",
         {dir.file("old.geojson")}},
        {"features " + pts + " --geojson /nonexistent/x.geojson",
         1,
         "/nonexistent/x.geojson: cannot be written: there is no directory /nonexistent",
         {}},
        {"props " + pts + rules + " --geojson " + dir.file("rules.json") + " --overwrite",
         1,
         "is one of the inputs",
         {dir.file("rules.json")}},
        {"publish " + quad + " " + dir.file("empty"),
         1,
         "empty: is a directory",
         {quad, dir.file("empty")}},
        {"publish " + quad + " " + quad, 1, "exists; give --overwrite to replace it", {quad}},
        {"publish " + quad + " " + dir.file("old.geojson"),
         1,
         "exists; give --overwrite",
         {dir.file("old.geojson")}},
        {"publish " + dir.file("missing.mft") + " " + dir.file("new.mft"),
         1,
         "missing.mft: no such file",
         {}},
        {"map " + dir.file("keep.png") + " --features " + pts,
         1,
         "goes with " + dir.file("keep.pgw") + ", which exists; give --overwrite",
         {dir.file("keep.pgw")}},
        {"map " + dir.file("link.png") + " --features " + pts + " --overwrite", 1,
         "is one of the inputs", shapefile},
        {"map " + dir.file("pts.dbf") + " --features " + pts + " --overwrite", 2,
         "give a .png or a .tif (.tiff) picture; \".dbf\" is neither", shapefile},
        {"tiles " + quad + " --dataset Terrain --geojson " + quad + " --overwrite",
         1,
         "is one of the inputs",
         {quad}},
        // Files that cannot be answered say why.
        {"features " + dir.file("missing"), 1, "missing: no such file", {}},
        {"features " + sample + "n45_e009.dt0", 1, "it holds no vector features", {}},
        {"features " + dir.file("noprj.shp"), 1, "has no coordinate system", {}},
        {"features " + dir.file("bare.geojson") + " --scene UTM:0,15,33,33,S,1e300,1e300,0,1,0",
         1,
         "false origin",
         {}},
        {"values " + dir.file("missing.shp"), 1, "missing.shp: no such file", {}},
        {"inspect " + dir.file("noprj.shp"), 1, "no layer with a coordinate system", {}},
        // Files with objects that gave nothing; props not placed; engine errors.
        {"features " + dir.file("nocode.geojson"), 1, "without a feature-code field", {}},
        {"props " + dir.file("far.shp") + " --rules " + dir.file("oak.json") + " --terrain " +
             sample + "n45_e009.dt0 --scene EPSG:32633",
         1,
         "1 prop not placed: no --terrain source lies below or above",
         {}},
        {"props " + pts + " --rules " + dir.file("elm.json"),
         1,
         "pts.shp: engine error 8: model definition \"elm\" does not exist",
         {}},
        {"map " + dir.file("m.png") + " --features " + dir.file("nocode.geojson"),
         1,
         "nothing to draw: the inputs hold nothing the scene can place",
         {}},
        {"map " + dir.file("m.png") + " --features " + pts + " --ramp " + dir.file("noramp.txt"),
         1,
         "noramp.txt: No color association found",
         {}},
        {"check " + quad, 1, "quad.mft: incomplete: tiles 40 missing", {}},
        {"check " + quad + " --dataset Nope",
         1,
         "no dataset \"Nope\"; the document has Terrain",
         {}},
        {"describe " + dir.file("missing.mft"), 1, "missing.mft: no such file", {}},
        {"describe " + dir.file("empty"), 1, "is a directory", {}},
        {"tiles " + quad + " --dataset Nope",
         1,
         "no geometry dataset \"Nope\"; its geometry datasets are Terrain",
         {}},
        {"tiles " + quad + " --dataset Terrain --level 5",
         1,
         "level 5 is out of range: dataset \"Terrain\" has 2 levels (0 to 1)",
         {}},
        {"props " + pts + rules + " --terrain /nope.dt0", 1, "/nope.dt0: no such file", {}},
        {"props " + dir.file("nope.shp") + rules, 1, "nope.shp: no such file", {}},
        {"map " + dir.file("m.png") + " --terrain " + dir.file("rules.json"),
         1,
         "rules.json: is not a raster GDAL can read",
         {dir.file("rules.json")}},
        {"map " + dir.file("m.png") + " --tiles " + quad + " --dataset Nope",
         1,
         "no geometry dataset \"Nope\"",
         {}},
        // Bad usage.
        {"tiles " + quad + " --dataset Terrain --level -1", 2, "levels are counted from 0", {}},
        {"convert " + sample + "metaflight/alpine_valley.mft --from Geodetic --to UTM32N 95 9 0",
         2,
         "latitude 95 is out of range",
         {}},
        {"bogus", 2, "unknown command bogus; the commands are inspect, parsers", {}},
        {"inspect --parser Nope " + pts, 2, "no parser is registered under the name Nope", {}},
        {"features " + pts + " --scene Bogus:1", 2, "--scene Bogus:1", {}},
        {"features " + pts + " --scene FlatEarth:95,9", 2, "is no latitude and longitude", {}},
        {"features " + pts + " --scene UTM:10,15,-33,33,N,0,0,0,0,0",
         2,
         "zone -33 is a southern zone, but the hemisphere is N",
         {}},
        {"features " + pts + " --scene Lambert:45,9,30,-30", 2, "make no cone", {}},
        {"features " + pts + " --scene EPSG:3857", 2, "no kind the engine has", {}},
        {"features " + pts + " --code foo", 2, "two letters followed by digits", {}},
        {"features " + pts + " --srs NOPE:1", 2, "not a coordinate system OSR reads", {}},
        {"publish " + quad + " " + dir.file("new.mft") + " --switch-distance -5",
         2,
         "--switch-distance",
         {}},
        {"help nothing", 2, "no topic nothing", {}},
        {"features " + pts + " --scene @/nonexistent.dt1", 1, "/nonexistent.dt1", {}},
        {"features", 2, "FILE is required", {}},
        {"map " + dir.file("m.png"), 2, "nothing to draw: give --terrain", {}},
        {"map " + dir.file("m.png") + " --features " + pts + " --extent 1,1,1,5",
         2,
         "is empty: give MINX,MINY,MAXX,MAXY",
         {}},
        {"map " + dir.file("m.png") + " --features " + pts + " --size 20000x10",
         2,
         "20000 pixels is not a side from 1 to 16384",
         {}},
        {"map " + dir.file("m.png") + " --tiles " + quad, 2, "--tiles needs --dataset", {}},
        {"map " + dir.file("m.png") + " --props " + pts, 2, "--props and --rules go together", {}},
        {"view --png " + dir.file("v.jpg") + " --terrain " + dem, 2, "the picture is a PNG", {}},
        {"view --osgb " + dir.file("v.osgb") + " --terrain " + dem + " --camera 0,-100",
         2,
         "give -90 (straight down) to 90",
         {}},
        {"view --osgb " + dir.file("v.osgb") + " --props " + pts + " --rules " +
             dir.file("junkmodel.json") + " --terrain " + dem,
         1,
         "junk.flt: no reader of OpenSceneGraph's reads it as a model",
         {dir.file("junk.flt")}},
        {"view --osgb " + dir.file("v.osgb") + " --props " + pts + " --rules " +
             dir.file("headeronly.json") + " --terrain " + dem + " --overwrite",
         1,
         "header.flt: OpenSceneGraph reads nothing to draw in it",
         {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        std::map<std::string, std::string> before;
        for (const std::string& path : row.unchanged) {
            const auto contents = contentsOf(path);
            before.insert(contents.begin(), contents.end());
        }
        const ZorhostRun run = zorhost(row.command);
        EXPECT_EQ(run.status, row.status) << run.err;
        EXPECT_NE(run.err.find(row.phrase), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("terminate"), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("DtInvalidInput"), std::string::npos) << run.err;
        EXPECT_EQ(run.err.find("ERROR "), std::string::npos) << run.err;  // GDAL's raw voice
        EXPECT_EQ(run.err.find("1.79769"), std::string::npos) << run.err;
        EXPECT_LE(countLines(run.err), 3u) << run.err;
        std::map<std::string, std::string> after;
        for (const std::string& path : row.unchanged) {
            const auto contents = contentsOf(path);
            after.insert(contents.begin(), contents.end());
        }
        EXPECT_TRUE(before == after);
    }
    // Nothing was left behind beside the targets, and no failed map was written.
    for (const auto& entry : fs::directory_iterator(dir.path()))
        EXPECT_EQ(entry.path().filename().string().rfind(".zorhost-", 0), std::string::npos);
    for (const char* name : {"m.png", "m.pgw", "m.png.aux.xml", "keep.png", "new.mft"})
        EXPECT_FALSE(fs::exists(dir.file(name))) << name;
}

// The help lists every command of the README's table with a line each, and each command's
// own help has an example that works from the repository's root.
TEST(ZorhostFailures, theHelpIsTrue) {
    const std::string readme = slurp(std::string(ZOR_SOURCE_DIR) + "/README.md");
    const ZorhostRun help = zorhost("help");
    ASSERT_EQ(help.status, 0);
    EXPECT_EQ(zorhost("--help").out, help.out);
    const std::regex row(R"(\n\| `([a-z]+)[ `])");
    std::vector<std::string> commands;
    for (auto m = std::sregex_iterator(readme.begin(), readme.end(), row);
         m != std::sregex_iterator(); ++m) {
        commands.push_back((*m)[1]);
        EXPECT_NE(help.out.find("\n  " + commands.back() + " "), std::string::npos)
            << commands.back();
    }
    EXPECT_GE(commands.size(), 9u);
    for (const std::string& command : commands) {
        if (command == "help")
            continue;
        SCOPED_TRACE(command);
        const ZorhostRun own = zorhost(command + " --help");
        EXPECT_EQ(own.status, 0);
        const size_t example = own.out.find("\n  zorhost " + command);
        ASSERT_NE(example, std::string::npos) << own.out;
        std::string line =
            own.out.substr(example + 11, own.out.find('\n', example + 1) - example - 11);
        // Written outputs go to a directory of the test's own.
        TempDir dir;
        line = std::regex_replace(line, std::regex("/tmp/"), dir.path() + "/");
        const ZorhostRun run = zorhost(line);
        EXPECT_EQ(run.status, 0) << line << "\n" << run.err;
    }
}
