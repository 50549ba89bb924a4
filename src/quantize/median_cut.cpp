// Palette selection: the histogram prescan with its first-appearance list, the
// variance-driven median cut and the lightness sort.
#include <algorithm>
#include <cstring>
#include <vector>

#include "quantize/quantize.h"

namespace kivquant {

namespace {

// Set of the distinct colours seen so far (at most 256 are ever stored): open addressing on
// the 24-bit colour; a slot holds colour | kUsed, 0 when free.
class ColourSet {
public:
    bool insert(std::uint32_t rgb) {  // true when rgb was not there yet
        std::uint32_t key = rgb | kUsed;
        for (std::uint32_t h = (rgb * 2654435761u) >> (32 - kBits);; h = (h + 1) & (kSlots - 1)) {
            if (slot_[h] == key) return false;
            if (slot_[h] == 0) {
                slot_[h] = key;
                return true;
            }
        }
    }

private:
    static constexpr int kBits = 10;  // 1024 slots for at most 257 keys: short probes
    static constexpr std::uint32_t kSlots = 1u << kBits;
    static constexpr std::uint32_t kUsed = 0x1000000u;
    std::uint32_t slot_[kSlots] = {};
};

inline std::uint32_t rgb_key(const tagRGBA& p) {
    return static_cast<std::uint32_t>(p.r) | static_cast<std::uint32_t>(p.g) << 8 | static_cast<std::uint32_t>(p.b) << 16;
}

}  // namespace

bool prescan(const tagRGBA* px, int n, int colors, std::uint32_t* hist, Palette* firsts) {
    ColourSet seen;
    firsts->count = 0;
    int distinct = 0;
    int i = 0;
    // While few-coloured: count and collect.  A run of one colour needs no set look-up.
    std::uint32_t last = 0xFFFFFFFFu;
    for (; i < n; ++i) {
        const tagRGBA& p = px[i];
        ++hist[cell_of(p.r, p.g, p.b)];
        std::uint32_t key = rgb_key(p);
        if (key == last) continue;
        last = key;
        if (!seen.insert(key)) continue;
        if (++distinct > colors) {
            ++i;
            break;
        }
        firsts->entry[firsts->count++] = Rgb{p.r, p.g, p.b};
    }
    if (distinct <= colors) return true;
    for (; i < n; ++i) ++hist[cell_of(px[i].r, px[i].g, px[i].b)];
    return false;
}

namespace {

// A non-empty histogram cell. The list of them in ascending cell order is the walk order
// of the cube (red, then green, then blue ascending), and each box owns a contiguous run of
// it that splitting keeps in that order: a box visits its cells as a walk of its part of the
// cube would, touching only cells that hold pixels.
struct CellCount {
    std::uint32_t cell, count;
};

inline int red_of(std::uint32_t cell) { return static_cast<int>(cell >> 11); }
inline int green_of(std::uint32_t cell) { return static_cast<int>((cell >> 5) & 63); }
inline int blue_of(std::uint32_t cell) { return static_cast<int>(cell & 31); }

struct Box {
    int lo, hi;  // its cells: [lo, hi) of the list
    int rmin, rmax, rsplit, gmin, gmax, gsplit, bmin, bmax, bsplit;
    std::uint32_t volume, count;
    std::uint64_t var, rvar, gvar, bvar;
    Rgb mean;  // count-weighted mean of the cell centres, to nearest; black when empty
};

// Cell centres in colour units.
inline int centre_r(int r6) { return r6 * 4 + 2; }
inline int centre_g(int g6) { return g6 * 4 + 2; }
inline int centre_b(int b5) { return b5 * 8 + 4; }

inline std::uint64_t sq(long long d) { return static_cast<std::uint64_t>(d * d); }

// Split point of one axis from its slice sums: walking the slices min..max-1 and each
// slice's non-empty cells, the split is the last slice reached while twice the running
// sum of c * d^2 stays within the axis variance.  Within a slice every cell has the same d,
// so the walk only needs each slice's total and its first non-empty cell's count.
// The slice s has its cell centres at s * step + step / 2.
int split_point(int lo, int hi, const std::uint64_t* total, const std::uint32_t* first, int mean, std::uint64_t var,
                int step) {
    int split = lo;
    std::uint64_t sum = 0;
    for (int s = lo; s < hi; ++s) {
        if (total[s] == 0) continue;
        std::uint64_t d2 = sq(s * step + step / 2 - mean);
        if (2 * (sum + first[s] * d2) > var) break;
        split = s;
        sum += total[s] * d2;
        if (2 * sum > var) break;
    }
    return split;
}

// Shrinks the box to its non-empty cells, then computes volume, mean, variances and the
// split points, all from one pass that projects the box's counts onto each axis.
void box_update(const CellCount* cells, Box& b) {
    std::uint64_t pr[kRedCells] = {}, pg[kGreenCells] = {}, pb[kBlueCells] = {};
    std::uint32_t fr[kRedCells] = {}, fg[kGreenCells] = {}, fb[kBlueCells] = {};
    for (int i = b.lo; i < b.hi; ++i) {
        const std::uint32_t c = cells[i].count;
        const int r = red_of(cells[i].cell), g = green_of(cells[i].cell), k = blue_of(cells[i].cell);
        // First non-empty cell of each slice in walk order (other axes ascending).
        if (pr[r] == 0) fr[r] = c;
        if (pg[g] == 0) fg[g] = c;
        if (pb[k] == 0) fb[k] = c;
        pr[r] += c;
        pg[g] += c;
        pb[k] += c;
    }
    b.count = 0;
    b.var = b.rvar = b.gvar = b.bvar = 0;
    b.mean = Rgb{0, 0, 0};
    std::uint64_t total = 0;
    for (int r = b.rmin; r <= b.rmax; ++r) total += pr[r];
    if (total != 0) {
        // Removing empty slices empties no other slice, so the order of the shrinks does
        // not matter.
        while (pr[b.rmin] == 0) ++b.rmin;
        while (pr[b.rmax] == 0) --b.rmax;
        while (pg[b.gmin] == 0) ++b.gmin;
        while (pg[b.gmax] == 0) --b.gmax;
        while (pb[b.bmin] == 0) ++b.bmin;
        while (pb[b.bmax] == 0) --b.bmax;
    }
    long long dr = b.rmax - b.rmin, dg = b.gmax - b.gmin, db = b.bmax - b.bmin;
    b.volume = static_cast<std::uint32_t>(sq(dr * 4 * kWeightR) + sq(dg * 4 * kWeightG) + sq(db * 8 * kWeightB));
    b.rsplit = b.rmin;
    b.gsplit = b.gmin;
    b.bsplit = b.bmin;
    if (total == 0) return;

    std::uint64_t sr = 0, sg = 0, sb = 0;
    for (int r = b.rmin; r <= b.rmax; ++r) sr += pr[r] * static_cast<std::uint64_t>(centre_r(r));
    for (int g = b.gmin; g <= b.gmax; ++g) sg += pg[g] * static_cast<std::uint64_t>(centre_g(g));
    for (int k = b.bmin; k <= b.bmax; ++k) sb += pb[k] * static_cast<std::uint64_t>(centre_b(k));
    b.mean = Rgb{static_cast<int>((sr + total / 2) / total), static_cast<int>((sg + total / 2) / total),
                 static_cast<int>((sb + total / 2) / total)};
    for (int r = b.rmin; r <= b.rmax; ++r) b.rvar += pr[r] * sq(centre_r(r) - b.mean.r);
    for (int g = b.gmin; g <= b.gmax; ++g) b.gvar += pg[g] * sq(centre_g(g) - b.mean.g);
    for (int k = b.bmin; k <= b.bmax; ++k) b.bvar += pb[k] * sq(centre_b(k) - b.mean.b);
    // Sum over cells of c * (30 dr^2 + 59 dg^2 + 11 db^2), regrouped: integers, so exact.
    b.var = kWeightR * b.rvar + kWeightG * b.gvar + kWeightB * b.bvar;
    b.count = static_cast<std::uint32_t>(total);
    b.rsplit = split_point(b.rmin, b.rmax, pr, fr, b.mean.r, b.rvar, 4);
    b.gsplit = split_point(b.gmin, b.gmax, pg, fg, b.mean.g, b.gvar, 4);
    b.bsplit = split_point(b.bmin, b.bmax, pb, fb, b.mean.b, b.bvar, 8);
}

}  // namespace

void median_cut(const std::uint32_t* hist, int colors, Palette* out) {
    colors = std::clamp(colors, 1, kMaxEntries);
    // The non-empty cells, looked for eight at a time: a small image's histogram is mostly
    // empty.
    auto any8 = [hist](int i0) {
        std::uint64_t w[4];
        std::memcpy(w, hist + i0, sizeof w);
        return (w[0] | w[1] | w[2] | w[3]) != 0;
    };
    std::size_t filled = 0;
    for (int i0 = 0; i0 < kCells; i0 += 8)
        if (any8(i0))
            for (int i = i0; i < i0 + 8; ++i) filled += hist[i] != 0;
    std::vector<CellCount> cells(filled), moved(filled);
    for (int i0 = 0, n = 0; i0 < kCells; i0 += 8)
        if (any8(i0))
            for (int i = i0; i < i0 + 8; ++i)
                if (hist[i]) cells[static_cast<std::size_t>(n++)] = CellCount{static_cast<std::uint32_t>(i), hist[i]};
    Box boxes[kMaxEntries];
    // What the choice below compares, kept per box: its largest weighted axis variance, 0
    // for a box without spread.
    std::uint64_t score[kMaxEntries];
    auto score_of = [](const Box& b) {
        return b.volume == 0 ? std::uint64_t{0} : std::max({b.gvar * kWeightG, b.rvar * kWeightR, b.bvar * kWeightB});
    };
    boxes[0] = Box{};
    boxes[0].hi = static_cast<int>(filled);
    boxes[0].rmax = kRedCells - 1;
    boxes[0].gmax = kGreenCells - 1;
    boxes[0].bmax = kBlueCells - 1;
    box_update(cells.data(), boxes[0]);
    score[0] = score_of(boxes[0]);
    int n = 1;
    while (n < colors) {
        // The box with the largest weighted axis variance, first box on ties; boxes without
        // any spread never qualify.
        std::uint64_t best = 0;
        int pick = -1;
        for (int i = 0; i < n; ++i)
            if (score[i] > best) {
                best = score[i];
                pick = i;
            }
        if (pick < 0) break;
        Box& a = boxes[pick];
        Box& nb = boxes[n++];
        nb = a;
        std::uint64_t axis_best = a.gvar * kWeightG;
        int axis = 1;  // 0 red, 1 green, 2 blue
        if (a.rvar * kWeightR > axis_best) {
            axis = 0;
            axis_best = a.rvar * kWeightR;
        }
        if (a.bvar * kWeightB > axis_best) axis = 2;
        // The axis as a field of the cell number (red bits 11.., green 5.., blue 0..).
        unsigned shift = 11, mask = 63;
        int split = a.rsplit;
        switch (axis) {
            case 0: a.rmax = a.rsplit; nb.rmin = a.rsplit + 1; break;
            case 1: a.gmax = a.gsplit; nb.gmin = a.gsplit + 1; shift = 5; split = a.gsplit; break;
            default: a.bmax = a.bsplit; nb.bmin = a.bsplit + 1; shift = 0, mask = 31; split = a.bsplit; break;
        }
        // The cells up to the split stay with a, the rest go to nb, each side in its order.
        int keep = a.lo, away = 0;
        for (int i = a.lo; i < a.hi; ++i) {
            if (static_cast<int>((cells[static_cast<std::size_t>(i)].cell >> shift) & mask) <= split)
                cells[static_cast<std::size_t>(keep++)] = cells[static_cast<std::size_t>(i)];
            else
                moved[static_cast<std::size_t>(away++)] = cells[static_cast<std::size_t>(i)];
        }
        std::copy(moved.begin(), moved.begin() + away, cells.begin() + keep);
        a.hi = nb.lo = keep;
        box_update(cells.data(), a);
        box_update(cells.data(), nb);
        score[pick] = score_of(a);
        score[n - 1] = score_of(nb);
    }
    out->count = n;
    for (int i = 0; i < n; ++i) out->entry[i] = boxes[i].mean;
    sort_by_lightness(out);
}

void sort_by_lightness(Palette* pal) {
    auto key = [](const Rgb& c) {
        int lo = std::min({c.r, c.g, c.b}), hi = std::max({c.r, c.g, c.b});
        return static_cast<long long>((lo + hi) >> 1) << 32 | static_cast<long long>(77 * c.r + 150 * c.g + 29 * c.b);
    };
    std::stable_sort(pal->entry, pal->entry + pal->count,
                     [&](const Rgb& a, const Rgb& b) { return key(a) < key(b); });
}

}  // namespace kivquant
