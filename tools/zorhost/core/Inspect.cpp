#include "Inspect.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <gdal_priv.h>

#include "JsonOutput.h"
#include "gdalsupport/DtGdalScope.h"
#include "hxutil/DtException.h"
#include "hxutil/DtFilename.h"
#include "terrainDbFactory/DtTdbManager.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"
#include "zorUtil/DtCoordinateConverter.h"

using kelZor::DtDe;
using kelZor::DtHeaderParser;
using kelZor::DtHeaderParserFactory;

namespace {

const std::pair<const char*, const char*> namedParserKinds[] = {
    {"meta", "DtMetaFileHeaderParser"}, {"tproj", "DtTerrainProjectHeaderParser"}};
const char* const projectParser = "DtTerrainProjectHeaderParser";

// A reason the file cannot be asked at all, or "".
std::string fileProblem(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        return errno == ENOENT ? "no such file"
                               : std::string("cannot be read: ") + std::strerror(errno);
    }
    // A File Geodatabase is a directory, asked like a file.
    const bool geodatabase = DtFilename(path).extension().toLower() == "gdb";
    if (S_ISDIR(info.st_mode) && !geodatabase)
        return "is a directory, not a terrain file";
    if (::access(path.c_str(), R_OK) != 0) {
        return std::string("cannot be read: ") + std::strerror(errno);
    }
    return "";
}

// Changes the working directory for its lifetime and goes back on every path.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const DtString& directory) : previous_(getcwd(nullptr, 0)) {
        if (previous_ && ::chdir(directory.c_str()) != 0) {
            std::free(previous_);
            previous_ = nullptr;
        }
    }
    ~WorkingDirectory() {
        if (previous_ && ::chdir(previous_) != 0) {
            // Nothing more can be done; later relative paths are the user's to check.
        }
        std::free(previous_);
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    char* previous_;
};

std::string noParserProblem(const std::string& path) {
    const std::string extension = DtFilename(path).extension().stdString();
    if (extension.empty())
        return "has no extension, so no parser can be chosen";
    return "no parser is registered for the extension \"" + extension + "\"";
}

// What the loader says of a file the terrain toolkit's parser refuses: the parser asks it
// without wanting the reason.
std::string loaderRefusal(const std::string& path) {
    DtTdbManager manager;
    DtString error;
    std::unique_ptr<Coordinate_System> system(
        manager.coordinateSystemFrom(DtFilename(path.c_str()), DtFilename::nullFilename(), &error));
    std::string reason = error.stdString();
    const std::string named = path + ": ";
    if (reason.compare(0, named.size(), named) == 0)
        reason = reason.substr(named.size());
    return reason;
}

std::string rasterRefusal(const std::string& path, bool wantsSystem) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    if (!dataset)
        return "GDAL cannot read it as a raster";
    if (!wantsSystem)
        return "";
    const OGRSpatialReference* srs = dataset->GetSpatialRef();
    if (!srs)
        return "it has no coordinate system";
    const char* name = srs->GetName();
    return std::string("its coordinate system, ") + (name ? name : "unnamed") +
           ", is none the parser answers: a UTM zone, a Lambert conformal conic, geographic";
}

