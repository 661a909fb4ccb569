// Records of props: one placed model instance, and the rule that says which models go
// where on a vector file's features.
#pragma once

#include <algorithm>
#include <map>
#include <string>

#include "tdbutil/DtSymbolString.h"

namespace kelArchives {

// A scene holds millions of props: the type and model texts, which repeat, are symbols
// (one pointer each), and the record has no virtual table.
class DtPropRecord {
public:
    DtPropRecord() = default;

    void setName(const std::string& v) { name_ = v; }
    void setPropType(const std::string& v) { propType_ = DtSymbolString(v); }
    void setModelDefOrNodeAddress(const std::string& v) {
        modelDefOrNodeAddress_ = DtSymbolString(v);
    }
    void setIsModelDef(bool v) { isModelDef_ = v; }
    void setPosition(double x, double y, double z) {
        position_[0] = x;
        position_[1] = y;
        position_[2] = z;
    }
    void setOrientation(double x, double y, double z, double w) {
        orientation_[0] = x;
        orientation_[1] = y;
        orientation_[2] = z;
        orientation_[3] = w;
    }

    const std::string& name() const { return name_; }
    const std::string& propType() const { return propType_.string(); }
    const std::string& modelDefOrNodeAddress() const { return modelDefOrNodeAddress_.string(); }
    bool isModelDef() const { return isModelDef_; }
    const double* position() const { return position_; }
    const double* orientation() const { return orientation_; }

    // Model, position and orientation of `other`; name and type stay.
    void placeAs(const DtPropRecord& other) {
        modelDefOrNodeAddress_ = other.modelDefOrNodeAddress_;
        isModelDef_ = other.isModelDef_;
        std::copy(other.position_, other.position_ + 3, position_);
        std::copy(other.orientation_, other.orientation_ + 4, orientation_);
    }

private:
    std::string name_;
    DtSymbolString propType_;
    DtSymbolString modelDefOrNodeAddress_;
    bool isModelDef_ = false;
    double position_[3] = {0.0, 0.0, 0.0};
    double orientation_[4] = {0.0, 0.0, 0.0, 1.0};
};

class DtAddPropsRuleRecord {
public:
    DtAddPropsRuleRecord() = default;
    DtAddPropsRuleRecord(const DtAddPropsRuleRecord&) = default;
    DtAddPropsRuleRecord& operator=(const DtAddPropsRuleRecord&) = default;
    virtual ~DtAddPropsRuleRecord() = default;

    const std::map<std::string, std::string>& fieldValueMap() const { return fieldValueMap_; }
    const std::string& rotationField() const { return rotationField_; }
    const std::string& modelDefinition() const { return modelDefinition_; }
    const std::string& propType() const { return propType_; }

    void setFieldValue(const std::string& field, const std::string& value) {
        fieldValueMap_[field] = value;
    }
    void setRotationField(const std::string& v) { rotationField_ = v; }
    void setModelDefinition(const std::string& v) { modelDefinition_ = v; }
    void setPropType(const std::string& v) { propType_ = v; }

private:
    std::map<std::string, std::string> fieldValueMap_;
    std::string rotationField_;
    std::string modelDefinition_;
    std::string propType_;
};

}  // namespace kelArchives
