#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <cmath>
#include <filesystem>
#include <string>

#include "MetaFlightDocument.h"
#include "TempDir.h"
#include "hxutil/DtException.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"

using namespace kelZor;
using T = DtMetaFlightTypes;
using Description = DtMetaFlightDescription;

namespace {

struct Loaded {
    TempDir dir;
    DtMetaFlightParser parser;
    Description description;
    std::string path;

    explicit Loaded(const std::string& text, const std::string& subdirectory = "terrain") {
        std::filesystem::create_directories(dir.file(subdirectory));
        path = dir.write(subdirectory + "/doc.mft", text);
        std::string error;
        if (!parser.openFile(path, "", error))
            throw std::runtime_error(error);
        description.parse(parser);
    }
};

template <int Code, typename Call>
std::string failure(Call call) {
    try {
        call();
    } catch (const DtTemplatedException<Code>& e) {
        return e.message();
    }
    return "(no failure)";
}

boost::shared_ptr<T::CoordSysType> geodetic() {
    auto system = boost::make_shared<T::NonProjectedCoordSys>();
    system->geoType.value = T::GeoType::GEODETIC;
    return system;
}

boost::shared_ptr<T::CoordSysType> utm(unsigned zone, T::Hemisphere::Value hemisphere) {
    auto system = boost::make_shared<T::ProjectedCoordSys>();
    system->unitsCategory.value = T::UnitsCategory::LINEAR_DISTANCE;
    system->uTM = boost::make_shared<T::UTM>();
    system->uTM->zone = zone;
    system->uTM->hemisphere.value = hemisphere;
    return system;
}

// Reaches the protected degree helpers.
struct Degrees : Description {
    using Description::setDtDegMinSecFromDegrees;
    using Description::setLatDtDegMinSecFromDegrees;
    using Description::setLonDtDegMinSecFromDegrees;
};

}  // namespace

TEST(MetaFlightDescription, anEmptyDescriptionAnswersZeroAndThrows) {
    Description description;
    EXPECT_EQ(description.numberOfGeometryDatasets(), 0u);
    EXPECT_EQ(description.numberOfVirtualTextureDatasets(), 0u);
    EXPECT_EQ(failure<-1>([&] { description.geometryDatasetName(0); }),
              "DtInvalidInput: Index out of range.");
    EXPECT_EQ(failure<-1>([&] { description.geometryDatasetTitle("x"); }),
              "DtInvalidInput: Unable to find key");
}

TEST(MetaFlightDescription, datasetsAndLevelsComeFromTheirOwnSources) {
    MetaFlightDocument doc;
    doc.gridLevels += MetaFlightDocument::level("L2", 4, 1);  // one more than the dataset's
    doc.more =
        "<GeometryGridDataset name=\"A\"><DatasetName>first</DatasetName>"
        "<SwitchDistanceTableUsed refTo=\"T\"/><CoordSysUsed refTo=\"G\"/><GridStack>"
        "<GridStructureUsed refTo=\"S\"/><CoverageUsed "
        "refTo=\"C\"/></GridStack></GeometryGridDataset>";
    Loaded loaded(doc.text());
    const Description& d = loaded.description;
    ASSERT_EQ(d.numberOfGeometryDatasets(), 2u);
    EXPECT_EQ(d.geometryDatasetName(0), "A");  // key order, not document order
    EXPECT_EQ(d.geometryDatasetName(1), "D");
    EXPECT_EQ(d.geometryDatasetName(std::string("D")), "terrain");
    EXPECT_EQ(d.geometryGridLevelName("D", 2), "L2");
    EXPECT_EQ(failure<-1>([&] { d.geometryGridLevelTileType("D", 2); }),
              "DtInvalidInput: Index out of range.");
    EXPECT_EQ(d.geometryGridLevelColumns("D", 0), 3u);
    EXPECT_EQ(d.geometryGridLevelColumns("D", 2), 24u);
    EXPECT_EQ(d.geometryGridLevelRows("D", 2), 4u);
    EXPECT_EQ(d.geometryGridLevelSwitchIn("D", 1), 100.0);
    EXPECT_EQ(d.geometryGridLevelSwitchOut("D", 1), 900.0);

    std::vector<std::string> paths{"kept"};
    loaded.description.getPaths(paths);
    EXPECT_EQ(paths, (std::vector<std::string>{"kept", loaded.dir.file("terrain")}));
}

