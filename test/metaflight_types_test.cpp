#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "TempDir.h"
#include "hxutil/DtException.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtMetaFlightTypes.h"
#include "zorUtil/templateUtil.h"

using namespace kelZor;
using T = DtMetaFlightTypes;

namespace {

// Parses a document whose Database holds `body`; resolves it when asked.
struct Loaded {
    TempDir dir;
    DtMetaFlightParser parser;
    T::Database database;

    explicit Loaded(const std::string& body, bool resolve = true) {
        std::string error;
        const std::string path = dir.write("doc.mft", "<MetaFlightRoot><Database name=\"db\">" +
                                                          body + "</Database></MetaFlightRoot>");
        if (!parser.openFile(path, "", error))
            throw std::runtime_error(error);
        database.parse(parser);
        if (resolve)
            database.resolveReferences();
    }
};

std::string resolveError(const std::string& body) {
    try {
        Loaded loaded(body);
    } catch (const T::EnumParseErrorException& e) {
        return e.what();
    }
    return "(resolved)";
}

const char* const ellipsoidAndUtm =
    "<Ellipsoid name=\"WGS84\"/>"
    "<ProjectedCoordSys name=\"Zone33\"><HorizontalDatumUsed refTo=\"WGS84\"/>"
    "<UTM><Zone>33</Zone></UTM></ProjectedCoordSys>";

}  // namespace

TEST(MetaFlightEnums, textsAreWholeCaseInsensitiveAndTheDefaultIsTheFirstRow) {
    T::UnitType unit;
    for (const char* text : {"meters", "Meters", "METERS"}) {
        unit.value = T::UnitType::FEET;
        unit.setFromString(text);
        EXPECT_EQ(unit.value, T::UnitType::METERS);
    }
    EXPECT_EQ(unit.toString(), "METERS");
    unit.setFromString("arcminutes");
    EXPECT_EQ(unit.value, 12);
    unit.setFromString("MINUTES");
    EXPECT_EQ(unit.value, 10);
    T::LocalizedType localized;
    localized.setFromString("LOCALIZED");
    EXPECT_EQ(localized.value, T::LocalizedType::LOCALIZED);
    EXPECT_EQ(T::PixelOrigin().toString(), "LL_OPENGL_PIXELORIGIN_TYPE");

    T::TileType tile;
    tile.value = T::TileType::FILE_GEOM;
    for (const std::string& bad : {std::string(" GROUP"), std::string("GROUP "), std::string(""),
                                   std::string("GROUP\0X", 7)}) {
        try {
            tile.setFromString(bad);
            ADD_FAILURE() << bad;
        } catch (const T::EnumParseErrorException& e) {
            EXPECT_STREQ(e.what(), "TileType");
        }
    }
    EXPECT_EQ(tile.value, T::TileType::FILE_GEOM);
    T::Hemisphere hemisphere;
    hemisphere.value = static_cast<T::Hemisphere::Value>(2);
    EXPECT_THROW(hemisphere.toString(), T::EnumParseErrorException);
}

