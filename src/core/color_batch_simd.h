// The AVX2 kernels behind the batched HLS model of core/color_batch.h (color_batch.cpp,
// color_batch_avx2.cpp). Only where kivcore::use_avx2().
#ifndef KIV_CORE_COLOR_BATCH_SIMD_H
#define KIV_CORE_COLOR_BATCH_SIMD_H

#include "core/color_batch.h"

namespace kivcore {

// hls_of_words and rgb_of_hls for n rounded down to a multiple of 8, every colour exactly as
// rgb_to_hls and hls_to_rgb give it.
void hls_of_words_avx2(const std::uint32_t* words, int* h, int* l, int* s, std::size_t n);
void rgb_of_hls_avx2(const int* h, const int* l, const int* s, int* r, int* g, int* b, std::size_t n);

}  // namespace kivcore

#endif
