// Zoom motion blur (mblur_zoom): every pixel averages samples along its line to a centre.
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

int kiv::mblur_zoom(tagRECT* rect, int cx, int cy, int amount) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!clip_rect(*this, rect, &a) || amount < 0 || amount > 100 || !centre_ok(this, cx, cy)) return 0;
        raise_depth_24(*this);
        if (amount == 0) return 1;
        const double reach = amount / 100.0;
        // The scale of sample k of a pixel with n samples, f[n][k] = 1 - reach k / (n - 1), for
        // every count a pixel can have; zeros to pair with them in the vector kernel.
        std::vector<double> f(static_cast<std::size_t>(kMaxArcSamples + 1) * kMaxArcSamples),
            zeros(kMaxArcSamples, 0.0);
        for (int n = 2; n <= kMaxArcSamples; ++n)
            for (int k = 0; k < n; ++k) f[static_cast<std::size_t>(n) * kMaxArcSamples + k] = 1.0 - reach * k / (n - 1);
        auto count = [&](double ox, double oy) {
            const double want = std::ceil(std::sqrt(ox * ox + oy * oy) * reach) + 1.0;
            return want < 2.0 ? 2 : (want > kMaxArcSamples ? kMaxArcSamples : static_cast<int>(want));
        };
        auto one = [&](int x, int y) {
            const double ox = static_cast<double>(x) - cx, oy = static_cast<double>(y) - cy;
            const int n = count(ox, oy);
            const double* fn = f.data() + static_cast<std::size_t>(n) * kMaxArcSamples;
            Mean m;
            for (int k = 0; k < n; ++k) m.add(sample(this, cx + round_ll(ox * fn[k]), cy + round_ll(oy * fn[k])));
            return m.result(row_ptr(*this, y)[x].a);
        };
        if (const auto spin = kivcore::pick_avx2(KIV_AVX2_KERNEL(spin_pixels_avx2))) {
            // Four neighbours with the same sample count go to the vector kernel together: the
            // products with zero it adds change no position (floor(+-0 + 0.5) = 0 either way).
            const MotionSrc msrc = motion_src(this, cx, cy);
            per_row(this, a, [&, spin](int y, tagRGBA* o) {
                const double oy = static_cast<double>(y) - cy;
                const tagRGBA* src = row_ptr(*this, y);
                int x = a.left;
                for (; x + 4 <= a.right; x += 4) {
                    const double ox = static_cast<double>(x) - cx;
                    const int n = count(ox, oy);
                    if (count(ox + 3.0, oy) != n || count(ox + 1.0, oy) != n || count(ox + 2.0, oy) != n) {
                        for (int i = 0; i < 4; ++i) o[x + i - a.left] = one(x + i, y);
                        continue;
                    }
                    spin(&msrc, ox, oy, f.data() + static_cast<std::size_t>(n) * kMaxArcSamples, zeros.data(), n, 4,
                         bytes(src + x), bytes(o + (x - a.left)));
                }
                for (; x < a.right; ++x) o[x - a.left] = one(x, y);
            });
            return 1;
        }
        per_pixel(this, a, one);
        return 1;
    });
}
