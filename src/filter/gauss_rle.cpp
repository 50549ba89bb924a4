// Integer Gaussian (blur_gauss_rle_plane, blur_gauss_rle).
//
// The weights are integers and every sum fits 32 bits, so the result is the exact integer
// sum of tap times clamped sample, whatever the evaluation order.  That lets the lines be
// computed as plain vectorised convolutions (int_conv.h), in parallel, instead of one run at
// a time.
#include "filter/gauss_rle.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "core/kmath.h"
#include "core/parallel.h"
#include "core/watch.h"
#include "filter/filter.h"
#include "filter/int_conv.h"

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

// Columns of one strip of the column pass: a band's rows of one strip stay in the cache while
// all their taps are added.
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

// Both passes run band by band down the rectangle, so the column pass's output is read back
// while it is still in the cache and no image-sized buffer is needed: the column pass fills
// band (every byte: filtered channels from the sums, the others copied), the row pass
// writes the band's output rows. The column pass reads the original rows from ring (row r
// at r % ring_rows), copied there ahead of the band; its row stride is an odd number of
// cache lines, so that the many rows read at one column do not all fall into the same cache
// set, as the image's rows (often a power of two apart) would.
class RlePlan {
public:
    RlePlan(kiv* img, const Area& a, const RleKernel& k, unsigned planes)
        : img_(img), a_(a), w_(a.w()), h_(a.h()), kh_(k.h), taps_(k), planes_(planes), total_(k.total()),
          W_(pair_width()), band_rows_(std::min(h_, std::max(8, (1 << 16) / w_) & ~1)),
          ring_rows_(static_cast<int>(std::min<long long>(h_, static_cast<long long>(band_rows_) + 2LL * kh_))),
          stride_(((static_cast<std::size_t>(w_) + 15) / 16 | 1) * 16),
          // The row pass's vector kernel reads the row with its end pixels repeated kh times
          // outwards; with a kernel much wider than the row that would waste its time on the
          // repeated pixels, so such rows (and the portable build) take the end weights per pixel.
          hvec_(W_ && static_cast<long long>(kh_) <= 4LL * w_), hs_(W_ / 8), hm_(kh_ + hs_) {
        for (int c = 0; c < 4; ++c)
            if (planes & (1u << c)) take_ |= 0xFFu << (8 * c);
        // Column pass: rows whose taps all lie inside go two at a time, sharing the widened
        // sample pairs: row pair m holds rows j - kh + 2m and the next.
        vw0_.resize(static_cast<std::size_t>(kh_) + 1);
        vw1_.resize(static_cast<std::size_t>(kh_) + 1);
        for (int m = 0; m <= kh_; ++m) {
            vw0_[static_cast<std::size_t>(m)] = pair_weights(taps_.tap(2 * m - kh_), taps_.tap(2 * m - kh_ + 1));
            vw1_[static_cast<std::size_t>(m)] = pair_weights(taps_.tap(2 * m - kh_ - 1), taps_.tap(2 * m - kh_));
        }
        // Row pass: two runs of output pixels at once, the second W / 4 pixels on (pair m holds
        // pixels 2m, 2m + 1 of the extended row; the second run's first pair is hs).
        hw0_.resize(static_cast<std::size_t>(hm_));
        hw1_.resize(static_cast<std::size_t>(hm_));
        for (int m = 0; m < hm_; ++m) {
            hw0_[static_cast<std::size_t>(m)] = pair_weights(taps_.tap(2 * m - kh_), taps_.tap(2 * m - kh_ + 1));
            hw1_[static_cast<std::size_t>(m)] = pair_weights(taps_.tap(2 * m - kh_ - 2 * hs_), taps_.tap(2 * m - kh_ - 2 * hs_ + 1));
        }
    }

    // Output rows [lo, hi) of the rectangle, row j to out(j) (w pixels), done(n) after every
    // n rows; reads the image's rows [lo - kh, hi + kh) of the rectangle.
    template <class Out, class Done>
    void run(int lo, int hi, Out out, Done done) {
        std::unique_ptr<Scratch> sc = pool_.take([&] { return make_scratch(); });
        int copied = std::max(0, lo - kh_);  // rows [.., copied) have been in ring
        for (int y0 = lo; y0 < hi; y0 += band_rows_) {
            const int y1 = std::min(hi, y0 + band_rows_);
            for (const int copy1 = static_cast<int>(std::min<long long>(h_, static_cast<long long>(y1) + kh_)); copied < copy1; ++copied) {
                const tagRGBA* from = row_ptr(*img_, a_.top + copied) + a_.left;
                std::copy(from, from + w_, ring_row(*sc, copied));
            }
            for (int x0 = 0; x0 < w_; x0 += kRleStrip) columns(y0, y1, x0, std::min(kRleStrip, w_ - x0), *sc);
            for (int j = y0; j < y1; ++j) row(sc->band.get() + static_cast<std::size_t>(j - y0) * w_, out(j), *sc);
            done(y1 - y0);
            kivcore::poll(y1 - lo, hi - lo);
        }
        pool_.give(std::move(sc));
    }

private:
    struct Scratch {
        std::unique_ptr<tagRGBA[]> ring, band;
        std::vector<tagRGBA> ext;
        std::vector<std::pair<int, std::int32_t>> items;
        PairList list;
        std::vector<const unsigned char*> pa, pb, ta, tb;
    };

