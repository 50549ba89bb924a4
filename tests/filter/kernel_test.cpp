// 3x3 kernels, edge, emboss and raise_edge against literal references and hand-checked
// anchors.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

#include "core/kmath.h"
#include "filter/filter.h"
#include "filter_test_util.h"
#include "support/paths.h"

using namespace kivtest;
using namespace kivfiltertest;

namespace {

int clamp8(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

// filter_3x3 as written: rectangle into a buffer, replicated borders, serial.
void ref_3x3(kiv& img, tagRECT* rect, unsigned mode, const int* custom = nullptr, int divisor = 1) {
    static const int K[16][9] = {
        {1, 1, 1, 1, 1, 1, 1, 1, 1}, {}, {}, {-1, -1, -1, -1, 18, -1, -1, -1, -1}, {8, 12, 8, 12, 20, 12, 8, 12, 8},
        {-1, 0, 0, 0, 0, 0, 0, 0, 1}, {-1, -1, -1, -1, 13, -1, -1, -1, -1}, {}, {}, {0, -1, 0, -1, 5, -1, 0, -1, 0},
        {-1, -1, -1, -1, 9, -1, -1, -1, -1}, {1, 1, 1, 1, -8, 1, 1, 1, 1}, {1, 0, -1, 2, 0, -2, 1, 0, -1},
        {1, 2, 1, 0, 0, 0, -1, -2, -1}, {}, {}};
    tagRECT r;
    img.validaterect(rect, &r);
    img.m_bits = 24;
    const int w = r.right - r.left, h = r.bottom - r.top;
    std::vector<tagRGBA> in(w * h), out(w * h);
    img.getpacket(in.data(), r.left, r.top, w, h);
    out = in;
    for (int j = 0; j < h; ++j)
        for (int i = 0; i < w; ++i) {
            for (int c = 0; c < 3; ++c) {
                int nb[9];
                for (int k = 0; k < 9; ++k) {
                    int ni = i + k % 3 - 1, nj = j + k / 3 - 1;
                    if (ni < 0 || ni >= w) ni = i;
                    if (nj < 0 || nj >= h) nj = j;
                    nb[k] = reinterpret_cast<unsigned char*>(&in[nj * w + ni])[c];
                }
                auto S = [&](const int* k) {  // signed 32-bit sum, wrapping
                    std::uint32_t s = 0;
                    for (int q = 0; q < 9; ++q) s += static_cast<std::uint32_t>(k[q]) * static_cast<std::uint32_t>(nb[q]);
                    return static_cast<std::int32_t>(s);
                };
                int v = 0;
                const int O = nb[4], Sh = clamp8(S(K[3]) / 10), Bl = clamp8(S(K[4]) / 100), d = std::abs(O - Sh);
                int sorted[9];
                std::copy(nb, nb + 9, sorted);
                if (!custom && (mode == 1 || mode == 7 || mode == 8)) std::sort(sorted, sorted + 9);
                if (custom) {
                    v = static_cast<int>(std::clamp<long long>(static_cast<long long>(S(custom)) / divisor, 0, 255));
                } else {
                    switch (mode) {
                        case 0: v = S(K[0]) / 9; break;
                        case 1: v = sorted[4]; break;
                        case 3: v = Sh; break;
                        case 4: v = Bl; break;
                        case 5: v = (S(K[5]) + 128) % 256; if (v < 0) v += 256; break;
                        case 6: v = clamp8(S(K[6]) / 5); break;
                        case 7: v = sorted[8]; break;
                        case 8: v = sorted[0]; break;
                        case 14:
                            v = d <= 7 ? O : d == 8 ? clamp8(((Sh + 4 * O) * 2) / 10) : d == 9 ? clamp8((4 * Sh + 6 * O) / 10)
                                : d == 10 ? clamp8((6 * Sh + 4 * O) / 10) : d == 11 ? clamp8(((O + 4 * Sh) * 2) / 10) : Sh;
                            break;
                        case 15:
                            v = d <= 4 ? Bl : d == 5 ? clamp8(((O + 4 * Bl) * 2) / 10) : d == 6 ? clamp8((6 * Bl + 4 * O) / 10)
                                : d == 7 ? clamp8((4 * Bl + 6 * O) / 10) : d == 8 ? clamp8(((Bl + 4 * O) * 2) / 10) : O;
                            break;
                        default: v = clamp8(S(K[mode])); break;
                    }
                }
                reinterpret_cast<unsigned char*>(&out[j * w + i])[c] = static_cast<unsigned char>(v);
            }
        }
    img.setpacket(out.data(), r.left, r.top, w, h);
}

// Bit-by-bit only, with the small-value table, as the reference for the library's root.
unsigned ref_isqrt(unsigned n) {
    static const unsigned small[13] = {0, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3};
    if (n <= 12) return small[n];
    unsigned long long r = 0;
    while ((r + 1) * (r + 1) <= n) ++r;
    return n - r * r > r ? static_cast<unsigned>(r + 1) : static_cast<unsigned>(r);
}

void ref_edge(kiv& img, tagRECT* rect, double strength) {
    tagRECT r;
    img.validaterect(rect, &r);
    img.m_bits = 24;
    const int F = static_cast<int>(655360.0 / std::max(1.0, strength));
    kiv src(img);
    auto at = [&](int x, int y, int c) {
        x = std::clamp(x, 0, img.m_width - 1), y = std::clamp(y, 0, img.m_height - 1);
        return int(reinterpret_cast<unsigned char*>(&src.m_pixels[y * img.m_width + x])[c]);
    };
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            tagRGBA o{0, 0, 0, 0};
            for (int c = 0; c < 3; ++c) {
                const int gx = 2 * (at(x + 1, y, c) - at(x - 1, y, c)) - at(x - 1, y - 1, c) + at(x + 1, y + 1, c);
                const int gy = (at(x - 1, y + 1, c) + 2 * at(x, y + 1, c) + at(x + 1, y + 1, c)) -
                               (at(x - 1, y - 1, c) + 2 * at(x, y - 1, c) + at(x + 1, y - 1, c));
                const int m = static_cast<int>(ref_isqrt(static_cast<unsigned>(gx * gx + gy * gy)));
                reinterpret_cast<unsigned char*>(&o)[c] = static_cast<unsigned char>(clamp8((m * F) >> 16));
            }
            img.m_pixels[y * img.m_width + x] = o;
        }
}

void ref_emboss(kiv& img, tagRECT* rect, tagKIV_EMBOSS p) {
    tagRECT r;
    img.validaterect(rect, &r);
    img.m_bits = 24;
    kiv src(img);
    const double k = 0.017453292519943295;
    const double Lx = kivcore::kmath::cos(p.azimuth * k) * kivcore::kmath::cos(p.elevation * k) * 255.9;
    const double Ly = kivcore::kmath::sin(p.azimuth * k) * kivcore::kmath::cos(p.elevation * k) * 255.9;
    const double Lz = kivcore::kmath::sin(p.elevation * k) * 255.9;
    const int Nz = static_cast<int>(1530u / (static_cast<unsigned>(p.depth) & 0xFFFFu));
    auto at = [&](int x, int y) {
        return px(src, std::clamp(x, 0, img.m_width - 1), std::clamp(y, 0, img.m_height - 1));
    };
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x) {
            const int TL = at(x - 1, y - 1).r, T = at(x, y - 1).r, TR = at(x + 1, y - 1).r, L = at(x - 1, y).r;
            const int R = at(x + 1, y).r, BL = at(x - 1, y + 1).r, B = at(x, y + 1).r, BR = at(x + 1, y + 1).r;
            const int Nx = (TL + L + BL) - (TR + R + BR), Ny = (BL + B + BR) - (TL + T + TR);
            int shade;
            if (Nx == 0 && Ny == 0) {
                shade = static_cast<int>(Lz);
            } else {
                const int d = static_cast<int>(Nx * Lx + Ny * Ly + Nz * Lz);
                shade = d < 0 ? 0 : static_cast<int>(d / std::sqrt(double(Nx * Nx + Ny * Ny + Nz * Nz)));
            }
            shade = std::max(shade, 0);  // a light from below leaves flat areas black
            const tagRGBA s = at(x, y - 1);
            img.m_pixels[y * img.m_width + x] =
                p.mono ? tagRGBA{BYTE(shade), BYTE(shade), BYTE(shade), 0}
                       : tagRGBA{BYTE((s.r * shade) >> 8), BYTE((s.g * shade) >> 8), BYTE((s.b * shade) >> 8), 0};
        }
}

}  // namespace

