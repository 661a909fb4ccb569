// DtDeError: an error report to the engine, a code and the arguments that complete its
// message.
//
//   de.reportError(DtDeError(DtDeError::FileNotLoaded) << fileName, true);
#pragma once

#include <string>
#include <vector>

namespace kelZor {

class DtDeError {
public:
    enum ErrorCode {
        FileNotLoaded = 6,           // argument: the file name
        ModelDefinitionMissing = 8,  // argument: the definition's name
        PropsNotPlaced = 11,         // arguments: the file name, the count
    };

    explicit DtDeError(ErrorCode code) : code_(code) {}
    DtDeError& operator<<(const std::string& argument);
    DtDeError& operator<<(int argument);

    ErrorCode code() const { return code_; }
    const std::vector<std::string>& arguments() const { return arguments_; }
    // The message a person reads.
    std::string message() const;

private:
    ErrorCode code_;
    std::vector<std::string> arguments_;
};

}  // namespace kelZor
