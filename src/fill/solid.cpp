// Solid fills, lightness to alpha, and borders.
#include <algorithm>

#include "core/checked.h"
#include "core/parallel.h"
#include "core/toolkit.h"
#include "core/watch.h"
#include "fill/blend.h"
#include "fill/fill_private.h"

using kivcore::Area;

int kivfill::solid_fill(kiv& img, long long x, long long y, long long w, long long h, COLORREF colour, int op, int mode) {
    op = kivfill::clamp_opacity(op);
    if (!img.m_pixels || w < 1 || h < 1 || op == 0) return 0;
    // The colour map of a palettized image stays; the pixels become true colour.
    kivcore::raise_depth_24(img);
    Area box;
    if (!kivcore::clip_box(img, x, y, w, h, &box)) return 0;
    const kivfill::SolidBlend blend(mode, kivfill::unpack_colour(colour), op);
    const int cols = box.w();
    kivcore::parallel_for(box.top, box.bottom, kivcore::row_work(cols, 1),
                          [&](int row) { blend.apply(kivcore::row_ptr(img, row) + box.left, cols); });
    return 1;
}

int kiv::solidfill(int x, int y, int w, int h, COLORREF color, int op, int mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy,
                            [&]() -> int { return kivfill::solid_fill(*this, x, y, w, h, color, op, mode); });
}

int kiv::solidfill(tagRECT* r, COLORREF color, int op, int mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        return kivfill::over_rect(*this, r, kivfill::solid_fill, color, op, mode);
    });
}

int kiv::fillsolidrect(int x, int y, int w, int h, COLORREF color, int op) {
    return kivfill::solid_fill(*this, x, y, w, h, color, op, kivfill::kNormal);
}

int kiv::fillsolidrect(tagRECT* r, COLORREF color, int op) { return solidfill(r, color, op, kivfill::kNormal); }

int kiv::settoalpha() {
    if (!m_pixels) return 0;
    m_bits = 24;
    desaturate(nullptr);  // grey = (min + max) >> 1 in red, green and blue
    copyplane(0, 3);
    return 1;
}

// A negative width trims that side instead (blt clips the old pixels); a result with no
// pixels left is refused rather than emptying the image.
int kiv::addborder(int left, int right, int top, int bottom, COLORREF color) {
    if (!m_pixels) return 0;
    const long long nw = static_cast<long long>(m_width) + left + right;
    const long long nh = static_cast<long long>(m_height) + top + bottom;
    if (nw < 1 || nh < 1 || nw > 0x7FFFFFFF || nh > 0x7FFFFFFF) return 0;
    const int W = static_cast<int>(nw), H = static_cast<int>(nh);
    if (kivcore::checked_packets(W, H) < 0) return 0;
    kiv framed;
    if (!framed.create(W, H, std::max(m_bits, 24))) return 0;
    framed.solidfill(0, 0, W, H, color, 255, kivfill::kNormal);
    framed.blt(left, top, m_width, m_height, this, 0, 0);
    movefrom(&framed);
    return 1;
}
