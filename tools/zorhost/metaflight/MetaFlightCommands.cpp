// zorhost's MetaFlight module: describe, tiles, check, convert and publish over the
// plug-in's exported MetaFlight library, with the text and JSON each prints. Kept in one
// file while the module is one shared object whose commands share the document's load
// and its level walk; the commands' text moves to the command line's own files when
// each command gets its room there.
#include "MetaFlightCommands.h"

#include <libxml/parser.h>
#include <sys/stat.h>
#include <boost/pointer_cast.hpp>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "GeoJsonWriter.h"
#include "JsonOutput.h"
#include "LevelGrids.h"
#include "OutputFile.h"
#include "Progress.h"
#include "TextNumbers.h"
#include "TileCheck.h"
#include "TileFootprints.h"
#include "hxutil/DtException.h"
#include "hxutil/DtString.h"
#include "matrix/DtAngles.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtTilePathGenerator.h"

using kelZor::DtMetaFlightDescription;
using kelZor::DtMetaFlightParser;
using Types = kelZor::DtMetaFlightTypes;
using CoordSys = boost::shared_ptr<Types::CoordSysType>;

namespace {

// Why a path is no document to open, or "".
std::string pathProblem(const std::string& path) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0)
        return errno == ENOENT ? "no such file" : std::string("cannot be read: ") + strerror(errno);
    if (S_ISDIR(info.st_mode))
        return "is a directory, not a MetaFlight document";
    return "";
}

// Loads and resolves a document; false with the loader's or the exception's message, or
// (with `grids`) the first level whose grid cannot be walked.
bool load(const std::string& path, DtMetaFlightParser& parser, DtMetaFlightDescription& description,
          std::ostream& err, bool grids = true) {
    const std::string problem = pathProblem(path);
    if (!problem.empty()) {
        err << "zorhost: " << path << ": " << problem << "\n";
        return false;
    }
    std::string error;
    if (!parser.openFile(path, "", error)) {
        while (!error.empty() && error.back() == '\n')
            error.pop_back();
        err << "zorhost: " << path << ": " << error << "\n";
        return false;
    }
    try {
        description.parse(parser);
    } catch (const std::exception& e) {
        err << "zorhost: " << path << ": " << e.what() << "\n";
        return false;
    }
    if (const std::string grid = grids ? gridProblem(description) : ""; !grid.empty()) {
        err << "zorhost: " << path << ": " << grid << "\n";
        return false;
    }
    return true;
}

std::string elementName(const CoordSys& system) {
    const auto* element = dynamic_cast<const Types::Element*>(system.get());
    return element ? element->name : std::string();
}

// What a person calls the kind of a coordinate system.
std::string kindOf(const CoordSys& system) {
    if (auto projected = boost::dynamic_pointer_cast<Types::ProjectedCoordSys>(system)) {
        if (projected->uTM) {
            return "UTM zone " + std::to_string(projected->uTM->zone) +
                   (projected->uTM->hemisphere.value == Types::Hemisphere::NORTH ? " N" : " S");
        }
        if (projected->flatEarth) {
            return "FlatEarth at " + DtShortestDouble(projected->flatEarth->originLatitude) + ", " +
                   DtShortestDouble(projected->flatEarth->originLongitude);
        }
        if (projected->lambertConicConformal)
            return "LambertConicConformal";
        if (projected->stereographic)
            return "Stereographic";
        if (projected->albersEqualAreaConic)
            return "AlbersEqualAreaConic";
        if (projected->trapezoidal)
            return "Trapezoidal";
        return "Projected (no projection)";
    }
    if (auto nonProjected = boost::dynamic_pointer_cast<Types::NonProjectedCoordSys>(system)) {
        return nonProjected->geoType.toString();
    }
    if (boost::dynamic_pointer_cast<Types::NonGeoreferencedCoordSys>(system))
        return "NonGeoreferenced";
    return "none";
}

std::string systemText(const CoordSys& system) {
    return elementName(system) + " (" + kindOf(system) + ")";
}

// A query's answer as text, or what it threw.
std::string attempt(const std::function<std::string()>& query) {
    try {
        return query();
    } catch (const std::exception& e) {
        return std::string("n/a: ") + e.what();
    }
}

std::string number(double value) {
    return DtShortestDouble(value);
}

// ---------------------------------------------------------------- describe, as text

bool isGeodetic(const CoordSys& system) {
    auto nonProjected = boost::dynamic_pointer_cast<Types::NonProjectedCoordSys>(system);
    return nonProjected && nonProjected->geoType.value == Types::GeoType::GEODETIC;
}

// The library measures a radius in the data system's own numbers: metres, except in a
// geodetic system, where it mixes radians and metres.
const char* radiusUnit(const DtMetaFlightDescription& d, const std::string& key) {
    return isGeodetic(d.geometryDatasetDataCoordinateSystem(key))
               ? "radians and metres mixed, in a geodetic data system"
               : "m";
}

std::string radiusText(const DtMetaFlightDescription& d, const std::string& key) {
    const double radius = d.geometryDatasetRadius(key);
    const std::string unit = radiusUnit(d, key);
    return unit == "m" ? metresText(radius) + " m" : number(radius) + " (" + unit + ")";
}

