// The nearest-colour kernels of the refined quantizer over an operations set: each vector
// file instantiates them with its own register operations, so each is compiled for its own
// instruction set.  Every lane computes the scalar key (distance << 8 | index) exactly.
#ifndef KIV_QUANTIZE_HQ_SIMD_H
#define KIV_QUANTIZE_HQ_SIMD_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kivhq {

// Channel weights of every distance, over premultiplied red, green, blue and alpha: green
// counts most and blue least, as the eye resolves them, but mildly, since every channel's
// error adds to the visible noise.
constexpr int kWeight[4] = {4, 4, 4, 5};
constexpr int kWeightSum = kWeight[0] + kWeight[1] + kWeight[2] + kWeight[3];

// Lists are padded with a sentinel entry at 510 in every channel: farther from every colour
// than any real entry, yet each difference times its weight still fits 16 bits.  The largest
// distance, 510^2 x (sum of the weights), stays below 2^23, so a distance shifted left by 8
// bits with the entry's index in the low byte (the key) fits a signed 32-bit lane.
constexpr int kSentinel = 510;
static_assert(kSentinel * kSentinel * kWeightSum < (1 << 23), "keys must fit 31 bits");
static_assert(kSentinel * 6 < 32768, "weighted differences must fit 16 bits");

// A colour of the search space as two pairs of 16-bit lanes, the form the kernels multiply:
// (c0 | c1 << 16) and (c2 | c3 << 16).
struct Packed {
    std::uint32_t rg, ba;
};

// Eight candidate entries laid out for the kernels (a shorter list ends in sentinels).
struct Chunk {
    std::int16_t rg[16];  // (c0, c1) of candidates 0..7
    std::int16_t ba[16];  // (c2, c3)
    std::int32_t idx[8];  // their palette indices
};

// The nearest-colour grid as the kernels read it: the colour cube cut into cells of 8 units
// a side of premultiplied red, green and blue (and, with alpha, 8 slices of alpha), each with
// the list of the entries that can be nearest somewhere inside it.
struct GridView {
    // Per cell: 0 when its list was not built (the whole palette is searched); else the
    // list's length in bits 0..8 and, above, its first chunk in pool, or for a list of one
    // entry that entry's index.
    const std::uint32_t* cell;
    const Chunk* pool;
    const Chunk* all;  // the whole palette
    int all_count;     // its entries
    bool alpha;        // cells have alpha slices
};

// Words of the pixels written per palette entry: the entry's colour, its index in byte 3.
// Pixels are read and written as 32-bit words (red in the low byte on every little-endian
// target the library builds for).

// The smallest key of q over the first `count` candidates of the chunks: the nearest, the
// lower index on a tie.
using NearestFn = std::int32_t (*)(const Chunk* chunks, int count, Packed q);
// Maps n pixels in place to their nearest entries: words from out; pixels with alpha 0 of a
// source with alpha take entry `transparent`.
using MapRunFn = void (*)(const GridView& g, const std::uint32_t* out, int transparent, bool alpha, unsigned char* px,
                          std::size_t n);

struct KernelSet {
    NearestFn nearest;
    MapRunFn map_run;
};
KernelSet kernels_scalar();
KernelSet kernels_sse2();
KernelSet kernels_avx2();

// Ops supplies: V (a register of Ops::kLanes 32-bit lanes), set1(x), load_pairs(p) (kLanes
// pairs of 16-bit lanes from p), load_keys(p) (kLanes 32-bit lanes), sub16(a, b), mul16(a, b)
// (low halves of the 16-bit products), madd(a, b) (pairwise products added into 32-bit
// lanes), add32, or32, shl8 (32-bit lanes shifted left by 8), min32 (signed) and
// hmin(v) (the smallest lane); Narrow, the operations of a 4-lane register (Ops itself when
// it has 4 lanes or fewer).  Each vector file instantiates Kernels with its own Ops.
template <class Ops>
struct Kernels {
    using V = typename Ops::V;