TEST(FilterKernel3x3, EveryModeMatchesReference) {
    for (Case c : cases())
        for (unsigned mode = 0; mode <= 15; ++mode) {
            if (mode == 2) continue;
            kiv got = random_image(c.w, c.h, mode % 2 ? 8 : 32, c.w * 17 + c.h + mode), want(got);
            progress_log().clear();
            got.m_progressproc = record_progress;
            ASSERT_EQ(got.filter_3x3(rect_of(c), mode), 1);
            ref_3x3(want, rect_of(c), mode);
            EXPECT_TRUE(images_equal(got, want)) << c.w << "x" << c.h << " mode " << mode;
            EXPECT_EQ(got.m_bits, 24);
            EXPECT_EQ(progress_log(), "");
        }
}

namespace {

struct Shape {
    int w, h;
    tagRECT r;
};

// For the filters whose neighbours come from the whole image: rectangles whose margins come
// from outside them, that reach the image's sides, and rows with and without a tail or too
// short for a vector.
constexpr Shape kClampedShapes[] = {{157, 67, {5, 3, 150, 61}}, {40, 23, {-2, -1, 45, 30}}, {16, 21, {0, 2, 9, 20}},
                                    {16, 19, {7, -3, 16, 15}},  {13, 17, {1, 0, 11, 17}},   {24, 15, {3, 1, 14, 14}},
                                    {9, 12, {2, 0, 7, 10}},     {9, 12, {0, 0, 3, 12}}};

// Low-contrast noise with a few outliers, which puts |O - Sh| into every band of modes 14
// and 15.
kiv smooth_image(int w, int h, std::uint64_t seed) {
    kiv img(w, h, 24);
    Rng rng(seed);
    for (int i = 0; i < img.m_packets; ++i) {
        const BYTE v = BYTE(rng.below(8) == 0 ? rng.below(256) : 120 + rng.below(9));
        img.m_pixels[i] = tagRGBA{v, BYTE(v + rng.below(3)), BYTE(v - rng.below(2)), BYTE(rng.below(256))};
    }
    return img;
}

}  // namespace

