// BMP packer: files out and back, top-down files, gaps before the rows, bad files.
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
// The image a BMP file's bytes give through the packer; null pixels when it refuses them.
kiv from_bmp(const std::vector<unsigned char>& f, std::size_t size) {
    kiv img;
    HGLOBAL dib = kivdib::dib_from_bmp(f.data(), size);
    if (dib) img.attachdib(dib);
    GlobalFree(dib);
    return img;
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
        // As written, with a gap between table and rows (bfOffBits further on), top-down.
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
        for (const auto* v : {&file, &gap, &flipped}) {
            kiv back = from_bmp(*v, v->size());
            EXPECT_TRUE(images_equal(img, back)) << bits;
        }
    }
}

TEST(BmpFile, RefusesWhatIsNoBmp) {
    kiv img = kivtest::random_image(5, 5, 8, 1);
    const std::vector<unsigned char> file = bmp_of(img);
    EXPECT_EQ(nullptr, kivdib::dib_from_bmp(nullptr, 100));
    EXPECT_EQ(nullptr, from_bmp(file, 53).pixels());
    EXPECT_EQ(nullptr, from_bmp(file, file.size() - 1).pixels());  // a row cut short
    std::vector<unsigned char> bad = file;
    bad[0] = 'X';
    EXPECT_EQ(nullptr, from_bmp(bad, bad.size()).pixels());
    bad = file;
    bad[10] = 3, bad[11] = 0;  // rows would start inside the header
    EXPECT_EQ(nullptr, from_bmp(bad, bad.size()).pixels());
    bad = file;
    bad[14] = 12;  // a 12-byte core header
    EXPECT_EQ(nullptr, from_bmp(bad, bad.size()).pixels());
    std::vector<unsigned char> out{1, 2};
    EXPECT_FALSE(kivdib::bmp_from_dib(nullptr, &out));
    EXPECT_EQ(2u, out.size());
}
