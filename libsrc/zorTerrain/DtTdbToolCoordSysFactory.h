// The step from the scene's coordinate system to the terrain database's: a load into
// the scene needs the system in the loader's own classes.
//
//   std::unique_ptr<Coordinate_System> cs(DtTdbToolCoordSysFactory::create(scene));
//   manager.loadFor3DVisualization(file, cs.get(), &error);
#pragma once

#include "terrainCS/Coordinate_System.h"
#include "zorTerrain/zorTerrainExport.h"
#include "zorUtil/DtCoordinateSystem.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtTdbToolCoordSysFactory {
public:
    // A new object owned by the caller, never null: UTM, Lambert and flat-earth systems
    // become DtUtmCS, DtLambertConformalCS and DtFlatEarthCS with the converter's
    // values; geocentric, Cartesian and every other type the plain geocentric object.
    static Coordinate_System* create(const DtCoordinateSystem& system);
};

}  // namespace kelZor
