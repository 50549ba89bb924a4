// The refined quantizer's palette: boxes of histogram points split where that removes the
// most squared error, then Voronoi (k-means) iterations over the points.
//
// Sums over points are integers, so they do not depend on how the points were shared among
// threads; floating point appears only in serial code or per point.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "core/parallel.h"
#include "quantize/hq.h"

namespace kivhq {

namespace {

// Voronoi iterations: at most this many, fewer once no entry moves.
constexpr int kIterations = 12;

struct Points {
    int count = 0;
    bool alpha = false;
    std::vector<int> c;           // 4 per point: its mean colour, rounded
    std::vector<Packed> q;        // the same, packed for the kernels
    std::vector<std::uint32_t> n;  // pixels
    const std::uint64_t* sum = nullptr;  // 4 per point
    int bins[4];                         // bins along each axis
    std::vector<double> sq;       // sum over channels of weight x sum^2 / n
    std::vector<std::uint8_t> bin;  // 4 per point: bin along each axis
};

struct Box {
    int begin, end;
    std::uint64_t n, s[4];
    double sq, sse;
    int axis, cut;  // the best split: points with bin <= cut along axis go left
    double gain;    // squared error that split removes; negative when it cannot split
};

inline int wdist(const int* a, const int* b) {
    int d = 0;
    for (int k = 0; k < 4; ++k) d += kWeight[k] * (a[k] - b[k]) * (a[k] - b[k]);
    return d;
}

inline double box_sse(double sq, double n, const double* s) {
    double between = 0;
    for (int k = 0; k < 4; ++k) between += kWeight[k] * s[k] * s[k];
    return n > 0 ? sq - between / n : 0.0;
}

// Totals of a box's points and the split along one axis that leaves the least squared
// error (between the points' means; what lies inside a cell no palette can remove).
void evaluate(const Points& pts, const int* order, Box* b) {
    b->n = 0;
    b->sq = 0;
    for (int k = 0; k < 4; ++k) b->s[k] = 0;
    for (int i = b->begin; i < b->end; ++i) {
        const int p = order[i];
        b->n += pts.n[static_cast<std::size_t>(p)];
        b->sq += pts.sq[static_cast<std::size_t>(p)];
        for (int k = 0; k < 4; ++k) b->s[k] += pts.sum[4 * static_cast<std::size_t>(p) + static_cast<std::size_t>(k)];
    }
    double stot[4];
    for (int k = 0; k < 4; ++k) stot[k] = static_cast<double>(b->s[k]);
    b->sse = box_sse(b->sq, static_cast<double>(b->n), stot);
    b->gain = -1;
    if (b->end - b->begin < 2) return;
    for (int axis = 0; axis < (pts.alpha ? 4 : 3); ++axis) {
        const int bins = pts.bins[axis];
        double bn[256] = {}, bs[256][4] = {}, bq[256] = {};
        for (int i = b->begin; i < b->end; ++i) {
            const int p = order[i];
            const int v = pts.bin[4 * static_cast<std::size_t>(p) + static_cast<std::size_t>(axis)];
            bn[v] += pts.n[static_cast<std::size_t>(p)];
            bq[v] += pts.sq[static_cast<std::size_t>(p)];
            for (int k = 0; k < 4; ++k) bs[v][k] += pts.sum[4 * static_cast<std::size_t>(p) + static_cast<std::size_t>(k)];
        }
        double ln = 0, lq = 0, ls[4] = {0, 0, 0, 0};
        for (int cut = 0; cut < bins - 1; ++cut) {
            ln += bn[cut];
            lq += bq[cut];
            for (int k = 0; k < 4; ++k) ls[k] += bs[cut][k];
            const double rn = static_cast<double>(b->n) - ln;
            if (ln == 0 || rn == 0 || bn[cut] == 0) continue;
            double rs[4];
            for (int k = 0; k < 4; ++k) rs[k] = stot[k] - ls[k];
            const double gain = b->sse - box_sse(lq, ln, ls) - box_sse(b->sq - lq, rn, rs);
            if (gain > b->gain) b->gain = gain, b->axis = axis, b->cut = cut;
        }
    }
}

// Splits boxes, the one whose best split removes the most squared error first, until there
// are `colors` of them or none can be split.
std::vector<Box> split_boxes(const Points& pts, int colors, std::vector<int>* order) {
    order->resize(static_cast<std::size_t>(pts.count));
    for (int i = 0; i < pts.count; ++i) (*order)[static_cast<std::size_t>(i)] = i;
    std::vector<Box> boxes;
    boxes.push_back(Box{0, pts.count, 0, {0, 0, 0, 0}, 0, 0, 0, 0, -1});
    evaluate(pts, order->data(), &boxes[0]);
    while (static_cast<int>(boxes.size()) < colors) {
        int best = -1;
        for (int i = 0; i < static_cast<int>(boxes.size()); ++i)
            if (boxes[static_cast<std::size_t>(i)].gain > 0 && (best < 0 || boxes[static_cast<std::size_t>(i)].gain > boxes[static_cast<std::size_t>(best)].gain))
                best = i;
        if (best < 0) break;
        Box& b = boxes[static_cast<std::size_t>(best)];
        const int axis = b.axis, cut = b.cut;
        int* first = order->data() + b.begin;
        int* mid = std::stable_partition(first, order->data() + b.end, [&](int p) {
            return pts.bin[4 * static_cast<std::size_t>(p) + static_cast<std::size_t>(axis)] <= cut;
        });
        Box right{static_cast<int>(mid - order->data()), b.end, 0, {0, 0, 0, 0}, 0, 0, 0, 0, -1};
        b.end = right.begin;
        evaluate(pts, order->data(), &b);
        evaluate(pts, order->data(), &right);
        boxes.push_back(right);
    }
    return boxes;
}

// Per-slot sums of the points assigned to each entry, for the centroid update.
struct Sums {
    std::uint64_t n[kMaxColors], s[kMaxColors][4];
};

}  // namespace

void build_palette(const Histogram& h, int colors, Palette* pal, std::vector<std::uint64_t>* weight) {
    Points pts;
    pts.count = static_cast<int>(h.n.size());
    pts.alpha = h.alpha;
    pts.sum = h.sum.data();
    pal->count = 0;
    weight->clear();
    if (pts.count == 0 || colors < 1) return;
    const std::size_t np = static_cast<std::size_t>(pts.count);
    pts.c.resize(4 * np);
    pts.q.resize(np);
    pts.n.assign(h.n.begin(), h.n.end());
    pts.sq.resize(np);
    pts.bin.assign(h.bin.begin(), h.bin.end());
    pts.bins[0] = pts.bins[1] = pts.bins[2] = h.bins;
    pts.bins[3] = h.alpha_bins;
    for (std::size_t p = 0; p < np; ++p) {
        const std::uint32_t n = h.n[p];
        double sq = 0;
        for (int k = 0; k < 4; ++k) {
            const std::uint64_t s = h.sum[4 * p + static_cast<std::size_t>(k)];
            pts.c[4 * p + static_cast<std::size_t>(k)] = static_cast<int>((s + n / 2) / n);
            sq += kWeight[k] * (static_cast<double>(s) * static_cast<double>(s) / n);
        }
        pts.sq[p] = sq;
        const int* c = &pts.c[4 * p];
        pts.q[p] = pack(c[0], c[1], c[2], c[3]);
    }
    // The first palette: the boxes' means.
    std::vector<int> order;
    const std::vector<Box> boxes = split_boxes(pts, std::min(colors, kMaxColors), &order);
    const int k = static_cast<int>(boxes.size());
    int centre[kMaxColors][4];
    for (int j = 0; j < k; ++j)
        for (int c = 0; c < 4; ++c)
            centre[j][c] = static_cast<int>((boxes[static_cast<std::size_t>(j)].s[c] + boxes[static_cast<std::size_t>(j)].n / 2) / boxes[static_cast<std::size_t>(j)].n);

    // Voronoi iterations with Hamerly's bounds: a point keeps its entry while its distance to
    // it (an upper bound, grown by the entry's moves) stays below both half the distance from
    // that entry to its nearest neighbour and a lower bound on the distance to every other
    // entry (shrunk by the largest move).  Bounds are doubles over exact integer distances;
    // a small margin keeps their rounding from ever skipping a point that must be searched.
    const Nearest2Fn search = nearest2_kernel();
    std::vector<int> assign(np, 0);
    std::vector<double> upper(np, 0.0), lower(np, 0.0);
    const int slots = std::max(1, std::min(kivcore::parallel_threads(), pts.count / 1024 + 1));
    std::vector<Sums> sums(static_cast<std::size_t>(slots));
    std::uint64_t total_n[kMaxColors];
    Palette cp;
    std::vector<Chunk> chunks;
    for (int iter = 0; iter < kIterations; ++iter) {
        cp.count = k;
        int all[kMaxColors];
        for (int j = 0; j < k; ++j) {
            all[j] = j;
            for (int c = 0; c < 4; ++c) cp.c[j][c] = centre[j][c];
        }
        chunks.clear();
        add_chunks(cp, all, k, &chunks);
        const int nch = static_cast<int>(chunks.size());
        double half_gap[kMaxColors];
        for (int j = 0; j < k; ++j) {
            std::int32_t d1, d2;
            int idx;
            search(chunks.data(), nch, pack(centre[j][0], centre[j][1], centre[j][2], centre[j][3]), &d1, &d2, &idx);
            half_gap[j] = 0.5 * std::sqrt(static_cast<double>(d2)) * (1 - 1e-9);
        }
        kivcore::parallel_for(0, slots, [&](int t) {
            Sums& acc = sums[static_cast<std::size_t>(t)];
            std::memset(&acc, 0, sizeof acc);
            const std::size_t p0 = np * static_cast<std::size_t>(t) / static_cast<std::size_t>(slots);
            const std::size_t p1 = np * static_cast<std::size_t>(t + 1) / static_cast<std::size_t>(slots);
            for (std::size_t p = p0; p < p1; ++p) {
                int a = assign[p];
                const double bound = std::max(half_gap[a], lower[p] * (1 - 1e-9));
                if (iter == 0 || upper[p] > bound) {
                    const double exact = iter == 0 ? 0.0 : std::sqrt(static_cast<double>(wdist(&pts.c[4 * p], centre[a])));
                    if (iter == 0 || exact > bound) {
                        std::int32_t d1, d2;
                        search(chunks.data(), nch, pts.q[p], &d1, &d2, &a);
                        assign[p] = a;
                        upper[p] = std::sqrt(static_cast<double>(d1));
                        lower[p] = std::sqrt(static_cast<double>(d2));
                    } else {
                        upper[p] = exact;
                    }
                }
                acc.n[a] += pts.n[p];
                for (int c = 0; c < 4; ++c) acc.s[a][c] += h.sum[4 * p + static_cast<std::size_t>(c)];
            }
        });
        // New centres; an entry left without points moves onto the point that is worst
        // served (most pixels times squared distance), which then belongs to it.
        std::uint64_t total_s[kMaxColors][4];
        for (int j = 0; j < k; ++j) {
            total_n[j] = 0;
            for (int c = 0; c < 4; ++c) total_s[j][c] = 0;
            for (int t = 0; t < slots; ++t) {
                total_n[j] += sums[static_cast<std::size_t>(t)].n[j];
                for (int c = 0; c < 4; ++c) total_s[j][c] += sums[static_cast<std::size_t>(t)].s[j][c];
            }
        }
        double moved[kMaxColors], most = 0;
        bool any = false;
        std::vector<std::uint8_t> taken;
        for (int j = 0; j < k; ++j)
            if (!total_n[j]) taken.assign(np, 0);
        for (int j = 0; j < k; ++j) {
            int next[4];
            if (total_n[j]) {
                for (int c = 0; c < 4; ++c) next[c] = static_cast<int>((total_s[j][c] + total_n[j] / 2) / total_n[j]);
            } else {
                std::size_t worst = 0;
                double worst_e = 0;
                for (std::size_t p = 0; p < np; ++p) {
                    const double e = taken[p] ? 0.0 : static_cast<double>(pts.n[p]) * wdist(&pts.c[4 * p], centre[assign[p]]);
                    if (e > worst_e) worst_e = e, worst = p;
                }
                for (int c = 0; c < 4; ++c) next[c] = worst_e > 0 ? pts.c[4 * worst + static_cast<std::size_t>(c)] : centre[j][c];
                taken[worst] = 1;
            }
            moved[j] = std::sqrt(static_cast<double>(wdist(next, centre[j]))) * (1 + 1e-9);
            most = std::max(most, moved[j]);
            any |= moved[j] > 0;
            for (int c = 0; c < 4; ++c) centre[j][c] = next[c];
        }
        if (!any) break;
        for (std::size_t p = 0; p < np; ++p) {
            upper[p] += moved[assign[p]];
            lower[p] -= most;
        }
    }

    // The entries that serve some point, in order.
    for (int j = 0; j < k; ++j) {
        if (!total_n[j]) continue;
        for (int c = 0; c < 4; ++c) pal->c[pal->count][c] = centre[j][c];
        ++pal->count;
        weight->push_back(total_n[j]);
    }
}

}  // namespace kivhq
