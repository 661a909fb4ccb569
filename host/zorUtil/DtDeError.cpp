#include "zorUtil/DtDeError.h"

namespace kelZor {

DtDeError& DtDeError::operator<<(const std::string& argument) {
    arguments_.push_back(argument);
    return *this;
}

DtDeError& DtDeError::operator<<(int argument) {
    arguments_.push_back(std::to_string(argument));
    return *this;
}

std::string DtDeError::message() const {
    auto arg = [this](size_t i) {
        return i < arguments_.size() ? arguments_[i] : std::string("?");
    };
    switch (code_) {
        case FileNotLoaded:
            return "could not load \"" + arg(0) + "\"";
        case ModelDefinitionMissing:
            return "model definition \"" + arg(0) + "\" does not exist";
        case PropsNotPlaced:
            return arg(1) + " props of \"" + arg(0) + "\" could not be placed";
    }
    std::string text = "error " + std::to_string(static_cast<int>(code_));
    for (const std::string& a : arguments_)
        text += " " + a;
    return text;
}

}  // namespace kelZor
