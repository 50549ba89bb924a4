// blur and blur_simple against literal per-pixel references; their edge rules and refusals.
#include <cmath>
#include <memory>
#include <vector>

#include "core/simd.h"
#include "filter/filter.h"
#include "filter_test_util.h"
#include "support/paths.h"

using namespace kivtest;
using namespace kivfiltertest;

namespace {

void ref_blur(kiv& img, tagRECT* rect, int dx, int dy) {
    tagRECT r;
    img.validaterect(rect, &r);
    img.m_bits = 24;
    kiv copy(img);
    const int hx = std::max(dx, 0) >> 1, hy = std::max(dy, 0) >> 1;
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            int s[3] = {0, 0, 0}, n = 0;
            auto take = [&](int sx, int sy) {
                tagRGBA p = px(img, sx, sy);
                s[0] += p.r, s[1] += p.g, s[2] += p.b, ++n;
            };
            if (x - hx >= 0 && y - hy >= 0) take(x - hx, y - hy);
            if (x - hx >= 0 && y + hy < img.m_height) take(x - hx, y + hy);
            if (x + hx < img.m_width && y - hy >= 0) take(x + hx, y - hy);
            if (x + hx < img.m_width && y + hy < img.m_height) take(x + hx, y + hy);
            tagRGBA& o = copy.m_pixels[y * img.m_width + x];
            if (n) o.r = BYTE(s[0] / n), o.g = BYTE(s[1] / n), o.b = BYTE(s[2] / n);
        }
    img.blt(r.left, r.top, r.right - r.left, r.bottom - r.top, &copy, r.left, r.top);
}

void ref_blur_simple(kiv& img, tagRECT* rect, int rad) {
    tagRECT r;
    img.validaterect(rect, &r);
    const int w = r.right - r.left, h = r.bottom - r.top;
    kiv scratch(w, h, 24);
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            long long s[3] = {0, 0, 0}, t = 0;
            for (int k = -rad; k <= rad; ++k) {
                if (x + k < 0 || x + k >= img.m_width) continue;
                const long long wk = rad + 1 - std::abs(k);
                tagRGBA p = px(img, x + k, y);
                s[0] += wk * p.r, s[1] += wk * p.g, s[2] += wk * p.b, t += wk;
            }
            scratch.m_pixels[(y - r.top) * w + x - r.left] = tagRGBA{BYTE(s[0] / t), BYTE(s[1] / t), BYTE(s[2] / t), 0};
        }
    for (int x = 0; x < w; ++x)
        for (int j = 0; j < h; ++j) {
            long long s[3] = {0, 0, 0}, t = 0;
            for (int k = -rad; k <= rad; ++k) {
                if (j + k < 0 || j + k >= h) continue;
                const long long wk = rad + 1 - std::abs(k);
                tagRGBA p = px(scratch, x, j + k);
                s[0] += wk * p.r, s[1] += wk * p.g, s[2] += wk * p.b, t += wk;
            }
            img.m_pixels[(r.top + j) * img.m_width + r.left + x] = tagRGBA{BYTE(s[0] / t), BYTE(s[1] / t), BYTE(s[2] / t), 0};
        }
    if (img.m_bits < 24) img.m_bits = 24;
}

}  // namespace

TEST(FilterBlur, MatchesReferenceOnRandomImages) {
    const int spans[][2] = {{1, 1}, {4, 0}, {0, 3}, {5, 7}, {-3, 2}, {30, 30}};
    for (Case c : cases())
        for (auto& s : spans) {
            kiv got = random_image(c.w, c.h, 8, c.w * 31 + c.h), want(got);
            ASSERT_EQ(got.blur(rect_of(c), s[0], s[1]), 1);
            ref_blur(want, rect_of(c), s[0], s[1]);
            EXPECT_TRUE(images_equal(got, want)) << c.w << "x" << c.h << " span " << s[0] << "," << s[1];
            EXPECT_EQ(got.m_bits, 24);
        }
}

TEST(FilterBlur, SpansOfOneKeepColoursAndWideSpansUseOneSide) {
    kiv img = random_image(9, 5, 32, 3), orig(img);
    ASSERT_EQ(img.blur(nullptr, 1, 1), 1);
    EXPECT_TRUE(images_equal(img, orig));
    // dx = 4, dy = 0: at x = 0 only (2, y) exists, counted twice.
    kiv b = random_image(9, 5, 24, 4), src(b);
    ASSERT_EQ(b.blur(nullptr, 4, 0), 1);
    EXPECT_EQ(px(b, 0, 2).g, px(src, 2, 2).g);
    EXPECT_EQ(px(b, 4, 2).r, (px(src, 2, 2).r + px(src, 6, 2).r) / 2);
    EXPECT_EQ(px(b, 4, 2).a, px(src, 4, 2).a);
}

