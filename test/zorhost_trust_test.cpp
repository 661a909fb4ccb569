// What zorhost tells of every object a load reads, and the scenes a person can name:
// data made in each test with ogr2ogr from CSV text, as a user's files are, and positions
// checked against GeographicLib's GeoConvert.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "JsonOutput.h"
#include "TempDir.h"
#include "ZorhostRun.h"

namespace {

// Points from CSV text (lon and lat columns) into `target` through ogr2ogr, in `srs`.
void ogrPoints(const TempDir& dir, const std::string& csv, const std::string& target,
               const std::string& srs = "EPSG:4326", const std::string& more = "") {
    const std::string source = dir.write("points.csv", csv);
    const std::string command = "ogr2ogr -q -overwrite '" + target + "' '" + source +
                                "' -oo X_POSSIBLE_NAMES=lon -oo Y_POSSIBLE_NAMES=lat "
                                "-oo KEEP_GEOM_COLUMNS=NO -s_srs EPSG:4326 -t_srs " +
                                srs + " " + more + " 2>&1";
    ASSERT_EQ(shell(command), "") << command;
}

// GeoConvert's UTM easting and northing of a latitude and longitude.
void geoConvertUtm(double lat, double lon, double& easting, double& northing) {
    std::istringstream answer(
        shell("echo " + std::to_string(lat) + " " + std::to_string(lon) + " | GeoConvert -u -p 4"));
    std::string zone;
    answer >> zone >> easting >> northing;
}

Json firstLocation(const ZorhostRun& run) {
    return Json::parse(run.out).at("features").at(0).at("location");
}

}  // namespace

TEST(ZorhostLoadReport, everyObjectIsAccountedForWithItsReason) {
    TempDir dir;
    const std::string cities = dir.file("cities.shp");
    ogrPoints(dir, "name,lon,lat\nRome,12.5,41.9\nOslo,10.75,59.9\nLima,-77.03,-12.04\n", cities);
    const ZorhostRun silent = zorhost("features " + cities);
    EXPECT_EQ(silent.status, 1);  // a file with objects gave nothing
    EXPECT_NE(silent.err.find(cities + ": 3 objects read, 0 features made; 3 objects made none: 3 "
                                       "without a feature-code field"),
              std::string::npos)
        << silent.err;
    EXPECT_NE(silent.err.find("--code gives one"), std::string::npos);

    const ZorhostRun given = zorhost("features " + cities + " --code AL020 --json");
    EXPECT_EQ(given.status, 0) << given.err;
    const Json answer = Json::parse(given.out);
    EXPECT_EQ(answer.at("features").size(), 3u);
    EXPECT_EQ(answer.at("features").at(0).at("facc"), "AL20");
    EXPECT_EQ(answer.at("load").at("layers").at(0).at("reasons").at("codeGiven").at("count"), 3);
    EXPECT_EQ(zorhost("features " + cities + " --code foo").status, 2);

    // A FACC field is a code field; codes the engine cannot read, or reads oddly, are said.
    const std::string codes = dir.file("codes.shp");
    ogrPoints(dir,
              "FACC,other,lon,lat\nAL020,BH140,1,1\nfoo,BH140,2,2\nA,BH140,3,3\n,BH140,4,4\n"
              "12345,BH140,5,5\n",
              codes);
    const ZorhostRun coded = zorhost("features " + codes + " --json");
    EXPECT_EQ(coded.status, 0) << coded.err;
    const Json load = Json::parse(coded.out).at("load");
    EXPECT_EQ(load.at("objects"), 5);
    EXPECT_EQ(load.at("features"), 3);
    const Json& reasons = load.at("layers").at(0).at("reasons");
    EXPECT_EQ(load.at("layers").at(0).at("codeField"), "FACC");
    EXPECT_EQ(reasons.at("emptyCode"), Json({{"count", 1}, {"firstFid", 3}}));
    EXPECT_EQ(reasons.at("shortCode"), Json({{"count", 1}, {"firstFid", 2}}));
    EXPECT_EQ(reasons.at("malformedCode"),
              Json({{"count", 2}, {"firstFid", 1}, {"firstCode", "foo"}}));
    EXPECT_NE(coded.err.find("2 objects made none: 1 with an empty feature code"),
              std::string::npos)
        << coded.err;
    EXPECT_NE(coded.err.find("2 with a code that is not two letters followed by digits"),
              std::string::npos);
    // Another field named as the code's: every object has one there.
    const ZorhostRun other = zorhost("features " + codes + " --code-field other");
    EXPECT_EQ(other.status, 0) << other.err;
    EXPECT_NE(other.out.find("features: 5 point"), std::string::npos) << other.out;
    EXPECT_EQ(other.err, "");

    // The sample's survey mark, which has no code, is counted, not lost.
    const ZorhostRun valley = zorhost("features data/sample/valley.gdb");
    EXPECT_NE(valley.err.find("9 objects read, 8 features made; 1 object made none: 1 with an "
                              "empty feature code (the first is feature 5 of layer \"sites\""),
              std::string::npos)
        << valley.err;

    // A rule that names what no point carries is said, not silently empty.
    const std::string rules = dir.write("rules.json", R"({"models": {"oak": "oak.flt"},
        "rules": [{"fields": {"NOPE": "1"}, "model": "oak", "propType": "tree",
                   "rotationField": "TURN"},
                  {"fields": {"FACC": "AL020"}, "model": "oak", "propType": "tree"}]})");
    const ZorhostRun props = zorhost("props " + codes + " --rules " + rules);
    EXPECT_EQ(props.status, 0) << props.err;
    EXPECT_NE(props.err.find(codes + ": rule 0 names the field \"NOPE\", which no point has"),
              std::string::npos)
        << props.err;
    EXPECT_NE(props.err.find("rule 0's rotation field \"TURN\" is no field of the points"),
              std::string::npos);
    EXPECT_EQ(props.err.find("rule 1"), std::string::npos) << props.err;

    // A shapefile without its .prj is used with the system --srs gives it.
    std::remove(dir.file("cities.prj").c_str());
    EXPECT_NE(zorhost("features " + cities + " --code AL020").err.find("has no coordinate system"),
              std::string::npos);
    const ZorhostRun assigned =
        zorhost("features " + cities + " --code AL020 --srs EPSG:4326 --scene EPSG:32633 --json");
    ASSERT_EQ(assigned.status, 0) << assigned.err;
    double easting = 0.0, northing = 0.0;
    geoConvertUtm(41.9, 12.5, easting, northing);
    EXPECT_NEAR(firstLocation(assigned).at(0).get<double>(), easting, 1e-3);
    EXPECT_NEAR(firstLocation(assigned).at(1).get<double>(), northing, 1e-3);
}

