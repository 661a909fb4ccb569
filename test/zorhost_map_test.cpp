// zorhost map and the GeoJSON of tiles and coverages, read back the way a person's GIS
// reads them: the picture through GDAL (its world file and .aux.xml), the GeoJSON
// through OGR, and where each mark or tile lies checked against GeographicLib.
#include <gtest/gtest.h>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/Geodesic.hpp>
#include <GeographicLib/LambertConformalConic.hpp>
#include <GeographicLib/TransverseMercator.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "MapStyle.h"
#include "MetaFlightDocument.h"
#include "Picture.h"
#include "TempDir.h"
#include "VectorFiles.h"
#include "ZorhostRun.h"

namespace {

// The pixel a position maps to, and its eight neighbours, have the colour.
void expectMarker(const Picture& picture, double x, double y, const MapColour& colour) {
    int col, row;
    picture.pixelOf(x, y, col, row);
    for (int dr = -1; dr <= 1; ++dr) {
        for (int dc = -1; dc <= 1; ++dc) {
            const MapColour seen = picture.at(col + dc, row + dr);
            EXPECT_TRUE(near(seen, colour))
                << "at " << col + dc << "," << row + dr << ": " << seen.red() << " " << seen.green()
                << " " << seen.blue() << " for " << colour.red() << " " << colour.green() << " "
                << colour.blue();
        }
    }
}

// The picture's coordinate system puts UTM 32 N's (easting, northing) at (x, y).
void expectPlaneOf(const Picture& picture, double easting, double northing, double x, double y) {
    OGRSpatialReference plane, utm32n = *srsFromEpsg(32632);
    ASSERT_EQ(plane.importFromWkt(picture.srs.c_str()), OGRERR_NONE) << picture.srs;
    plane.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    utm32n.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> toPlane(
        OGRCreateCoordinateTransformation(&utm32n, &plane));
    ASSERT_TRUE(toPlane && toPlane->Transform(1, &easting, &northing));
    EXPECT_NEAR(easting, x, 1e-6);
    EXPECT_NEAR(northing, y, 1e-6);
}

// 60 x 60 posts of 10 m in UTM 32 N over 499900..500500 E, 5039500..5040100 N: 100 m,
// with a plateau of 900 m east of 500450 E.
std::string writeStepDem(const TempDir& dir) {
    const std::string path = dir.file("dem.tif");
    EXPECT_TRUE(writeUtm32nDem(path, 60, 60, 499900, 5040100, 10,
                               [](int col, int) { return col >= 55 ? 900.0 : 100.0; }));
    return path;
}

// Tiles of 200 m over 500000..500400 E, 5039600..5040000 N in UTM 32 N.
std::string writeTiles(const TempDir& dir) {
    MetaFlightDocument doc;
    doc.origin = "<X>500000</X><Y>5039600</Y>";
    doc.extent = "<X>400</X><Y>400</Y>";
    doc.gridLevels = MetaFlightDocument::level("L0", 2, 2);
    doc.geometryLevels = MetaFlightDocument::geometryLevel("LOCALIZED");
    return dir.write("tiles.mft", doc.text());
}

}  // namespace

