// Loads the terrain plug-in as the engine does: dlopen of the shared library, the entry
// function found by its exported (mangled C++) name. zorhost itself does not link the
// plug-in, so every piece of plug-in code it runs comes from the library loaded here.
#pragma once

#include <string>
#include <vector>

namespace kelZor {
class DtDe;
}
struct LibraryCommands;

// A dlopen handle, closed with its owner.
class SharedObject {
public:
    SharedObject() = default;
    ~SharedObject();
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;
    SharedObject& operator=(SharedObject&& other) noexcept;

    // False with a message naming the path and dlerror's reason.
    bool open(const std::string& path, std::string& error);
    // The symbol in the object or the libraries it needs, or null.
    void* symbol(const char* name) const;
    const std::string& path() const { return path_; }

private:
    void* handle_ = nullptr;
    std::string path_;
};

class PluginLibrary {
public:
    using InitFunction = void (*)(kelZor::DtDe&);
    // The exported name of kelZor::zorTerrain::init(kelZor::DtDe&).
    static const char* const initSymbol;

    bool load(const std::string& path, std::string& error);
    InitFunction init() const { return init_; }
    const std::string& path() const { return library_.path(); }

    // Where to look when no path is given: $ZORTERRAIN_PLUGIN, else the library installed
    // beside this program, the build tree's, then the loader's own search.
    static std::vector<std::string> defaultCandidates();

private:
    SharedObject library_;
    InitFunction init_ = nullptr;
};

// zorhost-library.so (LibraryModule.h). It links the plug-in by its soname, so loaded
// after the plug-in it binds to that copy; a plug-in of another soname would make the
// loader bring a second copy, which load() refuses.
class LibraryModule {
public:
    // `path` empty: defaultCandidates().
    bool load(const PluginLibrary& plugin, std::string& error, const std::string& path = "");
    const LibraryCommands& commands() const { return *commands_; }

    // Installed beside the plug-in directory of this program, else the build tree's.
    static std::vector<std::string> defaultCandidates();

private:
    SharedObject module_;
    const LibraryCommands* commands_ = nullptr;
};
