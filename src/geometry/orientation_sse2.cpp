// The quarter turn's and the row exchange's kernels for SSE2.
#include "core/simd_sse2.h"
#include "geometry/orientation_simd.h"

#if KIV_HAVE_SSE2
namespace kivgeom {

// 4 x 4 transposes of whole pixels, gathered in a local block and then written out one whole
// target line (64 bytes) at a time. Written straight into the target, each line would be
// touched four times with fifteen others in between, and at power-of-two widths all of them
// share one cache set: 1024 x 1024 took three times as long as 1000 x 1000.
void turn_tile_sse2(const unsigned char* src, long long stride, unsigned char* line, long long line_step, bool ccw) {
    alignas(16) unsigned char block[kTurnBlock][4 * kTurnBlock];  // block[k]: the target line of column k
    for (int yy = 0; yy < kTurnBlock; yy += 4) {
        const unsigned char* s = src + 4 * yy * stride;
        for (int xx = 0; xx < kTurnBlock; xx += 4) {
            const unsigned char* rows[4] = {s, s + 4 * stride, s + 8 * stride, s + 12 * stride};
            __m128i col[4];  // col[k]: pixel xx + k of rows yy..yy+3
            kivcore::Sse2::columns4(rows, 4 * xx, col);
            for (int k = 0; k < 4; ++k) {
                if (ccw)
                    _mm_store_si128(reinterpret_cast<__m128i*>(&block[xx + k][4 * yy]), col[k]);
                else  // clockwise lines run right to left: reverse the four pixels
                    _mm_store_si128(reinterpret_cast<__m128i*>(&block[xx + k][4 * (kTurnBlock - 4 - yy)]),
                                    _mm_shuffle_epi32(col[k], 0x1B));
            }
        }
    }
    for (int k = 0; k < kTurnBlock; ++k) {
        const __m128i* in = reinterpret_cast<const __m128i*>(block[k]);
        for (int q = 0; q < kTurnBlock / 4; ++q)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(line + 4 * k * line_step) + q, _mm_load_si128(in + q));
    }
}

int swap_pixels_sse2(unsigned char* a, unsigned char* b, int n) {
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i* pa = reinterpret_cast<__m128i*>(a + 4 * i);
        __m128i* pb = reinterpret_cast<__m128i*>(b + 4 * i);
        const __m128i va = _mm_loadu_si128(pa), vb = _mm_loadu_si128(pb);
        _mm_storeu_si128(pa, vb);
        _mm_storeu_si128(pb, va);
    }
    return i;
}

}  // namespace kivgeom
#endif
