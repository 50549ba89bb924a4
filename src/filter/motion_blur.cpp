// Motion and directional blurs: mblur_linear, mblur_radial, mblur_round, mblur_zoom,
// sblur_wind, sblur_blast.
//
// The sampling blurs take nearest-pixel samples from the whole image (coordinates clamped)
// and average them with rounding; positions are computed once per call (linear, radial) or
// per pixel, always in the same order, so the result does not depend on the threads.
#include <cmath>
#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "core/kmath.h"

namespace {

using namespace kivfilter;

constexpr int kMaxDistance = 1000;    // mblur_linear, mblur_round: pixels
constexpr int kMaxArcSamples = 256;   // mblur_radial, mblur_zoom
constexpr int kMaxStreak = 1000;      // sblur_wind, sblur_blast
constexpr double kTwoPi = 6.283185307179586;

// Sample positions are 64-bit: with the centre allowed a few image sizes outside, a sample
// of an image wider or taller than about 2^27 lies beyond int range.
inline long long round_ll(double v) { return static_cast<long long>(std::floor(v + 0.5)); }
inline int clamp_ll(long long v, int n) { return v < 0 ? 0 : (v >= n ? n - 1 : static_cast<int>(v)); }

// Clamps a sample position to the image.
inline const tagRGBA& sample(kiv* img, long long x, long long y) {
    return row_ptr(img, clamp_ll(y, img->m_height))[clamp_ll(x, img->m_width)];
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
    std::vector<tagRGBA> out(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()));
    kivcore::parallel_for(a.top, a.bottom, [&](int y) {
        tagRGBA* o = out.data() + static_cast<std::size_t>(y - a.top) * w;
        for (int x = a.left; x < a.right; ++x) o[x - a.left] = body(x, y);
    });
    img->setpacket(out.data(), a.left, a.top, w, a.h());
}

// The farthest rectangle corner from (cx, cy).
double farthest(const Area& a, double cx, double cy) {
    double best = 0.0;
    for (double x : {static_cast<double>(a.left), static_cast<double>(a.right - 1)})
        for (double y : {static_cast<double>(a.top), static_cast<double>(a.bottom - 1)}) {
            const double d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
            best = d > best ? d : best;
        }
    return best;
}

// A centre far outside the image would push sample coordinates past int range.
bool centre_ok(kiv* img, int cx, int cy) {
    const long long lim = 4LL * (static_cast<long long>(img->m_width) + img->m_height) + 1024;
    return cx >= -lim && cx <= lim && cy >= -lim && cy <= lim;
}

// Fixed per-line variation of the streak length (a 32-bit integer hash).
inline int streak_length(int line, int strength) {
    std::uint32_t v = static_cast<std::uint32_t>(line) * 0x9E3779B1u;
    v ^= v >> 15;
    v *= 0x85EBCA77u;
    v ^= v >> 13;
    const int half = strength / 2;
    return std::max(1, half + static_cast<int>(v % static_cast<std::uint32_t>(strength - half + 1)));
}

// Runs line_fn(in, out, n, line) over the lines of the rectangle in the wind's direction:
// element 0 of a line is its upwind end.
template <class LineFn>
void per_wind_line(kiv* img, const Area& a, int direction, LineFn line_fn) {
    const int w = a.w(), h = a.h();
    std::vector<tagRGBA> in = read_area(img, a), out(in.size());
    const bool horizontal = direction < 2, reverse = direction == 1 || direction == 3;
    const int lines = horizontal ? h : w, n = horizontal ? w : h;
    kivcore::parallel_chunks(0, lines, [&](int qb, int qe) {
        std::vector<tagRGBA> li(static_cast<std::size_t>(n)), lo(li.size());
        for (int q = qb; q < qe; ++q) {
            auto at = [&](int k) {
                const int p = reverse ? n - 1 - k : k;
                return horizontal ? static_cast<std::size_t>(q) * w + p : static_cast<std::size_t>(p) * w + q;
            };
            for (int k = 0; k < n; ++k) li[static_cast<std::size_t>(k)] = in[at(k)];
            line_fn(li.data(), lo.data(), n, q);
            for (int k = 0; k < n; ++k) out[at(k)] = lo[static_cast<std::size_t>(k)];
        }
    });
    img->setpacket(out.data(), a.left, a.top, w, h);
}

