// Effects: oil paint, pixelize, pyramid, spread, video, noise; the rectangle and depth
// rules of every effect.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kiv.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;

namespace {

struct Effect {
    const char* name;
    std::function<int(kiv&, tagRECT*)> run;
    bool tiles_from_given_corner = false;  // texturize: clipping moves the tiling
};

tagKIV_NOISE kNoiseU{40, 0, 0, 7}, kNoiseG{40, 1, 1, 9};
tagKIV_TEXTURE kTexture{100, 40, 6};
tagKIV_BUMPMAP kBump{200, 30, 5, 0};

kiv& relief() {
    static kiv tex = kivtest::random_image(6, 5, 24, 77);
    return tex;
}

const std::vector<Effect>& effects() {
    static const std::vector<Effect> v = {
        {"oilpaint", [](kiv& i, tagRECT* r) { return i.oilpaint(r, 2, 8); }},
        {"pixelize", [](kiv& i, tagRECT* r) { return i.pixelize(r, 3); }},
        {"pyramid", [](kiv& i, tagRECT* r) { return i.pyramid(r, 4, 60); }},
        {"spread", [](kiv& i, tagRECT* r) { return i.spread(r, 2, 5u); }},
        {"video", [](kiv& i, tagRECT* r) { return i.video(r, 50, 30); }},
        {"noise_uniform", [](kiv& i, tagRECT* r) { return i.noise(r, &kNoiseU); }},
        {"noise_gauss", [](kiv& i, tagRECT* r) { return i.noise(r, &kNoiseG); }},
        {"texturize", [](kiv& i, tagRECT* r) { return i.texturize(r, &relief(), &kTexture); }, true},
        {"bumpmap", [](kiv& i, tagRECT* r) { return i.bumpmap(r, &relief(), &kBump); }},
        {"bumpmap_merge", [](kiv& i, tagRECT* r) { return i.bumpmap_merge(r, &relief(), &kBump, 13, 150); }},
    };
    return v;
}

bool inside(const tagRECT& r, int x, int y) { return x >= r.left && x < r.right && y >= r.top && y < r.bottom; }

// Oil paint by definition: count every bucket of the clipped square anew.
kiv oilpaint_reference(kiv& src, tagRECT clip, int radius, int levels) {
    kiv out(src);
    out.m_bits = src.m_bits < 24 ? 24 : src.m_bits;
    for (int y = clip.top; y < clip.bottom; ++y)
        for (int x = clip.left; x < clip.right; ++x) {
            std::vector<long long> n(levels), r(levels), g(levels), b(levels);
            for (int yy = std::max(0, y - radius); yy <= std::min(src.m_height - 1, y + radius); ++yy)
                for (int xx = std::max(0, x - radius); xx <= std::min(src.m_width - 1, x + radius); ++xx) {
                    tagRGBA p = px(src, xx, yy);
                    int k = ((77 * p.r + 150 * p.g + 29 * p.b) >> 8) * levels >> 8;
                    ++n[k], r[k] += p.r, g[k] += p.g, b[k] += p.b;
                }
            int best = 0;
            for (int k = 1; k < levels; ++k)
                if (n[k] > n[best]) best = k;
            tagRGBA& q = out.m_pixels[static_cast<std::size_t>(y) * out.m_width + x];
            q.r = BYTE(r[best] / n[best]), q.g = BYTE(g[best] / n[best]), q.b = BYTE(b[best] / n[best]);
        }
    return out;
}

std::vector<std::uint32_t> sorted_pixels(kiv& img) {
    std::vector<std::uint32_t> v;
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA p = img.m_pixels[i];
        v.push_back(std::uint32_t(p.r) | std::uint32_t(p.g) << 8 | std::uint32_t(p.b) << 16 | std::uint32_t(p.a) << 24);
    }
    std::sort(v.begin(), v.end());
    return v;
}

}  // namespace

