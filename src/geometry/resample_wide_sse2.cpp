// The weighted resampler's kernels for SSE2: the sums of resample_wide_simd.h over
// kivcore::Sse2, and the conversions in and out, a pixel's four floats to a register.
#include <cstring>

#include "core/simd_sse2.h"
#include "geometry/resample_wide_simd.h"

#if KIV_HAVE_SSE2
namespace kivgeom {

namespace {

// Lanes 0..2 of a, lane 3 of b.
inline __m128 colour_then(__m128 a, __m128 b) {
    const __m128 m = _mm_castsi128_ps(_mm_setr_epi32(-1, -1, -1, 0));
    return _mm_or_ps(_mm_and_ps(m, a), _mm_andnot_ps(m, b));
}

inline __m128 lane3(__m128 v) { return _mm_shuffle_ps(v, v, 0xFF); }

// One pixel's dwords (r g b a) to its four values, as WideFormat::load.
inline __m128 load_pixel(__m128i px, const WideFormat& f, const unsigned char* bytes) {
    const __m128 v = _mm_cvtepi32_ps(px);
    const __m128 a257 = _mm_mul_ps(v, _mm_set1_ps(257.0f));  // exact: c * 257 < 2^24
    __m128 c = f.to_srgb ? _mm_setr_ps(f.to_wide[bytes[0]], f.to_wide[bytes[1]], f.to_wide[bytes[2]], 0.0f) : a257;
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 scale = f.alpha ? colour_then(_mm_div_ps(lane3(v), _mm_set1_ps(255.0f)), one) : one;
    return _mm_mul_ps(colour_then(c, a257), scale);
}

}  // namespace

void wide_load_bytes_sse2(const unsigned char* s, int np, const WideFormat& f, float* out, int stride) {
    const __m128i z = _mm_setzero_si128();
    int p = 0;
    for (; p + 4 <= np; p += 4) {
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * p));
        const __m128i lo = _mm_unpacklo_epi8(b, z), hi = _mm_unpackhi_epi8(b, z);
        const __m128i q[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z), _mm_unpacklo_epi16(hi, z),
                              _mm_unpackhi_epi16(hi, z)};
        for (int t = 0; t < 4; ++t)
            _mm_storeu_ps(out + static_cast<long long>(stride) * (p + t), load_pixel(q[t], f, s + 4 * (p + t)));
    }
    for (; p < np; ++p) {
        int u;
        std::memcpy(&u, s + 4 * p, 4);
        const __m128i px = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(u), z), z);
        _mm_storeu_ps(out + static_cast<long long>(stride) * p, load_pixel(px, f, s + 4 * p));
    }
}

void wide_load_words_sse2(const std::uint16_t* s, int np, float* out, int stride) {
    const __m128i z = _mm_setzero_si128();
    int p = 0;
    for (; p + 2 <= np; p += 2) {
        const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * p));
        _mm_storeu_ps(out + static_cast<long long>(stride) * p, _mm_cvtepi32_ps(_mm_unpacklo_epi16(w, z)));
        _mm_storeu_ps(out + static_cast<long long>(stride) * (p + 1), _mm_cvtepi32_ps(_mm_unpackhi_epi16(w, z)));
    }
    if (p < np) {
        const __m128i w = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + 4 * p));
        _mm_storeu_ps(out + static_cast<long long>(stride) * p, _mm_cvtepi32_ps(_mm_unpacklo_epi16(w, z)));
    }
}

namespace {

// Four values to dwords as to_word: + 0.5, clamped to 0 .. 65535, truncated.
inline __m128i word_dwords(__m128 v) {
    v = _mm_add_ps(v, _mm_set1_ps(0.5f));
    return _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(v, _mm_setzero_ps()), _mm_set1_ps(65535.0f)));
}

// Dwords 0 .. 65535 of a and b to eight words (SSE2 packs only signed: shift the range down
// and back).
inline __m128i pack_words(__m128i a, __m128i b) {
    const __m128i bias = _mm_set1_epi32(32768);
    return _mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(a, bias), _mm_sub_epi32(b, bias)), _mm_set1_epi16(-32768));
}

}  // namespace

void wide_store_words_sse2(const float* v, int np, int stride, std::uint16_t* out) {
    int p = 0;
    for (; p + 2 <= np; p += 2) {
        const __m128i a = word_dwords(_mm_loadu_ps(v + static_cast<long long>(stride) * p));
        const __m128i b = word_dwords(_mm_loadu_ps(v + static_cast<long long>(stride) * (p + 1)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * p), pack_words(a, b));
    }
    if (p < np) {
        const __m128i a = word_dwords(_mm_loadu_ps(v + static_cast<long long>(stride) * p));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 4 * p), pack_words(a, a));
    }
}

void wide_store_bytes_sse2(const float* v, int np, int stride, const WideFormat& f, unsigned char* out) {
    const __m128 zero = _mm_setzero_ps(), half = _mm_set1_ps(0.5f);
    const __m128 top = _mm_set1_ps(f.to_srgb ? 65535.0f : 255.0f);
    const __m128 fixed = _mm_set1_ps(f.to_srgb ? 1.0f : 1.0f / 257.0f);
    for (int p = 0; p < np; ++p) {
        const __m128 x = _mm_loadu_ps(v + static_cast<long long>(stride) * p);
        const __m128 qa = _mm_add_ps(_mm_div_ps(x, _mm_set1_ps(257.0f)), half);
        const int a = _mm_cvtsi128_si32(_mm_cvttps_epi32(lane3(_mm_min_ps(_mm_max_ps(qa, zero), _mm_set1_ps(255.0f)))));
        unsigned char* d = out + 4 * p;
        if (f.alpha && a == 0) {
            std::memset(d, 0, 4);
            continue;
        }
        const __m128 k = f.alpha ? _mm_div_ps(top, lane3(x)) : fixed;
        const __m128 s = _mm_min_ps(_mm_max_ps(_mm_add_ps(_mm_mul_ps(x, k), half), zero), top);
        alignas(16) int c[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(c), _mm_cvttps_epi32(s));
        for (int i = 0; i < 3; ++i) d[i] = f.to_srgb ? f.to_srgb[c[i]] : static_cast<unsigned char>(c[i]);
        d[3] = static_cast<unsigned char>(f.alpha_out ? a : 0);
    }
}

}  // namespace kivgeom
#endif
