// Gradient-magnitude edge detector (edge) and the rounded integer square root.
#include <cmath>
#include <algorithm>

#include "filter/filter.h"
#include "filter/kernel3x3_avx2.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

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

#if KIV_HAVE_SSE2
// Rounded square roots of 32-bit lanes 0 .. 2 * 1020^2. Below 2^24 every integer is a float
// and the float square root floors to the integer root (its distance to the next integer,
// at least 1/2900, is several float steps), whatever the rounding mode; the products and
// differences of the correction are exact too.
inline __m128i rounded_roots(__m128i n) {
    const __m128 f = _mm_cvtepi32_ps(n);
    const __m128i r = _mm_cvttps_epi32(_mm_sqrt_ps(f));
    const __m128 rf = _mm_cvtepi32_ps(r);
    return _mm_sub_epi32(r, _mm_castps_si128(_mm_cmpgt_ps(_mm_sub_ps(f, _mm_mul_ps(rf, rf)), rf)));
}

// Two pixels (eight 16-bit lanes of channels) of gradients: the gain-scaled magnitudes in
// 16-bit lanes, root * f >> 16 taken as root * (f >> 16) + (root * (f & 0xFFFF)) >> 16.
inline __m128i magnitudes(__m128i gx, __m128i gy, __m128i fh, __m128i fl) {
    const __m128i lo = _mm_unpacklo_epi16(gx, gy), hi = _mm_unpackhi_epi16(gx, gy);
    const __m128i r = _mm_packs_epi32(rounded_roots(_mm_madd_epi16(lo, lo)), rounded_roots(_mm_madd_epi16(hi, hi)));
    return _mm_add_epi16(_mm_mullo_epi16(r, fh), _mm_mulhi_epu16(r, fl));
}

// Pixels x0 .. x1 - 1, four at a time, reading columns x0 - 1 .. x1; x0 when the span is
// under four pixels.
int edge_row_sse2(const tagRGBA* const* rows, int x0, int x1, int F, tagRGBA* out) {
    if (x1 - x0 < 4) return x0;
    const __m128i fh = _mm_set1_epi16(static_cast<short>(F >> 16)), fl = _mm_set1_epi16(static_cast<short>(F & 0xFFFF));
    const __m128i z = _mm_setzero_si128(), rgb = _mm_set1_epi32(0xFFFFFF);
    auto four = [&](int x) {
        __m128i p[9], v[2];
        for (int k = 0; k < 9; ++k)
            if (k != 4) p[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k / 3] + x - 1 + k % 3));
        for (int h = 0; h < 2; ++h) {
            __m128i n[9];
            for (int k = 0; k < 9; ++k)
                if (k != 4) n[k] = h ? _mm_unpackhi_epi8(p[k], z) : _mm_unpacklo_epi8(p[k], z);
            const __m128i dx = _mm_sub_epi16(n[5], n[3]);
            const __m128i gx = _mm_add_epi16(_mm_add_epi16(dx, dx), _mm_sub_epi16(n[8], n[0]));
            const __m128i dy = _mm_sub_epi16(n[7], n[1]);
            const __m128i gy = _mm_add_epi16(_mm_add_epi16(dy, dy), _mm_add_epi16(_mm_sub_epi16(n[6], n[0]), _mm_sub_epi16(n[8], n[2])));
            v[h] = magnitudes(gx, gy, fh, fl);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm_and_si128(_mm_packus_epi16(v[0], v[1]), rgb));
    };
    int x = x0;
    for (; x + 4 <= x1; x += 4) four(x);
    if (x < x1) four(x1 - 4);  // overlaps: the same values again
    return x1;
}
#endif

}  // namespace

namespace kivfilter {

bool edge_vector_roots(bool avx2, const int* n, int count, int* root) {
#if KIV_HAVE_AVX2
    if (avx2) {
        if (!kivcore::use_avx2()) return false;
        edge_roots_avx2(n, count, root);
        return true;
    }
#endif
#if KIV_HAVE_SSE2
    if (avx2) return false;
    int i = 0;
    for (; i + 4 <= count; i += 4)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(root + i),
                         rounded_roots(_mm_loadu_si128(reinterpret_cast<const __m128i*>(n + i))));
    if (i < count) {  // the tail through a padded copy, so every root comes from the vector code
        int pad[4] = {}, out[4];
        for (int k = i; k < count; ++k) pad[k - i] = n[k];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), rounded_roots(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pad))));
        for (int k = i; k < count; ++k) root[k] = out[k - i];
    }
    return true;
#else
    (void)avx2, (void)n, (void)count, (void)root;
    return false;
#endif
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
    run_clamped_3x3(
        this, a,
        [&](const tagRGBA* const* rows, int x0, int x1, tagRGBA* out) {
#if KIV_HAVE_AVX2
            if (kivcore::use_avx2())
                return edge_row_avx2(reinterpret_cast<const unsigned char* const*>(rows), x0, x1, F,
                                     reinterpret_cast<unsigned char*>(out));
#endif
#if KIV_HAVE_SSE2
            return edge_row_sse2(rows, x0, x1, F, out);
#else
            (void)rows, (void)x1, (void)out;
            return x0;
#endif
        },
        [&](const tagRGBA* const* rows, int xl, int x, int xr) { return edge_pixel(rows, xl, x, xr, F); });
    return 1;
}
