// Gradient tables and gradient fills.
#include <gtest/gtest.h>

#include <cstdlib>

#include "fill/blend.h"
#include "fill/fill_reference.h"
#include "support/paths.h"
#include "support/test_images.h"

using filltest::rgb;
using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

namespace {
struct Table {
    tagLOGPALETTE* t;
    ~Table() { kiv::free_gradtable(t); }
    const PALETTEENTRY& operator[](int i) const { return t->palPalEntry[i]; }
};
bool entry_is(const PALETTEENTRY& e, int r, int g, int b) { return e.peRed == r && e.peGreen == g && e.peBlue == b; }
}  // namespace

TEST(GradTable, Anchors) {
    tagGRADCOLORS bw[2] = {{RGB(0, 0, 0), 0}, {RGB(255, 255, 255), 1000}};
    Table t{kiv::make_gradtable(bw, 2, 1000)};
    ASSERT_NE(t.t, nullptr);
    EXPECT_EQ(t.t->palVersion, 0x300);
    EXPECT_EQ(t.t->palNumEntries, 1000);
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(entry_is(t[i], i * 255 / 1000, i * 255 / 1000, i * 255 / 1000)) << i;
    EXPECT_EQ(t[999].peRed, 254);

    tagGRADCOLORS rb[2] = {{RGB(255, 0, 0), 300}, {RGB(0, 0, 255), 700}};
    Table u{kiv::make_gradtable(rb, 2, 1000)};
    ASSERT_NE(u.t, nullptr);
    for (int i = 0; i < 300; ++i) ASSERT_TRUE(entry_is(u[i], 255, 0, 0)) << i;
    for (int i = 300; i < 700; ++i) {
        const double step = -255.0 / 400;
        ASSERT_TRUE(entry_is(u[i], static_cast<int>((i - 300) * step + 255), 0, static_cast<int>((i - 300) * -step)))
            << i;
    }
    for (int i = 700; i < 1000; ++i) ASSERT_TRUE(entry_is(u[i], 0, 0, 255)) << i;

    // Stops at 1 and 999 are each padded by a one-entry segment of their own colour.
    tagGRADCOLORS edge[2] = {{RGB(10, 200, 0), 1}, {RGB(250, 0, 255), 999}};
    Table e{kiv::make_gradtable(edge, 2, 1000)};
    ASSERT_NE(e.t, nullptr);
    EXPECT_TRUE(entry_is(e[0], 10, 200, 0));
    for (int i = 1; i < 999; ++i)  // the ramp: 998 entries, step (c1 - c0) / 998
        ASSERT_TRUE(entry_is(e[i], static_cast<int>((i - 1) * (240 / 998.0) + 10),
                             static_cast<int>((i - 1) * (-200 / 998.0) + 200), static_cast<int>((i - 1) * (255 / 998.0))))
            << i;
    EXPECT_TRUE(entry_is(e[999], 250, 0, 255));

    tagGRADCOLORS same[2] = {{RGB(1, 2, 3), 100}, {RGB(1, 2, 3), 900}};
    Table v{kiv::make_gradtable(same, 2, 37)};
    ASSERT_NE(v.t, nullptr);
    EXPECT_EQ(v.t->palNumEntries, 37);
    for (int i = 0; i < 37; ++i) ASSERT_TRUE(entry_is(v[i], 1, 2, 3)) << i;
    for (int i = 0; i < 37; ++i) ASSERT_EQ(v[i].peFlags, 0);
}

