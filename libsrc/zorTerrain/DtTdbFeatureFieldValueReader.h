// Which attribute names occur on the free-standing points of a vector file, and which
// values each takes: what a person needs to write add-props rules, whose conditions
// compare the same value texts.
//
//   std::map<std::string, std::set<std::string>> values;
//   reader.readValuesFromFile("trees.shp", values);   // adds; one map gathers many files
#pragma once

#include "zorCore/DtFeatureFieldValueReader.h"
#include "zorTerrain/zorTerrainExport.h"

class DtNetworkAttribute;

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtTdbFeatureFieldValueReader : public DtFeatureFieldValueReader {
public:
    explicit DtTdbFeatureFieldValueReader(DtDe& de);
    ~DtTdbFeatureFieldValueReader() override;
    // True when the file loaded and its nodes were read; a file that does not load is
    // reported to the engine and leaves `values` as it was.
    bool readValuesFromFile(const std::string& filename,
                            std::map<std::string, std::set<std::string>>& values) const override;

    // The text an attribute's value is listed and compared by: the text itself, the
    // integer or double as DtString writes it, empty for any other type.
    static std::string valueText(const DtNetworkAttribute& attribute);
};

}  // namespace kelZor
