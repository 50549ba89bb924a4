// Lit relief (emboss) and bevelled frame (raise_edge).
#include <algorithm>
#include <cmath>

#include "core/relief_light.h"
#include "core/simd.h"
#include "filter/emboss_simd.h"
#include "filter/filter.h"

namespace {

// One pixel from columns xl, x and xr of the three rows.
tagRGBA emboss_pixel(const tagRGBA* const* rows, int xl, int x, int xr, const kivcore::ReliefLight& L, bool mono) {
    const tagRGBA *r0 = rows[0], *r1 = rows[1], *r2 = rows[2];
    const int TL = r0[xl].r, T = r0[x].r, TR = r0[xr].r, Lf = r1[xl].r, R = r1[xr].r;
    const int BL = r2[xl].r, B = r2[x].r, BR = r2[xr].r;
    const int Nx = (TL + Lf + BL) - (TR + R + BR);
    const int Ny = (BL + B + BR) - (TL + T + TR);
    const int shade = L.shade(Nx, Ny);
    if (mono) return tagRGBA{static_cast<BYTE>(shade), static_cast<BYTE>(shade), static_cast<BYTE>(shade), 0};
    // The pixel above lends the colour: a one-row offset that is part of the look.
    const tagRGBA& s = r0[x];
    return tagRGBA{static_cast<BYTE>((s.r * shade) >> 8), static_cast<BYTE>((s.g * shade) >> 8),
                   static_cast<BYTE>((s.b * shade) >> 8), 0};
}

}  // namespace

int kiv::emboss(tagRECT* rect, tagKIV_EMBOSS* param) {
    using namespace kivfilter;
    Area a;
    if (!clip_rect(*this, rect, &a)) return 0;
    const tagKIV_EMBOSS p = param ? *param : tagKIV_EMBOSS{30.0, 45.0, 20, 1};
    const unsigned depth = static_cast<unsigned>(p.depth) & 0xFFFFu;
    if (depth == 0 || !std::isfinite(p.azimuth) || !std::isfinite(p.elevation)) return 0;
    set_depth_24(this);
    const kivcore::ReliefLight light = kivcore::relief_light(p.azimuth, p.elevation, depth);
    const bool mono = p.mono != 0;
    // Neighbours come from the whole image, coordinates clamped to it.
    const auto row = kivcore::pick(KIV_AVX2_KERNEL(emboss_row_avx2), KIV_SSE2_KERNEL(emboss_row_sse2));
    run_clamped_3x3(
        this, a,
        [&](const tagRGBA* const* rows, int x0, int x1, tagRGBA* out) {
            return row ? row(bytes(rows), x0, x1, light, mono, bytes(out)) : x0;
        },
        [&](const tagRGBA* const* rows, int xl, int x, int xr) { return emboss_pixel(rows, xl, x, xr, light, mono); });
    return 1;
}

int kiv::raise_edge(tagRECT* rect, int n) {
    using namespace kivfilter;
    Area a;
    if (!clip_rect(*this, rect, &a)) return 0;
    const int w = a.w(), h = a.h();
    if (n < 0 || w < 2LL * n || h < 2LL * n) return 0;
    set_depth_24(this);
    auto apply = [](tagRGBA& p, int mul, int add) {
        p.r = static_cast<BYTE>((mul * p.r + add) / 255);
        p.g = static_cast<BYTE>((mul * p.g + add) / 255);
        p.b = static_cast<BYTE>((mul * p.b + add) / 255);
    };
    auto left = [&](tagRGBA& p) { apply(p, 190, 16575); };   // 190/255 of c plus 65
    auto top = [&](tagRGBA& p) { apply(p, 135, 30600); };    // 135/255 of c plus 120
    auto right = [&](tagRGBA& p) { apply(p, 190, 0); };
    auto bottom = [&](tagRGBA& p) { apply(p, 135, 0); };
    // Per row: `side` pixels left, the middle band, `side` pixels right.
    auto band = [&](int j, int side, bool middle, auto&& mid) {
        tagRGBA* row = row_ptr(*this, a.top + j) + a.left;
        for (int i = 0; i < side; ++i) left(row[i]);
        if (middle)
            for (int i = side; i < w - side; ++i) mid(row[i]);
        for (int i = w - side; i < w; ++i) right(row[i]);
    };
    auto none = [](tagRGBA&) {};
    for (int j = 0; j < h; ++j) {
        if (j < n)
            band(j, j, true, top);  // top mitre starts with no side pixel
        else if (j < h - n)
            band(j, n, false, none);
        else
            band(j, n - (j - (h - n)), true, bottom);  // bottom mitre keeps one side pixel
    }
    return 1;
}
