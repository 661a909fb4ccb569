#include "zorTerrain/DtOpenFlightHeaderParser.h"

#include <cstddef>
#include <cstring>
#include <fstream>
#include <memory>

#include "matrix/DtAngles.h"
#include "zorTerrain/DtStandardPatchRecord.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

using Header = DtOpenFlightHeaderParser::OpenflightHeader;
static_assert(sizeof(Header) == DtOpenFlightHeaderParser::headerSize, "header has no gap");
static_assert(offsetof(Header, formatRevision) == 12, "field offset");
static_assert(offsetof(Header, projectionType) == 92, "field offset");
static_assert(offsetof(Header, originLatitude) == 220, "field offset");
static_assert(offsetof(Header, lambertUpperLatitude) == 236, "field offset");
static_assert(offsetof(Header, lambertLowerLatitude) == 244, "field offset");
static_assert(offsetof(Header, utmZone) == 276, "field offset");
static_assert(offsetof(Header, earthMinorAxis) == 316, "field offset");

namespace {

// Zones outside 0..60 (the format's negative southern zones among them) become 0.
long clampedZone(int16_t zone) {
    return (zone < 0 || zone > 60) ? 0 : zone;
}

// The converter of the header's projection, with the type constant it stands for.
std::unique_ptr<DtCoordinateConverter> converterFor(const Header& header, const char*& type) {
    const int revision = header.formatRevision;
    const int geocentricCode =
        revision < DtOpenFlightHeaderParser::geocentricCodeSwapRevision ? 5 : 6;
    const int projection = header.projectionType;
    const double originLat = header.originLatitude;
    const double originLon = header.originLongitude;

    if (projection == geocentricCode) {
        type = DtCoordinateConverter::Geocentric;
        return std::make_unique<DtGeocentricCoordinateConverter>();
    }
    if (projection == DtOpenFlightHeaderParser::Utm) {
        type = DtCoordinateConverter::UTM;
        auto utm = std::make_unique<DtUtmCoordinateConverter>();
        utm->init(originLat, originLon, clampedZone(header.utmZone), 0);
        return utm;
    }
    if (projection == DtOpenFlightHeaderParser::Lambert) {
        // Lower before upper: the converter takes its parallels the other way round
        // from the file.
        type = DtCoordinateConverter::Lambert;
        auto lambert = std::make_unique<DtLambertCoordinateConverter>();
        lambert->init(originLat, originLon, header.lambertLowerLatitude,
                      header.lambertUpperLatitude);
        return lambert;
    }
    if (projection == DtOpenFlightHeaderParser::FlatEarth) {
        type = DtCoordinateConverter::FlatEarth;
        auto flat = std::make_unique<DtFlatEarthCoordinateConverter>();
        flat->init(DtDeg2Rad(originLat), DtDeg2Rad(originLon));
        return flat;
    }
    return nullptr;
}

}  // namespace

DtOpenFlightHeaderParser::DtOpenFlightHeaderParser(const std::string& filePath)
    : DtHeaderParser(filePath) {}

bool DtOpenFlightHeaderParser::isValid() {
    Header header;
    std::memset(&header, 0, sizeof header);
    try {
        std::ifstream stream(filePath_, std::ios::in | std::ios::binary);
        if (stream.fail() || !stream.good())
            return false;
        stream.read(reinterpret_cast<char*>(&header), sizeof header);
        // A short file would leave part of the record unread: not a header.
        if (stream.gcount() != static_cast<std::streamsize>(sizeof header))
            return false;
    } catch (const std::exception&) {
        return false;
    }
    return parseOpenFlightHeader(header);
}

bool DtOpenFlightHeaderParser::parseOpenFlightHeader(const OpenflightHeader& header) {
    const char* type = nullptr;
    std::unique_ptr<DtCoordinateConverter> converter = converterFor(header, type);
    if (!converter)
        return false;
    terrainCoordinateSystem_ = type;
    terrainCoordinateSystemParameters_ = converter->stringRep();
    appendStandardPatchRecord(terrainPatchRecords_, filePath_, terrainCoordinateSystem_,
                              terrainCoordinateSystemParameters_);
    return true;
}

DtHeaderParser* DtOpenFlightHeaderParserCreator::create(DtDe&, const std::string& filePath) const {
    return new DtOpenFlightHeaderParser(filePath);
}

}  // namespace kelZor
