#include "terrainDbFactory/DtNetworkBuilder.h"

#include <ogrsf_frmts.h>

#include <cmath>
#include <limits>
#include <optional>
#include <unordered_map>

#include "gdb/DtVectorNetwork.h"
#include "terrainDbFactory/DtLayerColumns.h"
#include "terrainDbFactory/DtLayerToScene.h"
#include "terrainDbFactory/DtSerialWorker.h"
#include "terrainDbFactory/DtTdbLoadSession.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace {

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

// The id the engine keeps for a feature, or none: "DtFidCode" is a 32-bit int and the
// engine's feature id its unsigned bits, so only 0 .. 2^31 - 1 reach both unchanged and
// apart (a negative id would meet a large one on the way).
std::optional<int> engineFid(GIntBig fid) {
    if (fid < 0 || fid > std::numeric_limits<int32_t>::max())
        return std::nullopt;
    return static_cast<int>(fid);
}

bool placed(const DtPoint& p) {
    return std::isfinite(p.x()) && std::isfinite(p.y()) && std::isfinite(p.z());
}

std::string countOf(uint64_t count, const char* one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

// The first of several, for a note.
struct FirstOf {
    uint64_t count = 0;
    GIntBig fid = 0;
    std::string layer;
    std::string why;

    void add(GIntBig featureId, const std::string& layerName, const std::string& reason) {
        if (count++ == 0) {
            fid = featureId;
            layer = layerName;
            why = reason;
        }
    }
};

}  // namespace

class DtNetworkBuilder::Impl {
public:
    Impl(const Coordinate_System* cs, DtVectorNetwork& network)
        : converter_(DtLayerToScene::sceneConverter(cs, sceneProblem_)), network_(network) {
        if (const DtTdbLoadSession* session = DtTdbLoadSession::current()) {
            codes_.fields = session->options().codeFields;
            codes_.given = session->options().code;
            assignedSrs_ = session->options().srs;
            assigned_ = session->givenSrs();
        }
    }

    bool addLayer(OGRLayer& layer, std::string& problem);
    std::vector<std::string> notes() const;
    std::vector<std::string> heightNotes() const { return heightNotes_; }
    const std::vector<DtTdbLayerReport>& layerReports() const { return layerReports_; }

private:
    enum FeatureType : uint8_t { Point = 0, Linear = 1, Areal = 2 };
    // What becomes of a placed feature's identity: the first that applies.
    enum Identity : uint8_t {
        Whole,          // an id and a code of its own
        NoUsableId,     // no "DtFidCode"
        NoCodeField,    // the layer has no code field
        EmptyCode,      // null or empty
        ShortCode,      // one character
        MalformedCode,  // kept as the engine reads it
        CodeGiven,      // the session's code
    };

    // An object read and waiting for its coordinates: `count` of the batch's coordinates
    // from `first`. The objects of one feature (its parts) are next to each other and in
    // one batch.
    struct PendingObject {
        GIntBig fid;
        uint32_t feature;  // the feature's place in the load
        uint32_t row;
        uint32_t first;
        uint32_t count;  // OGR counts a curve's points in an int
        FeatureType type;
        Identity identity;
        bool holed;  // an area whose holes are not kept
    };
    struct Batch {
        std::vector<double> x, y, z;
        std::vector<PendingObject> objects;
        void clear() {
            x.clear(), y.clear(), z.clear();
            objects.clear();
        }
    };

    // Coordinates per batch: large enough that a thread hand-over is nothing beside it.
    static constexpr size_t BatchCoordinates = 16384;

    // Reading, in the caller's thread.
    bool prepareLayer(OGRLayer& layer, std::string& problem);
    const OGRSpatialReference* layerSystem(OGRLayer& layer, std::string& problem);
    Identity identityOf(const OGRFeature& feature);
    uint32_t rowFor(FeatureType type);
    void readGeometry(const OGRGeometry& geometry);
    void readPoint(const OGRPoint& point);
    void readCurve(const OGRSimpleCurve& curve, FeatureType type);
    bool dispatch();

    // Taking into the scene and building, one batch at a time in the worker.
    void build(Batch& batch);
    void buildFeatures(const Batch& batch);
    void addObject(const PendingObject& object);
    void tally(const PendingObject& first);
    int junction(const DtPoint& point);

