// Block transfer: clipping against both images, refusals, all four bytes, self copies.
#include <gtest/gtest.h>


#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;
using kivtest::same_rgba;

namespace {
// Plain per-pixel model of the block copy: a pixel moves exactly when both its source and
// its target lie inside their images.
void reference_blt(kiv& dst, int x, int y, int w, int h, kiv& src, int sx, int sy) {
    if (w < 0 || h < 0 || x >= dst.m_width || y >= dst.m_height || (long long)x + w < 0 || (long long)y + h < 0 ||
        sx >= src.m_width || sy >= src.m_height)
        return;
    for (long long i = 0; i < h; ++i)
        for (long long j = 0; j < w; ++j) {
            long long sr = sy + i, tr = y + i, sc = sx + j, tc = x + j;
            if (sr < 0 || sr >= src.m_height || tr < 0 || tr >= dst.m_height) continue;
            if (sc < 0 || sc >= src.m_width || tc < 0 || tc >= dst.m_width) continue;
            dst.m_pixels[tr * dst.m_width + tc] = src.m_pixels[sr * src.m_width + sc];
        }
}
}  // namespace

TEST(Blt, MatchesThePerPixelModelOnRandomPlacements) {
    kivtest::Rng rng(99);
    kiv src = random_image(13, 9, 24, 21);
    for (int round = 0; round < 400; ++round) {
        kiv dst = random_image(11, 7, 24, 22 + round);
        kiv expect(dst);
        int x = rng.below(31) - 15, y = rng.below(23) - 11, w = rng.below(30) - 3, h = rng.below(20) - 3;
        int sx = rng.below(31) - 15, sy = rng.below(23) - 11;
        dst.blt(x, y, w, h, &src, sx, sy);
        reference_blt(expect, x, y, w, h, src, sx, sy);
        ASSERT_TRUE(images_equal(expect, dst)) << x << "," << y << " " << w << "x" << h << " from " << sx << "," << sy;
    }
}

TEST(Blt, MovesAllFourBytesAndKeepsDepthAndMap) {
    kiv src = random_image(4, 4, 8, 25);
    kiv dst(4, 4, 8);
    tagRGBA* map = dst.map();
    dst.blt(1, 1, 2, 2, &src, 2, 2);
    EXPECT_TRUE(same_rgba(px(src, 2, 2), px(dst, 1, 1)));
    EXPECT_TRUE(same_rgba(px(src, 3, 3), px(dst, 2, 2)));
    EXPECT_EQ(src.m_pixels[15].a, px(dst, 2, 2).a);
    EXPECT_EQ(map, dst.map());
    EXPECT_EQ(8, dst.bits());
    EXPECT_EQ(256, dst.colors());
}

TEST(Blt, OverlappingCopyWithinOneImageActsAsFromACopy) {
    kiv img = random_image(20, 20, 24, 26);
    kiv snapshot(img);
    kiv expect(img);
    reference_blt(expect, 3, 2, 15, 15, snapshot, 0, 0);
    img.blt(3, 2, 15, 15, &img, 0, 0);
    EXPECT_TRUE(images_equal(expect, img));
}

TEST(Blt, LargeImagesUseEveryRow) {
    kiv src = random_image(257, 301, 24, 27);
    kiv dst(257, 301, 24);
    dst.blt(0, 0, 257, 301, &src, 0, 0);
    EXPECT_TRUE(images_equal(src, dst));
}
