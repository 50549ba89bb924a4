// The weighted resampler's kernels (zoom_rgba, resample_passes.cpp): the passes of zoom on
// four channels of floats (core/wide_pixels.h), 16-bit intermediates between them. The sums
// are written once over an operations set (resample_wide_sse2.cpp, resample_wide_avx2.cpp);
// the conversions in and out are SSE2 (and AVX2 for the bytes in). Every lane does the scalar twin's sequence of
// float operations (resample_passes.cpp), so each path gives the same bytes.
#ifndef KIV_GEOMETRY_RESAMPLE_WIDE_SIMD_H
#define KIV_GEOMETRY_RESAMPLE_WIDE_SIMD_H

#include <cstdint>

#include "core/simd.h"
#include "core/wide_pixels.h"

namespace kivgeom {

using kivcore::WideFormat;

// One block of output columns of the horizontal pass over four rows. The buffer holds, per
// source column from lo, four rows' pixels of four floats (16 floats); output column i's
// taps are index[i * cap + k] with weight[i * cap + k], k below count[i]. Its sums go to
// out + 16 (i - i0) in the same layout.
struct WideHsumArgs {
    const float* buf;
    int lo;
    const int* index;
    const float* weight;
    const int* count;
    long long cap;
    int i0, i1;
    float* out;
};

// out[j] = the sum over k < n, in order, of w[k] * rows[k][j] for j < nf (the first product
// starts the sum; no taps give 0).
void wide_vsum_sse2(const float* const* rows, const float* w, int n, int nf, float* out);
void wide_vsum_avx2(const float* const* rows, const float* w, int n, int nf, float* out);
void wide_hsum_sse2(const WideHsumArgs& a);
void wide_hsum_avx2(const WideHsumArgs& a);
// np pixels in, four floats each at out + stride * p: RGBA bytes through WideFormat::load,
// or 16-bit intermediates as they are.
void wide_load_bytes_sse2(const unsigned char* s, int np, const WideFormat& f, float* out, int stride);
void wide_load_bytes_avx2(const unsigned char* s, int np, const WideFormat& f, float* out, int stride);
void wide_load_words_sse2(const std::uint16_t* s, int np, float* out, int stride);
// np pixels of four floats at v + stride * p out: to 16-bit intermediates (to_word), or to
// bytes through WideFormat::store.
void wide_store_words_sse2(const float* v, int np, int stride, std::uint16_t* out);
void wide_store_bytes_sse2(const float* v, int np, int stride, const WideFormat& f, unsigned char* out);

#if defined(KIV_SIMD_OPS)
namespace {

template <class S, int M>
KIV_SIMD_INLINE void wide_sums(const float* const* rows, const float* w, int n, int j, typename S::F* acc) {
    constexpr int L = S::kFloats;
    if (n == 0) {
        for (int m = 0; m < M; ++m) acc[m] = S::set_ps(0.0f);
        return;
    }
    const typename S::F w0 = S::set_ps(w[0]);
    for (int m = 0; m < M; ++m) acc[m] = S::mul_ps(w0, S::load_ps(rows[0] + j + L * m));
    for (int k = 1; k < n; ++k) {
        const typename S::F wk = S::set_ps(w[k]);
        for (int m = 0; m < M; ++m) acc[m] = S::add_ps(acc[m], S::mul_ps(wk, S::load_ps(rows[k] + j + L * m)));
    }
}

// Twelve registers of sums in flight, then one at a time, then lane by lane.
template <class S>
void wide_vsum_t(const float* const* rows, const float* w, int n, int nf, float* out) {
    constexpr int L = S::kFloats, M = 12;
    int j = 0;
    for (; j + M * L <= nf; j += M * L) {
        typename S::F acc[M];
        wide_sums<S, M>(rows, w, n, j, acc);
        for (int m = 0; m < M; ++m) S::store_ps(out + j + L * m, acc[m]);
    }
    for (; j + L <= nf; j += L) {
        typename S::F acc[1];
        wide_sums<S, 1>(rows, w, n, j, acc);
        S::store_ps(out + j, acc[0]);
    }
    for (; j < nf; ++j) {
        float acc = n > 0 ? w[0] * rows[0][j] : 0.0f;
        for (int k = 1; k < n; ++k) acc += w[k] * rows[k][j];
        out[j] = acc;
    }
}

// One output column's 16 sums (16 / L registers), taps in list order.
template <class S>
KIV_SIMD_INLINE void wide_column(const WideHsumArgs& a, int i, typename S::F* acc) {
    constexpr int L = S::kFloats, R = 16 / L;
    const int* ix = a.index + static_cast<long long>(i) * a.cap;
    const float* w = a.weight + static_cast<long long>(i) * a.cap;
    const int n = a.count[i];
    if (n == 0) {
        for (int m = 0; m < R; ++m) acc[m] = S::set_ps(0.0f);
        return;
    }
    const typename S::F w0 = S::set_ps(w[0]);
    const float* q0 = a.buf + 16LL * (ix[0] - a.lo);
    for (int m = 0; m < R; ++m) acc[m] = S::mul_ps(w0, S::load_ps(q0 + L * m));
    for (int k = 1; k < n; ++k) {
        const typename S::F wk = S::set_ps(w[k]);
        const float* q = a.buf + 16LL * (ix[k] - a.lo);
        for (int m = 0; m < R; ++m) acc[m] = S::add_ps(acc[m], S::mul_ps(wk, S::load_ps(q + L * m)));
    }
}

template <class S>
void wide_hsum_t(const WideHsumArgs& a) {
    constexpr int L = S::kFloats, R = 16 / L;
    for (int i = a.i0; i < a.i1; ++i) {
        typename S::F acc[R];
        wide_column<S>(a, i, acc);
        float* o = a.out + 16LL * (i - a.i0);
        for (int m = 0; m < R; ++m) S::store_ps(o + L * m, acc[m]);
    }
}

}  // namespace

void KIV_SIMD_KERNEL(wide_vsum)(const float* const* rows, const float* w, int n, int nf, float* out) {
    wide_vsum_t<KIV_SIMD_OPS>(rows, w, n, nf, out);
}
void KIV_SIMD_KERNEL(wide_hsum)(const WideHsumArgs& a) { wide_hsum_t<KIV_SIMD_OPS>(a); }
#endif

}  // namespace kivgeom

#endif
