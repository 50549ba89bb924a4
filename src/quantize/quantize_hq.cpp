// kiv::quantize_hq and kiv::quantize_shared: the refined palette, for one image or several.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <vector>

#include "core/checked.h"
#include "core/parallel.h"
#include "quantize/hq.h"

namespace {

using kivhq::kMaxColors;

bool has_pixels(const kiv* img) {
    return img && img->m_pixels && kivcore::checked_packets(img->m_width, img->m_height) == img->m_packets;
}

int depth_for(int entries) { return entries <= 2 ? 1 : entries <= 16 ? 4 : 8; }

// Whether a 24- or 32-bit image has a pixel with alpha below 255.
bool any_translucent(const kiv& img) {
    std::atomic<bool> found{false};
    kivcore::parallel_chunks(0, img.m_height, [&](int y0, int y1) {
        const tagRGBA* p = img.m_pixels + static_cast<std::size_t>(y0) * static_cast<std::size_t>(img.m_width);
        const std::size_t n = static_cast<std::size_t>(y1 - y0) * static_cast<std::size_t>(img.m_width);
        unsigned all = 255;
        for (std::size_t i = 0; i < n && !found.load(std::memory_order_relaxed); i += 4096) {
            const std::size_t end = std::min(n, i + 4096);
            for (std::size_t k = i; k < end; ++k) all &= p[k].a;
            if (all != 255) found.store(true, std::memory_order_relaxed);
        }
    });
    return found.load();
}

// A pixel as one 32-bit key: its colour and alpha, every fully transparent pixel the same.
inline std::uint32_t colour_key(const tagRGBA& p, bool alpha) {
    const std::uint32_t a = alpha ? p.a : 255u;
    if (a == 0) return 0;
    return static_cast<std::uint32_t>(p.r) | static_cast<std::uint32_t>(p.g) << 8 | static_cast<std::uint32_t>(p.b) << 16 | a << 24;
}

// Up to 256 distinct keys in order of first appearance, with their position in that order.
class KeySet {
public:
    int find_or_add(std::uint32_t key) {
        std::uint32_t h = (key * 2654435761u) >> (32 - kBits);
        for (;; h = (h + 1) & (kSlots - 1)) {
            if (!used_[h]) {
                used_[h] = 1;
                key_[h] = key;
                index_[h] = static_cast<int>(order_.size());
                order_.push_back(key);
                return index_[h];
            }
            if (key_[h] == key) return index_[h];
        }
    }
    int find(std::uint32_t key) const {
        for (std::uint32_t h = (key * 2654435761u) >> (32 - kBits);; h = (h + 1) & (kSlots - 1)) {
            if (!used_[h]) return -1;
            if (key_[h] == key) return index_[h];
        }
    }
    int size() const { return static_cast<int>(order_.size()); }
    std::uint32_t at(int i) const { return order_[static_cast<std::size_t>(i)]; }

private:
    static constexpr int kBits = 10;  // 1024 slots for at most 257 keys
    static constexpr std::uint32_t kSlots = 1u << kBits;
    std::uint8_t used_[kSlots] = {};
    std::uint32_t key_[kSlots] = {};
    int index_[kSlots] = {};
    std::vector<std::uint32_t> order_;
};

struct Entry {
    tagRGBA colour;  // straight colour and alpha
    std::uint64_t weight;
    int order;       // first appearance or creation
};

// Translucent entries first (by alpha), then by weight, most first.
bool entry_before(const Entry& a, const Entry& b) {
    if (a.colour.a != b.colour.a && (a.colour.a < 255 || b.colour.a < 255)) return a.colour.a < b.colour.a;
    if (a.weight != b.weight) return a.weight > b.weight;
    return a.order < b.order;
}

int quantize_images(kiv** images, int n, int colors, int dither, int flags) {
    if (!images || n < 1 || colors < 1 || colors > kMaxColors || dither < 0 || dither > 100 || (flags & ~KIV_QUANT_ALPHA))
        return 0;
    for (int i = 0; i < n; ++i)
        if (!has_pixels(images[i])) return 0;
    std::vector<kiv*> sorted(images, images + n);
    std::sort(sorted.begin(), sorted.end(), std::less<kiv*>());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) return 0;  // an image listed twice
    std::vector<kivhq::Source> src;
    bool alpha = false;
    for (int i = 0; i < n; ++i) {
        kiv* im = images[i];
        const bool a = (flags & KIV_QUANT_ALPHA) && im->m_bits >= 24 && any_translucent(*im);
        src.push_back(kivhq::Source{im->m_pixels, im->m_width, im->m_height, a});
        alpha |= a;
    }

    long long total_pixels = 0;
    for (const kivhq::Source& s : src) total_pixels += static_cast<long long>(s.width) * s.height;

