// DtVectorDataInitializer: process-wide settings of the vector data library. The
// directory holds the import configuration of vector formats; the library reads it
// when it first loads such a file.
#pragma once

#include "hxutil/DtFilename.h"

class DtVectorDataInitializer {
public:
    static void setDefaultDfadConfigDirectory(const DtFilename& directory);
    static const DtFilename& defaultDfadConfigDirectory();
};
