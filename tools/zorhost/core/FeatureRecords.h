// A feature as the front ends give it: the record `features --json` streams (kind,
// featureId, facc, id; a point's location, dimensions and heading in degrees, or null;
// a line's or area's vertices), the same for the command line and the Python module.
#pragma once

#include "JsonOutput.h"
#include "zorCore/DtFeatureSet.h"

const char* kindName(kelZor::DtFeature::Kind kind);
Json identityJson(kelZor::DtFeature::Kind kind, const kelZor::DtFeature& f);
// A point's heading in degrees, as the source gives it; null when it gives none.
Json headingJson(const kelZor::DtPointFeature& f);
Json featureJson(const kelZor::DtPointFeature& f);
Json featureJson(kelZor::DtFeature::Kind kind, const kelZor::DtEdgeFeature& f);
