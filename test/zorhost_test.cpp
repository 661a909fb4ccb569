// zorhost as a person meets it: the real binary, its output, its exit status.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "Inspect.h"
#include "TempDir.h"
#include "hxutil/DtException.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrain.h"

namespace {

struct ZorhostRun {
    int status;
    std::string out;
    std::string err;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

ZorhostRun zorhost(const std::string& arguments) {
    TempDir dir;
    const std::string command = std::string("'") + ZORHOST_PATH + "' " + arguments + " >'" +
                                dir.file("out") + "' 2>'" + dir.file("err") + "'";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(dir.file("out")), slurp(dir.file("err"))};
}

size_t countLines(const std::string& text) {
    size_t lines = 0;
    for (char c : text)
        lines += c == '\n';
    return lines;
}

}  // namespace

TEST(Zorhost, inspectsTheSampleSetByDefault) {
    const ZorhostRun run = zorhost("inspect --json");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    for (const char* expected :
         {"\"parser\":\"DtOpenFlightHeaderParser\"", "\"coordinateSystem\":\"FlatEarth\"",
          "\"coordinateSystem\":\"Lambert\"", "\"coordinateSystem\":\"Geocentric\"",
          "\"parser\":\"DtGeoTiffHeaderParser\"", "\"schema\":\"Terrain\"",
          "\"parser\":\"DtMetaFlightHeaderParser\""}) {
        EXPECT_NE(run.out.find(expected), std::string::npos) << expected;
    }
    EXPECT_EQ(run.out.front(), '[');
}

TEST(Zorhost, eachProblemIsOneLineNamingThePath) {
    TempDir dir;
    const std::string good = std::string(ZOR_SAMPLE_DIR) + "/utm_zone32n.flt";
    const std::string unknown = dir.write("model.xyz", "x");
    const std::string noExtension = dir.write("README", "x");
    const std::string missing = dir.file("gone.flt");
    const std::string folder = dir.file("folder.flt");
    mkdir(folder.c_str(), 0755);
    const std::string shortFile = dir.write("short.flt", "tiny");

    const ZorhostRun run =
        zorhost("inspect --json '" + good + "' '" + unknown + "' '" + noExtension + "' '" +
                missing + "' '" + folder + "' '" + shortFile + "'");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(countLines(run.err), 5u) << run.err;
    for (const std::string& expected :
         {unknown + ": no parser is registered for the extension \"xyz\"",
          noExtension + ": has no extension", missing + ": no such file",
          folder + ": is a directory", shortFile + ": DtOpenFlightHeaderParser does not accept"}) {
        EXPECT_NE(run.err.find(expected), std::string::npos) << expected;
    }
    EXPECT_NE(run.out.find("\"parser\":null"), std::string::npos);
    EXPECT_NE(run.out.find("\"valid\":true"), std::string::npos);
}

TEST(Zorhost, usageAndPluginProblems) {
    EXPECT_EQ(zorhost("").status, 2);
    EXPECT_EQ(zorhost("frobnicate").status, 2);
    EXPECT_EQ(zorhost("inspect --bogus").status, 2);
    EXPECT_EQ(zorhost("inspect --plugin").status, 2);
    const ZorhostRun help = zorhost("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* word : {"inspect", "--json", "--plugin", "ZORTERRAIN_PLUGIN", "parsers"}) {
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    }
    const ZorhostRun badPlugin = zorhost("--plugin /nonexistent/lib.so inspect");
    EXPECT_EQ(badPlugin.status, 1);
    EXPECT_NE(badPlugin.err.find("/nonexistent/lib.so"), std::string::npos);

    const ZorhostRun parsers = zorhost("parsers");
    EXPECT_EQ(parsers.status, 0);
    EXPECT_NE(parsers.out.find("DtOpenFlightHeaderParser: flt"), std::string::npos);
}

namespace {
class ThrowingParser : public kelZor::DtHeaderParser {
public:
    using DtHeaderParser::DtHeaderParser;
    bool isValid() override { DtThrowCorruptedState("Unsupported Database Coordinate System"); }
};
class ThrowingCreator : public kelZor::DtHeaderParserCreator {
public:
    kelZor::DtHeaderParser* create(kelZor::DtDe&, const std::string& path) const override {
        return new ThrowingParser(path);
    }
};
}  // namespace

TEST(Zorhost, anExceptionThroughIsValidBecomesAProblem) {
    TempDir dir;
    kelZor::DtDe de;
    kelZor::zorTerrain::init(de);
    auto& factory = kelZor::DtHeaderParserFactory::instance(de);
    factory.registerCreator("ThrowingParser", new ThrowingCreator);
    factory.registerExtension("boom", "ThrowingParser");
    std::ostringstream out, err;
    const int status = runInspect(de, {dir.write("a.boom", "x")}, false, out, err);
    EXPECT_EQ(status, 1);
    EXPECT_NE(err.str().find("ThrowingParser threw: DtCorruptedState: Unsupported Database "
                             "Coordinate System"),
              std::string::npos)
        << err.str();
    EXPECT_NE(out.str().find("valid:             no"), std::string::npos);
}
