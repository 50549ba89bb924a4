// Integer convolution on byte lanes, shared by the integer Gaussian and the tent blur: each
// output byte is the exact 32-bit sum of weight times sample over a list of source lines,
// divided (truncated) by a total. The vector kernels are in int_conv_simd.h.
#ifndef KIV_FILTER_INT_CONV_H
#define KIV_FILTER_INT_CONV_H

#include <cstddef>
#include <cstdint>

namespace kivfilter {

// Largest weight of one source: two products and a sum below 2^31 stay exact in 32 bits.
constexpr std::int32_t kPairMaxWeight = 32767;

// Sources come in pairs: pair m adds lo(w[m]) * a[m][x] + hi(w[m]) * b[m][x] to output byte x,
// where x counts from the start of the first iteration. Every sum must stay below 2^31.
struct PairConv {
    const unsigned char* const* a;
    const unsigned char* const* b;
    const std::int32_t* w0;  // the first output's weights
    const std::int32_t* w1;  // the second output's weights, null when there is none
    int e0;                  // pairs [0, e0) feed the first output
    int s1, e1;              // pairs [s1, e1) feed the second
    unsigned char* d0;
    unsigned char* d1;
    const unsigned char* c0;  // byte for byte beside d0 / d1: where the kept bytes come from
    const unsigned char* c1;
    std::ptrdiff_t step;  // bytes between iterations, for sources, outputs and kept bytes alike
    int n;                // iterations; each writes the kernel's vector width at d0 (and d1)
    std::uint32_t take;   // byte mask over a pixel (4 bytes): bytes set from the quotient
    std::uint32_t keep;   // bytes copied from c0 / c1; any other byte becomes 0
    std::int32_t total;   // the divisor, 1 .. 2^31 / 255
    bool narrow;          // weights as bytes (a's in bits 0-7, b's in 8-15), for the 16-bit kernel
};

// Vector width of pair_conv_vector in bytes: 32 (AVX2), 16 (SSE2), 0 (portable build or
// forced scalar).
int pair_width();
// p.n iterations of width bytes, width as pair_width() gave it (not 0).
void pair_conv_vector(const PairConv& p, int width);
// Bytes [x0, x1) of the output(s), one at a time (iteration 0's addresses, step unused).
void pair_conv_scalar(const PairConv& p, std::ptrdiff_t x0, std::ptrdiff_t x1);

// The same with 16-bit sums, for narrow weights: each pair's two weights add up to at most
// 128, every sum stays below 2^16, total >= 2, one output, keep = 0.
void pair_conv16_vector(const PairConv& p, int width);

}  // namespace kivfilter

#endif
