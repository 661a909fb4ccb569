// zorhost map and the GeoJSON of tiles and coverages, read back the way a person's GIS
// reads them: the picture through GDAL (its world file and .aux.xml), the GeoJSON
// through OGR, and where each mark or tile lies checked against GeographicLib.
#include <gtest/gtest.h>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/Geodesic.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "JsonOutput.h"
#include "MapStyle.h"
#include "MetaFlightDocument.h"
#include "TempDir.h"
#include "VectorFiles.h"
#include "ZorhostRun.h"

namespace {

// A picture's pixels as GDAL reads them back.
struct Picture {
    int width = 0, height = 0;
    double transform[6] = {0, 0, 0, 0, 0, 0};
    std::vector<uint8_t> rgba[3];
    std::string srs;

    explicit Picture(const std::string& path) {
        GDALAllRegister();
        GDALDatasetUniquePtr png(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER));
        // Cairo leaves the alpha band out of a picture with no transparent pixel.
        if (!png || png->GetRasterCount() < 3)
            return;
        width = png->GetRasterXSize();
        height = png->GetRasterYSize();
        png->GetGeoTransform(transform);
        if (const OGRSpatialReference* ref = png->GetSpatialRef()) {
            char* text = nullptr;
            ref->exportToWkt(&text);
            srs = text ? text : "";
            CPLFree(text);
        }
        for (int band = 0; band < 3; ++band) {
            rgba[band].resize(static_cast<size_t>(width) * height);
            if (png->GetRasterBand(band + 1)->RasterIO(GF_Read, 0, 0, width, height,
                                                       rgba[band].data(), width, height, GDT_Byte,
                                                       0, 0) != CE_None)
                width = height = 0;
        }
    }
    // The pixel the world file puts a plane position in.
    void pixelOf(double x, double y, int& col, int& row) const {
        col = static_cast<int>(std::floor((x - transform[0]) / transform[1]));
        row = static_cast<int>(std::floor((y - transform[3]) / transform[5]));
    }
    MapColour at(int col, int row) const {
        const size_t i = static_cast<size_t>(row) * width + col;
        return {rgba[0][i] / 255.0, rgba[1][i] / 255.0, rgba[2][i] / 255.0};
    }
    double brightness(int col, int row) const {
        const MapColour c = at(col, row);
        return 0.299 * c.r + 0.587 * c.g + 0.114 * c.b;
    }
};

bool near(const MapColour& a, const MapColour& b) {
    return std::abs(a.red() - b.red()) <= 3 && std::abs(a.green() - b.green()) <= 3 &&
           std::abs(a.blue() - b.blue()) <= 3;
}

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
    GDALAllRegister();
    const std::string path = dir.file("dem.tif");
    GDALDatasetUniquePtr dem(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        path.c_str(), 60, 60, 1, GDT_Float32, nullptr));
    double transform[6] = {499900, 10, 0, 5040100, 0, -10};
    dem->SetGeoTransform(transform);
    dem->SetSpatialRef(srsFromEpsg(32632).get());
    std::vector<float> heights(60 * 60);
    for (int row = 0; row < 60; ++row)
        for (int col = 0; col < 60; ++col)
            heights[row * 60 + col] = col >= 55 ? 900.0f : 100.0f;
    EXPECT_EQ(dem->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 60, 60, heights.data(), 60, 60,
                                              GDT_Float32, 0, 0),
              CE_None);
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
