// The engine's one orientation convention, for every scene kind.
//
// Models are built with x to their right, y forward and z up (as OpenFlight models are).
// An orientation is given by Tait-Bryan angles relative to a frame whose x is east, y
// north and z up: psi, the heading, turns the model from north towards east (clockwise
// seen from above); theta, the pitch, lifts its nose; phi, the roll, lowers its right
// side. Applied in that order, they give the rotation that takes the model's axes into
// the frame:  q = Rz(-psi) * Rx(theta) * Ry(phi).
//
// In a projected scene (UTM, Lambert, flat earth) the frame is the scene's own (grid
// north); in a geocentric one DtCoordinateConverter::nedToLocal expresses an orientation
// given at a place in the scene's axes. The quaternion keeps the angle's half-turns: a
// heading of 370 degrees gives the negated quaternion of a heading of 10.
//
//   double x, y, z, w;
//   DtEulerToQuaternionDeg(90.0, 0.0, 0.0, x, y, z, w);   // facing east: y forward -> x
#pragma once

namespace kelZor {

void DtEulerToQuaternionRad(double psi, double theta, double phi, double& x, double& y, double& z,
                            double& w);
void DtEulerToQuaternionDeg(double psi, double theta, double phi, double& x, double& y, double& z,
                            double& w);

}  // namespace kelZor
