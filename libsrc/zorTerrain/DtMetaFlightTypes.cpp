#include "zorTerrain/DtMetaFlightTypes.h"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <type_traits>

#if defined(__SANITIZE_ADDRESS__)
#define ZOR_ARENA_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZOR_ARENA_POISONS 1
#endif
#endif
#ifdef ZOR_ARENA_POISONS
#include <sanitizer/asan_interface.h>
#endif

#include "zorTerrain/DtMetaFlightParser.h"

namespace kelZor {

using T = DtMetaFlightTypes;

namespace {

// The storage of the elements one parse makes. A document has tens of elements per
// kilobyte, each a small heap block of its own: taking them from a few large blocks
// spares the allocator most of its work, and spares it the many small free blocks it
// would have to merge again on the next large request. Elements still end one by one
// (their destructors run, their strings and containers go back at once); an arena's
// blocks go back when the last of its elements ends, from whichever thread that is.
class ElementArena {
public:
    ElementArena() = default;
    ElementArena(const ElementArena&) = delete;
    ElementArena& operator=(const ElementArena&) = delete;

    // Single-threaded: only the parse that opened the arena takes from it.
    void* take(size_t bytes, size_t alignment) {
        char* at = alignUp(at_, alignment);
        if (!at_ || at > end_ || bytes > static_cast<size_t>(end_ - at)) {
            addBlock(bytes + alignment);
            at = alignUp(at_, alignment);
        }
        at_ = at + bytes;
        ++taken_;
        return at;
    }

    void giveBack(void* storage, size_t bytes) {
#ifdef ZOR_ARENA_POISONS
        ASAN_POISON_MEMORY_REGION(storage, bytes);
#else
        (void)storage;
        (void)bytes;
#endif
        release();
    }

    // Ends the parse that opened the arena: from now on it lives while its elements do.
    void close() {
        release(openerHold - taken_);
    }

private:
    // While the arena is open, its opener holds it by a count larger than any number of
    // elements, so that elements ending meanwhile never bring it to zero, and each
    // element taken need not be counted with an atomic operation of its own: close
    // trades the hold for the number taken.
    static constexpr size_t openerHold = size_t(1) << 62;

    void release(size_t count = 1) {
        if (users_.fetch_sub(count, std::memory_order_acq_rel) == count)
            delete this;
    }

    struct Block {
        Block* previous;
        size_t size;
    };
    static constexpr size_t firstBlockBytes = 4096;
    static constexpr size_t largestBlockBytes = 64 * 1024 - 64;  // stays below mmap's threshold

    ~ElementArena() {
        while (last_) {
            Block* previous = last_->previous;
#ifdef ZOR_ARENA_POISONS
            ASAN_UNPOISON_MEMORY_REGION(last_, last_->size);
#endif
            std::free(last_);
            last_ = previous;
        }
    }

    static char* alignUp(char* at, size_t alignment) {
        const auto address = reinterpret_cast<uintptr_t>(at);
        return reinterpret_cast<char*>((address + alignment - 1) & ~(uintptr_t(alignment) - 1));
    }

    void addBlock(size_t atLeast) {
        size_t size = nextBlockBytes_;
        nextBlockBytes_ = std::min(nextBlockBytes_ * 2, largestBlockBytes);
        size = std::max(size, atLeast + sizeof(Block));
        auto* block = static_cast<Block*>(std::malloc(size));
        if (!block)
            throw std::bad_alloc();
        *block = Block{last_, size};
        last_ = block;
        at_ = reinterpret_cast<char*>(block + 1);
        end_ = reinterpret_cast<char*>(block) + size;
    }

