// What the filter family shares: the line counter behind the progress calls, scratch
// blocks, the banded drivers of separable and 3x3 filters and the Gaussian building blocks.
#ifndef KIV_FILTER_FILTER_H
#define KIV_FILTER_FILTER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "core/simd.h"
#include "core/toolkit.h"
#include "core/watch.h"
#include "kiv.h"

namespace kivfilter {

using kivcore::Area;
using kivcore::clamp255;
using kivcore::clamp_index;
using kivcore::clamp_trunc_byte;
using kivcore::clip_rect;
using kivcore::raise_depth_24;
using kivcore::row_ptr;
using kivcore::UnzeroedBlock;

// Filters work on full colour: the image is declared 24-bit whatever it was (a palettized
// image's pixels already hold the colours; the map is kept for whoever reads it).
inline void set_depth_24(kiv* img) { img->m_bits = 24; }

// The running line count of the progress calls: init((lines of all passes) >> 3), one
// continue each time the count of finished lines reaches a multiple of 8, term at the end.
// Used only on the calling thread; parallel passes report each finished batch here.
class LineProgress {
public:
    LineProgress(kiv* img, long long total_lines) : img_(img) {
        img_->progress_init(static_cast<int>(total_lines >> 3));
    }
    void done(long long lines) {
        long long before = count_ >> 3;
        count_ += lines;
        for (long long k = before; k < (count_ >> 3); ++k) img_->progress_continue();
    }
    void term() { img_->progress_term(); }

private:
    kiv* img_;
    long long count_ = 0;
};

// Passes that report progress run in batches of this many lines: large enough to keep
// every worker busy, small enough for a responsive progress bar.
constexpr int kProgressBatch = 256;

// Scratch blocks handed from chunk to chunk across the parallel loops of one operation, so a
// worker allocates (and faults in) its line buffers once instead of once per chunk.
template <class T>
class ScratchPool {
public:
    template <class Make>
    std::unique_ptr<T> take(Make make) {
        {
            std::lock_guard<std::mutex> lock(m_);
            if (!free_.empty()) {
                std::unique_ptr<T> p = std::move(free_.back());
                free_.pop_back();
                return p;
            }
        }
        return make();
    }
    void give(std::unique_ptr<T> p) {
        std::lock_guard<std::mutex> lock(m_);
        free_.push_back(std::move(p));
    }

private:
    std::mutex m_;
    std::vector<std::unique_ptr<T>> free_;
};

// A separable filter over the h rows of a w-wide rectangle whose output row j depends on the
// source rows j - z .. j + z, run band by band on several threads with two parallel loops in
// all (a loop per band costs more than it brings). band(lo, hi, buf) makes output rows
// [lo, hi) from source rows [lo - z, hi + z), into buf (row j at buf + (j - lo) * w) or, buf
// null, into image_row(j); it may write an image row only once it has read all it needs of
// it. The rows are cut into segments; the 2z rows around each cut, which read their
// neighbour's rows, are made first into buffers, then each segment makes the rest of its
// rows and copies those in. steps: the pixel steps of an output pixel (see kivcore::Work);
// work that a second thread would not pay for runs as one segment.
template <class Band, class ImageRow>
void run_in_segments(int h, int w, int z, double steps, Band band, ImageRow image_row) {
    const kivcore::Work row_cost = kivcore::row_work(w, steps);
    const int threads = kivcore::threads_for(h, row_cost, kivcore::parallel_threads());
    const long long seg_min = std::max<long long>(64, 4LL * z);
    const int most = static_cast<int>(std::max<long long>(1, h / seg_min));
    const int nseg = kivcore::watched_pieces(threads > 1 ? std::min(2 * threads, most) : 1, most);
    if (nseg == 1) {
        band(0, h, static_cast<tagRGBA*>(nullptr));
        return;
    }
    std::vector<int> cut(static_cast<std::size_t>(nseg) + 1);
    for (int s = 0; s <= nseg; ++s) cut[static_cast<std::size_t>(s)] = static_cast<int>(static_cast<long long>(h) * s / nseg);
    const std::size_t zone_px = 2 * static_cast<std::size_t>(z) * static_cast<std::size_t>(w);
    std::vector<tagRGBA> zones(static_cast<std::size_t>(nseg - 1) * zone_px);
    auto zone = [&](int s) { return zones.data() + static_cast<std::size_t>(s - 1) * zone_px; };
    auto at = [&](int s) { return cut[static_cast<std::size_t>(s)]; };
    kivcore::Stages stages({2.0 * z * (nseg - 1), static_cast<double>(h)});  // rows made in each loop
    kivcore::parallel_for(1, nseg, kivcore::row_work(2LL * z * w, steps), [&](int s) { band(at(s) - z, at(s) + z, zone(s)); });
    stages.next();
    kivcore::parallel_for(0, nseg, kivcore::piece_work(h, row_cost, nseg), [&](int s) {
        band(at(s) + (s > 0 ? z : 0), at(s + 1) - (s + 1 < nseg ? z : 0), static_cast<tagRGBA*>(nullptr));
        auto copy_in = [&](int c, int j0, int j1) {
            for (int j = j0; j < j1; ++j) {
                const tagRGBA* from = zone(c) + static_cast<std::size_t>(j - (at(c) - z)) * static_cast<std::size_t>(w);
                std::copy(from, from + w, image_row(j));
            }
        };
        if (s > 0) copy_in(s, at(s), at(s) + z);
        if (s + 1 < nseg) copy_in(s + 1, at(s + 1) - z, at(s + 1));
    });
}

// Copy of a rectangle's pixels, row-major at width w.
inline std::vector<tagRGBA> read_area(kiv* img, const Area& a) {
    std::vector<tagRGBA> buf(static_cast<std::size_t>(a.w()) * static_cast<std::size_t>(a.h()));
    img->getpacket(buf.data(), a.left, a.top, a.w(), a.h());
    return buf;
}

// ---- Gaussian building blocks shared by the blurs and the sharpening members ----------

// Recursive (Deriche) Gaussian on a w x h block of RGB bytes, stride in pixels: columns,
// then rows, each line extended by its end pixels. src and dst may be the same block.
// Channel 3 is left alone. Reports each finished line to *progress when it is not null.
// False (nothing written) when a sigma gives no finite coefficients.
bool iir_blur_block(const tagRGBA* src, std::ptrdiff_t src_stride, tagRGBA* dst,
                    std::ptrdiff_t dst_stride, int w, int h, double sx, double sy,
                    LineProgress* progress);
bool iir_sigma_ok(double s);
// iir_blur_block on a plane of bytes (strides in bytes): the same filter, twelve lines a
// kernel run instead of four lines of three channels.
bool iir_blur_plane(const unsigned char* src, std::ptrdiff_t src_stride, unsigned char* dst, std::ptrdiff_t dst_stride,
                    int w, int h, double sx, double sy, LineProgress* progress);
// The same in place on a plane of 16-bit values (stride in elements), each result rounded:
// the weighted blurs' intermediates.
bool iir_blur_plane16(std::uint16_t* p, std::ptrdiff_t stride, int w, int h, double sx, double sy);

}  // namespace kivfilter