TEST(ZorhostMap, eachMarkIsWhereTheWorldFileSays) {
    TempDir dir;
    const std::string points = dir.file("points.shp");
    ASSERT_TRUE(writeVector(points, srsFromEpsg(32632).get(),
                            {{"POINT (500100 5039900)", {{"ECC", "AL015"}}, {}, {}},
                             {"POINT (500300 5039700)", {{"ECC", "EC030"}}, {}, {}}}));
    const std::string rules = dir.write("rules.json", R"({"models": {"oak": "oak.flt"},
        "rules": [{"fields": {"ECC": "EC030"}, "model": "oak", "propType": "tree"}]})");
    const std::string dem = writeStepDem(dir);
    const std::string common = " --features " + points + " --props " + points + " --rules " +
                               rules + " --tiles " + writeTiles(dir) +
                               " --dataset D --extent 499900,5039500,500500,5040100 --size 600x600";
    const ZorhostRun run = zorhost("map " + dir.file("map.png") + " --terrain " + dem + common);
    ASSERT_EQ(run.status, 0) << run.err;

    // One metre a pixel from (499900, 5040100), in the scene's plane: here UTM 32 N.
    const Picture map(dir.file("map.png"));
    ASSERT_EQ(map.width, 600);
    ASSERT_EQ(map.height, 600);
    const double expected[6] = {499900, 1, 0, 5040100, 0, -1};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(map.transform[i], expected[i], 1e-6) << i;
    expectPlaneOf(map, 500123.4, 5039876.5, 500123.4, 5039876.5);

    // The house is a culture marker; the oak's point is under its prop's square.
    expectMarker(map, 500100, 5039900, faccCategory("AL015").colour);
    expectMarker(map, 500300, 5039700, ruleColour(0));
    // The boundary between tile columns at 500200 E, and between rows at 5039800 N, stands
    // out from the ground on either side.
    auto stands = [&](int col, int row, int awayCol, int awayRow) {
        return std::abs(map.brightness(col, row) - map.brightness(awayCol, awayRow)) > 0.15;
    };
    EXPECT_TRUE(stands(299, 150, 310, 150) || stands(300, 150, 310, 150));
    EXPECT_TRUE(stands(150, 299, 150, 310) || stands(150, 300, 150, 310));
    EXPECT_FALSE(stands(290, 150, 310, 150));
    // Flat ground at 900 m is brighter than flat ground at 100 m.
    EXPECT_GT(map.brightness(580, 300), map.brightness(50, 300) + 0.2);

    // Without a DEM the ground is the plain background, and what is drawn is where it was.
    const ZorhostRun plain = zorhost("map " + dir.file("plain.png") + common);
    ASSERT_EQ(plain.status, 0) << plain.err;
    const Picture bare(dir.file("plain.png"));
    for (const auto& [col, row] :
         {std::make_pair(580, 300), std::make_pair(50, 300), std::make_pair(450, 150)})
        EXPECT_TRUE(near(bare.at(col, row), mapBackground)) << col << "," << row;
    expectMarker(bare, 500100, 5039900, faccCategory("AL015").colour);

    // A scene with a false origin draws in its own numbers, and the picture's coordinate
    // system says so: UTM less (500000, 5039000).
    const ZorhostRun shifted =
        zorhost("map " + dir.file("shifted.png") + " --features " + points +
                " --scene UTM:45.5,9,32,32,N,500000,5039000,0,1,0 --extent -100,500,500,1100");
    ASSERT_EQ(shifted.status, 0) << shifted.err;
    const Picture own(dir.file("shifted.png"));
    expectPlaneOf(own, 500100, 5039900, 100, 900);
    expectMarker(own, 100, 900, faccCategory("AL015").colour);
}

