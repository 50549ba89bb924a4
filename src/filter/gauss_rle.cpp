// Integer Gaussian (blur_gauss_rle_plane, blur_gauss_rle).
//
// The weights are integers and every sum fits 32 bits, so the result is the exact integer
// sum of tap times clamped sample, whatever the evaluation order.  That lets the lines be
// computed as plain vectorised convolutions (int_conv.h), in parallel, instead of one run at
// a time.
#include <cmath>
#include "filter/gauss_rle.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "filter/int_conv.h"
#include "core/kmath.h"

namespace kivfilter {

bool rle_kernel(double sigma, RleKernel* k) {
    if (!(sigma > 0.0) || !(sigma <= kRleMaxSigma)) return false;
    int L = static_cast<int>(std::ceil(std::sqrt(-(kivcore::kmath::log(1.0 / 255.0) * 2 * (sigma * sigma)))) * 2);
    if (L % 2 == 0) L = L + 1;
    const int h = L / 2;
    std::vector<int> taps(static_cast<std::size_t>(2 * h + 1));
    for (int j = -h; j <= h; ++j)
        taps[static_cast<std::size_t>(j + h)] =
            j == 0 ? 255
                   : static_cast<int>(255.0 * kivcore::kmath::exp(-(static_cast<double>(j) * j) / (2 * (sigma * sigma))));
    k->h = h;
    k->prefix.assign(static_cast<std::size_t>(2 * h + 1), 0);
    for (int i = 0; i < 2 * h; ++i)
        k->prefix[static_cast<std::size_t>(i + 1)] = k->prefix[static_cast<std::size_t>(i)] + taps[static_cast<std::size_t>(i)];
    return k->total() > 0;
}

namespace {

// Columns of one strip of the column pass, the unit of its parallel loop.
constexpr int kRleStrip = 256;

std::int32_t pair_weights(std::int32_t wa, std::int32_t wb) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(wa) | (static_cast<std::uint32_t>(wb) << 16));
}

// The kernel as weights of the samples of a line. The line filter equals a convolution with
// the line's end samples repeated outwards: the taps before the start (after the end) land
// on the first (last) sample.
struct LineTaps {
    int kh;
    const std::vector<int>* P;
    std::vector<std::int32_t> t;  // t[o + kh] for offsets -kh .. kh-1

    LineTaps(const RleKernel& k) : kh(k.h), P(&k.prefix), t(static_cast<std::size_t>(2 * k.h)) {
        for (int i = 0; i < 2 * kh; ++i) t[static_cast<std::size_t>(i)] = (*P)[static_cast<std::size_t>(i + 1)] - (*P)[static_cast<std::size_t>(i)];
    }
    std::int32_t tap(int o) const { return o >= -kh && o < kh ? t[static_cast<std::size_t>(o + kh)] : 0; }
    std::int32_t lead(int i) const { return (*P)[static_cast<std::size_t>(std::max(0, kh - i))] - (*P)[0]; }
    std::int32_t trail(int i, int n) const {
        const int from = std::min(2 * kh, std::max(0, kh + n - i));
        return (*P)[static_cast<std::size_t>(2 * kh)] - (*P)[static_cast<std::size_t>(from)];
    }
    // The samples (index, weight) that output i of a line of n samples reads, each once.
    void collapse(int i, int n, std::vector<std::pair<int, std::int32_t>>& out) const {
        out.clear();
        for (int o = std::max(-kh, -i); o < std::min(kh, n - i); ++o) out.emplace_back(i + o, tap(o));
        out.front().second += lead(i);
        out.back().second += trail(i, n);
    }
};

// A list of weighted sources as pairs for the pair kernel: zero weights dropped, weights
// above the kernel's limit split into several entries of the same source.
struct PairList {
    std::vector<const unsigned char*> a, b;
    std::vector<std::int32_t> w;

