// An elevation source and the post cache its blocks live in, together: the cache's
// eviction, the block reads that fill it and the bilinear lookups that read it share
// one Impl each and the cache's key, and split apart they would expose both.
#include "zorCore/DtElevationSource.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <GeographicLib/Geocentric.hpp>

#include "gdalsupport/DtGdalScope.h"
#include "hxutil/DtNotify.h"

namespace kelZor {

namespace {

// A block's posts as the file holds them (the band's own type, so a 16-bit DEM keeps two
// bytes a post in the cache), followed by the mask's bytes where a mask decides; empty
// for a block that could not be read.
using PostBytes = std::vector<unsigned char>;
// A natural block above this many posts (a whole image as one strip) is read in windows.
constexpr size_t MaxNaturalBlockPosts = size_t(1) << 22;
constexpr int WindowSide = 512;
// How near a place must come to a post, in posts, to be that post.
constexpr double PostTolerance = 1e-6;
// How far off a line of posts, in posts, a place still lies on it: what a round trip
// through the scene's projection moves it, far below a millimetre on any DEM.
constexpr double OnPostTolerance = 1e-6;

struct BlockKey {
    const void* source;
    long long column, row;
    bool operator==(const BlockKey& o) const {
        return source == o.source && column == o.column && row == o.row;
    }
};

struct BlockKeyHash {
    size_t operator()(const BlockKey& k) const {
        const uint64_t a = reinterpret_cast<uintptr_t>(k.source);
        const uint64_t b = static_cast<uint64_t>(k.column) * 0x9E3779B97F4A7C15ull;
        const uint64_t c = static_cast<uint64_t>(k.row) * 0xC2B2AE3D27D4EB4Full;
        return static_cast<size_t>(a ^ b ^ (c >> 7) ^ (c << 29));
    }
};

// Metres in one unit of a band's unit type, as GDAL drivers spell them; 0 when unknown.
double metresPerUnit(std::string unit) {
    std::transform(unit.begin(), unit.end(), unit.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static const std::pair<const char*, double> units[] = {
        {"", 1.0},
        {"m", 1.0},
        {"metre", 1.0},
        {"meter", 1.0},
        {"metres", 1.0},
        {"meters", 1.0},
        {"ft", 0.3048},
        {"foot", 0.3048},
        {"feet", 0.3048},
        {"international foot", 0.3048},
        {"ftus", 1200.0 / 3937.0},
        {"us-ft", 1200.0 / 3937.0},
        {"us survey foot", 1200.0 / 3937.0},
        {"us foot", 1200.0 / 3937.0},
        {"foot_us", 1200.0 / 3937.0},
        {"dm", 0.1},
        {"cm", 0.01},
        {"mm", 0.001},
        {"km", 1000.0},
    };
    for (const auto& [name, metres] : units) {
        if (unit == name)
            return metres;
    }
    return 0.0;
}

double normalLongitude(double lon) {
    return lon > 180.0 || lon < -180.0 ? std::remainder(lon, 360.0) : lon;
}

}  // namespace

// ------------------------------------------------------------------ the cache

struct DtPostCache::Impl {
    struct Block {
        BlockKey key;
        PostBytes posts;
    };
    std::mutex mutex;
    size_t budget;
    size_t held = 0;
    uint64_t evictions = 0;   // a block found before may be gone when this has moved
    std::list<Block> blocks;  // the most recently used first
    std::unordered_map<BlockKey, std::list<Block>::iterator, BlockKeyHash> index;

    explicit Impl(size_t bytes) : budget(bytes) {}

    const PostBytes* find(const BlockKey& key) {
        const auto found = index.find(key);
        if (found == index.end())
            return nullptr;
        blocks.splice(blocks.begin(), blocks, found->second);
        return &found->second->posts;
    }

    const PostBytes& insert(const BlockKey& key, PostBytes posts) {
        held += posts.size();
        blocks.push_front(Block{key, std::move(posts)});
        index[key] = blocks.begin();
        while (held > budget && blocks.size() > 1)
            evict(std::prev(blocks.end()));
        return blocks.front().posts;
    }

