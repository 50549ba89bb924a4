// The AVX2 operations set: the members of the SSE2 set (core/simd_sse2.h) with 32-byte
// registers, for the AVX2 kernels (x_avx2.cpp). Include it from *_avx2.cpp files only: they
// alone are compiled for AVX2, and this set's own type keeps its inline members (and the
// x_simd.h templates instantiated with it) apart from code every processor runs.
//
// Lanes: V holds 32 bytes, 16 words or 8 dwords; D holds 4 doubles, F 8 floats; H (an
// __m128i) the four dwords of one D. Unpacks and packs work within each 16-byte half, as on
// SSE2, so a kernel that unpacks and packs back gets its lanes in memory order on both.
#ifndef KIV_CORE_SIMD_AVX2_H
#define KIV_CORE_SIMD_AVX2_H

#include "core/simd.h"

#if KIV_HAVE_AVX2
#  if !defined(__AVX2__)
#    error "the AVX2 operations set belongs in *_avx2.cpp files, which are compiled for AVX2"
#  endif
#  include <immintrin.h>

namespace kivcore {

struct Avx2 {
    using V = __m256i;
    using D = __m256d;
    using F = __m256;
    using H = __m128i;
    static constexpr int kBytes = 32;
    static constexpr int kDoubles = 4;

