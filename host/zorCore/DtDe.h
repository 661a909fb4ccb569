// DtDe: the engine object. One per engine instance; a plug-in's init is called with it,
// and every registry (header parsers, adders, readers) lives in it.
//
//   DtDe de("/etc/zor");           // the configuration directory
//   kelZor::zorTerrain::init(de);
//   std::unique_ptr<DtHeaderParser> parser(
//       DtHeaderParserFactory::instance(de).createHeaderParser("tile.flt"));
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kelArchives/DtModelDefinitionRecord.h"
#include "zorCore/DtTerrain.h"
#include "zorUtil/DtCoordinateSystem.h"
#include "zorUtil/DtDeError.h"
#include "zorUtil/DtDebugLog.h"

namespace kelZor {

class DtHeaderParserFactory;
class DtPropAdderFactory;
class DtFeatureFieldValueReaderFactory;
class DtFeatureAdderCreator;

class DtConfigurationService {
public:
    explicit DtConfigurationService(std::string directory) : directory_(std::move(directory)) {}
    virtual ~DtConfigurationService() = default;
    virtual std::string configurationDirectory() const { return directory_; }
    void setConfigurationDirectory(const std::string& directory) { directory_ = directory; }

private:
    std::string directory_;
};

class DtScene {
public:
    virtual ~DtScene() = default;
    DtTerrain& terrain() { return terrain_; }

private:
    DtTerrain terrain_;
};

// A model the engine can place, by its definition record (name, file, system).
class DtModelDefinition {
public:
    explicit DtModelDefinition(const kelArchives::DtModelDefinitionRecord& record)
        : record_(record) {}
    const std::string& name() const { return record_.name(); }
    const kelArchives::DtModelDefinitionRecord& record() const { return record_; }

private:
    kelArchives::DtModelDefinitionRecord record_;
};

// Model definitions known to the engine, by name.
class DtModelDefinitionManager {
public:
    virtual ~DtModelDefinitionManager() = default;
    // Replaces a definition of the same name.
    void addDefinition(const kelArchives::DtModelDefinitionRecord& record);
    // Null when there is none of that name.
    virtual DtModelDefinition* findDefinition(const std::string& name);

private:
    std::map<std::string, DtModelDefinition> definitions_;
};

class DtDeSharedState {
public:
    virtual ~DtDeSharedState() = default;
    DtCoordinateSystem& coordinateSystem() { return coordinateSystem_; }
    virtual DtModelDefinitionManager& modelDefinitionManager() { return models_; }

private:
    DtCoordinateSystem coordinateSystem_;
    DtModelDefinitionManager models_;
};

// An error as the engine was told it.
struct DtReportedError {
    DtDeError error;
    bool notifyUser;
};

class DtDe {
public:
    explicit DtDe(const std::string& configurationDirectory = std::string());
    virtual ~DtDe();
    DtDe(const DtDe&) = delete;
    DtDe& operator=(const DtDe&) = delete;

    // The guard of plug-in entry functions: each runs once per DtDe.
    bool isInitFunctionRegistered(void* function) const;
    void registerInitFunction(void* function);
    DtDebugLog& log() { return log_; }

    virtual DtScene& scene() { return scene_; }
    virtual DtConfigurationService& configurationService() { return configuration_; }
    virtual DtDeSharedState& sharedState() { return sharedState_; }
    // Records the error and writes its message to the log; `notifyUser` raises it to the
    // error level, otherwise it is a warning.
    virtual void reportError(const DtDeError& error, bool notifyUser);

    // Every error reported so far, in order; a host shows them, a test reads them back.
    const std::vector<DtReportedError>& reportedErrors() const { return errors_; }
    void clearReportedErrors() { errors_.clear(); }

    // The registries; reached by plug-ins through each factory's instance(DtDe&).
    DtHeaderParserFactory& headerParserFactory() { return *headerParsers_; }
    DtPropAdderFactory& propAdderFactory() { return *propAdders_; }
    DtFeatureFieldValueReaderFactory& featureFieldValueReaderFactory() { return *readers_; }
    DtFeatureAdderCreator* featureAdderCreator() const { return featureAdderCreator_.get(); }
    void setFeatureAdderCreator(DtFeatureAdderCreator* creator);

private:
    std::set<void*> initFunctions_;
    DtDebugLog log_;
    DtScene scene_;
    DtConfigurationService configuration_;
    DtDeSharedState sharedState_;
    std::vector<DtReportedError> errors_;
    std::unique_ptr<DtHeaderParserFactory> headerParsers_;
    std::unique_ptr<DtPropAdderFactory> propAdders_;
    std::unique_ptr<DtFeatureFieldValueReaderFactory> readers_;
    std::unique_ptr<DtFeatureAdderCreator> featureAdderCreator_;
};

}  // namespace kelZor
