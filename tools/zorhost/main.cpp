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
#include "PluginLibrary.h"
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
  help
      Print this text.

Options:
  --plugin PATH      The plug-in library to load. Default: $ZORTERRAIN_PLUGIN,
                     else the one built beside zorhost, else the installed one.
  --config-dir DIR   The engine's configuration directory handed to the plug-in
                     (default: empty).
  --sample-dir DIR   The sample terrain set used when no PATH is given. Default:
                     $ZORHOST_SAMPLE_DIR, else data/sample of the source tree,
                     else the installed copy.
  -h, --help         Print this text.

Problems with a file (no parser for its extension, missing, unreadable, a
directory, a parser that refuses it or throws) are reported as one line on
stderr naming the path. Bad usage exits with status 2.
)";

struct Options {
    std::string plugin;
    std::string configDir;
    std::string sampleDir;
    std::string command;
    bool json = false;
    std::vector<std::string> args;
};

int usageError(const std::string& message) {
    std::cerr << "zorhost: " << message << "\n"
              << "Try 'zorhost --help'.\n";
    return 2;
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
        } else if (arg == "--json") {
            options.json = true;
        } else if (arg == "--") {
            for (++i; i < argc; ++i)
                options.args.push_back(argv[i]);
        } else if (arg.size() > 1 && arg[0] == '-') {
            return usageError("unknown option " + arg);
        } else if (options.command.empty()) {
            options.command = arg;
        } else {
            options.args.push_back(arg);
        }
    }
    if (options.command.empty())
        return usageError("no command given");
    if (options.json && options.command != "inspect") {
        return usageError("--json is an option of inspect");
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
