// Fixed palettes and the ordered-dither threshold matrix.
#include <gtest/gtest.h>

#include <set>
#include <tuple>
#include <vector>

#include "quantize/quantize.h"

namespace {

using Col = std::tuple<int, int, int>;

std::vector<Col> palette(int which) {
    int n = 0;
    const tagSYSCOL* c = kivquant::fixed_palette(which, &n);
    std::vector<Col> v;
    for (int i = 0; c && i < n; ++i) v.emplace_back(c[i].r, c[i].g, c[i].b);
    return v;
}

void expect_palette(int which, const std::vector<Col>& want) {
    std::vector<Col> got = palette(which);
    ASSERT_EQ(want.size(), got.size()) << "palette " << which;
    for (std::size_t i = 0; i < want.size(); ++i)
        EXPECT_EQ(want[i], got[i]) << "palette " << which << " entry " << i;
}

}  // namespace

TEST(FixedPalettes, ExactTables) {
    expect_palette(0, {{0, 0, 0},     {128, 0, 0},   {0, 128, 0},   {128, 128, 0}, {0, 0, 128},   {128, 0, 128},
                       {0, 128, 128}, {192, 192, 192}, {128, 128, 128}, {255, 0, 0}, {0, 255, 0}, {255, 255, 0},
                       {0, 0, 255},   {255, 0, 255}, {0, 255, 255}, {255, 255, 255}});

    std::vector<Col> p2;
    const int desc[6] = {255, 204, 153, 102, 51, 0};
    for (int r : desc)
        for (int g : desc)
            for (int b : desc) p2.emplace_back(r, g, b);
    p2.pop_back();
    const int lv[10] = {238, 221, 187, 170, 136, 119, 85, 68, 34, 17};
    for (int v : lv) p2.emplace_back(v, 0, 0);
    for (int v : lv) p2.emplace_back(0, v, 0);
    for (int v : lv) p2.emplace_back(0, 0, v);
    for (int v : lv) p2.emplace_back(v, v, v);
    p2.emplace_back(0, 0, 0);
    expect_palette(2, p2);
    EXPECT_EQ(Col(255, 255, 204), p2[1]);
    EXPECT_EQ(Col(0, 0, 51), p2[214]);

    std::vector<Col> p3;
    for (int r = 0; r < 6; ++r)
        for (int g = 0; g < 6; ++g)
            for (int b = 0; b < 6; ++b) p3.emplace_back(51 * r, 51 * g, 51 * b);
    expect_palette(3, p3);

    std::vector<Col> p6;
    for (int k = 0; k < 256; ++k)
        p6.push_back(k <= 85 ? Col(3 * k, 0, 0) : k <= 170 ? Col(255, 3 * (k - 85), 0) : Col(255, 255, 3 * (k - 170)));
    expect_palette(6, p6);
    EXPECT_EQ(Col(255, 0, 0), p6[85]);
    EXPECT_EQ(Col(255, 255, 0), p6[170]);

    auto f = [](int j) { return std::min(255, 3 * j + j / 28); };
    std::vector<Col> p7;
    for (int k = 0; k < 256; ++k)
        p7.push_back(k <= 84 ? Col(0, 0, f(k))
                     : k == 85 ? Col(0, 0, 255)
                     : k <= 170 ? Col(0, f(k - 85), 255)
                                : Col(3 * (k - 170), 255, 255));
    expect_palette(7, p7);
    // Hand-checked anchors of the cold ramp: f(28) = 85, both doubled colours.
    EXPECT_EQ(Col(0, 0, 85), p7[28]);
    EXPECT_EQ(2, std::count(p7.begin(), p7.end(), Col(0, 0, 255)));
    EXPECT_EQ(2, std::count(p7.begin(), p7.end(), Col(0, 255, 255)));
}

