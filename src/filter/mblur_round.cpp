// Round motion blur (mblur_round): every pixel averages samples along an arc of a fixed length.
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

namespace {
constexpr double kTwoPi = 6.283185307179586;
}  // namespace

int kiv::mblur_round(tagRECT* rect, int cx, int cy, int amount) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area a;
        if (!clip_rect(*this, rect, &a) || amount < 0 || amount > kMaxDistance || !centre_ok(this, cx, cy)) return 0;
        raise_depth_24(*this);
        if (amount == 0) return 1;
        const int w = a.w(), n = amount + 1;
        // A pixel's arc depends on its offset from the centre only through |ox| and |oy|: rows
        // mirrored about the centre are done together, and each distance's turn (the sines and
        // cosines of the step and of half the span) is worked out once for both halves of them.
        struct Turn {
            double c, s;    // one step
            double ch, sh;  // cosine and sine of minus half the span
            bool still;     // the centre: the pixel does not move
        };
        const long long lo = static_cast<long long>(a.left) - cx, hi = static_cast<long long>(a.right) - 1 - cx;
        const long long amin = lo <= 0 && hi >= 0 ? 0 : std::min(lo < 0 ? -lo : lo, hi < 0 ? -hi : hi);
        const long long amax = std::max(lo < 0 ? -lo : lo, hi < 0 ? -hi : hi);
        // A row whose mirror lies above it inside the rectangle is done with that mirror.
        std::vector<int> firsts;
        for (int y = a.top; y < a.bottom; ++y) {
            const long long m = 2LL * cy - y;
            if (m >= y || m < a.top || m >= a.bottom) firsts.push_back(y);
        }
        const UnzeroedBlock block(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()) * sizeof(tagRGBA));
        tagRGBA* const out = block.as<tagRGBA>();
        const auto arc = kivcore::pick_avx2(KIV_AVX2_KERNEL(arc_pixels_avx2));
        const MotionSrc msrc = motion_src(this, cx, cy);
        kivcore::parallel_chunks(0, static_cast<int>(firsts.size()), [&](int fb, int fe) {
            const std::size_t turns = static_cast<std::size_t>(amax - amin + 1);
            std::vector<Turn> turn(turns);
            std::vector<double> arg(2 * turns), sn(arg.size()), cs(arg.size());
            std::vector<double> lanes(arc ? 4 * static_cast<std::size_t>(w) : 0);
            for (int f = fb; f < fe; ++f) {
                const int y0 = firsts[static_cast<std::size_t>(f)];
                const double oy0 = static_cast<double>(y0) - cy;
                // The angles first, then their sines and cosines in one batch.
                for (long long k = amin; k <= amax; ++k) {
                    const std::size_t i = static_cast<std::size_t>(k - amin);
                    const double ox = static_cast<double>(k), r = std::sqrt(ox * ox + oy0 * oy0);
                    turn[i].still = r < 0.5;
                    const double span = turn[i].still ? 1.0 : std::min(amount / r, kTwoPi);
                    arg[2 * i] = span / amount;
                    arg[2 * i + 1] = -span / 2;
                }
                kivcore::kmath::sincos_many(arg.data(), sn.data(), cs.data(), static_cast<int>(arg.size()));
                for (std::size_t i = 0; i < turns; ++i)
                    turn[i] = Turn{cs[2 * i], sn[2 * i], cs[2 * i + 1], sn[2 * i + 1], turn[i].still};
                const long long m = 2LL * cy - y0;
                const int rows[2] = {y0, m != y0 && m >= a.top && m < a.bottom ? static_cast<int>(m) : -1};
                for (int y : rows) {
                    if (y < 0) continue;
                    const double oy = static_cast<double>(y) - cy;
                    const tagRGBA* src = row_ptr(*this, y);
                    tagRGBA* o = out + static_cast<std::size_t>(y - a.top) * w;
                    int x = a.left;
                    if (arc) {
                        // Starting points and turns of the row's pixels, then the vector kernel;
                        // the centre pixel is put back after it.
                        const int whole = w / 4 * 4;
                        for (int i = 0; i < whole; ++i) {
                            const double ox = static_cast<double>(a.left + i) - cx;
                            const long long ax = a.left + i - static_cast<long long>(cx);
                            const Turn& t = turn[static_cast<std::size_t>((ax < 0 ? -ax : ax) - amin)];
                            const bool go = !t.still;
                            lanes[i] = go ? ox * t.ch - oy * t.sh : 0.0;
                            lanes[whole + i] = go ? ox * t.sh + oy * t.ch : 0.0;
                            lanes[2 * whole + i] = go ? t.c : 1.0;
                            lanes[3 * whole + i] = go ? t.s : 0.0;
                        }
                        arc(&msrc, lanes.data(), lanes.data() + whole, lanes.data() + 2 * whole,
                            lanes.data() + 3 * whole, whole, n, reinterpret_cast<const unsigned char*>(src + a.left),
                            reinterpret_cast<unsigned char*>(o));
                        for (int i = 0; i < whole; ++i) {
                            const long long ax = a.left + i - static_cast<long long>(cx);
                            if (turn[static_cast<std::size_t>((ax < 0 ? -ax : ax) - amin)].still)
                                o[i] = src[a.left + i];
                        }
                        x += whole;
                    }
                    for (; x < a.right; ++x) {
                        const double ox = static_cast<double>(x) - cx;
                        const long long ax = x - static_cast<long long>(cx);
                        const Turn& t = turn[static_cast<std::size_t>((ax < 0 ? -ax : ax) - amin)];
                        if (t.still) {
                            o[x - a.left] = src[x];
                            continue;
                        }
                        // Start half the arc back, then rotate by one step per sample.
                        double vx = ox * t.ch - oy * t.sh;
                        double vy = ox * t.sh + oy * t.ch;
                        Mean mean;
                        for (int k = 0; k < n; ++k) {
                            mean.add(sample(this, cx + round_ll(vx), cy + round_ll(vy)));
                            const double nx = vx * t.c - vy * t.s;
                            vy = vx * t.s + vy * t.c;
                            vx = nx;
                        }
                        o[x - a.left] = mean.result(src[x].a);
                    }
                }
            }
        });
        setpacket(out, a.left, a.top, w, a.h());
        return 1;
    });
}
