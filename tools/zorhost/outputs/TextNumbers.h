// Numbers in zorhost's text output as a person reads them: metres to a millimetre and
// degrees to 1e-9 degree, without trailing zeros (500000, 8894587.509, 45.5). JSON keeps
// every digit.
#pragma once

#include <string>

std::string metresText(double metres);
std::string degreesText(double degrees);
// Three metre values separated by blanks.
std::string metresText(double x, double y, double z);
