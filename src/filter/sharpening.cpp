// Sharpening and local contrast: sharpen2, unsharp_mask, unsharp_mask2, enhance.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "core/color_models.h"
#include "core/parallel.h"
#include "core/simd.h"
#include "core/watch.h"
#include "filter/filter.h"
#include "filter/kernel3x3_simd.h"
#include "filter/sharpening_simd.h"

namespace {

using namespace kivfilter;

constexpr int kMaxSharpen2 = 1000;  // percent
constexpr double kMaxUnsharpRadius = 1000.0;
constexpr int kMaxUnsharpAmount = 1000;  // percent
constexpr int kMaxEnhanceRadius = 1000;

// The checks of unsharp_mask and unsharp_mask2 (rectangle into *a), and their raise to true
// colour; false when refused.
bool unsharp_start(kiv* img, tagRECT* rect, double radius, int amount, int threshold, Area* a) {
    if (!clip_rect(*img, rect, a) || !(radius > 0.0 && radius <= kMaxUnsharpRadius && iir_sigma_ok(radius)) ||
        amount < 0 || amount > kMaxUnsharpAmount || threshold < 0 || threshold > 255)
        return false;
    raise_depth_24(*img);
    return true;
}

// O + D * amount / 100 where |D| reaches the threshold, else O.
inline int unsharp_value(int O, int B, int amount, int threshold) {
    const int D = O - B;
    if ((D < 0 ? -D : D) < threshold) return O;
    return clamp255(O + D * amount / 100);
}

// unsharp_value for every (original, blurred) pair, built once per call: the per-pixel step
// becomes one look-up per channel instead of a division.
std::vector<unsigned char> unsharp_table(int amount, int threshold) {
    std::vector<unsigned char> t(256 * 256);
    for (int O = 0; O < 256; ++O)
        for (int B = 0; B < 256; ++B) t[static_cast<std::size_t>(O) * 256 + B] = static_cast<unsigned char>(unsharp_value(O, B, amount, threshold));
    return t;
}

// Lightness (max + min) / 2 of n pixels: the HLS model's lightness without its hue and
// saturation.
void lightness_row(const tagRGBA* p, int n, unsigned char* out) {
    const auto vec = kivcore::pick_sse2(KIV_SSE2_KERNEL(lightness_sse2));
    int i = vec ? vec(reinterpret_cast<const unsigned char*>(p), n, out) : 0;
    for (; i < n; ++i) {
        const int mx = std::max(std::max(p[i].r, p[i].g), p[i].b), mn = std::min(std::min(p[i].r, p[i].g), p[i].b);
        out[i] = static_cast<unsigned char>((mx + mn) >> 1);
    }
}

inline void add_to_rgb(tagRGBA& p, int delta) {
    p.r = static_cast<BYTE>(clamp255(p.r + delta));
    p.g = static_cast<BYTE>(clamp255(p.g + delta));
    p.b = static_cast<BYTE>(clamp255(p.b + delta));
}

// unsharp_mask2's step for n pixels: the change t[L * 256 + B] - L of the lightness L
// (blurred B) added to red, green and blue, clamped.
void add_changes_row(tagRGBA* o, const unsigned char* l, const unsigned char* b, int n, const unsigned char* t) {
    const auto vec = kivcore::pick_sse2(KIV_SSE2_KERNEL(add_changes_sse2));
    int i = vec ? vec(reinterpret_cast<unsigned char*>(o), l, b, n, t) : 0;
    for (; i < n; ++i) add_to_rgb(o[i], t[static_cast<std::size_t>(l[i]) * 256 + b[i]] - l[i]);
}

}  // namespace

