#include "Scene.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/Geodesic.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <cmath>
#include <sstream>
#include <vector>

#include "Inspect.h"
#include "gdalsupport/DtGdalScope.h"
#include "gdalsupport/DtSrsParameters.h"
#include "hxutil/DtException.h"
#include "matrix/DtAngles.h"
#include "matrix/DtGeodeticCoord.h"
#include "terrainDbFactory/DtTdbLoadSession.h"
#include "zorCore/DtDe.h"

using kelZor::DtCoordinateConverter;
using kelZor::DtCoordinateSystem;

namespace {

// Beyond this distance from a flat-earth or Lambert origin the frame's error passes a
// metre: a tangent plane drops about d^2 / 2R below the ellipsoid (3 m at 200 km).
constexpr double FarFromOrigin = 200000.0;

bool isSceneKind(const std::string& type) {
    return type == DtCoordinateConverter::UTM || type == DtCoordinateConverter::Lambert ||
           type == DtCoordinateConverter::FlatEarth;
}

// The kinds a scene text may start with, as 'inspect' prints them.
bool isKindText(const std::string& type) {
    return isSceneKind(type) || type == "Flat Earth" || type == DtCoordinateConverter::Geocentric ||
           type == DtCoordinateConverter::Cartesian || type == "Geographic";
}

std::vector<std::string> fieldsOf(const std::string& text) {
    std::vector<std::string> fields;
    std::stringstream in(text);
    for (std::string field; std::getline(in, field, ',');)
        fields.push_back(field);
    return fields;
}

double number(const std::string& text) {
    try {
        size_t used = 0;
        const double value = std::stod(text, &used);
        return used == text.size() ? value : NAN;
    } catch (const std::exception&) {
        return NAN;
    }
}

bool isLatitude(double degrees) {
    return std::fabs(degrees) <= 90.0;
}

bool isLongitude(double degrees) {
    return std::fabs(degrees) <= 180.0;
}

// What is wrong with a text the converter read, taken whole; "" when nothing.
std::string utmProblem(const std::vector<std::string>& f) {
    const double lat = number(f[0]), lon = number(f[1]);
    if (!isLatitude(lat) || !isLongitude(lon))
        return "the origin " + f[0] + "," + f[1] + " is no latitude and longitude";
    const long zone = std::lround(number(f[2]));
    const long effective = std::lround(number(f[3]));
    const char hemisphere = f[4].empty() ? '?' : f[4][0];
    if (zone != 0 && std::labs(zone) <= 60) {
        if (effective != std::labs(zone))
            return "zone " + f[2] + " and the zone in use, " + f[3] + ", differ";
        if (zone < 0 && hemisphere != 'S')
            return "zone " + f[2] + " is a southern zone, but the hemisphere is " + f[4];
        // On the equator either hemisphere holds.
        if (zone > 0 && ((hemisphere == 'S' && lat > 0.0) || (hemisphere == 'N' && lat < 0.0))) {
            return "a positive zone lies in its origin's hemisphere (" +
                   std::string(lat < 0.0 ? "S" : "N") + " for latitude " + f[0] +
                   "), but the hemisphere is " + f[4] +
                   " (a southern zone is negative: " + std::to_string(-zone) + ")";
        }
        return "";
    }
    if (effective != GeographicLib::UTMUPS::StandardZone(lat, lon))
        return "zone " + f[2] + " is no zone, and " + f[3] + " is not the origin's own zone";
    return "";
}

std::string textProblem(const DtCoordinateSystem& system, const std::string& parameters) {
    const std::vector<std::string> f = fieldsOf(parameters);
    const std::string& type = system.type();
    if (type == DtCoordinateConverter::UTM && f.size() >= 10)
        return utmProblem(f);
    if (type == DtCoordinateConverter::FlatEarth && f.size() >= 2) {
        if (!isLatitude(number(f[0])) || !isLongitude(number(f[1])))
            return "the origin " + f[0] + "," + f[1] + " is no latitude and longitude";
    }
    if (type == DtCoordinateConverter::Lambert && f.size() >= 4) {
        if (!isLatitude(number(f[0])) || !isLongitude(number(f[1])))
            return "the origin " + f[0] + "," + f[1] + " is no latitude and longitude";
        if (!(std::fabs(number(f[2])) < 90.0) || !(std::fabs(number(f[3])) < 90.0))
            return "the standard parallels " + f[2] + "," + f[3] + " are not between the poles";
        if (number(f[2]) + number(f[3]) == 0.0)
            return "standard parallels symmetric about the equator make no cone";
    }
    return "";
}

// The converter's exceptions name their class; a person needs only the reason.
std::string withoutClassName(const std::string& message) {
    const size_t colon = message.find(": ");
    if (colon != std::string::npos && message.compare(0, 2, "Dt") == 0 && message.find(' ') > colon)
        return message.substr(colon + 2);
    return message;
}

SceneProblem fromKindText(const std::string& option, SceneChoice& scene) {
    const size_t colon = option.find(':');
    std::string type = option.substr(0, colon);
    std::string parameters = colon == std::string::npos ? "" : option.substr(colon + 1);
    if (type == "Geographic") {  // longitude and latitude: the engine shows them geocentric
        type = DtCoordinateConverter::Geocentric;
        parameters = "WGS84";
    }
    try {
        scene.system = DtCoordinateSystem(type, parameters);
    } catch (const DtException& error) {
        return {2, "--scene " + option + ": " + withoutClassName(error.message()) +
                       "; 'zorhost help scene' explains each kind"};
    }
    if (const std::string problem = textProblem(scene.system, parameters); !problem.empty())
        return {2,
                "--scene " + option + ": " + problem + "; 'zorhost help scene' explains each kind"};
    scene.origin = "as given";
    return {};
}

std::string srsName(const OGRSpatialReference& srs) {
    const char* name = srs.GetName();
    return name && *name ? name : "an unnamed system";
}

DtCoordinateSystem utmScene(int zone, bool north) {
    kelZor::DtUtmCoordinateConverter converter;
    converter.init(0.0, 6.0 * zone - 183.0, north ? zone : -zone, 0);
    return DtCoordinateSystem(DtCoordinateConverter::UTM, converter.stringRep());
}

// The engine's kind of an OSR system; false with the reason when it has none.
bool sceneFromSrs(const OGRSpatialReference& srs, DtCoordinateSystem& system, std::string& reason) {
    if (srs.IsGeocentric() || (srs.IsGeographic() && !srs.IsProjected())) {
        system = DtCoordinateSystem();
        return true;
    }
    if (!srs.IsProjected()) {
        reason = srsName(srs) + " is neither projected nor geographic";
        return false;
    }
    int north = 0;
    if (const int zone = srs.GetUTMZone(&north)) {
        system = utmScene(zone, north != 0);
        return true;
    }
    DtLambertCone cone;
    if (DtLambertConeOf(srs, cone)) {
        kelZor::DtLambertCoordinateConverter converter;
        converter.init(cone.originLat, cone.originLon, cone.parallel1, cone.parallel2);
        system = DtCoordinateSystem(DtCoordinateConverter::Lambert, converter.stringRep());
        return true;
    }
    const char* projection = srs.GetAttrValue("PROJECTION");
    if (projection && std::string(projection) == SRS_PT_EQUIRECTANGULAR) {
        kelZor::DtFlatEarthCoordinateConverter converter;
        converter.init(DtDeg2Rad(srs.GetNormProjParm(SRS_PP_LATITUDE_OF_ORIGIN, 0.0)),
                       DtDeg2Rad(DtGreenwichLongitude(srs, SRS_PP_CENTRAL_MERIDIAN)));
        system = DtCoordinateSystem(DtCoordinateConverter::FlatEarth, converter.stringRep());
        return true;
    }
    reason = srsName(srs) + " (" + (projection ? projection : "an unnamed projection") +
             ") is no kind the engine has: UTM zones, Lambert conformal conic, equirectangular "
             "(flat earth), geographic or geocentric";
    return false;
}

GDALDatasetUniquePtr openData(const std::string& path) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    return GDALDatasetUniquePtr(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr,
                   nullptr, nullptr)));
}

