// One elevation raster of a terrain (a DTED cell, a GeoTIFF DEM, any raster GDAL reads
// with a georeference), read through GDAL a block at a time and never held whole: the
// blocks read stay in a cache of bounded size that the sources of one terrain share.
//
//   std::string error;
//   auto source = DtElevationSource::read("n45_e009.dt1", error);
//   double h;
//   if (source && source->heightAt(9.5, 45.5, h)) ...   // metres above the WGS84 ellipsoid
//
// Heights are those of the first band with its scale and offset, in metres above the
// WGS84 ellipsoid: a compound or 3-D system's heights go to EPSG:4979 through PROJ (its
// geoid where the vertical datum has one and PROJ has the grid, else taken as they are,
// in metres, which note() says), and a band whose unit type is feet is read in feet.
// Posts GDAL's mask calls invalid (no-data of any data type, NaN) have no height.
//
// Posts are the pixel centres. A height is interpolated between the four posts around a
// place; the half-pixel margin GDAL's extent adds beyond the outermost posts is not
// covered by the source alone (DtTerrain completes it from an abutting source). A
// geographic raster answers longitudes in either convention (-180..180, 0..360), and one
// that spans the whole circle wraps at its seam.
//
// Thread safety: every operation may be called from several threads; they take the
// cache's lock, which also guards the source's GDAL handles.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "zorUtil/DtCoordinateConverter.h"

namespace kelZor {

// The blocks of posts the sources of one terrain have read, up to a budget in bytes, the
// least recently used block leaving first.
class DtPostCache {
public:
    static constexpr size_t DefaultBudget = size_t(48) << 20;
    explicit DtPostCache(size_t budgetBytes = DefaultBudget);
    ~DtPostCache();
    DtPostCache(const DtPostCache&) = delete;
    DtPostCache& operator=(const DtPostCache&) = delete;

    size_t budget() const;
    // Bytes of posts held now; never more than the budget but for the block in use.
    size_t bytesHeld() const;

private:
    friend class DtElevationSource;
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

class DtElevationSource {
public:
    // Null with the reason in `error` when GDAL cannot read the file as a raster with a
    // georeference that WGS84 reaches. `cache` is shared with other sources; null gives
    // the source a cache of its own.
    static std::unique_ptr<DtElevationSource> read(const std::string& path, std::string& error,
                                                   std::shared_ptr<DtPostCache> cache = nullptr);
    ~DtElevationSource();
    DtElevationSource(const DtElevationSource&) = delete;
    DtElevationSource& operator=(const DtElevationSource&) = delete;

    const std::string& path() const;
    // What a user should know of the source's heights, said once; empty when nothing is.
    const std::string& note() const;
    int columns() const;
    int rows() const;

    // The height above the ellipsoid at a WGS84 position by bilinear interpolation of
    // the four posts around it; false beyond the outermost posts or next to a post
    // without a height.
    bool heightAt(double lonDeg, double latDeg, double& height) const;

    // For a mosaic of sources: the four posts around a position that lies within the
    // source's extent (its margin included). Each corner that bears on the answer has a
    // weight; a corner this source has a height for carries it, one it has not (beyond
    // its edge, or a hole) carries the WGS84 place of that post, for another source to
    // answer. False outside the extent.
    struct Corner {
        double weight = 0.0;
        bool known = false;
        double height = 0.0;                // when known
        double lonDeg = 0.0, latDeg = 0.0;  // when not
    };
    bool cornersAround(double lonDeg, double latDeg, Corner (&corners)[4]) const;
    // The height of the post at exactly this WGS84 place (to a millionth of a post); false
    // when no post of the source stands there or it has no height.
    bool heightOfPostAt(double lonDeg, double latDeg, double& height) const;

    // A scene whose plane is the source's own up to a shift (a UTM scene over a DEM in its
    // zone) reaches the posts without a projection: the shift from scene x, y to the
    // source's, proven on probes over the source's extent to a micrometre; false when the
    // planes differ.
    bool sceneShift(const DtCoordinateConverter& scene, double& dx, double& dy) const;
    // heightAt, for a place given in the source's own plane.
    bool heightAtSourcePlace(double x, double y, double& height) const;

private:
    DtElevationSource();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace kelZor
