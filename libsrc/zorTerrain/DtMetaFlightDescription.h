// DtMetaFlightDescription: queries over one parsed MetaFlight document: its datasets,
// grid levels and coordinate systems, where each tile lies, and what each tile's file
// is called.
//
//   DtMetaFlightParser parser;
//   std::string error;
//   if (!parser.openFile("/data/terrain/terrain.mft", "", error)) fail(error);
//   DtMetaFlightDescription description;
//   description.parse(parser);  // throws EnumParseErrorException for a broken document
//   const std::string& key = description.geometryDatasetName(0);
//   double x, y, z;
//   description.geometryGridTileCenter(key, 3, 12, 7, x, y, z);
//   std::string path = description.generateGeometryGridTileFilename(key, 3, 12, 7);
//
// Datasets are named by their key (the element's "name"), levels by their index from
// 0. Failures are DtTemplatedException<-1> ("DtInvalidInput: Unable to find key",
// "... Index out of range.", "... Row out of range.") and DtTemplatedException<-3>
// ("DtCorruptedState: ...") for documents that contradict themselves.
//
// Positions in a geodetic system are latitude, longitude (radians) and altitude; in a
// document's Position2D of an angular system X is longitude and Y latitude in degrees.
//
// Threads: a description is used by one thread at a time (generateGeometryGridTileFilename
// keeps the last tile's variables in the object); separate descriptions may be used on
// separate threads. The static members may be called from any thread: generateFileName
// keeps the last pattern it read per thread.
#pragma once

#include <boost/shared_ptr.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "matrix/DtAngles.h"
#include "zorTerrain/DtMetaFlightTypes.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class DtMetaFlightParser;

class ZOR_TERRAIN_EXPORT DtMetaFlightDescription {
public:
    using Types = DtMetaFlightTypes;

    // A pattern variable: text or a number.
    struct StringOrInt {
        bool isString = false;
        std::string text;
        int32_t number = 0;

        StringOrInt() = default;
        StringOrInt(const std::string& value) : isString(true), text(value) {}
        StringOrInt(int32_t value) : number(value) {}
        StringOrInt& operator=(const std::string& value);
        StringOrInt& operator=(int32_t value);
    };

    DtMetaFlightDescription();
    ~DtMetaFlightDescription();
    DtMetaFlightDescription(const DtMetaFlightDescription&) = delete;
    DtMetaFlightDescription& operator=(const DtMetaFlightDescription&) = delete;

    // Replaces the document with the one under the cursor, and resolves its references.
    void parse(DtMetaFlightParser& parser);
    // Appends the document's directory, and the second file's when it is another file.
    void getPaths(std::vector<std::string>& paths);
    const Types::Database* database() const { return database_.get(); }

    // ---- geometry grid datasets
    unsigned int numberOfGeometryDatasets() const;
    const std::string& geometryDatasetName(int index) const;
    // The DatasetName child, which need not equal the key.
    const std::string& geometryDatasetName(const std::string& name) const;
    const std::string& geometryDatasetTitle(const std::string& name) const;
    const std::string& geometryDatasetFileFormat(const std::string& name) const;
    const std::string& geometryDatasetFileNamePattern(const std::string& name) const;
    boost::shared_ptr<Types::CoordSysType> geometryDatasetDataCoordinateSystem(
        const std::string& name) const;
    boost::shared_ptr<Types::CoordSysType> geometryDatasetGridCoordinateSystem(
        const std::string& name) const;
    const Types::HierarchyType& geometryDatasetGridHierarchyType(const std::string& name) const;
    const Types::Position2D& geometryDatasetOrigin(const std::string& name) const;
    const Types::Position2D& geometryDatasetExtent(const std::string& name) const;
    // Distance, in the data system's numbers, from the coverage's origin to its centre.
    double geometryDatasetRadius(const std::string& name) const;
    unsigned int numberOfGeometryGridLevels(const std::string& name) const;
    const std::string& geometryGridLevelName(const std::string& name, int level) const;
    unsigned int geometryGridLevelColDivisions(const std::string& name, int level) const;
    unsigned int geometryGridLevelRowDivisions(const std::string& name, int level) const;
    // Totals: the product of the divisions of levels 0 to `level`.
    unsigned int geometryGridLevelColumns(const std::string& name, int level) const;
    unsigned int geometryGridLevelRows(const std::string& name, int level) const;
    Types::TileType geometryGridLevelTileType(const std::string& name, int level) const;
    double geometryGridLevelSwitchIn(const std::string& name, int level) const;
    double geometryGridLevelSwitchOut(const std::string& name, int level) const;
    // The centre of a tile, in the data coordinate system.
    void geometryGridTileCenter(const std::string& name, unsigned int level, unsigned int row,
                                unsigned int col, double& x, double& y, double& z) const;
    // The origin the tile's geometry is relative to, by the level's LocalizedType.
    void geometryGridTileOffset(const std::string& name, unsigned int level, unsigned int row,
                                unsigned int col, double& x, double& y, double& z) const;
    // The tile's file: the document's directory and its expanded FileNamePattern; the
    // directory alone, with "/", when the pattern cannot be expanded.
    std::string generateGeometryGridTileFilename(const std::string& name, int level,
                                                 unsigned int row, unsigned int col);

