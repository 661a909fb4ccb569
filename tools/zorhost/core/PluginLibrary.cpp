#include "PluginLibrary.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include "LibraryModule.h"

const char* const PluginLibrary::initSymbol = "_ZN6kelZor10zorTerrain4initERNS_4DtDeE";

namespace {

// The directory of this program, with its '/', or "" when the system does not say.
std::string executableDirectory() {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return "";
    const std::string executable(self, static_cast<size_t>(length));
    return executable.substr(0, executable.rfind('/') + 1);
}

}  // namespace

SharedObject::~SharedObject() {
    if (handle_)
        dlclose(handle_);
}

SharedObject& SharedObject::operator=(SharedObject&& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(path_, other.path_);
    return *this;
}

bool SharedObject::open(const std::string& path, std::string& error) {
    dlerror();
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        error = "cannot load " + path + ": " + (reason ? reason : "unknown reason");
        return false;
    }
    if (handle_)
        dlclose(handle_);
    handle_ = handle;
    path_ = path;
    return true;
}

void* SharedObject::symbol(const char* name) const {
    return handle_ ? dlsym(handle_, name) : nullptr;
}

bool PluginLibrary::load(const std::string& path, std::string& error) {
    SharedObject candidate;
    if (!candidate.open(path, error)) {
        error = "plug-in: " + error;
        return false;
    }
    void* entry = candidate.symbol(initSymbol);
    if (!entry) {
        error = "plug-in " + path + " has no entry " + initSymbol +
                " (kelZor::zorTerrain::init(kelZor::DtDe&))";
        return false;
    }
    library_ = std::move(candidate);
    init_ = reinterpret_cast<InitFunction>(entry);
    return true;
}

std::vector<std::string> PluginLibrary::defaultCandidates() {
    if (const char* fromEnvironment = std::getenv("ZORTERRAIN_PLUGIN")) {
        if (*fromEnvironment)
            return {fromEnvironment};
    }
    // An installed zorhost prefers the plug-in installed with it over a build tree.
    std::vector<std::string> candidates;
    const std::string directory = executableDirectory();
    if (!directory.empty())
        candidates.push_back(directory + ZORHOST_PLUGIN_FROM_BINDIR);
    candidates.push_back(ZORHOST_BUILD_PLUGIN);
    candidates.push_back("libzorTerrain.so");
    return candidates;
}

bool LibraryModule::load(const PluginLibrary& plugin, std::string& error, const std::string& path) {
    for (const std::string& candidate :
         path.empty() ? defaultCandidates() : std::vector<std::string>{path}) {
        if (module_.open(candidate, error))
            break;
    }
    if (module_.path().empty())
        return false;
    // The module's plug-in must be the one zorhost loaded, not a second copy.
    if (module_.symbol(PluginLibrary::initSymbol) != reinterpret_cast<void*>(plugin.init())) {
        error = "this command needs the zorTerrain library; the plug-in " + plugin.path() +
                " is not it (its soname differs)";
        return false;
    }
    auto entry =
        reinterpret_cast<const LibraryCommands* (*)()>(module_.symbol(ZORHOST_LIBRARY_ENTRY));
    if (!entry) {
        error = module_.path() + " has no entry " ZORHOST_LIBRARY_ENTRY;
        return false;
    }
    commands_ = entry();
    return true;
}

std::vector<std::string> LibraryModule::defaultCandidates() {
    std::vector<std::string> candidates;
    const std::string directory = executableDirectory();
    if (!directory.empty())
        candidates.push_back(directory + ZORHOST_MODULE_FROM_BINDIR);
    candidates.push_back(ZORHOST_BUILD_MODULE);
    return candidates;
}
