// The few transcendental functions of the geometry family, in one place so the library's
// own deterministic versions can replace the C runtime's without touching any caller.
#ifndef KIV_GEOMETRY_GEOM_MATH_H
#define KIV_GEOMETRY_GEOM_MATH_H

#include <cmath>

namespace kivgeom {
namespace gmath {

inline constexpr double kPi = 3.14159265358979323846;

// Resampling filters: these still come from the C runtime, whose last bit may differ
// between platforms.
inline double sin(double x) { return std::sin(x); }
inline double cos(double x) { return std::cos(x); }
inline double exp(double x) { return std::exp(x); }

// Bessel function of the first kind, order 1. J1 is odd; the runtime's version is only
// defined for x >= 0.
inline double bessel_j1(double x) {
    if (x < 0.0) return -std::cyl_bessel_j(1.0, -x);
    return std::cyl_bessel_j(1.0, x);
}

// Sine and cosine of an angle in degrees from plain additions and multiplications in a
// fixed order, so every platform gets the same doubles. Multiples of 90 degrees are exact.
// Returns false for an infinite or NaN angle.
inline bool sincos_degrees(double degrees, double* s, double* c) {
    if (!std::isfinite(degrees)) return false;
    double d = std::fmod(degrees, 360.0);  // fmod is exact in IEEE arithmetic
    if (d < 0.0) d += 360.0;
    int quadrant = static_cast<int>(std::floor(d / 90.0 + 0.5));  // 0..4
    double r = d - 90.0 * quadrant;                                // -45..45
    double sr = 0.0, cr = 1.0;
    if (r != 0.0) {
        // Taylor series to the 19th/18th power: below 1e-19 of error for |t| <= pi/4.
        const double t = r * (kPi / 180.0);
        const double t2 = t * t;
        // sin: t * (1 - t2/3! + t2^2/5! - ... + t2^9/19!) evaluated by Horner.
        static constexpr double kSin[] = {1.0,
                                          -1.0 / 6.0,
                                          1.0 / 120.0,
                                          -1.0 / 5040.0,
                                          1.0 / 362880.0,
                                          -1.0 / 39916800.0,
                                          1.0 / 6227020800.0,
                                          -1.0 / 1307674368000.0,
                                          1.0 / 355687428096000.0,
                                          -1.0 / 121645100408832000.0};
        static constexpr double kCos[] = {1.0,
                                          -1.0 / 2.0,
                                          1.0 / 24.0,
                                          -1.0 / 720.0,
                                          1.0 / 40320.0,
                                          -1.0 / 3628800.0,
                                          1.0 / 479001600.0,
                                          -1.0 / 87178291200.0,
                                          1.0 / 20922789888000.0,
                                          -1.0 / 6402373705728000.0};
        double hs = kSin[9], hc = kCos[9];
        for (int k = 8; k >= 0; --k) {
            hs = kSin[k] + t2 * hs;
            hc = kCos[k] + t2 * hc;
        }
        sr = t * hs;
        cr = hc;
    }
    switch (quadrant & 3) {
        case 0: *s = sr; *c = cr; break;
        case 1: *s = cr; *c = -sr; break;
        case 2: *s = -sr; *c = -cr; break;
        default: *s = -cr; *c = sr; break;
    }
    return true;
}

}  // namespace gmath
}  // namespace kivgeom

#endif
