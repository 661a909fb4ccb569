// How the MetaFlight element tables compare names and enumeration texts: ASCII letters
// without case and every other byte exactly, whatever locale the host has set; texts of
// a known equal length eight bytes at a time.
//
// Internal to the plug-in; not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kelZor {
namespace metaflight {

// Names and enumeration texts compare ASCII letters without case and every other byte
// exactly, whatever locale the host has set.
inline char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
inline bool equalsIgnoringAsciiCase(const char* a, const char* b) {
    for (; *a && *b; ++a, ++b) {
        if (asciiLower(*a) != asciiLower(*b))
            return false;
    }
    return *a == *b;
}

// Exact comparison of two texts of the same length. Names are short: comparing them
// here, eight bytes at a time, costs less than the call to memcmp.
template <typename Word>
inline bool sameWord(const char* a, const char* b) {
    Word x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    return x == y;
}

inline bool sameBytes(const char* a, const char* b, size_t length) {
    if (length >= 8) {
        // Whole words, the last one overlapping the one before where the length asks.
        for (size_t at = 0; at + 8 < length; at += 8) {
            if (!sameWord<uint64_t>(a + at, b + at))
                return false;
        }
        return sameWord<uint64_t>(a + length - 8, b + length - 8);
    }
    if (length >= 4)
        return sameWord<uint32_t>(a, b) && sameWord<uint32_t>(a + length - 4, b + length - 4);
    for (; length > 0; ++a, ++b, --length) {
        if (*a != *b)
            return false;
    }
    return true;
}

// For texts of the same known length; documents mostly write names as the tables do, so
// the exact comparison answers first.
inline bool sameIgnoringAsciiCase(const char* a, const char* b, size_t length) {
    return sameBytes(a, b, length) || equalsIgnoringAsciiCase(a, b);
}

}  // namespace metaflight
}  // namespace kelZor