TEST(FilterBlurSimple, MatchesReferenceOnRandomImages) {
    for (Case c : cases())
        for (int rad : {0, 1, 2, 5, 40})
            EXPECT_TRUE(matches(random_image(c.w, c.h, 4, c.w * 7 + c.h * 3 + rad), [&](kiv& i) { return i.blur_simple(rect_of(c), rad); },
                                [&](kiv& i) { ref_blur_simple(i, rect_of(c), rad); }))
                << c.w << "x" << c.h << " r " << rad;
}

// Rows wider than one strip, radii on both sides of the 16-bit sum limit and of the wide
// kernel's float division, rectangles partly outside, a tall rectangle crossing several
// bands of the ring, on every path and one to three threads.
TEST(FilterBlurSimple, WideRowsAndRadiusLimitsMatchReference) {
    struct Run {
        int w, h;
        tagRECT r;
        int rad;
    };
    std::vector<Run> runs;
    for (const tagRECT& r : {tagRECT{-7, 2, 290, 23}, tagRECT{3, -1, 700, 30}})
        for (int rad : {3, 14, 15, 89, 90, 257}) runs.push_back({531, 27, r, rad});
    for (int rad : {1, 5, 20}) runs.push_back({603, 262, tagRECT{2, 1, 601, 262}, rad});
    std::vector<std::unique_ptr<kiv>> src, want;
    for (const Run& run : runs) {
        const std::size_t i = src.size();
        src.push_back(std::make_unique<kiv>(random_image(run.w, run.h, 24, static_cast<std::uint64_t>(run.rad * 3 + i))));
        // Bright pixels, so sums near the limits really occur.
        for (int p = 0; p < src[i]->m_packets; ++p) src[i]->m_pixels[p].g |= 0xE0;
        want.push_back(std::make_unique<kiv>(*src[i]));
        tagRECT r = run.r;
        ref_blur_simple(*want[i], &r, run.rad);
    }
    kivtest::on_every_path(3, [&](int path, int threads) {
        for (std::size_t i = 0; i < runs.size(); ++i) {
            kiv got(*src[i]);
            tagRECT r = runs[i].r;
            ASSERT_EQ(got.blur_simple(&r, runs[i].rad), 1);
            EXPECT_TRUE(images_equal(got, *want[i]))
                << runs[i].w << "x" << runs[i].h << " r " << runs[i].rad << " path " << path << " threads " << threads;
        }
    });
}

TEST(FilterBlurSimple, RowsOutsideTheRectangleNeverCountColumnsDo) {
    // Bright pixels above/below the rectangle must not leak in; left/right ones must.
    kiv img = flat_image(9, 9, tagRGBA{0, 0, 0, 9});
    for (int x = 0; x < 9; ++x) img.m_pixels[x] = img.m_pixels[8 * 9 + x] = tagRGBA{255, 255, 255, 9};
    for (int y = 0; y < 9; ++y) img.m_pixels[y * 9] = tagRGBA{255, 255, 255, 9};
    tagRECT r{1, 1, 8, 8};
    ASSERT_EQ(img.blur_simple(&r, 2), 1);
    EXPECT_EQ(px(img, 4, 1).r, 0);
    EXPECT_GT(px(img, 1, 4).r, 0);
    EXPECT_EQ(px(img, 1, 4).a, 0);
    EXPECT_EQ(px(img, 0, 4).a, 9);  // outside the rectangle: untouched
}

// blur and blur_gauss_sel set exactly 24 bits, also when they change no pixel; the others
// raise a lower depth to 24 and keep 32.
TEST(FilterBlurFamily, DepthAfterSuccess) {
    const struct {
        const char* what;
        int (*run)(kiv&);
        bool exact;
    } ops[] = {
        {"blur", [](kiv& i) { return i.blur(nullptr, 3, 2); }, true},
        {"blur_simple", [](kiv& i) { return i.blur_simple(nullptr, 2); }, false},
        {"iir", [](kiv& i) { return i.blur_gauss_iir(nullptr, 1.0, 2.0); }, false},
        {"rle", [](kiv& i) { return i.blur_gauss_rle_plane(nullptr, 1.5, 0); }, false},
        {"sel", [](kiv& i) { return i.blur_gauss_sel(nullptr, 2.0, 30); }, true},
        {"sel radius < 0", [](kiv& i) { return i.blur_gauss_sel(nullptr, -2.0, 30); }, true},
        {"sel threshold < 0", [](kiv& i) { return i.blur_gauss_sel(nullptr, 2.0, -1); }, true},
    };
    for (auto& op : ops)
        for (int bits : {8, 32}) {
            kiv img = random_image(7, 6, bits, 2);
            ASSERT_EQ(op.run(img), 1) << op.what;
            EXPECT_EQ(img.m_bits, bits == 8 || op.exact ? 24 : 32) << op.what << " from " << bits;
        }
}

