#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "TempDir.h"
#include "hxutil/DtNotify.h"
#include "ksl/DtKslEnvironment.h"
#include "matrix/DtAngles.h"
#include "zorTerrain/DtSorrelKslFileReader.h"
#include "zorTerrain/DtSorrelKslHeaderParser.h"
#include "zorUtil/DtCoordinateConverter.h"

using namespace kelZor;

namespace {

struct WarnCapture {
    std::ostringstream text;
    WarnCapture() { DtWarn.setTarget(&text); }
    ~WarnCapture() { DtWarn.setTarget(nullptr); }
};

// Reaches the walk's count.
struct Reader : DtSorrelKslFileReader {
    using DtSorrelKslFileReader::lookupFilenames;
};

std::vector<std::string> names(const DtSorrelKslFileReader& reader) {
    std::vector<std::string> result;
    for (const DtListItem* item = reader.filenames().first(); item; item = item->next()) {
        result.push_back(static_cast<const DtFilename*>(item->data())->stdString());
    }
    return result;
}

// A directory of patches, and descriptions written into it.
struct Terrain {
    TempDir dir;
    Terrain() {
        std::filesystem::create_directories(dir.file("a"));
        std::filesystem::create_directories(dir.file("b c"));
        for (const char* patch :
             {"a/p1.flt", "a/p2.flt", "b c/p3.flt", "b c/map.tif", "a/map.tif"}) {
            dir.write(patch, "x");
        }
    }
    std::string describe(const std::string& text) { return dir.write("terrain.ksl", text); }
};

}  // namespace

TEST(KslReader, readsADescriptionAsAPersonWritesIt) {
    Terrain t;
    t.dir.write("shared.ksl", "(defvar root \"" + t.dir.path() + "\")\n");
    const std::string path = t.describe(
        ";; valley\n(load \"shared.ksl\")\n"
        "(setq databaseType \"Lambert conformal\")  ; by prefix\n"
        "(setq DatabaseOrigin \"46.5,3,49,44\")\n"
        "(setq geodeticMapDatum \"WGS84\" startAltitude 1500.5 startPosition \"1,2,3\")\n"
        "(setq StartOrientation \"90,-5,180\")\n"
        "(setq databaseName (list (list (strcat root \"/a;;\" root \"/nowhere\") \"p1.flt\" "
        "\"gone.flt\" \"p2.flt\")\n"
        "                         (list (strcat root \"/b c\") \"p3.flt\")))\n"
        "(setq databaseMap \"map.tif\" loadAsynchronous 0)\n");
    Reader reader;
    ASSERT_TRUE(reader.load(path.c_str()));
    EXPECT_EQ(reader.type(), DtCoordinateConverter::Lambert);
    EXPECT_EQ(reader.origin(), "46.5,3,49,44");
    EXPECT_EQ(names(reader),
              (std::vector<std::string>{t.dir.file("a/p1.flt"), t.dir.file("a/p2.flt"),
                                        t.dir.file("b c/p3.flt")}));
    ASSERT_NE(reader.mapDatum(), nullptr);
    EXPECT_EQ(*reader.mapDatum(), "WGS84");
    EXPECT_EQ(*reader.startAltitude(), 1500.5);
    EXPECT_EQ(reader.startPosition()->z(), 3.0);
    EXPECT_DOUBLE_EQ(reader.startOrientation()->psi(), DtDeg2Rad(90.0));
    EXPECT_DOUBLE_EQ(reader.startOrientation()->phi(), DtDeg2Rad(180.0));
    EXPECT_EQ(*reader.mapName(), t.dir.file("b c/map.tif"));  // the last group's directories
    EXPECT_FALSE(reader.loadAsynchronous());

    DtKslEnvironment environment;
    environment.loadLispFile(const_cast<char*>(path.c_str()), 0);
    EXPECT_EQ(reader.lookupFilenames(&environment), 4);  // names walked, found or not
}

TEST(KslReader, unboundAndOddValuesLeaveTheDefaults) {
    Terrain t;
    Reader reader;
    ASSERT_TRUE(reader.load(t.describe("(setq databaseType \"Lambert\")").c_str()));
    EXPECT_EQ(reader.type(), DtCoordinateConverter::Lambert);
    // Lower case is no type: the earlier one stays. Odd kinds never crash.
    ASSERT_TRUE(reader.load(
        t.describe("(setq databaseType \"flatearth\" geodeticMapDatum \"\"\n"
                   " startPosition \"\" startOrientation \"1,2\" startAltitude \"high\"\n"
                   " databaseOrigin 42 databaseName 7)")
            .c_str()));
    EXPECT_EQ(reader.type(), DtCoordinateConverter::Lambert);
    EXPECT_EQ(reader.mapDatum(), nullptr);
    EXPECT_EQ(reader.startPosition(), nullptr);
    EXPECT_EQ(reader.startOrientation(), nullptr);
    EXPECT_EQ(*reader.startAltitude(), 0.0);
    EXPECT_TRUE(names(reader).empty());

    // The start values are read from the text of whatever is bound, of any kind; the type
    // from its own literals, by their lengths.
    ASSERT_TRUE(reader.load(
        t.describe("(setq databaseType \"UTMish\" startPosition '1,2,3 startOrientation '90,0,0)")
            .c_str()));
    EXPECT_EQ(reader.type(), DtCoordinateConverter::UTM);
    ASSERT_NE(reader.startPosition(), nullptr);
    EXPECT_EQ(reader.startPosition()->y(), 2.0);
    ASSERT_NE(reader.startOrientation(), nullptr);
    EXPECT_DOUBLE_EQ(reader.startOrientation()->psi(), DtDeg2Rad(90.0));
    const std::pair<const char*, const char*> types[] = {
        {"FlatEarth", DtCoordinateConverter::FlatEarth},
        {"Geocentric centred", DtCoordinateConverter::Geocentric},
        {"Geocentri", DtCoordinateConverter::UTM},  // shorter than its literal
        {"Flat", DtCoordinateConverter::UTM}};
    for (const auto& [value, type] : types) {
        SCOPED_TRACE(value);
        DtSorrelKslFileReader typed;
        ASSERT_TRUE(
            typed.load(t.describe(std::string("(setq databaseType \"") + value + "\")").c_str()));
        EXPECT_EQ(typed.type(), type);
    }

    DtSorrelKslFileReader fresh;
    ASSERT_TRUE(fresh.load(t.describe("; nothing bound").c_str()));
    EXPECT_EQ(fresh.type(), DtCoordinateConverter::UTM);
    EXPECT_EQ(fresh.mapName(), nullptr);
    EXPECT_TRUE(fresh.loadAsynchronous());
}

