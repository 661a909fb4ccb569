// DtVector64: three doubles, the engine's position and direction type.
#pragma once

class DtVector64 {
public:
    DtVector64() = default;
    DtVector64(const double& x, const double& y, const double& z) : v_{x, y, z} {}

    double x() const { return v_[0]; }
    double y() const { return v_[1]; }
    double z() const { return v_[2]; }
    // Components 0, 1, 2; any other index is clamped into range rather than read past.
    double& operator[](int i) { return v_[clamp(i)]; }
    double operator[](int i) const { return v_[clamp(i)]; }

    bool operator==(const DtVector64& o) const {
        return v_[0] == o.v_[0] && v_[1] == o.v_[1] && v_[2] == o.v_[2];
    }
    bool operator!=(const DtVector64& o) const { return !(*this == o); }

private:
    static int clamp(int i) { return i < 0 ? 0 : (i > 2 ? 2 : i); }
    double v_[3] = {0.0, 0.0, 0.0};
};
