// zorhost: a small stand-in for the 3-D engine. It loads the terrain plug-in as the
// engine does and answers questions about terrain files from the command line.
#include <sys/stat.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "FeatureCommands.h"
#include "Inspect.h"
#include "LibraryModule.h"
#include "PluginLibrary.h"
#include "PropCommands.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"

namespace {

const char* const description =
    "zorhost loads the zorTerrain plug-in (libzorTerrain.so) the way the engine does, calls\n"
    "its init, and asks it about terrain files.";

const char* const footer = R"(
The plug-in is found by --plugin, else $ZORTERRAIN_PLUGIN, else the one installed with
zorhost (../lib beside it), else the one of the build tree.

Problems with a file (no parser for its extension, missing, unreadable, a directory, a
parser that refuses it or throws) are reported as one line on stderr naming the path.
A MetaFlight document that does not load or resolve, an unknown dataset or coordinate
system, a level or tile out of range: the message on stderr and status 1. Bad usage
exits with status 2. 'zorhost COMMAND --help' tells more of each command.)";

struct GlobalOptions {
    std::string plugin;
    std::string configDir;
    std::string sampleDir;
};

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string sampleDirectory(const GlobalOptions& options) {
    if (!options.sampleDir.empty())
        return options.sampleDir;
    if (const char* fromEnvironment = std::getenv("ZORHOST_SAMPLE_DIR")) {
        if (*fromEnvironment)
            return fromEnvironment;
    }
    if (isDirectory(ZORHOST_SOURCE_SAMPLE_DIR))
        return ZORHOST_SOURCE_SAMPLE_DIR;
    return ZORHOST_INSTALLED_SAMPLE_DIR;
}

