// The refined quantizer's kernels on AVX2: eight candidates a step.
#include "core/simd_avx2.h"
#include "quantize/hq_simd.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

#  include <cstring>

namespace kivhq {

namespace {

// Eight pixels as 32 bytes.
struct Avx2Bytes : BytesOver<kivcore::Avx2> {
    static void store(std::uint8_t* out, V a) {
        const __m128i lo = _mm256_castsi256_si128(a), hi = _mm256_extracti128_si256(a, 1);
        const __m128i mask = _mm_set1_epi32(0xFF);
        const __m128i w = _mm_packus_epi32(_mm_and_si128(lo, mask), _mm_and_si128(hi, mask));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(w, w));
    }
};

// Four 32-bit lanes with the SSE4.1 and SSSE3 instructions every AVX2 processor has: the
// nearest-colour steps on four candidates, and a pixel's four channels.
struct Sse41 {
    using V = __m128i;
    using Narrow = Sse41;
    using Lanes = Sse41;
    using Bytes = Avx2Bytes;
    static constexpr int kLanes = 4;
    static V set1(std::int32_t x) { return _mm_set1_epi32(x); }
    static V load_pairs(const std::int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static V load_keys(const std::int32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static V sub16(V a, V b) { return _mm_sub_epi16(a, b); }
    static V mul16(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V madd(V a, V b) { return _mm_madd_epi16(a, b); }
    static V add32(V a, V b) { return _mm_add_epi32(a, b); }
    static V or32(V a, V b) { return _mm_or_si128(a, b); }
    static V min32(V a, V b) { return _mm_min_epi32(a, b); }
    static std::int32_t hmin(V m) {
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(m);
    }
    static V from_bytes(std::uint32_t w) { return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(static_cast<int>(w))); }
    static V premultiply(V c, int a) {
        const V t = _mm_add_epi32(_mm_madd_epi16(c, _mm_setr_epi32(a, a, a, 255)), _mm_set1_epi32(128));
        return _mm_srli_epi32(_mm_add_epi32(t, _mm_srli_epi32(t, 8)), 8);
    }
    static V load(const int* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(int* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static V zero() { return _mm_setzero_si128(); }
    static V add(V a, V b) { return _mm_add_epi32(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi32(a, b); }
    static V shl(V a, int n) { return _mm_slli_epi32(a, n); }
    static V shl8(V a) { return _mm_slli_epi32(a, 8); }
    static V sra4(V a) { return _mm_srai_epi32(a, 4); }
    static V sra8(V a) { return _mm_srai_epi32(a, 8); }
    static V clamp(V a, int lo, int hi) { return _mm_min_epi32(_mm_max_epi32(a, _mm_set1_epi32(lo)), _mm_set1_epi32(hi)); }
    static V mul16(V a, int s) { return _mm_madd_epi16(a, _mm_set1_epi32(s)); }
    static int max_abs(V a) {
        V m = _mm_abs_epi32(a);
        m = _mm_max_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
        m = _mm_max_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(m);
    }
    static V drop_alpha(V a) { return _mm_blend_epi16(a, _mm_setzero_si128(), 0xC0); }
    static bool is_zero(V a) { return _mm_testz_si128(a, a) != 0; }
    static std::uint32_t to_bytes(V a) {
        const V p = _mm_packs_epi32(a, a);
        return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(p, p)));
    }
};

struct Avx2 {
    using V = __m256i;
    using Narrow = Sse41;
    using Lanes = Sse41;
    using Bytes = Avx2Bytes;
    static constexpr int kLanes = 8;
    static V set1(std::int32_t x) { return _mm256_set1_epi32(x); }
    static V load_pairs(const std::int16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static V load_keys(const std::int32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static V sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V mul16(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V madd(V a, V b) { return _mm256_madd_epi16(a, b); }
    static V add32(V a, V b) { return _mm256_add_epi32(a, b); }
    static V or32(V a, V b) { return _mm256_or_si256(a, b); }
    static V shl8(V a) { return _mm256_slli_epi32(a, 8); }
    static V min32(V a, V b) { return _mm256_min_epi32(a, b); }
    static std::int32_t hmin(V v) { return Sse41::hmin(_mm_min_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1))); }
};

}  // namespace

KernelSet kernels_avx2() {
    return KernelSet{Kernels<Avx2>::assign, Kernels<Avx2>::nearest, Kernels<Avx2>::map_run, Kernels<Avx2>::diffuse, Kernels<Avx2>::hold, Kernels<Avx2>::count};
}

}  // namespace kivhq

#endif
