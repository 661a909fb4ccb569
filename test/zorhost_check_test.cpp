// zorhost check on tile databases made here: every fault a build leaves (a tile missing,
// empty or unreadable, a stray file, a stale level) reported once where it is, and a
// pattern that climbs out of the database never followed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gdal_priv.h>

#include "JsonOutput.h"
#include "MapStyle.h"
#include "MetaFlightDocument.h"
#include "TempDir.h"
#include "TileCheck.h"
#include "ZorhostRun.h"

namespace fs = std::filesystem;

namespace {

// The document's dataset D ("terrain") with its default levels: 3 x 2 tiles, then 6 x 4.
struct Database {
    TempDir dir;
    std::string root, document;

    explicit Database(const MetaFlightDocument& doc = {}) {
        root = dir.file("db");
        fs::create_directories(root);
        document = root + "/doc.mft";
        std::ofstream(document) << doc.text();
    }
    std::string tile(int level, int row, int col, const std::string& dataset = "terrain") const {
        char name[64];
        std::snprintf(name, sizeof name, "/L%02d/tile_%03d_%03d.medf", level, row, col);
        return root + "/" + dataset + name;
    }
    void writeAll() const {
        const int sides[2][2] = {{2, 3}, {4, 6}};  // rows, columns
        for (int level = 0; level < 2; ++level)
            for (int row = 0; row < sides[level][0]; ++row)
                for (int col = 0; col < sides[level][1]; ++col)
                    write(tile(level, row, col));
    }
    static void write(const std::string& path, const std::string& bytes = "tile\n") {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << bytes;
    }
};

size_t occurrences(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

}  // namespace

TEST(ZorhostCheck, eachFaultIsReportedOnceWhereItIsAndRepairsMakeItComplete) {
    const Database db;
    db.writeAll();
    const bool root = geteuid() == 0;  // root reads a file of mode 000
    fs::remove(db.tile(1, 1, 0));
    std::ofstream(db.tile(0, 0, 1), std::ios::trunc);
    fs::permissions(db.tile(1, 0, 1), fs::perms::none);
    const std::string stray = db.root + "/terrain/L01/tile_009_009.medf";
    const std::string stale = db.root + "/terrain/L05/tile_000_000.medf";
    Database::write(stray);
    Database::write(stale);

    const ZorhostRun text = zorhost("check " + db.document);
    EXPECT_EQ(text.status, 1) << text.err;
    EXPECT_EQ(occurrences(text.out, "missing\tD\t1\t1\t0\t" + db.tile(1, 1, 0) + "\n"), 1u)
        << text.out;
    EXPECT_EQ(occurrences(text.out, "empty\tD\t0\t0\t1\t" + db.tile(0, 0, 1) + "\n"), 1u);
    EXPECT_EQ(occurrences(text.out, "unreadable\tD\t1\t0\t1\t" + db.tile(1, 0, 1) + "\n"),
              root ? 0u : 1u);
    EXPECT_EQ(occurrences(text.out, "extra\t" + stray + "\n"), 1u);
    EXPECT_EQ(occurrences(text.out, "extra\t" + stale + "\n"), 1u);
    EXPECT_EQ(occurrences(text.out, "\t" + db.tile(0, 0, 0) + "\n"), 0u);  // present: unlisted
    EXPECT_NE(text.out.find("  level 0: 6 tiles, 5 present, 1 empty\n"), std::string::npos);
    EXPECT_NE(text.out.find(root ? "  level 1: 24 tiles, 23 present, 1 missing\n"
                                 : "  level 1: 24 tiles, 22 present, 1 missing, 1 unreadable\n"),
              std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("extra: 2 files"), std::string::npos);

    const ZorhostRun json = zorhost("check " + db.document + " --json --list all");
    EXPECT_EQ(json.status, 1) << json.err;
    const Json records = Json::parse(json.out);
    std::map<std::string, size_t> byStatus;
    for (const Json& record : records) {
        if (record.contains("summary"))
            continue;
        ++byStatus[record["status"].get<std::string>()];
        if (record["status"] == "missing") {
            EXPECT_EQ(record["level"], 1);
            EXPECT_EQ(record["row"], 1);
            EXPECT_EQ(record["col"], 0);
            EXPECT_EQ(record["path"], db.tile(1, 1, 0));
        }
    }
    EXPECT_EQ(byStatus["missing"], 1u);
    EXPECT_EQ(byStatus["empty"], 1u);
    EXPECT_EQ(byStatus["extra"], 2u);
    EXPECT_EQ(byStatus["present"] + byStatus["unreadable"], 28u);
    const Json& summary = records.back()["summary"];
    EXPECT_FALSE(summary["complete"].get<bool>());
    EXPECT_EQ(summary["extra"], 2);
    EXPECT_EQ(summary["datasets"][0]["directory"], db.root + "/terrain");
    EXPECT_EQ(summary["datasets"][0]["levels"][1]["missing"], 1);

    // One level, one list: only what was asked.
    const ZorhostRun level0 = zorhost("check " + db.document + " --level 0 --list empty");
    EXPECT_EQ(level0.status, 1);
    EXPECT_EQ(countLines(level0.out), 5u) << level0.out;  // the tile, and four of summary

    fs::permissions(db.tile(1, 0, 1), fs::perms::owner_read | fs::perms::owner_write);
    Database::write(db.tile(1, 1, 0));
    Database::write(db.tile(0, 0, 1));
    const ZorhostRun repaired = zorhost("check " + db.document);
    EXPECT_EQ(repaired.status, 0) << repaired.out;
    EXPECT_NE(repaired.out.find("\ncomplete\n"), std::string::npos);
    EXPECT_EQ(occurrences(repaired.out, "extra\t"), 2u);  // listed, yet complete

    const ZorhostRun unknown = zorhost("check " + db.document + " --dataset Nope");
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.err.find("no dataset \"Nope\"; the document has D"), std::string::npos)
        << unknown.err;
    const ZorhostRun tooDeep = zorhost("check " + db.document + " --level 7");
    EXPECT_EQ(tooDeep.status, 1);
    EXPECT_NE(tooDeep.err.find("level 7 is out of range"), std::string::npos) << tooDeep.err;
}

