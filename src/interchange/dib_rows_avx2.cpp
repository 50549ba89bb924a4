// The DIB reader's and writer's 24-bit row conversions with AVX2 byte shuffles, eight pixels
// to a register. See dib_rows.h.
#include "core/simd.h"
#include "interchange/dib_rows.h"

#if !KIV_HAVE_AVX2
std::size_t kivdib::bgr_to_rgba_avx2(unsigned char*, const unsigned char*, std::size_t, bool) { return 0; }
std::size_t kivdib::rgba_to_bgr_avx2(unsigned char*, const unsigned char*, std::size_t, bool) { return 0; }
#else
#  include <immintrin.h>

#  include <cstdint>

namespace kivdib {

namespace {

// For streaming stores: converts pixels one at a time (one(x)) until dst + step * x lies on
// a 32-byte boundary (step 3 or 4) and returns that x. Where no such x lies within the row
// (or below 32), streaming is turned off and nothing is converted.
template <class One>
std::size_t align_for_streaming(const unsigned char* dst, std::size_t step, std::size_t w, bool& stream, One one) {
    if (!stream) return 0;
    const auto a = static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(dst) & 31);
    std::size_t head = 0;
    while (head < 32 && (a + step * head) % 32 != 0) ++head;
    if (head >= 32 || head > w) {
        stream = false;
        return 0;
    }
    for (std::size_t x = 0; x < head; ++x) one(x);
    return head;
}

}  // namespace

std::size_t bgr_to_rgba_avx2(unsigned char* dst, const unsigned char* src, std::size_t w, bool stream) {
    auto one = [&](std::size_t i) {
        dst[4 * i] = src[3 * i + 2];
        dst[4 * i + 1] = src[3 * i + 1];
        dst[4 * i + 2] = src[3 * i];
        dst[4 * i + 3] = 0;
    };
    std::size_t x = align_for_streaming(dst, 4, w, stream, one);
    // Each 128-bit half takes four pixels from a 16-byte load; the second load of a step
    // ends 28 bytes after the step's first pixel, so the loop stops while that is inside.
    const __m256i shuf = _mm256_setr_epi8(2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128,  //
                                          2, 1, 0, -128, 5, 4, 3, -128, 8, 7, 6, -128, 11, 10, 9, -128);
    for (; x + 10 <= w; x += 8) {
        const unsigned char* s = src + 3 * x;
        const __m256i v = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s))),
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 12)), 1);
        const __m256i o = _mm256_shuffle_epi8(v, shuf);
        if (stream)
            _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + 4 * x), o);
        else
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 4 * x), o);
    }
    // The rest here too, before the fence: stores to the lines just streamed are cheapest
    // while those lines are still being combined.
    for (; x < w; ++x) one(x);
    if (stream) _mm_sfence();  // streamed stores become visible before the row is handed on
    return x;
}

std::size_t rgba_to_bgr_avx2(unsigned char* dst, const unsigned char* src, std::size_t w, bool stream) {
    auto one = [&](std::size_t i) {
        dst[3 * i] = src[4 * i + 2];
        dst[3 * i + 1] = src[4 * i + 1];
        dst[3 * i + 2] = src[4 * i];
    };
    std::size_t x = align_for_streaming(dst, 3, w, stream, one);
    // Per 128-bit half, four pixels to 12 bytes in dwords 0..2; 32 pixels make three full
    // 32-byte stores, each gathered from two shuffled registers by dword permutes.
    const __m256i shuf = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -128, -128, -128, -128,  //
                                          2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -128, -128, -128, -128);
    const __m256i i0a = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 0, 0), i0b = _mm256_setr_epi32(0, 0, 0, 0, 0, 0, 0, 1);
    const __m256i i1b = _mm256_setr_epi32(2, 4, 5, 6, 0, 0, 0, 0), i1c = _mm256_setr_epi32(0, 0, 0, 0, 0, 1, 2, 4);
    const __m256i i2c = _mm256_setr_epi32(5, 6, 0, 0, 0, 0, 0, 0), i2d = _mm256_setr_epi32(0, 0, 0, 1, 2, 4, 5, 6);
    for (; x + 32 <= w; x += 32) {
        const auto* s = reinterpret_cast<const __m256i*>(src + 4 * x);
        const __m256i a = _mm256_shuffle_epi8(_mm256_loadu_si256(s), shuf);
        const __m256i b = _mm256_shuffle_epi8(_mm256_loadu_si256(s + 1), shuf);
        const __m256i c = _mm256_shuffle_epi8(_mm256_loadu_si256(s + 2), shuf);
        const __m256i d = _mm256_shuffle_epi8(_mm256_loadu_si256(s + 3), shuf);
        const __m256i o0 = _mm256_blend_epi32(_mm256_permutevar8x32_epi32(a, i0a), _mm256_permutevar8x32_epi32(b, i0b), 0xC0);
        const __m256i o1 = _mm256_blend_epi32(_mm256_permutevar8x32_epi32(b, i1b), _mm256_permutevar8x32_epi32(c, i1c), 0xF0);
        const __m256i o2 = _mm256_blend_epi32(_mm256_permutevar8x32_epi32(c, i2c), _mm256_permutevar8x32_epi32(d, i2d), 0xFC);
        auto* o = reinterpret_cast<__m256i*>(dst + 3 * x);
        if (stream) {
            _mm256_stream_si256(o, o0);
            _mm256_stream_si256(o + 1, o1);
            _mm256_stream_si256(o + 2, o2);
        } else {
            _mm256_storeu_si256(o, o0);
            _mm256_storeu_si256(o + 1, o1);
            _mm256_storeu_si256(o + 2, o2);
        }
    }
    for (; x < w; ++x) one(x);
    if (stream) _mm_sfence();
    return x;
}

}  // namespace kivdib

#endif