TEST(MetaFlightTypes, membersFollowTheirKinds) {
    Loaded loaded(
        "<ProjectedCoordSys name=\"p\">"
        "  <!-- comment first --> text first"
        "  <description>ignored here</description>"
        "  <Unknown><UTM><Zone>9</Zone></UTM></Unknown>"
        "  <utm><Zone>31</Zone><Description>first</Description></utm>"
        "  <UTM><Zone>no digits</Zone><hemisphere>south</hemisphere></UTM>"
        "  <FalseOriginX>12.5</FalseOriginX><FalseOriginX/>"
        "</ProjectedCoordSys>"
        "<GridStructure name=\"g\"><GridLevel><LevelName>a</LevelName></GridLevel>"
        "  <GridLevel><LevelName>b</LevelName><NumColDivisions>-1</NumColDivisions></GridLevel>"
        "  <GridLevel><LevelName>c</LevelName></GridLevel></GridStructure>"
        "<Coverage name=\"c\"><Origin><Y>3</Y></Origin><Origin><X>2</X></Origin></Coverage>"
        "<VirtualTextureDataset name=\"v\"/>"
        "<ModelListDataset name=\"m\"><Model><BoundingBox><Max><X>1</X></Max></BoundingBox>"
        "  "
        "<FileSize>10</FileSize><Textures><FileSize>20</FileSize></Textures></Model></"
        "ModelListDataset>",
        false);
    const T::ProjectedCoordSys& p = *loaded.database.projectedCoordSys.at("p");
    ASSERT_TRUE(p.uTM);
    EXPECT_EQ(p.uTM->zone, 0u);  // the later UTM replaced the earlier one whole
    EXPECT_EQ(p.uTM->description, "");
    EXPECT_EQ(p.uTM->hemisphere.value, T::Hemisphere::SOUTH);
    EXPECT_FALSE(p.flatEarth);
    EXPECT_FALSE(p.stereographic);
    EXPECT_EQ(p.falseOriginX, 12.5);  // an empty repeat keeps the value

    const T::GridStructure& g = *loaded.database.gridStructure.at("g");
    ASSERT_EQ(g.gridLevel.size(), 3u);
    EXPECT_EQ(g.gridLevel[2]->levelName, "c");
    EXPECT_EQ(g.gridLevel[0]->numColDivisions, 1u);
    EXPECT_EQ(g.gridLevel[1]->numColDivisions, 4294967295u);

    const T::Coverage& c = *loaded.database.coverage.at("c");
    EXPECT_EQ(c.origin.x, 2.0);
    EXPECT_EQ(c.origin.y, 0.0);  // a nested element given twice keeps only the second

    const T::VirtualTextureDataset& v = *loaded.database.virtualTextureDataset.at("v");
    EXPECT_EQ(v.numTileTexels, 512u);
    EXPECT_EQ(v.imageAttributes.numComponents, 1u);
    EXPECT_EQ(v.imageAttributes.bitsPerComponent, 8u);

    const T::Model& model = *loaded.database.modelListDataset.at("m")->model.at(0);
    EXPECT_EQ(model.versionMajor, 1);
    EXPECT_EQ(model.versionMinor, 2);
    EXPECT_EQ(model.fileSize, 10);
    EXPECT_EQ(model.textures->fileSize, 20);
    EXPECT_EQ(model.boundingBox->min.x, 0.0);
    EXPECT_EQ(model.boundingBox->max.x, 1.0);
}

TEST(MetaFlightTypes, unnamedElementsGetGeneratedNamesAndKeys) {
    Loaded loaded(
        "<Ellipsoid/><Ellipsoid><DatumShift/></Ellipsoid>"
        "<Ellipsoid name=\"same\"><SemiMajorRadius>1</SemiMajorRadius></Ellipsoid>"
        "<Ellipsoid name=\"same\"><SemiMajorRadius>2</SemiMajorRadius></Ellipsoid>",
        false);
    const auto& ellipsoids = loaded.database.ellipsoid;
    ASSERT_EQ(ellipsoids.size(), 3u);
    EXPECT_EQ(ellipsoids.at("unique_Ellipsoid_genid_1")->name, "unique_Ellipsoid_genid_0");
    // The second one's DatumShift takes a number between its name and its key.
    EXPECT_EQ(ellipsoids.at("unique_Ellipsoid_genid_4")->name, "unique_Ellipsoid_genid_2");
    EXPECT_EQ(ellipsoids.at("same")->semiMajorRadius, 2.0);
}

TEST(MetaFlightTypes, anUnknownEnumerationTextEndsTheParseKeepingWhatWasRead) {
    TempDir dir;
    DtMetaFlightParser parser;
    std::string error;
    ASSERT_TRUE(parser.openFile(
        dir.write("bad.mft",
                  "<MetaFlightRoot><Database><Ellipsoid "
                  "name=\"e\"><SemiMajorRadius>7</SemiMajorRadius></Ellipsoid>"
                  "<GeometryGridDataset name=\"d\"><GeometryGridLevel>"
                  "<TileType>TILE</TileType></GeometryGridLevel></GeometryGridDataset>"
                  "</Database></MetaFlightRoot>"),
        "", error));
    T::Database database;
    try {
        database.parse(parser);
        FAIL();
    } catch (const T::EnumParseErrorException& e) {
        EXPECT_STREQ(e.what(), "TileType");
    }
    EXPECT_EQ(database.ellipsoid.at("e")->semiMajorRadius, 7.0);
    // A parse after the one that threw starts cleanly.
    Loaded next("<Ellipsoid name=\"f\"/>", false);
    EXPECT_EQ(next.database.ellipsoid.count("f"), 1u);
}

