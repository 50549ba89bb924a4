// The selective Gaussian's block kernel, shared by its SSE2 (gauss_sel.cpp) and AVX2
// (gauss_sel_avx2.cpp) forms.
#ifndef KIV_FILTER_GAUSS_SEL_H
#define KIV_FILTER_GAUSS_SEL_H

namespace kivfilter {

// The neighbourhood of a block of pixels of one row as doubles, channel-planar: value
// (c, r, j) at tile[(c * rows + r) * width + j] is channel c of the image pixel in row
// y + r - centre_row and column x0 - (n - 1) + j, where x0 is the block's first pixel.
// Rows outside the image are left out (rows counts those inside; the weight of tile row r
// is that of offset r - centre_row); columns outside it hold a value no threshold admits.
struct SelTile {
    const double* tile;
    int rows, width, centre_row;
    int n;             // offsets -(n - 1) .. n - 1
    const double* K;   // K[|dx| * n + |dy|]
    double threshold;  // >= 0
};

// Sums (channel c of pixel i at sum[c * stride + i]) of pixels 0 .. count - 1 of the block,
// count a multiple of four; the tile holds width >= count + 2 (n - 1) columns. Call only
// when kivcore::use_avx2().
void sel_block_avx2(const SelTile& t, int count, double* sum, double* wsum, int stride);

}  // namespace kivfilter

#endif
