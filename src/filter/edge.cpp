// Gradient-magnitude edge detector (edge) and the rounded integer square root.
#include <cmath>
#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "filter/filter.h"

namespace kivfilter {

unsigned isqrt_rounded(unsigned n) {
    static const unsigned char small[13] = {0, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3};
    if (n <= 12) return small[n];
    // Bit-by-bit square root: r = floor(sqrt(n)), n ends as the remainder n - r^2.
    unsigned r = 0, bit = 1u << 30;
    while (bit > n) bit >>= 2;
    while (bit) {
        if (n >= r + bit) {
            n -= r + bit;
            r = (r >> 1) + bit;
        } else {
            r >>= 1;
        }
        bit >>= 2;
    }
    return n > r ? r + 1 : r;
}

}  // namespace kivfilter

namespace {

// Squared magnitudes here stay below 2 * 1020^2, far inside the range where the double
// square root of an integer floors exactly; the correction gives the rounded root.
inline int rounded_root_small(int n) {
    int r = static_cast<int>(std::sqrt(static_cast<double>(n)));
    return n - r * r > r ? r + 1 : r;
}

}  // namespace

int kiv::edge(tagRECT* rect, double strength) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    set_depth_24(this);
    const double s = strength >= 1.0 ? strength : 1.0;  // NaN counts as 1 too
    const int F = static_cast<int>(655360.0 / s);      // 16.16: strength 10 is a gain of 1
    const int W = m_width, H = m_height, w = a.w();
    // Pixel memory, not a vector: no zero-fill pass, and huge pages for large areas.
    struct Release {
        void operator()(tagRGBA* p) const { kivcore::free_pixels(p); }
    };
    std::unique_ptr<tagRGBA, Release> out(static_cast<tagRGBA*>(
        kivcore::alloc_pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()) * sizeof(tagRGBA))));
    if (!out) throw std::bad_alloc();
    kivcore::parallel_chunks(a.top, a.bottom, [&](int yb, int ye) {
        // Planar rows, one pixel of clamped margin each side; image row j lives in slot j % 3,
        // so each row is converted once per chunk.
        const std::size_t pw = static_cast<std::size_t>(w) + 2;
        std::vector<int> pl(9 * pw), res(3 * static_cast<std::size_t>(w));
        int held[3] = {-1, -1, -1};
        for (int y = yb; y < ye; ++y) {
            const int* rows[3];
            for (int r = 0; r < 3; ++r) {
                const int j = clamp_index(y - 1 + r, H);
                int* slot = pl.data() + static_cast<std::size_t>(3 * (j % 3)) * pw;
                if (held[j % 3] != j) {
                    const tagRGBA* src = row_ptr(this, j);
                    for (std::size_t i = 0; i < pw; ++i) {
                        const tagRGBA& p = src[clamp_index(a.left - 1 + static_cast<int>(i), W)];
                        slot[i] = p.r;
                        slot[pw + i] = p.g;
                        slot[2 * pw + i] = p.b;
                    }
                    held[j % 3] = j;
                }
                rows[r] = slot;
            }
            for (int c = 0; c < 3; ++c) {
                const int* t = rows[0] + static_cast<std::size_t>(c) * pw;
                const int* m = rows[1] + static_cast<std::size_t>(c) * pw;
                const int* b = rows[2] + static_cast<std::size_t>(c) * pw;
                int* o = res.data() + static_cast<std::size_t>(c) * w;
                for (int i = 0; i < w; ++i) {
                    const int TL = t[i], T = t[i + 1], TR = t[i + 2], L = m[i], R = m[i + 2];
                    const int BL = b[i], B = b[i + 1], BR = b[i + 2];
                    // Only four neighbours enter gx (not TR, BL): the defined look.
                    const int gx = 2 * (R - L) - TL + BR;
                    const int gy = (BL + 2 * B + BR) - (TL + 2 * T + TR);
                    const int v = (rounded_root_small(gx * gx + gy * gy) * F) >> 16;
                    o[i] = v > 255 ? 255 : v;
                }
            }
            tagRGBA* d = out.get() + static_cast<std::size_t>(y - a.top) * w;
            for (int i = 0; i < w; ++i)
                d[i] = tagRGBA{static_cast<BYTE>(res[i]), static_cast<BYTE>(res[static_cast<std::size_t>(w) + i]),
                               static_cast<BYTE>(res[2 * static_cast<std::size_t>(w) + i]), 0};
        }
    });
    setpacket(out.get(), a.left, a.top, w, a.h());
    return 1;
}
