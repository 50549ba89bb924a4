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
#include "core/watch.h"
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

// Both passes' lists for src to w x h; false when the method has no filter, a size is out
// of range or the lists cannot be built.
bool both_lists(kiv& src, int w, int h, int method, Contributions& cx, Contributions& cy) {
    const ResampleFilter* f = resample_filter(method);
    if (!f || !src.m_pixels || src.m_width < 1 || src.m_height < 1) return false;
    if (kivcore::checked_packets(w, h) < 0) return false;
    const int W = src.m_width, H = src.m_height;
    const double xscale = static_cast<double>(w) / W, yscale = static_cast<double>(h) / H;
    return build_contributions(cx, w, W, xscale, *f) && build_contributions(cy, h, H, yscale, *f);
}

// The parts of a watched call's progress: the lists, then each pass by its products (output
// pixels times taps, the taps estimated from the filter's support).
struct Shares {
    double lists, first, second;
};
Shares shares(const kiv& src, int w, int h, int method) {
    const ResampleFilter* f = resample_filter(method);
    const double S = f ? f->support : 1.0, W = src.m_width, H = src.m_height;
    const double tx = 2 * S * std::max(1.0, W / w) + 1, ty = 2 * S * std::max(1.0, H / h) + 1;
    const double vfirst = W * h * ty + static_cast<double>(w) * h * tx,
                 hfirst = w * H * tx + static_cast<double>(w) * h * ty;
    const bool vertical_first = h < H;
    const double first = vertical_first ? W * h * ty : w * H * tx;
    return Shares{0.02 * (vertical_first ? vfirst : hfirst), first, (vertical_first ? vfirst : hfirst) - first};
}

}  // namespace

bool resample(kiv& src, int w, int h, int method, bool mapped, kiv& dst) {
    dst.destroy();
    const int W = src.m_width, H = src.m_height;
    try {
        const Shares sh = shares(src, w, h, method);
        kivcore::Stages stages({sh.lists, sh.first, sh.second});
        Contributions cx, cy;
        if (!both_lists(src, w, h, method, cx, cy)) return false;
        stages.next();
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
        stages.next();
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

bool resample_wide(kiv& src, int w, int h, int method, const kivcore::WideFormat& f, kiv& dst) {
    dst.destroy();
    const int W = src.m_width, H = src.m_height;
    try {
        const Shares sh = shares(src, w, h, method);
        kivcore::Stages stages({sh.lists, sh.first, sh.second});
        Contributions cx, cy;
        if (!both_lists(src, w, h, method, cx, cy)) return false;
        stages.next();
        const bool vertical_first = h < H;
        const int mw = vertical_first ? W : w, mh = vertical_first ? h : H;
        // Four words a pixel, each written before it is read.
        const kivcore::UnzeroedBlock mid(static_cast<std::size_t>(mw) * static_cast<std::size_t>(mh) * 8);
        const WideImage in{src.m_pixels, nullptr, W, H}, between{nullptr, mid.as<std::uint16_t>(), mw, mh};
        if (vertical_first)
            vpass_wide(in, between, cy, f);
        else
            hpass_wide(in, between, cx, f);
        if (!kivcore::create_overwritten(&dst, w, h, f.alpha_out ? 32 : 24)) return false;
        const WideImage out{dst.m_pixels, nullptr, w, h};
        stages.next();
        if (vertical_first)
            hpass_wide(between, out, cx, f);
        else
            vpass_wide(between, out, cy, f);
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
    return kivcore::watched(*this, kivcore::Keep::kAside, [&] {
        kivcore::Stages stages({8, 1});
        if (!kivgeom::resample(*this, w, h, method, mapped != 0, result)) return 0;
        stages.next();
        // Sharpened before it is taken over, so a cancel leaves this image untouched.
        if (shrink_both) result.sharpen(nullptr);
        movefrom(&result);
        return 1;
    });
}

int kiv::zoom_rgba(int w, int h, int method, int flags) {
    if (!m_pixels || w < 1 || h < 1 || (w == m_width && h == m_height)) return 0;
    if (static_cast<unsigned>(method) >= static_cast<unsigned>(kivgeom::kResampleMethods)) return 0;
    if ((flags & ~kivcore::kWideFlags) || ((flags & KIV_FILTER_ALPHA) && m_bits < 24)) return 0;
    kiv result;
    return kivcore::watched(*this, kivcore::Keep::kAside, [&] {
        const kivcore::WideFormat f = kivcore::WideFormat::of(flags, (flags & KIV_FILTER_ALPHA) != 0);
        // Weighting by an alpha of 255 changes nothing: the plain passes then give the bytes.
        if (!(flags & KIV_FILTER_LINEAR) && (!f.alpha || kivcore::opaque(*this))) {
            if (!kivgeom::resample(*this, w, h, method, false, result)) return 0;
            if (f.alpha) kivcore::set_alpha(result, 255, 32);
        } else if (!kivgeom::resample_wide(*this, w, h, method, f, result)) {
            return 0;
        }
        movefrom(&result);
        return 1;
    });
}
