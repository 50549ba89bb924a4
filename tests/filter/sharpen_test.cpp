// sharpen: the 3x3 kernel against a per-pixel model, rectangle edges, alpha and depth.
#include <gtest/gtest.h>

#include "filter/sharpen_reference.h"
#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;

TEST(Sharpen, MatchesThePerPixelModelOnRectanglesPartlyOutside) {
    kivtest::Rng rng(7);
    const int sizes[][2] = {{1, 1}, {1, 9}, {9, 1}, {2, 2}, {5, 3}, {17, 11}, {64, 7}, {3, 33}};
    for (auto& sz : sizes)
        for (int round = 0; round < 12; ++round) {
            const int W = sz[0], H = sz[1];
            kiv img = random_image(W, H, 32, 100 + round * 7 + W);
            kiv expect(img);
            tagRECT r{rng.below(W + 4) - 2, rng.below(H + 4) - 2, 0, 0};
            r.right = r.left + 1 + rng.below(W + 3);
            r.bottom = r.top + 1 + rng.below(H + 3);
            if (round == 0) r = tagRECT{0, 0, 0, 0};  // empty: the whole image
            tagRECT c;
            bool inside = expect.validaterect(&r, &c) != 0;
            if (inside) kivtest::reference_sharpen(expect, c.left, c.top, c.right, c.bottom);
            ASSERT_EQ(inside ? 1 : 0, img.sharpen(&r)) << W << "x" << H;
            ASSERT_TRUE(images_equal(expect, img)) << W << "x" << H << " rect " << r.left << "," << r.top << ","
                                                   << r.right << "," << r.bottom;
        }
}

TEST(Sharpen, FlatAreasAndSinglePixelsKeepTheirValue) {
    kiv img(6, 5, 24);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{200, 7, 0, 99};
    kiv before(img);
    EXPECT_EQ(1, img.sharpen(nullptr));
    EXPECT_TRUE(images_equal(before, img));
    kiv one = random_image(1, 1, 24, 5);
    kiv one_before(one);
    EXPECT_EQ(1, one.sharpen(nullptr));  // every neighbour is the pixel itself: 18c - 8c
    EXPECT_TRUE(images_equal(one_before, one));
}

TEST(Sharpen, RaisesDepthKeepsMapAndRefusesEmpty) {
    kiv img = random_image(7, 7, 8, 3);
    tagRGBA* map = img.m_map;
    EXPECT_EQ(1, img.sharpen(nullptr));
    EXPECT_EQ(24, img.bits());
    EXPECT_EQ(map, img.map());

    kiv empty;
    EXPECT_EQ(0, empty.sharpen(nullptr));
    kiv other = random_image(4, 4, 24, 4);
    kiv before(other);
    tagRECT outside{4, 0, 9, 4};
    EXPECT_EQ(0, other.sharpen(&outside));
    EXPECT_TRUE(images_equal(before, other));
}
