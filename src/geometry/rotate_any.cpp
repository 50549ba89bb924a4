// Rotation by any angle about the centre into an image that holds the whole turned image.
#include <cmath>
#include <new>

#include "core/parallel.h"
#include "core/kmath.h"
#include "geometry/geometry.h"

namespace {

// Slack allowed when rounding the turned extent up to whole pixels, so an angle a hair
// off a multiple of 90 degrees does not add a column of background.
constexpr double kExtentSlack = 1e-6;

// Side of the turned image, or -1 when it does not fit an int.
int turned_extent(double a, double b) {
    const double e = std::ceil(a + b - kExtentSlack);
    if (!(e <= 2147483647.0)) return -1;
    return e < 1.0 ? 1 : static_cast<int>(e);
}

}  // namespace

int kiv::rotate_any(double degrees, COLORREF background, int method) {
    if (!m_pixels || (method != 0 && method != 1)) return 0;
    double s, c;
    if (!kivcore::kmath::sincos_degrees(degrees, &s, &c)) return 0;
    const int W = m_width, H = m_height;
    const double as = std::fabs(s), ac = std::fabs(c);
    const int nw = turned_extent(W * ac, H * as), nh = turned_extent(W * as, H * ac);
    if (nw < 0 || nh < 0 || kivcore::checked_packets(nw, nh) < 0) return 0;

    kiv result;
    try {
        if (!result.create(nw, nh, m_bits < 24 ? 24 : m_bits)) return 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
    const tagRGBA bg{GetRValue(background), GetGValue(background), GetBValue(background), 0};
    // Pixel centres relative to the image centres; each target centre is turned back into
    // the source, where pixel (i, j) has its centre at (i, j).
    const double tcx = nw / 2.0, tcy = nh / 2.0, scx = W / 2.0 - 0.5, scy = H / 2.0 - 0.5;
    auto at = [&](long long x, long long y) -> const tagRGBA& {
        if (x < 0 || y < 0 || x >= W || y >= H) return bg;
        return kivcore::row_ptr(*this, static_cast<int>(y))[x];
    };
    kivcore::parallel_for(0, nh, kivcore::row_work(nw, 8), [&](int Y) {
        tagRGBA* d = kivcore::row_ptr(result, Y);
        const double v = Y + 0.5 - tcy;
        for (int X = 0; X < nw; ++X) {
            const double u = X + 0.5 - tcx;
            const double sx = (u * c - v * s) + scx, sy = (u * s + v * c) + scy;
            if (method == 0) {
                d[X] = at(static_cast<long long>(std::floor(sx + 0.5)), static_cast<long long>(std::floor(sy + 0.5)));
                continue;
            }
            const double fx0 = std::floor(sx), fy0 = std::floor(sy);
            const double fx = sx - fx0, fy = sy - fy0;
            const long long x0 = static_cast<long long>(fx0), y0 = static_cast<long long>(fy0);
            const BYTE* p00 = &at(x0, y0).r;
            const BYTE* p01 = &at(x0 + 1, y0).r;
            const BYTE* p10 = &at(x0, y0 + 1).r;
            const BYTE* p11 = &at(x0 + 1, y0 + 1).r;
            BYTE out[4];
            for (int k = 0; k < 4; ++k) {
                const double t = (p00[k] * (1.0 - fx) + p01[k] * fx) * (1.0 - fy) + (p10[k] * (1.0 - fx) + p11[k] * fx) * fy;
                out[k] = static_cast<BYTE>(std::fmin(t + 0.5, 255.0));
            }
            d[X] = tagRGBA{out[0], out[1], out[2], out[3]};
        }
    });
    movefrom(&result);
    return 1;
}
