// Quarter and half turns, mirroring and flipping: whole tagRGBA values move, so alpha (or
// a palettized pixel's index) travels with its colour.
#include <algorithm>
#include <new>
#include <utility>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "geometry/geometry.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

namespace {

using kivcore::row_ptr;

// The quarter turn works in bands of 16 source rows and tiles of 16 columns: a tile's 16
// source lines are read once each, and the 16 target lines it fills (64 bytes apiece) are
// completed before the next tile, so no line goes to memory half written.
constexpr int kTurnBlock = 16;

// Target of source (x, y): (y, W - 1 - x) counter-clockwise, (H - 1 - y, x) clockwise.
inline tagRGBA* turn_target(kiv& t, int x, int y, int W, int H, bool ccw) {
    return ccw ? row_ptr(t, W - 1 - x) + y : row_ptr(t, x) + (H - 1 - y);
}

void turn_tile_scalar(kiv& src, kiv& t, int x0, int x1, int y0, int y1, bool ccw) {
    const int W = src.m_width, H = src.m_height;
    for (int y = y0; y < y1; ++y) {
        const tagRGBA* s = row_ptr(src, y);
        for (int x = x0; x < x1; ++x) *turn_target(t, x, y, W, H, ccw) = s[x];
    }
}

#if KIV_HAVE_SSE2
// Full 16 x 16 tile as 4 x 4 transposes of whole pixels, gathered in a local block and then
// written out one whole target line (64 bytes) at a time. Written straight into the target,
// each line would be touched four times with fifteen others in between, and at power-of-two
// widths all of them share one cache set: 1024 x 1024 took three times as long as 1000 x 1000.
void turn_tile_sse2(kiv& src, kiv& t, int x0, int y0, bool ccw) {
    const int W = src.m_width, H = src.m_height;
    alignas(16) tagRGBA block[kTurnBlock][kTurnBlock];  // block[k]: target line of column x0 + k
    for (int yy = 0; yy < kTurnBlock; yy += 4) {
        const int y = y0 + yy;
        for (int xx = 0; xx < kTurnBlock; xx += 4) {
            const int x = x0 + xx;
            __m128i r0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row_ptr(src, y) + x));
            __m128i r1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row_ptr(src, y + 1) + x));
            __m128i r2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row_ptr(src, y + 2) + x));
            __m128i r3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row_ptr(src, y + 3) + x));
            __m128i a = _mm_unpacklo_epi32(r0, r1), b = _mm_unpacklo_epi32(r2, r3);
            __m128i c = _mm_unpackhi_epi32(r0, r1), d = _mm_unpackhi_epi32(r2, r3);
            __m128i col[4] = {_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b), _mm_unpacklo_epi64(c, d),
                              _mm_unpackhi_epi64(c, d)};  // col[k]: pixel x + k of rows y..y+3
            for (int k = 0; k < 4; ++k) {
                if (ccw)
                    _mm_store_si128(reinterpret_cast<__m128i*>(&block[xx + k][yy]), col[k]);
                else  // clockwise lines run right to left: reverse the four pixels
                    _mm_store_si128(reinterpret_cast<__m128i*>(&block[xx + k][kTurnBlock - 4 - yy]),
                                    _mm_shuffle_epi32(col[k], 0x1B));
            }
        }
    }
    for (int k = 0; k < kTurnBlock; ++k) {
        // The line's leftmost pixel: source row y0 (ccw) or y0 + 15 (cw).
        tagRGBA* out =
            ccw ? turn_target(t, x0 + k, y0, W, H, true) : turn_target(t, x0 + k, y0 + kTurnBlock - 1, W, H, false);
        const __m128i* in = reinterpret_cast<const __m128i*>(block[k]);
        for (int q = 0; q < kTurnBlock / 4; ++q)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out) + q, _mm_load_si128(in + q));
    }
}
#endif

