// zoom_pixel, zoom_near, zoom_linear, zoom_inframe: index rules, the one-pixel guards and
// the bilinear arithmetic against a plain model.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "core/simd.h"
#include "geometry/geometry.h"
#include "kiv.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

namespace {

// Single-precision sample position as described: trunc(n * x / m) and its fraction, with
// positions at or past the last pixel moved to halfway between the last two.
void model_sample(int x, int n, int m, int* i, float* f) {
    float p = static_cast<float>(n) * static_cast<float>(x) / static_cast<float>(m);
    *i = static_cast<int>(p);
    *f = p - static_cast<float>(*i);
    if (*i >= n - 1) {
        *i = n - 2;
        *f = 0.5f;
    }
}

// zoom_near's index: the sample rounded up from a fraction of one half, kept inside.
int model_near(int x, int n, int m) {
    int i;
    float f;
    model_sample(x, n, m, &i, &f);
    return std::max(0, std::min(n - 1, i + (f >= 0.5f ? 1 : 0)));
}

// The source column (rows: row) each target column (row) reads, from a one-row (one-column)
// image whose pixel k holds k.
std::vector<int> indexes_read(int (kiv::*op)(int, int), bool rows, int from, int to) {
    kiv img(rows ? 1 : from, rows ? from : 1, 24);
    for (int k = 0; k < from; ++k) img.m_pixels[k] = tagRGBA{static_cast<BYTE>(k), 0, 0, 0};
    EXPECT_EQ(1, rows ? (img.*op)(1, to) : (img.*op)(to, 1));
    std::vector<int> out;
    for (int k = 0; k < img.m_packets; ++k) out.push_back(img.m_pixels[k].r);
    return out;
}

kiv model_linear(kiv& src, int w, int h) {
    kiv out(w, h, 24);
    const int W = src.m_width, H = src.m_height;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int ix, iy;
            float fx, fy;
            model_sample(x, W, w, &ix, &fx);
            model_sample(y, H, h, &iy, &fy);
            // One-pixel axes: both neighbours are the single pixel.
            int x0 = W == 1 ? 0 : ix, x1 = W == 1 ? 0 : ix + 1, y0 = H == 1 ? 0 : iy, y1 = H == 1 ? 0 : iy + 1;
            const BYTE* p00 = &src.pos(x0, y0)->r;
            const BYTE* p01 = &src.pos(x1, y0)->r;
            const BYTE* p10 = &src.pos(x0, y1)->r;
            const BYTE* p11 = &src.pos(x1, y1)->r;
            tagRGBA& o = out.m_pixels[(std::size_t)y * w + x];
            for (int c = 0; c < 3; ++c) {
                float v = (p10[c] * (1.0f - fx) + p11[c] * fx) * fy + (p00[c] * (1.0f - fx) + p01[c] * fx) * (1.0f - fy);
                (&o.r)[c] = static_cast<BYTE>(static_cast<int>(v));
            }
        }
    return out;
}

}  // namespace

TEST(ZoomDirect, IndexRules) {
    struct Case {
        int (kiv::*op)(int, int);
        bool rows;
        int from, to;
        std::vector<int> expect;
    } cases[] = {
        // Rows round to nearest (MulDiv), columns truncate.
        {&kiv::zoom_pixel, true, 3, 2, {0, 2}},
        {&kiv::zoom_pixel, false, 3, 2, {0, 1}},
        // Enlarging rows by 2 or more rounds past the last row: clamped.
        {&kiv::zoom_pixel, true, 2, 4, {0, 1, 1, 1}},
        {&kiv::zoom_pixel, true, 3, 7, {0, 0, 1, 1, 2, 2, 2}},
        {&kiv::zoom_pixel, false, 3, 7, {0, 0, 0, 1, 1, 2, 2}},
        // Nearest: half up; positions at or past the last pixel take it.
        {&kiv::zoom_near, false, 4, 8, {0, 1, 1, 2, 2, 3, 3, 3}},
        {&kiv::zoom_near, true, 4, 8, {0, 1, 1, 2, 2, 3, 3, 3}},
        {&kiv::zoom_near, false, 5, 2, {0, 3}},
        {&kiv::zoom_near, true, 1, 3, {0, 0, 0}},
        {&kiv::zoom_near, false, 1, 3, {0, 0, 0}},
    };
    for (const Case& c : cases) {
        std::vector<int> got = indexes_read(c.op, c.rows, c.from, c.to);
        EXPECT_EQ(c.expect, got) << (c.rows ? "rows " : "columns ") << c.from << " -> " << c.to;
    }
}

// Whole images at several thread counts: pixel (x, y) is source (column x, row y) of the
// index rules, repeated rows included (they are copied from the row before).
TEST(ZoomDirect, ReplicatedRowsMatchThePerAxisRules) {
    const int shapes[][4] = {{7, 5, 23, 17}, {13, 11, 5, 29}, {3, 40, 9, 121}, {9, 3, 4, 2}};
    for (int (kiv::*op)(int, int) : {&kiv::zoom_near, &kiv::zoom_pixel})
        for (int threads : {1, 2, 3})
            for (auto& s : shapes) {
                const kivtest::ThreadCap cap(threads);
                const bool nearest = op == &kiv::zoom_near;
                std::vector<int> cols, rows;
                for (int x = 0; x < s[2]; ++x) cols.push_back(nearest ? model_near(x, s[0], s[2]) : std::min(s[0] * x / s[2], s[0] - 1));
                for (int y = 0; y < s[3]; ++y)
                    rows.push_back(nearest ? model_near(y, s[1], s[3]) : std::min((s[1] * y + s[3] / 2) / s[3], s[1] - 1));
                kiv src = random_image(s[0], s[1], 32, std::uint64_t(s[2] * 100 + s[3]));
                kiv img(src);
                ASSERT_EQ(1, (img.*op)(s[2], s[3]));
                kiv expect(s[2], s[3], 32);
                for (int y = 0; y < s[3]; ++y)
                    for (int x = 0; x < s[2]; ++x) expect.m_pixels[y * s[2] + x] = px(src, cols[x], rows[y]);
                ASSERT_TRUE(images_equal(expect, img)) << s[0] << "x" << s[1] << " -> " << s[2] << "x" << s[3] << ", "
                                                       << threads << " threads";
            }
}

