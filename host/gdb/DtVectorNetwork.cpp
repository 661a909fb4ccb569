#include "gdb/DtVectorNetwork.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

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

// ------------------------------------------------------------------ DtAttributeTable

// A row's first word: the FID in its high half; in its low half the feature type (8
// bits), whether there is no FID (1 bit), and the presence bits of the first slots. Slots
// past those have presence words of their own behind it, before the slots.
namespace {
constexpr uint32_t TypeBits = 0xffu;
constexpr uint32_t NoFid = 1u << 8;
constexpr uint32_t HeadPresenceShift = 9;
constexpr uint32_t HeadPresenceSlots = 32 - HeadPresenceShift;
}  // namespace

size_t DtAttributeTable::presenceWords() const {
    return slots_ <= HeadPresenceSlots ? 0 : (slots_ - HeadPresenceSlots + 63) / 64;
}

uint32_t DtAttributeTable::addColumn(const DtSymbolString& name, int type) {
    // Rows are laid out by the slot count: columns come before the first row.
    const uint32_t slot = slots_++;
    columns_.push_back({name, type, slot});
    rowWords_ = 1 + presenceWords() + slots_;
    return slot;
}

void DtAttributeTable::addAlias(const DtSymbolString& name, int type, uint32_t slot) {
    columns_.push_back({name, type, slot});
}

uint32_t DtAttributeTable::addRow(int featureType, std::optional<int> fid) {
    const auto row = static_cast<uint32_t>(words_.size() / rowWords_);
    words_.resize(words_.size() + rowWords_, 0);
    const uint32_t head = (uint32_t(featureType) & TypeBits) | (fid ? 0u : NoFid);
    rowWords(row)[0] = (uint64_t(uint32_t(fid.value_or(0))) << 32) | head;
    return row;
}

void DtAttributeTable::reserveRows(size_t rows) {
    words_.reserve(words_.size() + rows * rowWords_);
}

uint64_t& DtAttributeTable::cell(uint32_t row, uint32_t slot) {
    uint64_t* words = rowWords(row);
    if (slot < HeadPresenceSlots) {
        words[0] |= uint64_t(1) << (HeadPresenceShift + slot);
    } else {
        const uint32_t past = slot - HeadPresenceSlots;
        words[1 + past / 64] |= uint64_t(1) << (past % 64);
    }
    return words[1 + presenceWords() + slot];
}

void DtAttributeTable::setInt(uint32_t row, uint32_t slot, int value) {
    cell(row, slot) = uint32_t(value);
}

void DtAttributeTable::setDouble(uint32_t row, uint32_t slot, double value) {
    std::memcpy(&cell(row, slot), &value, sizeof value);
}

void DtAttributeTable::setText(uint32_t row, uint32_t slot, const std::string* value) {
    cell(row, slot) = reinterpret_cast<uintptr_t>(value);
}

bool DtAttributeTable::has(uint32_t row, uint32_t slot) const {
    const uint64_t* words = rowWords(row);
    if (slot < HeadPresenceSlots)
        return (words[0] >> (HeadPresenceShift + slot)) & 1;
    const uint32_t past = slot - HeadPresenceSlots;
    return (words[1 + past / 64] >> (past % 64)) & 1;
}

int DtAttributeTable::intAt(uint32_t row, uint32_t slot) const {
    return int(uint32_t(rowWords(row)[1 + presenceWords() + slot]));
}

double DtAttributeTable::doubleAt(uint32_t row, uint32_t slot) const {
    double value;
    std::memcpy(&value, &rowWords(row)[1 + presenceWords() + slot], sizeof value);
    return value;
}

const std::string* DtAttributeTable::textAt(uint32_t row, uint32_t slot) const {
    return reinterpret_cast<const std::string*>(
        uintptr_t(rowWords(row)[1 + presenceWords() + slot]));
}

int DtAttributeTable::featureType(uint32_t row) const {
    return int(uint32_t(rowWords(row)[0]) & TypeBits);
}

bool DtAttributeTable::hasFid(uint32_t row) const {
    return (uint32_t(rowWords(row)[0]) & NoFid) == 0;
}

int DtAttributeTable::fid(uint32_t row) const {
    return int(uint32_t(rowWords(row)[0] >> 32));
}

// ------------------------------------------------------------------ DtNetworkAttributes

namespace {

const DtSymbolString& featureTypeName() {
    static const DtSymbolString name("DtFeatureType");
    return name;
}
const DtSymbolString& fidName() {
    static const DtSymbolString name("DtFidCode");
    return name;
}

}  // namespace

