// Tile names and tile centres of a MetaFlight dataset.
//
// Names, all 1,048,576 tiles of a 1024 x 1024 level with the pattern
// "$(DSNAME)/L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)":
//   generateGeometryGridTileFilename   goal: >= 2 M names/s, ahead of the naive peer
//   naivePattern     a hand-written loop that parses the pattern every time, fills a
//                    std::map of variables and makes one snprintf per variable
//   tilePathGenerator  goal: >= 20 M names/s, within 1.7x of
//   toCharsLoop      std::to_chars writing the same names
// Centres: geometryGridTileCenter on a UTM grid with geodetic data, against
// GeographicLib's UTMUPS::Reverse of the same points (goal: within 1.5x).
#include <benchmark/benchmark.h>

#include <GeographicLib/UTMUPS.hpp>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "RatioReporter.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtTilePathGenerator.h"

using kelZor::DtMetaFlightDescription;

namespace {

constexpr unsigned side = 1024;
const char* const pattern = "$(DSNAME)/L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)";

std::string document() {
    return std::string(
               "<MetaFlightRoot><Database>"
               "<Ellipsoid name=\"E\"/>"
               "<ProjectedCoordSys name=\"U\"><UnitsCategory>LINEAR_DISTANCE</UnitsCategory>"
               "<HorizontalDatumUsed refTo=\"E\"/><UTM><Zone>32</Zone></UTM></ProjectedCoordSys>"
               "<NonProjectedCoordSys name=\"G\"><HorizontalDatumUsed "
               "refTo=\"E\"/></NonProjectedCoordSys>"
               "<GridStructure name=\"S\"><GridLevel><LevelName>L0</LevelName>"
               "<NumColDivisions>1024</NumColDivisions><NumRowDivisions>1024</NumRowDivisions></"
               "GridLevel>"
               "</GridStructure>"
               "<Coverage name=\"C\"><CoordSysUsed refTo=\"U\"/><Origin><X>600000</X><Y>5000000</Y>"
               "</Origin><Extent><X>102400</X><Y>102400</Y></Extent></Coverage>"
               "<SwitchDistanceTable name=\"T\"><SwitchDistance "
               "name=\"d\"><Value>1</Value></SwitchDistance>"
               "</SwitchDistanceTable>"
               "<GeometryGridDataset "
               "name=\"D\"><DatasetName>terrain</DatasetName><FileFormat>medf</FileFormat>"
               "<CoordSysUsed refTo=\"G\"/><SwitchDistanceTableUsed refTo=\"T\"/><GridStack>"
               "<GridStructureUsed refTo=\"S\"/><CoverageUsed refTo=\"C\"/><FileNamePattern>") +
           pattern +
           "</FileNamePattern></GridStack><GeometryGridLevel><SwitchOut_DistanceUsed refTo=\"d\"/>"
           "<SwitchIn_DistanceUsed refTo=\"d\"/></GeometryGridLevel></GeometryGridDataset>"
           "</Database></MetaFlightRoot>";
}

struct Fixture {
    std::string directory;
    DtMetaFlightDescription description;

    Fixture() {
        directory = (std::filesystem::temp_directory_path() / "zorbench-tiles/terrain").string();
        std::filesystem::create_directories(directory);
        const std::string path = directory + "/doc.mft";
        std::ofstream(path) << document();
        kelZor::DtMetaFlightParser parser;
        std::string error;
        if (!parser.openFile(path, "", error))
            throw std::runtime_error(error);
        description.parse(parser);
    }
    ~Fixture() {
        std::error_code ignored;
        std::filesystem::remove_all(std::filesystem::path(directory).parent_path(), ignored);
    }
};

Fixture& fixture() {
    static Fixture instance;
    return instance;
}

void perLevel(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * side * side);
}

void generateGeometryGridTileFilename(benchmark::State& state) {
    DtMetaFlightDescription& d = fixture().description;
    for (auto _ : state) {
        for (unsigned row = 0; row < side; ++row) {
            for (unsigned col = 0; col < side; ++col) {
                benchmark::DoNotOptimize(d.generateGeometryGridTileFilename("D", 0, row, col));
            }
        }
    }
    perLevel(state);
}
BENCHMARK(generateGeometryGridTileFilename)->Unit(benchmark::kMillisecond);

