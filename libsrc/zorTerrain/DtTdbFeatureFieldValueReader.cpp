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

    // Raw values as they come, duplicates the ring let through included; sorted and
    // thinned out whenever they have doubled, so a field of few values that keep
    // evicting each other from the ring holds about twice its values, not one per node.
    template <class T>
    struct RawValues {
        std::vector<T> values;
        size_t distinct = 0;
        void add(T value) {
            values.push_back(value);
            if (values.size() >= 2 * distinct + 65536) {
                std::sort(values.begin(), values.end());
                values.erase(std::unique(values.begin(), values.end()), values.end());
                distinct = values.size();
            }
        }
    };

    struct Field {
        RawValues<int> integers;
        RawValues<uint64_t> doubles;  // by their bits
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
                into.integers.add(value);
            break;
        }
        case DtNetworkAttribute::Double: {
            const double value = attribute.value();
            uint64_t bits;
            std::memcpy(&bits, &value, sizeof bits);
            if (!into.recentDoubles.seen(bits, bits))
                into.doubles.add(bits);
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

// Integers in the order of their decimal texts: negatives first ("-" sorts before the
// digits), then by the digits of the magnitude left-aligned to ten places ("10" after "1",
// before "2"), the shorter text first on a tie. Only speed rests on it: the set orders its
// texts itself, and a text out of this order is merely inserted the slow way.
//
// Sorted by value, the integers of one sign and one digit count stand in a run whose
// value order is their text order (negatives' backwards); the runs are merged by their
// aligned magnitudes. So no key is kept per value, and a field of a million distinct
// values (the FIDs) costs its set and nothing beside.
class TextOrderRuns {
public:
    // `sorted` is sorted by value, without repeats.
    explicit TextOrderRuns(const std::vector<int>& sorted) {
        size_t at = 0;
        while (at < sorted.size()) {
            const int digits = digitsOf(sorted[at]);
            const bool negative = sorted[at] < 0;
            size_t end = at;
            while (end < sorted.size() && digitsOf(sorted[end]) == digits &&
                   (sorted[end] < 0) == negative)
                ++end;
            runs_.push_back({sorted.data() + (negative ? end - 1 : at), static_cast<long>(end - at),
                             negative ? -1 : 1, digits, negative});
            at = end;
        }
    }

    // Calls `take(value)` for every value, in text order.
    template <typename Take>
    void forEach(Take take) {
        for (;;) {
            Run* next = nullptr;
            for (Run& run : runs_) {
                if (run.left > 0 && (!next || before(run, *next)))
                    next = &run;
            }
            if (!next)
                return;
            take(*next->at);
            next->at += next->step;
            --next->left;
        }
    }

private:
    struct Run {
        const int* at;
        long left;
        int step;
        int digits;
        bool negative;
    };

    static uint64_t magnitudeOf(int value) {
        return value < 0 ? uint64_t(-int64_t(value)) : uint64_t(value);
    }
    static int digitsOf(int value) {
        int digits = 1;
        for (uint64_t rest = magnitudeOf(value); rest >= 10; rest /= 10)
            ++digits;
        return digits;
    }
    static uint64_t aligned(const Run& run) {
        static const uint64_t scale[11] = {0,     1000000000, 100000000, 10000000, 1000000, 100000,
                                           10000, 1000,       100,       10,       1};
        return magnitudeOf(*run.at) * scale[run.digits];
    }
    static bool before(const Run& a, const Run& b) {
        if (a.negative != b.negative)
            return a.negative;
        const uint64_t x = aligned(a), y = aligned(b);
        return x != y ? x < y : a.digits < b.digits;
    }

    std::vector<Run> runs_;
};

// Uses up `integers`.
void insertIntegers(std::vector<int>& integers, std::set<std::string>& set) {
    std::sort(integers.begin(), integers.end());
    integers.erase(std::unique(integers.begin(), integers.end()), integers.end());
    TextOrderRuns(integers).forEach(
        [&set](int value) { set.emplace_hint(set.end(), intText(value)); });
    std::vector<int>().swap(integers);
}

void ValueGatherer::mergeInto(std::map<std::string, std::set<std::string>>& values) {
    // What the walk needed goes first, and each raw list as soon as the set holds it.
    byPointer_.clear();
    for (auto& [name, field] : fields_) {
        std::unordered_set<std::string>().swap(field.seenTexts);
        std::set<std::string>& set = values[name];
        insertIntegers(field.integers.values, set);
        std::vector<uint64_t>& doubles = field.doubles.values;
        std::sort(doubles.begin(), doubles.end());
        doubles.erase(std::unique(doubles.begin(), doubles.end()), doubles.end());
        for (const uint64_t bits : doubles) {
            double value;
            std::memcpy(&value, &bits, sizeof value);
            field.texts.push_back(doubleText(value));
        }
        std::vector<uint64_t>().swap(doubles);
        if (field.other)
            field.texts.emplace_back();
        std::sort(field.texts.begin(), field.texts.end());
        for (std::string& text : field.texts)
            set.emplace_hint(set.end(), std::move(text));
        std::vector<std::string>().swap(field.texts);
    }
}

void gatherFreePoints(const DtVectorNetwork& network, ValueGatherer& gathered) {
    const int nodes = network.numNodes();
    for (int i = 0; i < nodes; ++i) {
        const DtNetworkNode* node = network.node(i);
        if (!node || !node->connectedEdges().empty())
            continue;
        const DtList attributes = node->attributes().attributeList();
        for (const DtListItem* item = attributes.first(); item; item = item->next()) {
            if (const auto* attribute = static_cast<const DtNetworkAttribute*>(item->data()))
                gathered.add(*attribute);
        }
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
    ValueGatherer gathered;
    {
        DtTdbManager manager;
        if (!loadIntoScene(de_, manager, filename, true, quiet, __PRETTY_FUNCTION__,
                           "DtTdbFeatureFieldValueReader::getFeatureFieldValuePairs - "
                           "loadFor3DVisualization Error: "))
            return false;
        // An elevation source loads without a network: it has no points to list.
        if (const DtVectorNetwork* network = manager.terrainDatabase()->vectorNetwork())
            gatherFreePoints(*network, gathered);
    }
    // The loader and its network are gone before the answer grows: a file of a million
    // points never holds both at once.
    gathered.mergeInto(values);
    return true;
}

}  // namespace kelZor
