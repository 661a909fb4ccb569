// The prop adder of vector terrain sources: for each node of the file's vector network
// whose attributes satisfy every condition of a rule, a prop of the rule's model, put on
// the ground below (or above) the node and turned to the heading its rotation attribute
// gives.
//
//   std::unique_ptr<DtPropAdder> adder(creator->create("trees.shp", agents));
//   adder->addProps(rule, &layer);   // failures are reported to de, not returned
#pragma once

#include <string>

#include "gdb/DtVectorNetwork.h"
#include "zorCore/DtPropAdder.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtTdbPropAdder : public DtPropAdder {
public:
    DtTdbPropAdder(DtDe& de, const std::string& filename, DtAgentManagerInterface& agentManager);
    ~DtTdbPropAdder() override;
    void addProps(const kelArchives::DtAddPropsRuleRecord& rule, DtTerrainLayer* layer) override;

protected:
    // True when the rule has conditions and the node meets every one.
    bool matchRuleWithNode(const kelArchives::DtAddPropsRuleRecord& rule,
                           const DtNetworkNode& node);
    // True when some attribute of the node has that name and that value text, exactly.
    bool matchPairWithNode(const std::string& field, const std::string& value,
                           const DtNetworkNode& node);
    // False when no prop could be placed for the node.
    bool buildProp(const kelArchives::DtAddPropsRuleRecord& rule, const DtNetworkNode& node,
                   DtTerrainLayer* layer);
    // Not the origin, and every coordinate a finite 32-bit float.
    bool validPoint(const DtPoint& point) const;

private:
    std::string filename_;
};

class ZOR_TERRAIN_EXPORT DtTdbPropAdderCreator : public DtPropAdderCreator {
public:
    explicit DtTdbPropAdderCreator(DtDe& de);
    DtPropAdder* create(const std::string& filename,
                        DtAgentManagerInterface& agentManager) override;

private:
    DtDe& de_;
};

}  // namespace kelZor
