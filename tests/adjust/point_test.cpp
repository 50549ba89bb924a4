// Point adjustments: numeric anchors, both paths, rectangles, fourth byte, hostile arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "core/kmath.h"
#include "kiv.h"
#include "support/image_check.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::px;
using kivtest::random_image;

namespace {

struct Rgb {
    int r, g, b;
    bool operator==(const Rgb& o) const { return r == o.r && g == o.g && b == o.b; }
};
std::ostream& operator<<(std::ostream& o, const Rgb& c) { return o << "(" << c.r << "," << c.g << "," << c.b << ")"; }

using Op = std::function<int(kiv&, tagRECT*)>;

// One colour through a member on a 1x1 true-colour image (alpha 77 must survive).
Rgb through(const Op& run, Rgb c) {
    kiv img(1, 1, 24);
    img.m_pixels[0] = tagRGBA{BYTE(c.r), BYTE(c.g), BYTE(c.b), 77};
    EXPECT_EQ(1, run(img, nullptr));
    EXPECT_EQ(77, img.m_pixels[0].a);
    return Rgb{img.m_pixels[0].r, img.m_pixels[0].g, img.m_pixels[0].b};
}

tagKIV_COLORBALANCE balance(int rs, int rm, int rh, int preserve) {
    tagKIV_COLORBALANCE cb{};
    cb.red[0] = rs;
    cb.red[1] = rm;
    cb.red[2] = rh;
    cb.green[1] = -30;
    cb.blue[0] = 45;
    cb.preserve = preserve;
    return cb;
}

// Members whose rule looks at one colour alone, with the flags that tell their paths apart.
struct Member {
    std::string name;
    Op run;
    bool refreshes;      // palettized: pixels take the new map colours
    bool validates_map;  // palettized path still refuses an empty rectangle
};

std::vector<Member> per_colour_members() {
    static tagKIV_COLORBALANCE cb0 = balance(60, -20, 35, 0), cb1 = balance(-70, 40, 100, 1);
    return {
        {"bright_contrast", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 30, -40); }, true, false},
        {"bright_contrast_hi", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, -90, 110); }, true, false},
        {"gamma_rgb", [](kiv& k, tagRECT* r) { return k.gamma_rgb(r, 0.8, 1.3, 1.0, 2.2); }, true, true},
        {"adjust_rgb", [](kiv& k, tagRECT* r) { return k.adjust_rgb(r, 20, -35, 150); }, true, true},
        {"modulate", [](kiv& k, tagRECT* r) { return k.modulate(r, 40, -50, 12); }, true, false},
        {"modulate_neg", [](kiv& k, tagRECT* r) { return k.modulate(r, -200, 300, -40); }, true, false},
        {"hue_saturation_0", [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 0, 30, -40, 20); }, true, false},
        {"hue_saturation_3", [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 3, -150, 80, -60); }, true, false},
        {"desaturate", [](kiv& k, tagRECT* r) { return k.desaturate(r); }, true, false},
        {"posterize", [](kiv& k, tagRECT* r) { return k.posterize(r, 5); }, true, false},
        {"colorbalance", [](kiv& k, tagRECT* r) { return k.colorbalance(r, &cb0); }, false, false},
        {"colorbalance_preserve", [](kiv& k, tagRECT* r) { return k.colorbalance(r, &cb1); }, false, false},
        {"negative", [](kiv& k, tagRECT* r) { k.negative(r); return 1; }, false, false},
    };
}

}  // namespace