#endif

namespace kivfilter {

// The 3x3 neighbourhood of one buffer row, channel-planar: row[r][c][i + 1] is channel c of
// pixel i in row j - 1 + r (r = 0, 1, 2), with rows and columns outside the rectangle
// replaced by the nearest border row/column, so the filter never sees outside pixels.
struct Rows3 {
    const unsigned char* row[3][3];
};

// Filters the rectangle's rows in place, in parallel bands. For each band it calls
// make_row(scratch) (scratch: that many bytes of its own) and then, for every row y of the
// band, row(y, rows, w, out): rows[r] points at column a.left of the original pixels of image
// row clamp(y - 1 + r, ylo, yhi - 1), readable over columns xlo .. xhi - 1 of the image and
// never written; the row function writes the w result pixels to out. The image row takes
// them once no other row needs its original.
template <class MakeRow>
void run_rows_in_place(kiv* img, const Area& a, int ylo, int yhi, int xlo, int xhi, std::size_t scratch,
                       MakeRow make_row);

// run_rows_in_place with channel-planar rows: kernel(rows, w, out) for every row, where the
// kernel writes channel c of pixel i to out[c][i]; each pixel's alpha is carried over from
// the source.
template <class Kernel>
void run_3x3(kiv* img, const Area& a, Kernel kernel);

// run_rows_in_place over 4-byte pixels whose neighbours outside the rectangle repeat its
// border rows and columns. vec(rows, 1, w - 1, out) may fill pixels 1 .. w - 2 (their
// neighbours all inside the rectangle) and returns the first pixel it left, 1 if none;
// pixel(rows, xl, x, xr) makes every other pixel from its own three columns.
template <class Vec, class Pixel>
void run_inside_3x3(kiv* img, const Area& a, Vec vec, Pixel pixel);

// run_rows_in_place over 4-byte pixels whose neighbours come from the whole image, clamped to
// its edges. vec(rows, x0, x1, out) may fill pixels x0 .. x1 - 1 (their neighbours all inside
// the image) and returns the first pixel it left, x0 if none; pixel(rows, xl, x, xr) makes
// every other pixel from its own three columns.
template <class Vec, class Pixel>
void run_clamped_3x3(kiv* img, const Area& a, Vec vec, Pixel pixel);

}  // namespace kivfilter

#include "filter/filter_3x3_impl.h"

namespace kivfilter {

// Rows and pixels as the vector kernels take them: bytes.
inline const unsigned char* const* bytes(const tagRGBA* const* rows) {
    return reinterpret_cast<const unsigned char* const*>(rows);
}
inline unsigned char* bytes(tagRGBA* p) { return reinterpret_cast<unsigned char*>(p); }
inline const unsigned char* bytes(const tagRGBA* p) { return reinterpret_cast<const unsigned char*>(p); }

struct Weighted3x3;

// Filters the rectangle in place with the vector kernels of k (rectangle border repeated
// outward, alpha kept). False, with nothing done, on the scalar path.
bool weighted_3x3(kiv* img, const Area& a, const Weighted3x3& k);

// Rounded integer square root: floor(sqrt(n)) + 1 exactly when n > r^2 + r; 0..12 give
// 0 1 1 2 2 2 2 3 3 3 3 3 3.
unsigned isqrt_rounded(unsigned n);

// For the tests: the rounded square roots of n[0 .. count - 1] (each 0 .. 2 * 1020^2) as
// edge's SSE2 or AVX2 kernel computes them; false when that kernel cannot run here.
bool edge_vector_roots(bool avx2, const int* n, int count, int* root);

}  // namespace kivfilter
