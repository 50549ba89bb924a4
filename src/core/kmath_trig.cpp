// Deterministic sine, cosine and Bessel J1: exact argument reduction (Payne-Hanek), then
// double-double kernels (kmath_simd.h) rounded once; four arguments at a time through the
// AVX2 kernel where it runs.
#include <cmath>
#include <cstdint>

#include "core/kmath.h"
#include "core/kmath_impl.h"
#include "core/simd.h"

namespace kivcore {
namespace kmath {
namespace {

// ---- Argument reduction for sin and cos ----

// 2/pi = sum W[j] * 2^(-32 (j + 1)); 40 words reach past the last bit any double needs.
constexpr std::uint32_t kTwoOverPi[40] = {
    0xA2F9836E, 0x4E441529, 0xFC2757D1, 0xF534DDC0, 0xDB629599, 0x3C439041, 0xFE5163AB, 0xDEBBC561,
    0xB7246E3A, 0x424DD2E0, 0x06492EEA, 0x09D1921C, 0xFE1DEB1C, 0xB129A73E, 0xE88235F5, 0x2EBB4484,
    0xE99C7026, 0xB45F7E41, 0x3991D639, 0x835339F4, 0x9C845F8B, 0xBDF9283B, 0x1FF897FF, 0xDE05980F,
    0xEF2F118B, 0x5A0A6D1F, 0x6D367ECF, 0x27CB09B7, 0x4F463F66, 0x9E5FEA2D, 0x7527BAC7, 0xEBE5F17B,
    0x3D0739F7, 0x8A5292EA, 0x6BFB5FB1, 0x1F8D5D08, 0x56033046, 0xFC7B6BAB, 0xF0CFBC20, 0x9AF4361D};

constexpr int kWords = 8;           // 256 bits of 2/pi per reduction
constexpr int kLimbs = kWords + 2;  // product of a 53-bit mantissa and kWords words

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
        if (lo >= q)
            p.limb[i] = 0;
        else if (lo + 32 > q)
            p.limb[i] &= (1u << (q - lo)) - 1u;
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
            if (lo >= q)
                p.limb[i] = 0;
            else if (lo + 32 > q)
                p.limb[i] &= (1u << (q - lo)) - 1u;
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
    const double flo = (static_cast<double>(top & 0x7FFu) * 0x1p64 + static_cast<double>(next)) * pow2(h - 127 - q);
    const dd f = DD::fast_two_sum(fhi, flo);
    const dd rr = DD::mul(f, kPio2);
    *r = {sign * rr.hi, sign * rr.lo};
    return n & 3;
}

// sin and cos of r + n pi/2 (n in 0..3) from those of r.
template <class T, class Neg>
void by_quadrant(int n, T sr, T cr, T* s, T* c, Neg neg) {
    switch (n) {
        case 0: *s = sr; *c = cr; break;
        case 1: *s = cr; *c = neg(sr); break;
        case 2: *s = neg(sr); *c = neg(cr); break;
        default: *s = neg(cr); *c = sr; break;
    }
}

// sin and cos of x to double-double; x finite.
void sincos_dd(double x, dd* s, dd* c) {
    const double ax = fabs_(x);
    dd r = {ax, 0.0};
    int n = 0;
    if (ax > 0x1.921fb54442d18p-1) n = reduce_pio2(ax, &r);  // beyond the double below pi/4
    const dd sr = DD::sin_kernel(r), cr = DD::cos_kernel(r);
    by_quadrant(n, sr, cr, s, c, DD::neg);
    if (x < 0.0) *s = DD::neg(*s);
}

}  // namespace

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
    if (const auto four = pick_avx2(KIV_AVX2_KERNEL(sincos4_avx2))) {
        // Four at a time where none needs the argument reduction or a small-argument rule.
        auto plain = [](double v) {
            const double a = fabs_(v);
            return a >= 0x1p-26 && a <= 0x1.921fb54442d18p-1;  // false for NaN too
        };
        for (; i + 4 <= n; i += 4) {
            if (plain(x[i]) && plain(x[i + 1]) && plain(x[i + 2]) && plain(x[i + 3])) {
                four(x + i, s + i, c + i);
            } else {
                for (int j = i; j < i + 4; ++j) sincos(x[j], s + j, c + j);
            }
        }
    }
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
        const dd h2 = DD::two_prod(h, h);
        dd term = {h, 0.0};
        dd sum = term;
        for (int k = 1; k < 200; ++k) {
            term = DD::mul(term, h2);
            term = DD::div(term, {-static_cast<double>(k) * static_cast<double>(k + 1), 0.0});
            sum = DD::add(sum, term);
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
                case 0:
                    pt += term;
                    break;
                case 1:
                    qt += term;
                    break;
                case 2:
                    pt -= term;
                    break;
                default:
                    qt -= term;
                    break;
            }
        }
        const dd p = DD::fast_two_sum(1.0, pt);
        const dd q1 = ax < 0x1p900 ? DD::div({0.375, 0.0}, {ax, 0.0}) : dd{0.375 / ax, 0.0};
        const dd q = DD::add(q1, {qt, 0.0});
        dd s, c;
        sincos_dd(ax, &s, &c);
        const dd a = DD::add(DD::mul(p, DD::add(s, DD::neg(c))), DD::mul(q, DD::add(s, c)));
        const dd f = DD::sqrt(DD::div({1.0, 0.0}, DD::mul_d(kPiDD, xs)));
        const dd res = DD::mul(f, a);
        v = res.hi * scale;
    }
    return (bits_of(x) >> 63) != 0 ? -v : v;  // odd, -0 included
}

bool sincos_degrees(double degrees, double* s, double* c) {
    if (is_nan(degrees) || is_inf(degrees)) return false;
    // Both steps are exact: fmod always is, and d - 90 q is a multiple of ulp(d) smaller
    // than d. (Adding 360 to a negative remainder would round.)
    const double d = std::fmod(degrees, 360.0);                         // -360..360
    const int quadrant = static_cast<int>(std::floor(d / 90.0 + 0.5));  // -4..4
    const double r = d - 90.0 * quadrant;                               // -45..45
    double sr = 0.0, cr = 1.0;
    if (r != 0.0) {
        // r * pi/180 in double-double so the reduced angle itself adds no rounding.
        const dd t = DD::mul_d({0x1.1df46a2529d39p-6, 0x1.5c1d8becdd291p-62}, r);
        sr = DD::sin_kernel(t).hi;
        cr = DD::cos_kernel(t).hi;
    }
    by_quadrant(quadrant & 3, sr, cr, s, c, [](double v) { return -v; });
    return true;
}

}  // namespace kmath
}  // namespace kivcore
