// zorhost: a small stand-in for the 3-D engine. It loads the terrain plug-in as the
// engine does and answers questions about terrain files from the command line. Every
// command's options and help text are declared here, against one Request, so CLI11 sees
// the whole command line at once; each command's own room (options, help, formatting)
// is the next step of its layering.
#include <sys/stat.h>

#include <GeographicLib/Config.h>
#include <gdal.h>
#include <ogr_srs_api.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "CheckMap.h"
#include "Engine.h"
#include "EscapedNames.h"
#include "FeatureCommands.h"
#include "GeoJsonWriter.h"
#include "Inspect.h"
#include "InspectCommand.h"
#include "LibraryModule.h"
#include "MapCommand.h"
#include "OutputTemporaries.h"
#include "PluginLibrary.h"
#include "PropCommands.h"
#include "Scene.h"
#include "ViewCommand.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtHeaderParser.h"

namespace {

const char* const description =
    "zorhost loads the zorTerrain plug-in (libzorTerrain.so) the way the engine does, calls\n"
    "its init, and asks it about terrain files.";

const char* const exitStatuses =
    "Exit status: 0 when everything asked was answered; 1 when a file could not be\n"
    "answered, the engine was told an error, a prop was not placed or a file with objects\n"
    "gave nothing; 2 on bad usage. 'zorhost help status' lists every case.";

// Every case of the exit status, as the README's table lists them.
const char* const statusTable =
    R"(Exit status, for every command. Problems are one line each on stderr, naming the
file; stdout holds only the answer.

  0  everything asked was answered
  1  a file could not be answered: missing, unreadable, a directory, refused by its
     parser (the line says why), not loaded, or not written
  1  an output that exists, without --overwrite (publish's OUT, IN included; --geojson;
     map's picture), or one that is an input; one that appeared while it was written
  1  an output not written whole: a full disk, a file size limit, an I/O error; the
     target is left as it was and no temporary stays
  1  the engine was told an error (a model definition that does not exist)
  1  a prop was not placed: no --terrain source lies below or above its point
  1  a file with objects gave the engine nothing (no feature, prop or point)
  1  map: the inputs hold nothing the scene can place; a DEM GDAL cannot read; a
     --ramp GDAL finds no colour in
  1  check: a tile missing, empty, unreadable or outside the database (through a
     linked directory too), or in a directory that cannot be read
  1  --scene @FILE: the file gives no coordinate system
  2  an unknown command or option, a missing or malformed argument
  2  a parser name that is not registered
  2  --scene: an unknown kind, malformed parameters, a latitude beyond a pole, a zone
     and hemisphere that disagree, a coordinate system the engine has no kind for
  2  --code that is not two letters followed by digits; --srs that OSR cannot read
  2  --geojson to a file whose extension names another format
  2  a malformed rules file
  2  a negative level or switch distance
  2  map: nothing given to draw, --props without --rules, --tiles without --dataset,
     an empty or non-finite --extent, a --size side outside 1..16384, an OUT (check's
     --map too) that is not a .png, .tif or .tiff
  1  view: no X display for a window or --png; a model file that exists and
     OpenSceneGraph cannot read, or reads with nothing to draw in it
  2  view: as map's, and --png not a .png, --osgb not a scene graph OpenSceneGraph
     writes, a pitch beyond 90 degrees either way, a range of 0 or less, a --size side
     outside 1..8192
 128+N  ended by signal N (SIGINT, SIGTERM, SIGHUP, SIGPIPE): its temporaries are
     removed first and every output is the old file or the new one, whole
)";

const char* const footer = R"(
Try it from the repository's root:
  zorhost inspect data/sample/utm_zone32n.flt
  zorhost features data/sample/valley.gdb
'zorhost COMMAND --help' tells more of each command, with examples; 'zorhost help scene'
explains the scene kinds and 'zorhost help status' every exit status.

The plug-in is found by --plugin, else $ZORTERRAIN_PLUGIN, else the one installed with
zorhost (../lib beside it), else the one of the build tree. A problem with a file is one
line on stderr naming the file and the reason; stdout holds only the answer. No output
file is written over unless --overwrite is given, never one of the inputs, and never in
part.
)";

struct GlobalOptions {
    std::string plugin;
    std::string configDir;
    std::string sampleDir;
};

