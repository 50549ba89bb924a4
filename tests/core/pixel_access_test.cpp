// Pixel access: counts, packing and clipping of columns, rows, blocks and planes.
#include <gtest/gtest.h>

#include <vector>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::px;
using kivtest::random_image;
using kivtest::same_rgba;

namespace {
const tagRGBA kSentinel{0xEE, 0xDD, 0xCC, 0xBB};

// Buffer of n pixels filled with the sentinel; count of entries no longer equal to it.
std::vector<tagRGBA> sentinel_buf(std::size_t n) { return std::vector<tagRGBA>(n, kSentinel); }
int touched(const std::vector<tagRGBA>& v) {
    int n = 0;
    for (const auto& p : v) n += !same_rgba(p, kSentinel);
    return n;
}
}  // namespace

TEST(PixelAccess, ColumnStopsAtTheBottom) {
    kiv img = random_image(5, 6, 24, 11);
    auto buf = sentinel_buf(8);
    img.getcol(buf.data(), 2, 4, 5);  // rows 4 and 5 only
    EXPECT_EQ(2, touched(buf));
    EXPECT_TRUE(same_rgba(px(img, 2, 4), buf[0]));
    EXPECT_TRUE(same_rgba(px(img, 2, 5), buf[1]));

    // Negative start: buffer element i still stands for row y + i.
    buf = sentinel_buf(8);
    img.getcol(buf.data(), 1, -2, 4);
    EXPECT_TRUE(same_rgba(kSentinel, buf[0]));
    EXPECT_TRUE(same_rgba(kSentinel, buf[1]));
    EXPECT_TRUE(same_rgba(px(img, 1, 0), buf[2]));
    EXPECT_TRUE(same_rgba(px(img, 1, 1), buf[3]));

    // Columns outside the image copy nothing.
    for (int x : {-1, 5, 1000}) {
        buf = sentinel_buf(8);
        img.getcol(buf.data(), x, 0, 6);
        EXPECT_EQ(0, touched(buf)) << x;
    }
}

TEST(PixelAccess, SetColumnAndRgbForms) {
    kiv img = random_image(4, 4, 24, 12);
    kiv before(img);
    std::vector<tagRGBA> col = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 9, 9, 9}};
    img.setcol(col.data(), 3, 2, 3);  // only rows 2 and 3 exist
    EXPECT_TRUE(same_rgba(col[0], px(img, 3, 2)));
    EXPECT_TRUE(same_rgba(col[1], px(img, 3, 3)));
    EXPECT_TRUE(same_rgba(px(before, 3, 1), px(img, 3, 1)));

    unsigned char rgb[6] = {10, 20, 30, 40, 50, 60};
    BYTE alpha = px(img, 0, 1).a;
    img.setcol_rgb(rgb, 0, 1, 2);
    EXPECT_EQ(10, px(img, 0, 1).r);
    EXPECT_EQ(30, px(img, 0, 1).b);
    EXPECT_EQ(alpha, px(img, 0, 1).a);
    EXPECT_EQ(60, px(img, 0, 2).b);
    unsigned char back[9] = {};
    img.getcol_rgb(back, 0, 1, 3);
    EXPECT_EQ(10, back[0]);
    EXPECT_EQ(40, back[3]);
    EXPECT_EQ(px(img, 0, 3).g, back[7]);
}

TEST(PixelAccess, RowCountIsClippedAtTheRightEdge) {
    kiv img = random_image(8, 3, 24, 13);
    auto buf = sentinel_buf(12);
    img.getrow(buf.data(), 8 - 3, 1, 10);
    EXPECT_EQ(3, touched(buf));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(same_rgba(px(img, 5 + i, 1), buf[i]));

    // Rows outside the image and columns at or past the width copy nothing.
    for (auto [x, y] : {std::pair{0, -1}, {0, 3}, {8, 0}, {100, 1}}) {
        buf = sentinel_buf(12);
        img.getrow(buf.data(), x, y, 4);
        EXPECT_EQ(0, touched(buf)) << x << "," << y;
    }
    // A negative x copies only the part inside, at its own buffer positions.
    buf = sentinel_buf(12);
    img.getrow(buf.data(), -2, 0, 4);
    EXPECT_EQ(2, touched(buf));
    EXPECT_TRUE(same_rgba(px(img, 0, 0), buf[2]));

    std::vector<tagRGBA> row = {{1, 1, 1, 1}, {2, 2, 2, 2}, {3, 3, 3, 3}};
    img.setrow(row.data(), 6, 2, 3);
    EXPECT_TRUE(same_rgba(row[0], px(img, 6, 2)));
    EXPECT_TRUE(same_rgba(row[1], px(img, 7, 2)));
}

