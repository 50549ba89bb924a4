// The members that weight colour by alpha and filter in linear light (zoom_rgba,
// blur_gauss_rgba, unsharp_mask_rgba, rotate_any_rgba): no fringes from transparent pixels,
// linear-light shrinking, the plain members' bytes where weighting changes nothing, and the
// weighted resampler against a plain model of its passes on every path.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "core/wide_pixels.h"
#include "geometry/resample_filters.h"
#include "kiv.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;

namespace {

// An opaque red disc on a fully transparent green background.
kiv disc(int n) {
    kiv img(n, n, 32);
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            const int dx = 2 * x + 1 - n, dy = 2 * y + 1 - n;
            *img.pos(x, y) = dx * dx + dy * dy < (n * 5 / 8) * (n * 5 / 8) ? tagRGBA{255, 0, 0, 255} : tagRGBA{0, 255, 0, 0};
        }
    return img;
}

// The most green of any pixel that is not fully transparent.
int green_where_seen(kiv& img) {
    int g = 0;
    for (int i = 0; i < img.m_packets; ++i)
        if (img.m_pixels[i].a > 0) g = std::max<int>(g, img.m_pixels[i].g);
    return g;
}

// One pass of zoom_rgba as written: the lists as zoom builds them (mirrored, normalised),
// float sums of the weighted values in list order, each rounded to a 16-bit word.
std::vector<float> reference_pass(const std::vector<float>& in, int W, int H, bool horizontal, int n_out, int method) {
    const kivgeom::ResampleFilter* f = kivgeom::resample_filter(method);
    const int n_src = horizontal ? W : H, lines = horizontal ? H : W;
    const double s = static_cast<double>(n_out) / n_src, width = s < 1.0 ? f->support / s : f->support;
    const double fscale = s < 1.0 ? 1.0 / s : 1.0;
    std::vector<float> out(static_cast<std::size_t>(n_out) * lines * 4);
    for (int i = 0; i < n_out; ++i) {
        const double centre = i / s;
        std::vector<int> idx;
        std::vector<double> wt;
        double sum = 0.0;
        for (long long j = static_cast<long long>(centre - width + 0.5); j < static_cast<long long>(centre + width + 0.5); ++j) {
            wt.push_back(f->fn((static_cast<double>(j) - centre + 0.5) / fscale) / fscale);
            sum += wt.back();
            idx.push_back(static_cast<int>(j < 0 ? -j : j >= n_src ? 2LL * n_src - j - 1 : j));
        }
        if (sum != 0.0 && sum != 1.0)
            for (double& w : wt) w /= sum;
        for (int line = 0; line < lines; ++line)
            for (int c = 0; c < 4; ++c) {
                auto at = [&](int k) { return horizontal ? (line * W + k) * 4 + c : (k * W + line) * 4 + c; };
                float acc = static_cast<float>(wt[0]) * in[static_cast<std::size_t>(at(idx[0]))];
                for (std::size_t k = 1; k < idx.size(); ++k) acc += static_cast<float>(wt[k]) * in[static_cast<std::size_t>(at(idx[k]))];
                out[static_cast<std::size_t>(horizontal ? (line * n_out + i) * 4 + c : (i * W + line) * 4 + c)] = acc;
            }
    }
    return out;
}

kiv reference_rgba(kiv& src, int w, int h, int method, int flags) {
    const kivcore::WideFormat f = kivcore::WideFormat::of(flags, flags & KIV_FILTER_ALPHA);
    std::vector<float> v(static_cast<std::size_t>(src.m_packets) * 4);
    for (int i = 0; i < src.m_packets; ++i) f.load(src.m_pixels[i], &v[static_cast<std::size_t>(i) * 4]);
    const bool vfirst = h < src.m_height;
    std::vector<float> mid = vfirst ? reference_pass(v, src.m_width, src.m_height, false, h, method)
                                    : reference_pass(v, src.m_width, src.m_height, true, w, method);
    for (float& x : mid) x = kivcore::to_word(x);
    const std::vector<float> o = vfirst ? reference_pass(mid, src.m_width, h, true, w, method)
                                        : reference_pass(mid, w, src.m_height, false, h, method);
    kiv out(w, h, flags & KIV_FILTER_ALPHA ? 32 : 24);
    for (int i = 0; i < out.m_packets; ++i) out.m_pixels[i] = f.store(&o[static_cast<std::size_t>(i) * 4]);
    return out;
}

}  // namespace

