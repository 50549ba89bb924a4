// The streak blurs' SSE2 kernels (streak.cpp, streak_sse2.cpp): each line runs the scalar
// sequence of the streak's body on 4-byte pixels, alpha kept from the input.
//   wind: the trail t = max(in, t - fade) per colour byte, the subtraction saturating at 0
//     where the scalar difference goes negative and loses to in anyway;
//   blast: the larger of the pixel and the rounded mean of the last len inputs (fewer at
//     the line's start).
#ifndef KIV_FILTER_STREAK_SIMD_H
#define KIV_FILTER_STREAK_SIMD_H

namespace kivfilter {

// One line of n pixels in place, element k of the line at p + 4 (reverse ? n - 1 - k : k).
void wind_line_sse2(unsigned char* p, int n, bool reverse, int fade);
// One step down `groups` groups of four columns: the pixels at p, their trails and fades
// (fades: the byte fade four times) at the same offsets, all advanced together.
void wind_columns_sse2(unsigned char* p, unsigned char* trail, const unsigned char* fades, int groups);

// One line of n pixels: inputs from in, results to out (element k at 4 (reverse ? n - 1 - k
// : k) of each).
void blast_line_sse2(const unsigned char* in, unsigned char* out, int n, bool reverse, int len);
// Step k of columns c0 .. c0 + count - 1 of row j: inputs from in (rows of `stride` pixels;
// the input len[i] steps back lies len[i] rows on in the direction `back`, +1 or -1),
// results to out (the output row); sums holds column c0 + i's four 32-bit running sums at
// 4 i between the steps.
void blast_columns_sse2(const unsigned char* in, long long stride, int j, int back, unsigned char* out, int c0,
                        int count, int k, const int* len, int* sums);

}  // namespace kivfilter

#endif
