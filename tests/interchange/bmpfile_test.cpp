// BMP packer: files out and back, top-down files, gaps before the rows, bad files.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kiv.h"
#include "interchange/bmpfile.h"
#include "support/test_images.h"

using kivtest::images_equal;

TEST(BmpFile, RoundTripsThroughFileBytes) {
    for (int bits : {1, 4, 8, 24}) {
        kiv img = kivtest::random_image(7, 3, bits, 60 + bits);
        if (bits == 24)
            for (int i = 0; i < img.packets(); ++i) img.pixels()[i].a = 0;
        HGLOBAL dib = img.createdib();
        std::vector<unsigned char> file;
        ASSERT_TRUE(kivdib::bmp_from_dib(dib, &file));
        GlobalFree(dib);
        ASSERT_GE(file.size(), 54u);
        EXPECT_EQ('B', file[0]);
        std::uint32_t total, off;
        std::memcpy(&total, &file[2], 4);
        std::memcpy(&off, &file[10], 4);
        EXPECT_EQ(file.size(), total);
        EXPECT_EQ(54u + 4u * (bits < 24 ? unsigned(img.colors()) : 0u), off);

        HGLOBAL back = kivdib::dib_from_bmp(file.data(), file.size());
        ASSERT_NE(nullptr, back);
        kiv got(back);
        GlobalFree(back);
        EXPECT_TRUE(images_equal(img, got)) << bits;

        // A gap between table and rows (bfOffBits further on) and a top-down file.
        std::vector<unsigned char> gap(file.begin(), file.begin() + off);
        gap.insert(gap.end(), 6, 0xEE);
        gap.insert(gap.end(), file.begin() + off, file.end());
        std::uint32_t off2 = off + 6;
        std::memcpy(&gap[10], &off2, 4);
        std::vector<unsigned char> flipped = file;
        const std::size_t stride = ((7 * std::size_t(bits) + 31) / 32) * 4;
        for (int r = 0; r < 3; ++r) std::memcpy(&flipped[off + r * stride], &file[off + (2 - r) * stride], stride);
        std::int32_t neg = -3;
        std::memcpy(&flipped[22], &neg, 4);
        for (const auto* v : {&gap, &flipped}) {
            HGLOBAL d = kivdib::dib_from_bmp(v->data(), v->size());
            ASSERT_NE(nullptr, d);
            kiv k(d);
            GlobalFree(d);
            EXPECT_TRUE(images_equal(img, k)) << bits;
        }
    }
}

TEST(BmpFile, RefusesWhatIsNoBmp) {
    kiv img = kivtest::random_image(5, 5, 8, 1);
    HGLOBAL dib = img.createdib();
    std::vector<unsigned char> file;
    ASSERT_TRUE(kivdib::bmp_from_dib(dib, &file));
    GlobalFree(dib);
    EXPECT_EQ(nullptr, kivdib::dib_from_bmp(nullptr, 100));
    EXPECT_EQ(nullptr, kivdib::dib_from_bmp(file.data(), 53));
    std::vector<unsigned char> bad = file;
    bad[0] = 'X';
    EXPECT_EQ(nullptr, kivdib::dib_from_bmp(bad.data(), bad.size()));
    bad = file;
    bad[10] = 3, bad[11] = 0;  // rows would start inside the header
    EXPECT_EQ(nullptr, kivdib::dib_from_bmp(bad.data(), bad.size()));
    bad = file;
    bad[14] = 12;  // a 12-byte core header
    EXPECT_EQ(nullptr, kivdib::dib_from_bmp(bad.data(), bad.size()));
    EXPECT_EQ(nullptr, kivdib::dib_from_bmp(file.data(), file.size() - 1));  // a row cut short
    std::vector<unsigned char> out{1, 2};
    EXPECT_FALSE(kivdib::bmp_from_dib(nullptr, &out));
    EXPECT_EQ(2u, out.size());
}
