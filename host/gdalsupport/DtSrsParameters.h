// Parameters of an OGR coordinate system as the host's converters take them: angles in
// degrees from Greenwich whatever the system's prime meridian and angular unit, and a
// Lambert cone by its origin and two standard parallels.
//
//   DtLambertCone cone;
//   if (DtLambertConeOf(srs, cone)) lambert.init(cone.originLat, cone.originLon, ...);
//
// Not installed: an internal helper of the host's libraries.
#pragma once

#include <ogr_spatialref.h>

#include <cstring>
#include <memory>

// A projection parameter that is a longitude, in Greenwich degrees.
inline double DtGreenwichLongitude(const OGRSpatialReference& srs, const char* parameter) {
    return srs.GetNormProjParm(parameter, 0.0) + srs.GetPrimeMeridian();
}

struct DtLambertCone {
    double originLat = 0.0;
    double originLon = 0.0;
    double parallel1 = 0.0;
    double parallel2 = 0.0;
};

// False when `srs` is no Lambert conformal conic. The one-parallel form with a scale
// factor other than 1 is the same cone with two parallels (OGR converts between them), so
// no scale is dropped; with a scale of 1 both parallels are its origin's.
inline bool DtLambertConeOf(const OGRSpatialReference& srs, DtLambertCone& cone) {
    const char* projection = srs.GetAttrValue("PROJECTION");
    if (!projection)
        return false;
    const bool twoParallels = std::strcmp(projection, SRS_PT_LAMBERT_CONFORMAL_CONIC_2SP) == 0;
    if (!twoParallels && std::strcmp(projection, SRS_PT_LAMBERT_CONFORMAL_CONIC_1SP) != 0)
        return false;
    std::unique_ptr<OGRSpatialReference> converted;
    const OGRSpatialReference* form = &srs;
    if (!twoParallels && srs.GetNormProjParm(SRS_PP_SCALE_FACTOR, 1.0) != 1.0) {
        converted.reset(srs.convertToOtherProjection(SRS_PT_LAMBERT_CONFORMAL_CONIC_2SP));
        if (converted)
            form = converted.get();
    }
    cone.originLat = form->GetNormProjParm(SRS_PP_LATITUDE_OF_ORIGIN, 0.0);
    cone.originLon = DtGreenwichLongitude(*form, SRS_PP_CENTRAL_MERIDIAN);
    const bool tangent = form == &srs && !twoParallels;
    cone.parallel1 = tangent ? cone.originLat
                             : form->GetNormProjParm(SRS_PP_STANDARD_PARALLEL_1, cone.originLat);
    cone.parallel2 = tangent ? cone.originLat
                             : form->GetNormProjParm(SRS_PP_STANDARD_PARALLEL_2, cone.originLat);
    return true;
}
