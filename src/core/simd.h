// Whether the SSE2 kernels are compiled. Every vector path has a scalar twin giving the same
// bytes; defining KIV_NO_SIMD builds the scalar twins everywhere so they can be checked
// against the same golden hashes.
#ifndef KIV_CORE_SIMD_H
#define KIV_CORE_SIMD_H

#if !defined(KIV_NO_SIMD) && (defined(__SSE2__) || defined(_M_X64) || defined(_M_AMD64) || \
                              (defined(_M_IX86_FP) && _M_IX86_FP >= 2))
#  define KIV_HAVE_SSE2 1
#else
#  define KIV_HAVE_SSE2 0
#endif

// AVX2 kernels live in files named *_avx2.cpp, compiled for AVX2 alone, and run only when
// the processor and the operating system support it (kivcore::use_avx2). Such a file holds
// kernels on raw pointers and nothing the linker could share with other files: no inline
// function or template of a header other than the intrinsics, so no AVX2 instruction can
// leak into code that runs on every processor.
#if KIV_HAVE_SSE2 && !defined(KIV_NO_AVX2) && (defined(__x86_64__) || defined(_M_X64) || defined(_M_AMD64)) && \
    (defined(__GNUC__) || defined(_MSC_VER))
#  define KIV_HAVE_AVX2 1
#else
#  define KIV_HAVE_AVX2 0
#endif

namespace kivcore {
// Whether the AVX2 kernels run: compiled in, supported by the processor and the operating
// system, and not switched off. Checked once; every AVX2 kernel gives the bytes of its SSE2
// and scalar twins.
bool use_avx2();
// Whether this processor and operating system could run them (false when not compiled in).
bool cpu_has_avx2();
// For tests: allow or forbid the AVX2 kernels (they stay off where cpu_has_avx2 is false).
void allow_avx2(bool allowed);
}  // namespace kivcore

#if KIV_HAVE_SSE2
#  include <emmintrin.h>

namespace kivcore {
// The first 12 bytes of v as four 3-byte groups spread to four 32-bit lanes, the top byte of
// each lane 0. SSSE3's byte shuffle is not assumed: group i moves up by i bytes.
inline __m128i spread_3_to_4(__m128i v) {
    const __m128i m0 = _mm_setr_epi32(0xFFFFFF, 0, 0, 0), m1 = _mm_setr_epi32(0, 0xFFFFFF, 0, 0),
                  m2 = _mm_setr_epi32(0, 0, 0xFFFFFF, 0), m3 = _mm_setr_epi32(0, 0, 0, 0xFFFFFF);
    __m128i p = _mm_or_si128(_mm_and_si128(v, m0), _mm_and_si128(_mm_slli_si128(v, 1), m1));
    p = _mm_or_si128(p, _mm_and_si128(_mm_slli_si128(v, 2), m2));
    return _mm_or_si128(p, _mm_and_si128(_mm_slli_si128(v, 3), m3));
}
}  // namespace kivcore
#endif

#endif