bool streak_args_ok(int direction, int strength) {
    return direction >= 0 && direction <= 3 && strength >= 1 && strength <= kMaxStreak;
}

}  // namespace

int kiv::mblur_linear(tagRECT* rect, double angle, int distance) {
    Area a;
    if (!normalise(this, rect, &a) || !std::isfinite(angle) || distance < 0 || distance > kMaxDistance) return 0;
    raise_depth_24(this);
    if (distance == 0) return 1;
    const double rad = angle * kivcore::kmath::kDegToRad, c = kivcore::kmath::cos(rad), s = kivcore::kmath::sin(rad);
    std::vector<long long> dx, dy;
    for (int k = 0; k <= distance; ++k) {
        const double t = k - distance / 2.0;
        dx.push_back(round_ll(t * c));
        dy.push_back(round_ll(-t * s));  // image y grows downwards; 90 degrees is up
    }
    per_pixel(this, a, [&](int x, int y) {
        Mean m;
        for (std::size_t k = 0; k < dx.size(); ++k) m.add(sample(this, x + dx[k], y + dy[k]));
        return m.result(row_ptr(this, y)[x].a);
    });
    return 1;
}

int kiv::mblur_radial(tagRECT* rect, int cx, int cy, double angle) {
    Area a;
    if (!normalise(this, rect, &a) || !(angle >= 0.0 && angle <= 360.0) || !centre_ok(this, cx, cy)) return 0;
    raise_depth_24(this);
    if (angle == 0.0) return 1;
    const double span = angle * kivcore::kmath::kDegToRad;
    // About one sample per pixel of arc at the farthest corner.
    const double want = std::ceil(farthest(a, cx, cy) * span) + 1.0;
    const int n = want < 2.0 ? 2 : (want > kMaxArcSamples ? kMaxArcSamples : static_cast<int>(want));
    std::vector<double> cs(static_cast<std::size_t>(n)), sn(cs.size());
    for (int k = 0; k < n; ++k) {
        const double t = span * (static_cast<double>(k) / (n - 1) - 0.5);
        cs[static_cast<std::size_t>(k)] = kivcore::kmath::cos(t);
        sn[static_cast<std::size_t>(k)] = kivcore::kmath::sin(t);
    }
    per_pixel(this, a, [&](int x, int y) {
        const double ox = static_cast<double>(x) - cx, oy = static_cast<double>(y) - cy;
        Mean m;
        for (std::size_t k = 0; k < cs.size(); ++k)
            m.add(sample(this, cx + round_ll(ox * cs[k] - oy * sn[k]), cy + round_ll(ox * sn[k] + oy * cs[k])));
        return m.result(row_ptr(this, y)[x].a);
    });
    return 1;
}

int kiv::mblur_round(tagRECT* rect, int cx, int cy, int amount) {
    Area a;
    if (!normalise(this, rect, &a) || amount < 0 || amount > kMaxDistance || !centre_ok(this, cx, cy)) return 0;
    raise_depth_24(this);
    if (amount == 0) return 1;
    per_pixel(this, a, [&](int x, int y) {
        const double ox = static_cast<double>(x) - cx, oy = static_cast<double>(y) - cy, r = std::sqrt(ox * ox + oy * oy);
        const tagRGBA& self = row_ptr(this, y)[x];
        if (r < 0.5) return self;  // the centre does not move
        const double span = std::min(amount / r, kTwoPi);
        const int n = amount + 1;
        const double step = span / amount, c = kivcore::kmath::cos(step), s = kivcore::kmath::sin(step);
        // Start half the arc back, then rotate by one step per sample.
        double vx = ox * kivcore::kmath::cos(-span / 2) - oy * kivcore::kmath::sin(-span / 2);
        double vy = ox * kivcore::kmath::sin(-span / 2) + oy * kivcore::kmath::cos(-span / 2);
        Mean m;
        for (int k = 0; k < n; ++k) {
            m.add(sample(this, cx + round_ll(vx), cy + round_ll(vy)));
            const double nx = vx * c - vy * s;
            vy = vx * s + vy * c;
            vx = nx;
        }
        return m.result(self.a);
    });
    return 1;
}

