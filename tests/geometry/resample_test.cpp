// zoom: filter values, the two-pass resampler against a plain column-by-column model,
// mirrored edges, refusals and the final sharpening.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/simd.h"
#include "geometry/geometry.h"
#include "geometry/resample_filters.h"
#include "geometry/resample_simd.h"
#include "kiv.h"
#include "support/paths.h"
#include "support/test_images.h"

using kivtest::images_equal;
using kivtest::random_image;

namespace {

constexpr double kPi = 3.14159265358979323846;

// J1 from its power series, independent of the runtime's Bessel function.
double series_j1(double x) {
    double term = x / 2.0, sum = 0.0;
    for (int m = 0; m < 40; ++m) {
        sum += term;
        term *= -(x * x / 4.0) / ((m + 1.0) * (m + 2.0));
    }
    return sum;
}

// One pass of the resampler exactly as described: for every output index a fresh list of
// mirrored source indices and weights, normalised, then each pixel of that column (or row)
// summed in list order.
void reference_pass(kiv& in, kiv& out, bool horizontal, int method) {
    const kivgeom::ResampleFilter* f = kivgeom::resample_filter(method);
    const int n_src = horizontal ? in.m_width : in.m_height;
    const int n_out = horizontal ? out.m_width : out.m_height;
    const int lines = horizontal ? out.m_height : out.m_width;
    const double s = static_cast<double>(n_out) / n_src;
    double width = f->support, fscale = 1.0;
    if (s < 1.0) {
        width = f->support / s;
        fscale = 1.0 / s;
    }
    for (int i = 0; i < n_out; ++i) {
        double centre = i / s;
        long long left = static_cast<long long>(centre - width + 0.5);
        long long right = static_cast<long long>(centre + width + 0.5);
        std::vector<int> idx;
        std::vector<double> wt;
        double sum = 0.0;
        for (long long j = left; j < right; ++j) {
            double w = f->fn((static_cast<double>(j) - centre + 0.5) / fscale) / fscale;
            long long m = j;
            if (m < 0) m = -m;
            if (m >= n_src) m = 2LL * n_src - m - 1;
            EXPECT_TRUE(m >= 0 && m < n_src) << "test sizes must keep one reflection inside";
            idx.push_back(static_cast<int>(m));
            wt.push_back(w);
            sum += w;
        }
        if (sum != 0.0 && sum != 1.0)
            for (double& w : wt) w /= sum;
        for (int line = 0; line < lines; ++line) {
            tagRGBA& o = horizontal ? out.m_pixels[(std::size_t)line * out.m_width + i]
                                    : out.m_pixels[(std::size_t)i * out.m_width + line];
            for (int c = 0; c < 3; ++c) {
                double acc = 0.0;
                for (std::size_t k = 0; k < idx.size(); ++k) {
                    const tagRGBA& p = horizontal ? in.m_pixels[(std::size_t)line * in.m_width + idx[k]]
                                                  : in.m_pixels[(std::size_t)idx[k] * in.m_width + line];
                    acc += wt[k] * (&p.r)[c];
                }
                double v = std::trunc(acc + 0.5);
                (&o.r)[c] = static_cast<BYTE>(v < 0 ? 0 : v > 255 ? 255 : v);
            }
            o.a = 0;
        }
    }
}

kiv reference_resample(kiv& src, int w, int h, int method) {
    kiv out(w, h, 24);
    if (h < src.m_height) {
        kiv mid(src.m_width, h, 24);
        reference_pass(src, mid, false, method);
        reference_pass(mid, out, true, method);
    } else {
        kiv mid(w, src.m_height, 24);
        reference_pass(src, mid, true, method);
        reference_pass(mid, out, false, method);
    }
    return out;
}

}  // namespace

