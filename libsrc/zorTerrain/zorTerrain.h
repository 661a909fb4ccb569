// The plug-in's entry. The engine loads libzorTerrain.so and calls init once per DtDe;
// init registers the plug-in's header parsers, adders and readers with that DtDe's
// registries. A second call with the same DtDe does nothing.
#pragma once

#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {
class DtDe;
namespace zorTerrain {

ZOR_TERRAIN_EXPORT void init(DtDe& de);

}  // namespace zorTerrain
}  // namespace kelZor
