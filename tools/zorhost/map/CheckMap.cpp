#include "CheckMap.h"

#include <filesystem>
#include <map>
#include <sstream>

#include "MapCommand.h"
#include "MapPicture.h"

int runCheckMap(kelZor::DtDe& de, CheckRequest request, const LibraryCommands& commands,
                std::ostream& out, std::ostream& err) {
    if (const std::string kind = MapPicture::extensionProblem(request.map); !kind.empty()) {
        err << "zorhost: check: --map " << kind << "\n";
        return 2;
    }
    {
        // Refused before the check prints its answer, not after.
        MapPicture picture;
        std::string problem;
        if (!picture.begin(request.map, {request.document}, request.overwrite, problem)) {
            err << "zorhost: " << request.map << ": " << problem << "\n";
            return 1;
        }
    }
    std::string dataset;
    std::map<unsigned, TileStates> levels;
    request.alsoEach = [&](const CheckedTile& t) {
        if (t.virtualTexture || (!dataset.empty() && *t.dataset != dataset))
            return;
        dataset = *t.dataset;
        TileStates& cells = levels[t.level];
        if (cells.states.empty()) {
            cells.rows = t.rows;
            cells.columns = t.columns;
            cells.states.assign(static_cast<size_t>(t.rows) * t.columns, 0);
        }
        cells.states[static_cast<size_t>(t.row) * t.columns + t.col] =
            static_cast<uint8_t>(t.state);
    };
    const int status = commands.check(request, out, err);
    if (levels.empty()) {
        if (status == 0)
            err << "zorhost: " << request.map << ": not drawn: no geometry dataset was checked\n";
        return 1;
    }
    const auto finest = levels.rbegin();
    MapRequest map;
    map.output = request.map;
    map.tiles = request.document;
    map.dataset = dataset;
    map.level = static_cast<int>(finest->first);
    map.overwrite = request.overwrite;
    map.cells = &finest->second;
    map.title = "check: " + std::filesystem::path(request.document).filename().string() + ", " +
                dataset + " level " + std::to_string(finest->first);
    std::ostringstream drawn;  // the check's answer is stdout's, not the picture's summary
    const int mapped = runMap(de, map, {commands.tileFootprints, commands.tileGrid}, drawn, err);
    return mapped != 0 ? mapped : status;
}
