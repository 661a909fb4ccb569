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
    DtCoordinateSystem(DtCoordinateSystem&& other) noexcept = default;
    DtCoordinateSystem& operator=(DtCoordinateSystem&& other) noexcept = default;
    virtual ~DtCoordinateSystem();

    const std::string& type() const { return type_; }
    DtCoordinateConverter* converter() const { return converter_.get(); }
    // The converter of that kind, null when the type differs.
    const DtUtmCoordinateConverter* utmConverter() const;
    const DtLambertCoordinateConverter* lambertConverter() const;
    const DtFlatEarthCoordinateConverter* flatEarthConverter() const;

private:
    std::string type_;
    std::unique_ptr<DtCoordinateConverter> converter_;
};

}  // namespace kelZor
