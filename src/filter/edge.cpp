// Gradient-magnitude edge detector (edge) and the rounded integer square root.
#include <algorithm>
#include <cmath>

#include "core/simd.h"
#include "filter/edge_simd.h"
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

// One pixel from columns xl, x and xr of the three rows; alpha 0.
tagRGBA edge_pixel(const tagRGBA* const* rows, int xl, int x, int xr, int F) {
    tagRGBA o{0, 0, 0, 0};
    for (int c = 0; c < 3; ++c) {
        auto at = [&](int r, int i) { return static_cast<int>(reinterpret_cast<const unsigned char*>(rows[r] + i)[c]); };
        const int TL = at(0, xl), T = at(0, x), TR = at(0, xr), L = at(1, xl), R = at(1, xr);
        const int BL = at(2, xl), B = at(2, x), BR = at(2, xr);
        // Only four neighbours enter gx (not TR, BL): the defined look.
        const int gx = 2 * (R - L) - TL + BR;
        const int gy = (BL + 2 * B + BR) - (TL + 2 * T + TR);
        const int v = (rounded_root_small(gx * gx + gy * gy) * F) >> 16;
        reinterpret_cast<unsigned char*>(&o)[c] = static_cast<unsigned char>(v > 255 ? 255 : v);
    }
    return o;
}

}  // namespace

namespace kivfilter {

bool edge_vector_roots(bool avx2, const int* n, int count, int* root) {
    const auto roots = avx2 ? kivcore::pick_avx2(KIV_AVX2_KERNEL(edge_roots_avx2)) : KIV_SSE2_KERNEL(edge_roots_sse2);
    if (!roots) return false;
    roots(n, count, root);
    return true;
}

}  // namespace kivfilter

int kiv::edge(tagRECT* rect, double strength) {
    using namespace kivfilter;
    Area a;
    if (!clip_rect(*this, rect, &a)) return 0;
    set_depth_24(this);
    const double s = strength >= 1.0 ? strength : 1.0;  // NaN counts as 1 too
    const int F = static_cast<int>(655360.0 / s);      // 16.16: strength 10 is a gain of 1
    // Neighbours outside the rectangle come from the image; outside the image, from its edge.
    const auto row = kivcore::pick(KIV_AVX2_KERNEL(edge_row_avx2), KIV_SSE2_KERNEL(edge_row_sse2));
    run_clamped_3x3(
        this, a,
        [&](const tagRGBA* const* rows, int x0, int x1, tagRGBA* out) {
            return row ? row(bytes(rows), x0, x1, F, bytes(out)) : x0;
        },
        [&](const tagRGBA* const* rows, int xl, int x, int xr) { return edge_pixel(rows, xl, x, xr, F); });
    return 1;
}
