// Sharpening and local contrast: sharpen2, unsharp_mask, unsharp_mask2, enhance.
#include <cmath>
#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/color_models.h"
#include "core/parallel.h"
#include "filter/filter.h"
#include "filter/kernel3x3_avx2.h"

namespace {

using namespace kivfilter;

constexpr int kMaxSharpen2 = 1000;  // percent
constexpr double kMaxUnsharpRadius = 1000.0;
constexpr int kMaxUnsharpAmount = 1000;  // percent
constexpr int kMaxEnhanceRadius = 1000;

bool unsharp_args_ok(double radius, int amount, int threshold) {
    return radius > 0.0 && radius <= kMaxUnsharpRadius && iir_sigma_ok(radius) && amount >= 0 &&
           amount <= kMaxUnsharpAmount && threshold >= 0 && threshold <= 255;
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

inline int lightness(const tagRGBA& p) { return kivcore::rgb_to_hls(p.r, p.g, p.b).l; }

inline void add_to_rgb(tagRGBA& p, int delta) {
    p.r = static_cast<BYTE>(clamp255(p.r + delta));
    p.g = static_cast<BYTE>(clamp255(p.g + delta));
    p.b = static_cast<BYTE>(clamp255(p.b + delta));
}

}  // namespace

int kiv::sharpen2(tagRECT* rect, int strength) {
    Area a;
    if (!normalise(this, rect, &a) || strength < 0 || strength > kMaxSharpen2) return 0;
    raise_depth_24(this);
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
}

int kiv::unsharp_mask(tagRECT* rect, double radius, int amount, int threshold) {
    Area a;
    if (!normalise(this, rect, &a) || !unsharp_args_ok(radius, amount, threshold)) return 0;
    raise_depth_24(this);
    const int w = a.w(), h = a.h();
    const std::size_t W = static_cast<std::size_t>(m_width);
    // The blur reads the image in place; every channel it writes is written before it is
    // read, so the buffer needs no clearing.
    std::unique_ptr<tagRGBA[]> blurred(new tagRGBA[static_cast<std::size_t>(w) * static_cast<std::size_t>(h)]);
    const std::vector<unsigned char> lut = unsharp_table(amount, threshold);
    LineProgress progress(this, static_cast<long long>(w) + h);
    iir_blur_block(row_ptr(this, a.top) + a.left, static_cast<std::ptrdiff_t>(W), blurred.get(), w, w, h, radius, radius,
                   &progress);
    progress.term();
    kivcore::parallel_for(0, h, [&](int j) {
        tagRGBA* o = row_ptr(this, a.top + j) + a.left;
        const tagRGBA* b = blurred.get() + static_cast<std::size_t>(j) * w;
        const unsigned char* t = lut.data();
        for (int i = 0; i < w; ++i) {
            o[i].r = t[o[i].r * 256 + b[i].r];
            o[i].g = t[o[i].g * 256 + b[i].g];
            o[i].b = t[o[i].b * 256 + b[i].b];
        }
    });
    return 1;
}

int kiv::unsharp_mask2(tagRECT* rect, double radius, int amount, int threshold) {
    Area a;
    if (!normalise(this, rect, &a) || !unsharp_args_ok(radius, amount, threshold)) return 0;
    raise_depth_24(this);
    const int w = a.w(), h = a.h();
    // Lightness as a grey image, blurred like the colour channels of unsharp_mask.
    std::vector<tagRGBA> light(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
    kivcore::parallel_for(0, h, [&](int j) {
        const std::size_t at = static_cast<std::size_t>(j) * w;
        const tagRGBA* src = row_ptr(this, a.top + j) + a.left;
        for (int i = 0; i < w; ++i) {
            const BYTE l = static_cast<BYTE>(lightness(src[i]));
            light[at + i] = tagRGBA{l, l, l, 0};
        }
    });
    std::vector<tagRGBA> blurred(light.size());
    LineProgress progress(this, static_cast<long long>(w) + h);
    iir_blur_block(light.data(), w, blurred.data(), w, w, h, radius, radius, &progress);
    progress.term();
    const std::vector<unsigned char> lut = unsharp_table(amount, threshold);
    kivcore::parallel_for(0, h, [&](int j) {
        tagRGBA* o = row_ptr(this, a.top + j) + a.left;
        const std::size_t at = static_cast<std::size_t>(j) * w;
        for (int i = 0; i < w; ++i) {
            const int L = light[at + i].r;
            add_to_rgb(o[i], lut[static_cast<std::size_t>(L) * 256 + blurred[at + i].r] - L);
        }
    });
    return 1;
}

int kiv::enhance(tagRECT* rect, int radius, int amount) {
    Area a;
    if (!normalise(this, rect, &a) || radius < 1 || radius > kMaxEnhanceRadius || amount < 0 || amount > 100)
        return 0;
    raise_depth_24(this);
    if (amount == 0) return 1;
    const int w = a.w(), h = a.h();
    const std::size_t iw = static_cast<std::size_t>(w) + 1;
    // Summed-area tables of lightness and its square over the rectangle (exact integers).
    std::vector<std::int64_t> s1(iw * (static_cast<std::size_t>(h) + 1)), s2(s1.size());
    std::vector<unsigned char> L(static_cast<std::size_t>(w) * h);
    for (int j = 0; j < h; ++j) {
        const tagRGBA* row = row_ptr(this, a.top + j) + a.left;
        std::int64_t r1 = 0, r2 = 0;
        for (int i = 0; i < w; ++i) {
            const int l = lightness(row[i]);
            L[static_cast<std::size_t>(j) * w + i] = static_cast<unsigned char>(l);
            r1 += l;
            r2 += l * l;
            s1[(j + 1) * iw + i + 1] = s1[j * iw + i + 1] + r1;
            s2[(j + 1) * iw + i + 1] = s2[j * iw + i + 1] + r2;
        }
    }
    const double gain_scale = amount / 100.0;
    kivcore::parallel_for(0, h, [&](int j) {
        const int j0 = std::max(0, j - radius), j1 = std::min(h, j + radius + 1);
        tagRGBA* o = row_ptr(this, a.top + j) + a.left;
        for (int i = 0; i < w; ++i) {
            const int i0 = std::max(0, i - radius), i1 = std::min(w, i + radius + 1);
            const double n = static_cast<double>(j1 - j0) * (i1 - i0);
            auto box = [&](const std::vector<std::int64_t>& s) {
                return static_cast<double>(s[j1 * iw + i1] - s[j0 * iw + i1] - s[j1 * iw + i0] + s[j0 * iw + i0]);
            };
            const double mean = box(s1) / n;
            const double var = box(s2) / n - mean * mean;
            const double sd = std::sqrt(var > 0.0 ? var : 0.0);
            double g = 40.0 / (sd + 1.0);  // flat areas get the most gain
            g = g < 1.0 ? 1.0 : (g > 3.0 ? 3.0 : g);
            const double gain = 1.0 + gain_scale * (g - 1.0);
            const int l = L[static_cast<std::size_t>(j) * w + i];
            const int nl = clamp_trunc_byte(mean + (l - mean) * gain + 0.5);
            add_to_rgb(o[i], nl - l);
        }
    });
    return 1;
}
