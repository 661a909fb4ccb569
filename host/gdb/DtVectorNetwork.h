// The vector network of a loaded terrain database: free-standing nodes (points),
// junction nodes where edges meet, and edges (lines, and areas by their outline), each
// with named attributes. A network is built by the loader and then only read.
//
//   for (int i = 0; i < network.numNodes(); ++i)
//       if (const DtNetworkNode* node = network.node(i); node && node->isValid())
//           if (int type; node->attributes().getInt(DtString("DtFeatureType"), type)) ...
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "geometry/DtPoint.h"
#include "hxutil/DtList.h"
#include "hxutil/DtString.h"
#include "tdbutil/DtSymbolString.h"

class DtNetworkAttribute {
public:
    // Type codes.
    enum Type { String = 3, Integer = 7, Double = 8 };

    // `value` is the network's own copy of the text (DtVectorNetwork::internText).
    DtNetworkAttribute(const DtSymbolString& name, const std::string* value);
    DtNetworkAttribute(const DtSymbolString& name, int value);
    DtNetworkAttribute(const DtSymbolString& name, double value);

    const DtSymbolString& name() const { return name_; }
    int type() const { return type_; }

    // The value, read as the type says: `DtString text = attribute.value();`,
    // `int n = attribute.value();`, `double d = attribute.value();`. Reading it as
    // another type gives that type's empty value.
    class Value {
    public:
        explicit Value(const DtNetworkAttribute& attribute) : attribute_(attribute) {}
        operator DtString() const { return DtString(attribute_.stringValue()); }
        operator int() const { return attribute_.intValue(); }
        operator double() const { return attribute_.doubleValue(); }

    private:
        const DtNetworkAttribute& attribute_;
    };
    Value value() const { return Value(*this); }

    const std::string& stringValue() const;
    int intValue() const { return type_ == Integer ? integer_ : 0; }
    double doubleValue() const { return type_ == Double ? real_ : 0.0; }

private:
    // 24 bytes: a million objects with a few attributes each stay small.
    DtSymbolString name_;
    int type_;
    union {
        int integer_;
        double real_;
        const std::string* text_;
    };
};

// The attributes of one node or edge: a range of the network's attribute store.
class DtNetworkAttributes {
public:
    DtNetworkAttributes() = default;
    DtNetworkAttributes(const std::vector<DtNetworkAttribute>* store, uint32_t begin,
                        uint32_t count)
        : store_(store), begin_(begin), count_(count) {}

    // True and the value of the first attribute of that name and type; false, leaving
    // `out` as it was, when there is none.
    bool getInt(const DtString& name, int& out) const;
    bool getDouble(const DtString& name, double& out) const;
    bool getString(const DtString& name, DtString& out) const;

    // The attributes in the order they were added; items are const DtNetworkAttribute*.
    DtList attributeList() const;
    const DtNetworkAttribute* begin() const { return store_ ? store_->data() + begin_ : nullptr; }
    const DtNetworkAttribute* end() const { return begin() + (store_ ? count_ : 0); }
    int size() const { return static_cast<int>(count_); }

private:
    const DtNetworkAttribute* find(const DtString& name, int type) const;
    const std::vector<DtNetworkAttribute>* store_ = nullptr;
    uint32_t begin_ = 0;
    uint32_t count_ = 0;
};

class DtNetworkNode {
public:
    DtNetworkNode(uint32_t id, const DtPoint& location) : id_(id), location_(location) {}

    uint32_t id() const { return id_; }
    bool isValid() const { return valid_; }
    const DtPoint& location() const { return location_; }
    int numConnectedEdges() const { return static_cast<int>(connectedEdges_.size()); }
    // Indices of the edges that begin or end here.
    const std::vector<int>& connectedEdges() const { return connectedEdges_; }
    const DtNetworkAttributes& attributes() const { return attributes_; }

    void setAttributes(const DtNetworkAttributes& attributes) { attributes_ = attributes; }
    void connectEdge(int edge) { connectedEdges_.push_back(edge); }
    void setValid(bool valid) { valid_ = valid; }

private:
    uint32_t id_;
    bool valid_ = true;
    DtPoint location_;
    std::vector<int> connectedEdges_;
    DtNetworkAttributes attributes_;
};

class DtNetworkEdge {
public:
    explicit DtNetworkEdge(uint32_t id) : id_(id) {}

    uint32_t id() const { return id_; }
    bool isValid() const { return valid_; }
    int numPoints() const { return static_cast<int>(points_.size()); }
    // The vertex at `index`; the origin outside 0 .. numPoints() - 1.
    DtPoint point(int index) const;
    const DtNetworkAttributes& attributes() const { return attributes_; }

    void setAttributes(const DtNetworkAttributes& attributes) { attributes_ = attributes; }
    std::vector<DtPoint>& points() { return points_; }
    void setValid(bool valid) { valid_ = valid; }

private:
    uint32_t id_;
    bool valid_ = true;
    std::vector<DtPoint> points_;
    DtNetworkAttributes attributes_;
};

class DtVectorNetwork {
public:
    DtVectorNetwork() = default;
    // Objects refer to the network's stores: it is not copied or moved.
    DtVectorNetwork(const DtVectorNetwork&) = delete;
    DtVectorNetwork& operator=(const DtVectorNetwork&) = delete;

    int numNodes() const { return static_cast<int>(nodes_.size()); }
    int numEdges() const { return static_cast<int>(edges_.size()); }
    // Null outside 0 .. count - 1.
    const DtNetworkNode* node(int index) const;
    const DtNetworkEdge* edge(int index) const;

    // Building, by the loader. Identifiers run from 1 across nodes and edges alike.
    DtNetworkNode& addNode(const DtPoint& location);
    DtNetworkEdge& addEdge();
    DtNetworkNode& nodeAt(int index) { return nodes_[static_cast<size_t>(index)]; }
    // Room for `nodes` more nodes of `attributes` attributes each, when known up front.
    void reserve(size_t nodes, size_t attributes);
    // The network's copy of a text value, shared by every attribute of that text.
    const std::string* internText(const std::string& text);
    // Stores the attributes of one object and answers them as its range.
    DtNetworkAttributes storeAttributes(const DtNetworkAttribute* first, size_t count);

private:
    uint32_t nextId_ = 1;
    std::vector<DtNetworkAttribute> attributeStore_;
    std::unordered_set<std::string> texts_;
    std::vector<DtNetworkNode> nodes_;
    std::vector<DtNetworkEdge> edges_;
};
