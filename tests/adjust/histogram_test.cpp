// Histogram-driven adjustments against plain one-thread references, plus their anchors.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <vector>

#include "core/color_models.h"
#include "kiv.h"
#include "support/image_check.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;

namespace {

using u32 = std::uint32_t;

void ref_validate(kiv& k) {
    if (k.m_bits >= 24) return;
    for (int i = 0; i < k.m_packets; ++i) {
        tagRGBA& p = k.m_pixels[i];
        if (p.a < k.m_colors) p.r = k.m_map[p.a].r, p.g = k.m_map[p.a].g, p.b = k.m_map[p.a].b;
    }
}

// Stretching n records channel by channel, as described: min and max, then the table.
void ref_stretch(tagRGBA* recs, int n) {
    for (int c = 0; c < 3; ++c) {
        int lo = 255, hi = 0;
        for (int i = 0; i < n; ++i) {
            const int v = (&recs[i].r)[c];
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
        }
        if (n < 1) continue;
        BYTE table[256];
        for (int v = 0; v < 256; ++v) table[v] = static_cast<BYTE>(v);
        if (hi != lo)
            for (int v = lo; v <= hi; ++v) table[v] = static_cast<BYTE>(255 * (v - lo) / (hi - lo));
        for (int i = 0; i < n; ++i) (&recs[i].r)[c] = table[(&recs[i].r)[c]];
    }
}

int ref_autocontrast(kiv& k, tagRECT* rect) {
    tagRECT rc;
    if (!k.validaterect(rect, &rc)) return 0;
    if (k.m_bits > 8) {
        const int w = rc.right - rc.left, h = rc.bottom - rc.top;
        std::vector<tagRGBA> buf(static_cast<std::size_t>(w) * h);
        k.getpacket(buf.data(), rc.left, rc.top, w, h);
        ref_stretch(buf.data(), w * h);
        k.setpacket(buf.data(), rc.left, rc.top, w, h);
    } else {
        ref_stretch(k.m_map, k.m_colors);
        ref_validate(k);
    }
    return 1;
}

void ref_histogram(kiv& k, u32 (&hist)[256]) {
    for (u32& h : hist) h = 0;
    for (int i = 0; i < k.m_packets; ++i) {
        const tagRGBA& p = k.m_pixels[i];
        ++hist[(77 * p.r + 150 * p.g + 29 * p.b) >> 8];
    }
}

void ref_apply(kiv& k, const tagRECT& rc, const BYTE (&t)[256], bool pixels) {
    if (pixels) {
        for (int y = rc.top; y < rc.bottom; ++y)
            for (int x = rc.left; x < rc.right; ++x) {
                tagRGBA& p = k.m_pixels[y * k.m_width + x];
                p.r = t[p.r], p.g = t[p.g], p.b = t[p.b];
            }
    } else {
        for (int i = 0; i < k.m_colors; ++i) {
            tagRGBA& p = k.m_map[i];
            p.r = t[p.r], p.g = t[p.g], p.b = t[p.b];
        }
    }
}

int ref_equalize(kiv& k, tagRECT* rect) {
    tagRECT rc;
    if (!k.validaterect(rect, &rc)) return 0;
    u32 hist[256], cum[256];
    ref_histogram(k, hist);
    u32 s = 0;
    for (int i = 0; i < 256; ++i) cum[i] = s += hist[i];
    if (cum[255] == 0) return 0;
    u32 d = cum[255] - cum[0];
    if (d == 0) d = 1;
    BYTE t[256];
    for (int i = 0; i < 256; ++i) t[i] = static_cast<BYTE>(((cum[i] - cum[0]) * 255u) / d);
    ref_apply(k, rc, t, k.m_bits >= 24);
    if (k.m_bits < 24) ref_validate(k);
    return 1;
}

int ref_normalize(kiv& k, tagRECT* rect) {
    tagRECT rc;
    if (!k.validaterect(rect, &rc)) return 0;
    u32 hist[256];
    ref_histogram(k, hist);
    int lo = 0, hi = 0;
    for (u32 t : {static_cast<u32>(k.m_packets / 100), 0u}) {
        u32 sum = 0;
        lo = 255;
        for (int i = 0; i < 255; ++i)
            if ((sum += hist[i]) > t) {
                lo = i;
                break;
            }
        sum = 0;
        hi = 0;
        for (int i = 255; i >= 1; --i)
            if ((sum += hist[i]) > t) {
                hi = i;
                break;
            }
        if (lo != hi) break;
    }
    if (lo == hi) {
        k.destroy();
        return 0;
    }
    BYTE t[256];
    for (int i = 0; i < 256; ++i)
        t[i] = i < lo ? 0 : i > hi ? 255 : static_cast<BYTE>(254u * static_cast<u32>(i - lo) / static_cast<u32>(hi - lo));
    ref_apply(k, rc, t, k.m_bits >= 24);  // 32 bits counts as true colour
    return 1;
}

// Through a scratch copy of the rectangle, as described, one record at a time.
int ref_autocolorenhance(kiv& k, tagRECT* rect) {
    kiv scratch;
    tagRGBA* recs;
    int n;
    tagRECT rc{};
    if (k.m_bits >= 24) {
        if (!k.validaterect(rect, &rc)) return 0;
        scratch.create(rc.right - rc.left, rc.bottom - rc.top, k.m_bits);
        scratch.blt(0, 0, scratch.m_width, scratch.m_height, &k, rc.left, rc.top);
        recs = scratch.m_pixels;
        n = scratch.m_packets;
    } else {
        recs = k.m_map;
        n = k.m_colors;
    }
    auto hsv_of = [](const tagRGBA& p, int* kk) {
        const int c = 255 - p.r, m = 255 - p.g, y = 255 - p.b;
        *kk = std::min(c, std::min(m, y));
        return kivcore::rgb_to_hsv(c - *kk, m - *kk, y - *kk);
    };
    double vmax = 0.0, vmin = 1.0;
    for (int i = 0; i < n; ++i) {
        int kk;
        const double v = hsv_of(recs[i], &kk).v;
        if (v > vmax) vmax = v;
        if (v < vmin) vmin = v;
    }
    for (int i = 0; i < n; ++i) {
        int kk, c, m, y;
        kivcore::Hsv h = hsv_of(recs[i], &kk);
        if (vmax != vmin) h.v = (h.v - vmin) / (vmax - vmin);
        kivcore::hsv_to_rgb(h, &c, &m, &y);
        recs[i].r = static_cast<BYTE>(255 - static_cast<BYTE>(c + kk));
        recs[i].g = static_cast<BYTE>(255 - static_cast<BYTE>(m + kk));
        recs[i].b = static_cast<BYTE>(255 - static_cast<BYTE>(y + kk));
    }
    if (k.m_bits >= 24) k.blt(rc.left, rc.top, scratch.m_width, scratch.m_height, &scratch, 0, 0);
    return 1;
}

using Op = std::function<int(kiv&, tagRECT*)>;
struct Member {
    const char* name;
    Op fast, ref;
};
const Member kMembers[] = {
    {"autocontrast", [](kiv& k, tagRECT* r) { return k.autocontrast(r); }, ref_autocontrast},
    {"equalize", [](kiv& k, tagRECT* r) { return k.equalize(r); }, ref_equalize},
    {"normalize", [](kiv& k, tagRECT* r) { return k.normalize(r); }, ref_normalize},
    {"autocolorenhance", [](kiv& k, tagRECT* r) { return k.autocolorenhance(r); }, ref_autocolorenhance},
};

// Random bytes squeezed into base .. base + span - 1: narrow histograms stretch visibly.
kiv narrow_image(int w, int h, int bits, int base, int span, std::uint64_t seed) {
    kiv img = random_image(w, h, bits, seed);
    auto squeeze = [&](tagRGBA& p) {
        p.r = static_cast<BYTE>(base + p.r % span), p.g = static_cast<BYTE>(base + p.g % span);
        p.b = static_cast<BYTE>(base + p.b % span);
    };
    for (int i = 0; i < img.m_colors; ++i) squeeze(img.m_map[i]);
    for (int i = 0; i < img.m_packets; ++i) squeeze(img.m_pixels[i]);
    if (bits < 24) ref_validate(img);
    return img;
}

}  // namespace

