// Corner-sample blur (blur) and tent blur (blur_simple).
#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/parallel.h"
#include "core/watch.h"
#include "filter/filter.h"
#include "filter/int_conv.h"

int kiv::blur(tagRECT* rect, int dx, int dy) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kivfilter;
        Area a;
        if (!clip_rect(*this, rect, &a)) return 0;
        if (dx < 1 && dy < 1) return 0;
        // A negative span would put the "left" sample on the right with the wrong bounds test.
        const int hx = std::max(dx, 0) >> 1, hy = std::max(dy, 0) >> 1;
        set_depth_24(this);
        const int W = m_width, H = m_height, w = a.w();
        std::vector<tagRGBA> out(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()));
        // Results go to a buffer, so every read sees the original image.
        // x + hx and y + hy are formed only once known to lie inside the image: on an image
        // wider or taller than 2^30 the sums could overflow.
        kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(w, 4), [&](int y) {
            const bool up = y >= hy, down = hy < H - y;
            const tagRGBA* ru = up ? row_ptr(*this, y - hy) : nullptr;
            const tagRGBA* rd = down ? row_ptr(*this, y + hy) : nullptr;
            const tagRGBA* rc = row_ptr(*this, y);
            tagRGBA* o = out.data() + static_cast<std::size_t>(y - a.top) * static_cast<std::size_t>(w);
            for (int x = a.left; x < a.right; ++x) {
                int s0 = 0, s1 = 0, s2 = 0, n = 0;
                auto take = [&](const tagRGBA& p) {
                    s0 += p.r;
                    s1 += p.g;
                    s2 += p.b;
                    ++n;
                };
                const bool lft = x >= hx, rgt = hx < W - x;
                if (lft && up) take(ru[x - hx]);
                if (lft && down) take(rd[x - hx]);
                if (rgt && up) take(ru[x + hx]);
                if (rgt && down) take(rd[x + hx]);
                tagRGBA q = rc[x];
                if (n) {
                    q.r = static_cast<BYTE>(s0 / n);
                    q.g = static_cast<BYTE>(s1 / n);
                    q.b = static_cast<BYTE>(s2 / n);
                }
                o[x - a.left] = q;
            }
        });
        setpacket(out.data(), a.left, a.top, w, a.h());
        return 1;
    });
}

