// `zorhost features` and `zorhost values` on the sample vector set, checked against
// what OGR itself reads from the same files (what ogrinfo reports), carried into the
// scene with GeographicLib.
#include <gdal_priv.h>
#include <gtest/gtest.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/LocalCartesian.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "TempDir.h"
#include "ZorhostRun.h"

namespace {

struct SourceFeature {
    std::string kind;  // "point", "linear", "areal"
    std::string ecc;
    std::vector<std::array<double, 2>> lonLat;  // the vertices, in WGS84
};

// Every geometry part of every layer as OGR reads it, in WGS84, in the loader's order:
// layer by layer, each part of a multi-geometry on its own.
std::vector<SourceFeature> readWithOgr(const std::string& path) {
    GDALAllRegister();
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    std::vector<SourceFeature> features;
    if (!dataset)
        return features;
    OGRSpatialReference wgs84;
    wgs84.SetWellKnownGeogCS("WGS84");
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    for (OGRLayer* layer : dataset->GetLayers()) {
        for (const auto& feature : *layer) {
            std::unique_ptr<OGRGeometry> g(feature->GetGeometryRef()->clone());
            g->transformTo(&wgs84);
            const int ecc = feature->GetFieldIndex("ECC");
            const std::string code = ecc >= 0 ? feature->GetFieldAsString(ecc) : "";
            auto addCurve = [&](const char* kind, const OGRSimpleCurve& curve) {
                SourceFeature f{kind, code, {}};
                for (const OGRPoint& p : curve)
                    f.lonLat.push_back({p.getX(), p.getY()});
                features.push_back(f);
            };
            std::vector<const OGRGeometry*> parts{g.get()};
            if (OGR_GT_IsSubClassOf(wkbFlatten(g->getGeometryType()), wkbGeometryCollection)) {
                parts.clear();
                for (const OGRGeometry* part : *g->toGeometryCollection())
                    parts.push_back(part);
            }
            for (const OGRGeometry* part : parts) {
                switch (wkbFlatten(part->getGeometryType())) {
                    case wkbPoint:
                        features.push_back(
                            {"point", code, {{part->toPoint()->getX(), part->toPoint()->getY()}}});
                        break;
                    case wkbLineString:
                        addCurve("linear", *part->toLineString());
                        break;
                    case wkbPolygon:
                        addCurve("areal", *part->toPolygon()->getExteriorRing());
                        break;
                    default:
                        ADD_FAILURE() << "the sample holds no " << part->getGeometryName();
                }
            }
        }
    }
    return features;
}

// The sources the adder takes, points first as it walks them; edges keep their order.
std::vector<SourceFeature> expectedFeatures(const std::vector<SourceFeature>& all) {
    std::vector<SourceFeature> taken;
    for (const char* kind : {"point", "edge"}) {
        for (const SourceFeature& f : all) {
            const bool isPoint = f.kind == "point";
            if (isPoint == (std::string(kind) == "point") && f.ecc.size() >= 2)
                taken.push_back(f);
        }
    }
    return taken;
}

using Project = std::function<std::array<double, 3>(double lon, double lat)>;

void expectFeaturesAt(const Json& output, const std::vector<SourceFeature>& expected,
                      const Project& project) {
    const Json& features = output.at("features");
    ASSERT_EQ(features.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        const Json& f = features[i];
        EXPECT_EQ(f.at("kind"), expected[i].kind);
        const Json vertices =
            f.contains("location") ? Json::array({f.at("location")}) : f.at("vertices");
        ASSERT_EQ(vertices.size(), expected[i].lonLat.size());
        for (size_t v = 0; v < vertices.size(); ++v) {
            const std::array<double, 3> p =
                project(expected[i].lonLat[v][0], expected[i].lonLat[v][1]);
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(vertices[v][c].get<double>(), p[c], 1e-3) << v << "," << c;
        }
    }
}

const std::string gdb = "data/sample/valley.gdb";
const std::string points = "data/sample/valley_points.shp";

}  // namespace

