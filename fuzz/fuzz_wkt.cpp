// Fuzz target: any bytes as a model file for the WKT header parser: the key searches
// with their byte semantics, unterminated brackets, lone backslashes at the end, origin
// texts, and whatever text reaches OGR.
#include <memory>

#include "FuzzSupport.h"
#include "zorCore/DtHeaderParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024)
        return 0;
    const std::string path = writeScratchFile(data, size, "osg");
    kelZor::DtHeaderParserFactory& factory = kelZor::DtHeaderParserFactory::instance(fuzzEngine());
    std::unique_ptr<kelZor::DtHeaderParser> parser(factory.createHeaderParser(path));
    if (parser && parser->isValid()) {
        kelZor::DtCoordinateSystem system(parser->terrainCoordinateSystem(),
                                          parser->terrainCoordinateSystemParameters());
        if (system.type() != parser->terrainCoordinateSystem())
            __builtin_trap();
    }
    std::remove(path.c_str());
    return 0;
}
