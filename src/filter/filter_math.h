// The filters' only calls into the platform's floating-point library (exp, log, sin, cos,
// sqrt, ceil), kept in one place so that platform-independent versions can replace them.
#ifndef KIV_FILTER_MATH_H
#define KIV_FILTER_MATH_H

#include <cmath>

namespace kivfilter {

inline double fm_exp(double x) { return std::exp(x); }
inline double fm_log(double x) { return std::log(x); }
inline double fm_sin(double x) { return std::sin(x); }
inline double fm_cos(double x) { return std::cos(x); }
inline double fm_sqrt(double x) { return std::sqrt(x); }
inline double fm_ceil(double x) { return std::ceil(x); }
inline double fm_floor(double x) { return std::floor(x); }
inline bool fm_finite(double x) { return std::isfinite(x); }

// Degrees to radians, the factor the filters use everywhere.
constexpr double kDegToRad = 0.017453292519943295;

}  // namespace kivfilter

#endif
