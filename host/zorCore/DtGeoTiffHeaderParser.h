// The engine's parsers for raster files: GeoTIFF, whose coordinate system becomes a
// converter kind, and plain images, which have none.
#pragma once

#include "zorCore/DtHeaderParser.h"

namespace kelZor {

// True for a GeoTIFF in a UTM or Lambert conformal conic projection (as that kind) or
// in a geographic or geocentric system (as geocentric); false for any other system, a
// TIFF without one, or a file that is no TIFF.
class DtGeoTiffHeaderParser : public DtHeaderParser {
public:
    explicit DtGeoTiffHeaderParser(const std::string& filePath) : DtHeaderParser(filePath) {}
    bool isValid() override;
};

class DtGeoTiffHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

// True for any image GDAL can open, with an empty coordinate system.
class DtImageHeaderParser : public DtHeaderParser {
public:
    explicit DtImageHeaderParser(const std::string& filePath) : DtHeaderParser(filePath) {}
    bool isValid() override;
};

class DtImageHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
