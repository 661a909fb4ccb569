// Fuzz target: any bytes as an OpenFlight file, down the engine's road for "flt"
// (factory, isValid, accessors). Nothing may crash or read outside the header record.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096)
        return 0;  // only the first 324 bytes are ever read
    askParser(data, size, "flt", [](kelZor::DtHeaderParser& parser) {
        if (parser.terrainPatchRecords().size() != 1)
            __builtin_trap();
    });
    return 0;
}
