// Plain per-pixel model of the 3x3 sharpening (centre 18, neighbours -1, / 10, clamped)
// inside a rectangle whose border pixels stand in for the neighbours outside it.
#ifndef KIV_TEST_SHARPEN_REFERENCE_H
#define KIV_TEST_SHARPEN_REFERENCE_H

#include <algorithm>
#include <vector>

#include "kiv.h"

namespace kivtest {

// The clipped rectangle (l, t, r, b) of img filtered in place; alpha kept.
inline void reference_sharpen(kiv& img, int l, int t, int r, int b) {
    const int w = r - l, h = b - t;
    std::vector<tagRGBA> in(static_cast<std::size_t>(w) * h);
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i) in[static_cast<std::size_t>(j) * w + i] = img.m_pixels[(std::size_t)(t + j) * img.m_width + l + i];
    static const int kernel[9] = {-1, -1, -1, -1, 18, -1, -1, -1, -1};
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i) {
            tagRGBA& out = img.m_pixels[(std::size_t)(t + j) * img.m_width + l + i];
            for (int c = 0; c < 3; ++c) {
                int s = 0, k = 0;
                for (int dj = -1; dj <= 1; ++dj)
                    for (int di = -1; di <= 1; ++di, ++k) {
                        int ni = i + di < 0 || i + di >= w ? i : i + di;
                        int nj = j + dj < 0 || j + dj >= h ? j : j + dj;
                        const BYTE* p = &in[static_cast<std::size_t>(nj) * w + ni].r;
                        s += kernel[k] * p[c];
                    }
                int v = std::clamp(s / 10, 0, 255);
                (&out.r)[c] = static_cast<BYTE>(v);
            }
        }
}

}  // namespace kivtest

#endif