// Why a parser refused a file, as far as zorhost can tell; "" when it cannot.
std::string refusalReason(const std::string& parser, const std::string& path) {
    if (parser == "DtTerrainToolkitHeaderParser")
        return loaderRefusal(path);
    if (parser == "DtGeoTiffHeaderParser")
        return rasterRefusal(path, true);
    if (parser == "DtImageHeaderParser")
        return rasterRefusal(path, false);
    if (parser == "DtWktHeaderParser")
        return "no \"WKT Coordinate System\" key holding a system OGR reads as a Lambert "
               "conformal conic, transverse Mercator, equirectangular or geocentric one";
    if (parser == "DtOpenFlightHeaderParser")
        return "no OpenFlight header: shorter than 324 bytes, not beginning with a header "
               "record, or in a coordinate system the parser does not know";
    if (parser == "DtMetaFlightHeaderParser")
        return "no \"medf\" geometry dataset in UTM, flat earth, geocentric or a local system";
    if (parser == "DtSorrelKslHeaderParser")
        return "not a KSL description that gives a terrain type and origin";
    if (parser == "DtMetaFileHeaderParser" || parser == projectParser)
        return "its terrain entry names no file that a parser accepts";
    return "";
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
        const std::string reason = refusalReason(result.parser, result.path);
        result.problem =
            result.parser + " does not accept the file" + (reason.empty() ? "" : ": " + reason);
        return;
    }
    result.coordinateSystem = parser.terrainCoordinateSystem();
    result.parameters = parser.terrainCoordinateSystemParameters();
    result.patches = parser.terrainPatchRecords();
}

// The one spelling zorhost gives each kind, the one --scene takes: a DTED cell's parser
// answers "Flat Earth", which is the FlatEarth kind.
}  // namespace

std::string kindOf(const std::string& type) {
    return type == "Flat Earth" ? kelZor::DtCoordinateConverter::FlatEarth : type;
}

Json inspectJson(const InspectResult& r) {
    Json patches = Json::array();
    for (const kelArchives::DtTerrainPatchRecord& patch : r.patches) {
        const kelArchives::DtModelDefinitionRecord& d = patch.terrainPatchDefinitionRecord();
        patches.push_back({{"name", d.name()},
                           {"filename", d.filename()},
                           {"coordinateSystem", d.coordinateSystem()},
                           {"parameters", d.coordinateSystemParameters()},
                           {"schema", d.schema()}});
    }
    Json record = {{"path", r.path},
                   {"parser", r.parser.empty() ? Json() : Json(r.parser)},
                   {"valid", r.valid}};
    if (!r.valid)
        record["reason"] = r.problem;
    record["coordinateSystem"] = r.coordinateSystem;
    record["kind"] = kindOf(r.coordinateSystem);
    record["parameters"] = r.parameters;
    record["patches"] = std::move(patches);
    return record;
}

namespace {}  // namespace

std::string parserNameFor(DtDe& de, const std::string& path) {
    DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
    const std::string byExtension = factory.parserNameForPath(path);
    if (!byExtension.empty())
        return byExtension;
    const std::string extension = DtFilename(path).extension().toLower().stdString();
    const std::vector<std::string>& names = factory.registeredNames();
    for (const auto& [kind, name] : namedParserKinds) {
        if (extension == kind && std::find(names.begin(), names.end(), name) != names.end())
            return name;
    }
    return "";
}

InspectResult inspectPath(DtDe& de, const std::string& path, const std::string& parserName) {
    InspectResult result;
    result.path = path;
    DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
    result.parser = parserName.empty() ? parserNameFor(de, path) : parserName;
    if (result.parser.empty()) {
        result.problem = noParserProblem(path);
        return result;
    }
    result.problem = fileProblem(path);
    if (!result.problem.empty())
        return result;
    // A project names its terrain relative to the folder it is opened in: its own.
    std::string asked = path;
    std::unique_ptr<WorkingDirectory> projectFolder;
    if (result.parser == projectParser) {
        asked = DtFilename(path).absolutePath().stdString();
        projectFolder = std::make_unique<WorkingDirectory>(DtFilename(asked).stripFilename());
    }
    std::unique_ptr<DtHeaderParser> parser(factory.createHeaderParserByName(result.parser, asked));
    if (!parser) {
        const std::vector<std::string>& names = factory.registeredNames();
        result.problem = std::find(names.begin(), names.end(), result.parser) == names.end()
                             ? "no parser is registered under the name " + result.parser
                             : "the creator of " + result.parser + " made no parser";
        return result;
    }
    askParser(*parser, result);
    return result;
}
