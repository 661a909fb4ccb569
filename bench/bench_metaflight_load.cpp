// Loading a MetaFlight document (openFile + Database::parse + resolveReferences)
// against libxml2's bare xmlParseMemory of the same text, on generated documents of
// about 1 MB and 20 MB in which every name is prefixed.
//
// Each case runs in a process of its own, started afresh, so the allocator state one
// case leaves behind does not distort the next; the cases take turns for three rounds
// and the median round of each counts. The parent prints times, the peak memory each
// load added, and the ratios:
//   load / parse   goal: within 1.5x (the peer parses the text as the loader hands it to
//                  libxml2, prefixes deleted)
//   peak / text    goal: under 25x
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <libxml/parser.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtMetaFlightTypes.h"

extern char** environ;

namespace {

// One group of linked top-level elements, all names and references prefixed.
void appendGroup(std::ostringstream& out, int i) {
    const std::string n = std::to_string(i);
    out << "<MetaFlight:ProjectedCoordSys name=\"ProjectedCoordSys::P" << n << "\">"
        << "<UnitsCategory>LINEAR_DISTANCE</UnitsCategory><HorizontalUnitType>METERS</"
           "HorizontalUnitType>"
        << "<HorizontalDatumUsed refTo=\"Ellipsoid:WGS84\"/>"
        << "<UTM><Zone>" << (i % 60 + 1) << "</Zone><Hemisphere>NORTH</Hemisphere></UTM>"
        << "</MetaFlight:ProjectedCoordSys>\n"
        << "<MetaFlight:NonProjectedCoordSys name=\"NonProjectedCoordSys::G" << n << "\">"
        << "<HorizontalDatumUsed refTo=\"Ellipsoid:WGS84\"/><GeoType>GEODETIC</GeoType>"
        << "</MetaFlight:NonProjectedCoordSys>\n"
        << "<MetaFlight:Coverage name=\"Coverage::C" << n
        << "\"><CoordSysUsed refTo=\"CoordSysType::P" << n << "\"/><Origin><X>" << 500000 + i
        << "</X><Y>5000000</Y></Origin>"
        << "<Extent><X>40000</X><Y>20000</Y></Extent></MetaFlight:Coverage>\n"
        << "<MetaFlight:GridStructure name=\"GridStructure::S" << n << "\">";
    for (int level = 0; level < 4; ++level) {
        out << "<GridLevel><LevelName>L" << level
            << "</LevelName><NumColDivisions>2</NumColDivisions><NumRowDivisions>2</"
               "NumRowDivisions></GridLevel>";
    }
    out << "</MetaFlight:GridStructure>\n<MetaFlight:SwitchDistanceTable "
           "name=\"SwitchDistanceTable::T"
        << n << "\">";
    for (int d = 0; d < 5; ++d) {
        out << "<SwitchDistance name=\"SwitchDistance::D" << d << "\"><Value>" << (64000 >> (2 * d))
            << "</Value></SwitchDistance>";
    }
    out << "</MetaFlight:SwitchDistanceTable>\n<MetaFlight:GeometryGridDataset name=\"D" << n
        << "\">"
        << "<DatasetName>dataset" << n << "</DatasetName><FileFormat>flt</FileFormat>"
        << "<HierarchyType>SUBSTITUTIVE</HierarchyType><CoordSysUsed refTo=\"CoordSysType::G" << n
        << "\"/>"
        << "<SwitchDistanceTableUsed refTo=\"SwitchDistanceTable::T" << n << "\"/>"
        << "<GridStack><GridStructureUsed refTo=\"GridStructure::S" << n << "\"/>"
        << "<CoverageUsed refTo=\"Coverage::C" << n << "\"/>"
        << "<FileNamePattern>$(DSNAME)/L%02d$(LEVEL)/t_%03d$(ROW)_%03d$(COL).$(FILEFORMAT)</"
           "FileNamePattern>"
        << "</GridStack>";
    for (int level = 0; level < 4; ++level) {
        out << "<GeometryGridLevel><TileType>FILE_LOD_GEOM</TileType><LocalizedType>LOCALIZED</"
               "LocalizedType>"
            << "<SwitchOut_DistanceUsed refTo=\"SwitchDistance::D" << level << "\"/>"
            << "<SwitchIn_DistanceUsed refTo=\"SwitchDistance::D" << level + 1
            << "\"/></GeometryGridLevel>";
    }
    out << "</MetaFlight:GeometryGridDataset>\n";
}

std::string generateDocument(size_t targetBytes) {
    std::ostringstream out;
    out << "<?xml version=\"1.0\"?>\n<MetaFlightRoot><MetaFlight:Database name=\"bench\">\n"
        << "<MetaFlight:Ellipsoid "
           "name=\"Ellipsoid:WGS84\"><SemiMajorRadius>6378137</SemiMajorRadius>"
        << "</MetaFlight:Ellipsoid>\n";
    for (int i = 0; static_cast<size_t>(out.tellp()) < targetBytes; ++i)
        appendGroup(out, i);
    out << "</MetaFlight:Database></MetaFlightRoot>\n";
    return out.str();
}

long peakKilobytes() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The two measured operations, each once.
void loadDocument(const std::string& path) {
    kelZor::DtMetaFlightParser parser;
    std::string error;
    if (!parser.openFile(path, "", error)) {
        std::cerr << error;
        std::exit(1);
    }
    kelZor::DtMetaFlightTypes::Database database;
    database.parse(parser);
    database.resolveReferences();
    benchmark::DoNotOptimize(database.geometryGridDataset.size());
}

void parseText(const std::string& text) {
    xmlDoc* document = xmlParseMemory(text.data(), static_cast<int>(text.size()));
    benchmark::DoNotOptimize(document);
    xmlFreeDoc(document);
}

// What libxml2 is given by the loader: the text with the prefixes deleted.
std::string withoutPrefixes(std::string text) {
    for (const char* prefix : {"MetaFlight:", "Ellipsoid:", "CoordSysType::", "GridStructure::",
                               "Coverage::", "SwitchDistanceTable::", "SwitchDistance::",
                               "NonProjectedCoordSys::", "ProjectedCoordSys::"}) {
        std::string kept;
        size_t from = 0, at;
        while ((at = text.find(prefix, from)) != std::string::npos) {
            kept.append(text, from, at - from);
            from = at + std::strlen(prefix);
        }
        kept.append(text, from, std::string::npos);
        text.swap(kept);
    }
    return text;
}

std::string documentPath;
std::string cleanText;
double firstRunPeakKilobytes = 0;  // measured once, before the timing runs

void load(benchmark::State& state) {
    for (auto _ : state)
        loadDocument(documentPath);
    state.counters["peakKB"] = firstRunPeakKilobytes;
}

void parse(benchmark::State& state) {
    for (auto _ : state)
        parseText(cleanText);
    state.counters["peakKB"] = firstRunPeakKilobytes;
}

// Reports "RESULT <name> <ns per iteration> <peak KB>" for the parent to read.
class ResultReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto peak = run.counters.find("peakKB");
            std::printf(
                "RESULT %s %.0f %.0f\n", run.benchmark_name().c_str(),
                run.GetAdjustedRealTime() * (run.time_unit == benchmark::kMillisecond ? 1e6 : 1.0),
                peak == run.counters.end() ? 0.0 : double(peak->second));
        }
    }
};

