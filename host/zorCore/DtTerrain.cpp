#include "zorCore/DtTerrain.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "gdalsupport/DtGdalScope.h"

namespace kelZor {

struct DtElevationSource::Georeference {
    double inverse[6] = {0, 0, 0, 0, 0, 0};  // georeferenced x, y to pixel column, row
    DtTransformPtr fromWgs84;                // null: the raster is WGS84
    bool geographic = false;                 // its x is a longitude, which wraps
    // A projected raster's extent in WGS84 degrees: a position outside it never reaches
    // the projection, whose domain may not hold it.
    double west = -HUGE_VAL, south = -HUGE_VAL, east = HUGE_VAL, north = HUGE_VAL;
};

DtElevationSource::~DtElevationSource() = default;

namespace {

// A terrain holds its posts in memory as floats: 1 GiB (a square of 16384 posts a side)
// is the most one source may bring. The real engine pages; this stand-in says so instead.
constexpr size_t MaxPosts = size_t(1) << 28;
// Posts read at a time, whole rows where they fit: a large DEM is never held twice in full.
constexpr size_t PostsPerRead = size_t(1) << 20;

bool extentInWgs84(OGRCoordinateTransformation& toWgs84, const double* transform, int width,
                   int height, double& west, double& south, double& east, double& north) {
    double xs[2], ys[2];
    for (int i = 0; i < 2; ++i) {
        xs[i] = transform[0] + transform[1] * (i * width) + transform[2] * (i * height);
        ys[i] = transform[3] + transform[4] * (i * width) + transform[5] * (i * height);
    }
    // The posts' half-pixel border and a margin for the projection's bending.
    const double minX = std::min(xs[0], xs[1]), maxX = std::max(xs[0], xs[1]);
    const double minY = std::min(ys[0], ys[1]), maxY = std::max(ys[0], ys[1]);
    if (!toWgs84.TransformBounds(minX, minY, maxX, maxY, &west, &south, &east, &north, 21))
        return false;
    const double margin = 0.01;
    west -= margin, south -= margin, east += margin, north += margin;
    return true;
}

}  // namespace

std::unique_ptr<DtElevationSource> DtElevationSource::read(const std::string& path,
                                                           std::string& error) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    GDALDatasetUniquePtr dataset(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    double transform[6];
    const OGRSpatialReference* srs = dataset ? dataset->GetSpatialRef() : nullptr;
    if (!dataset || dataset->GetRasterCount() < 1) {
        error = path + ": not a raster GDAL reads";
        return nullptr;
    }
    if (dataset->GetGeoTransform(transform) != CE_None || !srs) {
        error = path + ": has no georeference";
        return nullptr;
    }
    std::unique_ptr<DtElevationSource> source(new DtElevationSource);
    source->path_ = path;
    source->width_ = dataset->GetRasterXSize();
    source->height_ = dataset->GetRasterYSize();
    Georeference& georeference = *(source->georeference_ = std::make_unique<Georeference>());
    if (!GDALInvGeoTransform(transform, georeference.inverse)) {
        error = path + ": its georeference cannot be inverted";
        return nullptr;
    }
    const OGRSpatialReference wgs84 = DtWgs84();
    OGRSpatialReference target(*srs);
    target.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    georeference.geographic = target.IsGeographic();
    if (!target.IsSame(&wgs84)) {
        georeference.fromWgs84.reset(OGRCreateCoordinateTransformation(&wgs84, &target));
        DtTransformPtr toWgs84(OGRCreateCoordinateTransformation(&target, &wgs84));
        if (!georeference.fromWgs84 || !toWgs84) {
            error = path + ": its coordinate system cannot be reached from WGS84";
            return nullptr;
        }
        if (!georeference.geographic &&
            !extentInWgs84(*toWgs84, transform, source->width_, source->height_, georeference.west,
                           georeference.south, georeference.east, georeference.north)) {
            error = path + ": its extent has no place in WGS84";
            return nullptr;
        }
    }
    if (static_cast<size_t>(source->width_) * source->height_ > MaxPosts) {
        error = path + ": its " + std::to_string(source->width_) + " x " +
                std::to_string(source->height_) + " posts are more than a terrain holds (" +
                std::to_string(MaxPosts) + ")";
        return nullptr;
    }
    if (!source->readPosts(*dataset->GetRasterBand(1), error))
        return nullptr;
    return source;
}

// Heights in metres, as floats: the band's values with its scale and offset, NaN where
// GDAL's mask says there is none. The mask compares no-data in the band's own type, so a
// Float64 no-data such as -9999.9 is found exactly.
bool DtElevationSource::readPosts(GDALRasterBand& band, std::string& error) {
    int hasScale = 0, hasOffset = 0;
    double scale = band.GetScale(&hasScale), offset = band.GetOffset(&hasOffset);
    if (!hasScale || !std::isfinite(scale))
        scale = 1.0;
    if (!hasOffset || !std::isfinite(offset))
        offset = 0.0;
    GDALRasterBand* mask = band.GetMaskBand();
    const bool allValid = !mask || (band.GetMaskFlags() & GMF_ALL_VALID);
    const size_t width = static_cast<size_t>(width_);
    const int rowsPerRead = static_cast<int>(std::clamp<size_t>(PostsPerRead / width, 1, height_));
    const int columnsPerRead = static_cast<int>(std::min(width, PostsPerRead));
    std::vector<double> values;
    std::vector<GByte> valid;
    try {
        // Reserved whole, filled as rows arrive: a file that claims more rows than it
        // holds fails on its first missing block, not after the whole was zeroed.
        posts_.reserve(width * height_);
        values.resize(static_cast<size_t>(rowsPerRead) * columnsPerRead);
        valid.resize(allValid ? 0 : values.size());
    } catch (const std::bad_alloc&) {
        error = path_ + ": its heights do not fit in memory";
        return false;
    }
    for (int top = 0; top < height_; top += rowsPerRead) {
        const int rows = std::min(rowsPerRead, height_ - top);
        posts_.resize(posts_.size() + width * rows);
        for (int left = 0; left < width_; left += columnsPerRead) {
            const int columns = std::min(columnsPerRead, width_ - left);
            if (band.RasterIO(GF_Read, left, top, columns, rows, values.data(), columns, rows,
                              GDT_Float64, 0, 0) != CE_None ||
                (!allValid && mask->RasterIO(GF_Read, left, top, columns, rows, valid.data(),
                                             columns, rows, GDT_Byte, 0, 0) != CE_None)) {
                error = path_ + ": its heights cannot be read";
                return false;
            }
            for (int r = 0; r < rows; ++r) {
                float* out = posts_.data() + (static_cast<size_t>(top) + r) * width + left;
                const size_t first = static_cast<size_t>(r) * columns;
                for (size_t c = 0; c < static_cast<size_t>(columns); ++c) {
                    const bool present = allValid || valid[first + c] != 0;
                    out[c] = present ? static_cast<float>(values[first + c] * scale + offset)
                                     : std::numeric_limits<float>::quiet_NaN();
                }
            }
        }
    }
    return true;
}

bool DtElevationSource::toPixel(double lonDeg, double latDeg, double& column, double& row) const {
    const Georeference& g = *georeference_;
    if (!(latDeg >= g.south && latDeg <= g.north && lonDeg >= g.west && lonDeg <= g.east))
        return false;
    double x = lonDeg, y = latDeg;
    if (g.fromWgs84 && !g.fromWgs84->Transform(1, &x, &y))
        return false;
    const double* m = g.inverse;
    // A geographic raster may run 0..360 or -180..180: the turn that lands on it counts.
    for (const double turn : {0.0, 360.0, -360.0}) {
        if (turn != 0.0 && !g.geographic)
            break;
        // Pixel centres are the posts: a pixel coordinate of 0.5 is the first post.
        column = m[0] + m[1] * (x + turn) + m[2] * y - 0.5;
        row = m[3] + m[4] * (x + turn) + m[5] * y - 0.5;
        // Up to half a pixel beyond the outer posts still belongs to the raster; there the
        // edge post answers, as GDAL's own bilinear sampling does.
        if (column >= -0.5 && column <= width_ - 0.5 && row >= -0.5 && row <= height_ - 0.5)
            return true;
    }
    return false;
}

bool DtElevationSource::heightAt(double lonDeg, double latDeg, double& height) const {
    double column = 0.0, row = 0.0;
    if (!toPixel(lonDeg, latDeg, column, row))
        return false;
    const double c = std::min(std::max(column, 0.0), width_ - 1.0);
    const double r = std::min(std::max(row, 0.0), height_ - 1.0);
    const int c0 = std::min(static_cast<int>(c), width_ - 2 < 0 ? 0 : width_ - 2);
    const int r0 = std::min(static_cast<int>(r), height_ - 2 < 0 ? 0 : height_ - 2);
    const int c1 = std::min(c0 + 1, width_ - 1), r1 = std::min(r0 + 1, height_ - 1);
    const double fc = c - c0, fr = r - r0;
    auto post = [this](int col, int row_) {
        return static_cast<double>(posts_[static_cast<size_t>(row_) * width_ + col]);
    };
    const double corners[4] = {post(c0, r0), post(c1, r0), post(c0, r1), post(c1, r1)};
    const double weights[4] = {(1 - fc) * (1 - fr), fc * (1 - fr), (1 - fc) * fr, fc * fr};
    // A post without a height spoils only what it has a share in: on a post, or on the
    // line between two, the others' holes do not count.
    height = 0.0;
    for (int i = 0; i < 4; ++i) {
        if (weights[i] == 0.0)
            continue;
        if (!std::isfinite(corners[i]))
            return false;
        height += corners[i] * weights[i];
    }
    return true;
}

DtTerrain::DtTerrain() = default;
DtTerrain::~DtTerrain() = default;

bool DtTerrain::addElevationSource(const std::string& path, std::string& error) {
    std::unique_ptr<DtElevationSource> source = DtElevationSource::read(path, error);
    if (!source)
        return false;
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

}  // namespace kelZor
