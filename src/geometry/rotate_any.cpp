// Rotation by any angle about the centre into an image that holds the whole turned image.
#include <cmath>
#include <new>

#include "core/kmath.h"
#include "core/parallel.h"
#include "core/watch.h"
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

// The turned image: its size, and where each target pixel centre lies in the source.
struct Turn {
    double s, c;
    int W, H, nw, nh;
    double tcx, tcy, scx, scy;
    // The source position (sx, sy) of target pixel (X, Y)'s centre; pixel (i, j) of the
    // source has its centre at (i, j).
    void source(int X, int Y, double* sx, double* sy) const {
        const double u = X + 0.5 - tcx, v = Y + 0.5 - tcy;
        *sx = (u * c - v * s) + scx;
        *sy = (u * s + v * c) + scy;
    }
};

// False when the angle is not finite or the result would be too large.
bool turn_of(const kiv& img, double degrees, Turn* t) {
    if (!kivcore::kmath::sincos_degrees(degrees, &t->s, &t->c)) return false;
    t->W = img.m_width;
    t->H = img.m_height;
    const double as = std::fabs(t->s), ac = std::fabs(t->c);
    t->nw = turned_extent(t->W * ac, t->H * as);
    t->nh = turned_extent(t->W * as, t->H * ac);
    if (t->nw < 0 || t->nh < 0 || kivcore::checked_packets(t->nw, t->nh) < 0) return false;
    t->tcx = t->nw / 2.0;
    t->tcy = t->nh / 2.0;
    t->scx = t->W / 2.0 - 0.5;
    t->scy = t->H / 2.0 - 0.5;
    return true;
}

// Makes the turned image of bits into result, row(Y, d) filling its row Y at about `steps`
// pixel steps a pixel (see kivcore::Work); then takes it over. 0 when it cannot be made.
template <class Row>
int turn_into(kiv& img, const Turn& t, int bits, double steps, Row row) {
    kiv result;
    try {
        if (!result.create(t.nw, t.nh, bits)) return 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
    kivcore::parallel_for(0, t.nh, kivcore::row_work(t.nw, steps), [&](int Y) { row(Y, kivcore::row_ptr(result, Y)); });
    img.movefrom(&result);
    return 1;
}

}  // namespace

int kiv::rotate_any(double degrees, COLORREF background, int method) {
    Turn t;
    if (!m_pixels || (method != 0 && method != 1) || !turn_of(*this, degrees, &t)) return 0;
    const int W = t.W, H = t.H;
    const tagRGBA bg{GetRValue(background), GetGValue(background), GetBValue(background), 0};
    auto at = [&](long long x, long long y) -> const tagRGBA& {
        if (x < 0 || y < 0 || x >= W || y >= H) return bg;
        return kivcore::row_ptr(*this, static_cast<int>(y))[x];
    };
    return kivcore::watched(*this, kivcore::Keep::kAside, [&] {
        return turn_into(*this, t, m_bits < 24 ? 24 : m_bits, 8, [&](int Y, tagRGBA* d) {
            for (int X = 0; X < t.nw; ++X) {
                double sx, sy;
                t.source(X, Y, &sx, &sy);
                if (method == 0) {
                    d[X] =
                        at(static_cast<long long>(std::floor(sx + 0.5)), static_cast<long long>(std::floor(sy + 0.5)));
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
                    const double v =
                        (p00[k] * (1.0 - fx) + p01[k] * fx) * (1.0 - fy) + (p10[k] * (1.0 - fx) + p11[k] * fx) * fy;
                    out[k] = static_cast<BYTE>(std::fmin(v + 0.5, 255.0));
                }
                d[X] = tagRGBA{out[0], out[1], out[2], out[3]};
            }
        });
    });
}

int kiv::rotate_any_rgba(double degrees, int method, int flags) {
    if (!m_pixels || (method != 0 && method != 1) || (flags & ~kivcore::kWideFlags)) return 0;
    const bool alpha = flags & KIV_FILTER_ALPHA;
    if (alpha && m_bits < 24) return 0;  // a palettized image's fourth byte is an index
    // Nearest pixels mix nothing, so nothing is weighted or turned into linear light.
    if (method == 0 || !flags) {
        if (!rotate_any(degrees, 0, method)) return 0;
        if (alpha) m_bits = 32;
        return 1;
    }
    Turn t;
    if (!turn_of(*this, degrees, &t)) return 0;
    const kivcore::WideFormat f = kivcore::WideFormat::of(flags, true);
    const int W = t.W, H = t.H;
    // A source pixel's weighted values; outside the image all zero (colour 0, alpha 0).
    auto load = [&](long long x, long long y, float* v) {
        if (x < 0 || y < 0 || x >= W || y >= H) {
            v[0] = v[1] = v[2] = v[3] = 0.0f;
            return;
        }
        f.load(kivcore::row_ptr(*this, static_cast<int>(y))[x], v);
    };
    return kivcore::watched(*this, kivcore::Keep::kAside, [&] {
        // Four weighted loads and a store that divides by alpha: about twice the plain cost.
        return turn_into(*this, t, alpha ? 32 : (m_bits < 24 ? 24 : m_bits), 16, [&](int Y, tagRGBA* d) {
            for (int X = 0; X < t.nw; ++X) {
                double sx, sy;
                t.source(X, Y, &sx, &sy);
                const double fx0 = std::floor(sx), fy0 = std::floor(sy);
                const float gx = static_cast<float>(sx - fx0), gy = static_cast<float>(sy - fy0);
                const long long x0 = static_cast<long long>(fx0), y0 = static_cast<long long>(fy0);
                float p00[4], p01[4], p10[4], p11[4], v[4];
                load(x0, y0, p00);
                load(x0 + 1, y0, p01);
                load(x0, y0 + 1, p10);
                load(x0 + 1, y0 + 1, p11);
                for (int k = 0; k < 4; ++k)
                    v[k] =
                        (p00[k] * (1.0f - gx) + p01[k] * gx) * (1.0f - gy) + (p10[k] * (1.0f - gx) + p11[k] * gx) * gy;
                d[X] = f.store(v);
            }
        });
    });
}
