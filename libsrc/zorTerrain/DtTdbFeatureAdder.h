// The feature adder of vector terrain sources: loads the file a feature layer names
// into the scene's coordinate system and makes a feature of each free-standing point,
// each line and each area of its vector network that carries a feature type, a feature
// identifier and a feature code ("DtFeatureType", "DtFidCode", "ECC").
//
//   std::unique_ptr<DtFeatureAdder> adder(creator->create(de));
//   adder->addFeatures(layer);   // failures are reported to de, not returned
#pragma once

#include "gdb/DtVectorNetwork.h"
#include "zorCore/DtFeatureAdder.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtTdbFeatureAdder : public DtFeatureAdder {
public:
    explicit DtTdbFeatureAdder(DtDe& de);
    ~DtTdbFeatureAdder() override;
    void addFeatures(DtFeatureLayer& layer) override;

protected:
    // Points first (free nodes of type 0), then lines and areas in edge order.
    virtual void addFeaturesFromVectorNetwork(const DtVectorNetwork& network,
                                              DtFeatureLayer& layer);
    virtual void addPoint(const DtNetworkNode& node, DtFeatureLayer& layer);
    virtual void addLinear(const DtNetworkEdge& edge, DtFeatureLayer& layer);
    void addArea(const DtNetworkEdge& edge, DtFeatureLayer& layer);
};

class ZOR_TERRAIN_EXPORT DtTdbFeatureAdderCreator : public DtFeatureAdderCreator {
public:
    DtFeatureAdder* create(DtDe& de) override;
};

}  // namespace kelZor
