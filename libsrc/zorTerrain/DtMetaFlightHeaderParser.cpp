#include "zorTerrain/DtMetaFlightHeaderParser.h"

#include <boost/pointer_cast.hpp>

#include <memory>

#include "matrix/DtAngles.h"
#include "zorTerrain/DtMetaFlightDescription.h"
#include "zorTerrain/DtMetaFlightParser.h"
#include "zorTerrain/DtStandardPatchRecord.h"
#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

using Types = DtMetaFlightTypes;

namespace {

// The converter a document is answered with: set up without a false origin when all three
// are zero. (The description's conversions always give the false origin, zero or not:
// DtMetaFlightDescription.cpp.)
std::unique_ptr<DtCoordinateConverter> answeredUtmConverter(
    const Types::ProjectedCoordSys& system) {
    const char hemisphere = system.uTM->hemisphere.value == Types::Hemisphere::NORTH ? 'N' : 'S';
    const long zone = static_cast<long>(system.uTM->zone);
    auto utm = std::make_unique<DtUtmCoordinateConverter>();
    if (system.falseOriginX == 0.0 && system.falseOriginY == 0.0 && system.falseOriginZ == 0.0) {
        utm->init(zone, hemisphere, true);
    } else {
        utm->init(system.falseOriginX, system.falseOriginY, system.falseOriginZ, zone, hemisphere,
                  true);
    }
    return utm;
}

enum class Selection { Converter, Refused, NoSystem };

// The converter for a data coordinate system, by its kind.
Selection selectConverter(const boost::shared_ptr<Types::CoordSysType>& system,
                          std::unique_ptr<DtCoordinateConverter>& converter, const char*& type) {
    if (auto projected = boost::dynamic_pointer_cast<Types::ProjectedCoordSys>(system)) {
        if (projected->uTM) {
            type = DtCoordinateConverter::UTM;
            converter = answeredUtmConverter(*projected);
        } else if (projected->flatEarth) {
            type = DtCoordinateConverter::FlatEarth;
            auto flat = std::make_unique<DtFlatEarthCoordinateConverter>();
            flat->init(DtDeg2Rad(projected->flatEarth->originLatitude),
                       DtDeg2Rad(projected->flatEarth->originLongitude));
            converter = std::move(flat);
        } else {
            return Selection::Refused;
        }
        return Selection::Converter;
    }
    if (auto nonProjected = boost::dynamic_pointer_cast<Types::NonProjectedCoordSys>(system)) {
        if (nonProjected->geoType.value != Types::GeoType::GEOCENTRIC)
            return Selection::Refused;
        type = DtCoordinateConverter::Geocentric;
        converter = std::make_unique<DtGeocentricCoordinateConverter>();
        return Selection::Converter;
    }
    return Selection::NoSystem;
}

}  // namespace

DtMetaFlightHeaderParser::DtMetaFlightHeaderParser(const std::string& filePath)
    : DtHeaderParser(filePath) {}

bool DtMetaFlightHeaderParser::isValid() {
    DtMetaFlightDescription description;
    DtMetaFlightParser parser;
    std::string errorMessage;
    if (!parser.openFile(filePath_, "", errorMessage))
        return false;
    description.parse(parser);
    if (description.numberOfGeometryDatasets() >= 2)
        return false;
    if (description.numberOfVirtualTextureDatasets() >= 2)
        return false;
    const std::string& name = description.geometryDatasetName(0);
    if (description.geometryDatasetFileFormat(name) != "medf")
        return false;

    std::unique_ptr<DtCoordinateConverter> converter;
    const char* type = nullptr;
    switch (
        selectConverter(description.geometryDatasetDataCoordinateSystem(name), converter, type)) {
        case Selection::Refused:
            return false;
        case Selection::Converter:
            terrainCoordinateSystem_ = type;
            terrainCoordinateSystemParameters_ = converter->stringRep();
            break;
        case Selection::NoSystem:
            break;
    }
    appendStandardPatchRecord(terrainPatchRecords_, filePath_, terrainCoordinateSystem_,
                              terrainCoordinateSystemParameters_);
    return true;
}

DtHeaderParser* DtMetaFlightHeaderParserCreator::create(DtDe&, const std::string& filePath) const {
    return new DtMetaFlightHeaderParser(filePath);
}

}  // namespace kelZor
