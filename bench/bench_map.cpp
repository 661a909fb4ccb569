// zorhost map: 1,000,000 points (ZOR_BENCH_POINTS) over a 1201 x 1201 DTED cell at 2048 x
// 2048 pixels, against what a person would otherwise run for the same two inputs: zorhost
// features on the points alone plus gdaldem hillshade of the cell. Each side runs as the
// programs a person runs, in fresh processes, so both pay their start and their loads.
// ZOR_BENCH_DIR=DIR keeps the data in DIR.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "BenchCell.h"
#include "BenchCommand.h"
#include "BenchData.h"
#include "RatioReporter.h"

namespace {

const std::string& pointsFile() {
    static const std::string path = writePoints(directory() + "/points.shp", benchPointCount());
    return path;
}

void mapPointsOnCell(benchmark::State& state) {
    runCommand(state, std::string("'") + ZORHOST_PATH + "' map '" + directory() +
                          "/map.png' --overwrite --size 2048x2048 --features '" + pointsFile() +
                          "' --terrain '" + benchCell() + "' >/dev/null");
}

void featuresAndHillshade(benchmark::State& state) {
    runCommand(state, std::string("'") + ZORHOST_PATH + "' features '" + pointsFile() +
                          "' >/dev/null && gdaldem hillshade -q '" + benchCell() + "' '" +
                          directory() + "/hillshade.tif'");
}

}  // namespace

BENCHMARK(mapPointsOnCell)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(featuresAndHillshade)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    // A directory given in ZOR_BENCH_DIR is the caller's, kept for profiling the map.
    const bool ownDirectory = std::getenv("ZOR_BENCH_DIR") == nullptr;
    pointsFile();
    benchCell();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("mapPointsOnCell/iterations:3/real_time",
                        "featuresAndHillshade/iterations:3/real_time", "goal: within 2");
    if (ownDirectory)
        std::filesystem::remove_all(directory());
    return 0;
}
