// Path helpers of the engine, on '/'-separated text; nothing here touches the disk.
#pragma once

#include <string>

namespace kelZor {

class DtZorFilesystem {
public:
    static bool isAbsolutePath(const std::string& path);
    // The last component: "a/b/c.flt" gives "c.flt".
    static std::string baseName(const std::string& path);
    // Everything before the last '/', without it: "a/b/c.flt" gives "a/b"; "c.flt"
    // gives ""; "/c.flt" gives "/".
    static std::string directoryOfPath(const std::string& path);
    // "/" for an absolute path, "" for a relative one.
    static std::string rootDirectoryOfPath(const std::string& path);
    // The extension without the point; lower-cased unless `caseSensitive`.
    static std::string extensionCaseSensitive(std::string path, bool caseSensitive);
};

}  // namespace kelZor
