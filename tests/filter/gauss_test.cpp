// The Gaussian blurs: numeric anchors, literal scalar references (one line at a time, run
// by run for the integer Gaussian), progress sequences.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <vector>

#include "core/color_models.h"
#include "core/kmath.h"
#include "core/simd.h"
#include "filter/filter.h"
#include "filter/gauss_iir_simd.h"
#include "filter/gauss_rle.h"
#include "filter_test_util.h"
#include "support/paths.h"

using namespace kivtest;
using namespace kivfiltertest;

namespace {

// One line of 3-byte pixels through the recursive filter, exactly as written: zeroed
// accumulators, causal and anticausal outputs formed in the same step.
void ref_iir_line(const kivfilter::IirCoef& c, std::vector<unsigned char>& line, int n) {
    for (int ch = 0; ch < 3; ++ch) {
        std::vector<double> x(n), yp(n, 0.0), ym(n, 0.0);
        for (int i = 0; i < n; ++i) x[i] = line[3 * i + ch];
        const double first = x[0], last = x[n - 1];
        for (int i = 0; i < n; ++i) {
            const int km = std::min(i, 4), j = n - 1 - i;
            double acc = 0.0;
            for (int k = 0; k <= km; ++k) acc += c.p[k] * x[i - k] - c.d[k] * yp[i - k];
            for (int k = km + 1; k <= 4; ++k) acc += (c.p[k] - c.gp * c.d[k]) * first;
            yp[i] = acc;
            acc = 0.0;
            for (int k = 0; k <= km; ++k) acc += c.m[k] * x[j + k] - c.d[k] * ym[j + k];
            for (int k = km + 1; k <= 4; ++k) acc += (c.m[k] - c.gm * c.d[k]) * last;
            ym[j] = acc;
        }
        for (int i = 0; i < n; ++i) {
            double v = yp[i] + ym[i];
            v = v < 0.0 ? 0.0 : (v > 255.0 ? 255.0 : v);
            line[3 * i + ch] = static_cast<unsigned char>(v);
        }
    }
}

void ref_iir(kiv& img, tagRECT* rect, double sx, double sy) {
    tagRECT r;
    img.validaterect(rect, &r);
    const int w = r.right - r.left, h = r.bottom - r.top;
    kiv copy(img);
    std::vector<unsigned char> line(3 * std::max(w, h));
    const kivfilter::IirCoef cy = kivfilter::iir_coefficients(sy), cx = kivfilter::iir_coefficients(sx);
    for (int x = r.left; x < r.right; ++x) {
        img.getcol_rgb(line.data(), x, r.top, h);
        ref_iir_line(cy, line, h);
        copy.setcol_rgb(line.data(), x, r.top, h);
    }
    for (int y = r.top; y < r.bottom; ++y) {
        copy.getrow_rgb(line.data(), r.left, y, w);
        ref_iir_line(cx, line, w);
        img.setrow_rgb(line.data(), r.left, y, w);
    }
    if (img.m_bits < 24) img.m_bits = 24;
}

// The integer Gaussian's taps for offsets -h..h, computed here from the formula.
std::vector<int> rle_taps(double sigma, int* half) {
    int L = static_cast<int>(std::ceil(std::sqrt(-(kivcore::kmath::log(1.0 / 255.0) * 2 * sigma * sigma))) * 2);
    if (L % 2 == 0) ++L;
    const int h = L / 2;
    std::vector<int> k(2 * h + 1);
    for (int j = -h; j <= h; ++j)
        k[j + h] = j == 0 ? 255 : static_cast<int>(255.0 * kivcore::kmath::exp(-(double(j) * j) / (2 * sigma * sigma)));
    *half = h;
    return k;
}

// One line, one channel, walked run by run as written.
void ref_rle_line(std::vector<int>& x, const std::vector<int>& P, int h) {
    const int n = static_cast<int>(x.size());
    std::vector<int> runlen(n), runval(n), out(n);
    for (int p = 0; p < n;) {
        int q = p;
        while (q < n && x[q] == x[p]) ++q;
        for (int t = p; t < q; ++t) runlen[t] = q - t, runval[t] = x[p];
        p = q;
    }
    for (int i = 0; i < n; ++i) {
        const int lo = i < h ? -i : -h, hi = n > i + h ? h : n - 1 - i;
        int acc = 0;
        if (lo != -h) acc += (P[h + lo] - P[0]) * x[0];
        for (int pos = lo; pos < hi;) {
            const int next = std::min(pos + runlen[i + pos], hi);
            acc += (P[h + next] - P[h + pos]) * runval[i + pos];
            pos = next;
        }
        if (hi != h) acc += (P[2 * h] - P[h + hi]) * x[n - 1];
        out[i] = acc / P[2 * h];
    }
    x = out;
}

void ref_rle(kiv& img, tagRECT* rect, double sigma, unsigned planes) {
    tagRECT r;
    img.validaterect(rect, &r);
    const int w = r.right - r.left, h = r.bottom - r.top;
    int half;
    std::vector<int> k = rle_taps(sigma, &half), P(2 * half + 1, 0);
    for (int i = 0; i < 2 * half; ++i) P[i + 1] = P[i] + k[i];
    kiv copy(img);
    std::vector<tagRGBA> line(std::max(w, h));
    auto filter = [&](int n) {
        for (int c = 0; c < 4; ++c) {
            if (!(planes & (1u << c))) continue;
            std::vector<int> x(n);
            for (int i = 0; i < n; ++i) x[i] = reinterpret_cast<unsigned char*>(&line[i])[c];
            ref_rle_line(x, P, half);
            for (int i = 0; i < n; ++i) reinterpret_cast<unsigned char*>(&line[i])[c] = static_cast<unsigned char>(x[i]);
        }
    };
    for (int x = r.left; x < r.right; ++x) {
        img.getcol(line.data(), x, r.top, h);
        filter(h);
        copy.setcol(line.data(), x, r.top, h);
    }
    for (int y = r.top; y < r.bottom; ++y) {
        copy.getrow(line.data(), r.left, y, w);
        filter(w);
        img.setrow(line.data(), r.left, y, w);
    }
    if (img.m_bits < 24) img.m_bits = 24;
}

void ref_sel(kiv& img, tagRECT* rect, double radius, int threshold) {
    tagRECT r;
    img.validaterect(rect, &r);
    img.m_bits = 24;
    const int n = static_cast<int>(radius + 1.0);
    const double sigma = radius / 3.329042969, norm = 1 / std::sqrt(2 * 3.141592653589793 * sigma);
    kiv copy(img);
    std::vector<double> K(static_cast<std::size_t>(n) * n);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) K[i * n + j] = kivcore::kmath::exp((i * i + j * j) / (-2 * (sigma * sigma))) * norm;
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            double sum[3] = {0, 0, 0}, ws[3] = {0, 0, 0};
            const tagRGBA c = px(copy, x, y);
            const int cv[3] = {c.r, c.g, c.b};
            for (int dx = -(n - 1); dx <= n - 1; ++dx) {
                if (x + dx < 0 || x + dx >= img.m_width) continue;
                for (int dy = -(n - 1); dy <= n - 1; ++dy) {
                    if (y + dy < 0 || y + dy >= img.m_height) continue;
                    const double k = K[std::abs(dx) * n + std::abs(dy)];
                    const tagRGBA p = px(copy, x + dx, y + dy);
                    const int v[3] = {p.r, p.g, p.b};
                    for (int ch = 0; ch < 3; ++ch) {
                        const int d = cv[ch] - v[ch];
                        if (d >= -threshold && d <= threshold) sum[ch] += k * v[ch], ws[ch] += k;
                    }
                }
            }
            tagRGBA& o = img.m_pixels[y * img.m_width + x];
            BYTE* ob[3] = {&o.r, &o.g, &o.b};
            for (int ch = 0; ch < 3; ++ch)
                if (ws[ch] != 0) *ob[ch] = static_cast<BYTE>(sum[ch] / ws[ch]);
        }
}

}  // namespace

