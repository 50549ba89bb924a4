// The HLS-based members, whose rows go through a colour cache, against plain per-pixel
// references written from the rules, on random images with and without repeated colours.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <vector>

#include "core/color_batch.h"
#include "core/color_models.h"
#include "core/simd.h"
#include "kiv.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;

namespace {

int clamp255(long long v) { return v < 0 ? 0 : v > 255 ? 255 : static_cast<int>(v); }

void ref_modulate(tagRGBA& p, int hue, int sat, int light) {
    kivcore::Hls c = kivcore::rgb_to_hls(p.r, p.g, p.b);
    c.l = clamp255(static_cast<long long>(c.l) + light);
    c.s = clamp255(c.s + ((static_cast<long long>(c.s) * sat) >> 7));
    if (c.h != 0) {
        c.h += hue;
        if (c.h < 0)
            c.h += 255;
        else if (c.h > 255)
            c.h -= 255;
    }
    int r, g, b;
    kivcore::hls_to_rgb(c.h, c.l, c.s, &r, &g, &b);
    p.r = BYTE(clamp255(r)), p.g = BYTE(clamp255(g)), p.b = BYTE(clamp255(b));
}

void ref_hue_saturation(tagRGBA& p, int range, int hue, int sat, int light) {
    double hs[7] = {}, ls[7] = {}, ss[7] = {};
    hs[range] = hue, ls[range] = light, ss[range] = sat;
    const kivcore::Hls c = kivcore::rgb_to_hls(p.r, p.g, p.b);
    const int k = c.h < 43 ? 0 : c.h < 85 ? 1 : c.h < 128 ? 2 : c.h < 171 ? 3 : c.h < 213 ? 4 : 5;
    int h = static_cast<int>((hs[k + 1] + hs[0]) * 255.0 / 360.0) + c.h;
    h = h < 0 ? h + 255 : h > 255 ? h - 255 : h;
    const int al = static_cast<int>((ls[0] + ls[k + 1]) * 127.0 / 100.0);
    const int l = al >= 0 ? c.l + (255 - c.l) * al / 255 : (al + 255) * c.l / 255;
    const int as = static_cast<int>((ss[k + 1] + ss[0]) * 255.0 / 100.0);
    const int s = clamp255((as + 255) * c.s / 255);
    int r, g, b;
    kivcore::hls_to_rgb(h, l, s, &r, &g, &b);
    p.r = BYTE(r), p.g = BYTE(g), p.b = BYTE(b);
}

// Shifts red (shadows, midtones, highlights) = (40, -60, 100), green (-100, 0, 25), blue
// (0, 70, -30), then the lightness kept.
void ref_balance_preserve(tagRGBA& p) {
    static const int shift[3][3] = {{40, -60, 100}, {-100, 0, 25}, {0, 70, -30}};
    auto curve = [](int tone, bool add, int i) {
        const double a = 1.075 - 1.0 / (i * 0.0625 + 1.0);
        const double x = (i - 127) / 127.0;
        const double q = 0.667 * (1.0 - x * x);
        if (tone == 0 && !add) return 1.075 - 1.0 / ((255 - i) * 0.0625 + 1.0);
        if (tone == 2 && add) return a;
        return q;
    };
    const int in[3] = {p.r, p.g, p.b};
    int out[3];
    for (int c = 0; c < 3; ++c) {
        int n = in[c];
        for (int t = 0; t < 3; ++t) n = clamp255(n + static_cast<long long>(curve(t, shift[c][t] > 0, n) * shift[c][t]));
        out[c] = n;
    }
    const kivcore::Hls h = kivcore::rgb_to_hls(out[0], out[1], out[2]);
    const int l = (std::max({in[0], in[1], in[2]}) + std::min({in[0], in[1], in[2]})) >> 1;
    int r, g, b;
    kivcore::hls_to_rgb(h.h, l, h.s, &r, &g, &b);
    p.r = BYTE(r), p.g = BYTE(g), p.b = BYTE(b);
}

// A true-colour image of only `colours` distinct colours, so the cache gets hits.
kiv few_colours(int w, int h, int colours, std::uint64_t seed) {
    kiv src = random_image(w, h, 8, seed);
    for (int i = 0; i < src.m_packets; ++i) {
        const BYTE idx = static_cast<BYTE>(src.m_pixels[i].a % colours);
        src.m_pixels[i] = src.m_map[idx];
        src.m_pixels[i].a = static_cast<BYTE>(seed + i);
    }
    src.alloccmap(0);
    src.m_bits = 24;
    return src;
}

}  // namespace

