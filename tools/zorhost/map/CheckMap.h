// `zorhost check --map OUT.png`: the check as it is without a picture, then the finest
// level checked of the first geometry dataset drawn as cells coloured by what the check
// found (present, missing, empty, unreadable, outside the database), through `map`: the
// same scene, plane, georeference and careful output files.
#pragma once

#include <ostream>

#include "LibraryModule.h"

namespace kelZor {
class DtDe;
}

// The check's status, or map's when the picture cannot be drawn.
int runCheckMap(kelZor::DtDe& de, CheckRequest request, const LibraryCommands& commands,
                std::ostream& out, std::ostream& err);