TEST(FilterGaussIir, CoefficientsForSigmaOne) {
    const kivfilter::IirCoef c = kivfilter::iir_coefficients(1.0);
    const double p[4] = {0.398942, 0.192728, 0.032117, 0.000775}, d[4] = {-0.123741, 0.020086, -0.004476, 0.000901};
    for (int k = 0; k < 4; ++k) {
        EXPECT_NEAR(c.p[k], p[k], 1e-6) << "p" << k;
        EXPECT_NEAR(c.d[k + 1], d[k], 1e-6) << "d" << k + 1;
    }
    EXPECT_NEAR(c.gp + c.gm, 1.00021, 1e-5);
    // A constant line of v comes out as trunc(v * 1.00021); 255 stays by the clamp.
    for (int v : {0, 1, 100, 200, 254, 255}) {
        kiv img = flat_image(15, 6, tagRGBA{BYTE(v), BYTE(v), BYTE(v), 77});
        ASSERT_EQ(img.blur_gauss_iir(nullptr, 1.0, 1.0), 1);
        const int want = std::min(255, static_cast<int>(v * 1.00021));
        for (int i = 0; i < img.m_packets; ++i) ASSERT_EQ(img.m_pixels[i].g, want) << v;
        EXPECT_EQ(img.m_pixels[0].a, 77);
    }
}

