// Each key search of the WKT header parser over a large model file with the keys near
// its end, against fread in 1 MiB blocks plus memmem over the same file, in the same
// run. The file is read once before timing, so both find it in the page cache.
// Size: $ZOR_BENCH_WKT_MB megabytes, 512 by default. Goal: within 1.5x of the peer.
// $ZOR_BENCH_WKT_DENSE=1 fills the file with the keys' letters (see ModelFile).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "RatioReporter.h"
#include "zorTerrain/DtWktHeaderParser.h"

namespace {

const char* const wkt =
    "PROJCS[\"WGS_1984_UTM_Zone_33N\",GEOGCS[\"GCS_WGS_1984\",DATUM[\"D_WGS_1984\",SPHEROID[\"WGS_"
    "1984\","
    "6378137.0,298.257223563]],PRIMEM[\"Greenwich\",0.0],UNIT[\"Degree\",0.0174532925199433]],"
    "PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"False_Easting\",500000.0],PARAMETER[\"False_"
    "Northing\",0.0],"
    "PARAMETER[\"Central_Meridian\",15.0],PARAMETER[\"Scale_Factor\",0.9996],"
    "PARAMETER[\"Latitude_Of_Origin\",0.0],UNIT[\"Meter\",1.0]]";

struct ModelFile {
    std::string path;
    size_t size = 0;

    ModelFile() {
        const char* megabytes = std::getenv("ZOR_BENCH_WKT_MB");
        size = static_cast<size_t>(megabytes ? std::atol(megabytes) : 512) << 20;
        path = "/tmp/zorbench-wkt-" + std::to_string(getpid()) + ".osg";
        FILE* file = std::fopen(path.c_str(), "wb");
        if (!file)
            std::exit(1);
        // Geometry-like bytes: uniform, so each key's first letter comes about once in
        // 256 bytes and partial matches occur. $ZOR_BENCH_WKT_DENSE makes one byte in five a
        // key letter, the worst case for the byte-by-byte key semantics.
        const bool dense = std::getenv("ZOR_BENCH_WKT_DENSE") != nullptr;
        std::vector<char> block(1 << 20);
        uint32_t state = 12345;
        for (char& c : block) {
            state = state * 1664525u + 1013904223u;
            const bool letter = dense && (state >> 24) % 5 == 0;
            c = static_cast<char>(letter ? "WXY O"[(state >> 8) % 5] : (state >> 16));
        }
        const std::string tail = std::string("WKT Coordinate System: ") + wkt +
                                 std::string(1, '\0') + "X Origin: 500000" + std::string(1, '\0') +
                                 "Y Origin: 4000000" + std::string(1, '\0');
        for (size_t written = 0; written + block.size() + tail.size() <= size;
             written += block.size()) {
            std::fwrite(block.data(), 1, block.size(), file);
        }
        std::fwrite(tail.data(), 1, tail.size(), file);
        std::fclose(file);
        warm();
    }
    ~ModelFile() { std::remove(path.c_str()); }

    // Reads the file once so that every case finds it in the page cache.
    void warm() const { memmemSearch("no such key in this file"); }

    bool memmemSearch(const char* key) const {
        FILE* file = std::fopen(path.c_str(), "rb");
        if (!file)
            return false;
        const size_t keyLength = std::strlen(key);
        std::vector<char> buffer((1 << 20) + keyLength);
        size_t carried = 0;
        bool found = false;
        while (!found) {
            const size_t read = std::fread(buffer.data() + carried, 1, 1 << 20, file);
            if (read == 0)
                break;
            const size_t available = carried + read;
            found = memmem(buffer.data(), available, key, keyLength) != nullptr;
            carried = std::min(keyLength - 1, available);
            std::memmove(buffer.data(), buffer.data() + available - carried, carried);
        }
        std::fclose(file);
        return found;
    }
};

ModelFile& model() {
    static ModelFile file;
    return file;
}

struct Scanner : kelZor::DtWktHeaderParser {
    using DtWktHeaderParser::DtWktHeaderParser;
    using DtWktHeaderParser::getOrigin;
    using DtWktHeaderParser::getWktString;
};

void bytes(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * model().size));
}

void wktKeySearch(benchmark::State& state) {
    Scanner scanner(model().path);
    std::string text;
    for (auto _ : state) {
        if (!scanner.getWktString(text))
            state.SkipWithError("key not found");
    }
    bytes(state);
}
BENCHMARK(wktKeySearch)->Unit(benchmark::kMillisecond);

void originKeySearch(benchmark::State& state) {
    Scanner scanner(model().path);
    double value = 0;
    for (auto _ : state) {
        scanner.getOrigin("Y Origin", value);
        if (value != 4000000.0)
            state.SkipWithError("origin not found");
    }
    bytes(state);
}
BENCHMARK(originKeySearch)->Unit(benchmark::kMillisecond);

void freadMemmem(benchmark::State& state) {
    for (auto _ : state) {
        if (!model().memmemSearch("WKT Coordinate System"))
            state.SkipWithError("key not found");
    }
    bytes(state);
}
BENCHMARK(freadMemmem)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    model();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double gigabytes = static_cast<double>(model().size) / 1e9;
    reporter.printRate("wktKeySearch", gigabytes, "GB", 0);
    reporter.printRate("originKeySearch", gigabytes, "GB", 0);
    reporter.printRate("freadMemmem", gigabytes, "GB", 0);
    reporter.printRatio("wktKeySearch", "freadMemmem", "goal: within 1.5");
    reporter.printRatio("originKeySearch", "freadMemmem", "goal: within 1.5");
    return 0;
}
