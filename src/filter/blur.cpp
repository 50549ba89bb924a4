// Corner-sample blur (blur) and tent blur (blur_simple).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "filter/int_conv.h"

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
// Columns of one strip of the column pass, the unit of its parallel loop.
constexpr int kTentStrip = 256;

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

// ---- Radii up to kTent32Max: the rows, then the columns, band by band down the rectangle.
// The row pass fills a ring of scratch rows (row j at j % ring_rows, a row stride of an odd
// number of cache lines so the column pass's many rows at one column spread over the cache
// sets); the column pass reads the band's rows +-r from it and writes the image. A band's
// image rows are written only after every scratch row that needs them has been made, so
// no copy of the image is kept.
// Up to kTentSum16Max the whole sum, 255 * (r + 1)^2, fits 16 bits: the 16-bit kernel.
constexpr int kTentSum16Max = 14;

void tent_banded(kiv* img, const kivfilter::Area& a, int r) {
    using namespace kivfilter;
    const int W = img->m_width, w = a.w(), h = a.h();
    const bool narrow = r <= kTentSum16Max;
    const int vw = pair_width(), vpx = vw / 4;  // vector width in bytes, in pixels
    const int band_rows = std::min(h, std::max(8, (1 << 16) / w) & ~1);
    const int ring_rows = static_cast<int>(std::min<long long>(h, static_cast<long long>(band_rows) + 2LL * r));
    const std::size_t stride = ((static_cast<std::size_t>(w) + 15) / 16 | 1) * 16;
    std::vector<tagRGBA> ring(static_cast<std::size_t>(ring_rows) * stride);
    auto ring_row = [&](int j) { return ring.data() + static_cast<std::size_t>(j % ring_rows) * stride; };
    auto weight = [r](int k) { return r + 1 - (k < 0 ? -k : k); };
    auto pack = [narrow](int wa, int wb) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(wa) | (static_cast<std::uint32_t>(wb) << (narrow ? 8 : 16)));
    };
    auto run = [&](PairConv& p, std::ptrdiff_t nb) {
        p.narrow = narrow;
        p.take = 0x00FFFFFFu;  // alpha 0
        p.step = vw;
        p.n = vw ? static_cast<int>(nb / vw) : 0;
        if (p.n) {
            if (narrow)
                pair_conv16_vector(p, vw);
            else
                pair_conv_vector(p, vw);
        }
        pair_conv_scalar(p, p.n * static_cast<std::ptrdiff_t>(vw), nb);
    };
    // Row pass pairs, from the first output pixel's tap -r: m holds taps -r + 2m and the next.
    const int hp = r + 1;
    std::vector<std::int32_t> hw(static_cast<std::size_t>(hp));
    for (int m = 0; m < hp; ++m) hw[static_cast<std::size_t>(m)] = pack(weight(2 * m - r), 2 * m - r + 1 <= r ? weight(2 * m - r + 1) : 0);
    // Outputs whose taps all lie inside the image share the total (r + 1)^2.
    const int xs = std::max(a.left, r), xe = std::max(xs, std::min(a.right, W - r));
    const int strips = (w + kTentStrip - 1) / kTentStrip;
    int made = 0;  // scratch rows [0, made) are made
    for (int y0 = 0; y0 < h; y0 += band_rows) {
        const int y1 = std::min(h, y0 + band_rows), need = std::min(h, y1 + r);
        kivcore::parallel_chunks(made, need, [&](int jb, int je) {
            std::vector<const unsigned char*> pa(static_cast<std::size_t>(hp)), pb(static_cast<std::size_t>(hp));
            for (int j = jb; j < je; ++j) {
                const tagRGBA* src = row_ptr(img, a.top + j);
                tagRGBA* out = ring_row(j);
                int v1 = xs;  // pixels [xs, v1) done by the vector kernel
                if (vw && xe - xs >= vpx) {
                    const unsigned char* first = reinterpret_cast<const unsigned char*>(src + xs - r);
                    for (int m = 0; m < hp; ++m) {
                        pa[static_cast<std::size_t>(m)] = first + 8 * static_cast<std::ptrdiff_t>(m);
                        // The last pair's second tap is beyond +r: weight 0, and never read
                        // past the image.
                        pb[static_cast<std::size_t>(m)] = pa[static_cast<std::size_t>(m)] + (m < r ? 4 : 0);
                    }
                    PairConv p{};
                    p.a = pa.data();
                    p.b = pb.data();
                    p.w0 = hw.data();
                    p.e0 = hp;
                    p.d0 = reinterpret_cast<unsigned char*>(out + (xs - a.left));
                    p.total = (r + 1) * (r + 1);
                    const int n = (xe - xs) / vpx;
                    run(p, static_cast<std::ptrdiff_t>(n) * vw);
                    v1 = xs + n * vpx;
                }
                for (int x = a.left; x < a.right; ++x) {
                    if (x == xs && v1 > xs) x = v1;
                    if (x >= a.right) break;
                    const int k0 = std::max(-r, -x), k1 = std::min(r, W - 1 - x);
                    std::int32_t s0 = 0, s1 = 0, s2 = 0, t = 0;
                    for (int k = k0; k <= k1; ++k) {
                        const std::int32_t wk = weight(k);
                        const tagRGBA& q = src[x + k];
                        s0 += wk * q.r;
                        s1 += wk * q.g;
                        s2 += wk * q.b;
                        t += wk;
                    }
                    out[x - a.left] = tagRGBA{static_cast<BYTE>(s0 / t), static_cast<BYTE>(s1 / t), static_cast<BYTE>(s2 / t), 0};
                }
            }
        });
        made = need;
        kivcore::parallel_chunks(0, strips, [&](int sb, int se) {
            std::vector<const unsigned char*> pa, pb;
            std::vector<std::int32_t> pw;
            for (int s = sb; s < se; ++s) {
                const int x0 = s * kTentStrip, sw = std::min(kTentStrip, w - x0);
                for (int j = y0; j < y1; ++j) {
                    // Rows of the rectangle only, renormalised by the weights used.
                    const int k0 = std::max(-r, -j), k1 = std::min(r, h - 1 - j);
                    pa.clear();
                    pb.clear();
                    pw.clear();
                    std::int32_t t = 0;
                    for (int k = k0; k <= k1; k += 2) {
                        const bool two = k + 1 <= k1;
                        pa.push_back(reinterpret_cast<const unsigned char*>(ring_row(j + k) + x0));
                        pb.push_back(two ? reinterpret_cast<const unsigned char*>(ring_row(j + k + 1) + x0) : pa.back());
                        pw.push_back(pack(weight(k), two ? weight(k + 1) : 0));
                        t += weight(k) + (two ? weight(k + 1) : 0);
                    }
                    PairConv p{};
                    p.a = pa.data();
                    p.b = pb.data();
                    p.w0 = pw.data();
                    p.e0 = static_cast<int>(pw.size());
                    p.d0 = reinterpret_cast<unsigned char*>(row_ptr(img, a.top + j) + a.left + x0);
                    p.total = t;
                    run(p, 4 * static_cast<std::ptrdiff_t>(sw));
                }
            }
        });
    }
}

}  // namespace

int kiv::blur_simple(tagRECT* rect, int r) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a) || r < 0 || r > kTentMaxRadius) return 0;
    raise_depth_24(this);
    if (r == 0) {
        // Weight 1 alone: the colours stay, alpha becomes 0.
        kivcore::parallel_for(a.top, a.bottom, [&](int y) {
            tagRGBA* p = row_ptr(this, y);
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
}
