// The integer HLS model of color_models.h over batches of colours: AVX2 kernels
// (color_batch_simd.h) where they run, the scalar functions otherwise. Every colour comes
// out exactly as rgb_to_hls / hls_to_rgb give it.
#ifndef KIV_CORE_COLOR_BATCH_H
#define KIV_CORE_COLOR_BATCH_H

#include <cstddef>
#include <cstdint>

namespace kivcore {

// HLS of n colour words (red in bits 0..7, green 8..15, blue 16..23; the rest ignored).
void hls_of_words(const std::uint32_t* words, int* h, int* l, int* s, std::size_t n);
// RGB of n HLS triples, channels as hls_to_rgb returns them (truncated, unclamped). l and s
// must lie in 0..255; h may be any value within +-2^25.
void rgb_of_hls(const int* h, const int* l, const int* s, int* r, int* g, int* b, std::size_t n);

}  // namespace kivcore

#endif
