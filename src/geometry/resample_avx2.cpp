// The resampler's kernels for AVX2: the SSE2 kernels with four doubles a register. Each lane
// runs exactly the scalar sequence of operations (products, then sums in list order).
#include "core/simd_avx2.h"
#include "geometry/resample_simd.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

// The sums of a run must stay in registers through the store: the helpers below are merged
// into every loop that calls them (KIV_SIMD_INLINE).

namespace kivgeom {

namespace {

// + 0.5, min(255, v), truncate: NaN and sums below -2^31 become INT_MIN, which the signed and
// unsigned packs that follow turn into 0, as the scalar rule does. Sums known to stay within
// +-2^30 (Clamp false) need no min: the packs alone saturate them to 0..255.
template <bool Clamp>
KIV_SIMD_INLINE __m128i sums_to_int(__m256d v) {
    v = _mm256_add_pd(v, _mm256_set1_pd(0.5));
    return _mm256_cvttpd_epi32(Clamp ? _mm256_min_pd(_mm256_set1_pd(255.0), v) : v);
}

// Sums r0 g0 b0 r1 | g1 b1 r2 g2 | ... of eight pixels to 32 bytes at out, alpha 0.
template <bool Clamp>
KIV_SIMD_INLINE void store_rgb8(const __m256d* acc, unsigned char* out) {
    const __m256i a = _mm256_setr_m128i(sums_to_int<Clamp>(acc[0]), sums_to_int<Clamp>(acc[1]));
    const __m256i b = _mm256_setr_m128i(sums_to_int<Clamp>(acc[2]), sums_to_int<Clamp>(acc[3]));
    const __m256i c = _mm256_setr_m128i(sums_to_int<Clamp>(acc[4]), sums_to_int<Clamp>(acc[5]));
    // Lane 0 holds groups 0, 2, 4, 4 of four bytes, lane 1 groups 1, 3, 5, 5: gather 0 1 2
    // into lane 0 and 3 4 5 into lane 1, then spread each lane's twelve bytes to four pixels.
    const __m256i bytes = _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, c));
    const __m256i ordered = _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 1, 5, 2, 6, 6));
    const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,  //
                                            0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_shuffle_epi8(ordered, spread));
}

// Four pixels' sums (three registers) to 16 bytes at out.
template <bool Clamp>
KIV_SIMD_INLINE void store_rgb4(const __m256d* acc, unsigned char* out) {
    const __m128i a = sums_to_int<Clamp>(acc[0]), b = sums_to_int<Clamp>(acc[1]), c = sums_to_int<Clamp>(acc[2]);
    const __m128i bytes = _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, c));
    const __m128i spread = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(bytes, spread));
}

// Three channels of four rows (lane = row) to four pixels: 16 bytes, row 0's pixel first.
template <bool Clamp>
KIV_SIMD_INLINE __m128i quad_pixels(__m256d r, __m256d g, __m256d b) {
    const __m128i ri = sums_to_int<Clamp>(r), gi = sums_to_int<Clamp>(g), bi = sums_to_int<Clamp>(b);
    const __m128i z = _mm_setzero_si128();
    const __m128i rg0 = _mm_unpacklo_epi32(ri, gi), rg1 = _mm_unpackhi_epi32(ri, gi);
    const __m128i bz0 = _mm_unpacklo_epi32(bi, z), bz1 = _mm_unpackhi_epi32(bi, z);
    const __m128i p01 = _mm_packs_epi32(_mm_unpacklo_epi64(rg0, bz0), _mm_unpackhi_epi64(rg0, bz0));
    const __m128i p23 = _mm_packs_epi32(_mm_unpacklo_epi64(rg1, bz1), _mm_unpackhi_epi64(rg1, bz1));
    return _mm_packus_epi16(p01, p23);
}

// Four rows' pixels (one 32-bit pixel a lane) to the four-row layout: r, g, b of the rows.
KIV_SIMD_INLINE void quad_pixel_to_pd(__m128i px, double* out) {
    const __m128i m = _mm_set1_epi32(0xFF);
    _mm256_storeu_pd(out, _mm256_cvtepi32_pd(_mm_and_si128(px, m)));
    _mm256_storeu_pd(out + 4, _mm256_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(px, 8), m)));
    _mm256_storeu_pd(out + 8, _mm256_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(px, 16), m)));
}

