#include "geometry/DtPoint.h"

bool DtPoint::operator==(const DtPoint& other) const {
    return x_ == other.x_ && y_ == other.y_ && z_ == other.z_;
}