TEST(HistogramAdjust, MatchesTheOneThreadReferences) {
    struct Shape {
        int w, h, bits, base, span;
        tagRECT rect;
        bool null_rect;
    } shapes[] = {
        {1, 1, 24, 0, 256, {}, true},          {37, 23, 24, 0, 256, {}, true},
        {37, 23, 24, 60, 40, {-5, 3, 20, 99}, false}, {64, 9, 32, 100, 9, {7, -2, 63, 5}, false},
        {5, 301, 24, 0, 256, {1, 1, 4, 300}, false},  {19, 7, 8, 30, 100, {}, true},
        {19, 7, 8, 30, 100, {2, 2, 3, 3}, false},     {11, 4, 4, 0, 256, {}, true},
        {13, 5, 1, 10, 50, {}, true},             {300, 200, 24, 20, 200, {13, 17, 290, 199}, false},
    };
    // The vector kernels' tails and the row split differ by path and thread count.
    kivtest::on_every_path(2, [&](int, int) {
        for (const Member& m : kMembers)
            for (const Shape& s : shapes) {
                kiv img = narrow_image(s.w, s.h, s.bits, s.base, s.span, 1000 + s.w * 7 + s.bits), expect(img);
                tagRECT r1 = s.rect, r2 = s.rect;
                const int got = m.fast(img, s.null_rect ? nullptr : &r1);
                const int want = m.ref(expect, s.null_rect ? nullptr : &r2);
                EXPECT_EQ(want, got) << m.name;
                EXPECT_TRUE(images_equal(expect, img)) << m.name << " " << s.w << "x" << s.h << "@" << s.bits;
                for (int i = 0; i < expect.m_colors && img.m_map; ++i)
                    ASSERT_TRUE(kivtest::same_rgba(expect.m_map[i], img.m_map[i])) << m.name << " entry " << i;
            }
    });
}

