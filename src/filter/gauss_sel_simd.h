// The selective Gaussian's block kernel (gauss_sel.cpp), written once over an operations set
// S (kivcore::Sse2 in gauss_sel_sse2.cpp, kivcore::Avx2 in gauss_sel_avx2.cpp).
#ifndef KIV_FILTER_GAUSS_SEL_SIMD_H
#define KIV_FILTER_GAUSS_SEL_SIMD_H

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

// Pixels per block of the vector kernels: the block's tile stays in the first-level cache
// for the usual radii.
constexpr int kSelBlock = 64;

// Sums (channel c of pixel i at sum[c * kSelBlock + i], its weights' sum in wsum alike) of
// pixels 0 .. count - 1 of the block, count a multiple of four up to kSelBlock; the tile
// holds width >= count + 2 (n - 1) columns. Each lane adds exactly the scalar sequence of
// terms. The AVX2 one only where kivcore::use_avx2().
void sel_block_sse2(const SelTile& t, int count, double* sum, double* wsum);
void sel_block_avx2(const SelTile& t, int count, double* sum, double* wsum);

namespace {

template <class S>
void sel_block(const SelTile& tile, int count, double* sum, double* wsum) {
    using D = typename S::D;
    const SelTile t = tile;
    constexpr int kLanes = S::kDoubles;
    const long long plane = static_cast<long long>(t.rows) * t.width;
    const D thr = S::set_pd(t.threshold), sign = S::set_pd(-0.0);
    for (int i = 0; i < count; i += kLanes) {
        const double* at = t.tile + (t.n - 1) + i;
        D centre[3], s[3], ws[3];
        for (int c = 0; c < 3; ++c) {
            centre[c] = S::load_pd(at + c * plane + static_cast<long long>(t.centre_row) * t.width);
            s[c] = ws[c] = S::zero_pd();
        }
        for (int dx = -(t.n - 1); dx <= t.n - 1; ++dx) {
            const double* kx = t.K + static_cast<long long>(dx < 0 ? -dx : dx) * t.n;
            for (int r = 0; r < t.rows; ++r) {
                const int dy = r - t.centre_row;
                const D wt = S::set_pd(kx[dy < 0 ? -dy : dy]);
                const double* p = at + dx + static_cast<long long>(r) * t.width;
                for (int c = 0; c < 3; ++c, p += plane) {
                    const D v = S::load_pd(p);
                    const D in = S::cmple_pd(S::andnot_pd(sign, S::sub_pd(centre[c], v)), thr);
                    const D m = S::and_pd(in, wt);  // the weight where admitted, else +0
                    s[c] = S::add_pd(s[c], S::mul_pd(v, m));
                    ws[c] = S::add_pd(ws[c], m);
                }
            }
        }
        for (int c = 0; c < 3; ++c) {
            S::store_pd(sum + c * kSelBlock + i, s[c]);
            S::store_pd(wsum + c * kSelBlock + i, ws[c]);
        }
    }
}

}  // namespace

// The entry points of the kernel file that includes this header after its operations set
// (core/simd_sse2.h or core/simd_avx2.h).
#ifdef KIV_SIMD_OPS
void KIV_SIMD_KERNEL(sel_block)(const SelTile& t, int count, double* sum, double* wsum) {
    sel_block<KIV_SIMD_OPS>(t, count, sum, wsum);
}
#endif

}  // namespace kivfilter

#endif
