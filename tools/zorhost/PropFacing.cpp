#include "PropFacing.h"

#include <Eigen/Geometry>
#include <GeographicLib/Geocentric.hpp>

#include <cmath>
#include <vector>

#include "matrix/DtAngles.h"

bool propPlaced(const kelArchives::DtPropRecord& record) {
    const double* p = record.position();
    return p[0] != 0.0 || p[1] != 0.0 || p[2] != 0.0;
}

DtVector64 propPosition(const kelArchives::DtPropRecord& record) {
    const double* p = record.position();
    return DtVector64(p[0], p[1], p[2]);
}

DtVector64 propForward(const kelArchives::DtPropRecord& record) {
    const double* q = record.orientation();
    const Eigen::Vector3d forward =
        Eigen::Quaterniond(q[3], q[0], q[1], q[2]).normalized() * Eigen::Vector3d::UnitY();
    return DtVector64(forward.x(), forward.y(), forward.z());
}

double propHeadingDegrees(const kelZor::DtCoordinateSystem& scene,
                          const kelArchives::DtPropRecord& record) {
    const DtVector64 position = propPosition(record);
    const DtVector64 f = propForward(record);
    const Eigen::Vector3d forward(f.x(), f.y(), f.z());
    double degrees = 0.0;
    if (scene.converter()->upVector(position) == DtVector64(0.0, 0.0, 1.0)) {
        degrees = DtRad2Deg(std::atan2(forward.x(), forward.y()));
    } else {
        DtVector64 geocentric;
        scene.converter()->cigToGeoc(position, geocentric);
        double lat, lon, h;
        std::vector<double> m(9);
        GeographicLib::Geocentric::WGS84().Reverse(geocentric.x(), geocentric.y(), geocentric.z(),
                                                   lat, lon, h, m);
        const Eigen::Vector3d east(m[0], m[3], m[6]), north(m[1], m[4], m[7]);
        degrees = DtRad2Deg(std::atan2(forward.dot(east), forward.dot(north)));
    }
    degrees = std::fmod(degrees + 360.0, 360.0);
    return std::abs(degrees) < 1e-9 || std::abs(degrees - 360.0) < 1e-9 ? 0.0 : degrees;
}
