// The refined quantizer's palette: boxes of histogram points split where that removes the
// most squared error, then Voronoi (k-means) iterations over the points.
//
// Sums over points are integers, so they do not depend on how the points were shared among
// threads; floating point appears only in serial code or per point.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "core/parallel.h"
#include "quantize/hq.h"

namespace kivhq {

namespace {

// Voronoi iterations: at most this many, fewer once no entry moves or an iteration removes
// less than 1 / kSettled of the squared error.
constexpr int kIterations = 12;
constexpr std::uint64_t kSettled = 1000;

struct Points {
    int count = 0;
    bool alpha = false;
    std::vector<int> c;           // 4 per point: its mean colour, rounded
    std::vector<Packed> q;        // the same, packed for the kernels
    std::vector<std::uint32_t> n;  // pixels
    const std::uint64_t* sum = nullptr;  // 4 per point
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
    const int axes = pts.alpha ? 4 : 3;
    b->n = 0;
    b->sq = 0;
    for (int k = 0; k < 4; ++k) b->s[k] = 0;
    int lo[4] = {255, 255, 255, 255}, hi[4] = {0, 0, 0, 0};
    for (int i = b->begin; i < b->end; ++i) {
        const std::size_t p = static_cast<std::size_t>(order[i]);
        b->n += pts.n[p];
        b->sq += pts.sq[p];
        for (int k = 0; k < 4; ++k) {
            b->s[k] += pts.sum[4 * p + static_cast<std::size_t>(k)];
            lo[k] = std::min<int>(lo[k], pts.bin[4 * p + static_cast<std::size_t>(k)]);
            hi[k] = std::max<int>(hi[k], pts.bin[4 * p + static_cast<std::size_t>(k)]);
        }
    }
    double stot[4];
    for (int k = 0; k < 4; ++k) stot[k] = static_cast<double>(b->s[k]);
    b->sse = box_sse(b->sq, static_cast<double>(b->n), stot);
    b->gain = -1;
    // Per axis and bin of the box's span: pixels, sums and squares, in one pass.
    struct Bin {
        double n, q, s[4];
    };
    static thread_local Bin bins[4][256];
    for (int axis = 0; axis < axes; ++axis)
        for (int v = lo[axis]; v <= hi[axis]; ++v) bins[axis][v] = Bin{0, 0, {0, 0, 0, 0}};
    for (int i = b->begin; i < b->end; ++i) {
        const std::size_t p = static_cast<std::size_t>(order[i]);
        const double n = pts.n[p], q = pts.sq[p];
        const double s0 = static_cast<double>(pts.sum[4 * p]), s1 = static_cast<double>(pts.sum[4 * p + 1]);
        const double s2 = static_cast<double>(pts.sum[4 * p + 2]), s3 = static_cast<double>(pts.sum[4 * p + 3]);
        for (int axis = 0; axis < axes; ++axis) {
            Bin& e = bins[axis][pts.bin[4 * p + static_cast<std::size_t>(axis)]];
            e.n += n;
            e.q += q;
            e.s[0] += s0, e.s[1] += s1, e.s[2] += s2, e.s[3] += s3;
        }
    }
    for (int axis = 0; axis < axes; ++axis) {
        double ln = 0, lq = 0, ls[4] = {0, 0, 0, 0};
        for (int v = lo[axis]; v < hi[axis]; ++v) {
            const Bin& e = bins[axis][v];
            if (e.n == 0) continue;  // the same split as the last non-empty bin's
            ln += e.n;
            lq += e.q;
            for (int k = 0; k < 4; ++k) ls[k] += e.s[k];
            double rs[4];
            for (int k = 0; k < 4; ++k) rs[k] = stot[k] - ls[k];
            const double gain = b->sse - box_sse(lq, ln, ls) - box_sse(b->sq - lq, static_cast<double>(b->n) - ln, rs);
            if (gain > b->gain) b->gain = gain, b->axis = axis, b->cut = v;
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

// Per-slot results of one pass over the points.
struct Slot {
    std::uint64_t n[kMaxColors], s[kMaxColors][4];
    int reach[kMaxColors];  // largest distance of an assigned point from its entry
    std::uint64_t error;    // pixels times squared distance, summed
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

    // Voronoi iterations.  A point whose distance to its entry is below half the distance
    // from that entry to its nearest other entry keeps it (no entry can be nearer).  Any
    // other point of entry a, at most sqrt(reach[a]) from it, has its nearest entry within
    // twice that of a, so only those entries are searched.  All distances are exact
    // integers: each point ends up with exactly its nearest entry.
    const NearestFn nearest = kernels().nearest;
    std::vector<int> assign(np), dist(np);
    for (const Box& b : boxes)
        for (int i = b.begin; i < b.end; ++i) assign[static_cast<std::size_t>(order[static_cast<std::size_t>(i)])] = static_cast<int>(&b - boxes.data());
    const int slots = std::max(1, std::min(kivcore::parallel_threads(), pts.count / 2048 + 1));
    std::vector<Slot> acc(static_cast<std::size_t>(slots));
    auto span = [&](int t, std::size_t* p0, std::size_t* p1) {
        *p0 = np * static_cast<std::size_t>(t) / static_cast<std::size_t>(slots);
        *p1 = np * static_cast<std::size_t>(t + 1) / static_cast<std::size_t>(slots);
    };
    std::vector<int> pair(static_cast<std::size_t>(k) * static_cast<std::size_t>(k));
    std::vector<Chunk> targets;
    std::vector<int> targets_at(static_cast<std::size_t>(k)), targets_count(static_cast<std::size_t>(k));
    std::uint64_t total_n[kMaxColors] = {}, last_error = 0;
    // Distances between entries (updated for the entries that moved), and each one's nearest
    // other.
    bool moved_entry[kMaxColors];
    std::fill(moved_entry, moved_entry + k, true);
    int cx[4][kMaxColors];
    for (int iter = 0;; ++iter) {
        for (int j = 0; j < k; ++j)
            for (int c = 0; c < 4; ++c) cx[c][j] = centre[j][c];
        for (int a = 0; a < k; ++a) {
            if (!moved_entry[a]) continue;
            int* row = &pair[static_cast<std::size_t>(a) * static_cast<std::size_t>(k)];
            for (int j = 0; j < k; ++j) {
                int d = 0;
                for (int c = 0; c < 4; ++c) d += kWeight[c] * (cx[c][a] - cx[c][j]) * (cx[c][a] - cx[c][j]);
                row[j] = d;
            }
            for (int j = 0; j < k; ++j) pair[static_cast<std::size_t>(j) * static_cast<std::size_t>(k) + static_cast<std::size_t>(a)] = row[j];
        }
        int gap[kMaxColors];
        for (int a = 0; a < k; ++a) {
            const int* row = &pair[static_cast<std::size_t>(a) * static_cast<std::size_t>(k)];
            int g = INT_MAX;
            for (int j = 0; j < k; ++j) g = std::min(g, j == a ? INT_MAX : row[j]);
            gap[a] = g;
        }
        // Each point's distance to its entry, and each entry's reach.
        kivcore::parallel_for(0, slots, [&](int t) {
            Slot& sl = acc[static_cast<std::size_t>(t)];
            std::fill(sl.reach, sl.reach + k, 0);
            sl.error = 0;
            std::size_t p0, p1;
            span(t, &p0, &p1);
            for (std::size_t p = p0; p < p1; ++p) {
                dist[p] = wdist(&pts.c[4 * p], centre[assign[p]]);
                sl.reach[assign[p]] = std::max(sl.reach[assign[p]], dist[p]);
                sl.error += static_cast<std::uint64_t>(pts.n[p]) * static_cast<std::uint64_t>(dist[p]);
            }
        });
        // Done once an iteration gains little.
        std::uint64_t error = 0;
        for (const Slot& sl : acc) error += sl.error;
        if (iter > 0 && (last_error - std::min(last_error, error)) * kSettled < last_error) break;
        last_error = error;
        // The entries each entry's points may move to.
        targets.clear();
        Palette cp;
        cp.count = k;
        for (int j = 0; j < k; ++j)
            for (int c = 0; c < 4; ++c) cp.c[j][c] = centre[j][c];
        for (int a = 0; a < k; ++a) {
            targets_at[static_cast<std::size_t>(a)] = static_cast<int>(targets.size());
            int reach = 0;
            for (int t = 0; t < slots; ++t) reach = std::max(reach, acc[static_cast<std::size_t>(t)].reach[a]);
            targets_count[static_cast<std::size_t>(a)] = 0;
            if (4LL * reach < gap[a]) continue;  // every point keeps a
            const long long limit = 4LL * reach;
            const int* row = &pair[static_cast<std::size_t>(a) * static_cast<std::size_t>(k)];
            int list[kMaxColors], m = 0;
            for (int j = 0; j < k; ++j)
                if (row[j] <= limit) list[m++] = j;
            add_chunks(cp, list, m, &targets);
            targets_count[static_cast<std::size_t>(a)] = m;
        }
        // Assign, and sum the points of each entry.
        kivcore::parallel_for(0, slots, [&](int t) {
            Slot& sl = acc[static_cast<std::size_t>(t)];
            std::fill(sl.n, sl.n + k, 0);
            for (int j = 0; j < k; ++j) sl.s[j][0] = sl.s[j][1] = sl.s[j][2] = sl.s[j][3] = 0;
            std::size_t p0, p1;
            span(t, &p0, &p1);
            for (std::size_t p = p0; p < p1; ++p) {
                int a = assign[p];
                if (4LL * dist[p] >= gap[a]) {
                    a = nearest(targets.data() + targets_at[static_cast<std::size_t>(a)], targets_count[static_cast<std::size_t>(a)], pts.q[p]) & 0xFF;
                    assign[p] = a;
                }
                sl.n[a] += pts.n[p];
                for (int c = 0; c < 4; ++c) sl.s[a][c] += pts.sum[4 * p + static_cast<std::size_t>(c)];
            }
        });
        // New centres.  Entries left without points move onto the points that are worst
        // served (most pixels times squared distance; the earlier point on a tie), one each.
        std::uint64_t total_s[kMaxColors][4];
        int empty = 0;
        for (int j = 0; j < k; ++j) {
            total_n[j] = 0;
            for (int c = 0; c < 4; ++c) total_s[j][c] = 0;
            for (int t = 0; t < slots; ++t) {
                const Slot& sl = acc[static_cast<std::size_t>(t)];
                total_n[j] += sl.n[j];
                for (int c = 0; c < 4; ++c) total_s[j][c] += sl.s[j][c];
            }
            empty += total_n[j] == 0;
        }
        std::vector<std::pair<std::uint64_t, std::size_t>> worst;
        if (empty) {
            worst.resize(np);
            for (std::size_t p = 0; p < np; ++p)
                worst[p] = {static_cast<std::uint64_t>(pts.n[p]) * static_cast<std::uint64_t>(wdist(&pts.c[4 * p], centre[assign[p]])), p};
            const std::size_t take = std::min<std::size_t>(static_cast<std::size_t>(empty), np);
            std::partial_sort(worst.begin(), worst.begin() + static_cast<std::ptrdiff_t>(take), worst.end(),
                              [](const auto& a, const auto& b) { return a.first != b.first ? a.first > b.first : a.second < b.second; });
            worst.resize(take);
        }
        bool moved = false;
        std::size_t reseeded = 0;
        for (int j = 0; j < k; ++j) {
            int next[4];
            for (int c = 0; c < 4; ++c) next[c] = centre[j][c];
            if (total_n[j]) {
                for (int c = 0; c < 4; ++c) next[c] = static_cast<int>((total_s[j][c] + total_n[j] / 2) / total_n[j]);
            } else if (reseeded < worst.size() && worst[reseeded].first > 0) {
                for (int c = 0; c < 4; ++c) next[c] = pts.c[4 * worst[reseeded].second + static_cast<std::size_t>(c)];
                ++reseeded;
            }
            moved_entry[j] = false;
            for (int c = 0; c < 4; ++c) {
                moved_entry[j] |= next[c] != centre[j][c];
                centre[j][c] = next[c];
            }
            moved |= moved_entry[j];
        }
        if (!moved || iter + 1 == kIterations) break;
    }

    // The entries that serve some point, in order.
    for (int j = 0; j < k; ++j) {
        if (!total_n[j]) continue;
        for (int c = 0; c < 4; ++c) pal->c[pal->count][c] = centre[j][c];
        ++pal->count;
        weight->push_back(total_n[j]);
    }
}

void refine_on_pixels(const Source* src, int count, const Histogram& h, long long pixels, Palette* pal,
                      std::vector<std::uint64_t>* weight) {
    if (pal->count < 2) return;
    Grid grid(*pal, h.alpha);
    grid.build(lists_for(h.occupied, h.alpha, std::min(pixels, 1LL << kRefineBits)).data());
    const AssignFn assign = kernels().assign;
    const std::size_t stride = static_cast<std::size_t>(std::max<long long>(1, pixels >> kRefineBits));
    std::vector<std::uint64_t> total(5 * kMaxColors, 0);
    std::mutex merge;
    for (int i = 0; i < count; ++i) {
        const Source& s = src[i];
        const std::size_t w = static_cast<std::size_t>(s.width);
        kivcore::parallel_chunks(0, s.height, [&](int y0, int y1) {
            std::vector<std::uint64_t> sums(5 * kMaxColors, 0), cache(1 << 12, 0);
            for (int y = y0; y < y1; ++y)
                assign(grid.view(), s.alpha, reinterpret_cast<const unsigned char*>(s.px + static_cast<std::size_t>(y) * w), w, stride,
                       static_cast<std::size_t>(y) % stride, cache.data(), (1 << 12) - 1, sums.data());
            std::lock_guard<std::mutex> lock(merge);  // integer sums: any order gives the same totals
            for (std::size_t k = 0; k < sums.size(); ++k) total[k] += sums[k];
        });
    }
    for (int j = 0; j < pal->count; ++j) {
        const std::uint64_t* e = &total[5 * static_cast<std::size_t>(j)];
        if (!e[0]) continue;
        for (int c = 0; c < 4; ++c) pal->c[j][c] = static_cast<int>((e[1 + c] + e[0] / 2) / e[0]);
        (*weight)[static_cast<std::size_t>(j)] = e[0];
    }
}

}  // namespace kivhq
