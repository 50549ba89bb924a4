// Sharpening and motion blurs: neutral parameters, flat images, rectangle bounds, refusals,
// and hand-checked values for the simple cases.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "core/color_models.h"
#include "core/kmath.h"
#include "core/simd.h"
#include "filter/filter.h"
#include "filter_test_util.h"
#include "support/checks.h"
#include "support/paths.h"

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
        EXPECT_TRUE(unchanged_outside(orig, img, tagRECT{0, 4, 11, 15})) << op.name;
        int changed = 0;
        for (int i = 0; i < img.m_packets; ++i) {
            ASSERT_EQ(img.m_pixels[i].a, orig.m_pixels[i].a) << op.name << " alpha";
            changed += !same_rgba(img.m_pixels[i], orig.m_pixels[i]);
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

// The centre may lie up to 4 * (width + height) + 1024 pixels outside the image on each side:
// the last pixel inside that limit is accepted, the next one refused, on all four sides.
TEST(FilterSharpenMotion, CentreLimitIsTheSameOnEverySide) {
    const int w = 5, h = 4, lim = 4 * (w + h) + 1024;
    const struct { int cx, cy, dx, dy; } sides[] = {{-lim, 1, -1, 0}, {w - 1 + lim, 1, 1, 0}, {2, -lim, 0, -1}, {2, h - 1 + lim, 0, 1}};
    const std::function<int(kiv&, int, int)> ops[] = {[](kiv& i, int x, int y) { return i.mblur_radial(nullptr, x, y, 40.0); },
                                                      [](kiv& i, int x, int y) { return i.mblur_round(nullptr, x, y, 7); },
                                                      [](kiv& i, int x, int y) { return i.mblur_zoom(nullptr, x, y, 60); }};
    for (int k = 0; k < 3; ++k)
        for (const auto& s : sides)
            for (int past = 0; past < 2; ++past) {
                kiv img = random_image(w, h, 24, 5), orig(img);
                const int cx = s.cx + past * s.dx, cy = s.cy + past * s.dy;
                EXPECT_EQ(ops[k](img, cx, cy), !past) << "op " << k << " centre " << cx << "," << cy;
                if (past) {
                    EXPECT_TRUE(images_equal(img, orig)) << "op " << k;
                }
            }
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

// Bands of rows at one to three threads on every path, boxes clipped on every side and
// larger than the rectangle.
TEST(FilterSharpenMotion, EnhanceMatchesThePerPixelReference) {
    struct Shape {
        int w, h;
        tagRECT r;
    };
    const Shape shapes[] = {{61, 47, {-3, 2, 55, 60}}, {9, 40, {1, 0, 8, 40}}, {33, 5, {0, 0, 33, 5}}};
    kivtest::on_every_path(3, [&](int path, int threads) {
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
                                                         << " path " << path << " threads " << threads;
                }
    });
}

namespace {

// The motion and streak blurs written out per pixel from their documented rules: nearest
// samples with coordinates clamped to the image, rounded means, sample positions as
// floor(v + 0.5) of the double positions.
long long ref_round(double v) { return static_cast<long long>(std::floor(v + 0.5)); }

tagRGBA ref_sample(const kiv& src, long long x, long long y) {
    x = std::clamp<long long>(x, 0, src.m_width - 1);
    y = std::clamp<long long>(y, 0, src.m_height - 1);
    return src.m_pixels[static_cast<std::size_t>(y) * src.m_width + static_cast<std::size_t>(x)];
}

struct RefMean {
    int s[3] = {0, 0, 0}, n = 0;
    void add(const tagRGBA& p) {
        s[0] += p.r, s[1] += p.g, s[2] += p.b;
        ++n;
    }
    tagRGBA result(BYTE a) const {
        return tagRGBA{BYTE((s[0] + n / 2) / n), BYTE((s[1] + n / 2) / n), BYTE((s[2] + n / 2) / n), a};
    }
};

// Runs f(src, x, y) over the rectangle with every sample from the unchanged image.
template <class F>
void ref_per_pixel(kiv& img, tagRECT* rect, F f) {
    tagRECT r;
    img.validaterect(rect, &r);
    kiv src(img);
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) img.m_pixels[static_cast<std::size_t>(y) * img.m_width + x] = f(src, x, y);
    img.m_bits = std::max(img.m_bits, 24);
}

void ref_mblur_linear(kiv& img, tagRECT* rect, double angle, int distance) {
    const double rad = angle * kivcore::kmath::kDegToRad, c = kivcore::kmath::cos(rad), s = kivcore::kmath::sin(rad);
    ref_per_pixel(img, rect, [&](kiv& src, int x, int y) {
        RefMean m;
        for (int k = 0; k <= distance; ++k) {
            const double t = k - distance / 2.0;
            m.add(ref_sample(src, x + ref_round(t * c), y + ref_round(-t * s)));
        }
        return m.result(px(src, x, y).a);
    });
}

double ref_farthest(kiv& img, tagRECT* rect, double cx, double cy) {
    tagRECT r;
    img.validaterect(rect, &r);
    double best = 0.0;
    for (double x : {double(r.left), double(r.right - 1)})
        for (double y : {double(r.top), double(r.bottom - 1)}) best = std::max(best, std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy)));
    return best;
}

