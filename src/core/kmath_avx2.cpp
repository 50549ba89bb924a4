// kmath's sine and cosine kernel, four arguments a register: every lane runs the scalar
// double-double sequence of kmath.cpp operation for operation (no fused multiply-add), so
// it rounds alike.
#include "core/simd.h"
#include "core/kmath_avx2.h"

#if KIV_HAVE_AVX2
#  include <immintrin.h>

namespace kivcore {
namespace kmath {

namespace {

using D = __m256d;

struct V2 {
    D hi, lo;
};

D add(D a, D b) { return _mm256_add_pd(a, b); }
D sub(D a, D b) { return _mm256_sub_pd(a, b); }
D mul(D a, D b) { return _mm256_mul_pd(a, b); }
D k(double v) { return _mm256_set1_pd(v); }

V2 two_sum(D a, D b) {
    const D s = add(a, b);
    const D bb = sub(s, a);
    return {s, add(sub(a, sub(s, bb)), sub(b, bb))};
}
V2 fast_two_sum(D a, D b) {
    const D s = add(a, b);
    return {s, sub(b, sub(s, a))};
}
void split(D a, D* h, D* l) {
    const D c = mul(k(134217729.0), a);
    *h = sub(c, sub(c, a));
    *l = sub(a, *h);
}
V2 two_prod(D a, D b) {
    D ah, al, bh, bl;
    split(a, &ah, &al);
    split(b, &bh, &bl);
    const D p = mul(a, b);
    return {p, add(add(add(sub(mul(ah, bh), p), mul(ah, bl)), mul(al, bh)), mul(al, bl))};
}
V2 dd_add(V2 x, V2 y) {
    V2 s = two_sum(x.hi, y.hi);
    const V2 t = two_sum(x.lo, y.lo);
    s.lo = add(s.lo, t.hi);
    s = fast_two_sum(s.hi, s.lo);
    s.lo = add(s.lo, t.lo);
    return fast_two_sum(s.hi, s.lo);
}
V2 dd_mul(V2 x, V2 y) {
    V2 p = two_prod(x.hi, y.hi);
    p.lo = add(p.lo, add(mul(x.hi, y.lo), mul(x.lo, y.hi)));
    return fast_two_sum(p.hi, p.lo);
}
V2 dd_mul_d(V2 x, D y) {
    V2 p = two_prod(x.hi, y);
    p.lo = add(p.lo, mul(x.lo, y));
    return fast_two_sum(p.hi, p.lo);
}
V2 dd(double hi, double lo) { return {k(hi), k(lo)}; }

// The constants and steps of kmath.cpp's sin_kernel and cos_kernel.
V2 sin_kernel(V2 r) {
    const V2 z = dd_mul(r, r);
    D t = k(-1.0 / 25852016738884976640000.0);
    t = add(k(1.0 / 51090942171709440000.0), mul(z.hi, t));
    t = add(k(-1.0 / 121645100408832000.0), mul(z.hi, t));
    t = add(k(1.0 / 355687428096000.0), mul(z.hi, t));
    t = add(k(-1.0 / 1307674368000.0), mul(z.hi, t));
    t = add(k(1.0 / 6227020800.0), mul(z.hi, t));
    t = add(k(-1.0 / 39916800.0), mul(z.hi, t));
    t = add(k(1.0 / 362880.0), mul(z.hi, t));
    V2 p = dd_add(dd(-0x1.a01a01a01a01ap-13, -0x1.a01a01a01a01ap-73), dd_mul_d(z, t));
    p = dd_add(dd(0x1.1111111111111p-7, 0x1.1111111111111p-63), dd_mul(z, p));
    p = dd_add(dd(-0x1.5555555555555p-3, -0x1.5555555555555p-57), dd_mul(z, p));
    return dd_add(r, dd_mul(dd_mul(r, z), p));
}

V2 cos_kernel(V2 r) {
    const V2 z = dd_mul(r, r);
    D t = k(1.0 / 620448401733239439360000.0);
    t = add(k(-1.0 / 1124000727777607680000.0), mul(z.hi, t));
    t = add(k(1.0 / 2432902008176640000.0), mul(z.hi, t));
    t = add(k(-1.0 / 6402373705728000.0), mul(z.hi, t));
    t = add(k(1.0 / 20922789888000.0), mul(z.hi, t));
    t = add(k(-1.0 / 87178291200.0), mul(z.hi, t));
    t = add(k(1.0 / 479001600.0), mul(z.hi, t));
    t = add(k(-1.0 / 3628800.0), mul(z.hi, t));
    t = add(k(1.0 / 40320.0), mul(z.hi, t));
    V2 p = dd_add(dd(-0x1.6c16c16c16c17p-10, 0x1.f49f49f49f49fp-65), dd_mul_d(z, t));
    p = dd_add(dd(0x1.5555555555555p-5, 0x1.5555555555555p-59), dd_mul(z, p));
    p = dd_add(dd(-0.5, 0.0), dd_mul(z, p));
    return dd_add(dd(1.0, 0.0), dd_mul(z, p));
}

}  // namespace

void sincos4_avx2(const double* xp, double* s, double* c) {
    const D x = _mm256_loadu_pd(xp), sign = k(-0.0);
    const V2 r{_mm256_andnot_pd(sign, x), _mm256_setzero_pd()};
    // sin is odd: the magnitude's sine takes the argument's sign, as the scalar negation does.
    _mm256_storeu_pd(s, _mm256_xor_pd(sin_kernel(r).hi, _mm256_and_pd(sign, x)));
    _mm256_storeu_pd(c, cos_kernel(r).hi);
}

}  // namespace kmath
}  // namespace kivcore

#endif
