// Quarter and half turns, mirroring and flipping: whole tagRGBA values move, so alpha (or
// a palettized pixel's index) travels with its colour.
#include <algorithm>
#include <new>
#include <utility>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "core/simd.h"
#include "geometry/geometry.h"
#include "geometry/orientation_simd.h"

namespace {

using kivcore::row_ptr;

// The quarter turn works in bands of 16 source rows and tiles of 16 columns: a tile's 16
// source lines are read once each, and the 16 target lines it fills (64 bytes apiece) are
// completed before the next tile, so no line goes to memory half written.
using kivgeom::kTurnBlock;

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

// A full tile through the vector kernel: the target lines' leftmost pixels are those of
// source row y0 (counter-clockwise, lines going up the target) or y0 + 15 (clockwise, lines
// going down).
template <class Turn>
void turn_tile_vector(kiv& src, kiv& t, int x0, int y0, bool ccw, Turn turn) {
    const int W = src.m_width, H = src.m_height;
    tagRGBA* line = ccw ? turn_target(t, x0, y0, W, H, true) : turn_target(t, x0, y0 + kTurnBlock - 1, W, H, false);
    turn(reinterpret_cast<const unsigned char*>(row_ptr(src, y0) + x0), static_cast<long long>(W),
         reinterpret_cast<unsigned char*>(line), ccw ? -static_cast<long long>(H) : static_cast<long long>(H), ccw);
}

// Exchanges n pixels of two distinct rows, four a step where the vector kernel runs.
void swap_pixels(tagRGBA* a, tagRGBA* b, int n) {
    const auto vec = kivcore::pick_sse2(KIV_SSE2_KERNEL(kivgeom::swap_pixels_sse2));
    int i = vec ? vec(reinterpret_cast<unsigned char*>(a), reinterpret_cast<unsigned char*>(b), n) : 0;
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

// pair(top, bottom, width) on the pairs of rows from both ends of the clipped x, y, w, h
// rectangle, each at its left edge; an odd middle row is deliberately left as it is.
template <class Pair>
int row_pairs(kiv& img, int x, int y, int w, int h, Pair pair) {
    tagRECT r;
    if (!clip_xywh(img, x, y, w, h, &r)) return 0;
    const int width = r.right - r.left;
    kivcore::parallel_for(0, (r.bottom - r.top) / 2, kivcore::row_work(width, 0.5), [&](int i) {
        pair(row_ptr(img, r.top + i) + r.left, row_ptr(img, r.bottom - 1 - i) + r.left, width);
    });
    return 1;
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
    const auto turn = kivcore::pick_sse2(KIV_SSE2_KERNEL(kivgeom::turn_tile_sse2));
    const int bands = (H + kTurnBlock - 1) / kTurnBlock;
    kivcore::parallel_for(0, bands, kivcore::row_work(static_cast<long long>(kTurnBlock) * W, 0.5), [&](int band) {
        const int y0 = band * kTurnBlock, y1 = std::min(H, y0 + kTurnBlock);
        for (int x0 = 0; x0 < W; x0 += kTurnBlock) {
            const int x1 = std::min(W, x0 + kTurnBlock);
            if (x1 - x0 == kTurnBlock && y1 - y0 == kTurnBlock && turn) {
                turn_tile_vector(*this, turned, x0, y0, ccw, turn);
                continue;
            }
            turn_tile_scalar(*this, turned, x0, x1, y0, y1, ccw);
        }
    });
    // movefrom clears the progress callback; a turn keeps it.
    kivProgressProc proc = m_progressproc;
    movefrom(&turned);
    m_progressproc = proc;
}

int kiv::rotate180(int x, int y, int w, int h) {
    return row_pairs(*this, x, y, w, h, [](tagRGBA* a, tagRGBA* b, int width) {
        for (int j = 0; j < width; ++j) std::swap(a[j], b[width - 1 - j]);
    });
}

int kiv::mirror(int x, int y, int w, int h) {
    tagRECT r;
    if (!clip_xywh(*this, x, y, w, h, &r)) return 0;
    const int width = r.right - r.left;
    kivcore::parallel_for(r.top, r.bottom, kivcore::row_work(width, 0.5), [&](int row) {
        tagRGBA* p = row_ptr(*this, row) + r.left;
        std::reverse(p, p + width);
    });
    return 1;
}

int kiv::flip(int x, int y, int w, int h) { return row_pairs(*this, x, y, w, h, swap_pixels); }
