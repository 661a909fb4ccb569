#include "gdb/DtVectorNetwork.h"

DtNetworkAttribute::DtNetworkAttribute(const DtSymbolString& name, const std::string* value)
    : name_(name), type_(String), text_(value) {}
DtNetworkAttribute::DtNetworkAttribute(const DtSymbolString& name, int value)
    : name_(name), type_(Integer), integer_(value) {}
DtNetworkAttribute::DtNetworkAttribute(const DtSymbolString& name, double value)
    : name_(name), type_(Double), real_(value) {}

const std::string& DtNetworkAttribute::stringValue() const {
    static const std::string empty;
    return type_ == String && text_ ? *text_ : empty;
}

const DtNetworkAttribute* DtNetworkAttributes::find(const DtString& name, int type) const {
    for (const DtNetworkAttribute* a = begin(); a != end(); ++a) {
        if (a->type() == type && a->name().string() == name.stdString())
            return a;
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
    for (const DtNetworkAttribute* a = begin(); a != end(); ++a)
        list.add(const_cast<DtNetworkAttribute*>(a));  // DtList holds void*
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

const std::string* DtVectorNetwork::internText(const std::string& text) {
    return &*texts_.insert(text).first;
}

DtNetworkAttributes DtVectorNetwork::storeAttributes(const DtNetworkAttribute* first,
                                                     size_t count) {
    const auto begin = static_cast<uint32_t>(attributeStore_.size());
    attributeStore_.insert(attributeStore_.end(), first, first + count);
    return DtNetworkAttributes(&attributeStore_, begin, static_cast<uint32_t>(count));
}

void DtVectorNetwork::reserve(size_t nodes, size_t attributes) {
    nodes_.reserve(nodes_.size() + nodes);
    attributeStore_.reserve(attributeStore_.size() + nodes * attributes);
}
