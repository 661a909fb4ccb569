// A shim for tests, loaded with LD_PRELOAD into a child zorhost: the n-th rename
// (rename or renameat2, counted together; n from ZOR_FAIL_RENAME) fails with EIO, so a
// test can break a commit at each of its steps.
#include <dlfcn.h>
#include <stdio.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

std::atomic<int> renames{0};

bool thisOneFails() {
    const char* n = std::getenv("ZOR_FAIL_RENAME");
    return n && ++renames == std::atoi(n);
}

}  // namespace

extern "C" int rename(const char* from, const char* to) {
    if (thisOneFails()) {
        errno = EIO;
        return -1;
    }
    using Rename = int (*)(const char*, const char*);
    static const Rename real = reinterpret_cast<Rename>(dlsym(RTLD_NEXT, "rename"));
    return real(from, to);
}

extern "C" int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                         unsigned int flags) {
    if (thisOneFails()) {
        errno = EIO;
        return -1;
    }
    using Rename = int (*)(int, const char*, int, const char*, unsigned int);
    static const Rename real = reinterpret_cast<Rename>(dlsym(RTLD_NEXT, "renameat2"));
    return real(fromDirectory, from, toDirectory, to, flags);
}