// A dataset name or a pattern that climbs out of the database names paths that are
// reported and never looked at: the files waiting outside are not found, and their
// place is never printed.
TEST(ZorhostCheck, aPathOutOfTheDatabaseIsReportedNeverFollowed) {
    for (const bool inPattern : {false, true}) {
        SCOPED_TRACE(inPattern ? "pattern" : "dataset name");
        MetaFlightDocument doc;
        if (inPattern)
            doc.pattern = "../outside/L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)";
        else
            doc.datasetChildren =
                "<DatasetName>../outside</DatasetName><FileFormat>medf</FileFormat>";
        const Database db(doc);
        // What the paths would reach: files present outside the database.
        const std::string outside = db.dir.file("outside");
        Database::write(outside + "/L00/tile_000_000.medf");
        const ZorhostRun run = zorhost("check " + db.document + " --list all");
        EXPECT_EQ(run.status, 1) << run.err;
        EXPECT_EQ(occurrences(run.out, "outside\tD\t"), 30u) << run.out;
        EXPECT_EQ(occurrences(run.out, "present\t"), 0u);
        EXPECT_EQ(run.out.find(outside + "/"), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("30 tiles name a path outside the database"), std::string::npos);
    }
}

// tiles --paths is the list the check compares the disk with.
TEST(ZorhostCheck, tilesPathsAreThePathsCheckLooksFor) {
    const Database db;
    const ZorhostRun paths = zorhost("tiles " + db.document + " --dataset D --paths");
    ASSERT_EQ(paths.status, 0) << paths.err;
    EXPECT_EQ(countLines(paths.out), 30u);
    EXPECT_EQ(paths.out.substr(0, db.tile(0, 0, 0).size() + 1), db.tile(0, 0, 0) + "\n");
    const ZorhostRun sample = zorhost("check data/sample/metaflight/valley_tiles.mft --json");
    EXPECT_EQ(sample.status, 0) << sample.out;
    // Virtual textures are checked as geometry is: the alpine document's imagery, by its
    // own names, none of them on disk.
    const ZorhostRun alpine = zorhost(
        "check data/sample/metaflight/alpine_valley.mft --dataset Imagery --level 1 --json");
    EXPECT_EQ(alpine.status, 1);
    const Json records = Json::parse(alpine.out);
    ASSERT_EQ(records.size(), 5u);  // four tiles and the summary
    EXPECT_EQ(records[0]["kind"], "virtualTexture");
    EXPECT_EQ(records[0]["status"], "missing");
    EXPECT_EQ(records[4]["summary"]["datasets"][0]["levels"][0]["tiles"], 4);
}