// The text hook runs for an element with text, whatever class reads it: the library's own
// classes read none, a class from outside may.
TEST(MetaFlightTypes, parseTextRunsWhenTheElementHasText) {
    struct TextCounter : T::Element {
        int texts = 0;
        void parseText(DtMetaFlightParser&) override { ++texts; }
    };
    TempDir dir;
    for (const auto& [body, expected] :
         {std::pair<std::string, int>{"<Database><A/>text<B/></Database>", 1},
          {"<Database><A/><B/></Database>", 0}}) {
        DtMetaFlightParser parser;
        std::string error;
        ASSERT_TRUE(parser.openFile(dir.write("t.mft", "<Root>" + body + "</Root>"), "", error));
        TextCounter counter;
        counter.parse(parser);
        EXPECT_EQ(counter.texts, expected) << body;
    }
}

TEST(MetaFlightTypes, elementsOutliveTheirDatabaseAndParserOnAnyThread) {
    boost::shared_ptr<T::GeometryGridDataset> dataset;
    boost::shared_ptr<T::SwitchDistance> distance;
    {
        Loaded loaded(
            "<SwitchDistanceTable name=\"t\"><SwitchDistance name=\"near\"><Value>10</Value>"
            "</SwitchDistance></SwitchDistanceTable>"
            "<GeometryGridDataset name=\"d\"><FileFormat>flt</FileFormat>"
            "<GeometryGridLevel><TileType>FILE_GEOM</TileType></GeometryGridLevel>"
            "<GeometryGridLevel><TileType>LOD_GEOM</TileType></GeometryGridLevel>"
            "</GeometryGridDataset>",
            false);
        dataset = loaded.database.geometryGridDataset.at("d");
        distance = loaded.database.switchDistanceTable.at("t")->switchDistance.at("near");
    }
    ASSERT_EQ(dataset->geometryGridLevel.size(), 2u);
    EXPECT_EQ(dataset->geometryGridLevel[1]->tileType.value, T::TileType::LOD_GEOM);
    EXPECT_EQ(dataset->fileFormat, "flt");
    std::thread([held = std::move(dataset)]() mutable { held.reset(); }).join();
    EXPECT_EQ(distance->value, 10.0);
}

TEST(MetaFlightDatabase, namesResolveWithTheirPrefixRules) {
    Loaded loaded(
        std::string(ellipsoidAndUtm) +
        "<ProjectedCoordSys name=\"x:y\"><HorizontalDatumUsed refTo=\"WGS84\"/></ProjectedCoordSys>"
        "<ProjectedCoordSys name=\"y\"><HorizontalDatumUsed refTo=\"WGS84\"/></ProjectedCoordSys>"
        "<NonProjectedCoordSys name=\"Zone33\"><HorizontalDatumUsed refTo=\"a:b:WGS84\"/>"
        "</NonProjectedCoordSys>"
        "<Coverage name=\"c1\"><CoordSysUsed refTo=\"Foreign:Zone33\"/></Coverage>"
        "<Coverage name=\"c2\"><CoordSysUsed refTo=\"x:y\"/></Coverage>");
    const T::Database& db = loaded.database;
    // A name in both the projected and the non-projected map goes to the projected one.
    EXPECT_EQ(db.coverage.at("c1")->coordSysUsed.target.get(),
              static_cast<T::CoordSysType*>(db.projectedCoordSys.at("Zone33").get()));
    // An exact key wins over the part behind the colon.
    EXPECT_EQ(db.coverage.at("c2")->coordSysUsed.target.get(),
              static_cast<T::CoordSysType*>(db.projectedCoordSys.at("x:y").get()));
    EXPECT_EQ(db.nonProjectedCoordSys.at("Zone33")->horizontalDatumUsed.target,
              db.ellipsoid.at("WGS84"));
}

