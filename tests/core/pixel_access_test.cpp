// Pixel access: counts, packing and clipping of columns, rows, blocks and planes.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
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

namespace {
// Per-pixel model of every member: the (buffer element, pixel) pairs it must copy. Element i
// of a column or row stands for the i-th pixel from (x, y); block element r * w' + c for
// pixel (x + c, y + r), w' = min(w, width - x); pixels outside the image are skipped.
struct Pair {
    int elem, px, py;
};
std::vector<Pair> line_pairs(int W, int H, int x, int y, int n, int dx, int dy) {
    std::vector<Pair> v;
    for (int i = 0; i < n; ++i) {
        int px = x + i * dx, py = y + i * dy;
        if (px >= 0 && px < W && py >= 0 && py < H) v.push_back({i, px, py});
    }
    return v;
}
std::vector<Pair> block_pairs(int W, int H, int x, int y, int w, int h) {
    std::vector<Pair> v;
    const int wc = std::min(w, W - x);
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < wc; ++c)
            if (x + c >= 0 && x + c < W && y + r >= 0 && y + r < H) v.push_back({r * wc + c, x + c, y + r});
    return v;
}
}  // namespace

TEST(PixelAccess, EveryFormMatchesThePerPixelModelOnRandomPlacements) {
    constexpr int W = 7, H = 5;
    constexpr std::size_t kBuf = 4 * 16 * 16;
    kivtest::Rng rng(31);
    for (int round = 0; round < 300; ++round) {
        const int x = rng.below(19) - 9, y = rng.below(15) - 7, n = rng.below(17) - 2;
        const int w = rng.below(17) - 2, h = rng.below(13) - 2, plane = rng.below(6) - 1;
        struct Form {
            const char* name;
            int unit;  // bytes per buffer element
            int first; // first pixel byte copied
            bool set;
            std::vector<Pair> pairs;
        };
        const std::vector<Pair> none;
        const bool good_plane = plane >= 0 && plane <= 3;
        const Form forms[] = {
            {"getcol", 4, 0, false, line_pairs(W, H, x, y, n, 0, 1)},
            {"setcol", 4, 0, true, line_pairs(W, H, x, y, n, 0, 1)},
            {"getcol_rgb", 3, 0, false, line_pairs(W, H, x, y, n, 0, 1)},
            {"setcol_rgb", 3, 0, true, line_pairs(W, H, x, y, n, 0, 1)},
            {"getrow", 4, 0, false, block_pairs(W, H, x, y, n, 1)},
            {"setrow", 4, 0, true, block_pairs(W, H, x, y, n, 1)},
            {"getrow_rgb", 3, 0, false, line_pairs(W, H, x, y, n, 1, 0)},
            {"setrow_rgb", 3, 0, true, line_pairs(W, H, x, y, n, 1, 0)},
            {"getpacket", 4, 0, false, block_pairs(W, H, x, y, w, h)},
            {"setpacket", 4, 0, true, block_pairs(W, H, x, y, w, h)},
            {"getplane", 1, plane, false, good_plane ? block_pairs(W, H, x, y, w, h) : none},
            {"setplane", 1, plane, true, good_plane ? block_pairs(W, H, x, y, w, h) : none},
        };
        for (const Form& f : forms) {
            kiv img = random_image(W, H, 24, 40 + round);
            kiv expect(img);
            std::vector<unsigned char> buf(kBuf), want(kBuf);
            for (auto& b : buf) b = rng.byte();
            want = buf;
            auto pixel_byte = [](kiv& im, const Pair& p, int k) -> BYTE& {
                return reinterpret_cast<BYTE*>(&im.m_pixels[p.py * W + p.px])[k];
            };
            for (const Pair& p : f.pairs)
                for (int k = 0; k < f.unit; ++k) {
                    unsigned char& e = want[static_cast<std::size_t>(p.elem * f.unit + k)];
                    if (f.set)
                        pixel_byte(expect, p, f.first + k) = e;
                    else
                        e = pixel_byte(img, p, f.first + k);
                }
            const std::string what = std::string(f.name) + " x " + std::to_string(x) + " y " + std::to_string(y) +
                                     " n " + std::to_string(n) + " w " + std::to_string(w) + " h " +
                                     std::to_string(h) + " plane " + std::to_string(plane);
            const std::string name = f.name;
            auto* b = buf.data();
            auto* q = reinterpret_cast<tagRGBA*>(b);
            if (name == "getcol") img.getcol(q, x, y, n);
            if (name == "setcol") img.setcol(q, x, y, n);
            if (name == "getcol_rgb") img.getcol_rgb(b, x, y, n);
            if (name == "setcol_rgb") img.setcol_rgb(b, x, y, n);
            if (name == "getrow") img.getrow(q, x, y, n);
            if (name == "setrow") img.setrow(q, x, y, n);
            if (name == "getrow_rgb") img.getrow_rgb(b, x, y, n);
            if (name == "setrow_rgb") img.setrow_rgb(b, x, y, n);
            if (name == "getpacket") img.getpacket(q, x, y, w, h);
            if (name == "setpacket") img.setpacket(q, x, y, w, h);
            if (name == "getplane") img.getplane(b, x, y, w, h, plane);
            if (name == "setplane") img.setplane(b, x, y, w, h, plane);
            ASSERT_TRUE(buf == want) << what;
            ASSERT_TRUE(kivtest::images_equal(expect, img)) << what;
        }
    }
}
