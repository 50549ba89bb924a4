// Image object: creation, copies, moves, shallow assignment, rectangle clipping.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;

TEST(ImageCreate, DepthDecidesTheColourMap) {
    struct Case {
        int bits, colors;
    } cases[] = {{1, 2}, {4, 16}, {8, 256}, {24, 0}, {32, 0}};
    for (const Case& c : cases) {
        kiv img;
        ASSERT_EQ(1, img.create(7, 5, c.bits)) << c.bits;
        EXPECT_EQ(c.colors, img.colors()) << c.bits;
        EXPECT_EQ(c.colors == 0, img.map() == nullptr) << c.bits;
        EXPECT_EQ(35, img.packets());
        for (int i = 0; i < img.colors(); ++i) EXPECT_TRUE(kivtest::same_rgba(tagRGBA{0, 0, 0, 0}, img.map()[i]));
        for (int i = 0; i < img.packets(); ++i) ASSERT_TRUE(kivtest::same_rgba(tagRGBA{0, 0, 0, 0}, img.pixels()[i]));
    }
}

TEST(ImageCreate, ClearsTheProgressCallback) {
    kiv img(2, 2, 24);
    img.m_progressproc = [](int, int) {};
    img.create(3, 3, 24);
    EXPECT_EQ(nullptr, img.m_progressproc);
}

TEST(ImageCopy, DeepCopiesPixelsAndMap) {
    kiv src = random_image(9, 4, 8, 1);
    src.m_progressproc = [](int, int) {};
    kiv dst;
    ASSERT_EQ(1, src.copyto(&dst));
    EXPECT_NE(src.pixels(), dst.pixels());
    EXPECT_NE(src.map(), dst.map());
    EXPECT_TRUE(images_equal(src, dst));
    EXPECT_EQ(0, std::memcmp(src.map(), dst.map(), 256 * sizeof(tagRGBA)));
    EXPECT_EQ(nullptr, dst.m_progressproc);

    kiv viactor(src);
    EXPECT_TRUE(images_equal(src, viactor));
    EXPECT_EQ(8, viactor.bits());

    kiv from;
    ASSERT_EQ(1, from.copyfrom(&src));
    src.pixels()[0].r ^= 0xFF;  // the copies must not share the buffer
    EXPECT_NE(src.pixels()[0].r, from.pixels()[0].r);
}

TEST(ImageCopy, KeepsTheMapOfARaisedPalettizedImage) {
    // Operations raise palettized images to 24 bits and keep their map; a copy must carry
    // that map into a destination that create() gives none.
    kiv src = random_image(5, 5, 8, 2);
    src.m_bits = 24;
    kiv dst;
    ASSERT_EQ(1, src.copyto(&dst));
    ASSERT_NE(nullptr, dst.map());
    EXPECT_EQ(256, dst.colors());
    EXPECT_EQ(0, std::memcmp(src.map(), dst.map(), 256 * sizeof(tagRGBA)));
    // Fewer entries than the depth allows: exactly those are copied.
    kiv small = random_image(3, 3, 8, 3);
    small.m_colors = 7;
    kiv d2;
    ASSERT_EQ(1, d2.copyfrom(&small));
    EXPECT_EQ(7, d2.colors());
    EXPECT_EQ(0, std::memcmp(small.map(), d2.map(), 7 * sizeof(tagRGBA)));
}

TEST(ImageMove, TakesBuffersAndEmptiesTheSource) {
    kiv a = random_image(4, 3, 4, 6);
    tagRGBA* pix = a.pixels();
    tagRGBA* map = a.map();
    a.m_progressproc = [](int, int) {};
    kiv b(2, 2, 24);
    b.m_progressproc = [](int, int) {};
    ASSERT_EQ(1, b.movefrom(&a));
    EXPECT_EQ(pix, b.pixels());
    EXPECT_EQ(map, b.map());
    EXPECT_EQ(4, b.bits());
    EXPECT_EQ(16, b.colors());
    EXPECT_EQ(nullptr, b.m_progressproc);
    EXPECT_EQ(nullptr, a.pixels());
    EXPECT_EQ(nullptr, a.m_progressproc);
    EXPECT_EQ(0, a.width());
}

// Exposes the protected clearparam so a shallow copy can be dropped without a double free.
struct Holder : kiv {
    using kiv::clearparam;
};

TEST(ImageAssign, IsShallow) {
    kiv b = random_image(3, 3, 8, 7);
    b.m_progressproc = [](int, int) {};
    Holder a;
    kiv& r = a.kiv::operator=(b);
    EXPECT_EQ(&r, static_cast<kiv*>(&a));
    EXPECT_EQ(a.m_progressproc, b.m_progressproc);
    EXPECT_EQ(a.pixels(), b.pixels());
    EXPECT_EQ(a.map(), b.map());
    EXPECT_EQ(a.colors(), b.colors());
    a.m_pixels[0].r = 99;
    EXPECT_EQ(99, b.pixels()[0].r);
    a.clearparam();
    EXPECT_EQ(nullptr, a.pixels());
}

