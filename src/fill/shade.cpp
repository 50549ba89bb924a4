// Shaded fills: up to 16 colours spread linearly across a rectangle.
#include <algorithm>
#include <array>

#include "core/toolkit.h"
#include "core/watch.h"
#include "fill/blend.h"
#include "fill/fill_private.h"

namespace {

constexpr int kShadeEntries = 512;
constexpr int kShadeMaxColours = 16;

std::array<tagRGBA, kShadeEntries> build_shade_table(const tagRGBA* c, int n) {
    std::array<tagRGBA, kShadeEntries> t{};
    if (n == 1) {
        t.fill(c[0]);
        return t;
    }
    const int seg = kShadeEntries / (n - 1);
    for (int k = 0; k + 1 < n; ++k) {
        const int start = k * seg;
        // The last segment takes the remainder and runs on past its end colour (clamped).
        const int end = start + 2 * seg > kShadeEntries ? kShadeEntries : start + seg;
        const double step[3] = {static_cast<double>(c[k + 1].r - c[k].r) / (seg - 1),
                                static_cast<double>(c[k + 1].g - c[k].g) / (seg - 1),
                                static_cast<double>(c[k + 1].b - c[k].b) / (seg - 1)};
        const int base[3] = {c[k].r, c[k].g, c[k].b};
        for (int i = 0; start + i < end; ++i) {
            BYTE v[3];
            for (int ch = 0; ch < 3; ++ch) {
                const int e = static_cast<int>(i * step[ch] + base[ch]);
                v[ch] = static_cast<BYTE>(std::clamp(e, 0, 255));
            }
            t[start + i] = tagRGBA{v[0], v[1], v[2], 0};
        }
    }
    return t;
}

int shade_fill(kiv& img, long long x, long long y, long long w, long long h, const COLORREF* colours, int n, int dir,
               int op, int mode) {
    op = kivfill::clamp_opacity(op);
    if (!img.m_pixels || w < 1 || h < 1 || op == 0) return 0;
    if (!colours || n < 1 || n > kShadeMaxColours) return 0;
    img.m_bits = 24;
    kivfill::RampDirection d;
    if (!kivfill::resolve_direction(dir, &d)) return 0;
    tagRGBA c[kShadeMaxColours];
    for (int i = 0; i < n; ++i) c[i] = kivfill::unpack_colour(colours[d.reversed ? n - 1 - i : i]);
    const auto table = build_shade_table(c, n);
    return kivfill::ramp_fill(img, x, y, w, h, table.data(), kShadeEntries - 1, d.code, op, mode);
}

}  // namespace

int kiv::shadefill(int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op, int mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy,
                            [&]() -> int { return shade_fill(*this, x, y, w, h, colors, n, dir, op, mode); });
}

int kiv::shadefill(tagRECT* r, COLORREF* colors, int n, int dir, int op, int mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        return kivfill::over_rect(*this, r, shade_fill, colors, n, dir, op, mode);
    });
}

int kiv::fillshaderect(int x, int y, int w, int h, COLORREF* colors, int n, int dir, int op) {
    return shade_fill(*this, x, y, w, h, colors, n, dir, op, kivfill::kNormal);
}

int kiv::fillshaderect(tagRECT* r, COLORREF* colors, int n, int dir, int op) {
    return shadefill(r, colors, n, dir, op, kivfill::kNormal);
}