TEST(HlsAdjust, CachedRowsMatchPerPixelReferences) {
    tagKIV_COLORBALANCE cb{{40, -60, 100}, {-100, 0, 25}, {0, 70, -30}, 1};
    struct Case {
        const char* name;
        std::function<int(kiv&, tagRECT*)> fast;
        std::function<void(tagRGBA&)> ref;
    } cases[] = {
        {"modulate", [](kiv& k, tagRECT* r) { return k.modulate(r, 37, -70, 9); },
         [](tagRGBA& p) { ref_modulate(p, 37, -70, 9); }},
        {"modulate wraps", [](kiv& k, tagRECT* r) { return k.modulate(r, -300, 500, -200); },
         [](tagRGBA& p) { ref_modulate(p, -300, 500, -200); }},
        {"modulate far hues", [](kiv& k, tagRECT* r) { return k.modulate(r, -5000000, 90, 30); },
         [](tagRGBA& p) { ref_modulate(p, -5000000, 90, 30); }},
        {"modulate far hues up", [](kiv& k, tagRECT* r) { return k.modulate(r, 3000001, -20, -60); },
         [](tagRGBA& p) { ref_modulate(p, 3000001, -20, -60); }},
        {"hue_saturation all", [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 0, -170, 60, -35); },
         [](tagRGBA& p) { ref_hue_saturation(p, 0, -170, 60, -35); }},
        {"hue_saturation sector", [](kiv& k, tagRECT* r) { return k.hue_saturation(r, 4, 90, -100, 100); },
         [](tagRGBA& p) { ref_hue_saturation(p, 4, 90, -100, 100); }},
        {"colorbalance preserve", [&](kiv& k, tagRECT* r) { return k.colorbalance(r, &cb); }, ref_balance_preserve},
    };
    struct Shape {
        int w, h, colours;
        tagRECT rect;
    } shapes[] = {{1, 1, 0, {}},     {67, 5, 0, {-4, 1, 30, 9}}, {130, 70, 9, {3, -2, 129, 68}},
                  {300, 40, 200, {}}, {601, 7, 0, {-9, 0, 598, 8}}, {777, 5, 3000, {}}};
    // Rows cross several batches of misses, whose counts are rarely a multiple of the vector
    // width; on every path, at one to three threads.
    kivtest::on_every_path(3, [&](int path, int) {
        for (const Case& c : cases)
            for (const Shape& s : shapes) {
                kiv img = s.colours ? few_colours(s.w, s.h, s.colours, 17) : random_image(s.w, s.h, 24, 17);
                kiv expect(img);
                tagRECT r = s.rect, clipped;
                expect.validaterect(&r, &clipped);
                for (int y = clipped.top; y < clipped.bottom; ++y)
                    for (int x = clipped.left; x < clipped.right; ++x) c.ref(expect.m_pixels[y * s.w + x]);
                ASSERT_EQ(1, c.fast(img, &r)) << c.name;
                EXPECT_TRUE(images_equal(expect, img)) << c.name << " " << s.w << "x" << s.h << " path " << path;
            }
    });
}

// The batched model against the scalar one: every colour into HLS, and back from every
// lightness and saturation at hues inside, around and far outside the circle.
TEST(HlsAdjust, BatchedModelMatchesTheScalarModel) {
    std::vector<std::uint32_t> words(65536);
    std::vector<int> h(words.size()), l(words.size()), s(words.size());
    for (std::uint32_t blue = 0; blue < 256; ++blue) {
        for (std::uint32_t i = 0; i < words.size(); ++i) words[i] = blue << 16 | i | (i * 2654435761u & 0xFF000000u);
        kivcore::hls_of_words(words.data(), h.data(), l.data(), s.data(), words.size());
        for (std::uint32_t i = 0; i < words.size(); ++i) {
            const kivcore::Hls c = kivcore::rgb_to_hls(int(i & 255), int(i >> 8), int(blue));
            ASSERT_TRUE(c.h == h[i] && c.l == l[i] && c.s == s[i]) << std::hex << words[i];
        }
    }
    kivtest::Rng rng(3);
    std::vector<int> hh(65536 + 5), ll(hh.size()), ss(hh.size()), r(hh.size()), g(hh.size()), b(hh.size());
    for (int step = 0; step < 100; ++step) {
        for (std::size_t i = 0; i < hh.size(); ++i) {
            hh[i] = step < 80 ? -300 + 11 * step : static_cast<int>(rng.next() % (1u << 26)) - (1 << 25);
            ll[i] = static_cast<int>(i & 255);
            ss[i] = static_cast<int>(i >> 8 & 255);
        }
        kivcore::rgb_of_hls(hh.data(), ll.data(), ss.data(), r.data(), g.data(), b.data(), hh.size());
        for (std::size_t i = 0; i < hh.size(); ++i) {
            int rr, gg, bb;
            kivcore::hls_to_rgb(hh[i], ll[i], ss[i], &rr, &gg, &bb);
            ASSERT_TRUE(rr == r[i] && gg == g[i] && bb == b[i]) << hh[i] << " " << ll[i] << " " << ss[i];
        }
    }
}
