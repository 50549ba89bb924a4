// The quarter turn's and the row exchange's SSE2 kernels (orientation.cpp,
// orientation_sse2.cpp). Whole 4-byte pixels move.
#ifndef KIV_GEOMETRY_ORIENTATION_SIMD_H
#define KIV_GEOMETRY_ORIENTATION_SIMD_H

namespace kivgeom {

// The quarter turn works in tiles of this many source rows and columns.
constexpr int kTurnBlock = 16;

// A full tile from src (its top-left pixel; rows stride pixels apart) to kTurnBlock target
// lines, line k (source column k) starting at line + k * line_step pixels (its leftmost
// pixel), counter-clockwise or clockwise (lines then run right to left).
void turn_tile_sse2(const unsigned char* src, long long stride, unsigned char* line, long long line_step, bool ccw);

// Exchanges the first pixels of two distinct rows of n pixels, four at a time; returns the
// first pixel left.
int swap_pixels_sse2(unsigned char* a, unsigned char* b, int n);

}  // namespace kivgeom

#endif
