// The weighted resampler's kernels for SSE2: the sums of resample_wide_simd.h over
// kivcore::Sse2, and the conversions in and out, a pixel's four floats to a register.
#include <cstring>

#include "core/simd_sse2.h"
#include "geometry/resample_wide_simd.h"

#if KIV_HAVE_SSE2
namespace kivgeom {

namespace {

inline __m128 lane3(__m128 v) { return _mm_shuffle_ps(v, v, 0xFF); }

// Four pixels' dwords (r g b a each in q[t]) to their four values, as WideFormat::load:
// colour to_wide[c] (c * 257, exact, or the table's) times a / 255 under alpha, and a * 257.
inline void load_four(const __m128i* q, __m128i alphas, const WideFormat& f, const unsigned char* bytes, float* out,
                      long long stride) {
    const __m128 one = _mm_set1_ps(1.0f);
    __m128 scale[4] = {one, one, one, one};
    if (f.alpha) {  // (f f f 1) for each pixel
        const __m128 fa = _mm_div_ps(_mm_cvtepi32_ps(alphas), _mm_set1_ps(255.0f));
        const __m128 x01 = _mm_unpacklo_ps(fa, one), x23 = _mm_unpackhi_ps(fa, one);
        scale[0] = _mm_shuffle_ps(x01, x01, _MM_SHUFFLE(1, 0, 0, 0));
        scale[1] = _mm_shuffle_ps(x01, x01, _MM_SHUFFLE(3, 2, 2, 2));
        scale[2] = _mm_shuffle_ps(x23, x23, _MM_SHUFFLE(1, 0, 0, 0));
        scale[3] = _mm_shuffle_ps(x23, x23, _MM_SHUFFLE(3, 2, 2, 2));
    }
    for (int t = 0; t < 4; ++t) {
        const unsigned char* b = bytes + 4 * t;
        const __m128 c = f.to_srgb ? _mm_setr_ps(f.to_wide[b[0]], f.to_wide[b[1]], f.to_wide[b[2]],
                                                 static_cast<float>(b[3]) * 257.0f)
                                   : _mm_mul_ps(_mm_cvtepi32_ps(q[t]), _mm_set1_ps(257.0f));  // exact: < 2^24
        _mm_storeu_ps(out + stride * t, _mm_mul_ps(c, scale[t]));
    }
}

}  // namespace

void wide_load_bytes_sse2(const unsigned char* s, int np, const WideFormat& f, float* out, int stride) {
    const __m128i z = _mm_setzero_si128();
    auto four = [&](const unsigned char* px, float* o, long long st) {
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px));
        const __m128i lo = _mm_unpacklo_epi8(b, z), hi = _mm_unpackhi_epi8(b, z);
        const __m128i q[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z), _mm_unpacklo_epi16(hi, z),
                              _mm_unpackhi_epi16(hi, z)};
        load_four(q, _mm_srli_epi32(b, 24), f, px, o, st);
    };
    int p = 0;
    for (; p + 4 <= np; p += 4) four(s + 4 * p, out + static_cast<long long>(stride) * p, stride);
    if (p < np) {  // the last one to three pixels through a copy
        unsigned char tail[16] = {};
        float o[16];
        std::memcpy(tail, s + 4 * p, 4 * static_cast<std::size_t>(np - p));
        four(tail, o, 4);
        for (int t = 0; t < np - p; ++t)
            std::memcpy(out + static_cast<long long>(stride) * (p + t), o + 4 * t, 4 * sizeof(float));
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
