// Fuzz target: any bytes as a vector source, loaded into a UTM, a flat-earth and a
// geocentric scene and fed through the feature adder, the field value reader and the
// prop adder (one rule over a small DEM held in GDAL's memory).
//
// Input: byte 0 chooses the form. Even: the rest is GeoJSON text. Odd: the rest is a
// shapefile cut in three (.shp, .shx, .dbf) at two 16-bit little-endian lengths (bytes 1
// to 4), with a .prj from byte 5's choice (none, WGS84, UTM 32N, UTM 33S, Lambert zone
// II of Paris).
//
// Checked, not just run: every call returns (nothing thrown past it); DtNotifyLevel is
// what it was; no node, feature, prop position or orientation holds a NaN or an
// infinity, nor does a value's text; a prop's orientation is a unit quaternion; a file
// that gives nothing is reported to the engine as an error.
#include <cpl_vsi.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "EsriPrj.h"
#include "FuzzSupport.h"
#include "hxutil/DtNotify.h"
#include "terrainDbFactory/DtTdbLoadSession.h"
#include "zorCore/DtFeatureAdder.h"
#include "zorCore/DtFeatureFieldValueReader.h"
#include "zorTerrain/DtTdbPropAdder.h"

namespace {

const char* const directory = "/vsimem/fuzz_vector_load/";

// Puts bytes in GDAL's memory under `name`; removed with the next input.
std::string putFile(const std::string& name, const uint8_t* data, size_t size) {
    const std::string path = directory + name;
    VSILFILE* file = VSIFOpenL(path.c_str(), "wb");
    if (file) {
        VSIFWriteL(data, 1, size, file);
        VSIFCloseL(file);
    }
    return path;
}

std::string putText(const std::string& name, const std::string& text) {
    return putFile(name, reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

void clearFiles() {
    char** names = VSIReadDir(directory);
    for (char** name = names; name && *name; ++name)
        VSIUnlink((std::string(directory) + *name).c_str());
    CSLDestroy(names);
}

std::string prjOf(uint8_t choice) {
    static const int epsg[] = {0, 4326, 32632, 32733, 27572};
    return esriPrj(epsg[choice % 5]);
}

uint16_t lengthAt(const uint8_t* data) {
    return static_cast<uint16_t>(data[0] | (data[1] << 8));
}

// The vector source the input stands for; empty when it is too short to be one.
std::string sourceOf(const uint8_t* data, size_t size) {
    if (size < 1)
        return "";
    if ((data[0] & 1) == 0)
        return putFile("input.geojson", data + 1, size - 1);
    if (size < 6)
        return "";
    static const std::map<uint8_t, std::string> prjs = [] {
        std::map<uint8_t, std::string> texts;
        for (uint8_t choice = 0; choice < 5; ++choice)
            texts[choice] = prjOf(choice);
        return texts;
    }();
    const uint8_t* rest = data + 6;
    size_t left = size - 6;
    const size_t shp = std::min<size_t>(lengthAt(data + 1), left);
    const size_t shx = std::min<size_t>(lengthAt(data + 3), left - shp);
    const std::string path = putFile("input.shp", rest, shp);
    putFile("input.shx", rest + shp, shx);
    putFile("input.dbf", rest + shp + shx, left - shp - shx);
    const std::string& prj = prjs.at(static_cast<uint8_t>(data[5] % 5));
    if (!prj.empty())
        putText("input.prj", prj);
    return path;
}

void check(bool holds) {
    if (!holds)
        __builtin_trap();
}

bool finite(const DtVector64& v) {
    return std::isfinite(v.x()) && std::isfinite(v.y()) && std::isfinite(v.z());
}

// A 3 x 3 Float32 DEM in WGS84 around (9, 45) and (15, -10), one post without a height.
void addTerrain(kelZor::DtTerrain& terrain) {
    for (const auto& [lon, lat, name] :
         {std::make_tuple(8.0, 46.0, "north.tif"), std::make_tuple(14.0, -9.0, "south.tif")}) {
        const std::string path = std::string("/vsimem/fuzz_vector_dem/") + name;
        GDALDatasetUniquePtr dem(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            path.c_str(), 3, 3, 1, GDT_Float32, nullptr));
        double transform[6] = {lon, 1.0, 0.0, lat, 0.0, -1.0};
        dem->SetGeoTransform(transform);
        OGRSpatialReference wgs84;
        wgs84.SetWellKnownGeogCS("WGS84");
        dem->SetSpatialRef(&wgs84);
        float heights[9] = {100, 200, 300, 400, -9999, 600, 700, 800, 900};
        dem->GetRasterBand(1)->SetNoDataValue(-9999);
        if (dem->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 3, 3, heights, 3, 3, GDT_Float32, 0,
                                            0) != CE_None)
            continue;
        dem.reset();
        std::string error;
        terrain.addElevationSource(path, error);
    }
}

kelZor::DtDe& engine() {
    kelZor::DtDe& de = fuzzEngine();
    static const bool ready = [&de] {
        // OGR keeps up to a thousand transformations of systems it has seen; a fuzzer
        // shows it a new system with nearly every input.
        CPLSetConfigOption("OSR_CT_CACHE_SIZE", "16");
        GDALAllRegister();
        addTerrain(de.scene().terrain());
        kelArchives::DtModelDefinitionRecord tree;
        tree.setName("tree");
        de.sharedState().modelDefinitionManager().addDefinition(tree);
        return true;
    }();
    (void)ready;
    return de;
}

bool spells(const uint8_t* data, size_t size, const char* word) {
    return memmem(data, size, word, std::strlen(word)) != nullptr;
}

bool engineWasTold(kelZor::DtDe& de, size_t before, kelZor::DtDeError::ErrorCode code) {
    for (size_t i = before; i < de.reportedErrors().size(); ++i) {
        if (de.reportedErrors()[i].error.code() == code)
            return true;
    }
    return false;
}

void addFeatures(kelZor::DtDe& de, const std::string& path) {
    kelZor::DtFeatureLayer layer(path);
    std::unique_ptr<kelZor::DtFeatureAdder> adder(de.featureAdderCreator()->create(de));
    const size_t before = de.reportedErrors().size();
    adder->addFeatures(layer);
    check(DtNotifyLevel == 1);
    size_t features = 0;
    layer.featureSet().forEach(
        [&](const kelZor::DtPointFeature& f) {
            ++features;
            check(finite(f.location()) && finite(f.dimensions()));
            check(!f.rotation() || std::isfinite(*f.rotation()));
        },
        [&](const kelZor::DtEdgeFeature& f) {
            ++features;
            for (const DtVector64& v : f.vertices())
                check(finite(v));
        },
        [&](const kelZor::DtArealFeature& f) {
            ++features;
            for (const DtVector64& v : f.vertices())
                check(finite(v));
        });
    // A load that failed made nothing and said so.
    check(features == 0 || !engineWasTold(de, before, kelZor::DtDeError::FileNotLoaded));
}

// `textsMayBeNumbersNames`: the input itself spells "nan" or "inf", which a text field
// may then hold as it stands.
void readValues(kelZor::DtDe& de, const std::string& path, bool textsMayBeNumbersNames) {
    std::map<std::string, std::set<std::string>> values;
    const size_t before = de.reportedErrors().size();
    const bool read =
        kelZor::DtFeatureFieldValueReaderFactory::instance(de).defaultReader()->readValuesFromFile(
            path, values);
    check(DtNotifyLevel == 1);
    check(read != engineWasTold(de, before, kelZor::DtDeError::FileNotLoaded));
    // A number's text is never that of NaN or infinity.
    for (const auto& [name, texts] : values) {
        if (textsMayBeNumbersNames)
            break;
        for (const char* notANumber : {"nan", "-nan", "inf", "-inf"})
            check(texts.count(notANumber) == 0);
    }
}

void addProps(kelZor::DtDe& de, const std::string& path) {
    kelArchives::DtAddPropsRuleRecord rule;
    rule.setFieldValue("DtFeatureType", "0");  // every free point
    rule.setModelDefinition("tree");
    rule.setPropType("tree");
    rule.setRotationField("AOO");
    kelZor::DtAgentManagerInterface agents;
    kelZor::DtTdbPropAdder adder(de, path, agents);
    kelZor::DtTerrainLayer layer;
    adder.addProps(rule, &layer);
    check(DtNotifyLevel == 1);
    for (size_t i = 0; i < layer.numProps(); ++i) {
        const kelArchives::DtPropRecord& record = layer.prop(i).record();
        const double* p = record.position();
        const double* q = record.orientation();
        check(std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]));
        const double norm = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
        check(std::fabs(norm - 1.0) < 1e-9);
    }
}

}  // namespace