TEST(PointAdjust, NumericAnchors) {
    tagKIV_COLORBALANCE hi_red{}, hi_red_over{};
    hi_red.red[2] = 100;
    hi_red_over.red[2] = 1000;  // clamped to 100
    tagKIV_COLORCUT cut_1_4{0, {1, 4, 0}}, cut_2_1{0, {2, 1, 0}}, cut_4{0, {4, 0, 0}};
    struct Case {
        const char* what;
        Op run;
        Rgb in, out;
    } cases[] = {
        {"gamma 2 maps 128 to 181", [](kiv& k, tagRECT* r) { return k.gamma_rgb(r, 1, 1, 1, 2.0); }, {128, 0, 255}, {181, 0, 255}},
        {"gamma(g) is the master gamma", [](kiv& k, tagRECT* r) { return k.gamma(r, 2.0); }, {128, 64, 1}, {181, 128, 16}},
        {"gamma 1 is the identity", [](kiv& k, tagRECT* r) { return k.gamma(r, 1.0); }, {3, 128, 254}, {3, 128, 254}},
        {"gamma per channel", [](kiv& k, tagRECT* r) { return k.gamma_rgb(r, 2.0, 0.5, 1, 1); }, {128, 128, 128}, {181, 64, 128}},
        {"bright_contrast 0,0", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 0, 0); }, {0, 99, 255}, {0, 99, 255}},
        {"contrast 127 is a step", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 0, 127); }, {100, 155, 3}, {0, 255, 0}},
        {"contrast clamps at 127", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 0, INT_MAX); }, {100, 155, 3}, {0, 255, 0}},
        {"brightness -127 halves", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, -127, 0); }, {255, 0, 100}, {128, 0, 50}},
        {"brightness 127 lifts", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 127, 0); }, {0, 128, 255}, {127, 191, 255}},
        {"contrast 64, exponent 1/(1-c)", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 0, 64); }, {64, 128, 200}, {32, 129, 232}},
        {"contrast -127 is flat grey", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 0, -127); }, {0, 99, 255}, {128, 128, 128}},
        {"darker and steeper", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, -60, 90); }, {30, 140, 230}, {0, 70, 230}},
        {"adjust_rgb +100 -100 0", [](kiv& k, tagRECT* r) { return k.adjust_rgb(r, 100, -100, 0); }, {128, 200, 77}, {255, 0, 77}},
        {"adjust_rgb +100 doubles", [](kiv& k, tagRECT* r) { return k.adjust_rgb(r, 100, 100, 50); }, {100, 127, 100}, {200, 254, 150}},
        // 65535 x 40000 wraps in 32 bits to a large negative product, 257 x 40000 does not;
        // 32896 x INT_MAX is -32896 modulo 2^32.
        {"adjust_rgb product wraps", [](kiv& k, tagRECT* r) { return k.adjust_rgb(r, 40000, 40000, INT_MAX); }, {255, 1, 128}, {0, 255, 127}},
        {"posterize 2 splits at 128", [](kiv& k, tagRECT* r) { return k.posterize(r, 2); }, {127, 128, 255}, {0, 255, 255}},
        {"posterize below 2 is 2", [](kiv& k, tagRECT* r) { return k.posterize(r, -5); }, {127, 128, 0}, {0, 255, 0}},
        {"posterize 3 levels", [](kiv& k, tagRECT* r) { return k.posterize(r, 3); }, {63, 64, 192}, {0, 128, 255}},
        {"desaturate to lightness", [](kiv& k, tagRECT* r) { return k.desaturate(r); }, {10, 200, 50}, {105, 105, 105}},
        {"negative", [](kiv& k, tagRECT* r) { k.negative(r); return 1; }, {10, 200, 50}, {245, 55, 205}},
        {"colorify white", [](kiv& k, tagRECT* r) { return k.colorify(r, RGB(255, 255, 255)); }, {10, 200, 50}, {126, 126, 126}},
        {"colorify tint", [](kiv& k, tagRECT* r) { return k.colorify(r, RGB(255, 0, 128)); }, {10, 200, 50}, {126, 0, 63}},
        {"HLS drift of pure red", [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 0, 0, 0, 0); }, {255, 0, 0}, {254, 0, 0}},
        {"HLS keeps greys", [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 0, 0, 0, 0); }, {93, 93, 93}, {93, 93, 93}},
        // Upper half: s = 127 x 255 / (511 - 383) = 253, which comes back as (254, 127, 127).
        {"HLS drift above mid-lightness", [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 0, 0, 0, 0); }, {255, 128, 128}, {254, 127, 127}},
        {"modulate never turns pure red", [](kiv& k, tagRECT* r) { return k.modulate(r, 100, 0, 0); }, {255, 0, 0}, {254, 0, 0}},
        {"modulate lightness clamps", [](kiv& k, tagRECT* r) { return k.modulate(r, 0, 0, INT_MAX); }, {10, 200, 50}, {255, 255, 255}},
        {"saturation -128 greys", [](kiv& k, tagRECT* r) { return k.modulate(r, 0, -128, 0); }, {10, 200, 50}, {105, 105, 105}},
        {"balance highlights red +100", [&](kiv& k, tagRECT* r) { return k.colorbalance(r, &hi_red); }, {128, 128, 128}, {224, 128, 128}},
        {"balance shifts clamp", [&](kiv& k, tagRECT* r) { return k.colorbalance(r, &hi_red_over); }, {128, 128, 128}, {224, 128, 128}},
        {"colorcut second channel rounds down", [&](kiv& k, tagRECT* r) { return k.colorcut(r, &cut_1_4); }, {9, 3, 200}, {9, 0, 200}},
        {"colorcut second channel, 7", [&](kiv& k, tagRECT* r) { return k.colorcut(r, &cut_1_4); }, {9, 7, 200}, {9, 4, 200}},
        {"colorcut first remainder wraps the byte", [&](kiv& k, tagRECT* r) { return k.colorcut(r, &cut_2_1); }, {1, 255, 3}, {0, 0, 3}},
        {"colorcut second channel, even", [&](kiv& k, tagRECT* r) { return k.colorcut(r, &cut_2_1); }, {2, 254, 3}, {2, 254, 3}},
        {"colorcut tie rounds down", [&](kiv& k, tagRECT* r) { return k.colorcut(r, &cut_4); }, {6, 6, 6}, {4, 6, 6}},
        {"colorcut above half rounds up", [&](kiv& k, tagRECT* r) { return k.colorcut(r, &cut_4); }, {7, 7, 255}, {8, 7, 255}},
    };
    for (const Case& c : cases) EXPECT_EQ(c.out, through(c.run, c.in)) << c.what;
}