bool isDirectory(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string sampleDirectory(const GlobalOptions& options) {
    if (!options.sampleDir.empty())
        return options.sampleDir;
    if (const char* fromEnvironment = std::getenv("ZORHOST_SAMPLE_DIR")) {
        if (*fromEnvironment)
            return fromEnvironment;
    }
    if (isDirectory(ZORHOST_SOURCE_SAMPLE_DIR))
        return ZORHOST_SOURCE_SAMPLE_DIR;
    return ZORHOST_INSTALLED_SAMPLE_DIR;
}

// The terrain files of the sample set that a registered parser answers, sorted, so the
// output is stable: those at its top (a ".gdb" directory is a File Geodatabase, asked
// like a file) and, when there is one, the terrain project in project/, which lives a
// level down so that its terrain can lie in ../data/terrain as a project lays it out.
std::vector<std::string> sampleFiles(kelZor::DtDe& de, const std::string& directory,
                                     std::string& error) {
    std::vector<std::string> files;
    for (const char* folder : {"", "/project"}) {
        std::error_code code;
        if (*folder && !isDirectory(directory + folder))
            continue;
        for (const auto& entry : std::filesystem::directory_iterator(directory + folder, code)) {
            const std::string path = entry.path().string();
            const bool geodatabase = entry.is_directory(code) && entry.path().extension() == ".gdb";
            if ((entry.is_regular_file(code) || geodatabase) && !parserNameFor(de, path).empty())
                files.push_back(path);
        }
        if (code) {
            error =
                "cannot list the sample directory " + directory + folder + ": " + code.message();
            break;
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

int listParsers(Engine& engine) {
    for (const auto& [name, extensions] : engine.parsers()) {
        std::cout << name << ":";
        for (const std::string& extension : extensions)
            std::cout << " " << extension;
        std::cout << "\n";
    }
    return 0;
}

// What the command line asked for, filled by CLI11.
struct Request {
    GlobalOptions global;
    bool json = false;
    std::string parser;
    std::vector<std::string> paths;
    DescribeRequest describe;
    TilesRequest tiles;
    CheckRequest check;
    ConvertRequest convert;
    std::vector<double> values;
    PublishRequest publish;
    float switchDistance = 0.0f;
    FeaturesRequest features;
    ValuesRequest valuesRequest;
    PropsRequest props;
    MapRequest map;
    ViewRequest view;
};

// A subcommand with a one-line summary for the command list and the longer text, its
// examples and the exit statuses for its own --help.
CLI::App* command(CLI::App& app, const char* name, const char* summary, const std::string& more) {
    CLI::App* sub = app.add_subcommand(name, summary);
    sub->footer("\n" + more + "\n\n" + exitStatuses);
    return sub;
}

void addInspect(CLI::App& app, Request& request) {
    CLI::App* inspect = command(
        app, "inspect", "Which parser answers each terrain file, in which coordinate system",
        "Asks the registered header parser of each file (chosen by extension) whether it is\n"
        "valid, and prints its coordinate system, the parameters of that system and its\n"
        "terrain patches. Without PATH, every file of the sample terrain set.\n\n"
        "Examples:\n"
        "  zorhost inspect data/sample/utm_zone32n.flt data/sample/valley.gdb\n"
        "  zorhost inspect --parser DtTerrainProjectHeaderParser data/sample/project/valley.tproj\n"
        "  zorhost inspect --json");
    inspect->add_flag("--json", request.json,
                      "One JSON array of objects with the keys path, parser (null when no "
                      "parser fits), valid, reason (when not valid), coordinateSystem (as the "
                      "parser answered it), kind, parameters and patches (each: name, "
                      "filename, coordinateSystem, parameters, schema)");
    inspect->add_option("--parser", request.parser,
                        "Ask the parser registered under NAME whatever the extension (for "
                        "example DtTerrainProjectHeaderParser, which no extension leads to)");
    inspect->add_option("PATH", request.paths, "Terrain files");
}

CLI::Validator levelValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            try {
                size_t used = 0;
                const long level = std::stol(text, &used);
                if (used == text.size() && level >= 0 && level <= 1000000)
                    return "";
            } catch (const std::exception&) {
            }
            return "levels are counted from 0: " + text + " is no level";
        },
        "LEVEL");
}

const char* const sceneHelp =
    "The scene's coordinate system: KIND:PARAMETERS as 'inspect' prints them (e.g. "
    "UTM:45.5,9,32,32,N,0,0,0,0,0), a coordinate system OSR reads (EPSG:32632, WKT, a PROJ "
    "string) or @FILE (that file's system). Default: the data's own UTM, Lambert or "
    "flat-earth system, else geocentric. 'zorhost help scene' explains each kind";

CLI::Validator geoJsonTarget() {
    return CLI::Validator([](std::string& path) { return geoJsonTargetProblem(path); }, "OUT");
}

const char* const overwriteHelp =
    "Replace OUT when it exists (never one of the inputs, never a directory)";

// --geojson OUT and --overwrite, as every command that writes GeoJSON takes them.
void addGeoJsonOutput(CLI::App* command, std::string& path, bool& overwrite, const char* what) {
    command->add_option("--geojson", path, what)->check(geoJsonTarget());
    command->add_flag("--overwrite", overwrite, overwriteHelp);
}

// How the loads read codes and systems, for every command that loads a vector file.
void addLoadOptions(CLI::App* command, LoadOptions& load) {
    command->add_option("--code-field", load.codeFields,
                        "Read feature codes from this field (repeatable: the first the layer "
                        "has) instead of ECC, F_CODE, FCODE or FACC");
    command->add_option("--code", load.code,
                        "Give objects without a code of their own this FACC code (two letters "
                        "followed by digits, e.g. AL020)");
    command->add_option("--srs", load.srs,
                        "Give layers without a coordinate system this one (EPSG:n, WKT or a "
                        "PROJ string), as ogr2ogr's -a_srs does");
    command->add_option("--oo", load.openOptions,
                        "NAME=VALUE: an open option for OGR's driver (repeatable), as "
                        "ogr2ogr's -oo: X_POSSIBLE_NAMES=lon --oo Y_POSSIBLE_NAMES=lat reads a "
                        "CSV of points");
}

void addMetaFlight(CLI::App& app, Request& request) {
    CLI::App* describe =
        command(app, "describe", "The datasets and levels of a MetaFlight document",
                "Each geometry dataset (key, DatasetName, title, file format, pattern, hierarchy\n"
                "type, data and grid coordinate systems, radius) with its levels; each virtual\n"
                "texture dataset with its levels, tile texels, origin and extent.\n\n"
                "Examples:\n"
                "  zorhost describe data/sample/metaflight/alpine_valley.mft\n"
                "  zorhost describe data/sample/zone33_quad.mft --geojson /tmp/coverage.geojson");
    describe->add_option("DOC", request.describe.document, "MetaFlight document (.mft)")
        ->required();
    describe->add_flag("--json", request.describe.json, "One JSON object");
    addGeoJsonOutput(describe, request.describe.geojson, request.describe.overwrite,
                     "Also write each dataset's coverage outline to OUT as a GeoJSON polygon "
                     "in WGS84 longitude and latitude, with the properties kind (geometry or "
                     "virtualTexture), key, name and levels");

    CLI::App* tiles = command(
        app, "tiles", "Every tile of a MetaFlight geometry dataset: centre, offset and file",
        "One record per tile of a geometry dataset (every level, or level N): level, row,\n"
        "col, centre, offset and file path, streamed as they are made. Positions in a\n"
        "geodetic system are latitude and longitude in degrees, and height.\n\n"
        "Examples:\n"
        "  zorhost tiles data/sample/zone33_quad.mft --dataset Terrain --level 1\n"
        "  zorhost tiles data/sample/zone33_quad.mft --dataset Terrain --json\n"
        "  zorhost tiles data/sample/zone33_quad.mft --dataset Terrain --level 1 --geojson "
        "/tmp/tiles.geojson");
    tiles->add_option("DOC", request.tiles.document, "MetaFlight document (.mft)")->required();
    tiles->add_option("--dataset", request.tiles.dataset, "The geometry dataset's key")->required();
    tiles->add_option("--level", request.tiles.level, "One level, counted from 0")
        ->check(levelValidator());
    tiles->add_flag("--json", request.tiles.json,
                    "A JSON array of objects with the keys level, row, col, center, offset, path");
    tiles->add_flag("--paths", request.tiles.paths,
                    "Each tile's file path alone, a line each (as the engine would open it)");
    addGeoJsonOutput(tiles, request.tiles.geojson, request.tiles.overwrite,
                     "Also write each tile's footprint to OUT as a GeoJSON polygon of its four "
                     "corners in WGS84 longitude and latitude, with the properties level, row, "
                     "col and path");

    CLI::App* check = command(
        app, "check", "Whether every tile a MetaFlight document names is on disk",
        "For each geometry and virtual-texture dataset (or each --dataset) and each level\n"
        "(or each --level): the tiles whose files are present, missing, empty (0 bytes) or\n"
        "unreadable, and the files under the datasets' directories that no tile of any\n"
        "level names (extra: a stale level, a mistyped pattern). Paths are the ones the\n"
        "engine opens; a tile whose path would leave the document's directory is reported\n"
        "and never looked at. Listed tiles stream as they are found (state, dataset, level,\n"
        "row, col, path), then a line per level and the verdict. Status 1 when a tile is\n"
        "missing, empty, unreadable or outside the database; 0 when the database is\n"
        "complete (extra files are listed but do not make it incomplete).\n\n"
        "Examples:\n"
        "  zorhost check data/sample/metaflight/valley_tiles.mft\n"
        "  zorhost check data/sample/metaflight/valley_tiles.mft --level 1 --list all --json");
    check->add_option("DOC", request.check.document, "MetaFlight document (.mft)")->required();
    check->add_option("--dataset", request.check.datasets,
                      "A dataset's key (repeatable; default: every dataset)");
    check->add_option("--level", request.check.levels,
                      "A level, counted from 0 (repeatable; default: every level)");
    check->add_flag("--json", request.check.json,
                    "A JSON array: a record per listed tile (dataset, kind, level, row, col, "
                    "status, path) and extra file (status, path), then {\"summary\": ...}");
    check
        ->add_option("--list", request.check.list,
                     "What to list: missing (with unreadable and outside), empty, extra, all "
                     "(present tiles too); repeatable; default: missing, empty and extra")
        ->check(CLI::IsMember({"missing", "empty", "extra", "all"}));
    check->add_flag("--progress", request.check.progress,
                    "Say how far the check has gone on stderr even when it is not a terminal");
    check->add_option("--map", request.check.map,
                      "Also draw the finest level checked of the first geometry dataset, each "
                      "tile a cell coloured by its state, into a georeferenced PNG (or .tif), "
                      "as 'map' draws");
    check->add_flag("--overwrite", request.check.overwrite, overwriteHelp);

    CLI::App* convert = command(
        app, "convert", "A position moved between two coordinate systems of a document",
        "The systems are named by their keys in the document. In a geodetic system the\n"
        "values are latitude and longitude in degrees and altitude in metres; otherwise the\n"
        "system's own numbers, in metres.\n\n"
        "Example:\n"
        "  zorhost convert data/sample/metaflight/alpine_valley.mft --from Geodetic --to UTM32N "
        "46.5 11.25 1000");
    convert->add_option("DOC", request.convert.document, "MetaFlight document (.mft)")->required();
    convert->add_option("--from", request.convert.from, "Key of the source system")->required();
    convert->add_option("--to", request.convert.to, "Key of the target system")->required();
    convert->add_option("X Y Z", request.values, "The position")->required()->expected(3);

    CLI::App* publish = command(
        app, "publish", "A MetaFlight document rewritten: merged, trimmed, in the medf form",
        "Rewrites a document into OUT: merged, trimmed, with a new largest switch distance,\n"
        "in the \"medf\" form, as the options say. An OUT that exists (IN included) is\n"
        "replaced only with --overwrite, and only once completely written; one line says\n"
        "what changed.\n\n"
        "Example:\n"
        "  zorhost publish data/sample/metaflight/alpine_valley.mft /tmp/valley.mft --medf "
        "--remove-virtual-texture");
    publish->add_option("IN", request.publish.input, "The document")->required();
    publish->add_option("OUT", request.publish.output, "Where to write it")->required();
    publish->add_option("--merge", request.publish.merge,
                        "A second document whose top-level elements of tags the first lacks "
                        "are taken over");
    publish->add_flag("--medf", request.publish.medf,
                      "The first geometry dataset's FileFormat becomes \"medf\" and the first "
                      "\".flt\" of its pattern \".medf\"");
    publish->add_flag("--remove-virtual-texture", request.publish.removeVirtualTexture,
                      "Every VirtualTextureDataset goes");
    publish
        ->add_option("--switch-distance", request.switchDistance,
                     "The largest switch distance of each substitutive dataset's table "
                     "becomes D (metres, not negative)")
        ->check(CLI::NonNegativeNumber);
    publish->add_flag("--overwrite", request.publish.overwrite,
                      "Replace OUT when it exists (OUT may be IN)");
}

void addFeatures(CLI::App& app, Request& request) {
    CLI::App* features = command(
        app, "features", "The features the engine makes of a vector file",
        "Loads a vector file (shapefile, File Geodatabase, GeoPackage, any vector format OGR\n"
        "reads) through the registered feature adder into a feature layer, and prints each\n"
        "feature: kind, feature id, FACC code, network id, location, dimensions and heading\n"
        "of points, vertex count of lines and areas; then the counts by kind and the errors\n"
        "the engine was told. The first line names the scene. What the load left out (areas'\n"
        "holes, features it could not place) is said on stderr.\n\n"
        "Examples:\n"
        "  zorhost features data/sample/valley.gdb\n"
        "  zorhost features data/sample/valley_points.shp --scene UTM:45.5,9,32,32,N,0,0,0,0,0\n"
        "  zorhost features data/sample/valley.gdb --geojson /tmp/valley.geojson --overwrite");
    features->add_option("FILE", request.features.file, "The vector file")->required();
    features->add_option("--scene", request.features.scene, sceneHelp);
    features->add_flag("--json", request.features.json,
                       "One JSON object: scene, features (kind, featureId, facc, id, and "
                       "location, dimensions, headingDegrees (null when not set) or "
                       "vertices, coordinates [x, y, z] in the scene), errors (code, text), "
                       "notes");
    addGeoJsonOutput(features, request.features.geojson, request.features.overwrite,
                     "Also write the features to OUT as GeoJSON, in WGS84 longitude and "
                     "latitude (and height when the source has heights)");
    addLoadOptions(features, request.features.load);
}

void addValues(CLI::App& app, Request& request) {
    CLI::App* values = command(
        app, "values", "Every value each field of a vector file's points takes",
        "The field value reader over one or more vector files into one map: each attribute\n"
        "name of the files' free-standing points with every value text it takes, in string\n"
        "order; the texts a props rule compares with. A file that does not load is said on\n"
        "stderr and the others are still listed.\n\n"
        "Examples:\n"
        "  zorhost values data/sample/valley_points.shp data/sample/valley.gdb\n"
        "  zorhost values data/sample/valley_points.shp --field ECC");
    values->add_option("FILE", request.valuesRequest.files, "Vector files")->required();
    values->add_option("--field", request.valuesRequest.fields,
                       "List only this field (repeatable)");
    values->add_flag("--json", request.valuesRequest.json,
                     "One JSON object: values (from field name to its values) and load (what "
                     "each file's load read and made)");
    addLoadOptions(values, request.valuesRequest.load);
}

void addProps(CLI::App& app, Request& request) {
    CLI::App* props = command(
        app, "props", "Props placed on the terrain by the rules of a rules file",
        "Applies each rule of a rules file to a vector file through the prop adder\n"
        "registered for its extension (gdb, shp, dfd, c7b, c7l), into a terrain layer: each\n"
        "prop with its name, type, model, position (and latitude and longitude), heading and\n"
        "orientation quaternion, the count per rule, and the errors the engine was told. The\n"
        "rules file is JSON:\n"
        "  {\"models\": {\"NAME\": \"MODEL FILE\", ...},\n"
        "   \"rules\": [{\"fields\": {\"FIELD\": \"VALUE\", ...}, \"model\": \"NAME\",\n"
        "              \"propType\": \"TYPE\", \"rotationField\": \"FIELD\"}, ...]}\n"
        "Values are compared as the texts 'zorhost values' lists. Props stand on the\n"
        "--terrain elevation sources (DTED, GeoTIFF; the first that covers a place answers),\n"
        "or on the ellipsoid without any; a prop no source covers is not placed (the engine\n"
        "leaves it at the origin), and zorhost says so.\n\n"
        "Example:\n"
        "  zorhost props data/sample/valley_points.shp --rules data/sample/valley_props.json "
        "--terrain data/sample/n45_e009.dt0");
    props->add_option("FILE", request.props.file, "The vector file")->required();
    props->add_option("--rules", request.props.rules, "The rules file (JSON)")->required();
    props->add_option("--terrain", request.props.terrains, "An elevation source (repeatable)");
    props->add_option("--scene", request.props.scene,
                      std::string(sceneHelp) +
                          "; the first DEM's system is tried before the "
                          "vector file's");
    props->add_flag("--json", request.props.json,
                    "One JSON object: scene, props (rule, name, propType, model, placed, "
                    "position [x, y, z], headingDegrees (null when not placed), orientation "
                    "[x, y, z, w]), rules (rule, added), errors (code, text), notes");
    addGeoJsonOutput(props, request.props.geojson, request.props.overwrite,
                     "Also write the placed props to OUT as GeoJSON points in WGS84");
    addLoadOptions(props, request.props.load);
}

// What map and view load, and how they colour the ground.
void addSceneInputs(CLI::App* sub, MapRequest& r) {
    sub->add_option("--terrain", r.terrains,
                    "A DEM (any raster GDAL reads; repeatable, the first that covers a place "
                    "answers)");
    sub->add_option("--features", r.features, "A vector file of features (repeatable)");
    sub->add_option("--props", r.props, "A vector file whose points the rules make props of");
    sub->add_option("--rules", r.rules, "The rules file (JSON) for --props, as for 'props'");
    sub->add_option("--tiles", r.tiles, "A MetaFlight document whose tiles to draw");
    sub->add_option("--dataset", r.dataset, "The geometry dataset of --tiles");
    sub->add_option("--level", r.level, "The level of --tiles, counted from 0 (default 0)")
        ->check(levelValidator());
    sub->add_option("--scene", r.scene,
                    std::string(sceneHelp) +
                        "; the features are tried first, then the props, "
                        "the tiles and the DEMs");
}

void addGroundStyle(CLI::App* sub, MapRequest& r) {
    sub->add_option("--ramp", r.ground.rampFile,
                    "The DEMs' colours, in gdaldem color-relief's format (heights or "
                    "percentages, \"nv\" for no value; default: a hypsometric ramp)");
    sub->add_option("--relief", r.ground.relief, "none, hillshade (default) or multidirectional")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, Relief>{{"none", Relief::None},
                                          {"hillshade", Relief::Hillshade},
                                          {"multidirectional", Relief::Multidirectional}}));
    sub->add_option("--z-factor", r.ground.zFactor,
                    "Vertical exaggeration of the relief, as gdaldem's -z (default 1)")
        ->check(CLI::PositiveNumber);
    sub->add_option("--azimuth", r.ground.azimuth,
                    "Where the light comes from, degrees clockwise from north (default 315)")
        ->check(CLI::Range(0.0, 360.0));
    sub->add_flag("--progress", r.progress,
                  "Say how far long work has gone on stderr even when it is not a terminal");
    sub->add_flag("--overwrite", r.overwrite, overwriteHelp);
    addLoadOptions(sub, r.load);
}

