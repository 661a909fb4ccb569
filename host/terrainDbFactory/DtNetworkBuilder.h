// DtNetworkBuilder: the loader's builder of a vector network from the layers of an
// opened vector source, each coordinate taken to WGS84 by OGR and then into the
// requested system by the host's own converter.
//
// Reading features and transforming coordinates overlap: the features of a layer are read
// in batches, and while one batch is read the previous one is transformed and turned into
// nodes and edges on a worker thread, in order, so the network is the same as a serial
// build would make (identifiers included).
#pragma once

#include <memory>
#include <string>

class Coordinate_System;
class DtVectorNetwork;
class OGRLayer;

class DtNetworkBuilder {
public:
    // `network` outlives the builder. The converter is chosen from `cs` (null: geocentric).
    DtNetworkBuilder(const Coordinate_System* cs, DtVectorNetwork& network);
    ~DtNetworkBuilder();
    DtNetworkBuilder(const DtNetworkBuilder&) = delete;
    DtNetworkBuilder& operator=(const DtNetworkBuilder&) = delete;

    // Adds the layer's objects; false with the reason in `problem`.
    bool addLayer(OGRLayer& layer, std::string& problem);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};
