// Selective Gaussian (blur_gauss_sel): each channel averages only the neighbours close to
// the centre value.
//
// Every pixel adds its neighbours in the fixed order (dx outer, dy inner) in double
// precision; a row is computed with one lane per pixel, each offset in turn, so the order of
// the additions for every pixel stays the scalar one.  A neighbour that does not qualify
// adds 0.0, which leaves a non-negative sum unchanged.
#include <cmath>
#include <algorithm>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "core/kmath.h"

int kiv::blur_gauss_sel(tagRECT* rect, double radius, int threshold) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    if (!(radius <= 127.0)) return 0;  // also refuses NaN
    const kiv copy(*this);  // reads come from the copy, writes go to the image
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
            K[static_cast<std::size_t>(i) * n + j] = kivcore::kmath::exp((i * i + j * j) / (-2 * (sigma * sigma))) * norm;

    const int W = m_width, H = m_height;
    for (int y0 = a.top; y0 < a.bottom; y0 += kProgressBatch) {
        const int y1 = std::min(a.bottom, y0 + kProgressBatch);
        kivcore::parallel_chunks(y0, y1, [&](int yb, int ye) {
            std::vector<double> sum(3 * static_cast<std::size_t>(w)), wsum(sum.size());
            std::vector<int> centre(sum.size());
            for (int y = yb; y < ye; ++y) {
                std::fill(sum.begin(), sum.end(), 0.0);
                std::fill(wsum.begin(), wsum.end(), 0.0);
                const tagRGBA* crow = copy.m_pixels + static_cast<std::size_t>(y) * W;
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
                        const unsigned char* nb = reinterpret_cast<const unsigned char*>(
                            copy.m_pixels + static_cast<std::size_t>(y + dy) * W + (a.left + dx));
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
                unsigned char* out = reinterpret_cast<unsigned char*>(row_ptr(this, y) + a.left);
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
}
