// kmath's double-double arithmetic and its sine and cosine kernels, written once over a
// number type S: plain doubles (Scalar, for every function of kmath) or four doubles a
// register (kivcore::Avx2 in kmath_avx2.cpp). Every lane runs the scalar sequence operation
// for operation (no fused multiply-add), so it rounds alike.
#ifndef KIV_CORE_KMATH_SIMD_H
#define KIV_CORE_KMATH_SIMD_H

#include <cmath>

namespace kivcore {
namespace kmath {

// sin and cos of x[0..3], each 2^-26 <= |x| <= 0x1.921fb54442d18p-1 (no argument
// reduction), bit for bit as sin and cos give them. Only where kivcore::use_avx2().
void sincos4_avx2(const double* x, double* s, double* c);

namespace {

// Plain doubles, under the names of the vector sets' operations.
struct Scalar {
    using D = double;
    static double add_pd(double a, double b) { return a + b; }
    static double sub_pd(double a, double b) { return a - b; }
    static double mul_pd(double a, double b) { return a * b; }
    static double div_pd(double a, double b) { return a / b; }
    static double sqrt_pd(double a) { return std::sqrt(a); }  // correctly rounded in IEEE arithmetic
    static double set_pd(double v) { return v; }
    static double neg_pd(double a) { return -a; }
};

// Double-double arithmetic: value = hi + lo with |lo| <= ulp(hi) / 2.
template <class S>
struct DoubleDouble {
    using D = typename S::D;
    struct dd {
        D hi, lo;
    };

    static dd two_sum(D a, D b) {
        const D s = S::add_pd(a, b);
        const D bb = S::sub_pd(s, a);
        return {s, S::add_pd(S::sub_pd(a, S::sub_pd(s, bb)), S::sub_pd(b, bb))};
    }
    static dd fast_two_sum(D a, D b) {  // |a| >= |b|
        const D s = S::add_pd(a, b);
        return {s, S::sub_pd(b, S::sub_pd(s, a))};
    }
    // Veltkamp split: exact products without relying on a fused multiply-add.
    static void split(D a, D* h, D* l) {
        const D c = S::mul_pd(S::set_pd(134217729.0), a);  // 2^27 + 1
        *h = S::sub_pd(c, S::sub_pd(c, a));
        *l = S::sub_pd(a, *h);
    }
    static dd two_prod(D a, D b) {
        D ah, al, bh, bl;
        split(a, &ah, &al);
        split(b, &bh, &bl);
        const D p = S::mul_pd(a, b);
        return {p,
                S::add_pd(S::add_pd(S::add_pd(S::sub_pd(S::mul_pd(ah, bh), p), S::mul_pd(ah, bl)), S::mul_pd(al, bh)),
                          S::mul_pd(al, bl))};
    }
    static dd add(dd x, dd y) {
        dd s = two_sum(x.hi, y.hi);
        const dd t = two_sum(x.lo, y.lo);
        s.lo = S::add_pd(s.lo, t.hi);
        s = fast_two_sum(s.hi, s.lo);
        s.lo = S::add_pd(s.lo, t.lo);
        return fast_two_sum(s.hi, s.lo);
    }
    static dd neg(dd x) { return {S::neg_pd(x.hi), S::neg_pd(x.lo)}; }
    static dd mul(dd x, dd y) {
        dd p = two_prod(x.hi, y.hi);
        p.lo = S::add_pd(p.lo, S::add_pd(S::mul_pd(x.hi, y.lo), S::mul_pd(x.lo, y.hi)));
        return fast_two_sum(p.hi, p.lo);
    }
    static dd mul_d(dd x, D y) {
        dd p = two_prod(x.hi, y);
        p.lo = S::add_pd(p.lo, S::mul_pd(x.lo, y));
        return fast_two_sum(p.hi, p.lo);
    }
    static dd div(dd x, dd y) {
        const D q1 = S::div_pd(x.hi, y.hi);
        const dd r = add(x, neg(mul_d(y, q1)));
        const D q2 = S::div_pd(r.hi, y.hi);
        return fast_two_sum(q1, q2);
    }
    static dd sqrt(dd x) {
        const D h = S::sqrt_pd(x.hi);
        const dd r = add(x, neg(two_prod(h, h)));
        return fast_two_sum(h, S::div_pd(r.hi, S::mul_pd(S::set_pd(2.0), h)));
    }
    static dd k(double hi, double lo) { return {S::set_pd(hi), S::set_pd(lo)}; }

    // Kernels on |r| <= pi/4, double-double in and out. Terms too small to need the low word
    // (relative size below 2^-17) run in plain double.
    static dd sin_kernel(dd r) {
        const dd z = mul(r, r);
        static constexpr double kTail[] = {
            1.0 / 51090942171709440000.0, -1.0 / 121645100408832000.0, 1.0 / 355687428096000.0, -1.0 / 1307674368000.0,
            1.0 / 6227020800.0,           -1.0 / 39916800.0,           1.0 / 362880.0};  // 1/21! .. 1/9!
        D t = S::set_pd(-1.0 / 25852016738884976640000.0);                               // -1/23!
        for (double c : kTail) t = S::add_pd(S::set_pd(c), S::mul_pd(z.hi, t));
        dd p = add(k(-0x1.a01a01a01a01ap-13, -0x1.a01a01a01a01ap-73), mul_d(z, t));  // -1/7!
        p = add(k(0x1.1111111111111p-7, 0x1.1111111111111p-63), mul(z, p));          // 1/5!
        p = add(k(-0x1.5555555555555p-3, -0x1.5555555555555p-57), mul(z, p));        // -1/3!
        return add(r, mul(mul(r, z), p));
    }
    static dd cos_kernel(dd r) {
        const dd z = mul(r, r);
        static constexpr double kTail[] = {-1.0 / 1124000727777607680000.0,
                                           1.0 / 2432902008176640000.0,
                                           -1.0 / 6402373705728000.0,
                                           1.0 / 20922789888000.0,
                                           -1.0 / 87178291200.0,
                                           1.0 / 479001600.0,
                                           -1.0 / 3628800.0,
                                           1.0 / 40320.0};  // -1/22! .. 1/8!
        D t = S::set_pd(1.0 / 620448401733239439360000.0);  // 1/24!
        for (double c : kTail) t = S::add_pd(S::set_pd(c), S::mul_pd(z.hi, t));
        dd p = add(k(-0x1.6c16c16c16c17p-10, 0x1.f49f49f49f49fp-65), mul_d(z, t));  // -1/6!
        p = add(k(0x1.5555555555555p-5, 0x1.5555555555555p-59), mul(z, p));         // 1/4!
        p = add(k(-0.5, 0.0), mul(z, p));
        return add(k(1.0, 0.0), mul(z, p));
    }
};

}  // namespace
}  // namespace kmath
}  // namespace kivcore

#endif
