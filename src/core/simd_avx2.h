// The AVX2 operations set: the members of the SSE2 set (core/simd_sse2.h) with 32-byte
// registers, for the AVX2 kernels (x_avx2.cpp). Include it from *_avx2.cpp files only: they
// alone are compiled for AVX2, and this set's own type keeps its inline members (and the
// x_simd.h templates instantiated with it) apart from code every processor runs. It also
// makes the x_simd.h header that follows define that file's AVX2 entry points.
//
// Lanes: V holds 32 bytes, 16 words or 8 dwords; D holds 4 doubles, F 8 floats; H (an
// __m128i) the four dwords of one D. Unpacks and packs work within each 16-byte half, as on
// SSE2, so a kernel that unpacks and packs back gets its lanes in memory order on both.
#ifndef KIV_CORE_SIMD_AVX2_H
#define KIV_CORE_SIMD_AVX2_H

#include "core/simd.h"

#if KIV_HAVE_AVX2
#if !defined(__AVX2__)
#error "the AVX2 operations set belongs in *_avx2.cpp files, which are compiled for AVX2"
#endif
#include <immintrin.h>

namespace kivcore {

struct Avx2 {
    using V = __m256i;
    using D = __m256d;
    using F = __m256;
    using H = __m128i;
    static constexpr int kBytes = 32;
    static constexpr int kDoubles = 4;
    static constexpr int kFloats = 8;

#define KIV_OPS(x) _mm256_##x
#define KIV_OPS_SI(x) _mm256_##x##_si256
#define KIV_OPS_SI_TO(x, y) _mm256_##x##256##y
#define KIV_OPS_V __m256i
#include "core/simd_ops.h"

    // a where mask is all ones, b where it is zero (masks are whole lanes).
    static V choose(V mask, V a, V b) { return _mm256_blendv_epi8(b, a, mask); }
    static V cmplt16(V a, V b) { return _mm256_cmpgt_epi16(b, a); }
    static V absdiff16(V a, V b) { return _mm256_abs_epi16(_mm256_sub_epi16(a, b)); }
    // Dwords clamped to 0 .. 255.
    static V clamp_0_255_32(V a) {
        return _mm256_min_epi32(_mm256_max_epi32(a, _mm256_setzero_si256()), _mm256_set1_epi32(255));
    }
    static V gt_ps(F a, F b) { return _mm256_castps_si256(_mm256_cmp_ps(a, b, _CMP_GT_OQ)); }  // all ones where a > b
    static D cmple_pd(D a, D b) { return _mm256_cmp_pd(a, b, _CMP_LE_OQ); }
    static H lo_half(V a) { return _mm256_castsi256_si128(a); }
    static H hi_half(V a) { return _mm256_extracti128_si256(a, 1); }
    static V join(H lo, H hi) { return _mm256_setr_m128i(lo, hi); }
    // Unsigned bytes of a times signed bytes of b, each pair added to a saturated word (AVX2
    // only: kernels test for it).
    static V maddubs16(V a, V b) { return _mm256_maddubs_epi16(a, b); }
};

}  // namespace kivcore

// What x_simd.h headers define their entry points with in an AVX2 kernel file.
#define KIV_SIMD_OPS kivcore::Avx2
#define KIV_SIMD_KERNEL(name) name##_avx2

#endif

#endif
