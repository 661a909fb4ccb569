// The prop adder through the registry, over vector files and a DTED cell written in the
// test's directory: where props stand (GeographicLib, GDAL's own bilinear sample), how
// they are turned (GeographicLib's local frames), and what the walk reports.
#include <gtest/gtest.h>
#include <Eigen/Geometry>
#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/LocalCartesian.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "TempDir.h"
#include "VectorFiles.h"
#include "hxutil/DtNotify.h"
#include "zorCore/DtDe.h"
#include "zorCore/DtPropAdder.h"
#include "zorTerrain/DtTdbPropAdder.h"
#include "zorTerrain/zorTerrain.h"

using namespace kelZor;

namespace {

struct Engine {
    DtDe de;
    DtAgentManagerInterface agents;
    std::ostringstream log;
    DtTerrainLayer layer;

    // `utm`: zone 18 north; otherwise geocentric.
    explicit Engine(bool utm) {
        zorTerrain::init(de);
        de.log().setTarget(&log);
        if (utm) {
            DtUtmCoordinateConverter converter;
            converter.init(18, 'N', true);
            de.sharedState().coordinateSystem() =
                DtCoordinateSystem(DtCoordinateConverter::UTM, converter.stringRep());
        }
        kelArchives::DtModelDefinitionRecord tree;
        tree.setName("tree");
        tree.setFilename("models/tree.flt");
        de.sharedState().modelDefinitionManager().addDefinition(tree);
    }

    void addProps(const std::string& file, const kelArchives::DtAddPropsRuleRecord& rule) {
        DtPropAdderCreator* creator = DtPropAdderFactory::instance(de).creatorForFile(file);
        ASSERT_NE(creator, nullptr);
        std::unique_ptr<DtPropAdder> adder(creator->create(file, agents));
        adder->addProps(rule, &layer);
    }
};

kelArchives::DtAddPropsRuleRecord rule(std::map<std::string, std::string> fields,
                                       const std::string& model = "tree",
                                       const std::string& rotationField = "HDG") {
    kelArchives::DtAddPropsRuleRecord r;
    for (const auto& [field, value] : fields)
        r.setFieldValue(field, value);
    r.setModelDefinition(model);
    r.setPropType("tree");
    r.setRotationField(rotationField);
    return r;
}

TestFeature tree(double lon, double lat, double heading) {
    return {"POINT (" + std::to_string(lon) + " " + std::to_string(lat) + ")",
            {{"ECC", "EC030"}},
            {{"KIND", 5}},
            {{"HDG", heading}}};
}

// What GDAL itself gives for a bilinear sample at a position: over the cell's heights as
// 32-bit floats, since GDAL resamples in the band's own type and would round to Int16.
double gdalBilinear(const std::string& path, double lon, double lat) {
    GDALDatasetUniquePtr cell(static_cast<GDALDataset*>(GDALOpen(path.c_str(), GA_ReadOnly)));
    const int width = cell->GetRasterXSize(), height = cell->GetRasterYSize();
    std::vector<float> heights(static_cast<size_t>(width) * height);
    EXPECT_EQ(cell->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, width, height, heights.data(), width,
                                               height, GDT_Float32, 0, 0),
              CE_None);
    GDALDatasetUniquePtr floats(GetGDALDriverManager()->GetDriverByName("MEM")->Create(
        "", width, height, 1, GDT_Float32, nullptr));
    EXPECT_EQ(floats->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, width, height, heights.data(),
                                                 width, height, GDT_Float32, 0, 0),
              CE_None);
    double gt[6], inverse[6];
    cell->GetGeoTransform(gt);
    EXPECT_TRUE(GDALInvGeoTransform(gt, inverse));
    const double column = inverse[0] + inverse[1] * lon + inverse[2] * lat;
    const double row = inverse[3] + inverse[4] * lon + inverse[5] * lat;
    GDALRasterIOExtraArg extra;
    INIT_RASTERIO_EXTRA_ARG(extra);
    extra.eResampleAlg = GRIORA_Bilinear;
    extra.bFloatingPointWindowValidity = TRUE;
    extra.dfXOff = column - 0.5;
    extra.dfYOff = row - 0.5;
    extra.dfXSize = 1.0;
    extra.dfYSize = 1.0;
    float value = 0.0f;
    const int x = static_cast<int>(std::floor(column - 0.5));
    const int y = static_cast<int>(std::floor(row - 0.5));
    EXPECT_EQ(floats->GetRasterBand(1)->RasterIO(GF_Read, x, y, 2, 2, &value, 1, 1, GDT_Float32, 0,
                                                 0, &extra),
              CE_None);
    return value;
}