    void evict(std::list<Block>::iterator block) {
        held -= block->posts.size();
        index.erase(block->key);
        blocks.erase(block);
        ++evictions;
    }

    // A source's blocks leave with it: another may be made at its address.
    void forget(const void* source) {
        for (auto it = blocks.begin(); it != blocks.end();) {
            const auto next = std::next(it);
            if (it->key.source == source)
                evict(it);
            it = next;
        }
    }
};

DtPostCache::DtPostCache(size_t budgetBytes) : impl_(std::make_unique<Impl>(budgetBytes)) {}
DtPostCache::~DtPostCache() = default;

size_t DtPostCache::budget() const {
    return impl_->budget;
}

size_t DtPostCache::bytesHeld() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->held;
}

// ------------------------------------------------------------------ the source

struct DtElevationSource::Impl {
    std::string path;
    std::string note;
    GDALDatasetUniquePtr dataset;
    GDALRasterBand* band = nullptr;
    GDALRasterBand* mask = nullptr;  // read beside the posts unless every post is valid
    int width = 0, height = 0;
    double transform[6] = {0, 1, 0, 0, 0, 1};
    double inverse[6] = {0, 1, 0, 0, 0, 1};
    DtTransformPtr fromWgs84, toWgs84;  // horizontal; null: longitude/latitude on WGS84
    DtTransformPtr toEllipsoid;         // null: the heights are ellipsoidal already
    bool geographic = false;
    bool wraps = false;  // a geographic raster around the whole circle
    // A projected raster's extent in WGS84 degrees: a position outside it never reaches
    // the projection, whose domain may not hold it.
    double west = -HUGE_VAL, south = -HUGE_VAL, east = HUGE_VAL, north = HUGE_VAL;
    double scale = 1.0, offset = 0.0, unit = 1.0;
    GDALDataType type = GDT_Float64;
    GDALDataType storedType = GDT_Float64;  // the band's, or Float64 for types read seldom
    int blockWidth = 0, blockHeight = 0;
    bool naturalBlocks = true;
    bool readFailureSaid = false;
    // A text grid finds a row by reading the rows above it (GDAL's drivers recurse, and
    // take exponential time past a missing row): its blocks are read from the top, in
    // order, once, and nothing is asked at or beyond the first row that fails.
    bool sequential = false;
    long long readThrough = -1;
    long long failedFrom = std::numeric_limits<long long>::max();
    const PostBytes noPosts{};
    std::shared_ptr<DtPostCache> cache;
    // The block read last, valid while the cache has evicted nothing since.
    const PostBytes* lastBlock = nullptr;
    long long lastColumn = -1, lastRow = -1;
    uint64_t lastEvictions = 0;

    DtPostCache::Impl& blocks() const { return *cache->impl_; }

