// Reference values come from GeographicLib's command-line tools (GeoConvert,
// CartConvert, ConicProj 2.1.2, WGS84), run by hand and written in here; they check the
// converters against an independent road, not against themselves.
#include <gtest/gtest.h>

#include <cmath>

#include "hxutil/DtException.h"
#include "matrix/DtGeodeticCoord.h"
#include "zorUtil/DtCoordinateConverter.h"
#include "zorUtil/DtCoordinateSystem.h"

using namespace kelZor;

namespace {

DtVector64 geocOf(double latDeg, double lonDeg, double h) {
    return DtGeodeticCoord(DtDeg2Rad(latDeg), DtDeg2Rad(lonDeg), h, DtGlobalEllipsoid())
        .geocentric();
}

double distance(const DtVector64& a, const DtVector64& b) {
    return std::sqrt((a.x() - b.x()) * (a.x() - b.x()) + (a.y() - b.y()) * (a.y() - b.y()) +
                     (a.z() - b.z()) * (a.z() - b.z()));
}

}  // namespace

TEST(Converters, agreeWithGeographicLibTools) {
    // CartConvert: 45.5 10 100
    const DtVector64 geoc = geocOf(45.5, 10.0, 100.0);
    EXPECT_NEAR(geoc.x(), 4410163.3970, 1e-3);
    EXPECT_NEAR(geoc.y(), 777630.7962, 1e-3);
    EXPECT_NEAR(geoc.z(), 4526540.5309, 1e-3);

    DtVector64 cig;
    DtUtmCoordinateConverter utm;
    utm.init(32, 'N', false);
    utm.geocToCig(geoc, cig);  // GeoConvert -u: 32n 578126.7375 5038982.8121
    EXPECT_NEAR(cig.x(), 578126.7375, 1e-3);
    EXPECT_NEAR(cig.y(), 5038982.8121, 1e-3);
    EXPECT_NEAR(cig.z(), 100.0, 1e-6);

    DtUtmCoordinateConverter south;
    south.init(-33.9, 18.4, 34, 0);  // GeoConvert -u: 34s 259583.2217 6245888.0454
    EXPECT_EQ(south.hemisphere(), 'S');
    south.geocToCig(geocOf(-33.9, 18.4, 0.0), cig);
    EXPECT_NEAR(cig.x(), 259583.2217, 1e-3);
    EXPECT_NEAR(cig.y(), 6245888.0454, 1e-3);

    DtFlatEarthCoordinateConverter flat;
    flat.init(DtDeg2Rad(45.0), DtDeg2Rad(10.0));
    flat.geocToCig(geocOf(48.0, 2.0, 0.0), cig);  // CartConvert -l 45 10 0: east, north, up
    EXPECT_NEAR(cig.x(), -595064.9056, 1e-3);
    EXPECT_NEAR(cig.y(), 362754.2556, 1e-3);
    EXPECT_NEAR(cig.z(), -38152.7564, 1e-3);

    DtLambertCoordinateConverter lambert;
    lambert.init(23.0, -96.0, 33.0, 45.0);
    // ConicProj -c 33 45 -l -96: (43.5,-90) is 483720.0482 503921.8780; (23,-96) is
    // 0 -1796273.1996, so north of the origin's parallel by their difference.
    lambert.geocToCig(geocOf(43.5, -90.0, 5.0), cig);
    EXPECT_NEAR(cig.x(), 483720.0482, 1e-3);
    EXPECT_NEAR(cig.y(), 503921.8780 + 1796273.1996, 1e-3);
    EXPECT_NEAR(cig.z(), 5.0, 1e-6);
}

TEST(Converters, utmRoundTripStaysUnderAMillimetreAcrossTheZone) {
    DtUtmCoordinateConverter north, south;
    north.init(500.0, 4000000.0, 10.0, 32, 'N', true);
    south.init(32, 'S', false);
    double worst = 0.0;
    for (double lat = -79.5; lat <= 83.5; lat += 3.25) {
        for (double lon = 6.0; lon <= 12.0; lon += 0.75) {
            const DtUtmCoordinateConverter& utm = lat < 0 ? south : north;
            const DtVector64 geoc = geocOf(lat, lon, 1234.5);
            DtVector64 cig, back;
            utm.geocToCig(geoc, cig);
            utm.cigToGeoc(cig, back);
            worst = std::max(worst, distance(geoc, back));
        }
    }
    EXPECT_LT(worst, 1e-3);
}

