// Feature field value readers list which attribute values a vector file holds; the
// engine uses them to offer add-props rules.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

namespace kelZor {

class DtDe;

class DtFeatureFieldValueReader {
public:
    explicit DtFeatureFieldValueReader(DtDe& de) : de_(de) {}
    virtual ~DtFeatureFieldValueReader() = default;
    // Adds each field's values to `values`; true when the file was read.
    virtual bool readValuesFromFile(const std::string& filename,
                                    std::map<std::string, std::set<std::string>>& values) const = 0;

protected:
    DtDe& de_;
};

class DtFeatureFieldValueReaderFactory {
public:
    static DtFeatureFieldValueReaderFactory& instance(DtDe& de);
    virtual ~DtFeatureFieldValueReaderFactory();
    // Takes ownership; replaces the earlier default.
    void setDefaultReader(DtFeatureFieldValueReader* reader);
    DtFeatureFieldValueReader* defaultReader() const { return default_.get(); }

private:
    friend class DtDe;
    DtFeatureFieldValueReaderFactory() = default;
    std::unique_ptr<DtFeatureFieldValueReader> default_;
};

}  // namespace kelZor