TEST(PixelAccess, RowRgbKeepsAlpha) {
    kiv img(4, 2, 24);
    img.m_pixels[0] = tagRGBA{1, 2, 3, 77};
    unsigned char out[12] = {};
    img.getrow_rgb(out, 0, 0, 100);
    EXPECT_EQ(1, out[0]);
    EXPECT_EQ(2, out[1]);
    EXPECT_EQ(3, out[2]);
    unsigned char in[12] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0, 0};
    for (int i = 0; i < 4; ++i) img.m_pixels[4 + i].a = static_cast<BYTE>(50 + i);
    img.setrow_rgb(in, 1, 1, 10);  // three pixels fit
    EXPECT_EQ(9, px(img, 1, 1).r);
    EXPECT_EQ(2, px(img, 3, 1).g);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(50 + i, px(img, i, 1).a);
    EXPECT_EQ(0, px(img, 0, 1).r);
}

TEST(PixelAccess, PacketsArePackedAtTheClippedWidth) {
    kiv img = random_image(6, 4, 24, 14);
    auto buf = sentinel_buf(15);
    img.getpacket(buf.data(), 6 - 2, 0, 5, 3);
    EXPECT_EQ(6, touched(buf));
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 2; ++c) EXPECT_TRUE(same_rgba(px(img, 4 + c, r), buf[r * 2 + c]));

    // Rows stop at the last image row.
    buf = sentinel_buf(15);
    img.getpacket(buf.data(), 0, 3, 2, 5);
    EXPECT_EQ(2, touched(buf));

    // Round trip through setpacket with a block partly above-left of the image.
    kiv copy(img);
    std::vector<tagRGBA> blk(9, tagRGBA{7, 7, 7, 7});
    img.setpacket(blk.data(), -1, -1, 3, 3);  // w' = 3, only (0..1, 0..1) inside
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x) {
            bool in = x < 2 && y < 2;
            EXPECT_TRUE(same_rgba(in ? tagRGBA{7, 7, 7, 7} : px(copy, x, y), px(img, x, y))) << x << "," << y;
        }
}

TEST(PixelAccess, PlanesCopyOneByteAndRefuseBadPlanes) {
    kiv img = random_image(5, 5, 24, 15);
    kiv orig(img);
    std::vector<unsigned char> buf(30, 0xAB);
    img.getplane(buf.data(), 3, 3, 4, 4, 1);  // w' = 2, h' = 2
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 2; ++c) EXPECT_EQ(px(img, 3 + c, 3 + r).g, buf[r * 2 + c]);
    EXPECT_EQ(0xAB, buf[4]);

    for (int plane : {-1, 4, 99}) {
        std::vector<unsigned char> b2(30, 0xAB);
        img.getplane(b2.data(), 0, 0, 5, 5, plane);
        for (unsigned char v : b2) ASSERT_EQ(0xAB, v);
        img.setplane(b2.data(), 0, 0, 5, 5, plane);
    }
    EXPECT_TRUE(kivtest::images_equal(img, orig));

    std::vector<unsigned char> idx(25);
    for (int i = 0; i < 25; ++i) idx[i] = static_cast<unsigned char>(i);
    img.setplane(idx.data(), 0, 0, 5, 5, 3);
    for (int i = 0; i < 25; ++i) {
        EXPECT_EQ(i, img.m_pixels[i].a);
        EXPECT_EQ(orig.m_pixels[i].r, img.m_pixels[i].r);
    }
    // A block with h' < 1 or w' < 1 does nothing.
    img.setplane(idx.data(), 5, 0, 2, 2, 0);
    img.setplane(idx.data(), 0, 5, 2, 2, 0);
    img.setplane(idx.data(), 0, 0, 2, -3, 0);
    EXPECT_EQ(orig.m_pixels[0].r, img.m_pixels[0].r);
}

TEST(PixelAccess, CopyPlane) {
    kiv img = random_image(7, 3, 24, 16);
    kiv orig(img);
    img.copyplane(1, 1);
    img.copyplane(0, 7);
    img.copyplane(-1, 0);
    EXPECT_TRUE(kivtest::images_equal(img, orig));
    img.copyplane(3, 0);
    for (int i = 0; i < img.packets(); ++i) {
        EXPECT_EQ(orig.m_pixels[i].a, img.m_pixels[i].r);
        EXPECT_EQ(orig.m_pixels[i].g, img.m_pixels[i].g);
    }
}

TEST(PixelAccess, NullBuffersAndEmptyImagesAreIgnored) {
    kiv img = random_image(3, 3, 24, 17);
    kiv orig(img);
    img.getcol(nullptr, 0, 0, 3);
    img.setcol(nullptr, 0, 0, 3);
    img.setrow(nullptr, 0, 0, 3);
    img.setrow_rgb(nullptr, 0, 0, 3);
    img.setpacket(nullptr, 0, 0, 3, 3);
    img.setplane(nullptr, 0, 0, 3, 3, 0);
    EXPECT_TRUE(kivtest::images_equal(img, orig));
    kiv empty;
    tagRGBA b[4] = {};
    empty.getpacket(b, 0, 0, 2, 2);
    empty.setcol(b, 0, 0, 2);
    empty.copyplane(0, 1);
}
