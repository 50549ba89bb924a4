// The recursive Gaussian's coefficients and its line kernels (gauss_iir.cpp), the recursion
// written once over an operations set S (kivcore::Sse2 in gauss_iir_sse2.cpp, kivcore::Avx2
// in gauss_iir_avx2.cpp). The coefficients are also the tests' reference filter's.
#ifndef KIV_FILTER_GAUSS_IIR_SIMD_H
#define KIV_FILTER_GAUSS_IIR_SIMD_H

#include <cstdint>

#include "core/simd.h"

namespace kivfilter {

struct IirCoef {
    double p[5];    // causal numerator
    double d[5];    // denominator (d[0] = 0)
    double m[5];    // anticausal numerator (m[0] = 0)
    double ep[5];   // p[k] - G+ d[k]: weight of a sample before the line's start
    double em[5];   // m[k] - G- d[k]: weight of a sample after the line's end
    double gp, gm;  // steady-state gains G+ and G-
    bool ok;        // every coefficient finite
};

IirCoef iir_coefficients(double sigma);

// The line kernels: twelve lanes, four lines of three channels, bytes at a 16-byte stride
// (n positions), yp room for n * 12 doubles. Lane by lane the operations are those of the
// scalar kernel, in its order; clamping by max(v, 0) then min(v, 255) also sends NaN to 0.
// The AVX2 ones only where kivcore::use_avx2().
void iir_lanes_sse2(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out);
void iir_lanes_avx2(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out);
// Two such groups at once, the second's bytes and outputs `plane` bytes after the first's
// and its yp n * 12 doubles after; the same results as two calls of iir_lanes_avx2.
void iir_lanes2_avx2(const IirCoef& c, int n, const unsigned char* x, long long plane, double* yp, unsigned char* out);
// The same on 16-bit elements at a 16-element stride (the weighted blurs' planes), each
// output clamped to 0 .. 65535 and rounded.
void iir_lanes16_sse2(const IirCoef& c, int n, const std::uint16_t* x, double* yp, std::uint16_t* out);
void iir_lanes16_avx2(const IirCoef& c, int n, const std::uint16_t* x, double* yp, std::uint16_t* out);

namespace {

// acc += the terms of the four positions before position i of a recursion: where position
// i - k exists (its input and output in ring slot (i - k) & 3), b[k] times its input less
// d[k] times its output; before the line's start, the steady-state weight e[k] times the
// line's end value.
template <class S, int RG>
KIV_SIMD_INLINE void add_past(typename S::D* acc, int i, const double* b, const double* d, const double* e,
                              const typename S::D (&xr)[4][RG], const typename S::D (&yr)[4][RG],
                              const typename S::D (&end)[RG]) {
    using D = typename S::D;
    for (int k = 1; k <= 4; ++k) {
        if (k <= i) {
            const D bk = S::set_pd(b[k]), dk = S::set_pd(d[k]);
            const D* xk = xr[(i - k) & 3];
            const D* yk = yr[(i - k) & 3];
            for (int t = 0; t < RG; ++t)
                acc[t] = S::add_pd(acc[t], S::sub_pd(S::mul_pd(bk, xk[t]), S::mul_pd(dk, yk[t])));
        } else {
            const D ek = S::set_pd(e[k]);
            for (int t = 0; t < RG; ++t) acc[t] = S::add_pd(acc[t], S::mul_pd(ek, end[t]));
        }
    }
}

// G groups of twelve lanes at a 16-element stride, group g's elements and outputs plane * g
// elements on and its yp n * 12 * g doubles on. Io::load widens a position's twelve
// elements (Io::T) to R vectors of doubles and Io::store narrows R vectors clamped to
// 0 .. Io::kTop back. Each step's
// result waits on the step before through a chain of five dependent operations; groups
// filtered side by side fill those waits with independent work. Past inputs and outputs are
// kept in four-slot rings, slot i & 3 for position i.
template <class S, class Io, int G>
void iir_groups(const IirCoef& c, int n, const typename Io::T* x, long long plane, double* yp, typename Io::T* out) {
    using D = typename S::D;
    constexpr int kLanes = 12, R = kLanes / S::kDoubles, RG = R * G;
    constexpr long long kStride = 16;
    const long long yplane = static_cast<long long>(n) * kLanes;
    D first[RG], last[RG], xr[4][RG], yr[4][RG];
    for (int g = 0; g < G; ++g) {
        Io::load(x + g * plane, first + R * g);
        Io::load(x + g * plane + static_cast<long long>(n - 1) * kStride, last + R * g);
    }
    const D p0 = S::set_pd(c.p[0]);
    for (int i = 0; i < n; ++i) {
        D xi[RG], acc[RG];
        for (int g = 0; g < G; ++g) Io::load(x + g * plane + static_cast<long long>(i) * kStride, xi + R * g);
        // d0 = 0 and the position's own output is still 0, so the k = 0 term is p0 * x.
        for (int t = 0; t < RG; ++t) acc[t] = S::mul_pd(p0, xi[t]);
        add_past<S, RG>(acc, i, c.p, c.d, c.ep, xr, yr, first);
        // Slot i & 3 held position i - 4, read above for k = 4.
        for (int t = 0; t < RG; ++t) {
            xr[i & 3][t] = xi[t];
            yr[i & 3][t] = acc[t];
            S::store_pd(yp + (t / R) * yplane + static_cast<long long>(i) * kLanes + S::kDoubles * (t % R), acc[t]);
        }
    }
    const D zero = S::zero_pd(), top = S::set_pd(Io::kTop);
    for (int i = 0; i < n; ++i) {
        const int j = n - 1 - i;
        D xj[RG], acc[RG];
        for (int g = 0; g < G; ++g) Io::load(x + g * plane + static_cast<long long>(j) * kStride, xj + R * g);
        // m0 = 0 and d0 = 0: the k = 0 term adds nothing.
        for (int t = 0; t < RG; ++t) acc[t] = zero;
        add_past<S, RG>(acc, i, c.m, c.d, c.em, xr, yr, last);
        for (int g = 0; g < G; ++g) {
            const double* pj = yp + g * yplane + static_cast<long long>(j) * kLanes;
            D v[R];
            for (int u = 0; u < R; ++u) {
                const int t = R * g + u;
                xr[i & 3][t] = xj[t];
                yr[i & 3][t] = acc[t];
                v[u] = S::min_pd(S::max_pd(S::add_pd(S::load_pd(pj + S::kDoubles * u), acc[t]), zero), top);
            }
            Io::store(v, out + g * plane + static_cast<long long>(j) * kStride);
        }
    }
}

}  // namespace
}  // namespace kivfilter

#endif
