// zoom_linear's kernels for SSE2.
#include <cstddef>

#include "core/simd_sse2.h"
#include "geometry/zoom_direct_simd.h"

#if KIV_HAVE_SSE2
namespace kivgeom {

namespace {

// A 4-byte pixel's channels as four floats.
KIV_SIMD_INLINE __m128 pixel_ps(const unsigned char* p) {
    const __m128i z = _mm_setzero_si128();
    return _mm_cvtepi32_ps(_mm_unpacklo_epi16(_mm_unpacklo_epi8(kivcore::Sse2::load_pixel(p), z), z));
}

// Pixel i of a row of 4-byte pixels.
KIV_SIMD_INLINE const unsigned char* pixel_at(const unsigned char* row, int i) {
    return row + 4 * static_cast<std::ptrdiff_t>(i);
}

// Four dwords in 0 .. 255 to a pixel's colour bytes, alpha 0.
KIV_SIMD_INLINE void store_rgb(__m128i i, unsigned char* out) {
    const __m128i b = _mm_packus_epi16(_mm_packs_epi32(i, i), _mm_setzero_si128());
    kivcore::Sse2::store_pixel(out, _mm_and_si128(b, _mm_set1_epi32(0x00FFFFFF)));
}

}  // namespace

void linear_row_sse2(const unsigned char* r0, const unsigned char* r1, const LinearTap* tx, int w, float fy,
                     unsigned char* out) {
    const __m128 vfy = _mm_set1_ps(fy), vgy = _mm_set1_ps(1.0f - fy);
    for (int x = 0; x < w; ++x) {
        const LinearTap& u = tx[x];
        const __m128 fx = _mm_set1_ps(u.f), gx = _mm_set1_ps(1.0f - u.f);
        const __m128 top =
            _mm_add_ps(_mm_mul_ps(pixel_ps(pixel_at(r0, u.i0)), gx), _mm_mul_ps(pixel_ps(pixel_at(r0, u.i1)), fx));
        const __m128 bot =
            _mm_add_ps(_mm_mul_ps(pixel_ps(pixel_at(r1, u.i0)), gx), _mm_mul_ps(pixel_ps(pixel_at(r1, u.i1)), fx));
        const __m128 s = _mm_add_ps(_mm_mul_ps(bot, vfy), _mm_mul_ps(top, vgy));
        store_rgb(_mm_cvttps_epi32(_mm_min_ps(s, _mm_set1_ps(255.0f))), out + 4 * static_cast<std::size_t>(x));
    }
}

void linear_mix_row_sse2(const unsigned char* s, const LinearTap* tx, int w, float* out) {
    for (int x = 0; x < w; ++x) {
        const LinearTap& u = tx[x];
        _mm_storeu_ps(out + 4 * static_cast<std::size_t>(x),
                      _mm_add_ps(_mm_mul_ps(pixel_ps(pixel_at(s, u.i0)), _mm_set1_ps(1.0f - u.f)),
                                 _mm_mul_ps(pixel_ps(pixel_at(s, u.i1)), _mm_set1_ps(u.f))));
    }
}

void linear_combine_sse2(const float* top, const float* bot, float fy, float gy, int w, unsigned char* d) {
    const __m128 vf = _mm_set1_ps(fy), vg = _mm_set1_ps(gy), top255 = _mm_set1_ps(255.0f);
    const __m128i rgb = _mm_set1_epi32(0x00FFFFFF);
    auto px = [&](int i) {
        const std::size_t o = 4 * static_cast<std::size_t>(i);
        const __m128 s = _mm_add_ps(_mm_mul_ps(_mm_loadu_ps(bot + o), vf), _mm_mul_ps(_mm_loadu_ps(top + o), vg));
        return _mm_cvttps_epi32(_mm_min_ps(s, top255));
    };
    int x = 0;
    for (; x + 4 <= w; x += 4) {
        const __m128i p01 = _mm_packs_epi32(px(x), px(x + 1)), p23 = _mm_packs_epi32(px(x + 2), px(x + 3));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * static_cast<std::size_t>(x)),
                         _mm_and_si128(_mm_packus_epi16(p01, p23), rgb));
    }
    for (; x < w; ++x) store_rgb(px(x), d + 4 * static_cast<std::size_t>(x));
}

}  // namespace kivgeom
#endif
