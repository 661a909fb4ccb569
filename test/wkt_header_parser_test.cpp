// WKT texts are made by OGR in the test, as `gdalsrsinfo -o wkt_esri EPSG:n` writes
// them (OGC WKT for geocentric systems, which ESRI WKT cannot express), and embedded in
// binary files with other bytes around them, as model files carry them.
#include <gtest/gtest.h>

#include <ogr_spatialref.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include "ParserAnswer.h"
#include "TempDir.h"
#include "matrix/DtAngles.h"
#include "zorTerrain/DtWktHeaderParser.h"
#include "zorUtil/DtCoordinateSystem.h"

using namespace kelZor;

namespace {

std::string wktOf(int epsg, bool esri) {
    OGRSpatialReference srs;
    srs.importFromEPSG(epsg);
    if (esri)
        srs.morphToESRI();
    char* text = nullptr;
    srs.exportToWkt(&text);
    std::string wkt = text ? text : "";
    CPLFree(text);
    return wkt;
}

// A model file: binary bytes, the keys where the writer put them, more bytes.
std::string modelFile(const std::string& wkt, const std::string& origins = "") {
    return std::string("\x89OSG\0\x01\x02\x03 header ", 16) + "WKT Coordinate System: " + wkt +
           std::string("\0\x18", 2) + origins + std::string("\0\xff\xfe trailing geometry", 22);
}

ParserAnswer ask(const std::string& bytes) {
    TempDir dir;
    return askParser(DtWktHeaderParser(dir.write("model.osg", bytes)));
}

// Reaches the protected steps.
struct Steps : DtWktHeaderParser {
    using DtWktHeaderParser::DtWktHeaderParser;
    using DtWktHeaderParser::getOrigin;
    using DtWktHeaderParser::getWktString;
    using DtWktHeaderParser::usingDegrees;
};

}  // namespace

TEST(WktHeaderParser, everyUtmZoneGivesItsZoneAndHemisphere) {
    for (int zone = 1; zone <= 60; ++zone) {
        for (const bool north : {true, false}) {
            SCOPED_TRACE(std::to_string(zone) + (north ? "N" : "S"));
            const ParserAnswer a = ask(modelFile(wktOf((north ? 32600 : 32700) + zone, true)));
            ASSERT_TRUE(a.valid);
            EXPECT_EQ(a.type, DtCoordinateConverter::UTM);
            const DtCoordinateSystem system(a.type, a.parameters);
            EXPECT_EQ(system.utmConverter()->zone(), zone);
            EXPECT_EQ(system.utmConverter()->hemisphere(), north ? 'N' : 'S');
            EXPECT_EQ(a.patches, 1u);
        }
    }
}

TEST(WktHeaderParser, otherKindsAndRefusals) {
    ParserAnswer a = ask(modelFile(wktOf(2154, true)));  // Lambert-93: LCC 2SP
    ASSERT_TRUE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::Lambert);
    EXPECT_EQ(a.parameters, "46.5,3,49,44");

    a = ask(modelFile(wktOf(4978, false)));
    EXPECT_TRUE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::Geocentric);

    const std::string plate =
        "PROJCS[\"Plate\",GEOGCS[\"GCS_WGS_1984\",DATUM[\"D_WGS_1984\",SPHEROID[\"WGS_1984\","
        "6378137.0,"
        "298.257223563]],PRIMEM[\"Greenwich\",0.0],UNIT[\"Degree\",0.0174532925199433]],"
        "PROJECTION[\"Equirectangular\"],PARAMETER[\"False_Easting\",0.0],PARAMETER[\"False_"
        "Northing\",0.0],"
        "PARAMETER[\"Central_Meridian\",10.0],PARAMETER[\"Standard_Parallel_1\",45.0],UNIT["
        "\"Meter\",1.0]]";
    a = ask(modelFile(plate));
    ASSERT_TRUE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::FlatEarth);
    const DtCoordinateSystem flat(a.type, a.parameters);
    EXPECT_NEAR(flat.flatEarthConverter()->lat(), DtDeg2Rad(45.0), 1e-12);
    EXPECT_NEAR(flat.flatEarthConverter()->lon(), DtDeg2Rad(10.0), 1e-12);

    EXPECT_FALSE(ask(modelFile(wktOf(4326, true))).valid);  // geographic: not served
    EXPECT_FALSE(ask(modelFile(wktOf(3857, true))).valid);  // another projection
    EXPECT_FALSE(ask(modelFile("PROJCS[not wkt at all]")).valid);
    EXPECT_FALSE(ask("no key in here").valid);
    EXPECT_FALSE(ask("WKT Coordinate System: no bracket follows").valid);

    // A meridian of exactly -1 counts as missing.
    std::string missing = wktOf(32611, true);
    missing.replace(missing.find("-117.0"), 6, "-1.0");
    a = ask(modelFile(missing));
    EXPECT_FALSE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::UTM);
    EXPECT_EQ(a.parameters, "");
}

