// The small toolkit every operation family uses: the clipped rectangle, row pointers,
// clamps, luminance and the raise to true colour. (The instruction-set switch is in
// core/simd.h, checked sizes in core/checked.h.)
#ifndef KIV_CORE_TOOLKIT_H
#define KIV_CORE_TOOLKIT_H

#include <cstddef>

#include "kiv.h"

namespace kivcore {

// A clipped, non-empty rectangle of an image; right and bottom exclusive.
struct Area {
    int left, top, right, bottom;
    int w() const { return right - left; }
    int h() const { return bottom - top; }
};

// Clips rect against img into *out (null or empty means the whole image). False for an
// image without pixels or a rectangle wholly outside it; *out is then untouched.
inline bool clip_rect(kiv& img, tagRECT* rect, Area* out) {
    if (!img.m_pixels || img.m_width < 1 || img.m_height < 1) return false;
    tagRECT r;
    if (!img.validaterect(rect, &r) || r.right <= r.left || r.bottom <= r.top) return false;
    *out =
        Area{static_cast<int>(r.left), static_cast<int>(r.top), static_cast<int>(r.right), static_cast<int>(r.bottom)};
    return true;
}

// Clips the box (x, y, x + w, y + h) against img's size, in 64 bits so that no corner can
// overflow. False when nothing is left.
inline bool clip_box(const kiv& img, long long x, long long y, long long w, long long h, Area* out) {
    const long long l = x < 0 ? 0 : (x < img.m_width ? x : img.m_width);
    const long long t = y < 0 ? 0 : (y < img.m_height ? y : img.m_height);
    const long long r = x + w < img.m_width ? x + w : img.m_width;
    const long long b = y + h < img.m_height ? y + h : img.m_height;
    if (r - l < 1 || b - t < 1) return false;
    *out = Area{static_cast<int>(l), static_cast<int>(t), static_cast<int>(r), static_cast<int>(b)};
    return true;
}

// A rectangle as given, before clipping, as (x, y, w, h): null or empty means the whole
// image. Ramps and tilings start at its corner wherever the clipped part begins.
struct Box {
    long long x, y, w, h;
};
inline Box box_of(const kiv& img, const tagRECT* r) {
    if (!r || r->right <= r->left || r->bottom <= r->top) return Box{0, 0, img.m_width, img.m_height};
    return Box{r->left, r->top, static_cast<long long>(r->right) - r->left, static_cast<long long>(r->bottom) - r->top};
}

// Pixel row y of an image (rows are packed: the stride is the width).
inline tagRGBA* row_ptr(const kiv& img, int y) {
    return img.m_pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(img.m_width);
}

// Operations that need true colour declare a palettized image 24-bit: its pixels already
// hold the colours, and the map stays for whoever reads it.
inline void raise_depth_24(kiv& img) {
    if (img.m_bits < 24) img.m_bits = 24;
}

// An integer clamped to a byte's range.
template <class T>
constexpr int clamp255(T v) {
    return v < 0 ? 0 : (v > 255 ? 255 : static_cast<int>(v));
}

// An index clamped to 0 .. n - 1 (n >= 1): the nearest edge pixel of a line of n.
constexpr int clamp_index(int v, int n) { return v < 0 ? 0 : (v >= n ? n - 1 : v); }

// Double to byte: clamped to 0..255, then truncated; NaN gives 0 instead of undefined.
inline unsigned char clamp_trunc_byte(double v) {
    if (!(v >= 0.0)) return 0;
    if (v > 255.0) return 255;
    return static_cast<unsigned char>(v);
}

// The library's luminance: 0.30 red + 0.59 green + 0.11 blue in 8.8 fixed point, truncated.
constexpr int luminance(int r, int g, int b) { return (77 * r + 150 * g + 29 * b) >> 8; }

}  // namespace kivcore

#endif
