// Nearest palette entry for the refined quantizer: the portable kernels, the choice of
// kernel set, and the grid of candidate lists.
#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "core/parallel.h"
#include "core/simd.h"
#include "quantize/hq.h"

namespace kivhq {

namespace {

// A pixel's four channels, one int each.
struct ScalarLanes {
    struct V {
        int v[4];
    };
    template <class F>
    static V each(F f) {
        return V{{f(0), f(1), f(2), f(3)}};
    }
    static V from_bytes(std::uint32_t w) {
        return each([w](int k) { return static_cast<int>(w >> (8 * k) & 0xFF); });
    }
    static V premultiply(V c, int a) {
        return each([&](int k) {
            const int t = c.v[k] * (k < 3 ? a : 255) + 128;
            return (t + (t >> 8)) >> 8;
        });
    }
    static V load(const int* p) { return V{{p[0], p[1], p[2], p[3]}}; }
    static void store(int* p, V v) {
        for (int k = 0; k < 4; ++k) p[k] = v.v[k];
    }
    static V zero() { return V{{0, 0, 0, 0}}; }
    static V set1(int x) { return V{{x, x, x, x}}; }
    static V add(V a, V b) { return each([&](int k) { return a.v[k] + b.v[k]; }); }
    static V sub(V a, V b) { return each([&](int k) { return a.v[k] - b.v[k]; }); }
    static V shl(V a, int n) { return each([&](int k) { return a.v[k] * (1 << n); }); }
    static V shl8(V a) { return shl(a, 8); }
    static V sra4(V a) { return each([&](int k) { return a.v[k] >> 4; }); }
    static V sra8(V a) { return each([&](int k) { return a.v[k] >> 8; }); }
    static V clamp(V a, int lo, int hi) { return each([&](int k) { return std::min(std::max(a.v[k], lo), hi); }); }
    static V mul16(V a, int s) { return each([&](int k) { return a.v[k] * s; }); }
    static int max_abs(V a) {
        int m = 0;
        for (int k = 0; k < 4; ++k) m = std::max(m, std::abs(a.v[k]));
        return m;
    }
    static V drop_alpha(V a) { return V{{a.v[0], a.v[1], a.v[2], 0}}; }
    static bool is_zero(V a) { return !(a.v[0] | a.v[1] | a.v[2] | a.v[3]); }
    static std::uint32_t to_bytes(V a) {
        return static_cast<std::uint32_t>(a.v[0] | a.v[1] << 8 | a.v[2] << 16) | static_cast<std::uint32_t>(a.v[3]) << 24;
    }
};

// One pixel as its four bytes in a word.
struct ScalarBytes {
    using V = std::uint32_t;
    static constexpr int kPixels = 1;
    static V load(const unsigned char* p) {
        V v;
        std::memcpy(&v, p, 4);
        return v;
    }
    template <class F>
    static V bytewise(V a, V b, F f) {
        V r = 0;
        for (int k = 0; k < 32; k += 8) r |= static_cast<V>(f(static_cast<int>(a >> k & 0xFF), static_cast<int>(b >> k & 0xFF))) << k;
        return r;
    }
    static V absdiff(V a, V b) {
        return bytewise(a, b, [](int x, int y) { return x > y ? x - y : y - x; });
    }
    static V max8(V a, V b) {
        return bytewise(a, b, [](int x, int y) { return x > y ? x : y; });
    }
    static V drop_alpha(V a) { return a & 0x00FFFFFFu; }
    static V lane_max(V a) { return std::max({a & 0xFF, a >> 8 & 0xFF, a >> 16 & 0xFF, a >> 24}); }
    static V strength(V a) { return static_cast<V>(HoldRule<ScalarBytes>::strength(static_cast<int>(a))); }
    static void store(std::uint8_t* out, V a) { *out = static_cast<std::uint8_t>(a); }
};

// One lane: a pair of 16-bit halves in a 32-bit word for the pair operations, a plain 32-bit
// value for the others, computing exactly what each vector lane computes.
struct Scalar {
    using V = std::int32_t;
    using Narrow = Scalar;
    using Lanes = ScalarLanes;
    using Bytes = ScalarBytes;
    static constexpr int kLanes = 1;
    static int lo(V v) { return static_cast<std::int16_t>(static_cast<std::uint32_t>(v) & 0xFFFF); }
    static int hi(V v) { return static_cast<std::int16_t>(static_cast<std::uint32_t>(v) >> 16); }
    static V pair(int l, int h) {
        return static_cast<V>((static_cast<std::uint32_t>(l) & 0xFFFF) | static_cast<std::uint32_t>(h) << 16);
    }
    static V set1(std::int32_t x) { return x; }
    static V load_pairs(const std::int16_t* p) { return pair(p[0], p[1]); }
    static V load_keys(const std::int32_t* p) { return *p; }
    static V sub16(V a, V b) { return pair(lo(a) - lo(b), hi(a) - hi(b)); }
    static V mul16(V a, V b) { return pair(lo(a) * lo(b), hi(a) * hi(b)); }
    static V madd(V a, V b) { return lo(a) * lo(b) + hi(a) * hi(b); }
    static V add32(V a, V b) { return a + b; }
    static V or32(V a, V b) { return a | b; }
    static V shl8(V a) { return a << 8; }
    static V min32(V a, V b) { return a < b ? a : b; }
    static std::int32_t hmin(V v) { return v; }
};

}  // namespace

KernelSet kernels_scalar() { return KernelSet{Kernels<Scalar>::assign, Kernels<Scalar>::nearest, Kernels<Scalar>::map_run, Kernels<Scalar>::diffuse, Kernels<Scalar>::hold,
                     Kernels<Scalar>::count}; }

std::int32_t nearest_reference(const Chunk* chunks, int count, Packed q) {
    const int p[4] = {static_cast<int>(q.rg & 0xFFFF), static_cast<int>(q.rg >> 16), static_cast<int>(q.ba & 0xFFFF),
                      static_cast<int>(q.ba >> 16)};
    std::int32_t best = INT32_MAX;
    for (int i = 0; i < count; ++i) {
        const Chunk& c = chunks[i / 8];
        const int k = i % 8;
        const int e[4] = {c.rg[2 * k], c.rg[2 * k + 1], c.ba[2 * k], c.ba[2 * k + 1]};
        int dist = 0;
        for (int ch = 0; ch < 4; ++ch) dist += kWeight[ch] * (p[ch] - e[ch]) * (p[ch] - e[ch]);
        best = std::min(best, dist << 8 | c.idx[k]);
    }
    return best;
}

const KernelSet& kernels() {
    static const KernelSet scalar = kernels_scalar();
#if KIV_HAVE_SSE2
    static const KernelSet sse2 = kernels_sse2();
#endif
#if KIV_HAVE_AVX2
    static const KernelSet avx2 = kernels_avx2();
#endif
#if KIV_HAVE_AVX2
    if (kivcore::use_avx2()) return avx2;
#endif
#if KIV_HAVE_SSE2
    if (kivcore::use_sse2()) return sse2;
#endif
    return scalar;
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

// Candidate lists are built only where there are at least this many pixels per cell.
constexpr long long kPixelsPerCell = 16;
constexpr int kBlocksPerAxis = 8;  // a block is 4 x 4 x 4 cells, 32 units a side

inline int wsq(int w, int d) { return w * d * d; }

// Weighted squared distances from v to the nearest and the farthest point of [lo, hi].
inline void span_dist(int v, int lo, int hi, int w, int* nearest, int* farthest) {
    *nearest = v < lo ? wsq(w, lo - v) : v > hi ? wsq(w, v - hi) : 0;
    *farthest = wsq(w, std::max(v - lo, hi - v));
}

}  // namespace

Grid::Grid(const Palette& pal, bool alpha) : pal_(pal), alpha_(alpha) {
    int all[kMaxColors];
    for (int i = 0; i < pal.count; ++i) all[i] = i;
    add_chunks(pal, all, pal.count, &all_);
    cell_.assign(static_cast<std::size_t>(cells(alpha)), 0);
    view_ = GridView{cell_.data(), nullptr, all_.data(), pal.count, alpha};
}

// Each block's list holds the entries that can be nearest somewhere in the block: those
// whose nearest point of the block is no farther than the smallest farthest point of any
// entry.  A cell's list is taken the same way from its block's list, which holds all of the
// cell's candidates since the cell lies inside the block.
void Grid::build(const std::uint8_t* wanted) {
    const int slices = alpha_ ? 8 : 1;
    const int blocks = slices * kBlocksPerAxis * kBlocksPerAxis * kBlocksPerAxis;
    std::vector<std::vector<Chunk>> pools(static_cast<std::size_t>(blocks));
    kivcore::parallel_for(0, blocks, [&](int blk) {
        const int slice = blk >> 9, b0 = (blk >> 6) & 7, b1 = (blk >> 3) & 7, b2 = blk & 7;
        auto cell_index = [&](int i, int j, int k) { return slice << 15 | (b0 * 4 + i) << 10 | (b1 * 4 + j) << 5 | (b2 * 4 + k); };
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
        Axes ax[kMaxColors];
        for (int e = 0; e < m; ++e) {
            const int* c = pal_.c[list[e]];
            const int base[3] = {b0 * 32, b1 * 32, b2 * 32};
            for (int a = 0; a < 3; ++a)
                for (int s = 0; s < 4; ++s)
                    span_dist(c[a], base[a] + 8 * s, base[a] + 8 * s + 7, kWeight[a], &ax[e].n[a][s], &ax[e].f[a][s]);
            span_dist(c[3], alo, ahi, kWeight[3], &ax[e].na, &ax[e].fa);
        }

        std::vector<Chunk>& pool = pools[static_cast<std::size_t>(blk)];
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
                    if (n == 1) {
                        cell_[static_cast<std::size_t>(cell)] = static_cast<std::uint32_t>(keep[0]) << 9 | 1u;
                        continue;
                    }
                    // The offset within the block for now; made global below.
                    cell_[static_cast<std::size_t>(cell)] = static_cast<std::uint32_t>(pool.size()) << 9 | static_cast<std::uint32_t>(n);
                    add_chunks(pal_, keep, n, &pool);
                }
    });
    // One pool, blocks in order.
    std::vector<std::size_t> first(static_cast<std::size_t>(blocks) + 1, 0);
    for (int b = 0; b < blocks; ++b) first[static_cast<std::size_t>(b) + 1] = first[static_cast<std::size_t>(b)] + pools[static_cast<std::size_t>(b)].size();
    pool_.resize(first.back());
    kivcore::parallel_for(0, blocks, [&](int blk) {
        const std::vector<Chunk>& p = pools[static_cast<std::size_t>(blk)];
        if (p.empty()) return;
        std::copy(p.begin(), p.end(), pool_.begin() + static_cast<std::ptrdiff_t>(first[static_cast<std::size_t>(blk)]));
        const int slice = blk >> 9, b0 = (blk >> 6) & 7, b1 = (blk >> 3) & 7, b2 = blk & 7;
        const std::uint32_t shift = static_cast<std::uint32_t>(first[static_cast<std::size_t>(blk)]) << 9;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                for (int k = 0; k < 4; ++k) {
                    std::uint32_t& rec = cell_[static_cast<std::size_t>(slice << 15 | (b0 * 4 + i) << 10 | (b1 * 4 + j) << 5 | (b2 * 4 + k))];
                    if ((rec & 0x1FF) > 1) rec += shift;
                }
    });
    view_.pool = pool_.data();
}

