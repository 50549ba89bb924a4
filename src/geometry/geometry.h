// What the resampling, orientation and layout files share.
#ifndef KIV_GEOMETRY_GEOMETRY_H
#define KIV_GEOMETRY_GEOMETRY_H

#include <algorithm>
#include <cstring>

#include "core/checked.h"
#include "core/simd.h"
#include "core/toolkit.h"
#include "core/wide_pixels.h"
#include "kiv.h"

namespace kivgeom {

using kivcore::row_ptr;

// Filtered two-pass resampling of src's bytes 0..2 into dst, made w x h at 24 bits (in the
// mapped-file store when mapped). src is only read. False, dst empty, when the method has
// no filter, a size is below 1 or too large, or memory runs out.
bool resample(kiv& src, int w, int h, int method, bool mapped, kiv& dst);
// The same on all four bytes taken through f (core/wide_pixels.h), with 16-bit intermediates:
// dst is made w x h at 32 bits when f carries alpha out, else 24.
bool resample_wide(kiv& src, int w, int h, int method, const kivcore::WideFormat& f, kiv& dst);

// dst gets src's colour map: its colors entries and, with count, the count itself (callers
// decide for which depths). Without count, dst keeps the count its create gave it unless
// src's entries need a longer map. False when that longer map could not be allocated.
inline bool copy_colour_map(kiv& src, kiv& dst, bool count = true) {
    int n = src.m_map ? src.m_colors : 0;
    // A source whose host removed the map (alloccmap(0)) gives none: dst's blank map from
    // create would otherwise stay behind a count of 0.
    if (n <= 0 && count) dst.alloccmap(0);
    if (n > 0 && (!dst.m_map || dst.m_colors < n)) dst.alloccmap(n);
    if (n > 0 && dst.m_map) std::memcpy(dst.m_map, src.m_map, static_cast<std::size_t>(n) * sizeof(tagRGBA));
    if (count || !dst.m_map) dst.m_colors = dst.m_map ? std::max(n, 0) : 0;
    return n <= 0 || dst.m_map;
}

// The rectangle (x, y, x + w, y + h) of the x, y, w, h forms; the sums saturate instead of
// wrapping, so a huge w or h reaches to the image's edge.
inline tagRECT rect_from_xywh(int x, int y, int w, int h) {
    tagRECT r;
    r.left = x;
    r.top = y;
    r.right = kivcore::clamp_int(static_cast<long long>(x) + w);
    r.bottom = kivcore::clamp_int(static_cast<long long>(y) + h);
    return r;
}

}  // namespace kivgeom

#endif
