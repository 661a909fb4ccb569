// The feature adder and the field value reader, each against its peer in the same run:
//   addFeatures, 1,000,000 points (ZOR_BENCH_POINTS)  vs  GetNextFeature of every point,
//                                                         transformed into a plain vector
//   addFeatures, 100,000 polylines of 10 vertices     vs  the same for every vertex
//   readValuesFromFile over the points (3 fields)     vs  the fields read with OGR into a
//                                                         map<string, set<string>>; for
//                                                         peak memory also with the ids
// The scene is UTM zone 32 north. Peak memory of each is measured in a child process.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "BenchData.h"
#include "RatioReporter.h"
#include "hxutil/DtNotify.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbFeatureAdder.h"
#include "zorTerrain/DtTdbFeatureFieldValueReader.h"
#include "zorTerrain/DtTdbSceneLoad.h"

namespace {

const std::string& pointsFile() {
    static const std::string path = writePoints(directory() + "/points.shp", benchPointCount());
    return path;
}
const std::string& linesFile() {
    static const std::string path =
        writeLines(directory() + "/lines.shp", benchPointCount(1000000) / 10, 10);
    return path;
}

// An engine whose scene is UTM zone 32 north.
struct Engine {
    kelZor::DtDe de;
    Engine() {
        kelZor::DtUtmCoordinateConverter utm;
        utm.init(DtDegMinSec::fromLatitude(45.5), DtDegMinSec::fromLongitude(9.0), 32, 0);
        de.sharedState().coordinateSystem() =
            kelZor::DtCoordinateSystem(kelZor::DtCoordinateConverter::UTM, utm.stringRep());
    }
};

size_t addFeatures(const std::string& file) {
    Engine engine;
    kelZor::DtFeatureLayer layer(file);
    kelZor::DtTdbFeatureAdder(engine.de).addFeatures(layer);
    return layer.featureSet().size();
}

size_t readValues() {
    Engine engine;
    std::map<std::string, std::set<std::string>> values;
    kelZor::DtTdbFeatureFieldValueReader(engine.de).readValuesFromFile(pointsFile(), values);
    return values.size();
}

// `withIds`: the feature ids listed too, as the reader lists DtFidCode - a million
// distinct texts that the answer itself must hold.
size_t ogrReadValues(bool withIds = false) {
    GDALDatasetUniquePtr dataset = openVector(pointsFile());
    OGRLayer* layer = dataset->GetLayer(0);
    const int fields = layer->GetLayerDefn()->GetFieldCount();
    std::map<std::string, std::set<std::string>> values;
    for (OGRFeatureUniquePtr feature(layer->GetNextFeature()); feature;
         feature.reset(layer->GetNextFeature())) {
        for (int i = 0; i < fields; ++i)
            values[feature->GetFieldDefnRef(i)->GetNameRef()].insert(feature->GetFieldAsString(i));
        if (withIds)
            values["FID"].insert(std::to_string(feature->GetFID()));
    }
    return values.size();
}

void addFeaturesPoints(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(addFeatures(pointsFile()));
}
BENCHMARK(addFeaturesPoints)->Unit(benchmark::kMillisecond)->Iterations(3);

void ogrPoints(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(readAndTransformPoints(pointsFile()));
}
BENCHMARK(ogrPoints)->Unit(benchmark::kMillisecond)->Iterations(3);

void addFeaturesLines(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(addFeatures(linesFile()));
}
BENCHMARK(addFeaturesLines)->Unit(benchmark::kMillisecond)->Iterations(3);

void ogrLines(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(readAndTransformLines(linesFile()));
}
BENCHMARK(ogrLines)->Unit(benchmark::kMillisecond)->Iterations(3);

void readValuesFromFile(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(readValues());
}
BENCHMARK(readValuesFromFile)->Unit(benchmark::kMillisecond)->Iterations(3);

void ogrValues(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(ogrReadValues());
}
BENCHMARK(ogrValues)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    kelZor::DtQuietLoader quiet;
    const PeakTasks tasks = {
        {"adder-points", [] { addFeatures(pointsFile()); }},
        {"peer-points", [] { readAndTransformPoints(pointsFile()); }},
        {"adder-lines", [] { addFeatures(linesFile()); }},
        {"peer-lines", [] { readAndTransformLines(linesFile()); }},
        {"reader", [] { readValues(); }},
        {"peer-values", [] { ogrReadValues(); }},
        {"peer-values-ids", [] { ogrReadValues(true); }},
    };
    if (runPeakTask(argc, argv, tasks))
        return 0;
    benchmark::Initialize(&argc, argv);
    pointsFile();
    linesFile();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("addFeaturesPoints/iterations:3", "ogrPoints/iterations:3",
                        "goal: within 1.5");
    reporter.printRatio("addFeaturesLines/iterations:3", "ogrLines/iterations:3",
                        "goal: within 1.5");
    reporter.printRatio("readValuesFromFile/iterations:3", "ogrValues/iterations:3",
                        "goal: within 1.5");
    printPeakRatio("addFeatures points / peer", childPeakKilobytes("adder-points"),
                   childPeakKilobytes("peer-points"), "goal: within 2");
    printPeakRatio("addFeatures lines / peer", childPeakKilobytes("adder-lines"),
                   childPeakKilobytes("peer-lines"), "goal: within 2");
    printPeakRatio("readValuesFromFile / peer", childPeakKilobytes("reader"),
                   childPeakKilobytes("peer-values"), "goal: within 4");
    printPeakRatio("readValuesFromFile / peer listing ids", childPeakKilobytes("reader"),
                   childPeakKilobytes("peer-values-ids"), "the same answer's size");
    std::filesystem::remove_all(directory());
    return 0;
}
