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
    void addColumns(OGRFeatureDefn& definition);
    void addDerivedColumns(OGRFeatureDefn& definition);
    void fillRow(uint32_t row);
    bool addGeometry(const OGRGeometry& geometry, std::string& problem);
    bool toScene(std::vector<double>& x, std::vector<double>& y, std::vector<double>& z,
                 std::vector<DtPoint>& out);
    bool addPoints(const OGRGeometry& geometry, std::string& problem);
    bool verticesOf(const OGRSimpleCurve& curve, std::string& problem);
    bool addLine(const OGRLineString& line, std::string& problem);
    bool addArea(const OGRPolygon& polygon, std::string& problem);
    int junction(const DtPoint& point);
    DtNetworkAttributes attributesOf(FeatureType type);

    // Where a field's value goes in the layer's table. A 64-bit field has two slots: its
    // values that fit in an int are integers, the others doubles.
    enum class Stored { Integer, Integer64, Double, Text };
    struct FieldSlot {
        Stored stored;
        uint32_t slot;
        uint32_t wideSlot;  // Integer64 only: the double slot
    };
    // A derived attribute that cannot share its field's slot: its own, filled per row.
    struct DerivedSlot {
        int field;
        int type;
        uint32_t slot;
    };

    std::unique_ptr<DtCoordinateConverter> converter_;
    DtVectorNetwork& network_;
    TransformPtr toWgs84_;
    DtAttributeTable* table_ = nullptr;
    std::vector<FieldSlot> fieldSlots_;
    std::vector<DerivedSlot> derivedSlots_;
    // The feature being added and its row: the parts of one feature share a row.
    OGRFeature* feature_ = nullptr;
    GIntBig fid_ = 0;
    uint32_t row_ = 0;
    int rowType_ = -1;
    std::unordered_map<PointKey, int, PointKeyHash> junctions_;
    std::vector<double> xs_, ys_, zs_;
    std::vector<int> transformed_;
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
    OGRFeatureDefn& definition = *layer.GetLayerDefn();
    table_ = &network_.addTable();
    addColumns(definition);
    addDerivedColumns(definition);
    rowType_ = -1;
    return true;
}

void NetworkBuilder::addColumns(OGRFeatureDefn& definition) {
    fieldSlots_.clear();
    for (int i = 0; i < definition.GetFieldCount(); ++i) {
        const OGRFieldDefn& field = *definition.GetFieldDefn(i);
        const DtSymbolString name(field.GetNameRef());
        switch (field.GetType()) {
            case OFTInteger:
                fieldSlots_.push_back(
                    {Stored::Integer, table_->addColumn(name, DtNetworkAttribute::Integer), 0});
                break;
            case OFTInteger64: {
                const uint32_t slot = table_->addColumn(name, DtNetworkAttribute::Integer);
                fieldSlots_.push_back(
                    {Stored::Integer64, slot, table_->addColumn(name, DtNetworkAttribute::Double)});
                break;
            }
            case OFTReal:
                fieldSlots_.push_back(
                    {Stored::Double, table_->addColumn(name, DtNetworkAttribute::Double), 0});
                break;
            default:  // texts, and dates and the rest as their text
                fieldSlots_.push_back(
                    {Stored::Text, table_->addColumn(name, DtNetworkAttribute::String), 0});
        }
    }
}

// The attributes the engine reads under names of its own, from the fields that carry
// them: the code (ECC, else F_CODE, else FCODE), width, length, height, orientation.
void NetworkBuilder::addDerivedColumns(OGRFeatureDefn& definition) {
    derivedSlots_.clear();
    int ecc = -1;
    for (const char* name : {"ECC", "F_CODE", "FCODE"}) {
        if (ecc < 0)
            ecc = definition.GetFieldIndex(name);
    }
    const struct {
        int field;
        const DtSymbolString& name;
        int type;
        Stored same;  // the field is kept exactly as the derived attribute reads it
    } derivations[] = {
        {ecc, derived().ecc, DtNetworkAttribute::String, Stored::Text},
        {definition.GetFieldIndex("WID"), derived().width, DtNetworkAttribute::Double,
         Stored::Double},
        {definition.GetFieldIndex("LEN"), derived().length, DtNetworkAttribute::Double,
         Stored::Double},
        {definition.GetFieldIndex("HGT"), derived().height, DtNetworkAttribute::Double,
         Stored::Double},
        {definition.GetFieldIndex("AOO"), derived().orientation, DtNetworkAttribute::Integer,
         Stored::Integer},
    };
    for (const auto& d : derivations) {
        if (d.field < 0)
            continue;
        const FieldSlot& source = fieldSlots_[static_cast<size_t>(d.field)];
        if (source.stored == d.same)
            table_->addAlias(d.name, d.type, source.slot);
        else
            derivedSlots_.push_back({d.field, d.type, table_->addColumn(d.name, d.type)});
    }
}

