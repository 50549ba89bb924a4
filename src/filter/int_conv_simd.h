// The integer convolution's vector kernels (int_conv.cpp), written once over an operations
// set S (kivcore::Sse2 in int_conv_sse2.cpp, kivcore::Avx2 in int_conv_avx2.cpp): one
// vector width of output bytes an iteration.
#ifndef KIV_FILTER_INT_CONV_SIMD_H
#define KIV_FILTER_INT_CONV_SIMD_H

#include <cstddef>
#include <cstdint>

#include "core/simd.h"
#include "filter/int_conv.h"

namespace kivfilter {

// pair_conv_vector and pair_conv16_vector for each set (the AVX2 ones only where
// kivcore::use_avx2()).
void pair_conv_sse2(const PairConv& p);
void pair_conv_avx2(const PairConv& p);
void pair_conv16_sse2(const PairConv& p);
void pair_conv16_avx2(const PairConv& p);

namespace {

template <class S>
struct PairOps {
    using V = typename S::V;

    // floor(s / total) for 0 <= s <= 255 * total, as trunc((s + 0.5) * (1 / total)). s + 0.5
    // is exact in either format, and s / total lies at least 0.5 / total from an integer. The
    // two roundings (of 1 / total and of the product) move the quotient, which is below 256,
    // by less than 256 * 2^-22 in float with any rounding mode: below 0.5 / total when
    // total <= 8192 (single). Doubles leave a margin of 2^29 for any total.
    bool single;
    typename S::F inv;
    typename S::D invd;
    const PairConv& p;

    static V zero() { return S::zero(); }

    // The bytes at a and at b, interleaved and widened to four vectors of 16-bit pairs
    // (a[x], b[x]); the lanes come out in the order that the packs of finish restore.
    static KIV_SIMD_INLINE void widen(const unsigned char* a, const unsigned char* b, V* v) {
        const V va = S::load(a), vb = S::load(b), z = S::zero();
        const V lo = S::unpacklo8(va, vb), hi = S::unpackhi8(va, vb);
        v[0] = S::unpacklo8(lo, z);
        v[1] = S::unpackhi8(lo, z);
        v[2] = S::unpacklo8(hi, z);
        v[3] = S::unpackhi8(hi, z);
    }

    // acc += the pairs times w's two weights, one multiply-add a vector.
    static KIV_SIMD_INLINE void mac(V* acc, const V* v, std::int32_t w) {
        const V wv = S::set32(w);
        for (int k = 0; k < 4; ++k) acc[k] = S::add32(acc[k], S::madd16(v[k], wv));
    }

    KIV_SIMD_INLINE V divide(V s) const {
        if (single) return S::trunc_ps(S::mul_ps(S::add_ps(S::to_ps(s), S::set_ps(0.5f)), inv));
        const auto half = S::set_pd(0.5);
        const auto lo = S::trunc_pd(S::mul_pd(S::add_pd(S::to_pd(S::lo_half(s)), half), invd));
        const auto hi = S::trunc_pd(S::mul_pd(S::add_pd(S::to_pd(S::hi_half(s)), half), invd));
        return S::join(lo, hi);
    }

