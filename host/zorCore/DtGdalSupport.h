// Scoped use of GDAL by the engine's own parsers: drivers registered once, GDAL's
// messages kept off the terminal for the call, datasets closed on every path.
#pragma once

#include <gdal_priv.h>

#include <string>

namespace kelZor {

// Silences GDAL's error handler for its lifetime and restores the previous one.
class DtGdalQuietScope {
public:
    DtGdalQuietScope();
    ~DtGdalQuietScope();
    DtGdalQuietScope(const DtGdalQuietScope&) = delete;
    DtGdalQuietScope& operator=(const DtGdalQuietScope&) = delete;
};

// Opens a raster read-only, with only `driver` when it is not null. Null on failure.
GDALDatasetUniquePtr DtOpenRaster(const std::string& path, const char* driver);

}  // namespace kelZor
