// The engine's coordinate converters. Each converts between geocentric coordinates
// (earth-centred, earth-fixed, metres, WGS84) and its own "cig" frame:
//
//   Geocentric  cig is geocentric.
//   Cartesian   a local frame with no georeference; cig is passed through unchanged.
//   FlatEarth   a local tangent plane at the origin: x east, y north, z up, metres.
//   UTM         easting, northing and ellipsoidal height in metres, in the converter's
//               zone and hemisphere, less the false origin when one is applied.
//   Lambert     Lambert conformal conic on the two standard parallels: x east of the
//               origin's meridian, y north of the origin's parallel, z height, metres.
//
// stringRep() is a text from which create() rebuilds an equal converter:
//   DtCoordinateSystem system(DtCoordinateConverter::UTM, utm.stringRep());
// The UTM and flat-earth texts both begin "<latitude>,<longitude>," in degrees.
//
// Conversions that the projection cannot make (a point on a UTM zone's singular meridians,
// 90 degrees from its centre on the equator; the pole a Lambert cone opens towards; a
// Lambert set-up with impossible parallels; a position that is not finite) throw
// DtTemplatedException<-1>.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "matrix/DtAngles.h"
#include "matrix/DtVector64.h"

namespace kelZor {

class DtCoordinateConverter {
public:
    static const char* const Geocentric;
    static const char* const UTM;
    static const char* const FlatEarth;
    static const char* const Lambert;
    static const char* const Cartesian;

    virtual ~DtCoordinateConverter() = default;
    // One of the five type constants.
    virtual const char* type() const = 0;
    virtual std::string stringRep() const = 0;
    virtual void geocToCig(const DtVector64& geoc, DtVector64& cig) const = 0;
    virtual void cigToGeoc(const DtVector64& cig, DtVector64& geoc) const = 0;
    // A scene position as latitude and longitude in degrees and height above the
    // ellipsoid: the host's road to the terrain's heights, shorter than through
    // geocentric for a map projection.
    virtual void cigToGeodetic(const DtVector64& cig, double& latDeg, double& lonDeg,
                               double& height) const;
    // True when x and y alone fix latitude and longitude and z is the height: moving
    // along (0, 0, 1) changes only the height, by as much.
    virtual bool zIsHeight() const { return false; }

    static DtDegMinSec convertToDmsLat(double degrees);
    static DtDegMinSec convertToDmsLon(double degrees);

    // Rebuilds a converter from its type constant's text and its stringRep(). Throws
    // DtTemplatedException<-1> for an unknown type or a text that does not parse.
    static std::unique_ptr<DtCoordinateConverter> create(const std::string& type,
                                                         const std::string& rep);

    // Same kind and same parameters.
    bool operator==(const DtCoordinateConverter& other) const;
    bool operator!=(const DtCoordinateConverter& other) const { return !(*this == other); }

    // The local frame of a scene position, for placing a model there. The reference
    // point is set first; nedToLocal takes an orientation given at it relative to the
    // local level frame (north, east and the vertical; heading, pitch and roll in
    // radians, as DtEulerToQuaternion.h defines them) to the same orientation as angles
    // about the scene's own axes, so that DtEulerToQuaternionRad of the answer turns the
    // model into the scene, keeping the heading's half-turns in the quaternion's sign.
    // A map projection's frame is x east, y north (grid north), z up, and its up is
    // exactly (0, 0, 1): there the angles stay as they are. In a geocentric or flat-earth
    // frame up is the ellipsoid normal at the position, expressed in the frame.
    virtual void setReferencePoint(const DtVector64& position) { reference_ = position; }
    virtual DtVector64 upVector(const DtVector64& position) const;
    virtual DtTaitBryan nedToLocal(const DtTaitBryan& ned) const;

