// The refined quantizer's colour histogram: the exact colours of an image that has few of
// them, else cells of a grid whose bins follow each channel's distribution.
//
// Rows are shared among threads in fixed spans, one table per span, and the tables are
// merged in span order: counts and sums are integers and colours are listed in order of
// first appearance, so the result is the same for every number of threads.
#include <algorithm>
#include <cstring>
#include <memory>

#include "core/parallel.h"
#include "quantize/hq.h"

namespace kivhq {

namespace {

// Up to this many distinct colours are kept exactly; beyond, the grid of bins takes over.
constexpr int kExactLimit = 16384;

// Grid bins: 32 per colour channel, and 8 of alpha for images with alpha.
constexpr int kBinBits = 5, kBins = 1 << kBinBits;
constexpr int kAlphaBinBits = 3;

// At most about this many pixels are counted into the grid (which also keeps a cell's channel
// sums below 2^32); larger images are sampled, every k-th pixel of each row from an offset
// that moves from row to row.  Plenty for the palette, and a quarter of the work at
// 4096 x 4096.
constexpr long long kMaxCounted = 1LL << 22;

// A pixel as one 32-bit key: straight colour and alpha (255 for opaque sources), every fully
// transparent pixel 0.
inline std::uint32_t key_of(std::uint32_t word, bool alpha) {
    if (!alpha) return word | 0xFF000000u;
    return word >> 24 ? word : 0u;
}

inline std::uint32_t word_of(const tagRGBA& p) {
    std::uint32_t w;
    std::memcpy(&w, &p, 4);
    return w;  // red in the low byte on every little-endian target
}

// Distinct keys with their counts, in order of first appearance.
class KeyTable {
public:
    KeyTable() : key_(kSlots), count_(kSlots, 0), at_(kSlots, -1) {}
    // false once there are more than kExactLimit keys.
    bool add(std::uint32_t key, std::uint32_t n) {
        std::uint32_t h = (key * 2654435761u) >> (32 - kBits);
        while (at_[h] >= 0 && key_[h] != key) h = (h + 1) & (kSlots - 1);
        if (at_[h] < 0) {
            if (static_cast<int>(order_.size()) == kExactLimit) return false;
            key_[h] = key;
            at_[h] = static_cast<int>(order_.size());
            order_.push_back(h);
        }
        count_[h] += n;
        return true;
    }
    int size() const { return static_cast<int>(order_.size()); }
    std::uint32_t key(int i) const { return key_[order_[static_cast<std::size_t>(i)]]; }
    std::uint32_t count(int i) const { return count_[order_[static_cast<std::size_t>(i)]]; }

private:
    static constexpr int kBits = 16;  // 65536 slots for at most 16384 keys
    static constexpr std::uint32_t kSlots = 1u << kBits;
    std::vector<std::uint32_t> key_, count_;
    std::vector<int> at_;
    std::vector<std::uint32_t> order_;
};

// The rows of all sources as one sequence, cut into spans for the threads.
struct Rows {
    const Source* src;
    std::vector<long long> first;  // first global row of each source, then the total
    int slots;
    int total() const { return static_cast<int>(first.back()); }
    int begin(int t) const { return static_cast<int>(first.back() * t / slots); }
    // Calls f(source, first pixel, pixel count) for the runs of whole rows of span t.
    template <class F>
    void each_run(int t, F&& f) const {
        const long long b = first.back() * t / slots, e = first.back() * (t + 1) / slots;
        for (std::size_t i = 0; i + 1 < first.size(); ++i) {
            const long long lo = std::max(b, first[i]), hi = std::min(e, first[i + 1]);
            if (lo >= hi) continue;
            const Source& s = src[i];
            f(s, s.px + static_cast<std::size_t>(lo - first[i]) * static_cast<std::size_t>(s.width),
              static_cast<std::size_t>(hi - lo) * static_cast<std::size_t>(s.width), lo - first[i]);
        }
    }
};

// The keys of span t, run by run (runs of equal pixels are common in graphics).
bool collect_keys(const Rows& rows, int t, KeyTable* table) {
    bool ok = true;
    rows.each_run(t, [&](const Source& s, const tagRGBA* p, std::size_t n, long long) {
        if (!ok || !n) return;
        std::uint32_t prev = word_of(p[0]), run = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const std::uint32_t w = word_of(p[i]);
            if (w == prev) {
                ++run;
                continue;
            }
            if (!table->add(key_of(prev, s.alpha), run)) {
                ok = false;
                return;
            }
            prev = w;
            run = 1;
        }
        ok = table->add(key_of(prev, s.alpha), run);
    });
    return ok;
}

// Search-space channels of a key.
inline void channels_of(std::uint32_t key, int* c) {
    const int a = static_cast<int>(key >> 24);
    for (int k = 0; k < 3; ++k) c[k] = premultiply(static_cast<int>(key >> (8 * k) & 0xFF), a);
    c[3] = a;
}

// Bins of one channel, as a table from value to bin (shifted into place): 32 spans holding
// equal shares of a weight that is half the channel's own distribution (crowded ranges get
// narrow bins), three eighths spread evenly over the values it uses and one eighth over all
// values (values the sample missed still get bins of their own, apart from the main range).
void make_bins(const std::uint32_t* marginal, int shift, std::uint32_t* lut) {
    int lo = 0, hi = 255;
    while (lo < 255 && !marginal[lo]) ++lo;
    while (hi > lo && !marginal[hi]) --hi;
    double total = 0;
    for (int v = lo; v <= hi; ++v) total += marginal[v];
    const double per_count = total > 0 ? 0.5 / total : 0.0;
    const double used = (total > 0 ? 0.375 : 0.875) / (hi - lo + 1), everywhere = 0.125 / 256;
    double cum = 0;
    for (int v = 0; v < 256; ++v) {
        const double w = marginal[v] * per_count + (v >= lo && v <= hi ? used : 0.0) + everywhere;
        // The bin holding the middle of this value's share.
        const int bin = std::min(kBins - 1, static_cast<int>((cum + w / 2) * kBins));
        cum += w;
        lut[v] = static_cast<std::uint32_t>(bin) << shift;
    }
}

// Cells of opaque pixels (alpha 255 is implied; the layout KernelSet::count writes) and of
// pixels with alpha.
struct Cell3 {
    std::uint32_t s[3], n;
};
struct Cell4 {
    std::uint32_t n, s[4];
};

// Counts runs of equal pixels of a source into cells of pixels with alpha (the opaque ones
// through KernelSet::count); returns bit 0 for a transparent pixel, bit 1 for a visible one.
int count_alpha(const tagRGBA* px, std::size_t n, std::size_t stride, std::size_t first, bool src_alpha,
                const std::uint32_t (*lut)[256], Cell4* cells, std::uint8_t* occupied) {
    int seen = 0;
    auto add = [&](std::uint32_t key, std::uint32_t run) {
        if (!key) {  // fully transparent: kept out of the colours
            seen |= 1;
            return;
        }
        seen |= 2;
        int c[4];
        channels_of(key, c);
        Cell4& e = cells[lut[0][c[0]] | lut[1][c[1]] | lut[2][c[2]] | lut[3][c[3]]];
        e.n += run;
        for (int k = 0; k < 4; ++k) e.s[k] += static_cast<std::uint32_t>(c[k]) * run;
        occupied[Grid::cell_of(pack(c[0], c[1], c[2], c[3]), true)] = 1;
    };
    if (stride > 1) {
        for (std::size_t i = first; i < n; i += stride) add(key_of(word_of(px[i]), src_alpha), 1);
        return seen;
    }
    const std::uint32_t mask = src_alpha ? 0xFFFFFFFFu : 0xFFFFFFu;
    std::uint32_t prev = word_of(px[0]) & mask, run = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const std::uint32_t w = word_of(px[i]) & mask;
        if (w == prev) {
            ++run;
            continue;
        }
        add(key_of(prev, src_alpha), run);
        prev = w;
        run = 1;
    }
    add(key_of(prev, src_alpha), run);
    return seen;
}

}  // namespace