    // Memory and constants.
    static V load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
    static void store(void* p, V v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
    static V zero() { return _mm256_setzero_si256(); }
    static V set8(char v) { return _mm256_set1_epi8(v); }
    static V set16(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }
    static V set32(int v) { return _mm256_set1_epi32(v); }
    static V set64(long long v) { return _mm256_set1_epi64x(v); }

    // Bits.
    static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    static V or_(V a, V b) { return _mm256_or_si256(a, b); }
    static V xor_(V a, V b) { return _mm256_xor_si256(a, b); }
    static V andnot(V a, V b) { return _mm256_andnot_si256(a, b); }  // ~a & b
    // a where mask is all ones, b where it is zero (masks are whole lanes).
    static V choose(V mask, V a, V b) { return _mm256_blendv_epi8(b, a, mask); }

    // Bytes.
    static V add8(V a, V b) { return _mm256_add_epi8(a, b); }
    static V sub8(V a, V b) { return _mm256_sub_epi8(a, b); }
    static V adds_u8(V a, V b) { return _mm256_adds_epu8(a, b); }
    static V subs_u8(V a, V b) { return _mm256_subs_epu8(a, b); }
    static V min_u8(V a, V b) { return _mm256_min_epu8(a, b); }
    static V max_u8(V a, V b) { return _mm256_max_epu8(a, b); }
    static V avg_u8(V a, V b) { return _mm256_avg_epu8(a, b); }

    // Words.
    static V add16(V a, V b) { return _mm256_add_epi16(a, b); }
    static V sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V mullo16(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V mulhi_u16(V a, V b) { return _mm256_mulhi_epu16(a, b); }
    static V min16(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max16(V a, V b) { return _mm256_max_epi16(a, b); }
    static V cmpeq16(V a, V b) { return _mm256_cmpeq_epi16(a, b); }
    static V cmpgt16(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
    static V cmplt16(V a, V b) { return _mm256_cmpgt_epi16(b, a); }
    // Dwords clamped to 0 .. 255.
    static V clamp_0_255_32(V a) { return _mm256_min_epi32(_mm256_max_epi32(a, _mm256_setzero_si256()), _mm256_set1_epi32(255)); }
    static V absdiff16(V a, V b) { return _mm256_abs_epi16(_mm256_sub_epi16(a, b)); }
    static V madd16(V a, V b) { return _mm256_madd_epi16(a, b); }  // pairs of words to dwords
    // Unsigned bytes of a times signed bytes of b, each pair added to a saturated word (AVX2
    // only: kernels test for it).
    static V maddubs16(V a, V b) { return _mm256_maddubs_epi16(a, b); }
    template <int N>
    static V shl16(V a) {
        return _mm256_slli_epi16(a, N);
    }
    template <int N>
    static V shr16(V a) {
        return _mm256_srli_epi16(a, N);
    }

    // Dwords.
    static V add32(V a, V b) { return _mm256_add_epi32(a, b); }
    static V sub32(V a, V b) { return _mm256_sub_epi32(a, b); }
    static V cmpeq32(V a, V b) { return _mm256_cmpeq_epi32(a, b); }
    template <int N>
    static V shl32(V a) {
        return _mm256_slli_epi32(a, N);
    }
    template <int N>
    static V shr32(V a) {
        return _mm256_srli_epi32(a, N);
    }

    // Quadwords.
    static V sub64(V a, V b) { return _mm256_sub_epi64(a, b); }

    // Unpacks and packs.
    static V unpacklo8(V a, V b) { return _mm256_unpacklo_epi8(a, b); }
    static V unpackhi8(V a, V b) { return _mm256_unpackhi_epi8(a, b); }
    static V unpacklo16(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
    static V unpackhi16(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
    static V unpacklo32(V a, V b) { return _mm256_unpacklo_epi32(a, b); }
    static V unpackhi32(V a, V b) { return _mm256_unpackhi_epi32(a, b); }
    static V unpacklo64(V a, V b) { return _mm256_unpacklo_epi64(a, b); }
    static V unpackhi64(V a, V b) { return _mm256_unpackhi_epi64(a, b); }
    static V packs32(V a, V b) { return _mm256_packs_epi32(a, b); }
    static V packus16(V a, V b) { return _mm256_packus_epi16(a, b); }

    // Floats.
    static F to_ps(V a) { return _mm256_cvtepi32_ps(a); }
    static V trunc_ps(F a) { return _mm256_cvttps_epi32(a); }
    static F set_ps(float v) { return _mm256_set1_ps(v); }
    static F add_ps(F a, F b) { return _mm256_add_ps(a, b); }
    static F sub_ps(F a, F b) { return _mm256_sub_ps(a, b); }
    static F sqrt_ps(F a) { return _mm256_sqrt_ps(a); }
    static V gt_ps(F a, F b) { return _mm256_castps_si256(_mm256_cmp_ps(a, b, _CMP_GT_OQ)); }  // all ones where a > b
    static F mul_ps(F a, F b) { return _mm256_mul_ps(a, b); }
    static F div_ps(F a, F b) { return _mm256_div_ps(a, b); }

    // Doubles.
    static D load_pd(const double* p) { return _mm256_loadu_pd(p); }
    static void store_pd(double* p, D v) { _mm256_storeu_pd(p, v); }
    static D set_pd(double v) { return _mm256_set1_pd(v); }
    static D zero_pd() { return _mm256_setzero_pd(); }
    static D add_pd(D a, D b) { return _mm256_add_pd(a, b); }
    static D sub_pd(D a, D b) { return _mm256_sub_pd(a, b); }
    static D mul_pd(D a, D b) { return _mm256_mul_pd(a, b); }
    static D div_pd(D a, D b) { return _mm256_div_pd(a, b); }
    static D sqrt_pd(D a) { return _mm256_sqrt_pd(a); }
    static D min_pd(D a, D b) { return _mm256_min_pd(a, b); }
    static D max_pd(D a, D b) { return _mm256_max_pd(a, b); }
    static D and_pd(D a, D b) { return _mm256_and_pd(a, b); }
    static D andnot_pd(D a, D b) { return _mm256_andnot_pd(a, b); }
    static D cmple_pd(D a, D b) { return _mm256_cmp_pd(a, b, _CMP_LE_OQ); }

    // Bits as doubles and back.
    static D as_pd(V a) { return _mm256_castsi256_pd(a); }
    static V as_int(D a) { return _mm256_castpd_si256(a); }

    // Dwords and doubles: H is the dwords of one D.
    static H lo_half(V a) { return _mm256_castsi256_si128(a); }
    static H hi_half(V a) { return _mm256_extracti128_si256(a, 1); }
    static V join(H lo, H hi) { return _mm256_setr_m128i(lo, hi); }
    static D to_pd(H a) { return _mm256_cvtepi32_pd(a); }
    static H trunc_pd(D a) { return _mm256_cvttpd_epi32(a); }
};

}  // namespace kivcore

#endif

#endif
