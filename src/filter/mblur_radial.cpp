// Radial motion blur (mblur_radial): every pixel averages samples along an arc about a centre.
#include <algorithm>
#include <cmath>
#include <vector>

#include "core/kmath.h"
#include "core/parallel.h"
#include "core/simd.h"
#include "core/watch.h"
#include "filter/motion_blur.h"
#include "filter/motion_blur_simd.h"

using namespace kivfilter;

int kiv::mblur_radial(tagRECT* rect, int cx, int cy, double angle) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!clip_rect(*this, rect, &a) || !(angle >= 0.0 && angle <= 360.0) || !centre_ok(this, cx, cy)) return 0;
        raise_depth_24(*this);
        if (angle == 0.0) return 1;
        const double span = angle * kivcore::kmath::kDegToRad;
        // About one sample per pixel of arc at the farthest corner.
        const double want = std::ceil(farthest(a, cx, cy) * span) + 1.0;
        const int n = want < 2.0 ? 2 : (want > kMaxArcSamples ? kMaxArcSamples : static_cast<int>(want));
        std::vector<double> cs(static_cast<std::size_t>(n)), sn(cs.size());
        for (int k = 0; k < n; ++k) {
            const double t = span * (static_cast<double>(k) / (n - 1) - 0.5);
            kivcore::kmath::sincos(t, &sn[static_cast<std::size_t>(k)], &cs[static_cast<std::size_t>(k)]);
        }
        auto one = [&](int x, int y) {
            const double ox = static_cast<double>(x) - cx, oy = static_cast<double>(y) - cy;
            Mean m;
            for (std::size_t k = 0; k < cs.size(); ++k)
                m.add(sample(this, cx + round_ll(ox * cs[k] - oy * sn[k]), cy + round_ll(ox * sn[k] + oy * cs[k])));
            return m.result(row_ptr(*this, y)[x].a);
        };
        if (const auto spin = kivcore::pick_avx2(KIV_AVX2_KERNEL(spin_pixels_avx2))) {
            const MotionSrc msrc = motion_src(this, cx, cy);
            per_row(this, a, [&](int y, tagRGBA* o) {
                const int whole = a.w() / 4 * 4;
                spin(&msrc, static_cast<double>(a.left) - cx, static_cast<double>(y) - cy, cs.data(), sn.data(), n,
                     whole, reinterpret_cast<const unsigned char*>(row_ptr(*this, y) + a.left),
                     reinterpret_cast<unsigned char*>(o));
                for (int x = a.left + whole; x < a.right; ++x) o[x - a.left] = one(x, y);
            });
            return 1;
        }
        per_pixel(this, a, one);
        return 1;
    });
}