TEST(MetaFlightDatabase, theFirstDanglingNameThrowsWithItsMessage) {
    EXPECT_EQ(resolveError(""), "(resolved)");
    EXPECT_EQ(resolveError("<ProjectedCoordSys name=\"p\"><HorizontalDatumUsed "
                           "refTo=\"Nope\"/></ProjectedCoordSys>"),
              "Unable to find Ellipsoid name=Nope");
    EXPECT_EQ(resolveError("<ProjectedCoordSys name=\"p\"/>"), "Unable to find Ellipsoid name=");
    EXPECT_EQ(resolveError("<Ellipsoid name=\"e\"/><NonProjectedCoordSys name=\"n\">"
                           "<HorizontalDatumUsed refTo=\"e:\"/></NonProjectedCoordSys>"),
              "Unable to find Ellipsoid name=e:");
    // Coverages are visited in key order, used or not.
    EXPECT_EQ(resolveError("<Coverage name=\"b\"><CoordSysUsed refTo=\"B\"/></Coverage>"
                           "<Coverage name=\"a\"><CoordSysUsed refTo=\"A\"/></Coverage>"),
              "Unable to find NonGeoreferencedCoordSys name=A");

    const std::string base =
        std::string(ellipsoidAndUtm) +
        "<GridStructure name=\"g\"/>"
        "<Coverage name=\"c\"><CoordSysUsed refTo=\"Zone33\"/></Coverage>"
        "<SwitchDistanceTable name=\"t\"><SwitchDistance name=\"near\"/></SwitchDistanceTable>"
        "<SwitchDistanceTable name=\"u\"><SwitchDistance name=\"far\"/></SwitchDistanceTable>";
    const std::string stack =
        "<GridStack><GridStructureUsed refTo=\"g\"/><CoverageUsed refTo=\"c\"/></GridStack>";
    EXPECT_EQ(
        resolveError(base + "<VirtualTextureDataset name=\"v\"><GridStack>"
                            "<GridStructureUsed refTo=\"G\"/></GridStack></VirtualTextureDataset>"),
        "Unable to find GridStructure name=G");
    EXPECT_EQ(resolveError(base + "<VirtualTextureDataset name=\"v\">" + stack +
                           "</VirtualTextureDataset>"),
              "Unable to find NonGeoreferencedCoordSys name=");
    EXPECT_EQ(resolveError(base + "<GeometryGridDataset name=\"d\">" + stack +
                           "<CoordSysUsed refTo=\"Zone33\"/></GeometryGridDataset>"),
              "Unable to find SwitchDistanceTable name=");
    // A distance of another table is not found, though the document has it.
    EXPECT_EQ(resolveError(
                  base + "<GeometryGridDataset name=\"d\">" + stack +
                  "<SwitchDistanceTableUsed refTo=\"t\"/><GeometryGridLevel>"
                  "<SwitchOut_DistanceUsed refTo=\"near\"/><SwitchIn_DistanceUsed refTo=\"far\"/>"
                  "</GeometryGridLevel></GeometryGridDataset>"),
              "Unable to find CurrentSwitchDistanceTable name=far");
    EXPECT_EQ(resolveError(base + "<GeometryGridDataset name=\"d\">" + stack +
                           "<SwitchDistanceTableUsed refTo=\"t\"/><CoordSysUsed refTo=\"Zone33\"/>"
                           "</GeometryGridDataset><ModelListDataset/>"),
              "(resolved)");
}

TEST(TemplateUtil, lookupsThrowAndNeverAdd) {
    std::map<std::string, int> map{{"b", 2}, {"a", 1}};
    EXPECT_EQ(findOrThrow(map, std::string("b")), 2);
    try {
        findOrThrow(map, std::string("c"));
        FAIL();
    } catch (const DtTemplatedException<-1>& e) {
        EXPECT_STREQ(e.message(), "DtInvalidInput: Unable to find key");
        EXPECT_EQ(e.file(), "templateUtil.h");
    }
    EXPECT_EQ(map.size(), 2u);
    EXPECT_EQ(findByIndexOrThrow(map, 0), 1);  // key order, not insertion order
    EXPECT_EQ(findByIndexOrThrow(map, 1), 2);
    EXPECT_THROW(findByIndexOrThrow(map, 2), DtTemplatedException<-1>);
    EXPECT_THROW(findByIndexOrThrow(map, -1), DtTemplatedException<-1>);
    const std::vector<int> vector{7, 8};
    EXPECT_EQ(findByIndexOrThrow(vector, 1), 8);
    EXPECT_THROW(findByIndexOrThrow(vector, 2), DtTemplatedException<-1>);
    EXPECT_THROW(findByIndexOrThrow(vector, -5), DtTemplatedException<-1>);
}