    bool setUpGeoreference(const OGRSpatialReference& srs, std::string& error);
    void setUpHeights();
    bool locate(double lon, double lat, bool margin, double& column, double& row, double& x,
                double& y) const;
    bool locateInPlane(bool margin, double& column, double& row, double& x, double y) const;
    bool interpolate(double column, double row, double x, double y, double& ground);
    bool inside(double& column, double& row, bool margin) const;
    bool post(long long column, long long row, double& postHeight);
    bool value(const PostBytes& posts, size_t i, double& v) const;
    const PostBytes& block(long long column, long long row);
    PostBytes readBlock(long long column, long long row, bool* succeeded = nullptr);
    const PostBytes& readInOrder(long long row);
    void postPlace(long long column, long long row, double& x, double& y) const;
    bool ellipsoidal(double x, double y, double value, double& h) const;
    bool corners(double lon, double lat, bool margin, Corner (&out)[4], long long (&at)[4][2],
                 double& x, double& y) const;
    void cornersAt(double column, double row, Corner (&out)[4], long long (&at)[4][2]) const;
};

bool DtElevationSource::Impl::setUpGeoreference(const OGRSpatialReference& srs,
                                                std::string& error) {
    if (!GDALInvGeoTransform(transform, inverse)) {
        error = path + ": its georeference cannot be inverted";
        return false;
    }
    OGRSpatialReference horizontal(srs);
    horizontal.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    if (horizontal.IsCompound())
        horizontal.StripVertical();
    geographic = horizontal.IsGeographic();
    const OGRSpatialReference wgs84 = DtWgs84();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    if (!horizontal.IsSame(&wgs84)) {
        fromWgs84.reset(OGRCreateCoordinateTransformation(&wgs84, &horizontal));
        toWgs84.reset(OGRCreateCoordinateTransformation(&horizontal, &wgs84));
        if (!fromWgs84 || !toWgs84) {
            error = path + ": its coordinate system cannot be reached from WGS84";
            return false;
        }
        if (!geographic) {
            const double xs[2] = {transform[0],
                                  transform[0] + transform[1] * width + transform[2] * height};
            const double ys[2] = {transform[3],
                                  transform[3] + transform[4] * width + transform[5] * height};
            if (!toWgs84->TransformBounds(std::min(xs[0], xs[1]), std::min(ys[0], ys[1]),
                                          std::max(xs[0], xs[1]), std::max(ys[0], ys[1]), &west,
                                          &south, &east, &north, 21)) {
                error = path + ": its extent has no place in WGS84";
                return false;
            }
            // A margin for the projection's bending between the bounds' samples.
            west -= 0.01, south -= 0.01, east += 0.01, north += 0.01;
        }
    }
    wraps = geographic && transform[2] == 0.0 && transform[4] == 0.0 &&
            std::abs(std::abs(transform[1]) * width - 360.0) < 1e-6 * std::abs(transform[1]);

    // Heights above a vertical datum, or in a 3-D system, reach the ellipsoid through PROJ.
    if (srs.IsCompound() || srs.GetAxesCount() >= 3) {
        OGRSpatialReference full(srs);
        full.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        const OGRSpatialReference target = DtWgs84(true);
        if (!full.IsSame(&target)) {
            OGRCoordinateTransformationOptions strict;
            strict.SetBallparkAllowed(false);
            toEllipsoid.reset(OGRCreateCoordinateTransformation(&full, &target, strict));
            if (!toEllipsoid) {
                toEllipsoid.reset(OGRCreateCoordinateTransformation(&full, &target));
                const char* name = srs.GetName();
                note = path + ": heights in \"" + (name ? name : "its compound system") +
                       "\" are taken as heights above the ellipsoid: PROJ has no grid for "
                       "its vertical datum here";
            }
            if (!toEllipsoid) {
                error = path + ": its heights cannot be taken to WGS84";
                return false;
            }
        }
    }
    return true;
}

void DtElevationSource::Impl::setUpHeights() {
    int hasScale = 0, hasOffset = 0;
    scale = band->GetScale(&hasScale);
    offset = band->GetOffset(&hasOffset);
    if (!hasScale || !std::isfinite(scale))
        scale = 1.0;
    if (!hasOffset || !std::isfinite(offset))
        offset = 0.0;
    // A vertical system's unit is PROJ's to apply; without one the band's unit type says.
    if (!toEllipsoid) {
        const char* unitType = band->GetUnitType();
        unit = metresPerUnit(unitType ? unitType : "");
        if (unit == 0.0) {
            unit = 1.0;
            note = path + ": its heights' unit \"" + unitType + "\" is unknown: taken as metres";
        }
    }
    type = band->GetRasterDataType();
    // GDAL decides which posts hold no height, for every kind of mask: a no-data value
    // as the band stores it (a Float64 -9999.9 whose posts were rounded through Float32
    // included), NaN, a per-dataset mask (.msk), an alpha band.
    if (!(band->GetMaskFlags() & GMF_ALL_VALID))
        mask = band->GetMaskBand();
    switch (type) {
        case GDT_Byte:
        case GDT_UInt16:
        case GDT_Int16:
        case GDT_UInt32:
        case GDT_Int32:
        case GDT_Float32:
        case GDT_Float64:
            storedType = type;
            break;
        default:
            storedType = GDT_Float64;  // complex, 64-bit integers: read through RasterIO
    }
    band->GetBlockSize(&blockWidth, &blockHeight);
    naturalBlocks = blockWidth > 0 && blockHeight > 0 &&
                    static_cast<size_t>(blockWidth) * blockHeight <= MaxNaturalBlockPosts;
    if (!naturalBlocks)
        blockWidth = blockHeight = WindowSide;
    const char* driver = dataset->GetDriverName();
    const std::string name = driver ? driver : "";
    sequential = (name == "AAIGrid" || name == "GRASSASCIIGrid" || name == "XYZ") &&
                 naturalBlocks && blockWidth == width;
}

// Whether post coordinates lie on the posts (within what a round trip through a projection
// moves a place on the outermost line: such a place is brought onto it) or, with `margin`,
// within the half post beyond them.
bool DtElevationSource::Impl::inside(double& column, double& row, bool margin) const {
    const double low = margin ? -0.5 : -OnPostTolerance;
    const double rowHigh = margin ? height - 0.5 : height - 1.0 + OnPostTolerance;
    // Around the circle the two edges join: there is no margin, every column is between two.
    const double columnLow = wraps ? -0.5 : low;
    const double columnHigh =
        wraps ? width - 0.5 : (margin ? width - 0.5 : width - 1.0 + OnPostTolerance);
    if (!(column >= columnLow && column <= columnHigh && row >= low && row <= rowHigh))
        return false;
    if (!margin) {
        row = std::clamp(row, 0.0, height - 1.0);
        if (!wraps)
            column = std::clamp(column, 0.0, width - 1.0);
    }
    return true;
}

bool DtElevationSource::Impl::locate(double lon, double lat, bool margin, double& column,
                                     double& row, double& x, double& y) const {
    if (!(lat >= south && lat <= north && lon >= west && lon <= east))
        return false;
    x = lon;
    y = lat;
    if (fromWgs84 && !fromWgs84->Transform(1, &x, &y))
        return false;
    return locateInPlane(margin, column, row, x, y);
}

bool DtElevationSource::Impl::locateInPlane(bool margin, double& column, double& row, double& x,
                                            double y) const {
    const double* m = inverse;
    // A geographic raster may run 0..360 or -180..180: the turn that lands on it counts.
    for (const double turn : {0.0, 360.0, -360.0}) {
        if (turn != 0.0 && !geographic)
            break;
        // Pixel centres are the posts: a pixel coordinate of 0.5 is the first post.
        column = m[0] + m[1] * (x + turn) + m[2] * y - 0.5;
        row = m[3] + m[4] * (x + turn) + m[5] * y - 0.5;
        if (inside(column, row, margin)) {
            x += turn;
            return true;
        }
    }
    return false;
}

PostBytes DtElevationSource::Impl::readBlock(long long column, long long row, bool* succeeded) {
    const size_t count = static_cast<size_t>(blockWidth) * blockHeight;
    const size_t size = GDALGetDataTypeSizeBytes(storedType);
    PostBytes posts(count * size + (mask ? count : 0));
    const int left = static_cast<int>(column * blockWidth),
              top = static_cast<int>(row * blockHeight);
    const int columns = std::min(blockWidth, width - left),
              rows = std::min(blockHeight, height - top);
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    bool read = false;
    if (naturalBlocks && storedType == type) {
        // The block as the file holds it: GDAL's own block cache is not filled.
        read = band->ReadBlock(static_cast<int>(column), static_cast<int>(row), posts.data()) ==
               CE_None;
    } else {
        read = band->RasterIO(GF_Read, left, top, columns, rows, posts.data(), columns, rows,
                              storedType, static_cast<GSpacing>(size),
                              static_cast<GSpacing>(size) * blockWidth) == CE_None;
    }
    if (read && mask)
        read = mask->RasterIO(GF_Read, left, top, columns, rows, posts.data() + count * size,
                              columns, rows, GDT_Byte, 1, blockWidth) == CE_None;
    if (!read) {
        if (!readFailureSaid)
            DtWarn << path << ": some of its heights cannot be read: no place there is covered"
                   << std::endl;
        readFailureSaid = true;
        if (succeeded)
            *succeeded = false;
        return PostBytes();
    }
    return posts;
}

// The value of post `i` of a block, as a double; false for a post without a height.
bool DtElevationSource::Impl::value(const PostBytes& posts, size_t i, double& v) const {
    if (posts.empty())
        return false;
    const unsigned char* data = posts.data();
    switch (storedType) {
        case GDT_Byte:
            v = data[i];
            break;
        case GDT_UInt16:
            v = reinterpret_cast<const uint16_t*>(data)[i];
            break;
        case GDT_Int16:
            v = reinterpret_cast<const int16_t*>(data)[i];
            break;
        case GDT_UInt32:
            v = reinterpret_cast<const uint32_t*>(data)[i];
            break;
        case GDT_Int32:
            v = reinterpret_cast<const int32_t*>(data)[i];
            break;
        case GDT_Float32:
            v = reinterpret_cast<const float*>(data)[i];
            break;
        default:
            v = reinterpret_cast<const double*>(data)[i];
            break;
    }
    if (std::isnan(v))
        return false;
    if (mask) {
        const size_t count = static_cast<size_t>(blockWidth) * blockHeight;
        if (data[count * GDALGetDataTypeSizeBytes(storedType) + i] == 0)
            return false;
    }
    v = (v * scale + offset) * unit;
    return true;
}

const PostBytes& DtElevationSource::Impl::block(long long column, long long row) {
    DtPostCache::Impl& cached = blocks();
    if (lastBlock && column == lastColumn && row == lastRow && cached.evictions == lastEvictions)
        return *lastBlock;
    const BlockKey key{this, column, row};
    const PostBytes* found = cached.find(key);
    if (!found && sequential) {
        for (long long above = readThrough + 1; above < row && above < failedFrom; ++above)
            readInOrder(above);
        if (row >= failedFrom)
            return noPosts;
        found = &readInOrder(row);
    }
    if (!found)
        found = &cached.insert(key, readBlock(column, row));
    lastBlock = found;
    lastColumn = column;
    lastRow = row;
    lastEvictions = cached.evictions;
    return *found;
}

// A text grid's row of blocks (one block wide), read after every row above it.
const PostBytes& DtElevationSource::Impl::readInOrder(long long row) {
    bool read = true;
    PostBytes posts = readBlock(0, row, &read);
    readThrough = std::max(readThrough, row);
    if (!read) {
        failedFrom = std::min(failedFrom, row);
        return noPosts;
    }
    return blocks().insert(BlockKey{this, 0, row}, std::move(posts));
}

bool DtElevationSource::Impl::post(long long column, long long row, double& postHeight) {
    if (wraps)
        column = ((column % width) + width) % width;
    if (column < 0 || column >= width || row < 0 || row >= height)
        return false;
    const PostBytes& posts = block(column / blockWidth, row / blockHeight);
    return value(posts, static_cast<size_t>(row % blockHeight) * blockWidth + column % blockWidth,
                 postHeight);
}

void DtElevationSource::Impl::postPlace(long long column, long long row, double& x,
                                        double& y) const {
    const double c = column + 0.5, r = row + 0.5;
    x = transform[0] + transform[1] * c + transform[2] * r;
    y = transform[3] + transform[4] * c + transform[5] * r;
}

bool DtElevationSource::Impl::ellipsoidal(double x, double y, double value, double& h) const {
    if (!toEllipsoid) {
        h = value;
        return true;
    }
    double z = value;
    if (geographic)
        x = normalLongitude(x);
    if (!toEllipsoid->Transform(1, &x, &y, &z) || !std::isfinite(z))
        return false;
    h = z;
    return true;
}

// The four posts around a place, with their weights; heights are the posts' own values,
// not yet on the ellipsoid.
bool DtElevationSource::Impl::corners(double lon, double lat, bool margin, Corner (&out)[4],
                                      long long (&at)[4][2], double& x, double& y) const {
    double column = 0.0, row = 0.0;
    if (!locate(lon, lat, margin, column, row, x, y))
        return false;
    cornersAt(column, row, out, at);
    return true;
}

void DtElevationSource::Impl::cornersAt(double column, double row, Corner (&out)[4],
                                        long long (&at)[4][2]) const {
    double c0 = std::floor(column), r0 = std::floor(row);
    double fc = column - c0, fr = row - r0;
    // On a line of posts the posts beyond it have no share, holes included.
    const auto onLine = [](double& whole, double& fraction) {
        if (fraction > 1.0 - OnPostTolerance)
            whole += 1.0, fraction = 0.0;
        else if (fraction < OnPostTolerance)
            fraction = 0.0;
    };
    onLine(c0, fc);
    onLine(r0, fr);
    const double weights[4] = {(1 - fc) * (1 - fr), fc * (1 - fr), (1 - fc) * fr, fc * fr};
    for (int i = 0; i < 4; ++i) {
        out[i] = Corner();
        out[i].weight = weights[i];
        at[i][0] = static_cast<long long>(c0) + (i & 1);
        at[i][1] = static_cast<long long>(r0) + (i >> 1);
    }
}

// The height at post coordinates within the posts, from the four around, on the ellipsoid.
bool DtElevationSource::Impl::interpolate(double column, double row, double x, double y,
                                          double& ground) {
    Corner corners[4];
    long long at[4][2];
    cornersAt(column, row, corners, at);
    // A post without a height spoils only what it has a share in: on a post, or on the
    // line between two, the others' holes do not count.
    double value = 0.0;
    for (int i = 0; i < 4; ++i) {
        double post = 0.0;
        if (corners[i].weight == 0.0)
            continue;
        if (!this->post(at[i][0], at[i][1], post))
            return false;
        value += corners[i].weight * post;
    }
    return ellipsoidal(x, y, value, ground);
}

DtElevationSource::DtElevationSource() : impl_(std::make_unique<Impl>()) {}

DtElevationSource::~DtElevationSource() {
    if (impl_->cache) {
        const std::lock_guard<std::mutex> lock(impl_->blocks().mutex);
        impl_->blocks().forget(impl_.get());
    }
}

std::unique_ptr<DtElevationSource> DtElevationSource::read(const std::string& path,
                                                           std::string& error,
                                                           std::shared_ptr<DtPostCache> cache) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    std::unique_ptr<DtElevationSource> source(new DtElevationSource);
    Impl& s = *source->impl_;
    s.path = path;
    s.dataset.reset(static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, nullptr, nullptr)));
    if (!s.dataset || s.dataset->GetRasterCount() < 1) {
        error = path + ": not a raster GDAL reads";
        return nullptr;
    }
    const OGRSpatialReference* srs = s.dataset->GetSpatialRef();
    if (s.dataset->GetGeoTransform(s.transform) != CE_None || !srs) {
        error = path + ": has no georeference";
        return nullptr;
    }
    s.width = s.dataset->GetRasterXSize();
    s.height = s.dataset->GetRasterYSize();
    s.band = s.dataset->GetRasterBand(1);
    if (s.width < 1 || s.height < 1 || !s.band) {
        error = path + ": holds no posts";
        return nullptr;
    }
    if (!s.setUpGeoreference(*srs, error))
        return nullptr;
    s.setUpHeights();
    s.cache = cache ? std::move(cache) : std::make_shared<DtPostCache>();
    return source;
}