void build_histogram(const Source* src, int count, bool alpha, int colors, Histogram* h) {
    *h = Histogram{};
    h->alpha = alpha;
    Rows rows{src, {0}, 1};
    long long total = 0;
    for (int i = 0; i < count; ++i) {
        rows.first.push_back(rows.first.back() + src[i].height);
        total += static_cast<long long>(src[i].width) * src[i].height;
    }
    rows.slots = std::max(1, std::min(kivcore::parallel_threads(), rows.total()));
    const int slots = rows.slots;
    const int grid_cells = (alpha ? 8 : 1) << 15;

    // Few colours: every distinct colour is a point of its own.  A sample of about 2^16
    // pixels spread over the images tells first whether that can be.
    bool maybe_few = true;
    {
        KeyTable sample;
        const long long step = std::max<long long>(1, total >> 16);
        long long at = 0;
        for (int i = 0; i < count && maybe_few; ++i) {
            const long long n = static_cast<long long>(src[i].width) * src[i].height;
            for (; at < n && maybe_few; at += step) maybe_few = sample.add(key_of(word_of(src[i].px[at]), src[i].alpha), 1);
            at -= n;
        }
    }
    if (maybe_few) {
        std::vector<std::unique_ptr<KeyTable>> tables(static_cast<std::size_t>(slots));
        std::vector<std::uint8_t> ok(static_cast<std::size_t>(slots), 0);
        kivcore::parallel_for(0, slots, [&](int t) {
            tables[static_cast<std::size_t>(t)] = std::make_unique<KeyTable>();
            ok[static_cast<std::size_t>(t)] = collect_keys(rows, t, tables[static_cast<std::size_t>(t)].get());
        });
        bool exact = std::all_of(ok.begin(), ok.end(), [](std::uint8_t v) { return v != 0; });
        KeyTable& all = *tables[0];
        for (int t = 1; t < slots && exact; ++t)
            for (int i = 0; i < tables[static_cast<std::size_t>(t)]->size() && exact; ++i)
                exact = all.add(tables[static_cast<std::size_t>(t)]->key(i), tables[static_cast<std::size_t>(t)]->count(i));
        if (exact) {
            h->exact = true;
            h->few = all.size() <= colors;
            h->occupied.assign(static_cast<std::size_t>(grid_cells), 0);
            for (int i = 0; i < all.size(); ++i) {
                const std::uint32_t key = all.key(i), n = all.count(i);
                h->keys.push_back(key);
                if (!key) {
                    h->any_transparent = true;
                    continue;
                }
                h->any_visible = true;
                int c[4];
                channels_of(key, c);
                h->n.push_back(n);
                for (int k = 0; k < 4; ++k) {
                    h->sum.push_back(static_cast<std::uint64_t>(c[k]) * n);
                    h->bin.push_back(static_cast<std::uint8_t>(c[k]));
                }
                h->occupied[static_cast<std::size_t>(Grid::cell_of(pack(c[0], c[1], c[2], c[3]), alpha))] = 1;
            }
            return;
        }
    }

    // Many colours: the grid of bins.  The channels' distributions first, from about 2^17
    // pixels on evenly spaced rows.
    const long long row_step = std::max<long long>(1, total >> 17);
    std::vector<std::uint32_t> marg(static_cast<std::size_t>(slots) * 768, 0);
    kivcore::parallel_for(0, slots, [&](int t) {
        std::uint32_t* m = marg.data() + static_cast<std::size_t>(t) * 768;
        rows.each_run(t, [&](const Source& s, const tagRGBA* p, std::size_t n, long long y0) {
            const long long y1 = y0 + static_cast<long long>(n / static_cast<std::size_t>(s.width));
            for (long long y = (y0 + row_step - 1) / row_step * row_step; y < y1; y += row_step) {
                const tagRGBA* r = p + static_cast<std::size_t>(y - y0) * static_cast<std::size_t>(s.width);
                for (int x = 0; x < s.width; ++x) {
                    int c[4] = {r[x].r, r[x].g, r[x].b, 255};
                    if (s.alpha && r[x].a != 255) {
                        if (!r[x].a) continue;
                        channels_of(word_of(r[x]), c);
                    }
                    ++m[c[0]];
                    ++m[256 + c[1]];
                    ++m[512 + c[2]];
                }
            }
        });
    });
    for (int t = 1; t < slots; ++t)
        for (std::size_t k = 0; k < 768; ++k) marg[k] += marg[static_cast<std::size_t>(t) * 768 + k];
    // Opaque: each table entry holds the bin in the histogram's cell number and the cell of
    // the nearest-colour grid above bit 16.  With alpha, the bins alone (3 bits of alpha).
    const int abits = alpha ? kAlphaBinBits : 0;
    std::uint32_t lut[4][256];
    for (int c = 0; c < 3; ++c) {
        make_bins(marg.data() + c * 256, (2 - c) * kBinBits + abits, lut[c]);
        if (!alpha)
            for (int v = 0; v < 256; ++v) lut[c][v] |= static_cast<std::uint32_t>(v >> 3) << (16 + 5 * (2 - c));
    }
    for (int a = 0; a < 256; ++a) lut[3][a] = alpha ? static_cast<std::uint32_t>(a >> (8 - kAlphaBinBits)) : 0;

    const int cells = 1 << (3 * kBinBits + abits);
    const std::size_t stride = static_cast<std::size_t>((total + kMaxCounted - 1) / kMaxCounted);  // 1 up to 16 M pixels
    std::vector<Cell3> hist3(alpha ? 0 : static_cast<std::size_t>(slots) * static_cast<std::size_t>(cells));
    std::vector<Cell4> hist4(alpha ? static_cast<std::size_t>(slots) * static_cast<std::size_t>(cells) : 0);
    std::vector<std::uint8_t> occ(static_cast<std::size_t>(slots) * static_cast<std::size_t>(grid_cells));
    std::vector<int> seen(static_cast<std::size_t>(slots), 0);
    const CountFn count_opaque = kernels().count;
    kivcore::parallel_for(0, slots, [&](int t) {
        const std::size_t base = static_cast<std::size_t>(t) * static_cast<std::size_t>(cells);
        std::uint8_t* oc = occ.data() + static_cast<std::size_t>(t) * static_cast<std::size_t>(grid_cells);
        rows.each_run(t, [&](const Source& s, const tagRGBA* p, std::size_t n, long long y0) {
            const std::size_t w = static_cast<std::size_t>(s.width);
            // Whole rows at once when every pixel counts; else row by row.
            const std::size_t step = stride > 1 ? w : n;
            for (std::size_t at = 0; at < n; at += step) {
                const std::size_t first = stride > 1 ? static_cast<std::size_t>(y0 + static_cast<long long>(at / w)) % stride : 0;
                if (!alpha) {
                    count_opaque(reinterpret_cast<const unsigned char*>(p + at), step, stride, first, lut,
                                 &hist3[base].s[0], oc);
                    seen[static_cast<std::size_t>(t)] |= 2;
                } else {
                    seen[static_cast<std::size_t>(t)] |= count_alpha(p + at, step, stride, first, s.alpha, lut, hist4.data() + base, oc);
                }
            }
        });
    });
    // Sum the spans' tables into the first, in parallel over runs of cells.
    constexpr int kSpan = 4096;
    kivcore::parallel_for(0, (cells + kSpan - 1) / kSpan, [&](int span) {
        for (int c = span * kSpan; c < std::min(cells, (span + 1) * kSpan); ++c)
            for (int t = 1; t < slots; ++t) {
                const std::size_t o = static_cast<std::size_t>(t) * static_cast<std::size_t>(cells) + static_cast<std::size_t>(c);
                if (alpha) {
                    hist4[static_cast<std::size_t>(c)].n += hist4[o].n;
                    for (int k = 0; k < 4; ++k) hist4[static_cast<std::size_t>(c)].s[k] += hist4[o].s[k];
                } else {
                    hist3[static_cast<std::size_t>(c)].n += hist3[o].n;
                    for (int k = 0; k < 3; ++k) hist3[static_cast<std::size_t>(c)].s[k] += hist3[o].s[k];
                }
            }
    });
    h->occupied.assign(occ.begin(), occ.begin() + grid_cells);
    for (int t = 0; t < slots; ++t) {
        const std::uint8_t* oc = occ.data() + static_cast<std::size_t>(t) * static_cast<std::size_t>(grid_cells);
        if (t)
            for (int c = 0; c < grid_cells; ++c) h->occupied[static_cast<std::size_t>(c)] |= oc[c];
        h->any_transparent |= (seen[static_cast<std::size_t>(t)] & 1) != 0;
        h->any_visible |= (seen[static_cast<std::size_t>(t)] & 2) != 0;
    }
    const int shift[4] = {2 * kBinBits + abits, kBinBits + abits, abits, 0};
    const int mask[4] = {kBins - 1, kBins - 1, kBins - 1, (1 << abits) - 1};
    for (int c = 0; c < cells; ++c) {
        const std::uint32_t n = alpha ? hist4[static_cast<std::size_t>(c)].n : hist3[static_cast<std::size_t>(c)].n;
        if (!n) continue;
        h->n.push_back(n);
        for (int k = 0; k < 4; ++k) {
            h->sum.push_back(alpha ? hist4[static_cast<std::size_t>(c)].s[k]
                             : k < 3 ? hist3[static_cast<std::size_t>(c)].s[k]
                                     : 255ull * n);
            h->bin.push_back(static_cast<std::uint8_t>(c >> shift[k] & mask[k]));
        }
    }
}

}  // namespace kivhq
