// The arithmetic of filter_3x3's vector kernels, written once for every vector width.
// S supplies the register type V and its operations (the SSE2 set in kernel3x3.cpp, the AVX2
// set in kernel3x3_avx2.cpp); each file instantiates Modes with its own S, compiled for its
// own instruction set. Pixels are 4-byte values as they lie: byte modes work on the bytes,
// the others on 16-bit lanes, where every sum is exact.
#ifndef KIV_FILTER_KERNEL3X3_MODES_H
#define KIV_FILTER_KERNEL3X3_MODES_H

namespace kivfilter {

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
    static V div100(V x) { return S::shr3_16(S::mulhi_u16(x, k16(5243))); }

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
        const V weighted = S::add16(S::template shl_16<3>(corners), S::mullo16(sides, k16(12)));
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
            const V c4 = S::template shl_16<2>(c), s4 = S::template shl_16<2>(sh);
            V r = sh;
            r = S::choose(is(d, 11), div10(S::template shl_16<1>(S::add16(c, s4))), r);
            r = S::choose(is(d, 10), div10(S::add16(S::mullo16(sh, k16(6)), c4)), r);
            r = S::choose(is(d, 9), div10(S::add16(s4, S::mullo16(c, k16(6)))), r);
            r = S::choose(is(d, 8), div10(S::template shl_16<1>(S::add16(sh, c4))), r);
            return S::choose(S::cmplt16(d, k16(8)), c, r);
        } else {
            static_assert(Mode == 15);
            const V cs = corners(), sd = sides();
            const V bl = soft(cs, sd, c);
            const V sh = sharp(n, S::add16(S::add16(cs, sd), c));
            const V d = S::absdiff16(c, sh);
            const V c4 = S::template shl_16<2>(c), b4 = S::template shl_16<2>(bl);
            V r = c;
            r = S::choose(is(d, 8), div10(S::template shl_16<1>(S::add16(bl, c4))), r);
            r = S::choose(is(d, 7), div10(S::add16(b4, S::mullo16(c, k16(6)))), r);
            r = S::choose(is(d, 6), div10(S::add16(S::mullo16(bl, k16(6)), c4)), r);
            r = S::choose(is(d, 5), div10(S::template shl_16<1>(S::add16(c, b4))), r);
            return S::choose(S::cmplt16(d, k16(5)), bl, r);
        }
    }
};

}  // namespace kivfilter

#endif
