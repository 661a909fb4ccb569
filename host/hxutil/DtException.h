// The engine's exception family. A DtException carries its message and where it was
// thrown (function signature, source file name, line), and optionally the exception it
// was raised in answer to.
//
//   DtThrow(-1, "DtInvalidInput: ", "no such dataset");
//
// The two kinds thrown by terrain code are DtTemplatedException<-1> (invalid input,
// message prefix "DtInvalidInput: ") and DtTemplatedException<-3> (corrupted state,
// prefix "DtCorruptedState: ").
#pragma once

#include <exception>
#include <memory>
#include <string>

class DtException : public std::exception {
public:
    DtException(const char* message, const char* function, const char* file, unsigned line,
                const DtException* previous);
    DtException(const DtException& other);
    DtException& operator=(const DtException& other);
    ~DtException() override = default;

    virtual const char* message() const { return message_.c_str(); }
    const char* what() const noexcept override { return message_.c_str(); }
    // "file:line function".
    virtual const char* where() const { return where_.c_str(); }
    virtual const DtException* lastException() const { return previous_.get(); }
    // The first exception of the chain: this one when there is no previous.
    virtual const DtException* initialException() const;

    const std::string& function() const { return function_; }
    const std::string& file() const { return file_; }
    unsigned line() const { return line_; }

private:
    std::string message_;
    std::string function_;
    std::string file_;
    unsigned line_;
    std::string where_;
    std::unique_ptr<DtException> previous_;
};

template <int Code>
class DtTemplatedException : public DtException {
public:
    using DtException::DtException;
    static constexpr int code = Code;
};

using DtInvalidInputException = DtTemplatedException<-1>;
using DtCorruptedStateException = DtTemplatedException<-3>;

// Source file name without its directory, as exceptions record it.
std::string DtExceptionFileName(const char* path);

// Throws DtTemplatedException<code> with `prefix` + `detail` as message, built at the
// place of the throw: stripped file name, full signature, line, no previous exception.
#define DtThrow(code, prefix, detail)                                                            \
    throw DtTemplatedException<code>((std::string(prefix) + (detail)).c_str(),                   \
                                     __PRETTY_FUNCTION__, DtExceptionFileName(__FILE__).c_str(), \
                                     __LINE__, nullptr)

#define DtThrowInvalidInput(detail) DtThrow(-1, "DtInvalidInput: ", detail)
#define DtThrowCorruptedState(detail) DtThrow(-3, "DtCorruptedState: ", detail)
