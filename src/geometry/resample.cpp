// Filtered resampling (zoom): the contribution lists and the two separable passes through a
// 24-bit intermediate image (the passes themselves in resample_passes.cpp).
//
// Each output pixel is Sum(weight * byte) over its contribution list, in list order, as
// doubles, then + 0.5, truncated and clamped. The lists are built once per output column
// (or row) and shared by every line. The vector kernels (resample_simd.h) run
// four rows (horizontal pass) or colour samples (vertical pass) in lanes, each lane doing
// exactly the scalar sequence, on source pixels converted to doubles once into buffers small
// enough for L1.
#include "geometry/resample.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "geometry/geometry.h"
#include "geometry/resample_filters.h"

namespace kivgeom {
namespace {

// Most list entries one pass may hold (about 24 GB of weights): larger requests, which only
// absurd shrink factors make, are refused rather than attempted.
constexpr long long kMaxEntries = 2LL << 30;

// Source index j reflected into 0..n-1: -1 reads 1, n reads n - 1. Indices that one
// reflection does not bring inside (tiny sources under wide filters) are clamped.
inline int mirror_index(long long j, long long n) {
    if (j < 0) j = -j;
    if (j >= n) j = 2 * n - j - 1;
    return static_cast<int>(std::clamp<long long>(j, 0, n - 1));
}

// A filter's values by argument. Whole-number scale ratios make the same few arguments recur
// in every list (Lanczos costs two double-double sines a call), and the function depends on
// its argument alone, so a value looked up by the argument's bits is the value it returns.
class FilterMemo {
public:
    explicit FilterMemo(double (*fn)(double)) : fn_(fn), slots_(kSlots) {}
    double operator()(double x) {
        const std::uint64_t bits = std::bit_cast<std::uint64_t>(x);
        Slot& s = slots_[static_cast<std::size_t>((bits * 0x9E3779B97F4A7C15ull) >> (64 - kBits))];
        if (!s.used || s.bits != bits) s = Slot{bits, fn_(x), true};
        return s.value;
    }

private:
    static constexpr int kBits = 10, kSlots = 1 << kBits;
    struct Slot {
        std::uint64_t bits = 0;
        double value = 0.0;
        bool used = false;
    };
    double (*fn_)(double);
    std::vector<Slot> slots_;
};

bool build_contributions(Contributions& c, int n_out, int n_src, double scale, const ResampleFilter& f) {
    double width = f.support, fscale = 1.0;
    if (scale < 1.0) {  // shrinking widens the filter to cover every source pixel
        width = f.support / scale;
        fscale = 1.0 / scale;
    }
    std::vector<long long> left(static_cast<std::size_t>(n_out));
    c.count.assign(static_cast<std::size_t>(n_out), 0);
    long long cap = 0;
    for (int i = 0; i < n_out; ++i) {
        double centre = i / scale;
        double l = centre - width + 0.5, r = centre + width + 0.5;
        if (!(std::fabs(l) < 9e15 && std::fabs(r) < 9e15)) return false;
        long long li = static_cast<long long>(l), ri = static_cast<long long>(r);  // truncation
        left[static_cast<std::size_t>(i)] = li;
        cap = std::max(cap, ri - li);
        c.count[static_cast<std::size_t>(i)] = static_cast<int>(std::clamp<long long>(ri - li, 0, kMaxEntries));
    }
    if (cap > kMaxEntries / std::max(n_out, 1)) return false;
    c.cap = std::max<long long>(cap, 1);
    std::size_t entries = static_cast<std::size_t>(c.cap) * static_cast<std::size_t>(n_out);
    c.index.assign(entries, 0);
    c.weight.assign(entries, 0.0);
    // A tap is a filter value (mostly remembered) and a division: a few pixel steps.
    kivcore::parallel_chunks(0, n_out, kivcore::Work{static_cast<double>(c.cap) * 4}, [&](int i0, int i1) {
        FilterMemo memo(f.fn);
        for (int i = i0; i < i1; ++i) {
            const double centre = i / scale;
            const long long l = left[static_cast<std::size_t>(i)];
            const int n = c.count[static_cast<std::size_t>(i)];
            int* ix = c.index.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(c.cap);
            double* w = c.weight.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(c.cap);
            double sum = 0.0;
            for (int k = 0; k < n; ++k) {
                const long long j = l + k;
                const double v = memo((static_cast<double>(j) - centre + 0.5) / fscale) / fscale;
                ix[k] = mirror_index(j, n_src);
                w[k] = v;
                sum += v;
            }
            // Normalise so flat areas keep their value; a NaN sum also divides (and poisons).
            if (sum != 0.0 && sum != 1.0)
                for (int k = 0; k < n; ++k) w[k] /= sum;
        }
    });
    c.small_sums = true;
    for (int i = 0; i < n_out; ++i) {
        double total = 0.0;
        for (int k = 0, n = c.count[static_cast<std::size_t>(i)]; k < n; ++k) total += std::fabs(c.wt(i)[k]);
        if (!(total * 255.0 < 1073741824.0)) c.small_sums = false;
    }
    return true;
}

}  // namespace

bool resample(kiv& src, int w, int h, int method, bool mapped, kiv& dst) {
    dst.destroy();
    const ResampleFilter* f = resample_filter(method);
    if (!f || !src.m_pixels || src.m_width < 1 || src.m_height < 1) return false;
    if (kivcore::checked_packets(w, h) < 0) return false;
    const int W = src.m_width, H = src.m_height;
    try {
        const double xscale = static_cast<double>(w) / W, yscale = static_cast<double>(h) / H;
        Contributions cx, cy;
        if (!build_contributions(cx, w, W, xscale, *f) || !build_contributions(cy, h, H, yscale, *f)) return false;
        // Shrinking vertically goes first, so the intermediate is the smaller of the two.
        const bool vertical_first = h < H;
        // Both passes write every byte of every pixel (alpha 0), so neither block need come
        // cleared.
        kiv mid;
        if (!kivcore::create_overwritten(&mid, vertical_first ? W : w, vertical_first ? h : H, 24)) return false;
        if (vertical_first)
            vpass(src, mid, cy);
        else
            hpass(src, mid, cx);
        if (!(mapped ? dst.create_width_mapfile(w, h, 24) : kivcore::create_overwritten(&dst, w, h, 24))) return false;
        if (vertical_first)
            hpass(mid, dst, cx);
        else
            vpass(mid, dst, cy);
        return true;
    } catch (const std::bad_alloc&) {
        dst.destroy();
        return false;
    }
}

}  // namespace kivgeom

int kiv::zoom(int w, int h, int method, int mapped) {
    if (!m_pixels || w < 1 || h < 1 || (w == m_width && h == m_height)) return 0;
    if (static_cast<unsigned>(method) >= static_cast<unsigned>(kivgeom::kResampleMethods)) return 0;
    const bool shrink_both = w < m_width && h < m_height;
    kiv result;
    // The result is true colour; a palettized image's map goes with the old buffer.
    if (!kivgeom::resample(*this, w, h, method, mapped != 0, result)) return 0;
    movefrom(&result);
    if (shrink_both) sharpen(nullptr);
    return 1;
}