    std::atomic<size_t> users_{openerHold};
    size_t taken_ = 0;  // by the opener's thread only
    Block* last_ = nullptr;
    char* at_ = nullptr;
    char* end_ = nullptr;
    size_t nextBlockBytes_ = firstBlockBytes;
};

// The arena of the parse running on this thread, if any.
thread_local ElementArena* currentArena = nullptr;

// Opens an arena for the outermost parse on its thread; nested parses share it.
class ArenaScope {
public:
    ArenaScope() : opened_(currentArena == nullptr) {
        if (opened_)
            currentArena = new ElementArena;
    }
    ~ArenaScope() {
        if (opened_) {
            ElementArena* arena = currentArena;
            currentArena = nullptr;
            arena->close();
        }
    }
    ArenaScope(const ArenaScope&) = delete;
    ArenaScope& operator=(const ArenaScope&) = delete;

private:
    bool opened_;
};

// What boost::allocate_shared keeps in each element's control block: copies cost nothing,
// each block taken holds the arena.
template <typename Value>
class ArenaAllocator {
public:
    using value_type = Value;
    explicit ArenaAllocator(ElementArena* arena) : arena_(arena) {}
    template <typename Other>
    ArenaAllocator(const ArenaAllocator<Other>& other) : arena_(other.arena()) {}  // NOLINT

    Value* allocate(size_t count) {
        return static_cast<Value*>(arena_->take(count * sizeof(Value), alignof(Value)));
    }
    void deallocate(Value* storage, size_t count) {
        arena_->giveBack(storage, count * sizeof(Value));
    }

    ElementArena* arena() const { return arena_; }
    template <typename Other>
    bool operator==(const ArenaAllocator<Other>& other) const {
        return arena_ == other.arena();
    }
    template <typename Other>
    bool operator!=(const ArenaAllocator<Other>& other) const {
        return arena_ != other.arena();
    }

private:
    ElementArena* arena_;
};

enum class TextReading { mayRead, readsNone };

// The steps of Element::parse. The elements the library makes while parsing are of its
// own classes, none of which reads text: for them the search of the children for a text,
// which walks them all when there is none, is skipped, as the call it decides would do
// nothing.
void walk(T::Element& element, DtMetaFlightParser& parser, TextReading text) {
    const ArenaScope arena;
    element.name = parser.currentElementNameOrGenerateUnique();
    if (text == TextReading::mayRead && parser.currentElementText())
        element.parseText(parser);
    if (!parser.readFirstChildElement())
        return;
    do {
        element.parseChild(parser);
    } while (parser.readNextElement());
    parser.readParentElement();
}

// Names and enumeration texts compare ASCII letters without case and every other byte
// exactly, whatever locale the host has set.
char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool equalsIgnoringAsciiCase(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b) {
        if (asciiLower(*a) != asciiLower(*b))
            return false;
    }
    return *a == *b;
}

// Exact comparison of two texts of the same length. Names are short: comparing them
// here, eight bytes at a time, costs less than the call to memcmp.
template <typename Word>
bool sameWord(const char* a, const char* b) {
    Word x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x == y;
}

bool sameBytes(const char* a, const char* b, size_t length) {
    if (length >= 8) {
        // Whole words, the last one overlapping the one before where the length asks.
        for (size_t at = 0; at + 8 < length; at += 8) {
            if (!sameWord<uint64_t>(a + at, b + at))
                return false;
        }
        return sameWord<uint64_t>(a + length - 8, b + length - 8);
    }
    if (length >= 4)
        return sameWord<uint32_t>(a, b) && sameWord<uint32_t>(a + length - 4, b + length - 4);
    for (; length > 0; ++a, ++b, --length) {
        if (*a != *b)
            return false;
    }
    return true;
}

// For texts of the same known length; documents mostly write names as the tables do, so
// the exact comparison answers first.
bool sameIgnoringAsciiCase(const char* a, const char* b, size_t length) {
    return sameBytes(a, b, length) || equalsIgnoringAsciiCase(a, b);
}

// A child's name as the tables write it, its length known at compile time.
struct ChildName {
    template <size_t N>
    constexpr ChildName(const char (&literal)[N]) : text(literal), length(N - 1) {}  // NOLINT
    const char* text;
    size_t length;
};

// Fills the member whose child name matches the cursor's element, by the member's kind.
// Each call answers whether it matched, so a class's table reads as one chain:
//   Child child(parser);
//   child("X", x) || child("Y", y);
class Child {
public:
    explicit Child(DtMetaFlightParser& parser)
        : parser_(parser),
          type_(parser.currentElementType()),
          typeLength_(type_ ? std::strlen(type_) : 0) {}

