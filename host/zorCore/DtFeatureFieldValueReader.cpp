#include "zorCore/DtFeatureFieldValueReader.h"

#include "zorCore/DtDe.h"

namespace kelZor {

DtFeatureFieldValueReaderFactory& DtFeatureFieldValueReaderFactory::instance(DtDe& de) {
    return de.featureFieldValueReaderFactory();
}

DtFeatureFieldValueReaderFactory::~DtFeatureFieldValueReaderFactory() = default;

void DtFeatureFieldValueReaderFactory::setDefaultReader(DtFeatureFieldValueReader* reader) {
    default_.reset(reader);
}

}  // namespace kelZor
