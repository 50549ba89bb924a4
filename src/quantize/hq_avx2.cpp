// The refined quantizer's kernels on AVX2: eight candidates a step.
#include "core/simd.h"
#include "quantize/hq_simd.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivhq {

namespace {

// Four lanes with the SSE4.1 minimum that AVX2 processors have.
struct Sse41 {
    using V = __m128i;
    using Narrow = Sse41;
    static constexpr int kLanes = 4;
    static V set1(std::int32_t x) { return _mm_set1_epi32(x); }
    static V load_pairs(const std::int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static V load_keys(const std::int32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static V sub16(V a, V b) { return _mm_sub_epi16(a, b); }
    static V mul16(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V madd(V a, V b) { return _mm_madd_epi16(a, b); }
    static V add32(V a, V b) { return _mm_add_epi32(a, b); }
    static V or32(V a, V b) { return _mm_or_si128(a, b); }
    static V shl8(V a) { return _mm_slli_epi32(a, 8); }
    static V min32(V a, V b) { return _mm_min_epi32(a, b); }
    static std::int32_t hmin(V m) {
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(m);
    }
};

struct Avx2 {
    using V = __m256i;
    using Narrow = Sse41;
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
    static std::int32_t hmin(V v) {
        __m128i m = _mm_min_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(m);
    }
};

}  // namespace

KernelSet kernels_avx2() { return KernelSet{Kernels<Avx2>::nearest, Kernels<Avx2>::map_run}; }

}  // namespace kivhq

#endif
