// isValid on an OpenFlight file against a bare read of the same 324 bytes: the cost the
// parser adds on top of opening and reading the header.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "RatioReporter.h"
#include "zorTerrain/DtOpenFlightHeaderParser.h"

namespace {

const std::string& sampleFile() {
    static const std::string path = [] {
        std::string p = "/tmp/zorbench-" + std::to_string(getpid()) + ".flt";
        std::ifstream in(std::string(ZOR_SAMPLE_DIR) + "/utm_zone32n.flt", std::ios::binary);
        std::ofstream(p, std::ios::binary) << in.rdbuf();
        return p;
    }();
    return path;
}

void isValid(benchmark::State& state) {
    const std::string& path = sampleFile();
    for (auto _ : state) {
        kelZor::DtOpenFlightHeaderParser parser(path);
        benchmark::DoNotOptimize(parser.isValid());
    }
}
BENCHMARK(isValid);

void bareRead(benchmark::State& state) {
    const std::string& path = sampleFile();
    char header[kelZor::DtOpenFlightHeaderParser::headerSize];
    for (auto _ : state) {
        std::ifstream stream(path, std::ios::in | std::ios::binary);
        stream.read(header, sizeof header);
        benchmark::DoNotOptimize(header);
    }
}
BENCHMARK(bareRead);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("isValid", "bareRead", "parser cost over opening and reading the header");
    std::remove(sampleFile().c_str());
    return 0;
}