// The model's axes (x right, y forward, z up) in the scene.
Eigen::Matrix3d axesOf(const kelArchives::DtPropRecord& record) {
    const double* q = record.orientation();
    return Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
}

// The heading of a prop in a projected scene: its forward axis from grid north towards
// east, in degrees; its up axis must be the scene's.
double gridHeading(const kelArchives::DtPropRecord& record) {
    const Eigen::Matrix3d axes = axesOf(record);
    EXPECT_LT((axes.col(2) - Eigen::Vector3d::UnitZ()).norm(), 1e-12);
    double degrees = std::atan2(axes(0, 1), axes(1, 1)) * 180.0 / M_PI;
    return degrees < -1e-9 ? degrees + 360.0 : degrees;
}

}  // namespace

TEST(PropAdder, propsStandOnGdalsBilinearHeightAtGeographicLibsEastingAndNorthing) {
    TempDir dir;
    const std::string cell = dir.file("n42_w075.dt0");
    ASSERT_TRUE(
        writeDted(cell, 42, -75, [](int row, int col) { return (row * 37 + col * col) % 500; }));
    const std::vector<TestFeature> trees = {tree(-74.51, 42.33, -30), tree(-74.123, 42.871, 370),
                                            tree(-74.9, 42.05, 730)};
    ASSERT_TRUE(writeVector(dir.file("trees.shp"), srsFromEpsg(4326).get(), trees));
    Engine engine(true);
    std::string error;
    ASSERT_TRUE(engine.de.scene().terrain().addElevationSource(cell, error)) << error;
    DtNotifyLevel = 2;
    engine.addProps(dir.file("trees.shp"), rule({{"ECC", "EC030"}, {"KIND", "5"}}));
    EXPECT_EQ(DtNotifyLevel, 2);
    DtNotifyLevel = 0;
    EXPECT_TRUE(engine.de.reportedErrors().empty()) << engine.log.str();
    EXPECT_EQ(engine.de.scene().terrain().propsAddedCalls(), 1);
    ASSERT_EQ(engine.layer.numProps(), 3u);

    const double lonLat[][2] = {{-74.51, 42.33}, {-74.123, 42.871}, {-74.9, 42.05}};
    const double headings[] = {330, 10, 370};  // brought into range once, not reduced further
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const kelArchives::DtPropRecord& record = engine.layer.prop(i).record();
        EXPECT_EQ(record.name(), "tree_" + std::to_string(i + 1));
        EXPECT_EQ(record.modelDefOrNodeAddress(), "tree");
        EXPECT_TRUE(record.isModelDef());
        int zone = 0;
        bool north = true;
        double x = 0, y = 0;
        GeographicLib::UTMUPS::Forward(lonLat[i][1], lonLat[i][0], zone, north, x, y, 18);
        EXPECT_NEAR(record.position()[0], x, 1e-3);
        EXPECT_NEAR(record.position()[1], y, 1e-3);
        EXPECT_NEAR(record.position()[2], gdalBilinear(cell, lonLat[i][0], lonLat[i][1]), 0.01);
        EXPECT_NEAR(gridHeading(record), std::fmod(headings[i], 360.0), 1e-9);
    }
    // 730 became 370, a turn past the full circle: the other sign of the same rotation.
    EXPECT_GT(engine.layer.prop(1).record().orientation()[3], 0.0);
    EXPECT_LT(engine.layer.prop(2).record().orientation()[3], 0.0);

    // Outside the cell nothing is found below: the prop stands at the origin.
    ASSERT_TRUE(writeVector(dir.file("far.shp"), srsFromEpsg(4326).get(), {tree(-75.5, 42.5, 0)}));
    engine.addProps(dir.file("far.shp"), rule({{"ECC", "EC030"}}));
    ASSERT_EQ(engine.layer.numProps(), 4u);
    EXPECT_EQ(engine.layer.prop(3).record().position()[0], 0.0);
    EXPECT_EQ(engine.layer.prop(3).record().position()[2], 0.0);
}