    std::string sceneProblem_;
    std::unique_ptr<kelZor::DtCoordinateConverter> converter_;
    DtVectorNetwork& network_;

    // Reading side.
    DtAttributeTable* table_ = nullptr;
    std::unique_ptr<DtLayerColumns> columns_;
    DtLayerColumns::CodeChoice codes_;
    std::string assignedSrs_;
    std::unique_ptr<OGRSpatialReference> assigned_;
    OGRFeature* feature_ = nullptr;  // the feature being read; its parts share a row
    GIntBig fid_ = 0;
    uint32_t featureIndex_ = 0;
    uint32_t row_ = 0;
    int rowType_ = -1;
    Batch reading_;
    FirstOf wideIds_;
    FirstOf holedAreas_;
    std::vector<std::string> heightNotes_;
    // The layer being loaded: its reading fields are the reader's, its counts of placed
    // and left-out features the worker's; complete once the worker has finished it.
    DtTdbLayerReport layer_;
    std::vector<DtTdbLayerReport> layerReports_;

    // Handed over while the worker is idle: the layer's road and name; then the batch in
    // flight, and the worker's verdict (read after waiting for it).
    DtWgs84Road road_;
    std::string layerName_;
    int layerGeneration_ = 0;
    Batch inFlight_;
    bool failed_ = false;
    std::string workerProblem_;

    // Worker side.
    std::unique_ptr<DtLayerToScene> toScene_;
    int sceneGeneration_ = -1;
    std::vector<DtPoint> scene_;
    std::unordered_map<PointKey, int, PointKeyHash> junctions_;
    FirstOf unplaced_;

    // Last: it joins its thread before anything the jobs use goes away.
    DtSerialWorker worker_;
};

// ------------------------------------------------------------------ reading

// The layer's own system, else the one the session gives layers without one.
const OGRSpatialReference* DtNetworkBuilder::Impl::layerSystem(OGRLayer& layer,
                                                               std::string& problem) {
    const std::string name = layer.GetName();
    if (const OGRSpatialReference* own = layer.GetSpatialRef())
        return own;
    if (assigned_)
        return assigned_.get();
    if (assignedSrs_.empty()) {
        problem = "layer \"" + name +
                  "\" has no coordinate system, so its features cannot be placed (one can be "
                  "given to it)";
    } else {
        problem = "the coordinate system given to layers without one (" + assignedSrs_ +
                  ") is not one OSR reads";
    }
    return nullptr;
}

bool DtNetworkBuilder::Impl::prepareLayer(OGRLayer& layer, std::string& problem) {
    const std::string name = layer.GetName();
    const OGRSpatialReference* srs = layerSystem(layer, problem);
    if (!srs)
        return false;
    std::string note;
    if (!DtLayerToScene::chooseRoad(*srs, road_, problem, note)) {
        problem = "layer \"" + name + "\": " + problem;
        return false;
    }
    if (!note.empty())
        heightNotes_.push_back("layer \"" + name + "\": " + note);
    layerName_ = name;
    ++layerGeneration_;
    table_ = &network_.addTable();
    columns_ = std::make_unique<DtLayerColumns>(*layer.GetLayerDefn(), *table_, network_, codes_);
    layer_ = DtTdbLayerReport();
    layer_.name = name;
    if (columns_->codeField() >= 0)
        layer_.codeField = layer.GetLayerDefn()->GetFieldDefn(columns_->codeField())->GetNameRef();
    layer_.firstId = network_.nextId();
    layer_.attributes = {"DtFeatureType", "DtFidCode"};
    for (const DtAttributeTable::Column& column : table_->columns())
        layer_.attributes.push_back(column.name.c_str());
    return true;
}

DtNetworkBuilder::Impl::Identity DtNetworkBuilder::Impl::identityOf(const OGRFeature& feature) {
    if (!engineFid(fid_))
        return NoUsableId;
    if (columns_->lacksCode(feature)) {
        if (!codes_.given.empty())
            return CodeGiven;
        return columns_->codeField() < 0 ? NoCodeField : EmptyCode;
    }
    const std::string_view code = feature.GetFieldAsString(columns_->codeField());
    if (code.size() < 2)
        return ShortCode;
    if (DtTdbLoadSession::isWellFormedCode(code))
        return Whole;
    if (layer_.firstMalformedCode.empty())
        layer_.firstMalformedCode = code;
    return MalformedCode;
}

