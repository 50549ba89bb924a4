// The recursive Gaussian's line kernel for SSE2: gauss_iir_simd.h over kivcore::Sse2, two
// lanes to a register.
#include "core/simd_sse2.h"
#include "filter/gauss_iir_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

namespace {

struct Io {
    using T = unsigned char;
    static constexpr double kTop = 255.0;
    // Bytes 0..11 of p as six pairs of doubles.
    static KIV_SIMD_INLINE void load(const unsigned char* p, __m128d* d) {
        const __m128i z = _mm_setzero_si128();
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i lo = _mm_unpacklo_epi8(b, z), hi = _mm_unpackhi_epi8(b, z);
        const __m128i q[3] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z), _mm_unpacklo_epi16(hi, z)};
        for (int t = 0; t < 3; ++t) {
            d[2 * t] = _mm_cvtepi32_pd(q[t]);
            d[2 * t + 1] = _mm_cvtepi32_pd(_mm_shuffle_epi32(q[t], 0xEE));
        }
    }
    // Six pairs of doubles in 0 .. 255 to bytes 0..11 of out (bytes 12..15 become 0).
    static KIV_SIMD_INLINE void store(const __m128d* v, unsigned char* out) {
        __m128i q[3];
        for (int t = 0; t < 3; ++t)
            q[t] = _mm_unpacklo_epi64(_mm_cvttpd_epi32(v[2 * t]), _mm_cvttpd_epi32(v[2 * t + 1]));
        const __m128i b = _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], _mm_setzero_si128()));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), b);
    }
};

// Sixteen-bit elements: twelve words in, and out rounded (+ 0.5 after the clamp).
struct Io16 {
    using T = std::uint16_t;
    static constexpr double kTop = 65535.0;
    static KIV_SIMD_INLINE void load(const std::uint16_t* p, __m128d* d) {
        const __m128i z = _mm_setzero_si128();
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + 8));
        const __m128i q[3] = {_mm_unpacklo_epi16(a, z), _mm_unpackhi_epi16(a, z), _mm_unpacklo_epi16(b, z)};
        for (int t = 0; t < 3; ++t) {
            d[2 * t] = _mm_cvtepi32_pd(q[t]);
            d[2 * t + 1] = _mm_cvtepi32_pd(_mm_shuffle_epi32(q[t], 0xEE));
        }
    }
    static KIV_SIMD_INLINE void store(const __m128d* v, std::uint16_t* out) {
        const __m128d half = _mm_set1_pd(0.5);
        __m128i q[3];
        for (int t = 0; t < 3; ++t)
            q[t] = _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_add_pd(v[2 * t], half)),
                                      _mm_cvttpd_epi32(_mm_add_pd(v[2 * t + 1], half)));
        // SSE2 packs only signed words: shift the range down and back.
        const __m128i bias = _mm_set1_epi32(32768), flip = _mm_set1_epi16(-32768);
        const __m128i lo = _mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(q[0], bias), _mm_sub_epi32(q[1], bias)), flip);
        const __m128i hi = _mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(q[2], bias), _mm_sub_epi32(q[2], bias)), flip);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), lo);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 8), hi);
    }
};

}  // namespace

void iir_lanes16_sse2(const IirCoef& c, int n, const std::uint16_t* x, double* yp, std::uint16_t* out) {
    iir_groups<kivcore::Sse2, Io16, 1>(c, n, x, 0, yp, out);
}

void iir_lanes_sse2(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out) {
    iir_groups<kivcore::Sse2, Io, 1>(c, n, x, 0, yp, out);
}

}  // namespace kivfilter
#endif
