// Batches through the integer HLS model; see color_batch.h.
#include "core/color_batch.h"

#include "core/color_batch_simd.h"
#include "core/color_models.h"
#include "core/simd.h"

namespace kivcore {

void hls_of_words(const std::uint32_t* words, int* h, int* l, int* s, std::size_t n) {
    std::size_t i = 0;
    if (const auto batch = pick_avx2(KIV_AVX2_KERNEL(hls_of_words_avx2))) {
        i = n / 8 * 8;
        batch(words, h, l, s, i);
    }
    for (; i < n; ++i) {
        const std::uint32_t w = words[i];
        const Hls c = rgb_to_hls(static_cast<int>(w & 0xFF), static_cast<int>((w >> 8) & 0xFF),
                                 static_cast<int>((w >> 16) & 0xFF));
        h[i] = c.h;
        l[i] = c.l;
        s[i] = c.s;
    }
}

void rgb_of_hls(const int* h, const int* l, const int* s, int* r, int* g, int* b, std::size_t n) {
    std::size_t i = 0;
    if (const auto batch = pick_avx2(KIV_AVX2_KERNEL(rgb_of_hls_avx2))) {
        i = n / 8 * 8;
        batch(h, l, s, r, g, b, i);
    }
    for (; i < n; ++i) hls_to_rgb(h[i], l[i], s[i], r + i, g + i, b + i);
}

}  // namespace kivcore