TEST(ResampleFilters, ValuesAtChosenPointsFollowTheFormulas) {
    struct Case {
        int method;
        double x, expect;
    } cases[] = {
        {0, 0.0, 1.0},          {0, 0.5, 1.0},        {0, -0.5, 0.0},         {0, 0.51, 0.0},
        {1, 0.25, 0.75},        {1, -0.5, 0.5},       {1, 1.0, 0.0},          {2, 0.5, 0.5},
        {2, 0.0, 1.0},          {2, -1.0, 0.0},       {3, 0.0, 1.0},          {3, 1.0, 0.0},
        {4, 0.0, 1.0},          {4, 1.0, 0.08},       {5, 0.0, 1.0},          {5, 0.5, 0.34},
        {5, 1.0, 0.0},          {6, 0.0, std::sqrt(2.0 / kPi)},               {6, 0.5, std::exp(-0.5) * std::sqrt(2.0 / kPi)},
        {7, 0.0, 0.75},         {7, 0.5, 0.5},        {7, -1.0, 0.125},       {7, 1.5, 0.0},
        {8, 0.0, 2.0 / 3.0},    {8, 1.0, 1.0 / 6.0},  {8, 1.5, 0.125 / 6.0},  {8, 2.0, 0.0},
        {9, 0.0, 1.0},          {9, 0.5, 0.5625},     {9, 1.0, 0.0},          {9, -1.5, -0.0625},
        {10, 0.0, 8.0 / 9.0},   {10, 1.0, 1.0 / 18.0}, {10, 1.5, -0.125 / 3.6}, {10, 2.0, 0.0},
        {11, 0.0, 1.0},         {11, 1.0, 0.0},       {11, -1.5, -2.0 / (1.5 * kPi * kPi)}, {11, 3.0, 0.0},
        {12, 0.0, kPi / 4.0},   {12, 0.5, series_j1(kPi / 2.0)}, {12, -1.0, series_j1(kPi) / 2.0},
        {13, 0.0, 1.0},         {13, 0.5, 2.0 / kPi}, {13, 4.5, 1.0 / (4.5 * kPi)}, {13, 2.0, 0.0},
    };
    for (const Case& c : cases) {
        const kivgeom::ResampleFilter* f = kivgeom::resample_filter(c.method);
        ASSERT_NE(nullptr, f);
        EXPECT_NEAR(c.expect, f->fn(c.x), 1e-14) << "method " << c.method << " at " << c.x;
    }
    const double supports[] = {0.5, 1.0, 1.0, 1.0, 1.0, 1.0, 1.25, 1.5, 2.0, 2.0, 2.0, 3.0, 3.2383, 4.0};
    for (int m = 0; m < 14; ++m) EXPECT_EQ(supports[m], kivgeom::resample_filter(m)->support) << m;
    EXPECT_EQ(nullptr, kivgeom::resample_filter(14));
    EXPECT_EQ(nullptr, kivgeom::resample_filter(15));
    EXPECT_EQ(nullptr, kivgeom::resample_filter(-1));
}

TEST(Resample, MatchesThePlainModelForEveryFilterAndDirection) {
    // Each axis shrunk, kept and enlarged, at odd sizes; both code paths.
    const int shapes[][4] = {{17, 13, 7, 13},  {17, 13, 29, 13}, {17, 13, 17, 5},  {17, 13, 17, 31},
                             {17, 13, 9, 29},  {17, 13, 31, 6},  {23, 19, 11, 9},  {9, 11, 40, 37},
                             {37, 9, 36, 10}};
    kivtest::on_every_path([&](int path) {
        for (int method = 0; method < 14; ++method)
            for (auto& s : shapes) {
                kiv src = random_image(s[0], s[1], 32, 1000 + method * 31 + s[2]);
                kiv before(src), got;
                ASSERT_TRUE(kivgeom::resample(src, s[2], s[3], method, false, got));
                kiv expect = reference_resample(src, s[2], s[3], method);
                ASSERT_TRUE(images_equal(expect, got)) << "method " << method << " " << s[0] << "x" << s[1] << " -> "
                                                       << s[2] << "x" << s[3] << " " << kivtest::path_name(path);
                ASSERT_TRUE(images_equal(before, src));  // the source is only read
            }
    });
}

