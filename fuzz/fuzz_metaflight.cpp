// Fuzz target: any bytes as a MetaFlight document, through loading (prefix deletion,
// XML parse, "Database" search), the element walk and reference resolution. An input
// holding the line "--8<--" is split there into a main file and a second file to merge.
#include <string>

#include "FuzzSupport.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtMetaFlightTypes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 256 * 1024) return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t cut = input.find("\n--8<--\n");
    const std::string main = cut == std::string::npos ? input : input.substr(0, cut);
    const std::string second = cut == std::string::npos ? "" : input.substr(cut + 8);

    const std::string mainPath = writeScratchFile(
        reinterpret_cast<const uint8_t*>(main.data()), main.size(), "mft");
    const std::string secondPath =
        second.empty() ? ""
                       : writeScratchFile(reinterpret_cast<const uint8_t*>(second.data()),
                                          second.size(), "second.mft");
    kelZor::DtMetaFlightParser parser;
    std::string error;
    if (parser.openFile(mainPath, secondPath, error)) {
        kelZor::DtMetaFlightTypes::Database database;
        try {
            database.parse(parser);
            database.resolveReferences();
        } catch (const kelZor::DtMetaFlightTypes::EnumParseErrorException&) {
            // The design's answer for unknown texts and dangling names.
        }
    } else if (error.empty()) {
        __builtin_trap();  // a failure always says why
    }
    std::remove(mainPath.c_str());
    if (!secondPath.empty()) std::remove(secondPath.c_str());
    return 0;
}