void ref_mblur_radial(kiv& img, tagRECT* rect, int cx, int cy, double angle) {
    const double span = angle * kivcore::kmath::kDegToRad;
    const double want = std::ceil(ref_farthest(img, rect, cx, cy) * span) + 1.0;
    const int n = want < 2.0 ? 2 : (want > 256 ? 256 : int(want));
    std::vector<double> cs(n), sn(n);
    for (int k = 0; k < n; ++k) {
        const double t = span * (double(k) / (n - 1) - 0.5);
        cs[k] = kivcore::kmath::cos(t);
        sn[k] = kivcore::kmath::sin(t);
    }
    ref_per_pixel(img, rect, [&](kiv& src, int x, int y) {
        const double ox = double(x) - cx, oy = double(y) - cy;
        RefMean m;
        for (int k = 0; k < n; ++k) m.add(ref_sample(src, cx + ref_round(ox * cs[k] - oy * sn[k]), cy + ref_round(ox * sn[k] + oy * cs[k])));
        return m.result(px(src, x, y).a);
    });
}

void ref_mblur_round(kiv& img, tagRECT* rect, int cx, int cy, int amount) {
    ref_per_pixel(img, rect, [&](kiv& src, int x, int y) {
        const double ox = double(x) - cx, oy = double(y) - cy, r = std::sqrt(ox * ox + oy * oy);
        if (r < 0.5) return px(src, x, y);
        const double span = std::min(amount / r, 6.283185307179586), step = span / amount;
        const double c = kivcore::kmath::cos(step), s = kivcore::kmath::sin(step);
        double vx = ox * kivcore::kmath::cos(-span / 2) - oy * kivcore::kmath::sin(-span / 2);
        double vy = ox * kivcore::kmath::sin(-span / 2) + oy * kivcore::kmath::cos(-span / 2);
        RefMean m;
        for (int k = 0; k <= amount; ++k) {
            m.add(ref_sample(src, cx + ref_round(vx), cy + ref_round(vy)));
            const double nx = vx * c - vy * s;
            vy = vx * s + vy * c;
            vx = nx;
        }
        return m.result(px(src, x, y).a);
    });
}

void ref_mblur_zoom(kiv& img, tagRECT* rect, int cx, int cy, int amount) {
    const double reach = amount / 100.0;
    ref_per_pixel(img, rect, [&](kiv& src, int x, int y) {
        const double ox = double(x) - cx, oy = double(y) - cy;
        const double want = std::ceil(std::sqrt(ox * ox + oy * oy) * reach) + 1.0;
        const int n = want < 2.0 ? 2 : (want > 256 ? 256 : int(want));
        RefMean m;
        for (int k = 0; k < n; ++k) {
            const double f = 1.0 - reach * k / (n - 1);
            m.add(ref_sample(src, cx + ref_round(ox * f), cy + ref_round(oy * f)));
        }
        return m.result(px(src, x, y).a);
    });
}

int ref_streak_length(int line, int strength) {
    std::uint32_t v = static_cast<std::uint32_t>(line) * 0x9E3779B1u;
    v ^= v >> 15;
    v *= 0x85EBCA77u;
    v ^= v >> 13;
    const int half = strength / 2;
    return std::max(1, half + static_cast<int>(v % static_cast<std::uint32_t>(strength - half + 1)));
}