TEST(HistogramAdjust, Anchors) {
    // autocontrast: a channel that is all 7 stays; 10..20 stretches to 0..255.
    kiv a(3, 1, 24);
    const BYTE reds[3] = {10, 15, 20};
    for (int i = 0; i < 3; ++i) a.m_pixels[i] = tagRGBA{reds[i], 7, BYTE(i), 9};
    ASSERT_EQ(1, a.autocontrast(nullptr));
    EXPECT_EQ(0, a.m_pixels[0].r);
    EXPECT_EQ(127, a.m_pixels[1].r);
    EXPECT_EQ(255, a.m_pixels[2].r);
    EXPECT_EQ(7, a.m_pixels[1].g);
    EXPECT_EQ(255, a.m_pixels[2].b);
    EXPECT_EQ(9, a.m_pixels[2].a);

    // equalize of an image whose luminance is 0 everywhere: every level maps to 0.
    kiv e(4, 2, 24);
    for (int i = 0; i < 8; ++i) e.m_pixels[i] = tagRGBA{BYTE(i % 2), BYTE(i % 2), 0, 200};  // (77 + 150) >> 8 = 0
    ASSERT_EQ(1, e.equalize(nullptr));
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(e.m_pixels[i].r == 0 && e.m_pixels[i].g == 0 && e.m_pixels[i].a == 200);

    // normalize: low point 0, high point 254, above it 255 (200 pixels: 1% is 2).
    kiv n(200, 1, 24);
    for (int i = 0; i < 200; ++i) {
        const BYTE v = i < 2 ? 250 : i < 100 ? 50 : 150;
        n.m_pixels[i] = tagRGBA{v, v, v, 0};
    }
    ASSERT_EQ(1, n.normalize(nullptr));
    EXPECT_EQ(255, n.m_pixels[0].g);  // above the high point
    EXPECT_EQ(0, n.m_pixels[50].g);
    EXPECT_EQ(254, n.m_pixels[150].g);

    // One pixel of 200 away from the rest: within 1%, so the outermost levels are used.
    for (int i = 0; i < 200; ++i) n.m_pixels[i] = i ? tagRGBA{50, 50, 50, 0} : tagRGBA{150, 150, 150, 0};
    ASSERT_EQ(1, n.normalize(nullptr));
    EXPECT_TRUE(n.m_pixels[0].g == 254 && n.m_pixels[1].g == 0);

    // normalize of one flat colour destroys the image.
    kiv flat(6, 6, 24);
    for (int i = 0; i < 36; ++i) flat.m_pixels[i] = tagRGBA{40, 90, 12, 1};
    EXPECT_EQ(0, flat.normalize(nullptr));
    EXPECT_EQ(nullptr, flat.m_pixels);
    EXPECT_EQ(0, flat.m_width);

    // Tables come from the whole image: the same rectangle, different surroundings.
    kiv x = narrow_image(20, 20, 24, 50, 100, 3), y(x);
    for (int i = 0; i < 200; ++i) y.m_pixels[i] = tagRGBA{255, 255, 255, 0};  // top half white
    tagRECT r{0, 15, 20, 20};
    x.equalize(&r);
    y.equalize(&r);
    int differ = 0;
    for (int i = 300; i < 400; ++i) differ += x.m_pixels[i].r != y.m_pixels[i].r;
    EXPECT_GT(differ, 0);
}

TEST(HistogramAdjust, PathsAndRefusals) {
    // Palettized: autocolorenhance and normalize change the map and leave the pixels.
    for (const Member& m : {kMembers[2], kMembers[3]}) {
        kiv pal = narrow_image(16, 16, 8, 20, 60, 4), before(pal);
        tagRECT outside{50, 50, 60, 60};
        const int expect = m.name[0] == 'a' ? 1 : 0;  // normalize still validates the rectangle
        EXPECT_EQ(expect, m.fast(pal, &outside)) << m.name;
        ASSERT_EQ(1, m.fast(pal, nullptr)) << m.name;
        EXPECT_TRUE(images_equal(before, pal)) << m.name;
        int changed = 0;
        for (int i = 0; i < 256; ++i) changed += pal.m_map[i].r != before.m_map[i].r;
        EXPECT_GT(changed, 0) << m.name;
    }
    // Indices beyond a short map must not be followed (refusals are rows of the bad-input table).
    for (const Member& m : kMembers) {
        tagRECT huge{INT_MIN, INT_MIN, INT_MAX, INT_MAX};
        kiv short_map = random_image(9, 9, 8, 6);
        short_map.m_colors = 2;
        m.fast(short_map, &huge);
        EXPECT_EQ("", kivtest::image_violation(short_map)) << m.name;
    }
}
