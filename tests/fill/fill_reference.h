// Plain per-pixel models of the blend modes, the opacity mix and the fill ramps, written
// from the formulas (no tables, no vectors) for comparing the library against.
#ifndef KIV_TEST_FILL_REFERENCE_H
#define KIV_TEST_FILL_REFERENCE_H

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <vector>

#include "core/color_models.h"
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

// The blended colour (alpha of d).
inline tagRGBA ref_blend(int mode, tagRGBA d, tagRGBA s) {
    using namespace kivcore;
    int r, g, b;
    if (mode >= 3 && mode <= 6 && mode != 5) {
        Hsv hd = rgb_to_hsv(d.r, d.g, d.b), hs = rgb_to_hsv(s.r, s.g, s.b);
        Hsv o = mode == 3 ? Hsv{hs.h, hd.s, hd.v} : mode == 4 ? Hsv{hd.h, hs.s, hd.v} : Hsv{hd.h, hd.s, hs.v};
        hsv_to_rgb(o, &r, &g, &b);
    } else if (mode == 5) {
        Hls hd = rgb_to_hls(d.r, d.g, d.b), hs = rgb_to_hls(s.r, s.g, s.b);
        hls_to_rgb(hs.h, hd.l, hs.s, &r, &g, &b);
    } else {
        const int m = (mode < 0 || mode > 18) ? 0 : mode;
        const int sg = (m == 17 || m == 18) ? s.b : s.g;  // the fill's blue for green
        r = ref_channel(m, d.r, s.r);
        g = ref_channel(m, d.g, sg);
        b = ref_channel(m, d.b, s.b);
    }
    return tagRGBA{static_cast<BYTE>(r), static_cast<BYTE>(g), static_cast<BYTE>(b), d.a};
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
