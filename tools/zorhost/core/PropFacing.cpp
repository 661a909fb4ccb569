#include "PropFacing.h"

#include <Eigen/Geometry>

#include <cmath>

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
    const DtVector64 f = propForward(record);
    DtVector64 east, north, up;
    scene.converter()->levelAxes(propPosition(record), east, north, up);
    const auto dot = [&f](const DtVector64& v) {
        return f.x() * v.x() + f.y() * v.y() + f.z() * v.z();
    };
    double degrees = DtRad2Deg(std::atan2(dot(east), dot(north)));
    degrees = std::fmod(degrees + 360.0, 360.0);
    return std::abs(degrees) < 1e-9 || std::abs(degrees - 360.0) < 1e-9 ? 0.0 : degrees;
}
