// kiv::quantize_hq and kiv::quantize_shared: palette size, exact colours, alpha, exact
// nearest entries, the same bytes on every path and thread count, refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <vector>

#include "core/simd.h"
#include "kiv.h"
#include "quantize/hq.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;

namespace {

// Gradients, a disc and noise; with alpha, a transparent left quarter, then alpha rising
// from left to right (opaque at the right edge), rows of noisy alpha at the bottom and
// transparent pixels strewn everywhere.
kiv scene(int w, int h, bool alpha, std::uint64_t seed = 3) {
    kiv img(w, h, 32);
    kivtest::Rng rng(seed);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int n = rng.below(17) - 8, disc = (x - w / 2) * (x - w / 2) + (y - h / 2) * (y - h / 2) < w * h / 10;
            auto c = [](int v) { return static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v); };
            int a = 255;
            if (alpha) a = x < w / 4 || rng.below(19) == 0 ? 0 : y > h - 4 ? rng.below(256) : 255 * (x - w / 4) / (w - 1 - w / 4);
            img.m_pixels[y * w + x] = tagRGBA{c(255 * x / w + n), c(disc ? 40 + n : 200 - y + n), c(128 + 3 * n), static_cast<BYTE>(a)};
        }
    return img;
}

// Palettized as documented: index below the entry count, colour from the map, depth by count.
void expect_palettized(const kiv& img, int limit) {
    ASSERT_GE(img.m_colors, 1);
    ASSERT_LE(img.m_colors, limit);
    EXPECT_EQ(img.m_bits, img.m_colors <= 2 ? 1 : img.m_colors <= 16 ? 4 : 8);
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA p = img.m_pixels[i];
        ASSERT_LT(p.a, img.m_colors) << "pixel " << i;
        const tagRGBA m = img.m_map[p.a];
        ASSERT_TRUE(p.r == m.r && p.g == m.g && p.b == m.b) << "pixel " << i;
    }
}

}  // namespace

TEST(QuantizeHq, NeverMoreColoursThanAskedAndPalettized) {
    for (bool alpha : {false, true})
        for (int colors : {1, 2, 3, 16, 100, 256})
            for (int dither : {0, 55, 100}) {
                kiv img = scene(67, 45, alpha);
                ASSERT_EQ(1, img.quantize_hq(colors, dither, alpha ? KIV_QUANT_ALPHA : 0));
                SCOPED_TRACE(testing::Message() << "alpha " << alpha << " colors " << colors << " dither " << dither);
                expect_palettized(img, colors);
            }
}

TEST(QuantizeHq, AtMostNColoursKeepEveryColour) {
    kiv img = scene(40, 30, false);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{BYTE(i % 7 * 37), BYTE(i % 5 * 50), BYTE(i % 35), 9};
    for (int dither : {0, 100}) {
        kiv q(img);
        ASSERT_EQ(1, q.quantize_hq(35, dither, 0));
        EXPECT_EQ(35, q.m_colors);
        for (int i = 0; i < img.m_packets; ++i)
            ASSERT_TRUE(q.m_pixels[i].r == img.m_pixels[i].r && q.m_pixels[i].g == img.m_pixels[i].g &&
                        q.m_pixels[i].b == img.m_pixels[i].b) << i;
    }
}

TEST(QuantizeHq, AlphaEntries) {
    // An opaque image gets only opaque entries, the same as without the flag.
    kiv opaque = scene(50, 40, false), flagged(opaque);
    ASSERT_EQ(1, opaque.quantize_hq(64, 100, 0));
    ASSERT_EQ(1, flagged.quantize_hq(64, 100, KIV_QUANT_ALPHA));
    EXPECT_TRUE(images_equal(opaque, flagged));
    for (int j = 0; j < flagged.m_colors; ++j) EXPECT_EQ(255, flagged.m_map[j].a) << j;

    // Transparent pixels share one entry (0, 0, 0, 0); translucent entries come first.
    for (int dither : {0, 100}) {
        kiv src = scene(64, 48, true), img(src);
        ASSERT_EQ(1, img.quantize_hq(32, dither, KIV_QUANT_ALPHA));
        std::set<int> clear;
        for (int i = 0; i < img.m_packets; ++i)
            if (src.m_pixels[i].a == 0) clear.insert(img.m_pixels[i].a);
        ASSERT_EQ(1u, clear.size());
        const tagRGBA t = img.m_map[*clear.begin()];
        EXPECT_TRUE(t.r == 0 && t.g == 0 && t.b == 0 && t.a == 0);
        int opaque_from = 0;
        while (opaque_from < img.m_colors && img.m_map[opaque_from].a < 255) ++opaque_from;
        EXPECT_GT(opaque_from, 1);  // translucent entries besides the transparent one
        for (int j = opaque_from; j < img.m_colors; ++j) EXPECT_EQ(255, img.m_map[j].a) << j;
    }
}

