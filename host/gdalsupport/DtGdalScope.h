// What every user of GDAL in the host needs once: drivers registered, GDAL's messages
// routed for the length of a scope, and OGR's coordinate transformations owned.
//
//   DtGdalMessages messages(DtGdalMessages::Quiet);
//   GDALDatasetUniquePtr dataset(GDALDataset::Open(path, GDAL_OF_VECTOR));
//   if (!dataset) problem = DtGdalMessages::last();
//
// Not installed: an internal helper of the host's libraries and zorhost.
#pragma once

#include <cpl_error.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <memory>
#include <mutex>
#include <string>

// Registers GDAL's drivers once per process.
inline void DtGdalRegisterOnce() {
    static std::once_flag registered;
    std::call_once(registered, [] { GDALAllRegister(); });
}

// For its lifetime GDAL's messages go to its default handler (the terminal) or nowhere;
// the error state the scope began with, and the handler before it, come back at its end.
class DtGdalMessages {
public:
    enum Mode { Quiet, Printed };
    explicit DtGdalMessages(Mode mode)
        : handler_(mode == Quiet ? CPLQuietErrorHandler : CPLDefaultErrorHandler) {
        CPLErrorReset();
    }
    DtGdalMessages(const DtGdalMessages&) = delete;
    DtGdalMessages& operator=(const DtGdalMessages&) = delete;

    // The last message GDAL gave in this scope (on this thread), or `fallback`.
    static std::string last(const std::string& fallback = std::string()) {
        const char* message = CPLGetLastErrorMsg();
        return message && *message ? message : fallback;
    }
    static bool failed() { return CPLGetLastErrorType() >= CE_Failure; }

private:
    CPLErrorStateBackuper state_;  // first made, last restored
    CPLErrorHandlerPusher handler_;
};

struct DtTransformDeleter {
    void operator()(OGRCoordinateTransformation* t) const {
        OGRCoordinateTransformation::DestroyCT(t);
    }
};
using DtTransformPtr = std::unique_ptr<OGRCoordinateTransformation, DtTransformDeleter>;

// WGS84 with longitude first, as every coordinate in the host is given; 3-D with
// ellipsoidal heights (EPSG:4979) when `threeD`.
inline OGRSpatialReference DtWgs84(bool threeD = false) {
    OGRSpatialReference srs;
    if (threeD)
        srs.importFromEPSG(4979);
    else
        srs.SetWellKnownGeogCS("WGS84");
    srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return srs;
}
