// enhance's per-pixel step for AVX2: the SSE2 step with four pixels to a register, each
// lane the scalar sequence of double operations.
#include "core/simd.h"
#include "filter/sharpening_avx2.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

// Box sums (below 2^52, non-negative) as doubles: the integer in a double's mantissa.
__m256d box(const long long* p, int lo, int hi) {
    const __m256i d = _mm256_sub_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + hi)),
                                       _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + lo)));
    const __m256d two52 = _mm256_set1_pd(4503599627370496.0);
    return _mm256_sub_pd(_mm256_castsi256_pd(_mm256_or_si256(d, _mm256_castpd_si256(two52))), two52);
}

}  // namespace

int enhance_span_avx2(const EnhanceRow* e, int x0, int x1, unsigned char* out) {
    const __m256d area = _mm256_set1_pd(e->area), gs = _mm256_set1_pd(e->gain_scale), zero = _mm256_setzero_pd();
    const __m256d one = _mm256_set1_pd(1.0), three = _mm256_set1_pd(3.0), forty = _mm256_set1_pd(40.0);
    const __m256d half = _mm256_set1_pd(0.5), top = _mm256_set1_pd(255.0);
    const int r = e->radius;
    int i = x0;
    for (; i + 4 <= x1; i += 4) {
        const __m256d mean = _mm256_div_pd(box(e->p1, i - r, i + r + 1), area);
        const __m256d var = _mm256_sub_pd(_mm256_div_pd(box(e->p2, i - r, i + r + 1), area), _mm256_mul_pd(mean, mean));
        const __m256d sd = _mm256_sqrt_pd(_mm256_max_pd(var, zero));
        const __m256d g = _mm256_min_pd(_mm256_max_pd(_mm256_div_pd(forty, _mm256_add_pd(sd, one)), one), three);
        const __m256d gain = _mm256_add_pd(one, _mm256_mul_pd(gs, _mm256_sub_pd(g, one)));
        const __m128i l32 = _mm_cvtepu8_epi32(_mm_loadu_si32(e->l + i));
        const __m256d l = _mm256_cvtepi32_pd(l32);
        const __m256d v = _mm256_add_pd(_mm256_add_pd(mean, _mm256_mul_pd(_mm256_sub_pd(l, mean), gain)), half);
        const __m128i nl = _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_max_pd(v, zero), top));
        // The change as a saturating add and subtract on the colour bytes.
        const __m128i d = _mm_sub_epi32(nl, l32), z = _mm_setzero_si128();
        const __m128i up = _mm_max_epi32(d, z), down = _mm_max_epi32(_mm_sub_epi32(z, d), z);
        const __m128i rgb = _mm_set1_epi32(0x010101);
        __m128i* q = reinterpret_cast<__m128i*>(out + 4 * i);
        _mm_storeu_si128(
            q, _mm_subs_epu8(_mm_adds_epu8(_mm_loadu_si128(q), _mm_mullo_epi32(up, rgb)), _mm_mullo_epi32(down, rgb)));
    }
    return i;
}

}  // namespace kivfilter

#endif
