// The records are header-only values; this unit gives the library its one object file
// and anchors the records' virtual tables here.
#include "kelArchives/DtModelDefinitionRecord.h"
#include "kelArchives/DtPropRecord.h"
