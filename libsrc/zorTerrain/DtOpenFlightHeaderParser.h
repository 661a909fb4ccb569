// Header parser of OpenFlight ("flt") files. It reads the 324-byte header record and
// turns its projection into a coordinate system; the file is one terrain patch.
#pragma once

#include <string>

#include "hxutil/DtNet.h"
#include "zorCore/DtHeaderParser.h"
#include "zorTerrain/zorTerrainExport.h"

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtOpenFlightHeaderParser : public DtHeaderParser {
public:
    // The OpenFlight header record as it lies in the file: big-endian, no padding.
    struct OpenflightHeader {
        DtNetInt16 recordOpcode;
        DtNetU16 recordLength;
        unsigned char identifier[8];
        DtNetInt32 formatRevision;
        DtNetInt32 editRevision;
        unsigned char lastRevisionDateTime[32];
        DtNetInt16 nextGroupNodeId;
        DtNetInt16 nextLevelOfDetailNodeId;
        DtNetInt16 nextObjectNodeId;
        DtNetInt16 nextFaceNodeId;
        DtNetInt16 unitMultiplier;
        unsigned char vertexCoordinateUnits;
        unsigned char whiteTextureFlag;
        DtNetInt32 flags;
        unsigned char reserved1[24];
        DtNetInt32 projectionType;
        unsigned char reserved2[28];
        DtNetInt16 nextDegreeOfFreedomNodeId;
        DtNetInt16 vertexStorageType;
        DtNetInt32 databaseOrigin;
        DtNetFloat64 southwestDatabaseX;
        DtNetFloat64 southwestDatabaseY;
        DtNetFloat64 deltaX;
        DtNetFloat64 deltaY;
        DtNetInt16 nextSoundNodeId;
        DtNetInt16 nextPathNodeId;
        unsigned char reserved3[8];
        DtNetInt16 nextClipNodeId;
        DtNetInt16 nextTextNodeId;
        DtNetInt16 nextBinarySeparatingPlaneNodeId;
        DtNetInt16 nextSwitchNodeId;
        unsigned char reserved4[4];
        DtNetFloat64 southwestCornerLatitude;
        DtNetFloat64 southwestCornerLongitude;
        DtNetFloat64 northeastCornerLatitude;
        DtNetFloat64 northeastCornerLongitude;
        DtNetFloat64 originLatitude;        // degrees
        DtNetFloat64 originLongitude;       // degrees
        DtNetFloat64 lambertUpperLatitude;  // degrees
        DtNetFloat64 lambertLowerLatitude;  // degrees
        DtNetInt16 nextLightSourceNodeId;
        DtNetInt16 nextLightPointNodeId;
        DtNetInt16 nextRoadNodeId;
        DtNetInt16 nextCatenaryNodeId;
        unsigned char reserved5[8];
        DtNetInt32 earthEllipsoidModel;
        DtNetInt16 nextAdaptiveNodeId;
        DtNetInt16 nextCurveNodeId;
        DtNetInt16 utmZone;
        unsigned char reserved6[6];
        DtNetFloat64 deltaZ;
        DtNetFloat64 radius;
        DtNetU16 nextMeshNodeId;
        DtNetU16 nextLightPointSystemId;
        unsigned char reserved7[4];
        DtNetFloat64 earthMajorAxis;
        DtNetFloat64 earthMinorAxis;
    };
    static constexpr size_t headerSize = 324;

    explicit DtOpenFlightHeaderParser(const std::string& filePath);

    // Reads the header record; false for a file that cannot be opened or is shorter
    // than a header, or whose projection no converter expresses.
    bool isValid() override;

    // Projection type codes of the header.
    enum Projection { FlatEarth = 0, Lambert = 3, Utm = 4 };
    // Format revision from which codes 5 and 6 change meaning: geocentric is 5 before
    // it and 6 from it on.
    static constexpr int geocentricCodeSwapRevision = 1580;

protected:
    virtual bool parseOpenFlightHeader(const OpenflightHeader& header);
};

class ZOR_TERRAIN_EXPORT DtOpenFlightHeaderParserCreator : public DtHeaderParserCreator {
public:
    DtHeaderParser* create(DtDe& de, const std::string& filePath) const override;
};

}  // namespace kelZor
