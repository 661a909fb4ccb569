// Feature adders turn a vector file into the features of a feature layer. One creator
// per engine makes them on demand.
#pragma once

#include "zorCore/DtFeatureSet.h"

namespace kelZor {

class DtDe;

class DtVirtualBaseClass {
public:
    virtual ~DtVirtualBaseClass() = default;
};

class DtFeatureAdder {
public:
    explicit DtFeatureAdder(DtDe& de) : de_(de) {}
    virtual ~DtFeatureAdder() = default;
    virtual void addFeatures(DtFeatureLayer& layer) = 0;

protected:
    DtDe& de_;
};

class DtFeatureAdderCreator : public DtVirtualBaseClass {
public:
    ~DtFeatureAdderCreator() override = default;
    // A new adder, owned by the caller.
    virtual DtFeatureAdder* create(DtDe& de) = 0;
    // Makes `creator` the engine's feature adder creator; takes ownership.
    static void registerInstance(DtDe& de, DtFeatureAdderCreator* creator);

protected:
    DtFeatureAdderCreator() = default;
};

}  // namespace kelZor