void addMap(CLI::App& app, Request& request) {
    CLI::App* map = command(
        app, "map", "A georeferenced picture of terrain, features, props and tiles",
        "Draws what the engine makes of the files into a PNG or GeoTIFF, in the scene's\n"
        "plane (easting and northing of a UTM, Lambert or flat-earth scene; for a geocentric\n"
        "one a transverse Mercator on the data's centre, true there in every direction),\n"
        "with square pixels: the DEMs under a hypsometric ramp (sea in blues, land from\n"
        "greens through browns to white) and a hillshade; areal, linear and point features\n"
        "coloured by FACC category; props as squares with a tick towards their heading,\n"
        "coloured by rule; the tile boundaries of a MetaFlight level, labelled row,col where\n"
        "they fit (a level too fine to outline each tile shows its outline and a line every\n"
        "so many tiles); a legend, scale bar, north arrow and the scene, in the frame's\n"
        "corners where they hide nothing drawn, else in a panel east of it. Features, props\n"
        "and tiles go through the plug-in as for 'features', 'props' and 'tiles'. A world\n"
        "file (OUT with .pgw) and OUT.aux.xml with the plane's coordinate system go beside a\n"
        "PNG; a GeoTIFF (OUT.tif) holds them; GDAL and a GIS open either in place. Points\n"
        "closer than the picture can show are thinned, and the legend says how many.\n\n"
        "Examples:\n"
        "  zorhost map /tmp/valley.png --features data/sample/valley.gdb "
        "--terrain data/sample/elevation_utm32n.tif\n"
        "  zorhost map /tmp/props.png --props data/sample/valley_points.shp "
        "--rules data/sample/valley_props.json --terrain data/sample/n45_e009.dt0\n"
        "  zorhost map /tmp/tiles.png --tiles data/sample/zone33_quad.mft --dataset Terrain "
        "--level 1 --size 800x400");
    MapRequest& r = request.map;
    map->add_option("OUT", r.output, "The PNG, or GeoTIFF (.tif), to write")->required();
    addSceneInputs(map, r);
    map->add_option("--extent", r.extent,
                    "MINX,MINY,MAXX,MAXY in the scene's plane, or longitudes and latitudes in "
                    "a geocentric scene (default: what is drawn, with a margin); the pixels "
                    "stay square, so it grows the shorter way to --size's shape")
        ->delimiter(',')
        ->expected(4);
    map->add_option("--size", r.size,
                    "WIDTHxHEIGHT of the frame in pixels, at most 16384 each (default: 1024 on "
                    "the longer side); a legend outside adds its panel")
        ->delimiter('x')
        ->expected(2);
    map->add_option("--title", r.title, "The title (default: the inputs' names)");
    map->add_option("--legend", r.legend,
                    "auto (default: the corners where it hides nothing, else outside), "
                    "outside (a panel east of the frame), corner, or none")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, LegendPlacement>{{"auto", LegendPlacement::Automatic},
                                                   {"outside", LegendPlacement::Outside},
                                                   {"corner", LegendPlacement::Corner},
                                                   {"none", LegendPlacement::None}}));
    addGroundStyle(map, r);
}

