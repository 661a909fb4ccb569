#include "GeoJsonWriter.h"

#include <ogr_spatialref.h>

#include <filesystem>

#include "gdalsupport/DtGdalScope.h"

namespace {

void setProperty(OGRFeature& feature, const std::string& name, const Json& value) {
    const int index = feature.GetFieldIndex(name.c_str());
    if (index < 0)
        return;
    if (value.is_null())
        feature.SetFieldNull(index);
    else if (value.is_number_integer())
        feature.SetField(index, static_cast<GIntBig>(value.get<int64_t>()));
    else if (value.is_number())
        feature.SetField(index, value.get<double>());
    else if (value.is_string())
        feature.SetField(index, value.get<std::string>().c_str());
}

template <typename Curve>
void addVertices(Curve& curve, const std::vector<Wgs84Position>& vertices, bool threeD) {
    for (const Wgs84Position& v : vertices) {
        if (threeD)
            curve.addPoint(v.lon, v.lat, v.height);
        else
            curve.addPoint(v.lon, v.lat);
    }
}

std::unique_ptr<OGRGeometry> geometryOf(GeoJsonWriter::Shape shape,
                                        const std::vector<Wgs84Position>& vertices, bool threeD) {
    if (shape == GeoJsonWriter::Point) {
        const Wgs84Position p = vertices.empty() ? Wgs84Position() : vertices.front();
        return threeD ? std::make_unique<OGRPoint>(p.lon, p.lat, p.height)
                      : std::make_unique<OGRPoint>(p.lon, p.lat);
    }
    if (shape == GeoJsonWriter::Line) {
        auto line = std::make_unique<OGRLineString>();
        addVertices(*line, vertices, threeD);
        return line;
    }
    auto ring = std::make_unique<OGRLinearRing>();
    addVertices(*ring, vertices, threeD);
    if (ring->getNumPoints() > 0)
        ring->closeRings();
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(ring.release());
    return polygon;
}

}  // namespace

bool GeoJsonWriter::open(const Target& target, const Fields& fields, bool threeD,
                         std::string& error) {
    path_ = target.path;
    threeD_ = threeD;
    if (!file_.begin(target.path, target.inputs, target.overwrite, error)) {
        error = target.path + ": " + error;
        return false;
    }
    DtGdalRegisterOnce();
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GeoJSON");
    if (!driver) {
        error = "this GDAL has no GeoJSON driver";
        return false;
    }
    dataset_.reset(driver->Create(file_.gdalPath().c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!dataset_) {
        error = path_ + ": " + DtGdalMessages::last("cannot be created");
        return false;
    }
    OGRSpatialReference wgs84 = DtWgs84();
    const std::string layerName =
        path_ == "-" ? std::string("stdout") : std::filesystem::path(path_).stem().string();
    layer_ = dataset_->CreateLayer(layerName.c_str(), &wgs84, wkbUnknown, nullptr);
    for (const auto& [name, type] : fields) {
        OGRFieldDefn field(name.c_str(), type);
        if (!layer_ || layer_->CreateField(&field) != OGRERR_NONE) {
            error = path_ + ": " + DtGdalMessages::last("cannot be written");
            return false;
        }
    }
    return true;
}

bool GeoJsonWriter::add(Shape shape, const std::vector<Wgs84Position>& vertices,
                        const Json& properties, std::string& error) {
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    OGRFeatureUniquePtr feature(OGRFeature::CreateFeature(layer_->GetLayerDefn()));
    for (const auto& [name, value] : properties.items())
        setProperty(*feature, name, value);
    feature->SetGeometryDirectly(geometryOf(shape, vertices, threeD_).release());
    if (layer_->CreateFeature(feature.get()) != OGRERR_NONE) {
        error = path_ + ": " +
                (file_.writeFault().empty() ? DtGdalMessages::last("cannot be written")
                                            : "cannot be written: " + file_.writeFault());
        return false;
    }
    return true;
}

bool GeoJsonWriter::close(std::string& error) {
    if (!dataset_)
        return false;
    const DtGdalMessages quiet(DtGdalMessages::Quiet);
    GDALClose(dataset_.release());  // the driver writes the file out here
    if (DtGdalMessages::failed() && file_.writeFault().empty()) {
        error = path_ + ": " + DtGdalMessages::last("cannot be written");
        return false;
    }
    if (!file_.commit(error)) {
        error = path_ + ": " + error;
        return false;
    }
    return true;
}

std::string geoJsonTargetProblem(const std::string& path) {
    const std::string extension = CPLGetExtension(path.c_str());
    const std::string lower = CPLString(extension).tolower();
    if (lower.empty() || lower == "geojson" || lower == "json")
        return "";
    DtGdalRegisterOnce();
    GDALDriverManager& drivers = *GetGDALDriverManager();
    for (int i = 0; i < drivers.GetDriverCount(); ++i) {
        GDALDriver* driver = drivers.GetDriver(i);
        const char* extensions = driver ? driver->GetMetadataItem(GDAL_DMD_EXTENSIONS) : nullptr;
        if (!extensions)
            continue;
        const CPLStringList list(CSLTokenizeString(extensions));
        for (int j = 0; j < list.size(); ++j) {
            if (CPLString(list[j]).tolower() == lower) {
                return path + ": \"." + extension + "\" names another format (" +
                       driver->GetDescription() + "); GeoJSON goes to a .geojson or .json file";
            }
        }
    }
    return "";
}