// --map draws the finest level checked as cells of their states, georeferenced as `map`
// is: the missing tile's place is red in the picture; a level of a million tiles is an
// image of cells, and the answer on stdout is the check's alone.
TEST(ZorhostCheck, theMapShowsEachTileInItsState) {
    const Database db;
    db.writeAll();
    fs::remove(db.tile(1, 1, 0));
    const std::string png = db.dir.file("check.png");
    const ZorhostRun run = zorhost("check " + db.document + " --map " + png);
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(run.out.find("map:"), std::string::npos) << run.out;
    auto colourAt = [](const std::string& picture, double x, double y) {
        GDALAllRegister();
        GDALDatasetUniquePtr image(GDALDataset::Open(picture.c_str(), GDAL_OF_RASTER));
        double t[6];
        EXPECT_TRUE(image && image->GetGeoTransform(t) == CE_None);
        const int col = static_cast<int>((x - t[0]) / t[1]),
                  row = static_cast<int>((y - t[3]) / t[5]);
        uint8_t rgb[3] = {0, 0, 0};
        for (int band = 0; band < 3; ++band)
            EXPECT_EQ(image->GetRasterBand(band + 1)->RasterIO(GF_Read, col, row, 1, 1, &rgb[band],
                                                               1, 1, GDT_Byte, 0, 0),
                      CE_None);
        return std::vector<int>(rgb, rgb + 3);
    };
    // Level 1's tiles are 100 m; row 1, col 0 spans 1000..1100 E, 2100..2200 N.
    const MapColour missing = tileStateColour(static_cast<uint8_t>(TileState::Missing));
    const MapColour present = tileStateColour(static_cast<uint8_t>(TileState::Present));
    auto near = [](const std::vector<int>& seen, const MapColour& c) {
        return std::abs(seen[0] - c.red()) <= 3 && std::abs(seen[1] - c.green()) <= 3 &&
               std::abs(seen[2] - c.blue()) <= 3;
    };
    EXPECT_TRUE(near(colourAt(png, 1050, 2150), missing));
    EXPECT_TRUE(near(colourAt(png, 1250, 2150), present));
    const ZorhostRun again = zorhost("check " + db.document + " --map " + png);
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("exists; give --overwrite"), std::string::npos) << again.err;
    EXPECT_TRUE(again.out.empty());  // refused before the check said anything

    MetaFlightDocument dense;
    dense.gridLevels = MetaFlightDocument::level("L0", 1000, 1000);
    dense.geometryLevels = MetaFlightDocument::geometryLevel("LOCALIZED");
    const Database large(dense);
    const std::string image = large.dir.file("dense.png");
    const ZorhostRun drawn = zorhost("check " + large.document + " --list extra --map " + image);
    EXPECT_EQ(drawn.status, 1) << drawn.err;
    EXPECT_NE(drawn.out.find("level 0: 1000000 tiles, 0 present, 1000000 missing"),
              std::string::npos)
        << drawn.out;
    EXPECT_TRUE(near(colourAt(image, 1300, 2200), missing));
}
