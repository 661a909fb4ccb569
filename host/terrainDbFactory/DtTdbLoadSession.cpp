#include "terrainDbFactory/DtTdbLoadSession.h"

#include <ogr_spatialref.h>

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

std::unique_ptr<OGRSpatialReference> DtTdbLoadSession::givenSrs() const {
    if (options_.srs.empty())
        return nullptr;
    auto srs = std::make_unique<OGRSpatialReference>();
    srs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    if (srs->SetFromUserInput(options_.srs.c_str()) != OGRERR_NONE)
        return nullptr;
    return srs;
}

bool DtTdbLoadSession::isWellFormedCode(std::string_view code) {
    if (code.size() < 3 || !isLetter(code[0]) || !isLetter(code[1]))
        return false;
    for (size_t i = 2; i < code.size(); ++i) {
        if (!isDigit(code[i]))
            return false;
    }
    return true;
}