TEST(FilterGaussIir, MatchesScalarReference) {
    const double sig[][2] = {{1.0, 1.0}, {0.3, 2.5}, {4.0, 0.7}, {12.0, 12.0}};
    for (Case c : cases())
        for (auto& s : sig)
            EXPECT_TRUE(matches(random_image(c.w, c.h, 8, c.w * 5 + c.h), [&](kiv& i) { return i.blur_gauss_iir(rect_of(c), s[0], s[1]); },
                                [&](kiv& i) { ref_iir(i, rect_of(c), s[0], s[1]); }))
                << c.w << "x" << c.h << " sigma " << s[0] << "," << s[1];
}

TEST(FilterGaussRle, TapsAndTotalForSigmaOne) {
    kivfilter::RleKernel k;
    ASSERT_TRUE(kivfilter::rle_kernel(1.0, &k));
    ASSERT_EQ(k.h, 4);
    const int taps[8] = {0, 2, 34, 154, 255, 154, 34, 2};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(k.prefix[i + 1] - k.prefix[i], taps[i]) << "offset " << i - 4;
    EXPECT_EQ(k.total(), 635);
    int half;
    EXPECT_EQ(rle_taps(1.0, &half)[8], 0) << "tap +4 exists but is never summed";
    kiv img = flat_image(9, 8, tagRGBA{97, 3, 250, 1});
    ASSERT_EQ(img.blur_gauss_rle(nullptr, 1.0), 1);
    for (int i = 0; i < img.m_packets; ++i) ASSERT_TRUE(same_rgba(img.m_pixels[i], tagRGBA{97, 3, 250, 1}));
}

// Flat images: every sum is an exact multiple of the total, the quotient's edge case, on
// each path and for totals on both sides of 8192.
TEST(FilterGaussRle, FlatImagesStayFlatOnEveryPath) {
    for (double sigma : {1.5, 13.5})
        for (int v = 0; v < 256; ++v) {
            SCOPED_TRACE("value " + std::to_string(v) + " sigma " + std::to_string(sigma));
            const BYTE b = static_cast<BYTE>(v);
            kiv flat = flat_image(40, 5, tagRGBA{b, b, b, b});
            same_on_every_path(flat, flat, [&](kiv& i) { return i.blur_gauss_rle_plane(nullptr, sigma, 15); }, 1);
        }
}

TEST(FilterGaussRle, MatchesRunByRunReference) {
    const struct {
        double sigma;
        unsigned planes;
    } rows[] = {{1.0, 7}, {0.4, 15}, {2.5, 5}, {7.0, 8}, {40.0, 7}, {10000.0, 15}};
    for (Case c : cases())
        for (auto& row : rows) {
            // Few grey levels, so runs of equal values occur.
            kiv got = random_image(c.w, c.h, 1, c.w + 3 * c.h), want(got);
            for (int i = 0; i < got.m_packets; ++i) got.m_pixels[i].a = BYTE(i % 5 < 3 ? 200 : i);
            want.copyfrom(&got);
            ASSERT_EQ(got.blur_gauss_rle_plane(rect_of(c), row.sigma, row.planes), 1);
            ref_rle(want, rect_of(c), row.sigma, row.planes);
            EXPECT_TRUE(images_equal(got, want)) << c.w << "x" << c.h << " sigma " << row.sigma;
        }
}

TEST(FilterGaussSel, MatchesReference) {
    // same: no pixel may change (no kernel, no usable weight, or a negative threshold).
    // A radius of 1e-200 has sigma^2 = 0 and would weigh the centre by exp(0 / -0) = NaN.
    const struct {
        double radius;
        int threshold;
        bool same;
    } rows[] = {{1.0, 0, false},   {2.5, 30, false}, {4.0, 255, false}, {0.5, 20, false},
                {-3.0, 10, true},  {0.0, 10, true},  {1e-200, 10, true}, {3.0, -1, true}};
    for (Case c : cases())
        for (auto& row : rows) {
            kiv got = random_image(c.w, c.h, 24, c.w * 13 + c.h), want(got);
            ASSERT_EQ(got.blur_gauss_sel(rect_of(c), row.radius, row.threshold), 1);
            if (!row.same) ref_sel(want, rect_of(c), row.radius, row.threshold);
            EXPECT_TRUE(images_equal(got, want)) << c.w << "x" << c.h << " radius " << row.radius;
        }
}

