// zorhost check on a database of 250,000 tile files (500 rows of 500, a directory per
// row; ZOR_BENCH_CHECK_SIDE), against the shell a person would write for the same
// question: `find DIR -type f | sort` and `zorhost tiles --paths | sort`, then `comm`.
// Both run as programs, in fresh processes, on a warm page cache. Then the peak memory
// of checking a level of 4,000,000 tiles (2000 x 2000) with no file on disk, against
// its limit of 64 MB. ZOR_BENCH_DIR=DIR keeps the database in DIR.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchCommand.h"
#include "BenchData.h"
#include "RatioReporter.h"

namespace {

int side() {
    const char* text = std::getenv("ZOR_BENCH_CHECK_SIDE");
    const int n = text ? std::atoi(text) : 0;
    return n > 0 ? n : 500;
}

std::string document(const std::string& root, int rows, int columns) {
    return "<MetaFlightRoot><Database><Ellipsoid name=\"E\"/>"
           "<ProjectedCoordSys name=\"G\"><UnitsCategory>LINEAR_DISTANCE</UnitsCategory>"
           "<HorizontalDatumUsed refTo=\"E\"/><UTM><Zone>32</Zone></UTM></ProjectedCoordSys>"
           "<GridStructure name=\"S\"><GridLevel><LevelName>L0</LevelName><NumColDivisions>" +
           std::to_string(columns) + "</NumColDivisions><NumRowDivisions>" + std::to_string(rows) +
           "</NumRowDivisions></GridLevel></GridStructure>"
           "<Coverage name=\"C\"><CoordSysUsed refTo=\"G\"/><Origin><X>400000</X><Y>5000000"
           "</Y></Origin><Extent><X>100000</X><Y>100000</Y></Extent></Coverage>"
           "<SwitchDistanceTable name=\"T\"><SwitchDistance name=\"far\"><Value>900</Value>"
           "</SwitchDistance></SwitchDistanceTable><GeometryGridDataset name=\"" +
           root + "\"><DatasetName>" + root +
           "</DatasetName><FileFormat>medf</FileFormat><CoordSysUsed refTo=\"G\"/>"
           "<SwitchDistanceTableUsed refTo=\"T\"/><GridStack><GridStructureUsed refTo=\"S\"/>"
           "<CoverageUsed refTo=\"C\"/><FileNamePattern>$(DSNAME)/r%04d$(ROW)/"
           "tile_%04d$(ROW)_%04d$(COL).$(FILEFORMAT)</FileNamePattern></GridStack>"
           "<GeometryGridLevel><LocalizedType>LOCALIZED</LocalizedType>"
           "<SwitchOut_DistanceUsed refTo=\"far\"/><SwitchIn_DistanceUsed refTo=\"far\"/>"
           "</GeometryGridLevel></GeometryGridDataset></Database></MetaFlightRoot>";
}

// The database on disk, made once: a byte in each tile file.
const std::string& database() {
    static const std::string path = [] {
        const std::string doc = directory() + "/full.mft";
        const std::string tiles = directory() + "/Full";
        if (!std::filesystem::exists(doc)) {
            std::ofstream(doc) << document("Full", side(), side());
            char name[64];
            for (int row = 0; row < side(); ++row) {
                std::snprintf(name, sizeof name, "/r%04d", row);
                const std::string folder = tiles + name;
                std::filesystem::create_directories(folder);
                for (int col = 0; col < side(); ++col) {
                    std::snprintf(name, sizeof name, "/tile_%04d_%04d.medf", row, col);
                    std::ofstream(folder + name) << "t";
                }
            }
        }
        return doc;
    }();
    return path;
}

const std::string& emptyDatabase() {
    static const std::string path = [] {
        const std::string doc = directory() + "/empty.mft";
        std::ofstream(doc) << document("Empty", 2000, 2000);
        return doc;
    }();
    return path;
}

std::string zorhost() {
    return std::string("'") + ZORHOST_PATH + "'";
}

void checkTiles(benchmark::State& state) {
    runCommand(state, zorhost() + " check '" + database() + "' >/dev/null");
}

void findSortComm(benchmark::State& state) {
    const std::string d = directory();
    runCommand(state, "export LC_ALL=C; find '" + d + "/Full' -type f | sort >'" + d +
                          "/on-disk' && " + zorhost() + " tiles '" + database() +
                          "' --dataset Full --paths | sort >'" + d + "/named' && comm -3 '" + d +
                          "/on-disk' '" + d + "/named' >/dev/null");
}

}  // namespace

BENCHMARK(checkTiles)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(findSortComm)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    database();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("checkTiles/iterations:3/real_time", "findSortComm/iterations:3/real_time",
                        "goal: within 1");

    // The check's own high-water mark: zorhost run directly, waited for alone.
    const std::string document = emptyDatabase();
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        if (!std::freopen("/dev/null", "w", stdout))
            _exit(127);
        execl(ZORHOST_PATH, ZORHOST_PATH, "check", document.c_str(), "--list", "extra",
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const long limit = 64 * 1024;
    std::printf(
        "ratio peak memory check of 4,000,000 tiles, none on disk / limit = %.2f (%ld KB "
        "vs %ld KB; status %d; goal: under 1)\n",
        static_cast<double>(usage.ru_maxrss) / limit, usage.ru_maxrss, limit, WEXITSTATUS(status));
    removeDirectory();
    return 0;
}
