// Problems stay one line each when a file's name holds a line end or another control
// character: while installed, what is written to a stream has such names, and any other
// control character but the line ends, shown escaped (\n, \t, \xNN).
//
//   const EscapedNames escaped(std::cerr, {argv, argv + argc});
#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

class EscapedNames : public std::streambuf {
public:
    // Installs itself on `stream` when one of `words` holds a control character.
    EscapedNames(std::ostream& stream, const std::vector<std::string>& words);
    ~EscapedNames() override;  // writes what is left and gives the stream its buffer back
    EscapedNames(const EscapedNames&) = delete;
    EscapedNames& operator=(const EscapedNames&) = delete;

    static std::string escaped(const std::string& text);

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;
    int sync() override;

private:
    std::ostream& stream_;
    std::streambuf* original_ = nullptr;
    std::vector<std::string> names_;  // those with control characters
    std::string pending_;
};