TEST(GradTable, OddStopsStayInsideTheTable) {
    // Out of order, outside 0..1000, longer than the table: nothing is written past the end,
    // and entries no segment reaches are zero.
    tagGRADCOLORS odd[3] = {{RGB(9, 9, 9), 500}, {RGB(50, 60, 70), 200}, {RGB(255, 255, 255), 100000}};
    Table t{kiv::make_gradtable(odd, 3, 1000)};
    ASSERT_NE(t.t, nullptr);
    // (9, 0) (9, 500) (50, 200) (white, 100000): 500 entries of 9, then a ramp to the end.
    EXPECT_TRUE(entry_is(t[499], 9, 9, 9));
    EXPECT_TRUE(entry_is(t[500], 50, 60, 70));
    Table s{kiv::make_gradtable(odd, 3, 10)};
    ASSERT_NE(s.t, nullptr);
    EXPECT_TRUE(entry_is(s[9], 9, 9, 9));
    tagGRADCOLORS back[2] = {{RGB(9, 9, 9), 0}, {RGB(1, 1, 1), -5}};
    Table z{kiv::make_gradtable(back, 2, 100)};
    ASSERT_NE(z.t, nullptr);
    // (9, 0) (1, -5) (1, 1000): the second pair is long enough to fill everything.
    EXPECT_TRUE(entry_is(z[0], 1, 1, 1));
    Table none{kiv::make_gradtable(back, 2, 0)};  // an empty table, not a failure
    ASSERT_NE(none.t, nullptr);
    EXPECT_EQ(none.t->palNumEntries, 0);
    // Logical palettes from the heap are released the same way.
    kiv::free_gradtable(static_cast<tagLOGPALETTE*>(std::malloc(sizeof(tagLOGPALETTE) + 255 * sizeof(PALETTEENTRY))));
}

TEST(GradientFill, AllDirectionsModesAndBoxesMatchTheModel) {
    kivtest::Rng rng(21);
    kivtest::on_every_path([&](int path) {
        for (int round = 0; round < 300; ++round) {
            const int W = 1 + rng.below(300), H = 1 + rng.below(6);
            kiv img = random_image(W, H, round % 9 == 0 ? 4 : 24, 300 + round), want(img);
            const int x = rng.below(W + 8) - 4, y = rng.below(H + 8) - 4, w = 1 + rng.below(W + 6),
                      h = 1 + rng.below(H + 6);
            const int dir = round % 8, mode = rng.below(20), op = rng.below(4) ? 255 : 1 + rng.below(255);
            const int n = 2 + rng.below(4);
            std::vector<tagGRADCOLORS> g(n);
            for (int i = 0; i < n; ++i)
                g[i] = tagGRADCOLORS{RGB(rng.byte(), rng.byte(), rng.byte()), (i * 1000 + rng.below(300)) / n};
            Table t{kiv::make_gradtable(g.data(), n, 1000)};
            const bool inside = x < W && y < H && x + w > 0 && y + h > 0;
            ASSERT_EQ(img.gradientfill(x, y, w, h, g.data(), n, dir, op, mode), inside ? 1 : 0);
            filltest::ref_box(want, x, y, w, h, op, mode, [&](long long rx, long long ry) {
                bool rev;
                int i = filltest::ref_ramp_index(dir, rx, ry, w, h, 999, &rev);
                const PALETTEENTRY& e = t[rev ? 999 - i : i];
                return tagRGBA{e.peRed, e.peGreen, e.peBlue, 0};
            });
            ASSERT_TRUE(images_equal(img, want)) << "dir " << dir << " mode " << mode << " box " << x << "," << y << " "
                                                 << w << "x" << h << " path " << path;
        }
    });
}

TEST(GradientFill, PartExamples) {
    tagGRADCOLORS bw[2] = {{RGB(0, 0, 0), 0}, {RGB(255, 255, 255), 1000}};
    kiv img(4, 2, 24);
    ASSERT_EQ(img.fillgradientrect(nullptr, bw, 2, 6, 255), 1);
    EXPECT_EQ(px(img, 3, 0).r, 0);
    EXPECT_EQ(px(img, 3, 1).r, 254);  // entry 999
    ASSERT_EQ(img.fillgradientrect(nullptr, bw, 2, 1, 255), 1);  // toward the top: reversed
    EXPECT_EQ(px(img, 0, 0).r, 254);
    EXPECT_EQ(px(img, 0, 1).r, 0);

    // One stop is a solid fill, clipping included.
    tagGRADCOLORS one{RGB(7, 8, 9), 500};
    kiv a = random_image(5, 5, 8, 22), b(a);
    tagRECT r{-2, 3, 2, 9};
    ASSERT_EQ(a.gradientfill(&r, &one, 1, 4, 99, 13), 1);
    ASSERT_EQ(b.solidfill(&r, RGB(7, 8, 9), 99, 13), 1);
    EXPECT_TRUE(images_equal(a, b));
    EXPECT_EQ(a.m_bits, b.m_bits);
}
