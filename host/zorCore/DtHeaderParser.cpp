#include "zorCore/DtHeaderParser.h"

#include <algorithm>

#include "hxutil/DtFilename.h"
#include "zorCore/DtDe.h"

namespace kelZor {

void DtHeaderParser::addStandardPatchRecord(const std::string& patchPath) {
    kelArchives::DtModelDefinitionRecord definition;
    definition.setName(patchPath);
    definition.setFilename(patchPath);
    definition.setCoordinateSystem(terrainCoordinateSystem_);
    definition.setCoordinateSystemParameters(terrainCoordinateSystemParameters_);
    definition.setSchema("Terrain");
    kelArchives::DtTerrainPatchRecord patch;
    patch.setTerrainPatchDefinitionRecord(definition);
    terrainPatchRecords_.push_back(patch);
}

DtHeaderParserFactory& DtHeaderParserFactory::instance(DtDe& de) {
    return de.headerParserFactory();
}

DtHeaderParserFactory::~DtHeaderParserFactory() = default;

void DtHeaderParserFactory::registerCreator(const std::string& name,
                                            DtHeaderParserCreator* creator) {
    std::unique_ptr<DtHeaderParserCreator> owned(creator);
    if (std::find(names_.begin(), names_.end(), name) == names_.end())
        names_.push_back(name);
    creators_[name] = std::move(owned);
}

void DtHeaderParserFactory::registerExtension(const std::string& extension,
                                              const std::string& name) {
    if (nameOfExtension_.count(extension) == 0)
        extensions_.push_back(extension);
    nameOfExtension_[extension] = name;
}

std::string DtHeaderParserFactory::parserNameForPath(const std::string& filePath) const {
    const std::string extension = DtFilename(filePath).extension().toLower().stdString();
    const auto found = nameOfExtension_.find(extension);
    return found == nameOfExtension_.end() ? std::string() : found->second;
}

DtHeaderParser* DtHeaderParserFactory::createHeaderParser(const std::string& filePath) {
    const std::string name = parserNameForPath(filePath);
    return name.empty() ? nullptr : createHeaderParserByName(name, filePath);
}

DtHeaderParser* DtHeaderParserFactory::createHeaderParserByName(const std::string& name,
                                                                const std::string& filePath) {
    const auto found = creators_.find(name);
    if (found == creators_.end() || !found->second)
        return nullptr;
    return found->second->create(de_, filePath);
}

std::vector<std::pair<std::string, std::string>> DtHeaderParserFactory::registeredExtensions()
    const {
    std::vector<std::pair<std::string, std::string>> result;
    for (const std::string& extension : extensions_) {
        result.emplace_back(extension, nameOfExtension_.at(extension));
    }
    return result;
}

}  // namespace kelZor
