// Selective Gaussian (blur_gauss_sel): each channel averages only the neighbours close to
// the centre value.
//
// Every pixel adds its neighbours in the fixed order (dx outer, dy inner) in double
// precision, one lane per pixel, so the order of the additions for every pixel stays the
// scalar one. A neighbour that does not qualify adds a zero (its value times a weight of
// +0), which leaves the sum unchanged; so does one outside the image, which is how the
// vector kernels skip it.
#include <algorithm>
#include <cmath>
#include <vector>

#include "core/kmath.h"
#include "core/parallel.h"
#include "core/simd.h"
#include "core/watch.h"
#include "filter/filter.h"
#include "filter/gauss_sel_simd.h"

namespace {

using kivfilter::kSelBlock;
using kivfilter::SelTile;

// Stands for a column outside the image: no threshold admits it.
constexpr double kOutside = -1e10;

}  // namespace

int kiv::blur_gauss_sel(tagRECT* rect, double radius, int threshold) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kivfilter;
        Area a;
        if (!clip_rect(*this, rect, &a)) return 0;
        if (!(radius <= 127.0)) return 0;  // also refuses NaN
        const kiv copy(*this);             // reads come from the copy, writes go to the image
        if (!copy.m_pixels) return 0;
        set_depth_24(this);
        const int n = radius + 1.0 >= 1.0 ? static_cast<int>(radius + 1.0) : 0;
        const int h = a.h(), w = a.w();
        const double sigma = radius / 3.329042969;
        LineProgress progress(this, h);
        // A radius so small that sigma^2 is 0 (radius 0 included) has no defined weight: the
        // centre would weigh exp(0 / -0) = NaN. Its only neighbour is the centre, so like n <= 0
        // (and a negative threshold) it changes nothing.
        if (n <= 0 || !(sigma * sigma > 0.0) || threshold < 0) {
            progress.done(h);
            progress.term();
            return 1;
        }
        const double norm = 1 / std::sqrt(2 * 3.141592653589793 * sigma);
        std::vector<double> K(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                K[static_cast<std::size_t>(i) * n + j] =
                    kivcore::kmath::exp((i * i + j * j) / (-2 * (sigma * sigma))) * norm;

        const int W = m_width, H = m_height;
        if (const auto block = kivcore::pick(KIV_AVX2_KERNEL(sel_block_avx2), KIV_SSE2_KERNEL(sel_block_sse2))) {
            // Per row, blocks of pixels: each block's neighbourhood converted once to a tile of
            // doubles, then summed by the vector kernel.
            const int tw = kSelBlock + 2 * (n - 1);
            const double thr = threshold;
            for (int y0 = a.top; y0 < a.bottom; y0 += kProgressBatch) {
                const int y1 = std::min(a.bottom, y0 + kProgressBatch);
                const kivcore::Part part(static_cast<double>(y0 - a.top) / a.h(),
                                         static_cast<double>(y1 - a.top) / a.h());
                kivcore::parallel_chunks(y0, y1, [&](int yb, int ye) {
                    std::vector<double> tile(3 * static_cast<std::size_t>(2 * n - 1) * static_cast<std::size_t>(tw));
                    std::vector<double> sum(3 * kSelBlock), wsum(sum.size());
                    for (int y = yb; y < ye; ++y) {
                        const int ylo = std::max(0, y - (n - 1)), yhi = std::min(H - 1, y + (n - 1));
                        const SelTile t{tile.data(), yhi - ylo + 1, tw, y - ylo, n, K.data(), thr};
                        const std::size_t plane = static_cast<std::size_t>(t.rows) * tw;
                        unsigned char* out = reinterpret_cast<unsigned char*>(row_ptr(*this, y) + a.left);
                        for (int x0 = 0; x0 < w; x0 += kSelBlock) {
                            const int count = std::min(kSelBlock, w - x0), padded = (count + 3) & ~3;
                            // Columns X0 .. X0 + cols - 1 of the image; those outside it stand apart.
                            const int X0 = a.left + x0 - (n - 1), cols = padded + 2 * (n - 1);
                            const int j0 = std::clamp(-X0, 0, cols), j1 = std::clamp(W - X0, j0, cols);
                            for (int r = 0; r < t.rows; ++r) {
                                const tagRGBA* src = row_ptr(copy, ylo + r);
                                double* d[3];
                                for (int c = 0; c < 3; ++c)
                                    d[c] = tile.data() + c * plane + static_cast<std::size_t>(r) * tw;
                                for (int c = 0; c < 3; ++c) {
                                    std::fill(d[c], d[c] + j0, kOutside);
                                    std::fill(d[c] + j1, d[c] + cols, kOutside);
                                }
                                for (int j = j0; j < j1; ++j) {
                                    const tagRGBA& q = src[X0 + j];
                                    d[0][j] = q.r;
                                    d[1][j] = q.g;
                                    d[2][j] = q.b;
                                }
                            }
                            block(t, padded, sum.data(), wsum.data());
                            for (int c = 0; c < 3; ++c)
                                for (int i = 0; i < count; ++i) {
                                    const double ws = wsum[static_cast<std::size_t>(c) * kSelBlock + i];
                                    if (ws != 0.0)
                                        out[4 * (x0 + i) + c] =
                                            clamp_trunc_byte(sum[static_cast<std::size_t>(c) * kSelBlock + i] / ws);
                                }
                        }
                    }
                });
                progress.done(y1 - y0);
            }
            progress.term();
            return 1;
        }
        for (int y0 = a.top; y0 < a.bottom; y0 += kProgressBatch) {
            const int y1 = std::min(a.bottom, y0 + kProgressBatch);
            const kivcore::Part part(static_cast<double>(y0 - a.top) / a.h(), static_cast<double>(y1 - a.top) / a.h());
            kivcore::parallel_chunks(y0, y1, [&](int yb, int ye) {
                std::vector<double> sum(3 * static_cast<std::size_t>(w)), wsum(sum.size());
                std::vector<int> centre(sum.size());
                for (int y = yb; y < ye; ++y) {
                    std::fill(sum.begin(), sum.end(), 0.0);
                    std::fill(wsum.begin(), wsum.end(), 0.0);
                    const tagRGBA* crow = row_ptr(copy, y);
                    for (int i = 0; i < w; ++i) {
                        centre[static_cast<std::size_t>(i)] = crow[a.left + i].r;
                        centre[static_cast<std::size_t>(w + i)] = crow[a.left + i].g;
                        centre[static_cast<std::size_t>(2 * w + i)] = crow[a.left + i].b;
                    }
                    for (int dx = -(n - 1); dx <= n - 1; ++dx) {
                        // Pixels whose column x + dx lies inside the image: one run.
                        const int i0 = std::max(0, -dx - a.left), i1 = std::min(w, W - dx - a.left);
                        if (i0 >= i1) continue;
                        for (int dy = -(n - 1); dy <= n - 1; ++dy) {
                            if (y + dy < 0 || y + dy >= H) continue;
                            const double wt = K[static_cast<std::size_t>(dx < 0 ? -dx : dx) * n + (dy < 0 ? -dy : dy)];
                            const unsigned char* nb =
                                reinterpret_cast<const unsigned char*>(row_ptr(copy, y + dy) + (a.left + dx));
                            for (int c = 0; c < 3; ++c) {
                                double* s = sum.data() + static_cast<std::size_t>(c) * w;
                                double* ws = wsum.data() + static_cast<std::size_t>(c) * w;
                                const int* ce = centre.data() + static_cast<std::size_t>(c) * w;
                                for (int i = i0; i < i1; ++i) {
                                    const int v = nb[4 * i + c];
                                    const int d = ce[i] - v;
                                    const bool in = d >= -threshold && d <= threshold;
                                    s[i] += in ? wt * v : 0.0;
                                    ws[i] += in ? wt : 0.0;
                                }
                            }
                        }
                    }
                    unsigned char* out = reinterpret_cast<unsigned char*>(row_ptr(*this, y) + a.left);
                    for (int c = 0; c < 3; ++c)
                        for (int i = 0; i < w; ++i) {
                            const double ws = wsum[static_cast<std::size_t>(c) * w + i];
                            if (ws != 0.0)
                                out[4 * i + c] = clamp_trunc_byte(sum[static_cast<std::size_t>(c) * w + i] / ws);
                        }
                }
            });
            progress.done(y1 - y0);
        }
        progress.term();
        return 1;
    });
}
