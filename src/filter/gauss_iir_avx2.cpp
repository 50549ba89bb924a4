// The recursive Gaussian's line kernels for AVX2: gauss_iir_simd.h over kivcore::Avx2, four
// lanes to a register.
#include "core/simd_avx2.h"
#include "filter/gauss_iir_simd.h"

#if KIV_HAVE_AVX2
namespace kivfilter {

namespace {

struct Io {
    using T = unsigned char;
    static constexpr double kTop = 255.0;
    // Bytes 0..11 of p as three groups of four doubles.
    static KIV_SIMD_INLINE void load(const unsigned char* p, __m256d* d) {
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        d[0] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(b));
        d[1] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(b, 4)));
        d[2] = _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(b, 8)));
    }
    // Three groups of four doubles in 0 .. 255 to bytes 0..11 of out (bytes 12..15 become 0).
    static KIV_SIMD_INLINE void store(const __m256d* v, unsigned char* out) {
        const __m128i q0 = _mm256_cvttpd_epi32(v[0]), q1 = _mm256_cvttpd_epi32(v[1]), q2 = _mm256_cvttpd_epi32(v[2]);
        const __m128i b = _mm_packus_epi16(_mm_packs_epi32(q0, q1), _mm_packs_epi32(q2, _mm_setzero_si128()));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), b);
    }
};

// Sixteen-bit elements: twelve words in, and out rounded (+ 0.5 after the clamp).
struct Io16 {
    using T = std::uint16_t;
    static constexpr double kTop = 65535.0;
    static KIV_SIMD_INLINE void load(const std::uint16_t* p, __m256d* d) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + 8));
        d[0] = _mm256_cvtepi32_pd(_mm_cvtepu16_epi32(a));
        d[1] = _mm256_cvtepi32_pd(_mm_cvtepu16_epi32(_mm_srli_si128(a, 8)));
        d[2] = _mm256_cvtepi32_pd(_mm_cvtepu16_epi32(b));
    }
    static KIV_SIMD_INLINE void store(const __m256d* v, std::uint16_t* out) {
        const __m256d half = _mm256_set1_pd(0.5);
        const __m128i q0 = _mm256_cvttpd_epi32(_mm256_add_pd(v[0], half));
        const __m128i q1 = _mm256_cvttpd_epi32(_mm256_add_pd(v[1], half));
        const __m128i q2 = _mm256_cvttpd_epi32(_mm256_add_pd(v[2], half));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi32(q0, q1));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 8), _mm_packus_epi32(q2, q2));
    }
};

}  // namespace

void iir_lanes16_avx2(const IirCoef& c, int n, const std::uint16_t* x, double* yp, std::uint16_t* out) {
    iir_groups<kivcore::Avx2, Io16, 1>(c, n, x, 0, yp, out);
}

void iir_lanes_avx2(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out) {
    iir_groups<kivcore::Avx2, Io, 1>(c, n, x, 0, yp, out);
}

void iir_lanes2_avx2(const IirCoef& c, int n, const unsigned char* x, long long plane, double* yp,
                     unsigned char* out) {
    iir_groups<kivcore::Avx2, Io, 2>(c, n, x, plane, yp, out);
}

}  // namespace kivfilter
#endif
