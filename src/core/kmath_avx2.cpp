// kmath's sine and cosine kernel for AVX2: kmath_simd.h over kivcore::Avx2, four arguments a
// register.
#include "core/kmath_simd.h"
#include "core/simd_avx2.h"

#if KIV_HAVE_AVX2

namespace kivcore {
namespace kmath {

using DD = DoubleDouble<Avx2>;

void sincos4_avx2(const double* xp, double* s, double* c) {
    const __m256d x = _mm256_loadu_pd(xp), sign = _mm256_set1_pd(-0.0);
    const DD::dd r{_mm256_andnot_pd(sign, x), _mm256_setzero_pd()};
    // sin is odd: the magnitude's sine takes the argument's sign, as the scalar negation does.
    _mm256_storeu_pd(s, _mm256_xor_pd(DD::sin_kernel(r).hi, _mm256_and_pd(sign, x)));
    _mm256_storeu_pd(c, DD::cos_kernel(r).hi);
}

}  // namespace kmath
}  // namespace kivcore

#endif