template <class Visit>
void DtNetworkAttributes::forEach(Visit&& visit) const {
    if (!table_)
        return;
    for (const DtAttributeTable::Column& column : table_->columns()) {
        if (!table_->has(row_, column.slot))
            continue;
        switch (column.type) {
            case DtNetworkAttribute::Integer:
                visit(DtNetworkAttribute(column.name, table_->intAt(row_, column.slot)));
                break;
            case DtNetworkAttribute::Double:
                visit(DtNetworkAttribute(column.name, table_->doubleAt(row_, column.slot)));
                break;
            default:
                visit(DtNetworkAttribute(column.name, table_->textAt(row_, column.slot)));
        }
    }
    visit(DtNetworkAttribute(featureTypeName(), table_->featureType(row_)));
    if (table_->hasFid(row_))
        visit(DtNetworkAttribute(fidName(), table_->fid(row_)));
}

const DtAttributeTable::Column* DtNetworkAttributes::find(const DtString& name, int type) const {
    if (!table_)
        return nullptr;
    for (const DtAttributeTable::Column& column : table_->columns()) {
        if (column.type == type && table_->has(row_, column.slot) &&
            column.name.string() == name.stdString())
            return &column;
    }
    return nullptr;
}

bool DtNetworkAttributes::getInt(const DtString& name, int& out) const {
    if (const DtAttributeTable::Column* column = find(name, DtNetworkAttribute::Integer)) {
        out = table_->intAt(row_, column->slot);
        return true;
    }
    // The two every row carries, after the columns as in the attribute list.
    if (table_ && name.stdString() == featureTypeName().string()) {
        out = table_->featureType(row_);
        return true;
    }
    if (table_ && table_->hasFid(row_) && name.stdString() == fidName().string()) {
        out = table_->fid(row_);
        return true;
    }
    return false;
}

bool DtNetworkAttributes::getDouble(const DtString& name, double& out) const {
    const DtAttributeTable::Column* column = find(name, DtNetworkAttribute::Double);
    if (column)
        out = table_->doubleAt(row_, column->slot);
    return column != nullptr;
}

bool DtNetworkAttributes::getString(const DtString& name, DtString& out) const {
    const DtAttributeTable::Column* column = find(name, DtNetworkAttribute::String);
    if (column) {
        const std::string* text = table_->textAt(row_, column->slot);
        out = DtString(text ? *text : std::string());
    }
    return column != nullptr;
}

std::vector<DtNetworkAttribute> DtNetworkAttributes::toVector() const {
    std::vector<DtNetworkAttribute> attributes;
    if (table_)
        attributes.reserve(table_->columns().size() + 2);
    forEach([&](const DtNetworkAttribute& attribute) { attributes.push_back(attribute); });
    return attributes;
}

namespace {

// Room for the attributes of a typical object, in the same allocation as the count that
// keeps them alive: a walk over a million nodes makes a million lists.
struct SmallAttributeBlock {
    static constexpr size_t Capacity = 16;
    // Not value-initialised by make_shared: the slots are written before they are read.
    SmallAttributeBlock() {}
    std::aligned_storage_t<sizeof(DtNetworkAttribute), alignof(DtNetworkAttribute)> items[Capacity];
};
static_assert(std::is_trivially_destructible_v<DtNetworkAttribute>,
              "attributes in a block are never destroyed one by one");

}  // namespace

DtList DtNetworkAttributes::attributeList() const {
    DtList list;
    if (!table_)
        return list;
    // The attributes are made for the list and live as long as it does.
    if (table_->columns().size() + 2 <= SmallAttributeBlock::Capacity) {
        auto block = std::make_shared<SmallAttributeBlock>();
        size_t used = 0;
        forEach([&](const DtNetworkAttribute& attribute) {
            list.add(new (&block->items[used++]) DtNetworkAttribute(attribute));
        });
        list.keep(std::move(block));
        return list;
    }
    auto attributes = std::make_shared<std::vector<DtNetworkAttribute>>(toVector());
    for (DtNetworkAttribute& attribute : *attributes)
        list.add(&attribute);
    list.keep(std::move(attributes));
    return list;
}

int DtNetworkAttributes::size() const {
    int count = 0;
    forEach([&](const DtNetworkAttribute&) { ++count; });
    return count;
}

// ------------------------------------------------------------------ nodes, edges, network