// The first tap's products start the sums (the same sums as adding them to zero: only the
// sign of a zero could differ, and a zero sum gives 0 either way).
template <int M>
KIV_SIMD_INLINE void first_tap(__m256d* acc, double w, const double* q) {
    const __m256d wk = _mm256_set1_pd(w);
    for (int m = 0; m < M; ++m) acc[m] = _mm256_mul_pd(wk, _mm256_loadu_pd(q + 4 * m));
}

template <int M>
KIV_SIMD_INLINE void add_tap(__m256d* acc, double w, const double* q) {
    const __m256d wk = _mm256_set1_pd(w);
    for (int m = 0; m < M; ++m) acc[m] = _mm256_add_pd(acc[m], _mm256_mul_pd(wk, _mm256_loadu_pd(q + 4 * m)));
}

// M registers of sums over all taps for the pixels from p0 (3 * M / 4 pixels).
template <int M>
KIV_SIMD_INLINE void vertical_sums(const VsumArgs& a, int p0, __m256d* acc) {
    if (a.n == 0) {
        for (int m = 0; m < M; ++m) acc[m] = _mm256_setzero_pd();
        return;
    }
    first_tap<M>(acc, a.w[0], a.rows[0] + 3 * p0);
    for (int k = 1; k < a.n; ++k) add_tap<M>(acc, a.w[k], a.rows[k] + 3 * p0);
}

template <bool Clamp>
void vsum_run(const VsumArgs& a) {
    int p0 = 0;
    if (a.n > 8)  // many taps (shrinking): sixteen pixels a run, twelve sums in flight
        for (; p0 + 16 <= a.np; p0 += 16) {
            __m256d acc[12];
            vertical_sums<12>(a, p0, acc);
            store_rgb8<Clamp>(acc, a.out + 4 * p0);
            store_rgb8<Clamp>(acc + 6, a.out + 4 * p0 + 32);
        }
    for (; p0 + 8 <= a.np; p0 += 8) {
        __m256d acc[6];
        vertical_sums<6>(a, p0, acc);
        store_rgb8<Clamp>(acc, a.out + 4 * p0);
    }
    if (p0 + 4 <= a.np) {
        __m256d acc[3];
        vertical_sums<3>(a, p0, acc);
        store_rgb4<Clamp>(acc, a.out + 4 * p0);
        p0 += 4;
    }
    for (int p = p0; p < a.np; ++p) {  // one lane each
        unsigned char* d = a.out + 4 * p;
        for (int ch = 0; ch < 3; ++ch) {
            double acc = a.n > 0 ? a.w[0] * a.rows[0][3 * p + ch] : 0.0;
            for (int k = 1; k < a.n; ++k) acc += a.w[k] * a.rows[k][3 * p + ch];
            d[ch] = sum_to_byte(acc);
        }
        d[3] = 0;
    }
}

