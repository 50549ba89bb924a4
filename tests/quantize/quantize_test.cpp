// kiv::quantize and its palette forms: first-appearance palettes, depths, refusals, the
// palettized-pixel invariant, and several threads at once.
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "kiv.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;
using kivtest::same_rgba;

namespace {

// Each pixel's colour is its map entry and byte 3 its index; at most `limit` entries.
::testing::AssertionResult palettized(kiv& img, int limit) {
    if (img.m_bits > 8 || !img.m_map || img.m_colors < 1 || img.m_colors > limit)
        return ::testing::AssertionFailure() << "bits " << img.m_bits << " colors " << img.m_colors;
    int want_bits = img.m_colors <= 2 ? 1 : img.m_colors <= 16 ? 4 : 8;
    if (img.m_bits != want_bits) return ::testing::AssertionFailure() << "bits " << img.m_bits << " for " << img.m_colors;
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA& p = img.m_pixels[i];
        if (p.a >= img.m_colors) return ::testing::AssertionFailure() << "pixel " << i << " index " << int(p.a);
        const tagRGBA& m = img.m_map[p.a];
        if (p.r != m.r || p.g != m.g || p.b != m.b)
            return ::testing::AssertionFailure() << "pixel " << i << " " << kivtest::rgba_str(p) << " map "
                                                 << kivtest::rgba_str(m);
    }
    return ::testing::AssertionSuccess();
}

// An image cycling through `n` distinct colours in a scrambled order.
kiv few_colours(int w, int h, int n, std::vector<tagRGBA>* order) {
    kiv img(w, h, 24);
    order->clear();
    for (int i = 0; i < img.m_packets; ++i) {
        int k = (i * 7 + i / 5) % n;
        tagRGBA c{BYTE(k * 37), BYTE(255 - k * 11), BYTE(k * 5 + 1), BYTE(i)};
        img.m_pixels[i] = c;
        bool seen = false;
        for (const tagRGBA& o : *order) seen |= o.r == c.r && o.g == c.g && o.b == c.b;
        if (!seen) order->push_back(c);
    }
    return img;
}

bool same_image_and_map(kiv& a, kiv& b) {
    if (a.m_bits != b.m_bits || a.m_colors != b.m_colors || !images_equal(a, b)) return false;
    for (int i = 0; i < a.m_colors; ++i)
        if (!same_rgba(a.m_map[i], b.m_map[i])) return false;
    return true;
}

}  // namespace

TEST(Quantize, FewColoursKeepTheirFirstAppearanceOrder) {
    struct Case {
        int distinct, colors, mode, bits;
    } cases[] = {{5, 16, 1, 4}, {2, 256, 3, 1}, {1, 256, 4, 1}, {3, 3, 0, 4}, {16, 16, 4, 4}, {17, 256, 1, 8},
                 {200, 200, 3, 8}};
    for (const Case& c : cases) {
        std::vector<tagRGBA> order;
        kiv img = few_colours(23, 19, c.distinct, &order);
        kiv orig(img);
        img.quantize(c.mode, c.colors, nullptr);
        ASSERT_EQ(c.bits, img.m_bits) << c.distinct;
        ASSERT_EQ(c.distinct, img.m_colors) << c.distinct;
        for (int i = 0; i < c.distinct; ++i)
            EXPECT_TRUE(order[i].r == img.m_map[i].r && order[i].g == img.m_map[i].g && order[i].b == img.m_map[i].b)
                << c.distinct << " entry " << i;
        // No dithering: every pixel keeps its colour.
        for (int i = 0; i < img.m_packets; ++i) {
            const tagRGBA &p = img.m_pixels[i], &o = orig.m_pixels[i];
            ASSERT_TRUE(p.r == o.r && p.g == o.g && p.b == o.b) << c.distinct << " pixel " << i;
        }
        EXPECT_TRUE(palettized(img, c.colors));
    }
}

TEST(Quantize, MoreColoursThanAskedGoThroughTheMedianCut) {
    for (int colors : {1, 2, 3, 16, 17, 100, 256})
        for (int mode = 0; mode <= 4; ++mode) {
            kiv img = random_image(37, 29, 24, 1000 + colors * 5 + mode);
            img.quantize(mode, colors, nullptr);
            EXPECT_TRUE(palettized(img, colors)) << colors << " mode " << mode;
            // A many-coloured image sorted by lightness: entries ascend.
            for (int i = 1; i < img.m_colors; ++i) {
                const tagRGBA &a = img.m_map[i - 1], &b = img.m_map[i];
                int la = (std::min({a.r, a.g, a.b}) + std::max({a.r, a.g, a.b})) >> 1;
                int lb = (std::min({b.r, b.g, b.b}) + std::max({b.r, b.g, b.b})) >> 1;
                ASSERT_LE(la, lb) << colors << " entry " << i;
            }
        }
}

