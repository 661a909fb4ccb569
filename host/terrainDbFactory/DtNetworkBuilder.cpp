#include "terrainDbFactory/DtNetworkBuilder.h"

#include <cpl_error.h>
#include <ogr_spatialref.h>
#include <ogrsf_frmts.h>
#include <GeographicLib/Geocentric.hpp>

#include <cmath>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>
#include <vector>

#include "gdb/DtVectorNetwork.h"
#include "hxutil/DtNotify.h"
#include "terrainCS/Coordinate_System.h"
#include "zorUtil/DtCoordinateConverter.h"

using kelZor::DtCoordinateConverter;

namespace {

struct TransformDeleter {
    void operator()(OGRCoordinateTransformation* t) const {
        OGRCoordinateTransformation::DestroyCT(t);
    }
};
using TransformPtr = std::unique_ptr<OGRCoordinateTransformation, TransformDeleter>;

TransformPtr transformToWgs84(const OGRSpatialReference& source) {
    OGRSpatialReference wgs84;
    wgs84.SetWellKnownGeogCS("WGS84");
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    return TransformPtr(OGRCreateCoordinateTransformation(&source, &wgs84));
}

std::string lastGdalMessage() {
    const char* message = CPLGetLastErrorMsg();
    return message && *message ? message : "";
}

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

// Runs jobs one at a time, in the order given, on a thread of its own (started with the
// first job), or in the caller's thread when the machine has a single core. GDAL's
// messages in that thread follow DtNotifyLevel as in the caller's.
class SerialWorker {
public:
    SerialWorker()
        : threaded_(std::thread::hardware_concurrency() > 1), quiet_(DtNotifyLevel <= 0) {}
    ~SerialWorker() {
        if (!thread_.joinable())
            return;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            idle_.wait(lock, [this] { return !job_; });
            stop_ = true;
        }
        wake_.notify_all();
        thread_.join();
    }
    SerialWorker(const SerialWorker&) = delete;
    SerialWorker& operator=(const SerialWorker&) = delete;

    // Waits for the job before, then starts this one.
    void submit(std::function<void()> job) {
        if (!threaded_) {
            job();
            return;
        }
        if (!thread_.joinable())
            thread_ = std::thread([this] { run(); });
        std::unique_lock<std::mutex> lock(mutex_);
        idle_.wait(lock, [this] { return !job_; });
        job_ = std::move(job);
        wake_.notify_all();
    }

    // Returns once the last job given has run.
    void wait() {
        std::unique_lock<std::mutex> lock(mutex_);
        idle_.wait(lock, [this] { return !job_; });
    }

private:
    void run() {
        CPLPushErrorHandler(quiet_ ? CPLQuietErrorHandler : CPLDefaultErrorHandler);
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stop_ || job_; });
            if (!job_)
                break;
            lock.unlock();
            job_();
            lock.lock();
            job_ = nullptr;
            idle_.notify_all();
        }
        lock.unlock();
        CPLPopErrorHandler();
    }

    const bool threaded_;
    const bool quiet_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable wake_, idle_;
    std::function<void()> job_;
    bool stop_ = false;
};

}  // namespace

class DtNetworkBuilder::Impl {
public:
    Impl(const Coordinate_System* cs, DtVectorNetwork& network)
        : converter_(converterFor(cs)), network_(network) {}

    bool addLayer(OGRLayer& layer, std::string& problem);

private:
    enum FeatureType : uint8_t { Point = 0, Linear = 1, Areal = 2 };

    // An object read and waiting for its coordinates: `count` of the batch's coordinates
    // from `first`.
    struct PendingObject {
        GIntBig fid;
        uint32_t row;
        uint32_t first;
        uint32_t count;  // OGR counts a curve's points in an int
        FeatureType type;
    };
    struct Batch {
        std::vector<double> x, y, z;
        std::vector<PendingObject> objects;
        void clear() {
            x.clear(), y.clear(), z.clear();
            objects.clear();
        }
    };
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

    // Coordinates per batch: large enough that a thread hand-over is nothing beside it.
    static constexpr size_t BatchCoordinates = 16384;

    // Reading, in the caller's thread.
    bool prepareLayer(OGRLayer& layer, std::string& problem);
    void addColumns(OGRFeatureDefn& definition);
    void addDerivedColumns(OGRFeatureDefn& definition);
    void fillRow(uint32_t row);
    uint32_t rowFor(FeatureType type);
    void readGeometry(const OGRGeometry& geometry);
    void readPoint(const OGRPoint& point);
    void readCurve(const OGRSimpleCurve& curve, FeatureType type);
    bool dispatch();

