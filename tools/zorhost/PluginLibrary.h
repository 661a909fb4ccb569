// Loads the terrain plug-in as the engine does: dlopen of the shared library, the entry
// function found by its exported (mangled C++) name.
#pragma once

#include <string>
#include <vector>

namespace kelZor {
class DtDe;
}

class PluginLibrary {
public:
    using InitFunction = void (*)(kelZor::DtDe&);
    // The exported name of kelZor::zorTerrain::init(kelZor::DtDe&).
    static const char* const initSymbol;

    PluginLibrary() = default;
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // False with a message naming the path and dlerror's reason.
    bool load(const std::string& path, std::string& error);
    InitFunction init() const { return init_; }
    const std::string& path() const { return path_; }

    // Where to look when no path is given: $ZORTERRAIN_PLUGIN, else the library installed
    // beside this program, the build tree's, then the loader's own search.
    static std::vector<std::string> defaultCandidates();

private:
    void* handle_ = nullptr;
    InitFunction init_ = nullptr;
    std::string path_;
};
