#include "zorCore/DtDe.h"

#include "zorCore/DtFeatureAdder.h"
#include "zorCore/DtFeatureFieldValueReader.h"
#include "zorCore/DtHeaderParser.h"
#include "zorCore/DtPropAdder.h"

namespace kelZor {

void DtModelDefinitionManager::addDefinition(const kelArchives::DtModelDefinitionRecord& record) {
    definitions_.insert_or_assign(record.name(), DtModelDefinition(record));
}

DtModelDefinition* DtModelDefinitionManager::findDefinition(const std::string& name) {
    const auto found = definitions_.find(name);
    return found == definitions_.end() ? nullptr : &found->second;
}

DtDe::DtDe(const std::string& configurationDirectory)
    : configuration_(configurationDirectory),
      headerParsers_(new DtHeaderParserFactory(*this)),
      propAdders_(new DtPropAdderFactory()),
      readers_(new DtFeatureFieldValueReaderFactory()) {
    scene_.terrain().setCoordinateSystem(&sharedState_.coordinateSystem());
}

DtDe::~DtDe() = default;

bool DtDe::isInitFunctionRegistered(void* function) const {
    return initFunctions_.count(function) != 0;
}

void DtDe::registerInitFunction(void* function) {
    initFunctions_.insert(function);
}

void DtDe::reportError(const DtDeError& error, bool notifyUser) {
    errors_.push_back({error, notifyUser});
    log_.out(notifyUser ? DtDebugLog::Error : DtDebugLog::Warning) << error.message() << "\n";
}

void DtDe::setFeatureAdderCreator(DtFeatureAdderCreator* creator) {
    featureAdderCreator_.reset(creator);
}

}  // namespace kelZor
