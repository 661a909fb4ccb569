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

    // The last message GDAL gave in this scope (on this thread), or `fallback`, as one
    // line: GDAL's messages of several lines (a VRT that refers to itself) are folded,
    // and other control characters shown as escapes.
    static std::string last(const std::string& fallback = std::string()) {
        const char* message = CPLGetLastErrorMsg();
        return message && *message ? oneLine(message) : fallback;
    }
    static std::string oneLine(const std::string& text) {
        std::string line;
        bool broken = false;
        for (const char c : text) {
            if (c == '\n' || c == '\r') {
                broken = true;
                continue;
            }
            if (broken && !line.empty())
                line += "; ";
            broken = false;
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
                static const char hex[] = "0123456789abcdef";
                line += c == '\t' ? std::string("\\t")
                                  : std::string("\\x") + hex[(c >> 4) & 0xf] + hex[c & 0xf];
            } else {
                line += c;
            }
        }
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        return line;
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
