// The integer convolution's pair kernel for AVX2: 32 output bytes an iteration, all of a
// pair's weights and samples multiplied and summed by one vpmaddwd.
#include "core/simd.h"
#include "filter/int_conv.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivfilter {

namespace {

// The 32 bytes at a and at b, interleaved and widened to four vectors of 16-bit pairs
// (a[x], b[x]); the lanes come out in the order that packs restore (see pack_quotients).
inline void widen_pair(const unsigned char* a, const unsigned char* b, __m256i* v) {
    const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a));
    const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b));
    const __m256i zero = _mm256_setzero_si256();
    const __m256i lo = _mm256_unpacklo_epi8(va, vb), hi = _mm256_unpackhi_epi8(va, vb);
    v[0] = _mm256_unpacklo_epi8(lo, zero);
    v[1] = _mm256_unpackhi_epi8(lo, zero);
    v[2] = _mm256_unpacklo_epi8(hi, zero);
    v[3] = _mm256_unpackhi_epi8(hi, zero);
}

inline void mac(__m256i* acc, const __m256i* v, std::int32_t w) {
    const __m256i wv = _mm256_set1_epi32(w);
    for (int k = 0; k < 4; ++k) acc[k] = _mm256_add_epi32(acc[k], _mm256_madd_epi16(v[k], wv));
}

struct Divider {
    bool single;  // float arithmetic suffices
    __m256 inv;
    __m256d invd;
};

// floor(s / total) for 0 <= s <= 255 * total, as trunc((s + 0.5) * (1 / total)). s + 0.5 is
// exact in either format, and s / total lies at least 0.5 / total from an integer. The two
// roundings (of 1 / total and of the product) move the quotient, which is below 256, by less
// than 256 * 2^-22 in float with any rounding mode: below 0.5 / total when total <= 8192.
// Doubles leave a margin of 2^29 for any total.
inline __m256i divide(__m256i s, const Divider& d) {
    if (d.single) {
        const __m256 x = _mm256_add_ps(_mm256_cvtepi32_ps(s), _mm256_set1_ps(0.5f));
        return _mm256_cvttps_epi32(_mm256_mul_ps(x, d.inv));
    }
    const __m256d half = _mm256_set1_pd(0.5);
    const __m128i lo = _mm256_cvttpd_epi32(
        _mm256_mul_pd(_mm256_add_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(s)), half), d.invd));
    const __m128i hi = _mm256_cvttpd_epi32(
        _mm256_mul_pd(_mm256_add_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(s, 1)), half), d.invd));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

// The quotients of acc as 32 bytes in memory order, merged with the kept bytes of c.
inline void finish(const __m256i* acc, const Divider& d, const PairConv& p, const unsigned char* c, unsigned char* dst) {
    const __m256i q01 = _mm256_packs_epi32(divide(acc[0], d), divide(acc[1], d));
    const __m256i q23 = _mm256_packs_epi32(divide(acc[2], d), divide(acc[3], d));
    __m256i q = _mm256_packus_epi16(q01, q23);
    if (p.take != 0xFFFFFFFFu) q = _mm256_and_si256(q, _mm256_set1_epi32(static_cast<int>(p.take)));
    if (p.keep)
        q = _mm256_or_si256(q, _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(c)),
                                                _mm256_set1_epi32(static_cast<int>(p.keep))));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), q);
}

struct Avx2Pair {
    using V = __m256i;
    Divider d;
    const PairConv& p;
    static V zero() { return _mm256_setzero_si256(); }
    static void widen(const unsigned char* a, const unsigned char* b, V* v) { widen_pair(a, b, v); }
    static void mac(V* acc, const V* v, std::int32_t w) { kivfilter::mac(acc, v, w); }
    void finish(const V* acc, const unsigned char* c, unsigned char* dst) const {
        kivfilter::finish(acc, d, p, c, dst);
    }
};

// 16-bit sums: vpmaddubsw multiplies the interleaved samples by the byte weights and adds
// each pair (at most 128 * 255: no saturation); the sums wrap to their exact value below
// 2^16. Division as in the SSE2 twin: q0 = (s * floor(2^16 / total)) >> 16 is q or q - 1.
inline __m256i divide16(__m256i s, __m256i m, __m256i t, __m256i tm1) {
    const __m256i q = _mm256_mulhi_epu16(s, m);
    const __m256i r = _mm256_sub_epi16(s, _mm256_mullo_epi16(q, t));
    return _mm256_sub_epi16(q, _mm256_cmpgt_epi16(r, tm1));
}

}  // namespace

void pair_conv16_avx2(const PairConv& p) {
    const __m256i t = _mm256_set1_epi16(static_cast<short>(p.total)), tm1 = _mm256_set1_epi16(static_cast<short>(p.total - 1));
    const __m256i m = _mm256_set1_epi16(static_cast<short>(static_cast<unsigned short>(65536 / p.total)));
    const __m256i take = _mm256_set1_epi32(static_cast<int>(p.take));
    for (int it = 0; it < p.n; ++it) {
        const std::ptrdiff_t off = it * p.step;
        __m256i lo = _mm256_setzero_si256(), hi = _mm256_setzero_si256();
        for (int k = 0; k < p.e0; ++k) {
            const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p.a[k] + off));
            const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p.b[k] + off));
            const __m256i wv = _mm256_set1_epi16(static_cast<short>(p.w0[k]));
            lo = _mm256_add_epi16(lo, _mm256_maddubs_epi16(_mm256_unpacklo_epi8(va, vb), wv));
            hi = _mm256_add_epi16(hi, _mm256_maddubs_epi16(_mm256_unpackhi_epi8(va, vb), wv));
        }
        const __m256i q = _mm256_packus_epi16(divide16(lo, m, t, tm1), divide16(hi, m, t, tm1));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p.d0 + off), _mm256_and_si256(q, take));
    }
}

void pair_conv_avx2(const PairConv& p) {
    Divider d;
    d.single = p.total <= 8192;
    d.inv = _mm256_set1_ps(1.0f / static_cast<float>(p.total));
    d.invd = _mm256_set1_pd(1.0 / static_cast<double>(p.total));
    pair_loop(p, Avx2Pair{d, p});
}

}  // namespace kivfilter

#endif
