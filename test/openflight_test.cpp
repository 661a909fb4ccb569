#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "ParserAnswer.h"
#include "TempDir.h"
#include "matrix/DtAngles.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtOpenFlightHeaderParser.h"
#include "zorUtil/DtCoordinateSystem.h"

using namespace kelZor;

namespace {

// The fields the parser reads; the rest of the record stays zero.
struct HeaderFields {
    int revision = 1640;
    int projection = 0;
    double originLat = 45.0;
    double originLon = 10.0;
    double lambertUpper = 0.0;
    double lambertLower = 0.0;
    int zone = 0;
};

// Big-endian writes at the record's own offsets, kept here apart from the parser's
// struct so that a field at a wrong offset there fails these tests.
enum Offset : size_t {
    recordOpcode = 0,
    recordLength = 2,
    formatRevision = 12,
    projectionType = 92,
    originLatitude = 220,
    originLongitude = 228,
    lambertUpperLatitude = 236,
    lambertLowerLatitude = 244,
    utmZone = 276,
    headerSize = 324,
};

void putBigEndian(std::string& bytes, size_t offset, uint64_t value, size_t size) {
    for (size_t i = 0; i < size; ++i)
        bytes[offset + i] = static_cast<char>(value >> (8 * (size - 1 - i)));
}
void putDouble(std::string& bytes, size_t offset, double value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    putBigEndian(bytes, offset, bits, 8);
}

std::string headerBytes(const HeaderFields& f) {
    std::string bytes(headerSize, '\0');
    putBigEndian(bytes, recordOpcode, 1, 2);
    putBigEndian(bytes, recordLength, headerSize, 2);
    putBigEndian(bytes, formatRevision, static_cast<uint32_t>(f.revision), 4);
    putBigEndian(bytes, projectionType, static_cast<uint32_t>(f.projection), 4);
    putDouble(bytes, originLatitude, f.originLat);
    putDouble(bytes, originLongitude, f.originLon);
    putDouble(bytes, lambertUpperLatitude, f.lambertUpper);
    putDouble(bytes, lambertLowerLatitude, f.lambertLower);
    putBigEndian(bytes, utmZone, static_cast<uint16_t>(f.zone), 2);
    return bytes;
}

ParserAnswer parse(const std::string& path) {
    return askParser(DtOpenFlightHeaderParser(path));
}

ParserAnswer parseHeader(const HeaderFields& fields) {
    TempDir dir;
    return parse(dir.write("db.flt", headerBytes(fields)));
}

}  // namespace

TEST(OpenFlightHeaderParser, geocentricCodeSwapsAtRevision1580) {
    struct Case {
        int revision, projection;
        bool valid;
    };
    const Case cases[] = {{1579, 5, true},  {1580, 5, false}, {1580, 6, true},   {1579, 6, false},
                          {1640, 1, false}, {1640, 2, false}, {1640, -1, false}, {1640, 7, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.revision) + "/" + std::to_string(c.projection));
        HeaderFields f;
        f.revision = c.revision;
        f.projection = c.projection;
        const ParserAnswer a = parseHeader(f);
        EXPECT_EQ(a.valid, c.valid);
        EXPECT_EQ(a.patches, c.valid ? 1u : 0u);
        if (c.valid) {
            EXPECT_EQ(a.type, DtCoordinateConverter::Geocentric);
        }
    }
}

TEST(OpenFlightHeaderParser, utmZoneOutsideZeroToSixtyBecomesZero) {
    const std::pair<int, int> zones[] = {{61, 0}, {-33, 0}, {60, 60}, {0, 0}, {33, 33}};
    for (const auto& [inFile, expected] : zones) {
        SCOPED_TRACE(inFile);
        HeaderFields f;
        f.projection = 4;
        f.originLat = -33.9;
        f.originLon = 18.4;
        f.zone = inFile;
        const ParserAnswer a = parseHeader(f);
        ASSERT_TRUE(a.valid);
        EXPECT_EQ(a.type, DtCoordinateConverter::UTM);
        const DtCoordinateSystem system(a.type, a.parameters);
        EXPECT_EQ(system.utmConverter()->zone(), expected);
        // Degrees as they stand in the file, and no hemisphere taken from the zone's sign.
        EXPECT_NEAR(system.utmConverter()->originLatitude().toDegrees(), -33.9, 1e-12);
    }
}