void addView(CLI::App& app, Request& request) {
    CLI::App* view = command(
        app, "view", "The scene in 3-D: terrain, features, props and tiles, as the engine shows it",
        "Loads the files as 'map' does and shows them in 3-D on OpenSceneGraph: the DEMs as\n"
        "the surface props are clamped to (a mesh of at most 1024 cells a side, coloured as\n"
        "the map colours them), features and the tiles of a MetaFlight level draped on it,\n"
        "each placed prop at its position and orientation as its model when the rules' model\n"
        "file is there and OpenSceneGraph reads it (.flt, .osgb, .obj), else as a placeholder\n"
        "of its rule's colour: a post with a paler wedge on its front (+y). With a display\n"
        "and no output a window opens (trackball and terrain manipulators; h lists the keys).\n"
        "--png renders one picture off-screen (on the X display: run under xvfb-run where\n"
        "there is none); --osgb writes the scene graph for any OpenSceneGraph viewer\n"
        "(osgviewer OUT.osgb), one transform per prop named as the prop.\n\n"
        "Examples:\n"
        "  zorhost view --osgb /tmp/valley.osgb --terrain data/sample/n45_e009.dt0 "
        "--features data/sample/valley.gdb\n"
        "  zorhost view --png /tmp/valley-3d.png --terrain data/sample/n45_e009.dt0 "
        "--props data/sample/valley_points.shp --rules data/sample/valley_props.json\n"
        "  xvfb-run -a zorhost view --png /tmp/tiles.png --tiles data/sample/zone33_quad.mft "
        "--dataset Terrain --camera 0,-90");
    ViewRequest& r = request.view;
    addSceneInputs(view, r.inputs);
    view->add_option("--png", r.png, "Render one picture off-screen into this PNG");
    view->add_option("--osgb", r.osgb, "Write the scene graph (.osgb, .osgt, .osg or .ive)");
    view->add_option("--size", r.size,
                     "WIDTHxHEIGHT of the picture or window in pixels, at most 8192 each "
                     "(default 1024x768)")
        ->delimiter('x')
        ->expected(2);
    view->add_option("--camera", r.camera,
                     "HEADING,PITCH[,RANGE]: where the camera looks, in degrees from north "
                     "towards east and from the horizon (down negative), and from how many "
                     "metres (default 45,-35 and the whole scene in view)")
        ->delimiter(',')
        ->expected(2, 3);
    view->add_option("--target", r.target,
                     "X,Y the camera looks at, on the ground, in the scene's plane (longitude "
                     "and latitude in a geocentric scene; default: the middle of the scene)")
        ->delimiter(',')
        ->expected(2);
    addGroundStyle(view, r.inputs);
}