// The coordinate system of what GDAL or OGR opens at `path`: its first layer with one,
// else its raster's; null with the reason when it has none.
std::unique_ptr<OGRSpatialReference> dataSrs(GDALDataset& dataset, std::string& reason) {
    for (OGRLayer* layer : dataset.GetLayers()) {
        if (!layer || layer->GetLayerDefn()->GetGeomFieldCount() == 0)
            continue;
        if (const OGRSpatialReference* srs = layer->GetSpatialRef())
            return std::unique_ptr<OGRSpatialReference>(srs->Clone());
    }
    if (const OGRSpatialReference* srs = dataset.GetSpatialRef())
        return std::unique_ptr<OGRSpatialReference>(srs->Clone());
    // The system --srs gives files without one.
    if (const DtTdbLoadSession* session = DtTdbLoadSession::current()) {
        if (auto given = session->givenSrs())
            return given;
    }
    reason = "it has no coordinate system (--srs gives one)";
    return nullptr;
}

// The system of any file GDAL or OGR opens, mapped to the engine's kinds.
bool sceneOfData(const std::string& path, DtCoordinateSystem& system, std::string& reason) {
    GDALDatasetUniquePtr dataset = openData(path);
    if (!dataset) {
        reason = "neither a registered parser nor GDAL reads it";
        return false;
    }
    const std::unique_ptr<OGRSpatialReference> srs = dataSrs(*dataset, reason);
    return srs && sceneFromSrs(*srs, system, reason);
}

