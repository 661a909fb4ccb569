// The query facade over a parsed document, in one file because it is one class read in
// the order of its header: lookups, tile geometry, conversions and tile names. The
// pattern language of the names lives in DtTilePathGenerator.cpp.
#include "zorTerrain/DtMetaFlightDescription.h"

#include <boost/pointer_cast.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <typeinfo>

#include "hxutil/DtException.h"
#include "matrix/DtGeodeticCoord.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtTilePathGenerator.h"
#include "zorUtil/DtCoordinateConverter.h"
#include "zorUtil/DtZorFilesystem.h"
#include "zorUtil/templateUtil.h"

namespace kelZor {

using Types = DtMetaFlightTypes;
using CoordSys = boost::shared_ptr<Types::CoordSysType>;

namespace {

bool isAngular(const Types::CoordSysType& system) {
    return system.unitsCategory.value == Types::UnitsCategory::ANGULAR_DISTANCE;
}

// A level's columns or rows: the product of the divisions of levels 0 to `level`, as
// an unsigned 32-bit product. The level itself is asked first, so a level past the
// vector fails before any other. The grid structure's levels are walked directly, a
// multiplication each, so a level's total costs its depth and no lookup per level.
template <typename Levels, typename Divisions>
unsigned int productOfDivisions(const Levels& levels, int level, Divisions divisionsOf) {
    unsigned int product = divisionsOf(*findByIndexOrThrow(levels, level));
    for (int above = level - 1; above >= 0; --above)
        product *= divisionsOf(*levels[static_cast<size_t>(above)]);
    return product;
}

// ---------------------------------------------------------------- conversion

enum class Kind { Geodetic, Geocentric, Utm, FlatEarth, Unsupported };

// The kind of a system, with the projected element when it has one; casts the raw
// pointer, so no shared ownership changes hands on this hot path.
// The element a system is, when it is one of `Element`'s kind. The exact type answers
// first: a cross cast through the multiple inheritance of the elements walks their whole
// hierarchy, a cost a tile centre pays twice otherwise.
template <typename Element>
const Element* asElement(const Types::CoordSysType* system) {
    if (system && typeid(*system) == typeid(Element))
        return static_cast<const Element*>(system);
    return dynamic_cast<const Element*>(system);
}

Kind kindOf(const Types::CoordSysType* system, const Types::ProjectedCoordSys*& projected) {
    const bool nonProjectedExactly =
        system && typeid(*system) == typeid(Types::NonProjectedCoordSys);
    projected = nonProjectedExactly ? nullptr : asElement<Types::ProjectedCoordSys>(system);
    if (projected) {
        if (projected->uTM)
            return Kind::Utm;
        if (projected->flatEarth)
            return Kind::FlatEarth;
        return Kind::Unsupported;
    }
    if (const auto* nonProjected = asElement<Types::NonProjectedCoordSys>(system)) {
        switch (nonProjected->geoType.value) {
            case Types::GeoType::GEODETIC:
                return Kind::Geodetic;
            case Types::GeoType::GEOCENTRIC:
                return Kind::Geocentric;
        }
    }
    return Kind::Unsupported;
}

// The converter of a conversion: always with the document's false origin, zero or not.
// (The header parser answers a document without one: DtMetaFlightHeaderParser.cpp.)
DtUtmCoordinateConverter conversionUtmConverter(const Types::ProjectedCoordSys& projected) {
    const char hemisphere = projected.uTM->hemisphere.value == Types::Hemisphere::NORTH ? 'N' : 'S';
    DtUtmCoordinateConverter converter;
    converter.init(projected.falseOriginX, projected.falseOriginY, projected.falseOriginZ,
                   static_cast<long>(projected.uTM->zone), hemisphere, true);
    return converter;
}

DtFlatEarthCoordinateConverter flatEarthConverterOf(const Types::ProjectedCoordSys& projected) {
    DtFlatEarthCoordinateConverter converter;
    converter.init(DtDeg2Rad(projected.flatEarth->originLatitude),
                   DtDeg2Rad(projected.flatEarth->originLongitude));
    return converter;
}

DtVector64 toGeocentric(Kind kind, const Types::ProjectedCoordSys* system,
                        const DtVector64& position) {
    DtVector64 geocentric = position;
    switch (kind) {
        case Kind::Geodetic:
            return DtGeodeticCoord(position.x(), position.y(), position.z(), DtGlobalEllipsoid())
                .geocentric();
        case Kind::Utm:
            conversionUtmConverter(*system).cigToGeoc(position, geocentric);
            break;
        case Kind::FlatEarth:
            flatEarthConverterOf(*system).cigToGeoc(position, geocentric);
            break;
        default:
            break;
    }
    return geocentric;
}

// Between two systems through geocentric, as convertPosition does, on raw pointers: a
// tile centre is asked millions of times and shares no ownership.
void convertBetween(const Types::CoordSysType* source, const Types::CoordSysType* destination,
                    double& x, double& y, double& z);

DtVector64 fromGeocentric(Kind kind, const Types::ProjectedCoordSys* system,
                          const DtVector64& geocentric) {
    DtVector64 result = geocentric;
    switch (kind) {
        case Kind::Geodetic: {
            DtGeodeticCoord geodetic(DtGlobalEllipsoid());
            geodetic.setGeocentric(geocentric);
            return DtVector64(geodetic.lat(), geodetic.lon(), geodetic.alt());
        }
        case Kind::Utm:
            conversionUtmConverter(*system).geocToCig(geocentric, result);
            break;
        case Kind::FlatEarth:
            flatEarthConverterOf(*system).geocToCig(geocentric, result);
            break;
        default:
            break;
    }
    return result;
}

}  // namespace

// ---------------------------------------------------------------- StringOrInt

DtMetaFlightDescription::StringOrInt& DtMetaFlightDescription::StringOrInt::operator=(
    const std::string& value) {
    isString = true;
    text = value;
    return *this;
}

DtMetaFlightDescription::StringOrInt& DtMetaFlightDescription::StringOrInt::operator=(
    int32_t value) {
    isString = false;
    number = value;
    return *this;
}

// ---------------------------------------------------------------- life

struct DtMetaFlightDescription::TileNameCache {
    const Types::GeometryGridDataset* dataset = nullptr;
    int level = -1;
    std::map<std::string, StringOrInt> variables;
    StringOrInt* row = nullptr;
    StringOrInt* col = nullptr;
    DtTilePathGenerator::PathContext context;
};

DtMetaFlightDescription::DtMetaFlightDescription() : database_(new Types::Database()) {}
DtMetaFlightDescription::~DtMetaFlightDescription() = default;

void DtMetaFlightDescription::parse(DtMetaFlightParser& parser) {
    tileNames_.reset();
    database_.reset();
    database_.reset(new Types::Database());
    database_->parse(parser);
    database_->resolveReferences();
    fileName_ = parser.fileName();
    virtualTextureFileName_ = parser.virtualTextureFileName();
}

void DtMetaFlightDescription::getPaths(std::vector<std::string>& paths) {
    paths.push_back(DtZorFilesystem::directoryOfPath(fileName_));
    if (virtualTextureFileName_ != fileName_) {
        paths.push_back(DtZorFilesystem::directoryOfPath(virtualTextureFileName_));
    }
}

// ---------------------------------------------------------------- lookups

const Types::GeometryGridDataset& DtMetaFlightDescription::geometryDataset(
    const std::string& name) const {
    return *findOrThrow(database_->geometryGridDataset, std::string(name));
}

const Types::VirtualTextureDataset& DtMetaFlightDescription::virtualTextureDataset(
    const std::string& name) const {
    return *findOrThrow(database_->virtualTextureDataset, std::string(name));
}

const Types::GridLevel& DtMetaFlightDescription::geometryGridLevel(const std::string& name,
                                                                   int level) const {
    const Types::GridStructure& grid = *geometryDataset(name).gridStack.gridStructureUsed.target;
    return *findByIndexOrThrow(grid.gridLevel, level);
}

const Types::GeometryGridLevel& DtMetaFlightDescription::geometryLevel(const std::string& name,
                                                                       int level) const {
    return *findByIndexOrThrow(geometryDataset(name).geometryGridLevel, level);
}

const Types::GridLevel& DtMetaFlightDescription::virtualTextureGridLevel(const std::string& name,
                                                                         int level) const {
    const Types::GridStructure& grid =
        *virtualTextureDataset(name).gridStack.gridStructureUsed.target;
    return *findByIndexOrThrow(grid.gridLevel, level);
}

// ---------------------------------------------------------------- geometry datasets

unsigned int DtMetaFlightDescription::numberOfGeometryDatasets() const {
    return static_cast<unsigned int>(database_->geometryGridDataset.size());
}

const std::string& DtMetaFlightDescription::geometryDatasetName(int index) const {
    return findByIndexOrThrow(database_->geometryGridDataset, index)->name;
}

const std::string& DtMetaFlightDescription::geometryDatasetName(const std::string& name) const {
    return geometryDataset(name).datasetName;
}

const std::string& DtMetaFlightDescription::geometryDatasetTitle(const std::string& name) const {
    return geometryDataset(name).datasetTitle;
}

const std::string& DtMetaFlightDescription::geometryDatasetFileFormat(
    const std::string& name) const {
    return geometryDataset(name).fileFormat;
}

const std::string& DtMetaFlightDescription::geometryDatasetFileNamePattern(
    const std::string& name) const {
    return geometryDataset(name).gridStack.fileNamePattern;
}

CoordSys DtMetaFlightDescription::geometryDatasetDataCoordinateSystem(
    const std::string& name) const {
    return geometryDataset(name).coordSysUsed.target;
}

CoordSys DtMetaFlightDescription::geometryDatasetGridCoordinateSystem(
    const std::string& name) const {
    return geometryDataset(name).gridStack.coverageUsed.target->coordSysUsed.target;
}

const Types::HierarchyType& DtMetaFlightDescription::geometryDatasetGridHierarchyType(
    const std::string& name) const {
    return geometryDataset(name).hierarchyType;
}

const Types::Position2D& DtMetaFlightDescription::geometryDatasetOrigin(
    const std::string& name) const {
    return geometryDataset(name).gridStack.coverageUsed.target->origin;
}

const Types::Position2D& DtMetaFlightDescription::geometryDatasetExtent(
    const std::string& name) const {
    return geometryDataset(name).gridStack.coverageUsed.target->extent;
}

double DtMetaFlightDescription::geometryDatasetRadius(const std::string& name) const {
    const Types::GeometryGridDataset& dataset = geometryDataset(name);
    const Types::Coverage& coverage = *dataset.gridStack.coverageUsed.target;
    const CoordSys grid = coverage.coordSysUsed.target;
    double a[3] = {coverage.origin.x, coverage.origin.y, 0.0};
    double b[3] = {coverage.origin.x + coverage.extent.x / 2.0,
                   coverage.origin.y + coverage.extent.y / 2.0, 0.0};
    for (double* point : {a, b}) {
        if (isAngular(*grid)) {
            const double longitude = point[0];
            point[0] = DtDeg2Rad(point[1]);
            point[1] = DtDeg2Rad(longitude);
        }
    }
    convertPosition(grid, dataset.coordSysUsed.target, a[0], a[1], a[2]);
    convertPosition(grid, dataset.coordSysUsed.target, b[0], b[1], b[2]);
    const double dx = b[0] - a[0], dy = b[1] - a[1], dz = b[2] - a[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

unsigned int DtMetaFlightDescription::numberOfGeometryGridLevels(const std::string& name) const {
    return static_cast<unsigned int>(geometryDataset(name).geometryGridLevel.size());
}

const std::string& DtMetaFlightDescription::geometryGridLevelName(const std::string& name,
                                                                  int level) const {
    return geometryGridLevel(name, level).levelName;
}

unsigned int DtMetaFlightDescription::geometryGridLevelColDivisions(const std::string& name,
                                                                    int level) const {
    return geometryGridLevel(name, level).numColDivisions;
}

unsigned int DtMetaFlightDescription::geometryGridLevelRowDivisions(const std::string& name,
                                                                    int level) const {
    return geometryGridLevel(name, level).numRowDivisions;
}

unsigned int DtMetaFlightDescription::geometryGridLevelColumns(const std::string& name,
                                                               int level) const {
    return productOfDivisions(geometryDataset(name).gridStack.gridStructureUsed.target->gridLevel,
                              level, [](const Types::GridLevel& g) { return g.numColDivisions; });
}

unsigned int DtMetaFlightDescription::geometryGridLevelRows(const std::string& name,
                                                            int level) const {
    return productOfDivisions(geometryDataset(name).gridStack.gridStructureUsed.target->gridLevel,
                              level, [](const Types::GridLevel& g) { return g.numRowDivisions; });
}

Types::TileType DtMetaFlightDescription::geometryGridLevelTileType(const std::string& name,
                                                                   int level) const {
    return geometryLevel(name, level).tileType;
}

double DtMetaFlightDescription::geometryGridLevelSwitchIn(const std::string& name,
                                                          int level) const {
    return geometryLevel(name, level).switchIn_DistanceUsed.target->value;
}

double DtMetaFlightDescription::geometryGridLevelSwitchOut(const std::string& name,
                                                           int level) const {
    return geometryLevel(name, level).switchOut_DistanceUsed.target->value;
}

void DtMetaFlightDescription::geometryGridTileCenter(const std::string& name, unsigned int level,
                                                     unsigned int row, unsigned int col, double& x,
                                                     double& y, double& z) const {
    // One lookup of the dataset serves the whole question.
    const Types::GeometryGridDataset& dataset = geometryDataset(name);
    const Types::Coverage& coverage = *dataset.gridStack.coverageUsed.target;
    const Types::Position2D origin = coverage.origin;
    const Types::Position2D extent = coverage.extent;
    const Types::GridStructure& structure = *dataset.gridStack.gridStructureUsed.target;
    const int levelIndex = static_cast<int>(level);
    const unsigned int rows =
        productOfDivisions(structure.gridLevel, levelIndex,
                           [](const Types::GridLevel& g) { return g.numRowDivisions; });
    const unsigned int columns =
        productOfDivisions(structure.gridLevel, levelIndex,
                           [](const Types::GridLevel& g) { return g.numColDivisions; });
    if (row >= rows)
        ZOR_THROW_INVALID_INPUT("Row out of range.");
    if (col >= columns)
        ZOR_THROW_INVALID_INPUT("Row out of range.");
    const double spacingX = extent.x / columns;
    const double spacingY = extent.y / rows;
    const double centerX = origin.x + spacingX * (col + 1.0) - spacingX / 2.0;
    const double centerY = origin.y + spacingY * (row + 1.0) - spacingY / 2.0;
    const CoordSys& grid = coverage.coordSysUsed.target;
    if (isAngular(*grid)) {
        x = DtDeg2Rad(centerY);
        y = DtDeg2Rad(centerX);
    } else {
        x = centerX;
        y = centerY;
    }
    z = 0.0;
    convertBetween(grid.get(), dataset.coordSysUsed.target.get(), x, y, z);
}

void DtMetaFlightDescription::geometryGridTileOffset(const std::string& name, unsigned int level,
                                                     unsigned int row, unsigned int col, double& x,
                                                     double& y, double& z) const {
    const int levelIndex = static_cast<int>(level);
    switch (geometryLevel(name, levelIndex).localizedType.value) {
        case Types::LocalizedType::UNLOCALIZED:
            x = y = z = 0.0;
            return;
        case Types::LocalizedType::LOCALIZED:
            geometryGridTileCenter(name, level, row, col, x, y, z);
            return;
        case Types::LocalizedType::LOCALIZED_DEPENDENT:
            break;
    }
    int ancestor = levelIndex - 1;
    unsigned int rowFactor = geometryGridLevelRowDivisions(name, levelIndex);
    unsigned int colFactor = geometryGridLevelColDivisions(name, levelIndex);
    while (ancestor >= 0) {
        if (geometryLevel(name, ancestor).localizedType.value == Types::LocalizedType::LOCALIZED)
            break;
        rowFactor *= geometryGridLevelRowDivisions(name, ancestor);
        colFactor *= geometryGridLevelColDivisions(name, ancestor);
        --ancestor;
    }
    if (ancestor < 0)
        ZOR_THROW_CORRUPTED_STATE("Metaflight Corrupt, top level can't be LOCALIZED DEPENDENT");
    // A level that divides by 0 has no tiles at all.
    if (rowFactor == 0 || colFactor == 0)
        ZOR_THROW_INVALID_INPUT("Row out of range.");
    geometryGridTileCenter(name, static_cast<unsigned int>(ancestor), row / rowFactor,
                           col / colFactor, x, y, z);
}

// ---------------------------------------------------------------- virtual texture datasets

unsigned int DtMetaFlightDescription::numberOfVirtualTextureDatasets() const {
    return static_cast<unsigned int>(database_->virtualTextureDataset.size());
}

const std::string& DtMetaFlightDescription::virtualTextureDatasetName(int index) const {
    return findByIndexOrThrow(database_->virtualTextureDataset, index)->name;
}

const std::string& DtMetaFlightDescription::virtualTextureDatasetTitle(
    const std::string& name) const {
    return virtualTextureDataset(name).datasetTitle;
}

const std::string& DtMetaFlightDescription::virtualTextureDatasetFileFormat(
    const std::string& name) const {
    return virtualTextureDataset(name).fileFormat;
}

const std::string& DtMetaFlightDescription::virtualTextureDatasetFileNamePattern(
    const std::string& name) const {
    return virtualTextureDataset(name).gridStack.fileNamePattern;
}

CoordSys DtMetaFlightDescription::virtualTextureCoordinateSystem(const std::string& name) const {
    return virtualTextureDataset(name).coordSysUsed.target;
}

unsigned int DtMetaFlightDescription::virtualTextureDatasetTileTexels(
    const std::string& name) const {
    return virtualTextureDataset(name).numTileTexels;
}

const std::string& DtMetaFlightDescription::virtualTextureDatasetSubstitutionTextureName(
    const std::string& name) const {
    return virtualTextureDataset(name).substitutionTexture;
}

Types::Position2D DtMetaFlightDescription::virtualTextureDatasetOrigin(
    const std::string& name) const {
    return virtualTextureDataset(name).gridStack.coverageUsed.target->origin;
}

Types::Position2D DtMetaFlightDescription::virtualTextureDatasetExtent(
    const std::string& name) const {
    return virtualTextureDataset(name).gridStack.coverageUsed.target->extent;
}

Types::Position2D DtMetaFlightDescription::virtualTextureDatasetOrigin(
    const std::string& name, const CoordSys& target) const {
    const Types::Coverage& coverage = *virtualTextureDataset(name).gridStack.coverageUsed.target;
    const CoordSys grid = coverage.coordSysUsed.target;
    double x = coverage.origin.x, y = coverage.origin.y, z = 0.0;
    if (isAngular(*grid)) {
        x = DtDeg2Rad(coverage.origin.y);
        y = DtDeg2Rad(coverage.origin.x);
    }
    convertPosition(grid, target, x, y, z);
    Types::Position2D result;
    if (isAngular(*target)) {
        result.x = DtRad2Deg(y);
        result.y = DtRad2Deg(x);
    } else {
        result.x = x;
        result.y = y;
    }
    return result;
}

Types::Position2D DtMetaFlightDescription::virtualTextureDatasetExtent(
    const std::string& name, const CoordSys& target) const {
    const Types::Coverage& coverage = *virtualTextureDataset(name).gridStack.coverageUsed.target;
    const CoordSys grid = coverage.coordSysUsed.target;
    double oX = coverage.origin.x, oY = coverage.origin.y;
    double eX = coverage.extent.x, eY = coverage.extent.y;
    if (isAngular(*grid)) {
        oX = DtDeg2Rad(coverage.origin.y);
        oY = DtDeg2Rad(coverage.origin.x);
        eX = DtDeg2Rad(coverage.extent.y);
        eY = DtDeg2Rad(coverage.extent.x);
    }
    double ux = oX + eX / 2.0, uy = oY + eY / 2.0, uz = 0.0;
    convertPosition(grid, target, ux, uy, uz);
    double lx = oX - eX / 2.0, ly = oY - eY / 2.0, lz = 0.0;
    convertPosition(grid, target, lx, ly, lz);
    const double sizeX = std::fabs(ux - lx);
    const double sizeY = std::fabs(uy - ly);
    Types::Position2D result;
    if (isAngular(*target)) {
        result.x = DtRad2Deg(sizeY);
        result.y = DtRad2Deg(sizeX);
    } else {
        result.x = sizeX;
        result.y = sizeY;
    }
    return result;
}

unsigned int DtMetaFlightDescription::numberOfVirtualTextureGridLevels(
    const std::string& name) const {
    return virtualTextureDataset(name).gridStack.gridStructureUsed.target->numLevels;
}

const std::string& DtMetaFlightDescription::virtualTextureGridLevelName(const std::string& name,
                                                                        int level) const {
    return virtualTextureGridLevel(name, level).levelName;
}

unsigned int DtMetaFlightDescription::virtualTextureGridLevelColDivisions(const std::string& name,
                                                                          int level) const {
    return virtualTextureGridLevel(name, level).numColDivisions;
}

unsigned int DtMetaFlightDescription::virtualTextureGridLevelRowDivisions(const std::string& name,
                                                                          int level) const {
    return virtualTextureGridLevel(name, level).numRowDivisions;
}

unsigned int DtMetaFlightDescription::virtualTextureGridLevelColumns(const std::string& name,
                                                                     int level) const {
    return productOfDivisions(
        virtualTextureDataset(name).gridStack.gridStructureUsed.target->gridLevel, level,
        [](const Types::GridLevel& g) { return g.numColDivisions; });
}

unsigned int DtMetaFlightDescription::virtualTextureGridLevelRows(const std::string& name,
                                                                  int level) const {
    return productOfDivisions(
        virtualTextureDataset(name).gridStack.gridStructureUsed.target->gridLevel, level,
        [](const Types::GridLevel& g) { return g.numRowDivisions; });
}

// ---------------------------------------------------------------- conversion

void DtMetaFlightDescription::convertPosition(CoordSys source, CoordSys destination, double& x,
                                              double& y, double& z) {
    convertBetween(source.get(), destination.get(), x, y, z);
}

namespace {

void convertBetween(const Types::CoordSysType* source, const Types::CoordSysType* destination,
                    double& x, double& y, double& z) {
    const Types::ProjectedCoordSys* projectedSource = nullptr;
    const Types::ProjectedCoordSys* projectedDestination = nullptr;
    const Kind from = kindOf(source, projectedSource);
    const Kind to = kindOf(destination, projectedDestination);
    if (from == Kind::Unsupported || to == Kind::Unsupported) {
        ZOR_THROW_CORRUPTED_STATE("Unsupported Database Coordinate System");
    }
    if (from == to)
        return;
    const DtVector64 geocentric = toGeocentric(from, projectedSource, DtVector64(x, y, z));
    const DtVector64 result = fromGeocentric(to, projectedDestination, geocentric);
    x = result.x();
    y = result.y();
    z = result.z();
}

}  // namespace

void DtMetaFlightDescription::setDtDegMinSecFromDegrees(DtDegMinSec& value, double degrees) {
    double whole, minutes, seconds;
    if (degrees < 0) {
        whole = std::ceil(degrees);
        const double f = 60.0 * (degrees - whole);
        minutes = std::ceil(f);
        seconds = 60.0 * (f - minutes);
        whole = std::fabs(whole);
        minutes = std::fabs(minutes);
        seconds = std::fabs(seconds);
    } else {
        whole = std::floor(degrees);
        const double f = 60.0 * (degrees - whole);
        minutes = std::floor(f);
        seconds = 60.0 * (f - minutes);
    }
    value.setDegrees(whole);
    value.setMinutes(minutes);
    value.setSeconds(seconds);
}

void DtMetaFlightDescription::setLatDtDegMinSecFromDegrees(DtDegMinSec& value, double degrees) {
    setDtDegMinSecFromDegrees(value, degrees);
    value.setHemisphere(degrees >= 0 ? DtDegMinSec::North : DtDegMinSec::South);
}

void DtMetaFlightDescription::setLonDtDegMinSecFromDegrees(DtDegMinSec& value, double degrees) {
    setDtDegMinSecFromDegrees(value, degrees);
    value.setHemisphere(degrees >= 0 ? DtDegMinSec::East : DtDegMinSec::West);
}

// ---------------------------------------------------------------- file names

bool DtMetaFlightDescription::checkedFormat(const std::string& formatting, bool textValue,
                                            std::string& format) {
    DtTilePathGenerator::Format checked;
    if (!DtTilePathGenerator::parseFormat(formatting, textValue, checked))
        return false;
    format = checked.printfFormat;
    return true;
}

namespace {

// A pattern read once: its references with their formatting, and the text behind the
// last. The format of a reference is checked for each kind of value it meets.
struct ParsedPattern {
    struct Reference {
        DtTilePathGenerator::Reference text;
        int checked[2] = {-1, -1};  // per kind (number, text): -1 unknown, 0 refused, 1 fine
        DtTilePathGenerator::Format format[2];
    };
    std::string pattern;
    bool unclosed = false;  // a "$(" without ")": nothing can be expanded
    std::vector<Reference> references;
    std::string tail;

    explicit ParsedPattern(const std::string& text) : pattern(text) {
        std::vector<DtTilePathGenerator::Reference> split;
        unclosed = !DtTilePathGenerator::splitPattern(text, split, tail);
        references.resize(split.size());
        for (size_t i = 0; i < split.size(); ++i)
            references[i].text = std::move(split[i]);
    }
};

}  // namespace

std::string DtMetaFlightDescription::generateFileName(
    const std::string& pattern, const std::map<std::string, StringOrInt>& variables) {
    // Tile after tile comes with the same pattern: it is read again only when it changes.
    thread_local std::unique_ptr<ParsedPattern> last;
    if (!last || last->pattern != pattern)
        last.reset(new ParsedPattern(pattern));
    ParsedPattern& parsed = *last;
    if (parsed.unclosed)
        return std::string();
    std::string result;
    for (ParsedPattern::Reference& reference : parsed.references) {
        const auto variable = variables.find(reference.text.variable);
        if (variable == variables.end())
            return std::string();
        const StringOrInt& value = variable->second;
        const int kind = value.isString ? 1 : 0;
        if (reference.checked[kind] < 0) {
            reference.checked[kind] =
                DtTilePathGenerator::parseFormat(reference.text.formatting, value.isString,
                                                 reference.format[kind])
                    ? 1
                    : 0;
        }
        if (!reference.checked[kind] ||
            !DtTilePathGenerator::append(result, reference.format[kind], value)) {
            return std::string();
        }
    }
    result += parsed.tail;
    return result;
}

std::string DtMetaFlightDescription::generateGeometryGridTileFilename(const std::string& name,
                                                                      int level, unsigned int row,
                                                                      unsigned int col) {
    // The lookups run on every call, so each failure is raised as without the cache.
    const Types::GeometryGridDataset& dataset = geometryDataset(name);
    const std::string& levelName = geometryGridLevelName(name, level);
    if (!tileNames_)
        tileNames_.reset(new TileNameCache());
    TileNameCache& cache = *tileNames_;
    if (cache.dataset != &dataset || cache.level != level) {
        cache.variables.clear();
        cache.variables["LEVELNAME"] = levelName;
        cache.variables["DSNAME"] = dataset.datasetName;
        cache.variables["DSTITLE"] = dataset.datasetTitle;
        cache.variables["FILEFORMAT"] = dataset.fileFormat;
        cache.variables["LEVEL"] = static_cast<int32_t>(level);
        cache.row = &cache.variables["ROW"];
        cache.col = &cache.variables["COL"];
        cache.dataset = &dataset;
        cache.level = level;
    }
    *cache.col = static_cast<int32_t>(col);
    *cache.row = static_cast<int32_t>(row);
    if (cache.context.sourceFile != fileName_ || cache.context.prefix.empty()) {
        cache.context = DtTilePathGenerator::pathContext(fileName_);
    }
    return DtTilePathGenerator::composePath(
        cache.context, generateFileName(dataset.gridStack.fileNamePattern, cache.variables));
}

std::string DtMetaFlightDescription::generateVirtualTextureFileName(const std::string& name,
                                                                    int level, unsigned int row,
                                                                    unsigned int col) const {
    std::map<std::string, StringOrInt> variables;
    variables["LEVELNAME"] = virtualTextureGridLevelName(name, level);
    variables["DSNAME"] = name;
    variables["DSTITLE"] = virtualTextureDatasetTitle(name);
    variables["FILEFORMAT"] = virtualTextureDatasetFileFormat(name);
    variables["LEVEL"] = static_cast<int32_t>(level);
    variables["COL"] = static_cast<int32_t>(col);
    variables["ROW"] = static_cast<int32_t>(row);
    const int32_t texels = static_cast<int32_t>(1u << (static_cast<unsigned>(level) & 31u));
    variables["NUMTEXELSX"] = texels;
    variables["NUMTEXELSY"] = texels;
    return DtTilePathGenerator::composePath(
        virtualTextureFileName_,
        generateFileName(virtualTextureDatasetFileNamePattern(name), variables));
}

}  // namespace kelZor