TEST(MetaFlightDescription, tileCentresLieHalfASpacingIn) {
    MetaFlightDocument doc;
    doc.gridLevels = MetaFlightDocument::level("L0", 6, 4);
    doc.geometryLevels = MetaFlightDocument::geometryLevel("LOCALIZED");
    Loaded loaded(doc.text());
    const Description& d = loaded.description;
    double x, y, z;
    d.geometryGridTileCenter("D", 0, 1, 2, x, y, z);
    EXPECT_EQ(x, 1250.0);
    EXPECT_EQ(y, 2150.0);
    EXPECT_EQ(z, 0.0);
    d.geometryGridTileCenter("D", 0, 3, 5, x, y, z);
    EXPECT_EQ(x, 1550.0);
    EXPECT_EQ(y, 2350.0);
    EXPECT_EQ(failure<-1>([&] { d.geometryGridTileCenter("D", 0, 4, 0, x, y, z); }),
              "DtInvalidInput: Row out of range.");
    EXPECT_EQ(failure<-1>([&] { d.geometryGridTileCenter("D", 0, 0, 6, x, y, z); }),
              "DtInvalidInput: Row out of range.");
    EXPECT_EQ(failure<-1>([&] { d.geometryGridTileCenter("D", 1, 0, 0, x, y, z); }),
              "DtInvalidInput: Index out of range.");
    // One UTM system for grid and data: half the extent's diagonal.
    EXPECT_DOUBLE_EQ(d.geometryDatasetRadius("D"), std::hypot(300.0, 200.0));
}

TEST(MetaFlightDescription, offsetsFollowTheLocalizedLevelAbove) {
    MetaFlightDocument doc;
    doc.gridLevels = MetaFlightDocument::level("L0", 3, 2) + MetaFlightDocument::level("L1", 2, 2) +
                     MetaFlightDocument::level("L2", 2, 3) + MetaFlightDocument::level("L3", 1, 1);
    doc.geometryLevels = MetaFlightDocument::geometryLevel("LOCALIZED") +
                         MetaFlightDocument::geometryLevel("LOCALIZED_DEPENDENT") +
                         MetaFlightDocument::geometryLevel("LOCALIZED_DEPENDENT") +
                         MetaFlightDocument::geometryLevel("UNLOCALIZED");
    Loaded loaded(doc.text());
    const Description& d = loaded.description;
    double x, y, z, cx, cy, cz;
    d.geometryGridTileOffset("D", 1, 3, 5, x, y, z);  // under 2 x 2: tile (1, 2) above
    d.geometryGridTileCenter("D", 0, 1, 2, cx, cy, cz);
    EXPECT_EQ(x, cx);
    EXPECT_EQ(y, cy);
    d.geometryGridTileOffset("D", 2, 11, 7, x, y, z);  // rows 3*2, cols 2*2 up to level 0
    d.geometryGridTileCenter("D", 0, 1, 1, cx, cy, cz);
    EXPECT_EQ(x, cx);
    EXPECT_EQ(y, cy);
    d.geometryGridTileOffset("D", 3, 999, 999, x, y, z);
    EXPECT_EQ(x + y + z, 0.0);

    MetaFlightDocument top;
    top.geometryLevels = MetaFlightDocument::geometryLevel("LOCALIZED_DEPENDENT");
    Loaded corrupt(top.text());
    x = 7;
    EXPECT_EQ(
        failure<-3>([&] { corrupt.description.geometryGridTileOffset("D", 0, 0, 0, x, y, z); }),
        "DtCorruptedState: Metaflight Corrupt, top level can't be LOCALIZED DEPENDENT");
    EXPECT_EQ(x, 7.0);
}

