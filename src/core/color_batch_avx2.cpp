// The integer HLS model, eight colours at a time. Each lane runs the scalar model's
// operations in its order (color_models.h): a branch becomes a blend of both sides, and each
// division stays a division. The integer quotient of the saturation is a single-precision
// division truncated: numerator below 2^16, divisor 1..511, quotient below 256, so the
// rounded quotient never reaches the next integer (half an ulp is below 2^-17 < 1/511).
#include "core/color_batch_simd.h"
#include "core/simd.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivcore {

namespace {

// Four 32-bit lanes (as 64-bit masks or values) for the double halves of a register.
__m256d lo_pd(__m256i v) { return _mm256_cvtepi32_pd(_mm256_castsi256_si128(v)); }
__m256d hi_pd(__m256i v) { return _mm256_cvtepi32_pd(_mm256_extracti128_si256(v, 1)); }
__m256d lo_mask(__m256i m) { return _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(m))); }
__m256d hi_mask(__m256i m) { return _mm256_castsi256_pd(_mm256_cvtepi32_epi64(_mm256_extracti128_si256(m, 1))); }
__m256i join(__m128i lo, __m128i hi) { return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1); }

// The hue of four lanes: off + num / d, times 42.5, wrapped once, truncated.
__m128i hue4(__m256d num, __m256d off, __m256d d) {
    __m256d h = _mm256_add_pd(off, _mm256_div_pd(num, d));
    h = _mm256_mul_pd(h, _mm256_set1_pd(42.5));
    const __m256d zero = _mm256_setzero_pd(), turn = _mm256_set1_pd(255.0);
    const __m256d below = _mm256_cmp_pd(h, zero, _CMP_LT_OQ), above = _mm256_cmp_pd(h, turn, _CMP_GT_OQ);
    h = _mm256_blendv_pd(h, _mm256_add_pd(h, turn), below);
    h = _mm256_blendv_pd(h, _mm256_sub_pd(h, turn), above);
    return _mm256_cvttpd_epi32(h);
}

// One channel of four lanes (detail::hls_value).
__m128i channel4(__m256d m1, __m256d m2, __m256d x) {
    const __m256d zero = _mm256_setzero_pd(), turn = _mm256_set1_pd(255.0);
    const __m256d over = _mm256_cmp_pd(x, turn, _CMP_GT_OQ), under = _mm256_cmp_pd(x, zero, _CMP_LT_OQ);
    x = _mm256_blendv_pd(x, _mm256_add_pd(x, turn), under);
    x = _mm256_blendv_pd(x, _mm256_sub_pd(x, turn), over);
    const __m256d c1 = _mm256_cmp_pd(x, _mm256_set1_pd(42.5), _CMP_LT_OQ);
    const __m256d c2 = _mm256_cmp_pd(x, _mm256_set1_pd(127.5), _CMP_LT_OQ);
    const __m256d c3 = _mm256_cmp_pd(x, _mm256_set1_pd(170.0), _CMP_LT_OQ);
    // The rising and the falling edge share one form: x, or 170 - x.
    const __m256d y = _mm256_blendv_pd(_mm256_sub_pd(_mm256_set1_pd(170.0), x), x, c1);
    const __m256d t = _mm256_add_pd(m1, _mm256_div_pd(_mm256_mul_pd(_mm256_sub_pd(m2, m1), y), _mm256_set1_pd(42.5)));
    const __m256d edge = _mm256_mul_pd(t, turn);
    __m256d v = _mm256_mul_pd(m1, turn);                           // from 170 up
    v = _mm256_blendv_pd(v, edge, c3);                             // 127.5 .. 170
    v = _mm256_blendv_pd(v, _mm256_mul_pd(m2, turn), c2);          // 42.5 .. 127.5
    v = _mm256_blendv_pd(v, edge, c1);                             // below 42.5
    return _mm256_cvttpd_epi32(v);
}

}  // namespace

