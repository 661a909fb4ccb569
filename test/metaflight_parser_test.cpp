#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "TempDir.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtMetaFlightTypes.h"

using kelZor::DtMetaFlightParser;

namespace {

// Reaches the protected tree helpers, as the publisher does.
struct Helpers : DtMetaFlightParser {
    using DtMetaFlightParser::countChildrenWithName;
    using DtMetaFlightParser::findChildWithAttribute;
    using DtMetaFlightParser::findChildWithName;
    using DtMetaFlightParser::replaceAll;
    using DtMetaFlightParser::setText;
    using DtMetaFlightParser::text;
};

std::string wrap(const std::string& databaseBody) {
    return "<MetaFlightRoot><Database name=\"db\">" + databaseBody + "</Database></MetaFlightRoot>";
}

}  // namespace

TEST(MetaFlightParser, loadingFailuresGiveTheirMessages) {
    TempDir dir;
    DtMetaFlightParser parser;
    std::string error;
    EXPECT_FALSE(parser.openFile(dir.file("missing.mft"), "", error));
    EXPECT_EQ(error, "MetaFlight Parsing Error : Unable to open file descriptor\n");
    EXPECT_FALSE(parser.openFile(dir.path(), "", error));
    EXPECT_EQ(error, "MetaFlight Parsing Error : Unable to open file descriptor\n");
    EXPECT_FALSE(parser.openFile(dir.write("empty.mft", ""), "", error));
    EXPECT_EQ(error, "MetaFlight Parsing Error : File is empty.\n");
    EXPECT_FALSE(parser.openFile(dir.write("broken.mft", "<a><b></a>"), "", error));
    EXPECT_NE(error.find("Premature end of data"), std::string::npos) << error;  // libxml2's words
    EXPECT_EQ(parser.currentElementType(), nullptr);

    const char* const badCounts[] = {
        "<MetaFlightRoot><Other/></MetaFlightRoot>",
        "<MetaFlightRoot><Database/><Database/></MetaFlightRoot>",
        "<AcfRoot><x><Database/></x></AcfRoot>",
    };
    for (const char* document : badCounts) {
        SCOPED_TRACE(document);
        EXPECT_FALSE(parser.openFile(dir.write("count.mft", document), "", error));
        EXPECT_EQ(error, "MetaFlight Parsing Error : Unsupported number of Database nodes\n");
    }
    // The second file fails with the same words; nothing stays open.
    const std::string good = dir.write("good.mft", wrap(""));
    EXPECT_FALSE(parser.openFile(good, dir.file("gone.mft"), error));
    EXPECT_EQ(error, "MetaFlight Parsing Error : Unable to open file descriptor\n");
    EXPECT_EQ(parser.virtualTextureFileName(), dir.file("gone.mft"));
    EXPECT_EQ(parser.currentElementType(), nullptr);
}

TEST(MetaFlightParser, textIsCleanedBeforeParsing) {
    TempDir dir;
    // Prefixes go from tags, attribute values and text alike; the longer of two nested
    // prefixes goes whole; the text ends at a zero byte.
    std::string document =
        "<MetaFlightRoot><MetaFlight:Database name=\"Coverage::db\">"
        "<A refTo=\"NonProjectedCoordSys::x\">SwitchDistanceTable::y</A>"
        "</MetaFlight:Database></MetaFlightRoot>";
    document += std::string(1, '\0') + "<garbage";
    const std::string path = dir.write("clean.mft", document);
    std::string backslashed = path;
    for (char& c : backslashed)
        c = c == '/' ? '\\' : c;

    DtMetaFlightParser parser;
    std::string error;
    ASSERT_TRUE(parser.openFile(backslashed, "", error)) << error;
    EXPECT_EQ(parser.fileName(), backslashed);
    EXPECT_EQ(parser.virtualTextureFileName(), backslashed);
    EXPECT_STREQ(parser.currentElementType(), "Database");
    EXPECT_STREQ(parser.currentElementName(), "db");
    ASSERT_TRUE(parser.readFirstChildElement());
    EXPECT_STREQ(parser.currentElementReference(), "x");
    EXPECT_STREQ(parser.currentElementText(), "y");

    // A replacement is never searched again, whether the text shrinks, keeps its
    // length or grows.
    const char* const cases[][4] = {
        {"aXXbXXXc", "XX", "X", "aXbXXc"}, {"XXXX", "XX", "", ""},
        {"abab", "a", "c", "cbcb"},        {"aab", "a", "aa", "aaaab"},
        {"nothing", "zz", "", "nothing"},  {"a.b.", ".", "::", "a::b::"}};
    for (const auto& c : cases) {
        std::string text = c[0];
        Helpers::replaceAll(text, c[1], c[2]);
        EXPECT_EQ(text, c[3]) << c[0] << " " << c[1] << "->" << c[2];
    }
}

