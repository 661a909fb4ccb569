// Vector data for the loader and adder benchmarks, written with OGR into a temporary
// directory, and the peers they are measured against: OGR's GetNextFeature of every
// feature, each point taken to WGS84 by OGR, to geocentric by GeographicLib and into
// the UTM scene by the host's converter, into plain vectors.
#pragma once

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/Geocentric.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "matrix/DtVector64.h"
#include "zorUtil/DtCoordinateConverter.h"

// ZOR_BENCH_POINTS, else `fallback`.
inline int benchPointCount(int fallback = 1000000) {
    const char* text = std::getenv("ZOR_BENCH_POINTS");
    const int count = text ? std::atoi(text) : 0;
    return count > 0 ? count : fallback;
}

// A fresh directory under /tmp, the same for the whole run and for the children that
// measure peak memory (they find it in ZOR_BENCH_DIR).
inline bool& directoryInherited() {
    static bool inherited = false;
    return inherited;
}

inline const std::string& directory() {
    static const std::string path = [] {
        if (const char* inherited = std::getenv("ZOR_BENCH_DIR")) {
            directoryInherited() = true;
            return std::string(inherited);
        }
        char pattern[] = "/tmp/zorbench-vector-XXXXXX";
        const std::string made = mkdtemp(pattern);
        setenv("ZOR_BENCH_DIR", made.c_str(), 1);
        return made;
    }();
    return path;
}

// Removes the run's directory, unless it was given (ZOR_BENCH_DIR) to keep its files for
// another run.
inline void removeDirectory() {
    if (!directoryInherited())
        std::filesystem::remove_all(directory());
}