    // The palette: the images' own colours when they are few, else built.
    std::vector<Entry> entries;
    kivhq::Histogram hist;
    kivhq::build_histogram(src.data(), n, alpha, colors, &hist);
    const bool exact = hist.few;
    if (exact) {
        for (std::size_t i = 0; i < hist.keys.size(); ++i) {
            const std::uint32_t k = hist.keys[i];
            entries.push_back(Entry{tagRGBA{static_cast<BYTE>(k), static_cast<BYTE>(k >> 8), static_cast<BYTE>(k >> 16),
                                            static_cast<BYTE>(k >> 24)},
                                    0, static_cast<int>(i)});
        }
        std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
            return (a.colour.a < 255) > (b.colour.a < 255);
        });
    } else {
        const bool reserve = hist.any_transparent && (colors >= 2 || !hist.any_visible);
        kivhq::Palette built;
        std::vector<std::uint64_t> weight;
        kivhq::build_palette(hist, colors - (reserve ? 1 : 0), &built, &weight);
        if (!hist.exact) kivhq::refine_on_pixels(src.data(), n, hist, total_pixels, &built, &weight);
        for (int j = 0; j < built.count; ++j) {
            const int* c = built.c[j];
            tagRGBA e{0, 0, 0, 0};
            if (c[3] > 0) {
                auto straight = [&](int v) { return static_cast<BYTE>(std::min(255, (v * 255 + c[3] / 2) / c[3])); };
                e = tagRGBA{straight(c[0]), straight(c[1]), straight(c[2]), static_cast<BYTE>(c[3])};
            }
            entries.push_back(Entry{e, weight[static_cast<std::size_t>(j)], j});
        }
        if (reserve) entries.push_back(Entry{tagRGBA{0, 0, 0, 0}, 0, built.count});
        std::stable_sort(entries.begin(), entries.end(), entry_before);
    }
    const int count = static_cast<int>(entries.size());

    // Everything that can fail is allocated before any image changes.
    std::vector<std::unique_ptr<tagRGBA, decltype(&std::free)>> maps;
    for (int i = 0; i < n; ++i) {
        maps.emplace_back(static_cast<tagRGBA*>(std::calloc(static_cast<std::size_t>(count), sizeof(tagRGBA))), &std::free);
        if (!maps.back()) throw std::bad_alloc();
    }
    auto pal = std::make_unique<kivhq::Palette>();
    pal->count = count;
    std::uint32_t out[kMaxColors];
    int transparent = 0;
    for (int j = 0; j < count; ++j) {
        const tagRGBA& e = entries[static_cast<std::size_t>(j)].colour;
        const kivhq::Packed q = kivhq::search_colour(e, true);
        pal->c[j][0] = static_cast<int>(q.rg & 0xFFFF);
        pal->c[j][1] = static_cast<int>(q.rg >> 16);
        pal->c[j][2] = static_cast<int>(q.ba & 0xFFFF);
        pal->c[j][3] = static_cast<int>(q.ba >> 16);
        out[j] = static_cast<std::uint32_t>(e.r) | static_cast<std::uint32_t>(e.g) << 8 | static_cast<std::uint32_t>(e.b) << 16 |
                 static_cast<std::uint32_t>(j) << 24;
        if (e.a == 0) transparent = j;
    }

    if (exact) {
        KeySet index;
        for (int j = 0; j < count; ++j) {
            const tagRGBA& e = entries[static_cast<std::size_t>(j)].colour;
            index.find_or_add(colour_key(e, true));
        }
        for (const kivhq::Source& s : src)
            kivcore::parallel_chunks(0, s.height, [&](int y0, int y1) {
                tagRGBA* p = s.px + static_cast<std::size_t>(y0) * static_cast<std::size_t>(s.width);
                const std::size_t m = static_cast<std::size_t>(y1 - y0) * static_cast<std::size_t>(s.width);
                for (std::size_t i = 0; i < m; ++i) std::memcpy(&p[i], &out[std::max(0, index.find(colour_key(p[i], s.alpha)))], 4);
            });
    } else {
        int limit[kMaxColors] = {}, dead[kMaxColors] = {};
        if (dither) kivhq::error_limits(*pal, limit, dead);
        // Lists pay when there are many pixels a cell; for small images searching the whole
        // palette is cheaper.  Diffusion moves a colour by at most the largest error a pixel
        // passes on: lists then cover the cells next to the images' own colours (farther
        // ones, rarer, search the whole palette).
        kivhq::Grid grid(*pal, alpha);
        std::vector<std::uint8_t> wanted = hist.occupied;
        if (dither) kivhq::widen_cells(&wanted, alpha, std::min(8, *std::max_element(limit, limit + count) / 256));
        grid.build(kivhq::lists_for(wanted, alpha, total_pixels).data());
        const kivhq::Mapping m{&grid, pal.get(), out, transparent, limit, dead};
        for (const kivhq::Source& s : src) {
            if (dither) kivhq::map_diffuse(s, m, dither);
            else kivhq::map_nearest(s, m);
        }
    }

    for (int i = 0; i < n; ++i) {
        kiv* im = images[i];
        im->alloccmap(0);
        im->m_map = maps[static_cast<std::size_t>(i)].release();
        im->m_colors = count;
        for (int j = 0; j < count; ++j) im->m_map[j] = entries[static_cast<std::size_t>(j)].colour;
        im->m_bits = depth_for(count);
    }
    return 1;
}

}  // namespace

int kiv::quantize_hq(int colors, int dither, int flags) {
    kiv* self = this;
    return quantize_images(&self, 1, colors, dither, flags);
}

int kiv::quantize_shared(kiv** images, int n, int colors, int dither, int flags) {
    return quantize_images(images, n, colors, dither, flags);
}