TEST(MetaFlightDescription, positionsConvertThroughGeocentric) {
    // GeoConvert -u: 45.5 10 is 32n 578126.7375 5038982.8121.
    double x = DtDeg2Rad(45.5), y = DtDeg2Rad(10.0), z = 100.0;
    Description::convertPosition(geodetic(), utm(32, T::Hemisphere::NORTH), x, y, z);
    EXPECT_NEAR(x, 578126.7375, 1e-3);
    EXPECT_NEAR(y, 5038982.8121, 1e-3);
    EXPECT_NEAR(z, 100.0, 1e-6);
    Description::convertPosition(utm(32, T::Hemisphere::NORTH), geodetic(), x, y, z);
    EXPECT_NEAR(DtRad2Deg(x), 45.5, 1e-9);
    EXPECT_NEAR(DtRad2Deg(y), 10.0, 1e-9);

    // Same kind: untouched, whatever the zones.
    x = 1, y = 2, z = 3;
    Description::convertPosition(utm(32, T::Hemisphere::NORTH), utm(33, T::Hemisphere::SOUTH), x, y,
                                 z);
    EXPECT_EQ(x + y + z, 6.0);

    // Southern hemisphere: GeoConvert -u: -33.9 18.4 is 34s 259583.2217 6245888.0454.
    x = DtDeg2Rad(-33.9), y = DtDeg2Rad(18.4), z = 0;
    Description::convertPosition(geodetic(), utm(34, T::Hemisphere::SOUTH), x, y, z);
    EXPECT_NEAR(y, 6245888.0454, 1e-3);

    auto lambert = boost::make_shared<T::ProjectedCoordSys>();
    lambert->lambertConicConformal = boost::make_shared<T::LambertConicConformal>();
    using System = boost::shared_ptr<T::CoordSysType>;
    const std::pair<System, System> unsupported[] = {
        {lambert, lambert},
        {geodetic(), System()},
        {boost::make_shared<T::NonGeoreferencedCoordSys>(), geodetic()}};
    x = 1, y = 2, z = 3;
    for (const auto& [from, to] : unsupported) {
        EXPECT_EQ(failure<-3>([&] { Description::convertPosition(from, to, x, y, z); }),
                  "DtCorruptedState: Unsupported Database Coordinate System");
    }
    EXPECT_EQ(x + y + z, 6.0);
}

TEST(MetaFlightDescription, virtualTextureOriginReadsBackInAnAngularSystem) {
    MetaFlightDocument doc;
    doc.systems +=
        "<NonProjectedCoordSys name=\"Geo\"><HorizontalDatumUsed "
        "refTo=\"E\"/></NonProjectedCoordSys>";
    doc.more =
        "<Coverage name=\"VC\"><CoordSysUsed refTo=\"Geo\"/><Origin><X>-120</X><Y>30</Y></Origin>"
        "<Extent><X>2</X><Y>1</Y></Extent></Coverage>"
        "<VirtualTextureDataset name=\"V\"><DatasetTitle>t</DatasetTitle><CoordSysUsed "
        "refTo=\"Geo\"/>"
        "<GridStack><GridStructureUsed refTo=\"VS\"/><CoverageUsed refTo=\"VC\"/>"
        "<FileNamePattern>$(DSNAME)_$(NUMTEXELSX)x$(NUMTEXELSY)</FileNamePattern></GridStack>"
        "</VirtualTextureDataset><GridStructure name=\"VS\"><NumLevels>4</NumLevels>" +
        MetaFlightDocument::level("a", 1, 1) + MetaFlightDocument::level("b", 2, 2) +
        MetaFlightDocument::level("c", 2, 2) + MetaFlightDocument::level("d", 2, 2) +
        "</GridStructure>";
    Loaded loaded(doc.text());
    const Description& d = loaded.description;
    const auto geo = d.virtualTextureCoordinateSystem("V");
    const T::Position2D origin = d.virtualTextureDatasetOrigin("V", geo);
    EXPECT_NEAR(origin.x, -120.0, 1e-12);
    EXPECT_NEAR(origin.y, 30.0, 1e-12);
    const T::Position2D extent = d.virtualTextureDatasetExtent("V", geo);
    EXPECT_NEAR(extent.x, 2.0, 1e-12);
    EXPECT_NEAR(extent.y, 1.0, 1e-12);
    EXPECT_EQ(d.virtualTextureDatasetTileTexels("V"), 512u);
    EXPECT_EQ(d.numberOfVirtualTextureGridLevels("V"), 4u);
    EXPECT_EQ(d.virtualTextureGridLevelColumns("V", 3), 8u);
    EXPECT_EQ(d.generateVirtualTextureFileName("V", 3, 0, 0),
              loaded.dir.file("terrain") + "/V_8x8");
    EXPECT_EQ(d.generateVirtualTextureFileName("V", 0, 0, 0),
              loaded.dir.file("terrain") + "/V_1x1");
}

TEST(MetaFlightDescription, degreesSplitWithTheSignInTheHemisphere) {
    DtDegMinSec value;
    Degrees::setLatDtDegMinSecFromDegrees(value, -10.5);
    EXPECT_EQ(value.degrees(), 10.0);
    EXPECT_EQ(value.minutes(), 30.0);
    EXPECT_EQ(value.seconds(), 0.0);
    EXPECT_EQ(value.hemisphere(), 3);
    Degrees::setLonDtDegMinSecFromDegrees(value, -10.5);
    EXPECT_EQ(value.hemisphere(), 1);
    Degrees::setLatDtDegMinSecFromDegrees(value, 0.0);
    EXPECT_EQ(value.hemisphere(), 2);
    Degrees::setLonDtDegMinSecFromDegrees(value, 0.0);
    EXPECT_EQ(value.hemisphere(), 0);
}

