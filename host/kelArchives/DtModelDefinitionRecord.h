// Records of terrain models, as parsers hand them to the engine: a model definition
// (name, file, coordinate system and schema) and the terrain patch that wraps one.
#pragma once

#include <string>

namespace kelArchives {

class DtModelDefinitionRecord {
public:
    DtModelDefinitionRecord() = default;
    DtModelDefinitionRecord(const DtModelDefinitionRecord&) = default;
    DtModelDefinitionRecord& operator=(const DtModelDefinitionRecord&) = default;
    virtual ~DtModelDefinitionRecord() = default;

    void setName(const std::string& v) { name_ = v; }
    void setFilename(const std::string& v) { filename_ = v; }
    void setCoordinateSystem(const std::string& v) { coordinateSystem_ = v; }
    void setCoordinateSystemParameters(const std::string& v) { coordinateSystemParameters_ = v; }
    void setSchema(const std::string& v) { schema_ = v; }

    const std::string& name() const { return name_; }
    const std::string& filename() const { return filename_; }
    const std::string& coordinateSystem() const { return coordinateSystem_; }
    const std::string& coordinateSystemParameters() const { return coordinateSystemParameters_; }
    const std::string& schema() const { return schema_; }

    bool operator==(const DtModelDefinitionRecord& o) const {
        return name_ == o.name_ && filename_ == o.filename_ &&
               coordinateSystem_ == o.coordinateSystem_ &&
               coordinateSystemParameters_ == o.coordinateSystemParameters_ && schema_ == o.schema_;
    }

private:
    std::string name_;
    std::string filename_;
    std::string coordinateSystem_;
    std::string coordinateSystemParameters_;
    std::string schema_;
};

class DtTerrainPatchRecord {
public:
    DtTerrainPatchRecord() = default;
    DtTerrainPatchRecord(const DtTerrainPatchRecord&) = default;
    DtTerrainPatchRecord& operator=(const DtTerrainPatchRecord&) = default;
    virtual ~DtTerrainPatchRecord() = default;

    // Keeps a copy of the definition.
    void setTerrainPatchDefinitionRecord(const DtModelDefinitionRecord& record) {
        definition_ = record;
    }
    const DtModelDefinitionRecord& terrainPatchDefinitionRecord() const { return definition_; }

    bool operator==(const DtTerrainPatchRecord& o) const { return definition_ == o.definition_; }

private:
    DtModelDefinitionRecord definition_;
};

}  // namespace kelArchives
