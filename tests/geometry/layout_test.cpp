// scroll, tile, tile_divide: per-pixel models, white strips, maps and refusals.
#include <gtest/gtest.h>

#include "kiv.h"
#include "support/checks.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

namespace {

// One step of the scroll on one axis: the pixel d places back along the axis, or (without
// wrap) white with the alpha that was there when it falls off the uncovered side.
kiv model_shift(kiv& in, int d, bool horizontal, bool wrap) {
    kiv out(in);
    const int n = horizontal ? in.m_width : in.m_height;
    for (int y = 0; y < in.m_height; ++y)
        for (int x = 0; x < in.m_width; ++x) {
            int k = horizontal ? x : y;
            int from = k - d;
            tagRGBA& o = out.m_pixels[(std::size_t)y * in.m_width + x];
            if (from >= 0 && from < n) {
                o = horizontal ? px(in, from, y) : px(in, x, from);
            } else if (wrap) {
                from = (from % n + n) % n;
                o = horizontal ? px(in, from, y) : px(in, x, from);
            } else {
                o.r = o.g = o.b = 255;
            }
        }
    return out;
}

}  // namespace

TEST(Scroll, MatchesTheModelForShiftsOfEverySign) {
    const int shifts[][2] = {{1, 0}, {-1, 0}, {0, 2}, {0, -3}, {3, -2}, {-9, 5}, {13, 7}, {-26, -14}, {40, 1}};
    for (int wrap = 0; wrap < 2; ++wrap)
        for (auto& s : shifts) {
            kiv img = random_image(13, 7, 8, 70 + s[0]);
            const int dx = s[0] % 13, dy = s[1] % 7;
            kiv across = model_shift(img, dx, true, wrap != 0);
            kiv expect = model_shift(across, dy, false, wrap != 0);
            ASSERT_EQ(1, img.scroll(s[0], s[1], wrap));
            EXPECT_TRUE(images_equal(expect, img)) << s[0] << "," << s[1] << " wrap " << wrap;
            EXPECT_EQ(wrap || (dx == 0 && dy == 0) ? 8 : 24, img.bits());  // no move: untouched
            EXPECT_NE(nullptr, img.map());  // the map stays either way
        }
}

TEST(Scroll, Anchors) {
    kiv img = random_image(4, 3, 24, 71);
    kiv before(img);
    EXPECT_EQ(1, img.scroll(4, -3, 0));  // whole turns: nothing moves
    EXPECT_TRUE(images_equal(before, img));
    ASSERT_EQ(1, img.scroll(1, 0, 0));
    for (int y = 0; y < 3; ++y) {
        EXPECT_TRUE(kivtest::same_rgba(tagRGBA{255, 255, 255, px(before, 0, y).a}, px(img, 0, y)));
        for (int x = 1; x < 4; ++x) EXPECT_TRUE(kivtest::same_rgba(px(before, x - 1, y), px(img, x, y)));
    }
    kiv wrapped(before);
    ASSERT_EQ(1, wrapped.scroll(1, 0, 1));
    for (int y = 0; y < 3; ++y) EXPECT_TRUE(kivtest::same_rgba(px(before, 3, y), px(wrapped, 0, y)));
}

TEST(Tile, RepeatsTheClippedRectangleAndKeepsTheMap) {
    kiv img = random_image(9, 7, 4, 72);
    kiv before(img);
    tagRECT r{-2, 3, 4, 20};  // clips to (0, 3) - (4, 7)
    ASSERT_EQ(1, img.tile(&r, 3, 2));
    ASSERT_EQ(12, img.width());
    ASSERT_EQ(8, img.height());
    EXPECT_EQ(4, img.bits());
    ASSERT_EQ(before.colors(), img.colors());
    for (int i = 0; i < img.colors(); ++i) EXPECT_TRUE(kivtest::same_rgba(before.m_map[i], img.m_map[i]));
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 12; ++x)
            ASSERT_TRUE(kivtest::same_rgba(px(before, x % 4, 3 + y % 4), px(img, x, y))) << x << "," << y;
    kiv whole(before);
    ASSERT_EQ(1, whole.tile(nullptr, 1, 1));
    EXPECT_TRUE(images_equal(before, whole));
    // The repeat copies the entries into a map of 1 << bits (the cropped part keeps the
    // short count); a map longer than the depth is kept whole.
    kiv short_map = random_image(3, 2, 8, 75);
    short_map.m_colors = 20;
    kiv short_before(short_map);
    ASSERT_EQ(1, short_map.tile(nullptr, 2, 1));
    ASSERT_EQ(256, short_map.colors());
    for (int i = 0; i < 256; ++i)
        EXPECT_TRUE(kivtest::same_rgba(i < 20 ? short_before.m_map[i] : tagRGBA{0, 0, 0, 0}, short_map.m_map[i])) << i;
    kiv long_map = random_image(3, 2, 1, 76);
    long_map.alloccmap(40);
    for (int i = 0; i < 40; ++i) long_map.m_map[i] = tagRGBA{BYTE(i), 2, 3, 0};
    ASSERT_EQ(1, long_map.tile(nullptr, 1, 2));
    ASSERT_EQ(40, long_map.colors());
    EXPECT_EQ(39, long_map.m_map[39].r);
}

// Refusals that depend on the image's size (the rest: the bad-input table).
TEST(Tile, RefusesSizesTheImageCannotTake) {
    kiv img = random_image(6, 5, 24, 73);
    tagRECT inside{1, 1, 3, 3};
    EXPECT_TRUE(kivtest::refused_unchanged(img, [&](kiv& i) { return i.tile(&inside, 0x40000000, 2); }));  // wider than an int
    EXPECT_TRUE(kivtest::refused_unchanged(img, [&](kiv& i) { return i.tile_divide(&inside, 3); }));  // 2 x 2 has no 1/3 size
}

TEST(Tile, DivideShrinksWithMitchellThenRepeats) {
    kiv img = random_image(20, 14, 8, 74);
    tagRECT r{1, 2, 18, 13};  // 17 x 11 -> 5 x 3 at n = 3
    kiv part(17, 11, 24);
    part.blt(0, 0, 17, 11, &img, 1, 2);
    ASSERT_EQ(1, part.zoom(5, 3, 10, 0));
    ASSERT_EQ(1, img.tile_divide(&r, 3));
    ASSERT_EQ(15, img.width());
    ASSERT_EQ(9, img.height());
    EXPECT_EQ(24, img.bits());
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 15; ++x) ASSERT_TRUE(kivtest::same_rgba(px(part, x % 5, y % 3), px(img, x, y))) << x << "," << y;
}