// Every object a load read is accounted for once: without a geometry, left out, or in
// the network as a point, line or area.
static void checkReports(const DtTdbLoadSession& session) {
    for (const DtTdbLoadReport& report : session.reports()) {
        for (const DtTdbLayerReport& layer : report.layers) {
            if (layer.objects != layer.noGeometry.count + layer.unplaceable.count + layer.points +
                                     layer.lines + layer.areas ||
                layer.endId < layer.firstId)
                __builtin_trap();
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024)
        return 0;
    kelZor::DtDe& de = engine();
    clearFiles();
    const std::string path = sourceOf(data, size);
    if (path.empty())
        return 0;
    DtWarn.setTarget(&nowhere());
    DtNotifyLevel = 1;
    for (const auto& [type, parameters] :
         {std::make_pair(kelZor::DtCoordinateConverter::UTM, "45,9,32,32,N,0,0,0,0,0"),
          std::make_pair(kelZor::DtCoordinateConverter::UTM, "0,15,33,33,S,498000,8894000,0,1,0"),
          std::make_pair(kelZor::DtCoordinateConverter::FlatEarth, "45,9"),
          std::make_pair(kelZor::DtCoordinateConverter::Geocentric, "WGS84")}) {
        de.sharedState().coordinateSystem() = kelZor::DtCoordinateSystem(type, parameters);
        de.clearReportedErrors();
        // In the geocentric pass a host tool's session names the code field, gives codes
        // and a system to layers without one, and takes the loads' reports.
        const bool asTool = std::string(type) == kelZor::DtCoordinateConverter::Geocentric;
        std::unique_ptr<DtTdbLoadSession> session;
        if (asTool)
            session = std::make_unique<DtTdbLoadSession>(
                DtTdbLoadSession::Options{{"NAM", "ECC"}, "AL020", "EPSG:4326", {}});
        try {
            addFeatures(de, path);
            readValues(de, path, spells(data, size, "nan") || spells(data, size, "inf"));
            addProps(de, path);
        } catch (...) {
            __builtin_trap();  // the engine's calls return; they never throw past themselves
        }
        if (session)
            checkReports(*session);
    }
    return 0;
}
