#include "zorTerrain/DtTdbToolCoordSysFactory.h"

#include <string>

namespace kelZor {

namespace {

Coordinate_System* utmSystem(const DtUtmCoordinateConverter& converter) {
    const long zone = converter.signedZone();
    const int placement = converter.originPlacement();
    const DtDegMinSec longitude = converter.frameOriginLongitude();
    const DtDegMinSec latitude = converter.frameOriginLatitude();
    return new DtUtmCS(latitude, longitude, placement, zone, false, 0.0, 0.9996);
}

Coordinate_System* lambertSystem(const DtLambertCoordinateConverter& converter) {
    // Read from the last accessor to the first, handed over in the converter's order.
    const double parallel2 = converter.parallel2();
    const double parallel1 = converter.parallel1();
    const double longitude = converter.originLongitude();
    const double latitude = converter.originLatitude();
    return new DtLambertConformalCS(latitude, longitude, parallel1, parallel2);
}

}  // namespace

Coordinate_System* DtTdbToolCoordSysFactory::create(const DtCoordinateSystem& system) {
    const std::string type = system.type();
    if (type == DtCoordinateConverter::Geocentric)
        return new Coordinate_System(false, 0.0);
    if (type == DtCoordinateConverter::UTM && system.utmConverter())
        return utmSystem(*system.utmConverter());
    if (type == DtCoordinateConverter::Lambert && system.lambertConverter())
        return lambertSystem(*system.lambertConverter());
    if (type == DtCoordinateConverter::FlatEarth && system.flatEarthConverter()) {
        const DtFlatEarthCoordinateConverter& converter = *system.flatEarthConverter();
        return new DtFlatEarthCS(converter.lat(), converter.lon(), false, 0.0);
    }
    return new Coordinate_System(false, 0.0);
}

}  // namespace kelZor