// Where a command's text answer goes: stderr when its GeoJSON takes standard output.
std::ostream& answerStream(const std::string& name, const Request& request) {
    const std::string* geojson = name == "describe"   ? &request.describe.geojson
                                 : name == "tiles"    ? &request.tiles.geojson
                                 : name == "features" ? &request.features.geojson
                                 : name == "props"    ? &request.props.geojson
                                                      : nullptr;
    return geojson && *geojson == "-" ? std::cerr : std::cout;
}

int runMetaFlight(const CLI::App& command, Request& request, const LibraryCommands& commands) {
    const std::string name = command.get_name();
    if (name == "describe")
        return commands.describe(request.describe, answerStream(name, request), std::cerr);
    if (name == "tiles")
        return commands.tiles(request.tiles, answerStream(name, request), std::cerr);
    if (name == "check")
        return commands.check(request.check, std::cout, std::cerr);
    if (name == "convert") {
        std::copy(request.values.begin(), request.values.end(), request.convert.values);
        return commands.convert(request.convert, std::cout, std::cerr);
    }
    request.publish.setSwitchDistance = command.count("--switch-distance") > 0;
    request.publish.switchDistance = request.switchDistance;
    return commands.publish(request.publish, std::cout, std::cerr);
}

int runInspectCommand(kelZor::DtDe& de, const Request& request) {
    if (!request.parser.empty()) {
        const std::vector<std::string>& names =
            kelZor::DtHeaderParserFactory::instance(de).registeredNames();
        if (std::find(names.begin(), names.end(), request.parser) == names.end()) {
            std::cerr << "zorhost: no parser is registered under the name " << request.parser
                      << "; 'zorhost parsers' lists them\n";
            return 2;
        }
    }
    std::vector<std::string> paths = request.paths;
    if (paths.empty()) {
        std::string error;
        paths = sampleFiles(de, sampleDirectory(request.global), error);
        if (!error.empty()) {
            std::cerr << "zorhost: " << error << "\n";
            return 1;
        }
    }
    return runInspect(de, paths, request.json, std::cout, std::cerr, request.parser);
}

