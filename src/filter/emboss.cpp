// Lit relief (emboss) and bevelled frame (raise_edge).
#include <cmath>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "core/kmath.h"

int kiv::emboss(tagRECT* rect, tagKIV_EMBOSS* param) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    const tagKIV_EMBOSS p = param ? *param : tagKIV_EMBOSS{30.0, 45.0, 20, 1};
    const unsigned depth = static_cast<unsigned>(p.depth) & 0xFFFFu;
    if (depth == 0 || !std::isfinite(p.azimuth) || !std::isfinite(p.elevation)) return 0;
    set_depth_24(this);
    const double az = p.azimuth * kivcore::kmath::kDegToRad, el = p.elevation * kivcore::kmath::kDegToRad;
    const double Lx = kivcore::kmath::cos(az) * kivcore::kmath::cos(el) * 255.9;
    const double Ly = kivcore::kmath::sin(az) * kivcore::kmath::cos(el) * 255.9;
    const double Lz = kivcore::kmath::sin(el) * 255.9;
    const int Nz = static_cast<int>(1530u / depth);  // 6 * 255 over the relief depth
    const double NzLz = Nz * Lz;
    const int Nz2 = Nz * Nz;
    const int flat = static_cast<int>(Lz);
    const bool mono = p.mono != 0;
    const int W = m_width, H = m_height, w = a.w();
    // Results go to a buffer, so every read sees the original image.
    std::vector<tagRGBA> out(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()));
    kivcore::parallel_for(a.top, a.bottom, [&](int y) {
        const tagRGBA* r0 = row_ptr(this, clamp_index(y - 1, H));
        const tagRGBA* r1 = row_ptr(this, y);
        const tagRGBA* r2 = row_ptr(this, clamp_index(y + 1, H));
        tagRGBA* o = out.data() + static_cast<std::size_t>(y - a.top) * w;
        for (int x = a.left; x < a.right; ++x) {
            const int xl = clamp_index(x - 1, W), xr = clamp_index(x + 1, W);
            const int TL = r0[xl].r, T = r0[x].r, TR = r0[xr].r, L = r1[xl].r, R = r1[xr].r;
            const int BL = r2[xl].r, B = r2[x].r, BR = r2[xr].r;
            const int Nx = (TL + L + BL) - (TR + R + BR);
            const int Ny = (BL + B + BR) - (TL + T + TR);
            int shade;
            if (Nx == 0 && Ny == 0) {
                shade = flat;
            } else {
                const int d = static_cast<int>(Nx * Lx + Ny * Ly + NzLz);
                shade = d < 0 ? 0 : static_cast<int>(d / std::sqrt(static_cast<double>(Nx * Nx + Ny * Ny + Nz2)));
            }
            shade = clamp255(shade);
            tagRGBA q{0, 0, 0, 0};
            if (mono) {
                q.r = q.g = q.b = static_cast<BYTE>(shade);
            } else {
                // The pixel above lends the colour: a one-row offset that is part of the look.
                const tagRGBA& s = r0[x];
                q.r = static_cast<BYTE>((s.r * shade) >> 8);
                q.g = static_cast<BYTE>((s.g * shade) >> 8);
                q.b = static_cast<BYTE>((s.b * shade) >> 8);
            }
            o[x - a.left] = q;
        }
    });
    setpacket(out.data(), a.left, a.top, w, a.h());
    return 1;
}

int kiv::raise_edge(tagRECT* rect, int n) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
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
        tagRGBA* row = row_ptr(this, a.top + j) + a.left;
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
