// Plain 3x3 sharpening: centre 18, the eight neighbours -1, divided by 10, clamped.
//
// The rectangle is lifted out first, so its border pixels stand in for the neighbours
// outside it and pixels outside the rectangle are never read. Channels 0..2 only; alpha
// keeps its value.
#include <algorithm>
#include <new>
#include <vector>

#include "core/parallel.h"
#include "kiv.h"

int kiv::sharpen(tagRECT* rect) {
    if (!m_pixels) return 0;
    tagRECT r;
    if (!validaterect(rect, &r)) return 0;
    m_bits = 24;  // as every 3x3 kernel does; a palettized image's map stays allocated

    const int w = r.right - r.left, h = r.bottom - r.top;
    const std::size_t line = static_cast<std::size_t>(w) * 4;  // bytes of one rectangle row
    std::vector<BYTE> in;
    try {
        in.resize(line * static_cast<std::size_t>(h));
    } catch (const std::bad_alloc&) {
        return 0;
    }
    for (int j = 0; j < h; ++j)
        std::copy_n(reinterpret_cast<const BYTE*>(pos(r.left, r.top + j)), line, in.data() + line * j);

    kivcore::parallel_chunks(0, h, [&](int j0, int j1) {
        // S = 18 c - (sum of the 8 neighbours) = 19 c - (sum of the 3x3 box); the box sum is
        // a vertical 3-sum per byte, then three of those side by side (4 bytes apart).
        std::vector<int> vs(line);
        for (int j = j0; j < j1; ++j) {
            const BYTE* up = in.data() + line * static_cast<std::size_t>(std::max(j - 1, 0));
            const BYTE* cur = in.data() + line * static_cast<std::size_t>(j);
            const BYTE* dn = in.data() + line * static_cast<std::size_t>(std::min(j + 1, h - 1));
            for (std::size_t b = 0; b < line; ++b) vs[b] = up[b] + cur[b] + dn[b];
            BYTE* out = reinterpret_cast<BYTE*>(pos(r.left, r.top + j));
            for (std::size_t b = 0; b < line; ++b) {
                if ((b & 3) == 3) continue;  // alpha is not filtered
                const int left = b >= 4 ? vs[b - 4] : vs[b];
                const int right = b + 4 < line ? vs[b + 4] : vs[b];
                const int s = 19 * cur[b] - (left + vs[b] + right);
                // clamp(s / 10) with truncating division: negative sums give 0.
                out[b] = static_cast<BYTE>(s < 0 ? 0 : s >= 2550 ? 255 : s / 10);
            }
        }
    });
    return 1;
}