// The grid of a level the library answered; throws, as the library would, for one it
// could not.
const LevelGrid& known(const LevelGrid& grid) {
    if (!grid.known)
        throw std::invalid_argument("level not in the grid structure");
    return grid;
}

void describeGeometryText(const DtMetaFlightDescription& d, const std::string& key,
                          std::ostream& out) {
    out << "  " << key << "\n"
        << "    DatasetName:        " << d.geometryDatasetName(key) << "\n"
        << "    title:              " << d.geometryDatasetTitle(key) << "\n"
        << "    file format:        " << d.geometryDatasetFileFormat(key) << "\n"
        << "    pattern:            " << d.geometryDatasetFileNamePattern(key) << "\n"
        << "    hierarchy:          " << d.geometryDatasetGridHierarchyType(key).toString() << "\n"
        << "    data system:        " << systemText(d.geometryDatasetDataCoordinateSystem(key))
        << "\n"
        << "    grid system:        " << systemText(d.geometryDatasetGridCoordinateSystem(key))
        << "\n"
        << "    radius:             " << attempt([&] { return radiusText(d, key); })
        << "\n    levels:             " << d.numberOfGeometryGridLevels(key) << "\n";
    const std::vector<LevelGrid> grids = levelGrids(d, key, false);
    for (unsigned level = 0; level < grids.size(); ++level) {
        const int l = static_cast<int>(level);
        out << "      " << level << ": " << attempt([&] {
            const Types::GeometryGridLevel& g =
                *d.database()->geometryGridDataset.at(key)->geometryGridLevel[level];
            const LevelGrid& grid = known(grids[level]);
            return d.geometryGridLevelName(key, l) + "  divisions " +
                   std::to_string(grid.colDivisions) + "x" + std::to_string(grid.rowDivisions) +
                   "  columns " + std::to_string(grid.columns) + "  rows " +
                   std::to_string(grid.rows) + "  " + g.tileType.toString() + "  " +
                   g.localizedType.toString() + "  switch in " +
                   number(d.geometryGridLevelSwitchIn(key, l)) + " out " +
                   number(d.geometryGridLevelSwitchOut(key, l));
        }) << "\n";
    }
}

void describeVirtualTextureText(const DtMetaFlightDescription& d, const std::string& key,
                                std::ostream& out) {
    const CoordSys own = d.virtualTextureCoordinateSystem(key);
    out << "  " << key << "\n"
        << "    title:              " << d.virtualTextureDatasetTitle(key) << "\n"
        << "    file format:        " << d.virtualTextureDatasetFileFormat(key) << "\n"
        << "    pattern:            " << d.virtualTextureDatasetFileNamePattern(key) << "\n"
        << "    system:             " << systemText(own) << "\n"
        << "    tile texels:        " << d.virtualTextureDatasetTileTexels(key) << "\n"
        << "    origin:             " << attempt([&] {
               const Types::Position2D o = d.virtualTextureDatasetOrigin(key, own);
               return number(o.x) + ", " + number(o.y);
           })
        << "\n"
        << "    extent:             " << attempt([&] {
               const Types::Position2D e = d.virtualTextureDatasetExtent(key, own);
               return number(e.x) + ", " + number(e.y);
           })
        << "\n"
        << "    levels:             " << d.numberOfVirtualTextureGridLevels(key) << "\n";
    const std::vector<LevelGrid> grids = levelGrids(d, key, true);
    for (unsigned level = 0; level < grids.size(); ++level) {
        const int l = static_cast<int>(level);
        out << "      " << level << ": " << attempt([&] {
            const LevelGrid& grid = known(grids[level]);
            return d.virtualTextureGridLevelName(key, l) + "  divisions " +
                   std::to_string(grid.colDivisions) + "x" + std::to_string(grid.rowDivisions) +
                   "  columns " + std::to_string(grid.columns) + "  rows " +
                   std::to_string(grid.rows);
        }) << "\n";
    }
}

// ---------------------------------------------------------------- describe, as JSON

// The value a query gives, or null when it throws.
template <typename Query>
Json orNull(Query query) {
    try {
        return Json(query());
    } catch (const std::exception&) {
        return Json();
    }
}

Json geometryLevelJson(const DtMetaFlightDescription& d, const std::string& key, unsigned level,
                       const LevelGrid& grid) {
    const int l = static_cast<int>(level);
    const Types::GeometryGridLevel& g =
        *d.database()->geometryGridDataset.at(key)->geometryGridLevel[level];
    return {{"level", level},
            {"name", orNull([&] { return d.geometryGridLevelName(key, l); })},
            {"colDivisions", orNull([&] { return known(grid).colDivisions; })},
            {"rowDivisions", orNull([&] { return known(grid).rowDivisions; })},
            {"columns", orNull([&] { return known(grid).columns; })},
            {"rows", orNull([&] { return known(grid).rows; })},
            {"tileType", g.tileType.toString()},
            {"localizedType", g.localizedType.toString()},
            {"switchIn", d.geometryGridLevelSwitchIn(key, l)},
            {"switchOut", d.geometryGridLevelSwitchOut(key, l)}};
}