TEST(KslReader, spacesSeparateDirectoriesFromTheNextLoadOn) {
    Terrain t;
    // "<dir>/b c" holds p3; with spaces as separators it splits into "<dir>/b" and "c".
    const std::string path =
        t.describe("(setq spacesCanBeDelimiters 1)\n(setq databaseName (list (list \"" +
                   t.dir.path() + "/b c\" \"p3.flt\")))");
    DtSorrelKslFileReader reader;
    ASSERT_TRUE(reader.load(path.c_str()));
    EXPECT_EQ(names(reader).size(), 1u);
    ASSERT_TRUE(reader.load(path.c_str()));
    EXPECT_EQ(names(reader).size(), 0u);

    DtFileFinder finder;
    EXPECT_EQ(finder.nthPath(";;x; y;", 1, false), " y");
    EXPECT_EQ(finder.nthPath(";;x; y;", 1, true), "y");
    EXPECT_EQ(finder.nthPath("x", 3, false), "");
    EXPECT_EQ(finder.findFile("", "p1.flt", false), "");
    EXPECT_EQ(finder.findFile(";;", "p1.flt", false), "");
}

TEST(KslReader, malformedListsWarnAndKeepWhatCameBefore) {
    Terrain t;
    WarnCapture warn;
    const std::string a = t.dir.file("a");
    DtSorrelKslFileReader reader;
    ASSERT_TRUE(reader.load(t.describe("(setq databaseName (list (list \"" + a +
                                       "\" \"p1.flt\" 5 \"p2.flt\")\n"
                                       "  (list 7 \"p2.flt\") \"not a group\" (cons \"" +
                                       a + "\" \"p2.flt\")))")
                                .c_str()));
    EXPECT_EQ(names(reader), std::vector<std::string>{t.dir.file("a/p1.flt")});
    EXPECT_EQ(warn.text.str(),
              "non-string patch name in DtSorrelKslFileReader::addListOfPatches\n"
              "Non-string path to getPathPatchList\n"
              "Non-list to getPathPatchList"
              "Bad patch list in DtSorrelKslFileReader::addListOfPatches\n");

    // DatabaseName only where databaseName is unbound; a broken file keeps its bindings.
    warn.text.str("");
    ASSERT_TRUE(reader.load(
        t.describe("(setq DatabaseName (list (list \"" + a + "\" \"p2.flt\")))\n(car 5)").c_str()));
    EXPECT_EQ(names(reader), std::vector<std::string>{t.dir.file("a/p2.flt")});
    EXPECT_NE(warn.text.str().find("terrain.ksl:2: car of a number"), std::string::npos)
        << warn.text.str();
}

TEST(KslHeaderParser, onePatchPerFileFound) {
    Terrain t;
    const std::string a = t.dir.file("a");
    const std::string path =
        t.describe("(setq databaseOrigin \"45,10\")\n(setq databaseName (list (list \"" + a +
                   "\" \"p1.flt\" \"p2.flt\")))");
    DtSorrelKslHeaderParser parser(path);
    ASSERT_TRUE(parser.isValid());
    ASSERT_EQ(parser.terrainPatchRecords().size(), 2u);
    const auto& second = parser.terrainPatchRecords().back().terrainPatchDefinitionRecord();
    EXPECT_EQ(second.filename(), t.dir.file("a/p2.flt"));
    EXPECT_EQ(second.coordinateSystem(), DtCoordinateConverter::UTM);
    EXPECT_EQ(second.coordinateSystemParameters(), "45,10");
    EXPECT_TRUE(parser.isValid());
    EXPECT_EQ(parser.terrainPatchRecords().size(), 4u);

    EXPECT_FALSE(DtSorrelKslHeaderParser(
                     t.describe("(setq databaseName (list (list \"/none\" \"p1.flt\")))"))
                     .isValid());
    WarnCapture quiet;
    EXPECT_FALSE(DtSorrelKslHeaderParser(t.dir.file("missing.ksl")).isValid());
    EXPECT_FALSE(DtSorrelKslHeaderParser(t.describe(std::string(100000, '('))).isValid());
}
