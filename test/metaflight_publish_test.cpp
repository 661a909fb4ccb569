#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "TempDir.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"

using namespace kelZor;

namespace {

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string doc(const std::string& body) {
    return "<MetaFlightRoot><Database>" + body + "</Database></MetaFlightRoot>";
}

struct Publish {
    bool medf = false;
    bool removeVirtualTexture = false;
    bool setSwitchDistance = false;
    float switchDistance = 0.0f;
    std::string merge;
};

// Publishes `input` into a new file; answers publish's result and the output text.
std::pair<bool, std::string> publish(const TempDir& dir, const std::string& input, const Publish& p,
                                     std::string* error = nullptr) {
    const std::string in = dir.write("in.mft", input);
    const std::string merge = p.merge.empty() ? "" : dir.write("merge.mft", p.merge);
    const std::string out = dir.file("out.mft");
    std::filesystem::remove(out);
    std::string message;
    const bool ok = DtMetaFlightParser::publish(in, merge, out, p.medf, p.removeVirtualTexture,
                                                message, p.setSwitchDistance, p.switchDistance);
    if (error)
        *error = message;
    return {ok, std::filesystem::exists(out) ? slurp(out) : std::string("(no file)")};
}

size_t occurrences(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

const std::string substitutive =
    "<GeometryGridDataset name=\"D\"><HierarchyType>SUBSTITUTIVE</HierarchyType>"
    "<SwitchDistanceTableUsed refTo=\"T\"/></GeometryGridDataset>";

}  // namespace

TEST(MetaFlightPublish, withoutOptionsACleanedCopy) {
    TempDir dir;
    const auto [ok, out] =
        publish(dir,
                "<MetaFlightRoot><MetaFlight:Database><Unknown a=\"Coverage::x\"/>"
                "</MetaFlight:Database></MetaFlightRoot>",
                Publish());
    EXPECT_TRUE(ok);
    EXPECT_NE(out.find("<Database><Unknown a=\"x\"/></Database>"), std::string::npos) << out;
}

TEST(MetaFlightPublish, mergeByTagAndRemoveVirtualTextures) {
    TempDir dir;
    Publish p;
    p.removeVirtualTexture = true;
    p.merge =
        doc("<GeometryGridDataset name=\"new\"/><VirtualTextureDataset name=\"v3\"/><Extra/>");
    const auto [ok, out] = publish(dir,
                                   doc("<GeometryGridDataset name=\"D\"/><VirtualTextureDataset "
                                       "name=\"v1\"/><X><VirtualTextureDataset/></X>"),
                                   p);
    EXPECT_TRUE(ok);
    EXPECT_EQ(occurrences(out, "VirtualTextureDataset"), 0u);     // merged ones and nested ones too
    EXPECT_EQ(occurrences(out, "GeometryGridDataset name"), 1u);  // by tag: "new" is not taken
    EXPECT_NE(out.find("<Extra/></Database>"), std::string::npos) << out;
}

TEST(MetaFlightPublish, searchesFromTheDatabaseWalkOnIntoItsFollowingSiblings) {
    TempDir dir;
    Publish p;
    p.removeVirtualTexture = true;
    p.merge = doc("<Sibling/><Extra/>");
    const auto [ok, out] = publish(dir,
                                   "<MetaFlightRoot><Database><GeometryGridDataset/></Database>"
                                   "<VirtualTextureDataset name=\"beside\"/><Sibling/>"
                                   "</MetaFlightRoot>",
                                   p);
    EXPECT_TRUE(ok);
    EXPECT_EQ(occurrences(out, "VirtualTextureDataset"), 0u) << out;
    EXPECT_EQ(occurrences(out, "<Sibling/>"), 1u) << out;  // already there, beside the Database
    EXPECT_NE(out.find("<Extra/></Database>"), std::string::npos) << out;
}

TEST(MetaFlightPublish, aLinkIsFollowedAndAPipeWrittenInPlace) {
    TempDir dir;
    const std::string in = dir.write("in.mft", doc("<Kept/>"));
    std::string error;
    // Onto a symbolic link: the file it points to is replaced, the link stays a link.
    const std::string target = dir.write("target.mft", "old");
    const std::string link = dir.file("link.mft");
    std::filesystem::create_symlink("target.mft", link);
    ASSERT_TRUE(DtMetaFlightParser::publish(in, "", link, false, false, error, false, 0.0f));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_NE(slurp(target).find("<Kept/>"), std::string::npos);

    // A pipe cannot be replaced: the document goes into it.
    const std::string fifo = dir.file("out.fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::string received;
    std::thread reader([&] { received = slurp(fifo); });
    ASSERT_TRUE(DtMetaFlightParser::publish(in, "", fifo, false, false, error, false, 0.0f));
    reader.join();
    EXPECT_NE(received.find("<Kept/>"), std::string::npos) << received;
    EXPECT_EQ(std::filesystem::status(fifo).type(), std::filesystem::file_type::fifo);
}

TEST(MetaFlightPublish, theLargestSwitchDistanceOfSubstitutiveDatasets) {
    TempDir dir;
    Publish p;
    p.setSwitchDistance = true;
    p.switchDistance = 250.5f;
    auto [ok, out] =
        publish(dir,
                doc(substitutive +
                    "<SwitchDistanceTable name=\"T\">"
                    "<SwitchDistance><Value>100</Value></SwitchDistance>"
                    "<SwitchDistance><Value>300</Value></SwitchDistance>"
                    "<SwitchDistance><Value>200</Value></SwitchDistance>"
                    "<SwitchDistance><Value/></SwitchDistance></SwitchDistanceTable>"
                    "<SwitchDistanceTable name=\"U\"><Value>900</Value></SwitchDistanceTable>"),
                p);
    EXPECT_TRUE(ok);
    EXPECT_NE(
        out.find("<Value>100</Value></SwitchDistance><SwitchDistance><Value>250.500000</Value>"),
        std::string::npos)
        << out;
    EXPECT_NE(out.find("<Value>900</Value>"), std::string::npos);  // another table's value stays

    // Only substitutive datasets need a table; the others change nothing.
    std::tie(ok, out) =
        publish(dir,
                doc("<GeometryGridDataset><HierarchyType>substitutive</HierarchyType>"
                    "</GeometryGridDataset><GeometryGridDataset><HierarchyType/>"
                    "</GeometryGridDataset>"),
                p);
    EXPECT_TRUE(ok);
}

TEST(MetaFlightPublish, aFailedPublishWritesNothing) {
    TempDir dir;
    Publish p;
    p.setSwitchDistance = true;
    const std::pair<std::string, std::string> cases[] = {
        // The second dataset's HierarchyType is not the first one's.
        {doc("<GeometryGridDataset name=\"a\"/>" + substitutive),
         "Invalid GeometryGridDataset: missing HierarchyType"},
        {doc("<GeometryGridDataset><HierarchyType>SUBSTITUTIVE</HierarchyType></"
             "GeometryGridDataset>"
             "<GeometryGridDataset><SwitchDistanceTableUsed refTo=\"T\"/></GeometryGridDataset>"),
         "Invalid GeometryGridDataset: missing SwitchDistanceTableUsed"},
        {doc("<GeometryGridDataset><HierarchyType>SUBSTITUTIVE</"
             "HierarchyType><SwitchDistanceTableUsed/>"
             "</GeometryGridDataset>"),
         "Invalid SwitchDistanceTableUsed: missing refTo attribute"},
        {doc(substitutive + "<SwitchDistanceTable name=\"other\"/>"),
         "Invalid refTo attribute: corresponding SwitchDistanceTable not found"},
        {"<a><b></a>", "Premature end of data in tag a line 1\n"},
        {"<Root/>", "MetaFlight Parsing Error : Unsupported number of Database nodes\n"},
    };
    for (const auto& [input, message] : cases) {
        SCOPED_TRACE(input);
        std::string error;
        const auto [ok, out] = publish(dir, input, p, &error);
        EXPECT_FALSE(ok);
        EXPECT_EQ(error, message);
        EXPECT_EQ(out, "(no file)");
    }
    // An existing target stays as it was, and no temporary file is left behind.
    const std::string in = dir.write("in.mft", doc(substitutive));
    const std::string target = dir.write("target.mft", "precious");
    std::string error;
    EXPECT_FALSE(DtMetaFlightParser::publish(in, "", target, false, false, error, true, 1.0f));
    EXPECT_EQ(slurp(target), "precious");
    EXPECT_TRUE(
        DtMetaFlightParser::publish(in, "", in, true, false, error, false, 0.0f));  // onto itself
    EXPECT_NE(slurp(in).find("<FileFormat>medf</FileFormat>"), std::string::npos);
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
        files += entry.is_regular_file();
    EXPECT_EQ(files, 2u);
}

TEST(MetaFlightPublish, theMedfFormOfTheFirstGeometryDataset) {
    TempDir dir;
    Publish p;
    p.medf = true;
    const auto [ok, out] =
        publish(dir,
                doc("<GeometryGridDataset "
                    "name=\"first\"><GridStack><FileNamePattern>a.flt/b.flt</FileNamePattern>"
                    "</GridStack></GeometryGridDataset><GeometryGridDataset "
                    "name=\"second\"><FileFormat>flt</FileFormat>"
                    "<GridStack><FileNamePattern>c.flt</FileNamePattern></GridStack></"
                    "GeometryGridDataset>"),
                p);
    EXPECT_TRUE(ok);
    EXPECT_NE(out.find("<FileNamePattern>a.medf/b.flt</FileNamePattern></"
                       "GridStack><FileFormat>medf</FileFormat>"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("<FileFormat>flt</FileFormat><GridStack><FileNamePattern>c.flt"),
              std::string::npos);
}

TEST(MetaFlightPublish, theRichSampleRoundTripsWithEveryOption) {
    TempDir dir;
    const std::string out = dir.file("published.mft");
    const std::string merge =
        dir.write("imagery.mft",
                  doc("<ModelListDataset name=\"More\"><Model><FileName>m.flt</FileName></Model>"
                      "</ModelListDataset><VirtualTextureDataset name=\"Other\"/>"));
    std::string error;
    ASSERT_TRUE(
        DtMetaFlightParser::publish(std::string(ZOR_SAMPLE_DIR) + "/metaflight/alpine_valley.mft",
                                    merge, out, true, true, error, true, 120000.0f));
    DtMetaFlightParser parser;
    ASSERT_TRUE(parser.openFile(out, "", error)) << error;
    DtMetaFlightDescription description;
    description.parse(parser);
    EXPECT_EQ(description.numberOfGeometryDatasets(), 2u);
    EXPECT_EQ(description.numberOfVirtualTextureDatasets(), 0u);
    EXPECT_EQ(description.numberOfGeometryGridLevels("Elevation"), 4u);
    EXPECT_EQ(description.geometryGridLevelSwitchOut("Elevation", 0), 120000.0);  // was the largest
    EXPECT_EQ(description.geometryGridLevelSwitchOut("Elevation", 1), 24000.0);
    EXPECT_EQ(description.geometryDatasetFileFormat("Elevation"), "medf");
    EXPECT_EQ(description.geometryDatasetFileFormat("Features"), "osg");
    EXPECT_EQ(description.database()->modelListDataset.size(), 1u);  // its tag was there already
    EXPECT_EQ(description.database()
                  ->modelListDataset.at("Landmarks")
                  ->model.at(0)
                  ->textures->texture.size(),
              2u);
    EXPECT_NE(slurp(out).find("<Producer>zorTerrain sample set</Producer>"), std::string::npos);
}
