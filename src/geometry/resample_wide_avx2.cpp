// The weighted resampler's sums for AVX2: resample_wide_simd.h over kivcore::Avx2, eight
// floats to a register (the conversions in and out stay SSE2).
#include "core/simd_avx2.h"
#include "geometry/resample_wide_simd.h"

#if KIV_HAVE_AVX2
namespace kivgeom {

// Two pixels to a register: eight bytes widen to (r g b a r' g' b' a'); colour through the
// table by a gather in linear light, alpha lanes a * 257.
void wide_load_bytes_avx2(const unsigned char* s, int np, const WideFormat& f, float* out, int stride) {
    const __m256 one = _mm256_set1_ps(1.0f), k257 = _mm256_set1_ps(257.0f);
    const long long st = stride;
    int p = 0;
    for (; p + 8 <= np; p += 8) {
        const unsigned char* px = s + 4 * p;
        __m256 fa = one;
        if (f.alpha)
            fa = _mm256_div_ps(
                _mm256_cvtepi32_ps(_mm256_srli_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(px)), 24)),
                _mm256_set1_ps(255.0f));
        for (int k = 0; k < 4; ++k) {
            const __m256i d = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(px + 8 * k)));
            const __m256 a257 = _mm256_mul_ps(_mm256_cvtepi32_ps(d), k257);  // exact: < 2^24
            const __m256 c = f.to_srgb ? _mm256_blend_ps(_mm256_i32gather_ps(f.to_wide, d, 4), a257, 0x88) : a257;
            const __m256i pick = _mm256_setr_epi32(2 * k, 2 * k, 2 * k, 0, 2 * k + 1, 2 * k + 1, 2 * k + 1, 0);
            const __m256 scale = _mm256_blend_ps(_mm256_permutevar8x32_ps(fa, pick), one, 0x88);
            const __m256 v = _mm256_mul_ps(c, scale);
            float* o = out + st * (p + 2 * k);
            if (stride == 4) {
                _mm256_storeu_ps(o, v);
            } else {
                _mm_storeu_ps(o, _mm256_castps256_ps128(v));
                _mm_storeu_ps(o + st, _mm256_extractf128_ps(v, 1));
            }
        }
    }
    if (p < np) wide_load_bytes_sse2(s + 4 * p, np - p, f, out + st * p, stride);  // the last few
}

}  // namespace kivgeom
#endif
