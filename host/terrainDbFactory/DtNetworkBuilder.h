// DtNetworkBuilder: the loader's builder of a vector network from the layers of an
// opened vector source. Points (each part of a multipoint) become free nodes; lines
// (each part) edges whose ends are junction nodes shared by lines that meet at exactly
// the same point; polygons (each part) one areal edge along the exterior ring as stored
// (holes are not kept: notes() says so).
//
// Features are read in batches; while one batch is read the one before is taken into the
// scene (DtLayerToScene) and turned into nodes and edges on a worker thread, in order, so
// the network is the one a serial build makes (identifiers included).
//
// What cannot be placed does not stop the load: a feature with a coordinate the scene
// cannot hold (a latitude beyond the pole, a point on a projection's singular line, an
// infinity) is left out whole, and notes() says how many, naming the first. A feature
// whose id the engine cannot hold (outside 0 .. 2^31 - 1) keeps its geometry and
// attributes but no "DtFidCode", so the engine makes no feature of it; notes() says that
// as well.
//
// Internal to the loader; not installed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "terrainDbFactory/DtTdbLoadSession.h"

class Coordinate_System;
class DtVectorNetwork;
class OGRLayer;

class DtNetworkBuilder {
public:
    // `network` outlives the builder. The scene is `cs` (null: geocentric).
    DtNetworkBuilder(const Coordinate_System* cs, DtVectorNetwork& network);
    ~DtNetworkBuilder();
    DtNetworkBuilder(const DtNetworkBuilder&) = delete;
    DtNetworkBuilder& operator=(const DtNetworkBuilder&) = delete;

    // Adds the layer's objects; false with the reason in `problem`. A layer without
    // geometry (an attribute table) adds nothing and is no failure.
    bool addLayer(OGRLayer& layer, std::string& problem);

    // What a user must know of the load so far, one sentence each: features left out,
    // ids the engine cannot hold, areas without their holes, heights not taken through
    // their vertical datum.
    std::vector<std::string> notes() const;
    // Of those, the heights not taken through their vertical datum alone.
    std::vector<std::string> heightNotes() const;
    // Each layer loaded so far (attribute tables have none), for a load session.
    const std::vector<DtTdbLayerReport>& layerReports() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};
