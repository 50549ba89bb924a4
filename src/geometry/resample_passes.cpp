// The resampler's two passes: the order in which source lines are converted, buffered and
// summed (column blocks of the horizontal pass, the ring of row strips and its prefetching
// in the vertical pass) around the sums of resample_simd.h and their scalar twins here.
#include <algorithm>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "core/simd.h"
#include "geometry/geometry.h"
#include "geometry/resample.h"
#include "geometry/resample_simd.h"

namespace kivgeom {
namespace {

// Pixels a vertical-pass accumulator strip covers: 256 pixels = 8 KB of doubles, which
// stays in L1 while every contributing row is added in.
constexpr int kStripPixels = 256;

// Work of one output row of either pass: every output pixel adds up to c.cap taps, and a
// source row is converted to doubles once.
kivcore::Work pass_work(const kiv& src, const kiv& dst, const Contributions& c) {
    return kivcore::Work{static_cast<double>(dst.m_width) * static_cast<double>(c.cap) + src.m_width};
}

// The vector kernels of both passes, chosen once for a pass (all null on the scalar path).
struct Kernels {
    decltype(&quad_to_pd_sse2) quad_to_pd =
        kivcore::pick(KIV_AVX2_KERNEL(quad_to_pd_avx2), KIV_SSE2_KERNEL(quad_to_pd_sse2));
    decltype(&hsum_sse2) hsum = kivcore::pick(KIV_AVX2_KERNEL(hsum_avx2), KIV_SSE2_KERNEL(hsum_sse2));
    decltype(&rgb_to_pd_sse2) rgb_to_pd =
        kivcore::pick(KIV_AVX2_KERNEL(rgb_to_pd_avx2), KIV_SSE2_KERNEL(rgb_to_pd_sse2));
    decltype(&vsum_sse2) vsum = kivcore::pick(KIV_AVX2_KERNEL(vsum_avx2), KIV_SSE2_KERNEL(vsum_sse2));
};

// ---- Horizontal pass: every row of src (width = source length) to dst (width n_out).

void hpass_rows_scalar(kiv& src, kiv& dst, const Contributions& c, int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
        const BYTE* s = reinterpret_cast<const BYTE*>(row_ptr(src, y));
        tagRGBA* d = row_ptr(dst, y);
        for (int i = 0; i < dst.m_width; ++i) {
            const int* ix = c.idx(i);
            const double* w = c.wt(i);
            const int n = c.count[static_cast<std::size_t>(i)];
            double a0 = 0.0, a1 = 0.0, a2 = 0.0;
            if (n > 0) {  // the sums start from the first products (see sum_to_byte)
                const BYTE* p = s + 4 * static_cast<std::size_t>(ix[0]);
                a0 = w[0] * p[0];
                a1 = w[0] * p[1];
                a2 = w[0] * p[2];
            }
            for (int k = 1; k < n; ++k) {
                const BYTE* p = s + 4 * static_cast<std::size_t>(ix[k]);
                a0 += w[k] * p[0];
                a1 += w[k] * p[1];
                a2 += w[k] * p[2];
            }
            d[i] = tagRGBA{sum_to_byte(a0), sum_to_byte(a1), sum_to_byte(a2), 0};
        }
    }
}

// Blocks of output columns whose taps together span at most kBlockColumns source columns
// (an output that alone spans more is a block of its own): each block's source columns are
// converted for four rows at a time into a buffer that stays in L1.
constexpr int kBlockColumns = 256;

struct ColumnBlock {
    int i0, i1, lo, hi;
};

std::vector<ColumnBlock> column_blocks(const Contributions& c, int n_out, int* widest) {
    std::vector<ColumnBlock> blocks;
    *widest = 1;
    for (int i = 0; i < n_out;) {
        ColumnBlock b{i, i, 0, -1};
        for (; i < n_out; ++i) {
            const int* ix = c.idx(i);
            int lo = b.lo, hi = b.hi;
            for (int k = 0, n = c.count[static_cast<std::size_t>(i)]; k < n; ++k) {
                if (hi < lo) lo = hi = ix[k];
                lo = std::min(lo, ix[k]);
                hi = std::max(hi, ix[k]);
            }
            if (b.i1 > b.i0 && hi - lo >= kBlockColumns) break;
            b.lo = lo;
            b.hi = hi;
            b.i1 = i + 1;
        }
        if (b.hi < b.lo) b.lo = b.hi = 0;  // no taps at all: nothing is read
        *widest = std::max(*widest, b.hi - b.lo + 1);
        blocks.push_back(b);
    }
    return blocks;
}

void hpass_blocks(kiv& src, kiv& dst, const Contributions& c, const std::vector<ColumnBlock>& blocks, int widest,
                  int y0, int y1, const Kernels& k) {
    std::vector<double> buf(12 * static_cast<std::size_t>(widest));
    HsumArgs a{};
    a.buf = buf.data();
    a.index = c.index.data();
    a.weight = c.weight.data();
    a.count = c.count.data();
    a.cap = c.cap;
    a.clamp = !c.small_sums;
    for (int y = y0; y < y1; y += 4) {
        // Missing rows at a chunk's end repeat the last one and are not written.
        a.rows = std::min(4, y1 - y);
        const BYTE* s[4];
        for (int r = 0; r < 4; ++r) {
            const int yr = y + std::min(r, a.rows - 1);
            s[r] = reinterpret_cast<const BYTE*>(row_ptr(src, yr));
            a.out[r] = reinterpret_cast<BYTE*>(row_ptr(dst, yr));
        }
        for (const ColumnBlock& b : blocks) {
            const BYTE* sb[4];
            for (int r = 0; r < 4; ++r) sb[r] = s[r] + 4 * static_cast<std::size_t>(b.lo);
            a.lo = b.lo;
            a.i0 = b.i0;
            a.i1 = b.i1;
            k.quad_to_pd(sb, b.hi - b.lo + 1, buf.data());
            k.hsum(a);
        }
    }
}

}  // namespace

