// Shared by the fuzz targets: the engine object with the plug-in registered once per
// process, and a scratch file to hand bytes to readers that take a path.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>

#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrain.h"
#include "zorUtil/DtCoordinateSystem.h"

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

// The bytes down the engine's road for a file of `extension`: the parser the factory
// picks, asked whether it is valid; a valid answer's parameters must rebuild a converter
// of the kind it names. `more` checks a valid parser further. The scratch file goes after.
template <typename More>
void askParser(const uint8_t* data, size_t size, const char* extension, More more) {
    const std::string path = writeScratchFile(data, size, extension);
    kelZor::DtHeaderParserFactory& factory = kelZor::DtHeaderParserFactory::instance(fuzzEngine());
    std::unique_ptr<kelZor::DtHeaderParser> parser(factory.createHeaderParser(path));
    if (parser && parser->isValid()) {
        kelZor::DtCoordinateSystem system(parser->terrainCoordinateSystem(),
                                          parser->terrainCoordinateSystemParameters());
        if (system.type() != parser->terrainCoordinateSystem())
            __builtin_trap();
        more(*parser);
    }
    std::remove(path.c_str());
}
