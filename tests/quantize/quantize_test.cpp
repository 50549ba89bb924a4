// kiv::quantize and its palette forms: a given palette by hand, the palettized-pixel
// invariant, and several threads at once.
#include <gtest/gtest.h>

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

bool same_image_and_map(kiv& a, kiv& b) {
    if (a.m_bits != b.m_bits || a.m_colors != b.m_colors || !images_equal(a, b)) return false;
    for (int i = 0; i < a.m_colors; ++i)
        if (!same_rgba(a.m_map[i], b.m_map[i])) return false;
    return true;
}

}  // namespace

// First appearance, the median cut and every fixed palette are held by the model pipeline in
// reference_test.cpp and by the golden hashes; here the hand-checked and threaded cases.
TEST(Quantize, GivenPaletteExample) {
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

TEST(Quantize, PalettizedInputRequantizes) {
    kiv img = random_image(40, 30, 8, 77);
    img.quantize(1, 16, nullptr);
    EXPECT_TRUE(palettized(img, 16));
    img.quantize(4, 2, nullptr);
    EXPECT_TRUE(palettized(img, 2));
    kiv empty;  // (refusals are rows of the bad-input table)
    EXPECT_EQ(1, empty.quantize_wdp(0, 1));
    EXPECT_EQ(nullptr, empty.m_pixels);
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
