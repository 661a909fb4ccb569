// The engine as a front end holds it (zorhost's command line, the Python module): the
// terrain plug-in loaded as the engine loads it (dlopen, the entry by its exported name),
// its registries in one DtDe, and zorhost's MetaFlight module when it can be had. Several
// engines in one process share the one plug-in the loader keeps.
//
//   Engine engine;
//   if (!engine.open({}, error)) fail(error);
//   kelZor::DtDe& de = engine.de();
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "PluginLibrary.h"

namespace kelZor {
class DtDe;
}
struct LibraryCommands;

struct EngineOptions {
    std::string plugin;     // empty: PluginLibrary's candidates
    std::string configDir;  // the engine's configuration directory; empty: none
    std::string module;     // zorhost's MetaFlight module; empty: its candidates
};

class Engine {
public:
    Engine();
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // False with the reason (the last candidate's) when no plug-in loads.
    bool open(const EngineOptions& options, std::string& error);

    kelZor::DtDe& de() { return *de_; }
    const std::string& pluginPath() const { return plugin_.path(); }
    // The MetaFlight commands, or null with `metaflightProblem` saying why.
    const LibraryCommands* metaflight() const;
    const std::string& metaflightProblem() const { return moduleError_; }

    // Each header parser registered, with the extensions it owns, in the registry's order.
    std::vector<std::pair<std::string, std::vector<std::string>>> parsers();

private:
    // Declared first so that the plug-in outlives every object whose code it holds.
    PluginLibrary plugin_;
    LibraryModule module_;
    bool haveModule_ = false;
    std::string moduleError_;
    std::unique_ptr<kelZor::DtDe> de_;
};
