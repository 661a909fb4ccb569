#include "zorUtil/DtCoordinateConverter.h"

#include <Eigen/Geometry>
#include <GeographicLib/Constants.hpp>
#include <GeographicLib/Geocentric.hpp>
#include <GeographicLib/LambertConformalConic.hpp>
#include <GeographicLib/TransverseMercator.hpp>
#include <GeographicLib/UTMUPS.hpp>

#include <cmath>
#include <vector>

#include "hxutil/DtException.h"
#include "hxutil/DtString.h"
#include "matrix/DtGeodeticCoord.h"

namespace kelZor {

const char* const DtCoordinateConverter::Geocentric = "Geocentric";
const char* const DtCoordinateConverter::UTM = "UTM";
const char* const DtCoordinateConverter::FlatEarth = "FlatEarth";
const char* const DtCoordinateConverter::Lambert = "Lambert";
const char* const DtCoordinateConverter::Cartesian = "Cartesian";

namespace {

const GeographicLib::Geocentric& wgs84() {
    return DtGlobalEllipsoid()->geocentric();
}

std::string joinNumbers(std::initializer_list<std::string> fields) {
    std::string text;
    for (const std::string& field : fields) {
        if (!text.empty())
            text += ',';
        text += field;
    }
    return text;
}

std::string num(double v) {
    return DtShortestDouble(v);
}

// Splits a stringRep into exactly `expected` numeric-or-letter fields.
std::vector<DtString> fieldsOf(const std::string& rep, size_t expected, const char* kind) {
    std::vector<DtString> fields;
    DtString(rep).tokenize(',', fields);
    if (fields.size() != expected ||
        static_cast<size_t>(DtString(rep).count(',')) + 1 != expected) {
        DtThrowInvalidInput(std::string("malformed ") + kind + " parameters \"" + rep + "\"");
    }
    return fields;
}

// Non-finite values are accepted: a converter set up with one must still rebuild
// from its own text.
double numberField(const DtString& field, const std::string& rep) {
    bool ok = false;
    const double value = field.toDouble(&ok);
    if (!ok) {
        DtThrowInvalidInput("malformed number \"" + field.stdString() + "\" in \"" + rep + "\"");
    }
    return value;
}

long integerField(const DtString& field, const std::string& rep) {
    bool ok = false;
    const int value = field.toInt(&ok);
    if (!ok)
        DtThrowInvalidInput("malformed integer \"" + field.stdString() + "\" in \"" + rep + "\"");
    return value;
}

void geodeticOf(const DtVector64& geoc, double& latDeg, double& lonDeg, double& h) {
    wgs84().Reverse(geoc.x(), geoc.y(), geoc.z(), latDeg, lonDeg, h);
}

DtVector64 geocentricOf(double latDeg, double lonDeg, double h) {
    double x, y, z;
    wgs84().Forward(latDeg, lonDeg, h, x, y, z);
    return DtVector64(x, y, z);
}

}  // namespace

void DtCoordinateConverter::cigToGeodetic(const DtVector64& cig, double& latDeg, double& lonDeg,
                                          double& height) const {
    DtVector64 geoc;
    cigToGeoc(cig, geoc);
    geodeticOf(geoc, latDeg, lonDeg, height);
}

DtDegMinSec DtCoordinateConverter::convertToDmsLat(double degrees) {
    return DtDegMinSec::fromLatitude(degrees);
}

DtDegMinSec DtCoordinateConverter::convertToDmsLon(double degrees) {
    return DtDegMinSec::fromLongitude(degrees);
}

std::unique_ptr<DtCoordinateConverter> DtCoordinateConverter::create(const std::string& type,
                                                                     const std::string& rep) {
    if (type == Geocentric)
        return std::make_unique<DtGeocentricCoordinateConverter>();
    if (type == Cartesian)
        return std::make_unique<DtCartesianCoordinateConverter>();
    // A DTED cell is reported as "Flat Earth" with its origin: the flat-earth text.
    if (type == FlatEarth || type == "Flat Earth")
        return DtFlatEarthCoordinateConverter::fromStringRep(rep);
    if (type == UTM)
        return DtUtmCoordinateConverter::fromStringRep(rep);
    if (type == Lambert)
        return DtLambertCoordinateConverter::fromStringRep(rep);
    DtThrowInvalidInput("unknown coordinate system type \"" + type + "\"");
}

bool DtCoordinateConverter::operator==(const DtCoordinateConverter& other) const {
    return std::string(type()) == other.type() && stringRep() == other.stringRep();
}

std::string DtGeocentricCoordinateConverter::stringRep() const {
    return "WGS84";
}
std::string DtCartesianCoordinateConverter::stringRep() const {
    return "";
}

void DtMapProjectionConverter::cigToGeoc(const DtVector64& cig, DtVector64& geoc) const {
    double lat, lon, h;
    cigToGeodetic(cig, lat, lon, h);
    geoc = geocentricOf(lat, lon, h);
}

// ---------------------------------------------------------------- flat earth

DtFlatEarthCoordinateConverter::DtFlatEarthCoordinateConverter() {
    setOriginDegrees(0.0, 0.0);
}

void DtFlatEarthCoordinateConverter::init(double latitude, double longitude) {
    setOriginDegrees(DtRad2Deg(latitude), DtRad2Deg(longitude));
}

void DtFlatEarthCoordinateConverter::init(const DtDegMinSec& latitude,
                                          const DtDegMinSec& longitude) {
    setOriginDegrees(latitude.toDegrees(), longitude.toDegrees());
}

void DtFlatEarthCoordinateConverter::setOriginDegrees(double latDeg, double lonDeg) {
    latDeg_ = latDeg;
    lonDeg_ = lonDeg;
    // The rotation GeographicLib gives with the origin takes local east-north-up
    // vectors to geocentric ones; its transpose takes them back.
    std::vector<double> rotation(9);
    wgs84().Forward(latDeg, lonDeg, 0.0, originGeoc_[0], originGeoc_[1], originGeoc_[2], rotation);
    std::copy(rotation.begin(), rotation.end(), enuToGeoc_);
}

std::string DtFlatEarthCoordinateConverter::stringRep() const {
    return joinNumbers({num(latDeg_), num(lonDeg_)});
}

void DtFlatEarthCoordinateConverter::geocToCig(const DtVector64& geoc, DtVector64& cig) const {
    const double d[3] = {geoc.x() - originGeoc_[0], geoc.y() - originGeoc_[1],
                         geoc.z() - originGeoc_[2]};
    const double* m = enuToGeoc_;  // row-major, columns are east, north, up
    cig =
        DtVector64(m[0] * d[0] + m[3] * d[1] + m[6] * d[2], m[1] * d[0] + m[4] * d[1] + m[7] * d[2],
                   m[2] * d[0] + m[5] * d[1] + m[8] * d[2]);
}

void DtFlatEarthCoordinateConverter::cigToGeoc(const DtVector64& cig, DtVector64& geoc) const {
    const double* m = enuToGeoc_;
    geoc = DtVector64(originGeoc_[0] + m[0] * cig.x() + m[1] * cig.y() + m[2] * cig.z(),
                      originGeoc_[1] + m[3] * cig.x() + m[4] * cig.y() + m[5] * cig.z(),
                      originGeoc_[2] + m[6] * cig.x() + m[7] * cig.y() + m[8] * cig.z());
}

std::unique_ptr<DtFlatEarthCoordinateConverter> DtFlatEarthCoordinateConverter::fromStringRep(
    const std::string& rep) {
    const std::vector<DtString> f = fieldsOf(rep, 2, "flat earth");
    auto converter = std::make_unique<DtFlatEarthCoordinateConverter>();
    converter->setOriginDegrees(numberField(f[0], rep), numberField(f[1], rep));
    return converter;
}

// ---------------------------------------------------------------- UTM

namespace {

constexpr double UtmFalseEasting = 500000.0;
constexpr double UtmSouthFalseNorthing = 10000000.0;

bool isUtmZone(long zone) {
    return zone >= GeographicLib::UTMUPS::MINUTMZONE && zone <= GeographicLib::UTMUPS::MAXUTMZONE;
}

double centralMeridian(int zone) {
    return 6.0 * zone - 183.0;
}

[[noreturn]] void throwOutside(const char* what) {
    DtThrowInvalidInput(std::string("position outside the UTM zone's projection: ") + what);
}

}  // namespace

bool DtUtmCoordinateConverter::project(int zone, bool north, double latDeg, double lonDeg,
                                       double& easting, double& northing) {
    if (!(std::fabs(latDeg) <= 90.0) || !std::isfinite(lonDeg))
        return false;
    if (isUtmZone(zone)) {
        // Not UTMUPS::Forward: its range check refuses a country-wide layer that reaches
        // beyond the zone's band, where the zone's projection is still defined.
        GeographicLib::TransverseMercator::UTM().Forward(centralMeridian(zone), latDeg, lonDeg,
                                                         easting, northing);
        easting += UtmFalseEasting;
        northing += north ? 0.0 : UtmSouthFalseNorthing;
    } else {
        try {
            int unused;
            bool northp;
            GeographicLib::UTMUPS::Forward(latDeg, lonDeg, unused, northp, easting, northing,
                                           GeographicLib::UTMUPS::UPS);
            if (northp != north)
                return false;  // the other pole's system
        } catch (const GeographicLib::GeographicErr&) {
            return false;
        }
    }
    return std::isfinite(easting) && std::isfinite(northing);
}

bool DtUtmCoordinateConverter::unproject(int zone, bool north, double easting, double northing,
                                         double& latDeg, double& lonDeg) {
    if (!std::isfinite(easting) || !std::isfinite(northing))
        return false;
    if (isUtmZone(zone)) {
        GeographicLib::TransverseMercator::UTM().Reverse(
            centralMeridian(zone), easting - UtmFalseEasting,
            northing - (north ? 0.0 : UtmSouthFalseNorthing), latDeg, lonDeg);
    } else {
        try {
            GeographicLib::UTMUPS::Reverse(GeographicLib::UTMUPS::UPS, north, easting, northing,
                                           latDeg, lonDeg);
        } catch (const GeographicLib::GeographicErr&) {
            return false;
        }
    }
    return std::isfinite(latDeg) && std::isfinite(lonDeg);
}

DtUtmCoordinateConverter::DtUtmCoordinateConverter() {
    init(31, 'N', false);
}

void DtUtmCoordinateConverter::setZone(long zone, bool haveOrigin) {
    zone_ = static_cast<int32_t>(zone);
    if (isUtmZone(zone)) {
        effectiveZone_ = static_cast<int>(zone);
    } else if (isUtmZone(-zone)) {
        effectiveZone_ = static_cast<int>(-zone);
        hemisphere_ = 'S';
    } else if (haveOrigin && std::fabs(originLatDeg_) <= 90.0 && std::isfinite(originLonDeg_)) {
        effectiveZone_ = GeographicLib::UTMUPS::StandardZone(originLatDeg_, originLonDeg_);
    } else {
        effectiveZone_ = GeographicLib::UTMUPS::UPS;
    }
}

void DtUtmCoordinateConverter::init(long zone, char hemisphere, bool applyFalseOrigin) {
    init(0.0, 0.0, 0.0, zone, hemisphere, applyFalseOrigin);
}

void DtUtmCoordinateConverter::init(double falseOriginX, double falseOriginY, double falseOriginZ,
                                    long zone, char hemisphere, bool applyFalseOrigin) {
    hemisphere_ = (hemisphere == 'S' || hemisphere == 's') ? 'S' : 'N';
    falseOrigin_[0] = falseOriginX;
    falseOrigin_[1] = falseOriginY;
    falseOrigin_[2] = falseOriginZ;
    applyFalseOrigin_ = applyFalseOrigin;
    ellipsoidCode_ = 0;
    setZone(zone, false);
    // Without an origin of its own, the zone's central meridian on the equator is one;
    // for UPS, the pole.
    const bool ups = effectiveZone_ == GeographicLib::UTMUPS::UPS;
    originLatDeg_ = ups ? (hemisphere_ == 'N' ? 90.0 : -90.0) : 0.0;
    originLonDeg_ = ups ? 0.0 : centralMeridian(effectiveZone_);
}

void DtUtmCoordinateConverter::init(double latitude, double longitude, long zone,
                                    int ellipsoidCode) {
    originLatDeg_ = latitude;
    originLonDeg_ = longitude;
    hemisphere_ = latitude < 0.0 ? 'S' : 'N';
    falseOrigin_[0] = falseOrigin_[1] = falseOrigin_[2] = 0.0;
    applyFalseOrigin_ = false;
    ellipsoidCode_ = static_cast<uint8_t>(ellipsoidCode);
    setZone(zone, true);
}

void DtUtmCoordinateConverter::init(const DtDegMinSec& latitude, const DtDegMinSec& longitude,
                                    long zone, int ellipsoidCode) {
    init(latitude.toDegrees(), longitude.toDegrees(), zone, ellipsoidCode);
}

bool DtUtmCoordinateConverter::falseOrigin(double& x, double& y, double& z) const {
    x = falseOrigin_[0];
    y = falseOrigin_[1];
    z = falseOrigin_[2];
    return applyFalseOrigin_;
}

bool DtUtmCoordinateConverter::hasFrameOrigin() const {
    return applyFalseOrigin_ && (falseOrigin_[0] != 0.0 || falseOrigin_[1] != 0.0);
}

uint8_t DtUtmCoordinateConverter::originPlacement() const {
    return hasFrameOrigin() ? OriginAtFrameZero : OriginInArea;
}

int32_t DtUtmCoordinateConverter::signedZone() const {
    return hemisphere_ == 'S' ? -effectiveZone_ : effectiveZone_;
}

// The height of the false origin has no place in the terrain database's system: only its
// easting and northing reach a load. NaN when the false origin lies nowhere.
void DtUtmCoordinateConverter::frameOrigin(double& latDeg, double& lonDeg) const {
    latDeg = originLatDeg_;
    lonDeg = originLonDeg_;
    if (hasFrameOrigin() && !unproject(effectiveZone_, hemisphere_ == 'N', falseOrigin_[0],
                                       falseOrigin_[1], latDeg, lonDeg))
        latDeg = lonDeg = std::nan("");
}

DtDegMinSec DtUtmCoordinateConverter::frameOriginLatitude() const {
    double lat, lon;
    frameOrigin(lat, lon);
    return convertToDmsLat(lat);
}

DtDegMinSec DtUtmCoordinateConverter::frameOriginLongitude() const {
    double lat, lon;
    frameOrigin(lat, lon);
    return convertToDmsLon(lon);
}

std::string DtUtmCoordinateConverter::stringRep() const {
    return joinNumbers({num(originLatDeg_), num(originLonDeg_), std::to_string(zone_),
                        std::to_string(effectiveZone_), std::string(1, hemisphere_),
                        num(falseOrigin_[0]), num(falseOrigin_[1]), num(falseOrigin_[2]),
                        applyFalseOrigin_ ? "1" : "0", std::to_string(ellipsoidCode_)});
}

void DtUtmCoordinateConverter::geocToCig(const DtVector64& geoc, DtVector64& cig) const {
    double lat, lon, h;
    geodeticOf(geoc, lat, lon, h);
    double easting, northing;
    // Northings stay in the converter's hemisphere even for points across the equator.
    if (!std::isfinite(h) ||
        !project(effectiveZone_, hemisphere_ == 'N', lat, lon, easting, northing))
        throwOutside("no finite easting and northing");
    if (applyFalseOrigin_) {
        easting -= falseOrigin_[0];
        northing -= falseOrigin_[1];
        h -= falseOrigin_[2];
    }
    cig = DtVector64(easting, northing, h);
}

void DtUtmCoordinateConverter::cigToGeodetic(const DtVector64& cig, double& latDeg, double& lonDeg,
                                             double& height) const {
    double easting = cig.x();
    double northing = cig.y();
    height = cig.z();
    if (applyFalseOrigin_) {
        easting += falseOrigin_[0];
        northing += falseOrigin_[1];
        height += falseOrigin_[2];
    }
    if (!std::isfinite(height) ||
        !unproject(effectiveZone_, hemisphere_ == 'N', easting, northing, latDeg, lonDeg))
        throwOutside("no finite latitude and longitude");
}

std::unique_ptr<DtUtmCoordinateConverter> DtUtmCoordinateConverter::fromStringRep(
    const std::string& rep) {
    const std::vector<DtString> f = fieldsOf(rep, 10, "UTM");
    auto c = std::make_unique<DtUtmCoordinateConverter>();
    c->originLatDeg_ = numberField(f[0], rep);
    c->originLonDeg_ = numberField(f[1], rep);
    c->zone_ = static_cast<int32_t>(integerField(f[2], rep));
    const long effective = integerField(f[3], rep);
    if (effective < GeographicLib::UTMUPS::UPS || effective > GeographicLib::UTMUPS::MAXUTMZONE ||
        (f[4] != "N" && f[4] != "S")) {
        DtThrowInvalidInput("malformed UTM parameters \"" + rep + "\"");
    }
    c->effectiveZone_ = static_cast<int>(effective);
    c->hemisphere_ = f[4][0];
    for (int i = 0; i < 3; ++i)
        c->falseOrigin_[i] = numberField(f[5 + i], rep);
    c->applyFalseOrigin_ = integerField(f[8], rep) != 0;
    c->ellipsoidCode_ = static_cast<uint8_t>(integerField(f[9], rep));
    return c;
}

// ---------------------------------------------------------------- Lambert

struct DtLambertCoordinateConverter::Projection {
    GeographicLib::LambertConformalConic lcc;
    double originNorthing;
};

DtLambertCoordinateConverter::DtLambertCoordinateConverter() {
    init(0.0, 0.0, 30.0, 60.0);
}
DtLambertCoordinateConverter::~DtLambertCoordinateConverter() = default;

void DtLambertCoordinateConverter::init(double originLatitude, double originLongitude,
                                        double parallel1, double parallel2) {
    originLatDeg_ = originLatitude;
    originLonDeg_ = originLongitude;
    parallel1Deg_ = parallel1;
    parallel2Deg_ = parallel2;
    projection_.reset();
    try {
        GeographicLib::LambertConformalConic lcc(GeographicLib::Constants::WGS84_a(),
                                                 GeographicLib::Constants::WGS84_f(), parallel1,
                                                 parallel2, 1.0);
        double x, originNorthing, gamma, k;
        lcc.Forward(originLongitude, originLatitude, originLongitude, x, originNorthing, gamma, k);
        if (std::isfinite(originNorthing)) {
            projection_.reset(new Projection{lcc, originNorthing});
        }
    } catch (const GeographicLib::GeographicErr&) {
        // Impossible parallels: the converter keeps its parameters and refuses to convert.
    }
}

void DtLambertCoordinateConverter::init(const DtDegMinSec& originLatitude,
                                        const DtDegMinSec& originLongitude,
                                        const DtDegMinSec& parallel1,
                                        const DtDegMinSec& parallel2) {
    init(originLatitude.toDegrees(), originLongitude.toDegrees(), parallel1.toDegrees(),
         parallel2.toDegrees());
}

std::string DtLambertCoordinateConverter::stringRep() const {
    return joinNumbers(
        {num(originLatDeg_), num(originLonDeg_), num(parallel1Deg_), num(parallel2Deg_)});
}

void DtLambertCoordinateConverter::geocToCig(const DtVector64& geoc, DtVector64& cig) const {
    if (!projection_)
        DtThrowInvalidInput("Lambert converter with impossible standard parallels");
    double lat, lon, h;
    geodeticOf(geoc, lat, lon, h);
    // The pole the cone opens towards lies at infinity, which the series give as a huge
    // finite number; PROJ refuses it within 1e-10 radians, and so does this.
    const double farPole = projection_->lcc.OriginLatitude() >= 0.0 ? -90.0 : 90.0;
    if (std::abs(lat - farPole) < DtRad2Deg(1e-10))
        DtThrowInvalidInput("position at the pole the Lambert cone opens towards");
    double x, y, gamma, k;
    projection_->lcc.Forward(originLonDeg_, lat, lon, x, y, gamma, k);
    if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(h))
        DtThrowInvalidInput("position outside the Lambert cone's projection");
    cig = DtVector64(x, y - projection_->originNorthing, h);
}

