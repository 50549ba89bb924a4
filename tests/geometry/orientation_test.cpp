// rotate, rotate180, mirror, flip: per-pixel models, rectangles partly outside, the odd
// middle row, round trips, maps and the progress callback.
#include <gtest/gtest.h>

#include <algorithm>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

namespace {

enum class Op { Half, Mirror, Flip };

// Clipped rectangle of the x, y, w, h forms as the operations see it.
bool clip(kiv& img, int x, int y, int w, int h, tagRECT* c) {
    tagRECT r{x, y, x + w, y + h};
    return img.validaterect(&r, c) != 0;
}

void model(kiv& img, Op op, const tagRECT& c) {
    kiv src(img);
    const int W = c.right - c.left, H = c.bottom - c.top;
    for (int j = 0; j < H; ++j)
        for (int i = 0; i < W; ++i) {
            int si = i, sj = j;
            if (op == Op::Mirror) si = W - 1 - i;
            if (op == Op::Flip) sj = H - 1 - j;
            if (op == Op::Half && !(H % 2 == 1 && j == H / 2)) {  // odd middle row stays
                si = W - 1 - i;
                sj = H - 1 - j;
            }
            *img.pos(c.left + i, c.top + j) = px(src, c.left + si, c.top + sj);
        }
}

int call(kiv& img, Op op, int x, int y, int w, int h) {
    switch (op) {
        case Op::Half: return img.rotate180(x, y, w, h);
        case Op::Mirror: return img.mirror(x, y, w, h);
        default: return img.flip(x, y, w, h);
    }
}

int g_progress_calls = 0;
void count_progress(int, int) { ++g_progress_calls; }

}  // namespace

TEST(Orientation, RectangleOperationsMatchTheModel) {
    kivtest::Rng rng(3);
    const int sizes[][2] = {{1, 1}, {1, 6}, {7, 1}, {6, 5}, {13, 9}, {37, 6}};
    for (Op op : {Op::Half, Op::Mirror, Op::Flip})
        for (auto& s : sizes)
            for (int round = 0; round < 25; ++round) {
                kiv img = random_image(s[0], s[1], 32, 50 + round);
                int x = rng.below(s[0] + 6) - 3, y = rng.below(s[1] + 6) - 3;
                int w = rng.below(s[0] + 6) - 1, h = rng.below(s[1] + 6) - 1;
                kiv expect(img);
                tagRECT c;
                bool inside = clip(expect, x, y, w, h, &c);
                if (inside) model(expect, op, c);
                ASSERT_EQ(inside ? 1 : 0, call(img, op, x, y, w, h));
                ASSERT_TRUE(images_equal(expect, img))
                    << int(op) << " on " << s[0] << "x" << s[1] << " rect " << x << "," << y << " " << w << "x" << h;
            }
}

// The model test holds the odd middle row and the clipping; here, round trips.
TEST(Orientation, MirrorAndFlipTwiceAreTheIdentity) {
    kiv before = random_image(5, 3, 24, 8);
    kiv twice(before);
    twice.mirror(0, 0, 0, 0);  // empty rectangle: whole image
    twice.mirror(0, 0, 5, 3);
    twice.flip(-2, -2, 20, 20);
    twice.flip(0, 0, 0, 0);
    EXPECT_TRUE(images_equal(before, twice));
}

TEST(Orientation, QuarterTurnsMatchTheModelAndRoundTrip) {
    const int sizes[][2] = {{1, 1}, {1, 70}, {70, 1}, {33, 65}, {64, 32}, {31, 33}};
    for (auto& s : sizes)
        for (int dir = 0; dir < 2; ++dir) {
            kiv img = random_image(s[0], s[1], 8, 60 + dir);
            kiv src(img);
            img.rotate(dir);
            ASSERT_EQ(s[1], img.width());
            ASSERT_EQ(s[0], img.height());
            for (int y = 0; y < s[1]; ++y)
                for (int x = 0; x < s[0]; ++x) {
                    tagRGBA want = px(src, x, y);
                    tagRGBA got = dir ? px(img, y, s[0] - 1 - x) : px(img, s[1] - 1 - y, x);
                    ASSERT_TRUE(kivtest::same_rgba(want, got)) << s[0] << "x" << s[1] << " dir " << dir << " at " << x << "," << y;
                }
            EXPECT_EQ(8, img.bits());
            ASSERT_EQ(src.colors(), img.colors());
            for (int i = 0; i < img.colors(); ++i) EXPECT_TRUE(kivtest::same_rgba(src.m_map[i], img.m_map[i]));
            img.rotate(!dir);  // the opposite turn undoes it
            EXPECT_TRUE(images_equal(src, img));
            for (int k = 0; k < 4; ++k) img.rotate(dir);
            EXPECT_TRUE(images_equal(src, img));
        }
}

TEST(Orientation, RotateKeepsTheProgressCallback) {
    kiv img = random_image(3, 2, 24, 9);
    img.m_progressproc = count_progress;
    img.rotate(0);
    EXPECT_EQ(reinterpret_cast<void*>(count_progress), reinterpret_cast<void*>(img.m_progressproc));
    EXPECT_EQ(0, g_progress_calls);
}

// Results of four megabytes and more may be built in a block freed moments before, not
// cleared again: a pixel the operation failed to write would show the old image through.
// Each case first frees a block of exactly the result's size, filled with a marker alpha.
TEST(Orientation, RecycledResultBlocksNeverShowThrough) {
    auto leave_dirty_block = [](int w, int h) {
        kiv junk;
        ASSERT_TRUE(junk.create(w, h, 24));
        std::fill(junk.pixels(), junk.pixels() + static_cast<std::size_t>(w) * h, tagRGBA{1, 2, 3, 0xAB});
    };
    const int W = 1030, H = 1041;  // not multiples of the turn's tiles
    kiv src = random_image(W, H, 24, 77);
    for (std::size_t i = 0; i < static_cast<std::size_t>(W) * H; ++i) src.pixels()[i].a = 0;

    kiv turned(src);
    leave_dirty_block(H, W);
    turned.rotate(0);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            ASSERT_TRUE(kivtest::same_rgba(px(src, x, y), px(turned, H - 1 - y, x))) << x << "," << y;

    kiv cropped(src);
    tagRECT r{3, 5, 3 + 1025, 5 + 1030};
    leave_dirty_block(1025, 1030);
    ASSERT_TRUE(cropped.crop(&r));
    for (int y = 0; y < 1030; ++y)
        for (int x = 0; x < 1025; ++x) ASSERT_TRUE(kivtest::same_rgba(px(src, x + 3, y + 5), px(cropped, x, y)));

    kiv nearest(src);
    leave_dirty_block(2 * W, H);
    ASSERT_TRUE(nearest.zoom_near(2 * W, H));
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < 2 * W; ++x) ASSERT_EQ(0, px(nearest, x, y).a);  // whole source pixels, alpha 0

    // The resampler defines alpha 0 for every result pixel too.
    for (int method : {0, 1, 11}) {
        kiv big(src);
        leave_dirty_block(W + 300, H + 200);
        ASSERT_TRUE(big.zoom(W + 300, H + 200, method, 0));
        for (int y = 0; y < big.height(); ++y)
            for (int x = 0; x < big.width(); ++x) ASSERT_EQ(0, px(big, x, y).a) << method;
    }
}
