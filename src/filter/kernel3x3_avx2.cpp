// filter_3x3's row kernels for AVX2: the SSE2 kernels with eight pixels to a register (the
// arithmetic shared through kernel3x3_modes.h).
#include "core/simd.h"
#include "filter/kernel3x3_avx2.h"
#include "filter/kernel3x3_modes.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

using V = __m256i;

struct Avx2 {
    using V = __m256i;
    static V zero() { return _mm256_setzero_si256(); }
    static V set8(char v) { return _mm256_set1_epi8(v); }
    static V set16(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }
    static V min_u8(V a, V b) { return _mm256_min_epu8(a, b); }
    static V max_u8(V a, V b) { return _mm256_max_epu8(a, b); }
    static V add8(V a, V b) { return _mm256_add_epi8(a, b); }
    static V sub8(V a, V b) { return _mm256_sub_epi8(a, b); }
    static V add16(V a, V b) { return _mm256_add_epi16(a, b); }
    static V sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V mullo16(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V mulhi_u16(V a, V b) { return _mm256_mulhi_epu16(a, b); }
    static V min16(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max16(V a, V b) { return _mm256_max_epi16(a, b); }
    template <int N>
    static V shl_16(V a) {
        return _mm256_slli_epi16(a, N);
    }
    static V shr3_16(V a) { return _mm256_srli_epi16(a, 3); }
    static V cmpeq16(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
    static V cmplt16(V a, V b) { return _mm256_cmpgt_epi16(b, a); }
    static V absdiff16(V a, V b) { return _mm256_abs_epi16(_mm256_sub_epi16(a, b)); }
    static V choose(V mask, V a, V b) { return _mm256_blendv_epi8(b, a, mask); }
};
using M = Modes<Avx2>;

V load(const unsigned char* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }

// Eight output pixels from x on.
template <unsigned Mode>
void pixels8(const unsigned char* const* rows, int x, unsigned char* out) {
    V p[9];
    for (int k = 0; k < 9; ++k) p[k] = load(rows[k / 3] + 4 * (x - 1 + k % 3));
    V v;
    if constexpr (Mode == 1 || Mode == 5 || Mode == 7 || Mode == 8) {
        v = M::bytes<Mode>(p);
    } else {
        const V z = _mm256_setzero_si256();
        V lo[9], hi[9];
        for (int k = 0; k < 9; ++k) {
            lo[k] = _mm256_unpacklo_epi8(p[k], z);
            hi[k] = _mm256_unpackhi_epi8(p[k], z);
        }
        v = _mm256_packus_epi16(M::words<Mode>(lo), M::words<Mode>(hi));
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