void DtLambertCoordinateConverter::cigToGeodetic(const DtVector64& cig, double& latDeg,
                                                 double& lonDeg, double& height) const {
    if (!projection_)
        DtThrowInvalidInput("Lambert converter with impossible standard parallels");
    double gamma, k;
    projection_->lcc.Reverse(originLonDeg_, cig.x(), cig.y() + projection_->originNorthing, latDeg,
                             lonDeg, gamma, k);
    height = cig.z();
}

std::unique_ptr<DtLambertCoordinateConverter> DtLambertCoordinateConverter::fromStringRep(
    const std::string& rep) {
    const std::vector<DtString> f = fieldsOf(rep, 4, "Lambert");
    auto c = std::make_unique<DtLambertCoordinateConverter>();
    c->init(numberField(f[0], rep), numberField(f[1], rep), numberField(f[2], rep),
            numberField(f[3], rep));
    return c;
}

}  // namespace kelZor

namespace kelZor {

namespace {

// The rotation of DtEulerToQuaternion's convention, with the angle's half-turns.
Eigen::Quaterniond rotationOf(const DtTaitBryan& angles) {
    return Eigen::AngleAxisd(-angles.psi(), Eigen::Vector3d::UnitZ()) *
           Eigen::AngleAxisd(angles.theta(), Eigen::Vector3d::UnitX()) *
           Eigen::AngleAxisd(angles.phi(), Eigen::Vector3d::UnitY());
}

// `level`, given relative to a frame whose east, north and up are the columns of
// `levelAxes` in the scene, as angles about the scene's axes. The decomposition is
// turned by a full circle where needed so that the angles give the very quaternion
// `levelAxes * level`, sign included.
DtTaitBryan inSceneAxes(const Eigen::Matrix3d& levelAxes, const DtTaitBryan& level) {
    const Eigen::Quaterniond target = Eigen::Quaterniond(levelAxes) * rotationOf(level);
    const Eigen::Vector3d zxy = target.toRotationMatrix().eulerAngles(2, 0, 1);
    DtTaitBryan angles(-zxy[0], zxy[1], zxy[2]);
    if (rotationOf(angles).dot(target) < 0.0)
        angles = DtTaitBryan(angles.psi() + 2.0 * DtPi, angles.theta(), angles.phi());
    return angles;
}

// GeographicLib's local east-north-up frame at a geocentric position, as the columns of
// `enu`.
Eigen::Matrix3d enuAxesAt(const DtVector64& geocentric) {
    double lat = 0, lon = 0, h = 0;
    std::vector<double> m(9);
    wgs84().Reverse(geocentric.x(), geocentric.y(), geocentric.z(), lat, lon, h, m);
    return Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(m.data());
}

DtVector64 vectorOf(const Eigen::Vector3d& v) {
    return DtVector64(v.x(), v.y(), v.z());
}

}  // namespace

DtVector64 DtCoordinateConverter::upVector(const DtVector64&) const {
    return DtVector64(0.0, 0.0, 1.0);
}

DtTaitBryan DtCoordinateConverter::nedToLocal(const DtTaitBryan& ned) const {
    return ned;
}

void DtCoordinateConverter::levelAxes(const DtVector64& position, DtVector64& east,
                                      DtVector64& north, DtVector64& up) const {
    east = DtVector64(1.0, 0.0, 0.0);
    north = DtVector64(0.0, 1.0, 0.0);
    up = upVector(position);
}

DtVector64 DtGeocentricCoordinateConverter::upVector(const DtVector64& position) const {
    return vectorOf(enuAxesAt(position).col(2));
}

DtTaitBryan DtGeocentricCoordinateConverter::nedToLocal(const DtTaitBryan& ned) const {
    return inSceneAxes(enuAxesAt(reference_), ned);
}

void DtGeocentricCoordinateConverter::levelAxes(const DtVector64& position, DtVector64& east,
                                                DtVector64& north, DtVector64& up) const {
    const Eigen::Matrix3d axes = enuAxesAt(position);
    east = vectorOf(axes.col(0));
    north = vectorOf(axes.col(1));
    up = vectorOf(axes.col(2));
}

// GeographicLib's local frame at a flat-earth position, its axes turned into the frame of
// the tangent plane at the origin (whose axes are the origin's local frame).
namespace {

Eigen::Matrix3d flatEarthLevelAxes(const DtFlatEarthCoordinateConverter& converter,
                                   const double* enuToGeoc, const DtVector64& position) {
    DtVector64 geocentric;
    converter.cigToGeoc(position, geocentric);
    const Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>> frame(enuToGeoc);
    return frame.transpose() * enuAxesAt(geocentric);
}

}  // namespace

DtVector64 DtFlatEarthCoordinateConverter::upVector(const DtVector64& position) const {
    return vectorOf(flatEarthLevelAxes(*this, enuToGeoc_, position).col(2));
}

DtTaitBryan DtFlatEarthCoordinateConverter::nedToLocal(const DtTaitBryan& ned) const {
    return inSceneAxes(flatEarthLevelAxes(*this, enuToGeoc_, reference_), ned);
}

void DtFlatEarthCoordinateConverter::levelAxes(const DtVector64& position, DtVector64& east,
                                               DtVector64& north, DtVector64& up) const {
    const Eigen::Matrix3d axes = flatEarthLevelAxes(*this, enuToGeoc_, position);
    east = vectorOf(axes.col(0));
    north = vectorOf(axes.col(1));
    up = vectorOf(axes.col(2));
}

}  // namespace kelZor