TEST(Converters, utmKeepsItsHemisphereAndFalseOrigin) {
    DtUtmCoordinateConverter utm;
    utm.init(32, 'N', false);
    DtVector64 cig;
    utm.geocToCig(geocOf(-0.001, 9.0, 0.0), cig);  // GeoConvert -z 32n: 500000 -110.5300
    EXPECT_NEAR(cig.x(), 500000.0, 1e-3);
    EXPECT_NEAR(cig.y(), -110.53, 1e-3);

    DtUtmCoordinateConverter shifted;
    shifted.init(578000.0, 5038000.0, 100.0, 32, 'N', true);
    shifted.geocToCig(geocOf(45.5, 10.0, 100.0), cig);
    EXPECT_NEAR(cig.x(), 126.7375, 1e-3);
    EXPECT_NEAR(cig.y(), 982.8121, 1e-3);
    EXPECT_NEAR(cig.z(), 0.0, 1e-6);

    // On the equator 90 degrees from the central meridian the projection has no finite
    // value: an exception of the host's family, not a crash or a NaN.
    EXPECT_THROW(utm.geocToCig(geocOf(0.0, 99.0, 0.0), cig), DtTemplatedException<-1>);
    EXPECT_THROW(utm.cigToGeoc(DtVector64(std::nan(""), 0.0, 0.0), cig), DtTemplatedException<-1>);
}

// A country-wide layer in one zone reaches far beyond the zone's band (Italy in zone 32
// to an easting of 1,279 km): the zone's projection still holds there, as PROJ computes
// it (gdaltransform -s_srs EPSG:4326 -t_srs EPSG:32632: 18.5 36.7 gives 1349692.7831
// 4103914.9074), and the southern hemisphere keeps its false northing across the
// equator (-t_srs EPSG:32733: 15 -10 gives 500000 8894587.5087).
TEST(Converters, utmHoldsBeyondTheZonesBandAndAcrossTheEquator) {
    DtUtmCoordinateConverter utm;
    utm.init(32, 'N', false);
    DtVector64 cig, back;
    utm.geocToCig(geocOf(36.7, 18.5, 50.0), cig);
    EXPECT_NEAR(cig.x(), 1349692.7831, 1e-3);
    EXPECT_NEAR(cig.y(), 4103914.9074, 1e-3);
    utm.cigToGeoc(cig, back);
    EXPECT_LT(distance(back, geocOf(36.7, 18.5, 50.0)), 1e-6);

    DtUtmCoordinateConverter south;
    south.init(0.0, 0.0, 0.0, 33, 'S', true);
    south.geocToCig(geocOf(-10.0, 15.0, 0.0), cig);
    EXPECT_NEAR(cig.x(), 500000.0, 1e-3);
    EXPECT_NEAR(cig.y(), 8894587.5087, 1e-3);
    south.geocToCig(geocOf(0.5, 15.0, 0.0), cig);  // just north of the equator, still south
    EXPECT_GT(cig.y(), 10000000.0);
}

// A negative zone names the zone of the southern hemisphere whatever the origin (as
// OpenFlight and the terrain database do); the terrain database is told the zone with
// its sign and, for a scene with a false origin, where the frame's (0, 0) lies.
TEST(Converters, theTerrainDatabaseIsToldHemisphereAndFrame) {
    DtUtmCoordinateConverter southOfData;
    southOfData.init(0.25, 15.0, -33, 0);  // data just north of the equator, zone 33 S
    EXPECT_EQ(southOfData.hemisphere(), 'S');
    EXPECT_EQ(southOfData.effectiveZone(), 33);
    EXPECT_EQ(southOfData.signedZone(), -33);
    EXPECT_EQ(southOfData.originPlacement(), DtUtmCoordinateConverter::OriginInArea);
    EXPECT_NEAR(southOfData.frameOriginLatitude().toDegrees(), 0.25, 1e-12);
    EXPECT_EQ(DtUtmCoordinateConverter::fromStringRep(southOfData.stringRep())->signedZone(), -33);

    DtUtmCoordinateConverter north;
    north.init(32, 'N', true);  // a false origin of zero is no frame of its own
    EXPECT_EQ(north.signedZone(), 32);
    EXPECT_EQ(north.originPlacement(), DtUtmCoordinateConverter::OriginInArea);

    // GeoConvert --input-string "33s 498000 8894000": -10.005313265 14.981750781
    DtUtmCoordinateConverter shifted;
    shifted.init(498000.0, 8894000.0, 0.0, 33, 'S', true);
    EXPECT_EQ(shifted.signedZone(), -33);
    EXPECT_EQ(shifted.originPlacement(), DtUtmCoordinateConverter::OriginAtFrameZero);
    EXPECT_NEAR(shifted.frameOriginLatitude().toDegrees(), -10.005313265, 1e-9);
    EXPECT_NEAR(shifted.frameOriginLongitude().toDegrees(), 14.981750781, 1e-9);
}

TEST(Converters, zoneOutOfRangeComesFromTheOrigin) {
    DtUtmCoordinateConverter utm;
    utm.init(45.5, 10.0, 0, 0);
    EXPECT_EQ(utm.zone(), 0);
    EXPECT_EQ(utm.effectiveZone(), 32);
    utm.init(DtDegMinSec(33, 54, 0, DtDegMinSec::South), DtDegMinSec(18, 24, 0, DtDegMinSec::East),
             61, 7);
    EXPECT_EQ(utm.effectiveZone(), 34);
    EXPECT_EQ(utm.hemisphere(), 'S');
    EXPECT_EQ(utm.ellipsoidCode(), 7);
    EXPECT_NEAR(utm.originLatitude().toDegrees(), -33.9, 1e-12);
}