int runCommand(const CLI::App& command, Request& request) {
    Engine engine;
    std::string error;
    if (!engine.open({request.global.plugin, request.global.configDir, ""}, error)) {
        std::cerr << "zorhost: " << error << "\n";
        return 1;
    }
    kelZor::DtDe& de = engine.de();
    const bool haveLibrary = engine.metaflight() != nullptr;
    const std::string& libraryError = engine.metaflightProblem();

    const std::string name = command.get_name();
    if (name == "parsers")
        return listParsers(engine);
    if (name == "features")
        return runFeatures(de, request.features, answerStream(name, request), std::cerr);
    if (name == "props")
        return runProps(de, request.props, answerStream(name, request), std::cerr);
    if (name == "values")
        return runValues(de, request.valuesRequest, std::cout, std::cerr);
    if (name == "inspect")
        return runInspectCommand(de, request);
    if (name == "check" && !request.check.map.empty()) {
        if (!haveLibrary) {
            std::cerr << "zorhost: " << libraryError << "\n";
            return 1;
        }
        return runCheckMap(de, request.check, (*engine.metaflight()), std::cout, std::cerr);
    }
    if (name == "map" || name == "view") {
        TileSources tiles;
        if (haveLibrary) {
            tiles.footprints = engine.metaflight()->tileFootprints;
            tiles.grid = engine.metaflight()->tileGrid;
        }
        return name == "map" ? runMap(de, request.map, tiles, std::cout, std::cerr)
                             : runView(de, request.view, tiles, std::cout, std::cerr);
    }
    if (!haveLibrary) {
        std::cerr << "zorhost: " << libraryError << "\n";
        return 1;
    }
    return runMetaFlight(command, request, (*engine.metaflight()));
}