// Rows of several vector widths, whole and with a tail, rows too short for a vector (the
// end pixels have their own clamped columns), band boundaries at one to three threads, on
// every path.
TEST(FilterKernel3x3, RowsOfEveryWidthOnEveryPathAndThreadCount) {
    const Shape shapes[] = {{203, 41, {-3, 2, 190, 40}}, {9, 30, {1, -2, 6, 40}},  {12, 27, {0, 1, 7, 26}},
                            {14, 25, {3, -1, 12, 25}},   {15, 33, {-2, 0, 10, 31}}, {18, 29, {2, 3, 15, 28}},
                            {21, 19, {0, 0, 21, 19}}};
    on_every_path(3, [&](int, int threads) {
        for (unsigned mode = 0; mode <= 15; ++mode)
            for (const Shape& sh : shapes) {
                if (mode == 2) continue;  // refused
                tagRECT r = sh.r;
                const std::uint64_t seed = static_cast<std::uint64_t>(mode * 5 + threads + sh.w);
                EXPECT_TRUE(matches(mode >= 14 ? smooth_image(sh.w, sh.h, seed) : random_image(sh.w, sh.h, 24, seed),
                                    [&](kiv& i) { return i.filter_3x3(&r, mode); }, [&](kiv& i) { ref_3x3(i, &r, mode); }))
                    << sh.w << "x" << sh.h << " mode " << mode;
            }
    });
}