    std::unique_ptr<Scratch> make_scratch() const {
        auto sc = std::make_unique<Scratch>();
        // Ring and band rows are written whole before they are read: no clearing.
        sc->ring.reset(new tagRGBA[static_cast<std::size_t>(ring_rows_) * stride_]);
        sc->band.reset(new tagRGBA[static_cast<std::size_t>(band_rows_) * static_cast<std::size_t>(w_)]);
        if (hvec_) {
            sc->ext.resize(static_cast<std::size_t>(w_) + 2 * static_cast<std::size_t>(kh_) + 16);
            const unsigned char* eb = reinterpret_cast<const unsigned char*>(sc->ext.data());
            sc->ta.resize(static_cast<std::size_t>(hm_));
            sc->tb.resize(static_cast<std::size_t>(hm_));
            for (int m = 0; m < hm_; ++m) {
                sc->ta[static_cast<std::size_t>(m)] = eb + 8 * static_cast<std::ptrdiff_t>(m);
                sc->tb[static_cast<std::size_t>(m)] = sc->ta[static_cast<std::size_t>(m)] + 4;
            }
        }
        // Pointers for the row pairs, when a pair of rows can have all its taps inside; for the
        // row pass's last run.
        const std::size_t np = std::max<std::size_t>(W_ && h_ > 2 * kh_ ? static_cast<std::size_t>(kh_) + 1 : 0, hvec_ ? static_cast<std::size_t>(hm_) : 0);
        sc->pa.resize(np);
        sc->pb.resize(np);
        return sc;
    }

    tagRGBA* ring_row(Scratch& sc, int j) const { return sc.ring.get() + static_cast<std::size_t>(j % ring_rows_) * stride_; }

    PairConv job() const {
        PairConv p{};
        p.take = take_;
        p.keep = ~take_;
        p.total = total_;
        return p;
    }

    // Column pass of rows [y0, y1), columns [x0, x0 + sw), into the band.
    void columns(int y0, int y1, int x0, int sw, Scratch& sc) const {
        const std::ptrdiff_t nb = 4 * static_cast<std::ptrdiff_t>(sw);
        auto src = [&](int j) { return reinterpret_cast<const unsigned char*>(ring_row(sc, j) + x0); };
        auto dst = [&](int j) {
            return reinterpret_cast<unsigned char*>(sc.band.get() + static_cast<std::size_t>(j - y0) * w_ + x0);
        };
        for (int j = y0; j < y1;) {
            PairConv p = job();
            p.step = W_;
            p.n = W_ ? static_cast<int>(nb / W_) : 0;
            p.d0 = dst(j);
            p.c0 = src(j);
            if (W_ && j >= kh_ && j + 1 < y1 && j + kh_ <= h_ - 1) {
                for (int m = 0; m <= kh_; ++m) {
                    sc.pa[static_cast<std::size_t>(m)] = src(j - kh_ + 2 * m);
                    sc.pb[static_cast<std::size_t>(m)] = src(std::min(j - kh_ + 2 * m + 1, h_ - 1));
                }
                p.a = sc.pa.data();
                p.b = sc.pb.data();
                p.w0 = vw0_.data();
                p.w1 = vw1_.data();
                p.e0 = kh_;
                p.s1 = 0;
                p.e1 = kh_ + 1;
                p.d1 = dst(j + 1);
                p.c1 = src(j + 1);
                j += 2;
            } else {
                taps_.collapse(j, h_, sc.items);
                sc.list.build(sc.items, src);
                p.a = sc.list.a.data();
                p.b = sc.list.b.data();
                p.w0 = sc.list.w.data();
                p.e0 = static_cast<int>(sc.list.w.size());
                j += 1;
            }
            if (p.n) pair_conv_vector(p, W_);
            pair_conv_scalar(p, p.n * p.step, nb);
        }
    }