// The GeoJSON of a southern level's tiles, against the centres `tiles` prints in UTM
// 33 S converted by GeographicLib; and its coverage from `describe`.
TEST(ZorhostMap, tileFootprintsAreTheTilesTilesPrints) {
    GDALAllRegister();
    TempDir dir;
    MetaFlightDocument doc;
    doc.systems =
        "<Ellipsoid name=\"E\"/><ProjectedCoordSys name=\"G\"><UnitsCategory>LINEAR_DISTANCE"
        "</UnitsCategory><HorizontalDatumUsed refTo=\"E\"/><UTM><Zone>33</Zone><Hemisphere>SOUTH"
        "</Hemisphere></UTM></ProjectedCoordSys>";
    doc.origin = "<X>497000</X><Y>8000000</Y>";
    doc.extent = "<X>4000</X><Y>3000</Y>";
    doc.gridLevels = MetaFlightDocument::level("L0", 2, 1) + MetaFlightDocument::level("L1", 2, 3);
    const std::string mft = dir.write("south.mft", doc.text());
    const ZorhostRun tiles = zorhost("tiles " + mft + " --dataset D --level 1 --json --geojson " +
                                     dir.file("tiles.geojson"));
    ASSERT_EQ(tiles.status, 0) << tiles.err;
    const Json records = Json::parse(tiles.out);
    ASSERT_EQ(records.size(), 12u);

    GDALDatasetUniquePtr geojson(
        GDALDataset::Open(dir.file("tiles.geojson").c_str(), GDAL_OF_VECTOR));
    ASSERT_TRUE(geojson);
    OGRLayer* layer = geojson->GetLayer(0);
    ASSERT_EQ(layer->GetFeatureCount(), 12);
    std::map<std::pair<int, int>, std::vector<std::pair<double, double>>> corners;
    for (const auto& feature : *layer) {
        const int row = feature->GetFieldAsInteger("row"), col = feature->GetFieldAsInteger("col");
        EXPECT_EQ(feature->GetFieldAsInteger("level"), 1);
        const Json& record = records[row * 4 + col];
        ASSERT_EQ(record["row"], row);
        ASSERT_EQ(record["col"], col);
        EXPECT_EQ(feature->GetFieldAsString("path"), record["path"].get<std::string>());
        double lat, lon;
        GeographicLib::UTMUPS::Reverse(33, false, record["center"][0], record["center"][1], lat,
                                       lon);
        OGRPoint centroid;
        ASSERT_EQ(feature->GetGeometryRef()->Centroid(&centroid), OGRERR_NONE);
        double metres;
        GeographicLib::Geodesic::WGS84().Inverse(lat, lon, centroid.getY(), centroid.getX(),
                                                 metres);
        EXPECT_LT(metres, 1.0) << row << "," << col;
        const OGRLinearRing* ring = feature->GetGeometryRef()->toPolygon()->getExteriorRing();
        ASSERT_EQ(ring->getNumPoints(), 5);
        for (int i = 0; i < 4; ++i)
            corners[{row, col}].emplace_back(ring->getX(i), ring->getY(i));
    }
    // Neighbours share their corners exactly: east edge of one is the west edge of the next.
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 4; ++col) {
            const auto& tile = corners[{row, col}];
            if (col + 1 < 4) {
                EXPECT_EQ(tile[1], (corners[{row, col + 1}][0]));
                EXPECT_EQ(tile[2], (corners[{row, col + 1}][3]));
            }
            if (row + 1 < 3) {
                EXPECT_EQ(tile[3], (corners[{row + 1, col}][0]));
                EXPECT_EQ(tile[2], (corners[{row + 1, col}][1]));
            }
        }
    }

    // The coverage outline holds every tile's corners, and says what the dataset is.
    const ZorhostRun describe =
        zorhost("describe " + mft + " --geojson " + dir.file("cov.geojson"));
    ASSERT_EQ(describe.status, 0) << describe.err;
    GDALDatasetUniquePtr coverage(
        GDALDataset::Open(dir.file("cov.geojson").c_str(), GDAL_OF_VECTOR));
    ASSERT_TRUE(coverage);
    OGRLayer* outlines = coverage->GetLayer(0);
    ASSERT_EQ(outlines->GetFeatureCount(), 1);
    OGRFeatureUniquePtr outline(outlines->GetNextFeature());
    EXPECT_STREQ(outline->GetFieldAsString("key"), "D");
    EXPECT_STREQ(outline->GetFieldAsString("name"), "terrain");
    EXPECT_EQ(outline->GetFieldAsInteger("levels"), 2);
    OGREnvelope box;
    outline->GetGeometryRef()->getEnvelope(&box);
    for (const auto& [tile, points] : corners)
        for (const auto& [lon, lat] : points)
            EXPECT_TRUE(lon >= box.MinX - 1e-9 && lon <= box.MaxX + 1e-9 &&
                        lat >= box.MinY - 1e-9 && lat <= box.MaxY + 1e-9);
    EXPECT_LT(box.MaxY, 0.0);  // south of the equator
}