// The first word that is not an option or the value of a global one: the command.
std::string commandWord(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--plugin" || word == "--config-dir" || word == "--sample-dir") {
            ++i;
            continue;
        }
        if (!word.empty() && word[0] != '-')
            return word;
    }
    return "";
}

std::vector<std::string> commandNames(CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; }))
        names.push_back(sub->get_name());
    return names;
}

std::string commandList(CLI::App& app) {
    std::string list;
    for (const std::string& name : commandNames(app))
        list += (list.empty() ? "" : ", ") + name;
    return list;
}

// zorhost's, the plug-in's and the libraries' versions; the plug-in is loaded to say which.
int printVersions(const GlobalOptions& options) {
    std::cout << "zorhost " << ZORHOST_VERSION << "\n";
    PluginLibrary plugin;
    const std::vector<std::string> candidates = options.plugin.empty()
                                                    ? PluginLibrary::defaultCandidates()
                                                    : std::vector<std::string>{options.plugin};
    std::string error;
    bool loaded = false;
    for (const std::string& candidate : candidates) {
        if ((loaded = plugin.load(candidate, error)))
            break;
    }
    if (loaded) {
        std::error_code code;
        const std::filesystem::path real = std::filesystem::canonical(plugin.path(), code);
        std::cout << "plug-in " << ZORHOST_VERSION << " (" << (code ? plugin.path() : real.string())
                  << ")\n";
    } else {
        std::cout << "plug-in: not loaded (" << error << ")\n";
    }
    int major = 0, minor = 0, patch = 0;
    OSRGetPROJVersion(&major, &minor, &patch);
    std::cout << "GDAL " << GDALVersionInfo("RELEASE_NAME") << "\n"
              << "PROJ " << major << "." << minor << "." << patch << "\n"
              << "GeographicLib " << GEOGRAPHICLIB_VERSION_STRING << "\n";
    return loaded ? 0 : 1;
}

