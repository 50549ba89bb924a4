// kmath's sine and cosine kernel for AVX2 (kmath_avx2.cpp).
#ifndef KIV_CORE_KMATH_AVX2_H
#define KIV_CORE_KMATH_AVX2_H

namespace kivcore {
namespace kmath {

// sin and cos of x[0..3], each 2^-26 <= |x| <= 0x1.921fb54442d18p-1 (no argument
// reduction), bit for bit as sin and cos give them. Call only when kivcore::use_avx2().
void sincos4_avx2(const double* x, double* s, double* c);

}  // namespace kmath
}  // namespace kivcore

#endif
