// The prop adder: addProps over a shapefile of 1,000,000 points (ZOR_BENCH_POINTS), one
// rule matching a tenth of them, on a DTED level-1 cell in a UTM scene, against a peer
// that reads the same points with OGR, keeps those whose field matches, transforms them
// into the scene and samples the same heights held in memory bilinearly. The vector
// load is part of both; the cell is read once, before either.
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

struct Engine {
    kelZor::DtDe de;
    kelZor::DtAgentManagerInterface agents;
    kelArchives::DtAddPropsRuleRecord rule;
    Engine() {
        kelZor::DtUtmCoordinateConverter utm;
        utm.init(DtDegMinSec::fromLatitude(45.5), DtDegMinSec::fromLongitude(9.0), 32, 0);
        de.sharedState().coordinateSystem() =
            kelZor::DtCoordinateSystem(kelZor::DtCoordinateConverter::UTM, utm.stringRep());
        std::string error;
        de.scene().terrain().addElevationSource(benchCell(), error);
        kelArchives::DtModelDefinitionRecord house;
        house.setName("house");
        de.sharedState().modelDefinitionManager().addDefinition(house);
        rule.setFieldValue("ECC", "AL015");
        rule.setModelDefinition("house");
        rule.setPropType("building");
        rule.setRotationField("KIND");
    }
};

size_t addProps(Engine& engine) {
    kelZor::DtTerrainLayer layer;
    kelZor::DtTdbPropAdder(engine.de, pointsFile(), engine.agents).addProps(engine.rule, &layer);
    return layer.numProps();
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

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    kelZor::DtQuietLoader quiet;
    pointsFile();
    benchCell();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("addPropsOnCell/iterations:3", "ogrPlaceOnCell/iterations:3",
                        "goal: within 2");
    std::filesystem::remove_all(directory());
    return 0;
}
