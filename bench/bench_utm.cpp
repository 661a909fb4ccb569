// UTM round trips through the host's converter (geocentric in, cig out, and back)
// against GeographicLib's UTMUPS::Forward and Reverse on geodetic coordinates, called
// directly. The converter also pays the geocentric-geodetic steps on both ways.
#include <benchmark/benchmark.h>

#include <GeographicLib/UTMUPS.hpp>

#include <vector>

#include "RatioReporter.h"
#include "matrix/DtGeodeticCoord.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace {

struct Point {
    double lat, lon;
    DtVector64 geoc;
};

const std::vector<Point>& points() {
    static const std::vector<Point> all = [] {
        std::vector<Point> p;
        for (int i = 0; i < 1024; ++i) {
            const double lat = 30.0 + (i % 32) * 0.9;
            const double lon = 6.1 + (i / 32) * 0.18;
            p.push_back({lat, lon,
                         DtGeodeticCoord(DtDeg2Rad(lat), DtDeg2Rad(lon), 100.0, DtGlobalEllipsoid())
                             .geocentric()});
        }
        return p;
    }();
    return all;
}

void converterRoundTrip(benchmark::State& state) {
    kelZor::DtUtmCoordinateConverter utm;
    utm.init(32, 'N', false);
    DtVector64 cig, back;
    size_t i = 0;
    for (auto _ : state) {
        const Point& p = points()[i++ & 1023];
        utm.geocToCig(p.geoc, cig);
        utm.cigToGeoc(cig, back);
        benchmark::DoNotOptimize(back);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(converterRoundTrip);

void geographicLibDirect(benchmark::State& state) {
    size_t i = 0;
    for (auto _ : state) {
        const Point& p = points()[i++ & 1023];
        int zone;
        bool northp;
        double x, y, lat, lon;
        GeographicLib::UTMUPS::Forward(p.lat, p.lon, zone, northp, x, y, 32);
        GeographicLib::UTMUPS::Reverse(zone, northp, x, y, lat, lon);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lon);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(geographicLibDirect);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("converterRoundTrip", "geographicLibDirect",
                        "time per geocToCig+cigToGeoc over UTMUPS Forward+Reverse");
    return 0;
}
