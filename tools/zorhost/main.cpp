// zorhost: a small stand-in for the 3-D engine. It loads the terrain plug-in as the
// engine does and answers questions about terrain files from the command line.
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "Inspect.h"
#include "MetaFlightCommands.h"
#include "PluginLibrary.h"
#include "hxutil/DtString.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"

namespace {

const char* const usageText =
    R"(usage: zorhost [--plugin PATH] [--config-dir DIR] COMMAND [OPTIONS] [ARGS]

zorhost loads the zorTerrain plug-in (libzorTerrain.so) the way the engine does,
calls its init, and asks it about terrain files.

Commands:
  inspect [--json] [PATH...]
      Ask the registered header parser of each file (chosen by extension) whether
      the file is valid, and print its coordinate system, the parameters of that
      system and its terrain patches. Without PATH, every file of the sample
      terrain set is inspected. --json prints one JSON array of objects with the
      keys path, parser, valid, coordinateSystem, parameters and patches (each
      patch: name, filename, coordinateSystem, parameters, schema); parser is
      null when no parser fits the extension.
      Exit status: 0 when every file was valid, 1 when any was not.
  parsers
      List the registered header parsers and the extensions that lead to them.
  describe DOC.mft [--json]
      A MetaFlight document as a person wants to see it: each geometry dataset
      (key, DatasetName, title, file format, pattern, hierarchy type, data and
      grid coordinate systems, radius) with each level (name, divisions,
      columns, rows, tile type, localized type, switch-in and switch-out
      distances); each virtual texture dataset with its levels, tile texels,
      and origin and extent in its own coordinate system.
  tiles DOC.mft --dataset KEY [--level N] [--json]
      One record per tile of a geometry dataset (every level, or level N):
      level, row, col, centre x y z, offset x y z and file path. JSON keys:
      level, row, col, center, offset, path. Records stream as they are made.
      Centres and offsets are in the dataset's data coordinate system; a
      geodetic one gives latitude and longitude in degrees.
  convert DOC.mft --from CS --to CS X Y Z
      Convert a position between two coordinate systems of the document, named
      by their keys. In a geodetic system the values are latitude and longitude
      in degrees and altitude in metres; otherwise the system's own numbers
      (UTM easting, northing, height; flat earth east, north, up; geocentric
      X, Y, Z), in metres.
  publish IN.mft OUT.mft [--merge FILE] [--medf] [--remove-virtual-texture]
          [--switch-distance D]
      Rewrite a MetaFlight document into OUT (which may be IN itself): merged,
      trimmed, with a new largest switch distance, in the "medf" form, as the
      options say. OUT is replaced only once it is completely written. Prints
      one line on what changed.
  help
      Print this text.

Options:
  --plugin PATH      The plug-in library to load. Default: $ZORTERRAIN_PLUGIN,
                     else the one installed with zorhost (../lib beside it),
                     else the one of the build tree.
  --config-dir DIR   The engine's configuration directory handed to the plug-in
                     (default: empty).
  --sample-dir DIR   The sample terrain set used when no PATH is given. Default:
                     $ZORHOST_SAMPLE_DIR, else data/sample of the source tree,
                     else the installed copy.
  --dataset KEY      The geometry dataset of tiles.
  --level N          One level of tiles (from 0).
  --from CS, --to CS The coordinate systems of convert.
  --merge FILE       publish: a second document whose top-level elements of tags
                     the first lacks are taken over.
  --medf             publish: the first geometry dataset's FileFormat becomes
                     "medf" and the first ".flt" of its pattern ".medf".
  --remove-virtual-texture
                     publish: every VirtualTextureDataset goes.
  --switch-distance D
                     publish: the largest switch distance of each substitutive
                     geometry dataset's table becomes D.
  -h, --help         Print this text.

Problems with a file (no parser for its extension, missing, unreadable, a
directory, a parser that refuses it or throws) are reported as one line on
stderr naming the path. A MetaFlight document that does not load or resolve,
an unknown dataset or coordinate system, a level or tile out of range: the
message on stderr and status 1. Bad usage exits with status 2.
)";

struct Options {
    std::string plugin;
    std::string configDir;
    std::string sampleDir;
    std::string dataset;
    std::string level;
    std::string from;
    std::string to;
    std::string merge;
    std::string switchDistance;
    bool medf = false;
    bool removeVirtualTexture = false;
    std::string command;
    bool json = false;
    std::vector<std::string> args;
};

int usageError(const std::string& message) {
    std::cerr << "zorhost: " << message << "\n"
              << "Try 'zorhost --help'.\n";
    return 2;
}

