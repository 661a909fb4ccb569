// Prop adders place 3-D models on the terrain by the rules of add-props records. The
// engine keeps one creator per vector file extension.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kelArchives/DtPropRecord.h"

namespace kelZor {

class DtDe;

// The engine's agent manager, which the props an adder creates are registered with.
class DtAgentManagerInterface {
public:
    virtual ~DtAgentManagerInterface() = default;
};

// A model placed in the scene: its type and name, and the state a record gives it.
class DtProp {
public:
    DtProp(DtDe& de, DtAgentManagerInterface& agentManager, const std::string& propType,
           const std::string& name);
    virtual ~DtProp();
    // Position, orientation and model as the record says; type and name stay.
    virtual void setFromRecord(const kelArchives::DtPropRecord& record);

    const std::string& propType() const { return record_.propType(); }
    const std::string& name() const { return record_.name(); }
    const kelArchives::DtPropRecord& record() const { return record_; }

private:
    kelArchives::DtPropRecord record_;  // its type and name are the prop's
};

// A layer of the terrain that receives props.
class DtTerrainLayer {
public:
    virtual ~DtTerrainLayer();
    // Takes the prop over.
    virtual void addProp(DtProp* prop);
    size_t numProps() const { return props_.size(); }
    const DtProp& prop(size_t index) const { return *props_[index]; }

private:
    std::vector<std::unique_ptr<DtProp>> props_;
};

class DtPropAdder {
public:
    DtPropAdder(DtDe& de, DtAgentManagerInterface& agentManager)
        : de_(de), agentManager_(agentManager) {}
    virtual ~DtPropAdder() = default;
    virtual void addProps(const kelArchives::DtAddPropsRuleRecord& rule, DtTerrainLayer* layer) = 0;

protected:
    DtDe& de_;
    DtAgentManagerInterface& agentManager_;
};

class DtPropAdderCreator {
public:
    virtual ~DtPropAdderCreator() = default;
    // A new adder for `filename`, owned by the caller.
    virtual DtPropAdder* create(const std::string& filename,
                                DtAgentManagerInterface& agentManager) = 0;
};

class DtPropAdderFactory {
public:
    static DtPropAdderFactory& instance(DtDe& de);
    virtual ~DtPropAdderFactory();
    // Takes ownership; replaces an earlier creator of the extension.
    void setAdderCreator(const std::string& extension, DtPropAdderCreator* creator);
    // The creator of the file's extension (case-insensitive), or null.
    DtPropAdderCreator* creatorForFile(const std::string& filename) const;
    // Extensions in the order they were first given a creator.
    const std::vector<std::string>& extensions() const { return extensions_; }

private:
    friend class DtDe;
    DtPropAdderFactory() = default;
    std::map<std::string, std::unique_ptr<DtPropAdderCreator>> creators_;
    std::vector<std::string> extensions_;
};

}  // namespace kelZor
