// Fuzz target: any bytes as a zorhost rules file. The reader either gives models and
// rules or one sentence saying where the text is wrong; it never throws past itself.
#include <cstdint>
#include <string>

#include "PropsLoad.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RulesFile rules;
    std::string problem;
    const bool read =
        parseRules(std::string(reinterpret_cast<const char*>(data), size), rules, problem);
    if (read != problem.empty())
        __builtin_trap();
    return 0;
}