TEST(PropAdder, inAGeocentricSceneHeadingsFollowTheLocalFrame) {
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("trees.shp"), srsFromEpsg(4326).get(),
                            {tree(8.5, 47.25, 90), tree(-120.0, -33.0, 0)}));
    Engine engine(false);
    engine.addProps(dir.file("trees.shp"), rule({{"ECC", "EC030"}}));
    ASSERT_EQ(engine.layer.numProps(), 2u);
    const double lonLat[][2] = {{8.5, 47.25}, {-120.0, -33.0}};
    for (size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        const kelArchives::DtPropRecord& record = engine.layer.prop(i).record();
        std::vector<double> m(9);
        double X, Y, Z;
        GeographicLib::Geocentric::WGS84().Forward(lonLat[i][1], lonLat[i][0], 0.0, X, Y, Z, m);
        // No terrain source: on the ellipsoid.
        EXPECT_NEAR(record.position()[0], X, 1e-3);
        EXPECT_NEAR(record.position()[1], Y, 1e-3);
        EXPECT_NEAR(record.position()[2], Z, 1e-3);
        const Eigen::Matrix3d enu =
            Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(m.data());
        const Eigen::Matrix3d turn = axesOf(record);
        const Eigen::Vector3d forward = turn * Eigen::Vector3d::UnitY();
        const Eigen::Vector3d up = turn * Eigen::Vector3d::UnitZ();
        const Eigen::Vector3d expectedForward = i == 0 ? enu.col(0) : enu.col(1);  // east, north
        EXPECT_LT((forward - expectedForward).norm(), 1e-9) << forward.transpose();
        EXPECT_LT((up - enu.col(2)).norm(), 1e-9) << up.transpose();
    }
}

