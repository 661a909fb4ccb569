#include "hxutil/DtFilename.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

size_t lastComponentStart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? 0 : slash + 1;
}

// Position of the extension's '.', or npos. Trailing slashes (a directory's, as shell
// completion adds them to "roads.gdb/") end no component of their own.
size_t extensionDot(const std::string& path) {
    const size_t last = path.find_last_not_of('/');
    if (last == std::string::npos)
        return std::string::npos;
    const std::string name = path.substr(0, last + 1);
    const size_t start = lastComponentStart(name);
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot <= start)
        return std::string::npos;
    return dot;
}

std::string joined(const std::string& head, const std::string& tail) {
    if (head.empty())
        return tail;
    if (tail.empty())
        return head;
    const bool headSlash = head.back() == '/';
    const bool tailSlash = tail.front() == '/';
    if (headSlash && tailSlash)
        return head + tail.substr(1);
    if (headSlash || tailSlash)
        return head + tail;
    return head + "/" + tail;
}

}  // namespace

DtFilename::DtFilename(const char* path) : DtString(path) {}
DtFilename::DtFilename(const std::string& path) : DtString(path) {}

bool DtFilename::absolute() const {
    return !text_.empty() && text_[0] == '/';
}

DtFilename DtFilename::absolutePath() const {
    std::error_code error;
    const fs::path result = fs::absolute(fs::path(text_), error);
    if (error)
        return *this;
    return DtFilename(result.lexically_normal().string());
}

DtFilename DtFilename::relative() const {
    std::error_code error;
    const fs::path base = fs::current_path(error);
    if (error)
        return *this;
    return DtFilename(fs::path(absolutePath().stdString()).lexically_relative(base).string());
}

bool DtFilename::exists() const {
    struct stat info;
    return !text_.empty() && ::stat(text_.c_str(), &info) == 0;
}

bool DtFilename::isReadable() const {
    return !text_.empty() && ::access(text_.c_str(), R_OK) == 0;
}
bool DtFilename::isWritable() const {
    return !text_.empty() && ::access(text_.c_str(), W_OK) == 0;
}

long long DtFilename::fileLength() const {
    struct stat info;
    if (text_.empty() || ::stat(text_.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return -1;
    return static_cast<long long>(info.st_size);
}

DtString DtFilename::extension() const {
    const size_t dot = extensionDot(text_);
    if (dot == std::string::npos)
        return DtString();
    return DtString(text_.substr(dot + 1, text_.find_last_not_of('/') - dot));
}

DtFilename& DtFilename::setExtension(const char* extension) {
    stripExtension();
    std::string ext = extension ? extension : "";
    if (!ext.empty() && ext.front() == '.')
        ext.erase(0, 1);
    if (!ext.empty())
        text_ += "." + ext;
    return *this;
}

DtFilename& DtFilename::stripExtension() {
    const size_t dot = extensionDot(text_);
    if (dot != std::string::npos)
        text_.erase(dot);
    return *this;
}

DtFilename& DtFilename::stripPath() {
    text_.erase(0, lastComponentStart(text_));
    return *this;
}

// Keeps the separator, so that a name can be put behind the directory as plain text. A
// backslash separates too: paths in terrain projects may come from either kind of system.
DtFilename& DtFilename::stripFilename() {
    const size_t slash = text_.find_last_of("/\\");
    text_.erase(slash == std::string::npos ? 0 : slash + 1);
    return *this;
}

DtFilename& DtFilename::append(const char* component) {
    text_ = joined(text_, component ? component : "");
    return *this;
}

DtFilename& DtFilename::prepend(const char* directory) {
    text_ = joined(directory ? directory : "", text_);
    return *this;
}

bool DtFilename::searchAlternatePath(const char* directories) {
    if (exists())
        return true;
    if (!directories)
        return false;
    const DtFilename name = stripPath(*this);
    std::vector<DtString> dirs;
    DtString(directories).tokenize(':', dirs);
    for (const DtString& dir : dirs) {
        DtFilename candidate(name);
        candidate.prepend(dir.c_str());
        if (candidate.exists()) {
            *this = candidate;
            return true;
        }
    }
    return false;
}

DtFilename DtFilename::stripPath(const DtFilename& path) {
    DtFilename result(path);
    return result.stripPath();
}

const DtFilename& DtFilename::nullFilename() {
    static const DtFilename empty;
    return empty;
}