bool isNumber(const std::string& text) {
    bool ok = false;
    DtString(text).toDouble(&ok);
    return ok;
}

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string sampleDirectory(const Options& options) {
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

// The regular files of the sample set, sorted, so the output is stable.
std::vector<std::string> sampleFiles(const std::string& directory, std::string& error) {
    std::vector<std::string> files;
    std::error_code code;
    for (const auto& entry : std::filesystem::directory_iterator(directory, code)) {
        if (entry.is_regular_file(code) && entry.path().filename().string() != "README.md") {
            files.push_back(entry.path().string());
        }
    }
    if (code)
        error = "cannot list the sample directory " + directory + ": " + code.message();
    std::sort(files.begin(), files.end());
    return files;
}

// Parses the command line; answers -1 on success, else the exit status.
int parseArguments(int argc, char** argv, Options& options) {
    auto needValue = [&](int& i, std::string& target) {
        if (i + 1 >= argc)
            return false;
        target = argv[++i];
        return true;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            std::cout << usageText;
            std::exit(0);
        } else if (arg == "--plugin") {
            if (!needValue(i, options.plugin))
                return usageError("--plugin needs a path");
        } else if (arg == "--config-dir") {
            if (!needValue(i, options.configDir))
                return usageError("--config-dir needs a directory");
        } else if (arg == "--sample-dir") {
            if (!needValue(i, options.sampleDir))
                return usageError("--sample-dir needs a directory");
        } else if (arg == "--dataset") {
            if (!needValue(i, options.dataset))
                return usageError("--dataset needs a key");
        } else if (arg == "--level") {
            if (!needValue(i, options.level))
                return usageError("--level needs a number");
        } else if (arg == "--from") {
            if (!needValue(i, options.from))
                return usageError("--from needs a coordinate system");
        } else if (arg == "--to") {
            if (!needValue(i, options.to))
                return usageError("--to needs a coordinate system");
        } else if (arg == "--merge") {
            if (!needValue(i, options.merge))
                return usageError("--merge needs a file");
        } else if (arg == "--switch-distance") {
            if (!needValue(i, options.switchDistance))
                return usageError("--switch-distance needs a number");
        } else if (arg == "--medf") {
            options.medf = true;
        } else if (arg == "--remove-virtual-texture") {
            options.removeVirtualTexture = true;
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--") {
            for (++i; i < argc; ++i)
                options.args.push_back(argv[i]);
        } else if (arg.size() > 1 && arg[0] == '-' && !isNumber(arg)) {
            return usageError("unknown option " + arg);
        } else if (options.command.empty()) {
            options.command = arg;
        } else {
            options.args.push_back(arg);
        }
    }
    if (options.command.empty())
        return usageError("no command given");
    if (options.json && options.command != "inspect" && options.command != "describe" &&
        options.command != "tiles") {
        return usageError("--json is an option of inspect, describe and tiles");
    }
    return -1;
}

bool loadPlugin(const Options& options, PluginLibrary& plugin) {
    std::vector<std::string> candidates = options.plugin.empty()
                                              ? PluginLibrary::defaultCandidates()
                                              : std::vector<std::string>{options.plugin};
    std::string error;
    for (const std::string& candidate : candidates) {
        if (plugin.load(candidate, error))
            return true;
        if (!options.plugin.empty())
            break;
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

// The MetaFlight commands, which need no plug-in registration.
int runMetaFlightCommand(const Options& options) {
    if (options.args.empty())
        return usageError(options.command + " needs a MetaFlight document");
    const std::string& document = options.args.front();
    if (options.command == "describe") {
        if (options.args.size() != 1)
            return usageError("describe takes one document");
        return runDescribe(document, options.json, std::cout, std::cerr);
    }
    if (options.command == "publish") {
        if (options.args.size() != 2)
            return usageError("publish takes IN.mft and OUT.mft");
        PublishRequest request;
        request.input = options.args[0];
        request.output = options.args[1];
        request.merge = options.merge;
        request.medf = options.medf;
        request.removeVirtualTexture = options.removeVirtualTexture;
        if (!options.switchDistance.empty()) {
            bool ok = false;
            request.switchDistance = DtString(options.switchDistance).toFloat(&ok);
            if (!ok)
                return usageError("--switch-distance needs a number");
            request.setSwitchDistance = true;
        }
        return runPublish(request, std::cout, std::cerr);
    }
    if (options.command == "tiles") {
        if (options.args.size() != 1)
            return usageError("tiles takes one document");
        if (options.dataset.empty())
            return usageError("tiles needs --dataset KEY");
        TilesRequest request{document, options.dataset, -1, options.json};
        if (!options.level.empty()) {
            bool ok = false;
            request.level = DtString(options.level).toInt(&ok);
            if (!ok || request.level < 0)
                return usageError("--level needs a number from 0");
        }
        return runTiles(request, std::cout, std::cerr);
    }
    if (options.args.size() != 4)
        return usageError("convert takes a document and X Y Z");
    if (options.from.empty() || options.to.empty())
        return usageError("convert needs --from and --to");
    ConvertRequest request{document, options.from, options.to, {0, 0, 0}};
    for (int i = 0; i < 3; ++i) {
        bool ok = false;
        request.values[i] = DtString(options.args[static_cast<size_t>(i) + 1]).toDouble(&ok);
        if (!ok)
            return usageError("not a number: " + options.args[static_cast<size_t>(i) + 1]);
    }
    return runConvert(request, std::cout, std::cerr);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const int parsed = parseArguments(argc, argv, options);
    if (parsed >= 0)
        return parsed;
    if (options.command == "help") {
        std::cout << usageText;
        return 0;
    }
    if (options.command == "describe" || options.command == "tiles" ||
        options.command == "convert" || options.command == "publish") {
        return runMetaFlightCommand(options);
    }
    if (options.command != "inspect" && options.command != "parsers") {
        return usageError("unknown command " + options.command);
    }
    if (options.command == "parsers" && !options.args.empty()) {
        return usageError("parsers takes no arguments");
    }

    // Declared before the DtDe so the library outlives every object whose code it holds.
    PluginLibrary plugin;
    if (!loadPlugin(options, plugin))
        return 1;
    kelZor::DtDe de(options.configDir);
    plugin.init()(de);

    if (options.command == "parsers")
        return listParsers(de);
    std::vector<std::string> paths = options.args;
    if (paths.empty()) {
        std::string error;
        paths = sampleFiles(sampleDirectory(options), error);
        if (!error.empty()) {
            std::cerr << "zorhost: " << error << "\n";
            return 1;
        }
    }
    return runInspect(de, paths, options.json, std::cout, std::cerr);
}
