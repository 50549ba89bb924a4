// The integer convolution's pair kernel: portable loop, SSE2 (16 bytes an iteration) and the
// choice of AVX2 (int_conv_avx2.cpp).
#include "filter/int_conv.h"

#include "core/simd.h"
#include "filter/filter.h"

namespace kivfilter {

void pair_conv_scalar(const PairConv& p, std::ptrdiff_t x0, std::ptrdiff_t x1) {
    auto one = [&](const std::int32_t* w, int m0, int m1, const unsigned char* c, unsigned char* d) {
        for (std::ptrdiff_t x = x0; x < x1; ++x) {
            const std::uint32_t shift = 8u * static_cast<std::uint32_t>(x & 3);
            const unsigned take = (p.take >> shift) & 0xFFu, keep = (p.keep >> shift) & 0xFFu;
            std::int32_t s = 0;
            for (int m = m0; m < m1; ++m) {
                const std::uint32_t wm = static_cast<std::uint32_t>(w[m]);
                const std::int32_t wa = static_cast<std::int32_t>(p.narrow ? wm & 0xFFu : wm & 0xFFFFu);
                const std::int32_t wb = static_cast<std::int32_t>(p.narrow ? (wm >> 8) & 0xFFu : wm >> 16);
                s += wa * p.a[m][x] + wb * p.b[m][x];
            }
            d[x] = static_cast<unsigned char>(((s / p.total) & take) | (keep ? c[x] & keep : 0u));
        }
    };
    one(p.w0, 0, p.e0, p.c0, p.d0);
    if (p.w1) one(p.w1, p.s1, p.e1, p.c1, p.d1);
}

#if KIV_HAVE_SSE2
namespace {

// The SSE2 twin of the AVX2 kernel; see there for the lane order and the division.
inline void widen_pair(const unsigned char* a, const unsigned char* b, __m128i* v) {
    const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
    const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = _mm_unpacklo_epi8(va, vb), hi = _mm_unpackhi_epi8(va, vb);
    v[0] = _mm_unpacklo_epi8(lo, zero);
    v[1] = _mm_unpackhi_epi8(lo, zero);
    v[2] = _mm_unpacklo_epi8(hi, zero);
    v[3] = _mm_unpackhi_epi8(hi, zero);
}

inline void mac(__m128i* acc, const __m128i* v, std::int32_t w) {
    const __m128i wv = _mm_set1_epi32(w);
    for (int k = 0; k < 4; ++k) acc[k] = _mm_add_epi32(acc[k], _mm_madd_epi16(v[k], wv));
}

struct Divider {
    bool single;
    __m128 inv;
    __m128d invd;
};

inline __m128i divide(__m128i s, const Divider& d) {
    if (d.single) return _mm_cvttps_epi32(_mm_mul_ps(_mm_add_ps(_mm_cvtepi32_ps(s), _mm_set1_ps(0.5f)), d.inv));
    const __m128d half = _mm_set1_pd(0.5);
    const __m128i lo = _mm_cvttpd_epi32(_mm_mul_pd(_mm_add_pd(_mm_cvtepi32_pd(s), half), d.invd));
    const __m128i hi = _mm_cvttpd_epi32(_mm_mul_pd(_mm_add_pd(_mm_cvtepi32_pd(_mm_srli_si128(s, 8)), half), d.invd));
    return _mm_unpacklo_epi64(lo, hi);
}

inline void finish(const __m128i* acc, const Divider& d, const PairConv& p, const unsigned char* c, unsigned char* dst) {
    __m128i q = _mm_packus_epi16(_mm_packs_epi32(divide(acc[0], d), divide(acc[1], d)),
                                 _mm_packs_epi32(divide(acc[2], d), divide(acc[3], d)));
    if (p.take != 0xFFFFFFFFu) q = _mm_and_si128(q, _mm_set1_epi32(static_cast<int>(p.take)));
    if (p.keep)
        q = _mm_or_si128(q, _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(c)),
                                          _mm_set1_epi32(static_cast<int>(p.keep))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), q);
}

