#include "terrainDbFactory/DtTdbManager.h"

#include "terrainDbFactory/DtNetworkBuilder.h"
#include "terrainDbFactory/DtTdbLoadSession.h"

#include <ogrsf_frmts.h>
#include <GeographicLib/UTMUPS.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

#include "gdalsupport/DtGdalScope.h"
#include "gdalsupport/DtSrsParameters.h"
#include "hxutil/DtNotify.h"
#include "zorUtil/DtCoordinateConverter.h"

using kelZor::DtCoordinateConverter;

namespace {

// GDAL prints while DtNotifyLevel is above 0.
DtGdalMessages::Mode gdalMode() {
    return DtNotifyLevel > 0 ? DtGdalMessages::Printed : DtGdalMessages::Quiet;
}

std::string lowerExtension(const DtFilename& file) {
    return file.extension().toLower().stdString();
}

bool isDted(const std::string& extension) {
    return extension == "dt0" || extension == "dt1" || extension == "dt2";
}

bool isUnreadFormat(const std::string& extension) {
    return extension == "c4b" || extension == "c7b" || extension == "c7l" || extension == "dfd";
}

void setError(DtString* error, const DtFilename& file, const std::string& reason) {
    if (error)
        *error = DtString(file.stdString() + ": " + reason);
}

// Whether GDAL sees the file: on disk, or behind one of its virtual paths (/vsimem/,
// /vsizip/, ...), which the loader reads as well.
bool exists(const DtFilename& file) {
    VSIStatBufL info;
    return VSIStatL(file.c_str(), &info) == 0;
}

// The first problem that keeps a file from being opened at all, or "".
std::string openProblem(const DtFilename& file) {
    if (file.isEmpty())
        return "no file name";
    if (!exists(file))
        return "no such file";
    const std::string extension = lowerExtension(file);
    if (isUnreadFormat(extension))
        return "the \"" + extension + "\" format is not read by this loader";
    return "";
}

GDALDatasetUniquePtr open(const DtFilename& file, unsigned flags, std::string& problem) {
    DtGdalRegisterOnce();
    // A tool's session may hand the vector driver open options, as ogr2ogr's -oo does.
    CPLStringList options;
    const DtTdbLoadSession* session = DtTdbLoadSession::current();
    if (session && (flags & GDAL_OF_VECTOR)) {
        for (const std::string& option : session->options().openOptions)
            options.AddString(option.c_str());
    }
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(file.c_str(), flags | GDAL_OF_READONLY, nullptr, options.List(), nullptr)));
    if (!dataset) {
        const std::string reason = DtGdalMessages::last();
        problem = "not a terrain source this loader reads" + (reason.empty() ? "" : ": " + reason);
    }
    return dataset;
}

// Longitude and latitude, degrees, of (x, y) in `srs`; false when OGR cannot say.
bool toWgs84(const OGRSpatialReference& srs, double x, double y, double& lon, double& lat) {
    const OGRSpatialReference target = DtWgs84();
    DtTransformPtr transform(OGRCreateCoordinateTransformation(&srs, &target));
    if (!transform || !transform->Transform(1, &x, &y))
        return false;
    lon = x;
    lat = y;
    return std::isfinite(lon) && std::fabs(lat) <= 90.0;
}

// ------------------------------------------------------------------ coordinate systems

// The zone as the terrain database names it: negative in the southern hemisphere.
long signedZone(int zone, bool north) {
    return north ? zone : -zone;
}

Coordinate_System* utmAt(double lat, double lon, long zone) {
    return new DtUtmCS(DtCoordinateConverter::convertToDmsLat(lat),
                       DtCoordinateConverter::convertToDmsLon(lon), DtUtmCS::OriginInArea, zone,
                       false, 0.0, 0.9996);
}

