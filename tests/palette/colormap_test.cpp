// Colour maps: depth raising, logical palettes, refresh from the map, grey, colour counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

TEST(ColorMap, AllocAndIncreaseColor) {
    kiv a(3, 2, 8);
    a.alloccmap(0);
    EXPECT_EQ(nullptr, a.map());
    EXPECT_EQ(0, a.colors());
    a.alloccmap(-3);
    EXPECT_EQ(nullptr, a.map());
    EXPECT_EQ(-3, a.colors());

    struct Case {
        int bits, n, want_bits, want_colors;
        bool map;
    } cases[] = {
        {1, 2, 4, 2, true},    {1, 4, 4, 2, true},   {1, 5, 8, 2, true},    {4, 8, 8, 16, true},
        {4, 3, 4, 16, true},   {8, 300, 24, 0, false}, {8, 9, 24, 0, false}, {24, 8, 24, 0, false},
        {8, 8, 8, 256, true},  {1, -7, 4, 2, true},   {4, 9, 24, 0, false},
    };
    for (const Case& c : cases) {
        kiv img = random_image(5, 3, c.bits, 7);
        kiv before(img);
        img.increasecolor(c.n);
        EXPECT_EQ(c.want_bits, img.bits()) << c.bits << " + " << c.n;
        EXPECT_EQ(c.want_colors, img.colors()) << c.bits << " + " << c.n;
        EXPECT_EQ(c.map, img.map() != nullptr) << c.bits << " + " << c.n;
        if (c.map && before.map()) {
            EXPECT_TRUE(std::equal(before.map(), before.map() + before.colors(), img.map(), kivtest::same_rgba));
        }
        EXPECT_TRUE(images_equal(before, img));  // pixels never change
    }
}

TEST(ColorMap, LogicalPaletteCopiesTheMap) {
    kiv img = random_image(4, 4, 4, 3);
    img.m_colors = 5;  // fewer entries than the map holds: the count rules
    tagLOGPALETTE* lp = img.createlogpalette();
    ASSERT_NE(nullptr, lp);
    EXPECT_EQ(0x300, lp->palVersion);
    EXPECT_EQ(5, lp->palNumEntries);
    for (int i = 0; i < 5; ++i) {
        const PALETTEENTRY& e = lp->palPalEntry[i];
        EXPECT_EQ(img.map()[i].r, e.peRed);
        EXPECT_EQ(img.map()[i].g, e.peGreen);
        EXPECT_EQ(img.map()[i].b, e.peBlue);
        EXPECT_EQ(0, e.peFlags);
    }
    std::free(lp);
    kiv rgb(2, 2, 24);
    EXPECT_EQ(nullptr, rgb.createlogpalette());
    img.alloccmap(0);
    EXPECT_EQ(nullptr, img.createlogpalette());
    // A map longer than the 16-bit count: every entry is still written, the count wraps.
    for (int n : {65536, 70000}) {
        img.alloccmap(n);
        img.map()[n - 1] = tagRGBA{7, 8, 9, 1};
        lp = img.createlogpalette();
        ASSERT_NE(nullptr, lp);
        EXPECT_EQ(n - 65536, lp->palNumEntries);
        const PALETTEENTRY& e = lp->palPalEntry[n - 1];
        EXPECT_EQ(7 + 8 * 256 + 9 * 65536, e.peRed | e.peGreen << 8 | e.peBlue << 16 | e.peFlags << 24);
        std::free(lp);
    }
}