Json describeGeometryJson(const DtMetaFlightDescription& d, const std::string& key) {
    Json levels = Json::array();
    const std::vector<LevelGrid> grids = levelGrids(d, key, false);
    for (unsigned level = 0; level < grids.size(); ++level)
        levels.push_back(geometryLevelJson(d, key, level, grids[level]));
    return {{"key", key},
            {"datasetName", d.geometryDatasetName(key)},
            {"title", d.geometryDatasetTitle(key)},
            {"fileFormat", d.geometryDatasetFileFormat(key)},
            {"pattern", d.geometryDatasetFileNamePattern(key)},
            {"hierarchyType", d.geometryDatasetGridHierarchyType(key).toString()},
            {"dataCoordinateSystem", systemText(d.geometryDatasetDataCoordinateSystem(key))},
            {"gridCoordinateSystem", systemText(d.geometryDatasetGridCoordinateSystem(key))},
            {"radius", orNull([&] { return d.geometryDatasetRadius(key); })},
            {"radiusUnit", radiusUnit(d, key)},
            {"levels", std::move(levels)}};
}

Json virtualTextureLevelJson(const DtMetaFlightDescription& d, const std::string& key,
                             unsigned level, const LevelGrid& grid) {
    const int l = static_cast<int>(level);
    try {
        return {{"level", level},
                {"name", d.virtualTextureGridLevelName(key, l)},
                {"colDivisions", known(grid).colDivisions},
                {"rowDivisions", known(grid).rowDivisions},
                {"columns", known(grid).columns},
                {"rows", known(grid).rows}};
    } catch (const std::exception&) {
        return {{"level", level}, {"error", "level not in the grid structure"}};
    }
}

Json describeVirtualTextureJson(const DtMetaFlightDescription& d, const std::string& key) {
    const CoordSys own = d.virtualTextureCoordinateSystem(key);
    auto position = [](const Types::Position2D& p) { return Json::array({p.x, p.y}); };
    Json levels = Json::array();
    const std::vector<LevelGrid> grids = levelGrids(d, key, true);
    for (unsigned level = 0; level < grids.size(); ++level)
        levels.push_back(virtualTextureLevelJson(d, key, level, grids[level]));
    return {{"key", key},
            {"title", d.virtualTextureDatasetTitle(key)},
            {"fileFormat", d.virtualTextureDatasetFileFormat(key)},
            {"pattern", d.virtualTextureDatasetFileNamePattern(key)},
            {"coordinateSystem", systemText(own)},
            {"tileTexels", d.virtualTextureDatasetTileTexels(key)},
            {"origin", orNull([&] { return position(d.virtualTextureDatasetOrigin(key, own)); })},
            {"extent", orNull([&] { return position(d.virtualTextureDatasetExtent(key, own)); })},
            {"levels", std::move(levels)}};
}

// ---------------------------------------------------------------- convert

// The system of that key in any of the three maps, by the document's own lookup rule.
CoordSys findSystem(const Types::Database& db, const std::string& key) {
    auto lookUp = [&key](const auto& map) -> CoordSys {
        auto found = map.find(key);
        if (found == map.end() && key.rfind(':') != std::string::npos) {
            found = map.find(key.substr(key.rfind(':') + 1));
        }
        return found == map.end() ? CoordSys() : CoordSys(found->second);
    };
    CoordSys system = lookUp(db.projectedCoordSys);
    if (!system)
        system = lookUp(db.nonProjectedCoordSys);
    if (!system)
        system = lookUp(db.nonGeoreferencedCoordSys);
    return system;
}

}  // namespace