namespace {

// Where gdaltransform, reading the picture as a GIS does, puts WGS84 longitudes and
// latitudes in the picture: pixel columns and rows.
std::vector<std::pair<double, double>> pixelsOfPlaces(
    const std::string& picture, const std::vector<std::pair<double, double>>& places) {
    std::ostringstream command;
    command.precision(17);
    command << "printf -- '";
    for (const auto& [lon, lat] : places)
        command << lon << " " << lat << "\\n";
    command << "' | gdaltransform -i -t_srs EPSG:4326 " << picture;
    std::istringstream answer(shell(command.str()));
    std::vector<std::pair<double, double>> pixels;
    double col = NAN, row = NAN, z = NAN;
    while (answer >> col >> row >> z)
        pixels.emplace_back(col, row);
    EXPECT_EQ(pixels.size(), places.size());
    pixels.resize(places.size(), {NAN, NAN});
    return pixels;
}

std::pair<double, double> pixelOfPlace(const std::string& picture, double lon, double lat) {
    return pixelsOfPlaces(picture, {{lon, lat}}).front();
}

std::pair<double, double> placeOf(const TestFeature& point) {
    double lon = NAN, lat = NAN;
    std::istringstream(point.wkt.substr(7)) >> lon >> lat;
    return {lon, lat};
}

// And the other way: the longitude and latitude of a pixel place.
std::pair<double, double> placeOfPixel(const std::string& picture, double col, double row) {
    std::ostringstream command;
    command.precision(17);
    command << "echo " << col << " " << row << " | gdaltransform -t_srs EPSG:4326 " << picture;
    double lon = NAN, lat = NAN;
    std::istringstream(shell(command.str())) >> lon >> lat;
    return {lon, lat};
}

// The frame's width as stdout gives it when a legend panel widens the picture.
int frameWidthOf(const std::string& out, int pictureWidth) {
    const size_t at = out.find("(the frame ");
    return at == std::string::npos ? pictureWidth : std::stoi(out.substr(at + 11));
}

double metresBetween(double lon1, double lat1, double lon2, double lat2) {
    double metres = NAN;
    GeographicLib::Geodesic::WGS84().Inverse(lat1, lon1, lat2, lon2, metres);
    return metres;
}

TestFeature site(double lon, double lat, const std::string& code = "AL015") {
    std::ostringstream wkt;
    wkt.precision(17);
    wkt << "POINT (" << lon << " " << lat << ")";
    return {wkt.str(), {{"ECC", code}}, {}, {}};
}

}  // namespace

