#include "zorCore/DtGdalSupport.h"

#include <cpl_error.h>

#include <mutex>

namespace kelZor {

DtGdalQuietScope::DtGdalQuietScope() {
    CPLPushErrorHandler(CPLQuietErrorHandler);
}
DtGdalQuietScope::~DtGdalQuietScope() {
    CPLPopErrorHandler();
}

GDALDatasetUniquePtr DtOpenRaster(const std::string& path, const char* driver) {
    static std::once_flag registered;
    std::call_once(registered, [] { GDALAllRegister(); });
    DtGdalQuietScope quiet;
    const char* const drivers[] = {driver, nullptr};
    return GDALDatasetUniquePtr(
        GDALDataset::FromHandle(GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY,
                                           driver ? drivers : nullptr, nullptr, nullptr)));
}

}  // namespace kelZor