namespace {

// Beyond this the 64-bit sums could overflow on the widest images.
constexpr int kTentMaxRadius = 1000000;
// Largest radius whose sums fit 32 bits: 255 * (r + 1)^2 <= 2^31 - 1.
constexpr int kTent32Max = 2900;
// Columns of one strip of the column pass: a band's rows of one strip stay in the cache while
// all their taps are added.
constexpr int kTentStrip = 256;

// One tent pass over a line of n samples at the given stride: taps whose position lies in
// [0, n) are used and the weights renormalised.  Acc is wide enough for 255 * (r + 1)^2.
template <class Acc>
void tent_rows(kiv* img, const kivfilter::Area& a, int r, tagRGBA* scratch) {
    const int W = img->m_width, w = a.w();
    kivcore::parallel_for(a.top, a.bottom, [&](int y) {
        const tagRGBA* src = kivcore::row_ptr(*img, y);
        tagRGBA* o = scratch + static_cast<std::size_t>(y - a.top) * static_cast<std::size_t>(w);
        for (int x = a.left; x < a.right; ++x) {
            const int k0 = std::max(-r, -x), k1 = std::min(r, W - 1 - x);
            Acc s0 = 0, s1 = 0, s2 = 0, t = 0;
            for (int k = k0; k <= k1; ++k) {
                const Acc wk = static_cast<Acc>(r) + 1 - static_cast<Acc>(k < 0 ? -k : k);
                const tagRGBA& p = src[x + k];
                s0 += wk * p.r;
                s1 += wk * p.g;
                s2 += wk * p.b;
                t += wk;
            }
            o[x - a.left] = tagRGBA{static_cast<BYTE>(s0 / t), static_cast<BYTE>(s1 / t),
                                    static_cast<BYTE>(s2 / t), 0};
        }
    });
}

// Column pass, computed a row at a time so that every lane of the inner loop is one column
// (the sums are exact integers, so their order does not matter).
template <class Acc>
void tent_cols(kiv* img, const kivfilter::Area& a, int r, const tagRGBA* scratch) {
    const int w = a.w(), h = a.h();
    kivcore::parallel_chunks(0, h, [&](int jb, int je) {
        std::vector<Acc> sum(static_cast<std::size_t>(w) * 3);
        for (int j = jb; j < je; ++j) {
            const int k0 = std::max(-r, -j), k1 = std::min(r, h - 1 - j);
            std::fill(sum.begin(), sum.end(), Acc(0));
            Acc t = 0;
            for (int k = k0; k <= k1; ++k) {
                const Acc wk = static_cast<Acc>(r) + 1 - static_cast<Acc>(k < 0 ? -k : k);
                t += wk;
                const unsigned char* s = reinterpret_cast<const unsigned char*>(
                    scratch + static_cast<std::size_t>(j + k) * static_cast<std::size_t>(w));
                Acc* d = sum.data();
                for (int i = 0; i < w; ++i) {
                    d[3 * i] += wk * s[4 * i];
                    d[3 * i + 1] += wk * s[4 * i + 1];
                    d[3 * i + 2] += wk * s[4 * i + 2];
                }
            }
            tagRGBA* o = kivcore::row_ptr(*img, a.top + j) + a.left;
            for (int i = 0; i < w; ++i)
                o[i] = tagRGBA{static_cast<BYTE>(sum[3 * i] / t), static_cast<BYTE>(sum[3 * i + 1] / t),
                               static_cast<BYTE>(sum[3 * i + 2] / t), 0};
        }
    });
}

// ---- Radii up to kTent32Max: the rows, then the columns, band by band down the rectangle.
// The row pass fills a ring of scratch rows (row j at j % ring_rows, a row stride of an odd
// number of cache lines so the column pass's many rows at one column spread over the cache
// sets); the column pass reads the band's rows +-r from it and writes the output. A band's
// output rows are written only after every scratch row that needs their source rows has been
// made, so no copy of the image is kept.
// Up to kTentSum16Max the whole sum, 255 * (r + 1)^2, fits 16 bits: the 16-bit kernel.
constexpr int kTentSum16Max = 14;

class TentPlan {
public:
    TentPlan(kiv* img, const kivfilter::Area& a, int r)
        : img_(img), a_(a), r_(r), W_(img->m_width), w_(a.w()), h_(a.h()), narrow_(r <= kTentSum16Max),
          vw_(kivfilter::pair_width()), vpx_(vw_ / 4), band_rows_(std::min(h_, std::max(8, (1 << 16) / w_) & ~1)),
          ring_rows_(static_cast<int>(std::min<long long>(h_, static_cast<long long>(band_rows_) + 2LL * r))),
          stride_(((static_cast<std::size_t>(w_) + 15) / 16 | 1) * 16), xs_(std::max(a.left, r)),
          xe_(std::max(xs_, std::min(a.right, W_ - r))), hw_(static_cast<std::size_t>(r) + 1),
          wt_(2 * static_cast<std::size_t>(r) + 1), recip_(static_cast<std::size_t>(w_)) {
        for (int k = -r; k <= r; ++k) wt_[static_cast<std::size_t>(k + r)] = weight(k);
        // Row pass pairs, from the first output pixel's tap -r: m holds taps -r + 2m and the next.
        for (int m = 0; m <= r; ++m)
            hw_[static_cast<std::size_t>(m)] = pack(weight(2 * m - r), 2 * m - r + 1 <= r ? weight(2 * m - r + 1) : 0);
        // The divisors' reciprocals of the pixels the vector kernel leaves (0: divide): the same
        // for every row.
        const bool vector = vw_ && xe_ - xs_ >= vpx_;
        for (int x = a.left; x < a.right; ++x) {
            if (vector && x >= xs_ && x < xe_) continue;
            std::int32_t t = 0;
            for (int k = std::max(-r, -x), k1 = std::min(r, W_ - 1 - x); k <= k1; ++k) t += weight(k);
            recip_[static_cast<std::size_t>(x - a.left)] = reciprocal(t);
        }
    }