    // Keys of candidates [at, at + kLanes) of chunk c.
    static V keys(const Chunk& c, int at, V qrg, V qba) {
        const V wrg = Ops::set1(kWeight[0] | kWeight[1] << 16), wba = Ops::set1(kWeight[2] | kWeight[3] << 16);
        const V d = Ops::sub16(qrg, Ops::load_pairs(c.rg + 2 * at));
        const V e = Ops::sub16(qba, Ops::load_pairs(c.ba + 2 * at));
        const V dist = Ops::add32(Ops::madd(d, Ops::mul16(d, wrg)), Ops::madd(e, Ops::mul16(e, wba)));
        return Ops::or32(Ops::shl8(dist), Ops::load_keys(c.idx + at));
    }

    static std::int32_t nearest(const Chunk* chunks, int count, Packed q) {
        // Most lists are short: four candidates take one narrow step.
        if (Ops::kLanes > 4 && count <= 4) return Kernels<typename Ops::Narrow>::nearest(chunks, count, q);
        const V qrg = Ops::set1(static_cast<std::int32_t>(q.rg)), qba = Ops::set1(static_cast<std::int32_t>(q.ba));
        V best = Ops::set1(0x7FFFFFFF);
        for (int at = 0; at < count; at += Ops::kLanes) best = Ops::min32(best, keys(chunks[at >> 3], at & 7, qrg, qba));
        return Ops::hmin(best);
    }

    // The search colour of a pixel word: premultiplied when the source has alpha.
    static Packed search(std::uint32_t w, bool alpha) {
        const int r = static_cast<int>(w & 0xFF), g = static_cast<int>(w >> 8 & 0xFF), b = static_cast<int>(w >> 16 & 0xFF);
        const int a = alpha ? static_cast<int>(w >> 24) : 255;
        if (a == 255) return Packed{static_cast<std::uint32_t>(r | g << 16), static_cast<std::uint32_t>(b | 255 << 16)};
        auto pm = [a](int v) {
            const int t = v * a + 128;
            return (t + (t >> 8)) >> 8;
        };
        return Packed{static_cast<std::uint32_t>(pm(r) | pm(g) << 16), static_cast<std::uint32_t>(pm(b) | a << 16)};
    }

    template <bool Alpha>
    static int cell_of(Packed q) {
        const int slice = Alpha ? static_cast<int>(q.ba >> 21) : 0;
        return slice << 15 | static_cast<int>((q.rg & 0xF8) << 7 | (q.rg >> 19 & 0x1F) << 5 | (q.ba & 0xF8) >> 3);
    }

    // The nearest entry of q (Alpha: the grid has alpha slices).
    template <bool Alpha>
    static int lookup(const GridView& g, Packed q) {
        const std::uint32_t rec = g.cell[cell_of<Alpha>(q)];
        const int count = static_cast<int>(rec & 0x1FF);
        if (count == 1) return static_cast<int>(rec >> 9);
        if (count == 0) return nearest(g.all, g.all_count, q) & 0xFF;
        return nearest(g.pool + (rec >> 9), count, q) & 0xFF;
    }

    // SrcAlpha: byte 3 of the pixels is alpha; GridAlpha: the grid has alpha slices.
    template <bool SrcAlpha, bool GridAlpha>
    static void map_pixels(const GridView& g, const std::uint32_t* out, int transparent, unsigned char* px, std::size_t n) {
        const std::uint32_t mask = SrcAlpha ? 0xFFFFFFFFu : 0x00FFFFFFu;
        std::uint32_t prev, prev_out = 0;
        std::memcpy(&prev, px, 4);
        prev = ~prev & mask;  // differs from the first pixel
        for (std::size_t i = 0; i < n; ++i) {
            std::uint32_t w;
            std::memcpy(&w, px + 4 * i, 4);
            w &= mask;
            if (w != prev) {
                prev = w;
                if (SrcAlpha && !(w >> 24)) prev_out = out[transparent];
                else prev_out = out[lookup<GridAlpha>(g, search(w, SrcAlpha))];
            }
            std::memcpy(px + 4 * i, &prev_out, 4);
        }
    }

    static void map_run(const GridView& g, const std::uint32_t* out, int transparent, bool alpha, unsigned char* px,
                        std::size_t n) {
        if (!n) return;
        if (alpha) map_pixels<true, true>(g, out, transparent, px, n);
        else if (g.alpha) map_pixels<false, true>(g, out, transparent, px, n);
        else map_pixels<false, false>(g, out, transparent, px, n);
    }
};

}  // namespace kivhq

#endif
