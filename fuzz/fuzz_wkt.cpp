// Fuzz target: any bytes as a model file for the WKT header parser: the key searches
// with their byte semantics, unterminated brackets, lone backslashes at the end, origin
// texts, and whatever text reaches OGR.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024)
        return 0;
    askParser(data, size, "osg", [](kelZor::DtHeaderParser&) {});
    return 0;
}
