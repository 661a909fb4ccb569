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

class GDALRasterBand;

namespace kelZor {

// One elevation raster: heights of its first band in metres (its scale and offset
// applied), where it lies, and how WGS84 longitude/latitude reach its pixels. Posts GDAL's
// mask calls invalid (no-data of any data type, NaN) hold none.
class DtElevationSource {
public:
    // Null with the reason in `error` when GDAL cannot read the file as an elevation
    // raster with a georeference.
    static std::unique_ptr<DtElevationSource> read(const std::string& path, std::string& error);
    ~DtElevationSource();

    // The height at a WGS84 position by bilinear interpolation between the four posts
    // around it; false outside the raster or next to a post without a height. A
    // geographic raster answers for a longitude in either convention (-180..180, 0..360).
    bool heightAt(double lonDeg, double latDeg, double& height) const;
    const std::string& path() const { return path_; }

private:
    DtElevationSource() = default;
    struct Georeference;
    bool readPosts(GDALRasterBand& band, std::string& error);
    bool toPixel(double lonDeg, double latDeg, double& column, double& row) const;

    std::string path_;
    int width_ = 0;
    int height_ = 0;
    std::vector<float> posts_;  // NaN: no height
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
    // sources cover no such point, the input is not a position or the scene's converter
    // cannot place it; it never throws.
    virtual bool clampToTerrain(double x, double y, double z, double upX, double upY, double upZ,
                                double& outX, double& outY, double& outZ) const;

private:
    bool groundHeight(double lonDeg, double latDeg, double& height) const;
    bool clampAlong(const DtCoordinateConverter& converter, const DtVector64& start,
                    const DtVector64& up, double& outX, double& outY, double& outZ) const;

    const DtCoordinateSystem* system_ = nullptr;
    std::vector<std::unique_ptr<DtElevationSource>> sources_;
    std::map<std::string, int> propCounts_;
    int propsAddedCalls_ = 0;
};

}  // namespace kelZor
