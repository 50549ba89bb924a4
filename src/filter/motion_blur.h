// What the sampling blurs share (mblur_linear, mblur_radial, mblur_round, mblur_zoom): they
// take nearest-pixel samples from the whole image (coordinates clamped) and average them
// with rounding; positions are computed once per call (linear, radial) or per pixel, always
// in the same order, so the result does not depend on the threads.
#ifndef KIV_FILTER_MOTION_BLUR_H
#define KIV_FILTER_MOTION_BLUR_H

#include <cmath>
#include <cstddef>

#include "filter/filter.h"
#include "filter/motion_blur_simd.h"

namespace kivfilter {

constexpr int kMaxDistance = 1000;   // mblur_linear, mblur_round: pixels
constexpr int kMaxArcSamples = 256;  // mblur_radial, mblur_zoom

// floor(v + 0.5), 64-bit: with the centre allowed a few image sizes outside, a sample of an
// image wider or taller than about 2^27 lies beyond int range. The truncation less one
// where it rounded up is the floor without a library call; positions stay far inside the
// range where a double converts exactly.
inline long long round_ll(double v) {
    const double t = v + 0.5;
    const long long k = static_cast<long long>(t);
    return k - (static_cast<double>(k) > t ? 1 : 0);
}
inline int clamp_ll(long long v, int n) { return v < 0 ? 0 : (v >= n ? n - 1 : static_cast<int>(v)); }

// Clamps a sample position to the image.
inline const tagRGBA& sample(kiv* img, long long x, long long y) {
    return row_ptr(*img, clamp_ll(y, img->m_height))[clamp_ll(x, img->m_width)];
}

// Sums samples and stores their rounded mean; alpha comes from the source pixel.
struct Mean {
    int r = 0, g = 0, b = 0, n = 0;
    void add(const tagRGBA& p) {
        r += p.r;
        g += p.g;
        b += p.b;
        ++n;
    }
    tagRGBA result(BYTE alpha) const {
        return tagRGBA{static_cast<BYTE>((r + n / 2) / n), static_cast<BYTE>((g + n / 2) / n),
                       static_cast<BYTE>((b + n / 2) / n), alpha};
    }
};

// Runs body(x, y) -> tagRGBA over the rectangle into a buffer (rows in parallel), then
// stores the buffer: every sample sees the original image.
template <class Body>
void per_pixel(kiv* img, const Area& a, Body body) {
    const int w = a.w();
    const UnzeroedBlock block(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()) * sizeof(tagRGBA));
    tagRGBA* const out = block.as<tagRGBA>();
    kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(w, 16), [&](int y) {
        tagRGBA* o = out + static_cast<std::size_t>(y - a.top) * w;
        for (int x = a.left; x < a.right; ++x) o[x - a.left] = body(x, y);
    });
    img->setpacket(out, a.left, a.top, w, a.h());
}

// Runs body(y, out row) over the rectangle's rows into a buffer (in parallel), then stores
// the buffer.
template <class Body>
void per_row(kiv* img, const Area& a, Body body) {
    const int w = a.w();
    const UnzeroedBlock block(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()) * sizeof(tagRGBA));
    tagRGBA* const out = block.as<tagRGBA>();
    kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(w, 16), [&](int y) { body(y, out + static_cast<std::size_t>(y - a.top) * w); });
    img->setpacket(out, a.left, a.top, w, a.h());
}

// The farthest rectangle corner from (cx, cy).
inline double farthest(const Area& a, double cx, double cy) {
    double best = 0.0;
    for (double x : {static_cast<double>(a.left), static_cast<double>(a.right - 1)})
        for (double y : {static_cast<double>(a.top), static_cast<double>(a.bottom - 1)}) {
            const double d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
            best = d > best ? d : best;
        }
    return best;
}

// A centre far outside the image would push sample coordinates past int range.  The limit
// is on the distance outside, so it is the same on the right and bottom as on the left and top.
inline bool centre_ok(kiv* img, int cx, int cy) {
    const long long lim = 4LL * (static_cast<long long>(img->m_width) + img->m_height) + 1024;
    return cx >= -lim && cx - (img->m_width - 1LL) <= lim && cy >= -lim && cy - (img->m_height - 1LL) <= lim;
}

// The image as the vector kernels sample it, positions relative to (cx, cy).
inline MotionSrc motion_src(kiv* img, int cx, int cy) {
    return MotionSrc{reinterpret_cast<const unsigned char*>(img->m_pixels), img->m_width, img->m_width, img->m_height,
                     static_cast<double>(cx), static_cast<double>(cy)};
}

}  // namespace kivfilter

#endif