void hls_of_words_avx2(const std::uint32_t* words, int* h, int* l, int* s, std::size_t n) {
    const __m256i byte = _mm256_set1_epi32(0xFF), one = _mm256_set1_epi32(1);
    for (std::size_t i = 0; i + 8 <= n; i += 8) {
        const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words + i));
        const __m256i r = _mm256_and_si256(w, byte), g = _mm256_and_si256(_mm256_srli_epi32(w, 8), byte),
                      b = _mm256_and_si256(_mm256_srli_epi32(w, 16), byte);
        const __m256i mx = _mm256_max_epi32(_mm256_max_epi32(r, g), b);
        const __m256i mn = _mm256_min_epi32(_mm256_min_epi32(r, g), b);
        const __m256i sum = _mm256_add_epi32(mx, mn), d = _mm256_sub_epi32(mx, mn);
        const __m256i grey = _mm256_cmpeq_epi32(d, _mm256_setzero_si256());
        const __m256i lower = _mm256_cmpgt_epi32(_mm256_set1_epi32(256), sum);  // l < 128
        // Greys take divisor 1 so that no lane divides by zero; their results are replaced.
        const __m256i den = _mm256_max_epi32(_mm256_blendv_epi8(_mm256_sub_epi32(_mm256_set1_epi32(511), sum), sum, lower), one);
        const __m256i sat = _mm256_cvttps_epi32(
            _mm256_div_ps(_mm256_cvtepi32_ps(_mm256_mullo_epi32(d, _mm256_set1_epi32(255))), _mm256_cvtepi32_ps(den)));
        // Red first, then green, else blue decides the sector.
        const __m256i is_r = _mm256_cmpeq_epi32(r, mx);
        const __m256i is_g = _mm256_andnot_si256(is_r, _mm256_cmpeq_epi32(g, mx));
        __m256i num = _mm256_sub_epi32(r, g);
        num = _mm256_blendv_epi8(num, _mm256_sub_epi32(b, r), is_g);
        num = _mm256_blendv_epi8(num, _mm256_sub_epi32(g, b), is_r);
        __m256i off = _mm256_set1_epi32(4);
        off = _mm256_blendv_epi8(off, _mm256_set1_epi32(2), is_g);
        off = _mm256_andnot_si256(is_r, off);
        const __m256i dd = _mm256_max_epi32(d, one);
        const __m256i hue = join(hue4(lo_pd(num), lo_pd(off), lo_pd(dd)), hue4(hi_pd(num), hi_pd(off), hi_pd(dd)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(h + i), _mm256_andnot_si256(grey, hue));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(l + i), _mm256_srli_epi32(sum, 1));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(s + i), _mm256_andnot_si256(grey, sat));
    }
}

void rgb_of_hls_avx2(const int* h, const int* l, const int* s, int* r, int* g, int* b, std::size_t n) {
    const __m256i c255 = _mm256_set1_epi32(255);
    for (std::size_t i = 0; i + 8 <= n; i += 8) {
        const __m256i hv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + i));
        const __m256i lv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(l + i));
        const __m256i sv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
        const __m256i lower = _mm256_cmpgt_epi32(_mm256_set1_epi32(128), lv);
        // m2's numerator: (s + 255) * l below l = 128, s * l from there (both exact in int).
        const __m256i num = _mm256_blendv_epi8(_mm256_mullo_epi32(sv, lv), _mm256_mullo_epi32(_mm256_add_epi32(sv, c255), lv), lower);
        const __m256i sl = _mm256_add_epi32(sv, lv);
        __m128i out[3][2];
        for (int half = 0; half < 2; ++half) {
            const __m256d low = half ? hi_mask(lower) : lo_mask(lower);
            const __m256d numd = half ? hi_pd(num) : lo_pd(num), sld = half ? hi_pd(sl) : lo_pd(sl);
            const __m256d ld = half ? hi_pd(lv) : lo_pd(lv), hd = half ? hi_pd(hv) : lo_pd(hv);
            const __m256d q = _mm256_div_pd(numd, _mm256_blendv_pd(_mm256_set1_pd(255.0), _mm256_set1_pd(65025.0), low));
            const __m256d upper_m2 = _mm256_div_pd(_mm256_sub_pd(sld, q), _mm256_set1_pd(255.0));
            const __m256d m2 = _mm256_blendv_pd(upper_m2, q, low);
            const __m256d m1 = _mm256_sub_pd(_mm256_div_pd(ld, _mm256_set1_pd(127.5)), m2);
            out[0][half] = channel4(m1, m2, _mm256_add_pd(hd, _mm256_set1_pd(85.0)));
            out[1][half] = channel4(m1, m2, hd);
            out[2][half] = channel4(m1, m2, _mm256_sub_pd(hd, _mm256_set1_pd(85.0)));
        }
        // s = 0: every channel is l.
        const __m256i grey = _mm256_cmpeq_epi32(sv, _mm256_setzero_si256());
        int* dst[3] = {r, g, b};
        for (int c = 0; c < 3; ++c)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst[c] + i), _mm256_blendv_epi8(join(out[c][0], out[c][1]), lv, grey));
    }
}

}  // namespace kivcore

#endif
