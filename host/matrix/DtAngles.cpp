#include "matrix/DtAngles.h"

#include <cmath>

namespace {
DtDegMinSec split(double degrees, int32_t hemisphere) {
    double magnitude = std::fabs(degrees);
    double whole = std::floor(magnitude);
    double minutes = std::floor((magnitude - whole) * 60.0);
    double seconds = ((magnitude - whole) * 60.0 - minutes) * 60.0;
    return DtDegMinSec(whole, minutes, seconds, hemisphere);
}
}  // namespace

DtDegMinSec DtDegMinSec::fromLatitude(double degrees) {
    return split(degrees, degrees < 0 ? South : North);
}

DtDegMinSec DtDegMinSec::fromLongitude(double degrees) {
    return split(degrees, degrees < 0 ? West : East);
}

double DtDegMinSec::toDegrees() const {
    const double magnitude = degrees_ + minutes_ / 60.0 + seconds_ / 3600.0;
    return (hemisphere_ == West || hemisphere_ == South) ? -magnitude : magnitude;
}