TEST(FilterKernel3x3, OnePixelAndWrapAnchors) {
    const struct {
        unsigned mode;
        tagRGBA want;
    } rows[] = {{0, {10, 200, 77, 3}}, {11, {0, 0, 0, 3}}, {5, {128, 128, 128, 3}}, {1, {10, 200, 77, 3}}};
    for (auto& r : rows) {
        kiv img = flat_image(1, 1, tagRGBA{10, 200, 77, 3});
        ASSERT_EQ(img.filter_3x3(nullptr, r.mode), 1);
        EXPECT_TRUE(same_rgba(img.m_pixels[0], r.want)) << r.mode << " " << rgba_str(img.m_pixels[0]);
    }
    // Bottom-right exceeds top-left by 200: 328 is stored as 72.
    kiv img = flat_image(3, 3, tagRGBA{20, 20, 20, 0});
    img.m_pixels[8] = tagRGBA{220, 220, 220, 0};
    img.filter_3x3(nullptr, 5);
    EXPECT_EQ(px(img, 1, 1).r, 72);
    // A refused mode still raises the depth (its pixels are left alone: the bad-input table).
    kiv pal = random_image(4, 3, 8, 2);
    EXPECT_EQ(pal.filter_3x3(nullptr, 2), 0);
    EXPECT_EQ(pal.m_bits, 24);
}

TEST(FilterKernel3x3, CustomSharpenAndSoftenAgree) {
    for (Case c : cases()) {
        kiv base = random_image(c.w, c.h, 24, c.w + 99 * c.h);
        auto run = [&](auto f) {
            kiv img(base);
            f(img);
            return img;
        };
        kiv mode3 = run([&](kiv& i) { i.filter_3x3(rect_of(c), 3); });
        for (int s : {0, 10, -5, 41}) {
            kiv sh = run([&](kiv& i) { EXPECT_EQ(i.filter_sharpen(rect_of(c), s), 1); });
            EXPECT_TRUE(images_equal(sh, mode3)) << "sharpen " << s;
        }
        const int soft[9] = {1, 1, 1, 1, 10, 1, 1, 1, 1};
        kiv soft41 = run([&](kiv& i) { i.filter_soften(rect_of(c), 41); });
        kiv softref = run([&](kiv& i) { ref_3x3(i, rect_of(c), 0, soft, 18); });
        EXPECT_TRUE(images_equal(soft41, softref));
        int odd[9] = {3, -7, 0, 100000, -2, 5, 1, 1, -40};
        kiv d0 = run([&](kiv& i) { i.filter_custom3x3(rect_of(c), odd, 0); });
        kiv d1 = run([&](kiv& i) { ref_3x3(i, rect_of(c), 0, odd, 1); });
        EXPECT_TRUE(images_equal(d0, d1));
        kiv dn = run([&](kiv& i) { i.filter_custom3x3(rect_of(c), odd, -3); });
        kiv dnr = run([&](kiv& i) { ref_3x3(i, rect_of(c), 0, odd, -3); });
        EXPECT_TRUE(images_equal(dn, dnr));
        // Sums past 2^31 wrap; the most negative divisor divides without trapping.
        int huge[9] = {9000000, -9000000, 9000001, 9000000, 9000003, 9000000, -1, 9000000, 9000000};
        for (int div : {1, -7, INT_MIN}) {
            kiv hw = run([&](kiv& i) { i.filter_custom3x3(rect_of(c), huge, div); });
            kiv hwr = run([&](kiv& i) { ref_3x3(i, rect_of(c), 0, huge, div); });
            EXPECT_TRUE(images_equal(hw, hwr)) << "divisor " << div;
        }
    }
}

namespace {

// sharpen2 as documented: O + (8 O - the other eight) * strength / 800, clamped, border
// repeated outward.
void ref_sharpen2(kiv& img, tagRECT* rect, int strength) {
    const int k[9] = {-1, -1, -1, -1, 8, -1, -1, -1, -1};
    kiv src(img);
    tagRECT r;
    img.validaterect(rect, &r);
    for (int y = r.top; y < r.bottom; ++y)
        for (int x = r.left; x < r.right; ++x)
            for (int c = 0; c < 3; ++c) {
                int S = 0;
                for (int q = 0; q < 9; ++q) {
                    const int nx = std::clamp(x + q % 3 - 1, int(r.left), int(r.right) - 1);
                    const int ny = std::clamp(y + q / 3 - 1, int(r.top), int(r.bottom) - 1);
                    S += k[q] * reinterpret_cast<const BYTE*>(&src.m_pixels[ny * img.m_width + nx])[c];
                }
                BYTE& o = reinterpret_cast<BYTE*>(&img.m_pixels[y * img.m_width + x])[c];
                o = BYTE(clamp8(o + S * strength / 800));
            }
    img.m_bits = std::max(img.m_bits, 24);
}

}  // namespace