// Only the clipped rectangle changes; a rectangle partly outside acts as its clipped part
// (bar texturize's tiling, which starts at the corner as given).
TEST(Effects, TouchOnlyTheClippedRectangle) {
    const tagRECT rects[] = {{-3, 2, 9, 40}, {5, -4, 40, 6}, {30, 20, 90, 90}, {1, 1, 2, 2}};
    for (const Effect& e : effects())
        for (const tagRECT& r0 : rects) {
            kiv src = kivtest::random_image(33, 23, 24, 11);
            kiv a(src), b(src);
            tagRECT given = r0, clip;
            ASSERT_EQ(1, src.validaterect(&given, &clip));
            ASSERT_EQ(1, e.run(a, &given)) << e.name;
            ASSERT_EQ(1, e.run(b, &clip)) << e.name;
            if (!e.tiles_from_given_corner) {
                EXPECT_TRUE(images_equal(a, b)) << e.name << " rect " << r0.left << "," << r0.top;
            }
            for (int y = 0; y < 23; ++y)
                for (int x = 0; x < 33; ++x)
                    if (!inside(clip, x, y)) {
                        ASSERT_TRUE(kivtest::same_rgba(px(src, x, y), px(a, x, y))) << e.name << " at " << x << "," << y;
                    }
        }
}

// (Refusals are rows of the bad-input table.)  Success on a palettized image raises it to 24
// bits and keeps its colour map.
TEST(Effects, RaisePalettizedImagesKeepingTheMap) {
    for (const Effect& e : effects()) {
        kiv img = kivtest::random_image(8, 5, 8, 3);
        EXPECT_EQ(1, e.run(img, nullptr)) << e.name;
        EXPECT_EQ(24, img.m_bits) << e.name;
        EXPECT_NE(nullptr, img.m_map) << e.name;
    }
}

TEST(Effects, NeutralParametersChangeNothing) {
    tagKIV_NOISE none{0, 1, 0, 99};
    const std::vector<std::pair<const char*, std::function<int(kiv&)>>> cases = {
        {"pixelize 1", [](kiv& i) { return i.pixelize(nullptr, 1); }},
        {"pyramid 0", [](kiv& i) { return i.pyramid(nullptr, 5, 0); }},
        {"spread 0", [](kiv& i) { return i.spread(nullptr, 0, 3); }},
        {"video 0 0", [](kiv& i) { return i.video(nullptr, 0, 0); }},
        {"noise 0", [&](kiv& i) { return i.noise(nullptr, &none); }},
    };
    for (const auto& c : cases) {
        kiv img = kivtest::random_image(17, 6, 32, 8), before(img);
        EXPECT_EQ(1, c.second(img)) << c.first;
        EXPECT_TRUE(images_equal(img, before)) << c.first;
    }
}

TEST(OilPaint, MatchesTheCountedDefinition) {
    struct Case {
        int w, h, radius, levels;
        tagRECT rect;
    };
    const Case cases[] = {
        {1, 1, 1, 2, {0, 0, 0, 0}},      {7, 3, 1, 8, {0, 0, 0, 0}},     {31, 17, 3, 20, {-4, 5, 12, 40}},
        {40, 9, 5, 256, {3, -2, 37, 7}}, {12, 30, 7, 3, {0, 0, 0, 0}},   {5, 5, 100, 16, {1, 1, 4, 4}},
    };
    for (const Case& c : cases)
        for (int bits : {24, 8}) {
            // Few distinct colours make many ties between buckets.
            kiv img = kivtest::random_image(c.w, c.h, bits, 100u + c.w);
            if (bits == 24)
                for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i].r &= 0xC0, img.m_pixels[i].g &= 0xC0;
            tagRECT r = c.rect, clip;
            img.validaterect(&r, &clip);
            kiv want = oilpaint_reference(img, clip, c.radius, c.levels);
            ASSERT_EQ(1, img.oilpaint(&r, c.radius, c.levels));
            EXPECT_TRUE(images_equal(want, img)) << c.w << "x" << c.h << " r" << c.radius << " l" << c.levels;
            EXPECT_EQ(24, img.m_bits);
        }
}

