// The terrain database's own coordinate systems. A loader answers one for a file
// (DtTdbManager::coordinateSystemFrom) and takes one for a load (loadFor3DVisualization).
// kind() tells the family:
//
//   0  another projected system; typeName() is its own name
//   1  Lambert conformal conic (DtLambertConformalCS)
//   2  UTM (DtUtmCS)
//   3  geographic; typeName() "Geographic"
//   4  geocentric; also the plain object, which stands for Cartesian and unknown systems
//   6  flat earth (DtFlatEarthCS)
//
//   std::unique_ptr<Coordinate_System> cs(manager.coordinateSystemFrom(file, ...));
//   if (cs && cs->kind() == Coordinate_System::Utm)
//       zone = static_cast<DtUtmCS&>(*cs).zone();   // -33: zone 33 south
#pragma once

#include "hxutil/DtString.h"
#include "matrix/DtAngles.h"

class Coordinate_System {
public:
    enum Kind {
        OtherProjected = 0,
        Lambert = 1,
        Utm = 2,
        Geographic = 3,
        Geocentric = 4,
        FlatEarth = 6
    };

    // A geocentric system; `hasVerticalOffset` and `verticalOffset` are kept as given.
    Coordinate_System(bool hasVerticalOffset, double verticalOffset);
    // A system of any kind with its name and origin (latitude and longitude, degrees).
    Coordinate_System(int kind, const DtString& typeName, double originLatitude = 0.0,
                      double originLongitude = 0.0, bool hasVerticalOffset = false,
                      double verticalOffset = 0.0);
    virtual ~Coordinate_System() = default;

    virtual DtString typeName() const { return typeName_; }
    virtual int kind() const { return kind_; }
    virtual DtDegMinSec originLatitude() const;
    virtual DtDegMinSec originLongitude() const;
    // Origin in signed decimal degrees.
    double originLatitudeDegrees() const { return originLatitude_; }
    double originLongitudeDegrees() const { return originLongitude_; }
    bool hasVerticalOffset() const { return hasVerticalOffset_; }
    double verticalOffset() const { return verticalOffset_; }

private:
    int kind_;
    DtString typeName_;
    double originLatitude_ = 0.0;
    double originLongitude_ = 0.0;
    bool hasVerticalOffset_ = false;
    double verticalOffset_ = 0.0;
};

class DtUtmCS : public Coordinate_System {
public:
    // What the origin stands for, as DtUtmCoordinateConverter::OriginPlacement: a place in
    // the system's area, coordinates being plain easting and northing (what a file's
    // system reports); or the place of the frame's (0, 0), coordinates being easting and
    // northing less that place's (a scene with a false origin).
    enum OriginPlacement { OriginInArea = 0, OriginAtFrameZero = 1 };

    // The origin, how it places the frame, the zone (negative in the southern hemisphere;
    // 0 for UPS, in the origin's hemisphere), then a vertical offset as in the base and
    // the central scale factor.
    DtUtmCS(const DtDegMinSec& originLatitude, const DtDegMinSec& originLongitude,
            int originPlacement, long zone, bool hasVerticalOffset, double verticalOffset,
            double scaleFactor);
    // Signed as given: negative in the southern hemisphere.
    long zone() const { return zone_; }
    int zoneNumber() const { return static_cast<int>(zone_ < 0 ? -zone_ : zone_); }
    char hemisphere() const;
    int originPlacement() const { return placement_; }
    double scaleFactor() const { return scaleFactor_; }
    // Easting and northing of the frame's (0, 0): those of the origin when it is the
    // frame's zero, else (0, 0). False when the origin cannot be projected.
    bool frameZero(double& easting, double& northing) const;

private:
    int placement_;
    long zone_;
    double scaleFactor_;
};

class DtLambertConformalCS : public Coordinate_System {
public:
    // Origin latitude and longitude and the two standard parallels, in degrees.
    DtLambertConformalCS(double originLatitude, double originLongitude, double parallel1,
                         double parallel2);
    // The standard parallels, in radians.
    double parallel1() const { return DtDeg2Rad(parallel1_); }
    double parallel2() const { return DtDeg2Rad(parallel2_); }

private:
    double parallel1_;
    double parallel2_;
};

class DtFlatEarthCS : public Coordinate_System {
public:
    // Origin latitude and longitude in radians.
    DtFlatEarthCS(double originLatitude, double originLongitude, bool hasVerticalOffset,
                  double verticalOffset);
};