TEST(PointAdjust, HlsRoundTripAltersSomeColours) {
    kiv img = random_image(64, 64, 24, 5), before(img);
    ASSERT_EQ(1, img.hue_saturation(nullptr, 0, 0, 0, 0));
    int changed = 0;
    for (int i = 0; i < img.m_packets; ++i)
        changed += img.m_pixels[i].r != before.m_pixels[i].r || img.m_pixels[i].g != before.m_pixels[i].g;
    EXPECT_GT(changed, 0);
    EXPECT_LT(changed, img.m_packets);
    kiv again(before);  // modulate with neutral arguments is the same round trip
    ASSERT_EQ(1, again.modulate(nullptr, 0, 0, 0));
    EXPECT_TRUE(images_equal(img, again));
}

TEST(PointAdjust, NeutralArgumentsOfTableMembersAreIdentities) {
    tagKIV_COLORBALANCE zero{};
    tagKIV_COLORCUT nocut{0, {0, 0, 0}}, unit{0, {1, 0, 1}};
    const Op runs[] = {
        [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 0, 0); },
        [](kiv& k, tagRECT* r) { return k.gamma_rgb(r, 1, 1, 1, 1); },
        [](kiv& k, tagRECT* r) { return k.adjust_rgb(r, 0, 0, 0); },
        [](kiv& k, tagRECT* r) { return k.posterize(r, 256); },
        [&](kiv& k, tagRECT* r) { return k.colorbalance(r, &zero); },
        [&](kiv& k, tagRECT* r) { return k.colorcut(r, &nocut); },
        [&](kiv& k, tagRECT* r) { return k.colorcut(r, &unit); },
        [](kiv& k, tagRECT* r) { k.negative(r); k.invertrect(r); return 1; },
    };
    for (std::size_t i = 0; i < std::size(runs); ++i) {
        kiv img = random_image(37, 11, 32, 100 + i), before(img);
        ASSERT_EQ(1, runs[i](img, nullptr)) << i;
        EXPECT_TRUE(images_equal(before, img)) << "member " << i;
    }
}

// The rectangle's pixels get what the whole-image call gives them; nothing else changes,
// and the fourth byte never does.
TEST(PointAdjust, RectanglesOnTrueColour) {
    std::vector<Member> members = per_colour_members();
    static tagKIV_COLORCUT cut{0, {7, 3, 12}};
    members.push_back({"colorify", [](kiv& k, tagRECT* r) { return k.colorify(r, RGB(200, 90, 30)); }, true, true});
    members.push_back({"colorcut", [](kiv& k, tagRECT* r) { return k.colorcut(r, &cut); }, true, true});
    members.push_back({"invertrect", [](kiv& k, tagRECT* r) { k.invertrect(r); return 1; }, true, true});
    const tagRECT rects[] = {{-3, 2, 9, 20}, {4, -5, 40, 3}, {1, 1, 2, 2}, {0, 0, 33, 17}};
    for (const Member& m : members)
        for (const tagRECT& r0 : rects) {
            kiv orig = random_image(33, 17, 24, 7), whole(orig), img(orig);
            ASSERT_EQ(1, m.run(whole, nullptr)) << m.name;
            tagRECT r = r0;
            ASSERT_EQ(1, m.run(img, &r)) << m.name;
            kiv expect(orig);
            for (int y = std::max(0, (int)r.top); y < std::min(17, (int)r.bottom); ++y)
                for (int x = std::max(0, (int)r.left); x < std::min(33, (int)r.right); ++x)
                    expect.m_pixels[y * 33 + x] = whole.m_pixels[y * 33 + x];
            EXPECT_TRUE(images_equal(expect, img)) << m.name << " rect " << r.left << "," << r.top;
            for (int i = 0; i < orig.m_packets; ++i) ASSERT_EQ(orig.m_pixels[i].a, whole.m_pixels[i].a) << m.name;
        }
}

