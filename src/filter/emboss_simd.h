// emboss's vector kernels (emboss.cpp), written once over an operations set S
// (kivcore::Sse2 in emboss_sse2.cpp, kivcore::Avx2 in emboss_avx2.cpp).
#ifndef KIV_FILTER_EMBOSS_SIMD_H
#define KIV_FILTER_EMBOSS_SIMD_H

#include "core/relief_light.h"
#include "core/simd.h"

namespace kivfilter {

// Pixels x0 .. x1 - 1 of out from the red heights of rows[0..2] (4-byte pixels; the rows
// above, at and below), reading columns x0 - 1 .. x1: grey shades when mono, else the
// colours of the pixel above scaled by shade / 256; alpha 0. Returns x1, or x0 for a span
// shorter than one vector. The AVX2 one only where kivcore::use_avx2().
int emboss_row_sse2(const unsigned char* const* rows, int x0, int x1, const kivcore::ReliefLight& light, int mono,
                    unsigned char* out);
int emboss_row_avx2(const unsigned char* const* rows, int x0, int x1, const kivcore::ReliefLight& light, int mono,
                    unsigned char* out);

// The arithmetic, in an unnamed namespace: each kernel file compiles its own copy for its
// own instruction set, and the compiler inlines it freely.
namespace {

// Shades of the dwords nx, ny of one double vector: the scalar double sequence lane by lane,
// the square root and the division exact in vector form too (ReliefLight::shade), before
// the clamp.
template <class S>
KIV_SIMD_INLINE typename S::H emboss_shades(typename S::H nx, typename S::H ny, const kivcore::ReliefLight& L) {
    const auto x = S::to_pd(nx), y = S::to_pd(ny);
    const auto t =
        S::add_pd(S::add_pd(S::mul_pd(x, S::set_pd(L.lx)), S::mul_pd(y, S::set_pd(L.ly))), S::set_pd(L.nzlz));
    const auto d = S::to_pd(S::trunc_pd(t));
    const auto q = S::add_pd(S::add_pd(S::mul_pd(x, x), S::mul_pd(y, y)), S::set_pd(L.nz2));
    return S::trunc_pd(S::div_pd(d, S::sqrt_pd(q)));
}

// One vector of pixels from x on.
template <class S>
KIV_SIMD_INLINE void emboss_pixels(const unsigned char* const* rows, int x, const kivcore::ReliefLight& L, int mono,
                                   unsigned char* out) {
    using V = typename S::V;
    const V red = S::set32(0xFF), z = S::zero();
    V h[9];
    for (int k = 0; k < 9; ++k)
        if (k != 4) h[k] = S::and_(S::load(rows[k / 3] + 4 * (x - 1 + k % 3)), red);
    const V nx = S::sub32(S::add32(S::add32(h[0], h[3]), h[6]), S::add32(S::add32(h[2], h[5]), h[8]));
    const V ny = S::sub32(S::add32(S::add32(h[6], h[7]), h[8]), S::add32(S::add32(h[0], h[1]), h[2]));
    V s = S::join(emboss_shades<S>(S::lo_half(nx), S::lo_half(ny), L),
                  emboss_shades<S>(S::hi_half(nx), S::hi_half(ny), L));
    // 0 .. 255, then the flat shade where Nx = Ny = 0; shade of pixel i in dword i.
    s = S::choose(S::cmpeq32(S::or_(nx, ny), z), S::set32(L.flat), S::clamp_0_255_32(s));
    V v;
    if (mono) {
        v = S::or_(S::or_(s, S::template shl32<8>(s)), S::template shl32<16>(s));
    } else {
        // The pixel above lends the colour: a one-row offset that is part of the look.
        const V above = S::load(rows[0] + 4 * x);
        const V m = S::or_(s, S::template shl32<16>(s));
        const V lo = S::template shr16<8>(S::mullo16(S::unpacklo8(above, z), S::unpacklo32(m, m)));
        const V hi = S::template shr16<8>(S::mullo16(S::unpackhi8(above, z), S::unpackhi32(m, m)));
        v = S::and_(S::packus16(lo, hi), S::set32(0xFFFFFF));
    }
    S::store(out + 4 * x, v);
}

template <class S>
int emboss_row(const unsigned char* const* rows, int x0, int x1, const kivcore::ReliefLight& light, int mono,
               unsigned char* out) {
    constexpr int kPixels = S::kBytes / 4;
    if (x1 - x0 < kPixels) return x0;
    const kivcore::ReliefLight L = light;
    kivcore::steps_then_tail<kPixels>(x0, x1, [&](int x) { emboss_pixels<S>(rows, x, L, mono, out); });
    return x1;
}

}  // namespace

// The entry points of the kernel file that includes this header after its operations set
// (core/simd_sse2.h or core/simd_avx2.h).
#ifdef KIV_SIMD_OPS
int KIV_SIMD_KERNEL(emboss_row)(const unsigned char* const* rows, int x0, int x1, const kivcore::ReliefLight& light,
                                int mono, unsigned char* out) {
    return emboss_row<KIV_SIMD_OPS>(rows, x0, x1, light, mono, out);
}
#endif

}  // namespace kivfilter

#endif
