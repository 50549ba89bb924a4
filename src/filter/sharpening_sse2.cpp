// The sharpening members' kernels for SSE2: enhance's step (sharpening_simd.h over
// kivcore::Sse2, two pixels to a register) and the rows of the lightness plane.
#include "core/simd_sse2.h"
#include "filter/sharpening_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

namespace {

// A change d (dwords) as a saturating add of max(d, 0) and subtract of max(-d, 0) on the
// colour bytes of the pixels; alpha gets 0 of each. |d| < 2^15: the word maximum serves.
KIV_SIMD_INLINE __m128i add_changes(__m128i px, __m128i d) {
    auto spread = [](__m128i v) { return _mm_or_si128(_mm_or_si128(v, _mm_slli_epi32(v, 8)), _mm_slli_epi32(v, 16)); };
    const __m128i z = _mm_setzero_si128();
    const __m128i up = spread(_mm_max_epi16(d, z)), down = spread(_mm_max_epi16(_mm_sub_epi32(z, d), z));
    return _mm_subs_epu8(_mm_adds_epu8(px, up), down);
}

struct Io {
    static KIV_SIMD_INLINE __m128i lightness(const unsigned char* l) { return _mm_setr_epi32(l[0], l[1], 0, 0); }
    static KIV_SIMD_INLINE void add_change(__m128i nl, __m128i l32, unsigned char* out) {
        __m128i* q = reinterpret_cast<__m128i*>(out);
        _mm_storel_epi64(q, add_changes(_mm_loadl_epi64(q), _mm_sub_epi32(nl, l32)));
    }
};

}  // namespace

int enhance_span_sse2(const EnhanceRow& row, int x0, int x1, unsigned char* out) {
    return enhance_span<kivcore::Sse2, Io>(row, x0, x1, out);
}

int lightness_sse2(const unsigned char* p, int n, unsigned char* out) {
    // Byte maxima and minima of each pixel's three channels land in its low byte; the
    // rounded-up average less the odd bit is the floor of the mean.
    const __m128i low = _mm_set1_epi32(0xFF);
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        __m128i l[4];
        for (int q = 0; q < 4; ++q) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 4 * (i + 4 * q)));
            const __m128i g = _mm_srli_epi32(v, 8), b = _mm_srli_epi32(v, 16);
            const __m128i mx = _mm_max_epu8(_mm_max_epu8(v, g), b), mn = _mm_min_epu8(_mm_min_epu8(v, g), b);
            const __m128i odd = _mm_and_si128(_mm_xor_si128(mx, mn), _mm_set1_epi8(1));
            l[q] = _mm_and_si128(_mm_sub_epi8(_mm_avg_epu8(mx, mn), odd), low);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                         _mm_packus_epi16(_mm_packs_epi32(l[0], l[1]), _mm_packs_epi32(l[2], l[3])));
    }
    return i;
}

int add_changes_sse2(unsigned char* o, const unsigned char* l, const unsigned char* b, int n, const unsigned char* t) {
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        int d[4];
        for (int k = 0; k < 4; ++k) d[k] = t[static_cast<unsigned>(l[i + k]) * 256 + b[i + k]] - l[i + k];
        __m128i* q = reinterpret_cast<__m128i*>(o + 4 * i);
        _mm_storeu_si128(q, add_changes(_mm_loadu_si128(q), _mm_setr_epi32(d[0], d[1], d[2], d[3])));
    }
    return i;
}

}  // namespace kivfilter
#endif