    // The local level frame at a scene position as directions in the scene: east and
    // north of GeographicLib's local frame (grid east and north in a map projection) and
    // the up of upVector(). For the host's tools, not for the plug-in.
    virtual void levelAxes(const DtVector64& position, DtVector64& east, DtVector64& north,
                           DtVector64& up) const;

protected:
    DtVector64 reference_;
};

class DtGeocentricCoordinateConverter : public DtCoordinateConverter {
public:
    const char* type() const override { return Geocentric; }
    std::string stringRep() const override;
    // The ellipsoid normal, and the north-east-down frame at the reference point, from
    // GeographicLib's local frames.
    DtVector64 upVector(const DtVector64& position) const override;
    DtTaitBryan nedToLocal(const DtTaitBryan& ned) const override;
    void levelAxes(const DtVector64& position, DtVector64& east, DtVector64& north,
                   DtVector64& up) const override;
    void geocToCig(const DtVector64& geoc, DtVector64& cig) const override { cig = geoc; }
    void cigToGeoc(const DtVector64& cig, DtVector64& geoc) const override { geoc = cig; }
};

class DtCartesianCoordinateConverter : public DtCoordinateConverter {
public:
    const char* type() const override { return Cartesian; }
    std::string stringRep() const override;
    void geocToCig(const DtVector64& geoc, DtVector64& cig) const override { cig = geoc; }
    void cigToGeoc(const DtVector64& cig, DtVector64& geoc) const override { geoc = cig; }
};

class DtFlatEarthCoordinateConverter : public DtCoordinateConverter {
public:
    DtFlatEarthCoordinateConverter();
    const char* type() const override { return FlatEarth; }
    // Origin latitude and longitude in radians.
    virtual void init(double latitude, double longitude);
    virtual void init(const DtDegMinSec& latitude, const DtDegMinSec& longitude);
    // "<latitude>,<longitude>" in degrees.
    std::string stringRep() const override;
    void geocToCig(const DtVector64& geoc, DtVector64& cig) const override;
    void cigToGeoc(const DtVector64& cig, DtVector64& geoc) const override;
    // The frame is the tangent plane at the origin: away from it the local vertical leans.
    DtVector64 upVector(const DtVector64& position) const override;
    DtTaitBryan nedToLocal(const DtTaitBryan& ned) const override;
    void levelAxes(const DtVector64& position, DtVector64& east, DtVector64& north,
                   DtVector64& up) const override;
    // Origin, radians.
    double lat() const { return DtDeg2Rad(latDeg_); }
    double lon() const { return DtDeg2Rad(lonDeg_); }

    static std::unique_ptr<DtFlatEarthCoordinateConverter> fromStringRep(const std::string& rep);

private:
    void setOriginDegrees(double latDeg, double lonDeg);
    // Degrees are kept as given so that stringRep() reads back to the same text.
    double latDeg_ = 0.0;
    double lonDeg_ = 0.0;
    double originGeoc_[3] = {0.0, 0.0, 0.0};
    double enuToGeoc_[9] = {0.0};
};

// A map projection (UTM, Lambert): x and y fix latitude and longitude, z is the height
// above the ellipsoid, so a scene position reaches geocentric through its geodetic one.
class DtMapProjectionConverter : public DtCoordinateConverter {
public:
    void cigToGeoc(const DtVector64& cig, DtVector64& geoc) const override;
    bool zIsHeight() const override { return true; }
};

class DtUtmCoordinateConverter : public DtMapProjectionConverter {
public:
    // What the two angles the terrain database is given (frameOriginLatitude/Longitude)
    // stand for: a place in the system's area, its frame being plain easting and
    // northing; or the place of the frame's (0, 0), its frame being easting and northing
    // less those of that place (a scene with a false origin).
    enum OriginPlacement : uint8_t { OriginInArea = 0, OriginAtFrameZero = 1 };

    DtUtmCoordinateConverter();
    const char* type() const override { return UTM; }

    // `applyFalseOrigin`: whether the false origin (x, y, z) is subtracted from easting,
    // northing and height in the cig frame. A zone outside 1..60 is taken from the origin
    // (the standard zone of that point; without an origin, the polar UPS system).
    virtual void init(long zone, char hemisphere, bool applyFalseOrigin);
    virtual void init(double falseOriginX, double falseOriginY, double falseOriginZ, long zone,
                      char hemisphere, bool applyFalseOrigin);
    // Origin in degrees. Zone 1..60 is that zone in the origin's hemisphere; -1..-60 is
    // that zone in the southern hemisphere whatever the origin's latitude (OpenFlight's
    // and the terrain database's way of naming a southern zone); any other, the standard
    // zone of the origin. `ellipsoidCode` is kept and reported; 0 is WGS84, the only
    // ellipsoid this host computes on.
    virtual void init(double latitude, double longitude, long zone, int ellipsoidCode);
    virtual void init(const DtDegMinSec& latitude, const DtDegMinSec& longitude, long zone,
                      int ellipsoidCode);

