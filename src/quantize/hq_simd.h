// The refined quantizer's kernels (nearest colour, mapping, error diffusion, counting, local
// contrast) over an operations set: each vector file instantiates them with its own register
// operations, so each is compiled for its own instruction set.  Every lane computes exactly
// what the scalar code computes, so every path gives the same bytes.
#ifndef KIV_QUANTIZE_HQ_SIMD_H
#define KIV_QUANTIZE_HQ_SIMD_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/simd.h"

namespace kivhq {

// Channel weights of every distance, over premultiplied red, green, blue and alpha: equal for
// the colour channels (byte values are already near even steps to the eye, and their squared
// error is what PSNR measures), a little more for alpha.
constexpr int kWeight[4] = {4, 4, 4, 5};
constexpr int kWeightSum = kWeight[0] + kWeight[1] + kWeight[2] + kWeight[3];

// Lists are padded with a sentinel entry at 510 in every channel: farther from every colour
// than any real entry, yet each difference times its weight still fits 16 bits.  The largest
// distance, 510^2 x (sum of the weights), stays below 2^23, so a distance shifted left by 8
// bits with the entry's index in the low byte (the key) fits a signed 32-bit lane.
constexpr int kSentinel = 510;
static_assert(kSentinel * kSentinel * kWeightSum < (1 << 23), "keys must fit 31 bits");
static_assert(kSentinel * std::max({kWeight[0], kWeight[1], kWeight[2], kWeight[3]}) < 32768,
              "weighted differences must fit 16 bits");

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
// cache: `cache_mask + 1` (a power of two) zeroed words the kernel may use to remember
// colours it has looked up.
using MapRunFn = void (*)(const GridView& g, const std::uint32_t* out, int transparent, bool alpha, unsigned char* px,
                          std::size_t n, std::uint64_t* cache, std::uint32_t cache_mask);

// Error diffusion, Floyd-Steinberg with every row left to right.  Errors are kept in 1/256 of
// a unit per channel, with one spare pixel at each end of a row.
struct DiffuseParams {
    GridView grid;
    const std::uint32_t* out;  // pixel words per entry
    const int (*entry)[4];     // search colours per entry, times 256
    const int* limit;          // per entry: largest error passed on, 1/256 units
    const int* dead;           // per entry: in flat areas, errors up to this are dropped
    const int* scales;         // per strength byte (see HoldFn): the caller's strength 0..256 times
                               // the pixel's, 0..127, / 127
    int transparent;           // entry of pixels with alpha 0
    int width;
    bool src_alpha;            // byte 3 of the pixels is alpha
};
struct DiffuseRow {
    std::uint64_t* cache;       // a colour cache as map_run's, shared by the rows of a band
    std::uint32_t cache_mask;
    unsigned char* px;          // the row's pixels, mapped in place
    const std::uint8_t* hold;   // per pixel: strength 0..127, +128 in flat areas
    int* in;                    // 4 errors a pixel received from the row above, zeroed as read
    int* next;                  // 4 errors a pixel for the row below (zero where read later)
    int carry[4];               // error for the next pixel of this row
};
// Rows a band maps side by side (n of DiffuseFn is at most this).
constexpr int kBandRows = 4;

// Runs steps [k0, k1) over rows[0..n): at step k, row r maps its pixel k - 2r (if inside
// the row), so each row trails the one above by two pixels and every pixel has all of its
// error when it is mapped.  The rows' chains are independent, which lets the processor
// overlap them; each pixel's arithmetic is the same however the rows are grouped.
using DiffuseFn = void (*)(const DiffuseParams& p, DiffuseRow* rows, int n, int k0, int k1);

// How strongly error diffusion runs at each pixel of a row, from the local contrast c: the
// largest difference of any channel (alpha too when `alpha`) to the neighbours left, right,
// above and below (the row's end pixels are their own outer neighbours; up and down may be
// the row itself at the image's edges).  Full strength, 127, up to kFullUpTo; then 8 less a
// unit, 0 from kFullUpTo + 16 on: edges and texture hide banding, and diffusion would only
// smear them.  Plus 128 where c is 0 (a flat area).
constexpr int kFullUpTo = 2;

// The pixels of a register as bytes (Kernels' Bytes), over a core operations set S
// (core/simd_sse2.h, core/simd_avx2.h); each vector file adds its own store.
template <class S>
struct BytesOver {
    using V = typename S::V;
    static constexpr int kPixels = S::kBytes / 4;
    static V load(const unsigned char* p) { return S::load(p); }
    static V absdiff(V a, V b) { return S::or_(S::subs_u8(a, b), S::subs_u8(b, a)); }
    static V max8(V a, V b) { return S::max_u8(a, b); }
    static V drop_alpha(V a) { return S::and_(a, S::set32(0x00FFFFFF)); }
    // The largest byte of each pixel, in the pixel's low byte (the others left as they fall).
    static V lane_max(V a) {
        a = S::max_u8(a, S::template shr32<8>(a));
        return S::max_u8(a, S::template shr32<16>(a));
    }
    // hold_strength of each pixel's low byte, in its low 16 bits.  kFullUpTo + 16 - c stays
    // inside the signed word range, so the floor at 0 is the saturating subtraction.
    static V strength(V a) {
        const V c = S::and_(a, S::set32(0xFF));
        const V t = S::template shl16<3>(S::max16(S::sub16(S::set32(kFullUpTo + 16), c), S::zero()));
        const V flat = S::and_(S::cmpeq32(c, S::zero()), S::set32(128));
        return S::or_(S::min16(t, S::set32(127)), flat);
    }
};
// The rule for one pixel (a template so that each instruction set's file has its own copy).
template <class Tag>
struct HoldRule {
    static constexpr int strength(int c) {
        const int t = (kFullUpTo + 16 - c) * 8;
        return (t < 0 ? 0 : t > 127 ? 127 : t) | (c == 0 ? 128 : 0);
    }
};
using HoldFn = void (*)(const unsigned char* up, const unsigned char* row, const unsigned char* down, int width,
                        bool alpha, std::uint8_t* out);

// Counts n opaque pixels (every stride-th from `first`) into histogram cells of four words:
// red, green and blue sums and the pixel count.  One table look-up per channel gives the
// cell (bits 0..15) and the nearest-colour grid cell (bits 16..31), which is marked in
// occupied.  Sums stay below 2^32 for up to 2^24 counted pixels.
using CountFn = void (*)(const unsigned char* px, std::size_t n, std::size_t stride, std::size_t first,
                         const std::uint32_t (*lut)[256], std::uint32_t* cells, std::uint8_t* occupied);

// Adds every stride-th of n pixels (from `first`) to the sums of its nearest entry: five
// words an entry, the pixel count and the four search-space channel sums.  Pixels with
// alpha 0 of a source with alpha are left out.  cache as map_run's.
using AssignFn = void (*)(const GridView& g, bool alpha, const unsigned char* px, std::size_t n, std::size_t stride,
                          std::size_t first, std::uint64_t* cache, std::uint32_t cache_mask, std::uint64_t* sums);

struct KernelSet {
    AssignFn assign;
    NearestFn nearest;
    MapRunFn map_run;
    DiffuseFn diffuse;
    HoldFn hold;
    CountFn count;
};
KernelSet kernels_scalar();
KernelSet kernels_sse2();
KernelSet kernels_avx2();

// Ops supplies: V (a register of Ops::kLanes 32-bit lanes), set1(x), load_pairs(p) (kLanes
// pairs of 16-bit lanes from p), load_keys(p) (kLanes 32-bit lanes), sub16(a, b), mul16(a, b)
// (low halves of the 16-bit products), madd(a, b) (pairwise products added into 32-bit
// lanes), add32, or32, shl8 (32-bit lanes shifted left by 8), min32 (signed) and
// hmin(v) (the smallest lane); Narrow, the operations of a 4-lane register (Ops itself when
// it has 4 lanes or fewer); Lanes, the four 32-bit channel lanes of one pixel (see the
// vector files: from_bytes, premultiply, load, store, zero, set1, add, sub, shl, shl8, sra4,
// sra8, clamp, mul16, max_abs, is_zero, to_bytes, drop_alpha); Bytes, the pixels of a register as bytes
// (kPixels, load, absdiff, max8, drop_alpha, lane_max, strength, store).  Each vector file instantiates
// Kernels with its own Ops.
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

