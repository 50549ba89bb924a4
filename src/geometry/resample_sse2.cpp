// The resampler's kernels for SSE2: two doubles a register, each lane the scalar sequence of
// operations (products, then sums in list order).
#include <cstring>

#include "core/simd_sse2.h"
#include "geometry/resample_simd.h"

#if KIV_HAVE_SSE2
namespace kivgeom {

namespace {

// Sums to bytes by saturation: + 0.5, min(255, v), truncate to int32, then signed and
// unsigned packs clamp below. This is sum_to_byte: NaN and sums below -2^31 truncate to
// INT_MIN (min keeps its second operand's NaN), which the packs turn into 0.
inline __m128i sums_to_int(__m128d v) {
    return _mm_cvttpd_epi32(_mm_min_pd(_mm_set1_pd(255.0), _mm_add_pd(v, _mm_set1_pd(0.5))));
}

// Eight pixels' sums (r0 g0 | b0 r1 | g1 b1 | r2 g2 ...) to eight pixels at out.
inline void store_rgb8(const __m128d (&a)[12], unsigned char* out) {
    __m128i q[6];
    for (int m = 0; m < 6; ++m) q[m] = _mm_unpacklo_epi64(sums_to_int(a[2 * m]), sums_to_int(a[2 * m + 1]));
    const __m128i s0 = _mm_packs_epi32(q[0], q[1]), s1 = _mm_packs_epi32(q[2], q[3]), s2 = _mm_packs_epi32(q[4], q[5]);
    const __m128i lo = _mm_packus_epi16(s0, s1), hi = _mm_packus_epi16(s2, s2);  // 24 colour bytes
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), kivcore::spread_3_to_4(lo));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16),
                     kivcore::spread_3_to_4(_mm_or_si128(_mm_srli_si128(lo, 12), _mm_slli_si128(hi, 4))));
}

// Four rows' pixels (one 32-bit pixel a lane) to the four-row layout at out: r of the four
// rows, then g, then b.
inline void quad_pixel_to_pd(__m128i px, double* out) {
    const __m128i m = _mm_set1_epi32(0xFF);
    const __m128i ch[3] = {_mm_and_si128(px, m), _mm_and_si128(_mm_srli_epi32(px, 8), m),
                           _mm_and_si128(_mm_srli_epi32(px, 16), m)};
    for (int t = 0; t < 3; ++t) {
        _mm_storeu_pd(out + 4 * t, _mm_cvtepi32_pd(ch[t]));
        _mm_storeu_pd(out + 4 * t + 2, _mm_cvtepi32_pd(_mm_shuffle_epi32(ch[t], 0xEE)));
    }
}

}  // namespace

void quad_to_pd_sse2(const unsigned char* const* s, int np, double* out) {
    int x = 0;
    for (; x + 4 <= np; x += 4) {  // rows in, columns out
        __m128i col[4];
        kivcore::Sse2::columns4(s, 4LL * x, col);
        double* d = out + 12 * static_cast<std::size_t>(x);
        for (int k = 0; k < 4; ++k) quad_pixel_to_pd(col[k], d + 12 * k);
    }
    for (; x < np; ++x) {
        int u[4];
        for (int r = 0; r < 4; ++r) std::memcpy(&u[r], s[r] + 4 * static_cast<std::size_t>(x), 4);
        quad_pixel_to_pd(_mm_setr_epi32(u[0], u[1], u[2], u[3]), out + 12 * static_cast<std::size_t>(x));
    }
}

// Lanes (row a, row b) of the three sums to one pixel each.
namespace {

inline void store_two(__m128d r, __m128d g, __m128d b, unsigned char* da, unsigned char* db, bool write_b) {
    const __m128i rg = _mm_unpacklo_epi32(sums_to_int(r), sums_to_int(g));
    const __m128i bz = _mm_unpacklo_epi32(sums_to_int(b), _mm_setzero_si128());
    const __m128i px = _mm_packs_epi32(_mm_unpacklo_epi64(rg, bz), _mm_unpackhi_epi64(rg, bz));
    const __m128i bytes = _mm_packus_epi16(px, px);
    const int wa = _mm_cvtsi128_si32(bytes), wb = _mm_cvtsi128_si32(_mm_srli_si128(bytes, 4));
    std::memcpy(da, &wa, 4);
    if (write_b) std::memcpy(db, &wb, 4);
}

// Each tap of an output column costs one weight broadcast, six loads, six products and six
// sums for four rows' three channels.
}  // namespace