// Rectangles large enough for the pair-table path: every pixel inside gets what the same
// member gives its colour alone on a 1x1 image (channels looked up independently, so one
// grey ramp per channel is the reference), the fourth byte and the outside stay.
TEST(PointAdjust, LargeRectanglesMatchTheOneColourResult) {
    struct Case {
        std::string name;
        Op run;
    } cases[] = {
        {"gamma_rgb", [](kiv& k, tagRECT* r) { return k.gamma_rgb(r, 0.8, 1.3, 1.0, 2.2); }},
        {"bright_contrast", [](kiv& k, tagRECT* r) { return k.bright_contrast(r, 20, 30); }},
        {"adjust_rgb", [](kiv& k, tagRECT* r) { return k.adjust_rgb(r, 20, -35, 150); }},
    };
    const int W = 701, H = 397;
    const tagRECT rects[] = {{-5, 3, 690, 420}};
    for (const Case& c : cases) {
        Rgb ramp[256];
        for (int v = 0; v < 256; ++v) ramp[v] = through(c.run, Rgb{v, v, v});
        for (const tagRECT& r0 : rects) {
            kiv img = random_image(W, H, 24, 31), orig(img);
            tagRECT r = r0;
            ASSERT_EQ(1, c.run(img, &r)) << c.name;
            for (int y = 0; y < H; ++y)
                for (int x = 0; x < W; ++x) {
                    const tagRGBA o = orig.m_pixels[y * W + x];
                    tagRGBA e = o;
                    if (x >= r0.left && x < r0.right && y >= r0.top && y < r0.bottom)
                        e = tagRGBA{BYTE(ramp[o.r].r), BYTE(ramp[o.g].g), BYTE(ramp[o.b].b), o.a};
                    ASSERT_TRUE(kivtest::same_rgba(e, img.m_pixels[y * W + x]))
                        << c.name << " at " << x << "," << y << ": " << kivtest::rgba_str(img.m_pixels[y * W + x])
                        << " expected " << kivtest::rgba_str(e);
                }
        }
    }
}

// The map path gives each entry what the true-colour path gives that colour; the pixels
// follow the map or keep their bytes as each member requires; indices never change.
TEST(PointAdjust, ColourMapPathAgreesWithTrueColour) {
    for (const Member& m : per_colour_members())
        for (int bits : {8, 4, 1}) {
            kiv pal = random_image(29, 9, bits, 11 + bits);
            kiv before(pal);
            kiv entries(pal.m_colors, 1, 24);
            for (int i = 0; i < pal.m_colors; ++i) entries.m_pixels[i] = pal.m_map[i];
            ASSERT_EQ(1, m.run(entries, nullptr));
            tagRECT outside{100, 100, 200, 200};
            EXPECT_EQ(m.validates_map ? 0 : 1, m.run(pal, &outside)) << m.name;
            if (m.validates_map) {
                EXPECT_TRUE(images_equal(before, pal)) << m.name;
                ASSERT_EQ(1, m.run(pal, nullptr));
            }
            for (int i = 0; i < pal.m_colors; ++i) {
                const tagRGBA e = pal.m_map[i], t = entries.m_pixels[i];
                ASSERT_TRUE(e.r == t.r && e.g == t.g && e.b == t.b && e.a == before.m_map[i].a) << m.name << " entry " << i;
            }
            for (int i = 0; i < pal.m_packets; ++i) {
                const tagRGBA p = pal.m_pixels[i], o = before.m_pixels[i];
                const tagRGBA want = m.refreshes ? pal.m_map[o.a] : o;
                ASSERT_TRUE(p.a == o.a && p.r == want.r && p.g == want.g && p.b == want.b) << m.name << " pixel " << i;
            }
            EXPECT_EQ(bits, pal.m_bits);
        }
}