// A file read in pieces is cleaned as one text: prefixes that straddle two pieces go, and
// a prefix that one pass cannot delete exactly, met late, sends the whole text back to
// deletion prefix by prefix ("EllipMetaFlight:soid:x" is "Ellipsoid:x" once the first
// prefix is gone, then "x").
TEST(MetaFlightParser, largeFilesAreCleanedAsOneText) {
    for (const bool withLateJoin : {false, true}) {
        std::string body;
        for (int i = 0; body.size() < 300 * 1024; ++i) {
            body += "<MetaFlight:Ellipsoid name=\"Ellipsoid:E" + std::to_string(i) + "\">" +
                    std::string(static_cast<size_t>(i % 23), ' ') + "</MetaFlight:Ellipsoid>";
        }
        if (withLateJoin)
            body +=
                "<ModelListDataset name=\"m\"><DatasetName>EllipMetaFlight:soid:x</DatasetName>"
                "</ModelListDataset>";
        TempDir dir;
        DtMetaFlightParser parser;
        std::string error;
        ASSERT_TRUE(parser.openFile(dir.write("large.mft", wrap(body)), "", error)) << error;
        kelZor::DtMetaFlightTypes::Database database;
        database.parse(parser);
        const auto& ellipsoids = database.ellipsoid;
        ASSERT_GT(ellipsoids.size(), 3000u);
        for (size_t i = 0; i < ellipsoids.size(); ++i) {
            ASSERT_EQ(ellipsoids.count("E" + std::to_string(i)), 1u) << i;
        }
        if (withLateJoin) {
            EXPECT_EQ(database.modelListDataset.at("m")->datasetName, "x");
        }
    }
}

TEST(MetaFlightParser, theCursorWalksElementsOnly) {
    TempDir dir;
    DtMetaFlightParser parser;
    std::string error;
    ASSERT_TRUE(parser.openFile(
        dir.write("walk.mft",
                  "<Root><Database>\n  <!-- c --><A>1.5</A>\n  <B><C/></B><D>12abc</D><E> </E><F/>"
                  "</Database></Root>"),
        "", error));
    EXPECT_EQ(parser.numberOfChildElements(), 5u);
    std::string whitespace;
    EXPECT_TRUE(parser.getCurrentElementValue(whitespace));  // its first text child
    EXPECT_EQ(whitespace, "\n  ");
    ASSERT_TRUE(parser.readParentElement());   // the root element
    EXPECT_FALSE(parser.readParentElement());  // whose parent is the document
    ASSERT_TRUE(parser.readFirstChildElement());
    EXPECT_FALSE(parser.readNextElement());  // "Database" has no element sibling

    ASSERT_TRUE(parser.readFirstChildElement());
    EXPECT_STREQ(parser.currentElementType(), "A");
    double number = 0;
    EXPECT_TRUE(parser.getCurrentElementValue(number));
    EXPECT_EQ(number, 1.5);
    EXPECT_FALSE(parser.readPreviousElement());
    ASSERT_TRUE(parser.readNextElement());
    ASSERT_TRUE(parser.readFirstChildElement());
    EXPECT_FALSE(parser.readFirstChildElement());  // a leaf: the cursor stays
    EXPECT_STREQ(parser.currentElementType(), "C");
    int untouched = 7;
    EXPECT_FALSE(parser.getCurrentElementValue(untouched));
    EXPECT_EQ(untouched, 7);
    ASSERT_TRUE(parser.readParentElement());
    ASSERT_TRUE(parser.readNextElement());
    int atoiLike = 0;
    EXPECT_TRUE(parser.getCurrentElementValue(atoiLike));
    EXPECT_EQ(atoiLike, 12);
    ASSERT_TRUE(parser.readNextElement());
    unsigned negative = 0;
    ASSERT_TRUE(parser.readNextElement());
    EXPECT_FALSE(parser.getCurrentElementValue(negative));
    ASSERT_TRUE(parser.readPreviousElement());
    EXPECT_STREQ(parser.currentElementType(), "E");

    EXPECT_EQ(parser.currentElementNameOrGenerateUnique(), "unique_E_genid_0");
    EXPECT_EQ(parser.currentElementNameOrGenerateUnique(), "unique_E_genid_1");
    // A new file starts the count again.
    ASSERT_TRUE(parser.openFile(dir.file("walk.mft"), "", error));
    EXPECT_EQ(parser.currentElementNameOrGenerateUnique(), "unique_Database_genid_0");
}

TEST(MetaFlightParser, aSecondFileAddsOnlyWhatTheFirstLacks) {
    TempDir dir;
    const std::string main =
        dir.write("main.mft", wrap("<Textures name=\"t1\"><Keep/></Textures><Grid/>"));
    const std::string second =
        dir.write("second.mft",
                  "<AcfRoot><Database><Textures name=\"t1\"><Lost/></Textures>"
                  "<Textures name=\"t2\"/><Grid><Lost/></Grid><Imagery/></Database></AcfRoot>");
    DtMetaFlightParser parser;
    std::string error;
    ASSERT_TRUE(parser.openFile(main, second, error)) << error;
    EXPECT_EQ(parser.virtualTextureFileName(), second);
    std::string order;
    ASSERT_TRUE(parser.readFirstChildElement());
    do {
        order += parser.currentElementType();
        if (const char* name = parser.currentElementName())
            order += std::string("=") + name;
        order += parser.numberOfChildElements() ? "+ " : " ";
    } while (parser.readNextElement());
    EXPECT_EQ(order, "Textures=t1+ Grid Textures=t2 Imagery ");
}

