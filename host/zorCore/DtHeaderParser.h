// Header parsers: the engine's way of asking a terrain file what it is. A parser is
// made for one path by the creator registered for its extension; isValid() reads the
// file, and on true the accessors tell its coordinate system and terrain patches.
//
//   DtHeaderParserFactory& factory = DtHeaderParserFactory::instance(de);
//   std::unique_ptr<DtHeaderParser> parser(factory.createHeaderParser(path));
//   if (parser && parser->isValid()) use(parser->terrainCoordinateSystem());
//
// isValid() may let exceptions of the DtException family pass to the caller.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kelArchives/DtModelDefinitionRecord.h"

namespace kelZor {

class DtDe;

class DtHeaderParser {
public:
    explicit DtHeaderParser(const std::string& filePath) : filePath_(filePath) {}
    DtHeaderParser(const DtHeaderParser&) = default;
    DtHeaderParser& operator=(const DtHeaderParser&) = default;
    virtual ~DtHeaderParser() = default;

    virtual bool isValid() = 0;
    // One of the DtCoordinateConverter type constants, or empty.
    virtual const std::string& terrainCoordinateSystem() { return terrainCoordinateSystem_; }
    // The converter's stringRep(), or empty.
    virtual const std::string& terrainCoordinateSystemParameters() {
        return terrainCoordinateSystemParameters_;
    }
    virtual const std::string& filePath() { return filePath_; }

    const std::list<kelArchives::DtTerrainPatchRecord>& terrainPatchRecords() const {
        return terrainPatchRecords_;
    }

protected:
    // Appends the standard record of one patch: name and file name `patchPath`, this
    // parser's coordinate system and parameters, schema "Terrain".
    void addStandardPatchRecord(const std::string& patchPath);

    std::string filePath_;
    std::string terrainCoordinateSystem_;
    std::string terrainCoordinateSystemParameters_;
    std::list<kelArchives::DtTerrainPatchRecord> terrainPatchRecords_;
};

class DtHeaderParserCreator {
public:
    virtual ~DtHeaderParserCreator() = default;
    // A new parser for `filePath`, owned by the caller.
    virtual DtHeaderParser* create(DtDe& de, const std::string& filePath) const = 0;
};

class DtHeaderParserFactory {
public:
    static DtHeaderParserFactory& instance(DtDe& de);
    virtual ~DtHeaderParserFactory();

    // Takes ownership; a creator registered again under the same name replaces the
    // earlier one.
    virtual void registerCreator(const std::string& name, DtHeaderParserCreator* creator);
    // `extension` in lower case, without the point.
    virtual void registerExtension(const std::string& extension, const std::string& name);

    // A new parser for the file's extension (case-insensitive), owned by the caller;
    // null when no registered extension fits.
    DtHeaderParser* createHeaderParser(const std::string& filePath);
    // A new parser of the creator registered under `name`, or null.
    DtHeaderParser* createHeaderParserByName(const std::string& name, const std::string& filePath);
    // The registered name that createHeaderParser would use, or "".
    std::string parserNameForPath(const std::string& filePath) const;

    // Names in the order they were first registered.
    const std::vector<std::string>& registeredNames() const { return names_; }
    // (extension, name) pairs in the order the extensions were first registered.
    std::vector<std::pair<std::string, std::string>> registeredExtensions() const;

private:
    friend class DtDe;
    explicit DtHeaderParserFactory(DtDe& de) : de_(de) {}

    DtDe& de_;
    std::map<std::string, std::unique_ptr<DtHeaderParserCreator>> creators_;
    std::vector<std::string> names_;
    std::map<std::string, std::string> nameOfExtension_;
    std::vector<std::string> extensions_;
};

}  // namespace kelZor