const std::string& DtElevationSource::path() const {
    return impl_->path;
}

const std::string& DtElevationSource::note() const {
    return impl_->note;
}

int DtElevationSource::columns() const {
    return impl_->width;
}

int DtElevationSource::rows() const {
    return impl_->height;
}

bool DtElevationSource::heightAt(double lonDeg, double latDeg, double& height) const {
    Impl& s = *impl_;
    const std::lock_guard<std::mutex> lock(s.blocks().mutex);
    double column = 0.0, row = 0.0, x = 0.0, y = 0.0;
    return s.locate(lonDeg, latDeg, false, column, row, x, y) &&
           s.interpolate(column, row, x, y, height);
}

bool DtElevationSource::heightAtSourcePlace(double x, double y, double& height) const {
    Impl& s = *impl_;
    const std::lock_guard<std::mutex> lock(s.blocks().mutex);
    double column = 0.0, row = 0.0;
    return s.locateInPlane(false, column, row, x, y) && s.interpolate(column, row, x, y, height);
}

bool DtElevationSource::sceneShift(const DtCoordinateConverter& scene, double& dx,
                                   double& dy) const {
    Impl& s = *impl_;
    const std::lock_guard<std::mutex> lock(s.blocks().mutex);
    if (s.geographic || !s.toWgs84)
        return false;
    const double* t = s.transform;
    const double probes[5][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0.5, 0.5}};
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    for (int i = 0; i < 5; ++i) {
        const double c = probes[i][0] * s.width, r = probes[i][1] * s.height;
        const double x = t[0] + t[1] * c + t[2] * r, y = t[3] + t[4] * c + t[5] * r;
        double lon = x, lat = y;
        if (!s.toWgs84->Transform(1, &lon, &lat) || !(std::abs(lat) <= 90.0))
            return false;
        double X, Y, Z;
        GeographicLib::Geocentric::WGS84().Forward(lat, lon, 0.0, X, Y, Z);
        DtVector64 cig;
        try {
            scene.geocToCig(DtVector64(X, Y, Z), cig);
        } catch (const std::exception&) {
            return false;
        }
        const double sx = x - cig.x(), sy = y - cig.y();
        if (i == 0) {
            dx = sx, dy = sy;
        } else if (!(std::abs(sx - dx) <= 1e-6 && std::abs(sy - dy) <= 1e-6)) {
            return false;
        }
    }
    return std::isfinite(dx) && std::isfinite(dy);
}