TEST(MetaFlightParser, deepSearchesRunPastTheStartingElement) {
    TempDir dir;
    dir.write("search.mft",
              wrap("<A><X name=\"1\"/><B><X name=\"2\"/></B></A><C><X name=\"3\">t</X></C>"));
    kelZor::DtXmlDocPtr document(xmlReadFile(dir.file("search.mft").c_str(), nullptr, 0));
    ASSERT_NE(document, nullptr);
    xmlNode* root = xmlDocGetRootElement(document.get());
    xmlNode* a = Helpers::findChildWithName(root, "A", 0);
    ASSERT_NE(a, nullptr);
    // From A: its own subtree, then the sibling C and its subtree.
    EXPECT_NE(Helpers::findChildWithName(a, "X", 2), nullptr);
    EXPECT_EQ(Helpers::findChildWithName(a, "X", 3), nullptr);
    EXPECT_EQ(Helpers::findChildWithName(a, "X", -1), nullptr);
    EXPECT_EQ(Helpers::findChildWithName(nullptr, "X", 0), nullptr);
    // From B, the walk does not climb to B's parent's siblings.
    xmlNode* b = Helpers::findChildWithName(a, "B", 0);
    EXPECT_EQ(Helpers::findChildWithName(b, "C", 0), nullptr);
    xmlNode* x3 = Helpers::findChildWithAttribute(a, "X", "name", "3");
    ASSERT_NE(x3, nullptr);
    EXPECT_STREQ(Helpers::text(x3), "t");
    EXPECT_EQ(Helpers::findChildWithAttribute(a, "X", "other", "3"), nullptr);
    EXPECT_EQ(Helpers::countChildrenWithName(a, "X"), 1);

    EXPECT_TRUE(Helpers::setText(x3, "replaced"));
    EXPECT_STREQ(Helpers::text(x3), "replaced");
    xmlNode* x1 = Helpers::findChildWithName(a, "X", 0);
    EXPECT_EQ(Helpers::text(x1), nullptr);
    EXPECT_TRUE(Helpers::setText(x1, "new"));
    EXPECT_STREQ(Helpers::text(x1), "new");
}

TEST(MetaFlightParser, deepNestingIsRefusedByTheXmlParser) {
    // 10,000 nested elements exceed libxml2's depth limit: a message, no recursion of
    // ours. 100,000 children of one element load, and each becomes a map entry.
    TempDir dir;
    std::string nested;
    for (int i = 0; i < 10000; ++i)
        nested += "<n>";
    for (int i = 0; i < 10000; ++i)
        nested += "</n>";
    DtMetaFlightParser parser;
    std::string error;
    EXPECT_FALSE(parser.openFile(dir.write("deep.mft", wrap(nested)), "", error));
    EXPECT_NE(error.find("depth"), std::string::npos) << error;

    std::string wide;
    for (int i = 0; i < 100000; ++i)
        wide += "<Ellipsoid/>";
    ASSERT_TRUE(parser.openFile(dir.write("wide.mft", wrap(wide)), "", error)) << error;
    EXPECT_EQ(parser.numberOfChildElements(), 100000u);
    kelZor::DtMetaFlightTypes::Database database;
    database.parse(parser);
    EXPECT_EQ(database.ellipsoid.size(), 100000u);
    EXPECT_NO_THROW(database.resolveReferences());
}

// Numbers read as atof reads them, whatever shortcut plain digits take: each text is the
// only child of its element, and the element's value must be strtod's, bit for bit.
TEST(MetaFlightParser, decimalValuesAreAtofsReading) {
    // One per line below: plain numbers, then what only strtod reads, then what it refuses.
    std::vector<std::string> texts;
    std::istringstream lines(
        "6378137\n-0\n007\n1e5\n1E+05\n2e-3\n1e\n1e308\n1e309\n-1e400\n4.9e-324\n1e-400\n"
        "9007199254740993\n123456789012345678901234567890\n 5\n+5\n0x10\n1.5\ninf\nnan\n"
        "12abc\n-\n\n");
    for (std::string line; std::getline(lines, line);)
        texts.push_back(line);
    std::string body;
    for (const std::string& text : texts)
        body += "<V>" + text + "</V>";
    TempDir dir;
    DtMetaFlightParser parser;
    std::string error;
    ASSERT_TRUE(parser.openFile(dir.write("numbers.mft", wrap(body)), "", error)) << error;
    ASSERT_TRUE(parser.readFirstChildElement());
    for (const std::string& text : texts) {
        double value = -1;
        const bool hasText = parser.getCurrentElementValue(value);
        EXPECT_EQ(hasText, !text.empty()) << text;
        if (hasText) {
            const double expected = std::strtod(text.c_str(), nullptr);
            EXPECT_TRUE(std::memcmp(&value, &expected, sizeof value) == 0 ||
                        (std::isnan(value) && std::isnan(expected)))
                << "\"" << text << "\" read as " << value << ", strtod gives " << expected;
        }
        parser.readNextElement();
    }
}
