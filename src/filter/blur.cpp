// Corner-sample blur (blur) and tent blur (blur_simple).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"

int kiv::blur(tagRECT* rect, int dx, int dy) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    if (dx < 1 && dy < 1) return 0;
    // A negative span would put the "left" sample on the right with the wrong bounds test.
    const int hx = std::max(dx, 0) >> 1, hy = std::max(dy, 0) >> 1;
    set_depth_24(this);
    const int W = m_width, H = m_height, w = a.w();
    std::vector<tagRGBA> out(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()));
    // Results go to a buffer, so every read sees the original image.
    // x + hx and y + hy are formed only once known to lie inside the image: on an image
    // wider or taller than 2^30 the sums could overflow.
    kivcore::parallel_for(a.top, a.bottom, [&](int y) {
        const bool up = y >= hy, down = hy < H - y;
        const tagRGBA* ru = up ? row_ptr(this, y - hy) : nullptr;
        const tagRGBA* rd = down ? row_ptr(this, y + hy) : nullptr;
        const tagRGBA* rc = row_ptr(this, y);
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
}

namespace {

// Beyond this the 64-bit sums could overflow on the widest images.
constexpr int kTentMaxRadius = 1000000;
// Largest radius whose sums fit 32 bits: 255 * (r + 1)^2 <= 2^31 - 1.
constexpr int kTent32Max = 2900;

// One tent pass over a line of n samples at the given stride: taps whose position lies in
// [0, n) are used and the weights renormalised.  Acc is wide enough for 255 * (r + 1)^2.
template <class Acc>
void tent_rows(kiv* img, const kivfilter::Area& a, int r, tagRGBA* scratch) {
    const int W = img->m_width, w = a.w();
    kivcore::parallel_for(a.top, a.bottom, [&](int y) {
        const tagRGBA* src = kivfilter::row_ptr(img, y);
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
            tagRGBA* o = kivfilter::row_ptr(img, a.top + j) + a.left;
            for (int i = 0; i < w; ++i)
                o[i] = tagRGBA{static_cast<BYTE>(sum[3 * i] / t), static_cast<BYTE>(sum[3 * i + 1] / t),
                               static_cast<BYTE>(sum[3 * i + 2] / t), 0};
        }
    });
}

// ---- Radii up to kTent16Max: every weight times a byte fits 16 bits, so the sums run as
// byte lanes (all four channels of a pixel side by side) that the compiler vectorises;
// up to kTentSum16Max the whole sum, 255 * (r + 1)^2, fits 16 bits too.
constexpr int kTent16Max = 256;
constexpr int kTentSum16Max = 14;
// Pixels per accumulator strip: 4 KB of 32-bit sums stay in L1 while every tap is added.
constexpr int kTentStrip = 256;

// acc[l] += wk * s[l]; the product fits 16 bits.
template <class Acc>
inline void tent_mac(Acc* acc, const unsigned char* s, int wk, std::size_t n) {
    const std::uint16_t w16 = static_cast<std::uint16_t>(wk);
    for (std::size_t l = 0; l < n; ++l) acc[l] = static_cast<Acc>(acc[l] + static_cast<std::uint16_t>(w16 * s[l]));
}

// Pixels acc / t[i] with alpha 0. Sums and totals stay below 2^31, so the double quotient
// truncates exactly like the integer one.
template <class Acc>
inline void tent_store(tagRGBA* o, const Acc* acc, const std::uint32_t* t, int n) {
    unsigned char* d = reinterpret_cast<unsigned char*>(o);
    for (int i = 0; i < n; ++i) {
        const double ti = t[i];
        for (int c = 0; c < 3; ++c)
            d[4 * i + c] = static_cast<unsigned char>(static_cast<double>(acc[4 * i + c]) / ti);
        d[4 * i + 3] = 0;
    }
}

// Sum of the weights of taps -r..r whose position p + k lies in [0, n).
inline std::uint32_t tent_total(int p, int n, int r) {
    std::uint32_t t = 0;
    for (int k = std::max(-r, -p); k <= std::min(r, n - 1 - p); ++k) t += static_cast<std::uint32_t>(r + 1 - (k < 0 ? -k : k));
    return t;
}

template <class Acc>
void tent_rows16(kiv* img, const kivfilter::Area& a, int r, tagRGBA* scratch) {
    const int W = img->m_width, w = a.w();
    std::vector<std::uint32_t> tot(static_cast<std::size_t>(w));
    for (int i = 0; i < w; ++i) tot[static_cast<std::size_t>(i)] = tent_total(a.left + i, W, r);
    kivcore::parallel_chunks(a.top, a.bottom, [&](int yb, int ye) {
        std::vector<Acc> acc(static_cast<std::size_t>(kTentStrip) * 4);
        for (int y = yb; y < ye; ++y) {
            const unsigned char* src = reinterpret_cast<const unsigned char*>(kivfilter::row_ptr(img, y));
            tagRGBA* out = scratch + static_cast<std::size_t>(y - a.top) * static_cast<std::size_t>(w);
            for (int s0 = a.left; s0 < a.right; s0 += kTentStrip) {
                const int s1 = std::min(a.right, s0 + kTentStrip);
                std::fill(acc.begin(), acc.end(), Acc(0));
                for (int k = -r; k <= r; ++k) {
                    // Outputs of the strip whose tap x + k lies inside the image: one run.
                    const int x0 = std::max(s0, -k), x1 = std::min(s1, W - k);
                    if (x0 >= x1) continue;
                    tent_mac(acc.data() + 4 * static_cast<std::size_t>(x0 - s0), src + 4 * static_cast<std::ptrdiff_t>(x0 + k),
                             r + 1 - (k < 0 ? -k : k), 4 * static_cast<std::size_t>(x1 - x0));
                }
                tent_store(out + (s0 - a.left), acc.data(), tot.data() + (s0 - a.left), s1 - s0);
            }
        }
    });
}

template <class Acc>
void tent_cols16(kiv* img, const kivfilter::Area& a, int r, const tagRGBA* scratch) {
    const int w = a.w(), h = a.h();
    kivcore::parallel_chunks(0, h, [&](int jb, int je) {
        std::vector<Acc> acc(static_cast<std::size_t>(kTentStrip) * 4);
        std::vector<std::uint32_t> t(static_cast<std::size_t>(kTentStrip));
        for (int j = jb; j < je; ++j) {
            std::fill(t.begin(), t.end(), tent_total(j, h, r));
            tagRGBA* out = kivfilter::row_ptr(img, a.top + j) + a.left;
            for (int s0 = 0; s0 < w; s0 += kTentStrip) {
                const int n = std::min(kTentStrip, w - s0);
                std::fill(acc.begin(), acc.end(), Acc(0));
                for (int k = std::max(-r, -j); k <= std::min(r, h - 1 - j); ++k)
                    tent_mac(acc.data(),
                             reinterpret_cast<const unsigned char*>(scratch + static_cast<std::size_t>(j + k) * static_cast<std::size_t>(w) + s0),
                             r + 1 - (k < 0 ? -k : k), 4 * static_cast<std::size_t>(n));
                tent_store(out + s0, acc.data(), t.data(), n);
            }
        }
    });
}

}  // namespace

int kiv::blur_simple(tagRECT* rect, int r) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a) || r < 0 || r > kTentMaxRadius) return 0;
    raise_depth_24(this);
    // Taps beyond the image (or rectangle) never count, so a radius past the larger side
    // only changes the weights; the sums then need 64 bits.
    std::vector<tagRGBA> scratch(static_cast<std::size_t>(a.w()) * static_cast<std::size_t>(a.h()));
    if (r <= kTentSum16Max) {
        tent_rows16<std::uint16_t>(this, a, r, scratch.data());
        tent_cols16<std::uint16_t>(this, a, r, scratch.data());
    } else if (r <= kTent16Max) {
        tent_rows16<std::uint32_t>(this, a, r, scratch.data());
        tent_cols16<std::uint32_t>(this, a, r, scratch.data());
    } else if (r <= kTent32Max) {
        tent_rows<std::int32_t>(this, a, r, scratch.data());
        tent_cols<std::int32_t>(this, a, r, scratch.data());
    } else {
        tent_rows<std::int64_t>(this, a, r, scratch.data());
        tent_cols<std::int64_t>(this, a, r, scratch.data());
    }
    return 1;
}