// The feature's row for an object of `type`: the parts of a feature share one.
uint32_t DtNetworkBuilder::Impl::rowFor(FeatureType type) {
    if (rowType_ != type) {
        row_ = table_->addRow(type, engineFid(fid_));
        rowType_ = type;
        columns_->fill(row_, *feature_);
    }
    return row_;
}

void DtNetworkBuilder::Impl::readPoint(const OGRPoint& point) {
    if (point.IsEmpty())
        return;
    reading_.objects.push_back(
        {fid_, featureIndex_, rowFor(Point), uint32_t(reading_.x.size()), 1, Point, Whole, false});
    reading_.x.push_back(point.getX());
    reading_.y.push_back(point.getY());
    reading_.z.push_back(point.getZ());
}

void DtNetworkBuilder::Impl::readCurve(const OGRSimpleCurve& curve, FeatureType type) {
    const size_t first = reading_.x.size();
    const auto count = static_cast<size_t>(curve.getNumPoints());
    reading_.objects.push_back(
        {fid_, featureIndex_, rowFor(type), uint32_t(first), uint32_t(count), type, Whole, false});
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
        case wkbPolygon: {
            // The outline only: holes are not part of an areal object.
            const OGRPolygon& polygon = *geometry.toPolygon();
            if (const OGRLinearRing* ring = polygon.getExteriorRing()) {
                readCurve(*ring, Areal);
                if (polygon.getNumInteriorRings() > 0) {
                    holedAreas_.add(fid_, layerName_, "");
                    reading_.objects.back().holed = true;
                }
            }
            return;
        }
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
    if (!converter_) {
        problem = sceneProblem_;
        return false;
    }
    // An attribute table (a CSV read without its coordinate columns): nothing of it has
    // a place on the terrain, and every object of it is said to be without a geometry.
    if (layer.GetLayerDefn()->GetGeomFieldCount() == 0) {
        DtTdbLayerReport table;
        table.name = layer.GetName();
        table.firstId = table.endId = network_.nextId();
        layer.ResetReading();
        for (OGRFeatureUniquePtr f(layer.GetNextFeature()); f; f.reset(layer.GetNextFeature())) {
            ++table.objects;
            table.noGeometry.add(f->GetFID());
        }
        if (table.objects > 0)
            layerReports_.push_back(std::move(table));
        return true;
    }
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
        ++layer_.objects;
        const OGRGeometry* geometry = feature->GetGeometryRef();
        fid_ = feature->GetFID();
        if (!geometry) {
            layer_.noGeometry.add(fid_);
            continue;
        }
        feature_ = feature.get();
        rowType_ = -1;
        const size_t firstObject = reading_.objects.size();
        readGeometry(*geometry);
        if (rowType_ < 0) {
            layer_.noGeometry.add(fid_);  // empty, or a kind the terrain has no place for
            continue;
        }
        const Identity identity = identityOf(*feature);
        for (size_t i = firstObject; i < reading_.objects.size(); ++i)
            reading_.objects[i].identity = identity;
        if (!engineFid(fid_))
            wideIds_.add(fid_, layerName_, "");
        ++featureIndex_;
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
    if (DtGdalMessages::failed()) {
        problem = "reading layer \"" + layerName_ + "\": " + DtGdalMessages::last();
        return false;
    }
    layer_.endId = network_.nextId();
    layerReports_.push_back(std::move(layer_));
    return true;
}

// ------------------------------------------------------------------ building, in the worker

void DtNetworkBuilder::Impl::build(Batch& batch) {
    try {
        if (sceneGeneration_ != layerGeneration_) {
            toScene_ = std::make_unique<DtLayerToScene>(road_, *converter_);
            sceneGeneration_ = layerGeneration_;
        }
        toScene_->place(batch.x, batch.y, batch.z, scene_);
        buildFeatures(batch);
    } catch (const std::exception& error) {  // out of memory: the load fails, not the process
        failed_ = true;
        workerProblem_ = std::string("building the network: ") + error.what();
    }
}

