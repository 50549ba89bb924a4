// The weighted pixels of the alpha- and linear-light members (zoom_rgba, rotate_any_rgba,
// blur_gauss_rgba, unsharp_mask_rgba): each channel on a 0 .. 65535 scale, colour
// premultiplied by alpha under KIV_FILTER_ALPHA and in linear light under KIV_FILTER_LINEAR,
// and the way back to bytes. The vector kernels that convert do exactly these float steps.
#ifndef KIV_CORE_WIDE_PIXELS_H
#define KIV_CORE_WIDE_PIXELS_H

#include <cstdint>

#include "core/toolkit.h"
#include "kiv.h"

namespace kivcore {

// The flags these members accept.
constexpr int kWideFlags = KIV_FILTER_ALPHA | KIV_FILTER_LINEAR;

// sRGB byte to linear light times 65535 (exact to float), and a rounded linear value
// 0..65535 to the nearest sRGB byte (decided against the exact midpoints between bytes).
const float* srgb_to_linear16();
const unsigned char* linear16_to_srgb();

// Clamps written as the vector min and max work: NaN gives lo.
inline float clamp_f(float v, float lo, float hi) {
    v = v > lo ? v : lo;
    return v < hi ? v : hi;
}

struct WideFormat {
    const float* to_wide;          // colour byte -> 0..65535: c * 257, or linear light
    const unsigned char* to_srgb;  // linear mode: rounded value -> byte; else null
    bool alpha;                    // colour weighted by alpha
    bool alpha_out;                // the result's fourth byte is the filtered alpha (else 0)

    static WideFormat of(int flags, bool alpha_out);

    // A pixel's four values: colour to_wide[c] * (a / 255) (times 1 without alpha), alpha
    // a * 257.
    void load(const tagRGBA& p, float* v) const {
        const float f = alpha ? static_cast<float>(p.a) / 255.0f : 1.0f;
        v[0] = to_wide[p.r] * f;
        v[1] = to_wide[p.g] * f;
        v[2] = to_wide[p.b] * f;
        v[3] = static_cast<float>(p.a) * 257.0f;
    }
    // Four filtered values back to a pixel, each rounded to nearest: colour divided by the
    // alpha it was weighted with (a pixel whose alpha rounds to 0 is all zeros), and turned
    // back from linear light.
    tagRGBA store(const float* v) const {
        const int a = static_cast<int>(clamp_f(v[3] / 257.0f + 0.5f, 0.0f, 255.0f));
        if (alpha && a == 0) return tagRGBA{0, 0, 0, 0};
        const float k = alpha ? (to_srgb ? 65535.0f : 255.0f) / v[3] : (to_srgb ? 1.0f : 1.0f / 257.0f);
        BYTE c[3];
        for (int i = 0; i < 3; ++i) {
            const float s = v[i] * k + 0.5f;
            c[i] = to_srgb ? to_srgb[static_cast<int>(clamp_f(s, 0.0f, 65535.0f))]
                           : static_cast<BYTE>(clamp_f(s, 0.0f, 255.0f));
        }
        return tagRGBA{c[0], c[1], c[2], static_cast<BYTE>(alpha_out ? a : 0)};
    }
};

// Whether every pixel of the area (null: the whole image) has alpha 255, where weighting by
// alpha changes nothing.
bool opaque(kiv& img, const Area* a = nullptr);
// Every pixel's fourth byte becomes alpha, and the image's depth bits.
void set_alpha(kiv& img, BYTE alpha, int bits);

// A filtered value to a 16-bit intermediate: rounded, clamped to 0 .. 65535.
inline std::uint16_t to_word(float v) { return static_cast<std::uint16_t>(clamp_f(v + 0.5f, 0.0f, 65535.0f)); }

}  // namespace kivcore

#endif