// What the registered parser answers for `path`, as an engine system, or what GDAL
// reads; false with the reason.
bool systemOfFile(kelZor::DtDe& de, const std::string& path, DtCoordinateSystem& system,
                  std::string& reason) {
    const InspectResult answer = inspectPath(de, path);
    if (answer.valid && !answer.coordinateSystem.empty()) {
        try {
            // The type text may be an alias ("Flat Earth") of a kind.
            system = DtCoordinateSystem(answer.coordinateSystem, answer.parameters);
            return true;
        } catch (const DtException&) {
            // A kind the converters do not build (Geographic, another projection): GDAL's
            // reading of the file says which.
        }
    }
    if (sceneOfData(path, system, reason))
        return true;
    if (answer.problem == "no such file")
        reason = "no such file";
    return false;
}

SceneProblem fromFile(kelZor::DtDe& de, const std::string& path, SceneChoice& scene) {
    std::string reason;
    if (!systemOfFile(de, path, scene.system, reason))
        return {1, "--scene @" + path + ": " + reason};
    scene.origin = "the system of " + path;
    return {};
}

SceneProblem fromSrsText(const std::string& option, SceneChoice& scene) {
    std::string reason;
    if (!sceneFromSrsText(option, scene.system, reason))
        return {2, "--scene " + option + ": " + reason};
    scene.origin = "from " + option;
    return {};
}

// Where the data of a file lie, in degrees; false when GDAL cannot say.
bool dataCentre(const std::string& path, double& lat, double& lon) {
    GDALDatasetUniquePtr dataset = openData(path);
    if (!dataset)
        return false;
    std::string ignored;
    const std::unique_ptr<OGRSpatialReference> srs = dataSrs(*dataset, ignored);
    if (!srs)
        return false;
    double x = 0.0, y = 0.0;
    bool found = false;
    for (OGRLayer* layer : dataset->GetLayers()) {
        OGREnvelope extent;
        if (layer && layer->GetLayerDefn()->GetGeomFieldCount() > 0 &&
            layer->GetExtent(&extent, TRUE) == OGRERR_NONE) {
            x = (extent.MinX + extent.MaxX) / 2.0;
            y = (extent.MinY + extent.MaxY) / 2.0;
            found = true;
            break;
        }
    }
    double geo[6];
    if (!found && dataset->GetRasterCount() > 0 && dataset->GetGeoTransform(geo) == CE_None) {
        const double col = dataset->GetRasterXSize() / 2.0, row = dataset->GetRasterYSize() / 2.0;
        x = geo[0] + geo[1] * col + geo[2] * row;
        y = geo[3] + geo[4] * col + geo[5] * row;
        found = true;
    }
    if (!found)
        return false;
    srs->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    const OGRSpatialReference wgs84 = DtWgs84();
    DtTransformPtr transform(OGRCreateCoordinateTransformation(srs.get(), &wgs84));
    if (!transform || !transform->Transform(1, &x, &y))
        return false;
    lon = x;
    lat = y;
    return isLatitude(lat) && std::isfinite(lon);
}