// The terrain files of the sample set that a registered parser answers, sorted, so the
// output is stable: those at its top (a ".gdb" directory is a File Geodatabase, asked
// like a file) and the terrain project in project/, which lives a level down so that
// its terrain can lie in ../data/terrain as a project lays it out.
std::vector<std::string> sampleFiles(kelZor::DtDe& de, const std::string& directory,
                                     std::string& error) {
    std::vector<std::string> files;
    std::error_code code;
    for (const char* folder : {"", "/project"}) {
        for (const auto& entry : std::filesystem::directory_iterator(directory + folder, code)) {
            const std::string path = entry.path().string();
            const bool geodatabase = entry.is_directory(code) && entry.path().extension() == ".gdb";
            if ((entry.is_regular_file(code) || geodatabase) && !parserNameFor(de, path).empty())
                files.push_back(path);
        }
        if (code) {
            error =
                "cannot list the sample directory " + directory + folder + ": " + code.message();
            break;
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool loadPlugin(const GlobalOptions& options, PluginLibrary& plugin) {
    const std::vector<std::string> candidates = options.plugin.empty()
                                                    ? PluginLibrary::defaultCandidates()
                                                    : std::vector<std::string>{options.plugin};
    std::string error;
    for (const std::string& candidate : candidates) {
        if (plugin.load(candidate, error))
            return true;
    }
    std::cerr << "zorhost: " << error << "\n";
    return false;
}

int listParsers(kelZor::DtDe& de) {
    kelZor::DtHeaderParserFactory& factory = kelZor::DtHeaderParserFactory::instance(de);
    for (const std::string& name : factory.registeredNames()) {
        std::cout << name << ":";
        for (const auto& [extension, owner] : factory.registeredExtensions()) {
            if (owner == name)
                std::cout << " " << extension;
        }
        std::cout << "\n";
    }
    return 0;
}

// What the command line asked for, filled by CLI11.
struct Request {
    GlobalOptions global;
    bool json = false;
    std::string parser;
    std::vector<std::string> paths;
    std::string document;
    TilesRequest tiles;
    ConvertRequest convert;
    std::vector<double> values;
    PublishRequest publish;
    float switchDistance = 0.0f;
    FeaturesRequest features;
    PropsRequest props;
};

void addInspect(CLI::App& app, Request& request) {
    CLI::App* inspect = app.add_subcommand(
        "inspect",
        "Ask the registered header parser of each file (chosen by extension) whether it is\n"
        "valid, and print its coordinate system, the parameters of that system and its\n"
        "terrain patches. Without PATH, every file of the sample terrain set. Exit status:\n"
        "0 when every file was valid, 1 when any was not.");
    inspect->add_flag("--json", request.json,
                      "One JSON array of objects with the keys path, parser (null when no "
                      "parser fits), valid, coordinateSystem, parameters and patches (each: "
                      "name, filename, coordinateSystem, parameters, schema)");
    inspect->add_option("--parser", request.parser,
                        "Ask the parser registered under NAME whatever the extension (for "
                        "example DtTerrainProjectHeaderParser, which no extension leads to)");
    inspect->add_option("PATH", request.paths, "Terrain files");
}

void addMetaFlight(CLI::App& app, Request& request) {
    CLI::App* describe = app.add_subcommand(
        "describe",
        "A MetaFlight document: each geometry dataset (key, DatasetName, title, file format,\n"
        "pattern, hierarchy type, data and grid coordinate systems, radius) with its levels;\n"
        "each virtual texture dataset with its levels, tile texels, origin and extent.");
    describe->add_option("DOC", request.document, "MetaFlight document (.mft)")->required();
    describe->add_flag("--json", request.json, "One JSON object");

    CLI::App* tiles = app.add_subcommand(
        "tiles",
        "One record per tile of a geometry dataset (every level, or level N): level, row,\n"
        "col, centre, offset and file path, streamed as they are made. Geodetic positions\n"
        "are latitude and longitude in degrees.");
    tiles->add_option("DOC", request.tiles.document, "MetaFlight document (.mft)")->required();
    tiles->add_option("--dataset", request.tiles.dataset, "The geometry dataset's key")->required();
    tiles->add_option("--level", request.tiles.level, "One level, from 0")
        ->check(CLI::NonNegativeNumber);
    tiles->add_flag("--json", request.tiles.json,
                    "A JSON array of objects with the keys level, row, col, center, offset, path");

    CLI::App* convert = app.add_subcommand(
        "convert",
        "A position moved between two coordinate systems of a document, named by key. In a\n"
        "geodetic system the values are latitude and longitude in degrees and altitude in\n"
        "metres; otherwise the system's own numbers, in metres.");
    convert->add_option("DOC", request.convert.document, "MetaFlight document (.mft)")->required();
    convert->add_option("--from", request.convert.from, "Key of the source system")->required();
    convert->add_option("--to", request.convert.to, "Key of the target system")->required();
    convert->add_option("X Y Z", request.values, "The position")->required()->expected(3);

    CLI::App* publish = app.add_subcommand(
        "publish",
        "Rewrite a MetaFlight document into OUT (which may be IN): merged, trimmed, with a\n"
        "new largest switch distance, in the \"medf\" form, as the options say. OUT is\n"
        "replaced only once completely written. Prints one line on what changed.");
    publish->add_option("IN", request.publish.input, "The document")->required();
    publish->add_option("OUT", request.publish.output, "Where to write it")->required();
    publish->add_option("--merge", request.publish.merge,
                        "A second document whose top-level elements of tags the first lacks "
                        "are taken over");
    publish->add_flag("--medf", request.publish.medf,
                      "The first geometry dataset's FileFormat becomes \"medf\" and the first "
                      "\".flt\" of its pattern \".medf\"");
    publish->add_flag("--remove-virtual-texture", request.publish.removeVirtualTexture,
                      "Every VirtualTextureDataset goes");
    publish->add_option("--switch-distance", request.switchDistance,
                        "The largest switch distance of each substitutive dataset's table "
                        "becomes D");
}

const char* const sceneHelp =
    "The scene's coordinate system: TYPE:PARAMETERS (a type and a converter text as "
    "'inspect' prints them, e.g. 'UTM:45.5,9,32,N,...') or @FILE (what that file's header "
    "parser answers). Default: the file's own system when its parser answers a UTM, Lambert "
    "or flat-earth one, else geocentric";

void addVector(CLI::App& app, Request& request) {
    CLI::App* features = app.add_subcommand(
        "features",
        "Load a vector file (shapefile, File Geodatabase, any vector format OGR reads)\n"
        "through the registered feature adder into a feature layer, and print each feature:\n"
        "kind, feature id, FACC code, network id, location, dimensions and heading of points,\n"
        "vertex count of lines and areas; then the counts by kind and the errors the engine\n"
        "was told. The first line names the scene. Exit status 1 when the file does not load.");
    features->add_option("FILE", request.features.file, "The vector file")->required();
    features->add_option("--scene", request.features.scene, sceneHelp);
    features->add_flag("--json", request.features.json,
                       "One JSON object: scene, features (kind, featureId, facc, id, and "
                       "location, dimensions, rotation (radians, null when not set) or "
                       "vertices, coordinates [x, y, z] in the scene), errors (code, text)");
    features->add_option("--geojson", request.features.geojson,
                         "Also write the features to OUT as GeoJSON, in WGS84 longitude and "
                         "latitude, with their codes, ids, dimensions and rotation");

    CLI::App* values = app.add_subcommand(
        "values",
        "The field value reader over one or more vector files into one map: each attribute\n"
        "name of the files' free-standing points with every value it takes, in string order.\n"
        "Exit status 1 when a file does not load (the others are still listed).");
    values->add_option("FILE", request.paths, "Vector files")->required();
    values->add_flag("--json", request.json, "One JSON object from field name to its values");

    CLI::App* props = app.add_subcommand(
        "props",
        "Apply each rule of a rules file to a vector file through the prop adder registered\n"
        "for its extension, into a terrain layer: each prop with its name, type, model,\n"
        "position, heading and orientation quaternion, the count per rule, and the errors\n"
        "the engine was told. The rules file is JSON:\n"
        "  {\"models\": {\"NAME\": \"MODEL FILE\", ...},\n"
        "   \"rules\": [{\"fields\": {\"FIELD\": \"VALUE\", ...}, \"model\": \"NAME\",\n"
        "              \"propType\": \"TYPE\", \"rotationField\": \"FIELD\"}, ...]}\n"
        "Values are compared as the texts 'zorhost values' lists. Props stand on the\n"
        "--terrain elevation sources (DTED, GeoTIFF; the first that covers a place answers),\n"
        "or on the ellipsoid without any; where no source covers a prop it stands at the\n"
        "origin, and zorhost says so.");
    props->add_option("FILE", request.props.file, "The vector file")->required();
    props->add_option("--rules", request.props.rules, "The rules file (JSON)")->required();
    props->add_option("--terrain", request.props.terrains, "An elevation source (repeatable)");
    props->add_option("--scene", request.props.scene,
                      std::string(sceneHelp) +
                          "; the first DEM's system is tried before the "
                          "vector file's");
    props->add_flag("--json", request.props.json,
                    "One JSON object: scene, props (rule, name, propType, model, position "
                    "[x, y, z], heading in degrees, orientation [x, y, z, w]), rules (rule, "
                    "added), errors (code, text)");
    props->add_option("--geojson", request.props.geojson,
                      "Also write the props to OUT as GeoJSON points in WGS84");
}

int runMetaFlight(const CLI::App& command, Request& request, const LibraryCommands& commands) {
    const std::string name = command.get_name();
    if (name == "describe")
        return commands.describe(request.document, request.json, std::cout, std::cerr);
    if (name == "tiles")
        return commands.tiles(request.tiles, std::cout, std::cerr);
    if (name == "convert") {
        std::copy(request.values.begin(), request.values.end(), request.convert.values);
        return commands.convert(request.convert, std::cout, std::cerr);
    }
    request.publish.setSwitchDistance = command.count("--switch-distance") > 0;
    request.publish.switchDistance = request.switchDistance;
    return commands.publish(request.publish, std::cout, std::cerr);
}

int runCommand(const CLI::App& command, Request& request) {
    // Declared before the DtDe so the library outlives every object whose code it holds.
    PluginLibrary plugin;
    if (!loadPlugin(request.global, plugin))
        return 1;
    // What zorhost does with the plug-in's classes directly. Inspect and parsers go on
    // without it (a stub plug-in has no such classes); the MetaFlight commands cannot.
    LibraryModule library;
    std::string libraryError;
    const bool haveLibrary = library.load(plugin, libraryError);
    kelZor::DtDe de(request.global.configDir);
    plugin.init()(de);
    if (haveLibrary)
        library.commands().registerMetaFileParser(de);

    const std::string name = command.get_name();
    if (name == "parsers")
        return listParsers(de);
    if (name == "features")
        return runFeatures(de, request.features, std::cout, std::cerr);
    if (name == "props")
        return runProps(de, request.props, std::cout, std::cerr);
    if (name == "values")
        return runValues(de, request.paths, request.json, std::cout, std::cerr);
    if (name != "inspect") {
        if (!haveLibrary) {
            std::cerr << "zorhost: " << libraryError << "\n";
            return 1;
        }
        return runMetaFlight(command, request, library.commands());
    }
    std::vector<std::string> paths = request.paths;
    if (paths.empty()) {
        std::string error;
        paths = sampleFiles(de, sampleDirectory(request.global), error);
        if (!error.empty()) {
            std::cerr << "zorhost: " << error << "\n";
            return 1;
        }
    }
    return runInspect(de, paths, request.json, std::cout, std::cerr, request.parser);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(description, "zorhost");
    app.footer(footer);
    app.require_subcommand(1);
    app.fallthrough();  // the global options may follow the command as well
    Request request;
    app.add_option("--plugin", request.global.plugin, "The plug-in library to load");
    app.add_option("--config-dir", request.global.configDir,
                   "The engine's configuration directory handed to the plug-in (default: "
                   "empty)");
    app.add_option("--sample-dir", request.global.sampleDir,
                   "The sample terrain set inspected when no PATH is given (default: "
                   "$ZORHOST_SAMPLE_DIR, else data/sample of the source tree, else the "
                   "installed copy)");
    addInspect(app, request);
    app.add_subcommand("parsers",
                       "The registered header parsers and the extensions that lead to them");
    addMetaFlight(app, request);
    addVector(app, request);
    app.add_subcommand("help", "Print this text");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::cerr << "zorhost: " << e.what() << "\nTry 'zorhost --help'.\n";
        return 2;
    }
    const CLI::App* command = app.get_subcommands().front();
    if (command->get_name() == "help") {
        std::cout << app.help();
        return 0;
    }
    // Whatever the engine throws ends the command with one line, never an abort.
    try {
        return runCommand(*command, request);
    } catch (const std::exception& error) {
        std::cerr << "zorhost: " << command->get_name() << ": " << error.what() << "\n";
    } catch (...) {
        std::cerr << "zorhost: " << command->get_name() << ": an unknown failure\n";
    }
    return 1;
}
