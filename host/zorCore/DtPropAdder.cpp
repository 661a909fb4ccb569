#include "zorCore/DtPropAdder.h"

#include "hxutil/DtFilename.h"
#include "zorCore/DtDe.h"

namespace kelZor {

DtProp::DtProp(DtDe&, DtAgentManagerInterface&, const std::string& propType,
               const std::string& name) {
    record_.setPropType(propType);
    record_.setName(name);
}

DtProp::~DtProp() = default;

void DtProp::setFromRecord(const kelArchives::DtPropRecord& record) {
    record_.placeAs(record);
}

DtTerrainLayer::~DtTerrainLayer() = default;

void DtTerrainLayer::addProp(DtProp* prop) {
    std::unique_ptr<DtProp> owned(prop);  // freed if the list cannot grow
    props_.push_back(std::move(owned));
}

DtPropAdderFactory& DtPropAdderFactory::instance(DtDe& de) {
    return de.propAdderFactory();
}

DtPropAdderFactory::~DtPropAdderFactory() = default;

void DtPropAdderFactory::setAdderCreator(const std::string& extension,
                                         DtPropAdderCreator* creator) {
    std::unique_ptr<DtPropAdderCreator> owned(creator);
    if (creators_.count(extension) == 0)
        extensions_.push_back(extension);
    creators_[extension] = std::move(owned);
}

DtPropAdderCreator* DtPropAdderFactory::creatorForFile(const std::string& filename) const {
    const auto found = creators_.find(DtFilename(filename).extension().toLower().stdString());
    return found == creators_.end() ? nullptr : found->second.get();
}

}  // namespace kelZor
