// Coefficients of the recursive Gaussian, exposed for the tests' reference filter.
#ifndef KIV_FILTER_GAUSS_IIR_H
#define KIV_FILTER_GAUSS_IIR_H

namespace kivfilter {

struct IirCoef {
    double p[5];   // causal numerator
    double d[5];   // denominator (d[0] = 0)
    double m[5];   // anticausal numerator (m[0] = 0)
    double ep[5];  // p[k] - G+ d[k]: weight of a sample before the line's start
    double em[5];  // m[k] - G- d[k]: weight of a sample after the line's end
    double gp, gm; // steady-state gains G+ and G-
    bool ok;       // every coefficient finite
};

IirCoef iir_coefficients(double sigma);

// The line kernel for AVX2 (gauss_iir_avx2.cpp): twelve lanes, four lines of three
// channels, bytes at a 16-byte stride; call only when kivcore::use_avx2().
void iir_lanes_avx2(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out);
// Two such groups at once, the second's bytes and outputs `plane` bytes after the first's
// and its yp n * 12 doubles after; the same results as two calls of iir_lanes_avx2.
void iir_lanes2_avx2(const IirCoef& c, int n, const unsigned char* x, long long plane, double* yp,
                     unsigned char* out);

}  // namespace kivfilter

#endif