namespace {

const GeoJsonWriter::Fields coverageFields = {
    {"kind", OFTString}, {"key", OFTString}, {"name", OFTString}, {"levels", OFTInteger}};

// Each dataset's coverage outline, geometry datasets first.
bool writeCoverages(const DtMetaFlightDescription& d, GeoJsonWriter& out, std::string& error) {
    const Types::Database& db = *d.database();
    for (unsigned i = 0; i < d.numberOfGeometryDatasets(); ++i) {
        const std::string& key = d.geometryDatasetName(static_cast<int>(i));
        const Types::GeometryGridDataset& dataset = *db.geometryGridDataset.at(key);
        if (!out.add(GeoJsonWriter::Polygon,
                     coverageOutline(dataset.gridStack.coverageUsed.target.get()),
                     {{"kind", "geometry"},
                      {"key", key},
                      {"name", dataset.datasetName},
                      {"levels", d.numberOfGeometryGridLevels(key)}},
                     error))
            return false;
    }
    for (unsigned i = 0; i < d.numberOfVirtualTextureDatasets(); ++i) {
        const std::string& key = d.virtualTextureDatasetName(static_cast<int>(i));
        const Types::VirtualTextureDataset& dataset = *db.virtualTextureDataset.at(key);
        if (!out.add(GeoJsonWriter::Polygon,
                     coverageOutline(dataset.gridStack.coverageUsed.target.get()),
                     {{"kind", "virtualTexture"},
                      {"key", key},
                      {"name", d.virtualTextureDatasetTitle(key)},
                      {"levels", d.numberOfVirtualTextureGridLevels(key)}},
                     error))
            return false;
    }
    return true;
}

void describeText(const DtMetaFlightDescription& d, const std::string& document,
                  std::ostream& out) {
    out << document << "\n"
        << "geometry datasets: " << d.numberOfGeometryDatasets() << "\n";
    for (unsigned i = 0; i < d.numberOfGeometryDatasets(); ++i)
        describeGeometryText(d, d.geometryDatasetName(static_cast<int>(i)), out);
    out << "virtual texture datasets: " << d.numberOfVirtualTextureDatasets() << "\n";
    for (unsigned i = 0; i < d.numberOfVirtualTextureDatasets(); ++i)
        describeVirtualTextureText(d, d.virtualTextureDatasetName(static_cast<int>(i)), out);
}

Json describeJson(const DtMetaFlightDescription& d, const std::string& document) {
    Json geometry = Json::array();
    for (unsigned i = 0; i < d.numberOfGeometryDatasets(); ++i)
        geometry.push_back(describeGeometryJson(d, d.geometryDatasetName(static_cast<int>(i))));
    Json textures = Json::array();
    for (unsigned i = 0; i < d.numberOfVirtualTextureDatasets(); ++i) {
        textures.push_back(
            describeVirtualTextureJson(d, d.virtualTextureDatasetName(static_cast<int>(i))));
    }
    return {{"path", document},
            {"geometryDatasets", std::move(geometry)},
            {"virtualTextureDatasets", std::move(textures)}};
}

// Opens the GeoJSON a request asks for, if any; false with the line said on `err`.
bool openGeoJson(const std::string& path, const std::string& document, bool overwrite,
                 const GeoJsonWriter::Fields& fields, std::unique_ptr<GeoJsonWriter>& writer,
                 std::ostream& err) {
    if (path.empty())
        return true;
    writer = std::make_unique<GeoJsonWriter>();
    std::string error;
    if (!writer->open({path, {document}, overwrite}, fields, false, error)) {
        err << "zorhost: " << error << "\n";
        return false;
    }
    return true;
}

}  // namespace

int runDescribe(const DescribeRequest& request, std::ostream& out, std::ostream& err) {
    std::unique_ptr<GeoJsonWriter> geojson;
    if (!openGeoJson(request.geojson, request.document, request.overwrite, coverageFields, geojson,
                     err))
        return 1;
    DtMetaFlightParser parser;
    DtMetaFlightDescription d;
    if (!load(request.document, parser, d, err))
        return 1;
    if (request.json)
        out << jsonText(describeJson(d, request.document)) << "\n";
    else
        describeText(d, request.document, out);
    if (!geojson)
        return 0;
    std::string error;
    try {
        if (writeCoverages(d, *geojson, error) && geojson->close(error))
            return 0;
    } catch (const std::exception& e) {
        error = request.geojson + ": " + e.what();
    }
    err << "zorhost: " << error << "\n";
    return 1;
}

namespace {

// The keys of the document's geometry datasets, for a person who named another.
std::string datasetKeys(const DtMetaFlightDescription& d) {
    std::string keys;
    for (unsigned i = 0; i < d.numberOfGeometryDatasets(); ++i)
        keys += (keys.empty() ? "" : ", ") + d.geometryDatasetName(static_cast<int>(i));
    return keys.empty() ? "it has none" : "its geometry datasets are " + keys;
}

bool hasDataset(const DtMetaFlightDescription& d, const std::string& key) {
    for (unsigned i = 0; i < d.numberOfGeometryDatasets(); ++i) {
        if (d.geometryDatasetName(static_cast<int>(i)) == key)
            return true;
    }
    return false;
}

// The levels a request asks for, [first, end); false with the reason when the document
// has no such dataset or level.
bool levelRange(const DtMetaFlightDescription& d, const TilesRequest& request, unsigned& first,
                unsigned& end, std::string& problem) {
    if (!hasDataset(d, request.dataset)) {
        problem = "no geometry dataset \"" + request.dataset + "\"; " + datasetKeys(d);
        return false;
    }
    const unsigned levels = d.numberOfGeometryGridLevels(request.dataset);
    if (request.level >= 0 && static_cast<unsigned>(request.level) >= levels) {
        problem = "level " + std::to_string(request.level) + " is out of range: dataset \"" +
                  request.dataset + "\" has " + std::to_string(levels) +
                  (levels == 1 ? " level (0)"
                               : " levels (0 to " + std::to_string(levels ? levels - 1 : 0) + ")");
        return false;
    }
    first = request.level >= 0 ? static_cast<unsigned>(request.level) : 0;
    end = request.level >= 0 ? first + 1 : levels;
    return true;
}

}  // namespace

