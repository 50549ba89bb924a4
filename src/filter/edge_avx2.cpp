// edge's row kernel for AVX2: the SSE2 kernel with eight pixels to a register.
#include "core/simd.h"
#include "filter/kernel3x3_avx2.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

using V = __m256i;

// Rounded square roots of 32-bit lanes 0 .. 2 * 1020^2: the float root floors exactly there
// (see the SSE2 kernel), then one exact correction.
V rounded_roots(V n) {
    const __m256 f = _mm256_cvtepi32_ps(n);
    const V r = _mm256_cvttps_epi32(_mm256_sqrt_ps(f));
    const __m256 rf = _mm256_cvtepi32_ps(r);
    return _mm256_sub_epi32(r, _mm256_castps_si256(_mm256_cmp_ps(_mm256_sub_ps(f, _mm256_mul_ps(rf, rf)), rf, _CMP_GT_OQ)));
}

V magnitudes(V gx, V gy, V fh, V fl) {
    const V lo = _mm256_unpacklo_epi16(gx, gy), hi = _mm256_unpackhi_epi16(gx, gy);
    const V r = _mm256_packs_epi32(rounded_roots(_mm256_madd_epi16(lo, lo)), rounded_roots(_mm256_madd_epi16(hi, hi)));
    return _mm256_add_epi16(_mm256_mullo_epi16(r, fh), _mm256_mulhi_epu16(r, fl));
}

void eight(const unsigned char* const* rows, int x, V fh, V fl, unsigned char* out) {
    const V z = _mm256_setzero_si256();
    V p[9], v[2];
    for (int k = 0; k < 9; ++k)
        if (k != 4) p[k] = _mm256_loadu_si256(reinterpret_cast<const V*>(rows[k / 3] + 4 * (x - 1 + k % 3)));
    for (int h = 0; h < 2; ++h) {
        V n[9];
        for (int k = 0; k < 9; ++k)
            if (k != 4) n[k] = h ? _mm256_unpackhi_epi8(p[k], z) : _mm256_unpacklo_epi8(p[k], z);
        const V dx = _mm256_sub_epi16(n[5], n[3]);
        const V gx = _mm256_add_epi16(_mm256_add_epi16(dx, dx), _mm256_sub_epi16(n[8], n[0]));
        const V dy = _mm256_sub_epi16(n[7], n[1]);
        const V gy = _mm256_add_epi16(_mm256_add_epi16(dy, dy),
                                      _mm256_add_epi16(_mm256_sub_epi16(n[6], n[0]), _mm256_sub_epi16(n[8], n[2])));
        v[h] = magnitudes(gx, gy, fh, fl);
    }
    const V rgb = _mm256_set1_epi32(0xFFFFFF);
    _mm256_storeu_si256(reinterpret_cast<V*>(out + 4 * x), _mm256_and_si256(_mm256_packus_epi16(v[0], v[1]), rgb));
}

}  // namespace

int edge_row_avx2(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out) {
    if (x1 - x0 < 8) return x0;
    const V fh = _mm256_set1_epi16(static_cast<short>(f >> 16)), fl = _mm256_set1_epi16(static_cast<short>(f & 0xFFFF));
    int x = x0;
    for (; x + 8 <= x1; x += 8) eight(rows, x, fh, fl, out);
    if (x < x1) eight(rows, x1 - 8, fh, fl, out);  // overlaps: the same values again
    return x1;
}

void edge_roots_avx2(const int* n, int count, int* root) {
    int i = 0;
    for (; i + 8 <= count; i += 8)
        _mm256_storeu_si256(reinterpret_cast<V*>(root + i), rounded_roots(_mm256_loadu_si256(reinterpret_cast<const V*>(n + i))));
    // The tail through a padded copy, so every root comes from the vector code.
    if (i < count) {
        int pad[8] = {}, out[8];
        for (int k = i; k < count; ++k) pad[k - i] = n[k];
        _mm256_storeu_si256(reinterpret_cast<V*>(out), rounded_roots(_mm256_loadu_si256(reinterpret_cast<const V*>(pad))));
        for (int k = i; k < count; ++k) root[k] = out[k - i];
    }
}

}  // namespace kivfilter

#endif
