// A file system of zorhost's own for what GDAL writes ("/vsizorhost/" + an absolute
// path): GDAL's drivers do not all check their writes (the GeoJSON driver ignores a short
// one), so every write, flush and close made through it is checked here, and a fault is
// noted against the output's temporary, where the output's commit finds it.
#pragma once

#include <string>

// The name under which GDAL writes `path` through the checked file system (installed on
// first use).
std::string checkedGdalPath(const std::string& path);