    // SrcAlpha: byte 3 of the pixels is alpha; GridAlpha: the grid has alpha slices.  Runs of
    // equal pixels reuse the last result; other colours go through a direct-mapped cache of
    // (colour, entry) words (bit 63 marks a filled one), then the grid.
    template <bool SrcAlpha, bool GridAlpha>
    static void map_pixels(const GridView& g, const std::uint32_t* out, int transparent, unsigned char* px, std::size_t n,
                           std::uint64_t* cache, std::uint32_t cache_mask) {
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
                const std::uint64_t tag = std::uint64_t{1} << 63 | static_cast<std::uint64_t>(w) << 8;
                std::uint64_t& slot = cache[(w * 0x9E3779B1u) >> 15 & cache_mask];
                if ((slot & ~std::uint64_t{0xFF}) == tag) {
                    prev_out = out[slot & 0xFF];
                } else {
                    const int idx = SrcAlpha && !(w >> 24) ? transparent : lookup<GridAlpha>(g, search(w, SrcAlpha));
                    slot = tag | static_cast<std::uint64_t>(idx);
                    prev_out = out[idx];
                }
            }
            std::memcpy(px + 4 * i, &prev_out, 4);
        }
    }

    // One row of a band while it runs.
    struct RowState {
        unsigned char* px;
        const std::uint8_t* hold;
        int* in;
        int* next;
        typename Ops::Lanes::V carry;
        std::uint64_t* cache;
        std::uint32_t cache_mask;
        // The last pixel received no error and passed none on: the next one with its
        // colour and strength and no error either gives the same result (flat areas).
        bool quiet;
        std::uint32_t quiet_w, quiet_out;
        int quiet_hold;
    };

    // One pixel: its colour plus the error it received, clamped, looked up; the error left
    // (limited, scaled by the strength) passed on 7/16 ahead and 3/16, 5/16 and the rest
    // below.  Channels are the four 32-bit lanes of L (red, green, blue, alpha; an opaque
    // pixel's alpha lane never carries error).
    template <bool SrcAlpha, bool GridAlpha>
    KIV_SIMD_INLINE static void diffuse_pixel(const DiffuseParams& p, RowState& row, int x) {
        using L = typename Ops::Lanes;
        using W = typename L::V;
        std::uint32_t w;
        std::memcpy(&w, row.px + 4 * x, 4);
        const W in = L::load(row.in + 4 * (x + 1));
        if (SrcAlpha && !(w >> 24)) {  // transparent: exact, and no error crosses it
            L::store(row.in + 4 * (x + 1), L::zero());
            std::memcpy(row.px + 4 * x, &p.out[p.transparent], 4);
            row.carry = L::zero();
            row.quiet = false;
            return;
        }
        const int hold = row.hold[x];
        if (row.quiet && w == row.quiet_w && hold == row.quiet_hold && L::is_zero(in)) {
            std::memcpy(row.px + 4 * x, &row.quiet_out, 4);
            return;
        }
        L::store(row.in + 4 * (x + 1), L::zero());  // the buffer comes back as a later row's next
        W c = L::from_bytes(SrcAlpha ? w : w | 0xFF000000u);
        if (SrcAlpha) c = L::premultiply(c, static_cast<int>(w >> 24));
        // Target in 1/256 units, clamped to the colour cube; rounded to look it up.
        const W received = L::add(in, row.carry);
        W t = L::add(L::shl8(c), received);
        t = L::clamp(t, 0, 255 * 256);
        const std::uint32_t key = L::to_bytes(L::sra8(L::add(t, L::set1(128))));
        const std::uint64_t tag = std::uint64_t{1} << 63 | static_cast<std::uint64_t>(key) << 8;
        std::uint64_t& slot = row.cache[(key * 0x9E3779B1u) >> 15 & row.cache_mask];
        if ((slot & ~std::uint64_t{0xFF}) != tag) {
            const Packed q{(key & 0xFF) | (key & 0xFF00) << 8, (key >> 16 & 0xFF) | (key >> 24) << 16};
            slot = tag | static_cast<std::uint64_t>(lookup<GridAlpha>(p.grid, q));
        }
        const int idx = static_cast<int>(slot & 0xFF);
        const int lim = p.limit[idx];
        W e = L::clamp(L::sub(t, L::load(p.entry[idx])), -lim, lim);
        if (!SrcAlpha) e = L::drop_alpha(e);  // an opaque pixel stays opaque
        int scale = p.scales[hold];
        if ((hold & 128) && L::max_abs(e) <= p.dead[idx]) scale = 0;
        if (!scale) {  // nothing passed on: edges, texture, flat areas
            row.carry = L::zero();
            std::memcpy(row.px + 4 * x, &p.out[idx], 4);
            row.quiet = L::is_zero(received);
            row.quiet_w = w;
            row.quiet_hold = hold;
            row.quiet_out = p.out[idx];
            return;
        }
        row.quiet = false;
        // Scaled in 1/16 units so that the product is one 16-bit multiply: (e >> 4) * scale >> 4.
        const W d = L::sra4(L::mul16(L::sra4(e), scale));
        const W d7 = L::sra4(L::sub(L::shl(d, 3), d)), d3 = L::sra4(L::add(L::shl(d, 1), d));
        const W d5 = L::sra4(L::add(L::shl(d, 2), d));
        int* nx = row.next + 4 * (x + 1);
        L::store(nx - 4, L::add(L::load(nx - 4), d3));
        L::store(nx, L::add(L::load(nx), d5));
        L::store(nx + 4, L::add(L::load(nx + 4), L::sub(L::sub(L::sub(d, d7), d3), d5)));
        row.carry = d7;
        std::memcpy(row.px + 4 * x, &p.out[idx], 4);
    }

    template <bool SrcAlpha, bool GridAlpha>
    static void diffuse_steps(const DiffuseParams& p, DiffuseRow* rows, int n, int k0, int k1) {
        using L = typename Ops::Lanes;
        constexpr int kRows = kBandRows;  // the steps below are written out for four
        static_assert(kRows == 4, "diffuse_steps interleaves four rows");
        const DiffuseParams lp = p;
        RowState st[kRows];
        int end[kRows];
        for (int r = 0; r < kRows; ++r) {
            const DiffuseRow& d = rows[r < n ? r : 0];
            st[r] = RowState{d.px, d.hold, d.in, d.next, L::load(d.carry), d.cache, d.cache_mask, false, 0, 0, 0};
            end[r] = r < n ? lp.width : 0;
        }
        // Written out row by row so that each row's state can stay in registers.
        auto step = [&](RowState& row, int x, int e) {
            if (x >= 0 && x < e) diffuse_pixel<SrcAlpha, GridAlpha>(lp, row, x);
        };
        // Where all four rows are inside, without the checks.
        // (No std::min or std::max here: templates of other headers stay out of the AVX2 code.)
        const int full0 = n == kRows ? (k0 > 2 * (kRows - 1) ? k0 : 2 * (kRows - 1)) : k1;
        const int full1 = n == kRows ? (k1 < lp.width ? k1 : lp.width) : k1;
        int k = k0;
        for (; k < (full0 < k1 ? full0 : k1); ++k) {
            step(st[0], k, end[0]);
            step(st[1], k - 2, end[1]);
            step(st[2], k - 4, end[2]);
            step(st[3], k - 6, end[3]);
        }
        for (; k < full1; ++k) {
            diffuse_pixel<SrcAlpha, GridAlpha>(lp, st[0], k);
            diffuse_pixel<SrcAlpha, GridAlpha>(lp, st[1], k - 2);
            diffuse_pixel<SrcAlpha, GridAlpha>(lp, st[2], k - 4);
            diffuse_pixel<SrcAlpha, GridAlpha>(lp, st[3], k - 6);
        }
        for (; k < k1; ++k) {
            step(st[0], k, end[0]);
            step(st[1], k - 2, end[1]);
            step(st[2], k - 4, end[2]);
            step(st[3], k - 6, end[3]);
        }
        for (int r = 0; r < n; ++r) L::store(rows[r].carry, st[r].carry);
    }

    static void diffuse(const DiffuseParams& p, DiffuseRow* rows, int n, int k0, int k1) {
        if (p.src_alpha) diffuse_steps<true, true>(p, rows, n, k0, k1);
        else if (p.grid.alpha) diffuse_steps<false, true>(p, rows, n, k0, k1);
        else diffuse_steps<false, false>(p, rows, n, k0, k1);
    }

    static void hold(const unsigned char* up, const unsigned char* row, const unsigned char* down, int width, bool alpha,
                     std::uint8_t* out) {
        using B = typename Ops::Bytes;
        auto one = [&](int x) {
            const int l = x > 0 ? x - 1 : x, r = x + 1 < width ? x + 1 : x;
            int c = 0;
            for (int k = 0; k < (alpha ? 4 : 3); ++k) {
                const int v = row[4 * x + k];
                const int d[4] = {v - row[4 * l + k], v - row[4 * r + k], v - up[4 * x + k], v - down[4 * x + k]};
                for (int e : d) c = c > (e < 0 ? -e : e) ? c : (e < 0 ? -e : e);
            }
            out[x] = static_cast<std::uint8_t>(HoldRule<Ops>::strength(c));
        };
        one(0);
        int x = 1;
        for (; x + B::kPixels < width; x += B::kPixels) {
            const auto v = B::load(row + 4 * x);
            auto m = B::max8(B::max8(B::absdiff(v, B::load(row + 4 * x - 4)), B::absdiff(v, B::load(row + 4 * x + 4))),
                            B::max8(B::absdiff(v, B::load(up + 4 * x)), B::absdiff(v, B::load(down + 4 * x))));
            if (!alpha) m = B::drop_alpha(m);
            B::store(out + x, B::strength(B::lane_max(m)));
        }
        for (; x < width; ++x) one(x);
    }

    static void count(const unsigned char* px, std::size_t n, std::size_t stride, std::size_t first,
                      const std::uint32_t (*lut)[256], std::uint32_t* cells, std::uint8_t* occupied) {
        using L = typename Ops::Lanes;
        // One vector add of (red, green, blue, 1) times the run's length.
        auto add = [&](std::uint32_t w, std::uint32_t run) {
            const std::uint32_t v = lut[0][w & 0xFF] | lut[1][w >> 8 & 0xFF] | lut[2][w >> 16 & 0xFF];
            int* cell = reinterpret_cast<int*>(cells) + 4 * (v & 0xFFFF);
            const auto one = L::from_bytes(w | 0x01000000u);
            for (; run > 0x7FFF; run -= 0x7FFF) L::store(cell, L::add(L::load(cell), L::mul16(one, 0x7FFF)));
            L::store(cell, L::add(L::load(cell), run == 1 ? one : L::mul16(one, static_cast<int>(run))));
            occupied[v >> 16] = 1;
        };
        if (stride > 1) {
            for (std::size_t i = first; i < n; i += stride) {
                std::uint32_t w;
                std::memcpy(&w, px + 4 * i, 4);
                add(w & 0xFFFFFFu, 1);
            }
            return;
        }
        std::uint32_t prev, run = 0;
        std::memcpy(&prev, px, 4);
        prev &= 0xFFFFFFu;
        for (std::size_t i = 0; i < n; ++i) {
            std::uint32_t w;
            std::memcpy(&w, px + 4 * i, 4);
            w &= 0xFFFFFFu;
            if (w == prev) {
                ++run;
                continue;
            }
            add(prev, run);
            prev = w;
            run = 1;
        }
        add(prev, run);
    }

    template <bool SrcAlpha, bool GridAlpha>
    static void assign_pixels(const GridView& g, const unsigned char* px, std::size_t n, std::size_t stride, std::size_t first,
                              std::uint64_t* cache, std::uint32_t cache_mask, std::uint64_t* sums) {
        const std::uint32_t mask = SrcAlpha ? 0xFFFFFFFFu : 0x00FFFFFFu;
        for (std::size_t i = first; i < n; i += stride) {
            std::uint32_t w;
            std::memcpy(&w, px + 4 * i, 4);
            w &= mask;
            if (SrcAlpha && !(w >> 24)) continue;
            const Packed q = search(w, SrcAlpha);
            const std::uint64_t tag = std::uint64_t{1} << 63 | static_cast<std::uint64_t>(w) << 8;
            std::uint64_t& slot = cache[(w * 0x9E3779B1u) >> 15 & cache_mask];
            if ((slot & ~std::uint64_t{0xFF}) != tag) slot = tag | static_cast<std::uint64_t>(lookup<GridAlpha>(g, q));
            std::uint64_t* e = sums + 5 * (slot & 0xFF);
            e[0] += 1;
            e[1] += q.rg & 0xFFFF;
            e[2] += q.rg >> 16;
            e[3] += q.ba & 0xFFFF;
            e[4] += q.ba >> 16;
        }
    }

    static void assign(const GridView& g, bool alpha, const unsigned char* px, std::size_t n, std::size_t stride,
                       std::size_t first, std::uint64_t* cache, std::uint32_t cache_mask, std::uint64_t* sums) {
        if (alpha) assign_pixels<true, true>(g, px, n, stride, first, cache, cache_mask, sums);
        else if (g.alpha) assign_pixels<false, true>(g, px, n, stride, first, cache, cache_mask, sums);
        else assign_pixels<false, false>(g, px, n, stride, first, cache, cache_mask, sums);
    }

    static void map_run(const GridView& g, const std::uint32_t* out, int transparent, bool alpha, unsigned char* px,
                        std::size_t n, std::uint64_t* cache, std::uint32_t cache_mask) {
        if (!n) return;
        if (alpha) map_pixels<true, true>(g, out, transparent, px, n, cache, cache_mask);
        else if (g.alpha) map_pixels<false, true>(g, out, transparent, px, n, cache, cache_mask);
        else map_pixels<false, false>(g, out, transparent, px, n, cache, cache_mask);
    }
};

}  // namespace kivhq

#endif
