// The refined quantizer's kernels on SSE2: four candidates a step.
#include "core/simd_sse2.h"
#include "quantize/hq_simd.h"

#if KIV_HAVE_SSE2

namespace kivhq {

namespace {

// Four pixels as sixteen bytes.
struct Sse2Bytes : BytesOver<kivcore::Sse2> {
    static void store(std::uint8_t* out, V a) {
        const V lo = _mm_and_si128(a, _mm_set1_epi32(0xFF));
        const V p = _mm_packus_epi16(_mm_packs_epi32(lo, lo), _mm_setzero_si128());
        const int v = _mm_cvtsi128_si32(p);
        std::memcpy(out, &v, 4);
    }
};

// Four 32-bit lanes: the nearest-colour steps on four candidates, and a pixel's four
// channels.  SSE2 has no 32-bit minimum or maximum: a comparison picks the lanes.
struct Sse2 {
    using V = __m128i;
    using Narrow = Sse2;
    using Lanes = Sse2;
    using Bytes = Sse2Bytes;
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
    static V min32(V a, V b) { return pick_less(a, b); }
    static V pick_greater(V a, V b) {
        const V gt = _mm_cmpgt_epi32(a, b);
        return _mm_or_si128(_mm_and_si128(gt, a), _mm_andnot_si128(gt, b));
    }
    static V pick_less(V a, V b) {
        const V lt = _mm_cmplt_epi32(a, b);
        return _mm_or_si128(_mm_and_si128(lt, a), _mm_andnot_si128(lt, b));
    }
    static V from_bytes(std::uint32_t w) {
        const V z = _mm_setzero_si128();
        return _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(static_cast<int>(w)), z), z);
    }
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
    static V sra4(V a) { return _mm_srai_epi32(a, 4); }
    static V sra8(V a) { return _mm_srai_epi32(a, 8); }
    static V clamp(V a, int lo, int hi) { return pick_less(pick_greater(a, _mm_set1_epi32(lo)), _mm_set1_epi32(hi)); }
    static V mul16(V a, int s) { return _mm_madd_epi16(a, _mm_set1_epi32(s)); }
    static int max_abs(V a) {
        const V sign = _mm_srai_epi32(a, 31);
        V m = _mm_sub_epi32(_mm_xor_si128(a, sign), sign);
        m = pick_greater(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
        m = pick_greater(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(m);
    }
    static V drop_alpha(V a) { return _mm_and_si128(a, _mm_setr_epi32(-1, -1, -1, 0)); }
    static bool is_zero(V a) { return _mm_movemask_epi8(_mm_cmpeq_epi32(a, _mm_setzero_si128())) == 0xFFFF; }
    // Lanes of 0..255 as the bytes of one word, lane 0 lowest.
    static std::uint32_t to_bytes(V a) {
        const V p = _mm_packs_epi32(a, a);
        return static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(p, p)));
    }
    static std::int32_t hmin(V v) {
        v = min32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(1, 0, 3, 2)));
        v = min32(v, _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 0, 1)));
        return _mm_cvtsi128_si32(v);
    }
};

}  // namespace

KernelSet kernels_sse2() { return KernelSet{Kernels<Sse2>::assign, Kernels<Sse2>::nearest, Kernels<Sse2>::map_run, Kernels<Sse2>::diffuse, Kernels<Sse2>::hold,
                     Kernels<Sse2>::count}; }

}  // namespace kivhq

#endif
