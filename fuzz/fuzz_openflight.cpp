// Fuzz target: any bytes as an OpenFlight file, down the engine's road for "flt"
// (factory, isValid, accessors). Nothing may crash or read outside the header record.
#include <memory>

#include "FuzzSupport.h"
#include "zorCore/DtHeaderParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096)
        return 0;  // only the first 324 bytes are ever read
    const std::string path = writeScratchFile(data, size, "flt");
    kelZor::DtHeaderParserFactory& factory = kelZor::DtHeaderParserFactory::instance(fuzzEngine());
    std::unique_ptr<kelZor::DtHeaderParser> parser(factory.createHeaderParser(path));
    if (parser && parser->isValid()) {
        // The parameters must rebuild a converter of the same kind.
        kelZor::DtCoordinateSystem system(parser->terrainCoordinateSystem(),
                                          parser->terrainCoordinateSystemParameters());
        if (system.type() != parser->terrainCoordinateSystem())
            __builtin_trap();
        if (parser->terrainPatchRecords().size() != 1)
            __builtin_trap();
    }
    std::remove(path.c_str());
    return 0;
}
