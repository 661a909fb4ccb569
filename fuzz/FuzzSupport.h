// Shared by the fuzz targets: the engine object with the plug-in registered once per
// process, and a scratch file to hand bytes to readers that take a path.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>

#include "zorCore/DtDe.h"
#include "zorTerrain/zorTerrain.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// A stream that writes nowhere: the engine's log and the libraries' notes would fill the
// fuzzer's output.
inline std::ostream& nowhere() {
    static std::ostream stream(nullptr);
    return stream;
}

inline kelZor::DtDe& fuzzEngine() {
    static kelZor::DtDe de;
    static const bool initialised =
        (kelZor::zorTerrain::init(de), de.log().setTarget(&nowhere()), true);
    (void)initialised;
    return de;
}

// Writes the input to a per-process file with the given extension; answers its path.
inline std::string writeScratchFile(const uint8_t* data, size_t size, const char* extension) {
    const std::string path = "/tmp/zorfuzz-" + std::to_string(getpid()) + "." + extension;
    if (FILE* file = std::fopen(path.c_str(), "wb")) {
        if (size)
            std::fwrite(data, 1, size, file);
        std::fclose(file);
    }
    return path;
}
