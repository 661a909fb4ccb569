#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "CheckedFile.h"
#include "CheckedGdalFiles.h"
#include "OutputTemporaries.h"

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

// Why `path` may not be written, or "". A link counts as a file that exists.
std::string refusal(const fs::path& path, const std::vector<std::string>& inputs, bool overwrite) {
    for (const std::string& input : inputs) {
        if (touches(path, input))
            return "is one of the inputs (" + input + "): it is never written over";
    }
    std::error_code error;
    if (fs::is_directory(path, error))
        return "is a directory";
    if (fs::exists(fs::symlink_status(path, error)) && !overwrite)
        return "exists; give --overwrite to replace it";
    return "";
}

// The file a chain of links ends at (the path itself when it is no link), as the shell's
// `>` follows it; `special` when a link leads through /proc (/dev/stdout and its kin),
// whose files are written in place.
std::string followLinks(const std::string& given, bool& special) {
    std::string path = given;
    special = false;
    for (int hops = 0; hops < 40; ++hops) {
        std::error_code error;
        if (!fs::is_symlink(fs::symlink_status(path, error)))
            return path;
        const fs::path target = fs::read_symlink(path, error);
        if (error)
            return path;
        path = target.is_absolute() ? target.string() : (directoryOf(path) / target).string();
        special |= path.compare(0, 6, "/proc/") == 0;
    }
    return path;
}

bool isRegularOrAbsent(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) != 0 || S_ISREG(info.st_mode);
}

// Renames without replacing: of two runs racing for one name, the second fails.
int renameNoReplace(const std::string& from, const std::string& to) {
#ifdef SYS_renameat2
    if (::syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) ==
        0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
#endif
    // A file system without it: a link cannot replace either.
    if (::link(from.c_str(), to.c_str()) != 0)
        return -1;
    ::unlink(from.c_str());
    return 0;
}

// Syncs the file and gives it the mode and owner of the one it replaces.
bool settle(const std::string& path, const std::string& replaced, int& error) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        error = errno;
        return false;
    }
    bool ok = ::fsync(fd) == 0;
    error = ok ? 0 : errno;
    struct stat old;
    if (ok && ::stat(replaced.c_str(), &old) == 0 && S_ISREG(old.st_mode)) {
        if (::fchown(fd, old.st_uid, old.st_gid) != 0) {
            // Not ours to give away: the mode still holds.
        }
        ::fchmod(fd, old.st_mode & 07777);
    }
    ::close(fd);
    return ok;
}

void syncDirectory(const std::string& directory) {
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

std::string reasonOf(int error) {
    return std::string("cannot be written: ") + std::strerror(error);
}

}  // namespace

OutputFile::~OutputFile() {
    for (const std::string& directory : directories_)
        outputTemporaries::remove(directory);
}

std::string OutputFile::stagingFor(const std::string& directory, std::string& problem) {
    std::error_code error;
    const std::string absolute = fs::absolute(directory, error).lexically_normal().string();
    for (const std::string& made : directories_) {
        if (directoryOf(made).string() == absolute)
            return made;
    }
    if (!fs::is_directory(directory, error)) {
        problem = "cannot be written: there is no directory " + directory;
        return "";
    }
    const std::string made = outputTemporaries::make(directory, problem);
    if (!made.empty())
        directories_.push_back(made);
    return made;
}

bool OutputFile::addMember(const std::string& given, const std::vector<std::string>& inputs,
                           std::string& problem) {
    problem = refusal(given, inputs, overwrite_);
    if (!problem.empty())
        return false;
    Member m;
    m.given = given;
    bool special = false;
    m.destination = followLinks(given, special);
    if (special || !isRegularOrAbsent(m.destination)) {
        problem = "is not a regular file";
        return false;
    }
    m.staging = stagingFor(directoryOf(m.destination).string(), problem);
    if (m.staging.empty())
        return false;
    members_.push_back(m);
    return true;
}

bool OutputFile::begin(const std::string& target, const std::vector<std::string>& inputs,
                       bool overwrite, std::string& problem,
                       const std::vector<std::string>& companions) {
    overwrite_ = overwrite;
    target_ = target;
    bool special = false;
    if (target == "-") {
        inPlace_ = true;
    } else {
        problem = refusal(target, inputs, overwrite);
        if (!problem.empty())
            return false;
        inPlace_ = !isRegularOrAbsent(followLinks(target, special)) || special;
    }
    if (inPlace_) {
        std::error_code error;
        const std::string staging = stagingFor(fs::temp_directory_path(error).string(), problem);
        if (staging.empty())
            return false;
        temporary_ = (fs::path(staging) /
                      (target == "-" ? "standard-output" : fs::path(target).filename().string()))
                         .string();
        return true;
    }
    // The target decides where the writers' temporary lies; companions come first.
    if (!addMember(target, inputs, problem))
        return false;
    const Member main = members_.back();
    members_.clear();
    for (const std::string& companion : companions) {
        if (!addMember(companion, inputs, problem)) {
            problem = "goes with " + companion + ", which " + problem;
            return false;
        }
    }
    members_.push_back(main);
    temporary_ = (fs::path(main.staging) / fs::path(target).filename()).string();
    return true;
}