TEST(MetaFlightFileNames, thePatternLanguage) {
    std::map<std::string, Description::StringOrInt> v;
    v["DSNAME"] = std::string("terrain");
    v["FILEFORMAT"] = std::string("flt");
    v["LEVEL"] = 3;
    v["ROW"] = 12;
    v["COL"] = 7;
    v["NEG"] = -5;
    v["LONG"] = std::string(2100, 'x');
    v["BIG"] = 70000;
    v["ZERO"] = 0;
    const char* const cases[][2] = {
        {"$(DSNAME)/L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)",
         "terrain/L03/tile_012_007.flt"},
        {"plain 100%", "plain 100%"},
        {"a$(LEVEL)", "a3"},
        {"$(ROW)$(COL)", "127"},
        {"tile_$(ROW", ""},
        {"$(UNKNOWN)", ""},
        {"50%%$(ROW)", "50%"},  // a format like any other: the value does not appear
        {"$(ROW)%d tail", "12%d tail"},
        {"%x$(ROW).%-4s$(FILEFORMAT)|", "c.flt |"},
        {"%+d$(NEG)%05u$(ROW)%#o$(COL)", "-50001207"},
        // Whatever printf defines for an int is taken, as printf formats it.
        {"%hd$(BIG)", "4464"},
        {"%hhd$(BIG)", "112"},
        {"%+u$(ROW)", "12"},
        {"% x$(ROW)", "c"},
        {"%.5000s$(DSNAME)", "terrain"},
        {"%.00005d$(ROW)", "00012"},
        {"%.2c$(ROW)", "\f"},
        {"%0s$(DSNAME)", "terrain"},
        {"%#d$(ROW)", "12"},
        {"a%cb$(ZERO)tail", "atail"},  // the formatted piece is a C string
        // Unsafe or unfitting formats are refused like a bad pattern.
        {"%n$(ROW)", ""},
        {"%*d$(ROW)", ""},
        {"%d%d$(ROW)", ""},
        {"%s$(ROW)", ""},
        {"%d$(DSNAME)", ""},
        {"%ld$(ROW)", ""},
        {"%lld$(ROW)", ""},
        {"%zd$(ROW)", ""},
        {"%hs$(DSNAME)", ""},
        {"%5000d$(ROW)", ""},
        {"%.2048d$(ROW)", ""},
        {"%$(ROW)", ""},
        {"$(LONG)", ""},
        {"%2046d$(ROW)", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        const std::string result = Description::generateFileName(c[0], v);
        if (c[1]) {
            EXPECT_EQ(result, c[1]);
        } else {
            EXPECT_EQ(result.size(), 2046u);  // just below the 2048 limit
        }
    }
}

TEST(MetaFlightFileNames, tilePathsSkipTheDocumentsOwnDirectoryName) {
    MetaFlightDocument doc;
    doc.pattern = "$(DSNAME)\\L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).flt";
    Loaded inTerrain(doc.text(), "terrain");
    EXPECT_EQ(inTerrain.description.generateGeometryGridTileFilename("D", 1, 12, 7),
              inTerrain.dir.file("terrain") + "//L01/tile_012_007.flt");
    Loaded inOther(doc.text(), "other");
    EXPECT_EQ(inOther.description.generateGeometryGridTileFilename("D", 1, 12, 7),
              inOther.dir.file("other") + "/terrain/L01/tile_012_007.flt");
    doc.pattern = "/abs/$(ROW)";
    Loaded absolute(doc.text());
    EXPECT_EQ(absolute.description.generateGeometryGridTileFilename("D", 0, 4, 0),
              absolute.dir.file("terrain") + "//abs/4");
    doc.pattern = "$(NUMTEXELSX)";  // not a geometry variable: the directory alone
    Loaded bad(doc.text());
    EXPECT_EQ(bad.description.generateGeometryGridTileFilename("D", 0, 0, 0),
              bad.dir.file("terrain") + "/");
    EXPECT_EQ(failure<-1>([&] { bad.description.generateGeometryGridTileFilename("D", 5, 0, 0); }),
              "DtInvalidInput: Index out of range.");
}
