#include "Engine.h"

#include "LibraryModule.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"

Engine::Engine() = default;

Engine::~Engine() {
    de_.reset();  // before the libraries whose code its objects hold
}

bool Engine::open(const EngineOptions& options, std::string& error) {
    const std::vector<std::string> candidates = options.plugin.empty()
                                                    ? PluginLibrary::defaultCandidates()
                                                    : std::vector<std::string>{options.plugin};
    bool loaded = false;
    for (const std::string& candidate : candidates) {
        if ((loaded = plugin_.load(candidate, error)))
            break;
    }
    if (!loaded)
        return false;
    // Inspect and parsers go on without the module (a stub plug-in has no MetaFlight
    // classes); the MetaFlight commands cannot.
    haveModule_ = module_.load(plugin_, moduleError_, options.module);
    de_ = std::make_unique<kelZor::DtDe>(options.configDir);
    plugin_.init()(*de_);
    if (haveModule_)
        module_.commands().registerMetaFileParser(*de_);
    return true;
}

const LibraryCommands* Engine::metaflight() const {
    return haveModule_ ? &module_.commands() : nullptr;
}

std::vector<std::pair<std::string, std::vector<std::string>>> Engine::parsers() {
    kelZor::DtHeaderParserFactory& factory = kelZor::DtHeaderParserFactory::instance(*de_);
    std::vector<std::pair<std::string, std::vector<std::string>>> parsers;
    for (const std::string& name : factory.registeredNames()) {
        std::vector<std::string> extensions;
        for (const auto& [extension, owner] : factory.registeredExtensions()) {
            if (owner == name)
                extensions.push_back(extension);
        }
        parsers.emplace_back(name, extensions);
    }
    return parsers;
}
