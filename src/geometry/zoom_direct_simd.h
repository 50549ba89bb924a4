// zoom_linear's vector kernels (zoom_direct.cpp): SSE2 in zoom_direct_sse2.cpp, the AVX2
// row combination in zoom_direct_avx2.cpp (only where kivcore::use_avx2()). Channels lie in
// float lanes; each lane runs the scalar expression in its order.
#ifndef KIV_GEOMETRY_ZOOM_DIRECT_SIMD_H
#define KIV_GEOMETRY_ZOOM_DIRECT_SIMD_H

namespace kivgeom {

// zoom_linear's taps on one axis: the two neighbours read and the fraction toward the second.
struct LinearTap {
    int i0, i1;
    float f;
};

// One output row of w pixels read straight from source rows r0 and r1 (4-byte pixels, the
// fraction fy toward r1), for results no taller than the source; alpha 0.
void linear_row_sse2(const unsigned char* r0, const unsigned char* r1, const LinearTap* tx, int w, float fy,
                     unsigned char* out);
// A source row mixed across: for every output column, p[i0] * (1 - f) + p[i1] * f, four
// lanes a pixel (alpha's lane is mixed too and dropped at the end). This is each half of the
// bilinear sum, so a source row's mix serves every output row that reads it.
void linear_mix_row_sse2(const unsigned char* s, const LinearTap* tx, int w, float* out);
// An output row from two mixed source rows (four floats a pixel): pixel x is
// min(bot * fy + top * gy, 255) truncated, per channel, alpha 0.
void linear_combine_sse2(const float* top, const float* bot, float fy, float gy, int w, unsigned char* out);
void linear_combine_avx2(const float* top, const float* bot, float fy, float gy, int w, unsigned char* out);

}  // namespace kivgeom

#endif
