// The refined quantizer's kernels on SSE2: four candidates a step.
#include "core/simd.h"
#include "quantize/hq_simd.h"

#if KIV_HAVE_SSE2

namespace kivhq {

namespace {

struct Sse2 {
    using V = __m128i;
    using Narrow = Sse2;
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
    // SSE2 has no 32-bit minimum: a comparison picks the lanes.
    static V min32(V a, V b) {
        const V lt = _mm_cmplt_epi32(a, b);
        return _mm_or_si128(_mm_and_si128(lt, a), _mm_andnot_si128(lt, b));
    }
    static std::int32_t hmin(V v) {
        v = min32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
        v = min32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(v);
    }
};

}  // namespace

KernelSet kernels_sse2() { return KernelSet{Kernels<Sse2>::nearest, Kernels<Sse2>::map_run}; }

}  // namespace kivhq

#endif