void NetworkBuilder::fillRow(uint32_t row) {
    OGRFeature& feature = *feature_;
    for (int i = 0; i < static_cast<int>(fieldSlots_.size()); ++i) {
        if (!feature.IsFieldSetAndNotNull(i))
            continue;
        const FieldSlot& field = fieldSlots_[static_cast<size_t>(i)];
        switch (field.stored) {
            case Stored::Integer:
                table_->setInt(row, field.slot, feature.GetFieldAsInteger(i));
                break;
            case Stored::Integer64: {
                const GIntBig value = feature.GetFieldAsInteger64(i);
                if (value >= std::numeric_limits<int>::min() &&
                    value <= std::numeric_limits<int>::max())
                    table_->setInt(row, field.slot, static_cast<int>(value));
                else
                    table_->setDouble(row, field.wideSlot, static_cast<double>(value));
                break;
            }
            case Stored::Double:
                table_->setDouble(row, field.slot, feature.GetFieldAsDouble(i));
                break;
            case Stored::Text:
                table_->setText(row, field.slot, network_.internText(feature.GetFieldAsString(i)));
        }
    }
    for (const DerivedSlot& d : derivedSlots_) {
        if (!feature.IsFieldSetAndNotNull(d.field))
            continue;
        if (d.type == DtNetworkAttribute::String) {
            table_->setText(row, d.slot, network_.internText(feature.GetFieldAsString(d.field)));
        } else if (d.type == DtNetworkAttribute::Double) {
            table_->setDouble(row, d.slot, feature.GetFieldAsDouble(d.field));
        } else {
            table_->setInt(row, d.slot,
                           static_cast<int>(std::lround(feature.GetFieldAsDouble(d.field))));
        }
    }
}

// The feature's row for an object of `type`: the parts of a feature share one.
DtNetworkAttributes NetworkBuilder::attributesOf(FeatureType type) {
    if (rowType_ != type) {
        row_ = table_->addRow(type, static_cast<int>(fid_));
        rowType_ = type;
        fillRow(row_);
    }
    return DtNetworkAttributes(table_, row_);
}

// Source coordinates to the scene, in place of the three arrays.
bool NetworkBuilder::toScene(std::vector<double>& x, std::vector<double>& y, std::vector<double>& z,
                             std::vector<DtPoint>& out) {
    out.clear();
    if (x.empty())
        return true;
    transformed_.assign(x.size(), 0);
    if (!toWgs84_->Transform(static_cast<int>(x.size()), x.data(), y.data(), z.data(),
                             transformed_.data()))
        return false;
    const GeographicLib::Geocentric& earth = GeographicLib::Geocentric::WGS84();
    for (size_t i = 0; i < x.size(); ++i) {
        if (!transformed_[i] || !std::isfinite(x[i]) || !std::isfinite(y[i]) ||
            !std::isfinite(z[i]))
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
        network_.connectEdge(first, edgeIndex);
        if (last != first)
            network_.connectEdge(last, edgeIndex);
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
    if (count > 0 && wkbFlatten(layer.GetGeomType()) == wkbPoint) {
        network_.reserveNodes(static_cast<size_t>(count));
        table_->reserveRows(static_cast<size_t>(count));
    }
    layer.ResetReading();
    for (OGRFeatureUniquePtr feature(layer.GetNextFeature()); feature;
         feature.reset(layer.GetNextFeature())) {
        const OGRGeometry* geometry = feature->GetGeometryRef();
        if (!geometry)
            continue;
        feature_ = feature.get();
        fid_ = feature->GetFID();
        rowType_ = -1;
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
