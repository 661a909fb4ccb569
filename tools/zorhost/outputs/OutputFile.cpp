#include "OutputFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// The files a shapefile is made of besides its .shp.
const char* const shapefileParts[] = {".shp", ".shx", ".dbf", ".prj", ".cpg",
                                      ".sbn", ".sbx", ".qix", ".fix", ".shp.xml"};

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool sameFile(const fs::path& a, const fs::path& b) {
    std::error_code error;
    return fs::equivalent(a, b, error) && !error;
}

// True when `path` is, or lies inside, the directory `directory`.
bool inside(const fs::path& path, const fs::path& directory) {
    std::error_code error;
    const fs::path parent = fs::weakly_canonical(path, error);
    const fs::path root = fs::weakly_canonical(directory, error);
    if (error)
        return false;
    auto p = parent.begin();
    for (auto r = root.begin(); r != root.end(); ++r, ++p) {
        if (p == parent.end() || *p != *r)
            return false;
    }
    return true;
}

fs::path directoryOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

// Whether writing `target` would change the input `input`.
bool touches(const fs::path& target, const std::string& input) {
    const fs::path in(input);
    std::error_code error;
    if (fs::is_directory(in, error))
        return inside(target, in);
    if (sameFile(target, in))
        return true;
    if (lower(in.extension().string()) != ".shp")
        return false;
    // A companion file of the shapefile: through a link, or by its name in whichever case
    // (roads.SHP may go with roads.dbf).
    for (const char* part : shapefileParts) {
        if (sameFile(target, directoryOf(in) / (in.stem().string() + part)))
            return true;
    }
    if (!sameFile(directoryOf(target), directoryOf(in)))
        return false;
    const std::string name = lower(target.filename().string());
    const std::string stem = lower(in.stem().string());
    for (const char* part : shapefileParts) {
        if (name == stem + part)
            return true;
    }
    return false;
}

}  // namespace

OutputFile::~OutputFile() {
    if (directory_.empty())
        return;
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

namespace {

// Why `path` may not be written, or "".
std::string refusal(const fs::path& path, const std::vector<std::string>& inputs, bool overwrite) {
    for (const std::string& input : inputs) {
        if (touches(path, input))
            return "is one of the inputs (" + input + "): it is never written over";
    }
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        return "is a directory";
    if (fs::exists(status) && !overwrite)
        return "exists; give --overwrite to replace it";
    return "";
}

}  // namespace

bool OutputFile::begin(const std::string& target, const std::vector<std::string>& inputs,
                       bool overwrite, std::string& problem,
                       const std::vector<std::string>& companions) {
    const fs::path path(target);
    problem = refusal(path, inputs, overwrite);
    for (size_t i = 0; i < companions.size() && problem.empty(); ++i) {
        const std::string why = refusal(companions[i], inputs, overwrite);
        if (!why.empty())
            problem = "goes with " + companions[i] + ", which " + why;
    }
    if (!problem.empty())
        return false;
    const fs::path parent = directoryOf(path);
    std::error_code error;
    if (!fs::is_directory(parent, error)) {
        problem = "cannot be written: there is no directory " + parent.string();
        return false;
    }
    std::string pattern = (parent / ".zorhost-XXXXXX").string();
    if (!::mkdtemp(&pattern[0])) {
        problem = std::string("cannot be written: ") + std::strerror(errno);
        return false;
    }
    target_ = target;
    directory_ = pattern;
    temporary_ = (fs::path(directory_) / path.filename()).string();
    companions_ = companions;
    return true;
}

std::string OutputFile::temporaryPathOf(const std::string& companion) const {
    return (fs::path(directory_) / fs::path(companion).filename()).string();
}

bool OutputFile::commit(std::string& problem) {
    for (const std::string& companion : companions_) {
        std::error_code error;
        const std::string written = temporaryPathOf(companion);
        const bool ok = fs::exists(written, error)
                            ? ::rename(written.c_str(), companion.c_str()) == 0
                            : (fs::remove(companion, error), !error);
        if (!ok) {
            problem = companion + " cannot be written: " +
                      (error ? error.message() : std::string(std::strerror(errno)));
            return false;
        }
    }
    if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
        problem = std::string("cannot be written: ") + std::strerror(errno);
        return false;
    }
    return true;
}
