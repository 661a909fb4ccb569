#include "zorTerrain/DtTdbFeatureFieldValueReader.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbSceneLoad.h"

namespace kelZor {

namespace {

std::string intText(int value) {
    return DtString(value).stdString();
}
std::string doubleText(double value) {
    return DtString(value).stdString();
}

// The values of one walk, gathered before they go into the caller's map. A value met
// again is known by its raw form, so no text is made for it twice; the new ones of each
// field go into its set in sorted order, so that a field of a million distinct values
// (the FIDs) fills its set in one ordered pass instead of a million searches.
class ValueGatherer {
public:
    void add(const DtNetworkAttribute& attribute);
    void mergeInto(std::map<std::string, std::set<std::string>>& values);

private:
    // The last values seen, by hash: a field of few values is answered here.
    template <class T>
    class RecentValues {
    public:
        // True when `value` was seen; it is remembered either way.
        bool seen(T value, uint64_t hash) {
            // Mixed first: the doubles of whole numbers differ only in their high bits.
            hash ^= hash >> 33;
            hash *= 0xff51afd7ed558ccdULL;
            hash ^= hash >> 33;
            Slot& slot = slots_[(hash * 0x9e3779b97f4a7c15ULL) >> (64 - SlotBits)];
            if (slot.used && slot.value == value)
                return true;
            slot = {value, true};
            return false;
        }

    private:
        struct Slot {
            T value;
            bool used;
        };
        static constexpr int SlotBits = 10;  // a field of a thousand values fits
        Slot slots_[1 << SlotBits] = {};
    };

    struct Field {
        std::vector<int> integers;
        std::vector<uint64_t> doubles;  // by their bits
        std::vector<std::string> texts;
        RecentValues<int> recentIntegers;
        RecentValues<uint64_t> recentDoubles;
        std::unordered_set<std::string> seenTexts;
        bool other = false;
    };

    Field& field(const char* name);

    std::unordered_map<std::string, Field> fields_;
    // The field of each name pointer met so far: names repeat on every node.
    std::vector<std::pair<const char*, Field*>> byPointer_;
};

ValueGatherer::Field& ValueGatherer::field(const char* name) {
    for (const auto& [pointer, field] : byPointer_) {
        if (pointer == name)
            return *field;
    }
    Field& found = fields_[name];
    if (byPointer_.size() < 64)
        byPointer_.emplace_back(name, &found);
    return found;
}

void ValueGatherer::add(const DtNetworkAttribute& attribute) {
    Field& into = field(attribute.name().c_str());
    switch (attribute.type()) {
        case DtNetworkAttribute::Integer: {
            const int value = attribute.value();
            if (!into.recentIntegers.seen(value, uint32_t(value)))
                into.integers.push_back(value);
            break;
        }
        case DtNetworkAttribute::Double: {
            const double value = attribute.value();
            uint64_t bits;
            std::memcpy(&bits, &value, sizeof bits);
            if (!into.recentDoubles.seen(bits, bits))
                into.doubles.push_back(bits);
            break;
        }
        case DtNetworkAttribute::String: {
            std::string text = static_cast<DtString>(attribute.value()).stdString();
            if (into.seenTexts.insert(text).second)
                into.texts.push_back(std::move(text));
            break;
        }
        default:
            into.other = true;  // any other type lists as the empty text
    }
}

// Integers in the order of their decimal texts, as a number: the digits left-aligned to
// ten places ("10" after "1", before "2"), the shorter text first on a tie, negatives
// ("-" sorts before the digits) before the rest. Only speed rests on it: the set orders
// its texts itself, and a text out of this order is merely inserted the slow way.
uint64_t textOrderKey(int value) {
    const bool negative = value < 0;
    const uint64_t magnitude = negative ? uint64_t(-int64_t(value)) : uint64_t(value);
    uint64_t digits = 1, aligned = magnitude;
    for (uint64_t rest = magnitude; rest >= 10; rest /= 10)
        ++digits;
    for (uint64_t d = digits; d < 10; ++d)
        aligned *= 10;
    return (uint64_t(negative ? 0 : 1) << 63) | (aligned << 4) | digits;
}

int valueOfKey(uint64_t key) {
    uint64_t magnitude = (key & ~(uint64_t(1) << 63)) >> 4;
    for (uint64_t d = key & 15; d < 10; ++d)
        magnitude /= 10;
    return (key >> 63) ? int(magnitude) : int(-int64_t(magnitude));
}

void insertIntegers(const std::vector<int>& integers, std::set<std::string>& set) {
    std::vector<uint64_t> keys(integers.size());
    std::transform(integers.begin(), integers.end(), keys.begin(), textOrderKey);
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    for (const uint64_t key : keys)
        set.emplace_hint(set.end(), intText(valueOfKey(key)));
}

void ValueGatherer::mergeInto(std::map<std::string, std::set<std::string>>& values) {
    for (auto& [name, field] : fields_) {
        std::set<std::string>& set = values[name];
        insertIntegers(field.integers, set);
        std::sort(field.doubles.begin(), field.doubles.end());
        field.doubles.erase(std::unique(field.doubles.begin(), field.doubles.end()),
                            field.doubles.end());
        for (const uint64_t bits : field.doubles) {
            double value;
            std::memcpy(&value, &bits, sizeof value);
            field.texts.push_back(doubleText(value));
        }
        if (field.other)
            field.texts.emplace_back();
        std::sort(field.texts.begin(), field.texts.end());
        for (std::string& text : field.texts)
            set.emplace_hint(set.end(), std::move(text));
    }
}

}  // namespace

DtTdbFeatureFieldValueReader::DtTdbFeatureFieldValueReader(DtDe& de)
    : DtFeatureFieldValueReader(de) {}

DtTdbFeatureFieldValueReader::~DtTdbFeatureFieldValueReader() = default;

std::string DtTdbFeatureFieldValueReader::valueText(const DtNetworkAttribute& attribute) {
    switch (attribute.type()) {
        case DtNetworkAttribute::String:
            return static_cast<DtString>(attribute.value()).stdString();
        case DtNetworkAttribute::Integer:
            return intText(attribute.value());
        case DtNetworkAttribute::Double:
            return doubleText(attribute.value());
        default:
            return std::string();
    }
}

bool DtTdbFeatureFieldValueReader::readValuesFromFile(
    const std::string& filename, std::map<std::string, std::set<std::string>>& values) const {
    DtQuietLoader quiet;
    DtTdbManager manager;
    if (!loadIntoScene(de_, manager, filename, true, quiet, __PRETTY_FUNCTION__,
                       "DtTdbFeatureFieldValueReader::getFeatureFieldValuePairs - "
                       "loadFor3DVisualization Error: "))
        return false;
    // An elevation source loads without a network: it has no points to list.
    if (const DtVectorNetwork* network = manager.terrainDatabase()->vectorNetwork()) {
        ValueGatherer gathered;
        const int nodes = network->numNodes();
        for (int i = 0; i < nodes; ++i) {
            const DtNetworkNode* node = network->node(i);
            if (!node || !node->connectedEdges().empty())
                continue;
            const DtList attributes = node->attributes().attributeList();
            for (const DtListItem* item = attributes.first(); item; item = item->next()) {
                if (const auto* attribute = static_cast<const DtNetworkAttribute*>(item->data()))
                    gathered.add(*attribute);
            }
        }
        gathered.mergeInto(values);
    }
    return true;
}

}  // namespace kelZor
