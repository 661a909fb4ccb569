// A DTED cell written through GDAL's own DTED driver, for the sample set, the tests and
// the benchmarks: `posts` x `posts` Int16 posts whose south-west post stands at whole
// degrees (`lat`, `lon`), row 0 the northern edge.
//
//   writeDtedCell("n45_e009.dt0", 45, 9, 121, [](int row, int col) { return 400 + row; });
//
// Not installed: a support library of the project's own programs.
#pragma once

#include <functional>
#include <string>

// False when GDAL cannot write it.
bool writeDtedCell(const std::string& path, int lat, int lon, int posts,
                   const std::function<int(int row, int col)>& height);
