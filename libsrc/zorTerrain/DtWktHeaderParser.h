// Header parser of model files that carry their coordinate system as well-known text
// ("osg", "ive", "medf"). It scans the file's raw bytes for the keys
// "WKT Coordinate System", "X Origin" and "Y Origin", has OGR read the text, and sorts
// the system into a converter kind: Lambert conformal conic (2SP), transverse Mercator
// (as UTM), equirectangular (as flat earth) or geocentric. Anything else is false.
// Files are read in large blocks; each key's search starts at the file's beginning.
#pragma once

#include <string>

#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrainExport.h"

class OGRSpatialReference;

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtWktHeaderParser : public DtHeaderParser {
public:
    explicit DtWktHeaderParser(const std::string& path);
    bool isValid() override;

protected:
    // The text behind "WKT Coordinate System", up to the bracket that closes its first
    // "[", with backslash escapes undone; false without the key or without a "[".
    virtual bool getWktString(std::string& wkt);
    // The number behind `key`; a missing file or key is the origin 0.0. False only for a
    // text longer than any number (4096 bytes), which is refused rather than cut.
    virtual bool getOrigin(const std::string& key, double& value);
    virtual bool parseWktString(const std::string& wkt, double x, double y);
    virtual bool parseGeocentric(const OGRSpatialReference& srs, double x, double y);
    virtual bool parseLambert(const OGRSpatialReference& srs, double x, double y);
    virtual bool parseUtm(const OGRSpatialReference& srs, double x, double y);
    virtual bool parseFlat(const OGRSpatialReference& srs, double x, double y);
    // (x, y) of `srs` to longitude and latitude of its geographic system, in radians
    // when `toRadians`.
    virtual bool convertCoordinates(const OGRSpatialReference& srs, double x, double y,
                                    double& outX, double& outY, bool toRadians);
    virtual bool usingDegrees(const OGRSpatialReference& srs);
};

class ZOR_TERRAIN_EXPORT DtWktHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
