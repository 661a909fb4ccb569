// DtCoordinateSystem: the scene's coordinate system, a type constant and the converter
// that goes with it. Built from a type constant and a converter's stringRep():
//
//   DtCoordinateSystem cs(DtCoordinateConverter::UTM, parser->terrainCoordinateSystemParameters());
//   cs.utmConverter()->cigToGeoc(cig, geoc);
#pragma once

#include <memory>
#include <string>

#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

class DtCoordinateSystem {
public:
    // Geocentric.
    DtCoordinateSystem();
    // Throws DtTemplatedException<-1> for an unknown type or malformed parameters.
    DtCoordinateSystem(const std::string& type, const std::string& parameters);
    explicit DtCoordinateSystem(std::unique_ptr<DtCoordinateConverter> converter);
    // A copy rebuilds the converter from its text; a move keeps the very converter.
    DtCoordinateSystem(const DtCoordinateSystem& other);
    DtCoordinateSystem& operator=(const DtCoordinateSystem& other);
    DtCoordinateSystem(DtCoordinateSystem&& other) noexcept;
    DtCoordinateSystem& operator=(DtCoordinateSystem&& other) noexcept;
    virtual ~DtCoordinateSystem();

    const std::string& type() const { return type_; }
    DtCoordinateConverter* converter() const { return converter_.get(); }
    // The converter of that kind, null when the type differs.
    const DtUtmCoordinateConverter* utmConverter() const;
    const DtLambertCoordinateConverter* lambertConverter() const;
    const DtFlatEarthCoordinateConverter* flatEarthConverter() const;

    // The height of the false origin of the live UTM systems whose frame is this zone and
    // hemisphere less this easting and northing (to a millimetre), when they agree on one.
    // The terrain database is told a scene's frame by its zone and the place of its (0, 0)
    // alone; its loads take the frame's height from here, so that features stand in the
    // same frame as what the scene's converter places. Not for the plug-in.
    static bool falseOriginHeight(int zone, char hemisphere, double easting, double northing,
                                  double& height);

private:
    void enrol();
    void leave();
    std::string type_;
    std::unique_ptr<DtCoordinateConverter> converter_;
};

}  // namespace kelZor
