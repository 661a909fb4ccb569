#include "zorTerrain/DtWktHeaderParser.h"

#include <cpl_error.h>
#include <ogr_spatialref.h>

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "matrix/DtAngles.h"
#include "zorTerrain/DtStandardPatchRecord.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

namespace {

// A file read in large blocks, with the byte semantics of a stream read one byte at a
// time: get, put back one byte, and search a key the way a byte loop would.
class BlockReader {
public:
    static constexpr size_t blockSize = 1 << 20;

    explicit BlockReader(const std::string& path) : file_(std::fopen(path.c_str(), "rb")) {
        if (!file_)
            return;
        // A small file needs no whole block; a large one reads a block at a time. A pipe
        // or a file whose size the system reports as 0 is read to its end in blocks.
        struct stat info;
        const bool sized =
            fstat(fileno(file_.get()), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0;
        capacity_ = sized ? std::min(blockSize, static_cast<size_t>(info.st_size) + 1) : blockSize;
        buffer_.reset(new char[capacity_]);
    }
    bool isOpen() const { return file_ != nullptr; }

    // The next byte, or -1 at the end (or on a read error).
    int get() {
        if (position_ == size_ && !refill())
            return -1;
        return static_cast<unsigned char>(buffer_[position_++]);
    }
    // Puts back the byte just read.
    void unget() {
        if (position_ > 0)
            --position_;
    }

    // Moves behind the first match of `key`. A byte that breaks a partial match starts
    // the key afresh and is not compared again, so "XX Origin" holds no "X Origin".
    bool find(const std::string& key) {
        if (key.empty())
            return true;
        size_t matched = 0;
        while (position_ < size_ || refill()) {
            if (matched == 0) {
                // Nothing matched: only the key's first byte can start a match.
                const void* first =
                    std::memchr(buffer_.get() + position_, key[0], size_ - position_);
                if (!first) {
                    position_ = size_;
                    continue;
                }
                position_ =
                    static_cast<size_t>(static_cast<const char*>(first) - buffer_.get()) + 1;
                matched = 1;
            } else {
                matched = buffer_[position_++] == key[matched] ? matched + 1 : 0;
            }
            if (matched == key.size())
                return true;
        }
        return false;
    }

private:
    struct Closer {
        void operator()(FILE* file) const { std::fclose(file); }
    };
    bool refill() {
        if (!file_)
            return false;
        // Keep the last byte so that one unget across the boundary still works.
        const bool keep = size_ > 0;
        if (keep)
            buffer_[0] = buffer_[size_ - 1];
        const size_t offset = keep ? 1 : 0;
        if (capacity_ <= offset)
            return false;
        const size_t read = std::fread(buffer_.get() + offset, 1, capacity_ - offset, file_.get());
        if (read == 0)
            return false;
        size_ = offset + read;
        position_ = offset;
        return true;
    }

    std::unique_ptr<FILE, Closer> file_;
    std::unique_ptr<char[]> buffer_;  // not zeroed: only what was read is looked at
    size_t capacity_ = 0;
    size_t size_ = 0;
    size_t position_ = 0;
};

// Reads past the ":" and blanks behind a key.
void skipSeparators(BlockReader& reader) {
    int c;
    while ((c = reader.get()) == ':' || c == ' ' || c == '\t') {
    }
    if (c >= 0)
        reader.unget();
}

double projectionParameter(const OGRSpatialReference& srs, const char* name, double fallback) {
    return srs.GetProjParm(name, fallback);
}

// An origin number is short; a longer text is refused rather than cut.
constexpr size_t longestOrigin = 4096;

}  // namespace

DtWktHeaderParser::DtWktHeaderParser(const std::string& path) : DtHeaderParser(path) {}

bool DtWktHeaderParser::isValid() {
    std::string wktString;
    if (!getWktString(wktString))
        return false;
    double xOrigin = 0.0;
    double yOrigin = 0.0;
    if (!getOrigin("X Origin", xOrigin))
        return false;
    if (!getOrigin("Y Origin", yOrigin))
        return false;
    return parseWktString(wktString, xOrigin, yOrigin);
}

bool DtWktHeaderParser::getWktString(std::string& wkt) {
    wkt.clear();
    BlockReader reader(filePath_);
    if (!reader.isOpen() || !reader.find("WKT Coordinate System"))
        return false;
    skipSeparators(reader);
    std::string output;
    int depth = 0;
    bool seenBracket = false;
    bool escape = false;
    for (int c = reader.get(); c >= 0; c = reader.get()) {
        escape = c == '\\' ? !escape : false;
        if (!escape)
            output += static_cast<char>(c);
        if (c == '[') {
            ++depth;
            seenBracket = true;
        } else if (c == ']' && --depth == 0) {
            break;
        }
    }
    if (!seenBracket)
        return false;
    wkt = output;
    return true;
}

bool DtWktHeaderParser::getOrigin(const std::string& key, double& value) {
    value = 0.0;
    BlockReader reader(filePath_);
    if (!reader.isOpen() || !reader.find(key))
        return true;
    skipSeparators(reader);
    std::string text;
    for (int c = reader.get(); c > 0 && c != 0x18 && c != 0x19 && c != '"'; c = reader.get()) {
        // Cutting a longer text would read a different number than the file holds.
        if (text.size() == longestOrigin)
            return false;
        text += static_cast<char>(c);
    }
    value = std::strtod(text.c_str(), nullptr);
    return true;
}

bool DtWktHeaderParser::parseWktString(const std::string& wkt, double x, double y) {
    // OGR's own messages stay off the terminal for the call.
    const CPLErrorHandlerPusher quiet(CPLQuietErrorHandler);
    OGRSpatialReference srs(wkt.c_str());
    srs.morphFromESRI();
    srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    bool ok = false;
    if (srs.IsProjected()) {
        const char* name = srs.GetAttrValue("PROJECTION", 0);
        const std::string projection = name ? name : "";
        if (projection.find("Lambert_Conformal_Conic_2SP") != std::string::npos) {
            ok = parseLambert(srs, x, y);
        } else if (projection.find("Transverse_Mercator") != std::string::npos) {
            ok = parseUtm(srs, x, y);
        } else if (projection.find("Equirectangular") != std::string::npos) {
            ok = parseFlat(srs, x, y);
        }
    } else if (wkt.find("GEOCCS") != std::string::npos) {
        ok = parseGeocentric(srs, x, y);
    }
    if (ok) {
        appendStandardPatchRecord(terrainPatchRecords_, filePath_, terrainCoordinateSystem_,
                                  terrainCoordinateSystemParameters_);
    }
    return ok;
}

bool DtWktHeaderParser::parseGeocentric(const OGRSpatialReference&, double, double) {
    terrainCoordinateSystem_ = DtCoordinateConverter::Geocentric;
    terrainCoordinateSystemParameters_ = DtGeocentricCoordinateConverter().stringRep();
    return true;
}

bool DtWktHeaderParser::parseUtm(const OGRSpatialReference& srs, double x, double y) {
    terrainCoordinateSystem_ = DtCoordinateConverter::UTM;
    const double meridian = projectionParameter(srs, "Central_Meridian", -1.0);
    const double northing = projectionParameter(srs, "False_Northing", 0.0);
    const bool degrees = usingDegrees(srs);
    if (meridian == -1.0)
        return false;
    const bool north = northing != 10000000.0;
    double m = degrees ? meridian : DtRad2Deg(meridian);
    m = ((m + 180.0) - 3.0) / 6.0;
    m += m < 0 ? -0.5 : 0.5;
    // Checked before the conversion to an integer, which is undefined outside its range.
    if (!std::isfinite(m) || m < -1.0 || m > 61.0)
        return false;
    const long zone = static_cast<long>(m) + 1;
    if (zone < 1 || zone > 60)
        return false;
    DtUtmCoordinateConverter converter;
    bool ok = true;
    if (x == 0.0 && y == 0.0) {
        converter.init(zone, north ? 'N' : 'S', true);
    } else {
        double outX = 0.0, outY = 0.0;
        ok = convertCoordinates(srs, x, y, outX, outY, degrees);
        converter.init(DtRad2Deg(outY), DtRad2Deg(outX), zone, 0);
    }
    terrainCoordinateSystemParameters_ = converter.stringRep();
    return ok;
}

bool DtWktHeaderParser::parseFlat(const OGRSpatialReference& srs, double x, double y) {
    const bool degrees = usingDegrees(srs);
    terrainCoordinateSystem_ = DtCoordinateConverter::FlatEarth;
    DtFlatEarthCoordinateConverter converter;
    bool ok = true;
    if (x == 0.0 && y == 0.0) {
        double latitude = projectionParameter(srs, "Standard_Parallel_1", -1.0);
        double longitude = projectionParameter(srs, "Central_Meridian", -1.0);
        if (latitude != -1.0 && longitude != -1.0) {
            if (degrees) {
                latitude = DtDeg2Rad(latitude);
                longitude = DtDeg2Rad(longitude);
            }
            converter.init(latitude, longitude);
        }
    } else {
        double outX = 0.0, outY = 0.0;
        ok = convertCoordinates(srs, x, y, outX, outY, degrees);
        converter.init(outY, outX);
    }
    terrainCoordinateSystemParameters_ = converter.stringRep();
    return ok;
}

bool DtWktHeaderParser::parseLambert(const OGRSpatialReference& srs, double x, double y) {
    const bool degrees = usingDegrees(srs);
    terrainCoordinateSystem_ = DtCoordinateConverter::Lambert;
    double values[4] = {projectionParameter(srs, "Latitude_Of_Origin", -1.0),
                        projectionParameter(srs, "Central_Meridian", -1.0),
                        projectionParameter(srs, "Standard_Parallel_1", -1.0),
                        projectionParameter(srs, "Standard_Parallel_2", -1.0)};
    for (double value : values) {
        if (value == -1.0)
            return false;
    }
    if (!degrees) {
        for (double& value : values)
            value = DtRad2Deg(value);
    }
    DtLambertCoordinateConverter converter;
    bool ok = true;
    if (x == 0.0 && y == 0.0) {
        converter.init(values[0], values[1], values[2], values[3]);
    } else {
        double outX = 0.0, outY = 0.0;
        ok = convertCoordinates(srs, x, y, outX, outY, degrees);
        converter.init(DtRad2Deg(outY), DtRad2Deg(outX), values[2], values[3]);
    }
    terrainCoordinateSystemParameters_ = converter.stringRep();
    return ok;
}

bool DtWktHeaderParser::convertCoordinates(const OGRSpatialReference& srs, double x, double y,
                                           double& outX, double& outY, bool toRadians) {
    outX = x;
    outY = y;
    const CPLErrorHandlerPusher quiet(CPLQuietErrorHandler);
    std::unique_ptr<OGRSpatialReference> geographic(srs.CloneGeogCS());
    if (!geographic)
        return false;
    geographic->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> transformation(
        OGRCreateCoordinateTransformation(&srs, geographic.get()));
    if (!transformation || !transformation->Transform(1, &outX, &outY, nullptr))
        return false;
    if (toRadians) {
        outX = DtDeg2Rad(outX);
        outY = DtDeg2Rad(outY);
    }
    return true;
}

bool DtWktHeaderParser::usingDegrees(const OGRSpatialReference& srs) {
    const char* name = nullptr;
    srs.GetAngularUnits(&name);
    std::string lower = name ? name : "";
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower == "degree";
}

DtHeaderParser* DtWktHeaderParserCreator::create(DtDe&, const std::string& filePath) const {
    return new DtWktHeaderParser(filePath);
}

}  // namespace kelZor
