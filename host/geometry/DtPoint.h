// DtPoint: a point of the terrain database, double precision, in the coordinate system
// the database was loaded into.
#pragma once

class DtPoint {
public:
    DtPoint() = default;
    DtPoint(double x, double y, double z) : x_(x), y_(y), z_(z) {}
    double x() const { return x_; }
    double y() const { return y_; }
    double z() const { return z_; }
    bool operator==(const DtPoint& other) const;

private:
    double x_ = 0.0;
    double y_ = 0.0;
    double z_ = 0.0;
};