namespace {

const GeoJsonWriter::Fields tileFields = {
    {"level", OFTInteger}, {"row", OFTInteger}, {"col", OFTInteger}, {"path", OFTString}};

Json tileRecord(unsigned level, unsigned row, unsigned col, const double (&center)[3],
                const double (&offset)[3], const std::string& path) {
    return {{"level", level},
            {"row", row},
            {"col", col},
            {"center", {center[0], center[1], center[2]}},
            {"offset", {offset[0], offset[1], offset[2]}},
            {"path", path}};
}

// A tile's centre and offset as the description gives them, in degrees for a geodetic
// system.
void tilePlace(const DtMetaFlightDescription& d, const std::string& key, unsigned level,
               unsigned row, unsigned col, bool degrees, double (&c)[3], double (&o)[3]) {
    d.geometryGridTileCenter(key, level, row, col, c[0], c[1], c[2]);
    d.geometryGridTileOffset(key, level, row, col, o[0], o[1], o[2]);
    if (degrees) {
        for (double* v : {&c[0], &c[1], &o[0], &o[1]})
            *v = DtRad2Deg(*v);
    }
}

// One record per tile of a level: its centre and offset as the description gives them.
void printLevel(const DtMetaFlightDescription& d, const std::string& key, unsigned level,
                bool degrees, JsonArrayStream* records, bool pathsOnly, std::ostream& out) {
    const kelZor::DtTilePathGenerator names(d, key, static_cast<int>(level));
    std::string path;
    for (unsigned row = 0; row < names.rows(); ++row) {
        for (unsigned col = 0; col < names.columns(); ++col) {
            if (pathsOnly) {
                names.path(row, col, path);
                out << path << '\n';
                continue;
            }
            double c[3], o[3];
            tilePlace(d, key, level, row, col, degrees, c, o);
            names.path(row, col, path);
            if (records) {
                records->add(tileRecord(level, row, col, c, o, path));
                continue;
            }
            out << level << '\t' << row << '\t' << col;
            for (const double* values : {c, o}) {
                out << '\t' << (degrees ? degreesText(values[0]) : metresText(values[0]));
                out << '\t' << (degrees ? degreesText(values[1]) : metresText(values[1]));
                out << '\t' << metresText(values[2]);
            }
            out << '\t' << path << '\n';
        }
    }
}

void printHeader(bool degrees, std::ostream& out) {
    if (degrees) {
        out << "level\trow\tcol\tcenter_lat\tcenter_lon\tcenter_height\toffset_lat\t"
               "offset_lon\toffset_height\tpath\n";
    } else {
        out << "level\trow\tcol\tcenter_x\tcenter_y\tcenter_z\toffset_x\toffset_y\toffset_"
               "z\tpath\n";
    }
}

// Loads the document and finds the levels the request asks for; false with the line
// said on `err`.
bool prepareTiles(const TilesRequest& request, DtMetaFlightParser& parser,
                  DtMetaFlightDescription& d, unsigned& first, unsigned& end, std::ostream& err) {
    if (!load(request.document, parser, d, err))
        return false;
    std::string problem;
    if (!levelRange(d, request, first, end, problem)) {
        err << "zorhost: " << request.document << ": " << problem << "\n";
        return false;
    }
    return true;
}

}  // namespace

int runTiles(const TilesRequest& request, std::ostream& out, std::ostream& err) {
    std::unique_ptr<GeoJsonWriter> geojson;
    if (!openGeoJson(request.geojson, request.document, request.overwrite, tileFields, geojson,
                     err))
        return 1;
    DtMetaFlightParser parser;
    DtMetaFlightDescription d;
    unsigned first = 0, end = 0;
    if (!prepareTiles(request, parser, d, first, end, err))
        return 1;
    std::unique_ptr<JsonArrayStream> records;
    std::string error;
    try {
        // A person reads geodetic positions in degrees, as convert takes and gives them.
        const bool degrees = isGeodetic(d.geometryDatasetDataCoordinateSystem(request.dataset));
        if (request.json)
            records = std::make_unique<JsonArrayStream>(out);
        else if (!request.paths)
            printHeader(degrees, out);
        for (unsigned level = first; level < end && error.empty(); ++level) {
            printLevel(d, request.dataset, level, degrees, records.get(),
                       request.paths && !request.json, out);
            if (!geojson)
                continue;
            forEachTileFootprint(d, request.dataset, level, [&](const TileFootprint& tile) {
                if (error.empty()) {
                    geojson->add(
                        GeoJsonWriter::Polygon,
                        {tile.corners[0], tile.corners[1], tile.corners[2], tile.corners[3]},
                        {{"level", tile.level},
                         {"row", tile.row},
                         {"col", tile.col},
                         {"path", tile.path}},
                        error);
                }
            });
        }
        if (geojson && error.empty())
            geojson->close(error);
    } catch (const std::exception& e) {
        error = request.document + ": " + e.what();
    }
    if (records)
        records->close();
    if (error.empty())
        return 0;
    out.flush();
    err << "zorhost: " << error << "\n";
    return 1;
}

namespace {

// Each level the request asks for, to `use`; 1 with the message on `err` when the
// document, the query or the description fails.
int forEachLevel(const TilesRequest& request, std::ostream& err,
                 const std::function<void(const DtMetaFlightDescription&, unsigned)>& use) {
    DtMetaFlightParser parser;
    DtMetaFlightDescription d;
    unsigned first = 0, end = 0;
    if (!prepareTiles(request, parser, d, first, end, err))
        return 1;
    try {
        for (unsigned level = first; level < end; ++level)
            use(d, level);
    } catch (const std::exception& e) {
        err << "zorhost: " << request.document << ": " << e.what() << "\n";
        return 1;
    }
    return 0;
}

}  // namespace

