// The prop adder, each case against its peer in the same run:
//   addProps over a shapefile of 1,000,000 points (ZOR_BENCH_POINTS), one rule matching a
//   tenth of them, on a DTED level-1 cell in a UTM scene  vs  the same points read with
//   OGR, those whose field matches transformed into the scene and set on the same heights
//   held in memory, sampled bilinearly (the vector load is part of both; the cell is read
//   once, before either);
//   addProps of a prop on every one of the 1,000,000 points, on a tiled GeoTIFF of
//   20,000 x 20,020 Int16 posts (ZOR_BENCH_DEM_SIDE; deflated, 256 x 256 tiles) that no
//   terrain holds whole  vs  the points read with OGR, each sampled bilinearly from the
//   four posts GDALRasterIO reads around it (GDAL's own block cache). Peak memory of each
//   in a child process; the goal is under 300 MB.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "BenchCell.h"
#include "BenchData.h"
#include "RatioReporter.h"
#include "hxutil/DtNotify.h"
#include "matrix/DtGeodeticCoord.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbPropAdder.h"
#include "zorTerrain/DtTdbSceneLoad.h"

namespace {

const std::string& pointsFile() {
    static const std::string path = writePoints(directory() + "/points.shp", benchPointCount());
    return path;
}

// Every point a prop: each is AL015.
const std::string& everyPointFile() {
    static const std::string path = writePoints(directory() + "/every.shp", benchPointCount(), 1);
    return path;
}

int demSide() {
    const char* text = std::getenv("ZOR_BENCH_DEM_SIDE");
    const int side = text ? std::atoi(text) : 0;
    return side > 0 ? side : 20000;
}

// Posts 1 m apart in UTM zone 32 north from (399990, 5020010), over all the points.
constexpr double DemLeft = 399990.0, DemTop = 5020010.0;

const std::string& largeDem() {
    static const std::string path = [] {
        const std::string file = directory() + "/large.tif";
        if (std::filesystem::exists(file))
            return file;
        GDALAllRegister();
        const int width = demSide(), height = demSide() + 20;
        const char* options[] = {"TILED=YES",        "BLOCKXSIZE=256", "BLOCKYSIZE=256",
                                 "COMPRESS=DEFLATE", "PREDICTOR=2",    "ZLEVEL=1",
                                 "BIGTIFF=IF_SAFER", nullptr};
        GDALDatasetUniquePtr dem(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
            file.c_str(), width, height, 1, GDT_Int16, const_cast<char**>(options)));
        double transform[6] = {DemLeft, 1.0, 0.0, DemTop, 0.0, -1.0};
        dem->SetGeoTransform(transform);
        OGRSpatialReference utm;
        utm.importFromEPSG(32632);
        dem->SetSpatialRef(&utm);
        std::vector<int16_t> rows(static_cast<size_t>(width) * 256);
        for (int top = 0; top < height; top += 256) {
            const int count = std::min(256, height - top);
            for (int r = 0; r < count; ++r) {
                for (int c = 0; c < width; ++c)
                    rows[static_cast<size_t>(r) * width + c] =
                        static_cast<int16_t>(300 + c / 10 % 200 + (top + r) / 13 % 150);
            }
            if (dem->GetRasterBand(1)->RasterIO(GF_Write, 0, top, width, count, rows.data(), width,
                                                count, GDT_Int16, 0, 0) != CE_None)
                break;
        }
        return file;
    }();
    return path;
}

struct Engine {
    kelZor::DtDe de;
    kelZor::DtAgentManagerInterface agents;
    kelArchives::DtAddPropsRuleRecord rule;
    explicit Engine(const std::string& dem = benchCell()) {
        kelZor::DtUtmCoordinateConverter utm;
        utm.init(DtDegMinSec::fromLatitude(45.5), DtDegMinSec::fromLongitude(9.0), 32, 0);
        de.sharedState().coordinateSystem() =
            kelZor::DtCoordinateSystem(kelZor::DtCoordinateConverter::UTM, utm.stringRep());
        std::string error;
        de.scene().terrain().addElevationSource(dem, error);
        kelArchives::DtModelDefinitionRecord house;
        house.setName("house");
        de.sharedState().modelDefinitionManager().addDefinition(house);
        rule.setFieldValue("ECC", "AL015");
        rule.setModelDefinition("house");
        rule.setPropType("building");
        rule.setRotationField("KIND");
    }
};

size_t addProps(Engine& engine, const std::string& points = pointsFile()) {
    kelZor::DtTerrainLayer layer;
    kelZor::DtTdbPropAdder(engine.de, points, engine.agents).addProps(engine.rule, &layer);
    return layer.numProps();
}

// The peer on the large DEM: each point's four posts read with GDALRasterIO.
size_t rasterIoPlaces() {
    GDALDatasetUniquePtr dataset = openVector(everyPointFile());
    OGRLayer* layer = dataset->GetLayer(0);
    GDALDatasetUniquePtr dem(static_cast<GDALDataset*>(GDALOpen(largeDem().c_str(), GA_ReadOnly)));
    GDALRasterBand* band = dem->GetRasterBand(1);
    const int ecc = layer->GetLayerDefn()->GetFieldIndex("ECC");
    std::vector<DtVector64> placed;
    for (OGRFeatureUniquePtr feature(layer->GetNextFeature()); feature;
         feature.reset(layer->GetNextFeature())) {
        if (std::strcmp(feature->GetFieldAsString(ecc), "AL015") != 0)
            continue;
        const OGRPoint* point = feature->GetGeometryRef()->toPoint();
        const double c = point->getX() - DemLeft - 0.5, r = DemTop - point->getY() - 0.5;
        const int c0 = static_cast<int>(std::floor(c)), r0 = static_cast<int>(std::floor(r));
        double posts[4];
        if (band->RasterIO(GF_Read, c0, r0, 2, 2, posts, 2, 2, GDT_Float64, 0, 0) != CE_None)
            continue;
        const double fc = c - c0, fr = r - r0;
        const double h = (posts[0] * (1 - fc) + posts[1] * fc) * (1 - fr) +
                         (posts[2] * (1 - fc) + posts[3] * fc) * fr;
        placed.emplace_back(point->getX(), point->getY(), h);
    }
    return placed.size();
}

