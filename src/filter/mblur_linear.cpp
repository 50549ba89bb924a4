// Linear motion blur (mblur_linear): every pixel averages samples along one line.
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

int kiv::mblur_linear(tagRECT* rect, double angle, int distance) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!clip_rect(*this, rect, &a) || !std::isfinite(angle) || distance < 0 || distance > kMaxDistance) return 0;
        raise_depth_24(*this);
        if (distance == 0) return 1;
        const double rad = angle * kivcore::kmath::kDegToRad, c = kivcore::kmath::cos(rad),
                     s = kivcore::kmath::sin(rad);
        std::vector<long long> dx, dy;
        for (int k = 0; k <= distance; ++k) {
            const double t = k - distance / 2.0;
            dx.push_back(round_ll(t * c));
            dy.push_back(round_ll(-t * s));  // image y grows downwards; 90 degrees is up
        }
        auto one = [&](int x, int y) {
            Mean m;
            for (std::size_t k = 0; k < dx.size(); ++k) m.add(sample(this, x + dx[k], y + dy[k]));
            return m.result(row_ptr(*this, y)[x].a);
        };
        if (const auto span = kivcore::pick_sse2(KIV_SSE2_KERNEL(linear_span_sse2))) {
            // Every pixel takes its samples at the same offsets: a row's sample k of pixels
            // x .. x + 3 is four neighbouring pixels of one row, wherever no column is clamped.
            const long long dxmin = *std::min_element(dx.begin(), dx.end()),
                            dxmax = *std::max_element(dx.begin(), dx.end());
            const int x0 = static_cast<int>(std::max<long long>(a.left, -dxmin));
            const int x1 = static_cast<int>(std::min<long long>(a.right, m_width - dxmax));  // pixels x0 .. x1 - 1
            const int n = static_cast<int>(dx.size());
            per_row(this, a, [&](int y, tagRGBA* o) {
                std::vector<const unsigned char*> rows(dx.size());
                for (std::size_t k = 0; k < dx.size(); ++k)
                    rows[k] = bytes(row_ptr(*this, clamp_ll(y + dy[k], m_height)));
                int x = a.left;
                for (; x < std::min(x0, a.right); ++x) o[x - a.left] = one(x, y);
                if (x < x1)
                    x = span(rows.data(), dx.data(), n, x, x1, bytes(row_ptr(*this, y)), bytes(o + (x - a.left)));
                for (; x < a.right; ++x) o[x - a.left] = one(x, y);
            });
            return 1;
        }
        per_pixel(this, a, one);
        return 1;
    });
}
