#include "zorTerrain/DtTdbSceneLoad.h"

#include <memory>

#include "hxutil/DtFilename.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbToolCoordSysFactory.h"
#include "zorUtil/templateUtil.h"

namespace kelZor {

void reportNotLoaded(DtDe& de, const std::string& filename, bool notifyUser, DtQuietLoader& quiet,
                     const char* signature, const std::string& warning, const std::string& error) {
    DtDeError report(DtDeError::FileNotLoaded);
    report << filename;
    de.reportError(report, notifyUser);
    quiet.restore();
    writeWarning(de.log().out(DtDebugLog::Warning), signature, warning + error);
}

bool loadIntoScene(DtDe& de, DtTdbManager& manager, const std::string& filename, bool notifyUser,
                   DtQuietLoader& quiet, const char* signature, const std::string& warning) {
    const DtFilename file(filename.c_str());
    DtString error;
    // Owned here until a load that works hands it to its database.
    std::unique_ptr<Coordinate_System> system(
        DtTdbToolCoordSysFactory::create(de.sharedState().coordinateSystem()));
    if (manager.loadFor3DVisualization(file, system.get(), &error)) {
        system.release();
        return true;
    }
    reportNotLoaded(de, filename, notifyUser, quiet, signature, warning, error.stdString());
    return false;
}

}  // namespace kelZor
