// The sRGB tables of the weighted pixels, computed once with the library's own pow, so every
// platform gets the same values.
#include "core/wide_pixels.h"

#include <atomic>

#include "core/kmath.h"
#include "core/parallel.h"

namespace kivcore {

namespace {

// sRGB (0..1) to linear light (0..1), the standard's two pieces.
double decode(double u) { return u <= 0.04045 ? u / 12.92 : kmath::pow((u + 0.055) / 1.055, 2.4); }

}  // namespace

const float* srgb_to_linear16() {
    static const struct Table {
        float v[256];
        Table() {
            for (int c = 0; c < 256; ++c) v[c] = static_cast<float>(65535.0 * decode(c / 255.0));
        }
    } t;
    return t.v;
}

const unsigned char* linear16_to_srgb() {
    static const struct Table {
        unsigned char v[65536];
        Table() {
            // Byte b is nearest to the linear values between the midpoints (b - 0.5) / 255 and
            // (b + 0.5) / 255, decoded: one exact threshold per step instead of 65536 powers.
            int b = 0;
            double next = 65535.0 * decode(0.5 / 255.0);
            for (int i = 0; i < 65536; ++i) {
                while (b < 255 && i >= next) next = 65535.0 * decode((++b + 0.5) / 255.0);
                v[i] = static_cast<unsigned char>(b);
            }
        }
    } t;
    return t.v;
}

WideFormat WideFormat::of(int flags, bool alpha_out) {
    static const struct Straight {
        float v[256];
        Straight() {
            for (int c = 0; c < 256; ++c) v[c] = static_cast<float>(c) * 257.0f;
        }
    } straight;
    const bool linear = flags & KIV_FILTER_LINEAR;
    return WideFormat{linear ? srgb_to_linear16() : straight.v, linear ? linear16_to_srgb() : nullptr,
                      (flags & KIV_FILTER_ALPHA) != 0, alpha_out};
}

bool opaque(kiv& img, const Area* a) {
    const Area all{0, 0, img.m_width, img.m_height};
    const Area& r = a ? *a : all;
    std::atomic<bool> seen{false};  // a pixel below 255: the other rows may stop looking
    parallel_for(r.top, r.bottom, row_work(r.right - r.left, 0.5), [&](int y) {
        if (seen.load(std::memory_order_relaxed)) return;
        const tagRGBA* p = row_ptr(img, y);
        for (int x = r.left; x < r.right; ++x)
            if (p[x].a != 255) {
                seen.store(true, std::memory_order_relaxed);
                return;
            }
    });
    return !seen.load();
}

void set_alpha(kiv& img, BYTE alpha, int bits) {
    parallel_for(0, img.m_height, row_work(img.m_width, 0.5), [&](int y) {
        tagRGBA* p = row_ptr(img, y);
        for (int x = 0; x < img.m_width; ++x) p[x].a = alpha;
    });
    img.m_bits = bits;
}

}  // namespace kivcore
