#include "zorUtil/DtZorFilesystem.h"

#include "hxutil/DtFilename.h"

namespace kelZor {

bool DtZorFilesystem::isAbsolutePath(const std::string& path) {
    return !path.empty() && path.front() == '/';
}

std::string DtZorFilesystem::baseName(const std::string& path) {
    return DtFilename::stripPath(DtFilename(path)).stdString();
}

std::string DtZorFilesystem::directoryOfPath(const std::string& path) {
    DtFilename directory(path);
    return directory.stripFilename().stdString();
}

std::string DtZorFilesystem::rootDirectoryOfPath(const std::string& path) {
    return isAbsolutePath(path) ? "/" : "";
}

std::string DtZorFilesystem::extensionCaseSensitive(std::string path, bool caseSensitive) {
    const DtString extension = DtFilename(path).extension();
    return (caseSensitive ? extension : extension.toLower()).stdString();
}

}  // namespace kelZor
