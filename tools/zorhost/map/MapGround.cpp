#include "MapGround.h"

#include <gdal_utils.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "MapStyle.h"
#include "Progress.h"
#include "gdalsupport/DtGdalScope.h"

namespace {

// Marks the warp's empty pixels: far below any ground, and exact in Float32.
const double noData = -1.0e30;

struct TranslateOptionsFree {
    void operator()(GDALTranslateOptions* o) const { GDALTranslateOptionsFree(o); }
};
struct WarpOptionsFree {
    void operator()(GDALWarpAppOptions* o) const { GDALWarpAppOptionsFree(o); }
};
struct DemOptionsFree {
    void operator()(GDALDEMProcessingOptions* o) const { GDALDEMProcessingOptionsFree(o); }
};

GDALDatasetUniquePtr openRaster(const std::string& path) {
    return GDALDatasetUniquePtr(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
}

GDALDatasetUniquePtr own(GDALDatasetH handle) {
    return GDALDatasetUniquePtr(GDALDataset::FromHandle(handle));
}

// The DEM's first band as heights: scale and offset applied, no-data kept, Float32.
GDALDatasetUniquePtr heightsOf(GDALDataset& dem) {
    GDALRasterBand* band = dem.GetRasterBand(1);
    int hasScale = 0, hasOffset = 0;
    const double scale = band->GetScale(&hasScale);
    const double offset = band->GetOffset(&hasOffset);
    CPLStringList args;
    for (const char* arg : {"-of", "VRT", "-b", "1", "-ot", "Float32"})
        args.AddString(arg);
    if ((hasScale && scale != 1.0) || (hasOffset && offset != 0.0)) {
        args.AddString("-unscale");
        int hasNoData = 0;
        const double stored = band->GetNoDataValue(&hasNoData);
        if (hasNoData) {
            // The no-data value stays a stored value; in heights it is that value scaled.
            args.AddString("-a_nodata");
            args.AddString(CPLSPrintf("%.17g", stored * scale + offset));
        }
    }
    std::unique_ptr<GDALTranslateOptions, TranslateOptionsFree> options(
        GDALTranslateOptionsNew(args.List(), nullptr));
    return own(GDALTranslate("", GDALDataset::ToHandle(&dem), options.get(), nullptr));
}

GDALDatasetUniquePtr emptyGrid(const MapGrid& grid, const std::string& wkt,
                               GDALDataType type = GDT_Float32, double empty = noData) {
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr target(memory->Create("", grid.width, grid.height, 1, type, nullptr));
    if (!target)
        return target;
    double transform[6];
    grid.geoTransform(transform);
    target->SetGeoTransform(transform);
    target->SetProjection(wkt.c_str());
    GDALRasterBand* band = target->GetRasterBand(1);
    band->SetNoDataValue(empty);
    band->Fill(empty);
    return target;
}

struct BuildVrtOptionsFree {
    void operator()(GDALBuildVRTOptions* o) const { GDALBuildVRTOptionsFree(o); }
};

// The hypsometric ramp a GIS user expects, in gdaldem color-relief's format: the sea in
// blues deepening with depth, the land from greens through browns to the white of the
// highest peaks; no value is transparent.
const char* const hypsometricRamp =
    "nv 0 0 0 0\n"
    "-11000 8 24 68 255\n"
    "-4000 25 70 140 255\n"
    "-200 90 150 210 255\n"
    "-0.01 165 210 240 255\n"
    "0 60 125 70 255\n"
    "250 110 160 85 255\n"
    "700 200 195 120 255\n"
    "1500 170 130 80 255\n"
    "2500 140 110 95 255\n"
    "3500 215 210 205 255\n"
    "5000 255 255 255 255\n";

// A ramp GDAL reads by name: the user's file, or the hypsometric one in GDAL's memory
// file system for as long as it is held.
class RampFile {
public:
    explicit RampFile(const std::string& path) : path_(path) {
        if (!path_.empty())
            return;
        path_ = CPLSPrintf("/vsimem/zorhost-ramp-%p.txt", static_cast<void*>(this));
        VSILFILE* file = VSIFileFromMemBuffer(
            path_.c_str(), reinterpret_cast<GByte*>(const_cast<char*>(hypsometricRamp)),
            static_cast<vsi_l_offset>(std::strlen(hypsometricRamp)), FALSE);
        if (file)
            VSIFCloseL(file);
        owned_ = true;
    }
    ~RampFile() {
        if (owned_)
            VSIUnlink(path_.c_str());
    }
    RampFile(const RampFile&) = delete;
    RampFile& operator=(const RampFile&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
    bool owned_ = false;
};

GDALDatasetUniquePtr memoryRaster(int width, int height, const std::vector<float>& values) {
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr raster(memory->Create("", width, height, 1, GDT_Float32, nullptr));
    if (!raster)
        return raster;
    double transform[6] = {0, 30, 0, 0, 0, -30};
    raster->SetGeoTransform(transform);
    raster->GetRasterBand(1)->SetNoDataValue(noData);
    if (raster->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, width, height,
                                           const_cast<float*>(values.data()), width, height,
                                           GDT_Float32, 0, 0) != CE_None)
        raster.reset();
    return raster;
}

GDALDatasetUniquePtr colourRelief(GDALDataset& heights, const RampFile& ramp) {
    CPLStringList args;
    for (const char* arg : {"-of", "MEM", "-alpha"})
        args.AddString(arg);
    std::unique_ptr<GDALDEMProcessingOptions, DemOptionsFree> options(
        GDALDEMProcessingOptionsNew(args.List(), nullptr));
    return own(GDALDEMProcessing("", GDALDataset::ToHandle(&heights), "color-relief",
                                 ramp.path().c_str(), options.get(), nullptr));
}

GDALDatasetUniquePtr hillshade(GDALDataset& heights, const GroundStyle& style) {
    CPLStringList args;
    for (const char* arg : {"-of", "MEM", "-compute_edges"})
        args.AddString(arg);
    args.AddString("-z");
    args.AddString(CPLSPrintf("%.17g", style.zFactor));
    if (style.relief == Relief::Multidirectional) {
        args.AddString("-multidirectional");
    } else {
        args.AddString("-az");
        args.AddString(CPLSPrintf("%.17g", style.azimuth));
    }
    std::unique_ptr<GDALDEMProcessingOptions, DemOptionsFree> options(
        GDALDEMProcessingOptionsNew(args.List(), nullptr));
    return own(GDALDEMProcessing("", GDALDataset::ToHandle(&heights), "hillshade", nullptr,
                                 options.get(), nullptr));
}

// What the hillshade gives flat ground: the shade that leaves a ramp colour as it is, so
// that slopes lighten and darken it by as much as gdaldem's own picture shows.
double flatShade(const GroundStyle& style) {
    GDALDatasetUniquePtr flat = memoryRaster(3, 3, std::vector<float>(9, 100.0f));
    GDALDatasetUniquePtr shaded = flat ? hillshade(*flat, style) : nullptr;
    uint8_t value = 0;
    if (!shaded ||
        shaded->GetRasterBand(1)->RasterIO(GF_Read, 1, 1, 1, 1, &value, 1, 1, GDT_Byte, 0, 0) !=
            CE_None ||
        value == 0)
        return 181.0;
    return value;
}

// Sources of one system and post spacing as one mosaic, so that the warp interpolates
// across the seams between them; the others as they are. Later sources win in a mosaic
// as in the warp.
std::vector<GDALDatasetUniquePtr> mosaics(std::vector<GDALDatasetUniquePtr>& heights,
                                          std::vector<GDALDatasetUniquePtr>& kept) {
    std::vector<std::vector<GDALDatasetUniquePtr>> groups;
    auto key = [](GDALDataset& d) {
        double t[6] = {0, 0, 0, 0, 0, 0};
        d.GetGeoTransform(t);
        char* wkt = nullptr;
        if (d.GetSpatialRef())
            d.GetSpatialRef()->exportToWkt(&wkt);
        std::string k = std::string(wkt ? wkt : "") +
                        CPLSPrintf("|%.12g|%.12g|%.12g|%.12g", t[1], t[2], t[4], t[5]);
        CPLFree(wkt);
        return k;
    };
    std::vector<std::string> keys;
    for (auto& source : heights) {
        const std::string k = key(*source);
        const auto found = std::find(keys.begin(), keys.end(), k);
        if (found == keys.end()) {
            keys.push_back(k);
            groups.emplace_back();
            groups.back().push_back(std::move(source));
        } else {
            groups[found - keys.begin()].push_back(std::move(source));
        }
    }
    std::vector<GDALDatasetUniquePtr> out;
    for (auto& group : groups) {
        if (group.size() == 1) {
            out.push_back(std::move(group.front()));
            continue;
        }
        std::vector<GDALDatasetH> handles;
        for (auto& source : group)
            handles.push_back(GDALDataset::ToHandle(source.get()));
        CPLStringList args;
        for (const char* arg : {"-resolution", "highest"})
            args.AddString(arg);
        std::unique_ptr<GDALBuildVRTOptions, BuildVrtOptionsFree> options(
            GDALBuildVRTOptionsNew(args.List(), nullptr));
        GDALDatasetUniquePtr mosaic = own(GDALBuildVRT(
            "", static_cast<int>(handles.size()), handles.data(), nullptr, options.get(), nullptr));
        if (!mosaic) {
            for (auto& source : group)
                out.push_back(std::move(source));
            continue;
        }
        // The mosaic reads its sources through their handles: they live as long as it.
        for (auto& source : group)
            kept.push_back(std::move(source));
        out.push_back(std::move(mosaic));
    }
    return out;
}

int toldProgress(double complete, const char*, void* progress) {
    static_cast<Progress*>(progress)->share(complete);
    return TRUE;
}

bool warp(std::vector<GDALDatasetUniquePtr>& sources, GDALDataset& target,
          const char* resampling = "bilinear", Progress* progress = nullptr) {
    std::vector<GDALDatasetH> handles;
    for (auto& source : sources)
        handles.push_back(GDALDataset::ToHandle(source.get()));
    CPLStringList args;
    for (const char* arg : {"-r", resampling, "-multi", "-wo", "NUM_THREADS=ALL_CPUS"})
        args.AddString(arg);
    std::unique_ptr<GDALWarpAppOptions, WarpOptionsFree> options(
        GDALWarpAppOptionsNew(args.List(), nullptr));
    if (progress)
        GDALWarpAppOptionsSetProgress(options.get(), toldProgress, progress);
    return GDALWarp(nullptr, GDALDataset::ToHandle(&target), static_cast<int>(handles.size()),
                    handles.data(), options.get(), nullptr) != nullptr;
}

// The rectangle a source's posts span: its extent less half a post on each side, as a
// raster of ones. The terrain has no height beyond a DEM's outermost posts, and neither
// has the map's ground; a mosaic spans the seams between its tiles.
GDALDatasetUniquePtr postHull(GDALDataset& source) {
    double t[6];
    const int width = source.GetRasterXSize() - 1, height = source.GetRasterYSize() - 1;
    if (width < 1 || height < 1 || source.GetGeoTransform(t) != CE_None)
        return nullptr;
    GDALDatasetUniquePtr hull(GetGDALDriverManager()->GetDriverByName("MEM")->Create(
        "", width, height, 1, GDT_Byte, nullptr));
    if (!hull)
        return hull;
    const double shifted[6] = {t[0] + 0.5 * (t[1] + t[2]), t[1], t[2],
                               t[3] + 0.5 * (t[4] + t[5]), t[4], t[5]};
    hull->SetGeoTransform(const_cast<double*>(shifted));
    hull->SetSpatialRef(source.GetSpatialRef());
    hull->GetRasterBand(1)->Fill(1);
    return hull;
}

// Where some source has posts on every side, in the picture's grid.
bool coveredByPosts(std::vector<GDALDatasetUniquePtr>& sources, const MapGrid& grid,
                    const std::string& wkt, std::vector<uint8_t>& covered) {
    std::vector<GDALDatasetUniquePtr> hulls;
    for (auto& source : sources) {
        if (GDALDatasetUniquePtr hull = postHull(*source))
            hulls.push_back(std::move(hull));
    }
    covered.assign(static_cast<size_t>(grid.width) * grid.height, 0);
    if (hulls.empty())
        return true;
    GDALDatasetUniquePtr mask = emptyGrid(grid, wkt, GDT_Byte, 0.0);
    return mask && warp(hulls, *mask, "near") &&
           mask->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, grid.width, grid.height, covered.data(),
                                            grid.width, grid.height, GDT_Byte, 0, 0) == CE_None;
}

uint8_t scaled(uint8_t channel, double shade) {
    return static_cast<uint8_t>(std::clamp(channel * shade, 0.0, 255.0) + 0.5);
}

bool readBand(GDALDataset& raster, int band, const MapGrid& grid, GDALDataType type, void* out) {
    return raster.GetRasterBand(band)->RasterIO(GF_Read, 0, 0, grid.width, grid.height, out,
                                                grid.width, grid.height, type, 0, 0) == CE_None;
}

// The ramp's colours from the lowest height shown to the highest, as gdaldem gives them.
std::vector<MapColour> rampColours(const RampFile& ramp, double low, double high) {
    const int steps = 16;
    std::vector<float> heights;
    for (int i = 0; i < steps; ++i)
        heights.push_back(static_cast<float>(low + (high - low) * i / (steps - 1)));
    GDALDatasetUniquePtr raster = memoryRaster(steps, 1, heights);
    GDALDatasetUniquePtr coloured = raster ? colourRelief(*raster, ramp) : nullptr;
    std::vector<MapColour> colours;
    if (!coloured)
        return colours;
    uint8_t rgb[3][steps];
    for (int band = 0; band < 3; ++band) {
        if (coloured->GetRasterBand(band + 1)->RasterIO(GF_Read, 0, 0, steps, 1, rgb[band], steps,
                                                        1, GDT_Byte, 0, 0) != CE_None)
            return {};
    }
    for (int i = 0; i < steps; ++i)
        colours.push_back({rgb[0][i] / 255.0, rgb[1][i] / 255.0, rgb[2][i] / 255.0});
    return colours;
}

}  // namespace

