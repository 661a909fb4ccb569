// DtMetaFlightTypes: the MetaFlight terrain description format as C++ structures. One
// nested struct per XML element; each reads itself from a DtMetaFlightParser cursor and
// recognises its children by name, ignoring the case of ASCII letters and any child it
// does not know. Links between elements are names ("refTo") until
// Database::resolveReferences turns them into shared pointers.
//
//   DtMetaFlightParser parser;
//   std::string error;
//   if (parser.openFile(path, "", error)) {
//       DtMetaFlightTypes::Database database;
//       database.parse(parser);
//       database.resolveReferences();  // throws EnumParseErrorException on a dangling name
//   }
//
// Nothing is required while parsing: an absent child leaves its default, text that is
// no number reads as 0. An unknown enumeration text throws EnumParseErrorException.
//
// The elements one parse makes share their storage, which goes back when the last of them
// ends (from any thread); each element's own strings and containers go back with it.
#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <exception>
#include <map>
#include <string>
#include <vector>

#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class DtMetaFlightParser;

class ZOR_TERRAIN_EXPORT DtMetaFlightTypes {
public:
    // ------------------------------------------------------------------ framework

    class ZOR_TERRAIN_EXPORT EnumParseErrorException : public std::exception {
    public:
        explicit EnumParseErrorException(const std::string& message) : message_(message) {}
        const char* what() const noexcept override { return message_.c_str(); }

    private:
        std::string message_;
    };

    // Base of every element. The cursor stands on the element when parse starts and
    // again when it returns; parseChild runs once per child element, in document order.
    // Elements are the format's public structs, concrete and copyable, with a public
    // destructor that is not virtual (their virtual table is the format's): each is
    // destroyed as its own class, owned by a shared_ptr made from its concrete type or
    // held as a member, never deleted through an Element*.
    struct ZOR_TERRAIN_EXPORT Element {
        std::string name;

        virtual void parse(DtMetaFlightParser& parser);
        virtual void parseText(DtMetaFlightParser& parser);
        virtual void parseChild(DtMetaFlightParser& parser);
    };

    // A closed vocabulary: each subclass holds a 32-bit `value` and its table of texts.
    struct ZOR_TERRAIN_EXPORT Enum {
        virtual ~Enum() = default;
        // Throws EnumParseErrorException (the class's name) for a value off the table.
        virtual std::string toString() const = 0;
        // Whole text, ASCII case ignored, no trimming; throws EnumParseErrorException
        // (the class's name) and keeps the value for a text off the table.
        virtual void setFromString(const std::string& text) = 0;
    };

    template <typename T>
    struct Reference {
        std::string refTo;
        boost::shared_ptr<T> target;
    };

    // ------------------------------------------------------------------ enumerations

