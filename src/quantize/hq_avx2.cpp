// The refined quantizer's nearest-colour kernels on AVX2: eight candidates a step.
#include "core/simd.h"
#include "quantize/hq_simd.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivhq {

namespace {

struct Avx2 {
    using V = __m256i;
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
    static V max32(V a, V b) { return _mm256_max_epi32(a, b); }
    static std::int32_t hmin(V v) {
        __m128i m = _mm_min_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
        m = _mm_min_epi32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(m);
    }
    static void store(std::int32_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
};

}  // namespace

std::int32_t nearest_avx2(const Chunk* chunks, int n, Packed q) { return nearest_loop<Avx2>(chunks, n, q); }

void nearest2_avx2(const Chunk* chunks, int n, Packed q, std::int32_t* best, std::int32_t* second, int* idx) {
    nearest2_loop<Avx2>(chunks, n, q, best, second, idx);
}

}  // namespace kivhq

#endif