// The cell's heights in memory and its georeference, as the peer samples them.
struct Heights {
    std::vector<float> posts;
    int size = 0;
    double inverse[6];
    Heights() {
        GDALDatasetUniquePtr raster(
            static_cast<GDALDataset*>(GDALOpen(benchCell().c_str(), GA_ReadOnly)));
        size = raster->GetRasterXSize();
        posts.resize(static_cast<size_t>(size) * size);
        double gt[6];
        if (raster->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, size, size, posts.data(), size, size,
                                               GDT_Float32, 0, 0) != CE_None ||
            raster->GetGeoTransform(gt) != CE_None || !GDALInvGeoTransform(gt, inverse))
            std::fill(std::begin(inverse), std::end(inverse), 0.0);
    }
    double at(double lon, double lat) const {
        const double c = inverse[0] + inverse[1] * lon + inverse[2] * lat - 0.5;
        const double r = inverse[3] + inverse[4] * lon + inverse[5] * lat - 0.5;
        const int c0 = static_cast<int>(c), r0 = static_cast<int>(r);
        const double fc = c - c0, fr = r - r0;
        auto post = [this](int col, int row) {
            return posts[static_cast<size_t>(row) * size + col];
        };
        return (post(c0, r0) * (1 - fc) + post(c0 + 1, r0) * fc) * (1 - fr) +
               (post(c0, r0 + 1) * (1 - fc) + post(c0 + 1, r0 + 1) * fc) * fr;
    }
};

size_t peerPlaces(const Heights& heights) {
    GDALDatasetUniquePtr dataset = openVector(pointsFile());
    OGRLayer* layer = dataset->GetLayer(0);
    OGRSpatialReference wgs84;
    wgs84.SetWellKnownGeogCS("WGS84");
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    std::unique_ptr<OGRCoordinateTransformation> toWgs84(
        OGRCreateCoordinateTransformation(layer->GetSpatialRef(), &wgs84));
    kelZor::DtUtmCoordinateConverter utm;
    utm.init(DtDegMinSec::fromLatitude(45.5), DtDegMinSec::fromLongitude(9.0), 32, 0);
    const int ecc = layer->GetLayerDefn()->GetFieldIndex("ECC");
    std::vector<DtVector64> placed;
    for (OGRFeatureUniquePtr feature(layer->GetNextFeature()); feature;
         feature.reset(layer->GetNextFeature())) {
        if (std::strcmp(feature->GetFieldAsString(ecc), "AL015") != 0)
            continue;
        const OGRPoint* point = feature->GetGeometryRef()->toPoint();
        double lon = point->getX(), lat = point->getY(), h = 0.0;
        toWgs84->Transform(1, &lon, &lat, &h);
        const DtGeodeticCoord ground(DtDeg2Rad(lat), DtDeg2Rad(lon), heights.at(lon, lat),
                                     DtGlobalEllipsoid());
        DtVector64 cig;
        utm.geocToCig(ground.geocentric(), cig);
        placed.push_back(cig);
    }
    return placed.size();
}

void addPropsOnCell(benchmark::State& state) {
    Engine engine;
    for (auto _ : state)
        benchmark::DoNotOptimize(addProps(engine));
}
BENCHMARK(addPropsOnCell)->Unit(benchmark::kMillisecond)->Iterations(3);

void ogrPlaceOnCell(benchmark::State& state) {
    const Heights heights;
    for (auto _ : state)
        benchmark::DoNotOptimize(peerPlaces(heights));
}
BENCHMARK(ogrPlaceOnCell)->Unit(benchmark::kMillisecond)->Iterations(3);

void addPropsOnLargeDem(benchmark::State& state) {
    Engine engine(largeDem());
    for (auto _ : state)
        benchmark::DoNotOptimize(addProps(engine, everyPointFile()));
}
BENCHMARK(addPropsOnLargeDem)->Unit(benchmark::kMillisecond)->Iterations(3);

void rasterIoPlaceOnLargeDem(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(rasterIoPlaces());
}
BENCHMARK(rasterIoPlaceOnLargeDem)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    kelZor::DtQuietLoader quiet;
    const PeakTasks tasks = {
        {"adder-large",
         [] {
             Engine engine(largeDem());
             addProps(engine, everyPointFile());
         }},
        {"peer-large", [] { rasterIoPlaces(); }},
        {"adder-cell-every",
         [] {
             Engine engine;
             addProps(engine, everyPointFile());
         }},
        {"adder-cell",
         [] {
             Engine engine;
             addProps(engine);
         }},
    };
    if (runPeakTask(argc, argv, tasks))
        return 0;
    benchmark::Initialize(&argc, argv);
    pointsFile();
    everyPointFile();
    benchCell();
    largeDem();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("addPropsOnCell/iterations:3", "ogrPlaceOnCell/iterations:3",
                        "goal: within 2");
    reporter.printRatio("addPropsOnLargeDem/iterations:3", "rasterIoPlaceOnLargeDem/iterations:3",
                        "goal: within 1.5");
    const long adderPeak = childPeakKilobytes("adder-large");
    printPeakRatio("addProps on the large DEM / peer", adderPeak, childPeakKilobytes("peer-large"),
                   "goal: the adder under 300 MB");
    removeDirectory();
    return 0;
}