TEST(OpenFlightHeaderParser, flatEarthTakesRadiansAndLambertSwapsItsParallels) {
    HeaderFields flat;
    flat.projection = 0;
    flat.originLat = 45.0;
    flat.originLon = 10.0;
    ParserAnswer a = parseHeader(flat);
    ASSERT_TRUE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::FlatEarth);
    const DtCoordinateSystem flatSystem(a.type, a.parameters);
    EXPECT_DOUBLE_EQ(flatSystem.flatEarthConverter()->lat(), DtDeg2Rad(45.0));
    EXPECT_DOUBLE_EQ(flatSystem.flatEarthConverter()->lon(), DtDeg2Rad(10.0));

    HeaderFields lambert;
    lambert.projection = 3;
    lambert.originLat = 23.0;
    lambert.originLon = -96.0;
    lambert.lambertUpper = 45.5;
    lambert.lambertLower = 29.5;
    a = parseHeader(lambert);
    ASSERT_TRUE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::Lambert);
    const DtCoordinateSystem lambertSystem(a.type, a.parameters);
    const DtLambertCoordinateConverter* l = lambertSystem.lambertConverter();
    EXPECT_EQ(l->originLatitude(), 23.0);
    EXPECT_EQ(l->originLongitude(), -96.0);
    EXPECT_EQ(l->parallel1(), 29.5);
    EXPECT_EQ(l->parallel2(), 45.5);
}

TEST(OpenFlightHeaderParser, thePatchRecordIsTheStandardOne) {
    TempDir dir;
    HeaderFields f;
    f.projection = 4;
    f.zone = 32;
    const std::string path = dir.write("tile.flt", headerBytes(f));
    DtOpenFlightHeaderParser parser(path);
    ASSERT_TRUE(parser.isValid());
    ASSERT_EQ(parser.terrainPatchRecords().size(), 1u);
    const auto& record = parser.terrainPatchRecords().front().terrainPatchDefinitionRecord();
    EXPECT_EQ(record.name(), path);
    EXPECT_EQ(record.filename(), path);
    EXPECT_EQ(record.coordinateSystem(), DtCoordinateConverter::UTM);
    EXPECT_EQ(record.coordinateSystemParameters(), parser.terrainCoordinateSystemParameters());
    EXPECT_EQ(record.schema(), "Terrain");
}

TEST(OpenFlightHeaderParser, unreadableOrShortFilesAreFalseAndOtherFormatsAreRead) {
    TempDir dir;
    HeaderFields f;
    f.projection = 4;
    const std::string full = headerBytes(f);
    EXPECT_FALSE(parse(dir.write("short.flt", full.substr(0, 323))).valid);
    EXPECT_FALSE(parse(dir.write("empty.flt", "")).valid);
    EXPECT_FALSE(parse(dir.file("missing.flt")).valid);
    EXPECT_FALSE(parse(dir.path()).valid);
    // Longer than a header: only the header is read.
    EXPECT_TRUE(parse(dir.write("long.flt", full + std::string(1000, '\x7f'))).valid);

    // The record's opcode is not looked at: a text file with a geocentric code at the
    // right place is taken for OpenFlight.
    std::string other(324, ' ');
    const char revision[] = {0, 0, 0x06, 0x2C};
    const char projection[] = {0, 0, 0, 6};
    std::memcpy(&other[12], revision, 4);
    std::memcpy(&other[92], projection, 4);
    const ParserAnswer a = parse(dir.write("notes.flt", other));
    EXPECT_TRUE(a.valid);
    EXPECT_EQ(a.type, DtCoordinateConverter::Geocentric);
}

namespace {
class RecordingParser : public DtOpenFlightHeaderParser {
public:
    using DtOpenFlightHeaderParser::DtOpenFlightHeaderParser;
    int revision = 0;
    int16_t zone = 0;
    double lat = 0.0;

protected:
    bool parseOpenFlightHeader(const OpenflightHeader& header) override {
        revision = header.formatRevision;
        zone = header.utmZone;
        lat = header.originLatitude;
        return false;
    }
};
}  // namespace

TEST(OpenFlightHeaderParser, aSubclassSeesTheDecodedHeader) {
    TempDir dir;
    HeaderFields f;
    f.revision = 1580;
    f.zone = -33;
    f.originLat = -33.25;
    RecordingParser parser(dir.write("x.flt", headerBytes(f)));
    EXPECT_FALSE(parser.isValid());
    EXPECT_EQ(parser.revision, 1580);
    EXPECT_EQ(parser.zone, -33);
    EXPECT_EQ(parser.lat, -33.25);
    EXPECT_TRUE(parser.terrainPatchRecords().empty());
}
