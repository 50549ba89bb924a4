// What the fills, the gradients and the compositors share: clipping of an (x, y, w, h)
// box, colour unpacking, the eight direction codes and the ramp that spreads a table of
// colours (or opacities) across a rectangle.
#ifndef KIV_FILL_PRIVATE_H
#define KIV_FILL_PRIVATE_H

#include <algorithm>

#include "kiv.h"

namespace kivfill {

// A clipped rectangle, right and bottom exclusive, never empty when a helper returns true.
struct Box {
    int left, top, right, bottom;
    int width() const { return right - left; }
    int height() const { return bottom - top; }
};

// Clip the box (x, y, x + w, y + h) to the image (64-bit so no corner can overflow).
inline bool clip_box(const kiv& img, long long x, long long y, long long w, long long h, Box* out) {
    const long long l = std::min<long long>(std::max<long long>(x, 0), img.m_width);
    const long long t = std::min<long long>(std::max<long long>(y, 0), img.m_height);
    const long long r = std::min<long long>(x + w, img.m_width);
    const long long b = std::min<long long>(y + h, img.m_height);
    if (r - l < 1 || b - t < 1) return false;
    *out = Box{static_cast<int>(l), static_cast<int>(t), static_cast<int>(r), static_cast<int>(b)};
    return true;
}

// The rectangle overloads: null or empty means the whole image; otherwise (x, y, w, h) of
// the rectangle as given (the box is clipped later, by clip_box).
struct XYWH {
    long long x, y, w, h;
};
inline XYWH rect_to_box(const kiv& img, const tagRECT* r) {
    if (!r || r->right <= r->left || r->bottom <= r->top) return XYWH{0, 0, img.m_width, img.m_height};
    return XYWH{r->left, r->top, static_cast<long long>(r->right) - r->left,
                static_cast<long long>(r->bottom) - r->top};
}

// COLORREF to a pixel: red byte 0, green byte 1, blue byte 2, alpha 0.
inline tagRGBA unpack_colour(COLORREF c) {
    return tagRGBA{static_cast<BYTE>(c & 0xFF), static_cast<BYTE>((c >> 8) & 0xFF), static_cast<BYTE>((c >> 16) & 0xFF),
                   0};
}

inline tagRGBA* row_at(kiv& img, int y, int x) {
    return img.m_pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(img.m_width) + x;
}

// Direction codes name the side or corner a ramp runs toward, numbered like the outer cells
// of a 3 x 3 grid (0 top-left, 1 top, 2 top-right, 3 left, 4 right, 5 bottom-left,
// 6 bottom, 7 bottom-right). Only 6, 4, 7 and 2 are carried out; 1, 0, 3 and 5 are those
// with the colours reversed.
struct RampDirection {
    int code;       // 6, 4, 7 or 2
    bool reversed;  // the table runs backwards
};
inline bool resolve_direction(int dir, RampDirection* out) {
    switch (dir) {
        case 6: case 4: case 7: case 2: *out = RampDirection{dir, false}; return true;
        case 1: *out = RampDirection{6, true}; return true;
        case 0: *out = RampDirection{7, true}; return true;
        case 3: *out = RampDirection{4, true}; return true;
        case 5: *out = RampDirection{2, true}; return true;
        default: return false;
    }
}

// Table index 0..last of a pixel of a w x h ramp, from its column part and row part:
//   code 6: row;  4: column;  7: (column + row) >> 1;  2: (column + flipped row) >> 1,
// where column = x * last / W1, row = y * last / H1, flipped row = (h - 1 - y) * last / H1,
// x and y relative to the ramp's corner and W1, H1 = w - 1, h - 1 (at least 1).
class RampGeometry {
public:
    RampGeometry(long long x0, long long y0, long long w, long long h, int last, int code)
        : x0_(x0), y0_(y0), h_(h), w1_(std::max(w - 1, 1LL)), h1_(std::max(h - 1, 1LL)), last_(last), code_(code) {}
    bool uses_columns() const { return code_ != 6; }
    bool uses_rows() const { return code_ != 4; }
    int column_part(int x) const { return static_cast<int>((x - x0_) * last_ / w1_); }
    int row_part(int y) const {
        const long long ry = y - y0_;
        return static_cast<int>((code_ == 2 ? h_ - 1 - ry : ry) * last_ / h1_);
    }
    int index(int column, int row) const {
        switch (code_) {
            case 6: return row;
            case 4: return column;
            default: return (column + row) >> 1;
        }
    }

private:
    long long x0_, y0_, h_, w1_, h1_;
    int last_, code_;
};

// solidfill on a 64-bit box (the rectangle overloads' sizes may not fit an int).
int solid_fill(kiv& img, long long x, long long y, long long w, long long h, COLORREF colour, int op, int mode);

// Blend a table of last + 1 colours across the clipped box through the ramp of `code`
// (6, 4, 7 or 2), the box (x, y, w, h) giving the ramp's geometry. op 1..255. Returns 0
// when the box lies outside the image.
int ramp_fill(kiv& img, long long x, long long y, long long w, long long h, const tagRGBA* table, int last, int code,
              int op, int mode);

}  // namespace kivfill

#endif
