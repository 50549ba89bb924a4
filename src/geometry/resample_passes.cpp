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
#include "geometry/resample_wide_simd.h"

namespace kivgeom {
namespace {

// Pixels a vertical-pass accumulator strip covers: 256 pixels = 8 KB of doubles, which
// stays in L1 while every contributing row is added in.
constexpr int kStripPixels = 256;

// Work of one output row of either pass: every output pixel adds up to c.cap taps, and a
// source row is converted to doubles (or the weighted passes' floats) once.
kivcore::Work pass_work(int src_width, int dst_width, const Contributions& c) {
    return kivcore::Work{static_cast<double>(dst_width) * static_cast<double>(c.cap) + src_width};
}
kivcore::Work pass_work(const kiv& src, const kiv& dst, const Contributions& c) {
    return pass_work(src.m_width, dst.m_width, c);
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

// Each block's source columns are converted for four rows at a time into buf (P::kQuad
// elements a source column), then the block's sums made and stored. Missing rows at a
// chunk's end repeat the last one and are not written.
template <class P>
void hpass_blocks(const P& p, const std::vector<ColumnBlock>& blocks, int widest, int y0, int y1) {
    std::vector<typename P::T> buf(P::kQuad * static_cast<std::size_t>(widest));
    std::size_t most = 0;  // output columns of the largest block
    for (const ColumnBlock& b : blocks) most = std::max(most, static_cast<std::size_t>(b.i1 - b.i0));
    std::vector<typename P::T> sums(P::kSumsAside ? P::kQuad * most : 0);
    for (int y = y0; y < y1; y += 4) {
        const int rows = std::min(4, y1 - y);
        int ys[4];
        for (int r = 0; r < 4; ++r) ys[r] = y + std::min(r, rows - 1);
        for (const ColumnBlock& b : blocks) {
            p.quad(ys, b.lo, b.hi - b.lo + 1, buf.data());
            p.sums(ys, rows, b, buf.data(), sums.data());
        }
    }
}

// The plain pass: bytes 0..2 as doubles, sums to bytes with alpha 0.
struct PlainH {
    using T = double;
    static constexpr int kQuad = 12;
    static constexpr bool kSumsAside = false;  // the kernels store the bytes themselves
    kiv& src;
    kiv& dst;
    const Contributions& c;
    const Kernels& k;
    void quad(const int* ys, int lo, int np, double* buf) const {
        const BYTE* s[4];
        for (int r = 0; r < 4; ++r) s[r] = reinterpret_cast<const BYTE*>(row_ptr(src, ys[r]) + lo);
        k.quad_to_pd(s, np, buf);
    }
    void sums(const int* ys, int rows, const ColumnBlock& b, const double* buf, double*) const {
        HsumArgs a{};
        a.buf = buf;
        a.index = c.index.data();
        a.weight = c.weight.data();
        a.count = c.count.data();
        a.cap = c.cap;
        a.clamp = !c.small_sums;
        a.rows = rows;
        for (int r = 0; r < 4; ++r) a.out[r] = reinterpret_cast<BYTE*>(row_ptr(dst, ys[r]));
        a.lo = b.lo;
        a.i0 = b.i0;
        a.i1 = b.i1;
        k.hsum(a);
    }
};

}  // namespace

void hpass(kiv& src, kiv& dst, const Contributions& c) {
    if (const Kernels k; k.hsum) {
        int widest = 1;
        const std::vector<ColumnBlock> blocks = column_blocks(c, dst.m_width, &widest);
        const PlainH p{src, dst, c, k};
        kivcore::parallel_chunks(0, dst.m_height, pass_work(src, dst, c),
                                 [&](int y0, int y1) { hpass_blocks(p, blocks, widest, y0, y1); });
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

// Pixels of a strip: the ring of ring slots holds about kRingBytes.
template <class P>
int ring_strip(int ring, int width) {
    const std::size_t per = sizeof(typename P::T) * P::kPer * static_cast<std::size_t>(ring);
    const int s = std::max(8, static_cast<int>(kRingDoubles * sizeof(double) / per) / 8 * 8);
    return std::min(s, width);
}

template <class P>
void vpass_ring(const P& p, const Contributions& c, int ring, int y0, int y1) {
    using T = typename P::T;
    const int W = p.width, strip = ring_strip<P>(ring, W);
    const std::size_t slot_len = P::kPer * static_cast<std::size_t>(strip), cap = static_cast<std::size_t>(c.cap);
    std::vector<T> buf(static_cast<std::size_t>(ring) * slot_len);
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
    std::vector<const T*> rows(cap);
    std::vector<T> sums(P::kSumsAside ? slot_len : 0);
    for (int x0 = 0; x0 < W; x0 += strip) {
        const int np = std::min(strip, W - x0);
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
                    const char* q = p.source(fills[ahead], ax);
                    for (int line = 0, len = p.source_bytes() * std::min(strip, W - ax); line < len; line += 64)
                        kivcore::prefetch(q + line);
                }
                const int r = fills[static_cast<std::size_t>(f)];
                p.convert(r, x0, np, buf.data() + static_cast<std::size_t>(r % ring) * slot_len);
            }
            const int n = c.count[static_cast<std::size_t>(y)];
            const int* sl = slot.data() + t * cap;
            for (int k = 0; k < n; ++k)
                rows[static_cast<std::size_t>(k)] = buf.data() + static_cast<std::size_t>(sl[k]) * slot_len;
            p.sums(y, rows.data(), n, x0, np, sums.data());
        }
    }
}

// The plain pass: bytes 0..2 as doubles, sums to bytes with alpha 0.
struct PlainV {
    using T = double;
    static constexpr int kPer = 3;
    static constexpr bool kSumsAside = false;
    int source_bytes() const { return 4; }
    kiv& src;
    kiv& dst;
    const Contributions& c;
    const Kernels& k;
    int width;
    const char* source(int r, int x) const { return reinterpret_cast<const char*>(row_ptr(src, r) + x); }
    void convert(int r, int x0, int np, double* slot) const {
        k.rgb_to_pd(reinterpret_cast<const BYTE*>(row_ptr(src, r) + x0), np, slot);
    }
    void sums(int y, const double* const* rows, int n, int x0, int np, double*) const {
        VsumArgs a{};
        a.rows = rows;
        a.clamp = !c.small_sums;
        a.np = np;
        a.n = n;
        a.w = c.wt(y);
        a.out = reinterpret_cast<BYTE*>(row_ptr(dst, y) + x0);
        k.vsum(a);
    }
};

// The tallest span of one output row's taps.
int ring_rows(const Contributions& c, int n_out) {
    int ring = 1;
    for (int y = 0; y < n_out; ++y) {
        const int* ix = c.idx(y);
        const int n = c.count[static_cast<std::size_t>(y)];
        if (n == 0) continue;
        const auto mm = std::minmax_element(ix, ix + n);
        ring = std::max(ring, *mm.second - *mm.first + 1);
    }
    return ring;
}

}  // namespace

