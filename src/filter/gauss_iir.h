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

}  // namespace kivfilter

#endif