TEST(ZorhostFeatures, theSampleLandsWhereGeographicLibPutsItInTheFilesOwnAndAFlatScene) {
    const std::vector<SourceFeature> expected =
        expectedFeatures(readWithOgr(std::string(ZOR_SOURCE_DIR) + "/" + gdb));
    ASSERT_FALSE(expected.empty());

    const ZorhostRun own = zorhost("features --json " + gdb);
    ASSERT_EQ(own.status, 0) << own.err;
    const Json ownOutput = Json::parse(own.out);
    EXPECT_EQ(ownOutput.at("scene").at("type"), "UTM");
    EXPECT_TRUE(ownOutput.at("errors").empty());
    expectFeaturesAt(ownOutput, expected, [](double lon, double lat) {
        int zone = 0;
        bool north = true;
        double x = 0, y = 0;
        GeographicLib::UTMUPS::Forward(lat, lon, zone, north, x, y, 32);
        return std::array<double, 3>{x, y, 0.0};
    });
    const Json& first = ownOutput.at("features").at(0);
    EXPECT_EQ(first.at("facc"), "AL15");  // written AL015
    EXPECT_EQ(first.at("dimensions"), Json::array({12.0, 20.0, 9.0}));
    EXPECT_NEAR(first.at("headingDegrees").get<double>(), 30.0, 1e-12);
    EXPECT_TRUE(ownOutput.at("features").at(1).at("headingDegrees").is_null());

    const ZorhostRun flat = zorhost("features --json --scene @data/sample/n45_e009.dt0 " + gdb);
    ASSERT_EQ(flat.status, 0) << flat.err;
    const GeographicLib::LocalCartesian plane(45.5, 9.5, 0.0);
    expectFeaturesAt(Json::parse(flat.out), expected, [&](double lon, double lat) {
        std::array<double, 3> p{};
        plane.Forward(lat, lon, 0.0, p[0], p[1], p[2]);
        return p;
    });

    // The text form says the same: the scene first, the counts last.
    const ZorhostRun text = zorhost("features " + gdb);
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out.rfind("scene: UTM ", 0), 0u) << text.out;
    EXPECT_NE(text.out.find("\nfeatures: 4 point, 2 linear, 2 areal\n"), std::string::npos)
        << text.out;
}

TEST(ZorhostFeatures, geoJsonPutsEachFeatureBackWhereTheSourceHasIt) {
    TempDir dir;
    const std::string out = dir.file("points.geojson");
    const ZorhostRun run = zorhost("features " + points + " --geojson " + out);
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<SourceFeature> expected =
        expectedFeatures(readWithOgr(std::string(ZOR_SOURCE_DIR) + "/" + points));
    const std::vector<SourceFeature> written = readWithOgr(out);
    ASSERT_EQ(written.size(), expected.size());
    for (size_t i = 0; i < written.size(); ++i) {
        EXPECT_EQ(written[i].kind, "point");
        EXPECT_NEAR(written[i].lonLat[0][0], expected[i].lonLat[0][0], 1e-9);
        EXPECT_NEAR(written[i].lonLat[0][1], expected[i].lonLat[0][1], 1e-9);
    }
    const std::string geojson = slurp(out);
    EXPECT_NE(geojson.find("\"facc\": \"AL15\""), std::string::npos);
    EXPECT_NE(geojson.find("\"headingDegrees\": null"), std::string::npos);
    // The sample points have no heights: the geometry is written in two dimensions.
    EXPECT_EQ(Json::parse(geojson)["features"][0]["geometry"]["coordinates"].size(), 2u);

    // Written again over the same file when asked to: replaced, not appended to.
    ASSERT_EQ(zorhost("features " + points + " --geojson " + out + " --overwrite").status, 0);
    EXPECT_EQ(readWithOgr(out).size(), expected.size());
}

