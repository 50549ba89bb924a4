// The recursive Gaussian's line kernel for AVX2: the SSE2 kernel with four lanes to a
// register. Each lane runs exactly the scalar sequence of operations.
#include "core/simd.h"
#include "filter/gauss_iir.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

// Bytes 0..11 of p as three groups of four doubles.
void load_lanes(const unsigned char* p, __m256d* d) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    d[0] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(b));
    d[1] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(b, 4)));
    d[2] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(b, 8)));
}

}  // namespace

// Twelve lanes (four lines of three channels) at a 16-byte stride, as iir_lanes_sse2.
void iir_lanes_avx2(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out) {
    constexpr int kLanes = 12;
    constexpr long long kStride = 16;
    __m256d first[3], last[3], xr[4][3], yr[4][3];
    load_lanes(x, first);
    load_lanes(x + static_cast<long long>(n - 1) * kStride, last);
    const __m256d p0 = _mm256_set1_pd(c.p[0]);
    for (int i = 0; i < n; ++i) {
        double* yi = yp + static_cast<long long>(i) * kLanes;
        __m256d xi[3], acc[3];
        load_lanes(x + static_cast<long long>(i) * kStride, xi);
        for (int t = 0; t < 3; ++t) acc[t] = _mm256_mul_pd(p0, xi[t]);
        for (int k = 1; k <= 4; ++k) {
            if (k <= i) {
                const __m256d pk = _mm256_set1_pd(c.p[k]), dk = _mm256_set1_pd(c.d[k]);
                const __m256d* xk = xr[(i - k) & 3];
                const double* yk = yi - static_cast<long long>(k) * kLanes;
                for (int t = 0; t < 3; ++t)
                    acc[t] = _mm256_add_pd(
                        acc[t], _mm256_sub_pd(_mm256_mul_pd(pk, xk[t]), _mm256_mul_pd(dk, _mm256_loadu_pd(yk + 4 * t))));
            } else {
                const __m256d e = _mm256_set1_pd(c.ep[k]);
                for (int t = 0; t < 3; ++t) acc[t] = _mm256_add_pd(acc[t], _mm256_mul_pd(e, first[t]));
            }
        }
        for (int t = 0; t < 3; ++t) {
            xr[i & 3][t] = xi[t];
            _mm256_storeu_pd(yi + 4 * t, acc[t]);
        }
    }
    const __m256d zero = _mm256_setzero_pd(), top = _mm256_set1_pd(255.0);
    for (int i = 0; i < n; ++i) {
        const int j = n - 1 - i;
        __m256d xj[3], acc[3];
        load_lanes(x + static_cast<long long>(j) * kStride, xj);
        for (int t = 0; t < 3; ++t) acc[t] = zero;
        for (int k = 1; k <= 4; ++k) {
            if (k <= i) {
                const __m256d mk = _mm256_set1_pd(c.m[k]), dk = _mm256_set1_pd(c.d[k]);
                const __m256d* xk = xr[(i - k) & 3];
                const __m256d* yk = yr[(i - k) & 3];
                for (int t = 0; t < 3; ++t)
                    acc[t] = _mm256_add_pd(acc[t], _mm256_sub_pd(_mm256_mul_pd(mk, xk[t]), _mm256_mul_pd(dk, yk[t])));
            } else {
                const __m256d e = _mm256_set1_pd(c.em[k]);
                for (int t = 0; t < 3; ++t) acc[t] = _mm256_add_pd(acc[t], _mm256_mul_pd(e, last[t]));
            }
        }
        const double* pj = yp + static_cast<long long>(j) * kLanes;
        __m128i q[3];
        for (int t = 0; t < 3; ++t) {
            xr[i & 3][t] = xj[t];
            yr[i & 3][t] = acc[t];
            // max(v, 0) then min(v, 255): NaN goes to 0, as in the other kernels.
            const __m256d v = _mm256_min_pd(_mm256_max_pd(_mm256_add_pd(_mm256_loadu_pd(pj + 4 * t), acc[t]), zero), top);
            q[t] = _mm256_cvttpd_epi32(v);
        }
        const __m128i b = _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], _mm_setzero_si128()));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + static_cast<long long>(j) * kStride), b);
    }
}

}  // namespace kivfilter

#endif
