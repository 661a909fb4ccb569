#include "zorTerrain/DtMetaFlightTypes.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "zorTerrain/DtMetaFlightArena.h"
#include "zorTerrain/DtMetaFlightNames.h"
#include "zorTerrain/DtMetaFlightParser.h"

namespace kelZor {

using T = DtMetaFlightTypes;
using metaflight::ArenaAllocator;
using metaflight::ArenaScope;
using metaflight::asciiLower;
using metaflight::currentArena;
using metaflight::sameIgnoringAsciiCase;

namespace {

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
