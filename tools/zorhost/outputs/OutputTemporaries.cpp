#include "OutputTemporaries.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>

namespace outputTemporaries {

namespace {

namespace fs = std::filesystem;

const char lockName[] = ".lock";
const char prefix[] = ".zorhost-";
// A temporary without its lock is one being made, or one whose run died in the moment
// between mkdtemp and the lock: the latter are removed once this old.
const time_t unlockedAge = 600;

// What a signal handler may read: fixed slots, each path written before it is marked used.
struct Slot {
    std::atomic<bool> used{false};
    char path[PATH_MAX];
};
const int slotCount = 64;
Slot slots[slotCount];

std::mutex mutex;                      // guards the maps and the slots' writers
std::map<std::string, int>& locks() {  // temporary -> its lock's descriptor
    static std::map<std::string, int> held;
    return held;
}
std::map<std::string, int>& faults() {  // temporary -> first errno met inside it
    static std::map<std::string, int> met;
    return met;
}

std::atomic<int> committing{0};
volatile sig_atomic_t pendingSignal = 0;

// Async-signal-safe: empties the directory open as `fd`, `depth` levels down at most.
void removeContents(int fd, int depth) {
    alignas(8) char buffer[4096];
    for (int pass = 0; pass < 64; ++pass) {
        if (::lseek(fd, 0, SEEK_SET) != 0)
            return;
        bool removed = false;
        for (;;) {
            const long n = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            for (long at = 0; at < n;) {
                struct Entry {
                    uint64_t inode;
                    int64_t offset;
                    unsigned short length;
                    unsigned char type;
                    char name[1];
                };
                const Entry* entry = reinterpret_cast<const Entry*>(buffer + at);
                at += entry->length;
                const char* name = entry->name;
                if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
                    continue;
                if (entry->type == DT_DIR && depth > 0) {
                    const int below = ::openat(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
                    if (below >= 0) {
                        removeContents(below, depth - 1);
                        ::close(below);
                    }
                    removed |= ::unlinkat(fd, name, AT_REMOVEDIR) == 0;
                } else {
                    removed |= ::unlinkat(fd, name, 0) == 0;
                }
            }
        }
        if (!removed)
            return;
    }
}

// Async-signal-safe.
void removeTree(const char* path) {
    const int fd = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
        removeContents(fd, 8);
        ::close(fd);
    }
    ::rmdir(path);
}

// Async-signal-safe.
void removeEveryTemporary() {
    for (Slot& slot : slots) {
        if (slot.used.load(std::memory_order_acquire))
            removeTree(slot.path);
    }
}

void dieOf(int signal) {
    removeEveryTemporary();
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigemptyset(&standard.sa_mask);
    ::sigaction(signal, &standard, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    ::raise(signal);
}

void onSignal(int signal) {
    if (committing.load() > 0) {
        pendingSignal = signal;  // the commit ends first, then this
        return;
    }
    dieOf(signal);
}

void remember(const std::string& temporary) {
    for (Slot& slot : slots) {
        if (!slot.used.load(std::memory_order_acquire) && temporary.size() < sizeof slot.path) {
            std::memcpy(slot.path, temporary.c_str(), temporary.size() + 1);
            slot.used.store(true, std::memory_order_release);
            return;
        }
    }
}

void forget(const std::string& temporary) {
    for (Slot& slot : slots) {
        if (slot.used.load(std::memory_order_acquire) && temporary == slot.path)
            slot.used.store(false, std::memory_order_release);
    }
}

// Whether the temporary `path` belongs to a run that is gone: its lock can be taken, or
// it has had no lock for long.
bool abandoned(const std::string& path, const struct stat& info) {
    const int fd = ::open((path + "/" + lockName).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT && std::time(nullptr) - info.st_mtime > unlockedAge;
    const bool free = ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    ::close(fd);
    return free;
}

void removeStale(const std::string& directory) {
    std::unique_ptr<DIR, int (*)(DIR*)> handle(::opendir(directory.c_str()), ::closedir);
    if (!handle)
        return;
    while (const dirent* entry = ::readdir(handle.get())) {
        if (std::strncmp(entry->d_name, prefix, sizeof prefix - 1) != 0)
            continue;
        const std::string path = directory + "/" + entry->d_name;
        struct stat info;
        if (::lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) ||
            info.st_uid != ::geteuid())
            continue;
        if (abandoned(path, info))
            removeTree(path.c_str());
    }
}

// Locks the new temporary for this run's life; the descriptor, or -1.
int lockTemporary(const std::string& temporary) {
    std::string making = temporary + "/.lock-XXXXXX";
    const int fd = ::mkostemp(&making[0], O_CLOEXEC);
    if (fd < 0)
        return -1;
    if (::flock(fd, LOCK_EX) != 0 ||
        ::rename(making.c_str(), (temporary + "/" + lockName).c_str()) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

}  // namespace

std::string make(const std::string& directory, std::string& problem) {
    std::error_code error;
    const fs::path absolute = fs::absolute(directory, error);
    const std::string where = error ? directory : absolute.lexically_normal().string();
    removeStale(where);
    std::string pattern = (fs::path(where) / (std::string(prefix) + "XXXXXX")).string();
    if (!::mkdtemp(&pattern[0])) {
        problem = std::string("cannot be written: ") + std::strerror(errno);
        return "";
    }
    const int lock = lockTemporary(pattern);
    if (lock < 0) {
        problem = std::string("cannot be written: ") + std::strerror(errno);
        removeTree(pattern.c_str());
        return "";
    }
    const std::lock_guard<std::mutex> guard(mutex);
    locks()[pattern] = lock;
    remember(pattern);
    return pattern;
}

void remove(const std::string& temporary) {
    const std::lock_guard<std::mutex> guard(mutex);
    // Emptied while still locked, so that no other run takes it for stale meanwhile.
    removeTree(temporary.c_str());
    forget(temporary);
    faults().erase(temporary);
    const auto lock = locks().find(temporary);
    if (lock != locks().end()) {
        ::close(lock->second);
        locks().erase(lock);
    }
}

void noteWriteError(const std::string& path, int error) {
    const std::lock_guard<std::mutex> guard(mutex);
    for (const auto& [temporary, fd] : locks()) {
        (void)fd;
        if (path.compare(0, temporary.size(), temporary) == 0 &&
            (path.size() == temporary.size() || path[temporary.size()] == '/')) {
            faults().emplace(temporary, error);  // the first one stands
            return;
        }
    }
}

std::string writeProblem(const std::string& temporary) {
    const std::lock_guard<std::mutex> guard(mutex);
    const auto fault = faults().find(temporary);
    return fault == faults().end() ? "" : std::strerror(fault->second);
}

CommitGuard::CommitGuard() {
    ++committing;
}

CommitGuard::~CommitGuard() {
    if (--committing == 0 && pendingSignal != 0)
        dieOf(pendingSignal);
}

void removeOnSignals() {
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        sigaddset(&action.sa_mask, signal);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction before {};
        // A signal the caller ignores (nohup) stays ignored.
        if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN)
            continue;
        ::sigaction(signal, &action, nullptr);
    }
}

}  // namespace outputTemporaries
