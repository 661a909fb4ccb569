// zorhost view: build and render one 1024 x 1024 frame of a valley with 100,000 props
// (ZOR_BENCH_POINTS) on a 1201 x 1201 DTED cell, against zorhost map of the same inputs at
// the same size. Both run as a person runs them, in fresh processes, so both pay their
// start, their loads and the ground's warp. The picture needs an X display: run it under
// xvfb-run where there is none. ZOR_BENCH_DIR=DIR keeps the data in DIR.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchCell.h"
#include "BenchCommand.h"
#include "BenchData.h"
#include "RatioReporter.h"

namespace {

// Every point a house.
const std::string& pointsFile() {
    static const std::string path =
        writePoints(directory() + "/houses.shp", benchPointCount(100000), 1);
    return path;
}

const std::string& rulesFile() {
    static const std::string path = [] {
        const std::string file = directory() + "/rules.json";
        std::ofstream(file) << R"({"models": {"house": "house.flt"},
            "rules": [{"fields": {"ECC": "AL015"}, "model": "house", "propType": "building",
                       "rotationField": "KIND"}]})";
        return file;
    }();
    return path;
}

std::string inputs() {
    return " --props '" + pointsFile() + "' --rules '" + rulesFile() + "' --terrain '" +
           benchCell() + "'";
}

void viewPropsOnCell(benchmark::State& state) {
    runCommand(state, std::string("'") + ZORHOST_PATH + "' view --png '" + directory() +
                          "/view.png' --overwrite --size 1024x1024" + inputs() + " >/dev/null");
}

void mapPropsOnCell(benchmark::State& state) {
    runCommand(state, std::string("'") + ZORHOST_PATH + "' map '" + directory() +
                          "/map.png' --overwrite --size 1024x1024" + inputs() + " >/dev/null");
}

}  // namespace

BENCHMARK(viewPropsOnCell)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(mapPropsOnCell)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const char* display = std::getenv("DISPLAY");
    if (!display || !*display) {
        std::fprintf(stderr,
                     "bench_view: the picture needs an X display: run it as\n"
                     "  xvfb-run -a -s '-screen 0 1280x1024x24' %s\n",
                     argv[0]);
        return 1;
    }
    const bool ownDirectory = std::getenv("ZOR_BENCH_DIR") == nullptr;
    pointsFile();
    rulesFile();
    benchCell();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("viewPropsOnCell/iterations:3/real_time",
                        "mapPropsOnCell/iterations:3/real_time", "goal: within 3");
    if (ownDirectory)
        std::filesystem::remove_all(directory());
    return 0;
}