TEST(PointAdjust, DepthRules) {
    // adjust_rgb maps pixels only at exactly 24 bits.
    kiv deep = random_image(9, 4, 32, 3), deep0(deep);
    EXPECT_EQ(1, deep.adjust_rgb(nullptr, 50, 50, 50));
    EXPECT_TRUE(images_equal(deep0, deep));
    // negative on a palettized image: the map is complemented, the pixels are not.
    kiv pal = random_image(9, 4, 8, 4), pal0(pal);
    pal.negative(nullptr);
    EXPECT_TRUE(images_equal(pal0, pal));
    EXPECT_EQ(255 - pal0.m_map[17].g, pal.m_map[17].g);
    // invertrect on a palettized image: map and every pixel, whatever the rectangle.
    kiv inv(pal0);
    inv.invertrect(2, 1, 1, 1);
    for (int i = 0; i < inv.m_packets; ++i) {
        ASSERT_EQ(255 - pal0.m_pixels[i].b, inv.m_pixels[i].b);
        ASSERT_EQ(inv.m_map[inv.m_pixels[i].a].b, inv.m_pixels[i].b);
    }
    kiv inv1(inv);
    inv.invertrect(0, 0, 0, 5);  // w < 1: nothing
    inv.invertrect(0, 0, 5, -1);
    EXPECT_TRUE(images_equal(inv1, inv));
    EXPECT_EQ(inv1.m_map[3].r, inv.m_map[3].r);
    // colorify and colorcut raise any depth to 24 and map the rectangle's pixels.
    tagKIV_COLORCUT cut{0, {17, 17, 17}};  // 255 is a multiple: every entry is one
    for (int which = 0; which < 2; ++which) {
        kiv p = random_image(9, 4, 8, 5), p0(p);
        tagRECT r{0, 0, 3, 2};
        EXPECT_EQ(1, which ? p.colorcut(&r, &cut) : p.colorify(&r, RGB(255, 255, 255)));
        EXPECT_EQ(24, p.m_bits);
        EXPECT_TRUE(kivtest::same_rgba(p0.m_pixels[8], p.m_pixels[8]));  // outside the rectangle
        EXPECT_EQ(p0.m_pixels[0].a, p.m_pixels[0].a);
        const tagRGBA q = p.m_pixels[0];
        if (which) {
            EXPECT_TRUE(q.r % 17 == 0 && q.g % 17 == 0 && q.b % 17 == 0) << kivtest::rgba_str(q);
        } else {
            EXPECT_TRUE(q.r == q.g && q.g == q.b) << kivtest::rgba_str(q);  // white tint: grey
        }
    }
}

TEST(PointAdjust, InvertrectClipsOriginAndSize) {
    struct Case {
        int x, y, w, h, l, t, r, b;
    } cases[] = {{-2, -1, 4, 3, 0, 0, 2, 2}, {5, 2, 100, 100, 5, 2, 7, 5}, {6, 0, 5, 5, 6, 0, 7, 5},
                 {INT_MAX, 0, INT_MAX, 3, 7, 0, 7, 0}, {-5, 0, 4, 3, 0, 0, 0, 0}, {0, 0, INT_MAX, INT_MAX, 0, 0, 7, 5}};
    for (const Case& c : cases) {
        kiv img = random_image(7, 5, 24, 9), before(img);
        img.invertrect(c.x, c.y, c.w, c.h);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 7; ++x) {
                const bool in = x >= c.l && x < c.r && y >= c.t && y < c.b;
                const tagRGBA p = px(img, x, y), o = px(before, x, y);
                ASSERT_EQ(in ? 255 - o.g : o.g, p.g) << c.x << "," << c.y << " at " << x << "," << y;
                ASSERT_EQ(o.a, p.a);
            }
    }
    kiv a = random_image(7, 5, 24, 10), b(a);
    tagRECT r{INT_MIN, 1, INT_MAX, 3};  // width overflows int: the clip still holds
    a.invertrect(&r);
    b.invertrect(0, 1, 7, 2);
    EXPECT_TRUE(images_equal(a, b));
}

