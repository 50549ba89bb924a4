// The SSE2 operations set: the register operations every family's vector arithmetic
// (x_simd.h) is written over, for the SSE2 kernels (x_sse2.cpp). Its twin, Avx2 in
// core/simd_avx2.h, has the same members with twice the lanes (the shared ones listed once
// in core/simd_ops.h); a kernel written over either gives the same bytes lane by lane.
// Include it from *_sse2.cpp files only: it also makes the x_simd.h header that follows
// define that file's SSE2 entry points (KIV_SIMD_OPS, KIV_SIMD_KERNEL).
//
// Lanes: V holds 16 bytes, 8 words or 4 dwords; D holds 2 doubles, F 4 floats; H holds the
// dwords of one D (the low two dwords of an __m128i). Every unpack and pack works within
// each 16-byte half, as the instructions do.
#ifndef KIV_CORE_SIMD_SSE2_H
#define KIV_CORE_SIMD_SSE2_H

#include "core/simd.h"

#if KIV_HAVE_SSE2
#if defined(KIV_AVX2_UNIT)
#error "an AVX2 file includes the SSE2 operations set: its inline members would be compiled for AVX2"
#endif
#include <emmintrin.h>

#include <cstring>

namespace kivcore {

struct Sse2 {
    using V = __m128i;
    using D = __m128d;
    using F = __m128;
    using H = __m128i;
    static constexpr int kBytes = 16;
    static constexpr int kDoubles = 2;
    static constexpr int kFloats = 4;

#define KIV_OPS(x) _mm_##x
#define KIV_OPS_SI(x) _mm_##x##_si128
#define KIV_OPS_SI_TO(x, y) _mm_##x##128##y
#define KIV_OPS_V __m128i
#include "core/simd_ops.h"

    // a where mask is all ones, b where it is zero (masks are whole lanes).
    static V choose(V mask, V a, V b) { return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b)); }
    static V cmplt16(V a, V b) { return _mm_cmplt_epi16(a, b); }
    static V absdiff16(V a, V b) { return _mm_max_epi16(_mm_sub_epi16(a, b), _mm_sub_epi16(b, a)); }
    // Dwords clamped to 0 .. 255 (SSE2 has no dword minimum: through saturated words).
    static V clamp_0_255_32(V a) {
        const V w = _mm_min_epi16(_mm_max_epi16(_mm_packs_epi32(a, a), _mm_setzero_si128()), _mm_set1_epi16(255));
        return _mm_unpacklo_epi16(w, _mm_setzero_si128());
    }
    static V gt_ps(F a, F b) { return _mm_castps_si128(_mm_cmpgt_ps(a, b)); }  // all ones where a > b
    static D cmple_pd(D a, D b) { return _mm_cmple_pd(a, b); }
    // One 4-byte pixel to and from the low dword (SSE2 kernels that go pixel by pixel).
    static V load_pixel(const unsigned char* p) {
        int v;
        std::memcpy(&v, p, 4);
        return _mm_cvtsi32_si128(v);
    }
    static void store_pixel(unsigned char* p, V v) {
        const int x = _mm_cvtsi128_si32(v);
        std::memcpy(p, &x, 4);
    }
    static H lo_half(V a) { return a; }
    static H hi_half(V a) { return _mm_shuffle_epi32(a, 0xEE); }
    static V join(H lo, H hi) { return _mm_unpacklo_epi64(lo, hi); }
};

}  // namespace kivcore

// What x_simd.h headers define their entry points with in an SSE2 kernel file.
#define KIV_SIMD_OPS kivcore::Sse2
#define KIV_SIMD_KERNEL(name) name##_sse2

#endif

#endif