// The obvious implementation: parse the pattern for every tile, a map of variables,
// one snprintf per variable.
std::string naiveName(const std::string& prefix, unsigned row, unsigned col) {
    std::map<std::string, std::string> text{{"DSNAME", "terrain"}, {"FILEFORMAT", "medf"}};
    std::map<std::string, int> numbers{{"LEVEL", 0}, {"ROW", int(row)}, {"COL", int(col)}};
    const std::string p = pattern;
    std::string result = prefix;
    size_t position = 0;
    char buffer[2048];
    for (size_t start = p.find("$("); start != std::string::npos; start = p.find("$(", position)) {
        const size_t end = p.find(')', start);
        const std::string name = p.substr(start + 2, end - start - 2);
        std::string format = p.substr(position, start - position);
        const bool isText = text.count(name) != 0;
        if (format.find('%') == std::string::npos)
            format += isText ? "%s" : "%d";
        if (isText) {
            std::snprintf(buffer, sizeof buffer, format.c_str(), text[name].c_str());
        } else {
            std::snprintf(buffer, sizeof buffer, format.c_str(), numbers[name]);
        }
        result += buffer;
        position = end + 1;
    }
    return result + p.substr(position);
}

void naivePattern(benchmark::State& state) {
    const std::string prefix = fixture().directory + "/";
    for (auto _ : state) {
        for (unsigned row = 0; row < side; ++row) {
            for (unsigned col = 0; col < side; ++col)
                benchmark::DoNotOptimize(naiveName(prefix, row, col));
        }
    }
    perLevel(state);
}
BENCHMARK(naivePattern)->Unit(benchmark::kMillisecond);

void tilePathGenerator(benchmark::State& state) {
    const kelZor::DtTilePathGenerator generator(fixture().description, "D", 0);
    std::string path;
    for (auto _ : state) {
        for (unsigned row = 0; row < side; ++row) {
            for (unsigned col = 0; col < side; ++col) {
                generator.path(row, col, path);
                benchmark::DoNotOptimize(path.data());
            }
        }
    }
    perLevel(state);
}
BENCHMARK(tilePathGenerator)->Unit(benchmark::kMillisecond);

void appendPadded(std::string& out, unsigned value) {
    char digits[16];
    char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    for (auto length = end - digits; length < 3; ++length)
        out += '0';
    out.append(digits, static_cast<size_t>(end - digits));
}

// The floor: the same names written by hand with std::to_chars.
void toCharsLoop(benchmark::State& state) {
    // The pattern begins with the directory's own name, which the path does not repeat.
    const std::string head = fixture().directory + "//L00/tile_";
    std::string path;
    for (auto _ : state) {
        for (unsigned row = 0; row < side; ++row) {
            for (unsigned col = 0; col < side; ++col) {
                path = head;
                appendPadded(path, row);
                path += '_';
                appendPadded(path, col);
                path += ".medf";
                benchmark::DoNotOptimize(path.data());
            }
        }
    }
    perLevel(state);
}
BENCHMARK(toCharsLoop)->Unit(benchmark::kMillisecond);

constexpr unsigned centreSamples = 4096;

void geometryGridTileCenter(benchmark::State& state) {
    const DtMetaFlightDescription& d = fixture().description;
    unsigned i = 0;
    for (auto _ : state) {
        double x, y, z;
        const unsigned tile = (i++ % centreSamples) * 255;
        d.geometryGridTileCenter("D", 0, tile / side, tile % side, x, y, z);
        benchmark::DoNotOptimize(x);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(geometryGridTileCenter);

void utmupsReverse(benchmark::State& state) {
    unsigned i = 0;
    for (auto _ : state) {
        const unsigned tile = (i++ % centreSamples) * 255;
        const double easting = 600000 + 100.0 * (tile % side) + 50.0;
        const double northing = 5000000 + 100.0 * (tile / side) + 50.0;
        double lat, lon;
        GeographicLib::UTMUPS::Reverse(32, true, easting, northing, lat, lon);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(utmupsReverse);

void checkSameNames() {
    DtMetaFlightDescription& d = fixture().description;
    const kelZor::DtTilePathGenerator generator(d, "D", 0);
    std::string path;
    for (unsigned tile : {0u, 12345u, side * side - 1}) {
        generator.path(tile / side, tile % side, path);
        const std::string expected =
            d.generateGeometryGridTileFilename("D", 0, tile / side, tile % side);
        if (path != expected || naiveName(fixture().directory + "/", 0, 0).empty()) {
            std::fprintf(stderr, "names differ: %s vs %s\n", path.c_str(), expected.c_str());
            std::exit(1);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    checkSameNames();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRate("generateGeometryGridTileFilename", double(side) * side, "names", 2e6);
    reporter.printRate("tilePathGenerator", double(side) * side, "names", 20e6);
    reporter.printRatio("generateGeometryGridTileFilename", "naivePattern",
                        "below 1 is ahead of the naive peer");
    reporter.printRatio("tilePathGenerator", "toCharsLoop", "goal: within 1.7");
    reporter.printRatio("geometryGridTileCenter", "utmupsReverse", "goal: within 1.5");
    return 0;
}
