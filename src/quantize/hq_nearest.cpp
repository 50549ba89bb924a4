// Nearest palette entry for the refined quantizer: the portable kernels, the choice of
// kernel, and the grid of candidate lists.
#include <algorithm>
#include <atomic>
#include <climits>

#include "core/parallel.h"
#include "core/simd.h"
#include "quantize/hq.h"

namespace kivhq {

namespace {

std::atomic<int> g_kernel_level{2};

// Lane k of a chunk as the vector kernels compute it.
inline std::int32_t lane_key(const Chunk& c, int k, Packed q) {
    const int d0 = static_cast<int>(q.rg & 0xFFFF) - c.rg[2 * k], d1 = static_cast<int>(q.rg >> 16) - c.rg[2 * k + 1];
    const int d2 = static_cast<int>(q.ba & 0xFFFF) - c.ba[2 * k], d3 = static_cast<int>(q.ba >> 16) - c.ba[2 * k + 1];
    const int dist = kWeight[0] * d0 * d0 + kWeight[1] * d1 * d1 + kWeight[2] * d2 * d2 + kWeight[3] * d3 * d3;
    return dist << 8 | c.idx[k];
}

}  // namespace

std::int32_t nearest_scalar(const Chunk* chunks, int n, Packed q) {
    std::int32_t best = INT32_MAX;
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 8; ++k) best = std::min(best, lane_key(chunks[i], k, q));
    return best;
}

void nearest2_scalar(const Chunk* chunks, int n, Packed q, std::int32_t* best, std::int32_t* second, int* idx) {
    std::int32_t b1 = INT32_MAX, b2 = INT32_MAX;
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 8; ++k) {
            const std::int32_t key = lane_key(chunks[i], k, q);
            if (key < b1) b2 = b1, b1 = key;
            else if (key < b2) b2 = key;
        }
    *best = b1 >> 8;
    *second = b2 >> 8;
    *idx = b1 & 0xFF;
}

void force_kernels(int level) { g_kernel_level.store(level, std::memory_order_relaxed); }

NearestFn nearest_kernel() {
    const int level = g_kernel_level.load(std::memory_order_relaxed);
#if KIV_HAVE_AVX2
    if (level >= 2 && kivcore::use_avx2()) return nearest_avx2;
#endif
#if KIV_HAVE_SSE2
    if (level >= 1) return nearest_sse2;
#endif
    (void)level;
    return nearest_scalar;
}

Nearest2Fn nearest2_kernel() {
    const int level = g_kernel_level.load(std::memory_order_relaxed);
#if KIV_HAVE_AVX2
    if (level >= 2 && kivcore::use_avx2()) return nearest2_avx2;
#endif
#if KIV_HAVE_SSE2
    if (level >= 1) return nearest2_sse2;
#endif
    (void)level;
    return nearest2_scalar;
}

void add_chunks(const Palette& pal, const int* indices, int n, std::vector<Chunk>* out) {
    for (int at = 0; at < n; at += 8) {
        Chunk c;
        for (int k = 0; k < 8; ++k) {
            const bool real = at + k < n;
            const int i = real ? indices[at + k] : 0;
            for (int ch = 0; ch < 4; ++ch) {
                const int v = real ? pal.c[i][ch] : kSentinel;
                (ch < 2 ? c.rg : c.ba)[2 * k + (ch & 1)] = static_cast<std::int16_t>(v);
            }
            c.idx[k] = real ? i : kMaxColors - 1;
        }
        out->push_back(c);
    }
}

// ---- The grid

namespace {

constexpr int kCellBits = 5;                   // 32 cells a channel, 8 units each
constexpr int kBlockCells = 4;                 // a block is 4 x 4 x 4 cells
constexpr int kBlocksPerAxis = (1 << kCellBits) / kBlockCells;  // 8

inline int wsq(int w, int d) { return w * d * d; }

// Weighted squared distances from v to the nearest and the farthest point of [lo, hi].
inline void span_dist(int v, int lo, int hi, int w, int* nearest, int* farthest) {
    *nearest = v < lo ? wsq(w, lo - v) : v > hi ? wsq(w, v - hi) : 0;
    *farthest = wsq(w, std::max(v - lo, hi - v));
}

}  // namespace

Grid::Grid(const Palette& pal, bool alpha) : pal_(pal), alpha_(alpha), kernel_(nearest_kernel()) {
    int all[kMaxColors];
    for (int i = 0; i < pal.count; ++i) all[i] = i;
    add_chunks(pal, all, pal.count, &all_);
    span_.assign(static_cast<std::size_t>(cells()), Span{});
}