    template <class Src>
    void build(const std::vector<std::pair<int, std::int32_t>>& items, Src src) {
        a.clear();
        b.clear();
        w.clear();
        const unsigned char* pend = nullptr;
        std::int32_t pend_w = 0;
        auto add = [&](const unsigned char* p, std::int32_t wt) {
            if (!pend) {
                pend = p;
                pend_w = wt;
                return;
            }
            a.push_back(pend);
            b.push_back(p);
            w.push_back(pair_weights(pend_w, wt));
            pend = nullptr;
        };
        for (const auto& it : items) {
            std::int32_t rest = it.second;
            while (rest > 0) {
                const std::int32_t part = std::min(rest, kPairMaxWeight);
                add(src(it.first), part);
                rest -= part;
            }
        }
        if (pend) add(pend, 0);
    }
};

}  // namespace
}  // namespace kivfilter

int kiv::blur_gauss_rle_plane(tagRECT* rect, double sigma, unsigned planes) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    RleKernel k;
    if (!rle_kernel(sigma, &k)) return 0;
    raise_depth_24(this);
    planes &= 15u;
    const int w = a.w(), h = a.h(), kh = k.h;
    const LineTaps taps(k);
    std::uint32_t take = 0;
    for (int c = 0; c < 4; ++c)
        if (planes & (1u << c)) take |= 0xFFu << (8 * c);
    const std::int32_t total = k.total();
    const int W = pair_width();

    // Both passes run band by band down the rectangle, so the column pass's output is read
    // back while it is still in the cache and no image-sized buffer is needed: the column
    // pass fills band (every byte: filtered channels from the sums, the others copied), the
    // row pass writes the band's rows of the image. The column pass reads the original rows
    // from ring (row r at r % ring_rows), copied there ahead of the band; its row stride is an
    // odd number of cache lines, so that the many rows read at one column do not all fall
    // into the same cache set, as the image's rows (often a power of two apart) would.
    const int band_rows = std::min(h, std::max(8, (1 << 16) / w) & ~1);
    const int ring_rows = static_cast<int>(std::min<long long>(h, static_cast<long long>(band_rows) + 2LL * kh));
    const std::size_t ring_stride = ((static_cast<std::size_t>(w) + 15) / 16 | 1) * 16;
    std::vector<tagRGBA> band(static_cast<std::size_t>(band_rows) * static_cast<std::size_t>(w));
    std::vector<tagRGBA> ring(static_cast<std::size_t>(ring_rows) * ring_stride);
    int copied = 0;  // rows [0, copied) have been in ring
    LineProgress progress(this, static_cast<long long>(w) + h);
    long long reported = 0;

    // Column pass weights. Rows whose taps all lie inside go two at a time, sharing the
    // widened sample pairs: row pair m holds rows j - kh + 2m and the next.
    std::vector<std::int32_t> vw0(static_cast<std::size_t>(kh) + 1), vw1(static_cast<std::size_t>(kh) + 1);
    for (int m = 0; m <= kh; ++m) {
        vw0[static_cast<std::size_t>(m)] = pair_weights(taps.tap(2 * m - kh), taps.tap(2 * m - kh + 1));
        vw1[static_cast<std::size_t>(m)] = pair_weights(taps.tap(2 * m - kh - 1), taps.tap(2 * m - kh));
    }
    // Row pass: the vector kernel reads the row with its end pixels repeated kh times outwards
    // and makes two runs of output pixels at once, the second W / 4 pixels on (pair m holds
    // pixels 2m, 2m + 1 of the extended row). With a kernel much wider than the row that would
    // waste its time on the repeated pixels, so such rows (and the portable build) take the
    // end weights per pixel.
    const bool hvec = W && static_cast<long long>(kh) <= 4LL * w;
    const int hs = W / 8, hm = kh + hs;  // the second run's first pair; pairs in all
    std::vector<std::int32_t> hw0(static_cast<std::size_t>(hm)), hw1(static_cast<std::size_t>(hm));
    for (int m = 0; m < hm; ++m) {
        hw0[static_cast<std::size_t>(m)] = pair_weights(taps.tap(2 * m - kh), taps.tap(2 * m - kh + 1));
        hw1[static_cast<std::size_t>(m)] = pair_weights(taps.tap(2 * m - kh - 2 * hs), taps.tap(2 * m - kh - 2 * hs + 1));
    }
    const int strips = (w + kRleStrip - 1) / kRleStrip;

    for (int y0 = 0; y0 < h; y0 += band_rows) {
        const int y1 = std::min(h, y0 + band_rows);
        const int copy0 = copied, copy1 = static_cast<int>(std::min<long long>(h, static_cast<long long>(y1) + kh));
        copied = copy1;
        auto src_row = [&](int j) -> const tagRGBA* { return ring.data() + static_cast<std::size_t>(j % ring_rows) * ring_stride; };
        kivcore::parallel_chunks(0, strips, [&](int sb, int se) {
            std::vector<std::pair<int, std::int32_t>> items;
            PairList list;
            // Pointers for the row pairs, when a pair of rows can have all its taps inside.
            const std::size_t npairs = W && h > 2 * kh ? static_cast<std::size_t>(kh) + 1 : 0;
            std::vector<const unsigned char*> pa(npairs), pb(npairs);
            for (int s = sb; s < se; ++s) {
                const int x0 = s * kRleStrip, sw = std::min(kRleStrip, w - x0);
                const std::ptrdiff_t nb = 4 * static_cast<std::ptrdiff_t>(sw);
                for (int j = copy0; j < copy1; ++j) {
                    const tagRGBA* from = row_ptr(this, a.top + j) + a.left + x0;
                    std::copy(from, from + sw, ring.begin() + static_cast<std::ptrdiff_t>(j % ring_rows) * static_cast<std::ptrdiff_t>(ring_stride) + x0);
                }
                auto src = [&](int j) { return reinterpret_cast<const unsigned char*>(src_row(j) + x0); };
                auto dst = [&](int j) {
                    return reinterpret_cast<unsigned char*>(band.data() + static_cast<std::size_t>(j - y0) * w + x0);
                };
                for (int j = y0; j < y1;) {
                    PairConv p{};
                    p.take = take;
                    p.keep = ~take;
                    p.total = total;
                    p.step = W;
                    p.n = W ? static_cast<int>(nb / W) : 0;
                    p.d0 = dst(j);
                    p.c0 = src(j);
                    if (W && j >= kh && j + 1 < y1 && j + kh <= h - 1) {
                        for (int m = 0; m <= kh; ++m) {
                            pa[static_cast<std::size_t>(m)] = src(j - kh + 2 * m);
                            pb[static_cast<std::size_t>(m)] = src(std::min(j - kh + 2 * m + 1, h - 1));
                        }
                        p.a = pa.data();
                        p.b = pb.data();
                        p.w0 = vw0.data();
                        p.w1 = vw1.data();
                        p.e0 = kh;
                        p.s1 = 0;
                        p.e1 = kh + 1;
                        p.d1 = dst(j + 1);
                        p.c1 = src(j + 1);
                        j += 2;
                    } else {
                        taps.collapse(j, h, items);
                        list.build(items, src);
                        p.a = list.a.data();
                        p.b = list.b.data();
                        p.w0 = list.w.data();
                        p.e0 = static_cast<int>(list.w.size());
                        j += 1;
                    }
                    if (p.n) pair_conv_vector(p, W);
                    pair_conv_scalar(p, p.n * p.step, nb);
                }
            }
        });
        kivcore::parallel_chunks(y0, y1, [&](int jb, int je) {
            std::vector<tagRGBA> ext(hvec ? static_cast<std::size_t>(w) + 2 * static_cast<std::size_t>(kh) + 16 : 0);
            const unsigned char* eb = reinterpret_cast<const unsigned char*>(ext.data());
            const std::size_t npairs = hvec ? static_cast<std::size_t>(hm) : 0;
            std::vector<const unsigned char*> pa(npairs), pb(npairs), ta(npairs), tb(npairs);
            if (hvec)
                for (int m = 0; m < hm; ++m) {
                    pa[static_cast<std::size_t>(m)] = eb + 8 * static_cast<std::ptrdiff_t>(m);
                    pb[static_cast<std::size_t>(m)] = pa[static_cast<std::size_t>(m)] + 4;
                }
            const std::ptrdiff_t nb = 4 * static_cast<std::ptrdiff_t>(w);
            for (int j = jb; j < je; ++j) {
                const tagRGBA* line = band.data() + static_cast<std::size_t>(j - y0) * w;
                unsigned char* out = reinterpret_cast<unsigned char*>(row_ptr(this, a.top + j) + a.left);
                if (!hvec) {
                    const unsigned char* lb = reinterpret_cast<const unsigned char*>(line);
                    const unsigned char* last = lb + 4 * static_cast<std::ptrdiff_t>(w - 1);
                    for (int i = 0; i < w; ++i) {
                        const std::int32_t wl = taps.lead(i), wt = taps.trail(i, w);
                        const int o0 = std::max(-kh, -i), o1 = std::min(kh, w - i);
                        for (int c = 0; c < 4; ++c) {
                            const std::size_t at = 4 * static_cast<std::size_t>(i) + static_cast<std::size_t>(c);
                            if (!(planes & (1u << c))) {
                                out[at] = lb[at];
                                continue;
                            }
                            std::int32_t sum = wl * lb[c] + wt * last[c];
                            for (int o = o0; o < o1; ++o) sum += taps.tap(o) * lb[4 * static_cast<std::ptrdiff_t>(i + o) + c];
                            out[at] = static_cast<unsigned char>(sum / total);
                        }
                    }
                    continue;
                }
                std::fill(ext.begin(), ext.begin() + kh, line[0]);
                std::copy(line, line + w, ext.begin() + kh);
                std::fill(ext.begin() + kh + w, ext.begin() + 2 * kh + w, line[w - 1]);
                PairConv p{};
                p.a = pa.data();
                p.b = pb.data();
                p.w0 = hw0.data();
                p.w1 = hw1.data();
                p.e0 = kh;
                p.s1 = hs;
                p.e1 = hm;
                p.d0 = out;
                p.d1 = p.d0 + W;
                p.c0 = eb + 4 * static_cast<std::ptrdiff_t>(kh);
                p.c1 = p.c0 + W;
                p.step = 2 * W;
                p.n = static_cast<int>(nb / (2 * W));
                p.take = take;
                p.keep = ~take;
                p.total = total;
                if (p.n) pair_conv_vector(p, W);
                // The rest: one run at a time, then byte by byte.
                const std::ptrdiff_t done = p.n * p.step;
                p.w1 = nullptr;
                std::ptrdiff_t tail = done;
                if (nb - done >= W) {
                    for (int m = 0; m < kh; ++m) {
                        ta[static_cast<std::size_t>(m)] = pa[static_cast<std::size_t>(m)] + done;
                        tb[static_cast<std::size_t>(m)] = pb[static_cast<std::size_t>(m)] + done;
                    }
                    PairConv q = p;
                    q.a = ta.data();
                    q.b = tb.data();
                    q.d0 += done;
                    q.c0 += done;
                    q.step = W;
                    q.n = static_cast<int>((nb - done) / W);
                    pair_conv_vector(q, W);
                    tail += q.n * W;
                }
                pair_conv_scalar(p, tail, nb);
            }
        });
        // Lines finished so far, in proportion: the columns as the bands go down, then the rows.
        const long long now = (static_cast<long long>(w) + h) * y1 / h;
        progress.done(now - reported);
        reported = now;
    }
    progress.term();
    return 1;
}

int kiv::blur_gauss_rle(tagRECT* rect, double sigma) { return blur_gauss_rle_plane(rect, sigma, 7); }
