#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "MetaFlightDocument.h"
#include "TempDir.h"
#include "hxutil/DtException.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtTilePathGenerator.h"

using namespace kelZor;

TEST(TilePathGenerator, givesWhatTheDescriptionGivesForEveryTile) {
    const std::string longLiteral = std::string(2040, 'a') + "%10d$(ROW)";  // 2050: refused
    const std::string patterns[] = {
        longLiteral,
        "$(DSNAME)/L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)",  // head fixed
        "$(DSNAME)\\$(LEVELNAME)\\%-4d$(ROW)|%+d$(COL)",                     // backslashes, flags
        "$(ROW)/$(COL)",  // head depends on the tile
        "terrain_%x$(ROW)/%#o$(COL)",
        "x/%c$(ROW)$(COL)",  // a %c may be a '/'
        "/abs/%05u$(ROW)_%.3d$(COL)",
        "plain.flt",
        "$(DSNAME)/%n$(ROW)",  // refused: directory only
        "$(DSNAME)/$(ROW",
        "%2040d$(ROW)%2040d$(COL)",
        // Backslashes in a format that goes through snprintf: "/" like any other.
        "$(DSNAME)\\$(LEVELNAME)\\tile_%04x$(ROW)_%04x$(COL).$(FILEFORMAT)",
        "$(DSNAME)/%hd$(ROW)\\% o$(COL)",
    };
    TempDir dir;
    std::filesystem::create_directories(dir.file("terrain"));
    for (const std::string& pattern : patterns) {
        SCOPED_TRACE(pattern);
        MetaFlightDocument doc;
        doc.pattern = pattern;
        const std::string path = dir.write("terrain/doc.mft", doc.text());
        DtMetaFlightParser parser;
        std::string error;
        ASSERT_TRUE(parser.openFile(path, "", error)) << error;
        DtMetaFlightDescription description;
        description.parse(parser);
        for (int level = 0; level < 2; ++level) {
            DtTilePathGenerator generator(description, "D", level);
            ASSERT_EQ(generator.rows(), description.geometryGridLevelRows("D", level));
            std::string generated;
            for (unsigned row = 0; row < generator.rows(); ++row) {
                for (unsigned col = 0; col < generator.columns(); ++col) {
                    generator.path(row, col, generated);
                    ASSERT_EQ(generated,
                              description.generateGeometryGridTileFilename("D", level, row, col));
                    ASSERT_EQ(generated.find('\\'), std::string::npos);
                }
            }
            // Outside the level, and past INT_MAX where the value wraps negative.
            for (unsigned value : {47u, 92u, 4000000000u}) {
                generator.path(value, value, generated);
                EXPECT_EQ(generated,
                          description.generateGeometryGridTileFilename("D", level, value, value));
            }
        }
        EXPECT_THROW(DtTilePathGenerator(description, "D", 2), DtTemplatedException<-1>);
        EXPECT_THROW(DtTilePathGenerator(description, "nope", 0), DtTemplatedException<-1>);
    }
}
