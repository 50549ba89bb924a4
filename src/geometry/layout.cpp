// Scrolling and tiling: block copies (blt) between the image and scratch copies of it.
#include <algorithm>
#include <new>

#include "core/parallel.h"
#include "core/watch.h"
#include "geometry/geometry.h"

namespace {

using kivcore::row_ptr;

// The crop step of tile and tile_divide, into a separate image so that a later failure
// leaves the caller's image untouched: dst becomes the clipped rectangle of src at src's
// depth, with its colour map below 24 bits. False when the clipped rectangle is empty or
// memory runs out.
bool crop_copy(kiv& src, tagRECT* rect, kiv& dst) {
    tagRECT r;
    if (!src.m_pixels || !src.validaterect(rect, &r)) return false;
    if (!dst.create(r.right - r.left, r.bottom - r.top, src.m_bits)) return false;
    if (src.m_bits < 24 && !kivgeom::copy_colour_map(src, dst)) return false;
    dst.blt(0, 0, dst.m_width, dst.m_height, &src, r.left, r.top);
    return true;
}

// nx x ny copies of src side by side into dst, at src's depth and with its map below 24.
bool repeat_into(kiv& src, int nx, int ny, kiv& dst) {
    if (nx < 1 || ny < 1) return false;
    const long long tw = static_cast<long long>(src.m_width) * nx, th = static_cast<long long>(src.m_height) * ny;
    if (tw > 0x7FFFFFFF || th > 0x7FFFFFFF) return false;
    if (!dst.create(static_cast<int>(tw), static_cast<int>(th), src.m_bits)) return false;
    // The entries only: the count stays the 1 << bits of the new map (more only when src's
    // map is longer than its depth).
    if (src.m_bits < 24 && !kivgeom::copy_colour_map(src, dst, false)) return false;
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) dst.blt(src.m_width * i, src.m_height * j, src.m_width, src.m_height, &src, 0, 0);
    return true;
}

}  // namespace

int kiv::scroll(int dx, int dy, int wrap) {
    if (!m_pixels || m_width < 1 || m_height < 1) return 0;
    dx %= m_width;  // remainders keep the sign of dx and dy
    dy %= m_height;
    if (dx == 0 && dy == 0) return 1;
    const int W = m_width, H = m_height;
    // T, the copy each step reads from, is made before anything changes; the vertical step
    // refreshes it in place, so no allocation can fail halfway.
    kiv t;
    if (!copyto(&t)) return 0;
    if (!wrap && m_bits < 24) m_bits = 24;  // the white strip needs true colour; the map stays
    if (dx != 0) {
        if (dx < 0) {
            blt(0, 0, W + dx, H, &t, -dx, 0);
            if (wrap)
                blt(W + dx, 0, -dx, H, &t, 0, 0);
            else
                solidfill(W + dx, 0, -dx, H, 0xFFFFFF, 255, 0);
        } else {
            blt(dx, 0, W - dx, H, &t, 0, 0);
            if (wrap)
                blt(0, 0, dx, H, &t, W - dx, 0);
            else
                solidfill(0, 0, dx, H, 0xFFFFFF, 255, 0);
        }
    }
    if (dy != 0) {
        if (dx != 0) t.blt(0, 0, W, H, this, 0, 0);
        if (dy < 0) {
            blt(0, 0, W, H + dy, &t, 0, -dy);
            if (wrap)
                blt(0, H + dy, W, -dy, &t, 0, 0);
            else
                solidfill(0, H + dy, W, -dy, 0xFFFFFF, 255, 0);
        } else {
            blt(0, dy, W, H - dy, &t, 0, 0);
            if (wrap)
                blt(0, 0, W, dy, &t, 0, H - dy);
            else
                solidfill(0, 0, W, dy, 0xFFFFFF, 255, 0);
        }
    }
    return 1;
}

int kiv::tile(tagRECT* rect, int nx, int ny) {
    if (nx < 1 || ny < 1) return 0;
    try {
        kiv part, tiled;
        if (!crop_copy(*this, rect, part) || !repeat_into(part, nx, ny, tiled)) return 0;
        movefrom(&tiled);
        return 1;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int kiv::tile_divide(tagRECT* rect, int n) {
    return kivcore::watched(*this, kivcore::Keep::kAside, [&]() -> int {
        if (n < 2) return 0;
        try {
            kiv part, tiled;
            if (!crop_copy(*this, rect, part)) return 0;
            part.m_bits = 24;
            kivcore::Stages stages({4, 1});
            // Mitchell filter, heap result; a side shorter than n leaves nothing to repeat.
            if (!part.zoom(part.m_width / n, part.m_height / n, 10, 0)) return 0;
            stages.next();
            if (!repeat_into(part, n, n, tiled)) return 0;
            movefrom(&tiled);
            return 1;
        } catch (const std::bad_alloc&) {
            return 0;
        }
    });
}