TEST(ZorhostValues, severalFilesGatherIntoOneMap) {
    const ZorhostRun run = zorhost("values --json " + points + " " + gdb);
    ASSERT_EQ(run.status, 0) << run.err;
    const Json values = Json::parse(run.out).at("values");
    // Both spellings of the code are kept: the reader lists texts, not codes.
    EXPECT_EQ(values.at("ECC"), Json::array({"AL015", "AL15", "EC030"}));
    EXPECT_EQ(values.at("DtFeatureType"), Json::array({"0"}));
    EXPECT_TRUE(values.at("NAM").size() >= 5u);

    const ZorhostRun partly = zorhost("values " + points + " /nonexistent/x.shp");
    EXPECT_EQ(partly.status, 1);
    EXPECT_NE(partly.out.find("ECC (3 values)\n  AL015\n  AL15\n  EC030\n"), std::string::npos)
        << partly.out;
}

TEST(ZorhostProps, theSampleRulesPlaceHousesAndTreesOnTheCell) {
    const std::string rules = "data/sample/valley_props.json";
    const ZorhostRun run = zorhost("props " + points + " --rules " + rules +
                                   " --terrain data/sample/n45_e009.dt0 --json");
    ASSERT_EQ(run.status, 0) << run.err;
    const Json output = Json::parse(run.out);
    // The points' own system before the cell's: the props are the points'.
    EXPECT_EQ(output.at("scene").at("type"), "UTM");
    EXPECT_EQ(output.at("rules"), Json::parse(R"([{"rule":0,"added":1},{"rule":1,"added":1},
                                                  {"rule":2,"added":2}])"));
    const Json& house = output.at("props").at(0);
    EXPECT_EQ(house.at("name"), "building_1");
    EXPECT_EQ(house.at("model"), "farm house");
    EXPECT_NEAR(house.at("headingDegrees").get<double>(), 30.0, 1e-9);
    EXPECT_GT(house.at("position").at(2).get<double>(), 1000.0);  // on the valley's floor
    EXPECT_TRUE(output.at("errors").empty());

    // A rule naming no model: a report per matched node, then one count; the engine was
    // told errors, so the status is 1.
    TempDir dir;
    std::ofstream(dir.file("rules.json")) << R"({"models": {"oak": "oak.flt"}, "rules": [
                {"fields": {"ECC": "EC030"}, "model": "elm", "propType": "tree"},
                {"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree"}]})";
    const ZorhostRun faulty = zorhost("props " + points + " --rules " + dir.file("rules.json") +
                                      " --terrain data/sample/elevation_utm32n.tif --scene "
                                      "UTM:45,9,32,32,N,0,0,0,0,0");
    EXPECT_EQ(faulty.status, 1) << faulty.err;
    EXPECT_NE(faulty.out.find("rule 0: ECC=EC030 -> elm (tree): 0 props\n"), std::string::npos)
        << faulty.out;
    // The engine's errors are problems: on stderr, naming the file.
    const std::string named = "zorhost: " + points + ": engine error ";
    EXPECT_NE(faulty.err.find(named + "8: model definition \"elm\" does not exist\n" + named +
                              "8: model definition \"elm\" does not exist\n" + named +
                              "11: 2 props of \"" + points + "\" could not be placed\n"),
              std::string::npos)
        << faulty.err;
    EXPECT_EQ(faulty.out.find("error"), std::string::npos) << faulty.out;

    std::ofstream(dir.file("broken.json")) << "{\"rules\": [\n  {\"fields\": }";
    const ZorhostRun broken = zorhost("props " + points + " --rules " + dir.file("broken.json"));
    EXPECT_EQ(broken.status, 2);
    EXPECT_NE(broken.err.find("at line 2, column"), std::string::npos) << broken.err;
    EXPECT_EQ(countLines(broken.err), 1u);
    EXPECT_EQ(
        zorhost("props " + points + " --rules " + rules + " --terrain /nonexistent.dt1").status, 1);
    EXPECT_EQ(zorhost("props data/sample/n45_e009.dt0 --rules " + rules).status, 1);
}
