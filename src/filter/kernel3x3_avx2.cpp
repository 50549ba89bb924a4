// filter_3x3's row kernels for AVX2: the SSE2 kernels with eight pixels to a register.
#include "core/simd.h"
#include "filter/kernel3x3_avx2.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

using V = __m256i;

V load(const unsigned char* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
V k16(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }

// (x * m) >> (16 + s) is x / d for every x in 0 .. max when m d = 2^(16 + s) + e with
// 0 <= e and max e < 2^(16 + s): x m / 2^(16 + s) then exceeds x / d by less than 1 / d, too
// little to reach the next integer. The divisions below are exact over the sums that reach
// them.
constexpr bool exact_division(unsigned d, unsigned m, unsigned s, unsigned max) {
    const unsigned long long k = 1ull << (16 + s), md = static_cast<unsigned long long>(m) * d;
    return m < 65536 && md >= k && max * (md - k) < k;
}
static_assert(exact_division(9, 7282, 0, 9 * 255));
static_assert(exact_division(10, 6554, 0, 18 * 255));
static_assert(exact_division(5, 13108, 0, 13 * 255));
static_assert(exact_division(100, 5243, 3, 100 * 255));

V div9(V x) { return _mm256_mulhi_epu16(x, k16(7282)); }
V div10(V x) { return _mm256_mulhi_epu16(x, k16(6554)); }
V div5(V x) { return _mm256_mulhi_epu16(x, k16(13108)); }
V div100(V x) { return _mm256_srli_epi16(_mm256_mulhi_epu16(x, k16(5243)), 3); }

V med3(V a, V b, V c) { return _mm256_max_epu8(_mm256_min_epu8(a, b), _mm256_min_epu8(_mm256_max_epu8(a, b), c)); }

// Modes on bytes; p[k] is neighbour k (row-major, top-left first).
template <unsigned Mode>
V bytes(const V* p) {
    if constexpr (Mode == 1) {
        // Each column sorted, then the median of nine is the median of the largest minimum,
        // the median of the medians and the smallest maximum.
        V lo[3], mid[3], hi[3];
        for (int d = 0; d < 3; ++d) {
            const V a = _mm256_min_epu8(p[d], p[3 + d]), b = _mm256_max_epu8(p[d], p[3 + d]);
            const V t = _mm256_max_epu8(a, p[6 + d]);
            lo[d] = _mm256_min_epu8(a, p[6 + d]);
            mid[d] = _mm256_min_epu8(b, t);
            hi[d] = _mm256_max_epu8(b, t);
        }
        const V mx = _mm256_max_epu8(_mm256_max_epu8(lo[0], lo[1]), lo[2]);
        const V mn = _mm256_min_epu8(_mm256_min_epu8(hi[0], hi[1]), hi[2]);
        return med3(mx, med3(mid[0], mid[1], mid[2]), mn);
    } else if constexpr (Mode == 5) {
        return _mm256_add_epi8(_mm256_sub_epi8(p[8], p[0]), _mm256_set1_epi8(static_cast<char>(0x80)));
    } else {
        V v = p[0];
        for (int k = 1; k < 9; ++k) v = Mode == 7 ? _mm256_max_epu8(v, p[k]) : _mm256_min_epu8(v, p[k]);
        return v;
    }
}

V sum9(const V* n) {
    V s = n[0];
    for (int k = 1; k < 9; ++k) s = _mm256_add_epi16(s, n[k]);
    return s;
}

// The plain sharpening, clamped: (18 centre - the other eight) / 10.
V sharp(const V* n, V s9) {
    const V x = _mm256_max_epi16(_mm256_sub_epi16(_mm256_mullo_epi16(n[4], k16(19)), s9), _mm256_setzero_si256());
    return _mm256_min_epi16(div10(x), k16(255));
}

V choose(V mask, V a, V b) { return _mm256_blendv_epi8(b, a, mask); }
V is(V d, int v) { return _mm256_cmpeq_epi16(d, k16(v)); }

// Modes on 16-bit lanes; the result is clamped to 0 .. 255 by the pack that follows.
template <unsigned Mode>
V words(const V* n) {
    const V c = n[4];
    if constexpr (Mode == 0) {
        return div9(sum9(n));
    } else if constexpr (Mode == 3) {
        return sharp(n, sum9(n));
    } else if constexpr (Mode == 4) {
        const V corners = _mm256_add_epi16(_mm256_add_epi16(n[0], n[2]), _mm256_add_epi16(n[6], n[8]));
        const V sides = _mm256_add_epi16(_mm256_add_epi16(n[1], n[3]), _mm256_add_epi16(n[5], n[7]));
        const V s = _mm256_add_epi16(_mm256_add_epi16(_mm256_slli_epi16(corners, 3), _mm256_mullo_epi16(sides, k16(12))),
                                     _mm256_mullo_epi16(c, k16(20)));
        return div100(s);
    } else if constexpr (Mode == 6) {
        const V x = _mm256_sub_epi16(_mm256_mullo_epi16(c, k16(14)), sum9(n));
        return div5(_mm256_max_epi16(x, _mm256_setzero_si256()));
    } else if constexpr (Mode == 9) {
        const V sides = _mm256_add_epi16(_mm256_add_epi16(n[1], n[3]), _mm256_add_epi16(n[5], n[7]));
        return _mm256_sub_epi16(_mm256_mullo_epi16(c, k16(5)), sides);
    } else if constexpr (Mode == 10) {
        return _mm256_sub_epi16(_mm256_mullo_epi16(c, k16(10)), sum9(n));
    } else if constexpr (Mode == 11) {
        return _mm256_sub_epi16(sum9(n), _mm256_mullo_epi16(c, k16(9)));
    } else if constexpr (Mode == 12 || Mode == 13) {
        // 12: left column minus right column; 13: top row minus bottom row, middles doubled.
        const int a0 = 0, a1 = Mode == 12 ? 3 : 1, a2 = Mode == 12 ? 6 : 2;
        const int b0 = Mode == 12 ? 2 : 6, b1 = Mode == 12 ? 5 : 7, b2 = 8;
        const V a = _mm256_add_epi16(_mm256_add_epi16(n[a0], n[a2]), _mm256_add_epi16(n[a1], n[a1]));
        const V b = _mm256_add_epi16(_mm256_add_epi16(n[b0], n[b2]), _mm256_add_epi16(n[b1], n[b1]));
        return _mm256_sub_epi16(a, b);
    } else if constexpr (Mode == 14) {
        const V sh = sharp(n, sum9(n));
        const V d = _mm256_abs_epi16(_mm256_sub_epi16(c, sh));
        const V c4 = _mm256_slli_epi16(c, 2), s4 = _mm256_slli_epi16(sh, 2);
        V r = sh;
        r = choose(is(d, 11), div10(_mm256_slli_epi16(_mm256_add_epi16(c, s4), 1)), r);
        r = choose(is(d, 10), div10(_mm256_add_epi16(_mm256_mullo_epi16(sh, k16(6)), c4)), r);
        r = choose(is(d, 9), div10(_mm256_add_epi16(s4, _mm256_mullo_epi16(c, k16(6)))), r);
        r = choose(is(d, 8), div10(_mm256_slli_epi16(_mm256_add_epi16(sh, c4), 1)), r);
        return choose(_mm256_cmpgt_epi16(k16(8), d), c, r);
    } else {
        static_assert(Mode == 15);
        const V corners = _mm256_add_epi16(_mm256_add_epi16(n[0], n[2]), _mm256_add_epi16(n[6], n[8]));
        const V sides = _mm256_add_epi16(_mm256_add_epi16(n[1], n[3]), _mm256_add_epi16(n[5], n[7]));
        const V bl = div100(_mm256_add_epi16(
            _mm256_add_epi16(_mm256_slli_epi16(corners, 3), _mm256_mullo_epi16(sides, k16(12))), _mm256_mullo_epi16(c, k16(20))));
        const V sh = sharp(n, _mm256_add_epi16(_mm256_add_epi16(corners, sides), c));
        const V d = _mm256_abs_epi16(_mm256_sub_epi16(c, sh));
        const V c4 = _mm256_slli_epi16(c, 2), b4 = _mm256_slli_epi16(bl, 2);
        V r = c;
        r = choose(is(d, 8), div10(_mm256_slli_epi16(_mm256_add_epi16(bl, c4), 1)), r);
        r = choose(is(d, 7), div10(_mm256_add_epi16(b4, _mm256_mullo_epi16(c, k16(6)))), r);
        r = choose(is(d, 6), div10(_mm256_add_epi16(_mm256_mullo_epi16(bl, k16(6)), c4)), r);
        r = choose(is(d, 5), div10(_mm256_slli_epi16(_mm256_add_epi16(c, b4), 1)), r);
        return choose(_mm256_cmpgt_epi16(k16(5), d), bl, r);
    }
}

// Eight output pixels from x on.
template <unsigned Mode>
void pixels8(const unsigned char* const* rows, int x, unsigned char* out) {
    V p[9];
    for (int k = 0; k < 9; ++k) p[k] = load(rows[k / 3] + 4 * (x - 1 + k % 3));
    V v;
    if constexpr (Mode == 1 || Mode == 5 || Mode == 7 || Mode == 8) {
        v = bytes<Mode>(p);
    } else {
        const V z = _mm256_setzero_si256();
        V lo[9], hi[9];
        for (int k = 0; k < 9; ++k) {
            lo[k] = _mm256_unpacklo_epi8(p[k], z);
            hi[k] = _mm256_unpackhi_epi8(p[k], z);
        }
        v = _mm256_packus_epi16(words<Mode>(lo), words<Mode>(hi));
    }
    v = _mm256_blendv_epi8(v, p[4], _mm256_set1_epi32(static_cast<int>(0xFF000000u)));
    _mm256_storeu_si256(reinterpret_cast<V*>(out + 4 * x), v);
}

template <unsigned Mode>
int row(const unsigned char* const* rows, int x0, int x1, unsigned char* out) {
    if (x1 - x0 < 8) return x0;
    int x = x0;
    for (; x + 8 <= x1; x += 8) pixels8<Mode>(rows, x, out);
    if (x < x1) pixels8<Mode>(rows, x1 - 8, out);  // overlaps: the same values again
    return x1;
}

// Eight Weighted3x3 pixels from x on; within each 128-bit half as the SSE2 kernel.
void weighted8(const unsigned char* const* rows, int x, const Weighted3x3& k, const V* wp, unsigned char* out) {
    const V z = _mm256_setzero_si256();
    V p[9];
    for (int q = 0; q < 9; ++q) p[q] = load(rows[q / 3] + 4 * (x - 1 + q % 3));
    V res[4];
    for (int h = 0; h < 2; ++h) {
        V n[10];
        for (int q = 0; q < 9; ++q) n[q] = h ? _mm256_unpackhi_epi8(p[q], z) : _mm256_unpacklo_epi8(p[q], z);
        n[9] = z;
        for (int e = 0; e < 2; ++e) {
            V s = z;
            for (int j = 0; j < 5; ++j) {
                const V pair =
                    e ? _mm256_unpackhi_epi16(n[2 * j], n[2 * j + 1]) : _mm256_unpacklo_epi16(n[2 * j], n[2 * j + 1]);
                s = _mm256_add_epi32(s, _mm256_madd_epi16(pair, wp[j]));
            }
            __m256 f = _mm256_cvtepi32_ps(s);
            if (k.mul != 1.0f) f = _mm256_mul_ps(f, _mm256_set1_ps(k.mul));
            V t = _mm256_cvttps_epi32(_mm256_div_ps(f, _mm256_set1_ps(k.div)));
            if (k.add_centre)
                t = _mm256_add_epi32(t, e ? _mm256_unpackhi_epi16(n[4], z) : _mm256_unpacklo_epi16(n[4], z));
            res[2 * h + e] = t;
        }
    }
    V v = _mm256_packus_epi16(_mm256_packs_epi32(res[0], res[1]), _mm256_packs_epi32(res[2], res[3]));
    v = _mm256_blendv_epi8(v, p[4], _mm256_set1_epi32(static_cast<int>(0xFF000000u)));
    _mm256_storeu_si256(reinterpret_cast<V*>(out + 4 * x), v);
}

}  // namespace