// A flat-earth or Lambert scene's origin, degrees; false for the other kinds.
bool planeOrigin(const DtCoordinateSystem& system, double& lat, double& lon) {
    if (const auto* flat = system.flatEarthConverter()) {
        lat = DtRad2Deg(flat->lat());
        lon = DtRad2Deg(flat->lon());
        return true;
    }
    if (const auto* lambert = system.lambertConverter()) {
        lat = lambert->originLatitude();
        lon = lambert->originLongitude();
        return true;
    }
    return false;
}

void warnFarData(const std::vector<std::string>& files, SceneChoice& scene) {
    double originLat = 0.0, originLon = 0.0;
    if (!planeOrigin(scene.system, originLat, originLon))
        return;
    for (const std::string& file : files) {
        double lat = 0.0, lon = 0.0, distance = 0.0;
        if (!dataCentre(file, lat, lon))
            continue;
        GeographicLib::Geodesic::WGS84().Inverse(originLat, originLon, lat, lon, distance);
        if (distance <= FarFromOrigin)
            continue;
        std::ostringstream text;
        text.precision(0);
        text << std::fixed << "the data of " << file << " lie " << distance / 1000.0
             << " km from the " << scene.system.type() << " scene's origin ("
             << scene.system.converter()->stringRep()
             << "); beyond 200 km the frame's error passes a metre (--scene chooses another)";
        scene.warnings.push_back(text.str());
    }
}

}  // namespace

bool sceneFromSrsText(const std::string& text, DtCoordinateSystem& system, std::string& reason) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    OGRSpatialReference srs;
    // A scene text is never a file to read nor an address to fetch.
    const char* const options[] = {"ALLOW_NETWORK_ACCESS=NO", "ALLOW_FILE_ACCESS=NO", nullptr};
    if (text.empty() || srs.SetFromUserInput(text.c_str(), options) != OGRERR_NONE) {
        reason =
            "neither a kind of scene (UTM, Lambert, FlatEarth, Geocentric, Geographic, "
            "each with its parameters) nor a coordinate system OSR reads (EPSG:n, WKT, a "
            "PROJ string); 'zorhost help scene' explains each";
        return false;
    }
    return sceneFromSrs(srs, system, reason);
}

SceneProblem chooseScene(kelZor::DtDe& de, const std::string& option,
                         const std::vector<std::string>& candidates, SceneChoice& scene) {
    if (!option.empty()) {
        SceneProblem problem;
        if (option[0] == '@')
            problem = fromFile(de, option.substr(1), scene);
        else if (isKindText(option.substr(0, option.find(':'))))
            problem = fromKindText(option, scene);
        else
            problem = fromSrsText(option, scene);
        if (problem.status == 0)
            warnFarData(candidates, scene);
        return problem;
    }
    std::vector<std::string> why;
    for (const std::string& path : candidates) {
        DtCoordinateSystem system;
        std::string reason;
        if (!systemOfFile(de, path, system, reason)) {
            why.push_back(path + ": " + reason);
            continue;
        }
        if (isSceneKind(system.type())) {
            scene.system = std::move(system);
            scene.origin = "the system of " + path;
            warnFarData(candidates, scene);
            return {};
        }
        why.push_back(path + " is " +
                      (system.type() == DtCoordinateConverter::Geocentric
                           ? std::string("geographic or geocentric")
                           : "in a " + system.type() + " system"));
    }
    scene.system = DtCoordinateSystem();
    std::string because;
    for (const std::string& reason : why)
        because += (because.empty() ? "" : "; ") + reason;
    scene.origin =
        "geocentric: " + (because.empty() ? std::string("no file to take a system from") : because);
    return {};
}