TEST(ColorMap, ValidateRgbRefreshesFromTheMapAndGuardsTheIndex) {
    for (int bits : {1, 4, 8}) {
        kiv img = random_image(7, 3, bits, 11 + bits);
        kiv expect(img);
        for (int i = 0; i < img.packets(); ++i) img.pixels()[i].r ^= 0x5A, img.pixels()[i].b += 3;
        img.validate_rgb();
        EXPECT_TRUE(images_equal(expect, img)) << bits;
    }
    kiv img = random_image(4, 1, 4, 2);
    img.m_colors = 3;
    img.pixels()[0].a = 2;
    img.pixels()[1].a = 3;    // past colors
    img.pixels()[2].a = 255;  // past the allocation
    img.validate_rgb();
    const tagRGBA m0 = img.map()[0], m2 = img.map()[2];
    EXPECT_TRUE(kivtest::same_rgba(tagRGBA{m2.r, m2.g, m2.b, 2}, px(img, 0, 0)));
    EXPECT_TRUE(kivtest::same_rgba(tagRGBA{m0.r, m0.g, m0.b, 3}, px(img, 1, 0)));
    EXPECT_TRUE(kivtest::same_rgba(tagRGBA{m0.r, m0.g, m0.b, 255}, px(img, 2, 0)));

    kiv rgb = random_image(5, 5, 24, 4), rgb0(rgb);
    rgb.validate_rgb();
    EXPECT_TRUE(images_equal(rgb0, rgb));
}

TEST(ColorMap, GrayscaleTakesTruncatedLightness) {
    kiv img = random_image(9, 5, 24, 5);
    img.pixels()[0] = tagRGBA{10, 200, 50, 77};
    img.pixels()[1] = tagRGBA{255, 0, 9, 77};  // an odd sum: truncated
    img.grayscale();
    EXPECT_EQ(8, img.bits());
    ASSERT_EQ(256, img.colors());
    for (int i = 0; i < 256; ++i) ASSERT_TRUE(kivtest::same_rgba(tagRGBA{BYTE(i), BYTE(i), BYTE(i), 0}, img.map()[i]));
    EXPECT_TRUE(kivtest::same_rgba(tagRGBA{105, 105, 105, 105}, img.pixels()[0]));
    EXPECT_TRUE(kivtest::same_rgba(tagRGBA{127, 127, 127, 127}, img.pixels()[1]));
}

namespace {
// Plain model of the counting rule: distinct indexes below 9 bits, else distinct RGB.
unsigned long reference_count(kiv& img) {
    std::set<unsigned> seen;
    for (int i = 0; i < img.packets(); ++i) {
        const tagRGBA& p = img.pixels()[i];
        seen.insert(img.bits() < 9 ? p.a : (unsigned(p.r) << 16 | unsigned(p.g) << 8 | p.b));
    }
    return static_cast<unsigned long>(seen.size());
}
}  // namespace

TEST(ColorMap, CountColorsFollowsTheCountingRule) {
    kiv idx(4, 4, 8);
    for (int i = 0; i < idx.packets(); ++i) idx.pixels()[i].a = (i & 1) ? 5 : 0;
    EXPECT_EQ(2u, idx.countcolors());
    // Same map colour at two indexes counts twice.
    idx.map()[5] = idx.map()[0];
    EXPECT_EQ(2u, idx.countcolors());

    kiv rgb(2, 1, 24);
    rgb.pixels()[0] = tagRGBA{1, 2, 3, 0};
    rgb.pixels()[1] = tagRGBA{1, 2, 3, 200};
    EXPECT_EQ(1u, rgb.countcolors());
    rgb.pixels()[1] = tagRGBA{255, 255, 255, 0};
    EXPECT_EQ(2u, rgb.countcolors());

    kivtest::Rng rng(31);
    const int depths[] = {1, 4, 8, 24, 32};
    for (int round = 0; round < 40; ++round) {
        const int bits = depths[round % 5];
        kiv img = random_image(1 + rng.below(70), 1 + rng.below(40), bits, 100 + round);
        if (bits >= 24 && round % 2)  // few colours, many repeats
            for (int i = 0; i < img.packets(); ++i) img.pixels()[i].g = img.pixels()[i].b = BYTE(rng.below(3) * 127);
        EXPECT_EQ(reference_count(img), img.countcolors()) << round;
    }
}
