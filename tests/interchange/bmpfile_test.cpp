// BMP packer: DIBs out as files and back through the full reader, unreadable DIBs.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "interchange/bmpfile.h"
#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;

namespace {
std::vector<unsigned char> bmp_of(kiv& img) {
    HGLOBAL dib = img.createdib();
    std::vector<unsigned char> file;
    EXPECT_TRUE(kivdib::bmp_from_dib(dib, &file));
    GlobalFree(dib);
    return file;
}
}  // namespace

TEST(BmpFile, RoundTripsThroughFileBytes) {
    for (int bits : {1, 4, 8, 24}) {
        kiv img = kivtest::random_image(7, 3, bits, 60 + bits);
        if (bits == 24)
            for (int i = 0; i < img.packets(); ++i) img.pixels()[i].a = 0;
        std::vector<unsigned char> file = bmp_of(img);
        ASSERT_GE(file.size(), 54u);
        EXPECT_EQ('B', file[0]);
        std::uint32_t total, off;
        std::memcpy(&total, &file[2], 4);
        std::memcpy(&off, &file[10], 4);
        EXPECT_EQ(file.size(), total);
        EXPECT_EQ(54u + 4u * (bits < 24 ? unsigned(img.colors()) : 0u), off);
        kiv back;
        ASSERT_EQ(1, back.loadbmp_bytes(file.data(), file.size(), nullptr));
        EXPECT_TRUE(images_equal(img, back)) << bits;
    }
}

TEST(BmpFile, RefusesAnUnreadableDib) {
    std::vector<unsigned char> out{1, 2};
    EXPECT_FALSE(kivdib::bmp_from_dib(nullptr, &out));
    EXPECT_EQ(2u, out.size());
}
