#include "PluginLibrary.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

const char* const PluginLibrary::initSymbol = "_ZN6kelZor10zorTerrain4initERNS_4DtDeE";

PluginLibrary::~PluginLibrary() {
    if (handle_)
        dlclose(handle_);
}

bool PluginLibrary::load(const std::string& path, std::string& error) {
    dlerror();
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        error = "cannot load plug-in " + path + ": " + (reason ? reason : "unknown reason");
        return false;
    }
    void* symbol = dlsym(handle, initSymbol);
    if (!symbol) {
        error = "plug-in " + path + " has no entry " + initSymbol +
                " (kelZor::zorTerrain::init(kelZor::DtDe&))";
        dlclose(handle);
        return false;
    }
    if (handle_)
        dlclose(handle_);
    handle_ = handle;
    init_ = reinterpret_cast<InitFunction>(symbol);
    path_ = path;
    return true;
}

std::vector<std::string> PluginLibrary::defaultCandidates() {
    std::vector<std::string> candidates;
    if (const char* fromEnvironment = std::getenv("ZORTERRAIN_PLUGIN")) {
        if (*fromEnvironment)
            return {fromEnvironment};
    }
    // An installed zorhost prefers the plug-in installed with it over a build tree.
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        const std::string executable(self, static_cast<size_t>(length));
        const std::string directory = executable.substr(0, executable.rfind('/') + 1);
        candidates.push_back(directory + ZORHOST_PLUGIN_FROM_BINDIR);
    }
    candidates.push_back(ZORHOST_BUILD_PLUGIN);
    candidates.push_back("libzorTerrain.so");
    return candidates;
}