// Exchanges n pixels of two distinct rows, 16 bytes a step where SSE2 is there.
void swap_pixels(tagRGBA* a, tagRGBA* b, int n) {
    int i = 0;
#if KIV_HAVE_SSE2
    for (; i + 4 <= n; i += 4) {
        const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(a + i), vb);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(b + i), va);
    }
#endif
    for (; i < n; ++i) std::swap(a[i], b[i]);
}

// The clipped rectangle of the x, y, w, h forms, or false (nothing to do).
bool clip_xywh(kiv& img, int x, int y, int w, int h, tagRECT* out) {
    if (!img.m_pixels) return false;
    tagRECT r = kivgeom::rect_from_xywh(x, y, w, h);
    // A real box that clamping at INT_MAX made empty starts past the last int column or row:
    // outside the image, not the "empty means everything" case.
    if (w > 0 && h > 0 && (r.right <= r.left || r.bottom <= r.top)) return false;
    return img.validaterect(&r, out) != 0;
}

}  // namespace

void kiv::rotate(int dir) {
    if (!m_pixels) return;
    const int W = m_width, H = m_height;
    kiv turned;
    // Every target pixel is written below, so a recycled block serves without clearing.
    if (!kivcore::create_overwritten(&turned, H, W, m_bits)) return;
    if (m_bits < 24 && !kivgeom::copy_colour_map(*this, turned)) return;

    // One unit of work is a band of source rows; it writes its own band of target columns.
    const bool ccw = dir != 0;
    const int bands = (H + kTurnBlock - 1) / kTurnBlock;
    kivcore::parallel_for(0, bands, [&](int band) {
        const int y0 = band * kTurnBlock, y1 = std::min(H, y0 + kTurnBlock);
        for (int x0 = 0; x0 < W; x0 += kTurnBlock) {
            const int x1 = std::min(W, x0 + kTurnBlock);
#if KIV_HAVE_SSE2
            if (x1 - x0 == kTurnBlock && y1 - y0 == kTurnBlock && kivcore::use_sse2()) {
                turn_tile_sse2(*this, turned, x0, y0, ccw);
                continue;
            }
#endif
            turn_tile_scalar(*this, turned, x0, x1, y0, y1, ccw);
        }
    });
    // movefrom clears the progress callback; a turn keeps it.
    kivProgressProc proc = m_progressproc;
    movefrom(&turned);
    m_progressproc = proc;
}

int kiv::rotate180(int x, int y, int w, int h) {
    tagRECT r;
    if (!clip_xywh(*this, x, y, w, h, &r)) return 0;
    const int width = r.right - r.left, height = r.bottom - r.top;
    // Pairs of rows from both ends; an odd middle row is deliberately left as it is.
    kivcore::parallel_for(0, height / 2, [&](int i) {
        tagRGBA* a = row_ptr(*this, r.top + i) + r.left;
        tagRGBA* b = row_ptr(*this, r.bottom - 1 - i) + r.left;
        for (int j = 0; j < width; ++j) std::swap(a[j], b[width - 1 - j]);
    });
    return 1;
}

int kiv::mirror(int x, int y, int w, int h) {
    tagRECT r;
    if (!clip_xywh(*this, x, y, w, h, &r)) return 0;
    const int width = r.right - r.left;
    kivcore::parallel_for(r.top, r.bottom, [&](int row) {
        tagRGBA* p = row_ptr(*this, row) + r.left;
        std::reverse(p, p + width);
    });
    return 1;
}

int kiv::flip(int x, int y, int w, int h) {
    tagRECT r;
    if (!clip_xywh(*this, x, y, w, h, &r)) return 0;
    const int width = r.right - r.left, height = r.bottom - r.top;
    kivcore::parallel_for(0, height / 2, [&](int i) {
        tagRGBA* a = row_ptr(*this, r.top + i) + r.left;
        tagRGBA* b = row_ptr(*this, r.bottom - 1 - i) + r.left;
        swap_pixels(a, b, width);
    });
    return 1;
}
