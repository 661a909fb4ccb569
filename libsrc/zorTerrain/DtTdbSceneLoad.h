// What the feature adder, the field value reader, the prop adder and the toolkit parser
// share when they use the terrain database loader.
//
// DtQuietLoader keeps the engine's libraries quiet (DtNotifyLevel 0) for its scope and
// gives the level back on every path, exceptions included; restore() gives it back
// early, where a warning must come after it.
//
// loadIntoScene loads a vector source into the scene: the loader gets a system made from
// the scene's (its database keeps it when the load works). A failure is reported to the
// engine with code 6 and the file name, the level is given back, the two-line warning is
// written from `signature`, and the system deleted.
//
//   DtQuietLoader quiet;
//   DtTdbManager manager;
//   if (!loadIntoScene(de_, manager, file, true, quiet, __PRETTY_FUNCTION__, "... Error: "))
//       return false;
//
// Internal to the plug-in; not installed.
#pragma once

#include <string>

#include "hxutil/DtNotify.h"
#include "terrainDbFactory/DtTdbManager.h"

namespace kelZor {

class DtDe;

class DtQuietLoader {
public:
    DtQuietLoader() : saved_(DtNotifyLevel) { DtNotifyLevel = 0; }
    ~DtQuietLoader() { restore(); }
    DtQuietLoader(const DtQuietLoader&) = delete;
    DtQuietLoader& operator=(const DtQuietLoader&) = delete;

    void restore() { DtNotifyLevel = saved_; }

private:
    const int saved_;
};

bool loadIntoScene(DtDe& de, DtTdbManager& manager, const std::string& filename, bool notifyUser,
                   DtQuietLoader& quiet, const char* signature, const std::string& warning);

// The report of a file that gave nothing to walk: code 6 with the file name, the level
// given back, then the two-line warning of `warning` and the load's `error` text.
void reportNotLoaded(DtDe& de, const std::string& filename, bool notifyUser, DtQuietLoader& quiet,
                     const char* signature, const std::string& warning, const std::string& error);

}  // namespace kelZor