bool DtElevationSource::cornersAround(double lonDeg, double latDeg, Corner (&corners)[4]) const {
    Impl& s = *impl_;
    const std::lock_guard<std::mutex> lock(s.blocks().mutex);
    long long at[4][2];
    double x = 0.0, y = 0.0;
    if (!s.corners(lonDeg, latDeg, true, corners, at, x, y))
        return false;
    for (int i = 0; i < 4; ++i) {
        Corner& corner = corners[i];
        if (corner.weight == 0.0)
            continue;
        double px = 0.0, py = 0.0;
        s.postPlace(at[i][0], at[i][1], px, py);
        double post = 0.0;
        if (s.post(at[i][0], at[i][1], post) && s.ellipsoidal(px, py, post, corner.height)) {
            corner.known = true;
            continue;
        }
        corner.lonDeg = px;
        corner.latDeg = py;
        if (s.toWgs84 && !s.toWgs84->Transform(1, &corner.lonDeg, &corner.latDeg))
            corner.lonDeg = corner.latDeg = std::nan("");
        corner.lonDeg = normalLongitude(corner.lonDeg);
    }
    return true;
}

bool DtElevationSource::heightOfPostAt(double lonDeg, double latDeg, double& height) const {
    Impl& s = *impl_;
    const std::lock_guard<std::mutex> lock(s.blocks().mutex);
    double column = 0.0, row = 0.0, x = 0.0, y = 0.0;
    if (!s.locate(lonDeg, latDeg, false, column, row, x, y))
        return false;
    const double c = std::round(column), r = std::round(row);
    if (std::abs(column - c) > PostTolerance || std::abs(row - r) > PostTolerance)
        return false;
    double post = 0.0;
    const auto ci = static_cast<long long>(c), ri = static_cast<long long>(r);
    double px = 0.0, py = 0.0;
    s.postPlace(ci, ri, px, py);
    return s.post(ci, ri, post) && s.ellipsoidal(px, py, post, height);
}

}  // namespace kelZor
