// What the quantizer's files share: the palette record, the histogram layout, the median
// cut, the inverse-colour cache and the mapping methods.  All state lives in the objects a
// call creates, so different images may be quantized on several threads at once.
#ifndef KIV_QUANTIZE_QUANTIZE_H
#define KIV_QUANTIZE_QUANTIZE_H

#include <cstdint>

#include "kiv.h"

namespace kivquant {

// Histogram / cache: red and green at 6 bits, blue at 5 bits.
constexpr int kRedCells = 64, kGreenCells = 64, kBlueCells = 32;
constexpr int kCells = kRedCells * kGreenCells * kBlueCells;  // 131072

inline int cell_of(int r, int g, int b) { return ((r >> 2) * kGreenCells + (g >> 2)) * kBlueCells + (b >> 3); }

// Channel weights of every colour distance and variance.
constexpr int kWeightR = 30, kWeightG = 59, kWeightB = 11;

constexpr int kMaxEntries = 256;

enum Mode { kNearest = 0, kDiffuseLight = 1, kExact = 2, kDiffuseStrong = 3, kOrdered = 4 };

struct Rgb {
    int r, g, b;
};

struct Palette {
    int count = 0;
    Rgb entry[kMaxEntries];
};

// One pass over the pixels: counts every pixel into hist (which must be zeroed) and collects
// the distinct colours in order of first appearance while there are at most `colors` of
// them.  Returns true when the image has at most `colors` colours; *firsts then holds them.
bool prescan(const tagRGBA* px, int n, int colors, std::uint32_t* hist, Palette* firsts);

// Variance-driven median cut of hist into at most `colors` (1..256) boxes; the palette is
// their count-weighted mean colours sorted by lightness.
void median_cut(const std::uint32_t* hist, int colors, Palette* out);

// Ascending lightness (min + max) >> 1, ties by 77 r + 150 g + 29 b; equal keys keep their
// order.
void sort_by_lightness(Palette* pal);

// Inverse-colour cache, kept in the histogram's memory once the palette is chosen: per cell
// the nearest palette entry (weights 30, 59, 11, to the cell's centre; the earlier entry on
// ties).  An 8 x 8 x 4-cell block is computed at once, on first use, pruning the palette
// to the entries that can win anywhere in the block.  Cells are stored as bytes (a quarter
// of the histogram) with one "computed" flag per block: the error diffusion's chain of
// dependent look-ups then stays in the faster caches.
// A small image meets too few cells of a block to pay for filling it: with per_cell the
// cache computes each cell alone on its first use, by a search outward along green.
constexpr int kBlocks = 512;  // (64 / 8) x (64 / 8) x (32 / 4)

class InverseCache {
public:
    // storage: kCells 32-bit words (the histogram array); its contents are overwritten.
    InverseCache(std::uint32_t* storage, const Palette& pal, bool per_cell = false);
    void clear();  // forget every block (every cell)
    // Nearest entry of the cell, computing its block (or itself) on first use (one thread only).
    int index(int cell) {
        if (per_cell_) {
            std::uint64_t& word = cell_done_[cell >> 6];
            const std::uint64_t bit = std::uint64_t{1} << (cell & 63);
            if (!(word & bit)) {
                index_[cell] = static_cast<std::uint8_t>(nearest_of_cell(cell));
                word |= bit;
            }
            return index_[cell];
        }
        const int blk = block_of(cell);
        if (!done_[blk]) {
            fill_block(cell);
            done_[blk] = 1;
        }
        return index_[cell];
    }
    // After fill_all(): a read-only look-up that any number of threads may share.
    int filled(int cell) const { return index_[cell]; }
    void fill_all();  // every block, blocks spread over the parallel loop

private:
    static int block_of(int cell) { return (cell >> 14) << 6 | ((cell >> 8) & 7) << 3 | ((cell >> 2) & 7); }
    void fill_block(int cell);
    int nearest_of_cell(int cell) const;
    std::uint8_t* index_;
    std::uint8_t* done_;
    std::uint64_t* cell_done_;  // per_cell: one bit a cell
    const Palette& pal_;
    bool per_cell_;
    // per_cell: the entries in ascending green (then index) order.
    int by_green_[kMaxEntries], green_[kMaxEntries];
};

// Maps every pixel of a width x height buffer (top row first) to the palette and writes the
// result in place: red, green, blue of the chosen entry, its index in byte 3.  cache is a
// kCells array (the histogram; contents are overwritten).  mode must be 0..4.
void map_pixels(tagRGBA* px, int width, int height, int mode, const Palette& pal, std::uint32_t* cache);

// The 128 x 128 ordered-dither thresholds (0..63), indexed [(x & 127) * 128 + (y & 127)].
const std::uint8_t* threshold_matrix();

// Fixed palette `which` (0..8): its records and *n their count; null for other values.
const tagSYSCOL* fixed_palette(int which, int* n);

}  // namespace kivquant

#endif
