// Compositors against per-pixel models: weighting, clipping against both images,
// palettized inputs, an image composited onto itself.
#include <gtest/gtest.h>


#include "fill/fill_reference.h"
#include "support/test_images.h"

using filltest::ref_blend;
using filltest::ref_mix;
using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

namespace {
// Blend src pixel (X - x, Y - y) (offset by sx, sy) into each target pixel where both exist,
// with a weight from the pixel's place.
template <class Weight>
void ref_place(kiv& dst, kiv& src, int x, int y, int sx, int sy, int sw, int sh, int mode, Weight weight) {
    kiv s(src);  // read from a copy, as if src were another image
    for (int Y = 0; Y < dst.m_height; ++Y)
        for (int X = 0; X < dst.m_width; ++X) {
            const long long u = static_cast<long long>(X) - x, v = static_cast<long long>(Y) - y;
            if (u < 0 || v < 0 || u >= sw || v >= sh) continue;
            const tagRGBA sp = px(s, static_cast<int>(sx + u), static_cast<int>(sy + v));
            tagRGBA& p = dst.m_pixels[static_cast<std::size_t>(Y) * dst.m_width + X];
            ref_mix(p, ref_blend(mode, p, sp), weight(sp, u, v));
        }
    if (dst.m_bits < 24) dst.m_bits = 24;
}
}  // namespace

TEST(AddLayer, AlphaAndOpacityWeightingWithClipping) {
    kivtest::Rng rng(31);
    for (int round = 0; round < 300; ++round) {
        const int bits = round % 5 == 0 ? 8 : 24, lbits = round % 7 == 0 ? 4 : (round % 2 ? 32 : 24);
        kiv img = random_image(1 + rng.below(40), 1 + rng.below(6), bits, 400 + round), want(img);
        kiv layer = random_image(1 + rng.below(40), 1 + rng.below(6), lbits, 900 + round);
        const int x = rng.below(90) - 45, y = rng.below(14) - 7, mode = rng.below(20), op = 1 + rng.below(255);
        const int usealpha = rng.below(2);
        const bool overlap = x < img.m_width && y < img.m_height && x + layer.m_width > 0 && y + layer.m_height > 0;
        ASSERT_EQ(img.addlayer(&layer, x, y, op, mode, usealpha), overlap ? 1 : 0);
        if (overlap)
            ref_place(want, layer, x, y, 0, 0, layer.m_width, layer.m_height, mode,
                      [&](tagRGBA s, long long, long long) { return usealpha && lbits >= 24 ? s.a * op / 255 : op; });
        ASSERT_TRUE(images_equal(img, want)) << "round " << round;
        EXPECT_EQ(img.m_bits, want.m_bits);
    }
    // Alpha 0 draws nothing, alpha 255 at opacity 255 replaces.
    kiv img(2, 1, 24), layer(2, 1, 32);
    layer.m_pixels[0] = tagRGBA{200, 100, 50, 0};
    layer.m_pixels[1] = tagRGBA{200, 100, 50, 255};
    ASSERT_EQ(img.addlayer(&layer, 0, 0, 255, 0, 1), 1);
    EXPECT_TRUE(kivtest::same_rgba(px(img, 0, 0), tagRGBA{0, 0, 0, 0}));
    EXPECT_TRUE(kivtest::same_rgba(px(img, 1, 0), tagRGBA{200, 100, 50, 0}));
}

TEST(Merge, RectangleOfSourceWithOpacity) {
    kivtest::Rng rng(32);
    for (int round = 0; round < 300; ++round) {
        kiv img = random_image(1 + rng.below(30), 1 + rng.below(6), round % 4 ? 24 : 1, 500 + round), want(img);
        kiv src = random_image(1 + rng.below(30), 1 + rng.below(6), round % 3 ? 24 : 8, 600 + round);
        tagRECT r{rng.below(40) - 5, rng.below(10) - 2, rng.below(40) - 5, rng.below(10) - 2};
        const int x = rng.below(60) - 30, y = rng.below(12) - 6, op = 1 + rng.below(255);
        tagRECT c;
        const bool inside = src.validaterect(&r, &c) != 0;
        const int got = img.merge(&src, &r, x, y, op);
        const bool overlap = inside && x < img.m_width && y < img.m_height && x + (c.right - c.left) > 0 &&
                             y + (c.bottom - c.top) > 0;
        ASSERT_EQ(got, overlap ? 1 : 0);
        if (overlap)
            ref_place(want, src, x, y, c.left, c.top, c.right - c.left, c.bottom - c.top, 0,
                      [&](tagRGBA, long long, long long) { return op; });
        ASSERT_TRUE(images_equal(img, want)) << "round " << round;
    }
}

