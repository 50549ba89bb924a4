// Mapping pixels to a palette: the inverse-colour cache and the five mapping methods.
#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "core/toolkit.h"
#include "core/watch.h"
#include "quantize/quantize.h"

namespace kivquant {

namespace {

// A block of the cache: 8 x 8 x 4 cells, 32 x 32 x 32 colour units.
constexpr int kBlockR = 8, kBlockG = 8, kBlockB = 4;
constexpr int kBlockCells = kBlockR * kBlockG * kBlockB;  // 256
static_assert(kBlocks == (kRedCells / kBlockR) * (kGreenCells / kBlockG) * (kBlueCells / kBlockB));
// The cell bytes, the block flags and the cell bits share the histogram's memory.
constexpr std::size_t kCellBitsAt = (kCells + kBlocks + 7) / 8 * 8;
static_assert(kCellBitsAt + kCells / 8 <= kCells * sizeof(std::uint32_t));

// From this many pixels on, the parallel methods compute all 512 blocks up front (spread
// over the pool) and then share the cache read-only; below it the lazy single-threaded
// fill touches fewer blocks.  Either way every cell holds the same entry.
constexpr long long kEagerPixels = 1 << 18;
// Below this many pixels the cache works cell by cell: a search costs about four times a
// cell's share of a block fill, and small images use only a few cells of each block.
constexpr long long kCellByCellPixels = 1 << 14;

inline unsigned wsq(int w, int d) { return static_cast<unsigned>(w * d) * static_cast<unsigned>(w * d); }

// Weighted distance from v to the interval [lo, hi] (with centre c): nearest and farthest.
inline void bound_dist(int v, int lo, int hi, int c, int w, unsigned* nearest, unsigned* farthest) {
    if (v < lo) {
        *nearest = wsq(w, lo - v);
        *farthest = wsq(w, hi - v);
    } else if (v > hi) {
        *nearest = wsq(w, v - hi);
        *farthest = wsq(w, v - lo);
    } else {
        *nearest = 0;
        *farthest = v <= c ? wsq(w, hi - v) : wsq(w, v - lo);
    }
}


}  // namespace

InverseCache::InverseCache(std::uint32_t* storage, const Palette& pal, bool per_cell)
    : index_(reinterpret_cast<std::uint8_t*>(storage)), done_(index_ + kCells),
      cell_done_(reinterpret_cast<std::uint64_t*>(index_ + kCellBitsAt)), pal_(pal), per_cell_(per_cell) {
    if (!per_cell) return;
    for (int i = 0; i < pal.count; ++i) by_green_[i] = i;
    std::stable_sort(by_green_, by_green_ + pal.count, [&](int a, int b) { return pal.entry[a].g < pal.entry[b].g; });
    for (int i = 0; i < pal.count; ++i) green_[i] = pal.entry[by_green_[i]].g;
}

void InverseCache::clear() {
    if (per_cell_)
        std::memset(cell_done_, 0, kCells / 8);
    else
        std::memset(done_, 0, kBlocks);
}

// The entry nearest the cell's centre (weights 30, 59, 11; the earlier entry on ties), found
// by visiting the entries in order of their green distance from it: once that distance alone
// exceeds the best found, no further entry can come nearer or tie.
int InverseCache::nearest_of_cell(int cell) const {
    const int cr = (cell >> 11) * 4 + 2, cg = ((cell >> 5) & 63) * 4 + 2, cb = (cell & 31) * 8 + 4;
    unsigned best = UINT_MAX;
    int win = 0;
    auto visit = [&](int k) {
        const int i = by_green_[k];
        const Rgb& p = pal_.entry[i];
        const unsigned d = wsq(kWeightR, cr - p.r) + wsq(kWeightG, cg - p.g) + wsq(kWeightB, cb - p.b);
        if (d < best || (d == best && i < win)) {
            best = d;
            win = i;
        }
    };
    int up = static_cast<int>(std::lower_bound(green_, green_ + pal_.count, cg) - green_), down = up - 1;
    for (;;) {
        const bool has_up = up < pal_.count, has_down = down >= 0;
        if (!has_up && !has_down) break;
        const int gu = has_up ? green_[up] - cg : INT_MAX, gd = has_down ? cg - green_[down] : INT_MAX;
        const bool take_up = gu <= gd;
        if (wsq(kWeightG, take_up ? gu : gd) > best) break;
        visit(take_up ? up++ : down--);
    }
    return win;
}

void InverseCache::fill_block(int cell) {
    const int r6 = cell >> 11, g6 = (cell >> 5) & 63, b5 = cell & 31;
    const int r0 = r6 & ~(kBlockR - 1), g0 = g6 & ~(kBlockG - 1), b0 = b5 & ~(kBlockB - 1);
    // Block bounds in colour units: the outermost cell centres.
    const int rlo = (r6 >> 3) * 32 + 2, rhi = rlo + 28, rc = rlo + 14;
    const int glo = (g6 >> 3) * 32 + 2, ghi = glo + 28, gc = glo + 14;
    const int blo = (b5 >> 2) * 32 + 4, bhi = blo + 24, bc = blo + 12;

    // Only entries whose nearest point of the block is no farther than the smallest
    // farthest point of any entry can be the nearest colour of some cell in it.
    unsigned mind[kMaxEntries];
    unsigned minmax = UINT_MAX;
    for (int i = 0; i < pal_.count; ++i) {
        const Rgb& p = pal_.entry[i];
        unsigned nr, fr, ng, fg, nb, fb;
        bound_dist(p.r, rlo, rhi, rc, kWeightR, &nr, &fr);
        bound_dist(p.g, glo, ghi, gc, kWeightG, &ng, &fg);
        bound_dist(p.b, blo, bhi, bc, kWeightB, &nb, &fb);
        mind[i] = nr + ng + nb;
        minmax = std::min(minmax, fr + fg + fb);
    }

    unsigned best[kBlockCells];
    std::uint8_t win[kBlockCells] = {};
    std::fill(best, best + kBlockCells, UINT_MAX);
    for (int i = 0; i < pal_.count; ++i) {
        if (mind[i] > minmax) continue;
        const Rgb& p = pal_.entry[i];
        // Squared weighted distances per axis, added per cell instead of recomputed.
        unsigned dr[kBlockR], dg[kBlockG], db[kBlockB];
        for (int k = 0; k < kBlockR; ++k) dr[k] = wsq(kWeightR, (r0 + k) * 4 + 2 - p.r);
        for (int k = 0; k < kBlockG; ++k) dg[k] = wsq(kWeightG, (g0 + k) * 4 + 2 - p.g);
        for (int k = 0; k < kBlockB; ++k) db[k] = wsq(kWeightB, (b0 + k) * 8 + 4 - p.b);
        for (int a = 0; a < kBlockR; ++a)
            for (int b = 0; b < kBlockG; ++b) {
                const unsigned base = dr[a] + dg[b];
                const int at = (a * kBlockG + b) * kBlockB;
                for (int c = 0; c < kBlockB; ++c) {
                    const unsigned d = base + db[c];
                    // Strictly smaller: the earlier entry keeps a tie.
                    if (d < best[at + c]) {
                        best[at + c] = d;
                        win[at + c] = static_cast<std::uint8_t>(i);
                    }
                }
            }
    }
    for (int a = 0; a < kBlockR; ++a)
        for (int b = 0; b < kBlockG; ++b) {
            std::uint8_t* dst = index_ + ((r0 + a) * kGreenCells + (g0 + b)) * kBlueCells + b0;
            for (int c = 0; c < kBlockB; ++c) dst[c] = win[(a * kBlockG + b) * kBlockB + c];
        }
}

void InverseCache::fill_all() {
    kivcore::parallel_for(0, kBlocks, [this](int blk) {
        const int br = blk >> 6, bg = (blk >> 3) & 7, bb = blk & 7;
        fill_block(((br * kBlockR) * kGreenCells + bg * kBlockG) * kBlueCells + bb * kBlockB);
    });
    std::memset(done_, 1, kBlocks);
}

namespace {

struct Mapper {
    tagRGBA* px;
    int width, height;
    const Palette& pal;
    InverseCache& cache;
    tagRGBA out[kMaxEntries];  // entry colours with their index in byte 3: the pixels written