std::vector<std::uint8_t> lists_for(const std::vector<std::uint8_t>& occupied, bool alpha, long long pixels) {
    (void)alpha;
    std::vector<std::uint8_t> wanted = occupied;
    if (std::count(wanted.begin(), wanted.end(), std::uint8_t{1}) * kPixelsPerCell > pixels)
        std::fill(wanted.begin(), wanted.end(), std::uint8_t{0});
    return wanted;
}

void widen_cells(std::vector<std::uint8_t>* cells, bool alpha, int units) {
    // Along each axis in turn, a cell is wanted when one within `reach` cells of it was: a
    // running count over each line of 32 (or 8 alpha slices).
    const int slices = alpha ? 8 : 1;
    const int stride[4] = {1 << 10, 1 << 5, 1, 1 << 15};
    const int size[4] = {32, 32, 32, slices};
    std::uint8_t line[32];
    for (int axis = 0; axis < (alpha ? 4 : 3); ++axis) {
        const int reach = std::min(size[axis], (units + (axis == 3 ? 31 : 7)) / (axis == 3 ? 32 : 8));
        if (!reach) continue;
        const int n = static_cast<int>(cells->size()), st = stride[axis], len = size[axis];
        for (int outer = 0; outer < n; outer += st * len)
            for (int base = outer; base < outer + st; ++base) {
                int count = 0;
                for (int i = 0; i < len; ++i) line[i] = (*cells)[static_cast<std::size_t>(base + i * st)];
                for (int i = 0; i < std::min(reach, len); ++i) count += line[i];
                for (int i = 0; i < len; ++i) {
                    if (i + reach < len) count += line[i + reach];
                    if (i - reach - 1 >= 0) count -= line[i - reach - 1];
                    (*cells)[static_cast<std::size_t>(base + i * st)] = count > 0;
                }
            }
    }
}

}  // namespace kivhq
