// The sampling blurs' vector kernels: nearest samples of the whole image, coordinates clamped
// to it, averaged with rounding per colour channel; alpha from the source pixel. Each lane
// is one pixel and computes its sample positions with exactly the scalar operations; a
// position is floor(v + 0.5) of its double v. mblur_linear's kernel is SSE2
// (motion_blur_sse2.cpp), the arc and spin kernels of mblur_round, mblur_radial and
// mblur_zoom AVX2 (motion_blur_avx2.cpp, only where kivcore::use_avx2()).
#ifndef KIV_FILTER_MOTION_BLUR_SIMD_H
#define KIV_FILTER_MOTION_BLUR_SIMD_H

namespace kivfilter {

// mblur_linear: pixels x0 .. x1 - 1 of a row, four at a time, sample k of pixel x at
// rows[k] + 4 (x + dx[k]) (every column inside the image); alpha from self + 4 x, the means
// to out + 4 (x - x0). Returns the first pixel left to do.
int linear_span_sse2(const unsigned char* const* rows, const long long* dx, int n, int x0, int x1,
                     const unsigned char* self, unsigned char* out);

struct MotionSrc {
    const unsigned char* pixels;  // 4-byte pixels, row-major
    long long stride;             // pixels per row
    int width, height;
    double cx, cy;  // the centre the positions are relative to
};

// mblur_round: pixels 0 .. count - 1 (count a multiple of four), pixel i starting at
// (vx[i], vy[i]) from the centre and turned by (c[i], s[i]) after each of its n samples.
// Pixel i of out gets the rounded means, alpha from alpha_from[i].
void arc_pixels_avx2(const MotionSrc* src, const double* vx, const double* vy, const double* c, const double* s,
                     int count, int n, const unsigned char* alpha_from, unsigned char* out);

// mblur_radial and mblur_zoom: pixels 0 .. count - 1 (a multiple of four) at offsets
// (ox0 + i, oy) from the centre; sample k of pixel i at (ox a[k] - oy b[k], ox b[k] + oy a[k]).
void spin_pixels_avx2(const MotionSrc* src, double ox0, double oy, const double* a, const double* b, int n, int count,
                      const unsigned char* alpha_from, unsigned char* out);

}  // namespace kivfilter

#endif
