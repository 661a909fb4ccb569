#include "zorCore/DtTerrain.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "hxutil/DtNotify.h"

namespace kelZor {

DtTerrain::DtTerrain() : cache_(std::make_shared<DtPostCache>()) {}

void DtTerrain::removeElevationSources() {
    sources_.clear();
    const std::lock_guard<std::mutex> lock(shiftsMutex_);
    shifts_ = PlaneShifts();
}
DtTerrain::~DtTerrain() = default;

bool DtTerrain::addElevationSource(const std::string& path, std::string& error) {
    std::unique_ptr<DtElevationSource> source = DtElevationSource::read(path, error, cache_);
    if (!source)
        return false;
    if (!source->note().empty())
        DtWarn << source->note() << std::endl;
    sources_.push_back(std::move(source));
    return true;
}

std::string DtTerrain::generatePropName(const std::string& propType) {
    const std::string type = propType.empty() ? "prop" : propType;
    return type + "_" + std::to_string(++propCounts_[type]);
}

bool DtTerrain::groundHeight(double lonDeg, double latDeg, double& height) const {
    if (sources_.empty()) {
        height = 0.0;
        return true;
    }
    for (const auto& source : sources_) {
        if (source->heightAt(lonDeg, latDeg, height))
            return true;
    }
    return heightAcrossSources(lonDeg, latDeg, height);
}

// Between the outermost posts of one source and the first of another that abuts it (a
// tile's margin), or beside a hole another source fills: the four posts around the
// place, each from the first source that has a post exactly there.
bool DtTerrain::heightAcrossSources(double lonDeg, double latDeg, double& height) const {
    for (size_t i = 0; i < sources_.size(); ++i) {
        DtElevationSource::Corner corners[4];
        if (!sources_[i]->cornersAround(lonDeg, latDeg, corners))
            continue;
        double sum = 0.0;
        bool complete = true;
        for (const DtElevationSource::Corner& corner : corners) {
            if (corner.weight == 0.0)
                continue;
            double post = corner.height;
            bool found = corner.known;
            for (size_t j = 0; j < sources_.size() && !found; ++j)
                found = j != i && sources_[j]->heightOfPostAt(corner.lonDeg, corner.latDeg, post);
            if (!found) {
                complete = false;
                break;
            }
            sum += corner.weight * post;
        }
        if (complete) {
            height = sum;
            return true;
        }
    }
    return false;
}

bool DtTerrain::clampToTerrain(double x, double y, double z, double upX, double upY, double upZ,
                               double& outX, double& outY, double& outZ) const {
    const DtCoordinateConverter* converter = system_ ? system_->converter() : nullptr;
    const double upLength = std::sqrt(upX * upX + upY * upY + upZ * upZ);
    if (!converter || !(upLength > 0.0) || !std::isfinite(upLength) || !std::isfinite(x) ||
        !std::isfinite(y) || !std::isfinite(z))
        return false;
    const DtVector64 up(upX / upLength, upY / upLength, upZ / upLength);
    try {
        const auto* utm = dynamic_cast<const DtUtmCoordinateConverter*>(converter);
        if (utm && up == DtVector64(0.0, 0.0, 1.0) && !sources_.empty()) {
            double ground = 0.0;
            const Clamp clamp = clampInSourcePlanes(*utm, DtVector64(x, y, z), ground);
            if (clamp == Clamp::Placed) {
                outX = x, outY = y, outZ = ground;
                return true;
            }
            if (clamp == Clamp::NotCovered)
                return false;
        }
        return clampAlong(*converter, DtVector64(x, y, z), up, outX, outY, outZ);
    } catch (const std::exception&) {
        return false;  // the scene's converter cannot place the position
    }
}

bool DtTerrain::clampAlong(const DtCoordinateConverter& converter, const DtVector64& start,
                           const DtVector64& up, double& outX, double& outY, double& outZ) const {
    const double x = start.x(), y = start.y(), z = start.z();
    // Slide along `up` until the point's height is the ground's there. Up is the
    // vertical (or within a fraction of a degree of it), so each step is nearly exact;
    // straight up in a map projection only the height changes, so the first is.
    const bool oneStep = converter.zIsHeight() && up == DtVector64(0.0, 0.0, 1.0);
    double along = 0.0;
    DtVector64 point(x, y, z);
    for (int step = 0; step < 8; ++step) {
        point = DtVector64(x + along * up.x(), y + along * up.y(), z + along * up.z());
        double lat, lon, height, ground = 0.0;
        converter.cigToGeodetic(point, lat, lon, height);
        if (!groundHeight(lon, lat, ground))
            return false;
        const double miss = ground - height;
        if (!std::isfinite(miss))
            return false;
        along += miss;
        if (oneStep || std::abs(miss) < 1e-6)
            break;
    }
    point = DtVector64(x + along * up.x(), y + along * up.y(), z + along * up.z());
    outX = point.x();
    outY = point.y();
    outZ = point.z();
    return true;
}

// Straight down in a UTM scene over DEMs in its own zone: the posts are reached by a
// shift of the scene's easting and northing, without the projection's round trip. Any
// other source is asked by latitude and longitude, in its turn.
DtTerrain::Clamp DtTerrain::clampInSourcePlanes(const DtUtmCoordinateConverter& utm,
                                                const DtVector64& start, double& outZ) const {
    const std::vector<std::optional<std::pair<double, double>>> shifts = planeShifts(utm);
    double falseX, falseY, falseZ;
    const double heightOffset = utm.falseOrigin(falseX, falseY, falseZ) ? falseZ : 0.0;
    bool located = false;
    double lat = 0.0, lon = 0.0, height = 0.0, ground = 0.0;
    auto locate = [&] {
        if (!located)
            utm.cigToGeodetic(start, lat, lon, height);
        located = true;
    };
    for (size_t i = 0; i < sources_.size(); ++i) {
        if (!shifts[i]) {
            locate();
            if (sources_[i]->heightAt(lon, lat, ground))
                break;
        } else if (sources_[i]->heightAtSourcePlace(start.x() + shifts[i]->first,
                                                    start.y() + shifts[i]->second, ground)) {
            break;
        }
        if (i + 1 == sources_.size()) {
            locate();
            if (!heightAcrossSources(lon, lat, ground))
                return Clamp::NotCovered;
        }
    }
    outZ = ground - heightOffset;
    return std::isfinite(outZ) ? Clamp::Placed : Clamp::NotCovered;
}

std::vector<std::optional<std::pair<double, double>>> DtTerrain::planeShifts(
    const DtUtmCoordinateConverter& utm) const {
    double falseOrigin[3];
    const bool applied = utm.falseOrigin(falseOrigin[0], falseOrigin[1], falseOrigin[2]);
    const std::lock_guard<std::mutex> lock(shiftsMutex_);
    PlaneShifts& known = shifts_;
    if (!known.known || known.zone != utm.effectiveZone() || known.hemisphere != utm.hemisphere() ||
        known.applied != applied || !std::equal(falseOrigin, falseOrigin + 3, known.falseOrigin) ||
        known.shifts.size() != sources_.size()) {
        known.known = true;
        known.zone = utm.effectiveZone();
        known.hemisphere = utm.hemisphere();
        known.applied = applied;
        std::copy(falseOrigin, falseOrigin + 3, known.falseOrigin);
        known.shifts.clear();
        for (const auto& source : sources_) {
            double dx = 0.0, dy = 0.0;
            if (source->sceneShift(utm, dx, dy))
                known.shifts.emplace_back(std::make_pair(dx, dy));
            else
                known.shifts.emplace_back(std::nullopt);
        }
    }
    return known.shifts;
}

}  // namespace kelZor