// Wind (blast = false) or blast over the rectangle's lines; element 0 of a line is its
// upwind end; only the rectangle is read.
void ref_streak(kiv& img, tagRECT* rect, int direction, int strength, bool blast) {
    tagRECT r;
    img.validaterect(rect, &r);
    kiv src(img);
    const bool horizontal = direction < 2, reverse = direction == 1 || direction == 3;
    const int w = r.right - r.left, h = r.bottom - r.top, lines = horizontal ? h : w, n = horizontal ? w : h;
    for (int q = 0; q < lines; ++q) {
        auto at = [&](int k) -> std::size_t {
            const int p = reverse ? n - 1 - k : k;
            const int x = r.left + (horizontal ? p : q), y = r.top + (horizontal ? q : p);
            return static_cast<std::size_t>(y) * img.m_width + x;
        };
        const int len = ref_streak_length(q, strength), fade = std::max(1, 255 / len);
        int t[3] = {0, 0, 0}, s[3] = {0, 0, 0};
        for (int k = 0; k < n; ++k) {
            const tagRGBA in = src.m_pixels[at(k)];
            const int v[3] = {in.r, in.g, in.b};
            int o[3];
            for (int c = 0; c < 3; ++c) {
                if (!blast) {
                    t[c] = std::max(v[c], t[c] - fade);
                    o[c] = t[c];
                } else {
                    s[c] += v[c];
                    if (k >= len) s[c] -= reinterpret_cast<const BYTE*>(&src.m_pixels[at(k - len)])[c];
                    const int cnt = std::min(k + 1, len);
                    o[c] = std::max(v[c], (s[c] + cnt / 2) / cnt);
                }
            }
            img.m_pixels[at(k)] = tagRGBA{BYTE(o[0]), BYTE(o[1]), BYTE(o[2]), in.a};
        }
    }
    img.m_bits = std::max(img.m_bits, 24);
}

}  // namespace

// Every member against its reference on odd sizes, rectangles partly outside (samples come
// from outside them) and centres inside, on the edge of and far from the image, at one to
// three threads and on every path.
TEST(FilterSharpenMotion, MotionBlursMatchThePerPixelReferences) {
    struct Shape {
        int w, h;
        tagRECT r;
    };
    const Shape shapes[] = {{61, 47, {-3, 2, 55, 60}}, {9, 40, {1, 0, 8, 40}}, {37, 5, {0, 0, 37, 5}}, {1, 1, {0, 0, 1, 1}}};
    kivtest::on_every_path(3, [&](int path, int threads) {
        for (const Shape& sh : shapes) {
            const std::uint64_t seed = static_cast<std::uint64_t>(sh.w * 5 + threads + path);
            const int centres[][2] = {{sh.w / 2, sh.h / 3}, {0, sh.h - 1}, {-70, 2 * sh.h + 9}};
            const kiv src = random_image(sh.w, sh.h, 24, seed);
            auto check = [&](const char* what, auto run, auto ref) {
                tagRECT r = sh.r, q = sh.r;
                EXPECT_TRUE(matches(src, [&](kiv& i) { return run(i, &r); }, [&](kiv& i) { ref(i, &q); }))
                    << what << " " << sh.w << "x" << sh.h;
            };
            for (double angle : {0.0, 33.0, 90.0, -147.5})
                for (int d : {1, 9, 40, 300})
                    check("linear", [&](kiv& i, tagRECT* r) { return i.mblur_linear(r, angle, d); },
                          [&](kiv& i, tagRECT* r) { ref_mblur_linear(i, r, angle, d); });
            for (auto& c : centres) {
                for (double angle : {5.0, 40.0, 360.0})
                    check("radial", [&](kiv& i, tagRECT* r) { return i.mblur_radial(r, c[0], c[1], angle); },
                          [&](kiv& i, tagRECT* r) { ref_mblur_radial(i, r, c[0], c[1], angle); });
                for (int amount : {1, 7, 60})
                    check("round", [&](kiv& i, tagRECT* r) { return i.mblur_round(r, c[0], c[1], amount); },
                          [&](kiv& i, tagRECT* r) { ref_mblur_round(i, r, c[0], c[1], amount); });
                for (int amount : {3, 60, 100})
                    check("zoom", [&](kiv& i, tagRECT* r) { return i.mblur_zoom(r, c[0], c[1], amount); },
                          [&](kiv& i, tagRECT* r) { ref_mblur_zoom(i, r, c[0], c[1], amount); });
            }
            for (int dir = 0; dir < 4; ++dir)
                for (int strength : {1, 12, 300}) {
                    check("wind", [&](kiv& i, tagRECT* r) { return i.sblur_wind(r, dir, strength); },
                          [&](kiv& i, tagRECT* r) { ref_streak(i, r, dir, strength, false); });
                    check("blast", [&](kiv& i, tagRECT* r) { return i.sblur_blast(r, dir, strength); },
                          [&](kiv& i, tagRECT* r) { ref_streak(i, r, dir, strength, true); });
                }
        }
    });
}
