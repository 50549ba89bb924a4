// Mapping pixels to the refined quantizer's palette: nearest colour, or error diffusion
// that holds back where it would only add noise.
#include <algorithm>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "quantize/hq.h"

namespace kivhq {

namespace {

inline int clampi(int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; }

int lookup(const GridView& g, Packed q) {
    const std::uint32_t rec = g.cell[Grid::cell_of(q, g.alpha)];
    const int count = static_cast<int>(rec & 0x1FF);
    if (count == 1) return static_cast<int>(rec >> 9);
    if (count == 0) return kernels().nearest(g.all, g.all_count, q) & 0xFF;
    return kernels().nearest(g.pool + (rec >> 9), count, q) & 0xFF;
}

}  // namespace

void map_nearest(const Source& s, const Mapping& m) {
    const MapRunFn run = kernels().map_run;
    kivcore::parallel_chunks(0, s.height, [&](int y0, int y1) {
        run(m.grid->view(), m.out, m.transparent, s.alpha,
            reinterpret_cast<unsigned char*>(s.px + static_cast<std::size_t>(y0) * static_cast<std::size_t>(s.width)),
            static_cast<std::size_t>(y1 - y0) * static_cast<std::size_t>(s.width));
    });
}

// Floyd-Steinberg, every row left to right.  Errors are kept in 1/256 of a unit; each
// pixel's error is limited to +-kLimit units and scaled by the strength before it is shared
// (7/16 ahead, 3/16, 5/16 and the rest below).
void map_diffuse(const Source& s, const Mapping& m, int strength) {
    const int w = s.width;
    const int span = 4 * (w + 2);
    std::vector<int> store(2 * static_cast<std::size_t>(span), 0);
    int* cur = store.data();
    int* nxt = cur + span;
    const int limit = kLimit * 256, scale = strength * 256 / 100;
    const int channels = s.alpha ? 4 : 3;
    for (int y = 0; y < s.height; ++y) {
        std::fill(nxt, nxt + span, 0);
        tagRGBA* p = s.px + static_cast<std::size_t>(y) * static_cast<std::size_t>(w);
        int carry[4] = {0, 0, 0, 0};
        for (int x = 0; x < w; ++x) {
            if (s.alpha && p[x].a == 0) {
                std::memcpy(&p[x], &m.out[m.transparent], 4);
                carry[0] = carry[1] = carry[2] = carry[3] = 0;
                continue;
            }
            const Packed q = search_colour(p[x], s.alpha);
            const int src[4] = {static_cast<int>(q.rg & 0xFFFF), static_cast<int>(q.rg >> 16),
                                static_cast<int>(q.ba & 0xFFFF), static_cast<int>(q.ba >> 16)};
            const int* ce = cur + 4 * (x + 1);
            int t[4], v[4];
            for (int c = 0; c < 4; ++c) {
                t[c] = c < channels ? clampi(src[c] * 256 + ce[c] + carry[c], 0, 255 * 256) : src[c] * 256;
                v[c] = (t[c] + 128) >> 8;
            }
            const int idx = lookup(m.grid->view(), pack(v[0], v[1], v[2], v[3]));
            const int* e0 = m.pal->c[idx];
            int* ne = nxt + 4 * (x + 1);
            for (int c = 0; c < channels; ++c) {
                const int e = clampi(t[c] - 256 * e0[c], -limit, limit) * scale >> 8;
                const int e7 = e * 7 >> 4, e3 = e * 3 >> 4, e5 = e * 5 >> 4;
                carry[c] = e7;
                ne[c - 4] += e3;
                ne[c] += e5;
                ne[c + 4] += e - e7 - e3 - e5;
            }
            std::memcpy(&p[x], &m.out[idx], 4);
        }
        std::swap(cur, nxt);
    }
}

}  // namespace kivhq
