// Reading KSL terrain descriptions: DtSorrelKslFileReader evaluates a description in a
// DtKslEnvironment and keeps what its top-level symbols say (coordinate system type and
// origin, patch files found on their directory lists, start position, map); DtFileFinder
// finds a file on a ";"-separated directory list.
//
//   DtSorrelKslFileReader reader;
//   reader.load("/data/valley.ksl");
//   for (const DtListItem* item = reader.filenames().first(); item; item = item->next())
//       use(*static_cast<DtFilename*>(item->data()));
//
// Relative directories of a description are taken from the working directory, as the
// engine does. Malformed lists are reported on DtWarn and end the walk of that list.
#pragma once

#include <memory>
#include <vector>

#include "hxutil/DtFilename.h"
#include "hxutil/DtList.h"
#include "hxutil/DtString.h"
#include "ksl/DtlObj.h"
#include "matrix/DtAngles.h"
#include "matrix/DtVector64.h"
#include "zorTerrain/zorTerrainExport.h"

class DtKslEnvironment;

namespace kelZor {

class ZOR_TERRAIN_EXPORT DtFileFinder {
public:
    virtual ~DtFileFinder() = default;
    // The directory at `index` (from 0) of the list, or empty.
    virtual DtString nthPath(const DtString& pathList, unsigned int index,
                             bool spacesCanBeDelimiters);
    // The first "directory/name" that exists, or empty. Runs of separators count as one.
    virtual DtString findFile(const DtString& pathList, const DtString& name,
                              bool spacesCanBeDelimiters);
    // Whether the file opens for binary reading.
    virtual bool fileExists(const DtString& pathToTest);

    static std::vector<std::string> directories(const DtString& pathList,
                                                bool spacesCanBeDelimiters);
};

class ZOR_TERRAIN_EXPORT DtSorrelKslFileReader {
public:
    DtSorrelKslFileReader();
    virtual ~DtSorrelKslFileReader();
    DtSorrelKslFileReader(const DtSorrelKslFileReader&) = delete;
    DtSorrelKslFileReader& operator=(const DtSorrelKslFileReader&) = delete;

    // Reads an environment the caller prepared; true unless there is none.
    virtual bool load(DtKslEnvironment* environment);
    // Evaluates the file (an error is one DtWarn line) and reads what it bound.
    virtual bool load(const char* name);
    virtual const DtString& type() const { return type_; }
    virtual const DtString& origin() const { return origin_; }
    // Items are DtFilename*, owned by the reader.
    virtual const DtList& filenames() const { return filenames_; }
    // Null while empty.
    virtual const DtString* mapDatum() const { return mapDatum_.isEmpty() ? nullptr : &mapDatum_; }
    virtual double* startAltitude() const { return startAltitude_.get(); }
    virtual DtVector64* startPosition() const { return startPosition_.get(); }
    // Heading, pitch and roll in radians.
    virtual DtTaitBryan* startOrientation() const { return startOrientation_.get(); }
    virtual DtString* mapName() const { return mapName_.get(); }
    virtual bool loadAsynchronous() const { return loadAsynchronous_; }

protected:
    virtual void clear();
    virtual bool lookupParameters(DtKslEnvironment* environment);
    virtual int lookupType(DtKslEnvironment* environment);
    virtual int lookupOrigin(DtKslEnvironment* environment);
    virtual int lookupFilenames(DtKslEnvironment* environment);
    virtual int getPathPatchLists(const DtlObjPtr& list);
    virtual int getPathPatchList(const DtlObjPtr& group);
    virtual int addListOfPatches(const char* path, const DtlObjPtr& list);

private:
    DtString type_;
    DtString mapDatum_;
    DtString origin_;
    DtList filenames_;
    std::vector<std::unique_ptr<DtFilename>> ownedFilenames_;
    std::unique_ptr<double> startAltitude_;
    std::unique_ptr<DtVector64> startPosition_;
    std::unique_ptr<DtTaitBryan> startOrientation_;
    std::unique_ptr<DtString> mapName_;
    DtString currentPath_;
    bool loadAsynchronous_ = true;
    bool spacesCanBeDelimiters_ = false;
    DtFileFinder finder_;
};

}  // namespace kelZor
