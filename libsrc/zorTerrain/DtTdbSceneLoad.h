// A vector source loaded into the scene for one walk, as the field value reader and the
// prop adder do it: the loader gets a system made from the scene's (its database keeps
// it when the load works); a failure is reported to the engine with code 6 and the file
// name, DtNotifyLevel is set back, the two-line warning is written from `signature` and
// the system deleted.
//
//   DtTdbManager manager;
//   if (!loadIntoScene(de_, manager, file, true, saved, __PRETTY_FUNCTION__, "... Error: "))
//       return false;
#pragma once

#include <string>

#include "terrainDbFactory/DtTdbManager.h"

namespace kelZor {

class DtDe;

bool loadIntoScene(DtDe& de, DtTdbManager& manager, const std::string& filename, bool notifyUser,
                   int savedNotifyLevel, const char* signature, const std::string& warning);

}  // namespace kelZor