int kiv::sharpen2(tagRECT* rect, int strength) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!clip_rect(*this, rect, &a) || strength < 0 || strength > kMaxSharpen2) return 0;
        raise_depth_24(*this);
        if (strength == 0) return 1;
        // |S * strength| <= 2040 * 1000 < 2^24: the vector kernels' float quotient is exact.
        const Weighted3x3 k{{-1, -1, -1, -1, 8, -1, -1, -1, -1}, 1, static_cast<float>(strength), 800.0f};
        if (weighted_3x3(this, a, k)) return 1;
        run_3x3(this, a, [&](const Rows3& r, int w, unsigned char* const* out) {
            for (int c = 0; c < 3; ++c) {
                const unsigned char *t = r.row[0][c], *m = r.row[1][c], *b = r.row[2][c];
                for (int i = 0; i < w; ++i) {
                    const int O = m[i + 1];
                    const int S = 8 * O - (t[i] + t[i + 1] + t[i + 2] + m[i] + m[i + 2] + b[i] + b[i + 1] + b[i + 2]);
                    out[c][i] = static_cast<unsigned char>(clamp255(O + S * strength / 800));
                }
            }
        });
        return 1;
    });
}

int kiv::unsharp_mask(tagRECT* rect, double radius, int amount, int threshold) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!unsharp_start(this, rect, radius, amount, threshold, &a)) return 0;
        const int w = a.w(), h = a.h();
        const std::size_t W = static_cast<std::size_t>(m_width);
        // The blur reads the image in place; every channel it writes is written before it is
        // read, so the buffer needs no clearing.
        const UnzeroedBlock block(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * sizeof(tagRGBA));
        tagRGBA* const blurred = block.as<tagRGBA>();
        const std::vector<unsigned char> lut = unsharp_table(amount, threshold);
        kivcore::Stages stages({4, 1});
        LineProgress progress(this, static_cast<long long>(w) + h);
        iir_blur_block(row_ptr(*this, a.top) + a.left, static_cast<std::ptrdiff_t>(W), blurred, w, w, h, radius, radius,
                       &progress);
        progress.term();
        stages.next();
        kivcore::parallel_for(0, h, kivcore::row_work(w, 2), [&](int j) {
            tagRGBA* o = row_ptr(*this, a.top + j) + a.left;
            const tagRGBA* b = blurred + static_cast<std::size_t>(j) * w;
            const unsigned char* t = lut.data();
            for (int i = 0; i < w; ++i) {
                o[i].r = t[o[i].r * 256 + b[i].r];
                o[i].g = t[o[i].g * 256 + b[i].g];
                o[i].b = t[o[i].b * 256 + b[i].b];
            }
        });
        return 1;
    });
}

int kiv::unsharp_mask2(tagRECT* rect, double radius, int amount, int threshold) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!unsharp_start(this, rect, radius, amount, threshold, &a)) return 0;
        const int w = a.w(), h = a.h();
        const std::size_t sw = static_cast<std::size_t>(w), n = sw * static_cast<std::size_t>(h);
        // Lightness as a plane of bytes, blurred like the colour channels of unsharp_mask; both
        // planes are written whole before they are read.
        const UnzeroedBlock block(2 * n);
        unsigned char *const light = block.as<unsigned char>(), *const blurred = light + n;
        kivcore::Stages stages({1, 4, 1});
        kivcore::parallel_for(0, h, kivcore::row_work(w, 1),
                              [&](int j) { lightness_row(row_ptr(*this, a.top + j) + a.left, w, light + j * sw); });
        stages.next();
        LineProgress progress(this, static_cast<long long>(w) + h);
        iir_blur_plane(light, w, blurred, w, w, h, radius, radius, &progress);
        progress.term();
        stages.next();
        const std::vector<unsigned char> lut = unsharp_table(amount, threshold);
        kivcore::parallel_for(0, h, kivcore::row_work(w, 2), [&](int j) {
            tagRGBA* o = row_ptr(*this, a.top + j) + a.left;
            add_changes_row(o, light + j * sw, blurred + j * sw, w, lut.data());
        });
        return 1;
    });
}