int kiv::mblur_zoom(tagRECT* rect, int cx, int cy, int amount) {
    Area a;
    if (!normalise(this, rect, &a) || amount < 0 || amount > 100 || !centre_ok(this, cx, cy)) return 0;
    raise_depth_24(this);
    if (amount == 0) return 1;
    const double reach = amount / 100.0;
    per_pixel(this, a, [&](int x, int y) {
        const double ox = static_cast<double>(x) - cx, oy = static_cast<double>(y) - cy;
        const double want = std::ceil(std::sqrt(ox * ox + oy * oy) * reach) + 1.0;
        const int n = want < 2.0 ? 2 : (want > kMaxArcSamples ? kMaxArcSamples : static_cast<int>(want));
        Mean m;
        for (int k = 0; k < n; ++k) {
            const double f = 1.0 - reach * k / (n - 1);
            m.add(sample(this, cx + round_ll(ox * f), cy + round_ll(oy * f)));
        }
        return m.result(row_ptr(this, y)[x].a);
    });
    return 1;
}

int kiv::sblur_wind(tagRECT* rect, int direction, int strength) {
    Area a;
    if (!normalise(this, rect, &a) || !streak_args_ok(direction, strength)) return 0;
    raise_depth_24(this);
    per_wind_line(this, a, direction, [&](const tagRGBA* in, tagRGBA* out, int n, int line) {
        // The trail of the brightest recent pixel fades linearly over the streak length.
        const int fade = std::max(1, 255 / streak_length(line, strength));
        int tr = 0, tg = 0, tb = 0;
        for (int k = 0; k < n; ++k) {
            tr = std::max<int>(in[k].r, tr - fade);
            tg = std::max<int>(in[k].g, tg - fade);
            tb = std::max<int>(in[k].b, tb - fade);
            out[k] = tagRGBA{static_cast<BYTE>(tr), static_cast<BYTE>(tg), static_cast<BYTE>(tb), in[k].a};
        }
    });
    return 1;
}

int kiv::sblur_blast(tagRECT* rect, int direction, int strength) {
    Area a;
    if (!normalise(this, rect, &a) || !streak_args_ok(direction, strength)) return 0;
    raise_depth_24(this);
    per_wind_line(this, a, direction, [&](const tagRGBA* in, tagRGBA* out, int n, int line) {
        // Running mean over the last `len` pixels upwind (fewer at the line's start).
        const int len = streak_length(line, strength);
        int sr = 0, sg = 0, sb = 0;
        for (int k = 0; k < n; ++k) {
            sr += in[k].r;
            sg += in[k].g;
            sb += in[k].b;
            if (k >= len) {
                sr -= in[k - len].r;
                sg -= in[k - len].g;
                sb -= in[k - len].b;
            }
            const int cnt = std::min(k + 1, len);
            out[k] = tagRGBA{static_cast<BYTE>(std::max<int>(in[k].r, (sr + cnt / 2) / cnt)),
                             static_cast<BYTE>(std::max<int>(in[k].g, (sg + cnt / 2) / cnt)),
                             static_cast<BYTE>(std::max<int>(in[k].b, (sb + cnt / 2) / cnt)), in[k].a};
        }
    });
    return 1;
}
