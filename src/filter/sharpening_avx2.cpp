// enhance's step for AVX2: sharpening_simd.h over kivcore::Avx2, four pixels to a register.
#include "core/simd_avx2.h"
#include "filter/sharpening_simd.h"

#if KIV_HAVE_AVX2
namespace kivfilter {

namespace {

struct Io {
    static KIV_SIMD_INLINE __m128i lightness(const unsigned char* l) { return _mm_cvtepu8_epi32(_mm_loadu_si32(l)); }
    // The change as a saturating add and subtract on the colour bytes; alpha gets 0 of each.
    static KIV_SIMD_INLINE void add_change(__m128i nl, __m128i l32, unsigned char* out) {
        const __m128i d = _mm_sub_epi32(nl, l32), z = _mm_setzero_si128();
        const __m128i up = _mm_max_epi32(d, z), down = _mm_max_epi32(_mm_sub_epi32(z, d), z);
        const __m128i rgb = _mm_set1_epi32(0x010101);
        __m128i* q = reinterpret_cast<__m128i*>(out);
        _mm_storeu_si128(
            q, _mm_subs_epu8(_mm_adds_epu8(_mm_loadu_si128(q), _mm_mullo_epi32(up, rgb)), _mm_mullo_epi32(down, rgb)));
    }
};

}  // namespace

int enhance_span_avx2(const EnhanceRow& row, int x0, int x1, unsigned char* out) {
    return enhance_span<kivcore::Avx2, Io>(row, x0, x1, out);
}

}  // namespace kivfilter
#endif