// A shapefile layer in UTM zone 32 north with three fields (ECC, HGT, KIND) of a few
// hundred distinct values each; `geometry` makes the i-th feature's shape. ECC is AL015
// on every `al015Every`-th feature, EC030 on the others.
inline std::string writeShapefile(const std::string& path, int count, OGRwkbGeometryType type,
                                  const std::function<void(int, OGRFeature&)>& geometry,
                                  int al015Every = 10) {
    if (std::filesystem::exists(path))
        return path;  // written by the parent of this measuring child
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
    GDALDatasetUniquePtr dataset(driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    OGRSpatialReference srs;
    srs.importFromEPSG(32632);
    OGRLayer* layer = dataset->CreateLayer("features", &srs, type, nullptr);
    OGRFieldDefn ecc("ECC", OFTString), height("HGT", OFTReal), kind("KIND", OFTInteger);
    ecc.SetWidth(8);
    layer->CreateField(&ecc);
    layer->CreateField(&height);
    layer->CreateField(&kind);
    OGRFeature feature(layer->GetLayerDefn());
    for (int i = 0; i < count; ++i) {
        geometry(i, feature);
        feature.SetField("ECC", i % al015Every == 0 ? "AL015" : "EC030");
        feature.SetField("HGT", static_cast<double>(i % 300));
        feature.SetField("KIND", i % 200);
        feature.SetFID(OGRNullFID);
        if (layer->CreateFeature(&feature) != OGRERR_NONE)
            break;
    }
    return path;
}

// Rows of a thousand points 20 m apart, from (400000, 5000000) northwards, as a survey
// or a forest's trees come.
inline std::string writePoints(const std::string& path, int count, int al015Every = 10) {
    return writeShapefile(
        path, count, wkbPoint,
        [](int i, OGRFeature& feature) {
            OGRPoint point(400000.0 + (i % 1000) * 20.0, 5000000.0 + (i / 1000) * 20.0);
            feature.SetGeometry(&point);
        },
        al015Every);
}

// Polylines of `vertices` vertices each, none touching another.
inline std::string writeLines(const std::string& path, int count, int vertices) {
    return writeShapefile(path, count, wkbLineString, [vertices](int i, OGRFeature& feature) {
        OGRLineString line;
        const double x = 400000.0 + (i % 300) * 300.0, y = 5000000.0 + (i / 300) * 30.0;
        for (int v = 0; v < vertices; ++v)
            line.addPoint(x + v * 25.0, y + (v % 2) * 10.0);
        feature.SetGeometry(&line);
    });
}

// The scene of the benchmarks: UTM zone 32 north.
class UtmSceneTransform {
public:
    explicit UtmSceneTransform(const OGRSpatialReference* source) {
        OGRSpatialReference wgs84;
        wgs84.SetWellKnownGeogCS("WGS84");
        wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        transform_.reset(OGRCreateCoordinateTransformation(source, &wgs84));
        converter_.init(DtDegMinSec::fromLatitude(45.5), DtDegMinSec::fromLongitude(9.0), 32, 0);
    }
    DtVector64 operator()(double x, double y) const {
        double z = 0.0;
        transform_->Transform(1, &x, &y, &z);
        double X, Y, Z;
        earth_.Forward(y, x, z, X, Y, Z);
        DtVector64 cig;
        converter_.geocToCig(DtVector64(X, Y, Z), cig);
        return cig;
    }

private:
    std::unique_ptr<OGRCoordinateTransformation> transform_;
    kelZor::DtUtmCoordinateConverter converter_;
    const GeographicLib::Geocentric& earth_ = GeographicLib::Geocentric::WGS84();
};

inline GDALDatasetUniquePtr openVector(const std::string& path) {
    GDALAllRegister();
    return GDALDatasetUniquePtr(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
}

inline size_t readAndTransformPoints(const std::string& path) {
    GDALDatasetUniquePtr dataset = openVector(path);
    OGRLayer* layer = dataset->GetLayer(0);
    const UtmSceneTransform toScene(layer->GetSpatialRef());
    std::vector<DtVector64> points;
    for (OGRFeatureUniquePtr feature(layer->GetNextFeature()); feature;
         feature.reset(layer->GetNextFeature())) {
        const OGRPoint* point = feature->GetGeometryRef()->toPoint();
        points.push_back(toScene(point->getX(), point->getY()));
    }
    return points.size();
}

inline size_t readAndTransformLines(const std::string& path) {
    GDALDatasetUniquePtr dataset = openVector(path);
    OGRLayer* layer = dataset->GetLayer(0);
    const UtmSceneTransform toScene(layer->GetSpatialRef());
    std::vector<std::vector<DtVector64>> lines;
    for (OGRFeatureUniquePtr feature(layer->GetNextFeature()); feature;
         feature.reset(layer->GetNextFeature())) {
        std::vector<DtVector64>& line = lines.emplace_back();
        for (const OGRPoint& p : *feature->GetGeometryRef()->toLineString())
            line.push_back(toScene(p.getX(), p.getY()));
    }
    return lines.size();
}

// Peak memory is measured in a fresh process per task: the benchmark runs itself again
// with --zor-peak=TASK, so no heap the benchmarks grew before is counted or reused. The
// child reports its own high-water mark (VmHWM): a forked child's rusage would count the
// parent's pages it held until exec.
using PeakTasks = std::map<std::string, std::function<void()>>;

inline long highWaterKilobytes() {
    std::FILE* status = std::fopen("/proc/self/status", "r");
    long kilobytes = 0;
    char line[256];
    while (status && std::fgets(line, sizeof line, status)) {
        if (std::sscanf(line, "VmHWM: %ld kB", &kilobytes) == 1)
            break;
    }
    if (status)
        std::fclose(status);
    return kilobytes;
}

// True when this process is such a child; it has then run the task and printed its peak.
inline bool runPeakTask(int argc, char** argv, const PeakTasks& tasks) {
    const std::string prefix = "--zor-peak=";
    if (argc < 2 || std::string(argv[1]).rfind(prefix, 0) != 0)
        return false;
    const auto task = tasks.find(std::string(argv[1]).substr(prefix.size()));
    if (task != tasks.end())
        task->second();
    std::printf("zor-peak-kb %ld\n", highWaterKilobytes());
    return true;
}

// The peak resident size of a child running `task`, less that of one running nothing.
inline long childPeakKilobytes(const std::string& task) {
    auto peakOf = [](const std::string& name) -> long {
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        const std::string command = "'" + self + "' --zor-peak=" + name;
        std::FILE* child = popen(command.c_str(), "r");
        long kilobytes = 0;
        char line[256];
        while (child && std::fgets(line, sizeof line, child))
            std::sscanf(line, "zor-peak-kb %ld", &kilobytes);
        if (child)
            pclose(child);
        return kilobytes;
    };
    return peakOf(task) - peakOf("");
}

inline void printPeakRatio(const char* what, long subject, long peer, const char* goal) {
    std::printf("ratio peak memory %s = %.2f (%ld KB vs %ld KB; %s)\n", what,
                peer > 0 ? static_cast<double>(subject) / peer : 0.0, subject, peer, goal);
}