// A GIS reading the picture (gdaltransform of its corners and of each placed point) puts
// it where the data are, in a geocentric, a UTM south, a false-origin and a Lambert scene:
// the corners within half a pixel of where GeographicLib puts the frame's plane
// coordinates, each point's pixel showing its marker, the pixels square.
TEST(ZorhostMapPicture, aGisPlacesThePictureWhereTheDataAreInEveryScene) {
    TempDir dir;
    struct Case {
        std::string scene;
        double lon, lat;  // where the points are
        // The frame's plane coordinates to longitude and latitude, by GeographicLib.
        std::function<void(double x, double y, double& lon, double& lat)> reverse;
    };
    const double a = GeographicLib::Constants::WGS84_a(), f = GeographicLib::Constants::WGS84_f();
    auto utm = [](int zone, bool north, double x0, double y0) {
        return [=](double x, double y, double& lon, double& lat) {
            GeographicLib::UTMUPS::Reverse(zone, north, x + x0, y + y0, lat, lon);
        };
    };
    const GeographicLib::LambertConformalConic lambert(a, f, 44.0, 46.0, 1.0);
    double lambertX0 = 0.0, lambertY0 = 0.0;
    lambert.Forward(9.0, 45.0, 9.0, lambertX0, lambertY0);
    std::vector<Case> cases = {
        {"EPSG:32733", 15.3, -10.2, utm(33, false, 0, 0)},
        {"UTM:47,15,33,33,N,500000,5000000,0,1,0", 15.2, 47.1, utm(33, true, 500000, 5000000)},
        {"Lambert:45,9,44,46", 11.5, 46.3,
         [&](double x, double y, double& lon, double& lat) {
             lambert.Reverse(9.0, x, y + lambertY0, lat, lon);
         }},
        {"Geocentric:WGS84", 9.0, 45.5, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.scene);
        const std::vector<TestFeature> sites = {site(c.lon, c.lat),
                                                site(c.lon + 0.05, c.lat + 0.03),
                                                site(c.lon - 0.04, c.lat + 0.02, "EC030")};
        const std::string points = dir.file("p" + std::to_string(&c - cases.data()) + ".shp");
        ASSERT_TRUE(writeVector(points, srsFromEpsg(4326).get(), sites));
        const std::string png = dir.file("map" + std::to_string(&c - cases.data()) + ".png");
        const ZorhostRun run =
            zorhost("map " + png + " --features " + points + " --scene " + c.scene);
        ASSERT_EQ(run.status, 0) << run.err;
        const Picture picture(png);
        ASSERT_GT(picture.width, 0);
        EXPECT_NEAR(picture.transform[1], -picture.transform[5], 1e-9 * picture.transform[1]);
        EXPECT_EQ(picture.transform[2], 0.0);
        EXPECT_EQ(picture.transform[4], 0.0);
        const double pixel = picture.transform[1];

        auto reverse = c.reverse;
        if (!reverse) {
            // The plane stdout names: a transverse Mercator of scale 1 on the data's centre.
            const size_t at = run.out.find("transverse Mercator on ");
            ASSERT_NE(at, std::string::npos) << run.out;
            double lon0 = 0.0, lat0 = 0.0;
            char comma;
            std::istringstream(run.out.substr(at + 23)) >> lon0 >> comma >> lat0;
            EXPECT_NEAR(lon0, 9.0, 0.05);
            reverse = [=](double x, double y, double& lon, double& lat) {
                const GeographicLib::TransverseMercator tm(a, f, 1.0);
                double x0, y0;
                tm.Forward(lon0, lat0, lon0, x0, y0);
                tm.Reverse(lon0, x, y + y0, lat, lon);
            };
        }
        // The frame's corners; the legend's panel, if any, lies east of it.
        const int frameWidth = frameWidthOf(run.out, picture.width);
        for (const auto& [col, row] :
             {std::make_pair(0, 0), std::make_pair(frameWidth, 0),
              std::make_pair(0, picture.height), std::make_pair(frameWidth, picture.height)}) {
            const auto [lon, lat] = placeOfPixel(png, col, row);
            double expectedLon, expectedLat;
            reverse(picture.transform[0] + col * pixel, picture.transform[3] - row * pixel,
                    expectedLon, expectedLat);
            EXPECT_LT(metresBetween(lon, lat, expectedLon, expectedLat), pixel / 2)
                << col << "," << row;
        }
        for (const TestFeature& s : sites) {
            const auto [lon, lat] = placeOf(s);
            const auto [col, row] = pixelOfPlace(png, lon, lat);
            ASSERT_TRUE(col >= 1 && row >= 1 && col < picture.width - 1 && row < picture.height - 1)
                << col << "," << row;
            const MapColour seen = picture.at(static_cast<int>(col), static_cast<int>(row));
            EXPECT_TRUE(near(seen, faccCategory(s.text.at("ECC")).colour))
                << s.wkt << " at " << col << "," << row;
        }
    }
}

// A geocentric picture is conformal: at 60 N a square on the ground is square in pixels;
// points either side of the antimeridian are drawn together, not at opposite edges.
TEST(ZorhostMapPicture, aGeocentricPictureIsConformalAndJoinsTheAntimeridian) {
    TempDir dir;
    const GeographicLib::Geodesic& earth = GeographicLib::Geodesic::WGS84();
    std::vector<std::pair<double, double>> corners;
    std::string ring;
    for (double azimuth : {-45.0, 45.0, 135.0, -135.0, -45.0}) {
        double lat, lon;
        earth.Direct(60.0, 20.0, azimuth, 5000.0 * std::sqrt(2.0), lat, lon);
        corners.emplace_back(lon, lat);
        std::ostringstream point;
        point.precision(17);
        point << lon << " " << lat;
        ring += (ring.empty() ? "" : ", ") + point.str();
    }
    const std::string square = dir.file("square.shp");
    ASSERT_TRUE(writeVector(square, srsFromEpsg(4326).get(),
                            {{"POLYGON ((" + ring + "))", {{"ECC", "EC015"}}, {}, {}}}));
    const std::string png = dir.file("square.png");
    const ZorhostRun run =
        zorhost("map " + png + " --features " + square + " --scene Geocentric:WGS84");
    ASSERT_EQ(run.status, 0) << run.err;
    std::vector<std::pair<double, double>> pixels;
    for (int i = 0; i < 4; ++i)
        pixels.push_back(pixelOfPlace(png, corners[i].first, corners[i].second));
    auto side = [&](int i, int j) {
        return std::hypot(pixels[i].first - pixels[j].first, pixels[i].second - pixels[j].second);
    };
    EXPECT_NEAR(side(0, 1) / side(1, 2), 1.0, 0.01);
    EXPECT_NEAR(side(2, 3) / side(3, 0), 1.0, 0.01);
    EXPECT_NEAR(side(0, 2) / side(1, 3), 1.0, 0.01);  // the diagonals: not a rhombus

    const std::string dateline = dir.file("dateline.shp");
    ASSERT_TRUE(writeVector(
        dateline, srsFromEpsg(4326).get(),
        {site(179.9, -16.5), site(-179.9, -16.5), site(175.0, -18.0), site(-175.0, -15.0)}));
    const std::string across = dir.file("across.png");
    const ZorhostRun joined =
        zorhost("map " + across + " --features " + dateline + " --scene Geocentric:WGS84");
    ASSERT_EQ(joined.status, 0) << joined.err;
    const Picture picture(across);
    const auto east = pixelOfPlace(across, 179.9, -16.5),
               west = pixelOfPlace(across, -179.9, -16.5);
    EXPECT_GT(west.first, east.first);  // 179.9 W lies east of 179.9 E
    EXPECT_LT(west.first - east.first, 0.05 * picture.width);
    for (const auto& p : {east, west})
        EXPECT_TRUE(near(picture.at(static_cast<int>(p.first), static_cast<int>(p.second)),
                         faccCategory("AL015").colour));
}

