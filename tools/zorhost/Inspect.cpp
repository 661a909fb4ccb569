#include "Inspect.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "JsonOutput.h"
#include "hxutil/DtException.h"
#include "hxutil/DtFilename.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"

using kelZor::DtDe;
using kelZor::DtHeaderParser;
using kelZor::DtHeaderParserFactory;

namespace {

// A reason the file cannot be asked at all, or "".
std::string fileProblem(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        return errno == ENOENT ? "no such file"
                               : std::string("cannot be read: ") + std::strerror(errno);
    }
    if (S_ISDIR(info.st_mode))
        return "is a directory, not a terrain file";
    if (::access(path.c_str(), R_OK) != 0) {
        return std::string("cannot be read: ") + std::strerror(errno);
    }
    return "";
}

std::string noParserProblem(const std::string& path) {
    const std::string extension = DtFilename(path).extension().stdString();
    if (extension.empty())
        return "has no extension, so no parser can be chosen";
    return "no parser is registered for the extension \"" + extension + "\"";
}

void askParser(DtHeaderParser& parser, InspectResult& result) {
    try {
        result.valid = parser.isValid();
    } catch (const DtException& error) {
        result.problem =
            result.parser + " threw: " + error.message() + " (at " + error.where() + ")";
        return;
    } catch (const std::exception& error) {
        result.problem = result.parser + " threw: " + error.what();
        return;
    }
    if (!result.valid) {
        result.problem = result.parser + " does not accept the file";
        return;
    }
    result.coordinateSystem = parser.terrainCoordinateSystem();
    result.parameters = parser.terrainCoordinateSystemParameters();
    result.patches = parser.terrainPatchRecords();
}

void printText(const InspectResult& r, std::ostream& out) {
    out << r.path << "\n";
    out << "  parser:            " << (r.parser.empty() ? "(none)" : r.parser) << "\n";
    out << "  valid:             " << (r.valid ? "yes" : "no") << "\n";
    if (!r.valid)
        return;
    out << "  coordinate system: " << (r.coordinateSystem.empty() ? "(none)" : r.coordinateSystem)
        << "\n";
    out << "  parameters:        " << r.parameters << "\n";
    out << "  patches:           " << r.patches.size() << "\n";
    int index = 0;
    for (const kelArchives::DtTerrainPatchRecord& patch : r.patches) {
        const kelArchives::DtModelDefinitionRecord& d = patch.terrainPatchDefinitionRecord();
        out << "    [" << ++index << "] name:              " << d.name() << "\n";
        out << "        file name:         " << d.filename() << "\n";
        out << "        coordinate system: " << d.coordinateSystem() << "\n";
        out << "        parameters:        " << d.coordinateSystemParameters() << "\n";
        out << "        schema:            " << d.schema() << "\n";
    }
}

Json toJson(const InspectResult& r) {
    Json patches = Json::array();
    for (const kelArchives::DtTerrainPatchRecord& patch : r.patches) {
        const kelArchives::DtModelDefinitionRecord& d = patch.terrainPatchDefinitionRecord();
        patches.push_back({{"name", d.name()},
                           {"filename", d.filename()},
                           {"coordinateSystem", d.coordinateSystem()},
                           {"parameters", d.coordinateSystemParameters()},
                           {"schema", d.schema()}});
    }
    return {{"path", r.path},
            {"parser", r.parser.empty() ? Json() : Json(r.parser)},
            {"valid", r.valid},
            {"coordinateSystem", r.coordinateSystem},
            {"parameters", r.parameters},
            {"patches", std::move(patches)}};
}

}  // namespace

InspectResult inspectPath(DtDe& de, const std::string& path) {
    InspectResult result;
    result.path = path;
    DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
    result.parser = factory.parserNameForPath(path);
    if (result.parser.empty()) {
        result.problem = noParserProblem(path);
        return result;
    }
    result.problem = fileProblem(path);
    if (!result.problem.empty())
        return result;
    std::unique_ptr<DtHeaderParser> parser(factory.createHeaderParser(path));
    if (!parser) {
        result.problem = "the creator of " + result.parser + " made no parser";
        return result;
    }
    askParser(*parser, result);
    return result;
}

int runInspect(DtDe& de, const std::vector<std::string>& paths, bool json, std::ostream& out,
               std::ostream& err) {
    bool allValid = true;
    std::unique_ptr<JsonArrayStream> records;
    if (json)
        records = std::make_unique<JsonArrayStream>(out);
    for (const std::string& path : paths) {
        const InspectResult result = inspectPath(de, path);
        if (!result.valid) {
            allValid = false;
            err << "zorhost: " << path << ": " << result.problem << "\n";
        }
        if (records) {
            records->add(toJson(result));
        } else {
            printText(result, out);
        }
    }
    if (records)
        records->close();
    return allValid ? 0 : 1;
}
