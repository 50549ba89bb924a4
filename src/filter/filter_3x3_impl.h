// The row drivers shared by the 3x3 filters (included by filter.h): run_rows_in_place and,
// on top of it, run_3x3 with channel-planar rows.
#ifndef KIV_FILTER_FILTER_3X3_IMPL_H
#define KIV_FILTER_FILTER_3X3_IMPL_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "core/simd.h"
#include "core/watch.h"
#include "filter/filter_3x3_simd.h"

namespace kivfilter {

// Channels 0..2 of n pixels into three planes at dst + 1, dst + 1 + pw, dst + 1 + 2 pw, each
// padded by a copy of its end pixels.
inline void planes_from_pixels(unsigned char* dst, std::size_t pw, const tagRGBA* src, std::size_t n) {
    const unsigned char* s = reinterpret_cast<const unsigned char*>(src);
    unsigned char* d[3] = {dst + 1, dst + pw + 1, dst + 2 * pw + 1};
    const auto vec = kivcore::pick_sse2(KIV_SSE2_KERNEL(planes_from_pixels_sse2));
    std::size_t i = vec ? vec(s, n, d[0], d[1], d[2]) : 0;
    for (; i < n; ++i)
        for (int c = 0; c < 3; ++c) d[c][i] = s[4 * i + c];
    for (int c = 0; c < 3; ++c) {
        d[c][-1] = d[c][0];
        d[c][n] = d[c][n - 1];
    }
}

template <class MakeRow>
void run_rows_in_place(kiv* img, const Area& a, int ylo, int yhi, int xlo, int xhi, std::size_t scratch,
                       MakeRow make_row) {
    const int w = a.w(), h = a.h();
    const std::size_t sw = static_cast<std::size_t>(w);
    // Bands of at least four rows, about eight per thread so that a loaded core does not
    // hold the others up; one band, and no rows kept, where the work does not pay for a
    // second thread (a 3 x 3 row costs about two pixel steps a pixel) and no call is watched.
    const kivcore::Work row_cost = kivcore::row_work(w, 2);
    const int threads = kivcore::threads_for(h, row_cost, kivcore::parallel_threads());
    const int nb =
        kivcore::watched_pieces(threads <= 1 ? 1 : std::max(1, std::min(threads * 8, h / 4)), std::max(1, h / 4));
    auto band_start = [&](int k) { return a.top + static_cast<int>(static_cast<long long>(h) * k / nb); };
    // The rows on either side of each band boundary, kept before any band writes: the band
    // above still reads the first row of the band below, and that band the last row above.
    const int sx0 = std::max(xlo, a.left - 1), sx1 = std::min(xhi, a.right + 1);
    const std::size_t sn = static_cast<std::size_t>(sx1 - sx0);
    // Everything is allocated before the first pixel changes, so a failure leaves the image
    // as it was. Per band: two result rows (a row is stored once the next one is done) and
    // the row function's own scratch.
    const std::size_t band_bytes = (2 * sw * sizeof(tagRGBA) + scratch + 63) & ~std::size_t(63);
    std::vector<tagRGBA> saved(2 * sn * static_cast<std::size_t>(nb - 1));
    std::vector<unsigned char> bands(band_bytes * static_cast<std::size_t>(nb) + 64);
    for (int k = 1; k < nb; ++k)
        for (int r = 0; r < 2; ++r)
            std::memcpy(saved.data() + (2 * static_cast<std::size_t>(k - 1) + r) * sn,
                        row_ptr(*img, band_start(k) - 1 + r) + sx0, sn * sizeof(tagRGBA));
    // Row y of the original image as seen from band k, pointing at column a.left.
    auto source = [&](int k, int y) -> const tagRGBA* {
        if (k > 0 && y == band_start(k) - 1) return saved.data() + 2 * static_cast<std::size_t>(k - 1) * sn + (a.left - sx0);
        if (k + 1 < nb && y == band_start(k + 1))
            return saved.data() + (2 * static_cast<std::size_t>(k) + 1) * sn + (a.left - sx0);
        return row_ptr(*img, y) + a.left;
    };
    unsigned char* base = bands.data() + ((64 - reinterpret_cast<std::uintptr_t>(bands.data()) % 64) % 64);
    kivcore::parallel_chunks(0, nb, kivcore::piece_work(h, row_cost, nb), [&](int kb, int ke) {
        for (int k = kb; k < ke; ++k) {
            unsigned char* mem = base + band_bytes * static_cast<std::size_t>(k);
            tagRGBA* res[2] = {reinterpret_cast<tagRGBA*>(mem), reinterpret_cast<tagRGBA*>(mem) + sw};
            auto row = make_row(mem + 2 * sw * sizeof(tagRGBA));
            const int yb = band_start(k), ye = band_start(k + 1);
            for (int y = yb; y < ye; ++y) {
                const tagRGBA* rows[3];
                for (int r = 0; r < 3; ++r) rows[r] = source(k, std::clamp(y - 1 + r, ylo, yhi - 1));
                row(y, rows, w, res[y & 1]);
                if (y > yb) std::memcpy(row_ptr(*img, y - 1) + a.left, res[(y - 1) & 1], sw * sizeof(tagRGBA));
            }
            std::memcpy(row_ptr(*img, ye - 1) + a.left, res[(ye - 1) & 1], sw * sizeof(tagRGBA));
        }
    });
}

template <class Vec, class Pixel>
void run_clamped_3x3(kiv* img, const Area& a, Vec vec, Pixel pixel) {
    const int W = img->m_width;
    const int x0 = a.left > 0 ? 0 : 1;
    run_rows_in_place(img, a, 0, img->m_height, 0, W, 0, [&](unsigned char*) {
        return [&](int, const tagRGBA* const* rows, int w, tagRGBA* out) {
            const int e = vec(rows, x0, std::min(w, W - 1 - a.left), out);
            auto one = [&](int i) {
                const int X = a.left + i;
                out[i] = pixel(rows, (X > 0 ? X - 1 : 0) - a.left, i, (X + 1 < W ? X + 1 : X) - a.left);
            };
            for (int i = 0; i < x0; ++i) one(i);
            for (int i = e; i < w; ++i) one(i);
        };
    });
}

template <class Vec, class Pixel>
void run_inside_3x3(kiv* img, const Area& a, Vec vec, Pixel pixel) {
    run_rows_in_place(img, a, a.top, a.bottom, a.left, a.right, 0, [&](unsigned char*) {
        return [&](int, const tagRGBA* const* rows, int w, tagRGBA* out) {
            const int e = vec(rows, 1, w - 1, out);
            out[0] = pixel(rows, 0, 0, w > 1 ? 1 : 0);
            for (int i = std::max(e, 1); i < w; ++i) out[i] = pixel(rows, i - 1, i, i + 1 < w ? i + 1 : i);
        };
    });
}

template <class Kernel>
void run_3x3(kiv* img, const Area& a, Kernel kernel) {
    const int w = a.w();
    const std::size_t sw = static_cast<std::size_t>(w), pw = sw + 2;
    run_rows_in_place(img, a, a.top, a.bottom, a.left, a.right, 9 * pw + 3 * sw, [&](unsigned char* scratch) {
        // Planar copies of three rows, padded by one pixel each side; source row j lives in
        // slot j % 3, so each row is converted once per band.
        return [&, scratch, held = std::array<int, 3>{-1, -1, -1}](int y, const tagRGBA* const* src, int, tagRGBA* d) mutable {
            unsigned char* planes = scratch;
            unsigned char* res = scratch + 9 * pw;
            Rows3 rows;
            for (int r = 0; r < 3; ++r) {
                const int sj = std::clamp(y - 1 + r, a.top, a.bottom - 1) - a.top;
                unsigned char* dst = planes + static_cast<std::size_t>(3 * (sj % 3)) * pw;
                if (held[sj % 3] != sj) {
                    planes_from_pixels(dst, pw, src[r], sw);
                    held[sj % 3] = sj;
                }
                for (int c = 0; c < 3; ++c) rows.row[r][c] = dst + c * pw;
            }
            unsigned char* o[3] = {res, res + sw, res + 2 * sw};
            kernel(rows, w, o);
            const tagRGBA* s = src[1];
            const unsigned char *o0 = o[0], *o1 = o[1], *o2 = o[2];
            for (std::size_t i = 0; i < sw; ++i) d[i] = tagRGBA{o0[i], o1[i], o2[i], s[i].a};
        };
    });
}

}  // namespace kivfilter

#endif
