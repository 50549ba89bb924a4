// What the solid, shaded and gradient fills share beyond the blending header: the fill of
// a 64-bit box and the ramp fill behind shades and gradients.
#ifndef KIV_FILL_PRIVATE_H
#define KIV_FILL_PRIVATE_H

#include "core/toolkit.h"
#include "kiv.h"

namespace kivfill {

// solidfill on a 64-bit box (the rectangle overloads' sizes may not fit an int).
int solid_fill(kiv& img, long long x, long long y, long long w, long long h, COLORREF colour, int op, int mode);

// Blend a table of last + 1 colours across the clipped box through the ramp of `code`
// (6, 4, 7 or 2), the box (x, y, w, h) giving the ramp's geometry. op 1..255. Returns 0
// when the box lies outside the image.
int ramp_fill(kiv& img, long long x, long long y, long long w, long long h, const tagRGBA* table, int last, int code,
              int op, int mode);

// A rectangle overload through the (x, y, w, h) form: fill(img, x, y, w, h, args...) on the
// rectangle as given (null or empty: the whole image).
template <class Fill, class... Args>
int over_rect(kiv& img, const tagRECT* r, Fill fill, Args... args) {
    const kivcore::Box b = kivcore::box_of(img, r);
    return fill(img, b.x, b.y, b.w, b.h, args...);
}

}  // namespace kivfill

#endif
