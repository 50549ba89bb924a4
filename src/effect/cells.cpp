// Square-cell effects: pixelize (cell means) and pyramid (pyramid-shaded tiles).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "core/watch.h"
#include "effect/effect.h"

int kiv::pixelize(tagRECT* rect, int size) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kiveffect;
        Area a;
        if (!clip_rect(*this, rect, &a) || size < 1) return 0;
        raise_depth_24(*this);
        if (size == 1) return 1;
        const int w = a.w();
        const int cells = static_cast<int>((static_cast<long long>(w) + size - 1) / size);
        const int bands = static_cast<int>((static_cast<long long>(a.h()) + size - 1) / size);
        kivcore::parallel_for(0, bands, kivcore::row_work(static_cast<long long>(w) * size, 2), [&](int k) {
            const int y0 = a.top + k * size;  // k * size < h: no overflow
            const int y1 = static_cast<int>(std::min<long long>(a.bottom, static_cast<long long>(y0) + size));
            // Sums of a whole band of cells, row by row: each pixel is read once, in order.
            std::vector<std::uint64_t> sum(static_cast<std::size_t>(cells) * 3, 0);
            for (int y = y0; y < y1; ++y) {
                const tagRGBA* p = row_ptr(*this, y) + a.left;
                for (int c = 0; c < cells; ++c) {
                    const int x0 = c * size,
                              x1 = static_cast<int>(std::min<long long>(w, static_cast<long long>(x0) + size));
                    std::uint64_t r = 0, g = 0, b = 0;
                    for (int x = x0; x < x1; ++x) r += p[x].r, g += p[x].g, b += p[x].b;
                    std::uint64_t* s = sum.data() + static_cast<std::size_t>(c) * 3;
                    s[0] += r, s[1] += g, s[2] += b;
                }
            }
            for (int c = 0; c < cells; ++c) {
                const int x0 = c * size, x1 = static_cast<int>(std::min<long long>(w, static_cast<long long>(x0) + size));
                const std::uint64_t n = static_cast<std::uint64_t>(x1 - x0) * static_cast<std::uint64_t>(y1 - y0);
                const std::uint64_t* s = sum.data() + static_cast<std::size_t>(c) * 3;
                const BYTE r = static_cast<BYTE>(s[0] / n), g = static_cast<BYTE>(s[1] / n),
                           b = static_cast<BYTE>(s[2] / n);
                for (int y = y0; y < y1; ++y) {
                    tagRGBA* p = row_ptr(*this, y) + a.left;
                    for (int x = x0; x < x1; ++x) p[x].r = r, p[x].g = g, p[x].b = b;
                }
            }
        });
        return 1;
    });
}

int kiv::pyramid(tagRECT* rect, int size, int depth) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kiveffect;
        Area a;
        if (!clip_rect(*this, rect, &a) || size < 2 || depth < 0 || depth > 255) return 0;
        raise_depth_24(*this);
        if (depth == 0) return 1;
        // One table per face: top, left, right, bottom.
        const int delta[4] = {depth, depth / 2, -(depth / 2), -depth};
        BYTE lut[4][256];
        for (int f = 0; f < 4; ++f)
            for (int v = 0; v < 256; ++v) lut[f][v] = static_cast<BYTE>(clamp255(v + delta[f]));
        const int w = a.w(), h = a.h();
        kivcore::parallel_for(0, h, kivcore::row_work(w, 2), [&](int j) {
            const int v = j % size;
            const int ch = std::min(size, h - (j - v));  // height of this row's cells, as cut
            const int t = v, bo = ch - 1 - v;
            tagRGBA* p = row_ptr(*this, a.top + j) + a.left;
            for (int x0 = 0; x0 < w; x0 += size) {
                const int cw = std::min(size, w - x0);
                for (int u = 0; u < cw; ++u) {
                    const int l = u, ri = cw - 1 - u;
                    const int m = std::min(std::min(t, l), std::min(ri, bo));
                    const BYTE* L = lut[m == t ? 0 : m == l ? 1 : m == ri ? 2 : 3];
                    tagRGBA& q = p[x0 + u];
                    q.r = L[q.r], q.g = L[q.g], q.b = L[q.b];
                }
                if (w - x0 <= size) break;  // x0 + size would pass w (and might overflow)
            }
        });
        return 1;
    });
}
