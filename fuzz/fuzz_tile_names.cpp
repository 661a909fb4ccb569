// Fuzz target: any text as a FileNamePattern, expanded by generateFileName with the
// variables of a tile, and by DtTilePathGenerator's checked formats. The text is an
// untrusted printf format; nothing may read or write out of bounds, and an expansion is
// either empty (refused) or shorter than 2048 characters per reference.
#include <map>
#include <string>

#include "FuzzSupport.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtTilePathGenerator.h"

using kelZor::DtMetaFlightDescription;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 8192)
        return 0;
    const std::string pattern(reinterpret_cast<const char*>(data), size);
    std::map<std::string, DtMetaFlightDescription::StringOrInt> variables;
    variables["LEVELNAME"] = std::string("L03");
    variables["DSNAME"] = std::string("terrain");
    variables["DSTITLE"] = std::string(300, 'T');
    variables["FILEFORMAT"] = std::string("flt");
    variables["LEVEL"] = 3;
    variables["ROW"] = -2147483647 - 1;
    variables["COL"] = 2147483647;
    const std::string result = DtMetaFlightDescription::generateFileName(pattern, variables);
    size_t references = 0;
    for (size_t at = pattern.find("$("); at != std::string::npos; at = pattern.find("$(", at + 2)) {
        ++references;
    }
    if (result.size() > pattern.size() + references * kelZor::DtTilePathGenerator::maxExpansion) {
        __builtin_trap();
    }
    // The checked format on its own, for both kinds of value.
    for (const bool text : {false, true}) {
        kelZor::DtTilePathGenerator::Format format;
        if (kelZor::DtTilePathGenerator::parseFormat(pattern, text, format)) {
            std::string out;
            kelZor::DtTilePathGenerator::append(out, format,
                                                text ? variables["DSTITLE"] : variables["ROW"]);
        }
    }
    return 0;
}