// The legend, scale bar and north arrow never hide a placed mark: with points over the
// whole frame they go to a panel east of it; with room in a corner they stay in the
// frame; the README's picture too.
TEST(ZorhostMapPicture, theFurnitureNeverHidesAPlacedMark) {
    TempDir dir;
    std::vector<TestFeature> filling;
    for (int i = 0; i < 12; ++i)
        for (int j = 0; j < 12; ++j)
            filling.push_back(site(9.0 + 0.002 * i, 45.5 + 0.0014 * j, j % 2 ? "AL015" : "EC030"));
    const std::string points = dir.file("filling.shp");
    ASSERT_TRUE(writeVector(points, srsFromEpsg(4326).get(), filling));
    auto expectAllVisible = [&](const std::string& png, const std::vector<TestFeature>& sites) {
        const Picture picture(png);
        std::vector<std::pair<double, double>> places;
        for (const TestFeature& s : sites)
            places.push_back(placeOf(s));
        const auto pixels = pixelsOfPlaces(png, places);
        for (size_t i = 0; i < sites.size(); ++i) {
            EXPECT_TRUE(near(
                picture.at(static_cast<int>(pixels[i].first), static_cast<int>(pixels[i].second)),
                faccCategory(sites[i].text.at("ECC")).colour))
                << png << ": " << sites[i].wkt;
        }
        return picture;
    };
    const ZorhostRun full =
        zorhost("map " + dir.file("full.png") + " --features " + points + " --size 600x600");
    ASSERT_EQ(full.status, 0) << full.err;
    EXPECT_NE(full.out.find("the legend in a panel east of it"), std::string::npos) << full.out;
    EXPECT_GT(expectAllVisible(dir.file("full.png"), filling).width, 600);

    // Two points in the middle leave every corner free: the picture is the frame alone.
    const std::vector<TestFeature> middle = {site(9.0, 45.5), site(9.001, 45.5005, "EC030")};
    ASSERT_TRUE(writeVector(dir.file("middle.shp"), srsFromEpsg(4326).get(), middle));
    const ZorhostRun roomy = zorhost("map " + dir.file("roomy.png") + " --features " +
                                     dir.file("middle.shp") + " --size 600x600");
    ASSERT_EQ(roomy.status, 0) << roomy.err;
    EXPECT_EQ(expectAllVisible(dir.file("roomy.png"), middle).width, 600);
    // Asked to stay in the frame over full data, it still takes the corners hiding least.
    const ZorhostRun corner = zorhost("map " + dir.file("corner.png") + " --features " + points +
                                      " --size 600x600 --legend corner");
    ASSERT_EQ(corner.status, 0) << corner.err;
    EXPECT_EQ(Picture(dir.file("corner.png")).width, 600);

    // The README's picture: each placed point and prop shows a mark's colour.
    const std::string s = "data/sample/";
    const ZorhostRun readme =
        zorhost("map " + dir.file("readme.png") + " --size 640x640 --terrain " + s +
                "n45_e009.dt0 --features " + s + "valley.gdb --props " + s +
                "valley_points.shp --rules " + s + "valley_props.json --tiles " + s +
                "metaflight/valley_tiles.mft --dataset Terrain " + "--level 1");
    ASSERT_EQ(readme.status, 0) << readme.err;
    const ZorhostRun props = zorhost("props " + s + "valley_points.shp --rules " + s +
                                     "valley_props.json --terrain " + s + "n45_e009.dt0 --json");
    ASSERT_EQ(props.status, 0) << props.err;
    const Picture picture(dir.file("readme.png"));
    const Json placed = Json::parse(props.out);
    for (const Json& prop : placed["props"]) {
        const auto [col, row] = pixelOfPlace(dir.file("readme.png"), prop["wgs84"][0].get<double>(),
                                             prop["wgs84"][1].get<double>());
        bool ruleColoured = false;
        for (size_t rule = 0; rule < 8; ++rule)
            ruleColoured =
                ruleColoured ||
                near(picture.at(static_cast<int>(col), static_cast<int>(row)), ruleColour(rule));
        EXPECT_TRUE(ruleColoured) << col << "," << row;
    }
}

