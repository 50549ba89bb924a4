// zoom_linear's row combination for AVX2.
#include "core/simd_avx2.h"
#include "geometry/zoom_direct_simd.h"

#if KIV_HAVE_AVX2
namespace kivgeom {

void linear_combine_avx2(const float* top, const float* bot, float fy, float gy, int w, unsigned char* out) {
    const __m256 vf = _mm256_set1_ps(fy), vg = _mm256_set1_ps(gy), top255 = _mm256_set1_ps(255.0f);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 0, 4, 1, 5);
    const __m128i rgb = _mm_set1_epi32(0x00FFFFFF);
    int x = 0;
    for (; x + 4 <= w; x += 4) {  // pixels x, x + 1 in one register, x + 2, x + 3 in the other
        const long long o = 4LL * x;
        const __m256 b0 = _mm256_loadu_ps(bot + o), b1 = _mm256_loadu_ps(bot + o + 8);
        const __m256 t0 = _mm256_loadu_ps(top + o), t1 = _mm256_loadu_ps(top + o + 8);
        const __m256 s0 = _mm256_add_ps(_mm256_mul_ps(b0, vf), _mm256_mul_ps(t0, vg));
        const __m256 s1 = _mm256_add_ps(_mm256_mul_ps(b1, vf), _mm256_mul_ps(t1, vg));
        const __m256i i0 = _mm256_cvttps_epi32(_mm256_min_ps(s0, top255));
        const __m256i i1 = _mm256_cvttps_epi32(_mm256_min_ps(s1, top255));
        // Lane 0: pixels x, x + 2; lane 1: x + 1, x + 3 (four bytes each, twice).
        const __m256i words = _mm256_packs_epi32(i0, i1);
        const __m256i bytes = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(words, words), order);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + o), _mm_and_si128(_mm256_castsi256_si128(bytes), rgb));
    }
    for (; x < w; ++x) {
        const long long o = 4LL * x;
        const __m128 s = _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(bot + o), _mm256_castps256_ps128(vf)),
                                    _mm_mul_ps(_mm_loadu_ps(top + o), _mm256_castps256_ps128(vg)));
        const __m128i i = _mm_cvttps_epi32(_mm_min_ps(s, _mm256_castps256_ps128(top255)));
        const __m128i b = _mm_packus_epi16(_mm_packs_epi32(i, i), i);
        _mm_storeu_si32(out + o, _mm_and_si128(b, rgb));
    }
}

}  // namespace kivgeom
#endif
