// rotate_any: quarter turns equal to rotate, sizes, background corners and refusals (its
// sine and cosine are tested with the shared maths).
#include <gtest/gtest.h>


#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

TEST(RotateAny, QuarterTurnsEqualTheExactOperations) {
    const int sizes[][2] = {{1, 1}, {7, 4}, {6, 9}};
    for (auto& sz : sizes)
        for (int method = 0; method < 2; ++method) {
            kiv src = random_image(sz[0], sz[1], 32, 90 + method);
            kiv ccw(src), cw(src), half(src), same(src);
            ccw.rotate(1);
            cw.rotate(0);
            half.rotate180(0, 0, 0, 0);
            const struct {
                double deg;
                kiv* expect;
            } cases[] = {{90, &ccw}, {-270, &ccw}, {270, &cw}, {-90, &cw}, {0, &same}, {360, &same}};
            for (auto& c : cases) {
                kiv img(src);
                ASSERT_EQ(1, img.rotate_any(c.deg, 0, method));
                EXPECT_TRUE(images_equal(*c.expect, img)) << c.deg << " method " << method;
            }
            if (sz[1] % 2 == 0) {  // rotate180 leaves an odd middle row; compare even heights only
                kiv img(src);
                ASSERT_EQ(1, img.rotate_any(180, 0, method));
                EXPECT_TRUE(images_equal(half, img)) << "180 method " << method;
            }
        }
}

TEST(RotateAny, GrowsToHoldTheTurnAndFillsCornersWithBackground) {
    kiv img(10, 10, 8);
    for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{40, 50, 60, 0};
    ASSERT_EQ(1, img.rotate_any(45, RGB(1, 2, 3), 1));
    EXPECT_EQ(15, img.width());  // ceil(10 * sqrt 2)
    EXPECT_EQ(15, img.height());
    EXPECT_EQ(24, img.bits());
    EXPECT_EQ(nullptr, img.map());
    EXPECT_TRUE(kivtest::same_rgba(tagRGBA{1, 2, 3, 0}, px(img, 0, 0)));
    EXPECT_TRUE(kivtest::same_rgba(tagRGBA{40, 50, 60, 0}, px(img, 7, 7)));
    kiv slight = random_image(30, 20, 24, 91);
    ASSERT_EQ(1, slight.rotate_any(1e-9, 0, 0));  // no spurious extra column
    EXPECT_EQ(30, slight.width());
    EXPECT_EQ(20, slight.height());
}