int runTileFootprints(const TilesRequest& request, const TileVisitor& visit, std::ostream& err) {
    return forEachLevel(request, err, [&](const DtMetaFlightDescription& d, unsigned level) {
        forEachTileFootprint(d, request.dataset, level, visit);
    });
}

namespace {

// The records of `tiles --json`, one at a time, as a front end pulls them.
class LevelTiles : public TileCursor {
public:
    bool open(const TilesRequest& request, std::ostream& err) {
        if (!prepareTiles(request, parser_, d_, level_, end_, err))
            return false;
        key_ = request.dataset;
        degrees_ = isGeodetic(d_.geometryDatasetDataCoordinateSystem(key_));
        return true;
    }
    bool next(Json& record) override {
        while (level_ < end_) {
            if (!names_) {
                names_ = std::make_unique<kelZor::DtTilePathGenerator>(d_, key_,
                                                                       static_cast<int>(level_));
                row_ = col_ = 0;
            }
            if (row_ < names_->rows() && names_->columns() > 0) {
                double c[3], o[3];
                tilePlace(d_, key_, level_, row_, col_, degrees_, c, o);
                names_->path(row_, col_, path_);
                record = tileRecord(level_, row_, col_, c, o, path_);
                if (++col_ == names_->columns())
                    col_ = 0, ++row_;
                return true;
            }
            names_.reset();
            ++level_;
        }
        return false;
    }

private:
    DtMetaFlightParser parser_;
    DtMetaFlightDescription d_;
    std::string key_;
    unsigned level_ = 0, end_ = 0, row_ = 0, col_ = 0;
    bool degrees_ = false;
    std::unique_ptr<kelZor::DtTilePathGenerator> names_;
    std::string path_;
};

}  // namespace

std::unique_ptr<TileCursor> openTileCursor(const TilesRequest& request, std::ostream& err) {
    auto cursor = std::make_unique<LevelTiles>();
    try {
        if (cursor->open(request, err))
            return cursor;
    } catch (const std::exception& e) {
        err << "zorhost: " << request.document << ": " << e.what() << "\n";
    }
    return nullptr;
}

int describeAnswer(const std::string& document, Json& answer, std::ostream& err) {
    DtMetaFlightParser parser;
    DtMetaFlightDescription d;
    if (!load(document, parser, d, err))
        return 1;
    answer = describeJson(d, document);
    return 0;
}

int runTileGrid(const TilesRequest& request, const TileGridVisitor& visit, std::ostream& err) {
    return forEachLevel(request, err, [&](const DtMetaFlightDescription& d, unsigned level) {
        withTileLevelGrid(d, request.dataset, level, visit);
    });
}

namespace {

// What `check` lists, by the states asked for.
struct Listing {
    bool states[tileStateCount] = {};
    bool extra = false;

    explicit Listing(const std::vector<std::string>& asked) {
        const std::vector<std::string> names =
            asked.empty() ? std::vector<std::string>{"missing", "empty", "extra"} : asked;
        for (const std::string& name : names) {
            if (name == "missing" || name == "all") {
                for (TileState s : {TileState::Missing, TileState::Unreadable, TileState::Outside,
                                    TileState::UnreadableDirectory})
                    states[static_cast<int>(s)] = true;
            }
            if (name == "empty" || name == "all")
                states[static_cast<int>(TileState::Empty)] = true;
            if (name == "all")
                states[static_cast<int>(TileState::Present)] = true;
            extra = extra || name == "extra" || name == "all";
        }
    }
    bool lists(TileState state) const { return states[static_cast<int>(state)]; }
};

const char* kindName(bool virtualTexture) {
    return virtualTexture ? "virtualTexture" : "geometry";
}

std::string levelLine(const LevelTally& t) {
    std::string line = "level " + std::to_string(t.level) + ": " + std::to_string(t.tiles) +
                       (t.tiles == 1 ? " tile, " : " tiles, ") + std::to_string(t.present) +
                       " present";
    for (const auto& [count, name] :
         {std::make_pair(t.missing, "missing"), std::make_pair(t.empty, "empty"),
          std::make_pair(t.unreadable, "unreadable"),
          std::make_pair(t.outside, "outside the database"),
          std::make_pair(t.unreadableDirectory, "in an unreadable directory")}) {
        if (count > 0)
            line += ", " + std::to_string(count) + " " + name;
    }
    return line;
}

Json levelJson(const LevelTally& t) {
    return {{"level", t.level},        {"tiles", t.tiles},
            {"present", t.present},    {"missing", t.missing},
            {"empty", t.empty},        {"unreadable", t.unreadable},
            {"outside", t.outside},    {"unreadableDirectory", t.unreadableDirectory},
            {"complete", t.complete()}};
}

}  // namespace