    template <typename Value>
    std::enable_if_t<std::is_arithmetic_v<Value> || std::is_same_v<Value, std::string>, bool>
    operator()(ChildName name, Value& member) {
        if (!is(name))
            return false;
        parser_.getCurrentElementValue(member);
        return true;
    }

    bool operator()(ChildName name, T::Enum& member) {
        if (!is(name))
            return false;
        if (const char* text = parser_.currentElementText())
            member.setFromString(text);
        return true;
    }

    template <typename Target>
    bool operator()(ChildName name, T::Reference<Target>& member) {
        if (!is(name))
            return false;
        if (const char* refTo = parser_.currentElementReference())
            member.refTo = refTo;
        return true;
    }

    // Nested element: starts afresh, so a second occurrence keeps nothing of the first.
    template <typename Nested>
    std::enable_if_t<std::is_base_of_v<T::Element, Nested>, bool> operator()(ChildName name,
                                                                             Nested& member) {
        if (!is(name))
            return false;
        member = Nested();
        walk(member, parser_, TextReading::readsNone);  // a member is exactly its own class
        return true;
    }

    template <typename Optional>
    bool operator()(ChildName name, boost::shared_ptr<Optional>& member) {
        if (!is(name))
            return false;
        member = parsed<Optional>();
        return true;
    }

    template <typename Repeated>
    bool operator()(ChildName name, std::vector<boost::shared_ptr<Repeated>>& member) {
        if (!is(name))
            return false;
        member.push_back(parsed<Repeated>());
        return true;
    }

    template <typename Named>
    bool operator()(ChildName name, std::map<std::string, boost::shared_ptr<Named>>& member) {
        if (!is(name))
            return false;
        boost::shared_ptr<Named> element = parsed<Named>();
        member.insert_or_assign(parser_.currentElementNameOrGenerateUnique(), std::move(element));
        return true;
    }

private:
    // A whole chain is tried on every child: the length and then the first letter turn
    // most names away at once, in tests small enough to inline into every link.
    __attribute__((always_inline)) bool is(ChildName name) const {
        return name.length == typeLength_ && type_ && sameStart(name) && matches(name);
    }
    bool sameStart(ChildName name) const {
        return asciiLower(type_[0]) == asciiLower(name.text[0]);
    }
    bool matches(ChildName name) const {
        return sameIgnoringAsciiCase(type_, name.text, name.length);
    }

    // Owned before it parses, so an exception out of parse loses nothing.
    template <typename Element>
    boost::shared_ptr<Element> parsed() {
        boost::shared_ptr<Element> element =
            boost::allocate_shared<Element>(ArenaAllocator<Element>(currentArena));
        walk(*element, parser_, TextReading::readsNone);  // made here, of exactly this class
        return element;
    }

