// The scene's terrain: it names props, counts the batches added, and clamps positions
// to the ground of the elevation sources it was given (DTED cells, GeoTIFF DEMs, read
// once with GDAL and kept in memory).
//
//   terrain.addElevationSource("n45_e009.dt1", error);
//   double x, y, z;
//   if (terrain.clampToTerrain(px, py, pz, up.x(), up.y(), up.z(), x, y, z)) ...
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zorUtil/DtCoordinateSystem.h"

namespace kelZor {

// One elevation raster: heights of its first band as the source gives them, where it
// lies, and how WGS84 longitude/latitude reach its pixels.
class DtElevationSource {
public:
    // Null with the reason in `error` when GDAL cannot read the file as an elevation
    // raster with a georeference.
    static std::unique_ptr<DtElevationSource> read(const std::string& path, std::string& error);
    ~DtElevationSource();

    // The height at a WGS84 position by bilinear interpolation between the four posts
    // around it; false outside the raster or next to a no-data post.
    bool heightAt(double lonDeg, double latDeg, double& height) const;
    const std::string& path() const { return path_; }

private:
    DtElevationSource() = default;
    struct Georeference;
    std::string path_;
    int width_ = 0;
    int height_ = 0;
    std::vector<float> posts_;
    bool hasNoData_ = false;
    double noData_ = 0.0;
    std::unique_ptr<Georeference> georeference_;
};

class DtTerrain {
public:
    DtTerrain();
    virtual ~DtTerrain();
    DtTerrain(const DtTerrain&) = delete;
    DtTerrain& operator=(const DtTerrain&) = delete;

    // The scene's system, which positions are given in; set by the engine.
    void setCoordinateSystem(const DtCoordinateSystem* system) { system_ = system; }
    // Adds a source; the first added that covers a position answers for it.
    bool addElevationSource(const std::string& path, std::string& error);
    size_t numElevationSources() const { return sources_.size(); }

    // "<type>_<n>", n counting from 1 per type ("prop" for an empty type).
    virtual std::string generatePropName(const std::string& propType);
    // Told once after each batch of props.
    virtual void propsAdded() { ++propsAddedCalls_; }
    int propsAddedCalls() const { return propsAddedCalls_; }

    // The point of the ground reached from (x, y, z) along (upX, upY, upZ), all in the
    // scene: the height comes from the first source that covers the position, or is 0
    // (the ellipsoid) when there is no source at all. False, writing nothing, when the
    // sources cover no such point or the input is not a position.
    virtual bool clampToTerrain(double x, double y, double z, double upX, double upY, double upZ,
                                double& outX, double& outY, double& outZ) const;

private:
    bool groundHeight(double lonDeg, double latDeg, double& height) const;

    const DtCoordinateSystem* system_ = nullptr;
    std::vector<std::unique_ptr<DtElevationSource>> sources_;
    std::map<std::string, int> propCounts_;
    int propsAddedCalls_ = 0;
};

}  // namespace kelZor
