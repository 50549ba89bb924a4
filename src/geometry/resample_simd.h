// The resampler's vector kernels on raw buffers (resample_passes.cpp): SSE2 in
// resample_sse2.cpp, AVX2 twins in resample_avx2.cpp (only where kivcore::use_avx2()).
//
// Vertical pass: a source row strip is np pixels as 3 doubles each (r g b, alpha dropped).
// Horizontal pass: four source rows side by side, 12 doubles a pixel: the four rows' r, then
// their g, then their b, so one AVX2 register (or two SSE2 ones) holds a channel of all four.
#ifndef KIV_GEOMETRY_RESAMPLE_SIMD_H
#define KIV_GEOMETRY_RESAMPLE_SIMD_H

#include <cstddef>

namespace kivgeom {

// One output row strip of the vertical pass: out pixel p = Sum over k in order of
// w[k] * rows[k][3p + c] for c = 0, 1, 2, then + 0.5, truncated and clamped; alpha 0. The
// sums start from the first product (the same sum as from zero up to the sign of a zero sum,
// which gives 0 either way).
struct VsumArgs {
    const double* const* rows;
    const double* w;
    int n;   // taps
    int np;  // pixels
    unsigned char* out;
    bool clamp;  // see Contributions::small_sums: false when no sum can leave +-2^30
};

// One block of output columns of the horizontal pass over four rows. Output i's taps are
// index[i * cap + k] (source columns, at least lo) and weight[i * cap + k] for k below
// count[i]; buf holds source columns lo... in the four-row layout. Rows 0..rows-1 of out
// are written at columns i0..i1-1.
struct HsumArgs {
    const double* buf;
    int lo;
    const int* index;
    const double* weight;
    const int* count;
    long long cap;
    int i0, i1;
    unsigned char* out[4];
    int rows;
    bool clamp;
};

// np pixels of 4 bytes at src to 3 doubles each at out.
void rgb_to_pd_sse2(const unsigned char* src, int np, double* out);
void rgb_to_pd_avx2(const unsigned char* src, int np, double* out);
void vsum_sse2(const VsumArgs& a);
void vsum_avx2(const VsumArgs& a);
// np pixels of each of four rows (row pointers at the first pixel) to the four-row layout.
void quad_to_pd_sse2(const unsigned char* const* src, int np, double* out);
void quad_to_pd_avx2(const unsigned char* const* src, int np, double* out);
void hsum_sse2(const HsumArgs& a);
void hsum_avx2(const HsumArgs& a);

// The streamed vertical pass (spans too tall for the ring): acc[j] = w s[j] (first) or
// acc[j] + w s[j] for the bytes j of a strip of len bytes (a multiple of 4), and the strip's
// sums to pixels at d (alpha 0). Each returns the first byte left to do.
std::size_t accumulate_sse2(const unsigned char* s, std::size_t len, double w, bool first, double* acc);
std::size_t store_sums_sse2(const double* acc, std::size_t len, unsigned char* d);

namespace {

// A weighted sum to a byte: add a half, truncate toward zero, clamp to 0..255 (NaN gives 0).
// Every loop starts a sum from its first product rather than adding that to 0.0: the two
// sums can differ only while they are zeros of opposite sign (a nonzero term gives that
// term either way), and a zero sum gives 0 either way.
inline unsigned char sum_to_byte(double v) {
    v += 0.5;
    if (v >= 255.0) return 255;
    if (v >= 1.0) return static_cast<unsigned char>(static_cast<int>(v));
    return 0;
}

}  // namespace

}  // namespace kivgeom

#endif