TEST(WktHeaderParser, aNonZeroOriginBecomesTheConvertersOrigin) {
    // UTM 11N easting 500000, northing 4000000 is 36.144718 N, 117 W (GeoConvert).
    ParserAnswer a = ask(modelFile(wktOf(32611, true), "X Origin: 500000\"Y Origin:: 4000000\0"));
    ASSERT_TRUE(a.valid);
    const DtCoordinateSystem utm(a.type, a.parameters);
    EXPECT_NEAR(utm.utmConverter()->originLatitude().toDegrees(), 36.144718, 1e-6);
    EXPECT_NEAR(utm.utmConverter()->originLongitude().toDegrees(), -117.0, 1e-9);
    EXPECT_EQ(utm.utmConverter()->zone(), 11);

    // (0, 5) is no zero origin: the Lambert centre moves to the file's origin.
    a = ask(modelFile(wktOf(2154, true), "X Origin 700000\x19 Y Origin 6600000\x19"));
    ASSERT_TRUE(a.valid);
    const DtCoordinateSystem lambert(a.type, a.parameters);
    EXPECT_NEAR(lambert.lambertConverter()->originLatitude(), 46.5, 1e-6);
    EXPECT_NEAR(lambert.lambertConverter()->originLongitude(), 3.0, 1e-6);
    EXPECT_EQ(lambert.lambertConverter()->parallel1(), 49.0);
}

TEST(WktHeaderParser, keysAreSearchedByteByByte) {
    TempDir dir;
    double value = -1;
    // "XX Origin" spends the second X on the failed match; "X Origin" itself is absent.
    Steps twice(dir.write("a.osg", "XX Origin: 12"));
    EXPECT_TRUE(twice.getOrigin("X Origin", value));
    EXPECT_EQ(value, 0.0);
    Steps once(dir.write("b.osg", "XXX Origin: 12 Y Origin:7.5\"9"));
    EXPECT_TRUE(once.getOrigin("Y Origin", value));
    EXPECT_EQ(value, 7.5);
    Steps missing(dir.file("none.osg"));
    EXPECT_TRUE(missing.getOrigin("X Origin", value));
    EXPECT_EQ(value, 0.0);
    // Too long for any number: refused, never cut into another number.
    Steps padded(dir.write("long.osg", "X Origin: " + std::string(5000, '0') + "500000\""));
    EXPECT_FALSE(padded.getOrigin("X Origin", value));
    const std::string utm = modelFile(
        wktOf(32633, true), "X Origin: " + std::string(5000, '0') + "500000\" Y Origin: 0\"");
    EXPECT_FALSE(ask(utm).valid);

    std::string wkt;
    Steps escapes(dir.write("c.osg", "WKT Coordinate System:: A[\\\"q\\\",\\\\,B[C]]tail]"));
    EXPECT_TRUE(escapes.getWktString(wkt));
    EXPECT_EQ(wkt, "A[\"q\",\\,B[C]]");
    Steps open(dir.write("d.osg", "WKT Coordinate System: X[[unterminated"));
    EXPECT_TRUE(open.getWktString(wkt));
    EXPECT_EQ(wkt, "X[[unterminated");
    Steps trailing(dir.write("e.osg", "WKT Coordinate System:\\"));
    EXPECT_FALSE(trailing.getWktString(wkt));
    EXPECT_EQ(wkt, "");
}

