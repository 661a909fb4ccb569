// Tait-Bryan angles (psi about z, theta about y, phi about x, applied in that order) to
// the quaternion x, y, z, w of the same rotation.
//
//   double x, y, z, w;
//   DtEulerToQuaternionDeg(90.0, 0.0, 0.0, x, y, z, w);   // a quarter turn about z
#pragma once

namespace kelZor {

void DtEulerToQuaternionRad(double psi, double theta, double phi, double& x, double& y, double& z,
                            double& w);
void DtEulerToQuaternionDeg(double psi, double theta, double phi, double& x, double& y, double& z,
                            double& w);

}  // namespace kelZor
