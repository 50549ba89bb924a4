// The vector kernels of the 3x3 filters (kernel3x3.cpp): filter_3x3's modes and the
// weighted sums of filter_custom3x3 and sharpen2, written once over an operations set S
// (kivcore::Sse2 in kernel3x3_sse2.cpp, kivcore::Avx2 in kernel3x3_avx2.cpp). Pixels are
// 4-byte values as they lie: byte modes work on the bytes, the others on 16-bit lanes, where
// every sum is exact.
#ifndef KIV_FILTER_KERNEL3X3_SIMD_H
#define KIV_FILTER_KERNEL3X3_SIMD_H

#include "core/simd.h"

namespace kivfilter {

// A 3x3 weighted sum per channel taken to a byte: clamp(c + trunc(float(S) * mul / div)),
// S the sum of w[k] times neighbour k (row-major), c the centre value when add_centre, else
// 0. Exact whenever |S * mul| < 2^24 and div is an integer in 1 .. 2^24 - 1: the float
// quotient of two exact integers then lies closer to the true one than 1 / div, so it
// truncates alike.
struct Weighted3x3 {
    short w[9];
    int add_centre;
    float mul, div;
};

// The row kernels on 4-byte pixels. Each fills pixels x0 .. x1 - 1 of out from rows[0..2]
// (the rows above, at and below), reading columns x0 - 1 .. x1 of them, and returns x1; a
// span shorter than one vector is left alone and x0 returned. Alpha comes from the middle
// row. The AVX2 ones only where kivcore::use_avx2().
//   k3_row: modes 0, 1 and 3 to 15 of filter_3x3 (any other mode: x0).
//   weighted_row: a Weighted3x3.
int k3_row_sse2(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out);
int k3_row_avx2(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out);
int weighted_row_sse2(const unsigned char* const* rows, int x0, int x1, const Weighted3x3& k, unsigned char* out);
int weighted_row_avx2(const unsigned char* const* rows, int x0, int x1, const Weighted3x3& k, unsigned char* out);

// The arithmetic, in an unnamed namespace: each kernel file compiles its own copy for its
// own instruction set, and the compiler inlines it freely.
namespace {

template <class S>
struct Modes {
    using V = typename S::V;

    // (x * m) >> (16 + s) is x / d for every x in 0 .. max when m d = 2^(16 + s) + e with
    // 0 <= e and max e < 2^(16 + s): x m / 2^(16 + s) then exceeds x / d by less than 1 / d,
    // too little to reach the next integer. The divisions below are exact over the sums that
    // reach them.
    static constexpr bool exact_division(unsigned d, unsigned m, unsigned s, unsigned max) {
        const unsigned long long k = 1ull << (16 + s), md = static_cast<unsigned long long>(m) * d;
        return m < 65536 && md >= k && max * (md - k) < k;
    }
    static_assert(exact_division(9, 7282, 0, 9 * 255));
    static_assert(exact_division(10, 6554, 0, 18 * 255));
    static_assert(exact_division(5, 13108, 0, 13 * 255));
    static_assert(exact_division(100, 5243, 3, 100 * 255));

    static V k16(int v) { return S::set16(v); }
    static V div9(V x) { return S::mulhi_u16(x, k16(7282)); }
    static V div10(V x) { return S::mulhi_u16(x, k16(6554)); }
    static V div5(V x) { return S::mulhi_u16(x, k16(13108)); }
    static V div100(V x) { return S::template shr16<3>(S::mulhi_u16(x, k16(5243))); }

    static V med3(V a, V b, V c) { return S::max_u8(S::min_u8(a, b), S::min_u8(S::max_u8(a, b), c)); }

    // Modes on bytes; p[k] is neighbour k (row-major, top-left first).
    template <unsigned Mode>
    static V bytes(const V* p) {
        if constexpr (Mode == 1) {
            // Each column sorted, then the median of nine is the median of the largest
            // minimum, the median of the medians and the smallest maximum.
            V lo[3], mid[3], hi[3];
            for (int d = 0; d < 3; ++d) {
                const V a = S::min_u8(p[d], p[3 + d]), b = S::max_u8(p[d], p[3 + d]);
                const V t = S::max_u8(a, p[6 + d]);
                lo[d] = S::min_u8(a, p[6 + d]);
                mid[d] = S::min_u8(b, t);
                hi[d] = S::max_u8(b, t);
            }
            const V mx = S::max_u8(S::max_u8(lo[0], lo[1]), lo[2]);
            const V mn = S::min_u8(S::min_u8(hi[0], hi[1]), hi[2]);
            return med3(mx, med3(mid[0], mid[1], mid[2]), mn);
        } else if constexpr (Mode == 5) {
            return S::add8(S::sub8(p[8], p[0]), S::set8(static_cast<char>(0x80)));
        } else {
            V v = p[0];
            for (int k = 1; k < 9; ++k) v = Mode == 7 ? S::max_u8(v, p[k]) : S::min_u8(v, p[k]);
            return v;
        }
    }

    static V sum9(const V* n) {
        V s = n[0];
        for (int k = 1; k < 9; ++k) s = S::add16(s, n[k]);
        return s;
    }