TEST(Converters, flatEarthIsALocalTangentPlane) {
    DtFlatEarthCoordinateConverter flat;
    flat.init(DtDegMinSec(45, 30, 0, DtDegMinSec::North), DtDegMinSec(10, 0, 0, DtDegMinSec::East));
    DtVector64 geoc;
    flat.cigToGeoc(DtVector64(10, 20, 30), geoc);  // CartConvert -l 45.5 10 0 -r
    DtGeodeticCoord back(DtGlobalEllipsoid());
    back.setGeocentric(geoc);
    EXPECT_NEAR(DtRad2Deg(back.lat()), 45.50017994978, 1e-10);
    EXPECT_NEAR(DtRad2Deg(back.lon()), 10.00012794566, 1e-10);
    EXPECT_NEAR(back.alt(), 30.000039, 1e-5);
    EXPECT_DOUBLE_EQ(flat.lat(), DtDeg2Rad(45.5));
}

TEST(Converters, stringRepRebuildsAnEqualConverter) {
    DtUtmCoordinateConverter utm;
    utm.init(0.1, -0.2, 0.3, 17, 's', true);
    DtFlatEarthCoordinateConverter flat;
    flat.init(0.7941248097, 0.1745329252);   // radians that are no round number of degrees
    DtFlatEarthCoordinateConverter nowhere;  // as a corrupt file may set one up
    nowhere.init(std::nan(""), -HUGE_VAL);
    DtUtmCoordinateConverter noZone;  // no zone, and no longitude to take one from
    noZone.init(0.0, std::nan(""), 0, 0);
    DtLambertCoordinateConverter lambert;
    lambert.init(23.0, -96.0, 29.5, 45.5);
    DtGeocentricCoordinateConverter geocentric;
    DtCartesianCoordinateConverter cartesian;
    for (const DtCoordinateConverter* c : std::initializer_list<const DtCoordinateConverter*>{
             &utm, &noZone, &flat, &nowhere, &lambert, &geocentric, &cartesian}) {
        SCOPED_TRACE(c->type());
        const DtCoordinateSystem system(c->type(), c->stringRep());
        EXPECT_EQ(system.type(), c->type());
        EXPECT_TRUE(*system.converter() == *c) << c->stringRep();
        const DtCoordinateSystem copy(system);
        EXPECT_EQ(copy.converter()->stringRep(), c->stringRep());
    }
    EXPECT_EQ(lambert.stringRep(), "23,-96,29.5,45.5");
    EXPECT_NE(DtCoordinateSystem(DtCoordinateConverter::UTM, utm.stringRep()).utmConverter(),
              nullptr);
    EXPECT_EQ(DtCoordinateSystem(DtCoordinateConverter::UTM, utm.stringRep()).flatEarthConverter(),
              nullptr);
}

TEST(Converters, utmTextBeforeTheSecondCommaIsAFlatEarthOrigin) {
    DtUtmCoordinateConverter utm;
    utm.init(45.5, 10.25, 32, 0);
    const std::string rep = utm.stringRep();
    const std::string cut = rep.substr(0, rep.find(',', rep.find(',') + 1));
    const DtCoordinateSystem flat(DtCoordinateConverter::FlatEarth, cut);
    ASSERT_NE(flat.flatEarthConverter(), nullptr);
    EXPECT_DOUBLE_EQ(DtRad2Deg(flat.flatEarthConverter()->lat()), 45.5);
    EXPECT_DOUBLE_EQ(DtRad2Deg(flat.flatEarthConverter()->lon()), 10.25);
}

TEST(Converters, malformedParametersAreInvalidInput) {
    const std::pair<const char*, const char*> bad[] = {
        {"UTM", ""},
        {"UTM", "45.5,10,32,32,N,0,0,0,0"},
        {"UTM", "45.5,10,32,32,X,0,0,0,0,0"},
        {"UTM", "45.5,10,32,99,N,0,0,0,0,0"},
        {"UTM", "45.5,,10,32,32,N,0,0,0,0"},
        {"FlatEarth", "45.5"},
        {"FlatEarth", "45.5,north"},
        {"FlatEarth", "45.5,10,"},
        {"Lambert", "1,2,3"},
        {"Mercator", "1,2"},
    };
    for (const auto& [type, rep] : bad) {
        SCOPED_TRACE(std::string(type) + " " + rep);
        EXPECT_THROW(DtCoordinateSystem(type, rep), DtTemplatedException<-1>);
    }
    // A standard parallel beyond the pole defines no cone.
    DtLambertCoordinateConverter impossible;
    impossible.init(0.0, 0.0, 95.0, 10.0);
    DtVector64 cig;
    EXPECT_THROW(impossible.geocToCig(geocOf(10, 0, 0), cig), DtTemplatedException<-1>);
}
