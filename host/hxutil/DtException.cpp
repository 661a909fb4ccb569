#include "hxutil/DtException.h"

#include "hxutil/DtFilename.h"

namespace {
std::string orEmpty(const char* text) {
    return text ? text : "";
}
}  // namespace

DtException::DtException(const char* message, const char* function, const char* file, unsigned line,
                         const DtException* previous)
    : message_(orEmpty(message)),
      function_(orEmpty(function)),
      file_(orEmpty(file)),
      line_(line),
      where_(file_ + ":" + std::to_string(line) + " " + function_),
      previous_(previous ? std::make_unique<DtException>(*previous) : nullptr) {}

DtException::DtException(const DtException& other)
    : std::exception(other),
      message_(other.message_),
      function_(other.function_),
      file_(other.file_),
      line_(other.line_),
      where_(other.where_),
      previous_(other.previous_ ? std::make_unique<DtException>(*other.previous_) : nullptr) {}

DtException& DtException::operator=(const DtException& other) {
    if (this != &other) {
        DtException copy(other);
        message_.swap(copy.message_);
        function_.swap(copy.function_);
        file_.swap(copy.file_);
        line_ = copy.line_;
        where_.swap(copy.where_);
        previous_.swap(copy.previous_);
    }
    return *this;
}

const DtException* DtException::initialException() const {
    const DtException* current = this;
    while (current->lastException())
        current = current->lastException();
    return current;
}

std::string DtExceptionFileName(const char* path) {
    return DtFilename::stripPath(DtFilename(path)).stdString();
}
