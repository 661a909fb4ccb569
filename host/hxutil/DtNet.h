// Big-endian ("network order") storage types. Each is exactly its bytes, with no
// padding, so a record of them can be laid over a file's bytes; reading one converts
// to the machine's value.
#pragma once

#include <cstdint>
#include <cstring>

namespace dtnet_detail {
template <typename Unsigned, size_t N>
Unsigned loadBigEndian(const unsigned char (&bytes)[N]) {
    Unsigned value = 0;
    for (size_t i = 0; i < N; ++i)
        value = static_cast<Unsigned>((value << 8) | bytes[i]);
    return value;
}
template <typename Unsigned, size_t N>
void storeBigEndian(unsigned char (&bytes)[N], Unsigned value) {
    for (size_t i = N; i-- > 0;) {
        bytes[i] = static_cast<unsigned char>(value & 0xffu);
        value = static_cast<Unsigned>(value >> 8);
    }
}
}  // namespace dtnet_detail

struct DtNetInt16 {
    unsigned char bytes[2];
    operator int16_t() const {
        return static_cast<int16_t>(dtnet_detail::loadBigEndian<uint16_t>(bytes));
    }
    DtNetInt16& operator=(int16_t v) {
        dtnet_detail::storeBigEndian(bytes, static_cast<uint16_t>(v));
        return *this;
    }
};

struct DtNetU16 {
    unsigned char bytes[2];
    operator uint16_t() const { return dtnet_detail::loadBigEndian<uint16_t>(bytes); }
    DtNetU16& operator=(uint16_t v) {
        dtnet_detail::storeBigEndian(bytes, v);
        return *this;
    }
};

struct DtNetInt32 {
    unsigned char bytes[4];
    operator int32_t() const {
        return static_cast<int32_t>(dtnet_detail::loadBigEndian<uint32_t>(bytes));
    }
    DtNetInt32& operator=(int32_t v) {
        dtnet_detail::storeBigEndian(bytes, static_cast<uint32_t>(v));
        return *this;
    }
};

struct DtNetFloat64 {
    unsigned char bytes[8];
    operator double() const {
        const uint64_t bits = dtnet_detail::loadBigEndian<uint64_t>(bytes);
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    DtNetFloat64& operator=(double v) {
        uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        dtnet_detail::storeBigEndian(bytes, bits);
        return *this;
    }
};

static_assert(sizeof(DtNetInt16) == 2 && sizeof(DtNetU16) == 2, "no padding");
static_assert(sizeof(DtNetInt32) == 4 && sizeof(DtNetFloat64) == 8, "no padding");
