#include "gdb/DtVectorNetwork.h"

DtNetworkAttribute::DtNetworkAttribute(const DtSymbolString& name, const std::string& value)
    : name_(name), type_(String), text_(value) {}
DtNetworkAttribute::DtNetworkAttribute(const DtSymbolString& name, int value)
    : name_(name), type_(Integer), integer_(value) {}
DtNetworkAttribute::DtNetworkAttribute(const DtSymbolString& name, double value)
    : name_(name), type_(Double), real_(value) {}

DtNetworkAttribute::Value::operator DtString() const {
    return attribute_.type_ == String ? DtString(attribute_.text_) : DtString();
}
DtNetworkAttribute::Value::operator int() const {
    return attribute_.intValue();
}
DtNetworkAttribute::Value::operator double() const {
    return attribute_.doubleValue();
}

const DtNetworkAttribute* DtNetworkAttributes::find(const DtString& name, int type) const {
    for (const DtNetworkAttribute& attribute : attributes_) {
        if (attribute.type() == type && attribute.name().string() == name.stdString())
            return &attribute;
    }
    return nullptr;
}

bool DtNetworkAttributes::getInt(const DtString& name, int& out) const {
    const DtNetworkAttribute* found = find(name, DtNetworkAttribute::Integer);
    if (found)
        out = found->intValue();
    return found != nullptr;
}

bool DtNetworkAttributes::getDouble(const DtString& name, double& out) const {
    const DtNetworkAttribute* found = find(name, DtNetworkAttribute::Double);
    if (found)
        out = found->doubleValue();
    return found != nullptr;
}

bool DtNetworkAttributes::getString(const DtString& name, DtString& out) const {
    const DtNetworkAttribute* found = find(name, DtNetworkAttribute::String);
    if (found)
        out = DtString(found->stringValue());
    return found != nullptr;
}

DtList DtNetworkAttributes::attributeList() const {
    DtList list;
    for (const DtNetworkAttribute& attribute : attributes_)
        list.add(const_cast<DtNetworkAttribute*>(&attribute));  // DtList holds void*
    return list;
}

DtPoint DtNetworkEdge::point(int index) const {
    if (index < 0 || static_cast<size_t>(index) >= points_.size())
        return DtPoint();
    return points_[static_cast<size_t>(index)];
}

const DtNetworkNode* DtVectorNetwork::node(int index) const {
    if (index < 0 || static_cast<size_t>(index) >= nodes_.size())
        return nullptr;
    return &nodes_[static_cast<size_t>(index)];
}

const DtNetworkEdge* DtVectorNetwork::edge(int index) const {
    if (index < 0 || static_cast<size_t>(index) >= edges_.size())
        return nullptr;
    return &edges_[static_cast<size_t>(index)];
}

DtNetworkNode& DtVectorNetwork::addNode(const DtPoint& location) {
    nodes_.emplace_back(nextId_++, location);
    return nodes_.back();
}

DtNetworkEdge& DtVectorNetwork::addEdge() {
    edges_.emplace_back(nextId_++);
    return edges_.back();
}
