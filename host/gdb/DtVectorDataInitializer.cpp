#include "gdb/DtVectorDataInitializer.h"

namespace {
DtFilename& configDirectory() {
    static DtFilename directory;
    return directory;
}
}  // namespace

void DtVectorDataInitializer::setDefaultDfadConfigDirectory(const DtFilename& directory) {
    configDirectory() = directory;
}

const DtFilename& DtVectorDataInitializer::defaultDfadConfigDirectory() {
    return configDirectory();
}