// `zorhost help [TOPIC]`: the whole program, a command, the scene kinds or the statuses.
int printHelp(CLI::App& app, const std::string& topic) {
    if (topic.empty()) {
        // The whole program's help: app.help() would give the selected command's.
        std::cout << app.get_formatter()->make_help(&app, "zorhost", CLI::AppFormatMode::Normal);
        return 0;
    }
    if (topic == "scene") {
        std::cout << sceneKindsHelp;
        return 0;
    }
    if (topic == "status") {
        std::cout << statusTable;
        return 0;
    }
    for (const CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; })) {
        if (sub->get_name() == topic && topic != "help") {
            std::cout << sub->help();
            return 0;
        }
    }
    std::cerr << "zorhost: help: no topic " << topic << "; the topics are scene, status and "
              << "each command (" << commandList(app) << ")\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    const EscapedNames oneLineEach(std::cerr, std::vector<std::string>(argv, argv + argc));
    CLI::App app(description, "zorhost");
    app.footer(std::string(footer) + "\n" + exitStatuses);
    app.require_subcommand(1);
    app.fallthrough();  // the global options may follow the command as well
    Request request;
    app.add_option("--plugin", request.global.plugin, "The plug-in library to load");
    app.add_option("--config-dir", request.global.configDir,
                   "The engine's configuration directory handed to the plug-in (default: "
                   "empty)");
    app.add_option("--sample-dir", request.global.sampleDir,
                   "The sample terrain set inspected when no PATH is given (default: "
                   "$ZORHOST_SAMPLE_DIR, else data/sample of the source tree, else the "
                   "installed copy)");
    addInspect(app, request);
    command(app, "parsers", "The registered header parsers and their extensions",
            "The parsers the plug-in registered, in registration order, each with the\n"
            "extensions that lead to it.\n\nExample:\n  zorhost parsers");
    addMetaFlight(app, request);
    addFeatures(app, request);
    addValues(app, request);
    addProps(app, request);
    addMap(app, request);
    addView(app, request);
    std::string helpTopic;
    command(app, "help",
            "Every command with a line on what it does; 'help scene' the scene kinds, 'help "
            "status' the exit statuses, 'help COMMAND' a command's options",
            "Examples:\n  zorhost help\n  zorhost help scene\n  zorhost help status")
        ->add_option("TOPIC", helpTopic, "scene, status or a command");
    bool version = false;
    app.add_flag("--version", version,
                 "zorhost's, the plug-in's, GDAL's, PROJ's and GeographicLib's versions");
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--plugin" && i + 1 < argc)
            request.global.plugin = argv[i + 1];
        else if (word.rfind("--plugin=", 0) == 0)
            request.global.plugin = word.substr(9);
    }
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--version")
            return printVersions(request.global);
    }

    const std::string word = commandWord(argc, argv);
    const std::vector<std::string> names = commandNames(app);
    if (!word.empty() && std::find(names.begin(), names.end(), word) == names.end()) {
        std::cerr << "zorhost: unknown command " << word << "; the commands are "
                  << commandList(app) << "\nTry 'zorhost --help'.\n";
        return 2;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::cerr << "zorhost: " << e.what() << "\nTry 'zorhost --help'.\n";
        return 2;
    }
    const CLI::App* command = app.get_subcommands().front();
    if (command->get_name() == "help")
        return printHelp(app, helpTopic);
    // An interrupted run leaves no temporary behind and dies of its signal.
    outputTemporaries::removeOnSignals();
    // Whatever the engine throws ends the command with one line, never an abort.
    try {
        return runCommand(*command, request);
    } catch (const std::exception& error) {
        std::cerr << "zorhost: " << command->get_name() << ": " << error.what() << "\n";
    } catch (...) {
        std::cerr << "zorhost: " << command->get_name() << ": an unknown failure\n";
    }
    return 1;
}
