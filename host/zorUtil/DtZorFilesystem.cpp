#include "zorUtil/DtZorFilesystem.h"

#include "hxutil/DtFilename.h"

namespace kelZor {

bool DtZorFilesystem::isAbsolutePath(const std::string& path) {
    return !path.empty() && path.front() == '/';
}

std::string DtZorFilesystem::baseName(const std::string& path) {
    return DtFilename::stripPath(DtFilename(path)).stripExtension().stdString();
}

std::string DtZorFilesystem::directoryOfPath(const std::string& path) {
    if (path.find('/') == std::string::npos)
        return ".";
    std::string directory = DtFilename(path).stripFilename().stdString();
    if (directory.size() > 1)
        directory.pop_back();  // the separator stripFilename keeps
    return directory;
}

std::string DtZorFilesystem::rootDirectoryOfPath(const std::string& path) {
    const size_t begin = path.find_first_not_of('/');
    if (begin == std::string::npos)
        return "";
    const size_t end = path.find('/', begin);
    return path.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
}

// What baseName leaves of the last component, with its point: "a.b" gives ".b", and a
// name ending in "." gives ".", so that the two joined always give the component back.
std::string DtZorFilesystem::extensionCaseSensitive(std::string path, bool caseSensitive) {
    const std::string component = DtFilename::stripPath(DtFilename(path)).stdString();
    const DtString extension(component.substr(baseName(path).size()));
    return (caseSensitive ? extension : extension.toLower()).stdString();
}

}  // namespace kelZor