TEST(Weighted, NoFringeFromTransparentColourOnEveryPath) {
    kiv src = disc(128);
    kivtest::on_every_path(2, [&](int path, int threads) {
        for (int method = 0; method < 14; ++method) {
            kiv k(src);
            ASSERT_EQ(k.zoom_rgba(16, 16, method, KIV_FILTER_ALPHA), 1);
            EXPECT_EQ(k.m_bits, 32);
            EXPECT_LE(green_where_seen(k), 1) << "method " << method << " path " << path << " threads " << threads;
        }
        const std::vector<std::function<int(kiv&)>> others = {
            [](kiv& k) { return k.blur_gauss_rgba(nullptr, 5.0, 5.0, KIV_FILTER_ALPHA); },
            [](kiv& k) { return k.blur_gauss_rgba(nullptr, 5.0, 5.0, KIV_FILTER_ALPHA | KIV_FILTER_LINEAR); },
            [](kiv& k) { return k.unsharp_mask_rgba(nullptr, 3.0, 300, 0, KIV_FILTER_ALPHA); },
            [](kiv& k) { return k.rotate_any_rgba(33.0, 1, KIV_FILTER_ALPHA); }};
        for (const auto& op : others) {
            kiv k(src);
            ASSERT_EQ(op(k), 1);
            EXPECT_LE(green_where_seen(k), 1) << "path " << path;
        }
    });
    // The plain members do mix the green in.
    kiv plain(src);
    plain.blur_gauss_iir(nullptr, 5.0, 5.0);
    EXPECT_GT(green_where_seen(plain), 100);
}

TEST(Weighted, LinearLightShrinksACheckerboardToItsBrightness) {
    kiv board(512, 512, 24);
    for (int i = 0; i < board.m_packets; ++i) {
        const BYTE v = ((i % 512 + i / 512) & 1) ? 255 : 0;
        board.m_pixels[i] = tagRGBA{v, v, v, 0};
    }
    kivtest::on_every_path(2, [&](int path, int) {
        kiv k(board);
        ASSERT_EQ(k.zoom_rgba(32, 32, 11, KIV_FILTER_LINEAR), 1);
        for (int i = 0; i < k.m_packets; ++i)
            for (int c = 0; c < 3; ++c) ASSERT_NEAR((&k.m_pixels[i].r)[c], 187.5, 0.5) << "path " << path;
    });
    kiv gamma(board);
    gamma.zoom_rgba(32, 32, 11, 0);
    EXPECT_NEAR(gamma.m_pixels[100].r, 128, 1);
}

TEST(Weighted, ResamplerMatchesItsModelOnEveryPath) {
    kiv src = kivtest::random_image(37, 29, 32, 5);
    for (int i = 0; i < src.m_packets; i += 3) src.m_pixels[i].a = 255;
    struct Case {
        int w, h, method, flags;
    } cases[] = {{11, 9, 11, 1}, {80, 50, 10, 3}, {15, 64, 13, 2}, {60, 7, 0, 3}};
    for (const Case& c : cases) {
        kiv want = reference_rgba(src, c.w, c.h, c.method, c.flags);
        kivtest::on_every_path(2, [&](int path, int threads) {
            kiv k(src);
            ASSERT_EQ(k.zoom_rgba(c.w, c.h, c.method, c.flags), 1);
            EXPECT_TRUE(images_equal(k, want)) << c.w << "x" << c.h << " flags " << c.flags << " path " << path << " threads "
                                               << threads;
        });
    }
}

TEST(Weighted, OpaqueImagesKeepAlphaAndThePlainColours) {
    kiv src = kivtest::random_image(64, 48, 32, 9);
    for (int i = 0; i < src.m_packets; ++i) src.m_pixels[i].a = 255;
    // Where weighting by 255 changes nothing, the plain members' bytes (zoom without its sharpening).
    kiv a(src), b(src), c(src), d(src), f(src);
    ASSERT_EQ(a.zoom_rgba(24, 20, 11, KIV_FILTER_ALPHA), 1);
    ASSERT_EQ(f.zoom_rgba(24, 20, 11, 0), 1);
    for (int i = 0; i < a.m_packets; ++i) {
        EXPECT_EQ(a.m_pixels[i].a, 255);
        a.m_pixels[i].a = 0;
    }
    EXPECT_TRUE(images_equal(a, f));
    ASSERT_EQ(b.blur_gauss_rgba(nullptr, 2.0, 3.0, KIV_FILTER_ALPHA), 1);
    ASSERT_EQ(c.blur_gauss_iir(nullptr, 2.0, 3.0), 1);
    EXPECT_TRUE(images_equal(b, c));
    // One transparent corner pixel sends the others through the weighted path: away from it
    // they stay within 1 of the plain result and opaque.
    d.pos(0, 0)->a = 0;
    kiv e(d);
    ASSERT_EQ(d.zoom_rgba(24, 20, 11, KIV_FILTER_ALPHA), 1);
    ASSERT_EQ(e.rotate_any_rgba(20.0, 1, KIV_FILTER_ALPHA), 1);
    kiv g(src);
    ASSERT_EQ(g.rotate_any(20.0, 0, 1), 1);
    for (int y = 4; y < 20; ++y)
        for (int x = 4; x < 24; ++x) {
            const tagRGBA p = kivtest::px(d, x, y), q = kivtest::px(f, x, y);
            EXPECT_EQ(p.a, 255);
            for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR((&p.r)[ch], (&q.r)[ch], 1) << x << "," << y;
        }
    for (int y = 25; y < 40; ++y)
        for (int x = 25; x < 45; ++x) {
            const tagRGBA p = kivtest::px(e, x, y), q = kivtest::px(g, x, y);
            for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR((&p.r)[ch], (&q.r)[ch], 1) << x << "," << y;
            EXPECT_EQ(p.a, 255);
        }
}