void hpass(kiv& src, kiv& dst, const Contributions& c) {
    if (const Kernels k; k.hsum) {
        int widest = 1;
        const std::vector<ColumnBlock> blocks = column_blocks(c, dst.m_width, &widest);
        kivcore::parallel_chunks(0, dst.m_height, pass_work(src, dst, c),
                                 [&](int y0, int y1) { hpass_blocks(src, dst, c, blocks, widest, y0, y1, k); });
        return;
    }
    kivcore::parallel_chunks(0, dst.m_height, pass_work(src, dst, c),
                             [&](int y0, int y1) { hpass_rows_scalar(src, dst, c, y0, y1); });
}

namespace {

// ---- Vertical pass: dst row i is the weighted sum of the listed rows of src.

// Rows streamed strip by strip: one accumulator strip per chunk, each source row added in
// whole. The scalar path, and the vector path's fallback for spans too tall to buffer.
void vpass_rows(kiv& src, kiv& dst, const Contributions& c, int y0, int y1) {
    const std::size_t line = static_cast<std::size_t>(dst.m_width) * 4;  // bytes of a row
    const std::size_t strip = static_cast<std::size_t>(kStripPixels) * 4;
    std::vector<double> acc(strip);
    const auto accumulate = kivcore::pick_sse2(KIV_SSE2_KERNEL(accumulate_sse2));
    const auto store = kivcore::pick_sse2(KIV_SSE2_KERNEL(store_sums_sse2));
    for (int y = y0; y < y1; ++y) {
        const int* ix = c.idx(y);
        const double* w = c.wt(y);
        const int n = c.count[static_cast<std::size_t>(y)];
        BYTE* d = reinterpret_cast<BYTE*>(row_ptr(dst, y));
        for (std::size_t x0 = 0; x0 < line; x0 += strip) {
            const std::size_t len = std::min(strip, line - x0);  // a multiple of 4
            if (n == 0) std::fill(acc.begin(), acc.begin() + static_cast<std::ptrdiff_t>(len), 0.0);
            for (int k = 0; k < n; ++k) {
                const bool first = k == 0;  // the first products start the sums
                const BYTE* s = reinterpret_cast<const BYTE*>(row_ptr(src, ix[k])) + x0;
                const double wk = w[k];
                std::size_t j = 0;
                if (accumulate) j = accumulate(s, len, wk, first, acc.data());
                for (; j < len; ++j) acc[j] = first ? wk * s[j] : acc[j] + wk * s[j];
            }
            std::size_t j = 0;
            if (store) j = store(acc.data(), len, d + x0);
            for (; j < len; j += 4) {
                d[x0 + j] = sum_to_byte(acc[j]);
                d[x0 + j + 1] = sum_to_byte(acc[j + 1]);
                d[x0 + j + 2] = sum_to_byte(acc[j + 2]);
                d[x0 + j + 3] = 0;
            }
        }
    }
}

// The vertical pass a column strip at a time. Each converted source row strip lives in a
// ring of slots (row r in slot r mod ring, ring at least the tallest span of one output's
// taps), so walking down the strip converts each source row once and every output row finds
// all its rows in the ring. The ring holds about 32 KB, so the sums read L1.
constexpr std::size_t kRingDoubles = 4096;
constexpr int kMaxRing = 2048;  // taller spans (huge shrink factors) go to vpass_rows
constexpr int kPrefetchRows = 8;

int ring_strip(int ring, int width) {
    const int s = std::max(8, static_cast<int>(kRingDoubles / (3 * static_cast<std::size_t>(ring))) / 8 * 8);
    return std::min(s, width);
}

void vpass_ring(kiv& src, kiv& dst, const Contributions& c, int ring, int y0, int y1, const Kernels& k) {
    const int W = dst.m_width, strip = ring_strip(ring, W);
    const std::size_t slot_len = 3 * static_cast<std::size_t>(strip), cap = static_cast<std::size_t>(c.cap);
    std::vector<double> buf(static_cast<std::size_t>(ring) * slot_len);
    // The schedule is the same for every strip: the slot each tap reads, and the rows each
    // output row converts before its sums (fills[fill_at[y - y0]] onwards).
    std::vector<int> slot(static_cast<std::size_t>(y1 - y0) * cap), fill_at(static_cast<std::size_t>(y1 - y0) + 1);
    std::vector<int> fills, held(static_cast<std::size_t>(ring), -1);
    for (int y = y0; y < y1; ++y) {
        const int* ix = c.idx(y);
        for (int k = 0, n = c.count[static_cast<std::size_t>(y)]; k < n; ++k) {
            const int sl = ix[k] % ring;
            if (held[static_cast<std::size_t>(sl)] != ix[k]) {
                held[static_cast<std::size_t>(sl)] = ix[k];
                fills.push_back(ix[k]);
            }
            slot[static_cast<std::size_t>(y - y0) * cap + static_cast<std::size_t>(k)] = sl;
        }
        fill_at[static_cast<std::size_t>(y - y0) + 1] = static_cast<int>(fills.size());
    }
    const std::size_t nfills = fills.size();
    std::vector<const double*> rows(cap);
    VsumArgs a{};
    a.rows = rows.data();
    a.clamp = !c.small_sums;
    for (int x0 = 0; x0 < W; x0 += strip) {
        a.np = std::min(strip, W - x0);
        for (int y = y0; y < y1; ++y) {
            const std::size_t t = static_cast<std::size_t>(y - y0);
            for (int f = fill_at[t]; f < fill_at[t + 1]; ++f) {
                // A strip is a short piece of each row, too short for the hardware to see the
                // stream: ask for the piece a few conversions ahead now (the next strip's
                // first ones near the end).
                std::size_t ahead = static_cast<std::size_t>(f) + kPrefetchRows;
                int ax = x0;
                if (ahead >= nfills) {
                    ahead -= nfills;
                    ax += strip;
                }
                if (ahead < nfills && ax < W) {
                    const char* p = reinterpret_cast<const char*>(row_ptr(src, fills[ahead]) + ax);
                    for (int line = 0, len = 4 * std::min(strip, W - ax); line < len; line += 64)
                        kivcore::prefetch(p + line);
                }
                const int r = fills[static_cast<std::size_t>(f)];
                const BYTE* s = reinterpret_cast<const BYTE*>(row_ptr(src, r) + x0);
                double* b = buf.data() + static_cast<std::size_t>(r % ring) * slot_len;
                k.rgb_to_pd(s, a.np, b);
            }
            a.n = c.count[static_cast<std::size_t>(y)];
            const int* sl = slot.data() + t * cap;
            for (int k = 0; k < a.n; ++k)
                rows[static_cast<std::size_t>(k)] = buf.data() + static_cast<std::size_t>(sl[k]) * slot_len;
            a.w = c.wt(y);
            a.out = reinterpret_cast<BYTE*>(row_ptr(dst, y) + x0);
            k.vsum(a);
        }
    }
}

}  // namespace

void vpass(kiv& src, kiv& dst, const Contributions& c) {
    if (const Kernels k; k.vsum) {
        int ring = 1;  // the tallest span of one output row's taps
        for (int y = 0; y < dst.m_height; ++y) {
            const int* ix = c.idx(y);
            const int n = c.count[static_cast<std::size_t>(y)];
            if (n == 0) continue;
            const auto mm = std::minmax_element(ix, ix + n);
            ring = std::max(ring, *mm.second - *mm.first + 1);
        }
        if (ring <= kMaxRing) {
            kivcore::parallel_chunks(0, dst.m_height, pass_work(src, dst, c),
                                     [&](int y0, int y1) { vpass_ring(src, dst, c, ring, y0, y1, k); });
            return;
        }
    }
    kivcore::parallel_chunks(0, dst.m_height, pass_work(src, dst, c),
                             [&](int y0, int y1) { vpass_rows(src, dst, c, y0, y1); });
}

}  // namespace kivgeom
