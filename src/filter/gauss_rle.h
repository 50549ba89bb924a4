// The integer Gaussian kernel of blur_gauss_rle_plane, shared with the tests.
#ifndef KIV_FILTER_GAUSS_RLE_H
#define KIV_FILTER_GAUSS_RLE_H

#include <vector>

namespace kivfilter {

// Largest sigma accepted: keeps 255 * (sum of taps) within a signed 32-bit sum.
constexpr double kRleMaxSigma = 10000.0;

struct RleKernel {
    int h = 0;              // half width
    std::vector<int> prefix; // P[0..2h]: P[i+1] = P[i] + tap(i - h); tap +h is never used
    int total() const { return prefix.back(); }
};

// False for sigma outside (0, kRleMaxSigma] or NaN.
bool rle_kernel(double sigma, RleKernel* k);

}  // namespace kivfilter

#endif
