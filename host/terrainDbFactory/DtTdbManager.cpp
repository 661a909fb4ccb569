#include "terrainDbFactory/DtTdbManager.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "hxutil/DtNotify.h"
#include "zorUtil/DtCoordinateConverter.h"

using kelZor::DtCoordinateConverter;

namespace {

// GDAL's messages go nowhere while DtNotifyLevel is 0; the last one is kept for the
// error text. The previous handler comes back on every path.
class GdalMessages {
public:
    GdalMessages() {
        static std::once_flag registered;
        std::call_once(registered, [] { GDALAllRegister(); });
        CPLPushErrorHandler(DtNotifyLevel > 0 ? CPLDefaultErrorHandler : CPLQuietErrorHandler);
        CPLErrorReset();
    }
    ~GdalMessages() { CPLPopErrorHandler(); }
    GdalMessages(const GdalMessages&) = delete;
    GdalMessages& operator=(const GdalMessages&) = delete;

    static std::string last() {
        const char* message = CPLGetLastErrorMsg();
        return message && *message ? message : "";
    }
};

struct TransformDeleter {
    void operator()(OGRCoordinateTransformation* t) const {
        OGRCoordinateTransformation::DestroyCT(t);
    }
};
using TransformPtr = std::unique_ptr<OGRCoordinateTransformation, TransformDeleter>;

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

// The first problem that keeps a file from being opened at all, or "".
std::string openProblem(const DtFilename& file) {
    if (file.isEmpty())
        return "no file name";
    if (!file.exists())
        return "no such file";
    const std::string extension = lowerExtension(file);
    if (isUnreadFormat(extension))
        return "the \"" + extension + "\" format is not read by this loader";
    return "";
}

GDALDatasetUniquePtr open(const DtFilename& file, unsigned flags, std::string& problem) {
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(file.c_str(), flags | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    if (!dataset) {
        const std::string reason = GdalMessages::last();
        problem = "not a terrain source this loader reads" + (reason.empty() ? "" : ": " + reason);
    }
    return dataset;
}

OGRSpatialReference wgs84() {
    OGRSpatialReference srs;
    srs.SetWellKnownGeogCS("WGS84");
    srs.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return srs;
}

// Longitude and latitude, degrees, of (x, y) in `srs`; false when OGR cannot say.
bool toWgs84(const OGRSpatialReference& srs, double x, double y, double& lon, double& lat) {
    const OGRSpatialReference target = wgs84();
    TransformPtr transform(OGRCreateCoordinateTransformation(&srs, &target));
    if (!transform || !transform->Transform(1, &x, &y))
        return false;
    lon = x;
    lat = y;
    return std::isfinite(lon) && std::isfinite(lat);
}

// ------------------------------------------------------------------ coordinate systems

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
    return new DtUtmCS(DtCoordinateConverter::convertToDmsLat(lat),
                       DtCoordinateConverter::convertToDmsLon(lon), 0, zone, false, 0.0, 0.9996);
}

// The centre of the layer's extent as the header or layer definition gives it.
bool extentCentre(OGRLayer& layer, double& x, double& y) {
    OGREnvelope envelope;
    if (layer.GetExtent(&envelope, FALSE) != OGRERR_NONE)
        return false;
    x = (envelope.MinX + envelope.MaxX) / 2.0;
    y = (envelope.MinY + envelope.MaxY) / 2.0;
    return std::isfinite(x) && std::isfinite(y);
}

Coordinate_System* utmSystem(const OGRSpatialReference& srs, OGRLayer& layer, int zone,
                             bool north) {
    // The zone's own central meridian on the equator, unless the extent says better.
    double lon = -183.0 + 6.0 * zone;
    double lat = north ? 0.0 : -1e-9;
    double x = 0.0, y = 0.0;
    if (extentCentre(layer, x, y)) {
        double centreLon = 0.0, centreLat = 0.0;
        if (toWgs84(srs, x, y, centreLon, centreLat)) {
            lon = centreLon;
            lat = centreLat;
        }
    }
    return new DtUtmCS(DtCoordinateConverter::convertToDmsLat(lat),
                       DtCoordinateConverter::convertToDmsLon(lon), 0, zone, false, 0.0, 0.9996);
}

Coordinate_System* projectedSystem(const OGRSpatialReference& srs, OGRLayer& layer) {
    int north = 0;
    if (const int zone = srs.GetUTMZone(&north))
        return utmSystem(srs, layer, zone, north != 0);
    const char* projection = srs.GetAttrValue("PROJECTION");
    const std::string name = projection ? projection : "";
    const double originLat = srs.GetNormProjParm(SRS_PP_LATITUDE_OF_ORIGIN, 0.0);
    const double originLon = srs.GetNormProjParm(SRS_PP_CENTRAL_MERIDIAN, 0.0);
    if (name == SRS_PT_LAMBERT_CONFORMAL_CONIC_2SP) {
        return new DtLambertConformalCS(originLat, originLon,
                                        srs.GetNormProjParm(SRS_PP_STANDARD_PARALLEL_1, originLat),
                                        srs.GetNormProjParm(SRS_PP_STANDARD_PARALLEL_2, originLat));
    }
    if (name == SRS_PT_LAMBERT_CONFORMAL_CONIC_1SP)
        return new DtLambertConformalCS(originLat, originLon, originLat, originLat);
    if (name == SRS_PT_EQUIRECTANGULAR)
        return new DtFlatEarthCS(DtDeg2Rad(originLat), DtDeg2Rad(originLon), false, 0.0);
    const char* own = srs.GetName();
    return new Coordinate_System(Coordinate_System::OtherProjected, DtString(own ? own : name));
}

Coordinate_System* vectorSystem(const DtFilename& file, std::string& problem) {
    GDALDatasetUniquePtr dataset = open(file, GDAL_OF_VECTOR, problem);
    if (!dataset)
        return nullptr;
    for (OGRLayer* layer : dataset->GetLayers()) {
        const OGRSpatialReference* srs = layer ? layer->GetSpatialRef() : nullptr;
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

// ------------------------------------------------------------------ loading

// The host's converter for the system a load was asked for.
std::unique_ptr<DtCoordinateConverter> converterFor(const Coordinate_System* cs) {
    const int kind = cs ? cs->kind() : Coordinate_System::Geocentric;
    if (const auto* utm = dynamic_cast<const DtUtmCS*>(cs); utm && kind == Coordinate_System::Utm) {
        auto converter = std::make_unique<kelZor::DtUtmCoordinateConverter>();
        converter->init(utm->originLatitude(), utm->originLongitude(), utm->zone(),
                        utm->ellipsoid());
        return converter;
    }
    if (const auto* lcc = dynamic_cast<const DtLambertConformalCS*>(cs);
        lcc && kind == Coordinate_System::Lambert) {
        auto converter = std::make_unique<kelZor::DtLambertCoordinateConverter>();
        converter->init(lcc->originLatitudeDegrees(), lcc->originLongitudeDegrees(),
                        DtRad2Deg(lcc->parallel1()), DtRad2Deg(lcc->parallel2()));
        return converter;
    }
    if (kind == Coordinate_System::FlatEarth) {
        auto converter = std::make_unique<kelZor::DtFlatEarthCoordinateConverter>();
        converter->init(DtDeg2Rad(cs->originLatitudeDegrees()),
                        DtDeg2Rad(cs->originLongitudeDegrees()));
        return converter;
    }
    return std::make_unique<kelZor::DtGeocentricCoordinateConverter>();
}

struct PointKey {
    double x, y, z;
    bool operator==(const PointKey& o) const { return x == o.x && y == o.y && z == o.z; }
};
struct PointKeyHash {
    size_t operator()(const PointKey& p) const {
        const std::hash<double> h;
        return h(p.x) ^ (h(p.y) * 0x9e3779b97f4a7c15ULL) ^ (h(p.z) * 0xc2b2ae3d27d4eb4fULL);
    }
};

// Builds the network of one vector source, layer by layer.
class NetworkBuilder {
public:
    NetworkBuilder(const Coordinate_System* cs, DtVectorNetwork& network)
        : converter_(converterFor(cs)), network_(network) {}

    // False with the reason in `problem`.
    bool addLayer(OGRLayer& layer, std::string& problem);

private:
    enum FeatureType { Point = 0, Linear = 1, Areal = 2 };

    bool prepareLayer(OGRLayer& layer, std::string& problem);
    void readAttributes(OGRFeature& feature);
    bool addGeometry(const OGRGeometry& geometry, std::string& problem);
    bool toScene(std::vector<double>& x, std::vector<double>& y, std::vector<double>& z,
                 std::vector<DtPoint>& out);
    bool addPoints(const OGRGeometry& geometry, std::string& problem);
    bool verticesOf(const OGRSimpleCurve& curve, std::string& problem);
    bool addLine(const OGRLineString& line, std::string& problem);
    bool addArea(const OGRPolygon& polygon, std::string& problem);
    int junction(const DtPoint& point);
    DtNetworkAttributes attributesOf(FeatureType type);

    std::unique_ptr<DtCoordinateConverter> converter_;
    DtVectorNetwork& network_;
    TransformPtr toWgs84_;
    std::vector<DtSymbolString> fieldNames_;
    int eccField_ = -1, widthField_ = -1, lengthField_ = -1, heightField_ = -1,
        orientationField_ = -1;
    std::vector<DtNetworkAttribute> featureAttributes_;
    GIntBig fid_ = 0;
    std::unordered_map<PointKey, int, PointKeyHash> junctions_;
    std::vector<double> xs_, ys_, zs_;
    std::vector<DtPoint> points_;
};

// The attributes the loader derives for every object, interned once.
struct DerivedNames {
    DtSymbolString featureType{"DtFeatureType"};
    DtSymbolString fid{"DtFidCode"};
    DtSymbolString ecc{"ECC"};
    DtSymbolString width{"GDB_Width"};
    DtSymbolString length{"GDB_Length"};
    DtSymbolString height{"DtHeight"};
    DtSymbolString orientation{"DtOrientation"};
};
const DerivedNames& derived() {
    static const DerivedNames names;
    return names;
}

bool NetworkBuilder::prepareLayer(OGRLayer& layer, std::string& problem) {
    const OGRSpatialReference* srs = layer.GetSpatialRef();
    if (!srs) {
        problem = "layer \"" + std::string(layer.GetName()) +
                  "\" has no coordinate system, so its features cannot be placed";
        return false;
    }
    const OGRSpatialReference target = wgs84();
    toWgs84_.reset(OGRCreateCoordinateTransformation(srs, &target));
    if (!toWgs84_) {
        problem = "layer \"" + std::string(layer.GetName()) +
                  "\": no transformation to WGS84: " + GdalMessages::last();
        return false;
    }
    OGRFeatureDefn* definition = layer.GetLayerDefn();
    fieldNames_.clear();
    eccField_ = widthField_ = lengthField_ = heightField_ = orientationField_ = -1;
    for (int i = 0; i < definition->GetFieldCount(); ++i)
        fieldNames_.emplace_back(definition->GetFieldDefn(i)->GetNameRef());
    for (const char* name : {"ECC", "F_CODE", "FCODE"}) {
        if (eccField_ < 0)
            eccField_ = definition->GetFieldIndex(name);
    }
    widthField_ = definition->GetFieldIndex("WID");
    lengthField_ = definition->GetFieldIndex("LEN");
    heightField_ = definition->GetFieldIndex("HGT");
    orientationField_ = definition->GetFieldIndex("AOO");
    return true;
}

void NetworkBuilder::readAttributes(OGRFeature& feature) {
    featureAttributes_.clear();
    fid_ = feature.GetFID();
    for (int i = 0; i < static_cast<int>(fieldNames_.size()); ++i) {
        if (!feature.IsFieldSetAndNotNull(i))
            continue;
        const DtSymbolString& name = fieldNames_[static_cast<size_t>(i)];
        switch (feature.GetFieldDefnRef(i)->GetType()) {
            case OFTInteger:
                featureAttributes_.emplace_back(name, feature.GetFieldAsInteger(i));
                break;
            case OFTInteger64: {
                const GIntBig value = feature.GetFieldAsInteger64(i);
                if (value >= std::numeric_limits<int>::min() &&
                    value <= std::numeric_limits<int>::max()) {
                    featureAttributes_.emplace_back(name, static_cast<int>(value));
                } else {
                    featureAttributes_.emplace_back(name, static_cast<double>(value));
                }
                break;
            }
            case OFTReal:
                featureAttributes_.emplace_back(name, feature.GetFieldAsDouble(i));
                break;
            default:
                featureAttributes_.emplace_back(name,
                                                network_.internText(feature.GetFieldAsString(i)));
        }
    }
    if (eccField_ >= 0 && feature.IsFieldSetAndNotNull(eccField_))
        featureAttributes_.emplace_back(derived().ecc,
                                        network_.internText(feature.GetFieldAsString(eccField_)));
    const std::pair<int, const DtSymbolString*> dimensions[] = {{widthField_, &derived().width},
                                                                {lengthField_, &derived().length},
                                                                {heightField_, &derived().height}};
    for (const auto& [field, name] : dimensions) {
        if (field >= 0 && feature.IsFieldSetAndNotNull(field))
            featureAttributes_.emplace_back(*name, feature.GetFieldAsDouble(field));
    }
    if (orientationField_ >= 0 && feature.IsFieldSetAndNotNull(orientationField_)) {
        featureAttributes_.emplace_back(
            derived().orientation,
            static_cast<int>(std::lround(feature.GetFieldAsDouble(orientationField_))));
    }
}

// The feature's attributes and the two every object carries, stored in the network.
DtNetworkAttributes NetworkBuilder::attributesOf(FeatureType type) {
    const size_t fields = featureAttributes_.size();
    featureAttributes_.emplace_back(derived().featureType, static_cast<int>(type));
    featureAttributes_.emplace_back(derived().fid, static_cast<int>(fid_));
    const DtNetworkAttributes stored =
        network_.storeAttributes(featureAttributes_.data(), featureAttributes_.size());
    featureAttributes_.erase(featureAttributes_.begin() + static_cast<std::ptrdiff_t>(fields),
                             featureAttributes_.end());
    return stored;
}

// Source coordinates to the scene, in place of the three arrays.
bool NetworkBuilder::toScene(std::vector<double>& x, std::vector<double>& y, std::vector<double>& z,
                             std::vector<DtPoint>& out) {
    out.clear();
    if (x.empty())
        return true;
    std::vector<int> ok(x.size(), 0);
    if (!toWgs84_->Transform(static_cast<int>(x.size()), x.data(), y.data(), z.data(), ok.data()))
        return false;
    const GeographicLib::Geocentric& earth = GeographicLib::Geocentric::WGS84();
    for (size_t i = 0; i < x.size(); ++i) {
        if (!ok[i] || !std::isfinite(x[i]) || !std::isfinite(y[i]) || !std::isfinite(z[i]))
            return false;
        double X, Y, Z;
        earth.Forward(y[i], x[i], z[i], X, Y, Z);
        DtVector64 cig;
        try {
            converter_->geocToCig(DtVector64(X, Y, Z), cig);
        } catch (const std::exception&) {
            return false;
        }
        out.emplace_back(cig.x(), cig.y(), cig.z());
    }
    return true;
}

bool NetworkBuilder::addPoints(const OGRGeometry& geometry, std::string& problem) {
    xs_.clear(), ys_.clear(), zs_.clear();
    auto take = [&](const OGRPoint& p) {
        if (p.IsEmpty())
            return;
        xs_.push_back(p.getX());
        ys_.push_back(p.getY());
        zs_.push_back(p.getZ());
    };
    if (const auto* point = dynamic_cast<const OGRPoint*>(&geometry)) {
        take(*point);
    } else {
        for (const OGRPoint* part : *geometry.toMultiPoint())
            take(*part);
    }
    if (!toScene(xs_, ys_, zs_, points_)) {
        problem = "a point of feature " + std::to_string(fid_) + " cannot be transformed";
        return false;
    }
    for (const DtPoint& point : points_)
        network_.addNode(point).setAttributes(attributesOf(Point));
    return true;
}

int NetworkBuilder::junction(const DtPoint& point) {
    const auto found =
        junctions_.emplace(PointKey{point.x(), point.y(), point.z()}, network_.numNodes());
    if (found.second)
        network_.addNode(point);
    return found.first->second;
}

// The curve's vertices in the scene, into points_.
bool NetworkBuilder::verticesOf(const OGRSimpleCurve& curve, std::string& problem) {
    xs_.resize(static_cast<size_t>(curve.getNumPoints()));
    ys_.resize(xs_.size());
    zs_.resize(xs_.size());
    curve.getPoints(xs_.data(), sizeof(double), ys_.data(), sizeof(double), zs_.data(),
                    sizeof(double));
    if (!curve.Is3D())
        std::fill(zs_.begin(), zs_.end(), 0.0);
    if (!toScene(xs_, ys_, zs_, points_)) {
        problem = "a vertex of feature " + std::to_string(fid_) + " cannot be transformed";
        return false;
    }
    return true;
}

bool NetworkBuilder::addLine(const OGRLineString& line, std::string& problem) {
    if (!verticesOf(line, problem))
        return false;
    DtNetworkEdge& edge = network_.addEdge();
    edge.points() = points_;
    edge.setAttributes(attributesOf(Linear));
    if (!points_.empty()) {
        const int edgeIndex = network_.numEdges() - 1;
        const int first = junction(points_.front());
        const int last = junction(points_.back());
        network_.nodeAt(first).connectEdge(edgeIndex);
        if (last != first)
            network_.nodeAt(last).connectEdge(edgeIndex);
    }
    return true;
}

bool NetworkBuilder::addArea(const OGRPolygon& polygon, std::string& problem) {
    const OGRLinearRing* ring = polygon.getExteriorRing();
    if (!ring)
        return true;
    if (!verticesOf(*ring, problem))
        return false;
    DtNetworkEdge& edge = network_.addEdge();
    edge.points() = points_;
    edge.setAttributes(attributesOf(Areal));
    return true;
}

bool NetworkBuilder::addGeometry(const OGRGeometry& geometry, std::string& problem) {
    if (geometry.hasCurveGeometry()) {
        std::unique_ptr<OGRGeometry> linear(geometry.getLinearGeometry());
        return linear && addGeometry(*linear, problem);
    }
    switch (wkbFlatten(geometry.getGeometryType())) {
        case wkbPoint:
        case wkbMultiPoint:
            return addPoints(geometry, problem);
        case wkbLineString:
            return addLine(*geometry.toLineString(), problem);
        case wkbPolygon:
            return addArea(*geometry.toPolygon(), problem);
        case wkbMultiLineString:
        case wkbMultiPolygon:
        case wkbGeometryCollection:
            for (const OGRGeometry* part : *geometry.toGeometryCollection()) {
                if (part && !addGeometry(*part, problem))
                    return false;
            }
            return true;
        default:
            return true;  // no place on the terrain: a triangle mesh, a bare attribute row
    }
}

bool NetworkBuilder::addLayer(OGRLayer& layer, std::string& problem) {
    if (!prepareLayer(layer, problem))
        return false;
    // A point layer whose header tells its size is stored without regrowing.
    const GIntBig count = layer.GetFeatureCount(FALSE);
    if (count > 0 && wkbFlatten(layer.GetGeomType()) == wkbPoint)
        network_.reserve(static_cast<size_t>(count), fieldNames_.size() + 7);
    layer.ResetReading();
    for (OGRFeatureUniquePtr feature(layer.GetNextFeature()); feature;
         feature.reset(layer.GetNextFeature())) {
        const OGRGeometry* geometry = feature->GetGeometryRef();
        if (!geometry)
            continue;
        readAttributes(*feature);
        if (!addGeometry(*geometry, problem))
            return false;
    }
    if (CPLGetLastErrorType() >= CE_Failure) {
        problem = "reading layer \"" + std::string(layer.GetName()) + "\": " + GdalMessages::last();
        return false;
    }
    return true;
}

}  // namespace

DtTdbManager::DtTdbManager() = default;
DtTdbManager::~DtTdbManager() = default;

Coordinate_System* DtTdbManager::coordinateSystemFrom(const DtFilename& file, const DtFilename&,
                                                      DtString* error) {
    GdalMessages messages;
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
    GdalMessages messages;
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
    NetworkBuilder builder(cs, *network);
    for (OGRLayer* layer : dataset->GetLayers()) {
        CPLErrorReset();
        if (layer && !builder.addLayer(*layer, problem)) {
            setError(error, file, problem);
            return false;
        }
    }
    database_ = std::make_unique<DtTerrainDatabase>(std::move(network),
                                                    std::unique_ptr<Coordinate_System>(cs));
    return true;
}
