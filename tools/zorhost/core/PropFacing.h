// Where a placed prop stands and which way it faces, read from its record as the engine
// will show it: the model's forward axis (its y) turned by the prop's orientation.
#pragma once

#include "kelArchives/DtPropRecord.h"
#include "matrix/DtVector64.h"
#include "zorUtil/DtCoordinateSystem.h"

// A prop the terrain could not place is left at the origin, as the engine leaves it.
bool propPlaced(const kelArchives::DtPropRecord& record);

DtVector64 propPosition(const kelArchives::DtPropRecord& record);
// The model's forward axis in the scene, a unit vector.
DtVector64 propForward(const kelArchives::DtPropRecord& record);

// The heading the prop faces, in degrees from 0 to 360 from north towards east: grid
// north in a map projection; in a geocentric or flat-earth scene north of GeographicLib's
// local frame at its position.
double propHeadingDegrees(const kelZor::DtCoordinateSystem& scene,
                          const kelArchives::DtPropRecord& record);
