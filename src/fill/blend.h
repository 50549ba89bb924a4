// The blending file's header: the blend modes, the opacity mix, the row compositors and the
// ramps of colours or opacities toward a direction, shared by the fills, the gradients, the
// compositors (geometry/composite.cpp) and any other family that combines a colour with an
// existing pixel.
//
// A blend takes the existing pixel d and a source colour s (a fill colour or a layer pixel)
// and gives a colour whose red, green and blue are then mixed into d with an opacity:
//     out = trunc((d * (255 - op) + c * op) / 255),  op 0..255, per channel.
// The alpha byte of d is never changed.
#ifndef KIV_FILL_BLEND_H
#define KIV_FILL_BLEND_H

#include <algorithm>
#include <cmath>

#include "core/color_models.h"
#include "core/toolkit.h"
#include "kiv.h"

namespace kivfill {

enum BlendMode : int {
    kNormal = 0,
    kDarken = 1,
    kLighten = 2,
    kHue = 3,
    kSaturation = 4,
    kColor = 5,
    kValue = 6,
    kMultiply = 7,
    kScreen = 8,
    // 9 has no function of its own: it acts as normal.
    kOverlay = 10,
    kHardLight = 11,
    kSoftLight = 12,
    kDifference = 13,
    kExclusion = 14,
    kColorDodge = 15,
    kColorBurn = 16,
    kAdd = 17,
    kSubtract = 18,
    kBlendModeCount = 19
};

// Any int to a mode the table knows: 9 and values outside 0..18 become normal.
inline int normalise_mode(int mode) { return (mode < 0 || mode >= kBlendModeCount || mode == 9) ? kNormal : mode; }

// Modes 3 to 6 mix channels through a colour model; every other mode works on each channel
// alone (17 and 18 read the source's blue for green, see source_channel).
inline bool is_colour_model_mode(int mode) { return mode >= kHue && mode <= kValue; }

// Opacity outside 0..255 is brought into range; 0 means no work.
inline int clamp_opacity(int op) { return kivcore::clamp255(op); }

// The opacity mix of one channel, op 0..255.
constexpr int mix_channel(int d, int c, int op) { return (d * (255 - op) + c * op) / 255; }

// The source channel a per-channel mode reads for output channel ch (0 red, 1 green,
// 2 blue): add and subtract take the source's blue for green as well as for blue.
constexpr int source_channel(int mode, int ch) { return (ch == 1 && (mode == kAdd || mode == kSubtract)) ? 2 : ch; }

namespace detail {
// x 255, truncated, clamped to 0..255 (truncation first: -0.5 gives 0, 255.9 gives 255).
inline int trunc_clamp(double v) {
    if (!(v > 0.0)) return 0;
    if (v >= 255.0) return 255;
    return static_cast<int>(v);
}
}  // namespace detail

// One channel of a per-channel mode: d the existing value, s the source value, 0..255.
template <int M>
inline int channel_blend(int d, int s) {
    if constexpr (M == kDarken) {
        return d < s ? d : s;
    } else if constexpr (M == kLighten) {
        return d > s ? d : s;
    } else if constexpr (M == kMultiply) {
        const int t = d * s + 128;  // +128 and the t >> 8 term: exact rounding of d s / 255
        return (t + (t >> 8)) >> 8;
    } else if constexpr (M == kScreen) {
        const int t = (255 - d) * (255 - s) + 128;
        return 255 - ((t + (t >> 8)) >> 8);
    } else if constexpr (M == kOverlay) {
        return d < 128 ? 2 * d * s / 255 : 255 - 2 * (255 - d) * (255 - s) / 255;
    } else if constexpr (M == kHardLight) {
        return s < 128 ? 2 * d * s / 255 : 255 - 2 * (255 - d) * (255 - s) / 255;
    } else if constexpr (M == kSoftLight) {
        const double D = d / 255.0, S = s / 255.0;
        const double r = S < 0.5 ? D + (D - D * D) * (2.0 * S - 1.0) : D + (std::sqrt(D) - D) * (2.0 * S - 1.0);
        return detail::trunc_clamp(r * 255.0);
    } else if constexpr (M == kDifference) {
        return d > s ? d - s : s - d;
    } else if constexpr (M == kExclusion) {
        const double D = d / 255.0, S = s / 255.0;
        const double r = std::fabs(((0.5 - D) * 2.0 * (0.5 - S) - 0.5) * 255.0);
        return r >= 255.0 ? 255 : static_cast<int>(r);
    } else if constexpr (M == kColorDodge) {
        const double D = d / 255.0;
        return detail::trunc_clamp(D * 256.0 / (256 - s) * 255.0);
    } else if constexpr (M == kColorBurn) {
        const double D = d / 255.0, S = s / 255.0;
        if (D + S < 1.0) return 0;
        if (S == 0.0) return 255;
        return detail::trunc_clamp((1.0 - (1.0 - D) / S) * 255.0);
    } else if constexpr (M == kAdd) {
        return d + s > 255 ? 255 : d + s;
    } else if constexpr (M == kSubtract) {
        return d - s < 0 ? 0 : d - s;
    } else {
        return s;
    }
}

// A source colour prepared for a colour-model mode: what depends only on the source
// (its HSV or HLS) is computed once.
struct ModelSource {
    kivcore::Hsv hsv;
    kivcore::Hls hls;
};

inline ModelSource prepare_model_source(int mode, tagRGBA s) {
    ModelSource p{};
    if (mode == kColor)
        p.hls = kivcore::rgb_to_hls(s.r, s.g, s.b);
    else
        p.hsv = kivcore::rgb_to_hsv(s.r, s.g, s.b);
    return p;
}

// Modes 3 to 6 on a prepared source; the result's alpha is d's.
inline tagRGBA blend_colour_model(int mode, tagRGBA d, const ModelSource& s) {
    int r, g, b;
    if (mode == kColor) {
        const kivcore::Hls hd = kivcore::rgb_to_hls(d.r, d.g, d.b);
        kivcore::hls_to_rgb(s.hls.h, hd.l, s.hls.s, &r, &g, &b);
    } else {
        const kivcore::Hsv hd = kivcore::rgb_to_hsv(d.r, d.g, d.b);
        kivcore::Hsv o = hd;
        if (mode == kHue)
            o.h = s.hsv.h;
        else if (mode == kSaturation)
            o.s = s.hsv.s;
        else
            o.v = s.hsv.v;
        kivcore::hsv_to_rgb(o, &r, &g, &b);
    }
    // HLS results are stored as bytes (modulo 256); HSV results are already 0..255.
    return tagRGBA{static_cast<BYTE>(r), static_cast<BYTE>(g), static_cast<BYTE>(b), d.a};
}

// COLORREF to a pixel: red byte 0, green byte 1, blue byte 2, alpha 0.
inline tagRGBA unpack_colour(COLORREF c) {
    return tagRGBA{static_cast<BYTE>(c & 0xFF), static_cast<BYTE>((c >> 8) & 0xFF), static_cast<BYTE>((c >> 16) & 0xFF),
                   0};
}

// The blend of one pixel for any mode (normalised as above); the result's alpha is d's.
using BlendFn = tagRGBA (*)(tagRGBA d, tagRGBA s);
BlendFn blend_function(int mode);

// In-place row kernels, the mode chosen once per call; red, green and blue of p[i] become
// mix(p[i], blend(p[i], s[i]), weight) and every alpha byte is kept.
//   blend_row:          one opacity op (0..255) for the row;
//   blend_row_weighted: weight w[i] (0..255) per pixel, e.g. a layer's alpha times opacity.
void blend_row(int mode, tagRGBA* p, const tagRGBA* s, int n, int op);
void blend_row_weighted(int mode, tagRGBA* p, const tagRGBA* s, const BYTE* w, int n);

// One source colour blended into many pixels at one opacity. Per-channel modes become
// three 256-entry tables with the opacity mix folded in (exact: each output channel is a
// function of the matching input channel alone); colour-model modes prepare the source's
// HSV or HLS once.
class SolidBlend {
public:
    SolidBlend(int mode, tagRGBA s, int op);
    void apply(tagRGBA* p, int n) const;

private:
    enum class Path { kModel, kDirect, kTables };
    int mode_;
    int op_;
    Path path_;
    tagRGBA s_;
    ModelSource model_{};
    BYTE lut_[3][256];
};

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
        case 6:
        case 4:
        case 7:
        case 2:
            *out = RampDirection{dir, false};
            return true;
        case 1:
            *out = RampDirection{6, true};
            return true;
        case 0:
            *out = RampDirection{7, true};
            return true;
        case 3:
            *out = RampDirection{4, true};
            return true;
        case 5:
            *out = RampDirection{2, true};
            return true;
        default:
            return false;
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
            case 6:
                return row;
            case 4:
                return column;
            default:
                return (column + row) >> 1;
        }
    }

private:
    long long x0_, y0_, h_, w1_, h1_;
    int last_, code_;
};

}  // namespace kivfill

#endif
