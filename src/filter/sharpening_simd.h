// The sharpening members' vector kernels (sharpening.cpp): enhance's step written once over
// an operations set S (kivcore::Sse2 in sharpening_sse2.cpp, kivcore::Avx2 in
// sharpening_avx2.cpp), and the SSE2 row kernels of the lightness plane.
#ifndef KIV_FILTER_SHARPENING_SIMD_H
#define KIV_FILTER_SHARPENING_SIMD_H

#include "core/simd.h"

namespace kivfilter {

// One row of enhance: p1 and p2 the prefix sums (p[i]: columns before i) of the box rows'
// column sums of lightness and its square, l the row's lightness, area the box's row count
// times its width 2 radius + 1.
struct EnhanceRow {
    const long long* p1;
    const long long* p2;
    const unsigned char* l;
    double area, gain_scale;
    int radius;
};

// Pixels x0 .. x1 - 1 of the row (every box whole: x0 >= radius, x1 + radius <= width), one
// vector of doubles at a time: their lightness change is added to the colour bytes of
// out[i] (4-byte pixels). Returns the first pixel left to do. The AVX2 one only where
// kivcore::use_avx2().
int enhance_span_sse2(const EnhanceRow& row, int x0, int x1, unsigned char* out);
int enhance_span_avx2(const EnhanceRow& row, int x0, int x1, unsigned char* out);

// Lightness (max + min) / 2 of pixels 0 .. n - 1 (4 bytes each) into out; returns the first
// pixel left to do.
int lightness_sse2(const unsigned char* p, int n, unsigned char* out);
// unsharp_mask2's step: to pixel i's colour bytes (4-byte pixels at o) the change
// t[l[i] * 256 + b[i]] - l[i], clamped; returns the first pixel left to do.
int add_changes_sse2(unsigned char* o, const unsigned char* l, const unsigned char* b, int n, const unsigned char* t);

namespace {

// Box sums (below 2^52, non-negative) as doubles: the integer in a double's mantissa.
template <class S>
KIV_SIMD_INLINE typename S::D box_sums(const long long* p, int lo, int hi) {
    const auto d = S::sub64(S::load(p + hi), S::load(p + lo));
    const auto two52 = S::set_pd(4503599627370496.0);
    return S::sub_pd(S::as_pd(S::or_(d, S::as_int(two52))), two52);
}

// Each lane the scalar sequence of double operations; the ternaries' clamps as max and min,
// which pick the same operand. Io::lightness(l) reads kDoubles lightness bytes as dwords,
// Io::add_change(nl, l, out) adds nl - l to the colour bytes of kDoubles pixels, saturating.
template <class S, class Io>
int enhance_span(const EnhanceRow& e, int x0, int x1, unsigned char* out) {
    using D = typename S::D;
    constexpr int kLanes = S::kDoubles;
    const D area = S::set_pd(e.area), gs = S::set_pd(e.gain_scale), zero = S::zero_pd();
    const D one = S::set_pd(1.0), three = S::set_pd(3.0), forty = S::set_pd(40.0);
    const D half = S::set_pd(0.5), top = S::set_pd(255.0);
    const int r = e.radius;
    int i = x0;
    for (; i + kLanes <= x1; i += kLanes) {
        const D mean = S::div_pd(box_sums<S>(e.p1, i - r, i + r + 1), area);
        const D var = S::sub_pd(S::div_pd(box_sums<S>(e.p2, i - r, i + r + 1), area), S::mul_pd(mean, mean));
        const D sd = S::sqrt_pd(S::max_pd(var, zero));
        const D g = S::min_pd(S::max_pd(S::div_pd(forty, S::add_pd(sd, one)), one), three);
        const D gain = S::add_pd(one, S::mul_pd(gs, S::sub_pd(g, one)));
        const auto l32 = Io::lightness(e.l + i);
        const D v = S::add_pd(S::add_pd(mean, S::mul_pd(S::sub_pd(S::to_pd(l32), mean), gain)), half);
        Io::add_change(S::trunc_pd(S::min_pd(S::max_pd(v, zero), top)), l32, out + 4 * i);
    }
    return i;
}

}  // namespace
}  // namespace kivfilter

#endif
