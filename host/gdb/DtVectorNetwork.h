// The vector network of a loaded terrain database: free-standing nodes (points),
// junction nodes where edges meet, and edges (lines, and areas by their outline), each
// with named attributes. A network is built by the loader and then only read.
//
//   for (int i = 0; i < network.numNodes(); ++i)
//       if (const DtNetworkNode* node = network.node(i); node && node->isValid())
//           if (int type; node->attributes().getInt(DtString("DtFeatureType"), type)) ...
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
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
    DtSymbolString name_;
    int type_;
    union {
        int integer_;
        double real_;
        const std::string* text_;
    };
};

// The attributes of the objects of one layer, a row per object. A column is a name, a
// type and a slot; a derived attribute that reads a field unchanged (ECC of a text field,
// GDB_Width of a real one) is a column sharing that field's slot, so it costs nothing per
// object. Every row also carries the object's feature type (0 to 255) and FID. A row is
// a word of type, FID and the presence of the first 23 slots, then a word per slot (and
// presence words before them when there are more): a point of three fields takes 32
// bytes.
class DtAttributeTable {
public:
    struct Column {
        DtSymbolString name;
        int type;
        uint32_t slot;
    };

    // A column with a slot of its own; answers the slot.
    uint32_t addColumn(const DtSymbolString& name, int type);
    // A column reading the slot of another: present in a row exactly when that is.
    void addAlias(const DtSymbolString& name, int type, uint32_t slot);
    const std::vector<Column>& columns() const { return columns_; }

    // A row with no value set; answers its index. A row without a FID (its feature's id
    // is one the engine cannot hold) has no "DtFidCode".
    uint32_t addRow(int featureType, std::optional<int> fid);
    void reserveRows(size_t rows);
    void shrinkToFit() { words_.shrink_to_fit(); }
    void setInt(uint32_t row, uint32_t slot, int value);
    void setDouble(uint32_t row, uint32_t slot, double value);
    void setText(uint32_t row, uint32_t slot, const std::string* value);

    bool has(uint32_t row, uint32_t slot) const;
    int intAt(uint32_t row, uint32_t slot) const;
    double doubleAt(uint32_t row, uint32_t slot) const;
    const std::string* textAt(uint32_t row, uint32_t slot) const;
    int featureType(uint32_t row) const;
    bool hasFid(uint32_t row) const;
    int fid(uint32_t row) const;

private:
    uint64_t* rowWords(uint32_t row) { return words_.data() + size_t(row) * rowWords_; }
    const uint64_t* rowWords(uint32_t row) const { return words_.data() + size_t(row) * rowWords_; }
    uint64_t& cell(uint32_t row, uint32_t slot);
    size_t presenceWords() const;

    std::vector<Column> columns_;
    uint32_t slots_ = 0;
    // A row: one word of feature type and FID, the presence bits of the slots, the slots.
    size_t rowWords_ = 1;
    std::vector<uint64_t> words_;
};

// The attributes of one node or edge: a row of its layer's table (none for a junction).
class DtNetworkAttributes {
public:
    friend class DtNetworkNode;
    DtNetworkAttributes() = default;
    DtNetworkAttributes(const DtAttributeTable* table, uint32_t row) : table_(table), row_(row) {}

    // True and the value of the first attribute of that name and type; false, leaving
    // `out` as it was, when there is none.
    bool getInt(const DtString& name, int& out) const;
    bool getDouble(const DtString& name, double& out) const;
    bool getString(const DtString& name, DtString& out) const;

    // The attributes in their order: the layer's fields, the derived ones, then
    // "DtFeatureType" and "DtFidCode" (when the row has one). Items are const DtNetworkAttribute*,
    // kept alive by the list.
    DtList attributeList() const;
    std::vector<DtNetworkAttribute> toVector() const;
    int size() const;

private:
    template <class Visit>
    void forEach(Visit&& visit) const;
    // The first present column of that name and type.
    const DtAttributeTable::Column* find(const DtString& name, int type) const;

