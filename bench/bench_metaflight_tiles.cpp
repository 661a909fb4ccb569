// Tile names and tile centres of a MetaFlight dataset.
//
// Names, all 1,048,576 tiles of a 1024 x 1024 level with the pattern
// "$(DSNAME)/L%02d$(LEVEL)/tile_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)":
//   generateGeometryGridTileFilename   goal: >= 2 M names/s, ahead of the naive peer
//   naivePattern     a hand-written loop that parses the pattern every time, fills a
//                    std::map of variables and makes one snprintf per variable
//   tilePathGenerator  goal: >= 20 M names/s, within 1.7x of
//   toCharsLoop      std::to_chars writing the same names; both also on a second pattern
//                    of bare numbers as directories
// Centres: geometryGridTileCenter on a UTM grid with geodetic data, against the same
// road walked by hand with GeographicLib (UTMUPS::Reverse, Geocentric::Forward and
// Reverse; goal: within 1.15x), and against UTMUPS::Reverse alone for scale.
#include <benchmark/benchmark.h>

#include <GeographicLib/Geocentric.hpp>
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
// The generator's patterns: zero-padded numbers in one name, and bare numbers as
// directories.
const char* const generatorPatterns[] = {pattern,
                                         "$(DSNAME)/$(LEVELNAME)/%d$(ROW)/%d$(COL).$(FILEFORMAT)"};
const char* const generatorDatasets[] = {"D", "F"};

std::string geometryDataset(const std::string& name, const std::string& namePattern) {
    return "<GeometryGridDataset name=\"" + name +
           "\"><DatasetName>terrain</DatasetName><FileFormat>medf</FileFormat>"
           "<CoordSysUsed refTo=\"G\"/><SwitchDistanceTableUsed refTo=\"T\"/><GridStack>"
           "<GridStructureUsed refTo=\"S\"/><CoverageUsed refTo=\"C\"/><FileNamePattern>" +
           namePattern +
           "</FileNamePattern></GridStack><GeometryGridLevel><SwitchOut_DistanceUsed refTo=\"d\"/>"
           "<SwitchIn_DistanceUsed refTo=\"d\"/></GeometryGridLevel></GeometryGridDataset>";
}

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
               "</SwitchDistanceTable>") +
           geometryDataset(generatorDatasets[0], generatorPatterns[0]) +
           geometryDataset(generatorDatasets[1], generatorPatterns[1]) +
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
    const kelZor::DtTilePathGenerator generator(fixture().description,
                                                generatorDatasets[state.range(0)], 0);
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
BENCHMARK(tilePathGenerator)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void appendNumber(std::string& out, unsigned value, int width) {
    char digits[16];
    char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    for (auto length = end - digits; length < width; ++length)
        out += '0';
    out.append(digits, static_cast<size_t>(end - digits));
}

// The floor: the same names written by hand with std::to_chars. Each pattern begins
// with the directory's own name, which the path does not repeat.
void toCharsLoop(benchmark::State& state) {
    const bool padded = state.range(0) == 0;
    const std::string head = fixture().directory + (padded ? "//L00/tile_" : "//L0/");
    const char separator = padded ? '_' : '/';
    const int width = padded ? 3 : 0;
    std::string path;
    for (auto _ : state) {
        for (unsigned row = 0; row < side; ++row) {
            for (unsigned col = 0; col < side; ++col) {
                path = head;
                appendNumber(path, row, width);
                path += separator;
                appendNumber(path, col, width);
                path += ".medf";
                benchmark::DoNotOptimize(path.data());
            }
        }
    }
    perLevel(state);
}
BENCHMARK(toCharsLoop)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

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

// The road a tile centre takes, walked by hand: grid (UTM) to geodetic, geodetic to
// geocentric, geocentric to the dataset's geodetic system, in radians.
void geographicLibRoad(benchmark::State& state) {
    const GeographicLib::Geocentric& earth = GeographicLib::Geocentric::WGS84();
    unsigned i = 0;
    for (auto _ : state) {
        const unsigned tile = (i++ % centreSamples) * 255;
        const double easting = 600000 + 100.0 * (tile % side) + 50.0;
        const double northing = 5000000 + 100.0 * (tile / side) + 50.0;
        double lat, lon, x, y, z, h;
        GeographicLib::UTMUPS::Reverse(32, true, easting, northing, lat, lon);
        earth.Forward(lat, lon, 0.0, x, y, z);
        earth.Reverse(x, y, z, lat, lon, h);
        const double radians = GeographicLib::Math::degree();
        benchmark::DoNotOptimize(lat *= radians);
        benchmark::DoNotOptimize(lon *= radians);
        benchmark::DoNotOptimize(h);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(geographicLibRoad);

// The generator against the description, and the peers against the generator: every
// measured loop writes the same names.
void checkSameNames() {
    DtMetaFlightDescription& d = fixture().description;
    for (int p = 0; p < 2; ++p) {
        const kelZor::DtTilePathGenerator generator(d, generatorDatasets[p], 0);
        std::string path;
        for (unsigned tile : {0u, 12345u, side * side - 1}) {
            const unsigned row = tile / side, col = tile % side;
            generator.path(row, col, path);
            std::string peer = fixture().directory + (p == 0 ? "//L00/tile_" : "//L0/");
            appendNumber(peer, row, p == 0 ? 3 : 0);
            peer += p == 0 ? '_' : '/';
            appendNumber(peer, col, p == 0 ? 3 : 0);
            peer += ".medf";
            const std::string expected =
                d.generateGeometryGridTileFilename(generatorDatasets[p], 0, row, col);
            if (path != expected || path != peer ||
                naiveName(fixture().directory + "/", row, col).empty()) {
                std::fprintf(stderr, "names differ: %s vs %s\n", path.c_str(), expected.c_str());
                std::exit(1);
            }
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
    reporter.printRate("tilePathGenerator/0", double(side) * side, "names", 20e6);
    reporter.printRate("tilePathGenerator/1", double(side) * side, "names", 20e6);
    reporter.printRatio("generateGeometryGridTileFilename", "naivePattern",
                        "below 1 is ahead of the naive peer");
    reporter.printRatio("tilePathGenerator/0", "toCharsLoop/0", "goal: within 1.7");
    reporter.printRatio("tilePathGenerator/1", "toCharsLoop/1", "goal: within 1.7");
    reporter.printRatio("geometryGridTileCenter", "geographicLibRoad", "goal: within 1.15");
    reporter.printRatio("geometryGridTileCenter", "utmupsReverse", "the projection alone");
    return 0;
}
