// Deterministic transcendental functions: double-double evaluation of short Taylor and
// asymptotic series after exact argument reduction, one rounding at the end.
#include "core/kmath.h"
#include "core/kmath_avx2.h"
#include "core/simd.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace kivcore {
namespace kmath {
namespace {

// ---- Bit-level helpers (exact on every platform, unlike some runtimes' ldexp) ----

constexpr double kInf = std::numeric_limits<double>::infinity();

inline std::uint64_t bits_of(double x) { return std::bit_cast<std::uint64_t>(x); }
inline double from_bits(std::uint64_t b) { return std::bit_cast<double>(b); }
inline bool is_nan(double x) { return (bits_of(x) & 0x7FFFFFFFFFFFFFFFull) > 0x7FF0000000000000ull; }
inline bool is_inf(double x) { return (bits_of(x) & 0x7FFFFFFFFFFFFFFFull) == 0x7FF0000000000000ull; }
inline double fabs_(double x) { return from_bits(bits_of(x) & 0x7FFFFFFFFFFFFFFFull); }
inline double with_sign_of(double mag, double s) {
    return from_bits((bits_of(mag) & 0x7FFFFFFFFFFFFFFFull) | (bits_of(s) & 0x8000000000000000ull));
}
// 2^k for a normal power, -1022 <= k <= 1023.
inline double pow2(int k) { return from_bits(static_cast<std::uint64_t>(k + 1023) << 52); }

// ---- Double-double arithmetic: value = hi + lo with |lo| <= ulp(hi) / 2 ----

struct dd {
    double hi, lo;
};

inline dd two_sum(double a, double b) {
    const double s = a + b;
    const double bb = s - a;
    return {s, (a - (s - bb)) + (b - bb)};
}
inline dd fast_two_sum(double a, double b) {  // |a| >= |b|
    const double s = a + b;
    return {s, b - (s - a)};
}
// Veltkamp split: exact products without relying on a fused multiply-add.
inline void split(double a, double* h, double* l) {
    const double c = 134217729.0 * a;  // 2^27 + 1
    *h = c - (c - a);
    *l = a - *h;
}
inline dd two_prod(double a, double b) {
    double ah, al, bh, bl;
    split(a, &ah, &al);
    split(b, &bh, &bl);
    const double p = a * b;
    return {p, ((ah * bh - p) + ah * bl + al * bh) + al * bl};
}
inline dd dd_add(dd x, dd y) {
    dd s = two_sum(x.hi, y.hi);
    const dd t = two_sum(x.lo, y.lo);
    s.lo += t.hi;
    s = fast_two_sum(s.hi, s.lo);
    s.lo += t.lo;
    return fast_two_sum(s.hi, s.lo);
}
inline dd dd_neg(dd x) { return {-x.hi, -x.lo}; }
inline dd dd_mul(dd x, dd y) {
    dd p = two_prod(x.hi, y.hi);
    p.lo += x.hi * y.lo + x.lo * y.hi;
    return fast_two_sum(p.hi, p.lo);
}
inline dd dd_mul_d(dd x, double y) {
    dd p = two_prod(x.hi, y);
    p.lo += x.lo * y;
    return fast_two_sum(p.hi, p.lo);
}
inline dd dd_div(dd x, dd y) {
    const double q1 = x.hi / y.hi;
    const dd r = dd_add(x, dd_neg(dd_mul_d(y, q1)));
    const double q2 = r.hi / y.hi;
    return fast_two_sum(q1, q2);
}
inline dd dd_sqrt(dd x) {
    const double h = std::sqrt(x.hi);  // correctly rounded in IEEE arithmetic
    const dd r = dd_add(x, dd_neg(two_prod(h, h)));
    return fast_two_sum(h, r.hi / (2.0 * h));
}

constexpr dd kPio2 = {0x1.921fb54442d18p+0, 0x1.1a62633145c07p-54};
constexpr dd kPiDD = {0x1.921fb54442d18p+1, 0x1.1a62633145c07p-53};
// ln 2 in three pieces; the first two have 42 bits so k * piece is exact for |k| < 2^11.
constexpr double kLn2Hi = 0x1.62e42fefa3800p-1;
constexpr double kLn2Mid = 0x1.ef35793c76000p-45;
constexpr double kLn2Lo = 0x1.cc01f97b57a08p-87;
constexpr double kInvLn2 = 0x1.71547652b82fep+0;

// ---- Argument reduction for sin and cos ----

// 2/pi = sum W[j] * 2^(-32 (j + 1)); 40 words reach past the last bit any double needs.
constexpr std::uint32_t kTwoOverPi[40] = {
    0xA2F9836E, 0x4E441529, 0xFC2757D1, 0xF534DDC0, 0xDB629599, 0x3C439041, 0xFE5163AB, 0xDEBBC561,
    0xB7246E3A, 0x424DD2E0, 0x06492EEA, 0x09D1921C, 0xFE1DEB1C, 0xB129A73E, 0xE88235F5, 0x2EBB4484,
    0xE99C7026, 0xB45F7E41, 0x3991D639, 0x835339F4, 0x9C845F8B, 0xBDF9283B, 0x1FF897FF, 0xDE05980F,
    0xEF2F118B, 0x5A0A6D1F, 0x6D367ECF, 0x27CB09B7, 0x4F463F66, 0x9E5FEA2D, 0x7527BAC7, 0xEBE5F17B,
    0x3D0739F7, 0x8A5292EA, 0x6BFB5FB1, 0x1F8D5D08, 0x56033046, 0xFC7B6BAB, 0xF0CFBC20, 0x9AF4361D};

constexpr int kWords = 8;            // 256 bits of 2/pi per reduction
constexpr int kLimbs = kWords + 2;   // product of a 53-bit mantissa and kWords words

struct BigFraction {
    std::uint32_t limb[kLimbs];
    std::uint32_t at(int i) const { return (i < 0 || i >= kLimbs) ? 0u : limb[i]; }
    // Bits pos .. pos + 63 (zero below bit 0).
    std::uint64_t bits64(int pos) const {
        const int w = pos >= 0 ? pos / 32 : -((31 - pos) / 32);
        const int s = pos - 32 * w;
        std::uint64_t v = static_cast<std::uint64_t>(at(w)) >> s;
        v |= static_cast<std::uint64_t>(at(w + 1)) << (32 - s);
        if (s > 0) v |= static_cast<std::uint64_t>(at(w + 2)) << (64 - s);
        return v;
    }
};

// |x| = n * pi/2 + r with |r| <= pi/4 (slightly more at most by rounding); returns n mod 4.
// Payne-Hanek: x * 2/pi formed exactly in integers from the words of 2/pi that matter, so
// arguments near a multiple of pi/2 keep full precision at any size.
int reduce_pio2(double ax, dd* r) {
    const std::uint64_t b = bits_of(ax);
    const int e = static_cast<int>(b >> 52) - 1075;  // ax = mant * 2^e, ax >= pi/4 so normal
    const std::uint64_t mant = (b & 0xFFFFFFFFFFFFFull) | 0x10000000000000ull;
    // Words j with e - 32 (j + 1) >= 2 only add multiples of 4 to x * 2/pi: skip them.
    const int j0 = e >= 2 ? (e - 2) / 32 : 0;
    BigFraction p = {};
    const std::uint32_t m[2] = {static_cast<std::uint32_t>(mant), static_cast<std::uint32_t>(mant >> 32)};
    for (int li = 0; li < kWords; ++li) {  // limb li of the window, least significant first
        const std::uint64_t w = kTwoOverPi[j0 + kWords - 1 - li];
        std::uint64_t carry = 0;
        for (int k = 0; k < 2; ++k) {
            const std::uint64_t t = w * m[k] + p.limb[li + k] + carry;
            p.limb[li + k] = static_cast<std::uint32_t>(t);
            carry = t >> 32;
        }
        for (int k = li + 2; carry != 0 && k < kLimbs; ++k) {
            const std::uint64_t t = static_cast<std::uint64_t>(p.limb[k]) + carry;
            p.limb[k] = static_cast<std::uint32_t>(t);
            carry = t >> 32;
        }
    }
    // x * 2/pi = p * 2^-q: bits q, q + 1 are n mod 4, the bits below q the fraction.
    const int q = 32 * (j0 + kWords) - e;
    int n = static_cast<int>(p.bits64(q) & 3u);
    for (int i = 0; i < kLimbs; ++i) {  // keep only the fraction
        const int lo = 32 * i;
        if (lo >= q) p.limb[i] = 0;
        else if (lo + 32 > q) p.limb[i] &= (1u << (q - lo)) - 1u;
    }
    double sign = 1.0;
    if ((p.bits64(q - 1) & 1u) != 0) {  // fraction >= 1/2: take f - 1 instead
        ++n;
        sign = -1.0;
        std::uint64_t carry = 1;
        for (int i = 0; i < kLimbs; ++i) {
            const std::uint64_t t = static_cast<std::uint64_t>(~p.limb[i]) + carry;
            p.limb[i] = static_cast<std::uint32_t>(t);
            carry = t >> 32;
        }
        for (int i = 0; i < kLimbs; ++i) {
            const int lo = 32 * i;
            if (lo >= q) p.limb[i] = 0;
            else if (lo + 32 > q) p.limb[i] &= (1u << (q - lo)) - 1u;
        }
    }
    int h = -1;  // leading bit of the fraction
    for (int i = kLimbs - 1; i >= 0 && h < 0; --i) {
        if (p.limb[i] == 0) continue;
        int t = 31;
        while (((p.limb[i] >> t) & 1u) == 0) --t;
        h = 32 * i + t;
    }
    if (h < 0) {
        *r = {0.0, 0.0};
        return n & 3;
    }
    const std::uint64_t top = p.bits64(h - 63);
    const std::uint64_t next = p.bits64(h - 127);
    // f = top * 2^(h-63-q) + next * 2^(h-127-q); both scales stay far inside the normal range.
    const double fhi = static_cast<double>(top >> 11) * pow2(h - 52 - q);
    const double flo =
        (static_cast<double>(top & 0x7FFu) * 0x1p64 + static_cast<double>(next)) * pow2(h - 127 - q);
    const dd f = fast_two_sum(fhi, flo);
    const dd rr = dd_mul(f, kPio2);
    *r = {sign * rr.hi, sign * rr.lo};
    return n & 3;
}

// ---- Kernels on |r| <= pi/4 (+ rounding), double-double in and out ----

// Terms too small to need the low word (relative size below 2^-17) run in plain double.
dd sin_kernel(dd r) {
    const dd z = dd_mul(r, r);
    double t = -1.0 / 25852016738884976640000.0;  // -1/23!
    t = 1.0 / 51090942171709440000.0 + z.hi * t;   // 1/21!
    t = -1.0 / 121645100408832000.0 + z.hi * t;    // -1/19!
    t = 1.0 / 355687428096000.0 + z.hi * t;        // 1/17!
    t = -1.0 / 1307674368000.0 + z.hi * t;         // -1/15!
    t = 1.0 / 6227020800.0 + z.hi * t;             // 1/13!
    t = -1.0 / 39916800.0 + z.hi * t;              // -1/11!
    t = 1.0 / 362880.0 + z.hi * t;                 // 1/9!
    dd p = dd_add({-0x1.a01a01a01a01ap-13, -0x1.a01a01a01a01ap-73}, dd_mul_d(z, t));  // -1/7!
    p = dd_add({0x1.1111111111111p-7, 0x1.1111111111111p-63}, dd_mul(z, p));           // 1/5!
    p = dd_add({-0x1.5555555555555p-3, -0x1.5555555555555p-57}, dd_mul(z, p));         // -1/3!
    return dd_add(r, dd_mul(dd_mul(r, z), p));
}

dd cos_kernel(dd r) {
    const dd z = dd_mul(r, r);
    double t = 1.0 / 620448401733239439360000.0;   // 1/24!
    t = -1.0 / 1124000727777607680000.0 + z.hi * t;  // -1/22!
    t = 1.0 / 2432902008176640000.0 + z.hi * t;      // 1/20!
    t = -1.0 / 6402373705728000.0 + z.hi * t;        // -1/18!
    t = 1.0 / 20922789888000.0 + z.hi * t;           // 1/16!
    t = -1.0 / 87178291200.0 + z.hi * t;             // -1/14!
    t = 1.0 / 479001600.0 + z.hi * t;                // 1/12!
    t = -1.0 / 3628800.0 + z.hi * t;                 // -1/10!
    t = 1.0 / 40320.0 + z.hi * t;                    // 1/8!
    dd p = dd_add({-0x1.6c16c16c16c17p-10, 0x1.f49f49f49f49fp-65}, dd_mul_d(z, t));  // -1/6!
    p = dd_add({0x1.5555555555555p-5, 0x1.5555555555555p-59}, dd_mul(z, p));          // 1/4!
    p = dd_add({-0.5, 0.0}, dd_mul(z, p));
    return dd_add({1.0, 0.0}, dd_mul(z, p));
}

// sin and cos of x to double-double; x finite.
void sincos_dd(double x, dd* s, dd* c) {
    const double ax = fabs_(x);
    dd r = {ax, 0.0};
    int n = 0;
    if (ax > 0x1.921fb54442d18p-1) n = reduce_pio2(ax, &r);  // beyond the double below pi/4
    const dd sr = sin_kernel(r), cr = cos_kernel(r);
    switch (n) {
        case 0: *s = sr; *c = cr; break;
        case 1: *s = cr; *c = dd_neg(sr); break;
        case 2: *s = dd_neg(sr); *c = dd_neg(cr); break;
        default: *s = dd_neg(cr); *c = sr; break;
    }
    if (x < 0.0) *s = dd_neg(*s);
}

// ---- exp and log in double-double ----

// e^(a.hi + a.lo), rounded once; a.hi finite and within [-746, 710].
double exp_dd(dd a) {
    const double k = std::floor(a.hi * kInvLn2 + 0.5);
    // a.hi - k * ln2hi is exact (Sterbenz), k * ln2mid is exact (42 + 11 bits).
    const double t = a.hi - k * kLn2Hi;
    dd r = two_sum(t, -(k * kLn2Mid));
    r = fast_two_sum(r.hi, r.lo + (a.lo - k * kLn2Lo));
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
    dd p = dd_add({0x1.6c16c16c16c17p-10, -0x1.f49f49f49f49fp-65}, dd_mul_d(r, u));  // 1/6!
    p = dd_add({0x1.1111111111111p-7, 0x1.1111111111111p-63}, dd_mul(r, p));          // 1/5!
    p = dd_add({0x1.5555555555555p-5, 0x1.5555555555555p-59}, dd_mul(r, p));          // 1/4!
    p = dd_add({0x1.5555555555555p-3, 0x1.5555555555555p-57}, dd_mul(r, p));          // 1/3!
    p = dd_add({0.5, 0.0}, dd_mul(r, p));
    p = dd_add({1.0, 0.0}, dd_mul(r, p));
    p = dd_add({1.0, 0.0}, dd_mul(r, p));
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
    const dd s = dd_div({num, 0.0}, two_sum(m, 1.0));
    const dd w = dd_mul(s, s);
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
    dd q = dd_add({0x1.2492492492492p-3, 0x1.2492492492492p-57}, dd_mul_d(w, u));  // 1/7
    q = dd_add({0x1.999999999999ap-3, -0x1.999999999999ap-57}, dd_mul(w, q));      // 1/5
    q = dd_add({0x1.5555555555555p-2, 0x1.5555555555555p-56}, dd_mul(w, q));       // 1/3
    q = dd_add({1.0, 0.0}, dd_mul(w, q));
    const dd lm = dd_mul(dd_mul_d(s, 2.0), q);
    const double de = static_cast<double>(e);
    dd le = two_sum(de * kLn2Hi, de * kLn2Mid);  // both products exact
    le = fast_two_sum(le.hi, le.lo + de * kLn2Lo);
    return dd_add(le, lm);
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
    dd t = two_prod(y, l.hi);
    t = fast_two_sum(t.hi, t.lo + y * l.lo);
    return sign * exp_dd(t);
}

double sin(double x) {
    if (is_nan(x) || is_inf(x)) return x - x;
    if (fabs_(x) < 0x1p-26) return x;  // x - x^3/6 rounds to x (and keeps -0)
    dd s, c;
    sincos_dd(x, &s, &c);
    return s.hi;
}

double cos(double x) {
    if (is_nan(x) || is_inf(x)) return x - x;
    if (fabs_(x) < 0x1p-27) return 1.0;
    dd s, c;
    sincos_dd(x, &s, &c);
    return c.hi;
}

void sincos(double x, double* s, double* c) {
    if (is_nan(x) || is_inf(x)) {
        *s = *c = x - x;
        return;
    }
    const double ax = fabs_(x);
    if (ax < 0x1p-27) {
        *s = x;
        *c = 1.0;
        return;
    }
    dd sd, cd;
    sincos_dd(x, &sd, &cd);
    *s = ax < 0x1p-26 ? x : sd.hi;  // the thresholds of sin and cos
    *c = cd.hi;
}

void sincos_many(const double* x, double* s, double* c, int n) {
    int i = 0;
#if KIV_HAVE_AVX2
    if (use_avx2()) {
        // Four at a time where none needs the argument reduction or a small-argument rule.
        auto plain = [](double v) {
            const double a = fabs_(v);
            return a >= 0x1p-26 && a <= 0x1.921fb54442d18p-1;  // false for NaN too
        };
        for (; i + 4 <= n; i += 4) {
            if (plain(x[i]) && plain(x[i + 1]) && plain(x[i + 2]) && plain(x[i + 3])) {
                sincos4_avx2(x + i, s + i, c + i);
            } else {
                for (int j = i; j < i + 4; ++j) sincos(x[j], s + j, c + j);
            }
        }
    }
#endif
    for (; i < n; ++i) sincos(x[i], s + i, c + i);
}

double bessel_j1(double x) {
    if (is_nan(x)) return x + x;
    if (is_inf(x)) return with_sign_of(0.0, x);
    const double ax = fabs_(x);
    double v;
    if (ax < 0x1p-27) {
        v = ax * 0.5;  // x/2 - x^3/16 rounds to x/2
    } else if (ax <= 25.0) {
        // Power series sum (-1)^k (x/2)^(2k+1) / (k! (k+1)!) in double-double: the terms'
        // cancellation (up to 2^33 at x = 25) stays far below the 106-bit working precision.
        const double h = ax * 0.5;
        const dd h2 = two_prod(h, h);
        dd term = {h, 0.0};
        dd sum = term;
        for (int k = 1; k < 200; ++k) {
            term = dd_mul(term, h2);
            term = dd_div(term, {-static_cast<double>(k) * static_cast<double>(k + 1), 0.0});
            sum = dd_add(sum, term);
            if (static_cast<double>(k) * (k + 1) > h2.hi && fabs_(term.hi) <= 0x1p-110 * fabs_(sum.hi)) break;
        }
        v = sum.hi;
    } else {
        // Hankel's asymptotic expansion: J1 = sqrt(2/(pi x)) (P cos(x - 3pi/4) - Q sin(x - 3pi/4))
        // = sqrt(1/(pi x)) (P (sin x - cos x) + Q (sin x + cos x)).
        double scale = 1.0;
        double xs = ax;
        if (xs > 0x1p900) {  // keep pi * x and the Veltkamp splits finite
            xs *= 0x1p-100;
            scale = 0x1p-50;
        }
        const double u = 1.0 / ax;
        // a_k = prod_{j<=k} (4 - (2j-1)^2) / (k! 8^k); P takes even k with alternating signs,
        // Q odd k. Stop at the smallest term, where the divergent series is most accurate.
        double pt = 0.0, qt = 0.0;
        double term = 1.0;
        double prev = kInf;
        for (int k = 1; k < 60; ++k) {
            term *= (4.0 - static_cast<double>(2 * k - 1) * (2 * k - 1)) / (8.0 * k) * u;
            const double at = fabs_(term);
            if (at >= prev || at < 0x1p-80) break;
            prev = at;
            if (k == 1) continue;  // the first Q term is added in double-double below
            // k mod 4: 1 -> +Q, 2 -> -P, 3 -> -Q, 0 -> +P
            switch (k & 3) {
                case 0: pt += term; break;
                case 1: qt += term; break;
                case 2: pt -= term; break;
                default: qt -= term; break;
            }
        }
        const dd p = fast_two_sum(1.0, pt);
        const dd q1 = ax < 0x1p900 ? dd_div({0.375, 0.0}, {ax, 0.0}) : dd{0.375 / ax, 0.0};
        const dd q = dd_add(q1, {qt, 0.0});
        dd s, c;
        sincos_dd(ax, &s, &c);
        const dd a = dd_add(dd_mul(p, dd_add(s, dd_neg(c))), dd_mul(q, dd_add(s, c)));
        const dd f = dd_sqrt(dd_div({1.0, 0.0}, dd_mul_d(kPiDD, xs)));
        const dd res = dd_mul(f, a);
        v = res.hi * scale;
    }
    return (bits_of(x) >> 63) != 0 ? -v : v;  // odd, -0 included
}

bool sincos_degrees(double degrees, double* s, double* c) {
    if (is_nan(degrees) || is_inf(degrees)) return false;
    // Both steps are exact: fmod always is, and d - 90 q is a multiple of ulp(d) smaller
    // than d. (Adding 360 to a negative remainder would round.)
    const double d = std::fmod(degrees, 360.0);                          // -360..360
    const int quadrant = static_cast<int>(std::floor(d / 90.0 + 0.5));  // -4..4
    const double r = d - 90.0 * quadrant;                                // -45..45
    double sr = 0.0, cr = 1.0;
    if (r != 0.0) {
        // r * pi/180 in double-double so the reduced angle itself adds no rounding.
        const dd t = dd_mul_d({0x1.1df46a2529d39p-6, 0x1.5c1d8becdd291p-62}, r);
        sr = sin_kernel(t).hi;
        cr = cos_kernel(t).hi;
    }
    switch (quadrant & 3) {
        case 0: *s = sr; *c = cr; break;
        case 1: *s = cr; *c = -sr; break;
        case 2: *s = -sr; *c = -cr; break;
        default: *s = -cr; *c = sr; break;
    }
    return true;
}

}  // namespace kmath
}  // namespace kivcore
