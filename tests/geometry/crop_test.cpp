// crop: the rectangle's pixels, the map of palettized images, refusals.
#include <gtest/gtest.h>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;

TEST(Crop, MatchesThePerPixelModel) {
    kivtest::Rng rng(17);
    const int depths[] = {1, 4, 8, 24, 32};
    for (int round = 0; round < 200; ++round) {
        const int bits = depths[round % 5];
        kiv img = random_image(1 + rng.below(13), 1 + rng.below(9), bits, 50 + round);
        kiv orig(img);
        tagRECT r{rng.below(20) - 5, rng.below(16) - 4, rng.below(20) - 5, rng.below(16) - 4};
        const bool whole = r.right <= r.left || r.bottom <= r.top;
        const int l = whole ? 0 : std::max<int>(r.left, 0), t = whole ? 0 : std::max<int>(r.top, 0);
        const int rr = whole ? orig.width() : std::min<int>(r.right, orig.width());
        const int bb = whole ? orig.height() : std::min<int>(r.bottom, orig.height());
        const int ok = img.crop(&r);
        if (rr <= l || bb <= t) {
            EXPECT_EQ(0, ok);
            EXPECT_TRUE(images_equal(orig, img));
            continue;
        }
        ASSERT_EQ(1, ok) << round;
        ASSERT_EQ(rr - l, img.width());
        ASSERT_EQ(bb - t, img.height());
        EXPECT_EQ(bits, img.bits());
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < img.width(); ++x)
                ASSERT_TRUE(kivtest::same_rgba(kivtest::px(orig, l + x, t + y), kivtest::px(img, x, y)));
        ASSERT_EQ(orig.colors(), img.colors());
        for (int i = 0; i < orig.colors(); ++i) ASSERT_TRUE(kivtest::same_rgba(orig.map()[i], img.map()[i]));
    }
}

TEST(Crop, MapFollowsTheDepthAndTheCallbackIsCleared) {
    // Below 24 bits the whole map and its count travel, also a map longer than the depth.
    kiv img = random_image(6, 6, 1, 3);
    img.alloccmap(40);
    for (int i = 0; i < 40; ++i) img.map()[i] = tagRGBA{BYTE(i), 1, 2, 0};
    img.m_progressproc = [](int, int) {};
    tagRECT r{1, 1, 4, 5};
    ASSERT_EQ(1, img.crop(&r));
    EXPECT_EQ(40, img.colors());
    EXPECT_EQ(39, img.map()[39].r);
    EXPECT_EQ(nullptr, img.m_progressproc);  // the image was rebuilt by movefrom
    // A true-colour image keeps no map, even one left over from a raised depth.
    kiv raised = random_image(5, 4, 8, 4);
    raised.m_bits = 24;
    ASSERT_EQ(1, raised.crop(&r));
    EXPECT_EQ(24, raised.bits());
    EXPECT_EQ(0, raised.colors());
    EXPECT_EQ(nullptr, raised.map());
}
