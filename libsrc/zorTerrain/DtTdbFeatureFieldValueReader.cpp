#include "zorTerrain/DtTdbFeatureFieldValueReader.h"

#include "hxutil/DtNotify.h"
#include "terrainDbFactory/DtTdbManager.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbSceneLoad.h"

namespace kelZor {

namespace {

void addNodeValues(const DtNetworkNode& node,
                   std::map<std::string, std::set<std::string>>& values) {
    const DtList attributes = node.attributes().attributeList();
    for (const DtListItem* item = attributes.first(); item; item = item->next()) {
        const auto* attribute = static_cast<const DtNetworkAttribute*>(item->data());
        if (!attribute)
            continue;
        std::string field = attribute->name().c_str();
        std::string text = DtTdbFeatureFieldValueReader::valueText(*attribute);
        const auto found = values.find(field);
        if (found != values.end())
            found->second.insert(std::move(text));
        else
            values.emplace(std::move(field), std::set<std::string>{std::move(text)});
    }
}

}  // namespace

DtTdbFeatureFieldValueReader::DtTdbFeatureFieldValueReader(DtDe& de)
    : DtFeatureFieldValueReader(de) {}

DtTdbFeatureFieldValueReader::~DtTdbFeatureFieldValueReader() = default;

std::string DtTdbFeatureFieldValueReader::valueText(const DtNetworkAttribute& attribute) {
    switch (attribute.type()) {
        case DtNetworkAttribute::String:
            return static_cast<DtString>(attribute.value()).stdString();
        case DtNetworkAttribute::Integer:
            return DtString(static_cast<int>(attribute.value())).stdString();
        case DtNetworkAttribute::Double:
            return DtString(static_cast<double>(attribute.value())).stdString();
        default:
            return std::string();
    }
}

bool DtTdbFeatureFieldValueReader::readValuesFromFile(
    const std::string& filename, std::map<std::string, std::set<std::string>>& values) const {
    const int savedNotifyLevel = DtNotifyLevel;
    DtNotifyLevel = 0;
    DtTdbManager manager;
    if (!loadIntoScene(de_, manager, filename, true, savedNotifyLevel, __PRETTY_FUNCTION__,
                       "DtTdbFeatureFieldValueReader::getFeatureFieldValuePairs - "
                       "loadFor3DVisualization Error: "))
        return false;
    // An elevation source loads without a network: it has no points to list.
    if (const DtVectorNetwork* network = manager.terrainDatabase()->vectorNetwork()) {
        const int nodes = network->numNodes();
        for (int i = 0; i < nodes; ++i) {
            const DtNetworkNode* node = network->node(i);
            if (node && node->connectedEdges().empty())
                addNodeValues(*node, values);
        }
    }
    DtNotifyLevel = savedNotifyLevel;
    return true;
}

}  // namespace kelZor