    // Output rows [lo, hi) of the rectangle, row j to out(j) (w pixels); reads the image's
    // rows [lo - r, hi + r) of the rectangle and writes nothing else.
    template <class Out>
    void run(int lo, int hi, Out out) {
        using namespace kivfilter;
        std::unique_ptr<Scratch> sc = pool_.take([&] {
            auto p = std::make_unique<Scratch>();
            // Every row is written whole before it is read: no clearing.
            p->ring.reset(new tagRGBA[static_cast<std::size_t>(ring_rows_) * stride_]);
            return p;
        });
        int made = std::max(0, lo - r_);  // scratch rows [.., made) are made
        for (int y0 = lo; y0 < hi; y0 += band_rows_) {
            const int y1 = std::min(hi, y0 + band_rows_), need = std::min(h_, y1 + r_);
            for (; made < need; ++made) make_row(made, *sc);
            for (int x0 = 0; x0 < w_; x0 += kTentStrip) {
                const int sw = std::min(kTentStrip, w_ - x0);
                for (int j = y0; j < y1; ++j) column(j, x0, sw, out(j) + x0, *sc);
            }
            kivcore::poll(y1 - lo, hi - lo);
        }
        pool_.give(std::move(sc));
    }

private:
    struct Scratch {
        std::unique_ptr<tagRGBA[]> ring;
        std::vector<const unsigned char*> pa, pb;
        std::vector<std::int32_t> pw;
    };

    int weight(int k) const { return r_ + 1 - (k < 0 ? -k : k); }
    std::int32_t pack(int wa, int wb) const {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(wa) | (static_cast<std::uint32_t>(wb) << (narrow_ ? 8 : 16)));
    }
    tagRGBA* ring_row(Scratch& sc, int j) const { return sc.ring.get() + static_cast<std::size_t>(j % ring_rows_) * stride_; }

    void conv(kivfilter::PairConv& p, std::ptrdiff_t nb) const {
        using namespace kivfilter;
        p.narrow = narrow_;
        p.take = 0x00FFFFFFu;  // alpha 0
        p.step = vw_;
        p.n = vw_ ? static_cast<int>(nb / vw_) : 0;
        if (p.n) {
            if (narrow_)
                pair_conv16_vector(p, vw_);
            else
                pair_conv_vector(p, vw_);
        }
        pair_conv_scalar(p, p.n * static_cast<std::ptrdiff_t>(vw_), nb);
    }

    // Scratch row j: the tent along image row top + j, columns outside the rectangle included.
    void make_row(int j, Scratch& sc) const {
        using namespace kivfilter;
        const tagRGBA* src = row_ptr(*img_, a_.top + j);
        tagRGBA* out = ring_row(sc, j);
        int v1 = xs_;  // pixels [xs_, v1) done by the vector kernel: all taps inside, total (r + 1)^2
        // n whole vectors of output pixels from pixel x0 on.
        auto vectors = [&](int x0, int n) {
            const unsigned char* first = reinterpret_cast<const unsigned char*>(src + x0 - r_);
            sc.pa.resize(hw_.size());
            sc.pb.resize(hw_.size());
            for (int m = 0; m <= r_; ++m) {
                sc.pa[static_cast<std::size_t>(m)] = first + 8 * static_cast<std::ptrdiff_t>(m);
                // The last pair's second tap is beyond +r: weight 0, never read past the image.
                sc.pb[static_cast<std::size_t>(m)] = sc.pa[static_cast<std::size_t>(m)] + (m < r_ ? 4 : 0);
            }
            PairConv p{};
            p.a = sc.pa.data();
            p.b = sc.pb.data();
            p.w0 = hw_.data();
            p.e0 = r_ + 1;
            p.d0 = reinterpret_cast<unsigned char*>(out + (x0 - a_.left));
            p.total = (r_ + 1) * (r_ + 1);
            conv(p, static_cast<std::ptrdiff_t>(n) * vw_);
        };
        if (vw_ && xe_ - xs_ >= vpx_) {
            const int n = (xe_ - xs_) / vpx_;
            vectors(xs_, n);
            // The rest as one more vector ending at xe_: the pixels it repeats come out the same.
            if (xs_ + n * vpx_ < xe_) vectors(xe_ - vpx_, 1);
            v1 = xe_;
        }
        for (int x = a_.left; x < a_.right; ++x) {
            if (x == xs_ && v1 > xs_) x = v1;
            if (x >= a_.right) break;
            const int k0 = std::max(-r_, -x), k1 = std::min(r_, W_ - 1 - x);
            std::int32_t s0 = 0, s1 = 0, s2 = 0, t = 0;
            const std::int32_t* wt = wt_.data() + r_;
            for (int k = k0; k <= k1; ++k) {
                const std::int32_t wk = wt[k];
                const tagRGBA& q = src[x + k];
                s0 += wk * q.r;
                s1 += wk * q.g;
                s2 += wk * q.b;
                t += wk;
            }
            const std::uint64_t m = recip_[static_cast<std::size_t>(x - a_.left)];
            out[x - a_.left] = m ? tagRGBA{quotient(s0, m), quotient(s1, m), quotient(s2, m), 0}
                                 : tagRGBA{static_cast<BYTE>(s0 / t), static_cast<BYTE>(s1 / t), static_cast<BYTE>(s2 / t), 0};
        }
    }

