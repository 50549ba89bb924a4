// The vector kernels' switchboard: which instruction sets are compiled, the one switch that
// chooses among them at run time (isa, cap_isa for tests) and the way an operation picks its
// kernel once (pick). Every vector path has a scalar twin giving the same bytes; defining
// KIV_NO_SIMD builds the scalar twins everywhere so they can be checked against the same
// golden hashes.
//
// The layout of vector code, in every family: x.cpp holds the operation and its scalar
// path; x_simd.h the kernels' declarations and their arithmetic, written once as templates
// over an operations set (core/simd_sse2.h, core/simd_avx2.h); x_sse2.cpp and x_avx2.cpp
// include the set and x_simd.h, which then defines that file's entry points (kernels of one
// set alone are written straight in intrinsics in their file).
#ifndef KIV_CORE_SIMD_H
#define KIV_CORE_SIMD_H

#if !defined(KIV_NO_SIMD) && (defined(__SSE2__) || defined(_M_X64) || defined(_M_AMD64) || \
                              (defined(_M_IX86_FP) && _M_IX86_FP >= 2))
#  define KIV_HAVE_SSE2 1
#else
#  define KIV_HAVE_SSE2 0
#endif

// AVX2 kernels live in files named *_avx2.cpp, compiled for AVX2 alone, and run only when
// the processor and the operating system support it (kivcore::use_avx2). Nothing such a file
// compiles may be shared by the linker with code every processor runs, so no AVX2
// instruction can leak into common code: it uses the intrinsics, the AVX2 set's own type
// (core/simd_avx2.h) and templates instantiated with it or with its own lambdas (x_simd.h
// keeps its arithmetic in an unnamed namespace besides), never an inline function or a
// template of a header over types that common code uses too.
#if KIV_HAVE_SSE2 && !defined(KIV_NO_AVX2) && (defined(__x86_64__) || defined(_M_X64) || defined(_M_AMD64)) && \
    (defined(__GNUC__) || defined(_MSC_VER))
#  define KIV_HAVE_AVX2 1
#else
#  define KIV_HAVE_AVX2 0
#endif

// For the per-vector steps of x_simd.h kernels, which must merge into their loops for the
// sums to stay in registers through the store.
#if defined(_MSC_VER)
#define KIV_SIMD_INLINE __forceinline
#elif defined(__GNUC__)
#define KIV_SIMD_INLINE inline __attribute__((always_inline))
#else
#define KIV_SIMD_INLINE inline
#endif

namespace kivcore {

// The one instruction-set switch: the widest vector kernels the library runs. Every vector
// kernel gives the bytes of its scalar twin, so the switch changes speed only.
enum class Isa { kScalar = 0, kSse2 = 1, kAvx2 = 2 };

// The kernels that run: the best set compiled in and supported by the processor and the
// operating system (checked once), at most the cap. Scalar in a KIV_NO_SIMD build.
Isa isa();
bool use_sse2();  // isa() >= kSse2
bool use_avx2();  // isa() == kAvx2
// Whether this processor and operating system could run the AVX2 kernels (false when they
// are not compiled in).
bool cpu_has_avx2();
// For tests: caps the kernels at `most` (kAvx2 lifts the cap), so each path can be held to
// the same bytes. Process-wide.
void cap_isa(Isa most);
// The cap as AVX2 on or off: cap_isa(allowed ? kAvx2 : kSse2).
void allow_avx2(bool allowed);

// The kernel of the widest set that runs, chosen once outside the pixel loops: avx2 where
// AVX2 runs and the operation has an AVX2 kernel, else sse2 where SSE2 runs, else null
// (the scalar path). Name the kernels through the macros below.
template <class Fn>
Fn pick(Fn avx2, Fn sse2) {
    const Isa i = isa();
    return i == Isa::kAvx2 && avx2 ? avx2 : (i >= Isa::kSse2 ? sse2 : nullptr);
}
// The same for an operation with an SSE2 kernel only, or an AVX2 kernel only.
template <class Fn>
Fn pick_sse2(Fn sse2) {
    return isa() >= Isa::kSse2 ? sse2 : nullptr;
}
template <class Fn>
Fn pick_avx2(Fn avx2) {
    return isa() == Isa::kAvx2 ? avx2 : nullptr;
}

// Calls f(x) for x = x0, x0 + step, ... and, where pixels are left, once more for the step
// that ends at x1 (overlapping the one before: row kernels rewrite the same values). Needs
// x1 - x0 >= step. steps_to_end calls f from one place, which keeps a large f inlined;
// steps_then_tail from two, which suits a small one (fewer instructions a step).
template <int Step, class F>
KIV_SIMD_INLINE void steps_to_end(int x0, int x1, F f) {
    for (int x = x0;; x += Step) {
        x = x < x1 - Step ? x : x1 - Step;
        f(x);
        if (x == x1 - Step) break;
    }
}
template <int Step, class F>
KIV_SIMD_INLINE void steps_then_tail(int x0, int x1, F f) {
    int x = x0;
    for (; x + Step <= x1; x += Step) f(x);
    if (x < x1) f(x1 - Step);
}

}  // namespace kivcore

// A kernel of a set that is compiled in, else a null pointer of its type: kernels (declared
// in x_simd.h, defined in x_sse2.cpp and x_avx2.cpp) of a set not compiled have no
// definition, so operations name them only through these.
#if KIV_HAVE_SSE2
#define KIV_SSE2_KERNEL(f) (&(f))
#else
#define KIV_SSE2_KERNEL(f) static_cast<decltype(&(f))>(nullptr)
#endif
#if KIV_HAVE_AVX2
#define KIV_AVX2_KERNEL(f) (&(f))
#else
#define KIV_AVX2_KERNEL(f) static_cast<decltype(&(f))>(nullptr)
#endif

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

namespace kivcore {

// Asks the first-level cache for the line at p, for reads the hardware prefetcher cannot
// foresee (no effect without SSE2).
inline void prefetch(const void* p) {
#if KIV_HAVE_SSE2
    _mm_prefetch(static_cast<const char*>(p), _MM_HINT_T0);
#else
    (void)p;
#endif
}

}  // namespace kivcore

#if KIV_HAVE_SSE2
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
