// The blend kernels' vector form (blend.cpp): the opacity mix of the cheap per-channel modes,
// written once over an operations set S (kivcore::Sse2 in blend_sse2.cpp, kivcore::Avx2 in
// blend_avx2.cpp).
#ifndef KIV_FILL_BLEND_SIMD_H
#define KIV_FILL_BLEND_SIMD_H

#include <utility>

#include "core/simd.h"
#include "fill/blend.h"

namespace kivfill {

// Modes whose blend is cheap integer work the vector kernels do themselves.
constexpr bool has_vector_blend(int m) {
    return m == kNormal || m == 9 || m == kDarken || m == kLighten || m == kMultiply || m == kScreen ||
           m == kDifference || m == kAdd || m == kSubtract;
}

// Red, green and blue of pixels 0 .. n - 1 at p (4-byte pixels) become
// mix_channel(p, channel_blend<mode>(p, c), op), mode one with has_vector_blend; alpha stays.
// The colours c are c_step pixels apart (0 repeats one colour). Returns the first pixel left
// to do. The AVX2 one only where kivcore::use_avx2().
int blend_mix_sse2(int mode, unsigned char* p, const unsigned char* c, int c_step, int n, int op);
int blend_mix_avx2(int mode, unsigned char* p, const unsigned char* c, int c_step, int n, int op);

namespace {

// (t + (t >> 8)) >> 8 on 16-bit lanes, t <= 65153: the rounding of multiply and screen.
template <class S>
KIV_SIMD_INLINE typename S::V round_div255(typename S::V t) {
    return S::template shr16<8>(S::add16(t, S::template shr16<8>(t)));
}

template <class S>
KIV_SIMD_INLINE typename S::V mul_u8(typename S::V a, typename S::V b) {
    const auto zero = S::zero(), bias = S::set16(128);
    const auto lo = S::add16(S::mullo16(S::unpacklo8(a, zero), S::unpacklo8(b, zero)), bias);
    const auto hi = S::add16(S::mullo16(S::unpackhi8(a, zero), S::unpackhi8(b, zero)), bias);
    return S::packus16(round_div255<S>(lo), round_div255<S>(hi));
}

// A vector of bytes of channel_blend<M>; lanes of alpha are don't-care.
template <class S, int M>
KIV_SIMD_INLINE typename S::V blend_u8(typename S::V d, typename S::V s) {
    if constexpr (M == kDarken) {
        return S::min_u8(d, s);
    } else if constexpr (M == kLighten) {
        return S::max_u8(d, s);
    } else if constexpr (M == kMultiply) {
        return mul_u8<S>(d, s);
    } else if constexpr (M == kScreen) {
        const auto ones = S::set8(-1);
        return S::xor_(mul_u8<S>(S::xor_(d, ones), S::xor_(s, ones)), ones);
    } else if constexpr (M == kDifference) {
        return S::or_(S::subs_u8(d, s), S::subs_u8(s, d));
    } else if constexpr (M == kAdd) {
        return S::adds_u8(d, s);
    } else if constexpr (M == kSubtract) {
        return S::subs_u8(d, s);
    } else {
        return s;
    }
}

// Add and subtract read the source's blue for green: copy byte 2 of each pixel to byte 1.
template <class S>
KIV_SIMD_INLINE typename S::V blue_for_green(typename S::V s) {
    const auto g = S::set32(0x0000FF00);
    return S::or_(S::andnot(g, s), S::and_(S::template shr32<8>(s), g));
}

// The mix sums d (255 - op) + c op stay within 16 bits, so the word lanes give the scalar
// bytes.
template <class S, int M>
int blend_mix(unsigned char* p, const unsigned char* c, int c_step, int n, int op) {
    using V = typename S::V;
    constexpr int kPixels = S::kBytes / 4;
    constexpr bool blue_green = source_channel(M, 1) == 2;
    const V zero = S::zero(), one = S::set16(1);
    const long long o = op, io = 255 - op;
    const V w = S::set64(o | o << 16 | o << 32);                    // alpha weight 0
    const V iw = S::set64(io | io << 16 | io << 32 | 255LL << 48);  // so alpha stays
    V cconst = S::set32(static_cast<int>(c[0] | (c[1] << 8) | (c[2] << 16)));
    if (blue_green) cconst = blue_for_green<S>(cconst);
    int i = 0;
    for (; i + kPixels <= n; i += kPixels) {
        const V d = S::load(p + 4 * i);
        V sv = cconst;
        if (c_step) {
            sv = S::load(c + 4 * static_cast<long long>(i));
            if (blue_green) sv = blue_for_green<S>(sv);
        }
        const V cv = blend_u8<S, M>(d, sv);
        V lo = S::add16(S::mullo16(S::unpacklo8(d, zero), iw), S::mullo16(S::unpacklo8(cv, zero), w));
        V hi = S::add16(S::mullo16(S::unpackhi8(d, zero), iw), S::mullo16(S::unpackhi8(cv, zero), w));
        // x / 255 for x <= 65025 as (x + 1 + (x >> 8)) >> 8.
        lo = S::template shr16<8>(S::add16(S::add16(lo, one), S::template shr16<8>(lo)));
        hi = S::template shr16<8>(S::add16(S::add16(hi, one), S::template shr16<8>(hi)));
        S::store(p + 4 * i, S::packus16(lo, hi));
    }
    return i;
}

using MixFn = int (*)(unsigned char*, const unsigned char*, int, int, int);

// Mode M's kernel: null for modes without a vector blend; 9 acts as normal.
template <class S, int M>
constexpr MixFn mix_kernel() {
    if constexpr (M == 9)
        return &blend_mix<S, kNormal>;
    else if constexpr (has_vector_blend(M))
        return &blend_mix<S, M>;
    else
        return nullptr;
}

template <class S, int... M>
int blend_mix_of_mode(int mode, unsigned char* p, const unsigned char* c, int c_step, int n, int op,
                      std::integer_sequence<int, M...>) {
    static constexpr MixFn kMix[] = {mix_kernel<S, M>()...};
    return kMix[mode] ? kMix[mode](p, c, c_step, n, op) : 0;
}

}  // namespace

// The entry points of the kernel file that includes this header after its operations set
// (core/simd_sse2.h or core/simd_avx2.h).
#ifdef KIV_SIMD_OPS
int KIV_SIMD_KERNEL(blend_mix)(int mode, unsigned char* p, const unsigned char* c, int c_step, int n, int op) {
    return blend_mix_of_mode<KIV_SIMD_OPS>(mode, p, c, c_step, n, op,
                                           std::make_integer_sequence<int, kBlendModeCount>{});
}
#endif

}  // namespace kivfill

#endif