std::string demProblem(const std::string& path) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    GDALDatasetUniquePtr dem = openRaster(path);
    if (!dem || dem->GetRasterCount() < 1)
        return "is not a raster GDAL can read";
    return "";
}

bool demExtent(const std::vector<std::string>& dems, const std::string& planeWkt,
               double bounds[4]) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    OGRSpatialReference plane;
    if (planeWkt.empty() || plane.importFromWkt(planeWkt.c_str()) != OGRERR_NONE)
        return false;
    plane.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    bool any = false;
    for (const std::string& path : dems) {
        GDALDatasetUniquePtr dem = openRaster(path);
        double t[6];
        if (!dem || !dem->GetSpatialRef() || dem->GetGeoTransform(t) != CE_None)
            continue;
        OGRSpatialReference source(*dem->GetSpatialRef());
        source.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
        DtTransformPtr toPlane(OGRCreateCoordinateTransformation(&source, &plane));
        const double x0 = t[0], x1 = t[0] + t[1] * dem->GetRasterXSize();
        const double y0 = t[3], y1 = t[3] + t[5] * dem->GetRasterYSize();
        double b[4];
        if (!toPlane ||
            !toPlane->TransformBounds(std::min(x0, x1), std::min(y0, y1), std::max(x0, x1),
                                      std::max(y0, y1), &b[0], &b[1], &b[2], &b[3], 21))
            continue;
        for (int i = 0; i < 2; ++i) {
            bounds[i] = any ? std::min(bounds[i], b[i]) : b[i];
            bounds[i + 2] = any ? std::max(bounds[i + 2], b[i + 2]) : b[i + 2];
        }
        any = true;
    }
    return any;
}

