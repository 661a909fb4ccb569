#include "terrainCS/Coordinate_System.h"

#include "zorUtil/DtCoordinateConverter.h"

Coordinate_System::Coordinate_System(bool hasVerticalOffset, double verticalOffset)
    : kind_(Geocentric),
      typeName_(kelZor::DtCoordinateConverter::Geocentric),
      hasVerticalOffset_(hasVerticalOffset),
      verticalOffset_(verticalOffset) {}

Coordinate_System::Coordinate_System(int kind, const DtString& typeName, double originLatitude,
                                     double originLongitude, bool hasVerticalOffset,
                                     double verticalOffset)
    : kind_(kind),
      typeName_(typeName),
      originLatitude_(originLatitude),
      originLongitude_(originLongitude),
      hasVerticalOffset_(hasVerticalOffset),
      verticalOffset_(verticalOffset) {}

DtDegMinSec Coordinate_System::originLatitude() const {
    return kelZor::DtCoordinateConverter::convertToDmsLat(originLatitude_);
}

DtDegMinSec Coordinate_System::originLongitude() const {
    return kelZor::DtCoordinateConverter::convertToDmsLon(originLongitude_);
}

DtUtmCS::DtUtmCS(const DtDegMinSec& originLatitude, const DtDegMinSec& originLongitude,
                 int originPlacement, long zone, bool hasVerticalOffset, double verticalOffset,
                 double scaleFactor)
    : Coordinate_System(Utm, DtString(kelZor::DtCoordinateConverter::UTM),
                        originLatitude.toDegrees(), originLongitude.toDegrees(), hasVerticalOffset,
                        verticalOffset),
      placement_(originPlacement),
      zone_(zone),
      scaleFactor_(scaleFactor) {}

char DtUtmCS::hemisphere() const {
    if (zone_ != 0)
        return zone_ < 0 ? 'S' : 'N';
    return originLatitudeDegrees() < 0.0 ? 'S' : 'N';
}

bool DtUtmCS::frameZero(double& easting, double& northing) const {
    easting = northing = 0.0;
    if (placement_ != OriginAtFrameZero)
        return true;
    return kelZor::DtUtmCoordinateConverter::project(zoneNumber(), hemisphere() == 'N',
                                                     originLatitudeDegrees(),
                                                     originLongitudeDegrees(), easting, northing);
}

DtLambertConformalCS::DtLambertConformalCS(double originLatitude, double originLongitude,
                                           double parallel1, double parallel2)
    : Coordinate_System(Lambert, DtString(kelZor::DtCoordinateConverter::Lambert), originLatitude,
                        originLongitude),
      parallel1_(parallel1),
      parallel2_(parallel2) {}

DtFlatEarthCS::DtFlatEarthCS(double originLatitude, double originLongitude, bool hasVerticalOffset,
                             double verticalOffset)
    : Coordinate_System(FlatEarth, DtString(kelZor::DtCoordinateConverter::FlatEarth),
                        DtRad2Deg(originLatitude), DtRad2Deg(originLongitude), hasVerticalOffset,
                        verticalOffset) {}
