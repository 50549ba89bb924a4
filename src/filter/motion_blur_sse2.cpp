// mblur_linear's kernel for SSE2.
#include "core/simd_sse2.h"
#include "filter/motion_blur_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

namespace {

// The rounded means of n samples of four pixels, sample k at rows[k] + 4 (x + dx[k]) (four
// neighbours); alpha from self. Sums of up to 256 bytes fit 16-bit lanes, so they gather
// there and move to 32-bit ones every 256 samples; (sum + n / 2) / n is exact in float, the
// sums staying below 2^24.
KIV_SIMD_INLINE void linear4(const unsigned char* const* rows, const long long* dx, int n, int x,
                             const unsigned char* self, unsigned char* out) {
    const __m128i z = _mm_setzero_si128();
    __m128i s32[4] = {z, z, z, z};
    for (int k0 = 0; k0 < n; k0 += 256) {
        __m128i lo = z, hi = z;
        for (int k = k0, k1 = n < k0 + 256 ? n : k0 + 256; k < k1; ++k) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + 4 * (x + dx[k])));
            lo = _mm_add_epi16(lo, _mm_unpacklo_epi8(v, z));
            hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(v, z));
        }
        s32[0] = _mm_add_epi32(s32[0], _mm_unpacklo_epi16(lo, z));
        s32[1] = _mm_add_epi32(s32[1], _mm_unpackhi_epi16(lo, z));
        s32[2] = _mm_add_epi32(s32[2], _mm_unpacklo_epi16(hi, z));
        s32[3] = _mm_add_epi32(s32[3], _mm_unpackhi_epi16(hi, z));
    }
    const __m128i h = _mm_set1_epi32(n / 2);
    const __m128 d = _mm_set1_ps(static_cast<float>(n));
    __m128i m[4];
    for (int i = 0; i < 4; ++i) m[i] = _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(_mm_add_epi32(s32[i], h)), d));
    const __m128i v = _mm_packus_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
    const __m128i keep = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(self));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(_mm_and_si128(keep, a), _mm_andnot_si128(keep, v)));
}

}  // namespace

int linear_span_sse2(const unsigned char* const* rows, const long long* dx, int n, int x0, int x1,
                     const unsigned char* self, unsigned char* out) {
    int x = x0;
    for (; x + 4 <= x1; x += 4) linear4(rows, dx, n, x, self + 4 * x, out + 4 * (x - x0));
    return x;
}

}  // namespace kivfilter
#endif
