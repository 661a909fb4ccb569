// Fuzz target: any bytes as a MetaFlight document, through loading (prefix deletion,
// checked against deleting the prefixes one after another,
// XML parse, "Database" search), the element walk, reference resolution and the
// queries of a caller, and publishing with every option. An input
// holding the line "--8<--" is split there into a main file and a second file to merge.
#include <string>

#include "FuzzSupport.h"
#include "hxutil/DtException.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtMetaFlightTypes.h"
#include "zorTerrain/DtTilePathGenerator.h"

namespace {

// Every query a caller may make on the first and last tile of every level; their
// failures are the library's own exceptions (an unnamed dataset's name is not its key, so
// even the level count may throw).
void queryGeometry(kelZor::DtMetaFlightDescription& d, const std::string& key) {
    {
        try {
            d.geometryDatasetRadius(key);
        } catch (const DtException&) {
        }
        for (unsigned level = 0; level < d.numberOfGeometryGridLevels(key) && level < 8; ++level) {
            try {
                kelZor::DtTilePathGenerator names(d, key, static_cast<int>(level));
                const unsigned rows = names.rows(), cols = names.columns();
                for (unsigned row : {0u, rows ? rows - 1 : 0u}) {
                    for (unsigned col : {0u, cols ? cols - 1 : 0u}) {
                        double x, y, z;
                        std::string path;
                        names.path(row, col, path);
                        if (path != d.generateGeometryGridTileFilename(key, static_cast<int>(level),
                                                                       row, col)) {
                            __builtin_trap();
                        }
                        try {
                            d.geometryGridTileOffset(key, level, row, col, x, y, z);
                            d.geometryGridTileCenter(key, level, row, col, x, y, z);
                        } catch (const DtException&) {
                        }
                    }
                }
            } catch (const DtException&) {
            }
        }
    }
}

void query(kelZor::DtMetaFlightDescription& d) {
    for (unsigned i = 0; i < d.numberOfGeometryDatasets() && i < 4; ++i) {
        try {
            queryGeometry(d, d.geometryDatasetName(static_cast<int>(i)));
        } catch (const DtException&) {
        }
    }
    for (unsigned i = 0; i < d.numberOfVirtualTextureDatasets() && i < 4; ++i) {
        const std::string key = d.virtualTextureDatasetName(static_cast<int>(i));
        try {
            const auto own = d.virtualTextureCoordinateSystem(key);
            d.virtualTextureDatasetOrigin(key, own);
            d.virtualTextureDatasetExtent(key, own);
            d.generateVirtualTextureFileName(key, 0, 0, 0);
        } catch (const DtException&) {
        }
    }
}

// Exposes the loader's prefix deletion, which must leave exactly what deleting each prefix
// in turn leaves.
struct PrefixDeletion : kelZor::DtMetaFlightParser {
    static std::string fast(std::string text) {
        text.resize(deleteNamespacePrefixes(&text[0], text.size()));
        return text;
    }
};

std::string deletedOneByOne(std::string text) {
    for (const char* prefix : {"MetaFlight:", "Ellipsoid:", "CoordSysType::", "GridStructure::",
                               "Coverage::", "SwitchDistanceTable::", "SwitchDistance::",
                               "NonProjectedCoordSys::", "ProjectedCoordSys::"}) {
        const std::string literal(prefix);
        std::string kept;
        size_t from = 0, at;
        while ((at = text.find(literal, from)) != std::string::npos) {
            kept.append(text, from, at - from);
            from = at + literal.size();
        }
        kept.append(text, from, std::string::npos);
        text.swap(kept);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 256 * 1024)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    if (!input.empty() && PrefixDeletion::fast(input) != deletedOneByOne(input))
        __builtin_trap();
    const size_t cut = input.find("\n--8<--\n");
    const std::string main = cut == std::string::npos ? input : input.substr(0, cut);
    const std::string second = cut == std::string::npos ? "" : input.substr(cut + 8);

    const std::string mainPath =
        writeScratchFile(reinterpret_cast<const uint8_t*>(main.data()), main.size(), "mft");
    const std::string secondPath =
        second.empty() ? ""
                       : writeScratchFile(reinterpret_cast<const uint8_t*>(second.data()),
                                          second.size(), "second.mft");
    kelZor::DtMetaFlightParser parser;
    std::string error;
    if (parser.openFile(mainPath, secondPath, error)) {
        kelZor::DtMetaFlightDescription description;
        try {
            description.parse(parser);
            query(description);
        } catch (const kelZor::DtMetaFlightTypes::EnumParseErrorException&) {
            // How the library answers unknown texts and dangling names.
        }
    } else if (error.empty()) {
        __builtin_trap();  // a failure always says why
    }
    // The publish road over the same documents, with every option.
    const std::string published = mainPath + ".published";
    std::string publishError;
    if (!kelZor::DtMetaFlightParser::publish(mainPath, secondPath, published, true, true,
                                             publishError, true, 1234.5f) &&
        publishError.empty()) {
        __builtin_trap();  // a refusal always says why
    }
    std::remove(published.c_str());
    std::remove(mainPath.c_str());
    if (!secondPath.empty())
        std::remove(secondPath.c_str());
    return 0;
}
