// Plain per-pixel models of the blend modes, the opacity mix and the fill ramps, written
// from the formulas (no tables, no vectors) for comparing the library against.
#ifndef KIV_TEST_FILL_REFERENCE_H
#define KIV_TEST_FILL_REFERENCE_H

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <vector>

#include "kiv.h"

namespace filltest {

inline int clamp255(double v) {
    int t = static_cast<int>(v);  // truncation toward zero first
    return t < 0 ? 0 : t > 255 ? 255 : t;
}

inline int ref_channel(int mode, int d, int s) {
    const double D = d / 255.0, S = s / 255.0;
    switch (mode) {
        case 1: return std::min(d, s);
        case 2: return std::max(d, s);
        case 7: { int t = d * s + 128; return (t + (t >> 8)) >> 8; }
        case 8: { int t = (255 - d) * (255 - s) + 128; return 255 - ((t + (t >> 8)) >> 8); }
        case 10: return d < 128 ? (2 * d * s) / 255 : 255 - (2 * (255 - d) * (255 - s)) / 255;
        case 11: return s < 128 ? (2 * d * s) / 255 : 255 - (2 * (255 - d) * (255 - s)) / 255;
        case 12:
            if (S < 0.5) return clamp255((D + (D - D * D) * (2 * S - 1)) * 255);
            return clamp255((D + (std::sqrt(D) - D) * (2 * S - 1)) * 255);
        case 13: return std::abs(d - s);
        case 14: return std::min(255, static_cast<int>(std::fabs(((0.5 - D) * 2 * (0.5 - S) - 0.5) * 255)));
        case 15: return clamp255(D * 256 / (256 - s) * 255);
        case 16:
            if (D + S < 1) return 0;
            if (S == 0) return 255;
            return clamp255((1 - (1 - D) / S) * 255);
        case 17: return std::min(255, d + s);
        case 18: return std::max(0, d - s);
        default: return s;
    }
}

// The two colour models written straight from their formulas (not the library's code).
struct RefHsv {
    double h, s, v;
};
inline RefHsv ref_to_hsv(tagRGBA c) {
    const double r = c.r / 255.0, g = c.g / 255.0, b = c.b / 255.0;
    const double mx = std::max({r, g, b}), mn = std::min({r, g, b}), d = mx - mn;
    RefHsv o{0.0, mx == 0.0 ? 0.0 : d / mx, mx};
    if (o.s != 0.0) {
        o.h = (r == mx ? (g - b) / d : g == mx ? (b - r) / d + 2.0 : (r - g) / d + 4.0) / 6.0;
        if (o.h < 0.0) o.h += 1.0;
    }
    return o;
}
inline tagRGBA ref_from_hsv(RefHsv c, BYTE a) {
    double rgb[3] = {c.v, c.v, c.v};
    if (c.s != 0.0) {
        double h = 6.0 * c.h;
        if (h == 6.0) h = 0.0;
        const int i = static_cast<int>(h);
        const double f = h - i, V = c.v, S = c.s;
        const double p = V * (1.0 - S), q = V * (1.0 - f * S), t = V * (1.0 - (1.0 - f) * S);
        const double sectors[6][3] = {{V, t, p}, {q, V, p}, {p, V, t}, {p, q, V}, {t, p, V}, {V, p, q}};
        std::copy(sectors[i], sectors[i] + 3, rgb);
    }
    return tagRGBA{static_cast<BYTE>(clamp255(rgb[0] * 255.0)), static_cast<BYTE>(clamp255(rgb[1] * 255.0)),
                   static_cast<BYTE>(clamp255(rgb[2] * 255.0)), a};
}
struct RefHls {
    int h, l, s;
};
inline RefHls ref_to_hls(tagRGBA c) {
    const int mx = std::max({c.r, c.g, c.b}), mn = std::min({c.r, c.g, c.b});
    const double L = (mx + mn) / 2.0;
    if (mx == mn) return RefHls{0, static_cast<int>(L), 0};
    const int d = mx - mn;
    const int S = L < 128.0 ? 255 * d / (mx + mn) : 255 * d / (511 - mx - mn);
    double H = 42.5 * (c.r == mx ? static_cast<double>(c.g - c.b) / d
                       : c.g == mx ? static_cast<double>(c.b - c.r) / d + 2.0
                                   : static_cast<double>(c.r - c.g) / d + 4.0);
    if (H < 0.0) H += 255.0;
    if (H > 255.0) H -= 255.0;
    return RefHls{static_cast<int>(H), static_cast<int>(L), S};
}
inline tagRGBA ref_from_hls(RefHls c, BYTE a) {
    if (c.s == 0) return tagRGBA{static_cast<BYTE>(c.l), static_cast<BYTE>(c.l), static_cast<BYTE>(c.l), a};
    const double L = c.l, S = c.s;
    const double m2 = c.l < 128 ? (S + 255.0) * L / 65025.0 : (S + L - S * L / 255.0) / 255.0;
    const double m1 = L / 127.5 - m2;
    auto value = [&](double h) {
        if (h > 255.0) h -= 255.0;
        else if (h < 0.0) h += 255.0;
        if (h < 42.5) return static_cast<int>(255.0 * (m1 + (m2 - m1) * h / 42.5));
        if (h < 127.5) return static_cast<int>(255.0 * m2);
        if (h < 170.0) return static_cast<int>(255.0 * (m1 + (m2 - m1) * (170.0 - h) / 42.5));
        return static_cast<int>(255.0 * m1);
    };
    return tagRGBA{static_cast<BYTE>(value(c.h + 85.0)), static_cast<BYTE>(value(c.h)),
                   static_cast<BYTE>(value(c.h - 85.0)), a};
}

// The blended colour (alpha of d).
inline tagRGBA ref_blend(int mode, tagRGBA d, tagRGBA s) {
    if (mode == 3 || mode == 4 || mode == 6) {
        const RefHsv hd = ref_to_hsv(d), hs = ref_to_hsv(s);
        return ref_from_hsv(mode == 3 ? RefHsv{hs.h, hd.s, hd.v} : mode == 4 ? RefHsv{hd.h, hs.s, hd.v}
                                                                          : RefHsv{hd.h, hd.s, hs.v},
                            d.a);
    }
    if (mode == 5) {
        const RefHls hd = ref_to_hls(d), hs = ref_to_hls(s);
        return ref_from_hls(RefHls{hs.h, hd.l, hs.s}, d.a);
    }
    const int m = (mode < 0 || mode > 18) ? 0 : mode;
    const int sg = (m == 17 || m == 18) ? s.b : s.g;  // the fill's blue for green
    return tagRGBA{static_cast<BYTE>(ref_channel(m, d.r, s.r)), static_cast<BYTE>(ref_channel(m, d.g, sg)),
                   static_cast<BYTE>(ref_channel(m, d.b, s.b)), d.a};
}

inline void ref_mix(tagRGBA& p, tagRGBA c, int op) {
    p.r = static_cast<BYTE>((p.r * (255 - op) + c.r * op) / 255);
    p.g = static_cast<BYTE>((p.g * (255 - op) + c.g * op) / 255);
    p.b = static_cast<BYTE>((p.b * (255 - op) + c.b * op) / 255);
}

inline tagRGBA rgb(COLORREF c) {
    return tagRGBA{static_cast<BYTE>(c), static_cast<BYTE>(c >> 8), static_cast<BYTE>(c >> 16), 0};
}

// Blend colour_at(x - x0, y - y0) into every pixel of the box that lies inside the image.
inline void ref_box(kiv& img, long long x0, long long y0, long long w, long long h, int op, int mode,
                    const std::function<tagRGBA(long long, long long)>& colour_at) {
    for (long long y = std::max(0LL, y0); y < std::min<long long>(y0 + h, img.m_height); ++y)
        for (long long x = std::max(0LL, x0); x < std::min<long long>(x0 + w, img.m_width); ++x) {
            tagRGBA& p = img.m_pixels[y * img.m_width + x];
            ref_mix(p, ref_blend(mode, p, colour_at(x - x0, y - y0)), op);
        }
}

// Index of a pixel in a table of last + 1 entries, for a direction code 0..7, as the
// carried-out codes 6, 4, 7, 2 (the reversed codes read the table backwards).
inline int ref_ramp_index(int dir, long long x, long long y, long long w, long long h, int last, bool* reversed) {
    static const int carried[8] = {7, 6, 2, 4, 4, 2, 6, 7};
    *reversed = dir == 0 || dir == 1 || dir == 3 || dir == 5;
    const long long W1 = std::max(w - 1, 1LL), H1 = std::max(h - 1, 1LL);
    switch (carried[dir]) {
        case 6: return static_cast<int>(y * last / H1);
        case 4: return static_cast<int>(x * last / W1);
        case 7: return static_cast<int>((x * last / W1 + y * last / H1) >> 1);
        default: return static_cast<int>((x * last / W1 + (h - 1 - y) * last / H1) >> 1);
    }
}

// The 512-entry shade table of the colours as given.
inline std::vector<tagRGBA> ref_shade_table(const std::vector<tagRGBA>& c) {
    std::vector<tagRGBA> t(512, tagRGBA{0, 0, 0, 0});
    const int n = static_cast<int>(c.size());
    if (n == 1) {
        std::fill(t.begin(), t.end(), c[0]);
        return t;
    }
    const int seg = 512 / (n - 1);
    for (int k = 0; k <= n - 2; ++k) {
        const int start = k * seg;
        const int end = (k * seg + 2 * seg > 512) ? 512 : k * seg + seg;
        for (int i = 0; start + i < end; ++i) {
            auto ch = [&](int a, int b) { return static_cast<BYTE>(clamp255(i * (static_cast<double>(b - a) / (seg - 1)) + a)); };
            t[start + i] = tagRGBA{ch(c[k].r, c[k + 1].r), ch(c[k].g, c[k + 1].g), ch(c[k].b, c[k + 1].b), 0};
        }
    }
    return t;
}

}  // namespace filltest

#endif