    // Transforming and building, one batch at a time in the worker.
    void build(Batch& batch);
    bool toScene(Batch& batch);
    bool wgs84ToScene(double lon, double lat, double height, DtVector64& cig) const;
    bool placeOne(double x, double y, double z, DtVector64& cig) const;
    std::optional<DtVector64> shiftToScene() const;
    bool shiftable(const Batch& batch) const;
    void addObject(const PendingObject& object);
    int junction(const DtPoint& point);

    std::unique_ptr<DtCoordinateConverter> converter_;
    DtVectorNetwork& network_;

    // Reading side.
    DtAttributeTable* table_ = nullptr;
    std::vector<FieldSlot> fieldSlots_;
    std::vector<DerivedSlot> derivedSlots_;
    OGRFeature* feature_ = nullptr;  // the feature being read; its parts share a row
    GIntBig fid_ = 0;
    uint32_t row_ = 0;
    int rowType_ = -1;
    Batch reading_;

    // Handed over: the layer's system (set while the worker is idle), the batch in
    // flight, and the worker's verdict (read after waiting for it).
    std::unique_ptr<OGRSpatialReference> layerSystem_;
    int layerGeneration_ = 0;
    Batch inFlight_;
    bool failed_ = false;
    std::string workerProblem_;

    // Worker side.
    TransformPtr toWgs84_;
    int transformGeneration_ = -1;
    // Set when the layer is in the scene's own UTM zone: what its coordinates less gives
    // the scene's (the scene's false origin).
    std::optional<DtVector64> shift_;
    std::vector<int> transformed_;
    std::vector<DtPoint> scene_;
    std::unordered_map<PointKey, int, PointKeyHash> junctions_;

    // Last: it joins its thread before anything the jobs use goes away.
    SerialWorker worker_;
};
// ------------------------------------------------------------------ reading

bool DtNetworkBuilder::Impl::prepareLayer(OGRLayer& layer, std::string& problem) {
    const OGRSpatialReference* srs = layer.GetSpatialRef();
    if (!srs) {
        problem = "layer \"" + std::string(layer.GetName()) +
                  "\" has no coordinate system, so its features cannot be placed";
        return false;
    }
    if (!transformToWgs84(*srs)) {
        problem = "layer \"" + std::string(layer.GetName()) +
                  "\": no transformation to WGS84: " + lastGdalMessage();
        return false;
    }
    // The worker makes its own transformation from this copy: OGR's are not shared
    // between threads.
    layerSystem_.reset(srs->Clone());
    ++layerGeneration_;
    OGRFeatureDefn& definition = *layer.GetLayerDefn();
    table_ = &network_.addTable();
    addColumns(definition);
    addDerivedColumns(definition);
    return true;
}