    DtMetaFlightParser& parser_;
    const char* type_;
    size_t typeLength_;
};

// The texts of an enumeration, in the order of its numbers.
template <size_t N>
std::string enumText(const std::string_view (&texts)[N], int32_t value, const char* className) {
    if (value < 0 || static_cast<size_t>(value) >= N)
        throw T::EnumParseErrorException(className);
    return std::string(texts[value]);
}

template <typename Value, size_t N>
void enumFromText(const std::string_view (&texts)[N], const std::string& text, Value& value,
                  const char* className) {
    for (size_t i = 0; i < N; ++i) {
        if (text.size() == texts[i].size() &&
            sameIgnoringAsciiCase(texts[i].data(), text.c_str(), text.size())) {
            value = static_cast<Value>(i);
            return;
        }
    }
    throw T::EnumParseErrorException(className);
}

constexpr std::string_view tileTypeTexts[] = {"GROUP", "FILE_LOD_GEOM", "LOD_GEOM", "FILE_GROUP",
                                              "FILE_GEOM"};
constexpr std::string_view localizedTypeTexts[] = {"UNLOCALIZED", "LOCALIZED",
                                                   "LOCALIZED_DEPENDENT"};
constexpr std::string_view unitsCategoryTexts[] = {"ANGULAR_DISTANCE", "LINEAR_DISTANCE"};
constexpr std::string_view unitTypeTexts[] = {
    "METERS", "FEET",    "INCHES",  "KILOMETERS", "CENTIMETERS", "MILLIMETERS", "NAUTICAL_MILES",
    "MILES",  "DEGREES", "RADIANS", "MINUTES",    "SECONDS",     "ARCMINUTES",  "ARCSECONDS"};
constexpr std::string_view verticalDatumTexts[] = {"MSL", "WGS84_GEOID", "ELLIPSOID", "UNDEFINED"};
constexpr std::string_view geoTypeTexts[] = {"GEODETIC", "GEOCENTRIC"};
constexpr std::string_view hemisphereTexts[] = {"NORTH", "SOUTH"};
constexpr std::string_view hierarchyTypeTexts[] = {"ADDITIVE", "SUBSTITUTIVE",
                                                   "SPARSE_SUBSTITUTIVE"};
constexpr std::string_view pixelOriginTexts[] = {"LL_OPENGL_PIXELORIGIN_TYPE",
                                                 "UL_DIRECTX_PIXELORIGIN_TYPE",
                                                 "LR_PIXELORIGIN_TYPE", "UR_PIXELORIGIN_TYPE"};

}  // namespace

#define ZOR_ENUM_CLASS(Class, texts)                        \
    std::string T::Class::toString() const {                \
        return enumText(texts, value, #Class);              \
    }                                                       \
    void T::Class::setFromString(const std::string& text) { \
        enumFromText(texts, text, value, #Class);           \
    }

ZOR_ENUM_CLASS(TileType, tileTypeTexts)
ZOR_ENUM_CLASS(LocalizedType, localizedTypeTexts)
ZOR_ENUM_CLASS(UnitsCategory, unitsCategoryTexts)
ZOR_ENUM_CLASS(UnitType, unitTypeTexts)
ZOR_ENUM_CLASS(VerticalDatum, verticalDatumTexts)
ZOR_ENUM_CLASS(GeoType, geoTypeTexts)
ZOR_ENUM_CLASS(Hemisphere, hemisphereTexts)
ZOR_ENUM_CLASS(HierarchyType, hierarchyTypeTexts)
ZOR_ENUM_CLASS(PixelOrigin, pixelOriginTexts)
#undef ZOR_ENUM_CLASS

// ---------------------------------------------------------------------- Element

void T::Element::parse(DtMetaFlightParser& parser) {
    walk(*this, parser, TextReading::mayRead);
}

void T::Element::parseText(DtMetaFlightParser&) {}
void T::Element::parseChild(DtMetaFlightParser&) {}

// ---------------------------------------------------------------------- positions, ellipsoids

void T::Position::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("X", x) || child("Y", y) || child("Z", z);
}

void T::Position2D::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    child("X", x) || child("Y", y);
}

void T::Origin::parseChild(DtMetaFlightParser& parser) {
    Position2D::parseType(parser);
}
void T::Extent::parseChild(DtMetaFlightParser& parser) {
    Position2D::parseType(parser);
}

void T::BoundingBox::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("Min", min) || child("Max", max);
}

