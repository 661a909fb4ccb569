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
#include <vector>

#include "geometry/DtPoint.h"
#include "hxutil/DtList.h"
#include "hxutil/DtString.h"
#include "tdbutil/DtSymbolString.h"

class DtNetworkAttribute {
public:
    // Type codes.
    enum Type { String = 3, Integer = 7, Double = 8 };

    DtNetworkAttribute(const DtSymbolString& name, const std::string& value);
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
        operator DtString() const;
        operator int() const;
        operator double() const;

    private:
        const DtNetworkAttribute& attribute_;
    };
    Value value() const { return Value(*this); }

    const std::string& stringValue() const { return text_; }
    int intValue() const { return type_ == Integer ? integer_ : 0; }
    double doubleValue() const { return type_ == Double ? real_ : 0.0; }

private:
    DtSymbolString name_;
    int type_;
    int integer_ = 0;
    double real_ = 0.0;
    std::string text_;
};

class DtNetworkAttributes {
public:
    void add(DtNetworkAttribute attribute) { attributes_.push_back(std::move(attribute)); }

    // True and the value of the first attribute of that name and type; false, leaving
    // `out` as it was, when there is none.
    bool getInt(const DtString& name, int& out) const;
    bool getDouble(const DtString& name, double& out) const;
    bool getString(const DtString& name, DtString& out) const;

    // The attributes in the order they were added; items are const DtNetworkAttribute*.
    DtList attributeList() const;
    const std::vector<DtNetworkAttribute>& attributes() const { return attributes_; }

private:
    const DtNetworkAttribute* find(const DtString& name, int type) const;
    std::vector<DtNetworkAttribute> attributes_;
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

    DtNetworkAttributes& attributes() { return attributes_; }
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

    DtNetworkAttributes& attributes() { return attributes_; }
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
    int numNodes() const { return static_cast<int>(nodes_.size()); }
    int numEdges() const { return static_cast<int>(edges_.size()); }
    // Null outside 0 .. count - 1.
    const DtNetworkNode* node(int index) const;
    const DtNetworkEdge* edge(int index) const;

    // Building, by the loader. Identifiers run from 1 across nodes and edges alike.
    DtNetworkNode& addNode(const DtPoint& location);
    DtNetworkEdge& addEdge();
    DtNetworkNode& nodeAt(int index) { return nodes_[static_cast<size_t>(index)]; }
    void reserveNodes(size_t count) { nodes_.reserve(count); }

private:
    uint32_t nextId_ = 1;
    std::vector<DtNetworkNode> nodes_;
    std::vector<DtNetworkEdge> edges_;
};