namespace {

// A DEM in UTM 32 N, 100 x 100 posts of 10 m from (500000, 5040000): sea at -4000 m in
// its west third, a flat plain at 300 m in the middle, and a slope rising east.
std::string writeCoastDem(const TempDir& dir) {
    const std::string path = dir.file("coast.tif");
    EXPECT_TRUE(writeUtm32nDem(path, 100, 100, 500000, 5040000, 10, [](int col, int) {
        return col < 33 ? -4000.0 : col < 66 ? 300.0 : 300.0 + 40.0 * (col - 66);
    }));
    return path;
}

}  // namespace

// The ground: the sea blue and the land green by default; a ramp in gdaldem's format
// taken as gdaldem takes it; a hillshade that shades slopes as gdaldem's own does
// (relative to flat ground); GeoTIFF output holding the same georeference as the PNG's.
TEST(ZorhostMapPicture, theGroundIsColouredAndShadedAsGdaldemDoes) {
    TempDir dir;
    const std::string dem = writeCoastDem(dir);
    // The DEM's own grid: one post a pixel, so that the warp leaves the posts as they are.
    const std::string frame = " --terrain " + dem +
                              " --extent 500000,5039000,501000,5040000 --size 100x100"
                              " --scene EPSG:32632 --legend none";
    const ZorhostRun plain = zorhost("map " + dir.file("plain.png") + frame);
    ASSERT_EQ(plain.status, 0) << plain.err;
    const Picture ground(dir.file("plain.png"));
    const MapColour sea = ground.at(10, 50), land = ground.at(50, 50);
    EXPECT_GT(sea.b, sea.r + 0.2);
    EXPECT_GT(sea.b, sea.g);
    EXPECT_GT(land.g, land.b);
    EXPECT_GT(land.g, land.r);

    // A ramp of one grey from any height, no relief: every pixel that grey; with a
    // hillshade the slope is that grey times gdaldem's shade over its shade of flat land.
    const std::string grey = dir.write("grey.txt", "-10000 200 200 200\n10000 200 200 200\n");
    const ZorhostRun flat =
        zorhost("map " + dir.file("flat.png") + frame + " --ramp " + grey + " --relief none");
    ASSERT_EQ(flat.status, 0) << flat.err;
    const Picture unshaded(dir.file("flat.png"));
    for (int col : {5, 50, 80})
        EXPECT_EQ(unshaded.at(col, 50).red(), 200) << col;
    const ZorhostRun shaded =
        zorhost("map " + dir.file("shaded.tif") + frame + " --ramp " + grey + " --azimuth 90");
    ASSERT_EQ(shaded.status, 0) << shaded.err;
    EXPECT_EQ(shell("gdaldem hillshade -q -az 90 -compute_edges " + dem + " " +
                    dir.file("gdaldem.tif") + " && echo done"),
              "done\n");
    GDALDatasetUniquePtr reference(GDALDataset::Open(dir.file("gdaldem.tif").c_str()));
    GDALDatasetUniquePtr tiff(GDALDataset::Open(dir.file("shaded.tif").c_str()));
    ASSERT_TRUE(reference && tiff);
    ASSERT_EQ(tiff->GetRasterCount(), 4);
    auto value = [](GDALDataset& d, int band, int col, int row) {
        uint8_t v = 0;
        EXPECT_EQ(
            d.GetRasterBand(band)->RasterIO(GF_Read, col, row, 1, 1, &v, 1, 1, GDT_Byte, 0, 0),
            CE_None);
        return static_cast<double>(v);
    };
    const double flatShade = value(*reference, 1, 50, 50),
                 slopeShade = value(*reference, 1, 80, 50);
    ASSERT_LT(slopeShade, flatShade - 20);  // the slope faces west, away from the light
    EXPECT_NEAR(value(*tiff, 1, 50, 50), 200.0, 1.0);
    EXPECT_NEAR(value(*tiff, 1, 80, 50), 200.0 * slopeShade / flatShade, 1.5);
    EXPECT_EQ(value(*tiff, 4, 80, 50), 255.0);
    double transform[6];
    ASSERT_EQ(tiff->GetGeoTransform(transform), CE_None);
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(transform[i], ground.transform[i], 1e-9) << i;
    ASSERT_TRUE(tiff->GetSpatialRef());
    EXPECT_TRUE(tiff->GetSpatialRef()->IsSame(srsFromEpsg(32632).get()));
    EXPECT_FALSE(std::ifstream(dir.file("shaded.tif.aux.xml")).good());

    // Beyond the outermost posts the terrain has no height, and the map no ground: the
    // half post GDAL's extent adds around them shows the background.
    const ZorhostRun edge = zorhost("map " + dir.file("edge.png") + " --terrain " + dem +
                                    " --extent 499990,5039500,500010,5039520 --size 20x20"
                                    " --scene EPSG:32632 --legend none");
    ASSERT_EQ(edge.status, 0) << edge.err;
    const Picture margin(dir.file("edge.png"));
    EXPECT_TRUE(near(margin.at(12, 10), mapBackground));   // 500002 E: inside GDAL's extent
    EXPECT_FALSE(near(margin.at(18, 10), mapBackground));  // 500008 E: past the first post

    // A ramp GDAL cannot read is refused, naming it, and nothing is written.
    const std::string bad = dir.write("bad.txt", "# no colour in it\n");
    const ZorhostRun refused = zorhost("map " + dir.file("bad.png") + frame + " --ramp " + bad);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find(bad), std::string::npos) << refused.err;
    EXPECT_FALSE(std::ifstream(dir.file("bad.png")).good());
}

