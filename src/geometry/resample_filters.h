// The reconstruction filters of zoom: value at distance x (in source pixels, already
// scaled) from the sample centre, and the support each one is cut at.
#ifndef KIV_GEOMETRY_RESAMPLE_FILTERS_H
#define KIV_GEOMETRY_RESAMPLE_FILTERS_H

#include <cmath>

#include "core/kmath.h"

namespace kivgeom {

struct ResampleFilter {
    double (*fn)(double x);  // null for the empty slot
    double support;
};

namespace filters {

namespace kmath = kivcore::kmath;
using kmath::kPi;

// The double nearest sqrt(2 / pi).
inline constexpr double kSqrt2OverPi = 0.79788456080286535588;

inline double sinc(double t) {
    if (t == 0.0) return 1.0;
    double a = kPi * t;
    return kmath::sin(a) / a;
}

// Powers are always formed as x2 = |x| * |x| and x3 = x2 * |x|, the polynomials evaluated
// in the order they are written.
inline double box(double x) { return (x > -0.5 && x <= 0.5) ? 1.0 : 0.0; }

inline double triangle(double x) {
    double ax = std::fabs(x);
    return ax < 1.0 ? 1.0 - ax : 0.0;
}

inline double hermite(double x) {
    double ax = std::fabs(x);
    if (ax < 1.0) return (2.0 * ax - 3.0) * (ax * ax) + 1.0;
    return 0.0;
}

inline double hanning(double x) { return 0.5 + 0.5 * kmath::cos(kPi * x); }
inline double hamming(double x) { return 0.54 + 0.46 * kmath::cos(kPi * x); }
inline double blackman(double x) {
    return 0.42 + 0.5 * kmath::cos(kPi * x) + 0.08 * kmath::cos(2.0 * kPi * x);
}

inline double gaussian(double x) { return kmath::exp(-2.0 * x * x) * kSqrt2OverPi; }

inline double quadratic(double x) {
    double ax = std::fabs(x);
    if (ax < 0.5) return 0.75 - ax * ax;
    if (ax < 1.5) {
        double t = ax - 1.5;
        return 0.5 * (t * t);
    }
    return 0.0;
}

inline double bspline(double x) {
    double ax = std::fabs(x);
    double x2 = ax * ax;
    if (ax < 1.0) return 0.5 * (x2 * ax) - x2 + 2.0 / 3.0;
    if (ax < 2.0) {
        double t = 2.0 - ax;
        return t * t * t / 6.0;
    }
    return 0.0;
}

inline double catmull_rom(double x) {
    double ax = std::fabs(x);
    if (ax < 1.0) return ((3.0 * ax - 5.0) * (ax * ax) + 2.0) / 2.0;
    if (ax < 2.0) return (((5.0 - ax) * ax - 8.0) * ax + 4.0) / 2.0;
    return 0.0;
}

inline double mitchell(double x) {
    double ax = std::fabs(x);
    double x2 = ax * ax, x3 = x2 * ax;
    if (ax < 1.0) return (7.0 * x3 - 12.0 * x2 + 16.0 / 3.0) / 6.0;
    if (ax < 2.0) return (-(7.0 / 3.0) * x3 + 12.0 * x2 - 20.0 * ax + 32.0 / 3.0) / 6.0;
    return 0.0;
}

inline double lanczos3(double x) {
    double ax = std::fabs(x);
    return ax < 3.0 ? sinc(ax / 3.0) * sinc(ax) : 0.0;
}

inline double bessel(double x) {
    if (x == 0.0) return kPi / 4.0;
    return kmath::bessel_j1(kPi * x) / (2.0 * x);
}

inline double sinc_filter(double x) { return sinc(x); }

}  // namespace filters

inline constexpr int kResampleMethods = 15;  // slots 0..14; slot 14 is empty

// The filter for zoom's method number, or null for the empty slot and out-of-range numbers.
inline const ResampleFilter* resample_filter(int method) {
    static const ResampleFilter table[kResampleMethods] = {
        {filters::box, 0.5},         {filters::triangle, 1.0},     {filters::hermite, 1.0},
        {filters::hanning, 1.0},     {filters::hamming, 1.0},      {filters::blackman, 1.0},
        {filters::gaussian, 1.25},   {filters::quadratic, 1.5},    {filters::bspline, 2.0},
        {filters::catmull_rom, 2.0}, {filters::mitchell, 2.0},     {filters::lanczos3, 3.0},
        {filters::bessel, 3.2383},   {filters::sinc_filter, 4.0},  {nullptr, 0.0},
    };
    if (method < 0 || method >= kResampleMethods || !table[method].fn) return nullptr;
    return &table[method];
}

}  // namespace kivgeom

#endif