    // ---- virtual texture datasets
    unsigned int numberOfVirtualTextureDatasets() const;
    const std::string& virtualTextureDatasetName(int index) const;
    const std::string& virtualTextureDatasetTitle(const std::string& name) const;
    const std::string& virtualTextureDatasetFileFormat(const std::string& name) const;
    const std::string& virtualTextureDatasetFileNamePattern(const std::string& name) const;
    boost::shared_ptr<Types::CoordSysType> virtualTextureCoordinateSystem(
        const std::string& name) const;
    unsigned int virtualTextureDatasetTileTexels(const std::string& name) const;
    const std::string& virtualTextureDatasetSubstitutionTextureName(const std::string& name) const;
    Types::Position2D virtualTextureDatasetOrigin(const std::string& name) const;
    Types::Position2D virtualTextureDatasetExtent(const std::string& name) const;
    // Origin and extent converted into `target`, which must not be empty.
    Types::Position2D virtualTextureDatasetOrigin(
        const std::string& name, const boost::shared_ptr<Types::CoordSysType>& target) const;
    Types::Position2D virtualTextureDatasetExtent(
        const std::string& name, const boost::shared_ptr<Types::CoordSysType>& target) const;
    unsigned int numberOfVirtualTextureGridLevels(const std::string& name) const;
    const std::string& virtualTextureGridLevelName(const std::string& name, int level) const;
    unsigned int virtualTextureGridLevelColDivisions(const std::string& name, int level) const;
    unsigned int virtualTextureGridLevelRowDivisions(const std::string& name, int level) const;
    unsigned int virtualTextureGridLevelColumns(const std::string& name, int level) const;
    unsigned int virtualTextureGridLevelRows(const std::string& name, int level) const;
    std::string generateVirtualTextureFileName(const std::string& name, int level, unsigned int row,
                                               unsigned int col) const;
    const std::string& virtualTexturePath() const { return virtualTextureFileName_; }
    // The document's file, as the parser named it.
    const std::string& fileName() const { return fileName_; }

    // Moves a position from `source` to `destination` in place, through geocentric
    // coordinates. Serves geodetic, geocentric, UTM and flat earth systems; any other
    // pairing throws DtTemplatedException<-3> before anything is written.
    static void convertPosition(boost::shared_ptr<Types::CoordSysType> source,
                                boost::shared_ptr<Types::CoordSysType> destination, double& x,
                                double& y, double& z);

    // Expands $(NAME) references; the literal text before each is its printf format. The
    // language is DtTilePathGenerator's (its static members), which names a whole level
    // faster.
    // Empty for a pattern that cannot be expanded: an unclosed reference, an unknown
    // variable, or a format that is unsafe or does not fit the variable (more than one
    // conversion, %n, *, a conversion of the wrong kind, an expansion of 2048
    // characters or more).
    static std::string generateFileName(const std::string& pattern,
                                        const std::map<std::string, StringOrInt>& variables);

    // Checks a reference's formatting as generateFileName does; on success `format` is
    // the printf format to use for a value of that kind.
    static bool checkedFormat(const std::string& formatting, bool textValue, std::string& format);

protected:
    static void setDtDegMinSecFromDegrees(DtDegMinSec& value, double degrees);
    static void setLatDtDegMinSecFromDegrees(DtDegMinSec& value, double degrees);
    static void setLonDtDegMinSecFromDegrees(DtDegMinSec& value, double degrees);

private:
    const Types::GeometryGridDataset& geometryDataset(const std::string& name) const;
    const Types::VirtualTextureDataset& virtualTextureDataset(const std::string& name) const;
    const Types::GridLevel& geometryGridLevel(const std::string& name, int level) const;
    const Types::GeometryGridLevel& geometryLevel(const std::string& name, int level) const;
    const Types::GridLevel& virtualTextureGridLevel(const std::string& name, int level) const;

    std::string fileName_;
    std::string virtualTextureFileName_;
    std::unique_ptr<Types::Database> database_;

    // The variables of the last geometry tile's dataset and level, and what its path
    // needs of the document's file: consecutive tiles then differ by ROW and COL only.
    struct TileNameCache;
    std::unique_ptr<TileNameCache> tileNames_;
};

}  // namespace kelZor
