// Fuzz target: any bytes as a KSL terrain description, read and evaluated by the
// language of the host's ksl library. Nesting, strings, numbers and errors must end in
// a value or a message, never a crash or a stack overflow.
#include <cstdint>
#include <string>

#include "hxutil/DtNotify.h"
#include "ksl/DtKslEnvironment.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 256 * 1024)
        return 0;
    DtKslEnvironment environment;
    environment.evaluateText(std::string(reinterpret_cast<const char*>(data), size), "fuzz.ksl", 0);
    return 0;
}
