#include "zorUtil/DtEulerToQuaternion.h"

#include <Eigen/Geometry>

#include "matrix/DtAngles.h"

namespace kelZor {

void DtEulerToQuaternionRad(double psi, double theta, double phi, double& x, double& y, double& z,
                            double& w) {
    const Eigen::Quaterniond q = Eigen::AngleAxisd(-psi, Eigen::Vector3d::UnitZ()) *
                                 Eigen::AngleAxisd(theta, Eigen::Vector3d::UnitX()) *
                                 Eigen::AngleAxisd(phi, Eigen::Vector3d::UnitY());
    x = q.x();
    y = q.y();
    z = q.z();
    w = q.w();
}

void DtEulerToQuaternionDeg(double psi, double theta, double phi, double& x, double& y, double& z,
                            double& w) {
    DtEulerToQuaternionRad(DtDeg2Rad(psi), DtDeg2Rad(theta), DtDeg2Rad(phi), x, y, z, w);
}

}  // namespace kelZor
