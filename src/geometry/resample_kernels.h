// The resampler's inner loops on raw buffers, shared by the SSE2 kernels (resample.cpp) and
// their AVX2 twins (resample_avx2.cpp; call those only when kivcore::use_avx2()).
//
// Vertical pass: a source row strip is np pixels as 3 doubles each (r g b, alpha dropped).
// Horizontal pass: four source rows side by side, 12 doubles a pixel: the four rows' r, then
// their g, then their b, so one AVX2 register (or two SSE2 ones) holds a channel of all four.
#ifndef KIV_GEOMETRY_RESAMPLE_KERNELS_H
#define KIV_GEOMETRY_RESAMPLE_KERNELS_H

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
void rgb_to_pd_avx2(const unsigned char* src, int np, double* out);
void vsum_avx2(const VsumArgs& a);
// np pixels of each of four rows (row pointers at the first pixel) to the four-row layout.
void quad_to_pd_avx2(const unsigned char* const* src, int np, double* out);
void hsum_avx2(const HsumArgs& a);

// zoom_linear's output row from two mixed source rows (four floats a pixel): pixel x is
// min(bot * fy + top * gy, 255) truncated, per channel, alpha 0.
void linear_combine_avx2(const float* top, const float* bot, float fy, float gy, int w, unsigned char* out);

}  // namespace kivgeom

#endif
