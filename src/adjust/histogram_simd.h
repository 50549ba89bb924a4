// The histogram adjustments' SSE2 kernels (histogram.cpp, histogram_sse2.cpp).
#ifndef KIV_ADJUST_HISTOGRAM_SIMD_H
#define KIV_ADJUST_HISTOGRAM_SIMD_H

#include <cstddef>
#include <cstdint>

namespace kivadjust {

// Counts the luminance levels of pixels 0 .. n - 1 (4-byte pixels at p) into the eight
// interleaved histograms part[0..7] (pixel i of each group of eight into part[i]); returns
// the first pixel left to count.
int count_luminance_sse2(const unsigned char* p, int n, std::uint32_t (*part)[256]);

// Running minima and maxima of bytes 0 .. nb - 1 into lanes lo16[k], hi16[k] (byte j into
// lane j % 16); returns the first byte left.
std::size_t byte_range_sse2(const unsigned char* bytes, std::size_t nb, unsigned char* lo16, unsigned char* hi16);

}  // namespace kivadjust

#endif
