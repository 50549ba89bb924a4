// The AVX2 row kernels of filter_3x3 (kernel3x3_avx2.cpp), edge (edge_avx2.cpp) and emboss
// (emboss_avx2.cpp) on 4-byte pixels. Each fills pixels x0 .. x1 - 1 of out from rows[0..2] (the rows above, at
// and below), reading columns x0 - 1 .. x1 of them, and returns x1; a span shorter than one
// vector is left alone and x0 returned. Call only when kivcore::use_avx2().
#ifndef KIV_FILTER_KERNEL3X3_AVX2_H
#define KIV_FILTER_KERNEL3X3_AVX2_H

namespace kivfilter {

// Modes 0, 1 and 3 to 15 of filter_3x3; alpha from the middle row.
int k3_row_avx2(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out);

// edge with the 16.16 gain f (0 .. 655360); alpha 0.
int edge_row_avx2(const unsigned char* const* rows, int x0, int x1, int f, unsigned char* out);

// The rounded square roots of n[0 .. count - 1] (each 0 .. 2 * 1020^2) as edge_row_avx2
// takes them, for the tests.
void edge_roots_avx2(const int* n, int count, int* root);

// A 3x3 weighted sum per channel taken to a byte: clamp(c + trunc(float(S) * mul / div)),
// S the sum of w[k] times neighbour k (row-major), c the centre value when add_centre, else
// 0. Exact whenever |S * mul| < 2^24 and div is an integer in 1 .. 2^24 - 1: the float
// quotient of two exact integers then lies closer to the true one than 1 / div, so it
// truncates alike.
struct Weighted3x3 {
    short w[9];
    int add_centre;
    float mul, div;
};

// Weighted3x3 on 4-byte pixels; alpha from the middle row.
int weighted_row_avx2(const unsigned char* const* rows, int x0, int x1, const Weighted3x3* k, unsigned char* out);

// emboss's light, as the row kernels take it: shade = trunc(d / sqrt(Nx^2 + Ny^2 + nz2)) with
// d = trunc(Nx lx + Ny ly + nzlz), flat (Nx = Ny = 0) the flat shade already clamped.
struct EmbossLight {
    double lx, ly, nzlz, nz2;
    int flat;
    int mono;  // nonzero: grey; else the colours of the pixel above scaled by shade / 256
};

// emboss on the red heights; alpha 0.
int emboss_row_avx2(const unsigned char* const* rows, int x0, int x1, const EmbossLight* light, unsigned char* out);

}  // namespace kivfilter

#endif