    // The plain sharpening, clamped: (18 centre - the other eight) / 10.
    static V sharp(const V* n, V s9) {
        const V x = S::max16(S::sub16(S::mullo16(n[4], k16(19)), s9), S::zero());
        return S::min16(div10(x), k16(255));
    }

    static V is(V d, int v) { return S::cmpeq16(d, k16(v)); }

    // The blur of mode 4: (8 corners + 12 sides + 20 centre) / 100.
    static V soft(V corners, V sides, V c) {
        const V weighted = S::add16(S::template shl16<3>(corners), S::mullo16(sides, k16(12)));
        return div100(S::add16(weighted, S::mullo16(c, k16(20))));
    }

    // Modes on 16-bit lanes; the result is clamped to 0 .. 255 by the pack that follows.
    template <unsigned Mode>
    static V words(const V* n) {
        const V c = n[4];
        auto corners = [&] { return S::add16(S::add16(n[0], n[2]), S::add16(n[6], n[8])); };
        auto sides = [&] { return S::add16(S::add16(n[1], n[3]), S::add16(n[5], n[7])); };
        if constexpr (Mode == 0) {
            return div9(sum9(n));
        } else if constexpr (Mode == 3) {
            return sharp(n, sum9(n));
        } else if constexpr (Mode == 4) {
            return soft(corners(), sides(), c);
        } else if constexpr (Mode == 6) {
            const V x = S::sub16(S::mullo16(c, k16(14)), sum9(n));
            return div5(S::max16(x, S::zero()));
        } else if constexpr (Mode == 9) {
            return S::sub16(S::mullo16(c, k16(5)), sides());
        } else if constexpr (Mode == 10) {
            return S::sub16(S::mullo16(c, k16(10)), sum9(n));
        } else if constexpr (Mode == 11) {
            return S::sub16(sum9(n), S::mullo16(c, k16(9)));
        } else if constexpr (Mode == 12 || Mode == 13) {
            // 12: left column minus right column; 13: top row minus bottom row, middles doubled.
            const int a0 = 0, a1 = Mode == 12 ? 3 : 1, a2 = Mode == 12 ? 6 : 2;
            const int b0 = Mode == 12 ? 2 : 6, b1 = Mode == 12 ? 5 : 7, b2 = 8;
            const V a = S::add16(S::add16(n[a0], n[a2]), S::add16(n[a1], n[a1]));
            const V b = S::add16(S::add16(n[b0], n[b2]), S::add16(n[b1], n[b1]));
            return S::sub16(a, b);
        } else if constexpr (Mode == 14) {
            const V sh = sharp(n, sum9(n));
            const V d = S::absdiff16(c, sh);
            const V c4 = S::template shl16<2>(c), s4 = S::template shl16<2>(sh);
            V r = sh;
            r = S::choose(is(d, 11), div10(S::template shl16<1>(S::add16(c, s4))), r);
            r = S::choose(is(d, 10), div10(S::add16(S::mullo16(sh, k16(6)), c4)), r);
            r = S::choose(is(d, 9), div10(S::add16(s4, S::mullo16(c, k16(6)))), r);
            r = S::choose(is(d, 8), div10(S::template shl16<1>(S::add16(sh, c4))), r);
            return S::choose(S::cmplt16(d, k16(8)), c, r);
        } else {
            static_assert(Mode == 15);
            const V cs = corners(), sd = sides();
            const V bl = soft(cs, sd, c);
            const V sh = sharp(n, S::add16(S::add16(cs, sd), c));
            const V d = S::absdiff16(c, sh);
            const V c4 = S::template shl16<2>(c), b4 = S::template shl16<2>(bl);
            V r = c;
            r = S::choose(is(d, 8), div10(S::template shl16<1>(S::add16(bl, c4))), r);
            r = S::choose(is(d, 7), div10(S::add16(b4, S::mullo16(c, k16(6)))), r);
            r = S::choose(is(d, 6), div10(S::add16(S::mullo16(bl, k16(6)), c4)), r);
            r = S::choose(is(d, 5), div10(S::template shl16<1>(S::add16(c, b4))), r);
            return S::choose(S::cmplt16(d, k16(5)), bl, r);
        }
    }
};

// kPixels output pixels from x on.
template <class S, unsigned Mode>
KIV_SIMD_INLINE void k3_pixels(const unsigned char* const* rows, int x, unsigned char* out) {
    using V = typename S::V;
    using M = Modes<S>;
    V p[9];
    for (int k = 0; k < 9; ++k) p[k] = S::load(rows[k / 3] + 4 * (x - 1 + k % 3));
    V v;
    if constexpr (Mode == 1 || Mode == 5 || Mode == 7 || Mode == 8) {
        v = M::template bytes<Mode>(p);
    } else {
        const V z = S::zero();
        V lo[9], hi[9];
        for (int k = 0; k < 9; ++k) {
            lo[k] = S::unpacklo8(p[k], z);
            hi[k] = S::unpackhi8(p[k], z);
        }
        v = S::packus16(M::template words<Mode>(lo), M::template words<Mode>(hi));
    }
    v = S::choose(S::set32(static_cast<int>(0xFF000000u)), p[4], v);
    S::store(out + 4 * x, v);
}

template <class S, unsigned Mode>
int k3_row(const unsigned char* const* rows, int x0, int x1, unsigned char* out) {
    constexpr int kPixels = S::kBytes / 4;
    if (x1 - x0 < kPixels) return x0;
    kivcore::steps_to_end<kPixels>(x0, x1, [&](int x) { k3_pixels<S, Mode>(rows, x, out); });
    return x1;
}

template <class S>
int k3_row_of_mode(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out) {
    switch (mode) {
        case 0:
            return k3_row<S, 0>(rows, x0, x1, out);
        case 1:
            return k3_row<S, 1>(rows, x0, x1, out);
        case 3:
            return k3_row<S, 3>(rows, x0, x1, out);
        case 4:
            return k3_row<S, 4>(rows, x0, x1, out);
        case 5:
            return k3_row<S, 5>(rows, x0, x1, out);
        case 6:
            return k3_row<S, 6>(rows, x0, x1, out);
        case 7:
            return k3_row<S, 7>(rows, x0, x1, out);
        case 8:
            return k3_row<S, 8>(rows, x0, x1, out);
        case 9:
            return k3_row<S, 9>(rows, x0, x1, out);
        case 10:
            return k3_row<S, 10>(rows, x0, x1, out);
        case 11:
            return k3_row<S, 11>(rows, x0, x1, out);
        case 12:
            return k3_row<S, 12>(rows, x0, x1, out);
        case 13:
            return k3_row<S, 13>(rows, x0, x1, out);
        case 14:
            return k3_row<S, 14>(rows, x0, x1, out);
        case 15:
            return k3_row<S, 15>(rows, x0, x1, out);
        default:
            return x0;
    }
}

// kPixels Weighted3x3 pixels from x on: neighbour pairs interleaved in 16-bit lanes, so one
// multiply-add gives two terms of a pixel's four channel sums.
template <class S>
void weighted_pixels(const unsigned char* const* rows, int x, const Weighted3x3& k, const typename S::V* wp,
                     unsigned char* out) {
    using V = typename S::V;
    const V z = S::zero();
    V p[9];
    for (int q = 0; q < 9; ++q) p[q] = S::load(rows[q / 3] + 4 * (x - 1 + q % 3));
    V res[4];
    for (int h = 0; h < 2; ++h) {
        V n[10];
        for (int q = 0; q < 9; ++q) n[q] = h ? S::unpackhi8(p[q], z) : S::unpacklo8(p[q], z);
        n[9] = z;
        for (int e = 0; e < 2; ++e) {  // the half's first and second pixel
            V s = z;
            for (int j = 0; j < 5; ++j) {
                const V pair = e ? S::unpackhi16(n[2 * j], n[2 * j + 1]) : S::unpacklo16(n[2 * j], n[2 * j + 1]);
                s = S::add32(s, S::madd16(pair, wp[j]));
            }
            auto f = S::to_ps(s);
            if (k.mul != 1.0f) f = S::mul_ps(f, S::set_ps(k.mul));
            V t = S::trunc_ps(S::div_ps(f, S::set_ps(k.div)));
            if (k.add_centre) t = S::add32(t, e ? S::unpackhi16(n[4], z) : S::unpacklo16(n[4], z));
            res[2 * h + e] = t;
        }
    }
    V v = S::packus16(S::packs32(res[0], res[1]), S::packs32(res[2], res[3]));
    v = S::choose(S::set32(static_cast<int>(0xFF000000u)), p[4], v);
    S::store(out + 4 * x, v);
}

template <class S>
int weighted_row(const unsigned char* const* rows, int x0, int x1, const Weighted3x3& kp, unsigned char* out) {
    constexpr int kPixels = S::kBytes / 4;
    if (x1 - x0 < kPixels) return x0;
    const Weighted3x3 k = kp;
    typename S::V wp[5];
    for (int j = 0; j < 5; ++j) {
        const unsigned lo = static_cast<unsigned short>(k.w[2 * j]),
                       hi = j < 4 ? static_cast<unsigned short>(k.w[2 * j + 1]) : 0u;
        wp[j] = S::set32(static_cast<int>(lo | hi << 16));
    }
    kivcore::steps_to_end<kPixels>(x0, x1, [&](int x) { weighted_pixels<S>(rows, x, k, wp, out); });
    return x1;
}

}  // namespace

// The entry points of the kernel file that includes this header after its operations set
// (core/simd_sse2.h or core/simd_avx2.h).
#ifdef KIV_SIMD_OPS
int KIV_SIMD_KERNEL(k3_row)(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out) {
    return k3_row_of_mode<KIV_SIMD_OPS>(mode, rows, x0, x1, out);
}
int KIV_SIMD_KERNEL(weighted_row)(const unsigned char* const* rows, int x0, int x1, const Weighted3x3& k,
                                  unsigned char* out) {
    return weighted_row<KIV_SIMD_OPS>(rows, x0, x1, k, out);
}
#endif

}  // namespace kivfilter

#endif