    Mapper(tagRGBA* p, int w, int h, const Palette& pl, InverseCache& c) : px(p), width(w), height(h), pal(pl), cache(c) {
        for (int i = 0; i < kMaxEntries; ++i) {
            const Rgb e = i < pal.count ? pal.entry[i] : Rgb{0, 0, 0};
            out[i] = tagRGBA{static_cast<BYTE>(e.r), static_cast<BYTE>(e.g), static_cast<BYTE>(e.b), static_cast<BYTE>(i)};
        }
    }

    tagRGBA* row(int y) const { return px + static_cast<std::size_t>(y) * static_cast<std::size_t>(width); }

    // Rows [y0, y1) of the nearest-colour and ordered methods; Filled: the cache is complete
    // and shared read-only.
    template <bool Filled>
    int look(int cell) {
        return Filled ? cache.filled(cell) : cache.index(cell);
    }

    template <bool Filled>
    void nearest_rows(int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            kivcore::poll(y - y0, y1 - y0);
            tagRGBA* p = row(y);
            for (int x = 0; x < width; ++x) p[x] = out[look<Filled>(cell_of(p[x].r, p[x].g, p[x].b))];
        }
    }

    template <bool Filled>
    void ordered_rows(int y0, int y1) {
        const std::uint8_t* matrix = threshold_matrix();
        std::uint8_t thr[128];  // this row's thresholds, gathered from a matrix column
        for (int y = y0; y < y1; ++y) {
            kivcore::poll(y - y0, y1 - y0);
            for (int k = 0; k < 128; ++k) thr[k] = matrix[k * 128 + (y & 127)];
            tagRGBA* p = row(y);
            for (int x = 0; x < width; ++x) {
                const int m = thr[x & 127];
                const Rgb& n = pal.entry[look<Filled>(cell_of(p[x].r, p[x].g, p[x].b))];
                // m = 0 keeps the nearest colour, m = 63 pushes twice the error past it.
                const int vr = kivcore::clamp255(n.r + 2 * (p[x].r - n.r) * m / 63);
                const int vg = kivcore::clamp255(n.g + 2 * (p[x].g - n.g) * m / 63);
                const int vb = kivcore::clamp255(n.b + 2 * (p[x].b - n.b) * m / 63);
                p[x] = out[look<Filled>(cell_of(vr, vg, vb))];
            }
        }
    }

