// Integer Gaussian (blur_gauss_rle_plane, blur_gauss_rle).
//
// The weights are integers and every sum fits 32 bits, so the result is the exact integer
// sum of tap times clamped sample, whatever the evaluation order.  That lets the lines be
// computed as plain vectorised convolutions, rows in parallel, instead of one run at a time.
#include <cmath>
#include "filter/gauss_rle.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "core/kmath.h"

namespace kivfilter {

bool rle_kernel(double sigma, RleKernel* k) {
    if (!(sigma > 0.0) || !(sigma <= kRleMaxSigma)) return false;
    int L = static_cast<int>(std::ceil(std::sqrt(-(kivcore::kmath::log(1.0 / 255.0) * 2 * (sigma * sigma)))) * 2);
    if (L % 2 == 0) L = L + 1;
    const int h = L / 2;
    std::vector<int> taps(static_cast<std::size_t>(2 * h + 1));
    for (int j = -h; j <= h; ++j)
        taps[static_cast<std::size_t>(j + h)] =
            j == 0 ? 255
                   : static_cast<int>(255.0 * kivcore::kmath::exp(-(static_cast<double>(j) * j) / (2 * (sigma * sigma))));
    k->h = h;
    k->prefix.assign(static_cast<std::size_t>(2 * h + 1), 0);
    for (int i = 0; i < 2 * h; ++i)
        k->prefix[static_cast<std::size_t>(i + 1)] = k->prefix[static_cast<std::size_t>(i)] + taps[static_cast<std::size_t>(i)];
    return k->total() > 0;
}

namespace {

// acc[l] += tap * src[l] for n byte lanes.  Products fit 16 bits (255 * 255).
inline void mac_bytes(std::uint32_t* acc, const unsigned char* src, std::uint16_t tap, std::size_t n) {
    for (std::size_t l = 0; l < n; ++l) acc[l] += static_cast<std::uint16_t>(tap * src[l]);
}

// acc[l] += weight * src[l] for the end samples' larger weights.
inline void mac_bytes32(std::uint32_t* acc, const unsigned char* src, std::uint32_t weight, std::size_t n) {
    for (std::size_t l = 0; l < n; ++l) acc[l] += weight * src[l];
}

// Stores acc / total into the channels of dst selected by planes.
inline void store_planes(tagRGBA* dst, const std::uint32_t* acc, int n, unsigned planes, double total) {
    unsigned char* d = reinterpret_cast<unsigned char*>(dst);
    for (int c = 0; c < 4; ++c) {
        if (!(planes & (1u << c))) continue;
        // acc and total are below 2^31, so the double quotient truncates like the integer one.
        for (int i = 0; i < n; ++i)
            d[4 * i + c] = static_cast<unsigned char>(static_cast<double>(acc[4 * i + c]) / total);
    }
}

}  // namespace
}  // namespace kivfilter

int kiv::blur_gauss_rle_plane(tagRECT* rect, double sigma, unsigned planes) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    RleKernel k;
    if (!rle_kernel(sigma, &k)) return 0;
    raise_depth_24(this);
    planes &= 15u;
    const int w = a.w(), h = a.h(), kh = k.h;
    const std::vector<int>& P = k.prefix;
    auto tap = [&](int o) {
        return static_cast<std::uint16_t>(P[static_cast<std::size_t>(kh + o + 1)] - P[static_cast<std::size_t>(kh + o)]);
    };
    // Taps that fall before the line's start (after its end) weigh on its first (last) sample.
    auto lead = [&](int i) { return static_cast<std::uint32_t>(P[static_cast<std::size_t>(std::max(0, kh - i))] - P[0]); };
    auto trail = [&](int i, int n) {
        const int from = std::min(2 * kh, std::max(0, kh + n - i));
        return static_cast<std::uint32_t>(P[static_cast<std::size_t>(2 * kh)] - P[static_cast<std::size_t>(from)]);
    };
    const double total = k.total();
    std::vector<tagRGBA> tmp = read_area(this, a);
    LineProgress progress(this, static_cast<long long>(w) + h);

    // Columns: strips of columns, each strip's rows in parallel; a column is done when its
    // strip is. Reads the image, writes tmp.
    for (int x0 = 0; x0 < w; x0 += kProgressBatch) {
        const int sw = std::min(kProgressBatch, w - x0);
        auto src_row = [&](int j) {
            return reinterpret_cast<const unsigned char*>(row_ptr(this, a.top + j) + a.left + x0);
        };
        kivcore::parallel_chunks(0, h, [&](int jb, int je) {
            std::vector<std::uint32_t> acc(static_cast<std::size_t>(sw) * 4);
            for (int j = jb; j < je; ++j) {
                std::fill(acc.begin(), acc.end(), 0u);
                const int o0 = std::max(-kh, -j), o1 = std::min(kh, h - j);
                for (int o = o0; o < o1; ++o) mac_bytes(acc.data(), src_row(j + o), tap(o), acc.size());
                if (const std::uint32_t wl = lead(j)) mac_bytes32(acc.data(), src_row(0), wl, acc.size());
                if (const std::uint32_t wt = trail(j, h)) mac_bytes32(acc.data(), src_row(h - 1), wt, acc.size());
                store_planes(tmp.data() + static_cast<std::size_t>(j) * w + x0, acc.data(), sw, planes, total);
            }
        });
        progress.done(sw);
    }
    // Rows of tmp into the image: for each tap, the outputs whose sample lies inside the
    // line form one contiguous run; the clamped ends are added per output.
    for (int y0 = 0; y0 < h; y0 += kProgressBatch) {
        const int sh = std::min(kProgressBatch, h - y0);
        kivcore::parallel_chunks(y0, y0 + sh, [&](int jb, int je) {
            std::vector<std::uint32_t> acc(static_cast<std::size_t>(w) * 4);
            for (int j = jb; j < je; ++j) {
                const tagRGBA* line = tmp.data() + static_cast<std::size_t>(j) * w;
                const unsigned char* lb = reinterpret_cast<const unsigned char*>(line);
                std::fill(acc.begin(), acc.end(), 0u);
                for (int o = std::max(-kh, 1 - w); o < std::min(kh, w); ++o) {
                    const int i0 = std::max(0, -o), i1 = std::min(w, w - o);
                    mac_bytes(acc.data() + 4 * static_cast<std::size_t>(i0), lb + 4 * static_cast<std::ptrdiff_t>(i0 + o), tap(o),
                              4 * static_cast<std::size_t>(i1 - i0));
                }
                for (int i = 0; i < std::min(kh, w); ++i)
                    mac_bytes32(acc.data() + 4 * static_cast<std::size_t>(i), lb, lead(i), 4);
                for (int i = std::max(0, w - kh); i < w; ++i)
                    mac_bytes32(acc.data() + 4 * static_cast<std::size_t>(i), lb + 4 * static_cast<std::size_t>(w - 1), trail(i, w), 4);
                store_planes(row_ptr(this, a.top + j) + a.left, acc.data(), w, planes, total);
            }
        });
        progress.done(sh);
    }
    progress.term();
    return 1;
}

int kiv::blur_gauss_rle(tagRECT* rect, double sigma) { return blur_gauss_rle_plane(rect, sigma, 7); }