void hsum_sse2(const HsumArgs& a) {
    for (int i = a.i0; i < a.i1; ++i) {
        const int* ix = a.index + static_cast<std::size_t>(i) * static_cast<std::size_t>(a.cap);
        const double* w = a.weight + static_cast<std::size_t>(i) * static_cast<std::size_t>(a.cap);
        __m128d r0 = _mm_setzero_pd(), g0 = _mm_setzero_pd(), b0 = _mm_setzero_pd();
        __m128d r1 = _mm_setzero_pd(), g1 = _mm_setzero_pd(), b1 = _mm_setzero_pd();
        const int n = a.count[i];
        if (n > 0) {
            const double* p = a.buf + 12 * static_cast<std::size_t>(ix[0] - a.lo);
            const __m128d wk = _mm_set1_pd(w[0]);
            r0 = _mm_mul_pd(wk, _mm_loadu_pd(p));
            r1 = _mm_mul_pd(wk, _mm_loadu_pd(p + 2));
            g0 = _mm_mul_pd(wk, _mm_loadu_pd(p + 4));
            g1 = _mm_mul_pd(wk, _mm_loadu_pd(p + 6));
            b0 = _mm_mul_pd(wk, _mm_loadu_pd(p + 8));
            b1 = _mm_mul_pd(wk, _mm_loadu_pd(p + 10));
        }
        for (int k = 1; k < n; ++k) {
            const double* p = a.buf + 12 * static_cast<std::size_t>(ix[k] - a.lo);
            const __m128d wk = _mm_set1_pd(w[k]);
            r0 = _mm_add_pd(r0, _mm_mul_pd(wk, _mm_loadu_pd(p)));
            r1 = _mm_add_pd(r1, _mm_mul_pd(wk, _mm_loadu_pd(p + 2)));
            g0 = _mm_add_pd(g0, _mm_mul_pd(wk, _mm_loadu_pd(p + 4)));
            g1 = _mm_add_pd(g1, _mm_mul_pd(wk, _mm_loadu_pd(p + 6)));
            b0 = _mm_add_pd(b0, _mm_mul_pd(wk, _mm_loadu_pd(p + 8)));
            b1 = _mm_add_pd(b1, _mm_mul_pd(wk, _mm_loadu_pd(p + 10)));
        }
        const std::size_t o = 4 * static_cast<std::size_t>(i);
        store_two(r0, g0, b0, a.out[0] + o, a.out[1] + o, a.rows > 1);
        if (a.rows > 2) store_two(r1, g1, b1, a.out[2] + o, a.out[3] + o, a.rows > 3);
    }
}

namespace {

// Sums of channels (0, 1) and (2, 3) to a pixel: + 0.5, clamp, truncate; alpha becomes 0.
// max(v, 0) returns 0 for NaN, as the scalar rule does.
inline void store_pixel(__m128d a01, __m128d a23, unsigned char* out) {
    const __m128d half = _mm_set1_pd(0.5), zero = _mm_setzero_pd(), top = _mm_set1_pd(255.0);
    a01 = _mm_min_pd(_mm_max_pd(_mm_add_pd(a01, half), zero), top);
    a23 = _mm_min_pd(_mm_max_pd(_mm_add_pd(a23, half), zero), top);
    __m128i i = _mm_unpacklo_epi64(_mm_cvttpd_epi32(a01), _mm_cvttpd_epi32(a23));
    i = _mm_packs_epi32(i, i);
    i = _mm_packus_epi16(i, i);
    int v = _mm_cvtsi128_si32(i) & 0x00FFFFFF;
    std::memcpy(out, &v, 4);
}

}  // namespace

