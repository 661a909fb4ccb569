#include "zorTerrain/DtTdbSceneLoad.h"

#include "hxutil/DtFilename.h"
#include "hxutil/DtNotify.h"
#include "zorCore/DtDe.h"
#include "zorTerrain/DtTdbToolCoordSysFactory.h"
#include "zorUtil/templateUtil.h"

namespace kelZor {

bool loadIntoScene(DtDe& de, DtTdbManager& manager, const std::string& filename, bool notifyUser,
                   int savedNotifyLevel, const char* signature, const std::string& warning) {
    const DtFilename file(filename.c_str());
    DtString error;
    Coordinate_System* system =
        DtTdbToolCoordSysFactory::create(de.sharedState().coordinateSystem());
    if (manager.loadFor3DVisualization(file, system, &error))
        return true;
    DtDeError report(DtDeError::FileNotLoaded);
    report << filename;
    de.reportError(report, notifyUser);
    DtNotifyLevel = savedNotifyLevel;
    writeWarning(de.log().out(DtDebugLog::Warning), signature, warning + error.stdString());
    delete system;
    return false;
}

}  // namespace kelZor