int kiv::enhance(tagRECT* rect, int radius, int amount) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!clip_rect(*this, rect, &a) || radius < 1 || radius > kMaxEnhanceRadius || amount < 0 || amount > 100)
            return 0;
        raise_depth_24(*this);
        if (amount == 0) return 1;
        const int w = a.w(), h = a.h();
        const std::size_t sw = static_cast<std::size_t>(w);
        // Lightness of every pixel first: the pass below changes the pixels it reads it from.
        const UnzeroedBlock block(sw * static_cast<std::size_t>(h));
        const unsigned char* const L = block.as<unsigned char>();
        kivcore::Stages stages({1, 8});
        kivcore::parallel_for(0, h, kivcore::row_work(w, 1), [&](int j) {
            lightness_row(row_ptr(*this, a.top + j) + a.left, w, block.as<unsigned char>() + j * sw);
        });
        stages.next();
        const double gain_scale = amount / 100.0;
        // The widest kernel first, then the SSE2 one for a last pair it leaves.
        const auto span = kivcore::pick(KIV_AVX2_KERNEL(enhance_span_avx2), KIV_SSE2_KERNEL(enhance_span_sse2));
        const auto pairs = kivcore::pick_sse2(KIV_SSE2_KERNEL(enhance_span_sse2));
        // Box sums are exact integers, so any order gives the same values: per band of rows,
        // column sums over the box's rows slide down one row at a time (a column of 2001
        // squares stays below 2^31), and prefix sums along the row give each box.
        const kivcore::Work row_cost = kivcore::row_work(w, 4);
        const int threads = kivcore::threads_for(h, row_cost, kivcore::parallel_threads());
        const int nb = kivcore::watched_pieces(std::max(1, std::min(h, threads <= 1 ? 1 : 4 * threads)), h);
        kivcore::parallel_for(0, nb, kivcore::piece_work(h, row_cost, nb), [&](int k) {
            const int jb = static_cast<int>(static_cast<long long>(h) * k / nb),
                      je = static_cast<int>(static_cast<long long>(h) * (k + 1) / nb);
            std::vector<std::int32_t> c1(sw), c2(sw);
            std::vector<long long> p1(sw + 1), p2(sw + 1);
            auto add_row = [&](int j, int sign) {
                const unsigned char* l = L + j * sw;
                for (std::size_t i = 0; i < sw; ++i) {
                    c1[i] += sign * l[i];
                    c2[i] += sign * (l[i] * l[i]);
                }
            };
            int j0 = std::max(0, jb - radius), j1 = std::min(h, jb + radius + 1);
            for (int j = j0; j < j1; ++j) add_row(j, 1);
            for (int j = jb; j < je; ++j) {
                if (j > jb) {
                    const int n0 = std::max(0, j - radius), n1 = std::min(h, j + radius + 1);
                    if (n0 > j0) add_row(j0, -1);
                    if (n1 > j1) add_row(j1, 1);
                    j0 = n0;
                    j1 = n1;
                }
                for (std::size_t i = 0; i < sw; ++i) {
                    p1[i + 1] = p1[i] + c1[i];
                    p2[i + 1] = p2[i] + c2[i];
                }
                const unsigned char* l = L + j * sw;
                tagRGBA* o = row_ptr(*this, a.top + j) + a.left;
                auto one = [&](int i) {
                    const int i0 = std::max(0, i - radius), i1 = std::min(w, i + radius + 1);
                    const double n = static_cast<double>(j1 - j0) * (i1 - i0);
                    const double mean = static_cast<double>(p1[i1] - p1[i0]) / n;
                    const double var = static_cast<double>(p2[i1] - p2[i0]) / n - mean * mean;
                    const double sd = std::sqrt(var > 0.0 ? var : 0.0);
                    double g = 40.0 / (sd + 1.0);  // flat areas get the most gain
                    g = g < 1.0 ? 1.0 : (g > 3.0 ? 3.0 : g);
                    const double gain = 1.0 + gain_scale * (g - 1.0);
                    const int nl = clamp_trunc_byte(mean + (l[i] - mean) * gain + 0.5);
                    add_to_rgb(o[i], nl - l[i]);
                };
                // The vector steps take the pixels whose boxes lie whole inside the row.
                const int x0 = std::min(w, radius);
                int i = 0;
                for (; i < x0; ++i) one(i);
                if (span) {
                    const int x1 = std::max(x0, w - radius);
                    const EnhanceRow er{p1.data(),  p2.data(), l, static_cast<double>(j1 - j0) * (2 * radius + 1),
                                        gain_scale, radius};
                    i = span(er, i, x1, reinterpret_cast<unsigned char*>(o));
                    i = pairs(er, i, x1, reinterpret_cast<unsigned char*>(o));
                }
                for (; i < w; ++i) one(i);
            }
        });
        return 1;
    });
}
