// What the tone and colour adjustments share: pixel words, byte tables applied to rows of a
// rectangle or to a colour map, and the refresh of palettized pixels from their map.
#ifndef KIV_ADJUST_ADJUST_H
#define KIV_ADJUST_ADJUST_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "core/parallel.h"
#include "core/toolkit.h"
#include "kiv.h"

namespace kivadjust {

using u8 = std::uint8_t;
using u32 = std::uint32_t;
using kivcore::Area;
using kivcore::clamp255;
using kivcore::clip_rect;

// A pixel as one little-endian word: red in bits 0..7, green 8..15, blue 16..23, and the
// fourth byte (alpha or colour-map index) in 24..31, which the adjustments carry through.
constexpr u32 kFourthByte = 0xFF000000u;

inline u32 load(const tagRGBA* p) {
    u32 w;
    std::memcpy(&w, p, sizeof w);
    return w;
}
inline void store(tagRGBA* p, u32 w) { std::memcpy(p, &w, sizeof w); }
inline u32 pack(int r, int g, int b) {
    return static_cast<u32>(r & 0xFF) | static_cast<u32>(g & 0xFF) << 8 | static_cast<u32>(b & 0xFF) << 16;
}

inline bool has_pixels(const kiv& img) { return img.m_pixels && img.m_width > 0 && img.m_height > 0; }
inline bool true_colour(const kiv& img) { return img.m_bits >= 24; }

// Entries an operation on the colour map may touch: none when there is no map.
inline int map_entries(const kiv& img) { return img.m_map && img.m_colors > 0 ? img.m_colors : 0; }

// The two ways of a per-colour operation: on_rect(rc) on the clipped rectangle of a
// true-colour image (false, nothing done, when it is empty), or on_map() on the colour map of
// a palettized one, its pixels then refreshed from the map where refresh is set.
template <class OnRect, class OnMap>
bool pixels_or_map(kiv& img, tagRECT* rect, OnRect on_rect, OnMap on_map, bool refresh = true) {
    if (true_colour(img)) {
        Area rc;
        if (!clip_rect(img, rect, &rc)) return false;
        on_rect(rc);
    } else {
        on_map();
        if (refresh) img.validate_rgb();
    }
    return true;
}

// One byte table per channel.
struct Tables {
    u8 r[256], g[256], b[256];
};

inline u32 map_word(u32 w, const Tables& t) {
    return static_cast<u32>(t.r[w & 0xFF]) | static_cast<u32>(t.g[(w >> 8) & 0xFF]) << 8 |
           static_cast<u32>(t.b[(w >> 16) & 0xFF]) << 16 | (w & kFourthByte);
}

// body(row pointer at rc.left, pixel count) for every row of a clipped rectangle, rows
// spread over the parallel loop (steps: the body's pixel steps a pixel, see kivcore::Work);
// rows are disjoint, so bodies never share what they write.
template <class F>
void for_rows(kiv& img, const Area& rc, F&& body, double steps = 1.0) {
    tagRGBA* base = img.m_pixels;
    const std::size_t stride = static_cast<std::size_t>(img.m_width);
    const int n = rc.right - rc.left;
    const int left = rc.left;
    kivcore::parallel_for(rc.top, rc.bottom, kivcore::row_work(n, steps),
                          [&](int y) { body(base + static_cast<std::size_t>(y) * stride + left, n); });
}

// fn(word) -> new red, green, blue (bits 0..23) for each pixel of the rectangle, in parallel;
// the fourth byte is kept.
template <class F>
void map_rect(kiv& img, const Area& rc, F fn, double steps = 2.0) {
    for_rows(
        img, rc,
        [&](tagRGBA* p, int n) {
            for (int i = 0; i < n; ++i) {
                const u32 w = load(p + i);
                store(p + i, (fn(w) & 0x00FFFFFFu) | (w & kFourthByte));
            }
        },
        steps);
}

// Colours a batch rule is handed at once: fn.batch(in, out, n) with n <= kBatch.
constexpr int kBatch = 256;

// out[i] = fn(in[i]) for n words: through fn.batch where the rule has one (the costly models
// work on several colours at a time), else one by one.
template <class F>
void apply_batch(const F& fn, const u32* in, u32* out, int n) {
    if constexpr (requires { fn.batch(in, out, n); })
        fn.batch(in, out, n);
    else
        for (int i = 0; i < n; ++i) out[i] = fn(in[i]);
}

// map_rect for rules that cost far more than a memory access (the HLS and HSV round trips):
// each chunk of rows remembers recent colours in a direct-mapped cache, so a colour met
// again is looked up instead of recomputed.  fn is a pure function of the colour, so a hit
// returns exactly what a fresh call would.  A row goes in stretches of kBatch pixels: the
// stretch is looked up without branches (hits and misses alternate unpredictably), every
// pixel taking its entry's result and the misses queued; the misses are computed together,
// overwrite what their pixels took and enter the cache.  A colour missing twice within one
// stretch is computed twice, which keeps the lookups free of stores.
template <class F>
void map_rect_cached(kiv& img, Area rc, const F& fn) {
    tagRGBA* base = img.m_pixels;
    const std::size_t stride = static_cast<std::size_t>(img.m_width);
    const int n = rc.right - rc.left;
    // A colour model a pixel where the cache misses: tens of steps.
    kivcore::parallel_chunks(rc.top, rc.bottom, kivcore::row_work(n, 16), [&](int y0, int y1) {
        // Up to 2^16 entries of 8 bytes (512 KiB, within a core's second-level cache), fewer
        // for small chunks so that clearing the cache never costs more than the chunk's pixels.
        int bits = 6;
        while (bits < 16 && (1LL << bits) < static_cast<long long>(y1 - y0) * n) ++bits;
        // An entry holds the 24-bit key in its low half, the result in its high half; the
        // empty pattern's low half matches no key.
        std::unique_ptr<std::uint64_t[]> cache(new std::uint64_t[std::size_t{1} << bits]);
        std::fill_n(cache.get(), std::size_t{1} << bits, ~std::uint64_t{0});
        std::uint64_t* const table = cache.get();
        const int shift = 32 - bits;
        u32 in[kBatch], out[kBatch], slot[kBatch];
        int at[kBatch];
        for (int y = y0; y < y1; ++y) {
            tagRGBA* p = base + static_cast<std::size_t>(y) * stride + rc.left;
            for (int i0 = 0; i0 < n; i0 += kBatch) {
                const int i1 = n - i0 < kBatch ? n : i0 + kBatch;
                int misses = 0;
                for (int i = i0; i < i1; ++i) {
                    const u32 w = load(p + i);
                    const u32 key = w & 0x00FFFFFFu;
                    const u32 k = (key * 0x9E3779B1u) >> shift;
                    const std::uint64_t e = table[k];
                    store(p + i, (static_cast<u32>(e >> 32) & 0x00FFFFFFu) | (w & kFourthByte));
                    in[misses] = w;
                    slot[misses] = k;
                    at[misses] = i;
                    misses += static_cast<u32>(e) == key ? 0 : 1;
                }
                apply_batch(fn, in, out, misses);
                for (int j = 0; j < misses; ++j) {
                    const u32 r = out[j] & 0x00FFFFFFu;
                    table[slot[j]] = static_cast<std::uint64_t>(r) << 32 | (in[j] & 0x00FFFFFFu);
                    store(p + at[j], r | (in[j] & kFourthByte));
                }
            }
        }
    });
}

// The same over the colour map's entries.
template <class F>
void map_colormap(kiv& img, F fn) {
    const int n = map_entries(img);
    for (int i = 0; i < n; ++i) {
        const u32 w = load(img.m_map + i);
        store(img.m_map + i, (fn(w) & 0x00FFFFFFu) | (w & kFourthByte));
    }
}

// Rectangles of at least this many pixels go through a red-green pair table: building its
// 65536 entries costs about as much as mapping this many pixels one byte at a time.
constexpr long long kPairTablePixels = 1LL << 18;

inline void tables_rect(kiv& img, const Area& rc, const Tables& t) {
    const long long pixels = static_cast<long long>(rc.right - rc.left) * (rc.bottom - rc.top);
    if (pixels < kPairTablePixels) {
        for_rows(img, rc, [&](tagRGBA* p, int n) {
            // Byte by byte: a load, a look-up and a store a channel, nothing to unpack.
            u8* b = reinterpret_cast<u8*>(p);
            const u8 *const tr = t.r, *const tg = t.g, *const tb = t.b;
            for (int i = 0; i < n; ++i, b += 4) {
                b[0] = tr[b[0]];
                b[1] = tg[b[1]];
                b[2] = tb[b[2]];
            }
        });
        return;
    }
    // Red and green looked up together (128 KB, held in the second-level cache): two loads a
    // pixel instead of three, four pixels a step. The entries are those of map_word.
    std::unique_ptr<std::uint16_t[]> rg(new std::uint16_t[65536]);
    // A run of 256 entries a green value: each the red entries with that green above them.
    std::uint16_t red[256];
    for (int i = 0; i < 256; ++i) red[i] = t.r[i];
    for (int g = 0; g < 256; ++g) {
        const auto high = static_cast<std::uint16_t>(t.g[g] << 8);
        std::uint16_t* run = rg.get() + 256 * g;
        for (int i = 0; i < 256; ++i) run[i] = static_cast<std::uint16_t>(red[i] | high);
    }
    const std::uint16_t* const pair_table = rg.get();
    for_rows(img, rc, [&](tagRGBA* p, int n) {
        // Table pointers in locals: the pixel stores could otherwise alias the captures and
        // force a reload per pixel.
        const std::uint16_t* const pair = pair_table;
        const u8* const blue = t.b;
        auto one = [pair, blue](u32 w) {
            return static_cast<u32>(pair[w & 0xFFFF]) | static_cast<u32>(blue[(w >> 16) & 0xFF]) << 16 | (w & kFourthByte);
        };
        int i = 0;
        for (; i + 4 <= n; i += 4) {
            const u32 w0 = load(p + i), w1 = load(p + i + 1), w2 = load(p + i + 2), w3 = load(p + i + 3);
            store(p + i, one(w0));
            store(p + i + 1, one(w1));
            store(p + i + 2, one(w2));
            store(p + i + 3, one(w3));
        }
        for (; i < n; ++i) store(p + i, one(load(p + i)));
    });
}

inline void tables_colormap(kiv& img, const Tables& t) {
    map_colormap(img, [&](u32 w) { return map_word(w, t); });
}

// A double to an entry: 0 below 0, 255 from 255.0 up (NaN gives 0), else truncated.
inline u8 entry_from_double(double v) {
    if (!(v >= 0.0)) return 0;
    if (v >= 255.0) return 255;
    return static_cast<u8>(static_cast<int>(v));
}

}  // namespace kivadjust

#endif
