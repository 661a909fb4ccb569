// A prop as the front ends give it, the same for the command line and the Python module.
#pragma once

#include <string>

#include "JsonOutput.h"
#include "zorCore/DtPropAdder.h"
#include "zorUtil/DtCoordinateSystem.h"

// A prop as `props --json` gives it, made by rule `rule`.
Json propJson(size_t rule, const kelZor::DtProp& prop, const kelZor::DtCoordinateSystem& scene);
// What is said of the props the terrain could not place, naming the first.
std::string unplacedLine(const std::string& file, size_t unplaced, const std::string& first);
