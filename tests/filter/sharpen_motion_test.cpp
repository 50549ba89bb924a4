// Sharpening and motion blurs: neutral parameters, flat images, rectangle bounds, refusals,
// and hand-checked values for the simple cases.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "core/color_models.h"
#include "filter/filter.h"
#include "filter_test_util.h"

using namespace kivtest;
using namespace kivfiltertest;

namespace {

struct Op {
    const char* name;
    std::function<int(kiv&, tagRECT*)> run;
};

// Members whose result on a flat image is that flat image, with an effective parameter set.
std::vector<Op> smoothing_ops() {
    return {
        {"sharpen2", [](kiv& i, tagRECT* r) { return i.sharpen2(r, 300); }},
        {"unsharp_mask", [](kiv& i, tagRECT* r) { return i.unsharp_mask(r, 2.0, 150, 0); }},
        {"unsharp_mask2", [](kiv& i, tagRECT* r) { return i.unsharp_mask2(r, 2.0, 150, 0); }},
        {"enhance", [](kiv& i, tagRECT* r) { return i.enhance(r, 3, 80); }},
        {"mblur_linear", [](kiv& i, tagRECT* r) { return i.mblur_linear(r, 33.0, 9); }},
        {"mblur_radial", [](kiv& i, tagRECT* r) { return i.mblur_radial(r, 4, 3, 40.0); }},
        {"mblur_round", [](kiv& i, tagRECT* r) { return i.mblur_round(r, 4, 3, 7); }},
        {"mblur_zoom", [](kiv& i, tagRECT* r) { return i.mblur_zoom(r, 4, 3, 60); }},
        {"sblur_wind", [](kiv& i, tagRECT* r) { return i.sblur_wind(r, 1, 12); }},
        {"sblur_blast", [](kiv& i, tagRECT* r) { return i.sblur_blast(r, 2, 12); }},
    };
}

}  // namespace

TEST(FilterSharpenMotion, FlatImagesStayFlatAndOutsideStaysUntouched) {
    for (const Op& op : smoothing_ops()) {
        kiv flat = flat_image(13, 11, tagRGBA{90, 140, 10, 33}), want(flat);
        ASSERT_EQ(op.run(flat, nullptr), 1) << op.name;
        EXPECT_TRUE(images_equal(flat, want)) << op.name;
        kiv img = random_image(17, 15, 8, 4), orig(img);
        tagRECT r{-3, 4, 11, 30};
        ASSERT_EQ(op.run(img, &r), 1) << op.name;
        EXPECT_EQ(img.m_bits, 24) << op.name;
        int changed = 0;
        for (int y = 0; y < 15; ++y)
            for (int x = 0; x < 17; ++x) {
                const bool inside = x < 11 && y >= 4;
                if (!inside) {
                    ASSERT_TRUE(same_rgba(px(img, x, y), px(orig, x, y))) << op.name << " " << x << "," << y;
                } else {
                    ASSERT_EQ(px(img, x, y).a, px(orig, x, y).a) << op.name << " alpha";
                    changed += !same_rgba(px(img, x, y), px(orig, x, y));
                }
            }
        EXPECT_GT(changed, 10) << op.name << " did nothing";
    }
}

TEST(FilterSharpenMotion, NeutralParametersGiveTheIdentity) {
    const Op neutral[] = {
        {"sharpen2 0", [](kiv& i, tagRECT* r) { return i.sharpen2(r, 0); }},
        {"unsharp amount 0", [](kiv& i, tagRECT* r) { return i.unsharp_mask(r, 3.0, 0, 0); }},
        {"unsharp threshold 255", [](kiv& i, tagRECT* r) { return i.unsharp_mask2(r, 3.0, 500, 255); }},
        {"enhance 0", [](kiv& i, tagRECT* r) { return i.enhance(r, 5, 0); }},
        {"linear 0", [](kiv& i, tagRECT* r) { return i.mblur_linear(r, 10.0, 0); }},
        {"radial 0", [](kiv& i, tagRECT* r) { return i.mblur_radial(r, 3, 3, 0.0); }},
        {"round 0", [](kiv& i, tagRECT* r) { return i.mblur_round(r, 3, 3, 0); }},
        {"zoom 0", [](kiv& i, tagRECT* r) { return i.mblur_zoom(r, 3, 3, 0); }},
    };
    for (const Op& op : neutral) {
        kiv img = random_image(19, 7, 24, 12), orig(img);
        ASSERT_EQ(op.run(img, nullptr), 1) << op.name;
        EXPECT_TRUE(images_equal(img, orig)) << op.name;
    }
}