void printSceneWarnings(const SceneChoice& scene, std::ostream& err) {
    for (const std::string& warning : scene.warnings)
        err << "zorhost: warning: " << warning << "\n";
}

const char* const sceneKindsHelp = R"(--scene: the engine's coordinate system for the scene. One of:

  UTM:LAT,LON,ZONE,ZONE_IN_USE,HEMISPHERE,FX,FY,FZ,APPLY,ELLIPSOID
      Easting, northing and height in a UTM zone. LAT,LON: a place in the zone (degrees;
      the origin the terrain database is told). ZONE: 1..60, negative for the southern
      hemisphere (-33 is zone 33 south); another number takes the zone of LAT,LON.
      ZONE_IN_USE: the zone's number, as 'inspect' prints it. HEMISPHERE: N or S, agreeing
      with ZONE. FX,FY,FZ: a false origin, subtracted from easting, northing and height
      when APPLY is 1. ELLIPSOID: 0 (WGS84).
      Example: UTM:45.5,9,32,32,N,0,0,0,0,0       (zone 32 north)
               UTM:-33.9,18.4,-34,34,S,0,0,0,0,0  (zone 34 south)
               UTM:45.5,9,32,32,N,500000,5000000,0,1,0  (a false origin)
  Lambert:LAT0,LON0,PARALLEL1,PARALLEL2
      Lambert conformal conic: x east of the origin's meridian, y north of its parallel.
      Example: Lambert:45,9,44,46
  FlatEarth:LAT,LON   (also "Flat Earth", as a DTED cell's parser says)
      A local east-north-up plane tangent at LAT,LON. Keep the data within about 200 km.
      Example: FlatEarth:45.5,9.5
  Geocentric:WGS84    Earth-centred, earth-fixed metres.
  Geographic          Longitude and latitude data, shown geocentric, as the engine does.

  A coordinate system OSR reads, mapped to those kinds: EPSG:n, WKT, a PROJ string.
      UTM zones (EPSG:32632, EPSG:32733) become UTM scenes, Lambert conformal conics
      (EPSG:27572, one or two parallels) Lambert scenes, equirectangular flat earth, and
      geographic or geocentric systems geocentric. Others are refused with the reason.
      Example: --scene EPSG:32633

  @FILE   The system of a terrain file: what its parser answers, else what GDAL reads in
          it (GeoPackage, GeoJSON, any raster or vector format).
      Example: --scene @data/sample/n45_e009.dt0

Without --scene, the first data file with a UTM, Lambert or flat-earth system gives it (a
vector file before the DEMs), else the scene is geocentric; the scene line says why. A
flat-earth or Lambert scene whose data lie beyond 200 km of its origin gets a warning.
)";

std::string sceneLine(const SceneChoice& scene) {
    const std::string parameters = scene.system.converter()->stringRep();
    return "scene: " + scene.system.type() + (parameters.empty() ? "" : " " + parameters) + " (" +
           scene.origin + ")";
}

Json sceneJson(const DtCoordinateSystem& system) {
    return Json{{"type", system.type()}, {"parameters", system.converter()->stringRep()}};
}

Wgs84Position sceneToWgs84(const DtCoordinateSystem& system, const DtVector64& position) {
    DtVector64 geocentric;
    system.converter()->cigToGeoc(position, geocentric);
    DtGeodeticCoord geodetic(DtGlobalEllipsoid());
    geodetic.setGeocentric(geocentric);
    return {DtRad2Deg(geodetic.lon()), DtRad2Deg(geodetic.lat()), geodetic.alt()};
}

Json positionJson(const DtVector64& position) {
    return Json::array({position.x(), position.y(), position.z()});
}
