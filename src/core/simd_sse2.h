// The SSE2 operations set: the register operations every family's vector arithmetic
// (x_simd.h) is written over, for the SSE2 kernels (x_sse2.cpp). Its twin, Avx2 in
// core/simd_avx2.h, has the same members with twice the lanes; a kernel written over either
// gives the same bytes lane by lane. Include it from *_sse2.cpp files only.
//
// Lanes: V holds 16 bytes, 8 words or 4 dwords; D holds 2 doubles, F 4 floats; H holds the
// dwords of one D (the low two dwords of an __m128i). Every 8/16/32/64-bit unpack and pack
// works within each 16-byte half, as the instructions do.
#ifndef KIV_CORE_SIMD_SSE2_H
#define KIV_CORE_SIMD_SSE2_H

#include "core/simd.h"

#if KIV_HAVE_SSE2
#  if defined(KIV_AVX2_UNIT)
#    error "an AVX2 file includes the SSE2 operations set: its inline members would be compiled for AVX2"
#  endif
#  include <emmintrin.h>

namespace kivcore {

struct Sse2 {
    using V = __m128i;
    using D = __m128d;
    using F = __m128;
    using H = __m128i;
    static constexpr int kBytes = 16;
    static constexpr int kDoubles = 2;

    // Memory and constants.
    static V load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
    static void store(void* p, V v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
    static V zero() { return _mm_setzero_si128(); }
    static V set8(char v) { return _mm_set1_epi8(v); }
    static V set16(int v) { return _mm_set1_epi16(static_cast<short>(v)); }
    static V set32(int v) { return _mm_set1_epi32(v); }
    static V set64(long long v) { return _mm_set1_epi64x(v); }

    // Bits.
    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V or_(V a, V b) { return _mm_or_si128(a, b); }
    static V xor_(V a, V b) { return _mm_xor_si128(a, b); }
    static V andnot(V a, V b) { return _mm_andnot_si128(a, b); }  // ~a & b
    // a where mask is all ones, b where it is zero (masks are whole lanes).
    static V choose(V mask, V a, V b) { return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b)); }

    // Bytes.
    static V add8(V a, V b) { return _mm_add_epi8(a, b); }
    static V sub8(V a, V b) { return _mm_sub_epi8(a, b); }
    static V adds_u8(V a, V b) { return _mm_adds_epu8(a, b); }
    static V subs_u8(V a, V b) { return _mm_subs_epu8(a, b); }
    static V min_u8(V a, V b) { return _mm_min_epu8(a, b); }
    static V max_u8(V a, V b) { return _mm_max_epu8(a, b); }
    static V avg_u8(V a, V b) { return _mm_avg_epu8(a, b); }