TEST(WktHeaderParser, aPipeIsReadToItsEnd) {
    TempDir dir;
    const std::string fifo = dir.file("model.osg");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string bytes = modelFile(wktOf(32633, true), "X Origin: 500000\" Y Origin: 0\"");
    // The parser opens the file once for each key: the writer serves each open until the
    // parser is done, and an open read end lets a last waiting writer go.
    std::signal(SIGPIPE, SIG_IGN);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        while (!done) {
            if (FILE* out = std::fopen(fifo.c_str(), "wb")) {
                std::fwrite(bytes.data(), 1, bytes.size(), out);
                std::fclose(out);
            }
        }
    });
    DtWktHeaderParser parser(fifo);
    EXPECT_TRUE(parser.isValid());
    EXPECT_EQ(parser.terrainCoordinateSystem(), "UTM");
    done = true;
    const int release = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    writer.join();
    ::close(release);
}

TEST(WktHeaderParser, keysSplitOverBlockBoundaries) {
    // The reader takes 1 MiB blocks: put each key across the first boundary. And a key
    // behind its own first letter is not found: "WWKT ..." spends the second W.
    const std::string wkt = wktOf(32633, true);
    for (size_t cut : {1u, 5u, 12u, 20u}) {
        SCOPED_TRACE(cut);
        const std::string key = "WKT Coordinate System";
        // Padding of the key's first letter would spend the key's own first byte on a
        // failed match, so it is lower case here.
        std::string bytes(static_cast<size_t>(1 << 20) - cut, 'w');
        bytes += key + ": " + wkt + std::string(1, '\0');
        ParserAnswer a = ask(bytes);
        ASSERT_TRUE(a.valid);
        EXPECT_EQ(DtCoordinateSystem(a.type, a.parameters).utmConverter()->zone(), 33);

        TempDir dir;
        std::string origin(static_cast<size_t>(1 << 20) - cut, 'x');
        origin += "X Origin: 250.25\"";
        Steps steps(dir.write("o.osg", origin));
        double value = 0;
        steps.getOrigin("X Origin", value);
        EXPECT_EQ(value, 250.25);
    }
    EXPECT_FALSE(ask("WWKT Coordinate System: " + wkt).valid);
}

TEST(WktHeaderParser, degreesByTheirUnitName) {
    TempDir dir;
    Steps steps(dir.file("x.osg"));
    for (const auto& [unit, degrees] :
         {std::make_pair("Degree", true), std::make_pair("DEGREE", true),
          std::make_pair("degrees", false), std::make_pair("radian", false)}) {
        OGRSpatialReference srs;
        srs.SetWellKnownGeogCS("WGS84");
        srs.SetAngularUnits(unit, 0.0174532925199433);
        EXPECT_EQ(steps.usingDegrees(srs), degrees) << unit;
    }
}

// WKT nested far deeper than any coordinate system (a hostile model file) is refused by
// OGR's reader, not followed down: the parser answers false and the process lives.
TEST(WktHeaderParser, deeplyNestedWktIsRefused) {
    for (int depth : {64, 100000}) {
        SCOPED_TRACE(depth);
        std::string wkt;
        for (int i = 0; i < depth; ++i)
            wkt += "A[";
        wkt += std::string(static_cast<size_t>(depth), ']');
        EXPECT_FALSE(ask(modelFile(wkt)).valid);
    }
}