Coordinate_System* dtedSystem(const DtFilename& file, std::string& problem) {
    GDALDatasetUniquePtr dataset = open(file, GDAL_OF_RASTER, problem);
    if (!dataset)
        return nullptr;
    double geo[6];
    const OGRSpatialReference* srs = dataset->GetSpatialRef();
    if (dataset->GetGeoTransform(geo) != CE_None || !srs || !srs->IsGeographic()) {
        problem = "a DTED cell without a geographic position";
        return nullptr;
    }
    const double w = dataset->GetRasterXSize() / 2.0;
    const double h = dataset->GetRasterYSize() / 2.0;
    // Cells lie on whole arc seconds: the centre is rounded to 1e-9 degree (0.1 mm), so
    // that the sums of the transform do not show as 40.49999999999999.
    auto rounded = [](double degrees) { return std::round(degrees * 1e9) / 1e9; };
    const double lon = rounded(geo[0] + geo[1] * w + geo[2] * h);
    const double lat = rounded(geo[3] + geo[4] * w + geo[5] * h);
    if (!(std::fabs(lat) <= 90.0) || !(std::fabs(lon) <= 180.0)) {
        problem = "a DTED cell outside the earth";
        return nullptr;
    }
    const int zone = GeographicLib::UTMUPS::StandardZone(lat, lon);
    return utmAt(lat, lon, signedZone(zone, lat >= 0.0));
}

// The centre of the layer's extent as the header or layer definition gives it; false for
// a layer without features, whose header extent is no place.
bool extentCentre(OGRLayer& layer, double& x, double& y) {
    OGREnvelope envelope;
    if (layer.GetFeatureCount(FALSE) == 0 || layer.GetExtent(&envelope, FALSE) != OGRERR_NONE)
        return false;
    x = (envelope.MinX + envelope.MaxX) / 2.0;
    y = (envelope.MinY + envelope.MaxY) / 2.0;
    return std::isfinite(x) && std::isfinite(y);
}

// The hemisphere is the system's (the zone's sign says it); the origin is where the data
// lie, or the zone's central meridian on the equator. A northern origin stays north of
// the equator, since a positive zone takes its hemisphere from the origin.
Coordinate_System* utmSystem(const OGRSpatialReference& srs, OGRLayer& layer, int zone,
                             bool north) {
    double lon = -183.0 + 6.0 * zone;
    double lat = 0.0;
    double x = 0.0, y = 0.0;
    if (extentCentre(layer, x, y)) {
        double centreLon = 0.0, centreLat = 0.0;
        if (toWgs84(srs, x, y, centreLon, centreLat)) {
            lon = centreLon;
            lat = north ? std::max(centreLat, 0.0) : centreLat;
        }
    }
    return utmAt(lat, lon, signedZone(zone, north));
}

Coordinate_System* projectedSystem(const OGRSpatialReference& srs, OGRLayer& layer) {
    int north = 0;
    if (const int zone = srs.GetUTMZone(&north))
        return utmSystem(srs, layer, zone, north != 0);
    DtLambertCone cone;
    if (DtLambertConeOf(srs, cone)) {
        return new DtLambertConformalCS(cone.originLat, cone.originLon, cone.parallel1,
                                        cone.parallel2);
    }
    const char* projection = srs.GetAttrValue("PROJECTION");
    const std::string name = projection ? projection : "";
    if (name == SRS_PT_EQUIRECTANGULAR) {
        return new DtFlatEarthCS(DtDeg2Rad(srs.GetNormProjParm(SRS_PP_LATITUDE_OF_ORIGIN, 0.0)),
                                 DtDeg2Rad(DtGreenwichLongitude(srs, SRS_PP_CENTRAL_MERIDIAN)),
                                 false, 0.0);
    }
    const char* own = srs.GetName();
    return new Coordinate_System(Coordinate_System::OtherProjected, DtString(own ? own : name));
}