std::string OutputFile::temporaryPathOf(const std::string& companion) const {
    return (directoryOf(temporary_) / fs::path(companion).filename()).string();
}

std::string OutputFile::gdalPath() const {
    return checkedGdalPath(temporary_);
}

std::string OutputFile::gdalPathOf(const std::string& companion) const {
    return checkedGdalPath(temporaryPathOf(companion));
}

bool OutputFile::writeInPlace(std::string& problem) {
    CheckedFile out;
    if (target_ == "-") {
        out.adopt(STDOUT_FILENO, "standard output", false);
    } else {
        // A pipe waits here for its reader, as the shell's `>` does.
        const int fd = ::open(target_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC |
                                                   (isRegularOrAbsent(target_) ? O_TRUNC : 0));
        if (fd < 0) {
            problem = reasonOf(errno);
            return false;
        }
        out.adopt(fd, target_, true);
    }
    const bool copied = copyInto(temporary_, out);
    const bool closed = out.close();
    if (!copied || !closed) {
        problem = out.failed() ? "cannot be written: " + out.problem()
                               : std::string("cannot be written: its temporary is gone");
        return false;
    }
    return true;
}

bool OutputFile::prepare(Member& m, size_t index, std::string& problem) {
    const std::string written = temporaryPathOf(m.given);
    struct stat info;
    m.written = ::lstat(written.c_str(), &info) == 0 && S_ISREG(info.st_mode);
    m.aside = m.staging + "/.old-" + std::to_string(index);
    if (!m.written)
        return true;
    int error = 0;
    if (!settle(written, m.destination, error)) {
        problem = m.given + " " + reasonOf(error);
        return false;
    }
    if (directoryOf(written) != fs::path(m.staging)) {
        // Beside a link's end in another directory: moved there first, as renames cannot
        // cross file systems.
        CheckedFile copy;
        const std::string there = (fs::path(m.staging) / fs::path(m.given).filename()).string();
        if (!copy.open(there) || !copyInto(written, copy) || !copy.close()) {
            problem = m.given + " cannot be written: " + copy.problem();
            return false;
        }
        settle(there, m.destination, error);
    }
    return true;
}

bool OutputFile::place(Member& m, std::string& problem) {
    const std::string from = (fs::path(m.staging) / fs::path(m.given).filename()).string();
    const int result = overwrite_ ? ::rename(from.c_str(), m.destination.c_str())
                                  : renameNoReplace(from, m.destination);
    if (result == 0) {
        m.placed = true;
        return true;
    }
    const std::string why =
        errno == EEXIST ? std::string("exists; give --overwrite to replace it") : reasonOf(errno);
    problem = m.given == target_ ? why : "goes with " + m.given + ", which " + why;
    return false;
}

void OutputFile::rollBack() {
    for (auto m = members_.rbegin(); m != members_.rend(); ++m) {
        if (m->placed)
            ::unlink(m->destination.c_str());
        if (m->setAside)
            ::rename(m->aside.c_str(), m->destination.c_str());
        m->placed = m->setAside = false;
    }
}

std::string OutputFile::writeFault() const {
    for (const std::string& directory : directories_) {
        const std::string fault = outputTemporaries::writeProblem(directory);
        if (!fault.empty())
            return fault;
    }
    return "";
}

bool OutputFile::commit(std::string& problem) {
    const outputTemporaries::CommitGuard signalsWait;
    if (const std::string fault = writeFault(); !fault.empty()) {
        problem = "cannot be written: " + fault;
        return false;
    }
    if (inPlace_)
        return writeInPlace(problem);
    for (size_t i = 0; i < members_.size(); ++i) {
        if (!prepare(members_[i], i, problem))
            return false;
    }
    if (!members_.back().written) {
        problem = "cannot be written: nothing was written";
        return false;
    }
    // The old set waits aside, so that it can come back whole.
    for (Member& m : members_) {
        struct stat info;
        if (!overwrite_ || ::lstat(m.destination.c_str(), &info) != 0)
            continue;
        if (::rename(m.destination.c_str(), m.aside.c_str()) != 0) {
            problem = (m.given == target_ ? "" : m.given + " ") + reasonOf(errno);
            rollBack();
            return false;
        }
        m.setAside = true;
    }
    for (Member& m : members_) {
        if (m.written && !place(m, problem)) {
            rollBack();
            return false;
        }
    }
    for (const std::string& directory : directories_)
        syncDirectory(directoryOf(directory).string());
    return true;
}