TEST(Resample, BlocksStripsAndThreadCountsGiveTheSameBytes) {
    // Widths past one column strip of the vertical pass with every kind of remainder (runs
    // of sixteen, eight and four pixels, single pixels), many and few taps, odd row counts
    // for the four-row horizontal pass and odd column counts for its pairs, blocks of source
    // columns in the horizontal pass (wide sources), and a tall shrink whose source span is
    // too tall to buffer; each at several thread counts on every path.
    struct Shape {
        int w, h, tw, th, method;
    } shapes[] = {{77, 130, 45, 31, 11}, {50, 41, 131, 97, 10}, {203, 70, 13, 33, 1},  {31, 9, 29, 75, 13},
                  {5, 2500, 3, 2, 10},   {1100, 3, 7, 1, 1},    {613, 37, 251, 19, 13}, {90, 23, 333, 71, 0},
                  {141, 300, 1131, 37, 6}};
    kivtest::on_every_path(3, [&](int path, int threads) {
        for (const Shape& s : shapes) {
            kiv src = random_image(s.w, s.h, 24, 500 + static_cast<std::uint64_t>(s.tw) * 7 + s.method);
            kiv got;
            ASSERT_TRUE(kivgeom::resample(src, s.tw, s.th, s.method, false, got));
            kiv expect = reference_resample(src, s.tw, s.th, s.method);
            ASSERT_TRUE(images_equal(expect, got))
                << s.w << "x" << s.h << " -> " << s.tw << "x" << s.th << " method " << s.method << ", " << threads
                << " threads " << kivtest::path_name(path);
        }
    });
}

#if KIV_HAVE_AVX2
// The AVX2 kernels drop the clamp before converting sums when the weights bound them; the
// filter table's normalised weights always do, so the clamping variant is driven directly:
// sums past +-2^31, negative ones and NaN must give the scalar bytes.
namespace {

BYTE scalar_byte(const double* w, const double* const* v, int n) {
    double acc = w[0] * *v[0];
    for (int k = 1; k < n; ++k) acc += w[k] * *v[k];
    acc += 0.5;
    return acc >= 255.0 ? 255 : acc >= 1.0 ? static_cast<BYTE>(static_cast<int>(acc)) : 0;
}

}  // namespace

TEST(Resample, Avx2KernelsClampSumsOutsideInt32) {
    if (!kivcore::cpu_has_avx2()) GTEST_SKIP() << "no AVX2 here";
    kiv bytes = random_image(64, 12, 24, 99);
    const BYTE* px = reinterpret_cast<const BYTE*>(bytes.m_pixels);
    const double weight_sets[3][9] = {{3e9, -2.9e9, 1e-3, 0.5, 2e9, -2e9, 7.0, -1e10, 1e10},
                                      {-4e9, 1.0, 3.9e9, 0.25, -1e-9, 1e9, -1e9, 2.0, 0.0},
                                      {0.5, std::nan(""), 0.5, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0}};
    for (const auto& w : weight_sets)
        for (int n : {3, 9}) {  // the eight- and the sixteen-pixel runs, then fours and singles
            const int np = 37;
            std::vector<std::vector<double>> rows(static_cast<std::size_t>(n));
            std::vector<const double*> row_ptrs;
            for (int k = 0; k < n; ++k) {
                for (int p = 0; p < np; ++p)
                    for (int c = 0; c < 3; ++c) rows[k].push_back(px[4 * (k * 64 + p) + c]);
                row_ptrs.push_back(rows[k].data());
            }
            std::vector<BYTE> out(4 * np, 7);
            kivgeom::VsumArgs a{row_ptrs.data(), w, n, np, out.data(), true};
            kivgeom::vsum_avx2(a);
            for (int p = 0; p < np; ++p)
                for (int c = 0; c < 4; ++c) {
                    std::vector<const double*> v;
                    for (int k = 0; k < n; ++k) v.push_back(&rows[k][3 * p + c % 3]);
                    ASSERT_EQ(c == 3 ? 0 : scalar_byte(w, v.data(), n), out[4 * p + c]) << "vertical, pixel " << p;
                }
            // Horizontal: output column i of four rows reads source columns i .. i + n - 1.
            const int cols = np + n;
            std::vector<double> buf;
            for (int x = 0; x < cols; ++x)
                for (int c = 0; c < 3; ++c)
                    for (int r = 0; r < 4; ++r) buf.push_back(px[4 * (r * 64 + x) + c]);
            std::vector<int> index, count(np, n);
            std::vector<double> weight;
            for (int i = 0; i < np; ++i)
                for (int k = 0; k < n; ++k) {
                    index.push_back(i + k);
                    weight.push_back(w[k]);
                }
            std::vector<BYTE> rows_out(4 * 4 * np, 7);
            kivgeom::HsumArgs h{buf.data(), 0, index.data(), weight.data(), count.data(), n, 0, np, {}, 4, true};
            for (int r = 0; r < 4; ++r) h.out[r] = rows_out.data() + 4 * np * r;
            kivgeom::hsum_avx2(h);
            for (int r = 0; r < 4; ++r)
                for (int i = 0; i < np; ++i)
                    for (int c = 0; c < 4; ++c) {
                        std::vector<const double*> v;
                        for (int k = 0; k < n; ++k) v.push_back(&buf[12 * (i + k) + 4 * (c % 3) + r]);
                        ASSERT_EQ(c == 3 ? 0 : scalar_byte(w, v.data(), n), rows_out[4 * (np * r + i) + c])
                            << "horizontal, row " << r << " column " << i;
                    }
        }
}
#endif