// The vector kernels divide in float: kernels whose sums reach 2^24 - 1, divisors up to
// 2^24 and beyond, negative ones; the rest goes the 64-bit way.
TEST(FilterKernel3x3, CustomAndSharpen2OnEveryPathAndThreadCount) {
    const Shape shapes[] = {{203, 41, {-3, 2, 190, 40}}, {9, 30, {1, -2, 6, 40}}, {12, 27, {0, 1, 7, 26}},
                            {14, 25, {3, -1, 12, 25}}, {21, 19, {0, 0, 21, 19}}};
    const struct {
        int k[9];
        std::vector<int> divisors;
    } kernels[] = {
        {{1, 2, 1, 2, 4, 2, 1, 2, 1}, {16, 0, -3}},
        {{-1, -1, -1, -1, 18, -1, -1, -1, -1}, {10, 1, 7}},
        {{32767, 32767, 259, 0, 0, 0, 0, 0, -65}, {1, 3, 65536, 16777215, 16777216, -5, INT_MIN}},
        {{-32767, -259, 0, 0, 5, 0, 0, 0, -32767}, {-1, -16777215, 255, 0}},
        {{32767, 32767, 260, 0, 0, 0, 0, 0, -1}, {1, 9}},  // sums reach 2^24: the 64-bit way
        {{-32768, 1, 1, 1, 1, 1, 1, 1, 1}, {-2}},
    };
    on_every_path(3, [&](int path, int threads) {
        for (const Shape& sh : shapes) {
            const std::uint64_t seed = static_cast<std::uint64_t>(threads * 13 + sh.w + path);
            tagRECT r = sh.r;
            for (const auto& kr : kernels)
                for (int div : kr.divisors) {
                    int k[9];
                    std::copy(kr.k, kr.k + 9, k);
                    EXPECT_TRUE(matches(random_image(sh.w, sh.h, 24, seed + static_cast<std::uint64_t>(div)),
                                        [&](kiv& i) { return i.filter_custom3x3(&r, k, div); },
                                        [&](kiv& i) { ref_3x3(i, &r, 0, kr.k, div == 0 ? 1 : div); }))
                        << sh.w << "x" << sh.h << " kernel " << kr.k[0] << " divisor " << div;
                }
            for (int strength : {1, 150, 799, 1000})
                EXPECT_TRUE(matches(random_image(sh.w, sh.h, 24, seed * 3 + static_cast<std::uint64_t>(strength)),
                                    [&](kiv& i) { return i.sharpen2(&r, strength); }, [&](kiv& i) { ref_sharpen2(i, &r, strength); }))
                    << sh.w << "x" << sh.h << " sharpen2 " << strength;
        }
    });
    // sharpen2's whole range: the float quotient truncates as the integer one.
    for (int strength = 1; strength <= 1000; ++strength)
        for (int S = -2040; S <= 2040; ++S)
            ASSERT_EQ(static_cast<int>(static_cast<float>(S) * static_cast<float>(strength) / 800.0f), S * strength / 800)
                << S << " " << strength;
}

TEST(FilterEdge, RoundedSquareRoot) {
    const unsigned small[13] = {0, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3};
    for (unsigned n = 0; n <= 12; ++n) EXPECT_EQ(kivfilter::isqrt_rounded(n), small[n]);
    for (unsigned n = 13; n < 200000; n += 7) ASSERT_EQ(kivfilter::isqrt_rounded(n), ref_isqrt(n)) << n;
    for (unsigned r : {255u, 1000u, 46340u, 65535u}) {
        EXPECT_EQ(kivfilter::isqrt_rounded(r * r + r), r);
        EXPECT_EQ(kivfilter::isqrt_rounded(r * r + r + 1), r + 1);
    }
    EXPECT_EQ(kivfilter::isqrt_rounded(0xFFFFFFFFu), 65536u);
}

