#include "zorUtil/DtDebugLog.h"

#include <iostream>

namespace kelZor {

DtDebugLog::DtDebugLog() : nullStream_(&nullBuffer_) {}

std::ostream& DtDebugLog::out(PrintLevel level) {
    if (level > threshold_)
        return nullStream_;
    return target_ ? *target_ : std::cerr;
}

}  // namespace kelZor