TEST(FilterGaussProgress, SequencesAreCountedAcrossPasses) {
    const struct {
        const char* op;
        int w, h;
        int steps;
    } rows[] = {
        {"iir", 15, 1, 2}, {"iir", 7, 1, 1}, {"iir", 3, 4, 0}, {"iir", 300, 21, 40},  {"rle", 15, 1, 2},
        {"rle", 300, 300, 75}, {"sel", 15, 17, 2}, {"sel", 4, 300, 37}, {"usm", 15, 1, 2}, {"usm2", 300, 9, 38},
    };
    for (auto& r : rows) {
        kiv img = random_image(r.w, r.h, 24, 5);
        img.m_progressproc = record_progress;
        progress_log().clear();
        const std::string op = r.op;
        int ok = op == "iir"    ? img.blur_gauss_iir(nullptr, 2.0, 1.0)
                 : op == "rle"  ? img.blur_gauss_rle(nullptr, 2.0)
                 : op == "sel"  ? img.blur_gauss_sel(nullptr, 1.5, 20)
                 : op == "usm"  ? img.unsharp_mask(nullptr, 2.0, 50, 0)
                                : img.unsharp_mask2(nullptr, 2.0, 50, 0);
        ASSERT_EQ(ok, 1);
        EXPECT_EQ(progress_log(), progress_expect(r.steps)) << r.op << " " << r.w << "x" << r.h;
    }
    kiv img = random_image(30, 30, 24, 5);
    img.m_progressproc = record_progress;
    progress_log().clear();
    EXPECT_EQ(img.blur_gauss_iir(nullptr, -1.0, 1.0), 0);
    EXPECT_EQ(progress_log(), "") << "a refusal reports nothing";
}

namespace {

int ref_unsharp_value(int O, int B, int amount, int threshold) {
    const int D = O - B;
    if (std::abs(D) < threshold) return O;
    const int v = O + D * amount / 100;
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

// unsharp_mask (grey = false) and unsharp_mask2 (grey = true) written out per pixel over the
// reference blur.
void ref_unsharp(kiv& img, tagRECT* rect, double radius, int amount, int threshold, bool grey) {
    tagRECT r;
    img.validaterect(rect, &r);
    kiv src(img);
    if (grey)
        for (int i = 0; i < src.m_packets; ++i) {
            tagRGBA& p = src.m_pixels[i];
            const BYTE l = static_cast<BYTE>(kivcore::rgb_to_hls(p.r, p.g, p.b).l);
            p = tagRGBA{l, l, l, 0};
        }
    kiv blurred(src);
    ref_iir(blurred, &r, radius, radius);
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            tagRGBA& o = img.m_pixels[static_cast<std::size_t>(y) * img.m_width + x];
            const tagRGBA& s = src.m_pixels[static_cast<std::size_t>(y) * img.m_width + x];
            const tagRGBA& b = blurred.m_pixels[static_cast<std::size_t>(y) * img.m_width + x];
            if (grey) {
                const int d = ref_unsharp_value(s.r, b.r, amount, threshold) - s.r;
                auto add = [&](BYTE& c) { c = static_cast<BYTE>(std::clamp(c + d, 0, 255)); };
                add(o.r);
                add(o.g);
                add(o.b);
            } else {
                o.r = static_cast<BYTE>(ref_unsharp_value(s.r, b.r, amount, threshold));
                o.g = static_cast<BYTE>(ref_unsharp_value(s.g, b.g, amount, threshold));
                o.b = static_cast<BYTE>(ref_unsharp_value(s.b, b.b, amount, threshold));
            }
        }
    if (img.m_bits < 24) img.m_bits = 24;
}

}  // namespace

