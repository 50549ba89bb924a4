// The sampling blurs' AVX2 kernels: four pixels a register, positions in double lanes, the
// samples gathered and summed in 32-bit lanes.
#include "core/simd.h"
#include "filter/motion_blur_simd.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

// Sums of the four pixels' samples, r g b a each: pixels 0 and 1 in s01, 2 and 3 in s23.
struct Sums {
    __m256i s01, s23;
};

// Adds the samples at (x, y), v relative to the centre: clamp(centre + floor(v + 0.5)).
// The clamp runs on the double integers, so the conversion to 32 bits is exact.
inline void add_samples(const MotionSrc& src, __m256d x, __m256d y, Sums& sums) {
    const __m256d half = _mm256_set1_pd(0.5), zero = _mm256_setzero_pd();
    x = _mm256_add_pd(_mm256_set1_pd(src.cx), _mm256_floor_pd(_mm256_add_pd(x, half)));
    y = _mm256_add_pd(_mm256_set1_pd(src.cy), _mm256_floor_pd(_mm256_add_pd(y, half)));
    x = _mm256_min_pd(_mm256_max_pd(x, zero), _mm256_set1_pd(src.width - 1));
    y = _mm256_min_pd(_mm256_max_pd(y, zero), _mm256_set1_pd(src.height - 1));
    const __m256i xi = _mm256_cvtepi32_epi64(_mm256_cvttpd_epi32(x)), yi = _mm256_cvtepi32_epi64(_mm256_cvttpd_epi32(y));
    const __m256i at = _mm256_add_epi64(_mm256_mul_epu32(yi, _mm256_set1_epi64x(src.stride)), xi);
    const __m128i p = _mm256_i64gather_epi32(reinterpret_cast<const int*>(src.pixels), at, 4);
    sums.s01 = _mm256_add_epi32(sums.s01, _mm256_cvtepu8_epi32(p));
    sums.s23 = _mm256_add_epi32(sums.s23, _mm256_cvtepu8_epi32(_mm_srli_si128(p, 8)));
}

// (sum + n / 2) / n per channel (exact in float: the sums stay below 2^24), alpha from
// alpha_from, four pixels to out.
inline void store_means(const Sums& sums, int n, const unsigned char* alpha_from, unsigned char* out) {
    const __m256i h = _mm256_set1_epi32(n / 2);
    const __m256 d = _mm256_set1_ps(static_cast<float>(n));
    const __m256i m01 = _mm256_cvttps_epi32(_mm256_div_ps(_mm256_cvtepi32_ps(_mm256_add_epi32(sums.s01, h)), d));
    const __m256i m23 = _mm256_cvttps_epi32(_mm256_div_ps(_mm256_cvtepi32_ps(_mm256_add_epi32(sums.s23, h)), d));
    // packs: 128-bit halves hold pixels (0, 2) and (1, 3); the permutation restores the order.
    const __m256i b = _mm256_packus_epi16(_mm256_packs_epi32(m01, m23), _mm256_setzero_si256());
    const __m128i v = _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(b, _mm256_setr_epi32(0, 4, 1, 5, 2, 3, 6, 7)));
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(alpha_from));
    const __m128i keep = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(_mm_and_si128(keep, a), _mm_andnot_si128(keep, v)));
}

}  // namespace

void arc_pixels_avx2(const MotionSrc* srcp, const double* vx, const double* vy, const double* c, const double* s,
                     int count, int n, const unsigned char* alpha_from, unsigned char* out) {
    const MotionSrc src = *srcp;
    for (int i = 0; i < count; i += 4) {
        __m256d x = _mm256_loadu_pd(vx + i), y = _mm256_loadu_pd(vy + i);
        const __m256d cc = _mm256_loadu_pd(c + i), ss = _mm256_loadu_pd(s + i);
        Sums sums{_mm256_setzero_si256(), _mm256_setzero_si256()};
        for (int k = 0; k < n; ++k) {
            add_samples(src, x, y, sums);
            const __m256d nx = _mm256_sub_pd(_mm256_mul_pd(x, cc), _mm256_mul_pd(y, ss));
            y = _mm256_add_pd(_mm256_mul_pd(x, ss), _mm256_mul_pd(y, cc));
            x = nx;
        }
        store_means(sums, n, alpha_from + 4 * i, out + 4 * i);
    }
}

void spin_pixels_avx2(const MotionSrc* srcp, double ox0, double oy, const double* a, const double* b, int n, int count,
                      const unsigned char* alpha_from, unsigned char* out) {
    const MotionSrc src = *srcp;
    const __m256d y0 = _mm256_set1_pd(oy);
    for (int i = 0; i < count; i += 4) {
        // ox0 + i + lane: integers, exact.
        const __m256d x0 = _mm256_add_pd(_mm256_set1_pd(ox0 + i), _mm256_setr_pd(0.0, 1.0, 2.0, 3.0));
        Sums sums{_mm256_setzero_si256(), _mm256_setzero_si256()};
        for (int k = 0; k < n; ++k) {
            const __m256d ak = _mm256_broadcast_sd(a + k), bk = _mm256_broadcast_sd(b + k);
            const __m256d x = _mm256_sub_pd(_mm256_mul_pd(x0, ak), _mm256_mul_pd(y0, bk));
            const __m256d y = _mm256_add_pd(_mm256_mul_pd(x0, bk), _mm256_mul_pd(y0, ak));
            add_samples(src, x, y, sums);
        }
        store_means(sums, n, alpha_from + 4 * i, out + 4 * i);
    }
}

}  // namespace kivfilter

#endif
