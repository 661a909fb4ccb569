// Fuzz target: any bytes as a KSL terrain description, evaluated by the host's ksl
// language and then read by DtSorrelKslFileReader (types, origins, path groups, start
// values). Nesting, strings, numbers, malformed lists and values of the wrong kind must
// end in an answer or a message, never a crash or a stack overflow.
#include <cstdint>
#include <sstream>
#include <string>

#include "hxutil/DtNotify.h"
#include "ksl/DtKslEnvironment.h"
#include "zorTerrain/DtSorrelKslFileReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1024 * 1024)
        return 0;
    static std::ostringstream discarded;
    DtWarn.setTarget(&discarded);
    discarded.str("");
    DtKslEnvironment environment;
    environment.evaluateText(std::string(reinterpret_cast<const char*>(data), size), "fuzz.ksl", 1);
    kelZor::DtSorrelKslFileReader reader;
    reader.load(&environment);
    reader.load(&environment);  // the second load sees the spaces flag of the first
    return 0;
}
