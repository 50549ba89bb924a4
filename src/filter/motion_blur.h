// The sampling blurs' AVX2 kernels (motion_blur_avx2.cpp): nearest samples of the whole
// image, coordinates clamped to it, averaged with rounding per colour channel. Each lane is
// one pixel and computes its sample positions with exactly the scalar operations; a
// position is floor(v + 0.5) of its double v. Call only when kivcore::use_avx2().
#ifndef KIV_FILTER_MOTION_BLUR_H
#define KIV_FILTER_MOTION_BLUR_H

namespace kivfilter {

struct MotionSrc {
    const unsigned char* pixels;  // 4-byte pixels, row-major
    long long stride;             // pixels per row
    int width, height;
    double cx, cy;                // the centre the positions are relative to
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
