// The blend-mode table against the formulas, hand-picked and random colours.
#include "fill/blend.h"

#include <gtest/gtest.h>

#include "fill/fill_reference.h"
#include "support/paths.h"
#include "support/test_images.h"

using filltest::ref_blend;
using kivtest::rgba_str;

namespace {
tagRGBA C(int r, int g, int b, int a = 0) {
    return tagRGBA{static_cast<BYTE>(r), static_cast<BYTE>(g), static_cast<BYTE>(b), static_cast<BYTE>(a)};
}
bool same_rgb(tagRGBA a, tagRGBA b) { return a.r == b.r && a.g == b.g && a.b == b.b; }
}  // namespace

// Values worked out by hand from the formulas.
TEST(BlendModes, HandPickedResults) {
    struct Case {
        int mode;
        tagRGBA d, s, want;
    } cases[] = {
        {0, C(1, 2, 3), C(200, 100, 50), C(200, 100, 50)},
        {9, C(1, 2, 3), C(200, 100, 50), C(200, 100, 50)},     // acts as normal
        {-1, C(1, 2, 3), C(200, 100, 50), C(200, 100, 50)},    // unknown: normal
        {19, C(1, 2, 3), C(200, 100, 50), C(200, 100, 50)},
        {1, C(10, 200, 30), C(20, 100, 30), C(10, 100, 30)},
        {2, C(10, 200, 30), C(20, 100, 30), C(20, 200, 30)},
        {7, C(255, 128, 0), C(255, 128, 77), C(255, 64, 0)},   // t=128*128+128 -> 16512+64 >> 8 = 64
        {8, C(0, 128, 255), C(0, 128, 10), C(0, 192, 255)},
        {10, C(100, 200, 0), C(200, 100, 255), C(156, 189, 0)},  // 40000/255; 255 - 17050/255
        {11, C(100, 200, 0), C(200, 100, 255), C(189, 156, 255)},
        {13, C(10, 200, 30), C(20, 100, 30), C(10, 100, 0)},
        {14, C(0, 255, 255), C(0, 0, 255), C(0, 255, 0)},
        {15, C(255, 0, 51), C(255, 200, 0), C(255, 0, 51)},    // 51/255*256/256*255 = 51
        {16, C(255, 100, 0), C(0, 100, 255), C(255, 0, 0)},    // S=0,D=1 -> 255; D+S<1 -> 0
        {12, C(0, 255, 64), C(255, 0, 128), C(0, 255, 64)},    // D=0 -> 0; S=0: D^2
        {17, C(10, 10, 10), C(0, 0, 100), C(10, 110, 110)},
        {17, C(10, 10, 10), C(0, 100, 0), C(10, 10, 10)},      // the fill's green is ignored
        {17, C(200, 200, 200), C(100, 0, 100), C(255, 255, 255)},
        {18, C(10, 110, 110), C(0, 0, 100), C(10, 10, 10)},
        {18, C(10, 10, 10), C(50, 200, 5), C(0, 5, 5)},
        {3, C(255, 0, 0), C(0, 0, 255), C(0, 0, 255)},         // blue's hue, red's s and v
        {4, C(255, 0, 0), C(128, 128, 128), C(255, 255, 255)}, // grey has saturation 0
        {6, C(255, 0, 0), C(0, 0, 128), C(128, 0, 0)},
        {5, C(255, 255, 255), C(255, 0, 0), C(255, 255, 255)}, // lightness 255 stays white
    };
    for (const Case& c : cases) {
        const tagRGBA got = kivfill::blend_function(c.mode)(c.d, c.s);
        EXPECT_TRUE(same_rgb(got, c.want)) << "mode " << c.mode << " d" << rgba_str(c.d) << " s" << rgba_str(c.s)
                                           << ": got " << rgba_str(got) << " want " << rgba_str(c.want);
        EXPECT_EQ(got.a, c.d.a);
    }
}

TEST(BlendModes, EveryModeMatchesTheFormulasOnRandomColours) {
    kivtest::Rng rng(7);
    for (int mode = -2; mode <= 20; ++mode) {
        const kivfill::BlendFn f = kivfill::blend_function(mode);
        ASSERT_NE(f, nullptr);
        int failures = 0;
        for (int i = 0; i < 20000 && failures < 5; ++i) {
            tagRGBA d = C(rng.byte(), rng.byte(), rng.byte(), rng.byte());
            tagRGBA s = C(rng.byte(), rng.byte(), rng.byte(), rng.byte());
            if (i < 64) {  // the extremes and greys, where the formulas branch
                const int v[4] = {0, 1, 254, 255};
                d = C(v[i & 3], v[(i >> 2) & 3], v[i & 3]);
                s = C(v[(i >> 4) & 3], v[(i >> 4) & 3], v[i & 3] ^ 1);
            }
            const tagRGBA want = ref_blend(mode, d, s), got = f(d, s);
            if (!same_rgb(got, want) || got.a != d.a) {
                ++failures;
                ADD_FAILURE() << "mode " << mode << " d" << rgba_str(d) << " s" << rgba_str(s) << ": got "
                              << rgba_str(got) << " want " << rgba_str(want);
            }
        }
    }
}

// The row kernels (vector and scalar) and the one-colour tables give the per-pixel result.
TEST(BlendModes, RowKernelsMatchThePixelFunction) {
    kivtest::Rng rng(11);
    kivtest::on_every_path([&](int) {
        for (int mode = 0; mode <= 19; ++mode)
            for (int n : {1, 3, 4, 5, 17, 300}) {
                const int op = rng.below(3) == 0 ? 255 : 1 + rng.below(255);
                std::vector<tagRGBA> p(n), s(n), w(n);
                std::vector<BYTE> wt(n);
                for (int i = 0; i < n; ++i) {
                    p[i] = C(rng.byte(), rng.byte(), rng.byte(), rng.byte());
                    s[i] = C(rng.byte(), rng.byte(), rng.byte(), rng.byte());
                    wt[i] = rng.byte();
                }
                std::vector<tagRGBA> row = p, solid = p, weighted = p;
                kivfill::blend_row(mode, row.data(), s.data(), n, op);
                kivfill::SolidBlend(mode, s[0], op).apply(solid.data(), n);
                kivfill::blend_row_weighted(mode, weighted.data(), s.data(), wt.data(), n);
                for (int i = 0; i < n; ++i) {
                    tagRGBA a = p[i], b = p[i], c = p[i];
                    filltest::ref_mix(a, ref_blend(mode, p[i], s[i]), op);
                    filltest::ref_mix(b, ref_blend(mode, p[i], s[0]), op);
                    filltest::ref_mix(c, ref_blend(mode, p[i], s[i]), wt[i]);
                    ASSERT_TRUE(kivtest::same_rgba(row[i], a)) << "row mode " << mode << " n " << n << " i " << i;
                    ASSERT_TRUE(kivtest::same_rgba(solid[i], b)) << "solid mode " << mode << " n " << n << " i " << i;
                    ASSERT_TRUE(kivtest::same_rgba(weighted[i], c)) << "weighted mode " << mode << " i " << i;
                }
            }
    });
}