int weighted_row_avx2(const unsigned char* const* rows, int x0, int x1, const Weighted3x3* kp, unsigned char* out) {
    if (x1 - x0 < 8) return x0;
    const Weighted3x3 k = *kp;
    V wp[5];
    for (int j = 0; j < 5; ++j) {
        const unsigned lo = static_cast<unsigned short>(k.w[2 * j]),
                       hi = j < 4 ? static_cast<unsigned short>(k.w[2 * j + 1]) : 0u;
        wp[j] = _mm256_set1_epi32(static_cast<int>(lo | hi << 16));
    }
    // The last eight end at x1, overlapping the ones before (the same values again); one
    // call site, so the kernel is inlined.
    for (int x = x0;; x += 8) {
        x = x < x1 - 8 ? x : x1 - 8;
        weighted8(rows, x, k, wp, out);
        if (x == x1 - 8) break;
    }
    return x1;
}

int k3_row_avx2(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out) {
    switch (mode) {
        case 0: return row<0>(rows, x0, x1, out);
        case 1: return row<1>(rows, x0, x1, out);
        case 3: return row<3>(rows, x0, x1, out);
        case 4: return row<4>(rows, x0, x1, out);
        case 5: return row<5>(rows, x0, x1, out);
        case 6: return row<6>(rows, x0, x1, out);
        case 7: return row<7>(rows, x0, x1, out);
        case 8: return row<8>(rows, x0, x1, out);
        case 9: return row<9>(rows, x0, x1, out);
        case 10: return row<10>(rows, x0, x1, out);
        case 11: return row<11>(rows, x0, x1, out);
        case 12: return row<12>(rows, x0, x1, out);
        case 13: return row<13>(rows, x0, x1, out);
        case 14: return row<14>(rows, x0, x1, out);
        case 15: return row<15>(rows, x0, x1, out);
        default: return x0;
    }
}

}  // namespace kivfilter

#endif
