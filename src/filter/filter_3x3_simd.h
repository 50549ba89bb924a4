// The vector kernel of the 3x3 filters' row drivers (filter_3x3_impl.h): 4-byte pixels to
// channel-planar rows.
#ifndef KIV_FILTER_FILTER_3X3_SIMD_H
#define KIV_FILTER_FILTER_3X3_SIMD_H

#include <cstddef>

namespace kivfilter {

// Channels 0..2 of pixels 0 .. n - 1 (4 bytes each, at src) to the planes p0, p1, p2;
// returns the first pixel left to do (a whole number of 16-pixel groups are done).
std::size_t planes_from_pixels_sse2(const unsigned char* src, std::size_t n, unsigned char* p0, unsigned char* p1,
                                    unsigned char* p2);

}  // namespace kivfilter

#endif