TEST(Zoom, MirroredEdgesReadTheNeighbourInside) {
    // Catmull-Rom at scale 1 across. Column 0 draws on j = -1, 0, 1 with weights 0.5625,
    // 0.5625, -0.0625 over their sum 1.0625, and j = -1 reads column 1. Column 4 draws on
    // j = 2..5 with weights -0.0625, 0.5625, 0.5625, -0.0625, and j = 5 reads column 4.
    kiv img(5, 1, 24);
    img.m_pixels[1] = tagRGBA{170, 0, 0, 0};
    ASSERT_EQ(1, img.zoom(5, 2, 9, 0));
    EXPECT_EQ(80, img.m_pixels[0].r);  // (0.5625 * 0 + 0.5 * 170) / 1.0625
    kiv img2(5, 1, 24);
    img2.m_pixels[4] = tagRGBA{160, 0, 0, 0};
    ASSERT_EQ(1, img2.zoom(5, 2, 9, 0));
    EXPECT_EQ(80, img2.m_pixels[4].r);  // (0.5625 - 0.0625) * 160
    EXPECT_EQ(img.m_pixels[0].r, img.m_pixels[5].r);
}

TEST(Zoom, SharpensOnlyWhenBothSidesShrink) {
    kiv src = random_image(21, 17, 24, 5);
    const int targets[][2] = {{9, 7}, {9, 17}, {21, 8}, {30, 8}};
    for (auto& t : targets) {
        kiv img(src);
        ASSERT_EQ(1, img.zoom(t[0], t[1], 10, 0));
        kiv expect = reference_resample(src, t[0], t[1], 10);
        if (t[0] < 21 && t[1] < 17) expect.sharpen(nullptr);  // checked on its own elsewhere
        EXPECT_TRUE(images_equal(expect, img)) << t[0] << "x" << t[1];
        EXPECT_EQ(24, img.bits());
    }
}

TEST(Zoom, FlatImagesStayFlatEvenFromTinySources) {
    // Normalised weights keep a constant; sources narrower than the filter reflect into
    // range instead of reading outside.
    const int shapes[][4] = {{1, 1, 5, 7}, {1, 6, 9, 2}, {2, 3, 1, 40}, {40, 3, 1, 1}, {3, 1, 2, 9}};
    for (int method = 0; method < 14; ++method)
        for (auto& s : shapes) {
            kiv img(s[0], s[1], 8);
            img.m_map[3] = tagRGBA{10, 128, 250, 0};
            for (int i = 0; i < img.m_packets; ++i) img.m_pixels[i] = tagRGBA{10, 128, 250, 3};
            ASSERT_EQ(1, img.zoom(s[2], s[3], method, 0)) << method;
            ASSERT_EQ(24, img.bits());
            ASSERT_EQ(nullptr, img.map());
            for (int i = 0; i < img.m_packets; ++i)
                ASSERT_TRUE(kivtest::same_rgba(tagRGBA{10, 128, 250, 0}, img.m_pixels[i]))
                    << "method " << method << " " << s[2] << "x" << s[3] << " at " << i << " "
                    << kivtest::rgba_str(img.m_pixels[i]);
        }
}

TEST(Zoom, MappedResultHoldsTheSamePixels) {
    kiv a = random_image(13, 11, 24, 10);
    kiv b(a);
    ASSERT_EQ(1, a.zoom(20, 5, 11, 0));
    ASSERT_EQ(1, b.zoom(20, 5, 11, 1));
    EXPECT_TRUE(images_equal(a, b));
}