// Sizes that cross the 16-line sweeps and the 256-line batches, rectangles partly outside,
// on the vector and the portable paths and on one to three threads; the integer Gaussian
// likewise across its bands, column strips and row tails, the selective Gaussian across its
// 64-pixel blocks and their tails.
TEST(FilterGaussFamily, FastPathsMatchReferencesOnLargerImages) {
    struct Big {
        int w, h;
        tagRECT r;
        bool whole;
    };
    const Big bigs[] = {{277, 45, {-5, 3, 270, 60}, false},
                        {45, 291, {2, -4, 40, 280}, false},
                        {300, 262, {}, true},
                        {133, 1103, {1, 2, 131, 1103}, false}};
    std::unique_ptr<kiv> rle_want[2 * std::size(bigs)];
    // Paths: 0 the best this processor runs (AVX2 where it has it), 1 SSE2, 2 portable.
    kivtest::on_every_path(3, [&](int path, int threads) {
        for (const Big& b : bigs) {
            tagRECT r = b.r;
            tagRECT* rp = b.whole ? nullptr : &r;
            kiv got = random_image(b.w, b.h, 24, static_cast<std::uint64_t>(b.w * 7 + threads)), want(got);
            if (b.h < 1000) {
                ASSERT_EQ(got.blur_gauss_iir(rp, 1.5, 4.0), 1);
                ref_iir(want, rp, 1.5, 4.0);
                EXPECT_TRUE(images_equal(got, want))
                    << "iir " << b.w << "x" << b.h << " path " << path << " threads " << threads;
            }
            // Two colours, so that runs of equal values cross the band boundaries; sigma 3
            // has 20 taps, sigma 14 a total above 8192. One reference serves every path.
            for (int si = 0; si < (b.h < 1000 ? 2 : 1); ++si) {
                const int slot = static_cast<int>(&b - bigs) * 2 + si;
                const double sigma = si ? 14.0 : 3.0;
                const unsigned planes = slot % 3 ? 15 : 11;
                kiv rle = random_image(b.w, b.h, 1, static_cast<std::uint64_t>(b.h * 5 + si));
                if (!rle_want[slot]) {
                    rle_want[slot] = std::make_unique<kiv>(rle);
                    ref_rle(*rle_want[slot], rp, sigma, planes);
                }
                ASSERT_EQ(rle.blur_gauss_rle_plane(rp, sigma, planes), 1);
                EXPECT_TRUE(images_equal(rle, *rle_want[slot]))
                    << "rle " << b.w << "x" << b.h << " sigma " << sigma << " path " << path << " threads " << threads;
            }
            if (b.h >= 1000) continue;
            // unsharp_mask's and unsharp_mask2's own passes (the lightness plane, twelve lines a kernel run).
            for (int grey = 0; grey < 2; ++grey) {
                kiv u = random_image(b.w, b.h, 24, static_cast<std::uint64_t>(b.w * 3 + threads + grey)), u_want(u);
                ASSERT_EQ(grey ? u.unsharp_mask2(rp, 2.5, 170, 2) : u.unsharp_mask(rp, 2.5, 170, 2), 1);
                ref_unsharp(u_want, rp, 2.5, 170, 2, grey != 0);
                EXPECT_TRUE(images_equal(u, u_want)) << "unsharp grey " << grey << " " << b.w << "x" << b.h;
            }
            // Blocks of 64 pixels with tails of every parity, columns outside the image.
            const double radius = threads == 2 ? 3.5 : 2.0;
            const int threshold = threads == 3 ? 0 : 60;
            kiv sel = random_image(b.w, b.h, 24, static_cast<std::uint64_t>(b.w + threads)), sel_want(sel);
            ASSERT_EQ(sel.blur_gauss_sel(rp, radius, threshold), 1);
            ref_sel(sel_want, rp, radius, threshold);
            EXPECT_TRUE(images_equal(sel, sel_want))
                << "sel " << b.w << "x" << b.h << " path " << path << " threads " << threads;
        }
    });
}


TEST(FilterUnsharp, BothMembersMatchThePerPixelReference) {
    const struct {
        double radius;
        int amount, threshold;
    } rows[] = {{0.7, 150, 0}, {2.5, 37, 3}, {1.5, 1000, 9}, {4.0, 0, 0}, {2.0, 500, 255}};
    for (Case c : cases())
        for (auto& row : rows)
            for (int grey = 0; grey < 2; ++grey)
                EXPECT_TRUE(matches(random_image(c.w, c.h, 24, c.w * 3 + c.h),
                                    [&](kiv& i) { return grey ? i.unsharp_mask2(rect_of(c), row.radius, row.amount, row.threshold)
                                                              : i.unsharp_mask(rect_of(c), row.radius, row.amount, row.threshold); },
                                    [&](kiv& i) { ref_unsharp(i, rect_of(c), row.radius, row.amount, row.threshold, grey != 0); }))
                    << c.w << "x" << c.h << " grey " << grey << " amount " << row.amount;
}
