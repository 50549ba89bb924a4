// Seeded random effects: spread and noise. Every random number is a pure function of the
// seed and the pixel's coordinates, so results do not depend on threads or platform.
#include <algorithm>
#include <cstdint>
#include <utility>

#include "core/parallel.h"
#include "core/watch.h"
#include "effect/effect.h"

namespace kiveffect {
namespace {

// Gaussian noise from twelve uniform 16-bit numbers (Irwin-Hall), integers only, the same
// everywhere. Twice their sum less twice its mean (12 x 65535) is symmetric about 0 with a
// standard deviation of 2 sqrt(65536^2 - 1), which is 2^17 to one part in 10^10.
constexpr int kGaussSum2Mean = 12 * 65535;
constexpr int kGaussShift = 18;  // 2^18: two standard deviations of centred_sum_x2

int centred_sum_x2(std::uint32_t seed, int x, int y, std::uint32_t stream) {
    int sum = 0;
    for (std::uint32_t k = 0; k < 3; ++k) {
        const std::uint64_t r = pixel_random(seed, x, y, stream * 3 + k);
        sum += static_cast<int>(r & 0xFFFF) + static_cast<int>((r >> 16) & 0xFFFF) +
               static_cast<int>((r >> 32) & 0xFFFF) + static_cast<int>(r >> 48);
    }
    return 2 * sum - kGaussSum2Mean;
}

// centred_sum_x2 scaled to a deviation of amount / 2, rounded half away from zero: rounding
// toward zero would shrink the deviation (by a third at amount 2). |result| <= 3 amount.
int gaussian_noise(std::uint32_t seed, int x, int y, std::uint32_t stream, int amount) {
    const long long g = static_cast<long long>(centred_sum_x2(seed, x, y, stream)) * amount;
    const long long m = ((g < 0 ? -g : g) + (1LL << (kGaussShift - 1))) >> kGaussShift;
    return static_cast<int>(g < 0 ? -m : m);
}

}  // namespace
}  // namespace kiveffect

int kiv::spread(tagRECT* rect, int distance, unsigned int seed) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kiveffect;
        Area a;
        if (!clip_rect(*this, rect, &a) || distance < 0 || distance > 10000) return 0;
        raise_depth_24(*this);
        if (distance == 0) return 1;
        const int d = distance;
        // Swaps reach d rows up and down. Bands of 2d + 1 rows or more are done in two passes,
        // even bands and then odd ones: two bands of one pass are at least a band apart, so
        // their swaps never touch the same pixel and the bands may run in parallel while the
        // result stays that of one fixed order.
        const int band = std::max(2 * d + 1, 16);
        const int h = a.h();
        const int bands = static_cast<int>((static_cast<long long>(h) + band - 1) / band);
        for (int parity = 0; parity < 2; ++parity) {
            kivcore::parallel_for(0, (bands - parity + 1) / 2, [&](int i) {
                const int k = 2 * i + parity;
                const int y0 = a.top + k * band;
                const int y1 = static_cast<int>(std::min<long long>(a.bottom, static_cast<long long>(y0) + band));
                for (int y = y0; y < y1; ++y) {
                    // y + d and x + d may pass INT_MAX on an image that tall or wide.
                    const int py0 = std::max(a.top, y - d), py1 = a.bottom - 1 - y > d ? y + d : a.bottom - 1;
                    for (int x = a.left; x < a.right; ++x) {
                        const int px0 = std::max(a.left, x - d), px1 = a.right - 1 - x > d ? x + d : a.right - 1;
                        const std::uint64_t r = pixel_random(seed, x, y, 0);
                        const int px =
                            px0 + below(static_cast<std::uint32_t>(r), static_cast<std::uint32_t>(px1 - px0 + 1));
                        const int py =
                            py0 + below(static_cast<std::uint32_t>(r >> 32), static_cast<std::uint32_t>(py1 - py0 + 1));
                        std::swap(row_ptr(*this, y)[x], row_ptr(*this, py)[px]);
                    }
                }
            });
        }
        return 1;
    });
}

int kiv::noise(tagRECT* rect, tagKIV_NOISE* param) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kiveffect;
        Area a;
        if (!param || !clip_rect(*this, rect, &a)) return 0;
        const tagKIV_NOISE p = *param;
        if (p.amount < 0 || p.amount > 255 || p.gaussian < 0 || p.gaussian > 1) return 0;
        raise_depth_24(*this);
        if (p.amount == 0) return 1;
        const int amount = p.amount, span = 2 * amount + 1;
        const bool gauss = p.gaussian != 0, mono = p.mono != 0;
        const std::uint32_t seed = p.seed;
        // Noise of stream c at (x, y): uniform in -amount..amount, or Gaussian with a standard
        // deviation of amount / 2 (rounded to the nearest integer).
        auto value = [&](int x, int y, std::uint32_t c) {
            if (gauss) return gaussian_noise(seed, x, y, c, amount);
            const std::uint64_t r = pixel_random(seed, x, y, c);
            return below(static_cast<std::uint32_t>(r >> 32), static_cast<std::uint32_t>(span)) - amount;
        };
        kivcore::parallel_for(a.top, a.bottom, kivcore::row_work(a.w(), 8), [&](int y) {
            tagRGBA* q = row_ptr(*this, y);
            for (int x = a.left; x < a.right; ++x) {
                int n[3];
                n[0] = value(x, y, 0);
                n[1] = mono ? n[0] : value(x, y, 1);
                n[2] = mono ? n[0] : value(x, y, 2);
                q[x].r = static_cast<BYTE>(clamp255(q[x].r + n[0]));
                q[x].g = static_cast<BYTE>(clamp255(q[x].g + n[1]));
                q[x].b = static_cast<BYTE>(clamp255(q[x].b + n[2]));
            }
        });
        return 1;
    });
}
