// Checked size arithmetic: every allocation size in the library goes through these.
#ifndef KIV_CORE_CHECKED_H
#define KIV_CORE_CHECKED_H

#include <cstddef>
#include <cstdint>
#include <limits>

namespace kivcore {

// a * b into *out; false when either is negative or the product does not fit.
inline bool checked_mul(long long a, long long b, std::size_t* out) {
    if (a < 0 || b < 0) return false;
    if (a != 0 && static_cast<unsigned long long>(b) >
                      std::numeric_limits<std::size_t>::max() / static_cast<unsigned long long>(a))
        return false;
    *out = static_cast<std::size_t>(a) * static_cast<std::size_t>(b);
    return true;
}

inline bool checked_add(std::size_t a, std::size_t b, std::size_t* out) {
    if (b > std::numeric_limits<std::size_t>::max() - a) return false;
    *out = a + b;
    return true;
}

// Pixel count of a width x height image, or -1 when either side is below 1 or the count
// does not fit the 32-bit packets field.
inline int checked_packets(int width, int height) {
    if (width < 1 || height < 1) return -1;
    long long n = static_cast<long long>(width) * height;
    if (n > std::numeric_limits<int>::max()) return -1;
    return static_cast<int>(n);
}

// Clamp a 64-bit value into int range.
inline int clamp_int(long long v) {
    if (v < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    if (v > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    return static_cast<int>(v);
}

}  // namespace kivcore

#endif
