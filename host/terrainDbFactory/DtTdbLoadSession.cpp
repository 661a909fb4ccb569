#include "terrainDbFactory/DtTdbLoadSession.h"

#include <cctype>

namespace {

thread_local DtTdbLoadSession* currentSession = nullptr;

bool isLetter(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

DtTdbLoadSession::DtTdbLoadSession(Options options)
    : options_(std::move(options)), previous_(currentSession) {
    currentSession = this;
}

DtTdbLoadSession::~DtTdbLoadSession() {
    currentSession = previous_;
}

DtTdbLoadSession* DtTdbLoadSession::current() {
    return currentSession;
}

void DtTdbLoadSession::addReport(DtTdbLoadReport report) {
    reports_.push_back(std::move(report));
}

bool DtTdbLoadSession::isWellFormedCode(const std::string& code) {
    if (code.size() < 3 || !isLetter(code[0]) || !isLetter(code[1]))
        return false;
    for (size_t i = 2; i < code.size(); ++i) {
        if (!isDigit(code[i]))
            return false;
    }
    return true;
}
