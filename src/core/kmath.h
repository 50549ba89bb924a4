// The library's own exp, log, pow, sin, cos and Bessel J1. Every result depends only on the
// argument: the code uses nothing but IEEE-exact operations (+ - * / sqrt and bit handling)
// in a fixed order, so every platform and compiler gives the same double. Values are carried
// in double-double internally and rounded once, so they match the correctly rounded result
// in all but rare cases and are never more than 1 ulp away from it.
#ifndef KIV_CORE_KMATH_H
#define KIV_CORE_KMATH_H

namespace kivcore {
namespace kmath {

inline constexpr double kPi = 3.14159265358979323846;
// The double nearest pi / 180.
inline constexpr double kDegToRad = 0.017453292519943295;

double exp(double x);
double log(double x);
// The C99 special cases (pow(x, 0) = 1 even for NaN, signed zeros and infinities,
// negative bases only with integer exponents) hold; y = 1, 2, -1 and 0.5 give x, x * x,
// 1 / x and sqrt(x) exactly.
double pow(double x, double y);
// x^y to within a relative 1e-12, in plain double arithmetic (a tenth of pow's cost), for
// normal x > 0 and |y log x| <= 700; NaN elsewhere. Not pow's value: only for deciding a result
// that so small an error cannot change (a table entry far from a rounding boundary), with
// pow itself taken where it could.
double pow_estimate(double x, double y);
// e^z to within a relative 1e-12 for |z| <= 700, NaN elsewhere: pow_estimate's second half,
// for callers that already hold log x.
double exp_estimate(double z);
// out[i] = pow_estimate(x[i], y) and out[i] = exp_estimate(z[i]) for i < n, for whole tables.
void pow_estimates(const double* x, double y, double* out, int n);
void exp_estimates(const double* z, double* out, int n);
double sin(double x);  // any finite argument, reduced with 2/pi to 1200 bits
double cos(double x);
// sin(x) and cos(x) exactly as the two functions give them, for the price of one.
void sincos(double x, double* s, double* c);
// sincos of x[0 .. n - 1] into s and c, four at a time where AVX2 runs.
void sincos_many(const double* x, double* s, double* c, int n);
// Bessel function of the first kind, order 1; odd, J1(+-inf) = 0.
double bessel_j1(double x);

// Sine and cosine of an angle in degrees. The angle is reduced in degrees first (fmod is
// exact), so multiples of 90 degrees give exactly 0 and +-1. False for inf and NaN.
bool sincos_degrees(double degrees, double* s, double* c);

}  // namespace kmath
}  // namespace kivcore

#endif
