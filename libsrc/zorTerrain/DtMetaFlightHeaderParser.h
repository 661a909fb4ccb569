// Header parser of MetaFlight descriptions ("mft"). It loads the whole document for the
// one question and accepts the simple case: at most one geometry and one virtual
// texture dataset, a geometry dataset in the "medf" format, in a UTM, flat earth,
// geocentric or non-georeferenced data coordinate system. Anything else is false.
// A document with no geometry dataset, or with an unknown enumeration text or a
// dangling reference, throws (DtTemplatedException<-1>, EnumParseErrorException).
#pragma once

#include <string>

#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtMetaFlightHeaderParser : public DtHeaderParser {
public:
    explicit DtMetaFlightHeaderParser(const std::string& filePath);
    bool isValid() override;
};

class ZOR_TERRAIN_EXPORT DtMetaFlightHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
