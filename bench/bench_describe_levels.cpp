// zorhost describe on documents of many levels: 100,000 levels against 10,000 in the same
// run. Linear cost makes the ratio about 10; a walk of the levels that restarts for each
// level (a product of divisions from level 0, a lookup by index along a list) makes it
// about 100. Goal: within 10x for ten times the levels.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "BenchCommand.h"
#include "RatioReporter.h"

namespace {

// A document of one geometry dataset with `levels` levels of 1 x 1 divisions.
std::string document(int levels) {
    const std::string path = "/tmp/zor-bench-levels-" + std::to_string(levels) + ".mft";
    std::ofstream out(path);
    out << "<MetaFlightRoot><Database name=\"Deep\">"
           "<Ellipsoid name=\"WGS84\"><SemiMajorRadius>6378137</SemiMajorRadius>"
           "<SemiMinorRadius>6356752.3</SemiMinorRadius></Ellipsoid>"
           "<ProjectedCoordSys name=\"Z\"><UnitsCategory>LINEAR_DISTANCE</UnitsCategory>"
           "<HorizontalDatumUsed refTo=\"Ellipsoid:WGS84\"/><UTM><Zone>32</Zone>"
           "<Hemisphere>NORTH</Hemisphere></UTM></ProjectedCoordSys><GridStructure name=\"G\">";
    for (int level = 0; level < levels; ++level) {
        out << "<GridLevel><LevelName>L" << level
            << "</LevelName><NumColDivisions>1</NumColDivisions>"
               "<NumRowDivisions>1</NumRowDivisions></GridLevel>\n";
    }
    out << "</GridStructure><Coverage name=\"C\"><CoordSysUsed refTo=\"Z\"/><Origin><X>500000</X>"
           "<Y>5000000</Y></Origin><Extent><X>1000</X><Y>1000</Y></Extent></Coverage>"
           "<SwitchDistanceTable name=\"T\"><SwitchDistance name=\"D\"><Value>100</Value>"
           "</SwitchDistance></SwitchDistanceTable>"
           "<GeometryGridDataset name=\"Terrain\"><DatasetName>Terrain</DatasetName>"
           "<HierarchyType>SUBSTITUTIVE</HierarchyType><CoordSysUsed refTo=\"Z\"/>"
           "<SwitchDistanceTableUsed refTo=\"T\"/><GridStack><GridStructureUsed refTo=\"G\"/>"
           "<CoverageUsed refTo=\"C\"/><FileNamePattern>t_$(ROW)_$(COL).flt</FileNamePattern>"
           "</GridStack>";
    for (int level = 0; level < levels; ++level) {
        out << "<GeometryGridLevel><TileType>FILE_LOD_GEOM</TileType><LocalizedType>LOCALIZED"
               "</LocalizedType><SwitchOut_DistanceUsed refTo=\"D\"/>"
               "<SwitchIn_DistanceUsed refTo=\"D\"/></GeometryGridLevel>\n";
    }
    out << "</GeometryGridDataset></Database></MetaFlightRoot>\n";
    return path;
}

void describe(benchmark::State& state) {
    const std::string path = document(static_cast<int>(state.range(0)));
    runCommand(state, std::string("'") + ZORHOST_PATH + "' describe " + path + " >/dev/null");
}

}  // namespace

BENCHMARK(describe)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(2);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("describe/100000/iterations:2/real_time",
                        "describe/10000/iterations:2/real_time",
                        "ten times the levels; goal: within 10");
    return 0;
}
