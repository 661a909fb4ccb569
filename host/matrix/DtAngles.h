// Angles: degree/radian conversion, degrees-minutes-seconds, and Tait-Bryan triples.
#pragma once

#include <cstdint>

inline constexpr double DtPi = 3.14159265358979323846;
inline double DtDeg2Rad(double degrees) {
    return degrees * (DtPi / 180.0);
}
inline double DtRad2Deg(double radians) {
    return radians * (180.0 / DtPi);
}

// An angle as unsigned degrees, minutes and seconds, with the sign in the hemisphere
// code: 0 east (longitude >= 0), 1 west, 2 north (latitude >= 0), 3 south.
class DtDegMinSec {
public:
    enum Hemisphere : int32_t { East = 0, West = 1, North = 2, South = 3 };

    DtDegMinSec() = default;
    DtDegMinSec(double degrees, double minutes, double seconds, int32_t hemisphere)
        : degrees_(degrees), minutes_(minutes), seconds_(seconds), hemisphere_(hemisphere) {}
    // A latitude or longitude in signed decimal degrees.
    static DtDegMinSec fromLatitude(double degrees);
    static DtDegMinSec fromLongitude(double degrees);

    double degrees() const { return degrees_; }
    double minutes() const { return minutes_; }
    double seconds() const { return seconds_; }
    int32_t hemisphere() const { return hemisphere_; }
    void setDegrees(double v) { degrees_ = v; }
    void setMinutes(double v) { minutes_ = v; }
    void setSeconds(double v) { seconds_ = v; }
    void setHemisphere(int32_t v) { hemisphere_ = v; }

    // Signed decimal degrees: negative for West and South.
    double toDegrees() const;

private:
    double degrees_ = 0.0;
    double minutes_ = 0.0;
    double seconds_ = 0.0;
    int32_t hemisphere_ = North;
};

// Heading (psi), pitch (theta) and roll (phi), in radians.
class DtTaitBryan {
public:
    DtTaitBryan() = default;
    DtTaitBryan(double psi, double theta, double phi) : psi_(psi), theta_(theta), phi_(phi) {}
    double psi() const { return psi_; }
    double theta() const { return theta_; }
    double phi() const { return phi_; }

private:
    double psi_ = 0.0;
    double theta_ = 0.0;
    double phi_ = 0.0;
};
