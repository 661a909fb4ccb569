#include <gtest/gtest.h>

#include "MetaFlightDocument.h"
#include "ParserAnswer.h"
#include "TempDir.h"
#include "hxutil/DtException.h"
#include "matrix/DtAngles.h"
#include "zorTerrain/DtMetaFlightHeaderParser.h"
#include "zorTerrain/DtMetaFlightTypes.h"
#include "zorUtil/DtCoordinateSystem.h"

using namespace kelZor;

namespace {

ParserAnswer ask(const MetaFlightDocument& doc) {
    TempDir dir;
    return askParser(DtMetaFlightHeaderParser(dir.write("doc.mft", doc.text())));
}

std::string utmSystem(const std::string& falseOrigin) {
    return "<Ellipsoid name=\"E\"/><ProjectedCoordSys name=\"G\"><UnitsCategory>LINEAR_DISTANCE"
           "</UnitsCategory><HorizontalDatumUsed refTo=\"E\"/>" +
           falseOrigin +
           "<UTM><Zone>33</Zone><Hemisphere>SOUTH</Hemisphere></UTM></ProjectedCoordSys>";
}

}  // namespace

TEST(MetaFlightHeaderParser, utmTakesTheShortInitUnlessAFalseOriginIsSet) {
    MetaFlightDocument doc;
    doc.systems = utmSystem("");
    ParserAnswer a = ask(doc);
    ASSERT_TRUE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::UTM);
    DtUtmCoordinateConverter shortInit;
    shortInit.init(33, 'S', true);
    EXPECT_EQ(a.parameters, shortInit.stringRep());

    doc.systems = utmSystem("<FalseOriginY>10000000</FalseOriginY>");
    a = ask(doc);
    ASSERT_TRUE(a.valid);
    DtUtmCoordinateConverter longInit;
    longInit.init(0.0, 10000000.0, 0.0, 33, 'S', true);
    EXPECT_EQ(a.parameters, longInit.stringRep());
    EXPECT_EQ(a.patches, 1u);
}

TEST(MetaFlightHeaderParser, otherSystemsAndShapes) {
    MetaFlightDocument doc;
    doc.systems =
        "<Ellipsoid name=\"E\"/><ProjectedCoordSys name=\"G\"><HorizontalDatumUsed refTo=\"E\"/>"
        "<FlatEarth><OriginLatitude>45</OriginLatitude><OriginLongitude>10</OriginLongitude>"
        "</FlatEarth></ProjectedCoordSys>";
    ParserAnswer a = ask(doc);
    ASSERT_TRUE(a.valid);
    const DtCoordinateSystem flat(a.type, a.parameters);
    EXPECT_DOUBLE_EQ(flat.flatEarthConverter()->lat(), DtDeg2Rad(45.0));
    EXPECT_DOUBLE_EQ(flat.flatEarthConverter()->lon(), DtDeg2Rad(10.0));

    // Data in other systems than the grid's.
    const std::string grid = utmSystem("");
    doc.systems = grid + "<NonGeoreferencedCoordSys name=\"L\"/>";
    doc.dataSystem = "L";
    a = ask(doc);
    EXPECT_TRUE(a.valid);
    EXPECT_EQ(a.type + a.parameters, "");
    EXPECT_EQ(a.patches, 1u);
    doc.systems = grid +
                  "<NonProjectedCoordSys name=\"N\"><HorizontalDatumUsed refTo=\"E\"/>"
                  "<GeoType>GEOCENTRIC</GeoType></NonProjectedCoordSys>";
    doc.dataSystem = "N";
    EXPECT_EQ(ask(doc).type, DtCoordinateConverter::Geocentric);
    doc.systems = grid +
                  "<NonProjectedCoordSys name=\"N\"><HorizontalDatumUsed "
                  "refTo=\"E\"/></NonProjectedCoordSys>";
    a = ask(doc);
    EXPECT_FALSE(a.valid);
    EXPECT_EQ(a.patches, 0u);
    doc.systems = grid +
                  "<ProjectedCoordSys name=\"N\"><HorizontalDatumUsed refTo=\"E\"/>"
                  "<LambertConicConformal/></ProjectedCoordSys>";
    EXPECT_FALSE(ask(doc).valid);

    MetaFlightDocument shapes;
    shapes.datasetChildren = "<FileFormat>MEDF</FileFormat>";
    EXPECT_FALSE(ask(shapes).valid);
    shapes.datasetChildren = "<FileFormat>medf</FileFormat>";
    const std::string stack =
        "<CoordSysUsed refTo=\"G\"/><GridStack><GridStructureUsed refTo=\"S\"/>"
        "<CoverageUsed refTo=\"C\"/></GridStack>";
    shapes.more = "<VirtualTextureDataset name=\"v1\">" + stack + "</VirtualTextureDataset>";
    EXPECT_TRUE(ask(shapes).valid);  // one virtual texture passes
    shapes.more += "<VirtualTextureDataset name=\"v2\">" + stack + "</VirtualTextureDataset>";
    EXPECT_FALSE(ask(shapes).valid);
    shapes.more = "<GeometryGridDataset name=\"second\"><SwitchDistanceTableUsed refTo=\"T\"/>" +
                  stack + "</GeometryGridDataset>";
    EXPECT_FALSE(ask(shapes).valid);
}

TEST(MetaFlightHeaderParser, brokenDocumentsAreFalseOrThrow) {
    TempDir dir;
    EXPECT_FALSE(DtMetaFlightHeaderParser(dir.write("x.mft", "not xml")).isValid());
    EXPECT_FALSE(DtMetaFlightHeaderParser(dir.file("missing.mft")).isValid());
    DtMetaFlightHeaderParser empty(dir.write("e.mft", "<Root><Database/></Root>"));
    EXPECT_THROW(empty.isValid(), DtTemplatedException<-1>);
    DtMetaFlightHeaderParser dangling(
        dir.write("d.mft", "<Root><Database><Coverage/></Database></Root>"));
    EXPECT_THROW(dangling.isValid(), DtMetaFlightTypes::EnumParseErrorException);

    MetaFlightDocument doc;
    DtMetaFlightHeaderParser twice(dir.write("t.mft", doc.text()));
    EXPECT_TRUE(twice.isValid());
    EXPECT_TRUE(twice.isValid());
    EXPECT_EQ(twice.terrainPatchRecords().size(), 2u);
}
