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

// G groups of twelve lanes (four lines of three channels) at a 16-byte stride, group g's
// bytes and outputs plane * g bytes on and its yp n * 12 * g doubles on. Each step's result
// waits on the step before through a chain of five dependent operations; groups filtered
// side by side fill those waits with independent work. Lane by lane the operations are
// those of the scalar kernel, in its order.
template <int G>
void lanes_avx2(const IirCoef& c, int n, const unsigned char* x, long long plane, double* yp, unsigned char* out) {
    constexpr int kLanes = 12, R = 3 * G;
    constexpr long long kStride = 16;
    const long long yplane = static_cast<long long>(n) * kLanes;
    __m256d first[R], last[R], xr[4][R], yr[4][R];
    for (int g = 0; g < G; ++g) {
        load_lanes(x + g * plane, first + 3 * g);
        load_lanes(x + g * plane + static_cast<long long>(n - 1) * kStride, last + 3 * g);
    }
    const __m256d p0 = _mm256_set1_pd(c.p[0]);
    for (int i = 0; i < n; ++i) {
        __m256d xi[R], acc[R];
        for (int g = 0; g < G; ++g) load_lanes(x + g * plane + static_cast<long long>(i) * kStride, xi + 3 * g);
        for (int t = 0; t < R; ++t) acc[t] = _mm256_mul_pd(p0, xi[t]);
        for (int k = 1; k <= 4; ++k) {
            if (k <= i) {
                const __m256d pk = _mm256_set1_pd(c.p[k]), dk = _mm256_set1_pd(c.d[k]);
                const __m256d* xk = xr[(i - k) & 3];
                const __m256d* yk = yr[(i - k) & 3];
                for (int t = 0; t < R; ++t)
                    acc[t] = _mm256_add_pd(acc[t], _mm256_sub_pd(_mm256_mul_pd(pk, xk[t]), _mm256_mul_pd(dk, yk[t])));
            } else {
                const __m256d e = _mm256_set1_pd(c.ep[k]);
                for (int t = 0; t < R; ++t) acc[t] = _mm256_add_pd(acc[t], _mm256_mul_pd(e, first[t]));
            }
        }
        // Slot i & 3 held position i - 4, read above for k = 4.
        for (int t = 0; t < R; ++t) {
            xr[i & 3][t] = xi[t];
            yr[i & 3][t] = acc[t];
            _mm256_storeu_pd(yp + (t / 3) * yplane + static_cast<long long>(i) * kLanes + 4 * (t % 3), acc[t]);
        }
    }
    const __m256d zero = _mm256_setzero_pd(), top = _mm256_set1_pd(255.0);
    for (int i = 0; i < n; ++i) {
        const int j = n - 1 - i;
        __m256d xj[R], acc[R];
        for (int g = 0; g < G; ++g) load_lanes(x + g * plane + static_cast<long long>(j) * kStride, xj + 3 * g);
        for (int t = 0; t < R; ++t) acc[t] = zero;
        for (int k = 1; k <= 4; ++k) {
            if (k <= i) {
                const __m256d mk = _mm256_set1_pd(c.m[k]), dk = _mm256_set1_pd(c.d[k]);
                const __m256d* xk = xr[(i - k) & 3];
                const __m256d* yk = yr[(i - k) & 3];
                for (int t = 0; t < R; ++t)
                    acc[t] = _mm256_add_pd(acc[t], _mm256_sub_pd(_mm256_mul_pd(mk, xk[t]), _mm256_mul_pd(dk, yk[t])));
            } else {
                const __m256d e = _mm256_set1_pd(c.em[k]);
                for (int t = 0; t < R; ++t) acc[t] = _mm256_add_pd(acc[t], _mm256_mul_pd(e, last[t]));
            }
        }
        for (int g = 0; g < G; ++g) {
            const double* pj = yp + g * yplane + static_cast<long long>(j) * kLanes;
            __m128i q[3];
            for (int u = 0; u < 3; ++u) {
                const int t = 3 * g + u;
                xr[i & 3][t] = xj[t];
                yr[i & 3][t] = acc[t];
                // max(v, 0) then min(v, 255): NaN goes to 0, as in the other kernels.
                const __m256d v =
                    _mm256_min_pd(_mm256_max_pd(_mm256_add_pd(_mm256_loadu_pd(pj + 4 * u), acc[t]), zero), top);
                q[u] = _mm256_cvttpd_epi32(v);
            }
            const __m128i b =
                _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], _mm_setzero_si128()));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + g * plane + static_cast<long long>(j) * kStride), b);
        }
    }
}

}  // namespace

void iir_lanes_avx2(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out) {
    lanes_avx2<1>(c, n, x, 0, yp, out);
}

void iir_lanes2_avx2(const IirCoef& c, int n, const unsigned char* x, long long plane, double* yp,
                     unsigned char* out) {
    lanes_avx2<2>(c, n, x, plane, yp, out);
}

}  // namespace kivfilter

#endif
