#include "CheckedFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "OutputTemporaries.h"

CheckedFile::~CheckedFile() {
    if (fd_ >= 0 && owned_)
        ::close(fd_);
}

bool CheckedFile::open(const std::string& path) {
    path_ = path;
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
    owned_ = true;
    if (fd_ < 0)
        fail(errno);
    return fd_ >= 0;
}

void CheckedFile::adopt(int fd, const std::string& name, bool owned) {
    fd_ = fd;
    owned_ = owned;
    path_ = name;
}

void CheckedFile::fail(int error) {
    if (error_ == 0) {
        error_ = error;
        outputTemporaries::noteWriteError(path_, error);
    }
}

bool CheckedFile::write(const void* data, size_t size) {
    if (fd_ < 0 || error_ != 0)
        return false;
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = ::write(fd_, bytes, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            fail(n < 0 ? errno : ENOSPC);
            return false;
        }
        bytes += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

bool CheckedFile::close() {
    buffer_.pubsync();
    if (fd_ < 0)
        return error_ == 0 && !path_.empty();
    // A pipe or a terminal cannot be synced, and need not be.
    if (::fsync(fd_) != 0 && errno != EINVAL && errno != EROFS)
        fail(errno);
    if (owned_ && ::close(fd_) != 0)
        fail(errno);
    fd_ = -1;
    return error_ == 0;
}

std::string CheckedFile::problem() const {
    return error_ == 0 ? "" : std::strerror(error_);
}

// Buffered: stream writers (OpenSceneGraph's) write a few bytes at a time.
CheckedFile::Buffer::Buffer(CheckedFile& file) : file_(file), store_(1 << 16) {
    setp(store_.data(), store_.data() + store_.size());
}

int CheckedFile::Buffer::sync() {
    const size_t size = static_cast<size_t>(pptr() - pbase());
    setp(store_.data(), store_.data() + store_.size());
    return size == 0 || file_.write(store_.data(), size) ? 0 : -1;
}

CheckedFile::Buffer::pos_type CheckedFile::Buffer::seekoff(off_type offset,
                                                           std::ios_base::seekdir from,
                                                           std::ios_base::openmode) {
    if (sync() != 0 || file_.fd_ < 0)
        return pos_type(off_type(-1));
    const int whence = from == std::ios_base::beg   ? SEEK_SET
                       : from == std::ios_base::cur ? SEEK_CUR
                                                    : SEEK_END;
    const off_t at = ::lseek(file_.fd_, static_cast<off_t>(offset), whence);
    return at < 0 ? pos_type(off_type(-1)) : pos_type(static_cast<off_type>(at));
}

CheckedFile::Buffer::pos_type CheckedFile::Buffer::seekpos(pos_type position,
                                                           std::ios_base::openmode which) {
    return seekoff(off_type(position), std::ios_base::beg, which);
}

CheckedFile::Buffer::int_type CheckedFile::Buffer::overflow(int_type c) {
    if (sync() != 0)
        return traits_type::eof();
    if (traits_type::eq_int_type(c, traits_type::eof()))
        return traits_type::not_eof(c);
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
}

bool copyInto(const std::string& from, CheckedFile& to) {
    const int fd = ::open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    std::vector<char> block(1 << 20);
    bool ok = true;
    for (;;) {
        const ssize_t n = ::read(fd, block.data(), block.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            ok = n == 0;
            break;
        }
        if (!to.write(block.data(), static_cast<size_t>(n))) {
            ok = false;
            break;
        }
    }
    ::close(fd);
    return ok;
}
