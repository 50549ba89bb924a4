// The 3x3 filters' deinterleaving of pixels into planes, for SSE2.
#include "core/simd_sse2.h"
#include "filter/filter_3x3_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

std::size_t planes_from_pixels_sse2(const unsigned char* s, std::size_t n, unsigned char* p0, unsigned char* p1,
                                    unsigned char* p2) {
    unsigned char* const d[3] = {p0, p1, p2};
    const __m128i lo = _mm_set1_epi32(0xFF);
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        __m128i v[4];
        for (int q = 0; q < 4; ++q) v[q] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * i + 16 * q));
        for (int c = 0; c < 3; ++c) {
            __m128i b[4];
            for (int q = 0; q < 4; ++q) b[q] = _mm_and_si128(_mm_srli_epi32(v[q], 8 * c), lo);
            const __m128i p = _mm_packus_epi16(_mm_packs_epi32(b[0], b[1]), _mm_packs_epi32(b[2], b[3]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d[c] + i), p);
        }
    }
    return i;
}

}  // namespace kivfilter
#endif
