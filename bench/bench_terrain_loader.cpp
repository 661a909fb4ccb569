// The terrain database loader on a shapefile of 1,000,000 points (ZOR_BENCH_POINTS sets
// the count), each case against its peer in the same run:
//   isValid of the toolkit parser   vs  OGR opening the file and reading its system
//                                        (and isValid on 1,000 points: it must not grow)
//   loadFor3DVisualization (UTM)    vs  GetNextFeature of every feature, transformed the
//                                        same way into a plain vector of points
// Peak memory of each load is measured in a child process of its own.
#include <benchmark/benchmark.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/Geocentric.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BenchData.h"
#include "RatioReporter.h"
#include "gdalsupport/DtGdalScope.h"
#include "hxutil/DtNotify.h"
#include "terrainDbFactory/DtTdbManager.h"
#include "zorTerrain/DtTdbSceneLoad.h"
#include "zorTerrain/DtTerrainToolkitHeaderParser.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace {

const std::string& largeFile() {
    static const std::string path = writePoints(directory() + "/large.shp", benchPointCount());
    return path;
}
const std::string& smallFile() {
    static const std::string path = writePoints(directory() + "/small.shp", 1000);
    return path;
}

DtUtmCS utmScene() {
    return DtUtmCS(DtDegMinSec::fromLatitude(45.5), DtDegMinSec::fromLongitude(9.0), 0, 32, false,
                   0.0, 0.9996);
}

void isValidLarge(benchmark::State& state) {
    kelZor::DtQuietLoader quiet;
    for (auto _ : state) {
        kelZor::DtTerrainToolkitHeaderParser parser(largeFile());
        benchmark::DoNotOptimize(parser.isValid());
    }
}
BENCHMARK(isValidLarge)->Unit(benchmark::kMicrosecond);

void isValidSmall(benchmark::State& state) {
    kelZor::DtQuietLoader quiet;
    for (auto _ : state) {
        kelZor::DtTerrainToolkitHeaderParser parser(smallFile());
        benchmark::DoNotOptimize(parser.isValid());
    }
}
BENCHMARK(isValidSmall)->Unit(benchmark::kMicrosecond);

void openAndReadSystem(benchmark::State& state, const std::string& path) {
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    for (auto _ : state) {
        GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(GDALOpenEx(
            path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
        const OGRSpatialReference* srs = dataset->GetLayer(0)->GetSpatialRef();
        benchmark::DoNotOptimize(srs->GetUTMZone());
    }
}
void ogrOpenAndSystem(benchmark::State& state) {
    openAndReadSystem(state, largeFile());
}
BENCHMARK(ogrOpenAndSystem)->Unit(benchmark::kMicrosecond);
void ogrOpenAndSystemSmall(benchmark::State& state) {
    openAndReadSystem(state, smallFile());
}
BENCHMARK(ogrOpenAndSystemSmall)->Unit(benchmark::kMicrosecond);

size_t loadPoints() {
    return readAndTransformPoints(largeFile());
}

size_t loadNetwork() {
    kelZor::DtQuietLoader quiet;
    DtTdbManager manager;
    DtString error;
    manager.loadFor3DVisualization(DtFilename(largeFile()), new DtUtmCS(utmScene()), &error);
    return static_cast<size_t>(manager.terrainDatabase()->vectorNetwork()->numNodes());
}

void loadFor3DVisualization(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(loadNetwork());
}
BENCHMARK(loadFor3DVisualization)->Unit(benchmark::kMillisecond)->Iterations(3);

void ogrReadAndTransform(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(loadPoints());
}
BENCHMARK(ogrReadAndTransform)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    const PeakTasks tasks = {{"load", [] { loadNetwork(); }}, {"peer", [] { loadPoints(); }}};
    if (runPeakTask(argc, argv, tasks))
        return 0;
    benchmark::Initialize(&argc, argv);
    largeFile();
    smallFile();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("isValidLarge", "ogrOpenAndSystem",
                        "goal: within 1.5, as the toolkit parser reads no feature");
    reporter.printRatio("isValidSmall", "ogrOpenAndSystemSmall",
                        "on 1,000 points: the same ratio as on 1,000,000 when the parser adds "
                        "nothing that grows with the features (OGR's open reads the index)");
    reporter.printRatio("loadFor3DVisualization/iterations:3", "ogrReadAndTransform/iterations:3",
                        "goal: within 1.3");
    printPeakRatio("load / peer", childPeakKilobytes("load"), childPeakKilobytes("peer"),
                   "goal: within 2");
    std::filesystem::remove_all(directory());
    return 0;
}