    void nearest(bool parallel) {
        if (parallel) {
            cache.fill_all();
            kivcore::parallel_chunks(0, height, [this](int a, int b) { nearest_rows<true>(a, b); });
        } else {
            nearest_rows<false>(0, height);
        }
    }

    void ordered(bool parallel) {
        if (parallel) {
            cache.fill_all();
            kivcore::parallel_chunks(0, height, [this](int a, int b) { ordered_rows<true>(a, b); });
        } else {
            ordered_rows<false>(0, height);
        }
    }

    // Pixels between two looks at a watched call's progress in the exact match's scan.
    static constexpr long long kPollPixels = 1 << 16;

    // Exact match.  A pixel's index is the first entry of its colour; a pixel whose colour
    // is missing takes the previous pixel's index (0 at the start).  Segments run in
    // parallel; pixels before a segment's first match are settled afterwards from the
    // index its predecessors ended with.
    void exact(bool parallel) {
        ExactTable table(pal);
        const long long n = static_cast<long long>(width) * height;
        const int segs =
            kivcore::watched_pieces(parallel ? std::min(height, kivcore::parallel_threads() * 8) : 1, height);
        std::vector<long long> first_hit(static_cast<std::size_t>(segs));
        std::vector<int> last_index(static_cast<std::size_t>(segs));
        auto seg_begin = [&](int s) { return static_cast<long long>(height) * s / segs * width; };
        // A hash look-up a pixel; more segments than usual only while watched, on the threads
        // the whole scan is worth.
        kivcore::parallel_for(0, segs, kivcore::piece_work(n, kivcore::Work{2}, segs), [&](int s) {
            const long long b = seg_begin(s), e = s + 1 == segs ? n : seg_begin(s + 1);
            std::uint32_t remembered = 0xFFFFFFFFu;  // none yet
            int remembered_index = 0, current = -1;
            long long first = e;
            for (long long i = b; i < e; ++i) {
                if ((i - b) % kPollPixels == 0) kivcore::poll(i - b, e - b);
                const std::uint32_t key = rgb_key(px[i]);
                if (key == remembered) {
                    current = remembered_index;
                } else {
                    int found = table.find(key);
                    if (found >= 0) {
                        remembered = key;
                        remembered_index = current = found;
                    }
                }
                if (current < 0) continue;
                if (first == e) first = i;
                px[i] = out[current];
            }
            first_hit[static_cast<std::size_t>(s)] = first;
            last_index[static_cast<std::size_t>(s)] = current;
        });
        int carry = 0;
        for (int s = 0; s < segs; ++s) {
            for (long long i = seg_begin(s); i < first_hit[static_cast<std::size_t>(s)]; ++i) px[i] = out[carry];
            if (last_index[static_cast<std::size_t>(s)] >= 0) carry = last_index[static_cast<std::size_t>(s)];
        }
    }

    // Serpentine Floyd-Steinberg with the light (mode 1) or strong (mode 3) error limit.
    // The error rows hold red, green, blue side by side, with one spare pixel at each end.
    // What a pixel passes to the next one in its row is kept in `carry` instead of being
    // added to the current row: the same sums, without a store and reload on the chain of
    // dependent steps from one pixel to the next.
    template <int Mode>
    static int limit_error(int e) {
        const int a = e < 0 ? -e : e;
        const int l = Mode == kDiffuseLight ? std::min(a, 190)
                                            : std::min({a, 24 + (std::max(a, 24) - 24) / 2, 48});
        return e < 0 ? -l : l;
    }