TEST(ZoomDirect, LinearSamplesTheLastPixelHalfwayBetweenTheLastTwo) {
    kiv img(4, 2, 24);
    const BYTE row[4] = {0, 100, 200, 50};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x) img.m_pixels[y * 4 + x] = tagRGBA{row[x], row[x], row[x], 9};
    ASSERT_EQ(1, img.zoom_linear(8, 2));
    const int expect[8] = {0, 50, 100, 150, 200, 125, 125, 125};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 8; ++x) {
            EXPECT_EQ(expect[x], px(img, x, y).g) << x << "," << y;
            EXPECT_EQ(0, px(img, x, y).a);
        }
}

TEST(ZoomDirect, LinearMatchesThePlainModel) {
    // Taller results reuse each source row's mix across output rows (also across chunk
    // boundaries at several thread counts); shorter ones read pixels directly.
    const int shapes[][4] = {{13, 11, 29, 5}, {13, 11, 4, 23}, {1, 7, 5, 3},    {7, 1, 3, 4},
                             {1, 1, 6, 2},    {2, 2, 3, 3},    {37, 23, 101, 97}, {41, 60, 18, 61}};
    kivtest::on_every_path(3, [&](int path, int threads) {
        for (auto& s : shapes) {
            kiv src = random_image(s[0], s[1], 8, 40 + s[2]);
            kiv expect = model_linear(src, s[2], s[3]);
            kiv img(src);
            ASSERT_EQ(1, img.zoom_linear(s[2], s[3]));
            EXPECT_EQ(24, img.bits());
            EXPECT_TRUE(images_equal(expect, img))
                << s[0] << "x" << s[1] << " -> " << s[2] << "x" << s[3] << ", " << threads << " threads, path " << path;
        }
    });
}

TEST(ZoomDirect, ReplicationKeepsDepthMapAndIndexes) {
    kiv img = random_image(5, 4, 4, 12);
    kiv src(img);
    ASSERT_EQ(1, img.zoom_near(9, 7));
    EXPECT_EQ(4, img.bits());
    EXPECT_EQ(src.colors(), img.colors());
    for (int i = 0; i < img.colors(); ++i) EXPECT_TRUE(kivtest::same_rgba(src.m_map[i], img.m_map[i]));
    for (int i = 0; i < img.m_packets; ++i)  // every pixel agrees with its map entry
        EXPECT_TRUE(kivtest::same_rgba(tagRGBA{img.m_map[img.m_pixels[i].a].r, img.m_map[img.m_pixels[i].a].g,
                                               img.m_map[img.m_pixels[i].a].b, img.m_pixels[i].a},
                                       img.m_pixels[i]));
    kiv grown(src);
    ASSERT_EQ(1, grown.zoom_pixel(10, 8));
    EXPECT_EQ(4, grown.bits());
    EXPECT_TRUE(kivtest::same_rgba(px(src, 4, 3), px(grown, 9, 7)));
}

// A palettized image whose map the host removed: the result has no map either, so map and
// count agree (the members sharing the map copy).
TEST(ZoomDirect, AnImageWithoutItsMapGivesNoMap) {
    tagRECT part{1, 1, 4, 3};
    const std::function<void(kiv&)> ops[] = {[](kiv& i) { i.zoom_pixel(9, 4); }, [](kiv& i) { i.zoom_near(2, 7); },
                                             [&](kiv& i) { i.crop(&part); }, [](kiv& i) { i.rotate(1); }};
    for (const auto& op : ops) {
        kiv img = random_image(5, 4, 4, 7);
        img.alloccmap(0);
        op(img);
        EXPECT_EQ(img.m_map, nullptr);
        EXPECT_EQ(img.m_colors, 0);
        EXPECT_EQ(img.m_bits, 4);
    }
}

TEST(ZoomDirect, InframeShrinksToTheTighterSideOrLeavesAFittingImage) {
    kiv img = random_image(100, 50, 8, 14);
    kiv before(img);
    EXPECT_EQ(1, img.zoom_inframe(100, 60));
    EXPECT_TRUE(images_equal(before, img));
    EXPECT_EQ(8, img.bits());
    ASSERT_EQ(1, img.zoom_inframe(30, 30));  // s = min(0.3, 0.6)
    kiv expect(before);
    ASSERT_EQ(1, expect.zoom_linear(30, 15));
    EXPECT_TRUE(images_equal(expect, img));
    kiv tall(before);
    ASSERT_EQ(1, tall.zoom_inframe(1000, 10));  // only the height limits: s = 0.2
    EXPECT_EQ(20, tall.width());
    EXPECT_EQ(10, tall.height());
}
