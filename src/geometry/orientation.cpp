// Quarter and half turns, mirroring and flipping: whole tagRGBA values move, so alpha (or
// a palettized pixel's index) travels with its colour.
#include <algorithm>
#include <new>
#include <utility>

#include "core/parallel.h"
#include "geometry/geometry.h"

namespace {

using kivgeom::row_ptr;

// Side of the square blocks the quarter turn copies at a time: a 32 x 32 block of source
// and its transposed target (4 KB each) stay in L1 while the block's columns are gathered.
constexpr int kTurnBlock = 32;

// The clipped rectangle of the x, y, w, h forms, or false (nothing to do).
bool clip_xywh(kiv& img, int x, int y, int w, int h, tagRECT* out) {
    if (!img.m_pixels) return false;
    tagRECT r = kivgeom::rect_from_xywh(x, y, w, h);
    return img.validaterect(&r, out) != 0;
}

}  // namespace

void kiv::rotate(int dir) {
    if (!m_pixels) return;
    const int W = m_width, H = m_height;
    kiv turned;
    if (!turned.create(H, W, m_bits)) return;
    if (m_bits < 24) kivgeom::copy_colour_map(*this, turned);

    // Source (x, y) goes to (y, W - 1 - x) counter-clockwise, to (H - 1 - y, x) clockwise.
    // One unit of work is a band of source rows; it writes its own band of target columns.
    const int bands = (H + kTurnBlock - 1) / kTurnBlock;
    kivcore::parallel_for(0, bands, [&](int band) {
        const int y0 = band * kTurnBlock, y1 = std::min(H, y0 + kTurnBlock);
        for (int x0 = 0; x0 < W; x0 += kTurnBlock) {
            const int x1 = std::min(W, x0 + kTurnBlock);
            for (int x = x0; x < x1; ++x) {
                if (dir) {
                    tagRGBA* d = row_ptr(turned, W - 1 - x);
                    for (int y = y0; y < y1; ++y) d[y] = row_ptr(*this, y)[x];
                } else {
                    tagRGBA* d = row_ptr(turned, x) + (H - 1);
                    for (int y = y0; y < y1; ++y) *(d - y) = row_ptr(*this, y)[x];
                }
            }
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
        std::swap_ranges(a, a + width, b);
    });
    return 1;
}