TEST(PointAdjust, HostileArgumentsAreSurvived) {
    tagKIV_COLORBALANCE wild{};
    for (int k = 0; k < 3; ++k) wild.red[k] = INT_MIN, wild.green[k] = INT_MAX, wild.blue[k] = k * 77 - 100;
    wild.preserve = -1;
    tagKIV_COLORCUT cuts[] = {{0, {INT_MIN, -1, INT_MAX}}, {0, {-7, 255, 256}}};
    const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
    const Op runs[] = {
        [](kiv& k, tagRECT* r) { return k.bright_contrast(r, INT_MIN, INT_MAX); },
        [&](kiv& k, tagRECT* r) { return k.gamma_rgb(r, 0.0, -2.0, nan, inf); },
        [](kiv& k, tagRECT* r) { return k.adjust_rgb(r, INT_MAX, INT_MIN, 12345678); },
        [](kiv& k, tagRECT* r) { return k.modulate(r, INT_MIN, INT_MAX, INT_MIN); },
        [](kiv& k, tagRECT* r) { return k.modulate(r, INT_MAX, INT_MIN, INT_MAX); },
        [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 6, INT_MAX, INT_MIN, INT_MAX); },
        [](kiv& k, tagRECT* r) { return k.posterize(r, INT_MAX); },
        [](kiv& k, tagRECT* r) { return k.colorify(r, 0xFFFFFFFFu); },
        [&](kiv& k, tagRECT* r) { return k.colorbalance(r, &wild); },
        [&](kiv& k, tagRECT* r) { return k.colorcut(r, &cuts[0]) + k.colorcut(r, &cuts[1]); },
        [](kiv& k, tagRECT* r) { k.negative(r); k.invertrect(r); k.invertrect(INT_MIN, INT_MIN, INT_MAX, INT_MAX); return k.desaturate(r); },
    };
    tagRECT huge{INT_MIN, INT_MIN, INT_MAX, INT_MAX};
    for (const Op& run : runs) {
        for (int bits : {1, 4, 8, 24, 32}) {
            kiv img = random_image(5, 3, bits, 12);
            run(img, &huge);
            EXPECT_EQ("", kivtest::image_violation(img)) << bits;
            // A map too short for the indices: pixels past it keep their colours.
            if (bits == 8) {
                img.m_colors = 3;
                run(img, nullptr);
                EXPECT_EQ("", kivtest::image_violation(img));
                img.m_colors = 256;
            }
        }
    }
}

// The tables take most entries from a cheap estimate of pow and pow itself only near a rounding
// boundary: every level must still come out as the plain formulas with kmath::pow give it.
TEST(PointTables, EstimatedEntriesMatchThePlainFormulas) {
    namespace km = kivcore::kmath;
    kiv img(256, 1, 24);
    auto levels = [&] {
        for (int i = 0; i < 256; ++i) img.m_pixels[i] = tagRGBA{BYTE(i), BYTE(i), BYTE(i), 0};
    };
    for (double p : {2.2, 0.45, 1.0 / 3, 3.0, 0.1, 10.0, 1e-3, 250.0, -2.0, 1.5}) {
        levels();
        ASSERT_EQ(1, img.gamma(nullptr, p));
        for (int i = 0; i < 256; ++i) {
            const double v = std::floor(km::pow(i / 255.0, 1.0 / p) * 255.0 + 0.5);
            ASSERT_EQ(!(v > 0.0) ? 0 : v >= 255.0 ? 255 : static_cast<int>(v), img.m_pixels[i].g) << p << " " << i;
        }
    }
    for (int b = -127; b <= 127; b += 31)
        for (int c = -127; c <= 127; c += 23) {
            levels();
            ASSERT_EQ(1, img.bright_contrast(nullptr, b, c));
            const double bb = b / 255.0, cc = c / 127.0, e = cc < 0 ? cc + 1 : (cc == 1 ? 127 : 1 / (1 - cc));
            for (int i = 0; i < 256; ++i) {
                const double x = i / 255.0, y = bb < 0 ? x * (bb + 1) : x + (1 - x) * bb;
                const double r = km::pow(2 * std::max(0.0, y > 0.5 ? 1 - y : y), e) * 0.5, v = (y > 0.5 ? 1 - r : r) * 255 + 0.5;
                ASSERT_EQ(!(v >= 0) ? 0 : v >= 255 ? 255 : static_cast<int>(v), img.m_pixels[i].r) << b << " " << c << " " << i;
            }
        }
}
