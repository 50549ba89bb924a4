// What the refined quantizer's files share: the search space, the candidate lists and the
// nearest-colour kernels, the palette builder and the mapper.
//
// Colours are searched in a four-channel space: red, green and blue premultiplied by alpha,
// then alpha (an opaque image has alpha 255 everywhere, so only its colours count), each
// 0..255.  Distances are sums of channel weight times squared difference, in integers, so
// every path and thread count finds the same nearest entry.
#ifndef KIV_QUANTIZE_HQ_H
#define KIV_QUANTIZE_HQ_H

#include <cstdint>
#include <vector>

#include "kiv.h"
#include "quantize/hq_simd.h"

namespace kivhq {

constexpr int kMaxColors = 256;

// Packs a colour of the search space the way the kernels read it.
inline Packed pack(int c0, int c1, int c2, int c3) {
    return Packed{static_cast<std::uint32_t>(c0) | static_cast<std::uint32_t>(c1) << 16,
                  static_cast<std::uint32_t>(c2) | static_cast<std::uint32_t>(c3) << 16};
}

// round(v * a / 255) for bytes v and a, exactly.
inline int premultiply(int v, int a) {
    const int t = v * a + 128;
    return (t + (t >> 8)) >> 8;
}

// The kernels of the widest set the instruction-set switch allows (or the scalar ones).
const KernelSet& kernels();
// The portable reference of KernelSet::nearest, written out plainly.
std::int32_t nearest_reference(const Chunk* chunks, int count, Packed q);

// A palette in search coordinates.
struct Palette {
    int count = 0;
    int c[kMaxColors][4];
};

// Appends the chunks of the candidate list of `indices` (n of them) to out.
void add_chunks(const Palette& pal, const int* indices, int n, std::vector<Chunk>* out);

// ---- The pixels, seen as sources of the search space.

// One image's pixels and how to read them.
struct Source {
    tagRGBA* px;
    int width, height;
    bool alpha;  // byte 3 is straight alpha; otherwise every pixel is opaque
};

inline Packed search_colour(const tagRGBA& p, bool alpha) {
    if (!alpha || p.a == 255) return pack(p.r, p.g, p.b, 255);
    return pack(premultiply(p.r, p.a), premultiply(p.g, p.a), premultiply(p.b, p.a), p.a);
}

// ---- The nearest-colour grid (see GridView).

class Grid {
public:
    Grid(const Palette& pal, bool alpha);
    // The cell numbering of GridView.
    static int cell_of(Packed q, bool alpha) {
        const int slice = alpha ? static_cast<int>(q.ba >> 21) : 0;
        return slice << 15 | static_cast<int>((q.rg & 0xF8) << 7 | (q.rg >> 19 & 0x1F) << 5 | (q.ba & 0xF8) >> 3);
    }
    static int cells(bool alpha) { return alpha ? 8 << 15 : 1 << 15; }
    // Builds the lists of every cell whose flag in `wanted` (one byte per cell) is set.
    void build(const std::uint8_t* wanted);
    const GridView& view() const { return view_; }

private:
    const Palette& pal_;
    bool alpha_;
    std::vector<Chunk> all_;  // the whole palette
    std::vector<Chunk> pool_;
    std::vector<std::uint32_t> cell_;
    GridView view_;
};

// Marks the cells within `units` of a marked cell along each axis (error diffusion moves
// colours that far).
void widen_cells(std::vector<std::uint8_t>* cells, bool alpha, int units);

// ---- The palette builder.

// Colour histogram of one or more sources: its points (exact colours, or cells of a grid of
// bins) with their pixel counts and channel sums in search coordinates.
struct Histogram {
    bool alpha = false;
    bool any_transparent = false;  // a pixel with alpha 0 (kept out of the points)
    bool any_visible = false;      // a pixel with alpha above 0
    bool exact = false;            // every distinct colour is a point
    bool few = false;              // ... and there are at most `colors` of them
    std::vector<std::uint32_t> keys;  // exact: the distinct colours (r | g << 8 | b << 16 | a << 24,
                                      // 0 for transparent), in order of first appearance
    std::vector<std::uint32_t> n;     // per point: pixels
    std::vector<std::uint64_t> sum;   // per point: 4 channel sums
    std::vector<std::uint8_t> bin;    // per point: its bin along each axis (boxes split between
                                      // bins; exact colours are their own bins)
    std::vector<std::uint8_t> occupied;  // per grid cell: a pixel falls in it
};

// Fills h from the sources (alpha: any source has alpha).
void build_histogram(const Source* src, int count, bool alpha, int colors, Histogram* h);

// At most `colors` entries from the histogram (never more), refined by Voronoi iterations.
// *pal in search coordinates, pixel totals per entry in weight (for ordering).
void build_palette(const Histogram& h, int colors, Palette* pal, std::vector<std::uint64_t>* weight);

// One more Voronoi step on the pixels themselves, about 2^kRefineBits of them spread evenly
// over the sources (`pixels` in all): a cell's mean stands for its pixels only roughly, so
// this moves each entry to the true centre of the pixels nearest to it.  Weights become
// those pixels' counts.
constexpr int kRefineBits = 17;
void refine_on_pixels(const Source* src, int count, const Histogram& h, long long pixels, Palette* pal,
                      std::vector<std::uint64_t>* weight);

// The cells worth candidate lists for mapping `pixels` pixels: the occupied ones, or none
// when there are too few pixels a cell for lists to pay (the whole palette is searched).
std::vector<std::uint8_t> lists_for(const std::vector<std::uint8_t>& occupied, bool alpha, long long pixels);

// ---- Mapping the pixels.

struct Mapping {
    const Grid* grid;
    const Palette* pal;        // search coordinates of the entries
    const std::uint32_t* out;  // per entry: the pixel word written (its colour, its index in byte 3)
    int transparent;           // the entry of pixels with alpha 0 (sources with alpha only)
    const int* limit;          // per entry: error diffusion's limits (see error_limits)
    const int* dead;
};

// Per entry, in 1/256 units: the largest error diffusion passes on from a pixel mapped to it
// (the distance to its nearest other entry: a larger error is no shade between neighbouring
// entries, and would only bleed), and the error below which a pixel in a flat area passes
// nothing on (a quarter of that distance: there it would only scatter specks).
void error_limits(const Palette& pal, int* limit, int* dead);

// Replaces every pixel of s (in place) by its nearest entry.
void map_nearest(const Source& s, const Mapping& m);
// The same with error diffusion at strength 1..100 percent.
void map_diffuse(const Source& s, const Mapping& m, int strength);

}  // namespace kivhq

#endif