TEST(FilterSharpenMotion, HandCheckedValues) {
    // Horizontal motion over 2 pixels: mean of x-1, x, x+1 (rounded), clamped at the ends.
    kiv img(5, 1, 24);
    const BYTE v[5] = {0, 30, 61, 200, 255};
    for (int x = 0; x < 5; ++x) img.m_pixels[x] = tagRGBA{v[x], v[x], v[x], 1};
    kiv lin(img);
    ASSERT_EQ(lin.mblur_linear(nullptr, 0.0, 2), 1);
    const int want[5] = {10, 30, 97, 172, 237};
    for (int x = 0; x < 5; ++x) EXPECT_EQ(px(lin, x, 0).r, want[x]) << x;
    // sharpen2 at 100 % on a single bright pixel: O + (8 O - 0) / 8 = 2 O, clamped.
    kiv dot = flat_image(3, 3, tagRGBA{0, 0, 0, 0});
    dot.m_pixels[4] = tagRGBA{100, 200, 10, 0};
    ASSERT_EQ(dot.sharpen2(nullptr, 100), 1);
    EXPECT_TRUE(same_rgba(px(dot, 1, 1), tagRGBA{200, 255, 20, 0}));
    // Wind to the right: a bright pixel's trail fades and never reaches leftwards.
    kiv w = flat_image(40, 1, tagRGBA{0, 0, 0, 0});
    w.m_pixels[5] = tagRGBA{255, 255, 255, 0};
    ASSERT_EQ(w.sblur_wind(nullptr, 0, 10), 1);
    EXPECT_EQ(px(w, 4, 0).r, 0);
    EXPECT_GT(px(w, 6, 0).r, 200);
    for (int x = 6; x < 39; ++x) EXPECT_GE(px(w, x, 0).r, px(w, x + 1, 0).r);
    EXPECT_EQ(px(w, 39, 0).r, 0);
    // unsharp_mask2 adds the same change to every channel.
    kiv c = random_image(21, 9, 24, 6), orig(c);
    ASSERT_EQ(c.unsharp_mask2(nullptr, 1.5, 200, 0), 1);
    for (int i = 0; i < c.m_packets; ++i) {
        const tagRGBA a = orig.m_pixels[i], b = c.m_pixels[i];
        const int d = b.g - a.g;
        if (b.r != 0 && b.r != 255 && b.b != 0 && b.b != 255 && b.g != 0 && b.g != 255) {
            ASSERT_EQ(b.r - a.r, d) << i;
            ASSERT_EQ(b.b - a.b, d) << i;
        }
    }
}

TEST(FilterSharpenMotion, RefusalsLeaveTheImage) {
    kiv img = random_image(9, 8, 8, 3), orig(img);
    tagRECT outside{-9, -9, 0, 0};
    const int results[] = {
        img.sharpen2(nullptr, -1), img.sharpen2(nullptr, 1001), img.sharpen2(&outside, 50),
        img.unsharp_mask(nullptr, 0.0, 50, 0), img.unsharp_mask(nullptr, std::nan(""), 50, 0),
        img.unsharp_mask(nullptr, 2.0, -1, 0), img.unsharp_mask(nullptr, 2.0, 50, 256),
        img.unsharp_mask2(nullptr, 1e9, 50, 0), img.enhance(nullptr, 0, 50), img.enhance(nullptr, 3, 101),
        img.mblur_linear(nullptr, INFINITY, 5), img.mblur_linear(nullptr, 0, -1), img.mblur_linear(nullptr, 0, 1001),
        img.mblur_radial(nullptr, 0, 0, 361.0), img.mblur_radial(nullptr, 0, 0, std::nan("")),
        img.mblur_radial(nullptr, 0x7FFFFFFF, 0, 10.0), img.mblur_round(nullptr, 0, 0, -2),
        img.mblur_zoom(nullptr, 0, 0, 101), img.mblur_zoom(nullptr, 0, -0x7FFFFFFF, 50),
        img.sblur_wind(nullptr, 4, 10), img.sblur_wind(nullptr, 0, 0), img.sblur_blast(nullptr, -1, 10),
        img.sblur_blast(nullptr, 3, 1001),
    };
    for (std::size_t i = 0; i < sizeof(results) / sizeof(results[0]); ++i) EXPECT_EQ(results[i], 0) << "case " << i;
    EXPECT_TRUE(images_equal(img, orig));
    EXPECT_EQ(img.m_bits, 8);
    kiv empty;
    for (const Op& op : smoothing_ops()) EXPECT_EQ(op.run(empty, nullptr), 0) << op.name;
    EXPECT_EQ(empty.filter_3x3(nullptr, 0) + empty.edge(nullptr, 1) + empty.emboss(nullptr, nullptr) +
                  empty.raise_edge(nullptr, 1) + empty.filter_sharpen(nullptr, 3),
              0);
}