void T::Ellipsoid::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("SemiMajorRadius", semiMajorRadius) || child("SemiMinorRadius", semiMinorRadius) ||
        child("DatumShift", datumShift);
}

// ---------------------------------------------------------------------- coordinate systems

void T::CoordSysType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    child("UnitsCategory", unitsCategory) || child("HorizontalUnitType", horizontalUnitType) ||
        child("VerticalUnitType", verticalUnitType);
}

void T::NonGeoreferencedCoordSysType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!child("UpForwardAxis", upForwardAxis))
        CoordSysType::parseType(parser);
}

void T::NonGeoreferencedCoordSys::parseChild(DtMetaFlightParser& parser) {
    NonGeoreferencedCoordSysType::parseType(parser);
}

void T::NonProjectedCoordSysType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("VerticalDatum", verticalDatum) ||
          child("HorizontalDatumUsed", horizontalDatumUsed) || child("GeoType", geoType))) {
        CoordSysType::parseType(parser);
    }
}

void T::NonProjectedCoordSys::parseChild(DtMetaFlightParser& parser) {
    NonProjectedCoordSysType::parseType(parser);
}

void T::ProjectionType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    child("Description", description) || child("Source", source);
}

void T::StereographicProjType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("OriginLatitude", originLatitude) || child("OriginLongitude", originLongitude) ||
          child("ScaleLatitude", scaleLatitude) || child("ScaleK0", scaleK0))) {
        ProjectionType::parseType(parser);
    }
}

void T::AlbersEqualAreaConicProjType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("OriginLatitude", originLatitude) || child("OriginLongitude", originLongitude) ||
          child("LowerLatitude", lowerLatitude) || child("UpperLatitude", upperLatitude))) {
        ProjectionType::parseType(parser);
    }
}

void T::UTMProjType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("Zone", zone) || child("Hemisphere", hemisphere)))
        ProjectionType::parseType(parser);
}

void T::LambertConicConformalProjType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("OriginLatitude", originLatitude) || child("OriginLongitude", originLongitude) ||
          child("LowerLatitude", lowerLatitude) || child("UpperLatitude", upperLatitude))) {
        ProjectionType::parseType(parser);
    }
}

void T::FlatEarthProjType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("OriginLatitude", originLatitude) || child("OriginLongitude", originLongitude))) {
        ProjectionType::parseType(parser);
    }
}

void T::TrapezoidalType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("OriginLatitude", originLatitude) || child("OriginLongitude", originLongitude))) {
        ProjectionType::parseType(parser);
    }
}

void T::Stereographic::parseChild(DtMetaFlightParser& p) {
    StereographicProjType::parseType(p);
}
void T::AlbersEqualAreaConic::parseChild(DtMetaFlightParser& p) {
    AlbersEqualAreaConicProjType::parseType(p);
}
void T::UTM::parseChild(DtMetaFlightParser& p) {
    UTMProjType::parseType(p);
}
void T::LambertConicConformal::parseChild(DtMetaFlightParser& p) {
    LambertConicConformalProjType::parseType(p);
}
void T::FlatEarth::parseChild(DtMetaFlightParser& p) {
    FlatEarthProjType::parseType(p);
}
void T::Trapezoidal::parseChild(DtMetaFlightParser& p) {
    TrapezoidalType::parseType(p);
}

void T::ProjectedCoordSysType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("FalseOriginX", falseOriginX) || child("FalseOriginY", falseOriginY) ||
          child("FalseOriginZ", falseOriginZ) || child("VerticalDatum", verticalDatum) ||
          child("HorizontalDatumUsed", horizontalDatumUsed) ||
          child("Stereographic", stereographic) ||
          child("AlbersEqualAreaConic", albersEqualAreaConic) || child("UTM", uTM) ||
          child("LambertConicConformal", lambertConicConformal) || child("FlatEarth", flatEarth) ||
          child("Trapezoidal", trapezoidal))) {
        CoordSysType::parseType(parser);
    }
}