    // s / t for 0 <= s <= 255 t, as (s * m) >> 40 with m = 2^40 / t + 1: exact while
    // s t < 2^40, which t <= kRecipMaxTotal keeps. A multiply instead of a division.
    static constexpr std::int32_t kRecipMaxTotal = 65535;
    static std::uint64_t reciprocal(std::int32_t t) {
        return t <= kRecipMaxTotal ? (std::uint64_t{1} << 40) / static_cast<std::uint64_t>(t) + 1 : 0;
    }
    static BYTE quotient(std::int32_t s, std::uint64_t m) {
        return static_cast<BYTE>((static_cast<std::uint64_t>(s) * m) >> 40);
    }

    // Output row j, columns [x0, x0 + sw): scratch rows of the rectangle only, renormalised
    // by the weights used.
    void column(int j, int x0, int sw, tagRGBA* dst, Scratch& sc) const {
        using namespace kivfilter;
        const int k0 = std::max(-r_, -j), k1 = std::min(r_, h_ - 1 - j);
        sc.pa.clear();
        sc.pb.clear();
        sc.pw.clear();
        std::int32_t t = 0;
        for (int k = k0; k <= k1; k += 2) {
            const bool two = k + 1 <= k1;
            sc.pa.push_back(reinterpret_cast<const unsigned char*>(ring_row(sc, j + k) + x0));
            sc.pb.push_back(two ? reinterpret_cast<const unsigned char*>(ring_row(sc, j + k + 1) + x0) : sc.pa.back());
            sc.pw.push_back(pack(weight(k), two ? weight(k + 1) : 0));
            t += weight(k) + (two ? weight(k + 1) : 0);
        }
        PairConv p{};
        p.a = sc.pa.data();
        p.b = sc.pb.data();
        p.w0 = sc.pw.data();
        p.e0 = static_cast<int>(sc.pw.size());
        p.d0 = reinterpret_cast<unsigned char*>(dst);
        p.total = t;
        conv(p, 4 * static_cast<std::ptrdiff_t>(sw));
    }

    kiv* img_;
    kivfilter::Area a_;
    int r_, W_, w_, h_;
    bool narrow_;
    int vw_, vpx_;  // vector width in bytes, in pixels
    int band_rows_, ring_rows_;
    std::size_t stride_;
    int xs_, xe_;  // image columns whose taps all lie inside the image (within the rectangle)
    std::vector<std::int32_t> hw_;
    std::vector<std::int32_t> wt_;      // weight(k) at k + r
    std::vector<std::uint64_t> recip_;  // by column of the rectangle
    kivfilter::ScratchPool<Scratch> pool_;
};

void tent_banded(kiv* img, const kivfilter::Area& a, int r) {
    using namespace kivfilter;
    const int w = a.w(), h = a.h();
    TentPlan plan(img, a, r);
    auto image_row = [&](int j) { return row_ptr(*img, a.top + j) + a.left; };
    run_in_segments(h, w, r, r + 1.0, [&](int lo, int hi, tagRGBA* buf) {
        if (buf)
            plan.run(lo, hi, [&](int j) { return buf + static_cast<std::size_t>(j - lo) * static_cast<std::size_t>(w); });
        else
            plan.run(lo, hi, image_row);
    }, image_row);
}

}  // namespace

int kiv::blur_simple(tagRECT* rect, int r) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kivfilter;
        Area a;
        if (!clip_rect(*this, rect, &a) || r < 0 || r > kTentMaxRadius) return 0;
        raise_depth_24(*this);
        if (r == 0) {
            // Weight 1 alone: the colours stay, alpha becomes 0.
            kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(a.w(), 0.5), [&](int y) {
                tagRGBA* p = row_ptr(*this, y);
                for (int x = a.left; x < a.right; ++x) p[x].a = 0;
            });
        } else if (r <= kTent32Max) {
            tent_banded(this, a, r);
        } else {
            // Taps beyond the image (or rectangle) never count, so a radius past the larger
            // side only changes the weights; the sums then need 64 bits.
            std::vector<tagRGBA> scratch(static_cast<std::size_t>(a.w()) * static_cast<std::size_t>(a.h()));
            tent_rows<std::int64_t>(this, a, r, scratch.data());
            tent_cols<std::int64_t>(this, a, r, scratch.data());
        }
        return 1;
    });
}