TEST(OilPaint, FlatImageStaysFlat) {
    kiv img(23, 11, 24);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{201, 13, 77, BYTE(i)};
    kiv before(img);
    ASSERT_EQ(1, img.oilpaint(nullptr, 4, 30));
    EXPECT_TRUE(images_equal(before, img));
}

TEST(Pixelize, CellsAreUniformAndEqualTheirMean) {
    for (int size : {2, 3, 7, 50, 100000}) {
        kiv img = kivtest::random_image(29, 19, 24, 40u + size), src(img);
        tagRECT r{2, -3, 27, 30};
        ASSERT_EQ(1, img.pixelize(&r, size));
        const tagRECT clip{2, 0, 27, 19};
        for (int cy = clip.top; cy < clip.bottom; cy += size)
            for (int cx = clip.left; cx < clip.right; cx += size) {
                const int x1 = std::min<long>(clip.right, long(cx) + size), y1 = std::min<long>(clip.bottom, long(cy) + size);
                long long s[3] = {0, 0, 0}, n = 0;
                for (int y = cy; y < y1; ++y)
                    for (int x = cx; x < x1; ++x, ++n) {
                        const tagRGBA p = px(src, x, y);
                        s[0] += p.r, s[1] += p.g, s[2] += p.b;
                    }
                for (int y = cy; y < y1; ++y)
                    for (int x = cx; x < x1; ++x) {
                        const tagRGBA p = px(img, x, y);
                        ASSERT_EQ(s[0] / n, p.r) << size << " at " << x << "," << y;
                        ASSERT_EQ(s[1] / n, p.g);
                        ASSERT_EQ(s[2] / n, p.b);
                        ASSERT_EQ(px(src, x, y).a, p.a);
                    }
            }
    }
}

// A 4 x 4 cell of grey 100 at depth 40, worked out by hand: top +40, left +20, right -20,
// bottom -40; on ties top beats left beats right beats bottom.  The second cell along is
// cut to 2 x 4: each column is nearest its own side.
TEST(Pyramid, FacesOfOneCell) {
    kiv img(6, 4, 24);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{100, 100, 100, 9};
    ASSERT_EQ(1, img.pyramid(nullptr, 4, 40));
    const int want[4][6] = {{140, 140, 140, 140, 140, 140},
                            {120, 140, 140, 80, 120, 80},
                            {120, 120, 80, 80, 120, 80},
                            {120, 60, 60, 80, 120, 80}};
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x) {
            EXPECT_EQ(want[y][x], px(img, x, y).g) << x << "," << y;
            EXPECT_EQ(9, px(img, x, y).a);
        }
}

TEST(Spread, PermutesReproduciblyOnAnyThreadCount) {
    for (int d : {1, 3, 40}) {
        kiv src = kivtest::random_image(61, 97, 24, 7u + d);
        tagRECT r{3, 5, 58, 90};
        kiv a(src), b(src), c(src);
        {
            const kivtest::ThreadCap one(1);
            ASSERT_EQ(1, a.spread(&r, d, 1234u));
        }
        ASSERT_EQ(1, b.spread(&r, d, 1234u));
        ASSERT_EQ(1, c.spread(&r, d, 1235u));
        EXPECT_TRUE(images_equal(a, b)) << d;
        EXPECT_FALSE(images_equal(a, c)) << d;
        EXPECT_FALSE(images_equal(a, src)) << d;
        EXPECT_EQ(sorted_pixels(src), sorted_pixels(a)) << d;
        // Each pixel moves only inside the rectangle: its own pixels keep their multiset.
        kiv in_a(55, 85, 24), in_s(55, 85, 24);
        in_a.blt(0, 0, 55, 85, &a, 3, 5);
        in_s.blt(0, 0, 55, 85, &src, 3, 5);
        EXPECT_EQ(sorted_pixels(in_s), sorted_pixels(in_a)) << d;
    }
}