TEST(QuantizeHq, UnditheredPixelsTakeANearestEntry) {
    for (bool alpha : {false, true}) {
        kiv src = scene(61, 37, alpha, 11), img(src);
        ASSERT_EQ(1, img.quantize_hq(48, 0, alpha ? KIV_QUANT_ALPHA : 0));
        auto search = [&](const tagRGBA& p, int* c) {
            const int a = alpha ? p.a : 255;
            const int v[3] = {p.r, p.g, p.b};
            for (int k = 0; k < 3; ++k) c[k] = (v[k] * a * 2 + 255) / 510;  // round(v * a / 255)
            c[3] = a;
        };
        for (int i = 0; i < img.m_packets; ++i) {
            if (alpha && src.m_pixels[i].a == 0) continue;
            int p[4], best = -1, chosen = 0;
            search(src.m_pixels[i], p);
            for (int j = 0; j < img.m_colors; ++j) {
                int e[4], d = 0;
                search(img.m_map[j], e);
                for (int k = 0; k < 4; ++k) d += kivhq::kWeight[k] * (p[k] - e[k]) * (p[k] - e[k]);
                if (best < 0 || d < best) best = d;
                if (j == img.m_pixels[i].a) chosen = d;
            }
            ASSERT_EQ(best, chosen) << "alpha " << alpha << " pixel " << i;
        }
    }
}

// Error diffusion written out plainly, one pixel after another, from the palette the member
// chose: what the interleaved rows, threads, caches and shortcuts must reproduce exactly.
std::vector<int> diffuse_reference(const kiv& src, const kiv& q, int dither, bool alpha) {
    const int w = src.m_width, h = src.m_height, n = q.m_colors;
    auto channels = [&](const tagRGBA& p, int* c) {
        const int a = alpha ? p.a : 255;
        for (int k = 0; k < 3; ++k) c[k] = kivhq::premultiply((&p.r)[k], a);
        c[3] = a;
    };
    kivhq::Palette pal;
    pal.count = n;
    for (int j = 0; j < n; ++j) channels(q.m_map[j], pal.c[j]);
    int limit[256], dead[256];
    kivhq::error_limits(pal, limit, dead);
    std::vector<int> idx(static_cast<std::size_t>(w) * h), cur(4 * (w + 2), 0), next(4 * (w + 2), 0);
    for (int y = 0; y < h; ++y, cur.swap(next), std::fill(next.begin(), next.end(), 0)) {
        int carry[4] = {0, 0, 0, 0};
        for (int x = 0; x < w; ++x) {
            const tagRGBA& p = src.m_pixels[y * w + x];
            if (alpha && p.a == 0) {
                for (int& c : carry) c = 0;
                for (int j = 0; j < n; ++j)
                    if (q.m_map[j].a == 0) idx[y * w + x] = j;
                continue;
            }
            int c[4], t[4], best = -1, most = 0, contrast = 0;
            channels(p, c);
            for (int k = 0; k < 4; ++k) t[k] = std::clamp(c[k] * 256 + cur[4 * (x + 1) + k] + carry[k], 0, 255 * 256);
            for (int j = 0, bd = 0; j < n; ++j) {
                int d = 0;
                for (int k = 0; k < 4; ++k) d += kivhq::kWeight[k] * ((t[k] + 128) / 256 - pal.c[j][k]) * ((t[k] + 128) / 256 - pal.c[j][k]);
                if (best < 0 || d < bd) best = j, bd = d;
            }
            idx[y * w + x] = best;
            const tagRGBA* nb[4] = {&src.m_pixels[std::max(y - 1, 0) * w + x], &src.m_pixels[std::min(y + 1, h - 1) * w + x],
                                    &src.m_pixels[y * w + std::max(x - 1, 0)], &src.m_pixels[y * w + std::min(x + 1, w - 1)]};
            for (const tagRGBA* o : nb)
                for (int k = 0; k < (alpha ? 4 : 3); ++k) contrast = std::max(contrast, std::abs((&o->r)[k] - (&p.r)[k]));
            int e[4];
            for (int k = 0; k < 4; ++k) {
                e[k] = k == 3 && !alpha ? 0 : std::clamp(t[k] - 256 * pal.c[best][k], -limit[best], limit[best]);
                most = std::max(most, std::abs(e[k]));
            }
            const int hold = kivhq::HoldRule<void>::strength(contrast);
            const int scale = (hold & 128) && most <= dead[best] ? 0 : dither * 256 / 100 * (hold & 127) >> 7;
            for (int k = 0; k < 4; ++k) {
                const int d = (e[k] >> 4) * scale >> 4, d7 = (8 * d - d) >> 4, d3 = (2 * d + d) >> 4, d5 = (4 * d + d) >> 4;
                carry[k] = d7;
                next[4 * x + k] += d3;
                next[4 * (x + 1) + k] += d5;
                next[4 * (x + 2) + k] += d - d7 - d3 - d5;
            }
        }
    }
    return idx;
}