namespace {

// An array begun with its first record: a check that cannot start prints nothing.
class ArrayOnFirstRecord : public RecordSink {
public:
    explicit ArrayOnFirstRecord(std::ostream& out) : out_(out) {}
    void add(const Json& element) override {
        if (!array_)
            array_ = std::make_unique<JsonArrayStream>(out_);
        array_->add(element);
    }
    void close() override {
        if (array_)
            array_->close();
    }

private:
    std::ostream& out_;
    std::unique_ptr<JsonArrayStream> array_;
};

int checkInto(const CheckRequest& request, RecordSink* records, std::ostream& out,
              std::ostream& err);

}  // namespace

int runCheck(const CheckRequest& request, std::ostream& out, std::ostream& err) {
    if (!request.json)
        return checkInto(request, nullptr, out, err);
    ArrayOnFirstRecord records(out);
    return checkInto(request, &records, out, err);
}

int checkRecords(const CheckRequest& request, RecordSink& records, std::ostream& err) {
    std::ostream nowhere(nullptr);
    return checkInto(request, &records, nowhere, err);
}

namespace {

int checkInto(const CheckRequest& request, RecordSink* records, std::ostream& out,
              std::ostream& err) {
    DtMetaFlightParser parser;
    DtMetaFlightDescription d;
    if (!load(request.document, parser, d, err))
        return 1;
    const Listing listing(request.list);
    Json datasets = Json::array();
    std::string summary;
    uint64_t extras = 0;
    bool complete = true;
    LevelTally faults;
    Progress progress(err, "check", request.progress);
    TileCheckVisitor visit;
    visit.dataset = [&](const CheckedDataset& c) {
        datasets.push_back({{"dataset", c.key},
                            {"kind", kindName(c.virtualTexture)},
                            {"directory", c.root},
                            {"levels", Json::array()}});
        summary +=
            c.key + " (" + (c.virtualTexture ? "virtual texture" : "geometry") +
            (c.root.empty() ? std::string(", no tile inside the database") : ", under " + c.root) +
            ")\n";
        if (c.outside > 0) {
            summary += "  " + std::to_string(c.outside) +
                       (c.outside == 1 ? " tile names" : " tiles name") +
                       " a path outside the database, such as \"" + c.outsideExample +
                       "\": not looked at\n";
        }
    };
    visit.tile = [&](const CheckedTile& t) {
        if (request.alsoEach)
            request.alsoEach(t);
        if (!listing.lists(t.state))
            return;
        if (records) {
            records->add({{"dataset", *t.dataset},
                          {"kind", kindName(t.virtualTexture)},
                          {"level", t.level},
                          {"row", t.row},
                          {"col", t.col},
                          {"status", tileStateName(t.state)},
                          {"path", *t.path}});
        } else {
            out << tileStateName(t.state) << '\t' << *t.dataset << '\t' << t.level << '\t' << t.row
                << '\t' << t.col << '\t' << *t.path << '\n';
        }
    };
    visit.level = [&](const LevelTally& t) {
        datasets.back()["levels"].push_back(levelJson(t));
        summary += "  " + levelLine(t) + "\n";
        complete = complete && t.complete();
        faults.missing += t.missing;
        faults.empty += t.empty;
        faults.unreadable += t.unreadable;
        faults.outside += t.outside;
        faults.unreadableDirectory += t.unreadableDirectory;
    };
    visit.extra = [&](const std::string& path) {
        ++extras;
        if (!listing.extra)
            return;
        if (records)
            records->add({{"status", "extra"}, {"path", path}});
        else
            out << "extra\t" << path << '\n';
    };
    visit.progress = [&](uint64_t done, uint64_t total) { progress.update(done, total); };
    visit.unreadableDirectory = [&](const std::string& directory, int error) {
        err << "zorhost: " << directory << ": cannot be read: " << std::strerror(error)
            << "; its tiles are counted as in an unreadable directory\n";
    };
    visit.linkedDirectory = [&](const std::string& directory) {
        err << "zorhost: " << directory
            << ": a symbolic link, not followed out of the database; its tiles are counted "
               "as outside the database\n";
    };
    TileCheckPlan plan;
    plan.datasets = request.datasets;
    plan.levels = request.levels;
    try {
        checkTiles(d, plan, visit);
    } catch (const std::exception& e) {
        if (records)
            records->close();
        out.flush();
        err << "zorhost: " << request.document << ": " << e.what() << "\n";
        return 1;
    }
    if (records) {
        records->add(
            {{"summary", {{"datasets", datasets}, {"extra", extras}, {"complete", complete}}}});
        records->close();
    } else {
        out << summary;
        out << "extra: " << extras << (extras == 1 ? " file" : " files")
            << " under the datasets' directories that no tile names\n";
        out << (complete ? "complete"
                         : "incomplete: a tile is missing, empty, unreadable, outside the "
                           "database or in an unreadable directory")
            << "\n";
    }
    if (complete)
        return 0;
    out.flush();
    std::string faultText;
    for (const auto& [n, name] :
         {std::make_pair(faults.missing, "missing"), std::make_pair(faults.empty, "empty"),
          std::make_pair(faults.unreadable, "unreadable"),
          std::make_pair(faults.outside, "outside the database"),
          std::make_pair(faults.unreadableDirectory, "in an unreadable directory")}) {
        if (n > 0)
            faultText += (faultText.empty() ? "" : ", ") + std::to_string(n) + " " + name;
    }
    err << "zorhost: " << request.document << ": incomplete: tiles " << faultText << "\n";
    return 1;
}

}  // namespace

