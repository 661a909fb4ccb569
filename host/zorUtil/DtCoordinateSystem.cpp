#include "zorUtil/DtCoordinateSystem.h"

#include <cmath>
#include <mutex>
#include <set>

namespace kelZor {

namespace {

std::mutex& liveMutex() {
    static std::mutex mutex;
    return mutex;
}

std::set<const DtCoordinateSystem*>& liveSystems() {
    static std::set<const DtCoordinateSystem*> systems;
    return systems;
}

}  // namespace

void DtCoordinateSystem::enrol() {
    const std::lock_guard<std::mutex> lock(liveMutex());
    liveSystems().insert(this);
}

void DtCoordinateSystem::leave() {
    const std::lock_guard<std::mutex> lock(liveMutex());
    liveSystems().erase(this);
}

bool DtCoordinateSystem::falseOriginHeight(int zone, char hemisphere, double easting,
                                           double northing, double& height) {
    const std::lock_guard<std::mutex> lock(liveMutex());
    bool found = false;
    for (const DtCoordinateSystem* system : liveSystems()) {
        const DtUtmCoordinateConverter* utm = system->utmConverter();
        double x = 0.0, y = 0.0, z = 0.0;
        if (!utm || !utm->falseOrigin(x, y, z) || utm->effectiveZone() != zone ||
            utm->hemisphere() != hemisphere || std::abs(x - easting) > 1e-3 ||
            std::abs(y - northing) > 1e-3)
            continue;
        if (found && z != height)
            return false;  // two scenes of one frame at two heights: neither is taken
        height = z;
        found = true;
    }
    return found;
}

DtCoordinateSystem::DtCoordinateSystem()
    : DtCoordinateSystem(std::make_unique<DtGeocentricCoordinateConverter>()) {}

DtCoordinateSystem::DtCoordinateSystem(const std::string& type, const std::string& parameters)
    : DtCoordinateSystem(DtCoordinateConverter::create(type, parameters)) {}

DtCoordinateSystem::DtCoordinateSystem(std::unique_ptr<DtCoordinateConverter> converter)
    : type_(converter->type()), converter_(std::move(converter)) {
    enrol();
}

DtCoordinateSystem::DtCoordinateSystem(const DtCoordinateSystem& other)
    : DtCoordinateSystem(other.type_, other.converter_->stringRep()) {}

DtCoordinateSystem::DtCoordinateSystem(DtCoordinateSystem&& other) noexcept
    : type_(std::move(other.type_)), converter_(std::move(other.converter_)) {
    enrol();
}

DtCoordinateSystem& DtCoordinateSystem::operator=(DtCoordinateSystem&& other) noexcept {
    type_.swap(other.type_);
    converter_.swap(other.converter_);
    return *this;
}

DtCoordinateSystem& DtCoordinateSystem::operator=(const DtCoordinateSystem& other) {
    if (this != &other) {
        DtCoordinateSystem copy(other);
        type_.swap(copy.type_);
        converter_.swap(copy.converter_);
    }
    return *this;
}

DtCoordinateSystem::~DtCoordinateSystem() {
    leave();
}

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