TEST(Quantize, GivenAndFixedPalettes) {
    for (int which = 0; which <= 8; ++which)
        for (int mode = 0; mode <= 4; ++mode) {
            kiv img = random_image(31, 17, which % 2 ? 8 : 24, 50 + which * 5 + mode);
            ASSERT_EQ(1, img.quantize_wdp(mode, which));
            int n = which == 0 ? 16 : which == 3 ? 216 : 256;
            ASSERT_EQ(n, img.m_colors) << which;
            EXPECT_TRUE(palettized(img, 256)) << which << " mode " << mode;
        }
    // Exact match against a palette lacking colours: the previous pixel's index.
    kiv img(4, 1, 24);
    const tagRGBA px[4] = {{9, 9, 9, 0}, {1, 2, 3, 0}, {7, 7, 7, 0}, {4, 5, 6, 0}};
    for (int i = 0; i < 4; ++i) img.m_pixels[i] = px[i];
    const tagSYSCOL cols[3] = {{4, 5, 6}, {1, 2, 3}, {1, 2, 3}};
    img.quantize_wpal(2, cols, 3);
    ASSERT_EQ(4, img.m_bits);
    const int want[4] = {0, 1, 1, 0};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(want[i], img.m_pixels[i].a) << i;
    EXPECT_TRUE(palettized(img, 3));
}

TEST(Quantize, RefusalsLeaveTheImageUnchanged) {
    kiv img = random_image(13, 11, 24, 3);
    kiv orig(img);
    std::vector<unsigned char> block(sizeof(tagLOGPALETTE) + 300 * sizeof(PALETTEENTRY), 0);
    tagLOGPALETTE* lp = reinterpret_cast<tagLOGPALETTE*>(block.data());
    lp->palVersion = 0x300;
    const tagSYSCOL cols[2] = {{1, 2, 3}, {4, 5, 6}};
    for (int mode : {-1, 5, 1000}) {
        img.quantize(mode, 16, nullptr);
        EXPECT_EQ(0, img.quantize_wdp(mode, 0));
        img.quantize_wpal(mode, cols, 2);
    }
    for (int colors : {0, -1, 257, 1 << 30}) img.quantize(0, colors, nullptr);
    for (int entries : {0, 257, 300}) {
        lp->palNumEntries = static_cast<WORD>(entries);
        img.quantize(0, 16, lp);
    }
    for (int which : {-1, 9, 100}) EXPECT_EQ(0, img.quantize_wdp(0, which));
    img.quantize_wpal(0, nullptr, 2);
    img.quantize_wpal(0, cols, 0);
    img.quantize_wpal(0, cols, 257);
    EXPECT_EQ(24, img.m_bits);
    EXPECT_EQ(nullptr, img.m_map);
    EXPECT_TRUE(images_equal(orig, img));

    kiv empty;
    empty.quantize(0, 16, nullptr);
    EXPECT_EQ(1, empty.quantize_wdp(0, 1));
    EXPECT_EQ(nullptr, empty.m_pixels);
    EXPECT_EQ(nullptr, empty.m_map);
}

TEST(Quantize, PalettizedInputRequantizes) {
    kiv img = random_image(40, 30, 8, 77);
    img.quantize(1, 16, nullptr);
    EXPECT_TRUE(palettized(img, 16));
    img.quantize(4, 2, nullptr);
    EXPECT_TRUE(palettized(img, 2));
}

// Threads quantizing different images at once give what one call at a time gives; the
// larger images also use the row-parallel paths from several callers.
TEST(Quantize, ConcurrentCallsOnDifferentImages) {
    struct Job {
        int w, h, mode, colors, which;
    };
    std::vector<Job> jobs;
    for (int i = 0; i < 12; ++i)
        jobs.push_back(Job{i % 3 == 0 ? 520 : 60 + i, i % 3 == 0 ? 510 : 40 + 2 * i, i % 5, 2 + 21 * i, i % 4 == 3 ? i % 9 : -1});
    auto run = [](const Job& j, kiv& img) {
        if (j.which >= 0)
            img.quantize_wdp(j.mode, j.which);
        else
            img.quantize(j.mode, j.colors, nullptr);
    };
    std::vector<kiv> serial, parallel;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        serial.push_back(random_image(jobs[i].w, jobs[i].h, 24, 900 + i));
        parallel.push_back(kiv(serial.back()));
        run(jobs[i], serial.back());
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (std::size_t i = static_cast<std::size_t>(t); i < jobs.size(); i += 4) run(jobs[i], parallel[i]);
        });
    for (std::thread& t : threads) t.join();
    for (std::size_t i = 0; i < jobs.size(); ++i) EXPECT_TRUE(same_image_and_map(serial[i], parallel[i])) << "job " << i;
}
