// GDI interchange (Windows only): bitmaps out and back, palettes out and in.
#ifdef _WIN32
#include <gtest/gtest.h>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::random_image;

namespace {
// Red, green and blue of every pixel agree (alpha is not part of a GDI bitmap's colour).
::testing::AssertionResult same_colours(kiv& a, kiv& b) {
    if (a.width() != b.width() || a.height() != b.height()) return ::testing::AssertionFailure() << "size";
    for (int i = 0; i < a.packets(); ++i) {
        const tagRGBA &p = a.pixels()[i], &q = b.pixels()[i];
        if (p.r != q.r || p.g != q.g || p.b != q.b)
            return ::testing::AssertionFailure() << "pixel " << i << ": " << kivtest::rgba_str(p) << " vs " << kivtest::rgba_str(q);
    }
    return ::testing::AssertionSuccess();
}
}  // namespace

TEST(Gdi, BitmapRoundTripsKeepTheColours) {
    for (int bits : {1, 4, 8, 24}) {
        kiv img = random_image(13, 5, bits, 40 + bits);
        HPALETTE pal = nullptr;
        HBITMAP bmp = img.createbitmap(&pal);
        ASSERT_NE(nullptr, bmp) << bits;
        EXPECT_EQ(bits < 24, pal != nullptr) << bits;
        kiv back(bmp, pal);
        ASSERT_NE(nullptr, back.pixels()) << bits;
        EXPECT_TRUE(same_colours(img, back)) << bits;
        kiv again;
        EXPECT_EQ(1, again.attachbitmap(bmp, nullptr));  // the stock palette stands in
        EXPECT_TRUE(same_colours(img, again)) << bits;
        DeleteObject(bmp);
        if (pal) DeleteObject(pal);
    }
    kiv empty;
    HPALETTE pal = reinterpret_cast<HPALETTE>(1);
    EXPECT_EQ(nullptr, empty.createbitmap(&pal));
    EXPECT_EQ(nullptr, pal);
    EXPECT_EQ(0, empty.attachbitmap(nullptr, nullptr));
}

TEST(Gdi, PalettesOutAndIn) {
    kiv src = random_image(4, 4, 8, 1);
    HPALETTE pal = src.createpalette();
    ASSERT_NE(nullptr, pal);
    PALETTEENTRY e[256];
    ASSERT_EQ(256u, GetPaletteEntries(pal, 0, 256, e));
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(src.map()[i].r, e[i].peRed);
        EXPECT_EQ(src.map()[i].b, e[i].peBlue);
    }
    kiv dst = random_image(6, 3, 8, 2);
    ASSERT_EQ(1, dst.replace_palette(pal));
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(src.map()[i].g, dst.map()[i].g);
        EXPECT_EQ(0, dst.map()[i].a);
    }
    for (int i = 0; i < dst.packets(); ++i) {  // pixels refreshed from the new map
        const tagRGBA& p = dst.pixels()[i];
        EXPECT_EQ(src.map()[p.a].r, p.r);
    }
    kiv small = random_image(3, 3, 4, 3), small0(small);
    EXPECT_EQ(0, small.replace_palette(pal));  // 16 entries vs 256
    EXPECT_TRUE(kivtest::images_equal(small0, small));
    EXPECT_EQ(0, small.replace_palette(nullptr));
    DeleteObject(pal);
    kiv rgb(2, 2, 24);
    EXPECT_EQ(nullptr, rgb.createpalette());
}
#endif
