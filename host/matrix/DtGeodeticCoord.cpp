#include "matrix/DtGeodeticCoord.h"

#include <GeographicLib/Constants.hpp>
#include <GeographicLib/Geocentric.hpp>

#include "matrix/DtAngles.h"

DtReferenceEllipsoid::DtReferenceEllipsoid(double equatorialRadius, double flattening)
    : a_(equatorialRadius),
      f_(flattening),
      earth_(std::make_unique<GeographicLib::Geocentric>(equatorialRadius, flattening)) {}

DtReferenceEllipsoid::~DtReferenceEllipsoid() = default;

const DtReferenceEllipsoid* DtGlobalEllipsoid() {
    static const DtReferenceEllipsoid wgs84(GeographicLib::Constants::WGS84_a(),
                                            GeographicLib::Constants::WGS84_f());
    return &wgs84;
}

DtGeodeticCoord::DtGeodeticCoord(const DtReferenceEllipsoid* ellipsoid)
    : ellipsoid_(ellipsoid ? ellipsoid : DtGlobalEllipsoid()) {}

DtGeodeticCoord::DtGeodeticCoord(double lat, double lon, double alt,
                                 const DtReferenceEllipsoid* ellipsoid)
    : ellipsoid_(ellipsoid ? ellipsoid : DtGlobalEllipsoid()), lat_(lat), lon_(lon), alt_(alt) {}

DtVector64 DtGeodeticCoord::geocentric() const {
    double x, y, z;
    ellipsoid_->geocentric().Forward(DtRad2Deg(lat_), DtRad2Deg(lon_), alt_, x, y, z);
    return DtVector64(x, y, z);
}

void DtGeodeticCoord::setGeocentric(const DtVector64& ecef) {
    double latDeg, lonDeg, h;
    ellipsoid_->geocentric().Reverse(ecef.x(), ecef.y(), ecef.z(), latDeg, lonDeg, h);
    lat_ = DtDeg2Rad(latDeg);
    lon_ = DtDeg2Rad(lonDeg);
    alt_ = h;
}
