// Metafiles: small text files that name the terrain file a 3-D view shows (a terrain
// project is such a file). The format is INI, read with Boost.PropertyTree:
//
//   ; any comment
//   [3DView]
//   terrain = terrain/valley.shp
//
// A relative name is left as written; whoever asks decides what it is relative to.
#pragma once

#include <istream>
#include <memory>

#include "hxutil/DtFilename.h"

class DtTdbMetafileFactory {
public:
    DtTdbMetafileFactory() = default;
    virtual ~DtTdbMetafileFactory() = default;
    virtual void init() {}
};

class DtTerrainDbFactory {
public:
    DtTerrainDbFactory() = default;
    virtual ~DtTerrainDbFactory() = default;
    virtual void init() {}
    // Not owned.
    virtual void setMetafileFactory(DtTdbMetafileFactory* factory) { metafileFactory_ = factory; }
    virtual DtTdbMetafileFactory* metafileFactory() { return metafileFactory_; }

private:
    DtTdbMetafileFactory* metafileFactory_ = nullptr;
};

class Dt3DViewMetafileRecord {
public:
    explicit Dt3DViewMetafileRecord(const DtFilename& terrain) : terrain_(terrain) {}
    virtual ~Dt3DViewMetafileRecord() = default;
    virtual const DtFilename& terrainFilename() const { return terrain_; }

private:
    DtFilename terrain_;
};

class DtTdbMetafile {
public:
    // A metafile is a few lines; anything longer is no metafile.
    static constexpr size_t maxSize = 1 << 20;

    explicit DtTdbMetafile(DtTdbMetafileFactory* factory) : factory_(factory) {}
    virtual ~DtTdbMetafile() = default;

    // Reads the file; false when it cannot be read or is not INI text.
    virtual bool init(const DtFilename& file);
    // The same from text already in memory.
    bool initFromText(const std::string& text);
    // Null when the file has no [3DView] section with a terrain name.
    virtual Dt3DViewMetafileRecord* threeDViewMetafileRecord() { return record_.get(); }
    DtTdbMetafileFactory* factory() const { return factory_; }

private:
    DtTdbMetafileFactory* factory_;
    std::unique_ptr<Dt3DViewMetafileRecord> record_;
};