TEST(PropAdder, theWalkReportsEachUnknownModelAndCountsTheFailures) {
    TempDir dir;
    const auto wgs84 = srsFromEpsg(4326);
    TestFeature textHeading{"POINT (-74.5 42.5)", {{"ECC", "EC030"}, {"HDGT", "45.9"}}, {}, {}};
    ASSERT_TRUE(writeVector(dir.file("trees.shp"), wgs84.get(),
                            {tree(-74.1, 42.1, 0), tree(-74.2, 42.2, 0), textHeading}));
    Engine engine(true);
    DtTerrain& terrain = engine.de.scene().terrain();

    engine.addProps(dir.file("trees.shp"), rule({{"ECC", "EC030"}}, "no such model"));
    EXPECT_EQ(engine.layer.numProps(), 0u);
    const std::vector<DtReportedError>& errors = engine.de.reportedErrors();
    ASSERT_EQ(errors.size(), 4u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(errors[i].error.code(), 8);
        EXPECT_EQ(errors[i].error.arguments(), std::vector<std::string>{"no such model"});
        EXPECT_TRUE(errors[i].notifyUser);
    }
    EXPECT_EQ(errors[3].error.code(), 11);
    EXPECT_EQ(errors[3].error.arguments(), (std::vector<std::string>{dir.file("trees.shp"), "3"}));

    engine.de.clearReportedErrors();
    engine.addProps(dir.file("trees.shp"), rule({}));  // no condition matches no node
    engine.addProps(dir.file("trees.shp"), rule({{"ECC", "EC03"}}));  // exact texts only
    EXPECT_EQ(engine.layer.numProps(), 0u);
    EXPECT_TRUE(engine.de.reportedErrors().empty());
    EXPECT_EQ(terrain.propsAddedCalls(), 3);

    // A text heading is read by atoi; an empty rotation field gives heading 0.
    engine.addProps(dir.file("trees.shp"), rule({{"HDGT", "45.9"}}, "tree", "HDGT"));
    engine.addProps(dir.file("trees.shp"), rule({{"HDGT", "45.9"}}, "tree", ""));
    ASSERT_EQ(engine.layer.numProps(), 2u);
    EXPECT_NEAR(gridHeading(engine.layer.prop(0).record()), 45.0, 1e-9);
    EXPECT_NEAR(gridHeading(engine.layer.prop(1).record()), 0.0, 1e-9);

    // A file that does not load: code 6 with the flag false, the warning, nothing else.
    engine.de.clearReportedErrors();
    engine.addProps(dir.file("missing.shp"), rule({{"ECC", "EC030"}}));
    ASSERT_EQ(engine.de.reportedErrors().size(), 1u);
    EXPECT_EQ(engine.de.reportedErrors()[0].error.code(), 6);
    EXPECT_FALSE(engine.de.reportedErrors()[0].notifyUser);
    EXPECT_NE(engine.log.str().find("DtTdbPropAdder::addProps - loadFor3DVisualization Error: " +
                                    dir.file("missing.shp")),
              std::string::npos);
    EXPECT_EQ(terrain.propsAddedCalls(), 5);  // not told after a failed load

    // A null layer: nothing at all.
    std::unique_ptr<DtPropAdder> adder(
        DtPropAdderFactory::instance(engine.de).creatorForFile("x.shp")->create(
            dir.file("trees.shp"), engine.agents));
    adder->addProps(rule({{"ECC", "EC030"}}), nullptr);
    EXPECT_EQ(terrain.propsAddedCalls(), 5);
}

namespace {
struct PointProbe : DtTdbPropAdder {
    using DtTdbPropAdder::DtTdbPropAdder;
    using DtTdbPropAdder::validPoint;
};
}  // namespace

TEST(PropAdder, validPointsAreOffTheOriginAndFitAFloat) {
    DtDe de;
    DtAgentManagerInterface agents;
    const PointProbe probe(de, "x.shp", agents);
    EXPECT_FALSE(probe.validPoint(DtPoint(0.0, 0.0, 0.0)));
    EXPECT_FALSE(probe.validPoint(DtPoint(-0.0, 0.0, 0.0)));
    EXPECT_TRUE(probe.validPoint(DtPoint(0.0, 0.0, 1e-300)));
    EXPECT_FALSE(probe.validPoint(DtPoint(1e39, 1.0, 1.0)));
    EXPECT_FALSE(probe.validPoint(DtPoint(1.0, std::nan(""), 1.0)));
    EXPECT_FALSE(probe.validPoint(DtPoint(1.0, 1.0, -INFINITY)));
    EXPECT_TRUE(probe.validPoint(DtPoint(3e38, -3e38, 1.0)));
}