int runConvert(const ConvertRequest& request, std::ostream& out, std::ostream& err) {
    DtMetaFlightParser parser;
    DtMetaFlightDescription d;
    if (!load(request.document, parser, d, err, false))
        return 1;
    const CoordSys from = findSystem(*d.database(), request.from);
    const CoordSys to = findSystem(*d.database(), request.to);
    for (const auto& [system, key] :
         {std::make_pair(from, request.from), std::make_pair(to, request.to)}) {
        if (!system) {
            err << "zorhost: " << request.document << ": no coordinate system \"" << key << "\"\n";
            return 1;
        }
    }
    double x = request.values[0], y = request.values[1], z = request.values[2];
    if (isGeodetic(from) && !(std::fabs(x) <= 90.0)) {
        err << "zorhost: latitude " << number(x) << " is out of range: -90 to 90 degrees\n";
        return 2;
    }
    if (isGeodetic(from)) {
        x = DtDeg2Rad(x);
        y = DtDeg2Rad(y);
    }
    try {
        DtMetaFlightDescription::convertPosition(from, to, x, y, z);
    } catch (const std::exception& e) {
        err << "zorhost: " << request.document << ": " << e.what() << "\n";
        return 1;
    }
    if (isGeodetic(to)) {
        out << degreesText(DtRad2Deg(x)) << ' ' << degreesText(DtRad2Deg(y)) << ' ' << metresText(z)
            << "\n";
    } else {
        out << metresText(x, y, z) << "\n";
    }
    return 0;
}

namespace {

std::string plural(int count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

// Why publish cannot begin: an input that is no document; "" when it can.
static std::string publishProblem(const PublishRequest& request) {
    for (const std::string* path : {&request.input, &request.merge}) {
        if (path->empty())
            continue;
        if (const std::string problem = pathProblem(*path); !problem.empty())
            return *path + ": " + problem;
    }
    return "";  // OUT is the careful writer's to check
}

// Whether `path` holds a whole XML document: a short write cuts its end off.
static bool wholeDocument(const std::string& path) {
    const int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_HUGE;
    std::unique_ptr<xmlDoc, void (*)(xmlDoc*)> document(xmlReadFile(path.c_str(), nullptr, options),
                                                        xmlFreeDoc);
    return document && xmlDocGetRootElement(document.get());
}

int runPublish(const PublishRequest& request, std::ostream& out, std::ostream& err) {
    if (const std::string problem = publishProblem(request); !problem.empty()) {
        err << "zorhost: " << problem << "\n";
        return 1;
    }
    // IN may be OUT (with --overwrite): the document is read before OUT is replaced.
    OutputFile file;
    std::string error;
    if (!file.begin(request.output, {}, request.overwrite, error)) {
        err << "zorhost: " << request.output << ": " << error << "\n";
        return 1;
    }
    DtMetaFlightParser::PublishSummary summary;
    if (!DtMetaFlightParser::publish(request.input, request.merge, file.temporaryPath(),
                                     request.medf, request.removeVirtualTexture, error,
                                     request.setSwitchDistance, request.switchDistance, summary)) {
        while (!error.empty() && error.back() == '\n')
            error.pop_back();
        err << "zorhost: " << request.input << ": " << error << "\n";
        return 1;
    }
    if (!summary.written || !wholeDocument(file.temporaryPath())) {
        err << "zorhost: " << request.output << ": not written: "
            << (summary.writeProblem.empty() ? "what was written is not the whole document"
                                             : summary.writeProblem)
            << "\n";
        return 1;
    }
    if (!file.commit(error)) {
        err << "zorhost: " << request.output << ": " << error << "\n";
        return 1;
    }
    std::vector<std::string> changes;
    if (!request.merge.empty())
        changes.push_back(plural(summary.elementsMerged, "element merged", "elements merged"));
    if (request.removeVirtualTexture) {
        changes.push_back(plural(summary.virtualTexturesRemoved, "virtual texture removed",
                                 "virtual textures removed"));
    }
    if (request.setSwitchDistance) {
        changes.push_back(
            plural(summary.switchDistancesSet, "switch distance", "switch distances") + " set to " +
            number(request.switchDistance));
    }
    if (request.medf) {
        std::string medf =
            summary.fileFormatSet ? "file format set to medf" : "file format already medf";
        medf += summary.patternRewritten ? ", pattern rewritten to .medf" : ", pattern unchanged";
        changes.push_back(medf);
    }
    out << "published " << request.input << " to " << request.output << ": ";
    if (changes.empty())
        out << "a cleaned copy";
    for (size_t i = 0; i < changes.size(); ++i)
        out << (i ? "; " : "") << changes[i];
    out << "\n";
    return 0;
}