void T::ProjectedCoordSys::parseChild(DtMetaFlightParser& parser) {
    ProjectedCoordSysType::parseType(parser);
}

void T::Coverage::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("CoordSysUsed", coordSysUsed) || child("Origin", origin) || child("Extent", extent);
}

// ---------------------------------------------------------------------- grids, switch distances

void T::RGBColor::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("R", r) || child("G", g) || child("B", b);
}

void T::GridLevel::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("LevelName", levelName) || child("NumColDivisions", numColDivisions) ||
        child("NumRowDivisions", numRowDivisions) || child("RGBColor", rGBColor);
}

void T::GridStructure::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("NumLevels", numLevels) || child("StartingLevel", startingLevel) ||
        child("GridLevel", gridLevel);
}

void T::GridStack::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("GridStructureUsed", gridStructureUsed) || child("CoverageUsed", coverageUsed) ||
        child("FileNamePattern", fileNamePattern);
}

void T::SwitchDistance::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("Value", value);
}

void T::SwitchDistanceTable::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("SwitchDistance", switchDistance);
}

void T::GeometryGridLevel::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("TileType", tileType) || child("LocalizedType", localizedType) ||
        child("SwitchOut_DistanceUsed", switchOut_DistanceUsed) ||
        child("SwitchIn_DistanceUsed", switchIn_DistanceUsed);
}

// ---------------------------------------------------------------------- datasets

void T::DatasetType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    child("DatasetName", datasetName) || child("DatasetTitle", datasetTitle) ||
        child("Volume", volume) || child("RootPath", rootPath);
}

void T::GridDatasetType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("FileFormat", fileFormat) || child("CoordSysUsed", coordSysUsed) ||
          child("GridStack", gridStack))) {
        DatasetType::parseType(parser);
    }
}

void T::GeometryGridDatasetType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("HierarchyType", hierarchyType) ||
          child("SwitchDistanceTableUsed", switchDistanceTableUsed) ||
          child("GeometryGridLevel", geometryGridLevel))) {
        GridDatasetType::parseType(parser);
    }
}

void T::GeometryGridDataset::parseChild(DtMetaFlightParser& parser) {
    GeometryGridDatasetType::parseType(parser);
}

void T::ImageAttributes::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("NumComponents", numComponents) || child("BitsPerComponent", bitsPerComponent) ||
        child("ImageFormat", imageFormat);
}

void T::VirtualTextureDatasetType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!(child("ImageAttributes", imageAttributes) ||
          child("NumVirtualTexels", numVirtualTexels) || child("NumTileTexels", numTileTexels) ||
          child("SubstitutionTexture", substitutionTexture) || child("PixelOrigin", pixelOrigin))) {
        GridDatasetType::parseType(parser);
    }
}

void T::VirtualTextureDataset::parseChild(DtMetaFlightParser& parser) {
    VirtualTextureDatasetType::parseType(parser);
}

void T::Texture::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("FileName", fileName);
}

void T::Textures::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("Count", count) || child("Memory", memory) || child("FileSize", fileSize) ||
        child("Texture", texture);
}

void T::Model::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("FileName", fileName) || child("Description", description) ||
        child("CreationTime", creationTime) || child("ModificationTime", modificationTime) ||
        child("VersionMajor", versionMajor) || child("VersionMinor", versionMinor) ||
        child("FileSize", fileSize) || child("NumPolygons", numPolygons) ||
        child("NumTrianglesInHighLOD", numTrianglesInHighLOD) ||
        child("BoundingBox", boundingBox) || child("Textures", textures);
}

void T::ModelListDatasetType::parseType(DtMetaFlightParser& parser) {
    Child child(parser);
    if (!child("Model", model))
        DatasetType::parseType(parser);
}

void T::ModelListDataset::parseChild(DtMetaFlightParser& parser) {
    ModelListDatasetType::parseType(parser);
}