TEST(ImageRect, ValidaterectClips) {
    kiv img(10, 8, 24);
    tagRECT out{};
    EXPECT_EQ(1, img.validaterect(nullptr, &out));
    EXPECT_EQ(0, out.left);
    EXPECT_EQ(10, out.right);
    EXPECT_EQ(8, out.bottom);

    struct Case {
        tagRECT in;
        int result;
        tagRECT out;
    } cases[] = {
        {{5, 5, 5, 9}, 1, {0, 0, 10, 8}},          // empty (right == left): whole image
        {{3, 6, 9, 2}, 1, {0, 0, 10, 8}},          // empty (bottom < top)
        {{-4, -2, 3, 4}, 1, {0, 0, 3, 4}},         // partly outside left and top
        {{7, 5, 20, 30}, 1, {7, 5, 10, 8}},        // partly outside right and bottom
        {{12, 1, 15, 3}, 0, {12, 1, 10, 3}},       // wholly to the right: left > right
        {{-9, -9, -1, -1}, 0, {0, 0, -1, -1}},     // wholly above-left
        {{INT_MIN, INT_MIN, INT_MAX, INT_MAX}, 1, {0, 0, 10, 8}},
    };
    for (const Case& c : cases) {
        tagRECT in = c.in, o{};
        EXPECT_EQ(c.result, img.validaterect(&in, &o)) << c.in.left << "," << c.in.top;
        EXPECT_EQ(c.out.left, o.left);
        EXPECT_EQ(c.out.top, o.top);
        EXPECT_EQ(c.out.right, o.right);
        EXPECT_EQ(c.out.bottom, o.bottom);
    }
    kiv empty;
    EXPECT_EQ(1, empty.validaterect(nullptr, &out));
    EXPECT_EQ(0, out.right);
    EXPECT_EQ(1, img.validaterect(nullptr, nullptr));  // no out: still answers
}

TEST(ImageAccessors, PosAddressesRowMajor) {
    kiv img(6, 4, 24);
    EXPECT_EQ(img.pixels() + 2 * 6 + 5, img.pos(5, 2));
    EXPECT_EQ(img.pixels(), img.pos(0, 0));
    EXPECT_EQ(6, img.width());
    EXPECT_EQ(4, img.height());
    EXPECT_EQ(24, img.bits());
}

TEST(ImageCopy, IntoADestinationOfTheSamePixelCount) {
    // Reusing the destination's buffer must still give create()'s state: new shape, the
    // source's depth and map, no callback.
    kiv src = random_image(3, 4, 4, 8);
    kiv dst = random_image(6, 2, 24, 9);
    dst.m_progressproc = [](int, int) {};
    ASSERT_EQ(1, src.copyto(&dst));
    EXPECT_EQ(3, dst.width());
    EXPECT_EQ(4, dst.height());
    EXPECT_EQ(4, dst.bits());
    EXPECT_EQ(16, dst.colors());
    EXPECT_EQ(nullptr, dst.m_progressproc);
    EXPECT_EQ(0, std::memcmp(src.map(), dst.map(), 16 * sizeof(tagRGBA)));
    EXPECT_TRUE(images_equal(src, dst));
    kiv back = random_image(2, 6, 8, 10);
    ASSERT_EQ(1, back.copyfrom(&dst));
    EXPECT_EQ(16, back.colors());
    EXPECT_TRUE(images_equal(src, back));
}

// Images past the heap's range come from the system: each must start zeroed even when the
// previous one of the same size was written over and released, and copies and moves
// between such images and small ones must release each through the right path (the
// sanitizer build checks the release).
TEST(ImageCreate, LargeImagesStartZeroedAndReleaseCleanly) {
    for (int round = 0; round < 3; ++round) {
        kiv big(2048, 1100 + round, 24);  // about 9 MB
        ASSERT_NE(big.m_pixels, nullptr);
        for (int i = 0; i < big.m_packets; i += 997) ASSERT_EQ(0u, reinterpret_cast<const unsigned&>(big.m_pixels[i])) << i;
        std::memset(static_cast<void*>(big.m_pixels), 0xA5, static_cast<std::size_t>(big.m_packets) * sizeof(tagRGBA));

        kiv small(3, 3, 24);
        ASSERT_TRUE(small.copyfrom(&big));  // small takes a large buffer
        EXPECT_EQ(0xA5, small.m_pixels[small.m_packets - 1].r);
        kiv moved;
        moved.movefrom(&small);
        EXPECT_EQ(nullptr, small.m_pixels);
        EXPECT_EQ(0xA5, moved.m_pixels[0].g);
        ASSERT_TRUE(big.create(5, 5, 24));  // large released, small allocated
        EXPECT_EQ(0, big.m_pixels[24].b);
    }
}