// The vector kernels' roots come from the float square root: every sum of two squared
// gradients against the integer root.
TEST(FilterEdge, VectorRootsOfEverySquaredMagnitude) {
    std::vector<int> n(2 * 1020 * 1020 + 1), got(n.size());
    for (std::size_t i = 0; i < n.size(); ++i) n[i] = static_cast<int>(i);
    for (bool avx2 : {false, true}) {
        if (!kivfilter::edge_vector_roots(avx2, n.data(), static_cast<int>(n.size()), got.data())) continue;
        unsigned r = 0;
        for (unsigned v = 0; v < n.size(); ++v) {
            while ((r + 1) * (r + 1) <= v) ++r;
            ASSERT_EQ(got[v], static_cast<int>(v - r * r > r ? r + 1 : r)) << v << " avx2 " << avx2;
        }
    }
}

TEST(FilterEdge, MatchesReferenceAndClampsAtBrightEdges) {
    for (Case c : cases())
        for (double s : {10.0, 0.5, 3.7, 40.0, std::nan("")}) {
            kiv got = random_image(c.w, c.h, s == 3.7 ? 8 : 32, c.w * 3 + c.h * 5), want(got);
            progress_log().clear();
            got.m_progressproc = record_progress;
            ASSERT_EQ(got.edge(rect_of(c), s), 1);
            ref_edge(want, rect_of(c), s);
            EXPECT_TRUE(images_equal(got, want)) << c.w << "x" << c.h << " strength " << s;
            EXPECT_EQ(got.m_bits, 24);
            EXPECT_EQ(progress_log(), "");
        }
    on_every_path(3, [](int, int threads) {
        for (const Shape& sh : kClampedShapes)
            for (double s : {7.0, 0.5}) {
                tagRECT r = sh.r;
                EXPECT_TRUE(matches(random_image(sh.w, sh.h, 24, static_cast<std::uint64_t>(threads + sh.w)),
                                    [&](kiv& i) { return i.edge(&r, s); }, [&](kiv& i) { ref_edge(i, &r, s); }))
                    << sh.w << "x" << sh.h << " strength " << s;
            }
    });
    // Dark 0 | bright 100: the last dark column gives gx = 300, clamped to 255.
    kiv img = flat_image(8, 4, tagRGBA{0, 0, 0, 50});
    for (int y = 0; y < 4; ++y)
        for (int x = 4; x < 8; ++x) img.m_pixels[y * 8 + x] = tagRGBA{100, 100, 100, 50};
    img.edge(nullptr, 10.0);
    EXPECT_EQ(px(img, 3, 1).r, 255);
    EXPECT_EQ(px(img, 1, 1).r, 0);
    EXPECT_EQ(px(img, 1, 1).a, 0);
}

