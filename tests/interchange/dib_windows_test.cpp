// Windows hosts: DIBs through the clipboard formats (CF_DIBV5 and CF_DIB, each also as the
// system converts it to the other) and the premultiplied form drawn by AlphaBlend.
#ifdef _WIN32
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "support/test_images.h"

TEST(DibWindows, ClipboardRoundTrips) {
    kiv img = kivtest::random_image(9, 4, 32, 11);
    for (UINT format : {CF_DIBV5, CF_DIB}) {
        ASSERT_TRUE(OpenClipboard(nullptr) && EmptyClipboard());
        ASSERT_TRUE(SetClipboardData(format, format == CF_DIBV5 ? img.createdib_alpha(0) : img.createdib()));
        ASSERT_TRUE(CloseClipboard() && OpenClipboard(nullptr));
        for (UINT as : {CF_DIBV5, CF_DIB}) {
            kiv back;
            const char* why = nullptr;
            EXPECT_EQ(back.attachdib_any(GetClipboardData(as), &why), 1) << format << " as " << as << ": " << why;
            for (int i = 0; i < back.packets(); ++i) {  // alpha survives where no conversion ran
                const tagRGBA p = img.pixels()[i], q = back.pixels()[i];
                ASSERT_TRUE(p.r == q.r && p.g == q.g && p.b == q.b && (as != format || p.a == q.a)) << format << as;
            }
        }
        CloseClipboard();
    }
}

// Over a grey of 100: (colour x alpha + 100 x (255 - alpha)) / 255, within GDI's own rounding.
TEST(DibWindows, AlphaBlendTakesThePremultipliedForm) {
    const int w = 8, h = 3;
    kiv img = kivtest::random_image(w, h, 32, 12);
    HGLOBAL dib = img.createdib_alpha(1);
    auto* info = static_cast<BITMAPINFO*>(GlobalLock(dib));
    HDC src_dc = CreateCompatibleDC(nullptr), dst_dc = CreateCompatibleDC(nullptr);
    BYTE *src_bits = nullptr, *dst_bits = nullptr;  // both bottom-up, as the DIB
    HBITMAP src = CreateDIBSection(src_dc, info, DIB_RGB_COLORS, reinterpret_cast<void**>(&src_bits), nullptr, 0);
    HBITMAP dst = CreateDIBSection(dst_dc, info, DIB_RGB_COLORS, reinterpret_cast<void**>(&dst_bits), nullptr, 0);
    ASSERT_TRUE(src && dst);
    std::memcpy(src_bits, reinterpret_cast<BYTE*>(info) + info->bmiHeader.biSize, 4 * w * h);
    std::memset(dst_bits, 100, 4 * w * h);
    SelectObject(src_dc, src), SelectObject(dst_dc, dst);
    ASSERT_TRUE(AlphaBlend(dst_dc, 0, 0, w, h, src_dc, 0, 0, w, h, BLENDFUNCTION{AC_SRC_OVER, 0, 255, AC_SRC_ALPHA}));
    GdiFlush();
    for (int i = 0; i < w * h; ++i) {
        const tagRGBA p = img.pixels()[(h - 1 - i / w) * w + i % w];
        for (int c = 0; c < 3; ++c)
            EXPECT_LE(std::abs(dst_bits[4 * i + 2 - c] - ((&p.r)[c] * p.a + 100 * (255 - p.a)) / 255), 2) << i;
    }
    DeleteDC(src_dc), DeleteDC(dst_dc), DeleteObject(src), DeleteObject(dst), GlobalUnlock(dib), GlobalFree(dib);
}
#endif
