// Solid and shaded fills, lightness to alpha, borders: against per-pixel models.
#include <gtest/gtest.h>

#include <climits>

#include "fill/blend.h"
#include "fill/fill_reference.h"
#include "support/paths.h"
#include "support/test_images.h"

using filltest::ref_box;
using filltest::rgb;
using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

namespace {
struct Box {
    int x, y, w, h;
};
// Boxes inset, misaligned, partly outside on each side, wholly outside, the whole image.
Box random_box(kivtest::Rng& rng, int W, int H) {
    return Box{rng.below(W + 8) - 4, rng.below(H + 8) - 4, 1 + rng.below(W + 6), 1 + rng.below(H + 6)};
}
}  // namespace

TEST(SolidFill, PartExamples) {
    kiv img = random_image(5, 4, 24, 1);
    kiv before(img);
    ASSERT_EQ(img.solidfill(nullptr, RGB(9, 8, 7), 255, 0), 1);
    for (int i = 0; i < img.m_packets; ++i) {
        EXPECT_EQ(img.m_pixels[i].r, 9);
        EXPECT_EQ(img.m_pixels[i].g, 8);
        EXPECT_EQ(img.m_pixels[i].b, 7);
        EXPECT_EQ(img.m_pixels[i].a, before.m_pixels[i].a);
    }
    kiv one(1, 1, 24);
    ASSERT_EQ(one.fillsolidrect(0, 0, 1, 1, RGB(255, 0, 0), 128), 1);
    EXPECT_EQ(one.m_pixels[0].r, 128);  // trunc(255 * 128 / 255)
}

TEST(SolidFill, MatchesTheModelForEveryModeAndBox) {
    kivtest::Rng rng(3);
    kivtest::on_every_path([&](int path) {
        for (int round = 0; round < 300; ++round) {
            const int W = 1 + rng.below(19), H = 1 + rng.below(5);
            kiv img = random_image(W, H, 24, 100 + round), want(img);
            const Box b = random_box(rng, W, H);
            const int mode = rng.below(21) - 1, op = 1 + rng.below(255);
            const COLORREF c = RGB(rng.byte(), rng.byte(), rng.byte());
            const bool inside = b.x < W && b.y < H && b.x + b.w > 0 && b.y + b.h > 0;
            EXPECT_EQ(img.solidfill(b.x, b.y, b.w, b.h, c, op, mode), inside ? 1 : 0);
            ref_box(want, b.x, b.y, b.w, b.h, op, mode, [&](long long, long long) { return rgb(c); });
            ASSERT_TRUE(images_equal(img, want)) << "mode " << mode << " op " << op << " box " << b.x << "," << b.y
                                                 << " " << b.w << "x" << b.h << " path " << path;
        }
    });
}

// Refusals are rows of the bad-input table.
TEST(SolidFill, RectangleOverloads) {
    kiv img = random_image(6, 5, 24, 4), want(img);
    tagRECT r{2, 1, 4, 9};  // bottom beyond the image
    ASSERT_EQ(img.fillsolidrect(&r, RGB(1, 2, 3), 200), 1);
    ref_box(want, 2, 1, 2, 8, 200, 0, [](long long, long long) { return rgb(RGB(1, 2, 3)); });
    EXPECT_TRUE(images_equal(img, want));
    tagRECT empty{3, 3, 3, 9};  // empty: the whole image
    ASSERT_EQ(img.solidfill(&empty, RGB(4, 5, 6), 255, 7), 1);
    ref_box(want, 0, 0, 6, 5, 255, 7, [](long long, long long) { return rgb(RGB(4, 5, 6)); });
    EXPECT_TRUE(images_equal(img, want));
    tagRECT wide{INT_MIN, INT_MIN, INT_MAX, INT_MAX};
    ASSERT_EQ(img.solidfill(&wide, RGB(7, 8, 9), 255, 0), 1);
    EXPECT_EQ(px(img, 5, 4).r, 7);

}

TEST(SolidFill, PalettizedImagesBecomeTrueColourKeepingTheMap) {
    kiv img = random_image(7, 3, 8, 5), want(img);
    ASSERT_EQ(img.solidfill(1, 1, 3, 1, RGB(10, 20, 30), 100, 2), 1);
    EXPECT_EQ(img.m_bits, 24);
    EXPECT_EQ(img.m_colors, 256);
    ASSERT_NE(img.m_map, nullptr);
    ref_box(want, 1, 1, 3, 1, 100, 2, [](long long, long long) { return rgb(RGB(10, 20, 30)); });
    EXPECT_TRUE(images_equal(img, want));
}

// Direction 6 on a 1 x 512 box lays the table out row by row (index y * 511 / 511 = y).
TEST(ShadeFill, TableForOneToSixteenColours) {
    kivtest::Rng rng(8);
    for (int n = 1; n <= 16; ++n) {
        std::vector<COLORREF> cs(n);
        std::vector<tagRGBA> c(n);
        for (int i = 0; i < n; ++i) {
            cs[i] = RGB(rng.byte(), rng.byte(), rng.byte());
            if (i == 1) cs[i] = RGB(255, 0, 128);  // clamping of the lengthened last segment
            c[i] = rgb(cs[i]);
        }
        const std::vector<tagRGBA> table = filltest::ref_shade_table(c);
        kiv img(1, 512, 24);
        ASSERT_EQ(img.fillshaderect(0, 0, 1, 512, cs.data(), n, 6, 255), 1);
        for (int y = 0; y < 512; ++y) {
            const tagRGBA p = px(img, 0, y);
            ASSERT_TRUE(p.r == table[y].r && p.g == table[y].g && p.b == table[y].b) << "n " << n << " entry " << y;
        }
        EXPECT_TRUE(kivtest::same_rgba(px(img, 0, 0), c[0]));
    }
}

