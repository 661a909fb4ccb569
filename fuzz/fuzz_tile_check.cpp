// Fuzz target: any text as a dataset's name and FileNamePattern (the first line the name,
// the rest the pattern) in a MetaFlight document in a directory of its own, checked by
// zorhost check's walk. Nothing may read or write out of bounds, and no tile found on
// disk may lie outside the document's directory, whatever the name and pattern climb to.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "FuzzSupport.h"
#include "TileCheck.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"

namespace {

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else
            out += c;
    }
    return out;
}

// A database directory with a tile in it, beside a file the paths may try to reach;
// removed when the process ends.
struct Scratch {
    std::string base = "/tmp/zorfuzz-check-" + std::to_string(getpid());
    std::string root = base + "/db";
    Scratch() {
        std::filesystem::create_directories(root + "/terrain/L00");
        std::ofstream(root + "/terrain/L00/tile_000_000.medf") << "t";
        std::filesystem::create_directories(base + "/secret/L00");
        std::ofstream(base + "/secret/L00/tile_000_000.medf") << "t";
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(base, ignored);
    }
};

const std::string& database() {
    static const Scratch scratch;
    return scratch.root;
}

std::string document(const std::string& name, const std::string& pattern) {
    return "<MetaFlightRoot><Database><Ellipsoid name=\"E\"/>"
           "<ProjectedCoordSys name=\"G\"><UnitsCategory>LINEAR_DISTANCE</UnitsCategory>"
           "<HorizontalDatumUsed refTo=\"E\"/><UTM><Zone>32</Zone></UTM></ProjectedCoordSys>"
           "<GridStructure name=\"S\"><GridLevel><LevelName>L0</LevelName><NumColDivisions>2"
           "</NumColDivisions><NumRowDivisions>2</NumRowDivisions></GridLevel></GridStructure>"
           "<Coverage name=\"C\"><CoordSysUsed refTo=\"G\"/><Origin><X>0</X><Y>0</Y></Origin>"
           "<Extent><X>10</X><Y>10</Y></Extent></Coverage><SwitchDistanceTable name=\"T\">"
           "<SwitchDistance name=\"f\"><Value>9</Value></SwitchDistance></SwitchDistanceTable>"
           "<GeometryGridDataset name=\"D\"><DatasetName>" +
           escaped(name) +
           "</DatasetName><FileFormat>medf</FileFormat><CoordSysUsed refTo=\"G\"/>"
           "<SwitchDistanceTableUsed refTo=\"T\"/><GridStack><GridStructureUsed refTo=\"S\"/>"
           "<CoverageUsed refTo=\"C\"/><FileNamePattern>" +
           escaped(pattern) +
           "</FileNamePattern></GridStack><GeometryGridLevel><LocalizedType>LOCALIZED"
           "</LocalizedType><SwitchOut_DistanceUsed refTo=\"f\"/><SwitchIn_DistanceUsed "
           "refTo=\"f\"/></GeometryGridLevel></GeometryGridDataset></Database></MetaFlightRoot>";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 2048)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t newline = input.find('\n');
    const std::string name = newline == std::string::npos ? "terrain" : input.substr(0, newline);
    const std::string pattern = newline == std::string::npos ? input : input.substr(newline + 1);
    const std::string path = database() + "/doc.mft";
    std::ofstream(path, std::ios::trunc) << document(name, pattern);
    kelZor::DtMetaFlightParser parser;
    kelZor::DtMetaFlightDescription description;
    std::string error;
    try {
        if (!parser.openFile(path, "", error))
            return 0;
        description.parse(parser);
    } catch (const std::exception&) {
        return 0;
    }
    TileCheckVisitor visit;
    visit.tile = [](const CheckedTile& tile) {
        if (tile.state == TileState::Missing || tile.state == TileState::Outside)
            return;
        // Found on disk: it must be the database's own tile.
        const std::string found =
            std::filesystem::path(*tile.path).lexically_normal().generic_string();
        if (found.compare(0, database().size() + 1, database() + "/") != 0)
            __builtin_trap();
    };
    visit.extra = [](const std::string& extra) {
        if (extra.compare(0, database().size() + 1, database() + "/") != 0)
            __builtin_trap();
    };
    try {
        checkTiles(description, TileCheckPlan{}, visit);
    } catch (const std::exception&) {
    }
    return 0;
}