double demPostSpacing(const std::vector<std::string>& dems, const std::string& planeWkt) {
    double finest = 0.0;
    for (const std::string& path : dems) {
        double b[4];
        GDALDatasetUniquePtr dem = openRaster(path);
        if (!dem || dem->GetRasterXSize() < 1 || dem->GetRasterYSize() < 1 ||
            !demExtent({path}, planeWkt, b))
            continue;
        const double spacing =
            std::min((b[2] - b[0]) / dem->GetRasterXSize(), (b[3] - b[1]) / dem->GetRasterYSize());
        if (spacing > 0.0 && (finest == 0.0 || spacing < finest))
            finest = spacing;
    }
    return finest;
}

std::string rampProblem(const std::string& path) {
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    VSIStatBufL stat;
    if (VSIStatL(path.c_str(), &stat) != 0)
        return "no such file";
    const RampFile ramp(path);
    GDALDatasetUniquePtr probe = memoryRaster(1, 1, {0.0f});
    // GDAL says so, but may still make a raster, of a file with no colour in it.
    if (!probe || !colourRelief(*probe, ramp) || DtGdalMessages::failed())
        return DtGdalMessages::last("GDAL cannot read it as a color-relief ramp");
    return "";
}

bool makeGround(const std::vector<std::string>& dems, const MapGrid& grid, const std::string& wkt,
                const GroundStyle& style, Ground& ground, std::string& problem,
                Progress* progress) {
    if (dems.empty())
        return true;
    if (wkt.empty()) {
        ground.notes.push_back("the DEMs are not drawn: the scene has no place on the earth");
        return true;
    }
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    // The warp writes each source over the ones before: the first DEM goes last.
    std::vector<GDALDatasetUniquePtr> opened, heights, kept;
    for (auto path = dems.rbegin(); path != dems.rend(); ++path) {
        GDALDatasetUniquePtr dem = openRaster(*path);
        if (!dem || !dem->GetSpatialRef()) {
            ground.notes.push_back(*path + ": not drawn: it has no coordinate system");
            continue;
        }
        GDALDatasetUniquePtr band = heightsOf(*dem);
        if (!band) {
            problem = *path + ": " + DtGdalMessages::last("cannot be read");
            return false;
        }
        opened.push_back(std::move(dem));
        heights.push_back(std::move(band));
    }
    if (heights.empty())
        return true;
    std::vector<GDALDatasetUniquePtr> sources = mosaics(heights, kept);
    GDALDatasetUniquePtr target = emptyGrid(grid, wkt);
    if (!target || !warp(sources, *target, "bilinear", progress)) {
        problem =
            "the DEMs cannot be warped into the picture: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    const size_t count = static_cast<size_t>(grid.width) * grid.height;
    std::vector<float> elevation(count);
    std::vector<uint8_t> covered;
    if (!readBand(*target, 1, grid, GDT_Float32, elevation.data()) ||
        !coveredByPosts(sources, grid, wkt, covered)) {
        problem = "the DEMs cannot be read back: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    for (size_t i = 0; i < count; ++i) {
        if (!covered[i])
            elevation[i] = static_cast<float>(noData);
    }
    // What is left out must be no value to the relief and the ramp as well.
    if (target->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, grid.width, grid.height,
                                           elevation.data(), grid.width, grid.height, GDT_Float32,
                                           0, 0) != CE_None) {
        problem = "the DEMs cannot be read back: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    bool any = false;
    for (float h : elevation) {
        if (h == static_cast<float>(noData))
            continue;
        ground.lowest = any ? std::min<double>(ground.lowest, h) : h;
        ground.highest = any ? std::max<double>(ground.highest, h) : h;
        any = true;
    }
    if (!any)
        return true;
    const RampFile ramp(style.rampFile);
    GDALDatasetUniquePtr coloured = colourRelief(*target, ramp);
    std::vector<uint8_t> rgb[3], shades;
    for (int band = 0; band < 3 && coloured; ++band) {
        rgb[band].resize(count);
        if (!readBand(*coloured, band + 1, grid, GDT_Byte, rgb[band].data()))
            coloured.reset();
    }
    if (!coloured) {
        problem = "the DEMs cannot be coloured: " + DtGdalMessages::last("GDAL failed");
        return false;
    }
    double flat = 1.0;
    if (style.relief != Relief::None) {
        GDALDatasetUniquePtr shaded = hillshade(*target, style);
        shades.resize(count);
        if (!shaded || !readBand(*shaded, 1, grid, GDT_Byte, shades.data())) {
            problem = "the DEMs cannot be shaded: " + DtGdalMessages::last("GDAL failed");
            return false;
        }
        flat = flatShade(style);
    }
    ground.pixels.assign(count, 0u);
    for (size_t i = 0; i < count; ++i) {
        if (elevation[i] == static_cast<float>(noData))
            continue;
        const double shade = shades.empty() || shades[i] == 0 ? 1.0 : shades[i] / flat;
        ground.pixels[i] = 0xFF000000u | uint32_t{scaled(rgb[0][i], shade)} << 16 |
                           uint32_t{scaled(rgb[1][i], shade)} << 8 | scaled(rgb[2][i], shade);
    }
    ground.ramp = rampColours(ramp, ground.lowest, ground.highest);
    return true;
}