// Each block's list holds the entries that can be nearest somewhere in the block: those
// whose nearest point of the block is no farther than the smallest farthest point of any
// entry.  A cell's list is taken the same way from its block's list, which holds all of the
// cell's candidates since the cell lies inside the block.
void Grid::build(const std::uint8_t* wanted) {
    const int slices = alpha_ ? 8 : 1;
    const int blocks = slices * kBlocksPerAxis * kBlocksPerAxis * kBlocksPerAxis;
    blocks_.assign(static_cast<std::size_t>(blocks), {});
    kivcore::parallel_for(0, blocks, [&](int blk) {
        const int slice = blk >> 9, b0 = (blk >> 6) & 7, b1 = (blk >> 3) & 7, b2 = blk & 7;
        auto cell_index = [&](int i, int j, int k) {
            return ((slice << kCellBits | (b0 * 4 + i)) << kCellBits | (b1 * 4 + j)) << kCellBits | (b2 * 4 + k);
        };
        bool any = false;
        for (int i = 0; i < 4 && !any; ++i)
            for (int j = 0; j < 4 && !any; ++j)
                for (int k = 0; k < 4 && !any; ++k) any = wanted[cell_index(i, j, k)] != 0;
        if (!any) return;
        const int alo = alpha_ ? slice * 32 : 255, ahi = alpha_ ? slice * 32 + 31 : 255;

        // The block's candidates.
        int list[kMaxColors], m = 0;
        {
            int nearest[kMaxColors], minmax = INT_MAX;
            for (int e = 0; e < pal_.count; ++e) {
                const int* c = pal_.c[e];
                int n0, f0, n1, f1, n2, f2, n3, f3;
                span_dist(c[0], b0 * 32, b0 * 32 + 31, kWeight[0], &n0, &f0);
                span_dist(c[1], b1 * 32, b1 * 32 + 31, kWeight[1], &n1, &f1);
                span_dist(c[2], b2 * 32, b2 * 32 + 31, kWeight[2], &n2, &f2);
                span_dist(c[3], alo, ahi, kWeight[3], &n3, &f3);
                nearest[e] = n0 + n1 + n2 + n3;
                minmax = std::min(minmax, f0 + f1 + f2 + f3);
            }
            for (int e = 0; e < pal_.count; ++e)
                if (nearest[e] <= minmax) list[m++] = e;
        }

        // Per candidate and axis, the distances to each of the block's four cell spans.
        struct Axes {
            int n[3][4], f[3][4], na, fa;
        };
        std::vector<Axes> ax(static_cast<std::size_t>(m));
        for (int e = 0; e < m; ++e) {
            const int* c = pal_.c[list[e]];
            const int base[3] = {b0 * 32, b1 * 32, b2 * 32};
            for (int a = 0; a < 3; ++a)
                for (int s = 0; s < 4; ++s)
                    span_dist(c[a], base[a] + 8 * s, base[a] + 8 * s + 7, kWeight[a], &ax[e].n[a][s], &ax[e].f[a][s]);
            span_dist(c[3], alo, ahi, kWeight[3], &ax[e].na, &ax[e].fa);
        }

        std::vector<Chunk>& pool = blocks_[static_cast<std::size_t>(blk)];
        struct Placed {
            int cell, first, n;
        };
        std::vector<Placed> placed;
        int keep[kMaxColors], nearest[kMaxColors];
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                for (int k = 0; k < 4; ++k) {
                    const int cell = cell_index(i, j, k);
                    if (!wanted[cell]) continue;
                    int minmax = INT_MAX;
                    for (int e = 0; e < m; ++e) {
                        const Axes& x = ax[e];
                        nearest[e] = x.n[0][i] + x.n[1][j] + x.n[2][k] + x.na;
                        minmax = std::min(minmax, x.f[0][i] + x.f[1][j] + x.f[2][k] + x.fa);
                    }
                    int n = 0;
                    for (int e = 0; e < m; ++e)
                        if (nearest[e] <= minmax) keep[n++] = list[e];
                    const int first = static_cast<int>(pool.size());
                    add_chunks(pal_, keep, n, &pool);
                    placed.push_back(Placed{cell, first, static_cast<int>(pool.size()) - first});
                }
        for (const Placed& p : placed) span_[static_cast<std::size_t>(p.cell)] = Span{pool.data() + p.first, p.n};
    });
}

void widen_cells(std::vector<std::uint8_t>* cells, bool alpha, int units) {
    // One axis at a time, one cell at a time: a cell is wanted when a neighbour along the
    // axis was.
    const int slices = alpha ? 8 : 1;
    const int stride[4] = {1 << 10, 1 << 5, 1, 1 << 15};
    const int size[4] = {32, 32, 32, slices};
    std::vector<std::uint8_t> prev;
    for (int axis = 0; axis < (alpha ? 4 : 3); ++axis) {
        const int steps = (units + (axis == 3 ? 31 : 7)) / (axis == 3 ? 32 : 8);
        for (int s = 0; s < steps; ++s) {
            prev = *cells;
            for (int c = 0; c < static_cast<int>(prev.size()); ++c) {
                const int pos = (c / stride[axis]) % size[axis];
                if ((pos > 0 && prev[static_cast<std::size_t>(c - stride[axis])]) ||
                    (pos + 1 < size[axis] && prev[static_cast<std::size_t>(c + stride[axis])]))
                    (*cells)[static_cast<std::size_t>(c)] = 1;
            }
        }
    }
}

}  // namespace kivhq