DtNetworkNode::DtNetworkNode(uint32_t id, const DtPoint& location)
    : location_(location), idAndFlags_(id & IdBits) {}

DtNetworkNode::EdgeIndices DtNetworkNode::connectedEdges() const {
    if (!hasEdges())
        return EdgeIndices(nullptr, nullptr);
    return EdgeIndices(link_.edges + 1, link_.edges + 1 + link_.edges[0]);
}

DtNetworkAttributes DtNetworkNode::attributes() const {
    return hasEdges() ? DtNetworkAttributes() : DtNetworkAttributes(link_.table, row_);
}

void DtNetworkNode::setAttributes(const DtNetworkAttributes& attributes) {
    idAndFlags_ &= ~HasEdges;
    link_.table = attributes.table_;
    row_ = attributes.row_;
}

void DtNetworkNode::setValid(bool valid) {
    idAndFlags_ = valid ? (idAndFlags_ & ~Invalid) : (idAndFlags_ | Invalid);
}

void DtNetworkNode::setEdges(const int* edges) {
    if (edges) {
        idAndFlags_ |= HasEdges;
        link_.edges = edges;
    } else if (hasEdges()) {
        idAndFlags_ &= ~HasEdges;
        link_.edges = nullptr;
    }
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

uint32_t DtVectorNetwork::takeId() {
    if (nextId_ > DtNetworkNode::IdBits)
        throw std::length_error("DtVectorNetwork: more objects than identifiers");
    return nextId_++;
}

DtNetworkNode& DtVectorNetwork::addNode(const DtPoint& location) {
    nodes_.emplace_back(takeId(), location);
    return nodes_.back();
}

DtNetworkEdge& DtVectorNetwork::addEdge() {
    edges_.emplace_back(takeId());
    return edges_.back();
}

void DtVectorNetwork::connectEdge(int node, int edge) {
    if (node < 0 || static_cast<size_t>(node) >= nodes_.size())
        throw std::out_of_range("DtVectorNetwork::connectEdge: no node " + std::to_string(node));
    if (nodes_[static_cast<size_t>(node)].attributes().size() > 0)
        throw std::logic_error("DtVectorNetwork::connectEdge: node " + std::to_string(node) +
                               " carries attributes and is no junction");
    connections_.push_back({static_cast<uint32_t>(node), edge});
}

void DtVectorNetwork::finishBuilding() {
    if (!connections_.empty()) {
        // What an earlier finish stored goes first, so each junction keeps its order.
        std::vector<Connection> all;
        all.reserve(junctionEdges_.size() + connections_.size());
        for (uint32_t n = 0; n < nodes_.size(); ++n)
            for (const int edge : nodes_[n].connectedEdges())
                all.push_back({n, edge});
        all.insert(all.end(), connections_.begin(), connections_.end());
        std::vector<Connection>().swap(connections_);
        std::stable_sort(all.begin(), all.end(),
                         [](const Connection& a, const Connection& b) { return a.node < b.node; });
        storeJunctionEdges(all);
    }
    nodes_.shrink_to_fit();
    edges_.shrink_to_fit();
    for (DtAttributeTable& table : tables_)
        table.shrinkToFit();
}

void DtVectorNetwork::storeJunctionEdges(const std::vector<Connection>& sorted) {
    size_t junctions = 0;
    for (size_t i = 0; i < sorted.size(); ++i)
        junctions += i == 0 || sorted[i].node != sorted[i - 1].node;
    for (DtNetworkNode& node : nodes_)
        node.setEdges(nullptr);
    // Reserved whole, the store never moves while nodes take pointers into it; moving the
    // vector afterwards keeps its buffer.
    std::vector<int> store;
    store.reserve(junctions + sorted.size());
    for (size_t i = 0; i < sorted.size();) {
        const uint32_t node = sorted[i].node;
        const size_t countAt = store.size();
        store.push_back(0);
        for (; i < sorted.size() && sorted[i].node == node; ++i)
            store.push_back(sorted[i].edge);
        store[countAt] = static_cast<int>(store.size() - countAt - 1);
        nodes_[node].setEdges(store.data() + countAt);
    }
    junctionEdges_ = std::move(store);
}

void DtVectorNetwork::reserveNodes(size_t nodes) {
    nodes_.reserve(nodes_.size() + nodes);
}

DtAttributeTable& DtVectorNetwork::addTable() {
    return tables_.emplace_back();
}

const std::string* DtVectorNetwork::internText(const std::string& text) {
    return &*texts_.insert(text).first;
}
