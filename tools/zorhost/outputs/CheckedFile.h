// A file written so that no fault goes unseen: every write, the sync and the close are
// checked, and the first fault is kept (and noted against the output's temporary), so a
// full disk or a file size limit fails the output instead of leaving it short.
//
//   CheckedFile file;
//   if (!file.open(path)) ... file.problem()
//   std::ostream stream(&file.buffer());   // for writers that take a stream
//   file.write(bytes, size);
//   if (!file.close()) ... file.problem()
#pragma once

#include <cstddef>
#include <streambuf>
#include <string>
#include <vector>

class CheckedFile {
public:
    CheckedFile() : buffer_(*this) {}
    ~CheckedFile();
    CheckedFile(const CheckedFile&) = delete;
    CheckedFile& operator=(const CheckedFile&) = delete;

    // Creates (or truncates) `path`, never through a link.
    bool open(const std::string& path);
    // Writes to an open descriptor (standard output, a device), closed at close() when
    // `owned`.
    void adopt(int fd, const std::string& name, bool owned);
    bool write(const void* data, size_t size);
    // Syncs and closes; false with the first fault met.
    bool close();
    bool failed() const { return error_ != 0; }
    // The first fault, as a reason.
    std::string problem() const;
    std::streambuf& buffer() { return buffer_; }

private:
    class Buffer : public std::streambuf {
    public:
        explicit Buffer(CheckedFile& file);

    protected:
        int_type overflow(int_type c) override;
        int sync() override;
        // Writers that fill in sizes afterwards (OpenSceneGraph's binary one) seek back.
        pos_type seekoff(off_type offset, std::ios_base::seekdir from,
                         std::ios_base::openmode which) override;
        pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

    private:
        CheckedFile& file_;
        std::vector<char> store_;
    };
    void fail(int error);

    int fd_ = -1;
    bool owned_ = false;
    int error_ = 0;
    std::string path_;
    Buffer buffer_;
};

// Copies the file `from` into the open `to`; false with `to`'s fault.
bool copyInto(const std::string& from, CheckedFile& to);
