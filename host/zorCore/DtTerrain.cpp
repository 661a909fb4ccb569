#include "zorCore/DtTerrain.h"

#include <cpl_error.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <cmath>

#include "zorCore/DtGdalSupport.h"

namespace kelZor {

struct DtElevationSource::Georeference {
    double inverse[6] = {0, 0, 0, 0, 0, 0};  // georeferenced x, y to pixel column, row
    std::unique_ptr<OGRCoordinateTransformation> fromWgs84;  // null: the raster is WGS84
};

DtElevationSource::~DtElevationSource() = default;

std::unique_ptr<DtElevationSource> DtElevationSource::read(const std::string& path,
                                                           std::string& error) {
    GDALAllRegister();
    DtGdalQuietScope quiet;
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
    source->georeference_ = std::make_unique<Georeference>();
    if (!GDALInvGeoTransform(transform, source->georeference_->inverse)) {
        error = path + ": its georeference cannot be inverted";
        return nullptr;
    }
    OGRSpatialReference wgs84;
    wgs84.SetWellKnownGeogCS("WGS84");
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    OGRSpatialReference target(*srs);
    target.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    if (!target.IsSame(&wgs84)) {
        source->georeference_->fromWgs84.reset(OGRCreateCoordinateTransformation(&wgs84, &target));
        if (!source->georeference_->fromWgs84) {
            error = path + ": its coordinate system cannot be reached from WGS84";
            return nullptr;
        }
    }
    GDALRasterBand* band = dataset->GetRasterBand(1);
    source->width_ = dataset->GetRasterXSize();
    source->height_ = dataset->GetRasterYSize();
    source->posts_.resize(static_cast<size_t>(source->width_) * source->height_);
    if (band->RasterIO(GF_Read, 0, 0, source->width_, source->height_, source->posts_.data(),
                       source->width_, source->height_, GDT_Float32, 0, 0) != CE_None) {
        error = path + ": its heights cannot be read";
        return nullptr;
    }
    int hasNoData = 0;
    source->noData_ = band->GetNoDataValue(&hasNoData);
    source->hasNoData_ = hasNoData != 0;
    return source;
}

bool DtElevationSource::heightAt(double lonDeg, double latDeg, double& height) const {
    double x = lonDeg, y = latDeg;
    if (georeference_->fromWgs84 && !georeference_->fromWgs84->Transform(1, &x, &y))
        return false;
    const double* g = georeference_->inverse;
    // Pixel centres are the posts: a pixel coordinate of 0.5 is the first post.
    const double column = g[0] + g[1] * x + g[2] * y - 0.5;
    const double row = g[3] + g[4] * x + g[5] * y - 0.5;
    // Up to half a pixel beyond the outer posts still belongs to the raster; there the
    // edge post answers, as GDAL's own bilinear sampling does.
    if (!(column >= -0.5 && column <= width_ - 0.5 && row >= -0.5 && row <= height_ - 0.5))
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
    for (const double h : corners) {
        if (!std::isfinite(h) || (hasNoData_ && h == noData_))
            return false;
    }
    height = (corners[0] * (1 - fc) + corners[1] * fc) * (1 - fr) +
             (corners[2] * (1 - fc) + corners[3] * fc) * fr;
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
    // Slide along `up` until the point's height is the ground's there. Up is the
    // vertical (or within a fraction of a degree of it), so each step is nearly exact;
    // straight up in a map projection only the height changes, so the first is.
    const bool oneStep = converter->zIsHeight() && up == DtVector64(0.0, 0.0, 1.0);
    double along = 0.0;
    DtVector64 point(x, y, z);
    for (int step = 0; step < 8; ++step) {
        point = DtVector64(x + along * up.x(), y + along * up.y(), z + along * up.z());
        double lat, lon, height, ground = 0.0;
        converter->cigToGeodetic(point, lat, lon, height);
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