// Two output columns at a time, so six independent sums are in flight; each column still
// adds its own taps in its own order.
template <bool Clamp>
void hsum_run(const HsumArgs& a) {
    int i = a.i0;
    for (; i + 2 <= a.i1; i += 2) {
        const int* ia = a.index + static_cast<long long>(i) * a.cap;
        const int* ib = ia + a.cap;
        const double* wa = a.weight + static_cast<long long>(i) * a.cap;
        const double* wb = wa + a.cap;
        const int na = a.count[i], nb = a.count[i + 1];
        __m256d A[3], B[3];
        for (int m = 0; m < 3; ++m) A[m] = B[m] = _mm256_setzero_pd();
        if (na > 0) first_tap<3>(A, wa[0], a.buf + 12LL * (ia[0] - a.lo));
        if (nb > 0) first_tap<3>(B, wb[0], a.buf + 12LL * (ib[0] - a.lo));
        int k = 1;
        for (const int both = na < nb ? na : nb; k < both; ++k) {
            add_tap<3>(A, wa[k], a.buf + 12LL * (ia[k] - a.lo));
            add_tap<3>(B, wb[k], a.buf + 12LL * (ib[k] - a.lo));
        }
        for (int t = k; t < na; ++t) add_tap<3>(A, wa[t], a.buf + 12LL * (ia[t] - a.lo));
        for (int t = k; t < nb; ++t) add_tap<3>(B, wb[t], a.buf + 12LL * (ib[t] - a.lo));
        const __m128i pa = quad_pixels<Clamp>(A[0], A[1], A[2]), pb = quad_pixels<Clamp>(B[0], B[1], B[2]);
        const __m128i lo = _mm_unpacklo_epi32(pa, pb), hi = _mm_unpackhi_epi32(pa, pb);  // (A B) per row
        const long long o = 4LL * i;
        _mm_storel_epi64(reinterpret_cast<__m128i*>(a.out[0] + o), lo);
        if (a.rows > 1) _mm_storel_epi64(reinterpret_cast<__m128i*>(a.out[1] + o), _mm_unpackhi_epi64(lo, lo));
        if (a.rows > 2) _mm_storel_epi64(reinterpret_cast<__m128i*>(a.out[2] + o), hi);
        if (a.rows > 3) _mm_storel_epi64(reinterpret_cast<__m128i*>(a.out[3] + o), _mm_unpackhi_epi64(hi, hi));
    }
    if (i < a.i1) {
        const int* ia = a.index + static_cast<long long>(i) * a.cap;
        const double* wa = a.weight + static_cast<long long>(i) * a.cap;
        const int na = a.count[i];
        __m256d A[3];
        for (int m = 0; m < 3; ++m) A[m] = _mm256_setzero_pd();
        if (na > 0) first_tap<3>(A, wa[0], a.buf + 12LL * (ia[0] - a.lo));
        for (int k = 1; k < na; ++k) add_tap<3>(A, wa[k], a.buf + 12LL * (ia[k] - a.lo));
        __m128i p = quad_pixels<Clamp>(A[0], A[1], A[2]);
        const long long o = 4LL * i;
        for (int r = 0; r < a.rows; ++r) {
            _mm_storeu_si32(a.out[r] + o, p);
            p = _mm_srli_si128(p, 4);
        }
    }
}

}  // namespace

void rgb_to_pd_avx2(const unsigned char* src, int np, double* out) {
    const __m128i pick = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    int p = 0;
    for (; p + 4 <= np; p += 4) {
        const __m128i c = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * p)), pick);
        double* o = out + 3 * p;
        _mm256_storeu_pd(o, _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(c)));
        _mm256_storeu_pd(o + 4, _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(c, 4))));
        _mm256_storeu_pd(o + 8, _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_srli_si128(c, 8))));
    }
    for (; p < np; ++p) {
        out[3 * p] = src[4 * p];
        out[3 * p + 1] = src[4 * p + 1];
        out[3 * p + 2] = src[4 * p + 2];
    }
}

void vsum_avx2(const VsumArgs& a) {
    if (a.clamp)
        vsum_run<true>(a);
    else
        vsum_run<false>(a);
}

void quad_to_pd_avx2(const unsigned char* const* s, int np, double* out) {
    int x = 0;
    for (; x + 4 <= np; x += 4) {  // rows in, columns out
        __m128i col[4];
        kivcore::Avx2::columns4(s, 4LL * x, col);
        double* d = out + 12LL * x;
        for (int k = 0; k < 4; ++k) quad_pixel_to_pd(col[k], d + 12 * k);
    }
    for (; x < np; ++x) {
        const long long o = 4LL * x;
        const __m128i p01 = _mm_unpacklo_epi32(_mm_loadu_si32(s[0] + o), _mm_loadu_si32(s[1] + o));
        const __m128i p23 = _mm_unpacklo_epi32(_mm_loadu_si32(s[2] + o), _mm_loadu_si32(s[3] + o));
        quad_pixel_to_pd(_mm_unpacklo_epi64(p01, p23), out + 12LL * x);
    }
}

void hsum_avx2(const HsumArgs& a) {
    if (a.clamp)
        hsum_run<true>(a);
    else
        hsum_run<false>(a);
}

}  // namespace kivgeom

#endif
