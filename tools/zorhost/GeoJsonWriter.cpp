#include "GeoJsonWriter.h"

#include <cpl_error.h>
#include <ogr_spatialref.h>

#include <filesystem>

namespace {

std::string lastGdalError(const std::string& fallback) {
    const char* message = CPLGetLastErrorMsg();
    return message && *message ? message : fallback;
}

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
void addVertices(Curve& curve, const std::vector<Wgs84Position>& vertices) {
    for (const Wgs84Position& v : vertices)
        curve.addPoint(v.lon, v.lat, v.height);
}

std::unique_ptr<OGRGeometry> geometryOf(GeoJsonWriter::Shape shape,
                                        const std::vector<Wgs84Position>& vertices) {
    if (shape == GeoJsonWriter::Point) {
        const Wgs84Position p = vertices.empty() ? Wgs84Position() : vertices.front();
        return std::make_unique<OGRPoint>(p.lon, p.lat, p.height);
    }
    if (shape == GeoJsonWriter::Line) {
        auto line = std::make_unique<OGRLineString>();
        addVertices(*line, vertices);
        return line;
    }
    auto ring = std::make_unique<OGRLinearRing>();
    addVertices(*ring, vertices);
    if (ring->getNumPoints() > 0)
        ring->closeRings();
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(ring.release());
    return polygon;
}

}  // namespace

bool GeoJsonWriter::open(const std::string& path, const Fields& fields, std::string& error) {
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GeoJSON");
    if (!driver) {
        error = "this GDAL has no GeoJSON driver";
        return false;
    }
    std::error_code ignored;
    std::filesystem::remove(path, ignored);  // the driver does not overwrite
    CPLErrorReset();
    dataset_.reset(driver->Create(path.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!dataset_) {
        error = path + ": " + lastGdalError("cannot be created");
        return false;
    }
    OGRSpatialReference wgs84;
    wgs84.SetWellKnownGeogCS("WGS84");
    wgs84.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    layer_ = dataset_->CreateLayer(std::filesystem::path(path).stem().c_str(), &wgs84, wkbUnknown,
                                   nullptr);
    for (const auto& [name, type] : fields) {
        OGRFieldDefn field(name.c_str(), type);
        if (!layer_ || layer_->CreateField(&field) != OGRERR_NONE) {
            error = path + ": " + lastGdalError("cannot be written");
            return false;
        }
    }
    path_ = path;
    return true;
}

bool GeoJsonWriter::add(Shape shape, const std::vector<Wgs84Position>& vertices,
                        const Json& properties, std::string& error) {
    OGRFeatureUniquePtr feature(OGRFeature::CreateFeature(layer_->GetLayerDefn()));
    for (const auto& [name, value] : properties.items())
        setProperty(*feature, name, value);
    feature->SetGeometryDirectly(geometryOf(shape, vertices).release());
    if (layer_->CreateFeature(feature.get()) != OGRERR_NONE) {
        error = path_ + ": " + lastGdalError("cannot be written");
        return false;
    }
    return true;
}

bool GeoJsonWriter::close(std::string& error) {
    if (!dataset_)
        return true;
    CPLErrorReset();
    GDALClose(dataset_.release());  // the driver writes the file out here
    if (CPLGetLastErrorType() >= CE_Failure) {
        error = path_ + ": " + lastGdalError("cannot be written");
        return false;
    }
    return true;
}
