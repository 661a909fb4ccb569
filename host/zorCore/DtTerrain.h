// The scene's terrain: it names props, counts the batches added, and clamps positions
// to the ground of the elevation sources it was given (DTED cells, GeoTIFF DEMs, any
// raster GDAL reads), which make one surface: heights are interpolated across the seam
// of abutting sources whose posts line up, the first source listed answers where they
// overlap, and a place no source has posts around is not covered.
//
//   terrain.addElevationSource("n45_e009.dt1", error);
//   double x, y, z;
//   if (terrain.clampToTerrain(px, py, pz, up.x(), up.y(), up.z(), x, y, z)) ...
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "zorCore/DtElevationSource.h"
#include "zorUtil/DtCoordinateSystem.h"

namespace kelZor {

class DtTerrain {
public:
    DtTerrain();
    virtual ~DtTerrain();
    DtTerrain(const DtTerrain&) = delete;
    DtTerrain& operator=(const DtTerrain&) = delete;

    // The scene's system, which positions are given in; set by the engine.
    void setCoordinateSystem(const DtCoordinateSystem* system) { system_ = system; }
    // Adds a source; the first added that covers a position answers for it. What a user
    // should know of its heights (a vertical datum without its grid) goes to DtWarn.
    bool addElevationSource(const std::string& path, std::string& error);
    size_t numElevationSources() const { return sources_.size(); }
    // Forgets every source (a host that answers one request after another on one engine).
    void removeElevationSources();
    const DtElevationSource& elevationSource(size_t i) const { return *sources_.at(i); }
    // The posts the sources have read and keep, in bytes; bounded whatever their size.
    size_t elevationBytesHeld() const { return cache_->bytesHeld(); }

    // The ground's height above the WGS84 ellipsoid at a WGS84 position; 0 (the
    // ellipsoid) when the terrain has no source, false where its sources do not cover.
    bool groundHeight(double lonDeg, double latDeg, double& height) const;

    // "<type>_<n>", n counting from 1 per type ("prop" for an empty type).
    virtual std::string generatePropName(const std::string& propType);
    // Told once after each batch of props.
    virtual void propsAdded() { ++propsAddedCalls_; }
    int propsAddedCalls() const { return propsAddedCalls_; }

    // The point of the ground reached from (x, y, z) along (upX, upY, upZ), all in the
    // scene: the height comes from the first source that covers the position, or is 0
    // (the ellipsoid) when there is no source at all. False, writing nothing, when the
    // sources cover no such point, the input is not a position or the scene's converter
    // cannot place it; it never throws.
    virtual bool clampToTerrain(double x, double y, double z, double upX, double upY, double upZ,
                                double& outX, double& outY, double& outZ) const;

private:
    // A UTM scene and the shifts that take its plane to each source's own, where that is
    // the same projection (nullopt where it is not).
    struct PlaneShifts {
        bool known = false;
        int zone = 0;
        char hemisphere = 'N';
        double falseOrigin[3] = {0.0, 0.0, 0.0};
        bool applied = false;
        std::vector<std::optional<std::pair<double, double>>> shifts;
    };
    enum class Clamp { NotStraight, Placed, NotCovered };

    bool heightAcrossSources(double lonDeg, double latDeg, double& height) const;
    bool clampAlong(const DtCoordinateConverter& converter, const DtVector64& start,
                    const DtVector64& up, double& outX, double& outY, double& outZ) const;
    Clamp clampInSourcePlanes(const DtUtmCoordinateConverter& utm, const DtVector64& start,
                              double& outZ) const;
    std::vector<std::optional<std::pair<double, double>>> planeShifts(
        const DtUtmCoordinateConverter& utm) const;

    const DtCoordinateSystem* system_ = nullptr;
    std::shared_ptr<DtPostCache> cache_;
    std::vector<std::unique_ptr<DtElevationSource>> sources_;
    mutable std::mutex shiftsMutex_;
    mutable PlaneShifts shifts_;
    std::map<std::string, int> propCounts_;
    int propsAddedCalls_ = 0;
};

}  // namespace kelZor
