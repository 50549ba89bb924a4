// The histogram adjustments' kernels for SSE2.
#include "adjust/histogram_simd.h"
#include "core/simd_sse2.h"

#if KIV_HAVE_SSE2
namespace kivadjust {

namespace {

// The luminance levels of eight pixels: each pixel's bytes widened to 16 bits and weighed
// in pairs (77 r + 150 g, 29 b + 0 a), the pairs added, shifted down and narrowed. Sums
// stay below 2^16, so every step is exact (kivcore::luminance).
KIV_SIMD_INLINE void luminance8(const unsigned char* p, std::uint16_t* out) {
    const __m128i zero = _mm_setzero_si128(), coef = _mm_setr_epi16(77, 150, 29, 0, 77, 150, 29, 0);
    auto four = [&](__m128i v) {
        const __m128i a = _mm_madd_epi16(_mm_unpacklo_epi8(v, zero), coef);  // pixels 0, 1
        const __m128i b = _mm_madd_epi16(_mm_unpackhi_epi8(v, zero), coef);  // pixels 2, 3
        // Each pair's sum into its low lane, then those lanes side by side.
        const __m128i sa = _mm_shuffle_epi32(_mm_add_epi32(a, _mm_srli_epi64(a, 32)), _MM_SHUFFLE(3, 1, 2, 0));
        const __m128i sb = _mm_shuffle_epi32(_mm_add_epi32(b, _mm_srli_epi64(b, 32)), _MM_SHUFFLE(3, 1, 2, 0));
        return _mm_srli_epi32(_mm_unpacklo_epi64(sa, sb), 8);
    };
    const __m128i lo = four(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    const __m128i hi = four(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(lo, hi));
}

}  // namespace

int count_luminance_sse2(const unsigned char* p, int n, std::uint32_t (*part)[256]) {
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        std::uint16_t lv[8];
        luminance8(p + 4 * i, lv);
        for (int k = 0; k < 8; ++k) ++part[k][lv[k]];
    }
    return i;
}

std::size_t byte_range_sse2(const unsigned char* bytes, std::size_t nb, unsigned char* lo16, unsigned char* hi16) {
    __m128i vlo = _mm_set1_epi8(-1), vhi = _mm_setzero_si128();
    std::size_t j = 0;
    for (; j + 16 <= nb; j += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + j));
        vlo = _mm_min_epu8(vlo, v);
        vhi = _mm_max_epu8(vhi, v);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lo16), vlo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(hi16), vhi);
    return j;
}

}  // namespace kivadjust
#endif
