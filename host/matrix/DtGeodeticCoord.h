// Geodetic coordinates on a reference ellipsoid, and the process-wide ellipsoid
// (WGS84). Latitude and longitude in radians, altitude in metres above the ellipsoid;
// geocentric vectors in metres (earth-centred, earth-fixed).
//
//   DtGeodeticCoord place(DtDeg2Rad(45.5), DtDeg2Rad(10.0), 100.0, DtGlobalEllipsoid());
//   DtVector64 ecef = place.geocentric();
#pragma once

#include <memory>

#include "matrix/DtVector64.h"

namespace GeographicLib {
class Geocentric;
}

class DtReferenceEllipsoid {
public:
    DtReferenceEllipsoid(double equatorialRadius, double flattening);
    ~DtReferenceEllipsoid();
    DtReferenceEllipsoid(const DtReferenceEllipsoid&) = delete;
    DtReferenceEllipsoid& operator=(const DtReferenceEllipsoid&) = delete;

    double equatorialRadius() const { return a_; }
    double flattening() const { return f_; }
    const GeographicLib::Geocentric& geocentric() const { return *earth_; }

private:
    double a_;
    double f_;
    std::unique_ptr<GeographicLib::Geocentric> earth_;
};

// The process-wide ellipsoid, WGS84. Never null.
const DtReferenceEllipsoid* DtGlobalEllipsoid();

class DtGeodeticCoord {
public:
    explicit DtGeodeticCoord(const DtReferenceEllipsoid* ellipsoid);
    DtGeodeticCoord(double lat, double lon, double alt, const DtReferenceEllipsoid* ellipsoid);

    double lat() const { return lat_; }
    double lon() const { return lon_; }
    double alt() const { return alt_; }
    DtVector64 geocentric() const;
    void setGeocentric(const DtVector64& ecef);

private:
    const DtReferenceEllipsoid* ellipsoid_;
    double lat_ = 0.0;
    double lon_ = 0.0;
    double alt_ = 0.0;
};