    // Row pass of one row of the band into out.
    void row(const tagRGBA* line, tagRGBA* orow, Scratch& sc) const {
        const int w = w_, kh = kh_;
        const std::ptrdiff_t nb = 4 * static_cast<std::ptrdiff_t>(w);
        unsigned char* out = reinterpret_cast<unsigned char*>(orow);
        if (!hvec_) {
            const unsigned char* lb = reinterpret_cast<const unsigned char*>(line);
            const unsigned char* last = lb + 4 * static_cast<std::ptrdiff_t>(w - 1);
            for (int i = 0; i < w; ++i) {
                const std::int32_t wl = taps_.lead(i), wt = taps_.trail(i, w);
                const int o0 = std::max(-kh, -i), o1 = std::min(kh, w - i);
                for (int c = 0; c < 4; ++c) {
                    const std::size_t at = 4 * static_cast<std::size_t>(i) + static_cast<std::size_t>(c);
                    if (!(planes_ & (1u << c))) {
                        out[at] = lb[at];
                        continue;
                    }
                    std::int32_t sum = wl * lb[c] + wt * last[c];
                    for (int o = o0; o < o1; ++o) sum += taps_.tap(o) * lb[4 * static_cast<std::ptrdiff_t>(i + o) + c];
                    out[at] = static_cast<unsigned char>(sum / total_);
                }
            }
            return;
        }
        std::fill(sc.ext.begin(), sc.ext.begin() + kh, line[0]);
        std::copy(line, line + w, sc.ext.begin() + kh);
        std::fill(sc.ext.begin() + kh + w, sc.ext.begin() + 2 * kh + w, line[w - 1]);
        const unsigned char* eb = reinterpret_cast<const unsigned char*>(sc.ext.data());
        PairConv p = job();
        p.a = sc.ta.data();
        p.b = sc.tb.data();
        p.w0 = hw0_.data();
        p.w1 = hw1_.data();
        p.e0 = kh;
        p.s1 = hs_;
        p.e1 = hm_;
        p.d0 = out;
        p.d1 = p.d0 + W_;
        p.c0 = eb + 4 * static_cast<std::ptrdiff_t>(kh);
        p.c1 = p.c0 + W_;
        p.step = 2 * W_;
        p.n = static_cast<int>(nb / (2 * W_));
        if (p.n) pair_conv_vector(p, W_);
        // The rest: one run at a time, then byte by byte.
        const std::ptrdiff_t done = p.n * p.step;
        p.w1 = nullptr;
        std::ptrdiff_t tail = done;
        if (nb - done >= W_) {
            for (int m = 0; m < kh; ++m) {
                sc.pa[static_cast<std::size_t>(m)] = sc.ta[static_cast<std::size_t>(m)] + done;
                sc.pb[static_cast<std::size_t>(m)] = sc.tb[static_cast<std::size_t>(m)] + done;
            }
            PairConv q = p;
            q.a = sc.pa.data();
            q.b = sc.pb.data();
            q.d0 += done;
            q.c0 += done;
            q.step = W_;
            q.n = static_cast<int>((nb - done) / W_);
            pair_conv_vector(q, W_);
            tail += q.n * W_;
        }
        pair_conv_scalar(p, tail, nb);
    }

    kiv* img_;
    Area a_;
    int w_, h_, kh_;
    LineTaps taps_;
    unsigned planes_;
    std::uint32_t take_ = 0;
    std::int32_t total_;
    int W_;  // vector width in bytes, 0 for the portable loops
    int band_rows_, ring_rows_;
    std::size_t stride_;
    bool hvec_;
    int hs_, hm_;
    std::vector<std::int32_t> vw0_, vw1_, hw0_, hw1_;
    ScratchPool<Scratch> pool_;
};

}  // namespace
}  // namespace kivfilter

int kiv::blur_gauss_rle_plane(tagRECT* rect, double sigma, unsigned planes) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kivfilter;
        Area a;
        if (!clip_rect(*this, rect, &a)) return 0;
        RleKernel k;
        if (!rle_kernel(sigma, &k)) return 0;
        raise_depth_24(*this);
        const int w = a.w(), h = a.h();
        RlePlan plan(this, a, k, planes & 15u);
        // Progress counts the lines of both passes (w + h) and reports them in proportion to the
        // rows finished, from the calling thread only.
        LineProgress progress(this, static_cast<long long>(w) + h);
        const std::thread::id caller = std::this_thread::get_id();
        std::atomic<long long> rows{0};
        long long reported = 0;
        auto report = [&] {
            const long long now = (static_cast<long long>(w) + h) * rows.load() / h;
            progress.done(now - reported);
            reported = now;
        };
        auto done = [&](int n) {
            rows += n;
            if (std::this_thread::get_id() == caller) report();
        };
        auto image_row = [&](int j) { return row_ptr(*this, a.top + j) + a.left; };
        run_in_segments(
            h, w, k.h, k.h + 1.0,
            [&](int lo, int hi, tagRGBA* buf) {
                if (buf)
                    plan.run(
                        lo, hi,
                        [&](int j) { return buf + static_cast<std::size_t>(j - lo) * static_cast<std::size_t>(w); },
                        done);
                else
                    plan.run(lo, hi, image_row, done);
            },
            image_row);
        report();
        progress.term();
        return 1;
    });
}

int kiv::blur_gauss_rle(tagRECT* rect, double sigma) { return blur_gauss_rle_plane(rect, sigma, 7); }