TEST(FilterEmboss, MatchesReferenceAndFlatGrey) {
    const tagKIV_EMBOSS params[] = {{30, 45, 20, 1}, {135, 20, 3, 0}, {-60, 80, 0x10005, 1}, {10, 10, 2000, 0},
                                    {200, -30, 7, 1}, {-45, 250, -1, 0}};
    for (Case c : cases())
        for (const tagKIV_EMBOSS& p : params) {
            kiv got = random_image(c.w, c.h, p.mono ? 32 : 8, c.w * 11 + c.h), want(got);
            // Lit from below: two heights only, so flat neighbourhoods (the flat shade) occur.
            if (std::sin(p.elevation * 0.017453292519943295) < 0)
                for (int i = 0; i < got.m_packets; ++i) got.m_pixels[i].r = want.m_pixels[i].r &= 0x80;
            tagKIV_EMBOSS q = p;
            progress_log().clear();
            got.m_progressproc = record_progress;
            ASSERT_EQ(got.emboss(rect_of(c), &q), 1);
            ref_emboss(want, rect_of(c), p);
            EXPECT_TRUE(images_equal(got, want)) << c.w << "x" << c.h << " azimuth " << p.azimuth;
            EXPECT_EQ(got.m_bits, 24);
            EXPECT_EQ(progress_log(), "");
        }
    // Lights from every side and from below, depths that give flat shades of 0 and Nz = 0.
    const tagKIV_EMBOSS lights[] = {{30, 45, 20, 1}, {135, 20, 3, 0}, {-60, 80, 2000, 1}, {250, -30, 1, 0}};
    on_every_path(3, [&](int, int threads) {
        for (const Shape& sh : kClampedShapes)
            for (const tagKIV_EMBOSS& p : lights) {
                tagRECT r = sh.r;
                tagKIV_EMBOSS q = p;
                kiv src = random_image(sh.w, sh.h, 24, static_cast<std::uint64_t>(threads * 7 + sh.w + sh.h));
                // Few heights, so flat neighbourhoods and small gradients are common.
                for (int i = 0; i < src.m_packets; ++i) src.m_pixels[i].r &= 0xC1;
                EXPECT_TRUE(matches(src, [&](kiv& i) { return i.emboss(&r, &q); }, [&](kiv& i) { ref_emboss(i, &r, p); }))
                    << sh.w << "x" << sh.h << " azimuth " << p.azimuth;
            }
    });
    kiv flat = flat_image(5, 4, tagRGBA{90, 40, 7, 200});
    ASSERT_EQ(flat.emboss(nullptr, nullptr), 1);
    for (int i = 0; i < flat.m_packets; ++i) ASSERT_TRUE(same_rgba(flat.m_pixels[i], tagRGBA{180, 180, 180, 0}));
}

TEST(FilterRaiseEdge, BandsOnWhiteAndGrey) {
    // Expected rule per pixel of the rectangle: L left, T top, R right, B bottom, . none.
    // The rectangle sits one pixel inside an image whose frame must keep its colour.
    const struct {
        int w, h, n;
        std::vector<const char*> want;
    } rows[] = {
        {7, 6, 2, {"TTTTTTT", "LTTTTTR", "LL...RR", "LL...RR", "LLBBBRR", "LBBBBBR"}},
        {4, 4, 2, {"TTTT", "LTTR", "LLRR", "LBBR"}},  // 2n = width = height
        {5, 2, 1, {"TTTTT", "LBBBR"}},
    };
    // Per rule L T R B . : white keeps 255 on top and left; grey 100 separates every rule
    // ((190 * 100 + 16575) / 255 = 139, (135 * 100 + 30600) / 255 = 172, 74, 52).
    const struct {
        BYTE grey;
        int value[5];
    } colours[] = {{255, {255, 255, 190, 135, 255}}, {100, {139, 172, 74, 52, 100}}};
    const std::string rules = "LTRB.";
    for (const auto& row : rows)
        for (const auto& col : colours) {
            kiv img = flat_image(row.w + 2, row.h + 2, tagRGBA{col.grey, col.grey, col.grey, 4});
            img.m_bits = 32;
            tagRECT r{1, 1, row.w + 1, row.h + 1};
            ASSERT_EQ(img.raise_edge(&r, row.n), 1);
            EXPECT_EQ(img.m_bits, 24);
            for (int y = 0; y < row.h + 2; ++y)
                for (int x = 0; x < row.w + 2; ++x) {
                    const bool inside = x >= 1 && x <= row.w && y >= 1 && y <= row.h;
                    const int v = inside ? col.value[rules.find(row.want[y - 1][x - 1])] : col.grey;
                    ASSERT_TRUE(same_rgba(px(img, x, y), tagRGBA{BYTE(v), BYTE(v), BYTE(v), 4}))
                        << row.w << "x" << row.h << " grey " << int(col.grey) << " at " << x << "," << y << ": "
                        << rgba_str(px(img, x, y));
                }
        }
    kiv g = random_image(4, 4, 24, 5), orig(g);
    EXPECT_EQ(g.raise_edge(nullptr, 0), 1);
    EXPECT_EQ(g.raise_edge(nullptr, 3), 0);
    EXPECT_TRUE(images_equal(g, orig));
}