    // Words.
    static V add16(V a, V b) { return _mm_add_epi16(a, b); }
    static V sub16(V a, V b) { return _mm_sub_epi16(a, b); }
    static V mullo16(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V mulhi_u16(V a, V b) { return _mm_mulhi_epu16(a, b); }
    static V min16(V a, V b) { return _mm_min_epi16(a, b); }
    static V max16(V a, V b) { return _mm_max_epi16(a, b); }
    static V cmpeq16(V a, V b) { return _mm_cmpeq_epi16(a, b); }
    static V cmpgt16(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static V cmplt16(V a, V b) { return _mm_cmplt_epi16(a, b); }
    // Dwords clamped to 0 .. 255 (SSE2 has no dword minimum: through saturated words).
    static V clamp_0_255_32(V a) {
        const V w = _mm_min_epi16(_mm_max_epi16(_mm_packs_epi32(a, a), _mm_setzero_si128()), _mm_set1_epi16(255));
        return _mm_unpacklo_epi16(w, _mm_setzero_si128());
    }
    static V absdiff16(V a, V b) { return _mm_max_epi16(_mm_sub_epi16(a, b), _mm_sub_epi16(b, a)); }
    static V madd16(V a, V b) { return _mm_madd_epi16(a, b); }  // pairs of words to dwords
    template <int N>
    static V shl16(V a) {
        return _mm_slli_epi16(a, N);
    }
    template <int N>
    static V shr16(V a) {
        return _mm_srli_epi16(a, N);
    }

    // Dwords.
    static V add32(V a, V b) { return _mm_add_epi32(a, b); }
    static V sub32(V a, V b) { return _mm_sub_epi32(a, b); }
    static V cmpeq32(V a, V b) { return _mm_cmpeq_epi32(a, b); }
    template <int N>
    static V shl32(V a) {
        return _mm_slli_epi32(a, N);
    }
    template <int N>
    static V shr32(V a) {
        return _mm_srli_epi32(a, N);
    }

    // Quadwords.
    static V sub64(V a, V b) { return _mm_sub_epi64(a, b); }

    // Unpacks and packs.
    static V unpacklo8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
    static V unpackhi8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
    static V unpacklo16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V unpackhi16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V unpacklo32(V a, V b) { return _mm_unpacklo_epi32(a, b); }
    static V unpackhi32(V a, V b) { return _mm_unpackhi_epi32(a, b); }
    static V unpacklo64(V a, V b) { return _mm_unpacklo_epi64(a, b); }
    static V unpackhi64(V a, V b) { return _mm_unpackhi_epi64(a, b); }
    static V packs32(V a, V b) { return _mm_packs_epi32(a, b); }
    static V packus16(V a, V b) { return _mm_packus_epi16(a, b); }

    // Floats.
    static F to_ps(V a) { return _mm_cvtepi32_ps(a); }
    static V trunc_ps(F a) { return _mm_cvttps_epi32(a); }
    static F set_ps(float v) { return _mm_set1_ps(v); }
    static F add_ps(F a, F b) { return _mm_add_ps(a, b); }
    static F sub_ps(F a, F b) { return _mm_sub_ps(a, b); }
    static F sqrt_ps(F a) { return _mm_sqrt_ps(a); }
    static V gt_ps(F a, F b) { return _mm_castps_si128(_mm_cmpgt_ps(a, b)); }  // all ones where a > b
    static F mul_ps(F a, F b) { return _mm_mul_ps(a, b); }
    static F div_ps(F a, F b) { return _mm_div_ps(a, b); }

    // Doubles.
    static D load_pd(const double* p) { return _mm_loadu_pd(p); }
    static void store_pd(double* p, D v) { _mm_storeu_pd(p, v); }
    static D set_pd(double v) { return _mm_set1_pd(v); }
    static D zero_pd() { return _mm_setzero_pd(); }
    static D add_pd(D a, D b) { return _mm_add_pd(a, b); }
    static D sub_pd(D a, D b) { return _mm_sub_pd(a, b); }
    static D mul_pd(D a, D b) { return _mm_mul_pd(a, b); }
    static D div_pd(D a, D b) { return _mm_div_pd(a, b); }
    static D sqrt_pd(D a) { return _mm_sqrt_pd(a); }
    static D min_pd(D a, D b) { return _mm_min_pd(a, b); }
    static D max_pd(D a, D b) { return _mm_max_pd(a, b); }
    static D and_pd(D a, D b) { return _mm_and_pd(a, b); }
    static D andnot_pd(D a, D b) { return _mm_andnot_pd(a, b); }
    static D cmple_pd(D a, D b) { return _mm_cmple_pd(a, b); }

    // Bits as doubles and back.
    static D as_pd(V a) { return _mm_castsi128_pd(a); }
    static V as_int(D a) { return _mm_castpd_si128(a); }

    // Dwords and doubles: H is the dwords of one D.
    static H lo_half(V a) { return a; }
    static H hi_half(V a) { return _mm_shuffle_epi32(a, 0xEE); }
    static V join(H lo, H hi) { return _mm_unpacklo_epi64(lo, hi); }
    static D to_pd(H a) { return _mm_cvtepi32_pd(a); }
    static H trunc_pd(D a) { return _mm_cvttpd_epi32(a); }
};

}  // namespace kivcore

#endif

#endif
