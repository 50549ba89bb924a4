// emboss's row kernel for AVX2: the SSE2 kernel with eight pixels to a register.
#include "core/simd.h"
#include "filter/kernel3x3_avx2.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

using V = __m256i;

// Shades of four pixels: the scalar double sequence lane by lane.
__m128i shade4(__m128i nx, __m128i ny, const EmbossLight& L) {
    const __m256d x = _mm256_cvtepi32_pd(nx), y = _mm256_cvtepi32_pd(ny);
    const __m256d t =
        _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(x, _mm256_set1_pd(L.lx)), _mm256_mul_pd(y, _mm256_set1_pd(L.ly))),
                      _mm256_set1_pd(L.nzlz));
    const __m256d d = _mm256_cvtepi32_pd(_mm256_cvttpd_epi32(t));
    const __m256d q = _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(x, x), _mm256_mul_pd(y, y)), _mm256_set1_pd(L.nz2));
    return _mm256_cvttpd_epi32(_mm256_div_pd(d, _mm256_sqrt_pd(q)));
}

void eight(const unsigned char* const* rows, int x, const EmbossLight& L, unsigned char* out) {
    const V red = _mm256_set1_epi32(0xFF), z = _mm256_setzero_si256();
    V h[9];
    for (int k = 0; k < 9; ++k)
        if (k != 4)
            h[k] = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const V*>(rows[k / 3] + 4 * (x - 1 + k % 3))),
                                    red);
    const V nx = _mm256_sub_epi32(_mm256_add_epi32(_mm256_add_epi32(h[0], h[3]), h[6]),
                                  _mm256_add_epi32(_mm256_add_epi32(h[2], h[5]), h[8]));
    const V ny = _mm256_sub_epi32(_mm256_add_epi32(_mm256_add_epi32(h[6], h[7]), h[8]),
                                  _mm256_add_epi32(_mm256_add_epi32(h[0], h[1]), h[2]));
    V s = _mm256_setr_m128i(shade4(_mm256_castsi256_si128(nx), _mm256_castsi256_si128(ny), L),
                            shade4(_mm256_extracti128_si256(nx, 1), _mm256_extracti128_si256(ny, 1), L));
    s = _mm256_min_epi32(_mm256_max_epi32(s, z), _mm256_set1_epi32(255));
    s = _mm256_blendv_epi8(s, _mm256_set1_epi32(L.flat), _mm256_cmpeq_epi32(_mm256_or_si256(nx, ny), z));
    V v;
    if (L.mono) {
        v = _mm256_or_si256(_mm256_or_si256(s, _mm256_slli_epi32(s, 8)), _mm256_slli_epi32(s, 16));
    } else {
        const V above = _mm256_loadu_si256(reinterpret_cast<const V*>(rows[0] + 4 * x));
        const V m = _mm256_or_si256(s, _mm256_slli_epi32(s, 16));
        const V lo =
            _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_unpacklo_epi8(above, z), _mm256_unpacklo_epi32(m, m)), 8);
        const V hi =
            _mm256_srli_epi16(_mm256_mullo_epi16(_mm256_unpackhi_epi8(above, z), _mm256_unpackhi_epi32(m, m)), 8);
        v = _mm256_and_si256(_mm256_packus_epi16(lo, hi), _mm256_set1_epi32(0xFFFFFF));
    }
    _mm256_storeu_si256(reinterpret_cast<V*>(out + 4 * x), v);
}

}  // namespace

int emboss_row_avx2(const unsigned char* const* rows, int x0, int x1, const EmbossLight* light, unsigned char* out) {
    if (x1 - x0 < 8) return x0;
    const EmbossLight L = *light;
    // The last eight end at x1, overlapping the ones before (the same values again); one
    // call site, so the kernel is inlined.
    for (int x = x0;; x += 8) {
        x = x < x1 - 8 ? x : x1 - 8;
        eight(rows, x, L, out);
        if (x == x1 - 8) break;
    }
    return x1;
}

}  // namespace kivfilter

#endif
