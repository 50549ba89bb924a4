// Block transfer between images, clipped per pixel against both.
#include <algorithm>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "kiv.h"

void kiv::blt(int x, int y, int w, int h, kiv* src, int sx, int sy) {
    if (!src || w < 0 || h < 0) return;
    if (x >= m_width || y >= m_height || sx >= src->m_width || sy >= src->m_height) return;
    if (static_cast<long long>(x) + w < 0 || static_cast<long long>(y) + h < 0) return;
    if (!m_pixels || !src->m_pixels || w == 0 || h == 0) return;

    // Columns j with both sx + j and x + j inside their images: one contiguous run.
    const long long j0 = std::max({0LL, -static_cast<long long>(sx), -static_cast<long long>(x)});
    const long long j1 = std::min({static_cast<long long>(w), static_cast<long long>(src->m_width) - sx,
                                   static_cast<long long>(m_width) - x});
    const long long i0 = std::max({0LL, -static_cast<long long>(sy), -static_cast<long long>(y)});
    const long long i1 = std::min({static_cast<long long>(h), static_cast<long long>(src->m_height) - sy,
                                   static_cast<long long>(m_height) - y});
    if (j1 <= j0 || i1 <= i0) return;
    const std::size_t run = static_cast<std::size_t>(j1 - j0) * sizeof(tagRGBA);
    const int rows = static_cast<int>(i1 - i0);

    const tagRGBA* sbase = src->m_pixels;
    std::size_t sstride = static_cast<std::size_t>(src->m_width);
    std::vector<tagRGBA> snapshot;
    if (src == this) {
        // Copying within one image: take the source block first so overlapping blocks
        // give the same result as copying from a separate image.
        snapshot.resize(static_cast<std::size_t>(rows) * static_cast<std::size_t>(j1 - j0));
        for (int r = 0; r < rows; ++r)
            std::memcpy(snapshot.data() + static_cast<std::size_t>(r) * (j1 - j0),
                        sbase + static_cast<std::size_t>(sy + i0 + r) * sstride + (sx + j0), run);
        sbase = snapshot.data();
        sstride = static_cast<std::size_t>(j1 - j0);
    }
    const bool snap = src == this;
    tagRGBA* dbase = m_pixels;
    const std::size_t dstride = static_cast<std::size_t>(m_width);
    kivcore::parallel_for(0, rows, kivcore::row_work(static_cast<long long>(run / sizeof(tagRGBA)), 0.25), [&](int r) {
        const tagRGBA* s = snap ? sbase + static_cast<std::size_t>(r) * sstride
                                : sbase + static_cast<std::size_t>(sy + i0 + r) * sstride + (sx + j0);
        std::memcpy(dbase + static_cast<std::size_t>(y + i0 + r) * dstride + (x + j0), s, run);
    });
}
