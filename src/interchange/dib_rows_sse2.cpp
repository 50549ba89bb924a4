// The DIB reader's and writer's 24-bit row conversions with SSE2, four pixels a step. See
// dib_rows.h.
#include "core/simd.h"
#include "interchange/dib_rows.h"

#if !KIV_HAVE_SSE2
std::size_t kivdib::bgr_to_rgba_sse2(unsigned char*, const unsigned char*, std::size_t) { return 0; }
std::size_t kivdib::rgba_to_bgr_sse2(unsigned char*, const unsigned char*, std::size_t) { return 0; }
#else
#  include <emmintrin.h>

#  include <cstring>

namespace kivdib {
namespace {

// Without a byte shuffle (SSSE3 is not assumed), pixel i of a group moves by i bytes: one
// byte shift and one mask per pixel, then red and blue trade places inside each 32-bit lane.
inline __m128i swap_red_blue(__m128i v) {
    const __m128i lo = _mm_set1_epi32(0xFF), mid = _mm_set1_epi32(0xFF00);
    return _mm_or_si128(_mm_or_si128(_mm_slli_epi32(_mm_and_si128(v, lo), 16), _mm_and_si128(v, mid)),
                        _mm_and_si128(_mm_srli_epi32(v, 16), lo));
}

}  // namespace

std::size_t bgr_to_rgba_sse2(unsigned char* dst, const unsigned char* src, std::size_t w) {
    std::size_t x = 0;
    // A 16-byte load covers pixels x .. x + 5; stop while it stays inside the row.
    for (; x + 6 <= w; x += 4) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 3 * x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 4 * x), swap_red_blue(kivcore::spread_3_to_4(v)));
    }
    return x;
}

std::size_t rgba_to_bgr_sse2(unsigned char* dst, const unsigned char* src, std::size_t w) {
    std::size_t x = 0;
    const __m128i m0 = _mm_setr_epi32(0xFFFFFF, 0, 0, 0), m1 = _mm_setr_epi32(static_cast<int>(0xFF000000u), 0xFFFF, 0, 0),
                  m2 = _mm_setr_epi32(0, static_cast<int>(0xFFFF0000u), 0xFF, 0), m3 = _mm_setr_epi32(0, 0, static_cast<int>(0xFFFFFF00u), 0);
    for (; x + 4 <= w; x += 4) {
        const __m128i v = swap_red_blue(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * x)));
        __m128i o = _mm_or_si128(_mm_and_si128(v, m0), _mm_and_si128(_mm_srli_si128(v, 1), m1));
        o = _mm_or_si128(o, _mm_and_si128(_mm_srli_si128(v, 2), m2));
        o = _mm_or_si128(o, _mm_and_si128(_mm_srli_si128(v, 3), m3));
        unsigned char* out = dst + 3 * x;
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), o);
        const int tail = _mm_cvtsi128_si32(_mm_srli_si128(o, 8));
        std::memcpy(out + 8, &tail, 4);
    }
    return x;
}

}  // namespace kivdib

#endif