namespace {

// enhance written out per pixel: the box summed directly, lightness from the HLS model.
void ref_enhance(kiv& img, tagRECT* rect, int radius, int amount) {
    tagRECT r;
    img.validaterect(rect, &r);
    const int w = r.right - r.left, h = r.bottom - r.top;
    std::vector<int> L(static_cast<std::size_t>(w) * h);
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i) {
            const tagRGBA p = px(img, r.left + i, r.top + j);
            L[j * w + i] = kivcore::rgb_to_hls(p.r, p.g, p.b).l;
        }
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i) {
            long long s1 = 0, s2 = 0, n = 0;
            for (int y = std::max(0, j - radius); y < std::min(h, j + radius + 1); ++y)
                for (int x = std::max(0, i - radius); x < std::min(w, i + radius + 1); ++x, ++n) {
                    s1 += L[y * w + x];
                    s2 += L[y * w + x] * L[y * w + x];
                }
            const double mean = double(s1) / double(n), var = double(s2) / double(n) - mean * mean;
            const double sd = std::sqrt(var > 0.0 ? var : 0.0);
            const double g = std::clamp(40.0 / (sd + 1.0), 1.0, 3.0);
            const double gain = 1.0 + amount / 100.0 * (g - 1.0);
            const double v = mean + (L[j * w + i] - mean) * gain + 0.5;
            const int nl = !(v >= 0.0) ? 0 : (v > 255.0 ? 255 : int(v));
            tagRGBA& o = img.m_pixels[static_cast<std::size_t>(r.top + j) * img.m_width + r.left + i];
            for (BYTE* c : {&o.r, &o.g, &o.b}) *c = BYTE(std::clamp(*c + nl - L[j * w + i], 0, 255));
        }
    img.m_bits = std::max(img.m_bits, 24);
}

}  // namespace

// Bands of rows at one to three threads, boxes clipped on every side and larger than the
// rectangle.
TEST(FilterSharpenMotion, EnhanceMatchesThePerPixelReference) {
    struct Shape {
        int w, h;
        tagRECT r;
    };
    const Shape shapes[] = {{61, 47, {-3, 2, 55, 60}}, {9, 40, {1, 0, 8, 40}}, {33, 5, {0, 0, 33, 5}}};
    for (int threads = 1; threads <= 3; ++threads) {
        kiv::setthreads(threads);
        kivfilter::set_force_scalar(threads == 2);  // the lightness of sixteen pixels at a time, or one
        for (const Shape& sh : shapes)
            for (int radius : {1, 3, 17, 1000})
                for (int amount : {100, 37}) {
                    tagRECT r = sh.r;
                    kiv got = random_image(sh.w, sh.h, radius == 3 ? 8 : 24, static_cast<std::uint64_t>(sh.w + radius + threads));
                    // Runs of equal pixels, so that low deviations (the high gains) occur too.
                    for (int i = 0; i < got.m_packets; ++i) got.m_pixels[i] = got.m_pixels[i - i % 4];
                    kiv want(got);
                    ASSERT_EQ(got.enhance(&r, radius, amount), 1);
                    ref_enhance(want, &r, radius, amount);
                    EXPECT_TRUE(images_equal(got, want)) << sh.w << "x" << sh.h << " radius " << radius << " amount " << amount
                                                         << " threads " << threads;
                }
    }
    kivfilter::set_force_scalar(false);
    kiv::setthreads(0);
}
