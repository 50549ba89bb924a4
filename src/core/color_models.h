// The library's two colour models, shared by every family that needs them:
//  - a floating-point HSV model (blend modes hue/saturation/value, colour enhancement);
//  - an integer HLS model on 0..255 (blend mode colour, hue/saturation, modulate, colour
//    balance, colour-space conversion).
// Both are defined to the bit: keep every operation in the order written here.
#ifndef KIV_CORE_COLOR_MODELS_H
#define KIV_CORE_COLOR_MODELS_H

namespace kivcore {

// ---- HSV, doubles: h, s, v in 0..1 ------------------------------------------------------

struct Hsv {
    double h, s, v;
};

inline Hsv rgb_to_hsv(int r8, int g8, int b8) {
    const double r = r8 / 255.0, g = g8 / 255.0, b = b8 / 255.0;
    double mx = r, mn = r;
    if (g > mx) mx = g;
    if (b > mx) mx = b;
    if (g < mn) mn = g;
    if (b < mn) mn = b;
    Hsv o{0.0, 0.0, mx};
    o.s = mx == 0.0 ? 0.0 : (mx - mn) / mx;
    if (o.s == 0.0) return o;  // grey: hue 0
    const double d = mx - mn;
    double h;
    if (r == mx)
        h = (g - b) / d;
    else if (g == mx)
        h = (b - r) / d + 2.0;
    else
        h = (r - g) / d + 4.0;
    h /= 6.0;
    if (h < 0.0) h += 1.0;  // wrap into 0..1
    if (h > 1.0) h -= 1.0;
    o.h = h;
    return o;
}

// One channel of an HSV result: x 255, truncated, clamped to 0..255.
inline int hsv_channel(double c) {
    double t = c * 255.0;
    if (t <= 0.0) return 0;
    if (t >= 255.0) return 255;
    return static_cast<int>(t);
}

inline void hsv_to_rgb(const Hsv& in, int* r, int* g, int* b) {
    if (in.s == 0.0) {
        *r = *g = *b = hsv_channel(in.v);
        return;
    }
    double h = in.h * 6.0;
    if (h >= 6.0) h = 0.0;
    const int i = static_cast<int>(h);
    const double f = h - i;
    const double v = in.v, s = in.s;
    const double p = v * (1.0 - s);
    const double q = v * (1.0 - f * s);
    const double t = v * (1.0 - (1.0 - f) * s);
    double rr, gg, bb;
    switch (i) {
        case 0: rr = v, gg = t, bb = p; break;
        case 1: rr = q, gg = v, bb = p; break;
        case 2: rr = p, gg = v, bb = t; break;
        case 3: rr = p, gg = q, bb = v; break;
        case 4: rr = t, gg = p, bb = v; break;
        default: rr = v, gg = p, bb = q; break;
    }
    *r = hsv_channel(rr);
    *g = hsv_channel(gg);
    *b = hsv_channel(bb);
}

// ---- HLS, integers 0..255: one turn of hue is 255 units, 42.5 units a sixth -------------

struct Hls {
    int h, l, s;
};

inline Hls rgb_to_hls(int r, int g, int b) {
    int mx = r, mn = r;
    if (g > mx) mx = g;
    if (b > mx) mx = b;
    if (g < mn) mn = g;
    if (b < mn) mn = b;
    const int sum = mx + mn;
    const double l = sum * 0.5;
    if (mx == mn) return Hls{0, static_cast<int>(l), 0};
    const int d = mx - mn;
    // 511, not 510, in the upper half: part of the model's definition.
    const int s = l < 128.0 ? d * 255 / sum : d * 255 / (511 - sum);
    double h;
    if (r == mx)
        h = static_cast<double>(g - b) / d;
    else if (g == mx)
        h = 2.0 + static_cast<double>(b - r) / d;
    else
        h = 4.0 + static_cast<double>(r - g) / d;
    h = h * 42.5;
    if (h < 0.0)
        h += 255.0;
    else if (h > 255.0)
        h -= 255.0;
    return Hls{static_cast<int>(h), static_cast<int>(l), s};
}

namespace detail {
inline int hls_value(double m1, double m2, double x) {
    if (x > 255.0)
        x -= 255.0;
    else if (x < 0.0)
        x += 255.0;
    double v;
    if (x < 42.5)
        v = (m1 + (m2 - m1) * x / 42.5) * 255.0;
    else if (x < 127.5)
        v = m2 * 255.0;
    else if (x < 170.0)
        v = (m1 + (m2 - m1) * (170.0 - x) / 42.5) * 255.0;
    else
        v = m1 * 255.0;
    return static_cast<int>(v);
}
}  // namespace detail

// Channels come back as truncated integers; callers store them as bytes (modulo 256), which
// matters only for h, l, s outside 0..255.
inline void hls_to_rgb(int h, int l, int s, int* r, int* g, int* b) {
    if (s == 0) {
        *r = *g = *b = l;
        return;
    }
    double m2;
    if (l < 128)
        m2 = static_cast<double>((s + 255) * l) / 65025.0;
    else
        m2 = (s + l - static_cast<double>(s * l) / 255.0) / 255.0;
    const double m1 = l / 127.5 - m2;
    *r = detail::hls_value(m1, m2, h + 85.0);
    *g = detail::hls_value(m1, m2, static_cast<double>(h));
    *b = detail::hls_value(m1, m2, h - 85.0);
}

}  // namespace kivcore

#endif