TEST(ShadeFill, PartExampleTwoRows) {
    kiv img(3, 2, 24);
    COLORREF bw[2] = {RGB(0, 0, 0), RGB(255, 255, 255)};
    img.solidfill(nullptr, RGB(50, 50, 50), 255, 0);
    ASSERT_EQ(img.fillshaderect(nullptr, bw, 2, 6, 255), 1);
    for (int x = 0; x < 3; ++x) {
        EXPECT_EQ(px(img, x, 0).r, 0);
        EXPECT_EQ(px(img, x, 1).g, 255);
    }
}

TEST(ShadeFill, AllDirectionsModesAndBoxesMatchTheModel) {
    kivtest::Rng rng(9);
    kivtest::on_every_path([&](int path) {
        for (int round = 0; round < 400; ++round) {
            const int W = 1 + rng.below(300), H = 1 + rng.below(6);
            kiv img = random_image(W, H, round % 7 == 0 ? 8 : 24, 200 + round), want(img);
            const Box b = round % 5 == 0 ? Box{0, 0, W, H} : random_box(rng, W, H);
            const int dir = round % 8, mode = rng.below(20), op = rng.below(4) ? 255 : 1 + rng.below(255);
            const int n = 1 + rng.below(16);
            std::vector<COLORREF> cs(n);
            std::vector<tagRGBA> c(n);
            for (int i = 0; i < n; ++i) cs[i] = RGB(rng.byte(), rng.byte(), rng.byte());
            const bool inside = b.x < W && b.y < H && b.x + b.w > 0 && b.y + b.h > 0;
            ASSERT_EQ(img.shadefill(b.x, b.y, b.w, b.h, cs.data(), n, dir, op, mode), inside ? 1 : 0);
            bool reversed = false;
            filltest::ref_ramp_index(dir, 0, 0, 1, 1, 511, &reversed);
            for (int i = 0; i < n; ++i) c[i] = rgb(cs[reversed ? n - 1 - i : i]);
            const std::vector<tagRGBA> table = filltest::ref_shade_table(c);
            ref_box(want, b.x, b.y, b.w, b.h, op, mode, [&](long long x, long long y) {
                bool rv;
                return table[filltest::ref_ramp_index(dir, x, y, b.w, b.h, 511, &rv)];
            });
            EXPECT_EQ(img.m_bits, 24);
            ASSERT_TRUE(images_equal(img, want)) << "dir " << dir << " mode " << mode << " n " << n << " box " << b.x
                                                 << "," << b.y << " " << b.w << "x" << b.h << " path " << path;
        }
    });
}

TEST(SetToAlpha, LightnessIntoEveryByte) {
    kiv img = random_image(9, 4, 8, 12);
    img.m_pixels[0] = tagRGBA{10, 200, 50, 0};
    img.m_pixels[1] = tagRGBA{255, 0, 0, 9};
    ASSERT_EQ(img.settoalpha(), 1);
    EXPECT_EQ(img.m_bits, 24);
    EXPECT_TRUE(kivtest::same_rgba(img.m_pixels[0], tagRGBA{105, 105, 105, 105}));
    EXPECT_TRUE(kivtest::same_rgba(img.m_pixels[1], tagRGBA{127, 127, 127, 127}));
}

// The old pixels land at (left, top), clipped: a negative width trims that side.
TEST(AddBorder, GeometryColourAndOldPixels) {
    struct Case {
        int left, right, top, bottom, w, h;
    } cases[] = {
        {1, 2, 3, 4, 13, 17}, {0, 0, 0, 0, 10, 10}, {-2, 1, 3, -4, 9, 9}, {2, -5, -3, 0, 7, 7},
        {-12, 3, 0, -9, 1, 1},  // the old pixels fall wholly outside: all border
    };
    for (const Case& c : cases) {
        kiv img = random_image(10, 10, 24, 13), old(img);
        ASSERT_EQ(img.addborder(c.left, c.right, c.top, c.bottom, RGB(9, 8, 7)), 1);
        ASSERT_EQ(img.m_width, c.w);
        ASSERT_EQ(img.m_height, c.h);
        for (int y = 0; y < c.h; ++y)
            for (int x = 0; x < c.w; ++x) {
                const int u = x - c.left, v = y - c.top;
                const bool inner = u >= 0 && u < 10 && v >= 0 && v < 10;
                const tagRGBA want = inner ? px(old, u, v) : tagRGBA{9, 8, 7, 0};
                ASSERT_TRUE(kivtest::same_rgba(px(img, x, y), want)) << c.left << "," << c.top << ": " << x << "," << y;
            }
    }
    kiv pal = random_image(3, 2, 4, 14), pold(pal);
    ASSERT_EQ(pal.addborder(0, 0, 0, 1, RGB(1, 1, 1)), 1);
    EXPECT_EQ(pal.m_bits, 24);
    EXPECT_TRUE(kivtest::same_rgba(px(pal, 2, 1), px(pold, 2, 1)));
}
