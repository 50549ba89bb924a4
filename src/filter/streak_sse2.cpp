// The streak blurs' kernels for SSE2.
#include "core/simd_sse2.h"
#include "filter/streak_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

namespace {

using kivcore::Sse2;

// The colour bytes of v, the alpha of in.
KIV_SIMD_INLINE __m128i keep_alpha(__m128i in, __m128i v) {
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    return _mm_or_si128(_mm_and_si128(alpha, in), _mm_andnot_si128(alpha, v));
}

KIV_SIMD_INLINE __m128i wind_step(__m128i& t, __m128i in, __m128i fade) {
    t = _mm_max_epu8(in, _mm_subs_epu8(t, fade));
    return keep_alpha(in, t);
}

// Element k of a blast line, in; old is element k - len when k >= len. sum: four 32-bit lanes
// of one pixel; (sum + cnt / 2) / cnt is exact in float (sums below 2^24) and the larger of
// it and the pixel stays below 2^16, where the 16-bit maximum serves.
KIV_SIMD_INLINE __m128i blast_step(__m128i& sum, int k, int len, __m128i in, const unsigned char* old) {
    const __m128i z = _mm_setzero_si128();
    const __m128i in32 = _mm_unpacklo_epi16(_mm_unpacklo_epi8(in, z), z);
    sum = _mm_add_epi32(sum, in32);
    if (k >= len) sum = _mm_sub_epi32(sum, _mm_unpacklo_epi16(_mm_unpacklo_epi8(Sse2::load_pixel(old), z), z));
    const int cnt = k + 1 < len ? k + 1 : len;
    const __m128i mean = _mm_cvttps_epi32(
        _mm_div_ps(_mm_cvtepi32_ps(_mm_add_epi32(sum, _mm_set1_epi32(cnt / 2))), _mm_set1_ps(static_cast<float>(cnt))));
    const __m128i v = _mm_max_epi16(in32, mean);
    return keep_alpha(in, _mm_packus_epi16(_mm_packs_epi32(v, z), z));
}

}  // namespace

void wind_line_sse2(unsigned char* p, int n, bool reverse, int fade) {
    const __m128i f = _mm_set1_epi8(static_cast<char>(fade));
    __m128i t = _mm_setzero_si128();
    for (int k = 0; k < n; ++k) {
        unsigned char* px = p + 4 * (reverse ? n - 1 - k : k);
        Sse2::store_pixel(px, wind_step(t, Sse2::load_pixel(px), f));
    }
}

void wind_columns_sse2(unsigned char* p, unsigned char* trail, const unsigned char* fades, int groups) {
    for (int g = 0; g < groups; ++g) {
        __m128i* pv = reinterpret_cast<__m128i*>(p) + g;
        __m128i* tv = reinterpret_cast<__m128i*>(trail) + g;
        __m128i t = _mm_loadu_si128(tv);
        const __m128i o =
            wind_step(t, _mm_loadu_si128(pv), _mm_loadu_si128(reinterpret_cast<const __m128i*>(fades) + g));
        _mm_storeu_si128(tv, t);
        _mm_storeu_si128(pv, o);
    }
}

void blast_line_sse2(const unsigned char* in, unsigned char* out, int n, bool reverse, int len) {
    __m128i sum = _mm_setzero_si128();
    for (int k = 0; k < n; ++k) {
        const int pos = reverse ? n - 1 - k : k;
        const unsigned char* old = k >= len ? in + 4 * (reverse ? pos + len : pos - len) : nullptr;
        Sse2::store_pixel(out + 4 * pos, blast_step(sum, k, len, Sse2::load_pixel(in + 4 * pos), old));
    }
}

void blast_columns_sse2(const unsigned char* in, long long stride, int j, int back, unsigned char* out, int c0,
                        int count, int k, const int* len, int* sums) {
    const unsigned char* src = in + 4 * (j * stride + c0);
    for (int i = 0; i < count; ++i) {
        __m128i* s = reinterpret_cast<__m128i*>(sums + 4 * i);
        __m128i sum = _mm_loadu_si128(s);
        const unsigned char* old = k >= len[i] ? in + 4 * ((j + back * len[i]) * stride + c0 + i) : nullptr;
        Sse2::store_pixel(out + 4 * (c0 + i), blast_step(sum, k, len[i], Sse2::load_pixel(src + 4 * i), old));
        _mm_storeu_si128(s, sum);
    }
}

}  // namespace kivfilter
#endif