    struct ZOR_TERRAIN_EXPORT TileType : Enum {
        enum Value : int32_t { GROUP, FILE_LOD_GEOM, LOD_GEOM, FILE_GROUP, FILE_GEOM };
        Value value = GROUP;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT LocalizedType : Enum {
        enum Value : int32_t { UNLOCALIZED, LOCALIZED, LOCALIZED_DEPENDENT };
        Value value = UNLOCALIZED;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT UnitsCategory : Enum {
        enum Value : int32_t { ANGULAR_DISTANCE, LINEAR_DISTANCE };
        Value value = ANGULAR_DISTANCE;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT UnitType : Enum {
        enum Value : int32_t {
            METERS,
            FEET,
            INCHES,
            KILOMETERS,
            CENTIMETERS,
            MILLIMETERS,
            NAUTICAL_MILES,
            MILES,
            DEGREES,
            RADIANS,
            MINUTES,
            SECONDS,
            ARCMINUTES,
            ARCSECONDS
        };
        Value value = METERS;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT VerticalDatum : Enum {
        enum Value : int32_t { MSL, WGS84_GEOID, ELLIPSOID, UNDEFINED };
        Value value = MSL;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT GeoType : Enum {
        enum Value : int32_t { GEODETIC, GEOCENTRIC };
        Value value = GEODETIC;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT Hemisphere : Enum {
        enum Value : int32_t { NORTH, SOUTH };
        Value value = NORTH;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT HierarchyType : Enum {
        enum Value : int32_t { ADDITIVE, SUBSTITUTIVE, SPARSE_SUBSTITUTIVE };
        Value value = ADDITIVE;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };
    struct ZOR_TERRAIN_EXPORT PixelOrigin : Enum {
        enum Value : int32_t {
            LL_OPENGL_PIXELORIGIN_TYPE,
            UL_DIRECTX_PIXELORIGIN_TYPE,
            LR_PIXELORIGIN_TYPE,
            UR_PIXELORIGIN_TYPE
        };
        Value value = LL_OPENGL_PIXELORIGIN_TYPE;
        std::string toString() const override;
        void setFromString(const std::string& text) override;
    };

    // ------------------------------------------------------------------ positions, ellipsoids

    struct ZOR_TERRAIN_EXPORT Position : Element {
        double x = 0.0;
        double y = 0.0;
        double z = 0.0;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    // In an angular system X is longitude and Y latitude, in degrees.
    struct ZOR_TERRAIN_EXPORT Position2D {
        double x = 0.0;
        double y = 0.0;
        void parseType(DtMetaFlightParser& parser);
    };

    // The corner of a coverage with the smallest X and Y.
    struct ZOR_TERRAIN_EXPORT Origin : Element, Position2D {
        void parseChild(DtMetaFlightParser& parser) override;
    };
    // The size of a coverage along X and Y.
    struct ZOR_TERRAIN_EXPORT Extent : Element, Position2D {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT BoundingBox : Element {
        Position min;
        Position max;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT Ellipsoid : Element {
        double semiMajorRadius = 0.0;
        double semiMinorRadius = 0.0;
        Position datumShift;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    // ------------------------------------------------------------------ coordinate systems

    struct ZOR_TERRAIN_EXPORT CoordSysType {
        virtual ~CoordSysType() = default;
        UnitsCategory unitsCategory;
        UnitType horizontalUnitType;
        UnitType verticalUnitType;
        void parseType(DtMetaFlightParser& parser);
    };

    struct ZOR_TERRAIN_EXPORT NonGeoreferencedCoordSysType : CoordSysType {
        std::string upForwardAxis;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT NonGeoreferencedCoordSys : Element, NonGeoreferencedCoordSysType {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT NonProjectedCoordSysType : CoordSysType {
        VerticalDatum verticalDatum;
        Reference<Ellipsoid> horizontalDatumUsed;
        GeoType geoType;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT NonProjectedCoordSys : Element, NonProjectedCoordSysType {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT ProjectionType {
        std::string description;
        std::string source;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT StereographicProjType : ProjectionType {
        double originLatitude = 0.0;
        double originLongitude = 0.0;
        double scaleLatitude = 0.0;
        double scaleK0 = 0.0;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT AlbersEqualAreaConicProjType : ProjectionType {
        double originLatitude = 0.0;
        double originLongitude = 0.0;
        double lowerLatitude = 0.0;
        double upperLatitude = 0.0;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT UTMProjType : ProjectionType {
        unsigned int zone = 0;
        Hemisphere hemisphere;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT LambertConicConformalProjType : ProjectionType {
        double originLatitude = 0.0;
        double originLongitude = 0.0;
        double lowerLatitude = 0.0;
        double upperLatitude = 0.0;
        void parseType(DtMetaFlightParser& parser);
    };
    // Origin in degrees.
    struct ZOR_TERRAIN_EXPORT FlatEarthProjType : ProjectionType {
        double originLatitude = 0.0;
        double originLongitude = 0.0;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT TrapezoidalType : ProjectionType {
        double originLatitude = 0.0;
        double originLongitude = 0.0;
        void parseType(DtMetaFlightParser& parser);
    };

    struct ZOR_TERRAIN_EXPORT Stereographic : Element, StereographicProjType {
        void parseChild(DtMetaFlightParser& parser) override;
    };
    struct ZOR_TERRAIN_EXPORT AlbersEqualAreaConic : Element, AlbersEqualAreaConicProjType {
        void parseChild(DtMetaFlightParser& parser) override;
    };
    struct ZOR_TERRAIN_EXPORT UTM : Element, UTMProjType {
        void parseChild(DtMetaFlightParser& parser) override;
    };
    struct ZOR_TERRAIN_EXPORT LambertConicConformal : Element, LambertConicConformalProjType {
        void parseChild(DtMetaFlightParser& parser) override;
    };
    struct ZOR_TERRAIN_EXPORT FlatEarth : Element, FlatEarthProjType {
        void parseChild(DtMetaFlightParser& parser) override;
    };
    struct ZOR_TERRAIN_EXPORT Trapezoidal : Element, TrapezoidalType {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    // The projection is whichever pointer is set; readers test UTM, then FlatEarth.
    struct ZOR_TERRAIN_EXPORT ProjectedCoordSysType : CoordSysType {
        double falseOriginX = 0.0;
        double falseOriginY = 0.0;
        double falseOriginZ = 0.0;
        VerticalDatum verticalDatum;
        Reference<Ellipsoid> horizontalDatumUsed;
        boost::shared_ptr<Stereographic> stereographic;
        boost::shared_ptr<AlbersEqualAreaConic> albersEqualAreaConic;
        boost::shared_ptr<UTM> uTM;
        boost::shared_ptr<LambertConicConformal> lambertConicConformal;
        boost::shared_ptr<FlatEarth> flatEarth;
        boost::shared_ptr<Trapezoidal> trapezoidal;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT ProjectedCoordSys : Element, ProjectedCoordSysType {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT Coverage : Element {
        Reference<CoordSysType> coordSysUsed;
        Origin origin;
        Extent extent;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    // ------------------------------------------------------------------ grids and switch distances

    struct ZOR_TERRAIN_EXPORT RGBColor : Element {
        unsigned int r = 0;
        unsigned int g = 0;
        unsigned int b = 0;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT GridLevel : Element {
        std::string levelName;
        unsigned int numColDivisions = 1;
        unsigned int numRowDivisions = 1;
        RGBColor rGBColor;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT GridStructure : Element {
        unsigned int numLevels = 0;
        unsigned int startingLevel = 0;
        std::vector<boost::shared_ptr<GridLevel>> gridLevel;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT GridStack : Element {
        Reference<GridStructure> gridStructureUsed;
        Reference<Coverage> coverageUsed;
        std::string fileNamePattern;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT SwitchDistance : Element {
        // The format always gives a value; without one the distance is 0.
        double value = 0.0;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT SwitchDistanceTable : Element {
        std::map<std::string, boost::shared_ptr<SwitchDistance>> switchDistance;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT GeometryGridLevel : Element {
        TileType tileType;
        LocalizedType localizedType;
        Reference<SwitchDistance> switchOut_DistanceUsed;
        Reference<SwitchDistance> switchIn_DistanceUsed;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    // ------------------------------------------------------------------ datasets

    struct ZOR_TERRAIN_EXPORT DatasetType {
        std::string datasetName;
        std::string datasetTitle;
        std::string volume;
        std::string rootPath;
        void parseType(DtMetaFlightParser& parser);
    };

    // A grid dataset: its data coordinate system (coordSysUsed) and the grid that cuts
    // it, whose coverage has the grid coordinate system.
    struct ZOR_TERRAIN_EXPORT GridDatasetType : DatasetType {
        std::string fileFormat;
        Reference<CoordSysType> coordSysUsed;
        GridStack gridStack;
        void parseType(DtMetaFlightParser& parser);
    };

    struct ZOR_TERRAIN_EXPORT GeometryGridDatasetType : GridDatasetType {
        HierarchyType hierarchyType;
        Reference<SwitchDistanceTable> switchDistanceTableUsed;
        std::vector<boost::shared_ptr<GeometryGridLevel>> geometryGridLevel;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT GeometryGridDataset : Element, GeometryGridDatasetType {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT ImageAttributes : Element {
        unsigned int numComponents = 1;
        unsigned int bitsPerComponent = 8;
        std::string imageFormat;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT VirtualTextureDatasetType : GridDatasetType {
        ImageAttributes imageAttributes;
        unsigned int numVirtualTexels = 0;
        unsigned int numTileTexels = 512;
        std::string substitutionTexture;
        PixelOrigin pixelOrigin;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT VirtualTextureDataset : Element, VirtualTextureDatasetType {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT Texture : Element {
        std::string fileName;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT Textures : Element {
        int count = 0;
        int memory = 0;
        int fileSize = 0;
        std::vector<boost::shared_ptr<Texture>> texture;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT Model : Element {
        std::string fileName;
        std::string description;
        std::string creationTime;
        std::string modificationTime;
        int versionMajor = 1;
        int versionMinor = 2;
        int fileSize = 0;
        int numPolygons = 0;
        int numTrianglesInHighLOD = 0;
        boost::shared_ptr<BoundingBox> boundingBox;
        boost::shared_ptr<Textures> textures;
        void parseChild(DtMetaFlightParser& parser) override;
    };

    struct ZOR_TERRAIN_EXPORT ModelListDatasetType : DatasetType {
        std::vector<boost::shared_ptr<Model>> model;
        void parseType(DtMetaFlightParser& parser);
    };
    struct ZOR_TERRAIN_EXPORT ModelListDataset : Element, ModelListDatasetType {
        void parseChild(DtMetaFlightParser& parser) override;
    };

    // ------------------------------------------------------------------ root

    // The root of a document: every top-level element in a map by name (or by a
    // generated key when it has none).
    struct ZOR_TERRAIN_EXPORT Database : Element {
        std::map<std::string, boost::shared_ptr<Ellipsoid>> ellipsoid;
        std::map<std::string, boost::shared_ptr<ProjectedCoordSys>> projectedCoordSys;
        std::map<std::string, boost::shared_ptr<NonProjectedCoordSys>> nonProjectedCoordSys;
        std::map<std::string, boost::shared_ptr<NonGeoreferencedCoordSys>> nonGeoreferencedCoordSys;
        std::map<std::string, boost::shared_ptr<GridStructure>> gridStructure;
        std::map<std::string, boost::shared_ptr<Coverage>> coverage;
        std::map<std::string, boost::shared_ptr<SwitchDistanceTable>> switchDistanceTable;
        std::map<std::string, boost::shared_ptr<VirtualTextureDataset>> virtualTextureDataset;
        std::map<std::string, boost::shared_ptr<GeometryGridDataset>> geometryGridDataset;
        std::map<std::string, boost::shared_ptr<ModelListDataset>> modelListDataset;

        void parseChild(DtMetaFlightParser& parser) override;
        // Turns every reference's name into its target, in five passes: projected and
        // non-projected systems' ellipsoids, coverages' systems, virtual texture
        // datasets, geometry datasets with their levels' switch distances. The first
        // name that finds nothing throws EnumParseErrorException naming it; what was
        // resolved before stays resolved.
        virtual void resolveReferences();
    };
};

}  // namespace kelZor
