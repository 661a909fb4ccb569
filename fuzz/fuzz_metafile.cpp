// Fuzz target: any bytes as a metafile or terrain project. The INI reader either gives a
// record or refuses the text; the project parser then works out where the terrain lies
// from whatever name the record holds (backslashes, leading points, nothing at all).
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "terrainDbFactory/DtTerrainDbFactory.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTerrainProjectHeaderParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

struct Project : kelZor::DtTerrainProjectHeaderParser {
    using DtTerrainProjectHeaderParser::DtTerrainProjectHeaderParser;
    using DtTerrainProjectHeaderParser::getView3DFilename;
};

// One file for every input, in a directory of this process's own.
const std::string& scratchFile() {
    static const std::string path = [] {
        char pattern[] = "/tmp/fuzz-metafile-XXXXXX";
        const char* directory = mkdtemp(pattern);
        return std::string(directory ? directory : "/tmp") + "/project.tproj";
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data), size);
    DtTdbMetafileFactory factory;
    DtTdbMetafile metafile(&factory);
    const bool read = metafile.initFromText(text);
    if (!read && metafile.threeDViewMetafileRecord())
        __builtin_trap();  // a refused text gives no record
    if (FILE* out = std::fopen(scratchFile().c_str(), "wb")) {
        std::fwrite(data, 1, size, out);
        std::fclose(out);
    }
    static kelZor::DtDe de;
    Project project(de, scratchFile());
    std::string terrain;
    const bool named = project.getView3DFilename(terrain);
    if (named != (metafile.threeDViewMetafileRecord() != nullptr))
        __builtin_trap();  // the file road and the text road must agree
    return 0;
}