    const DtAttributeTable* table_ = nullptr;
    uint32_t row_ = 0;
};

// A node holds attributes or edges, never both: a free point carries its feature's
// attributes, a junction only the edges that meet there. Sharing their place keeps a node
// of a million-point file at 40 bytes.
class DtNetworkNode {
public:
    DtNetworkNode(uint32_t id, const DtPoint& location);

    uint32_t id() const { return idAndFlags_ & IdBits; }
    bool isValid() const { return (idAndFlags_ & Invalid) == 0; }
    const DtPoint& location() const { return location_; }
    // Indices of edges, in the order they were connected.
    class EdgeIndices {
    public:
        EdgeIndices(const int* begin, const int* end) : begin_(begin), end_(end) {}
        const int* begin() const { return begin_; }
        const int* end() const { return end_; }
        size_t size() const { return static_cast<size_t>(end_ - begin_); }
        bool empty() const { return begin_ == end_; }
        int operator[](size_t i) const { return begin_[i]; }

    private:
        const int* begin_;
        const int* end_;
    };

    int numConnectedEdges() const { return hasEdges() ? link_.edges[0] : 0; }
    // Indices of the edges that begin or end here (once the network is finished).
    EdgeIndices connectedEdges() const;
    // A junction's are empty.
    DtNetworkAttributes attributes() const;

    // A node given attributes is no junction: DtVectorNetwork::connectEdge refuses it.
    void setAttributes(const DtNetworkAttributes& attributes);
    void setValid(bool valid);

    // Identifiers take 30 bits: a network holds fewer objects than that.
    static constexpr uint32_t IdBits = (1u << 30) - 1;

private:
    friend class DtVectorNetwork;
    static constexpr uint32_t Invalid = 1u << 30;
    static constexpr uint32_t HasEdges = 1u << 31;
    bool hasEdges() const { return (idAndFlags_ & HasEdges) != 0; }
    // Only junctions have edges: their count and indices, one after the other, in the
    // network's store.
    void setEdges(const int* edges);

    DtPoint location_;
    union {
        const DtAttributeTable* table;
        const int* edges;
    } link_ = {nullptr};
    uint32_t row_ = 0;
    uint32_t idAndFlags_;
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

    // The identifier the next node or edge gets: nodes and edges share one sequence.
    uint32_t nextId() const { return nextId_; }
    int numNodes() const { return static_cast<int>(nodes_.size()); }
    int numEdges() const { return static_cast<int>(edges_.size()); }
    // Null outside 0 .. count - 1.
    const DtNetworkNode* node(int index) const;
    const DtNetworkEdge* edge(int index) const;

    // Building, by the loader. Identifiers run from 1 across nodes and edges alike.
    DtNetworkNode& addNode(const DtPoint& location);
    DtNetworkEdge& addEdge();
    // Records that `edge` begins or ends at the node; nodes answer it once the network
    // is finished.
    void connectEdge(int node, int edge);
    // Called when the last object is in: junctions learn their edges, and the stores give
    // back the room they hold beyond their contents. Connecting more and finishing again
    // keeps what was there.
    void finishBuilding();
    // Room for `nodes` more nodes, when known up front.
    void reserveNodes(size_t nodes);
    // A new, empty table for the attributes of one layer.
    DtAttributeTable& addTable();
    // The network's copy of a text value, shared by every attribute of that text.
    const std::string* internText(const std::string& text);

private:
    uint32_t nextId_ = 1;
    std::deque<DtAttributeTable> tables_;
    struct Connection {
        uint32_t node;
        int edge;
    };
    void storeJunctionEdges(const std::vector<Connection>& sortedByNode);
    uint32_t takeId();
    std::vector<Connection> connections_;
    // Per junction its edge count, then its edge indices: one allocation for them all.
    std::vector<int> junctionEdges_;
    std::unordered_set<std::string> texts_;
    std::vector<DtNetworkNode> nodes_;
    std::vector<DtNetworkEdge> edges_;
};
