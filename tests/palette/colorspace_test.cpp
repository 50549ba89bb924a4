// Colour-space conversions: round-trip error per space, fixed points, the rectangle and
// alpha rules, determinism of the L*a*b* arithmetic.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "kiv.h"
#include "palette/colorspace.h"
#include "support/test_images.h"

using kivtest::px;
using kivtest::same_rgba;

namespace {
// Every colour on a grid of step 5 per channel (0, 5, ..., 255), alpha from the position.
kiv colour_grid() {
    kiv img(52 * 52, 52, 24);
    for (int i = 0; i < img.packets(); ++i)
        img.pixels()[i] = tagRGBA{BYTE(i / 2704 * 5), BYTE(i / 52 % 52 * 5), BYTE(i % 52 * 5), BYTE(i * 31)};
    return img;
}
}  // namespace

TEST(ColorSpace, RoundTripsStayWithinTheStatedError) {
    struct Case {
        int cs;
        int max_error;  // per channel, over every 8-bit colour (measured exhaustively)
    } cases[] = {{KIV_CS_RGB, 0}, {KIV_CS_HSV, 4}, {KIV_CS_HLS, 8}, {KIV_CS_YCBCR, 1},
                 {KIV_CS_YIQ, 2}, {KIV_CS_CMY, 0}, {KIV_CS_LAB, 26}};
    const kiv grid = colour_grid();
    for (const Case& c : cases) {
        kiv img(grid);
        ASSERT_EQ(1, img.convert_colorspace(nullptr, c.cs));
        ASSERT_EQ(1, img.convert_rgb(nullptr, c.cs));
        int worst = 0;
        for (int i = 0; i < img.packets(); ++i) {
            const tagRGBA &a = grid.m_pixels[i], &b = img.pixels()[i];
            ASSERT_EQ(a.a, b.a) << "alpha kept, space " << c.cs;
            worst = std::max({worst, std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
        }
        EXPECT_LE(worst, c.max_error) << "space " << c.cs;
    }
}

TEST(ColorSpace, FixedPointsAndKnownValues) {
    struct Case {
        int cs;
        tagRGBA rgb, space;
    } cases[] = {
        {KIV_CS_HSV, {255, 0, 0, 9}, {0, 255, 255, 9}},       {KIV_CS_HSV, {0, 0, 255, 0}, {170, 255, 255, 0}},
        {KIV_CS_HSV, {128, 128, 128, 0}, {0, 0, 128, 0}},     {KIV_CS_HLS, {255, 0, 0, 0}, {0, 127, 255, 0}},
        {KIV_CS_YCBCR, {255, 255, 255, 0}, {255, 128, 128, 0}}, {KIV_CS_YCBCR, {255, 0, 0, 0}, {76, 85, 255, 0}},
        {KIV_CS_YIQ, {0, 0, 0, 0}, {0, 128, 128, 0}},         {KIV_CS_YIQ, {255, 0, 0, 0}, {76, 255, 179, 0}},
        {KIV_CS_CMY, {10, 20, 30, 40}, {245, 235, 225, 40}},  {KIV_CS_LAB, {255, 255, 255, 0}, {255, 128, 128, 0}},
        {KIV_CS_LAB, {0, 0, 0, 0}, {0, 128, 128, 0}},         {KIV_CS_LAB, {255, 0, 0, 0}, {136, 208, 195, 0}},
        {KIV_CS_LAB, {0, 0, 255, 0}, {82, 207, 20, 0}},
    };
    for (const Case& c : cases) {
        kiv img(1, 1, 24);
        img.pixels()[0] = c.rgb;
        img.convert_colorspace(nullptr, c.cs);
        EXPECT_TRUE(same_rgba(c.space, img.pixels()[0])) << c.cs << ": " << kivtest::rgba_str(img.pixels()[0]);
    }
    // Greys come back exactly from every space.
    for (int cs = KIV_CS_RGB; cs <= KIV_CS_LAB; ++cs)
        for (int v = 0; v < 256; v += 15) {
            kiv img(1, 1, 24);
            img.pixels()[0] = tagRGBA{BYTE(v), BYTE(v), BYTE(v), 0};
            img.convert_colorspace(nullptr, cs);
            img.convert_rgb(nullptr, cs);
            EXPECT_TRUE(same_rgba(tagRGBA{BYTE(v), BYTE(v), BYTE(v), 0}, img.pixels()[0])) << cs << " grey " << v;
        }
}

TEST(ColorSpace, CubeRootAgreesWithTheLibrary) {
    for (int i = 0; i <= 2000; ++i) {
        const double t = 0.008 + i * (2.0 - 0.008) / 2000;
        EXPECT_NEAR(std::cbrt(t), kivpal::cube_root(t), 1e-15) << t;  // within 2 ulp
    }
    EXPECT_EQ(0.0, kivpal::cube_root(0.0));
}

// (Refusals are rows of the bad-input table.)
TEST(ColorSpace, OnlyTheRectangleChanges) {
    kiv img = kivtest::random_image(9, 7, 24, 3);
    kiv orig(img);
    tagRECT r{-3, 2, 4, 5};
    ASSERT_EQ(1, img.convert_colorspace(&r, KIV_CS_CMY));
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
            tagRGBA o = px(orig, x, y);
            if (x < 4 && y >= 2 && y < 5) o = tagRGBA{BYTE(255 - o.r), BYTE(255 - o.g), BYTE(255 - o.b), o.a};
            ASSERT_TRUE(same_rgba(o, px(img, x, y))) << x << "," << y;
        }

    // A palettized image is raised to 24 bits; its map stays, the index bytes are kept.
    kiv pal = kivtest::random_image(5, 4, 8, 4);
    kiv pal0(pal);
    ASSERT_EQ(1, pal.convert_colorspace(nullptr, KIV_CS_YCBCR));
    EXPECT_EQ(24, pal.bits());
    EXPECT_NE(nullptr, pal.map());
    ASSERT_EQ(1, pal.convert_rgb(nullptr, KIV_CS_YCBCR));
    for (int i = 0; i < pal.packets(); ++i) {
        EXPECT_EQ(pal0.pixels()[i].a, pal.pixels()[i].a);
        EXPECT_LE(std::abs(pal0.pixels()[i].g - pal.pixels()[i].g), 1);
    }
}
