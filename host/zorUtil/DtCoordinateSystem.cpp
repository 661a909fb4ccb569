#include "zorUtil/DtCoordinateSystem.h"

namespace kelZor {

DtCoordinateSystem::DtCoordinateSystem()
    : DtCoordinateSystem(std::make_unique<DtGeocentricCoordinateConverter>()) {}

DtCoordinateSystem::DtCoordinateSystem(const std::string& type, const std::string& parameters)
    : DtCoordinateSystem(DtCoordinateConverter::create(type, parameters)) {}

DtCoordinateSystem::DtCoordinateSystem(std::unique_ptr<DtCoordinateConverter> converter)
    : type_(converter->type()), converter_(std::move(converter)) {}

DtCoordinateSystem::DtCoordinateSystem(const DtCoordinateSystem& other)
    : DtCoordinateSystem(other.type_, other.converter_->stringRep()) {}

DtCoordinateSystem& DtCoordinateSystem::operator=(const DtCoordinateSystem& other) {
    if (this != &other) {
        DtCoordinateSystem copy(other);
        type_.swap(copy.type_);
        converter_.swap(copy.converter_);
    }
    return *this;
}

DtCoordinateSystem::~DtCoordinateSystem() = default;

const DtUtmCoordinateConverter* DtCoordinateSystem::utmConverter() const {
    return dynamic_cast<const DtUtmCoordinateConverter*>(converter_.get());
}

const DtLambertCoordinateConverter* DtCoordinateSystem::lambertConverter() const {
    return dynamic_cast<const DtLambertCoordinateConverter*>(converter_.get());
}

const DtFlatEarthCoordinateConverter* DtCoordinateSystem::flatEarthConverter() const {
    return dynamic_cast<const DtFlatEarthCoordinateConverter*>(converter_.get());
}

}  // namespace kelZor