TEST(ZorhostScene, systemsByCodeByTextAndByFileGiveTheSamePositions) {
    TempDir dir;
    const std::string csv = "ECC,lon,lat\nAL015,15.3,-33.2\n";
    const std::string points = dir.file("south.shp");
    ogrPoints(dir, csv, points);
    ogrPoints(dir, csv, dir.file("south.gpkg"), "EPSG:32733");
    ogrPoints(dir, csv, dir.file("south.geojson"));
    double easting = 0.0, northing = 0.0;
    geoConvertUtm(-33.2, 15.3, easting, northing);

    const std::string features = "features --json " + points + " --scene ";
    for (const std::string& scene :
         {std::string("EPSG:32733"), std::string("UTM:0,15,-33,33,S,0,0,0,0,0"),
          "@" + dir.file("south.gpkg"), std::string("'+proj=utm +zone=33 +south'")}) {
        SCOPED_TRACE(scene);
        const ZorhostRun run = zorhost(features + scene);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(Json::parse(run.out).at("scene").at("type"), "UTM");
        EXPECT_NEAR(firstLocation(run).at(0).get<double>(), easting, 1e-3);
        EXPECT_NEAR(firstLocation(run).at(1).get<double>(), northing, 1e-3);
    }
    // Geographic data give a geocentric scene, by file as by text, and the line says why.
    const ZorhostRun byFile = zorhost(features + "@" + dir.file("south.geojson"));
    const ZorhostRun byText = zorhost(features + "Geocentric:WGS84");
    ASSERT_EQ(byFile.status, 0) << byFile.err;
    EXPECT_EQ(firstLocation(byFile), firstLocation(byText));
    EXPECT_NE(zorhost("features " + dir.file("south.geojson")).out.find("is geographic"),
              std::string::npos);

    // A Lambert system by its code equals the same system read from a file's .prj.
    const std::string paris = dir.file("paris.shp");
    ogrPoints(dir, "ECC,lon,lat\nAL015,2.35,48.85\n", paris, "EPSG:27572");
    const ZorhostRun byCode = zorhost("features --json " + paris + " --scene EPSG:27572");
    const ZorhostRun byPrj = zorhost("features --json " + paris);
    ASSERT_EQ(byCode.status, 0) << byCode.err;
    EXPECT_EQ(Json::parse(byCode.out).at("scene"), Json::parse(byPrj.out).at("scene"));
    EXPECT_EQ(firstLocation(byCode), firstLocation(byPrj));

    // Data far from a flat-earth origin are warned of; the answer still comes.
    const ZorhostRun far = zorhost("features " + points + " --scene FlatEarth:45,9");
    EXPECT_EQ(far.status, 0);
    EXPECT_NE(far.err.find("warning: the data of " + points + " lie 8"), std::string::npos)
        << far.err;

    const ZorhostRun help = zorhost("help scene");
    for (const char* kind : {"UTM:", "Lambert:", "FlatEarth:", "Geocentric:", "EPSG:", "@FILE"})
        EXPECT_NE(help.out.find(kind), std::string::npos) << kind;
}