void vpass(kiv& src, kiv& dst, const Contributions& c) {
    if (const Kernels k; k.vsum) {
        const int ring = ring_rows(c, dst.m_height);
        if (ring <= kMaxRing) {
            const PlainV p{src, dst, c, k, dst.m_width};
            kivcore::parallel_chunks(0, dst.m_height, pass_work(src, dst, c),
                                     [&](int y0, int y1) { vpass_ring(p, c, ring, y0, y1); });
            return;
        }
    }
    kivcore::parallel_chunks(0, dst.m_height, pass_work(src, dst, c),
                             [&](int y0, int y1) { vpass_rows(src, dst, c, y0, y1); });
}

namespace {

// ---- The weighted passes (zoom_rgba): four channels of floats, 16-bit intermediates.

// The scalar twins of the kernels of resample_wide_simd.h.
void wide_vsum_scalar(const float* const* rows, const float* w, int n, int nf, float* out) {
    for (int j = 0; j < nf; ++j) {
        float acc = n > 0 ? w[0] * rows[0][j] : 0.0f;
        for (int k = 1; k < n; ++k) acc += w[k] * rows[k][j];
        out[j] = acc;
    }
}

void wide_hsum_scalar(const WideHsumArgs& a) {
    for (int i = a.i0; i < a.i1; ++i) {
        const int* ix = a.index + static_cast<long long>(i) * a.cap;
        const float* w = a.weight + static_cast<long long>(i) * a.cap;
        const int n = a.count[i];
        for (int m = 0; m < 16; ++m) {
            float acc = n > 0 ? w[0] * a.buf[16LL * (ix[0] - a.lo) + m] : 0.0f;
            for (int k = 1; k < n; ++k) acc += w[k] * a.buf[16LL * (ix[k] - a.lo) + m];
            a.out[16LL * (i - a.i0) + m] = acc;
        }
    }
}

void wide_load_bytes_scalar(const unsigned char* s, int np, const WideFormat& f, float* out, int stride) {
    for (int p = 0; p < np; ++p) {
        const unsigned char* q = s + 4 * p;
        f.load(tagRGBA{q[0], q[1], q[2], q[3]}, out + static_cast<long long>(stride) * p);
    }
}

void wide_load_words_scalar(const std::uint16_t* s, int np, float* out, int stride) {
    for (int p = 0; p < np; ++p)
        for (int ch = 0; ch < 4; ++ch) out[static_cast<long long>(stride) * p + ch] = s[4 * p + ch];
}

void wide_store_words_scalar(const float* v, int np, int stride, std::uint16_t* out) {
    for (int p = 0; p < np; ++p)
        for (int ch = 0; ch < 4; ++ch) out[4 * p + ch] = kivcore::to_word(v[static_cast<long long>(stride) * p + ch]);
}

void wide_store_bytes_scalar(const float* v, int np, int stride, const WideFormat& f, unsigned char* out) {
    for (int p = 0; p < np; ++p) {
        const tagRGBA px = f.store(v + static_cast<long long>(stride) * p);
        std::memcpy(out + 4 * p, &px, 4);
    }
}

template <class Fn>
Fn or_scalar(Fn vec, Fn scalar) {
    return vec ? vec : scalar;
}

struct WideKernels {
    decltype(&wide_vsum_scalar) vsum =
        or_scalar(kivcore::pick(KIV_AVX2_KERNEL(wide_vsum_avx2), KIV_SSE2_KERNEL(wide_vsum_sse2)), &wide_vsum_scalar);
    decltype(&wide_hsum_scalar) hsum =
        or_scalar(kivcore::pick(KIV_AVX2_KERNEL(wide_hsum_avx2), KIV_SSE2_KERNEL(wide_hsum_sse2)), &wide_hsum_scalar);
    decltype(&wide_load_bytes_scalar) load_bytes =
        or_scalar(kivcore::pick(KIV_AVX2_KERNEL(wide_load_bytes_avx2), KIV_SSE2_KERNEL(wide_load_bytes_sse2)),
                  &wide_load_bytes_scalar);
    decltype(&wide_load_words_scalar) load_words =
        or_scalar(kivcore::pick_sse2(KIV_SSE2_KERNEL(wide_load_words_sse2)), &wide_load_words_scalar);
    decltype(&wide_store_words_scalar) store_words =
        or_scalar(kivcore::pick_sse2(KIV_SSE2_KERNEL(wide_store_words_sse2)), &wide_store_words_scalar);
    decltype(&wide_store_bytes_scalar) store_bytes =
        or_scalar(kivcore::pick_sse2(KIV_SSE2_KERNEL(wide_store_bytes_sse2)), &wide_store_bytes_scalar);
};

// What both weighted passes do at their ends: np pixels from x of row y in (to stride floats
// a pixel), or out of stride floats a pixel.
struct WideEnds {
    const WideImage& src;
    const WideImage& dst;
    const WideFormat& f;
    const WideKernels& k;
    void in(int y, int x, int np, float* out, int stride) const {
        const std::size_t o =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(src.width) + static_cast<std::size_t>(x);
        if (src.bytes)
            k.load_bytes(reinterpret_cast<const BYTE*>(src.bytes + o), np, f, out, stride);
        else
            k.load_words(src.words + 4 * o, np, out, stride);
    }
    void out(int y, int x, int np, const float* v, int stride) const {
        const std::size_t o =
            static_cast<std::size_t>(y) * static_cast<std::size_t>(dst.width) + static_cast<std::size_t>(x);
        if (dst.bytes)
            k.store_bytes(v, np, stride, f, reinterpret_cast<BYTE*>(dst.bytes + o));
        else
            k.store_words(v, np, stride, dst.words + 4 * o);
    }
};

// The horizontal pass: four rows' pixels side by side, 16 floats a source column.
struct WideH {
    using T = float;
    static constexpr int kQuad = 16;
    static constexpr bool kSumsAside = true;
    WideEnds e;
    const Contributions& c;
    const float* w;
    void quad(const int* ys, int lo, int np, float* buf) const {
        for (int r = 0; r < 4; ++r) e.in(ys[r], lo, np, buf + 4 * r, 16);
    }
    void sums(const int* ys, int rows, const ColumnBlock& b, const float* buf, float* out) const {
        const WideHsumArgs a{buf, b.lo, c.index.data(), w, c.count.data(), c.cap, b.i0, b.i1, out};
        e.k.hsum(a);
        for (int r = 0; r < rows; ++r) e.out(ys[r], b.i0, b.i1 - b.i0, out + 4 * r, 16);
    }
};

// The vertical pass: row strips of four floats a pixel.
struct WideV {
    using T = float;
    static constexpr int kPer = 4;
    static constexpr bool kSumsAside = true;
    WideEnds e;
    const Contributions& c;
    const float* w;
    int width;
    int source_bytes() const { return e.src.bytes ? 4 : 8; }
    const char* source(int r, int x) const {
        const std::size_t o =
            static_cast<std::size_t>(r) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
        return e.src.bytes ? reinterpret_cast<const char*>(e.src.bytes + o)
                           : reinterpret_cast<const char*>(e.src.words + 4 * o);
    }
    void convert(int r, int x0, int np, float* slot) const { e.in(r, x0, np, slot, 4); }
    void sums(int y, const float* const* rows, int n, int x0, int np, float* out) const {
        e.k.vsum(rows, w + static_cast<std::size_t>(y) * static_cast<std::size_t>(c.cap), n, 4 * np, out);
        e.out(y, x0, np, out, 4);
    }
};

std::vector<float> float_weights(const Contributions& c) {
    return std::vector<float>(c.weight.begin(), c.weight.end());
}

}  // namespace

void hpass_wide(const WideImage& src, const WideImage& dst, const Contributions& c, const WideFormat& f) {
    const WideKernels k;
    const std::vector<float> w = float_weights(c);
    int widest = 1;
    const std::vector<ColumnBlock> blocks = column_blocks(c, dst.width, &widest);
    const WideH p{WideEnds{src, dst, f, k}, c, w.data()};
    kivcore::parallel_chunks(0, dst.height, pass_work(src.width, dst.width, c),
                             [&](int y0, int y1) { hpass_blocks(p, blocks, widest, y0, y1); });
}

void vpass_wide(const WideImage& src, const WideImage& dst, const Contributions& c, const WideFormat& f) {
    const WideKernels k;
    const std::vector<float> w = float_weights(c);
    const int ring = ring_rows(c, dst.height);
    const WideV p{WideEnds{src, dst, f, k}, c, w.data(), dst.width};
    kivcore::parallel_chunks(0, dst.height, pass_work(src.width, dst.width, c),
                             [&](int y0, int y1) { vpass_ring(p, c, ring, y0, y1); });
}

}  // namespace kivgeom
