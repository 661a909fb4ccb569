#include "zorTerrain/DtTdbPropAdder.h"

#include <cmath>
#include <cstdlib>
#include <memory>

#include "matrix/DtAngles.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbFeatureFieldValueReader.h"
#include "zorTerrain/DtTdbSceneLoad.h"
#include "zorUtil/DtEulerToQuaternion.h"

namespace kelZor {

namespace {

const DtNetworkAttribute* attributeOf(const DtListItem* item) {
    return static_cast<const DtNetworkAttribute*>(item->data());
}

// `text == name`, whole-string and exact (a NUL inside `text` never matches), stopping
// at the first difference instead of measuring the name first: nearly every name walked
// differs from the field in its first character.
bool sameText(const std::string& text, const char* name) {
    const size_t length = text.size();
    for (size_t i = 0; i < length; ++i) {
        if (name[i] == '\0' || name[i] != text[i])
            return false;
    }
    return name[length] == '\0';
}

// The heading a rotation attribute gives, in degrees: a text by atoi, so fractions go.
double headingOf(const DtNetworkAttribute& attribute) {
    switch (attribute.type()) {
        case DtNetworkAttribute::String:
            return std::atoi(static_cast<DtString>(attribute.value()).c_str());
        case DtNetworkAttribute::Integer:
            return static_cast<int>(attribute.value());
        case DtNetworkAttribute::Double:
            return static_cast<double>(attribute.value());
        default:
            return 0.0;
    }
}

double rotationOf(const kelArchives::DtAddPropsRuleRecord& rule, const DtNetworkNode& node) {
    const DtList attributes = node.attributes().attributeList();
    for (const DtListItem* item = attributes.first(); item; item = item->next()) {
        const DtNetworkAttribute* attribute = attributeOf(item);
        if (attribute && sameText(rule.rotationField(), attribute->name().c_str()))
            return headingOf(*attribute);
    }
    return 0.0;
}

// Once into range, not a loop: -400 becomes -40 and 800 becomes 440.
double headingInRange(double rotation) {
    if (rotation < 0.0)
        return rotation + 360.0;
    if (rotation > 360.0)
        return rotation - 360.0;
    return rotation;
}

}  // namespace

DtTdbPropAdder::DtTdbPropAdder(DtDe& de, const std::string& filename,
                               DtAgentManagerInterface& agentManager)
    : DtPropAdder(de, agentManager), filename_(filename) {}

DtTdbPropAdder::~DtTdbPropAdder() = default;

void DtTdbPropAdder::addProps(const kelArchives::DtAddPropsRuleRecord& rule,
                              DtTerrainLayer* layer) {
    if (!layer)
        return;
    DtQuietLoader quiet;
    DtTdbManager manager;
    if (!loadIntoScene(de_, manager, filename_, false, quiet, __PRETTY_FUNCTION__,
                       "DtTdbPropAdder::addProps - loadFor3DVisualization Error: "))
        return;
    int failures = 0;
    // An elevation source loads without a network: no node can carry a prop.
    if (const DtVectorNetwork* network = manager.terrainDatabase()->vectorNetwork()) {
        const int nodes = network->numNodes();
        for (int i = 0; i < nodes; ++i) {
            const DtNetworkNode* node = network->node(i);
            if (node && matchRuleWithNode(rule, *node) && !buildProp(rule, *node, layer))
                ++failures;
        }
    }
    if (failures > 0) {
        DtDeError report(DtDeError::PropsNotPlaced);
        report << filename_ << failures;
        de_.reportError(report, true);
    }
    de_.scene().terrain().propsAdded();
}

bool DtTdbPropAdder::matchRuleWithNode(const kelArchives::DtAddPropsRuleRecord& rule,
                                       const DtNetworkNode& node) {
    bool tried = false;
    for (const auto& [field, value] : rule.fieldValueMap()) {
        if (!matchPairWithNode(field, value, node))
            return false;
        tried = true;
    }
    return tried;
}

bool DtTdbPropAdder::matchPairWithNode(const std::string& field, const std::string& value,
                                       const DtNetworkNode& node) {
    const DtList attributes = node.attributes().attributeList();
    for (const DtListItem* item = attributes.first(); item; item = item->next()) {
        const DtNetworkAttribute* attribute = attributeOf(item);
        if (attribute && sameText(field, attribute->name().c_str()) &&
            value == DtTdbFeatureFieldValueReader::valueText(*attribute))
            return true;
    }
    return false;
}

bool DtTdbPropAdder::validPoint(const DtPoint& point) const {
    if (point.x() == 0.0 && point.y() == 0.0 && point.z() == 0.0)
        return false;
    for (const double coordinate : {point.x(), point.y(), point.z()}) {
        // Narrowed as the engine stores positions: too large for a float is invalid.
        const float narrowed = static_cast<float>(coordinate);
        if (!std::isfinite(narrowed))
            return false;
    }
    return true;
}

bool DtTdbPropAdder::buildProp(const kelArchives::DtAddPropsRuleRecord& rule,
                               const DtNetworkNode& node, DtTerrainLayer* layer) {
    if (!validPoint(node.location()))
        return false;
    if (!de_.sharedState().modelDefinitionManager().findDefinition(rule.modelDefinition())) {
        DtDeError report(DtDeError::ModelDefinitionMissing);
        report << rule.modelDefinition();
        de_.reportError(report, true);
        return false;
    }
    DtTerrain& terrain = de_.scene().terrain();
    const std::string propName = terrain.generatePropName(rule.propType());
    // Ours until the layer takes it, so nothing thrown on the way leaks it.
    auto prop = std::make_unique<DtProp>(de_, agentManager_, rule.propType(), propName);
    kelArchives::DtPropRecord record;
    record.setPropType(rule.propType());
    record.setName(propName);
    record.setIsModelDef(true);
    record.setModelDefOrNodeAddress(rule.modelDefinition());

    DtCoordinateConverter* converter = de_.sharedState().coordinateSystem().converter();
    const DtPoint& location = node.location();
    const DtVector64 position(location.x(), location.y(), location.z());
    converter->setReferencePoint(position);
    const DtVector64 up = converter->upVector(position);
    DtVector64 result(0.0, 0.0, 0.0);
    terrain.clampToTerrain(position.x(), position.y(), position.z(), up.x(), up.y(), up.z(),
                           result[0], result[1], result[2]);
    record.setPosition(result.x(), result.y(), result.z());

    const double rotation = headingInRange(rotationOf(rule, node));
    double x = 0.0, y = 0.0, z = 0.0, w = 0.0;
    if (up != DtVector64(0.0, 0.0, 1.0)) {
        const DtTaitBryan nedOri(DtDeg2Rad(rotation), 0.0, 0.0);
        const DtTaitBryan localOri = converter->nedToLocal(nedOri);
        DtEulerToQuaternionRad(localOri.psi(), localOri.theta(), localOri.phi(), x, y, z, w);
    } else {
        DtEulerToQuaternionDeg(rotation, 0.0, 0.0, x, y, z, w);
    }
    record.setOrientation(x, y, z, w);
    prop->setFromRecord(record);
    layer->addProp(prop.release());
    return true;
}

DtTdbPropAdderCreator::DtTdbPropAdderCreator(DtDe& de) : de_(de) {}

DtPropAdder* DtTdbPropAdderCreator::create(const std::string& filename,
                                           DtAgentManagerInterface& agentManager) {
    return new DtTdbPropAdder(de_, filename, agentManager);
}

}  // namespace kelZor
