// Pixel access: counts, packing and clipping of columns, rows, blocks and planes, against a
// per-pixel model on random placements, with one worked example of block packing.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kiv.h"
#include "support/checks.h"
#include "support/test_images.h"

using kivtest::px;
using kivtest::random_image;
using kivtest::same_rgba;

TEST(PixelAccess, PacketsArePackedAtTheClippedWidth) {
    kiv img = random_image(6, 4, 24, 14);
    kivtest::Guarded g, rows;
    img.getpacket(g.as<tagRGBA>(), 6 - 2, 0, 5, 3);  // w' = 2: six pixels, two a row
    EXPECT_TRUE(g.intact(6 * 4));
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 2; ++c) EXPECT_TRUE(same_rgba(px(img, 4 + c, r), g.as<tagRGBA>()[r * 2 + c]));
    img.getpacket(rows.as<tagRGBA>(), 0, 3, 2, 5);  // rows stop at the last image row
    EXPECT_TRUE(rows.intact(2 * 4));
    EXPECT_TRUE(same_rgba(px(img, 1, 3), rows.as<tagRGBA>()[1]));

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