    // What the terrain database is told of the frame, in this order of the table: how the
    // angles place it, the zone (negative in the southern hemisphere; 0 for UPS, whose
    // hemisphere is the angles'), and the two angles.
    virtual uint8_t originPlacement() const;
    virtual int32_t signedZone() const;
    virtual char hemisphere() const { return hemisphere_; }
    virtual DtDegMinSec frameOriginLatitude() const;
    virtual DtDegMinSec frameOriginLongitude() const;

    uint8_t ellipsoidCode() const { return ellipsoidCode_; }
    // The zone given to init, which may be out of range; effectiveZone() is used.
    int32_t zone() const { return zone_; }
    int effectiveZone() const { return effectiveZone_; }
    // The false origin, when one is applied.
    bool falseOrigin(double& x, double& y, double& z) const;
    // The origin init was given (or the zone's central meridian on the equator).
    DtDegMinSec originLatitude() const { return convertToDmsLat(originLatDeg_); }
    DtDegMinSec originLongitude() const { return convertToDmsLon(originLonDeg_); }

    // "<lat>,<lon>,<zone>,<effective zone>,<N|S>,<fx>,<fy>,<fz>,<0|1>,<ellipsoid>"
    std::string stringRep() const override;
    void geocToCig(const DtVector64& geoc, DtVector64& cig) const override;
    void cigToGeodetic(const DtVector64& cig, double& latDeg, double& lonDeg,
                       double& height) const override;

    // Easting and northing of a geodetic position in a zone (1..60, transverse Mercator
    // with the zone's constants wherever it is defined, also beyond the zone's band; 0,
    // UPS) and hemisphere; false where the projection has no finite answer.
    static bool project(int zone, bool north, double latDeg, double lonDeg, double& easting,
                        double& northing);
    static bool unproject(int zone, bool north, double easting, double northing, double& latDeg,
                          double& lonDeg);

    static std::unique_ptr<DtUtmCoordinateConverter> fromStringRep(const std::string& rep);

private:
    void setZone(long zone, bool haveOrigin);
    bool hasFrameOrigin() const;
    void frameOrigin(double& latDeg, double& lonDeg) const;
    double originLatDeg_ = 0.0;
    double originLonDeg_ = 0.0;
    int32_t zone_ = 0;
    int effectiveZone_ = 0;
    char hemisphere_ = 'N';
    double falseOrigin_[3] = {0.0, 0.0, 0.0};
    bool applyFalseOrigin_ = false;
    uint8_t ellipsoidCode_ = 0;
};

class DtLambertCoordinateConverter : public DtMapProjectionConverter {
public:
    DtLambertCoordinateConverter();
    ~DtLambertCoordinateConverter() override;
    const char* type() const override { return Lambert; }
    // Origin latitude and longitude and the two standard parallels, in degrees.
    virtual void init(double originLatitude, double originLongitude, double parallel1,
                      double parallel2);
    virtual void init(const DtDegMinSec& originLatitude, const DtDegMinSec& originLongitude,
                      const DtDegMinSec& parallel1, const DtDegMinSec& parallel2);

    virtual double originLatitude() const { return originLatDeg_; }
    virtual double originLongitude() const { return originLonDeg_; }
    virtual double parallel1() const { return parallel1Deg_; }
    virtual double parallel2() const { return parallel2Deg_; }

    // "<origin lat>,<origin lon>,<parallel 1>,<parallel 2>" in degrees.
    std::string stringRep() const override;
    void geocToCig(const DtVector64& geoc, DtVector64& cig) const override;
    void cigToGeodetic(const DtVector64& cig, double& latDeg, double& lonDeg,
                       double& height) const override;

    static std::unique_ptr<DtLambertCoordinateConverter> fromStringRep(const std::string& rep);

private:
    struct Projection;
    double originLatDeg_ = 0.0;
    double originLonDeg_ = 0.0;
    double parallel1Deg_ = 0.0;
    double parallel2Deg_ = 0.0;
    std::unique_ptr<Projection> projection_;  // null when the parallels are impossible
};

}  // namespace kelZor
