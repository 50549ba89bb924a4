// Colour maps of palettized images: allocation, depth raising, logical palettes, pixel
// refresh from the map, grey conversion and colour counting.
#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "core/parallel.h"
#include "kiv.h"

void kiv::alloccmap(int n) {
    std::free(m_map);
    m_map = nullptr;
    m_colors = n;
    if (n > 0) {
        m_map = static_cast<tagRGBA*>(std::calloc(static_cast<std::size_t>(n), sizeof(tagRGBA)));
        if (!m_map) m_colors = 0;
    }
}

void kiv::increasecolor(int n) {
    if (!m_pixels) return;
    const int want = n <= 4 ? 4 : n <= 8 ? 8 : 24;
    if (m_bits >= want) return;
    m_bits = want;
    // Only the step to true colour drops the map; 1 -> 4 and 4 -> 8 keep it as it is.
    if (want == 24 && m_map) {
        std::free(m_map);
        m_map = nullptr;
        m_colors = 0;
    }
}

tagLOGPALETTE* kiv::createlogpalette() {
    if (!m_map || m_colors <= 0) return nullptr;
    // Plain malloc: the record is released with std::free (free_gradtable).
    const std::size_t bytes = static_cast<std::size_t>(m_colors) * sizeof(PALETTEENTRY) + 8;
    auto* lp = static_cast<tagLOGPALETTE*>(std::malloc(bytes));
    if (!lp) return nullptr;
    lp->palVersion = 0x300;
    lp->palNumEntries = static_cast<WORD>(m_colors & 0xFFFF);
    PALETTEENTRY* e = lp->palPalEntry;
    for (int i = 0; i < m_colors; ++i) e[i] = PALETTEENTRY{m_map[i].r, m_map[i].g, m_map[i].b, 0};
    return lp;
}

void kiv::validate_rgb() {
    if (m_bits >= 24 || !m_pixels || !m_map || m_colors <= 0) return;
    // Index bytes reach 255 at most: one 256-entry table, entries past the map taking entry
    // 0's colour, so a stray index never reads outside the map.
    tagRGBA lut[256];
    const int n = std::min(m_colors, 256);
    for (int i = 0; i < 256; ++i) lut[i] = m_map[i < n ? i : 0];
    tagRGBA* px = m_pixels;
    const std::size_t w = static_cast<std::size_t>(m_width);
    kivcore::parallel_for(0, m_height, kivcore::row_work(m_width, 1), [&](int y) {
        tagRGBA* p = px + static_cast<std::size_t>(y) * w;
        for (std::size_t x = 0; x < w; ++x) {
            const BYTE idx = p[x].a;
            p[x] = tagRGBA{lut[idx].r, lut[idx].g, lut[idx].b, idx};
        }
    });
}

void kiv::grayscale() {
    if (!m_pixels) return;
    auto* ramp = static_cast<tagRGBA*>(std::calloc(256, sizeof(tagRGBA)));
    if (!ramp) return;
    for (int i = 0; i < 256; ++i) ramp[i] = tagRGBA{BYTE(i), BYTE(i), BYTE(i), 0};
    tagRGBA* px = m_pixels;
    const std::size_t w = static_cast<std::size_t>(m_width);
    kivcore::parallel_for(0, m_height, kivcore::row_work(m_width, 1), [&](int y) {
        tagRGBA* p = px + static_cast<std::size_t>(y) * w;
        for (std::size_t x = 0; x < w; ++x) {
            const int mn = std::min({p[x].r, p[x].g, p[x].b});
            const int mx = std::max({p[x].r, p[x].g, p[x].b});
            const BYTE g = static_cast<BYTE>((mn + mx) >> 1);  // HLS lightness, truncated
            p[x] = tagRGBA{g, g, g, g};                        // g is also the new index
        }
    });
    std::free(m_map);
    m_map = ramp;
    m_colors = 256;
    m_bits = 8;
}

// Distinct colours by marking one bit per colour. Each leaf of a depth-8 octree over red,
// green and blue stands for exactly one colour, so counting occupied leaves is counting set
// bits in a 2^24-bit set: the same count with 2 MiB and no pointer chasing. The test read
// is plain, so a colour already seen (most pixels of a photo) costs no atomic write.
unsigned long kiv::countcolors() {
    if (!m_pixels || m_packets <= 0) return 0;
    const tagRGBA* px = m_pixels;
    const std::size_t w = static_cast<std::size_t>(m_width);
    if (m_bits < 9) {
        std::atomic<std::uint32_t> used[256];
        for (auto& u : used) u.store(0, std::memory_order_relaxed);
        kivcore::parallel_for(0, m_height, kivcore::row_work(m_width, 1), [&](int y) {
            const tagRGBA* p = px + static_cast<std::size_t>(y) * w;
            for (std::size_t x = 0; x < w; ++x)
                if (!used[p[x].a].load(std::memory_order_relaxed)) used[p[x].a].store(1, std::memory_order_relaxed);
        });
        unsigned long n = 0;
        for (auto& u : used) n += u.load(std::memory_order_relaxed);
        return n;
    }
    constexpr std::size_t kWords = (std::size_t(1) << 24) / 64;
    std::unique_ptr<std::atomic<std::uint64_t>[]> set(new (std::nothrow) std::atomic<std::uint64_t>[kWords]);
    if (!set) return 0;
    kivcore::parallel_chunks(0, static_cast<int>(kWords), [&](int b, int e) {
        for (int i = b; i < e; ++i) set[static_cast<std::size_t>(i)].store(0, std::memory_order_relaxed);
    });
    kivcore::parallel_for(0, m_height, kivcore::row_work(m_width, 2), [&](int y) {
        const tagRGBA* p = px + static_cast<std::size_t>(y) * w;
        for (std::size_t x = 0; x < w; ++x) {
            const std::uint32_t c = (std::uint32_t(p[x].r) << 16) | (std::uint32_t(p[x].g) << 8) | p[x].b;
            std::atomic<std::uint64_t>& word = set[c >> 6];
            const std::uint64_t bit = std::uint64_t(1) << (c & 63);
            if (!(word.load(std::memory_order_relaxed) & bit)) word.fetch_or(bit, std::memory_order_relaxed);
        }
    });
    std::atomic<unsigned long> total{0};
    kivcore::parallel_chunks(0, static_cast<int>(kWords), [&](int b, int e) {
        unsigned long n = 0;
        for (int i = b; i < e; ++i) n += static_cast<unsigned long>(std::popcount(set[static_cast<std::size_t>(i)].load(std::memory_order_relaxed)));
        total.fetch_add(n, std::memory_order_relaxed);
    });
    return total.load();
}