void DtNetworkBuilder::Impl::addColumns(OGRFeatureDefn& definition) {
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
void DtNetworkBuilder::Impl::addDerivedColumns(OGRFeatureDefn& definition) {
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

void DtNetworkBuilder::Impl::fillRow(uint32_t row) {
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
uint32_t DtNetworkBuilder::Impl::rowFor(FeatureType type) {
    if (rowType_ != type) {
        row_ = table_->addRow(type, static_cast<int>(fid_));
        rowType_ = type;
        fillRow(row_);
    }
    return row_;
}

void DtNetworkBuilder::Impl::readPoint(const OGRPoint& point) {
    if (point.IsEmpty())
        return;
    reading_.objects.push_back({fid_, rowFor(Point), uint32_t(reading_.x.size()), 1, Point});
    reading_.x.push_back(point.getX());
    reading_.y.push_back(point.getY());
    reading_.z.push_back(point.getZ());
}

void DtNetworkBuilder::Impl::readCurve(const OGRSimpleCurve& curve, FeatureType type) {
    const size_t first = reading_.x.size();
    const auto count = static_cast<size_t>(curve.getNumPoints());
    reading_.objects.push_back({fid_, rowFor(type), uint32_t(first), uint32_t(count), type});
    reading_.x.resize(first + count);
    reading_.y.resize(first + count);
    reading_.z.resize(first + count, 0.0);
    if (count == 0)
        return;
    curve.getPoints(&reading_.x[first], sizeof(double), &reading_.y[first], sizeof(double),
                    curve.Is3D() ? &reading_.z[first] : nullptr, sizeof(double));
}

void DtNetworkBuilder::Impl::readGeometry(const OGRGeometry& geometry) {
    if (geometry.hasCurveGeometry()) {
        if (std::unique_ptr<OGRGeometry> linear{geometry.getLinearGeometry()})
            readGeometry(*linear);
        return;
    }
    switch (wkbFlatten(geometry.getGeometryType())) {
        case wkbPoint:
            readPoint(*geometry.toPoint());
            return;
        case wkbMultiPoint:
            for (const OGRPoint* part : *geometry.toMultiPoint())
                readPoint(*part);
            return;
        case wkbLineString:
            readCurve(*geometry.toLineString(), Linear);
            return;
        case wkbPolygon:
            // The outline only: holes are not part of an areal object.
            if (const OGRLinearRing* ring = geometry.toPolygon()->getExteriorRing())
                readCurve(*ring, Areal);
            return;
        case wkbMultiLineString:
        case wkbMultiPolygon:
        case wkbGeometryCollection:
            for (const OGRGeometry* part : *geometry.toGeometryCollection()) {
                if (part)
                    readGeometry(*part);
            }
            return;
        default:
            return;  // no place on the terrain: a triangle mesh, a bare attribute row
    }
}

// Hands the batch read to the worker once it has finished the one before; false when
// that one failed.
bool DtNetworkBuilder::Impl::dispatch() {
    worker_.wait();
    if (failed_)
        return false;
    if (reading_.objects.empty())
        return true;
    std::swap(reading_, inFlight_);
    reading_.clear();
    worker_.submit([this] { build(inFlight_); });
    return true;
}

bool DtNetworkBuilder::Impl::addLayer(OGRLayer& layer, std::string& problem) {
    if (!prepareLayer(layer, problem))
        return false;
    // A point layer whose header tells its size is stored without regrowing.
    const GIntBig count = layer.GetFeatureCount(FALSE);
    if (count > 0 && wkbFlatten(layer.GetGeomType()) == wkbPoint) {
        network_.reserveNodes(static_cast<size_t>(count));
        table_->reserveRows(static_cast<size_t>(count));
    }
    layer.ResetReading();
    bool going = true;
    for (OGRFeatureUniquePtr feature(layer.GetNextFeature()); feature && going;
         feature.reset(layer.GetNextFeature())) {
        const OGRGeometry* geometry = feature->GetGeometryRef();
        if (!geometry)
            continue;
        feature_ = feature.get();
        fid_ = feature->GetFID();
        rowType_ = -1;
        readGeometry(*geometry);
        if (reading_.x.size() >= BatchCoordinates)
            going = dispatch();
    }
    if (going)
        dispatch();
    worker_.wait();
    if (failed_) {
        problem = workerProblem_;
        return false;
    }
    if (CPLGetLastErrorType() >= CE_Failure) {
        problem = "reading layer \"" + std::string(layer.GetName()) + "\": " + lastGdalMessage();
        return false;
    }
    return true;
}

// ------------------------------------------------------------------ building, in the worker

// ------------------------------------------------------------------ UTM layers in a UTM scene
//
// A layer in the scene's own UTM zone reaches the scene by a shift alone: the full road
// (to WGS84 by OGR, geocentric, the scene's projection) only undoes and redoes the same
// projection. The shift is taken only where the full road is known to agree: the corners
// of a box of easting and northing well inside the zone (and a height off the ground) go
// the full road when the layer starts, and each must land shifted by the same amount to a
// micrometre; that also proves the layer's datum, units and axis order are the scene's.
// Batches with any coordinate outside the box keep the full road, so its verdicts on odd
// coordinates stand.

namespace {

constexpr double SafeEastingMin = 100e3, SafeEastingMax = 900e3;
constexpr double SafeNorthingMin = 1200e3, SafeNorthingMax = 9300e3;

bool insideSafeBox(double easting, double northing, double height) {
    return easting >= SafeEastingMin && easting <= SafeEastingMax && northing >= SafeNorthingMin &&
           northing <= SafeNorthingMax && std::isfinite(height);
}

}  // namespace

// The last leg of the full road, from WGS84; false when the scene cannot hold the point.
bool DtNetworkBuilder::Impl::wgs84ToScene(double lon, double lat, double height,
                                          DtVector64& cig) const {
    if (!std::isfinite(lon) || !std::isfinite(lat) || !std::isfinite(height))
        return false;
    double X, Y, Z;
    GeographicLib::Geocentric::WGS84().Forward(lat, lon, height, X, Y, Z);
    try {
        converter_->geocToCig(DtVector64(X, Y, Z), cig);
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

// One coordinate by the full road; false when it cannot be placed.
bool DtNetworkBuilder::Impl::placeOne(double x, double y, double z, DtVector64& cig) const {
    int done = 0;
    return toWgs84_ && toWgs84_->Transform(1, &x, &y, &z, &done) && done &&
           wgs84ToScene(x, y, z, cig);
}

std::optional<DtVector64> DtNetworkBuilder::Impl::shiftToScene() const {
    if (std::strcmp(converter_->type(), DtCoordinateConverter::UTM) != 0)
        return std::nullopt;
    const double probes[5][3] = {{SafeEastingMin, SafeNorthingMin, 0.0},
                                 {SafeEastingMax, SafeNorthingMin, 0.0},
                                 {SafeEastingMin, SafeNorthingMax, 0.0},
                                 {SafeEastingMax, SafeNorthingMax, 0.0},
                                 {500e3, 5000e3, 1000.0}};
    // A probe outside the layer's projection is an answer, not a problem to print.
    struct QuietGdal {
        QuietGdal() { CPLPushErrorHandler(CPLQuietErrorHandler); }
        ~QuietGdal() {
            CPLPopErrorHandler();
            CPLErrorReset();
        }
    } quiet;
    std::optional<DtVector64> shift;
    for (const auto& probe : probes) {
        DtVector64 cig;
        if (!placeOne(probe[0], probe[1], probe[2], cig))
            return std::nullopt;
        const DtVector64 here(probe[0] - cig.x(), probe[1] - cig.y(), probe[2] - cig.z());
        if (!shift)
            shift = here;
        else if (std::abs(here.x() - shift->x()) > 1e-6 || std::abs(here.y() - shift->y()) > 1e-6 ||
                 std::abs(here.z() - shift->z()) > 1e-6)
            return std::nullopt;
    }
    return shift;
}

bool DtNetworkBuilder::Impl::shiftable(const Batch& batch) const {
    if (!shift_)
        return false;
    for (size_t i = 0; i < batch.x.size(); ++i) {
        if (!insideSafeBox(batch.x[i], batch.y[i], batch.z[i]))
            return false;
    }
    return true;
}

// The batch's coordinates in the scene, into scene_, up to the first that cannot be placed
// (then false).
bool DtNetworkBuilder::Impl::toScene(Batch& batch) {
    scene_.clear();
    if (transformGeneration_ != layerGeneration_) {
        toWgs84_ = transformToWgs84(*layerSystem_);
        transformGeneration_ = layerGeneration_;
        shift_ = shiftToScene();
    }
    std::vector<double>&x = batch.x, &y = batch.y, &z = batch.z;
    if (shiftable(batch)) {
        const DtVector64 shift = *shift_;
        for (size_t i = 0; i < x.size(); ++i)
            scene_.emplace_back(x[i] - shift.x(), y[i] - shift.y(), z[i] - shift.z());
        return true;
    }
    transformed_.assign(x.size(), 0);
    if (!toWgs84_)
        return false;
    // Which points failed is in the flags: OGR's answer is false when any one did.
    toWgs84_->Transform(static_cast<int>(x.size()), x.data(), y.data(), z.data(),
                        transformed_.data());
    for (size_t i = 0; i < x.size(); ++i) {
        DtVector64 cig;
        if (!transformed_[i] || !wgs84ToScene(x[i], y[i], z[i], cig))
            return false;
        scene_.emplace_back(cig.x(), cig.y(), cig.z());
    }
    return true;
}

void DtNetworkBuilder::Impl::build(Batch& batch) {
    toScene(batch);
    for (const PendingObject& object : batch.objects) {
        if (size_t(object.first) + object.count > scene_.size()) {
            // The first object with a coordinate that could not be placed.
            failed_ = true;
            workerProblem_ = std::string(object.type == Point ? "a point" : "a vertex") +
                             " of feature " + std::to_string(object.fid) + " cannot be transformed";
            return;
        }
        addObject(object);
    }
}

void DtNetworkBuilder::Impl::addObject(const PendingObject& object) {
    const DtNetworkAttributes attributes(table_, object.row);
    const auto first = scene_.begin() + static_cast<std::ptrdiff_t>(object.first);
    if (object.type == Point) {
        network_.addNode(*first).setAttributes(attributes);
        return;
    }
    DtNetworkEdge& edge = network_.addEdge();
    edge.points().assign(first, first + static_cast<std::ptrdiff_t>(object.count));
    edge.setAttributes(attributes);
    if (object.type != Linear || object.count == 0)
        return;
    const int edgeIndex = network_.numEdges() - 1;
    const int start = junction(edge.points().front());
    const int end = junction(edge.points().back());
    network_.connectEdge(start, edgeIndex);
    if (end != start)
        network_.connectEdge(end, edgeIndex);
}

int DtNetworkBuilder::Impl::junction(const DtPoint& point) {
    const auto found =
        junctions_.emplace(PointKey{point.x(), point.y(), point.z()}, network_.numNodes());
    if (found.second)
        network_.addNode(point);
    return found.first->second;
}

// ------------------------------------------------------------------ DtNetworkBuilder

DtNetworkBuilder::DtNetworkBuilder(const Coordinate_System* cs, DtVectorNetwork& network)
    : impl_(std::make_unique<Impl>(cs, network)) {}

DtNetworkBuilder::~DtNetworkBuilder() = default;

bool DtNetworkBuilder::addLayer(OGRLayer& layer, std::string& problem) {
    return impl_->addLayer(layer, problem);
}