struct Sse2Pair {
    using V = __m128i;
    Divider d;
    const PairConv& p;
    static V zero() { return _mm_setzero_si128(); }
    static void widen(const unsigned char* a, const unsigned char* b, V* v) { widen_pair(a, b, v); }
    static void mac(V* acc, const V* v, std::int32_t w) { kivfilter::mac(acc, v, w); }
    void finish(const V* acc, const unsigned char* c, unsigned char* dst) const {
        kivfilter::finish(acc, d, p, c, dst);
    }
};

void pair_conv_sse2(const PairConv& p) {
    Divider d;
    d.single = p.total <= 8192;
    d.inv = _mm_set1_ps(1.0f / static_cast<float>(p.total));
    d.invd = _mm_set1_pd(1.0 / static_cast<double>(p.total));
    pair_loop(p, Sse2Pair{d, p});
}

// 16-bit sums (SSE2 has no byte multiply: samples widened, then pmullw). The quotient:
// q0 = (s * floor(2^16 / total)) >> 16 lies in [q - 1, q] for s < 2^16, as the multiplier
// is at most 2^16 / total and short of it by less than 1; one comparison of the remainder
// corrects it.
inline __m128i divide16(__m128i s, __m128i m, __m128i t, __m128i tm1) {
    const __m128i q = _mm_mulhi_epu16(s, m);
    const __m128i r = _mm_sub_epi16(s, _mm_mullo_epi16(q, t));
    return _mm_sub_epi16(q, _mm_cmpgt_epi16(r, tm1));
}

void pair_conv16_sse2(const PairConv& p) {
    const __m128i t = _mm_set1_epi16(static_cast<short>(p.total)), tm1 = _mm_set1_epi16(static_cast<short>(p.total - 1));
    const __m128i m = _mm_set1_epi16(static_cast<short>(static_cast<unsigned short>(65536 / p.total)));
    const __m128i take = _mm_set1_epi32(static_cast<int>(p.take));
    for (int it = 0; it < p.n; ++it) {
        const std::ptrdiff_t off = it * p.step;
        __m128i lo = _mm_setzero_si128(), hi = _mm_setzero_si128();
        for (int k = 0; k < p.e0; ++k) {
            const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p.a[k] + off));
            const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p.b[k] + off));
            const __m128i wa = _mm_set1_epi16(static_cast<short>(p.w0[k] & 0xFF));
            const __m128i wb = _mm_set1_epi16(static_cast<short>((p.w0[k] >> 8) & 0xFF));
            const __m128i zero = _mm_setzero_si128();
            lo = _mm_add_epi16(lo, _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(va, zero), wa),
                                                 _mm_mullo_epi16(_mm_unpacklo_epi8(vb, zero), wb)));
            hi = _mm_add_epi16(hi, _mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(va, zero), wa),
                                                 _mm_mullo_epi16(_mm_unpackhi_epi8(vb, zero), wb)));
        }
        const __m128i q = _mm_packus_epi16(divide16(lo, m, t, tm1), divide16(hi, m, t, tm1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p.d0 + off), _mm_and_si128(q, take));
    }
}

}  // namespace
#endif

int pair_width() {
    if (!kivcore::use_sse2()) return 0;
#if KIV_HAVE_AVX2
    if (kivcore::use_avx2()) return 32;
#endif
    return KIV_HAVE_SSE2 ? 16 : 0;
}

void pair_conv_vector(const PairConv& p, int width) {
#if KIV_HAVE_AVX2
    if (width == 32) return pair_conv_avx2(p);
#endif
#if KIV_HAVE_SSE2
    pair_conv_sse2(p);
#else
    (void)p;
    (void)width;
#endif
}

}  // namespace kivfilter

namespace kivfilter {

void pair_conv16_vector(const PairConv& p, int width) {
#if KIV_HAVE_AVX2
    if (width == 32) return pair_conv16_avx2(p);
#endif
#if KIV_HAVE_SSE2
    pair_conv16_sse2(p);
#else
    (void)p;
    (void)width;
#endif
}

}  // namespace kivfilter