// With small distances most pixels stay close: a single swap moves a pixel by at most d in
// each direction, so the mean displacement of a unique colour stays of order d.
TEST(Spread, MovesPixelsOnlyLocally) {
    kiv img(64, 64, 24);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{BYTE(i & 63), BYTE(i >> 6), 0, 0};
    ASSERT_EQ(1, img.spread(nullptr, 2, 77u));
    double total = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const tagRGBA p = px(img, x, y);
            total += std::abs(p.r - x) + std::abs(p.g - y);
        }
    const double mean = total / (64 * 64);
    EXPECT_GT(mean, 0.5);
    EXPECT_LT(mean, 6.0);
}

TEST(Video, ScanLinesAndStripes) {
    kiv img(7, 4, 24);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{200, 200, 200, 3};
    tagRECT r{1, 1, 7, 4};
    ASSERT_EQ(1, img.video(&r, 50, 25));
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 7; ++x) {
            const tagRGBA p = px(img, x, y);
            const int line = (x >= 1 && y >= 1 && (y & 1)) ? 100 : 200;
            for (int c = 0; c < 3; ++c) {
                const int v = (&p.r)[c];
                const int want = (x >= 1 && y >= 1 && x % 3 != c) ? line * 75 / 100 : line;
                ASSERT_EQ(want, v) << x << "," << y << " channel " << c;
            }
            ASSERT_EQ(3, p.a);
        }
}

TEST(Noise, ReproducibleBoundedAndOfTheStatedSpread) {
    struct Case {
        int amount, gaussian, mono;
    };
    for (Case c : {Case{30, 0, 0}, Case{30, 0, 1}, Case{30, 1, 0}, Case{30, 1, 1}, Case{4, 0, 0}, Case{4, 1, 0}}) {
        kiv grey(128, 96, 24);
        for (int i = 0; i < grey.m_packets; ++i) grey.m_pixels[i] = tagRGBA{128, 128, 128, 5};
        tagKIV_NOISE p{c.amount, c.gaussian, c.mono, 42u};
        kiv a(grey), b(grey), other(grey);
        {
            const kivtest::ThreadCap one(1);
            ASSERT_EQ(1, a.noise(nullptr, &p));
        }
        ASSERT_EQ(1, b.noise(nullptr, &p));
        EXPECT_TRUE(images_equal(a, b));
        p.seed = 43u;
        ASSERT_EQ(1, other.noise(nullptr, &p));
        EXPECT_FALSE(images_equal(a, other));
        double sum = 0, sq = 0;
        int lo = 0, hi = 0, n = 0;
        for (int i = 0; i < a.m_packets; ++i) {
            const tagRGBA q = a.m_pixels[i];
            ASSERT_EQ(5, q.a);
            if (c.mono) {
                ASSERT_TRUE(q.r == q.g && q.g == q.b);
            }
            for (int ch = 0; ch < 3; ++ch) {
                const int d = (&q.r)[ch] - 128;
                sum += d, sq += double(d) * d, ++n;
                lo = std::min(lo, d), hi = std::max(hi, d);
            }
        }
        const double mean = sum / n, sd = std::sqrt(sq / n - mean * mean), am = c.amount;
        // Whole-number noise: uniform on -amount..amount has variance amount (amount + 1) / 3;
        // a Gaussian of deviation amount / 2 rounded to integers gains 1/12.  The sample
        // error of either deviation here is well under 1%.
        const double want = c.gaussian ? std::sqrt(am * am / 4 + 1.0 / 12) : std::sqrt(am * (am + 1) / 3);
        EXPECT_NEAR(0.0, mean, 0.05 * want) << c.amount << " " << c.gaussian;
        EXPECT_NEAR(want, sd, 0.02 * want) << c.amount << " " << c.gaussian;
        if (c.gaussian) {
            EXPECT_GE(3 * c.amount, std::max(-lo, hi));
            EXPECT_LT(c.amount, std::max(-lo, hi));  // the tails pass amount sometimes
        } else {
            EXPECT_EQ(-c.amount, lo);
            EXPECT_EQ(c.amount, hi);
        }
    }
}
