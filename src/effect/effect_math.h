// The effects' only calls into the platform's floating-point library, kept in one place so
// that platform-independent versions can replace them.
#ifndef KIV_EFFECT_MATH_H
#define KIV_EFFECT_MATH_H

#include <cmath>

namespace kiveffect {

inline double em_sin(double x) { return std::sin(x); }
inline double em_cos(double x) { return std::cos(x); }
inline double em_sqrt(double x) { return std::sqrt(x); }
inline bool em_finite(double x) { return std::isfinite(x); }

constexpr double kDegToRad = 0.017453292519943295;

}  // namespace kiveffect

#endif
