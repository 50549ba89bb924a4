// edge's vector kernels (edge.cpp), written once over an operations set S (kivcore::Sse2 in
// edge_sse2.cpp, kivcore::Avx2 in edge_avx2.cpp).
#ifndef KIV_FILTER_EDGE_SIMD_H
#define KIV_FILTER_EDGE_SIMD_H

#include "core/simd.h"

namespace kivfilter {

// Pixels x0 .. x1 - 1 of out from rows[0..2] (4-byte pixels; the rows above, at and below),
// reading columns x0 - 1 .. x1, with the 16.16 gain f (0 .. 655360); alpha 0. Returns x1, or
// x0 for a span shorter than one vector. The AVX2 one only where kivcore::use_avx2().
int edge_row_sse2(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out);
int edge_row_avx2(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out);

// The rounded square roots of n[0 .. count - 1] (each 0 .. 2 * 1020^2) as the row kernels
// take them, for the tests.
void edge_roots_sse2(const int* n, int count, int* root);
void edge_roots_avx2(const int* n, int count, int* root);

// The arithmetic, in an unnamed namespace: each kernel file compiles its own copy for its
// own instruction set, and the compiler inlines it freely.
namespace {

// Rounded square roots of 32-bit lanes 0 .. 2 * 1020^2. Below 2^24 every integer is a float
// and the float square root floors to the integer root (its distance to the next integer,
// at least 1/2900, is several float steps), whatever the rounding mode; the products and
// differences of the correction are exact too.
template <class S>
KIV_SIMD_INLINE typename S::V rounded_roots(typename S::V n) {
    const auto f = S::to_ps(n);
    const auto r = S::trunc_ps(S::sqrt_ps(f));
    const auto rf = S::to_ps(r);
    return S::sub32(r, S::gt_ps(S::sub_ps(f, S::mul_ps(rf, rf)), rf));
}

// The gain-scaled magnitudes of gradients in 16-bit lanes, root * f >> 16 taken as
// root * (f >> 16) + (root * (f & 0xFFFF)) >> 16.
template <class S>
KIV_SIMD_INLINE typename S::V magnitudes(typename S::V gx, typename S::V gy, typename S::V fh, typename S::V fl) {
    const auto lo = S::unpacklo16(gx, gy), hi = S::unpackhi16(gx, gy);
    const auto r = S::packs32(rounded_roots<S>(S::madd16(lo, lo)), rounded_roots<S>(S::madd16(hi, hi)));
    return S::add16(S::mullo16(r, fh), S::mulhi_u16(r, fl));
}

// One vector of pixels from x on. Only four neighbours enter gx (not TR, BL): the defined
// look.
template <class S>
KIV_SIMD_INLINE void edge_pixels(const unsigned char* const* rows, int x, typename S::V fh, typename S::V fl,
                                 unsigned char* out) {
    using V = typename S::V;
    const V z = S::zero();
    V p[9], v[2];
    for (int k = 0; k < 9; ++k)
        if (k != 4) p[k] = S::load(rows[k / 3] + 4 * (x - 1 + k % 3));
    for (int h = 0; h < 2; ++h) {
        V n[9];
        for (int k = 0; k < 9; ++k)
            if (k != 4) n[k] = h ? S::unpackhi8(p[k], z) : S::unpacklo8(p[k], z);
        const V dx = S::sub16(n[5], n[3]);
        const V gx = S::add16(S::add16(dx, dx), S::sub16(n[8], n[0]));
        const V dy = S::sub16(n[7], n[1]);
        const V gy = S::add16(S::add16(dy, dy), S::add16(S::sub16(n[6], n[0]), S::sub16(n[8], n[2])));
        v[h] = magnitudes<S>(gx, gy, fh, fl);
    }
    S::store(out + 4 * x, S::and_(S::packus16(v[0], v[1]), S::set32(0xFFFFFF)));
}

template <class S>
int edge_row(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out) {
    constexpr int kPixels = S::kBytes / 4;
    if (x1 - x0 < kPixels) return x0;
    const auto fh = S::set16(f >> 16), fl = S::set16(f & 0xFFFF);
    kivcore::steps_then_tail<kPixels>(x0, x1, [&](int x) { edge_pixels<S>(rows, x, fh, fl, out); });
    return x1;
}

template <class S>
void edge_roots(const int* n, int count, int* root) {
    constexpr int kLanes = S::kBytes / 4;
    int i = 0;
    for (; i + kLanes <= count; i += kLanes) S::store(root + i, rounded_roots<S>(S::load(n + i)));
    // The tail through a padded copy, so every root comes from the vector code.
    if (i < count) {
        int pad[kLanes] = {}, out[kLanes];
        for (int k = i; k < count; ++k) pad[k - i] = n[k];
        S::store(out, rounded_roots<S>(S::load(pad)));
        for (int k = i; k < count; ++k) root[k] = out[k - i];
    }
}

}  // namespace

// The entry points of the kernel file that includes this header after its operations set
// (core/simd_sse2.h or core/simd_avx2.h).
#ifdef KIV_SIMD_OPS
int KIV_SIMD_KERNEL(edge_row)(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out) {
    return edge_row<KIV_SIMD_OPS>(rows, x0, x1, f, out);
}
void KIV_SIMD_KERNEL(edge_roots)(const int* n, int count, int* root) { edge_roots<KIV_SIMD_OPS>(n, count, root); }
#endif

}  // namespace kivfilter

#endif