// One convention in every scene kind: a prop with heading h has its forward axis (the
// model's y) at azimuth h from north towards east, grid north in a map projection and
// GeographicLib's local north in a geocentric or flat-earth one (the flat frame's axes lean
// away from the origin, as CartConvert -l's do), and its up axis (the model's z) along the
// local vertical. A heading of 730 is brought once into range, to 370: the same turn
// as 10 with the other sign.
TEST(PropAdder, headingsFaceTheSameWayInEverySceneKind) {
    TempDir dir;
    ASSERT_TRUE(writeVector(
        dir.file("trees.shp"), srsFromEpsg(4326).get(),
        {tree(9.1, 45.2, 30), tree(9.3, 45.4, 10), tree(9.3, 45.4, 730), tree(9.0, 44.9, 250)}));
    const double expected[] = {30, 10, 10, 250};
    auto lambert = std::make_unique<DtLambertCoordinateConverter>();
    lambert->init(45.0, 9.0, 44.0, 46.0);
    auto flat = std::make_unique<DtFlatEarthCoordinateConverter>();
    flat->init(DtDeg2Rad(45.0), DtDeg2Rad(9.0));
    std::vector<DtCoordinateSystem> scenes;
    scenes.emplace_back(DtCoordinateConverter::UTM, "45,9,32,32,N,0,0,0,0,0");
    scenes.emplace_back(std::move(lambert));
    scenes.emplace_back(std::move(flat));
    scenes.emplace_back();
    for (const DtCoordinateSystem& scene : scenes) {
        SCOPED_TRACE(scene.type());
        Engine engine(false);
        engine.de.sharedState().coordinateSystem() = scene;
        engine.addProps(dir.file("trees.shp"), rule({{"ECC", "EC030"}}));
        ASSERT_EQ(engine.layer.numProps(), 4u);
        for (size_t i = 0; i < 4; ++i) {
            SCOPED_TRACE(i);
            const kelArchives::DtPropRecord& record = engine.layer.prop(i).record();
            const Eigen::Matrix3d axes = axesOf(record);
            Eigen::Vector3d north = Eigen::Vector3d::UnitY(), east = Eigen::Vector3d::UnitX();
            Eigen::Vector3d up = Eigen::Vector3d::UnitZ();
            const double* p = record.position();
            std::vector<double> m(9);
            double lat, lon, h;
            if (scene.type() == DtCoordinateConverter::Geocentric)
                GeographicLib::Geocentric::WGS84().Reverse(p[0], p[1], p[2], lat, lon, h, m);
            else if (scene.type() == DtCoordinateConverter::FlatEarth)
                GeographicLib::LocalCartesian(45.0, 9.0).Reverse(p[0], p[1], p[2], lat, lon, h, m);
            if (!m.empty() && m[0] != 0.0) {
                east = Eigen::Vector3d(m[0], m[3], m[6]);
                north = Eigen::Vector3d(m[1], m[4], m[7]);
                up = Eigen::Vector3d(m[2], m[5], m[8]);
            }
            const Eigen::Vector3d forward = axes.col(1);
            double azimuth = std::atan2(forward.dot(east), forward.dot(north)) * 180.0 / M_PI;
            azimuth = azimuth < -1e-9 ? azimuth + 360.0 : azimuth;
            EXPECT_NEAR(azimuth, expected[i], 1e-9);
            EXPECT_LT((axes.col(2) - up).norm(), 1e-9);
        }
        const double* q10 = engine.layer.prop(1).record().orientation();
        const double* q370 = engine.layer.prop(2).record().orientation();
        for (int k = 0; k < 4; ++k)
            EXPECT_NEAR(q370[k], -q10[k], 1e-12);
    }
}

namespace {
// A scene whose converter fails once a prop is being made.
struct FailingConverter : DtGeocentricCoordinateConverter {
    DtVector64 upVector(const DtVector64&) const override {
        throw std::runtime_error("no vertical here");
    }
};
}  // namespace

// An exception on the way out of the engine's libraries passes to the caller, with the
// notify level given back and the prop begun for the node freed (the sanitizer build
// checks the second).
TEST(PropAdder, aFailureOnTheWayRestoresTheLevelAndLeaksNothing) {
    TempDir dir;
    ASSERT_TRUE(writeVector(dir.file("trees.shp"), srsFromEpsg(4326).get(), {tree(9.1, 45.2, 0)}));
    Engine engine(false);
    engine.de.sharedState().coordinateSystem() =
        DtCoordinateSystem(std::make_unique<FailingConverter>());
    DtNotifyLevel = 2;
    EXPECT_THROW(engine.addProps(dir.file("trees.shp"), rule({{"ECC", "EC030"}})),
                 std::runtime_error);
    EXPECT_EQ(DtNotifyLevel, 2);
    EXPECT_EQ(engine.layer.numProps(), 0u);
    DtNotifyLevel = 0;
}
