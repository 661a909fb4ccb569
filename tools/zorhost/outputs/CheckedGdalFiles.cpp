#include "CheckedGdalFiles.h"

#include <cpl_string.h>
#include <cpl_vsi.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "OutputTemporaries.h"

namespace {

const char prefix[] = "/vsizorhost/";

// The real path of a name GDAL hands the handler (with or without the prefix).
std::string realPath(const char* name) {
    std::string path(name ? name : "");
    if (path.compare(0, sizeof prefix - 1, prefix) == 0)
        path.erase(0, sizeof prefix - 2);  // keeps the path's own leading '/'
    if (path.empty() || path[0] != '/')
        path.insert(path.begin(), '/');
    return path;
}

// An open file: reads and writes at its own position, writes gathered in a buffer.
struct Handle {
    int fd = -1;
    std::string path;
    uint64_t position = 0;
    bool atEnd = false;
    bool failed = false;
    std::vector<char> pending;
    uint64_t pendingAt = 0;

    void fail(int error) {
        if (!failed)
            outputTemporaries::noteWriteError(path, error);
        failed = true;
    }
    bool flushPending() {
        const char* bytes = pending.data();
        size_t size = pending.size();
        uint64_t at = pendingAt;
        while (size > 0 && !failed) {
            const ssize_t n = ::pwrite(fd, bytes, size, static_cast<off_t>(at));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                fail(n < 0 ? errno : ENOSPC);
                break;
            }
            bytes += n;
            at += static_cast<uint64_t>(n);
            size -= static_cast<size_t>(n);
        }
        pending.clear();
        return !failed;
    }
};

Handle* handleOf(void* file) {
    return static_cast<Handle*>(file);
}

int statFile(void*, const char* name, VSIStatBufL* info, int) {
    return ::stat64(realPath(name).c_str(), info);
}

int unlinkFile(void*, const char* name) {
    return ::unlink(realPath(name).c_str());
}

int renameFile(void*, const char* from, const char* to) {
    return ::rename(realPath(from).c_str(), realPath(to).c_str());
}

int makeDirectory(void*, const char* name, long mode) {
    return ::mkdir(realPath(name).c_str(), static_cast<mode_t>(mode));
}

int removeDirectory(void*, const char* name) {
    return ::rmdir(realPath(name).c_str());
}

char** readDirectory(void*, const char* name, int maxFiles) {
    std::unique_ptr<DIR, int (*)(DIR*)> handle(::opendir(realPath(name).c_str()), ::closedir);
    if (!handle)
        return nullptr;
    CPLStringList names;
    while (const dirent* entry = ::readdir(handle.get())) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.AddString(entry->d_name);
        if (maxFiles > 0 && names.size() >= maxFiles)
            break;
    }
    return names.StealList();
}

void* openFile(void*, const char* name, const char* access) {
    const std::string mode(access ? access : "r");
    const bool plus = mode.find('+') != std::string::npos;
    int flags = O_CLOEXEC | O_NOFOLLOW;
    if (mode[0] == 'w')
        flags |= (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
    else if (mode[0] == 'a')
        flags |= (plus ? O_RDWR : O_WRONLY) | O_CREAT;
    else
        flags |= plus ? O_RDWR : O_RDONLY;
    auto handle = std::make_unique<Handle>();
    handle->path = realPath(name);
    handle->fd = ::open(handle->path.c_str(), flags, 0666);
    if (handle->fd < 0) {
        if (flags & (O_WRONLY | O_RDWR))
            outputTemporaries::noteWriteError(handle->path, errno);
        return nullptr;
    }
    if (mode[0] == 'a') {
        struct stat info;
        if (::fstat(handle->fd, &info) == 0)
            handle->position = static_cast<uint64_t>(info.st_size);
    }
    return handle.release();
}

vsi_l_offset tellFile(void* file) {
    Handle& h = *handleOf(file);
    return h.position;
}

int seekFile(void* file, vsi_l_offset offset, int whence) {
    Handle& h = *handleOf(file);
    h.flushPending();
    h.atEnd = false;
    if (whence == SEEK_SET) {
        h.position = offset;
    } else if (whence == SEEK_CUR) {
        h.position += offset;
    } else {
        struct stat info;
        if (::fstat(h.fd, &info) != 0)
            return -1;
        h.position = static_cast<uint64_t>(info.st_size) + offset;
    }
    return 0;
}

size_t readFile(void* file, void* buffer, size_t size, size_t count) {
    Handle& h = *handleOf(file);
    h.flushPending();
    if (size == 0 || count == 0)
        return 0;
    const size_t wanted = size * count;
    char* bytes = static_cast<char*>(buffer);
    size_t got = 0;
    while (got < wanted) {
        const ssize_t n =
            ::pread(h.fd, bytes + got, wanted - got, static_cast<off_t>(h.position + got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    h.atEnd = got < wanted;
    h.position += got;
    return got / size;
}

int endOfFile(void* file) {
    return handleOf(file)->atEnd ? 1 : 0;
}

size_t writeFile(void* file, const void* buffer, size_t size, size_t count) {
    Handle& h = *handleOf(file);
    if (h.failed)
        return 0;
    const size_t total = size * count;
    if (h.pending.empty())
        h.pendingAt = h.position;
    const char* bytes = static_cast<const char*>(buffer);
    h.pending.insert(h.pending.end(), bytes, bytes + total);
    h.position += total;
    if (h.pending.size() >= (1 << 16) && !h.flushPending())
        return 0;
    return count;
}

int flushFile(void* file) {
    return handleOf(file)->flushPending() ? 0 : -1;
}

int truncateFile(void* file, vsi_l_offset size) {
    Handle& h = *handleOf(file);
    if (!h.flushPending())
        return -1;
    if (::ftruncate(h.fd, static_cast<off_t>(size)) != 0) {
        h.fail(errno);
        return -1;
    }
    return 0;
}

int closeFile(void* file) {
    std::unique_ptr<Handle> h(handleOf(file));
    h->flushPending();
    if (::close(h->fd) != 0)
        h->fail(errno);
    return h->failed ? -1 : 0;
}

void install() {
    VSIFilesystemPluginCallbacksStruct* callbacks = VSIAllocFilesystemPluginCallbacksStruct();
    callbacks->stat = statFile;
    callbacks->unlink = unlinkFile;
    callbacks->rename = renameFile;
    callbacks->mkdir = makeDirectory;
    callbacks->rmdir = removeDirectory;
    callbacks->read_dir = readDirectory;
    callbacks->open = openFile;
    callbacks->tell = tellFile;
    callbacks->seek = seekFile;
    callbacks->read = readFile;
    callbacks->eof = endOfFile;
    callbacks->write = writeFile;
    callbacks->flush = flushFile;
    callbacks->truncate = truncateFile;
    callbacks->close = closeFile;
    VSIInstallPluginHandler(prefix, callbacks);
    static VSIFilesystemPluginCallbacksStruct* kept = callbacks;  // GDAL may keep it
    (void)kept;
}

}  // namespace

std::string checkedGdalPath(const std::string& path) {
    static std::once_flag installed;
    std::call_once(installed, install);
    std::error_code error;
    const std::string absolute = std::filesystem::absolute(path, error).string();
    return std::string(prefix) + (error ? path : absolute).substr(1);
}
