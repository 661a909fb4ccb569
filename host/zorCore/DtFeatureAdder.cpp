#include "zorCore/DtFeatureAdder.h"

#include "zorCore/DtDe.h"

namespace kelZor {

void DtFeatureAdderCreator::registerInstance(DtDe& de, DtFeatureAdderCreator* creator) {
    de.setFeatureAdderCreator(creator);
}

}  // namespace kelZor