void ignoreXmlError(void*, xmlErrorPtr) {}

int runOneCase(const std::string& caseName, const std::string& path) {
    documentPath = path;
    xmlSetStructuredErrorFunc(nullptr, ignoreXmlError);
    if (caseName == "parse")
        cleanText = withoutPrefixes(readFile(path));
    const long before = peakKilobytes();
    if (caseName == "load") {
        loadDocument(path);
    } else {
        parseText(cleanText);
    }
    firstRunPeakKilobytes = static_cast<double>(peakKilobytes() - before);
    if (caseName == "load") {
        benchmark::RegisterBenchmark("load", load)->Unit(benchmark::kMillisecond)->MinTime(2.0);
    } else {
        benchmark::RegisterBenchmark("parse", parse)->Unit(benchmark::kMillisecond)->MinTime(2.0);
    }
    int argc = 1;
    char name[] = "bench_metaflight_load";
    char* argv[] = {name, nullptr};
    benchmark::Initialize(&argc, argv);
    ResultReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}

struct Measured {
    double nanoseconds = 0;
    double peakKilobytes = 0;
};

// Runs this program again for one case and reads its RESULT line.
Measured runChild(const std::string& caseName, const std::string& path) {
    std::string self(4096, '\0');
    self.resize(static_cast<size_t>(readlink("/proc/self/exe", &self[0], self.size())));
    const std::string output = path + "." + caseName + ".out";
    std::vector<std::string> args = {self, "--case=" + caseName, "--document=" + path};
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(&a[0]);
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    pid_t child = 0;
    Measured measured;
    if (posix_spawn(&child, self.c_str(), &actions, nullptr, argv.data(), environ) == 0) {
        int status = 0;
        waitpid(child, &status, 0);
        std::istringstream lines(readFile(output));
        std::string word, name;
        while (lines >> word) {
            if (word == "RESULT")
                lines >> name >> measured.nanoseconds >> measured.peakKilobytes;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    std::remove(output.c_str());
    return measured;
}

constexpr int rounds = 3;

// The round with the median time, with its own peak.
Measured median(std::vector<Measured> measured) {
    std::sort(measured.begin(), measured.end(),
              [](const Measured& a, const Measured& b) { return a.nanoseconds < b.nanoseconds; });
    return measured[measured.size() / 2];
}

std::string roundsText(const std::vector<Measured>& measured) {
    std::string text;
    char one[32];
    for (const Measured& m : measured) {
        std::snprintf(one, sizeof one, " %.2f", m.nanoseconds / 1e6);
        text += one;
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    std::string caseName, path;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg.rfind("--case=", 0) == 0)
            caseName = arg.substr(7);
        if (arg.rfind("--document=", 0) == 0)
            path = arg.substr(11);
    }
    if (!caseName.empty())
        return runOneCase(caseName, path);
    // For profiling a case by hand: --write=MB --document=PATH keeps a generated document.
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--write=", 8) == 0) {
            std::ofstream(path, std::ios::binary)
                << generateDocument(std::strtoul(argv[i] + 8, nullptr, 10) << 20);
            return 0;
        }
    }

    for (const size_t megabytes : {1u, 20u}) {
        const std::string text = generateDocument(megabytes << 20);
        const std::string file = "/tmp/zorbench-metaflight-" + std::to_string(getpid()) + ".mft";
        std::ofstream(file, std::ios::binary) << text;
        // The two cases take turns, and each figure is the median of its rounds: a burst of
        // load on the machine moves one round, not the ratio.
        std::vector<Measured> loads, parses;
        for (int round = 0; round < rounds; ++round) {
            loads.push_back(runChild("load", file));
            parses.push_back(runChild("parse", file));
        }
        const Measured load = median(loads);
        const Measured parse = median(parses);
        std::remove(file.c_str());
        const double textKB = static_cast<double>(text.size()) / 1024.0;
        std::printf("%2zu MB document (%zu bytes):\n", megabytes, text.size());
        std::printf(
            "  load  (openFile + parse + resolveReferences) %9.2f ms, peak +%.0f KB  rounds:%s\n",
            load.nanoseconds / 1e6, load.peakKilobytes, roundsText(loads).c_str());
        std::printf(
            "  parse (xmlParseMemory of the prefix-free text) %7.2f ms, peak +%.0f KB  rounds:%s\n",
            parse.nanoseconds / 1e6, parse.peakKilobytes, roundsText(parses).c_str());
        std::printf("  ratio load / parse = %.2f (goal: within 1.5)\n",
                    parse.nanoseconds > 0 ? load.nanoseconds / parse.nanoseconds : 0.0);
        std::printf("  ratio load peak / text = %.1f (goal: under 25)\n",
                    textKB > 0 ? load.peakKilobytes / textKB : 0.0);
    }
    return 0;
}
