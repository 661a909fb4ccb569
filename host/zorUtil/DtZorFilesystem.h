// Path helpers of the engine, on '/'-separated text; nothing here touches the disk.
#pragma once

#include <string>

namespace kelZor {

class DtZorFilesystem {
public:
    static bool isAbsolutePath(const std::string& path);
    // The last component without its extension: "a/b/c.flt" gives "c"; joined with
    // extensionCaseSensitive it gives the component back.
    static std::string baseName(const std::string& path);
    // Everything before the last '/', without it: "a/b/c.flt" gives "a/b", "/c.flt"
    // gives "/", and a bare "c.flt" gives ".".
    static std::string directoryOfPath(const std::string& path);
    // The first component, without separators: "terrain/L03/t.flt" gives "terrain".
    static std::string rootDirectoryOfPath(const std::string& path);
    // The extension of the last component with its point (".flt"), or ""; lower-cased
    // unless `caseSensitive`.
    static std::string extensionCaseSensitive(std::string path, bool caseSensitive);
};

}  // namespace kelZor