TEST(FadePaste, OpacityRampsInEveryDirection) {
    kivtest::Rng rng(33);
    for (int round = 0; round < 240; ++round) {
        kiv img = random_image(1 + rng.below(30), 1 + rng.below(8), 24, 700 + round), want(img);
        kiv src = random_image(1 + rng.below(30), 1 + rng.below(8), round % 3 ? 24 : 8, 800 + round);
        const int x = rng.below(40) - 20, y = rng.below(12) - 6, dir = round % 8;
        const int op0 = rng.below(300) - 20, op1 = rng.below(300) - 20;
        const int a = std::clamp(op0, 0, 255), b = std::clamp(op1, 0, 255);
        const bool overlap = x < img.m_width && y < img.m_height && x + src.m_width > 0 && y + src.m_height > 0;
        ASSERT_EQ(img.fadepaste(&src, x, y, op0, op1, dir), overlap && (a || b) ? 1 : 0);
        if (overlap && (a || b))
            ref_place(want, src, x, y, 0, 0, src.m_width, src.m_height, 0, [&](tagRGBA, long long u, long long v) {
                bool rev;
                const int t = filltest::ref_ramp_index(dir, u, v, src.m_width, src.m_height, 255, &rev);
                return rev ? b + (a - b) * t / 255 : a + (b - a) * t / 255;
            });
        ASSERT_TRUE(images_equal(img, want)) << "round " << round;
    }
    // Toward the right from 0 to 255: the first column is kept, the last replaced.
    kiv img(3, 1, 24), src(3, 1, 24);
    src.solidfill(nullptr, RGB(255, 255, 255), 255, 0);
    ASSERT_EQ(img.fadepaste(&src, 0, 0, 0, 255, 4), 1);
    EXPECT_EQ(px(img, 0, 0).r, 0);
    EXPECT_EQ(px(img, 1, 0).r, 127);  // w = 255 * 127 / 255
    EXPECT_EQ(px(img, 2, 0).r, 255);
}

TEST(FadeInRect, TowardAColour) {
    kivtest::Rng rng(34);
    for (int round = 0; round < 200; ++round) {
        kiv img = random_image(1 + rng.below(30), 1 + rng.below(8), round % 4 ? 24 : 8, 1000 + round), want(img);
        const int x = rng.below(36) - 4, y = rng.below(12) - 4, w = 1 + rng.below(30), h = 1 + rng.below(8);
        tagRECT r{x, y, x + w, y + h};
        const int dir = round % 8, op0 = rng.below(256), op1 = 1 + rng.below(255);
        const COLORREF c = RGB(rng.byte(), rng.byte(), rng.byte());
        const bool inside = x < img.m_width && y < img.m_height && x + w > 0 && y + h > 0;
        ASSERT_EQ(img.fadeinrect(&r, c, op0, op1, dir), inside ? 1 : 0);
        if (inside) {
            for (int Y = std::max(y, 0); Y < std::min(y + h, want.m_height); ++Y)
                for (int X = std::max(x, 0); X < std::min(x + w, want.m_width); ++X) {
                    bool rev;
                    const int t = filltest::ref_ramp_index(dir, X - x, Y - y, w, h, 255, &rev);
                    const int wgt = rev ? op1 + (op0 - op1) * t / 255 : op0 + (op1 - op0) * t / 255;
                    ref_mix(want.m_pixels[Y * want.m_width + X], filltest::rgb(c), wgt);
                }
            want.m_bits = 24;
        }
        ASSERT_TRUE(images_equal(img, want)) << "round " << round;
        EXPECT_EQ(img.m_bits, want.m_bits);
    }
}

TEST(TextureFill, TilesFromTheRectangleCorner) {
    kivtest::Rng rng(35);
    for (int round = 0; round < 200; ++round) {
        kiv img = random_image(1 + rng.below(40), 1 + rng.below(8), 24, 1100 + round), want(img);
        kiv tex = random_image(1 + rng.below(7), 1 + rng.below(4), round % 3 ? 24 : 8, 1200 + round);
        const int x = rng.below(50) - 8, y = rng.below(12) - 4, w = 1 + rng.below(50), h = 1 + rng.below(12);
        tagRECT r{x, y, x + w, y + h};
        const int mode = rng.below(20), op = 1 + rng.below(255);
        const bool inside = x < img.m_width && y < img.m_height && x + w > 0 && y + h > 0;
        ASSERT_EQ(img.texturefill(&r, &tex, op, mode), inside ? 1 : 0);
        filltest::ref_box(want, x, y, w, h, op, mode, [&](long long u, long long v) {
            return px(tex, static_cast<int>(u % tex.m_width), static_cast<int>(v % tex.m_height));
        });
        ASSERT_TRUE(images_equal(img, want)) << "round " << round;
    }
}

TEST(Compositing, OntoItselfAsIfFromACopy) {
    kiv img = random_image(23, 9, 24, 40);
    for (int k = 0; k < 4; ++k) {
        kiv a(img), b(img), copy(img);
        switch (k) {
            case 0: a.addlayer(&a, 3, -2, 200, 7, 0), b.addlayer(&copy, 3, -2, 200, 7, 0); break;
            case 1: a.merge(&a, nullptr, -4, 1, 99), b.merge(&copy, nullptr, -4, 1, 99); break;
            case 2: a.fadepaste(&a, 2, 2, 10, 250, 7), b.fadepaste(&copy, 2, 2, 10, 250, 7); break;
            default: {
                tagRECT r{1, 1, 20, 8};
                a.texturefill(&r, &a, 180, 13), b.texturefill(&r, &copy, 180, 13);
            }
        }
        EXPECT_TRUE(images_equal(a, b)) << "case " << k;
    }
}