// Strips of np pixels of source rows as 3 doubles a pixel (alpha dropped).
void rgb_to_pd_sse2(const unsigned char* s, int np, double* b) {
    int p = 0;
    for (; p + 4 <= np; p += 4) {  // four pixels: twelve doubles
        const __m128i z = _mm_setzero_si128();
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * p));
        const __m128i lo = _mm_unpacklo_epi8(v, z), hi = _mm_unpackhi_epi8(v, z);
        const __m128i q[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z), _mm_unpacklo_epi16(hi, z),
                              _mm_unpackhi_epi16(hi, z)};
        double* o = b + 3 * p;
        for (int t = 0; t < 4; t += 2) {  // pixels t, t + 1: (r g) (b r') (g' b')
            _mm_storeu_pd(o + 3 * t, _mm_cvtepi32_pd(q[t]));
            _mm_storeu_pd(o + 3 * t + 2, _mm_cvtepi32_pd(_mm_unpacklo_epi32(_mm_shuffle_epi32(q[t], 2), q[t + 1])));
            _mm_storeu_pd(o + 3 * t + 4, _mm_cvtepi32_pd(_mm_shuffle_epi32(q[t + 1], 0x09)));
        }
    }
    for (; p < np; ++p) {
        b[3 * p] = s[4 * p];
        b[3 * p + 1] = s[4 * p + 1];
        b[3 * p + 2] = s[4 * p + 2];
    }
}

// Each run of eight output pixels keeps its 24 sums in registers while all its taps are
// added in list order; the strip's last few pixels take one lane each.
void vsum_sse2(const VsumArgs& a) {
    int p0 = 0;
    for (; p0 + 8 <= a.np; p0 += 8) {
        __m128d acc[12];
        for (int m = 0; m < 12; ++m) acc[m] = _mm_setzero_pd();
        for (int k = 0; k < a.n; ++k) {
            const double* q = a.rows[k] + 3 * static_cast<std::size_t>(p0);
            const __m128d wk = _mm_set1_pd(a.w[k]);
            if (k == 0)
                for (int m = 0; m < 12; ++m) acc[m] = _mm_mul_pd(wk, _mm_loadu_pd(q + 2 * m));
            else
                for (int m = 0; m < 12; ++m) acc[m] = _mm_add_pd(acc[m], _mm_mul_pd(wk, _mm_loadu_pd(q + 2 * m)));
        }
        store_rgb8(acc, a.out + 4 * static_cast<std::size_t>(p0));
    }
    for (int p = p0; p < a.np; ++p) {
        unsigned char* d = a.out + 4 * static_cast<std::size_t>(p);
        for (int ch = 0; ch < 3; ++ch) {
            const std::size_t o = 3 * static_cast<std::size_t>(p) + static_cast<std::size_t>(ch);
            double acc = a.n > 0 ? a.w[0] * a.rows[0][o] : 0.0;
            for (int k = 1; k < a.n; ++k) acc += a.w[k] * a.rows[k][o];
            d[ch] = sum_to_byte(acc);
        }
        d[3] = 0;
    }
}

std::size_t accumulate_sse2(const unsigned char* s, std::size_t len, double wk, bool first, double* acc) {
    std::size_t j = 0;
    const __m128i z = _mm_setzero_si128();
    const __m128d wv = _mm_set1_pd(wk);
    for (; j + 16 <= len; j += 16) {
        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + j));
        __m128i lo = _mm_unpacklo_epi8(b, z), hi = _mm_unpackhi_epi8(b, z);
        __m128i q[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z), _mm_unpacklo_epi16(hi, z),
                        _mm_unpackhi_epi16(hi, z)};
        double* a = acc + j;
        for (int t = 0; t < 4; ++t) {
            __m128d v0 = _mm_cvtepi32_pd(q[t]);
            __m128d v1 = _mm_cvtepi32_pd(_mm_shuffle_epi32(q[t], 0xEE));
            if (first) {
                _mm_storeu_pd(a + 4 * t, _mm_mul_pd(wv, v0));
                _mm_storeu_pd(a + 4 * t + 2, _mm_mul_pd(wv, v1));
            } else {
                _mm_storeu_pd(a + 4 * t, _mm_add_pd(_mm_loadu_pd(a + 4 * t), _mm_mul_pd(wv, v0)));
                _mm_storeu_pd(a + 4 * t + 2, _mm_add_pd(_mm_loadu_pd(a + 4 * t + 2), _mm_mul_pd(wv, v1)));
            }
        }
    }
    return j;
}

std::size_t store_sums_sse2(const double* acc, std::size_t len, unsigned char* d) {
    std::size_t j = 0;
    for (; j < len; j += 4) store_pixel(_mm_loadu_pd(acc + j), _mm_loadu_pd(acc + j + 2), d + j);
    return j;
}

}  // namespace kivgeom
#endif