Coordinate_System* vectorSystem(const DtFilename& file, std::string& problem) {
    GDALDatasetUniquePtr dataset = open(file, GDAL_OF_VECTOR, problem);
    if (!dataset)
        return nullptr;
    // What a load session gives layers without a system.
    const DtTdbLoadSession* session = DtTdbLoadSession::current();
    const std::unique_ptr<OGRSpatialReference> given = session ? session->givenSrs() : nullptr;
    for (OGRLayer* layer : dataset->GetLayers()) {
        // An attribute table has no place, and so no system.
        if (!layer || layer->GetLayerDefn()->GetGeomFieldCount() == 0)
            continue;
        const OGRSpatialReference* srs = layer->GetSpatialRef();
        if (!srs)
            srs = given.get();
        if (!srs)
            continue;
        if (srs->IsProjected())
            return projectedSystem(*srs, *layer);
        if (srs->IsGeocentric())
            return new Coordinate_System(false, 0.0);
        if (srs->IsGeographic()) {
            return new Coordinate_System(Coordinate_System::Geographic, DtString("Geographic"));
        }
        const char* own = srs->GetName();
        return new Coordinate_System(Coordinate_System::OtherProjected, DtString(own ? own : ""));
    }
    problem = dataset->GetLayerCount() == 0 ? "no layer" : "no layer with a coordinate system";
    return nullptr;
}

}  // namespace

DtTdbManager::DtTdbManager() = default;
DtTdbManager::~DtTdbManager() = default;

Coordinate_System* DtTdbManager::coordinateSystemFrom(const DtFilename& file, const DtFilename&,
                                                      DtString* error) {
    const DtGdalMessages messages(gdalMode());
    std::string problem = openProblem(file);
    Coordinate_System* system = nullptr;
    if (problem.empty()) {
        system =
            isDted(lowerExtension(file)) ? dtedSystem(file, problem) : vectorSystem(file, problem);
    }
    if (!system)
        setError(error, file, problem);
    return system;
}

bool DtTdbManager::loadFor3DVisualization(const DtFilename& file, Coordinate_System* cs,
                                          DtString* error) {
    database_.reset();
    const DtGdalMessages messages(gdalMode());
    std::string problem = openProblem(file);
    if (!problem.empty()) {
        setError(error, file, problem);
        return false;
    }
    GDALDatasetUniquePtr dataset = open(file, GDAL_OF_VECTOR | GDAL_OF_RASTER, problem);
    if (!dataset) {
        setError(error, file, problem);
        return false;
    }
    if (dataset->GetLayerCount() == 0) {
        if (dataset->GetRasterCount() > 0) {
            database_ = std::make_unique<DtTerrainDatabase>(  // an elevation source
                nullptr, std::unique_ptr<Coordinate_System>(cs));
            return true;
        }
        setError(error, file, "no layer");
        return false;
    }
    auto network = std::make_unique<DtVectorNetwork>();
    {
        // Gone before the network is finished: its junction index is not needed after.
        DtNetworkBuilder builder(cs, *network);
        for (OGRLayer* layer : dataset->GetLayers()) {
            CPLErrorReset();
            if (layer && !builder.addLayer(*layer, problem)) {
                setError(error, file, problem);
                return false;
            }
        }
        // A session takes what was left out in its report; the heights are still said.
        if (DtTdbLoadSession* session = DtTdbLoadSession::current()) {
            tellNotes(file, builder.heightNotes());
            session->addReport({file.stdString(), builder.layerReports()});
        } else {
            tellNotes(file, builder.notes());
        }
    }
    network->finishBuilding();
    database_ = std::make_unique<DtTerrainDatabase>(std::move(network),
                                                    std::unique_ptr<Coordinate_System>(cs));
    return true;
}

void DtTdbManager::tellNotes(const DtFilename& file, const std::vector<std::string>& notes) {
    // Whatever DtNotifyLevel says: what a load left out is part of its answer.
    for (const std::string& note : notes)
        DtWarn << file.stdString() << ": " << note << std::endl;
}
