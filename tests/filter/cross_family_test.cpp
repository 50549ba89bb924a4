// Members of different families that must agree byte for byte.
#include <gtest/gtest.h>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;

TEST(CrossFamily, SharpenIsFilter3x3ModeThree) {
    const tagRECT rects[] = {{0, 0, 0, 0}, {3, 2, 20, 9}, {-5, -5, 4, 40}, {10, 0, 11, 13}};
    for (int bits : {24, 32, 8})
        for (const tagRECT& r0 : rects) {
            kiv a = random_image(23, 13, bits, 40 + static_cast<std::uint64_t>(bits));
            kiv b(a);
            tagRECT ra = r0, rb = r0;
            EXPECT_EQ(a.sharpen(&ra), b.filter_3x3(&rb, 3)) << bits;
            EXPECT_EQ(a.bits(), b.bits());
            EXPECT_TRUE(images_equal(a, b)) << bits << " " << r0.left << "," << r0.top;
        }
}

TEST(CrossFamily, ColorcutWithoutStepsIsTheColourSpaceRoundTrip) {
    for (int space : {KIV_CS_HSV, KIV_CS_HLS, KIV_CS_YCBCR, KIV_CS_YIQ, KIV_CS_CMY, KIV_CS_LAB}) {
        kiv a = random_image(17, 11, 24, 50 + static_cast<std::uint64_t>(space));
        kiv b(a);
        tagKIV_COLORCUT cut{space, {0, 0, 0}};
        tagRECT r{2, 3, 15, 9};
        ASSERT_EQ(1, a.colorcut(&r, &cut)) << space;
        kiv part(b);
        ASSERT_EQ(1, part.crop(&r));
        ASSERT_EQ(1, part.convert_colorspace(nullptr, space));
        ASSERT_EQ(1, part.convert_rgb(nullptr, space));
        b.blt(r.left, r.top, r.right - r.left, r.bottom - r.top, &part, 0, 0);
        EXPECT_TRUE(images_equal(a, b)) << space;
    }
}

TEST(CrossFamily, SettoalphaIsDesaturateThenAlphaFromRed) {
    kiv a = random_image(19, 7, 32, 70);
    kiv b(a);
    ASSERT_EQ(1, a.settoalpha());
    b.m_bits = 24;
    ASSERT_EQ(1, b.desaturate(nullptr));
    b.copyplane(0, 3);
    EXPECT_EQ(24, a.bits());
    EXPECT_TRUE(images_equal(a, b));
}