// Each feature whole or not at all: one with a coordinate the scene cannot hold is left
// out and counted.
void DtNetworkBuilder::Impl::buildFeatures(const Batch& batch) {
    const std::vector<PendingObject>& objects = batch.objects;
    bool firstInBatch = true;
    for (size_t begin = 0; begin < objects.size();) {
        size_t end = begin;
        bool placeable = true;
        for (; end < objects.size() && objects[end].feature == objects[begin].feature; ++end) {
            const PendingObject& object = objects[end];
            for (uint32_t i = 0; i < object.count && placeable; ++i)
                placeable = placed(scene_[size_t(object.first) + i]);
        }
        if (placeable) {
            for (size_t i = begin; i < end; ++i)
                addObject(objects[i]);
            tally(objects[begin]);
        } else {
            layer_.unplaceable.add(objects[begin].fid);
            // The batch's first refused coordinate belongs to its first refused feature.
            unplaced_.add(objects[begin].fid, layerName_,
                          firstInBatch ? toScene_->firstFailure() : std::string());
            firstInBatch = false;
        }
        begin = end;
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

// A placed feature in the layer's report, by its first object.
void DtNetworkBuilder::Impl::tally(const PendingObject& first) {
    static constexpr uint64_t DtTdbLayerReport::*kinds[] = {
        &DtTdbLayerReport::points, &DtTdbLayerReport::lines, &DtTdbLayerReport::areas};
    // In the order of Identity; Whole has no count of its own.
    static constexpr DtTdbObjectCount DtTdbLayerReport::*identities[] = {
        nullptr,
        &DtTdbLayerReport::noUsableId,
        &DtTdbLayerReport::noCodeField,
        &DtTdbLayerReport::emptyCode,
        &DtTdbLayerReport::shortCode,
        &DtTdbLayerReport::malformedCode,
        &DtTdbLayerReport::codeGiven,
    };
    ++(layer_.*kinds[first.type]);
    if (identities[first.identity])
        (layer_.*identities[first.identity]).add(first.fid);
    // Holes are a feature's remark: only areas the engine makes features of have them.
    const bool makesFeature =
        first.identity == Whole || first.identity == MalformedCode || first.identity == CodeGiven;
    if (first.holed && makesFeature)
        layer_.holesDropped.add(first.fid);
}

int DtNetworkBuilder::Impl::junction(const DtPoint& point) {
    const auto found =
        junctions_.emplace(PointKey{point.x(), point.y(), point.z()}, network_.numNodes());
    if (found.second)
        network_.addNode(point);
    return found.first->second;
}

// ------------------------------------------------------------------ notes

std::vector<std::string> DtNetworkBuilder::Impl::notes() const {
    std::vector<std::string> notes;
    if (unplaced_.count > 0) {
        notes.push_back(countOf(unplaced_.count, "feature") +
                        " left out: the scene cannot hold a coordinate of each (the first is "
                        "feature " +
                        std::to_string(unplaced_.fid) + " of layer \"" + unplaced_.layer + "\"" +
                        (unplaced_.why.empty() ? "" : ": " + unplaced_.why) + ")");
    }
    if (wideIds_.count > 0) {
        notes.push_back(countOf(wideIds_.count, "feature") +
                        " with an id the engine cannot hold (outside 0 to 2147483647) "
                        "carry no DtFidCode, so no engine feature is made of them (the first "
                        "is " +
                        std::to_string(wideIds_.fid) + " of layer \"" + wideIds_.layer + "\")");
    }
    if (holedAreas_.count > 0) {
        notes.push_back(countOf(holedAreas_.count, "area") +
                        " kept without their holes: an areal feature is one outline (the first "
                        "is feature " +
                        std::to_string(holedAreas_.fid) + " of layer \"" + holedAreas_.layer +
                        "\")");
    }
    notes.insert(notes.end(), heightNotes_.begin(), heightNotes_.end());
    return notes;
}

// ------------------------------------------------------------------ DtNetworkBuilder

DtNetworkBuilder::DtNetworkBuilder(const Coordinate_System* cs, DtVectorNetwork& network)
    : impl_(std::make_unique<Impl>(cs, network)) {}

DtNetworkBuilder::~DtNetworkBuilder() = default;

bool DtNetworkBuilder::addLayer(OGRLayer& layer, std::string& problem) {
    return impl_->addLayer(layer, problem);
}

std::vector<std::string> DtNetworkBuilder::notes() const {
    return impl_->notes();
}

std::vector<std::string> DtNetworkBuilder::heightNotes() const {
    return impl_->heightNotes();
}

const std::vector<DtTdbLayerReport>& DtNetworkBuilder::layerReports() const {
    return impl_->layerReports();
}