// A level of 2,000,000 tiles is drawn as its outline with a line every so many tiles,
// not as a block of outlines: the picture has variety, and stdout says how it was drawn.
TEST(ZorhostMapPicture, aDenseLevelIsDrawnAsItsGridNotABlock) {
    TempDir dir;
    MetaFlightDocument doc;
    doc.origin = "<X>400000</X><Y>5000000</Y>";
    doc.extent = "<X>200000</X><Y>100000</Y>";
    doc.gridLevels = MetaFlightDocument::level("L0", 2000, 1000);
    doc.geometryLevels = MetaFlightDocument::geometryLevel("LOCALIZED");
    const std::string mft = dir.write("dense.mft", doc.text());
    const std::string png = dir.file("dense.png");
    const ZorhostRun run = zorhost("map " + png + " --tiles " + mft + " --dataset D");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("2000000 tiles, too close to outline each: a line every"),
              std::string::npos)
        << run.out;
    const Picture picture(png);
    std::map<int, size_t> shades;
    for (int row = 0; row < picture.height; row += 3)
        for (int col = 0; col < picture.width; col += 3)
            ++shades[static_cast<int>(picture.brightness(col, row) * 20)];
    EXPECT_GE(shades.size(), 3u);
    size_t commonest = 0, all = 0;
    for (const auto& [shade, count] : shades) {
        commonest = std::max(commonest, count);
        all += count;
    }
    EXPECT_LT(commonest, all * 9 / 10);  // no one shade over nine tenths of the picture
}