// ---------------------------------------------------------------------- Database

void T::Database::parseChild(DtMetaFlightParser& parser) {
    Child child(parser);
    child("Ellipsoid", ellipsoid) || child("ProjectedCoordSys", projectedCoordSys) ||
        child("NonProjectedCoordSys", nonProjectedCoordSys) ||
        child("NonGeoreferencedCoordSys", nonGeoreferencedCoordSys) ||
        child("GridStructure", gridStructure) || child("Coverage", coverage) ||
        child("SwitchDistanceTable", switchDistanceTable) ||
        child("VirtualTextureDataset", virtualTextureDataset) ||
        child("GeometryGridDataset", geometryGridDataset) ||
        child("ModelListDataset", modelListDataset);
}

namespace {

// The entry of `name`, else of the part of it behind its last ':'; null when neither.
template <typename Element>
boost::shared_ptr<Element> lookUp(const std::map<std::string, boost::shared_ptr<Element>>& map,
                                  const std::string& name) {
    auto found = map.find(name);
    if (found == map.end()) {
        const size_t colon = name.rfind(':');
        if (colon != std::string::npos)
            found = map.find(name.substr(colon + 1));
    }
    return found == map.end() ? boost::shared_ptr<Element>() : found->second;
}

template <typename Element>
void resolve(T::Reference<Element>& reference,
             const std::map<std::string, boost::shared_ptr<Element>>& map, const char* what) {
    reference.target = lookUp(map, reference.refTo);
    if (!reference.target) {
        throw T::EnumParseErrorException(std::string("Unable to find ") + what +
                                         " name=" + reference.refTo);
    }
}

void resolveCoordSys(T::Reference<T::CoordSysType>& reference, const T::Database& database) {
    reference.target = lookUp(database.projectedCoordSys, reference.refTo);
    if (!reference.target)
        reference.target = lookUp(database.nonProjectedCoordSys, reference.refTo);
    if (!reference.target) {
        reference.target = lookUp(database.nonGeoreferencedCoordSys, reference.refTo);
    }
    if (!reference.target) {
        throw T::EnumParseErrorException("Unable to find NonGeoreferencedCoordSys name=" +
                                         reference.refTo);
    }
}

void resolveGridStack(T::GridStack& stack, const T::Database& database) {
    resolve(stack.gridStructureUsed, database.gridStructure, "GridStructure");
    resolve(stack.coverageUsed, database.coverage, "Coverage");
}

}  // namespace

void T::Database::resolveReferences() {
    for (auto& entry : projectedCoordSys) {
        resolve(entry.second->horizontalDatumUsed, ellipsoid, "Ellipsoid");
    }
    for (auto& entry : nonProjectedCoordSys) {
        resolve(entry.second->horizontalDatumUsed, ellipsoid, "Ellipsoid");
    }
    for (auto& entry : coverage)
        resolveCoordSys(entry.second->coordSysUsed, *this);
    for (auto& entry : virtualTextureDataset) {
        resolveGridStack(entry.second->gridStack, *this);
        resolveCoordSys(entry.second->coordSysUsed, *this);
    }
    for (auto& entry : geometryGridDataset) {
        GeometryGridDataset& dataset = *entry.second;
        resolveGridStack(dataset.gridStack, *this);
        resolve(dataset.switchDistanceTableUsed, switchDistanceTable, "SwitchDistanceTable");
        const auto& distances = dataset.switchDistanceTableUsed.target->switchDistance;
        for (auto& level : dataset.geometryGridLevel) {
            resolve(level->switchOut_DistanceUsed, distances, "CurrentSwitchDistanceTable");
            resolve(level->switchIn_DistanceUsed, distances, "CurrentSwitchDistanceTable");
        }
        resolveCoordSys(dataset.coordSysUsed, *this);
    }
}

}  // namespace kelZor