    // The quotients of acc stored at dst in memory order, merged with the kept bytes of c.
    // c is read (and offset) only when bytes are kept: without them it may be null.
    KIV_SIMD_INLINE void finish(const V* acc, const unsigned char* c, unsigned char* dst, std::ptrdiff_t off) const {
        V q = S::packus16(S::packs32(divide(acc[0]), divide(acc[1])), S::packs32(divide(acc[2]), divide(acc[3])));
        if (p.take != 0xFFFFFFFFu) q = S::and_(q, S::set32(static_cast<int>(p.take)));
        if (p.keep) q = S::or_(q, S::and_(S::load(c + off), S::set32(static_cast<int>(p.keep))));
        S::store(dst + off, q);
    }
};

// The 32-bit pair kernels' loop.
template <class S>
void pair_conv(const PairConv& p) {
    using V = typename S::V;
    const PairOps<S> ops{p.total <= 8192, S::set_ps(1.0f / static_cast<float>(p.total)),
                         S::set_pd(1.0 / static_cast<double>(p.total)), p};
    const int both0 = p.s1 < p.e0 ? p.s1 : p.e0, both1 = p.e0 > p.s1 ? p.e0 : p.s1;
    for (int it = 0; it < p.n; ++it) {
        const std::ptrdiff_t off = it * p.step;
        V acc0[4], acc1[4], v[4];
        for (int k = 0; k < 4; ++k) acc0[k] = acc1[k] = ops.zero();
        if (!p.w1) {
            for (int m = 0; m < p.e0; ++m) {
                ops.widen(p.a[m] + off, p.b[m] + off, v);
                ops.mac(acc0, v, p.w0[m]);
            }
            ops.finish(acc0, p.c0, p.d0, off);
            continue;
        }
        // Both outputs from the same widened pairs: the unpacking is shared.
        int m = 0;
        for (; m < both0; ++m) {
            ops.widen(p.a[m] + off, p.b[m] + off, v);
            ops.mac(acc0, v, p.w0[m]);
        }
        for (; m < p.e0; ++m) {
            ops.widen(p.a[m] + off, p.b[m] + off, v);
            ops.mac(acc0, v, p.w0[m]);
            ops.mac(acc1, v, p.w1[m]);
        }
        for (m = both1; m < p.e1; ++m) {
            ops.widen(p.a[m] + off, p.b[m] + off, v);
            ops.mac(acc1, v, p.w1[m]);
        }
        ops.finish(acc0, p.c0, p.d0, off);
        ops.finish(acc1, p.c1, p.d1, off);
    }
}

// 16-bit sums of byte weights. The quotient: q0 = (s * floor(2^16 / total)) >> 16 lies in
// [q - 1, q] for s < 2^16, as the multiplier is at most 2^16 / total and short of it by less
// than 1; one comparison of the remainder corrects it.
template <class S>
KIV_SIMD_INLINE typename S::V divide16(typename S::V s, typename S::V m, typename S::V t, typename S::V tm1) {
    const auto q = S::mulhi_u16(s, m);
    const auto r = S::sub16(s, S::mullo16(q, t));
    return S::sub16(q, S::cmpgt16(r, tm1));
}

template <class S>
void pair_conv16(const PairConv& p) {
    using V = typename S::V;
    const V t = S::set16(p.total), tm1 = S::set16(p.total - 1);
    const V m = S::set16(static_cast<unsigned short>(65536 / p.total)), take = S::set32(static_cast<int>(p.take));
    for (int it = 0; it < p.n; ++it) {
        const std::ptrdiff_t off = it * p.step;
        V lo = S::zero(), hi = S::zero();
        for (int k = 0; k < p.e0; ++k) {
            const V va = S::load(p.a[k] + off), vb = S::load(p.b[k] + off);
            if constexpr (requires(V x) { S::maddubs16(x, x); }) {
                // The interleaved samples times the byte weights, each pair added (at most
                // 128 * 255: no saturation).
                const V wv = S::set16(static_cast<short>(p.w0[k]));
                lo = S::add16(lo, S::maddubs16(S::unpacklo8(va, vb), wv));
                hi = S::add16(hi, S::maddubs16(S::unpackhi8(va, vb), wv));
            } else {
                // No byte multiply: samples widened, then multiplied as words.
                const V wa = S::set16(p.w0[k] & 0xFF), wb = S::set16((p.w0[k] >> 8) & 0xFF), z = S::zero();
                lo = S::add16(lo, S::add16(S::mullo16(S::unpacklo8(va, z), wa), S::mullo16(S::unpacklo8(vb, z), wb)));
                hi = S::add16(hi, S::add16(S::mullo16(S::unpackhi8(va, z), wa), S::mullo16(S::unpackhi8(vb, z), wb)));
            }
        }
        const V q = S::packus16(divide16<S>(lo, m, t, tm1), divide16<S>(hi, m, t, tm1));
        S::store(p.d0 + off, S::and_(q, take));
    }
}

}  // namespace

// The entry points of the kernel file that includes this header after its operations set
// (core/simd_sse2.h or core/simd_avx2.h).
#ifdef KIV_SIMD_OPS
void KIV_SIMD_KERNEL(pair_conv)(const PairConv& p) { pair_conv<KIV_SIMD_OPS>(p); }
void KIV_SIMD_KERNEL(pair_conv16)(const PairConv& p) { pair_conv16<KIV_SIMD_OPS>(p); }
#endif

}  // namespace kivfilter

#endif
