// Deterministic exp, log and pow: double-double evaluation of short Taylor series after
// exact argument reduction, one rounding at the end (the sines, cosines and Bessel J1 are in
// kmath_trig.cpp).
#include "core/kmath.h"

#include <cmath>
#include <limits>

#include "core/kmath_impl.h"

namespace kivcore {
namespace kmath {
namespace {

// ---- exp and log in double-double ----

// e^(a.hi + a.lo), rounded once; a.hi finite and within [-746, 710].
double exp_dd(dd a) {
    const double k = std::floor(a.hi * kInvLn2 + 0.5);
    // a.hi - k * ln2hi is exact (Sterbenz), k * ln2mid is exact (42 + 11 bits).
    const double t = a.hi - k * kLn2Hi;
    dd r = DD::two_sum(t, -(k * kLn2Mid));
    r = DD::fast_two_sum(r.hi, r.lo + (a.lo - k * kLn2Lo));
    // |r| <= 0.35: Taylor to r^18 is below 2^-70.
    double u = 1.0 / 6402373705728000.0;  // 1/18!
    u = 1.0 / 355687428096000.0 + r.hi * u;
    u = 1.0 / 20922789888000.0 + r.hi * u;
    u = 1.0 / 1307674368000.0 + r.hi * u;
    u = 1.0 / 87178291200.0 + r.hi * u;
    u = 1.0 / 6227020800.0 + r.hi * u;
    u = 1.0 / 479001600.0 + r.hi * u;
    u = 1.0 / 39916800.0 + r.hi * u;
    u = 1.0 / 3628800.0 + r.hi * u;
    u = 1.0 / 362880.0 + r.hi * u;
    u = 1.0 / 40320.0 + r.hi * u;
    u = 1.0 / 5040.0 + r.hi * u;
    dd p = DD::add({0x1.6c16c16c16c17p-10, -0x1.f49f49f49f49fp-65}, DD::mul_d(r, u));  // 1/6!
    p = DD::add({0x1.1111111111111p-7, 0x1.1111111111111p-63}, DD::mul(r, p));         // 1/5!
    p = DD::add({0x1.5555555555555p-5, 0x1.5555555555555p-59}, DD::mul(r, p));         // 1/4!
    p = DD::add({0x1.5555555555555p-3, 0x1.5555555555555p-57}, DD::mul(r, p));         // 1/3!
    p = DD::add({0.5, 0.0}, DD::mul(r, p));
    p = DD::add({1.0, 0.0}, DD::mul(r, p));
    p = DD::add({1.0, 0.0}, DD::mul(r, p));
    const int ki = static_cast<int>(k);
    if (ki > 1023) return p.hi * pow2(1023) * pow2(ki - 1023);  // overflows to inf as it should
    if (ki >= -1022) return p.hi * pow2(ki);
    // Subnormal result: one exact scaling, then the single rounding multiplication.
    return p.hi * pow2(ki + 200) * pow2(-200);
}

// log x for finite x > 0 as double-double.
dd log_dd(double x) {
    int e = 0;
    std::uint64_t b = bits_of(x);
    if ((b >> 52) == 0) {  // subnormal: scale into the normal range
        b = bits_of(x * 0x1p54);
        e = -54;
    }
    e += static_cast<int>(b >> 52) - 1023;
    double m = from_bits((b & 0xFFFFFFFFFFFFFull) | 0x3FF0000000000000ull);  // [1, 2)
    if (m > 0x1.6a09e667f3bcdp+0) {  // sqrt 2: keep m in [sqrt(1/2), sqrt(2)]
        m *= 0.5;
        ++e;
    }
    // log m = 2 atanh(s), s = (m - 1) / (m + 1), |s| <= 0.172.
    const double num = m - 1.0;  // exact
    const dd s = DD::div({num, 0.0}, DD::two_sum(m, 1.0));
    const dd w = DD::mul(s, s);
    double u = 1.0 / 29.0;
    u = 1.0 / 27.0 + w.hi * u;
    u = 1.0 / 25.0 + w.hi * u;
    u = 1.0 / 23.0 + w.hi * u;
    u = 1.0 / 21.0 + w.hi * u;
    u = 1.0 / 19.0 + w.hi * u;
    u = 1.0 / 17.0 + w.hi * u;
    u = 1.0 / 15.0 + w.hi * u;
    u = 1.0 / 13.0 + w.hi * u;
    u = 1.0 / 11.0 + w.hi * u;
    u = 1.0 / 9.0 + w.hi * u;
    dd q = DD::add({0x1.2492492492492p-3, 0x1.2492492492492p-57}, DD::mul_d(w, u));  // 1/7
    q = DD::add({0x1.999999999999ap-3, -0x1.999999999999ap-57}, DD::mul(w, q));      // 1/5
    q = DD::add({0x1.5555555555555p-2, 0x1.5555555555555p-56}, DD::mul(w, q));       // 1/3
    q = DD::add({1.0, 0.0}, DD::mul(w, q));
    const dd lm = DD::mul(DD::mul_d(s, 2.0), q);
    const double de = static_cast<double>(e);
    dd le = DD::two_sum(de * kLn2Hi, de * kLn2Mid);  // both products exact
    le = DD::fast_two_sum(le.hi, le.lo + de * kLn2Lo);
    return DD::add(le, lm);
}

}  // namespace

double exp(double x) {
    if (is_nan(x)) return x + x;
    if (x > 710.0) return kInf;
    if (x < -746.0) return 0.0;
    return exp_dd({x, 0.0});
}

double log(double x) {
    if (is_nan(x)) return x + x;
    if (x < 0.0) return std::numeric_limits<double>::quiet_NaN();
    if (x == 0.0) return -kInf;
    if (is_inf(x)) return x;
    return log_dd(x).hi;
}

double pow(double x, double y) {
    if (y == 0.0 || x == 1.0) return 1.0;
    if (is_nan(x) || is_nan(y)) return x + y;
    if (y == 1.0) return x;
    if (y == 2.0) return x * x;
    if (y == -1.0) return 1.0 / x;
    const bool y_int = !is_inf(y) && std::floor(y) == y;
    const bool y_odd = y_int && fabs_(y) < 0x1p53 && std::fmod(y, 2.0) != 0.0;
    if (is_inf(y)) {
        const double ax = fabs_(x);
        if (ax == 1.0) return 1.0;
        return ((ax < 1.0) == (y < 0.0)) ? kInf : 0.0;
    }
    if (x == 0.0) {
        if (y < 0.0) return y_odd ? with_sign_of(kInf, x) : kInf;
        return y_odd ? x : 0.0;
    }
    if (is_inf(x)) {
        const double mag = y < 0.0 ? 0.0 : kInf;
        return (x < 0.0 && y_odd) ? -mag : mag;
    }
    if (x < 0.0 && !y_int) return std::numeric_limits<double>::quiet_NaN();
    if (y == 0.5) return std::sqrt(x);  // x > 0 here
    const double sign = (x < 0.0 && y_odd) ? -1.0 : 1.0;
    const dd l = log_dd(fabs_(x));
    const double approx = y * l.hi;  // decides overflow before y enters the exact product
    if (approx > 710.0) return sign * kInf;
    if (approx < -746.0) return sign * 0.0;
    dd t = DD::two_prod(y, l.hi);
    t = DD::fast_two_sum(t.hi, t.lo + y * l.lo);
    return sign * exp_dd(t);
}

namespace {

// The 64-point tables of the estimates, made once from the exact functions: log c_j and
// 1 / c_j for the mantissa cells c_j = 1 + (j + 0.5) / 64, and 2^(j / 64).
struct EstimateTables {
    double log_c[64], inv_c[64], exp2_j[64];
    EstimateTables() {
        for (int j = 0; j < 64; ++j) {
            const double c = 1.0 + (j + 0.5) / 64.0;
            log_c[j] = log(c);
            inv_c[j] = 1.0 / c;
            exp2_j[j] = exp(j * (kLn2Hi / 64.0) + j * ((kLn2Mid + kLn2Lo) / 64.0));
        }
    }
};
const EstimateTables& estimate_tables() {
    static const EstimateTables t;
    return t;
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// log x for normal x > 0: e ln 2 + log c_j + log1p(u), u = (m - c_j) / c_j with m in [1, 2)
// in cell j (m - c_j is exact): |u| < 1/128, and the series to u^7 leaves less than 1e-17.
inline double log_estimate(double x, const EstimateTables& t) {
    const std::uint64_t bx = bits_of(x);
    const int e = static_cast<int>(bx >> 52) - 1023;
    const int j = static_cast<int>((bx >> 46) & 63);
    const double m = from_bits((bx & 0xFFFFFFFFFFFFFull) | 0x3FF0000000000000ull);
    const double u = (m - (1.0 + (j + 0.5) / 64.0)) * t.inv_c[j];
    const double l1p =
        u * (1.0 + u * (-0.5 + u * (1.0 / 3.0 + u * (-0.25 + u * (0.2 + u * (-1.0 / 6.0 + u * (1.0 / 7.0)))))));
    return e * kLn2Hi + (e * (kLn2Mid + kLn2Lo) + (t.log_c[j] + l1p));
}

// e^z for |z| <= 700: 2^(k / 64) e^r, |r| <= ln2 / 128, where degree 5 leaves less than
// 1e-16. k is z 64 / ln 2 rounded to an integer by adding 1.5 * 2^52 (|k| < 2^16).
inline double exp_estimate_in(double z, const EstimateTables& t) {
    constexpr double kShift = 0x1.8p52;
    const double kd = z * (64.0 * kInvLn2) + kShift;
    const int ki = static_cast<int>(static_cast<std::int32_t>(bits_of(kd)));
    const double k = kd - kShift;
    const double r = (z - k * (kLn2Hi / 64.0)) - k * ((kLn2Mid + kLn2Lo) / 64.0);
    const double p = 1.0 + r * (1.0 + r * (0.5 + r * (1.0 / 6.0 + r * (1.0 / 24.0 + r * (1.0 / 120.0)))));
    return p * t.exp2_j[ki & 63] * pow2(ki >> 6);  // |k / 64| <= 1010: a normal power of two
}

inline bool estimable_base(double x) { return x >= 0x1p-1022 && !is_inf(x); }  // false for NaN

}  // namespace

double pow_estimate(double x, double y) {
    if (!estimable_base(x) || !(fabs_(y) < 1e300)) return kNaN;  // also 0 and subnormals
    const EstimateTables& t = estimate_tables();
    return exp_estimate(y * log_estimate(x, t));
}

double exp_estimate(double z) { return fabs_(z) <= 700.0 ? exp_estimate_in(z, estimate_tables()) : kNaN; }

void pow_estimates(const double* x, double y, double* out, int n) {
    const EstimateTables& t = estimate_tables();
    const bool y_ok = fabs_(y) < 1e300;
    for (int i = 0; i < n; ++i) {
        const double z = estimable_base(x[i]) && y_ok ? y * log_estimate(x[i], t) : kNaN;
        out[i] = fabs_(z) <= 700.0 ? exp_estimate_in(z, t) : kNaN;
    }
}

void exp_estimates(const double* z, double* out, int n) {
    const EstimateTables& t = estimate_tables();
    for (int i = 0; i < n; ++i) out[i] = fabs_(z[i]) <= 700.0 ? exp_estimate_in(z[i], t) : kNaN;
}

}  // namespace kmath
}  // namespace kivcore