    template <int Mode>
    void diffuse() {
        const std::size_t span = 3 * (static_cast<std::size_t>(width) + 2);
        std::vector<int> store(2 * span, 0);
        int* cur = store.data();
        int* nxt = cur + span;
        for (int y = 0; y < height; ++y) {
            kivcore::poll(y, height);  // serial: the watched call's only chance to report
            std::fill(nxt, nxt + span, 0);
            const int dir = (y & 1) ? -1 : 1, step = 3 * dir;
            tagRGBA* p = row(y);
            int carry[3] = {0, 0, 0};
            for (int k = 0; k < width; ++k) {
                const int x = dir > 0 ? k : width - 1 - k;
                const int* ce = cur + 3 * (x + 1);
                int* ne = nxt + 3 * (x + 1);
                const int v[3] = {kivcore::clamp255(p[x].r + limit_error<Mode>(ce[0] + carry[0])),
                                  kivcore::clamp255(p[x].g + limit_error<Mode>(ce[1] + carry[1])),
                                  kivcore::clamp255(p[x].b + limit_error<Mode>(ce[2] + carry[2]))};
                const int idx = cache.index(cell_of(v[0], v[1], v[2]));
                const Rgb& q = pal.entry[idx];
                const int e[3] = {v[0] - q.r, v[1] - q.g, v[2] - q.b};
                for (int c = 0; c < 3; ++c) {
                    // Each share truncated toward zero; the last takes the remainder and is
                    // the first contribution to its place.
                    const int e7 = 7 * e[c] / 16, e3 = 3 * e[c] / 16, e5 = 5 * e[c] / 16;
                    carry[c] = e7;
                    ne[c - step] += e3;
                    ne[c] += e5;
                    ne[c + step] = e[c] - e7 - e3 - e5;
                }
                p[x] = out[idx];
            }
            std::swap(cur, nxt);
        }
    }

    static std::uint32_t rgb_key(const tagRGBA& p) {
        return static_cast<std::uint32_t>(p.r) | static_cast<std::uint32_t>(p.g) << 8 |
               static_cast<std::uint32_t>(p.b) << 16;
    }

    // Colour -> first palette entry of that colour, open addressing.
    class ExactTable {
    public:
        explicit ExactTable(const Palette& pal) {
            for (int i = 0; i < pal.count; ++i) {
                const Rgb& e = pal.entry[i];
                const std::uint32_t key = static_cast<std::uint32_t>(e.r) | static_cast<std::uint32_t>(e.g) << 8 |
                                          static_cast<std::uint32_t>(e.b) << 16 | kUsed;
                std::uint32_t h = hash(key);
                while (key_[h] != 0 && key_[h] != key) h = (h + 1) & (kSlots - 1);
                if (key_[h] == 0) {  // a repeated colour keeps its first index
                    key_[h] = key;
                    index_[h] = i;
                }
            }
        }
        int find(std::uint32_t rgb) const {
            const std::uint32_t key = rgb | kUsed;
            for (std::uint32_t h = hash(key);; h = (h + 1) & (kSlots - 1)) {
                if (key_[h] == key) return index_[h];
                if (key_[h] == 0) return -1;
            }
        }

    private:
        static constexpr int kBits = 10;
        static constexpr std::uint32_t kSlots = 1u << kBits;
        static constexpr std::uint32_t kUsed = 0x1000000u;
        static std::uint32_t hash(std::uint32_t key) { return (key * 2654435761u) >> (32 - kBits); }
        std::uint32_t key_[kSlots] = {};
        int index_[kSlots] = {};
    };
};

}  // namespace

void map_pixels(tagRGBA* px, int width, int height, int mode, const Palette& pal, std::uint32_t* cache) {
    if (!px || width < 1 || height < 1 || pal.count < 1 || pal.count > kMaxEntries) return;
    InverseCache ic(cache, pal, static_cast<long long>(width) * height < kCellByCellPixels);
    ic.clear();
    Mapper m(px, width, height, pal, ic);
    const bool parallel =
        static_cast<long long>(width) * height >= kEagerPixels && height > 1 && kivcore::parallel_threads() > 1;
    switch (mode) {
        case kNearest: m.nearest(parallel); break;
        case kDiffuseLight: m.diffuse<kDiffuseLight>(); break;
        case kDiffuseStrong: m.diffuse<kDiffuseStrong>(); break;
        case kExact: m.exact(parallel); break;
        case kOrdered: m.ordered(parallel); break;
        default: break;
    }
}

}  // namespace kivquant
