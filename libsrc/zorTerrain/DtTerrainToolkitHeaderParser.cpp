#include "zorTerrain/DtTerrainToolkitHeaderParser.h"

#include <memory>

#include "hxutil/DtFilename.h"
#include "terrainCS/Coordinate_System.h"
#include "terrainDbFactory/DtTdbManager.h"
#include "zorTerrain/DtStandardPatchRecord.h"
#include "zorTerrain/DtTdbSceneLoad.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

namespace {

bool isDtedExtension(const DtFilename& file) {
    const DtString extension = file.extension().toLower();
    return extension == "dt0" || extension == "dt1" || extension == "dt2";
}

// The text in front of the second comma; all of it when it has fewer.
std::string beforeSecondComma(const std::string& text) {
    const size_t first = text.find(',');
    const size_t second = first == std::string::npos ? first : text.find(',', first + 1);
    return text.substr(0, second);
}

}  // namespace

DtTerrainToolkitHeaderParser::DtTerrainToolkitHeaderParser(const std::string& filePath)
    : DtHeaderParser(filePath) {}

bool DtTerrainToolkitHeaderParser::isValid() {
    DtQuietLoader quiet;
    DtTdbManager manager;
    const DtFilename filename(filePath_);
    std::unique_ptr<Coordinate_System> system(
        manager.coordinateSystemFrom(filename, DtFilename::nullFilename(), nullptr));
    if (!system)
        return false;
    terrainCoordinateSystem_ = system->typeName().stdString();
    switch (system->kind()) {
        case Coordinate_System::Lambert:
            if (const auto* lambert = dynamic_cast<const DtLambertConformalCS*>(system.get())) {
                terrainCoordinateSystem_ = DtCoordinateConverter::Lambert;
                const DtDegMinSec parallel1 =
                    DtCoordinateConverter::convertToDmsLat(DtRad2Deg(lambert->parallel1()));
                const DtDegMinSec parallel2 =
                    DtCoordinateConverter::convertToDmsLat(DtRad2Deg(lambert->parallel2()));
                DtLambertCoordinateConverter converter;
                converter.init(lambert->originLatitude(), lambert->originLongitude(), parallel1,
                               parallel2);
                terrainCoordinateSystemParameters_ = converter.stringRep();
            }
            break;
        case Coordinate_System::Utm:
            if (const auto* utm = dynamic_cast<const DtUtmCS*>(system.get())) {
                DtUtmCoordinateConverter converter;
                converter.init(utm->originLatitude(), utm->originLongitude(), utm->zone(), 0);
                terrainCoordinateSystemParameters_ = converter.stringRep();
                if (isDtedExtension(filename)) {
                    terrainCoordinateSystem_ = "Flat Earth";
                    terrainCoordinateSystemParameters_ =
                        beforeSecondComma(terrainCoordinateSystemParameters_);
                }
            }
            break;
        case Coordinate_System::Geocentric:
            terrainCoordinateSystem_ = DtCoordinateConverter::Geocentric;
            terrainCoordinateSystemParameters_ = DtGeocentricCoordinateConverter().stringRep();
            break;
        case Coordinate_System::FlatEarth: {
            terrainCoordinateSystem_ = DtCoordinateConverter::FlatEarth;
            DtFlatEarthCoordinateConverter converter;
            converter.init(system->originLatitude(), system->originLongitude());
            terrainCoordinateSystemParameters_ = converter.stringRep();
            break;
        }
        default:
            break;
    }
    system.reset();
    quiet.restore();
    appendStandardPatchRecord(terrainPatchRecords_, filePath_, terrainCoordinateSystem_,
                              terrainCoordinateSystemParameters_);
    return true;
}

DtHeaderParser* DtTerrainToolkitHeaderParserCreator::create(DtDe&,
                                                            const std::string& filePath) const {
    return new DtTerrainToolkitHeaderParser(filePath);
}

}  // namespace kelZor
