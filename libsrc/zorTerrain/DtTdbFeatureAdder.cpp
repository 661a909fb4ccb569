#include "zorTerrain/DtTdbFeatureAdder.h"

#include "hxutil/DtFilename.h"
#include "matrix/DtAngles.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbSceneLoad.h"

namespace kelZor {

namespace {

enum FeatureType { PointType = 0, LinearType = 1, ArealType = 2 };

DtVector64 vectorOf(const DtPoint& point) {
    return DtVector64(point.x(), point.y(), point.z());
}

// The identifier and code every feature needs; false when the object lacks either, or
// its code has no two letters to take.
bool readIdentity(const DtNetworkAttributes& attributes, int& featureId, DtFaccCode& code) {
    DtString ecc;
    if (!attributes.getInt(DtString("DtFidCode"), featureId) ||
        !attributes.getString(DtString("ECC"), ecc) || ecc.length() < 2)
        return false;
    code = DtFaccCode(ecc.c_str());
    return true;
}

double doubleOr0(const DtNetworkAttributes& attributes, const char* name) {
    double value = 0.0;
    attributes.getDouble(DtString(name), value);
    return value;
}

// Lines and areas differ only in the feature the set creates for them.
template <typename Feature>
void addEdgeFeature(const DtNetworkEdge& edge, DtFeatureLayer& layer,
                    Feature* (DtFeatureSet::*create)(unsigned int, const DtFaccCode&,
                                                     unsigned int)) {
    const unsigned int id = edge.id();
    int featureId = 0;
    DtFaccCode code;
    if (!readIdentity(edge.attributes(), featureId, code))
        return;
    Feature* feature = (layer.featureSet().*create)(static_cast<unsigned int>(featureId), code, id);
    const int count = edge.numPoints();
    for (int i = 0; i < count; ++i)
        feature->addPoint(vectorOf(edge.point(i)));
}

}  // namespace

DtTdbFeatureAdder::DtTdbFeatureAdder(DtDe& de) : DtFeatureAdder(de) {}

DtTdbFeatureAdder::~DtTdbFeatureAdder() = default;

void DtTdbFeatureAdder::addFeatures(DtFeatureLayer& layer) {
    const DtFilename file(layer.filename().c_str());
    if (!file.exists() && file.extension().isEmpty())
        return;

    DtQuietLoader quiet;
    DtTdbManager manager;
    const std::string warning = "DtTdbFeatureAdder::addFeatures error loading file: ";
    if (!loadIntoScene(de_, manager, layer.filename(), false, quiet, __PRETTY_FUNCTION__, warning))
        return;
    // An elevation source loads without a network: reported as a file that gave nothing.
    if (const DtVectorNetwork* network = manager.terrainDatabase()->vectorNetwork())
        addFeaturesFromVectorNetwork(*network, layer);
    else
        reportNotLoaded(de_, layer.filename(), false, quiet, __PRETTY_FUNCTION__, warning, "");
}

void DtTdbFeatureAdder::addFeaturesFromVectorNetwork(const DtVectorNetwork& network,
                                                     DtFeatureLayer& layer) {
    const DtString featureType("DtFeatureType");
    const int nodes = network.numNodes();
    for (int i = 0; i < nodes; ++i) {
        const DtNetworkNode* node = network.node(i);
        int type = 0;
        if (node && node->isValid() && node->numConnectedEdges() == 0 &&
            node->attributes().getInt(featureType, type) && type == PointType)
            addPoint(*node, layer);
    }
    const int edges = network.numEdges();
    for (int i = 0; i < edges; ++i) {
        const DtNetworkEdge* edge = network.edge(i);
        int type = 0;
        if (!edge || !edge->isValid() || !edge->attributes().getInt(featureType, type))
            continue;
        if (type == LinearType)
            addLinear(*edge, layer);
        else if (type == ArealType)
            addArea(*edge, layer);
    }
}

void DtTdbFeatureAdder::addPoint(const DtNetworkNode& node, DtFeatureLayer& layer) {
    const unsigned int id = node.id();
    const DtNetworkAttributes& attributes = node.attributes();
    int featureId = 0;
    DtFaccCode code;
    if (!readIdentity(attributes, featureId, code))
        return;
    DtPointFeature* feature =
        layer.featureSet().createPointFeature(static_cast<unsigned int>(featureId), code, id);
    feature->setLocation(vectorOf(node.location()));
    feature->setDimensions(DtVector64(doubleOr0(attributes, "GDB_Width"),
                                      doubleOr0(attributes, "GDB_Length"),
                                      doubleOr0(attributes, "DtHeight")));
    int heading = 0;
    if (attributes.getInt(DtString("DtOrientation"), heading))
        feature->setRotation(DtDeg2Rad(heading));
}

void DtTdbFeatureAdder::addLinear(const DtNetworkEdge& edge, DtFeatureLayer& layer) {
    addEdgeFeature(edge, layer, &DtFeatureSet::createEdgeFeature);
}

void DtTdbFeatureAdder::addArea(const DtNetworkEdge& edge, DtFeatureLayer& layer) {
    addEdgeFeature(edge, layer, &DtFeatureSet::createArealFeature);
}

DtFeatureAdder* DtTdbFeatureAdderCreator::create(DtDe& de) {
    return new DtTdbFeatureAdder(de);
}

}  // namespace kelZor
