// What kmath's files share: bit-level helpers, the scalar double-double type over the
// arithmetic of kmath_simd.h, and constants.
#ifndef KIV_CORE_KMATH_IMPL_H
#define KIV_CORE_KMATH_IMPL_H

#include <bit>
#include <cstdint>
#include <limits>

#include "core/kmath_simd.h"

namespace kivcore {
namespace kmath {
namespace {

// ---- Bit-level helpers (exact on every platform, unlike some runtimes' ldexp) ----

constexpr double kInf = std::numeric_limits<double>::infinity();

inline std::uint64_t bits_of(double x) { return std::bit_cast<std::uint64_t>(x); }
inline double from_bits(std::uint64_t b) { return std::bit_cast<double>(b); }
inline bool is_nan(double x) { return (bits_of(x) & 0x7FFFFFFFFFFFFFFFull) > 0x7FF0000000000000ull; }
inline bool is_inf(double x) { return (bits_of(x) & 0x7FFFFFFFFFFFFFFFull) == 0x7FF0000000000000ull; }
inline double fabs_(double x) { return from_bits(bits_of(x) & 0x7FFFFFFFFFFFFFFFull); }
inline double with_sign_of(double mag, double s) {
    return from_bits((bits_of(mag) & 0x7FFFFFFFFFFFFFFFull) | (bits_of(s) & 0x8000000000000000ull));
}
// 2^k for a normal power, -1022 <= k <= 1023.
inline double pow2(int k) { return from_bits(static_cast<std::uint64_t>(k + 1023) << 52); }

using DD = DoubleDouble<Scalar>;
using dd = DD::dd;

constexpr dd kPio2 = {0x1.921fb54442d18p+0, 0x1.1a62633145c07p-54};
constexpr dd kPiDD = {0x1.921fb54442d18p+1, 0x1.1a62633145c07p-53};
// ln 2 in three pieces; the first two have 42 bits so k * piece is exact for |k| < 2^11.
constexpr double kLn2Hi = 0x1.62e42fefa3800p-1;
constexpr double kLn2Mid = 0x1.ef35793c76000p-45;
constexpr double kLn2Lo = 0x1.cc01f97b57a08p-87;
constexpr double kInvLn2 = 0x1.71547652b82fep+0;

}  // namespace
}  // namespace kmath
}  // namespace kivcore

#endif