TEST(QuantizeHq, DiffusionMatchesAPlainReference) {
    for (bool alpha : {false, true})
        for (int dither : {37, 100}) {
            kiv src = scene(131, 29, alpha, 7), img(src);
            ASSERT_EQ(1, img.quantize_hq(24, dither, alpha ? KIV_QUANT_ALPHA : 0));
            const std::vector<int> want = diffuse_reference(src, img, dither, alpha);
            for (int i = 0; i < img.m_packets; ++i)
                ASSERT_EQ(want[static_cast<std::size_t>(i)], img.m_pixels[i].a) << "alpha " << alpha << " dither " << dither << " pixel " << i;
        }
}

TEST(QuantizeHq, SameBytesOnEveryPathAndThreadCount) {
    for (int flags : {0, int(KIV_QUANT_ALPHA)})
        for (int dither : {0, 100}) {
            std::unique_ptr<kiv> ref;
            kivtest::on_every_path(3, [&](int path, int threads) {
                kiv img = scene(157, 93, flags != 0);
                ASSERT_EQ(1, img.quantize_hq(200, dither, flags));
                if (!ref) ref = std::make_unique<kiv>(img);
                EXPECT_TRUE(images_equal(*ref, img))
                    << kivtest::path_name(path) << " threads " << threads << " flags " << flags << " dither " << dither;
                ASSERT_EQ(ref->m_colors, img.m_colors);
                EXPECT_EQ(0, std::memcmp(ref->m_map, img.m_map, sizeof(tagRGBA) * ref->m_colors)) << path;
            });
        }
}

TEST(QuantizeHq, KernelsMatchTheReference) {
    kivtest::Rng rng(5);
    kivhq::Palette pal;
    pal.count = 256;
    int idx[256];
    for (int j = 0; j < 256; ++j) {
        idx[j] = 255 - j;
        for (int c = 0; c < 4; ++c) pal.c[j][c] = rng.below(256);
    }
    kivtest::on_every_path([&](int path) {
    for (int i = 0; i < 2000; ++i) {
        const int count = 1 + rng.below(256);
        std::vector<kivhq::Chunk> chunks;
        kivhq::add_chunks(pal, idx + rng.below(257 - count), count, &chunks);
        const kivhq::Packed q = kivhq::pack(rng.below(256), rng.below(256), rng.below(256), rng.below(256));
        const std::int32_t want = kivhq::nearest_reference(chunks.data(), count, q);
        ASSERT_EQ(want, kivhq::kernels().nearest(chunks.data(), count, q)) << kivtest::path_name(path) << " " << count;
    }
    });
}

TEST(QuantizeHq, SharedPaletteForSeveralImages) {
    kiv a = scene(40, 30, false, 1), b = scene(33, 20, false, 2);
    for (int i = 0; i < b.m_packets; ++i) b.m_pixels[i].b = 255;  // colours only b has
    kiv* both[] = {&a, &b};
    ASSERT_EQ(1, kiv::quantize_shared(both, 2, 60, 100, 0));
    ASSERT_EQ(a.m_colors, b.m_colors);
    EXPECT_EQ(0, std::memcmp(a.m_map, b.m_map, sizeof(tagRGBA) * a.m_colors));
    expect_palettized(a, 60);
    expect_palettized(b, 60);
}

TEST(QuantizeHq, RefusalsLeaveImagesUnchanged) {
    kiv img = scene(20, 10, true), twin(img), empty;
    kiv* pair[] = {&img, &twin};
    kiv* dup[] = {&img, &img};
    kiv* with_empty[] = {&img, &empty};
    kiv* with_null[] = {&img, nullptr};
    const std::function<int()> calls[] = {
        [&] { return img.quantize_hq(0, 0, 0); },         [&] { return img.quantize_hq(257, 0, 0); },
        [&] { return img.quantize_hq(16, -1, 0); },       [&] { return img.quantize_hq(16, 101, 0); },
        [&] { return img.quantize_hq(16, 0, 2); },        [&] { return img.quantize_hq(16, 0, -1); },
        [&] { return kiv::quantize_shared(nullptr, 1, 16, 0, 0); }, [&] { return kiv::quantize_shared(pair, 0, 16, 0, 0); },
        [&] { return kiv::quantize_shared(dup, 2, 16, 0, 0); },     [&] { return kiv::quantize_shared(with_empty, 2, 16, 0, 0); },
        [&] { return kiv::quantize_shared(with_null, 2, 16, 0, 0); }, [&] { return kiv::quantize_shared(pair, 2, 16, 0, 4); },
    };
    kiv before(img);
    for (std::size_t i = 0; i < std::size(calls); ++i) {
        EXPECT_EQ(0, calls[i]()) << "call " << i;
        EXPECT_TRUE(images_equal(before, img)) << "call " << i;
        EXPECT_EQ(32, img.m_bits);
    }
}