TEST(FixedPalettes, StructuredTables) {
    for (int which : {1, 2, 4, 5, 6, 7, 8}) EXPECT_EQ(256u, palette(which).size()) << which;
    EXPECT_EQ(nullptr, kivquant::fixed_palette(9, nullptr));
    EXPECT_EQ(nullptr, kivquant::fixed_palette(-1, nullptr));

    // 1: static colours at both ends, the grid from (42,63,170) on, six extras.
    std::vector<Col> p1 = palette(1);
    const std::vector<Col> low = {{0, 0, 0},     {128, 0, 0},   {0, 128, 0},     {128, 128, 0},   {0, 0, 128},
                                  {128, 0, 128}, {0, 128, 128}, {128, 128, 128}, {192, 220, 192}, {166, 202, 240}};
    const std::vector<Col> high = {{255, 251, 240}, {160, 160, 164}, {128, 128, 128}, {255, 0, 0},   {0, 255, 0},
                                   {255, 255, 0},   {0, 0, 255},     {255, 0, 255},   {0, 255, 255}, {255, 255, 255}};
    EXPECT_EQ(low, std::vector<Col>(p1.begin(), p1.begin() + 10));
    EXPECT_EQ(high, std::vector<Col>(p1.begin() + 246, p1.end()));
    EXPECT_EQ(Col(42, 63, 170), p1[10]);
    const std::set<int> gr = {0, 42, 85, 127, 170, 212, 255}, gg = {0, 31, 63, 95, 127, 159, 191, 223, 255},
                        gb = {0, 85, 170, 255};
    const std::set<Col> extras = {{204, 204, 255}, {255, 204, 255}, {51, 255, 255},
                                  {102, 255, 255}, {153, 255, 255}, {204, 255, 255}};
    std::set<Col> extras_seen;
    for (int i = 10; i < 246; ++i) {
        auto [r, g, b] = p1[i];
        if (gr.count(r) && gg.count(g) && gb.count(b)) continue;
        EXPECT_TRUE(extras.count(p1[i])) << "entry " << i;
        extras_seen.insert(p1[i]);
    }
    EXPECT_EQ(extras, extras_seen);

    // 4 and 5: wheels that move one channel at a time.
    struct Wheel {
        int which;
        Col first, last;
        int lo, max_step;
    } wheels[] = {{4, {255, 0, 255}, {255, 0, 0}, 0, 5}, {5, {128, 255, 128}, {128, 255, 255}, 128, 3}};
    for (const Wheel& w : wheels) {
        std::vector<Col> p = palette(w.which);
        EXPECT_EQ(w.first, p.front()) << w.which;
        EXPECT_EQ(w.last, p.back()) << w.which;
        for (std::size_t i = 1; i < p.size(); ++i) {
            auto [r0, g0, b0] = p[i - 1];
            auto [r1, g1, b1] = p[i];
            int moved = (r0 != r1) + (g0 != g1) + (b0 != b1);
            int step = std::abs(r1 - r0) + std::abs(g1 - g0) + std::abs(b1 - b0);
            EXPECT_EQ(1, moved) << w.which << " entry " << i;
            EXPECT_LE(step, w.max_step) << w.which << " entry " << i;
            for (int v : {r1, g1, b1}) EXPECT_GE(v, w.lo) << w.which << " entry " << i;
        }
    }

    // 8: warm ramp, 101 distinct colours, never brightening.
    std::vector<Col> p8 = palette(8);
    EXPECT_EQ(Col(255, 255, 128), p8.front());
    EXPECT_EQ(Col(0, 0, 0), p8.back());
    EXPECT_EQ(101u, std::set<Col>(p8.begin(), p8.end()).size());
    for (std::size_t i = 1; i < p8.size(); ++i) {
        auto [r0, g0, b0] = p8[i - 1];
        auto [r1, g1, b1] = p8[i];
        EXPECT_TRUE(r1 <= r0 && g1 <= g0 && b1 <= b0) << "entry " << i;
        EXPECT_TRUE(r1 >= g1 && g1 >= b1) << "warm: red >= green >= blue at " << i;
    }
}

TEST(ThresholdMatrix, Properties) {
    const std::uint8_t* m = kivquant::threshold_matrix();
    int count[64] = {};
    for (int i = 0; i < 128 * 128; ++i) {
        ASSERT_LT(m[i], 64) << i;
        ++count[m[i]];
    }
    for (int v = 0; v < 64; ++v) EXPECT_EQ(256, count[v]) << "value " << v;
    const int head[16] = {0, 41, 23, 5, 17, 39, 7, 15, 62, 23, 40, 51, 31, 47, 9, 32};
    for (int k = 0; k < 16; ++k) EXPECT_EQ(head[k], m[k]) << "first row, column " << k;
    // No shift p < 128 repeats the matrix along either axis (not even partially overlapping).
    for (int p = 1; p < 128; ++p) {
        bool rows_repeat = true, cols_repeat = true;
        for (int a = 0; a + p < 128 && (rows_repeat || cols_repeat); ++a)
            for (int b = 0; b < 128; ++b) {
                if (m[(a + p) * 128 + b] != m[a * 128 + b]) rows_repeat = false;
                if (m[b * 128 + a + p] != m[b * 128 + a]) cols_repeat = false;
            }
        EXPECT_FALSE(rows_repeat) << "period " << p << " along the first index";
        EXPECT_FALSE(cols_repeat) << "period " << p << " along the second index";
    }
}
