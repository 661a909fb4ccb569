// The terrain database loader, on GDAL/OGR. It answers which coordinate system a terrain
// source file has, and loads a file into a given coordinate system as a terrain
// database: a vector source (shapefile, File Geodatabase, any vector format OGR reads)
// becomes a DtVectorNetwork, an elevation source (DTED, GeoTIFF) a database without one.
//
//   DtTdbManager manager;
//   DtString error;
//   if (manager.loadFor3DVisualization(DtFilename("roads.shp"), cs, &error))
//       walk(*manager.terrainDatabase()->vectorNetwork());
//
// While DtNotifyLevel is 0 GDAL writes nothing; the reason of a failure is in the error
// text either way. What a load that worked had to leave out (features the scene cannot
// hold, ids it cannot keep, heights not taken through their vertical datum) is written to
// DtWarn whatever the level, one line per kind naming the file: it is part of the answer.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gdb/DtVectorNetwork.h"
#include "hxutil/DtFilename.h"
#include "hxutil/DtString.h"
#include "terrainCS/Coordinate_System.h"

class DtTerrainDatabase {
public:
    DtTerrainDatabase(std::unique_ptr<DtVectorNetwork> network,
                      std::unique_ptr<Coordinate_System> system)
        : network_(std::move(network)), system_(std::move(system)) {}
    // Null for an elevation source.
    DtVectorNetwork* vectorNetwork() const { return network_.get(); }
    // The system the database was loaded in.
    const Coordinate_System* coordinateSystem() const { return system_.get(); }

private:
    std::unique_ptr<DtVectorNetwork> network_;
    std::unique_ptr<Coordinate_System> system_;
};

class DtTdbManager {
public:
    DtTdbManager();
    virtual ~DtTdbManager();
    DtTdbManager(const DtTdbManager&) = delete;
    DtTdbManager& operator=(const DtTdbManager&) = delete;

    // A new coordinate system read from the file's header, .prj or layer definition
    // (never from its features), owned by the caller; null when the file has none or
    // cannot be read, with a sentence in `error` when it is given. `second` is unused.
    virtual Coordinate_System* coordinateSystemFrom(const DtFilename& file,
                                                    const DtFilename& second, DtString* error);

    // Loads the file with every coordinate in `cs`: from the layer's system to WGS84
    // with OGR, then through the host's converter of that kind. A load that works hands
    // `cs` (a heap object) to the database, which deletes it; a failed load leaves it to
    // the caller, with one line naming the file and the reason in `error`, and no
    // database.
    virtual bool loadFor3DVisualization(const DtFilename& file, Coordinate_System* cs,
                                        DtString* error);

    // The database of the last load that worked, or null.
    virtual DtTerrainDatabase* terrainDatabase() const { return database_.get(); }

private:
    static void tellNotes(const DtFilename& file, const std::vector<std::string>& notes);
    std::unique_ptr<DtTerrainDatabase> database_;
};
