// What the resampler's files share: the contribution lists that resample.cpp builds and the
// two passes of resample_passes.cpp that apply them.
#ifndef KIV_GEOMETRY_RESAMPLE_H
#define KIV_GEOMETRY_RESAMPLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/wide_pixels.h"
#include "kiv.h"

namespace kivgeom {

// Contribution lists of one pass: output index i owns count[i] (source index, weight)
// pairs starting at entry i * cap.
struct Contributions {
    long long cap = 0;
    // 255 times the largest total |weight| of a list is below 2^30, so no weighted sum of
    // bytes can leave +-2^30 and the AVX2 kernels convert sums to int32 without a clamp
    // first (false for NaN or infinite weights).
    bool small_sums = false;
    std::vector<int> count;
    std::vector<int> index;
    std::vector<double> weight;
    const int* idx(int i) const { return index.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(cap); }
    const double* wt(int i) const {
        return weight.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(cap);
    }
};

// dst row y (horizontal: every row of src to dst's width) or dst row i (vertical: the listed
// rows of src) from the lists; every byte of every pixel is written (alpha 0).
void hpass(kiv& src, kiv& dst, const Contributions& c);
void vpass(kiv& src, kiv& dst, const Contributions& c);

// One end of a weighted pass (zoom_rgba): an image's RGBA pixels (read through WideFormat's
// load, written through its store), or 16-bit intermediates of four words a pixel.
struct WideImage {
    tagRGBA* bytes;
    std::uint16_t* words;
    int width, height;
};
// The passes of hpass and vpass on four channels of floats, each with its scalar twin.
void hpass_wide(const WideImage& src, const WideImage& dst, const Contributions& c, const kivcore::WideFormat& f);
void vpass_wide(const WideImage& src, const WideImage& dst, const Contributions& c, const kivcore::WideFormat& f);

}  // namespace kivgeom

#endif
