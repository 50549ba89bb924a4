// Recursive (Deriche, 4th order) Gaussian blur: blur_gauss_iir and the block filter the
// sharpening members share.
//
// Every line is an independent recursion, so lines are filtered several at a time: each
// lane of the inner loops is one channel of one line and runs exactly the scalar sequence
// of operations, which keeps the result identical to filtering the lines one by one.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "core/kmath.h"
#include "core/parallel.h"
#include "core/simd.h"
#include "core/watch.h"
#include "filter/filter.h"
#include "filter/gauss_iir_simd.h"

namespace kivfilter {

IirCoef iir_coefficients(double s) {
    IirCoef c{};
    const double S = std::sqrt(2.0 * 3.141592653589793) * s;
    const double a0 = 1.6803 / S, a1 = 3.735 / S, c0 = -0.6803 / S, c1 = -0.2598 / S;
    const double b0 = 1.783 / s, b1 = 1.723 / s, w0 = 0.6318 / s, w1 = 1.997 / s;
    const double cw0 = kivcore::kmath::cos(w0), sw0 = kivcore::kmath::sin(w0), cw1 = kivcore::kmath::cos(w1), sw1 = kivcore::kmath::sin(w1);
    c.p[0] = a0 + c0;
    c.p[1] = kivcore::kmath::exp(-b1) * (c1 * sw1 - (c0 + 2 * a0) * cw1) + kivcore::kmath::exp(-b0) * (a1 * sw0 - (2 * c0 + a0) * cw0);
    c.p[2] = 2 * kivcore::kmath::exp(-(b0 + b1)) * ((a0 + c0) * cw1 * cw0 - a1 * cw1 * sw0 - c1 * cw0 * sw1) +
             c0 * kivcore::kmath::exp(-2 * b0) + a0 * kivcore::kmath::exp(-2 * b1);
    c.p[3] = kivcore::kmath::exp(-(b1 + 2 * b0)) * (c1 * sw1 - c0 * cw1) + kivcore::kmath::exp(-(b0 + 2 * b1)) * (a1 * sw0 - a0 * cw0);
    c.p[4] = 0.0;
    c.d[0] = 0.0;
    c.d[1] = -2 * kivcore::kmath::exp(-b1) * cw1 - 2 * kivcore::kmath::exp(-b0) * cw0;
    c.d[2] = 4 * cw1 * cw0 * kivcore::kmath::exp(-(b0 + b1)) + kivcore::kmath::exp(-2 * b1) + kivcore::kmath::exp(-2 * b0);
    c.d[3] = -2 * cw0 * kivcore::kmath::exp(-(b0 + 2 * b1)) - 2 * cw1 * kivcore::kmath::exp(-(b1 + 2 * b0));
    c.d[4] = kivcore::kmath::exp(-2 * (b0 + b1));
    c.m[0] = 0.0;
    for (int k = 1; k <= 4; ++k) c.m[k] = c.p[k] - c.d[k] * c.p[0];
    const double D = 1 + c.d[1] + c.d[2] + c.d[3] + c.d[4];
    const double gp = (c.p[0] + c.p[1] + c.p[2] + c.p[3] + c.p[4]) / D;
    const double gm = (c.m[0] + c.m[1] + c.m[2] + c.m[3] + c.m[4]) / D;
    c.ok = std::isfinite(gp) && std::isfinite(gm);
    for (int k = 0; k <= 4; ++k) {
        // Steady-state weight of a sample before the start (after the end) of the line.
        c.ep[k] = c.p[k] - gp * c.d[k];
        c.em[k] = c.m[k] - gm * c.d[k];
        c.ok = c.ok && std::isfinite(c.p[k]) && std::isfinite(c.d[k]) && std::isfinite(c.m[k]) &&
               std::isfinite(c.ep[k]) && std::isfinite(c.em[k]);
    }
    c.gp = gp;
    c.gm = gm;
    return c;
}

bool iir_sigma_ok(double s) { return s > 0.0 && std::isfinite(s) && iir_coefficients(s).ok; }

namespace {

// A line's output element: bytes truncated (blur_gauss_iir's rule), the 16-bit
// intermediates of the weighted blurs rounded; both clamped, NaN to 0.
inline unsigned char iir_out(double v, const unsigned char*) { return clamp_trunc_byte(v); }
inline std::uint16_t iir_out(double v, const std::uint16_t*) {
    if (!(v >= 0.0)) return 0;
    return static_cast<std::uint16_t>((v > 65535.0 ? 65535.0 : v) + 0.5);
}

// L lanes, n positions, lane-interleaved elements (element i * S + l; S >= L leaves room for
// a whole vector load). The causal pass writes
// yp; the anticausal pass forms each output from yp and its own value. Past inputs (and
// past anticausal outputs) are kept in four-slot rings, slot i & 3 for position i, so the
// only n-long arrays are the bytes in and out and yp: the working set stays in L2.
template <int L, int S, class T>
void iir_lanes(const IirCoef& c, int n, const T* x, double* yp, T* out) {
    double first[L], last[L], xr[4][L], yr[4][L];
    for (int l = 0; l < L; ++l) {
        first[l] = x[l];
        last[l] = x[static_cast<std::size_t>(n - 1) * S + l];
    }
    for (int i = 0; i < n; ++i) {
        const T* xb = x + static_cast<std::size_t>(i) * S;
        double* yi = yp + static_cast<std::size_t>(i) * L;
        double acc[L];
        // d0 = 0 and the position's own output is still 0, so the k = 0 term is p0 * x.
        for (int l = 0; l < L; ++l) acc[l] = c.p[0] * xb[l];
        for (int k = 1; k <= 4; ++k) {
            if (k <= i) {
                const double pk = c.p[k], dk = c.d[k];
                const double* xk = xr[(i - k) & 3];
                const double* yk = yi - static_cast<std::size_t>(k) * L;
                for (int l = 0; l < L; ++l) acc[l] += pk * xk[l] - dk * yk[l];
            } else {
                const double e = c.ep[k];
                for (int l = 0; l < L; ++l) acc[l] += e * first[l];
            }
        }
        double* xs = xr[i & 3];
        for (int l = 0; l < L; ++l) {
            xs[l] = xb[l];
            yi[l] = acc[l];
        }
    }
    for (int i = 0; i < n; ++i) {
        const int j = n - 1 - i;
        const T* xb = x + static_cast<std::size_t>(j) * S;
        double acc[L];
        // m0 = 0 and d0 = 0: the k = 0 term adds nothing.
        for (int l = 0; l < L; ++l) acc[l] = 0.0;
        for (int k = 1; k <= 4; ++k) {
            if (k <= i) {
                const double mk = c.m[k], dk = c.d[k];
                const double* xk = xr[(i - k) & 3];
                const double* yk = yr[(i - k) & 3];
                for (int l = 0; l < L; ++l) acc[l] += mk * xk[l] - dk * yk[l];
            } else {
                const double e = c.em[k];
                for (int l = 0; l < L; ++l) acc[l] += e * last[l];
            }
        }
        const double* pj = yp + static_cast<std::size_t>(j) * L;
        T* oj = out + static_cast<std::size_t>(j) * S;
        double* xs = xr[i & 3];
        double* ys = yr[i & 3];
        for (int l = 0; l < L; ++l) {
            xs[l] = xb[l];
            ys[l] = acc[l];
            oj[l] = iir_out(pj[l] + acc[l], out);
        }
    }
}

// Four lines at a time, three channels each; each position's bytes take a whole vector.
constexpr int kLines = 4;
constexpr int kLanes = 3 * kLines;
constexpr int kStride = 16;

void iir_run(const IirCoef& c, int n, const unsigned char* x, double* yp, unsigned char* out) {
    if (const auto lanes = kivcore::pick(KIV_AVX2_KERNEL(iir_lanes_avx2), KIV_SSE2_KERNEL(iir_lanes_sse2)))
        return lanes(c, n, x, yp, out);
    iir_lanes<kLanes, kStride>(c, n, x, yp, out);
}
void iir_run(const IirCoef& c, int n, const std::uint16_t* x, double* yp, std::uint16_t* out) {
    if (const auto lanes = kivcore::pick(KIV_AVX2_KERNEL(iir_lanes16_avx2), KIV_SSE2_KERNEL(iir_lanes16_sse2)))
        return lanes(c, n, x, yp, out);
    iir_lanes<kLanes, kStride>(c, n, x, yp, out);
}

// Groups filtered together: their 16 neighbouring columns make one 64-byte row segment, so
// the column pass reads and writes whole cache lines.
constexpr int kSweep = 4;

// Rows ahead that the column pass asks the cache for.
constexpr int kAhead = 8;

template <class T>
struct Scratch {
    std::vector<T> x, out;
    std::vector<double> yp;
    explicit Scratch(int n)
        : x(static_cast<std::size_t>(n) * kStride * kSweep),
          out(x.size()),
          yp(static_cast<std::size_t>(n) * kLanes * 2) {}  // two groups for iir_lanes2_avx2
};

// Lines of a kernel run: kLines lines of three channels (pixels), or kLanes lines of one
// (planes of bytes).
template <int Ch>
constexpr int lines_per_run() {
    return kLanes / Ch;
}

// Filters lines [q0, end) (at most kSweep runs of lines) into out. Line q, position i is
// pixel (Ch = 3) or byte (Ch = 1) in(q, i). Lanes past `end` copy the last line; their
// results are dropped. Every input is read before any output is written, so out may be
// the input block itself. Across (columns) the positions run in the outer loop, so each
// row segment is read and written whole; along (rows) each line is read in turn, because
// rows a power-of-two stride apart read side by side would compete for the same cache sets.
template <bool Across, int Ch, class T, class In, class Out>
void iir_sweep(const IirCoef& c, int n, int q0, int end, Scratch<T>& s, In in, Out outp) {
    constexpr int kRun = lines_per_run<Ch>();
    const int used = end - q0, lanes = (used + kRun - 1) / kRun * kRun;
    const std::size_t plane = static_cast<std::size_t>(n) * kStride;
    auto slot = [&](T* base, int g, int i) {
        return base + static_cast<std::size_t>(g / kRun) * plane + static_cast<std::size_t>(i) * kStride +
               Ch * (g % kRun);
    };
    auto get = [&](int g, int i) {
        T* xi = slot(s.x.data(), g, i);
        if constexpr (Ch == 3) {
            const tagRGBA& p = in(q0 + std::min(g, used - 1), i);
            xi[0] = p.r;
            xi[1] = p.g;
            xi[2] = p.b;
        } else {
            xi[0] = in(q0 + std::min(g, used - 1), i);
        }
    };
    auto put = [&](int g, int i) {
        const T* o = slot(s.out.data(), g, i);
        if constexpr (Ch == 3) {
            tagRGBA& p = outp(q0 + g, i);
            p.r = o[0];
            p.g = o[1];
            p.b = o[2];
        } else {
            outp(q0 + g, i) = o[0];
        }
    };
    // Across, a whole run of lines is one stretch of a row: copied as such.
    auto get_run = [&](int g, int i) {
        T* xi = slot(s.x.data(), g, i);
        if constexpr (Ch == 3) {
            const tagRGBA* p = &in(q0 + g, i);
            for (int l = 0; l < kRun; ++l) {
                xi[3 * l] = p[l].r;
                xi[3 * l + 1] = p[l].g;
                xi[3 * l + 2] = p[l].b;
            }
        } else {
            std::memcpy(xi, &in(q0 + g, i), kRun * sizeof(T));
        }
    };
    auto put_run = [&](int g, int i) {
        const T* o = slot(s.out.data(), g, i);
        if constexpr (Ch == 3) {
            tagRGBA* p = &outp(q0 + g, i);
            for (int l = 0; l < kRun; ++l) {
                p[l].r = o[3 * l];
                p[l].g = o[3 * l + 1];
                p[l].b = o[3 * l + 2];
            }
        } else {
            std::memcpy(&outp(q0 + g, i), o, kRun * sizeof(T));
        }
    };
    const int whole = used / kRun * kRun;  // lines in whole runs
    // Moves count lines into or out of the scratch: across, position by position with whole
    // runs at a time, each row segment asked for ahead (it lies on its own page, out of the
    // hardware prefetcher's reach); along, line by line.
    auto move = [&](int count, auto at, auto one, auto run) {
        if constexpr (Across) {
            for (int i = 0; i < n; ++i) {
                if (i + kAhead < n) kivcore::prefetch(at(i + kAhead));
                for (int g = 0; g < whole; g += kRun) run(g, i);
                for (int g = whole; g < count; ++g) one(g, i);
            }
        } else {
            for (int g = 0; g < count; ++g)
                for (int i = 0; i < n; ++i) one(g, i);
        }
    };
    move(
        lanes, [&](int i) { return &in(q0, i); }, get, get_run);
    const int groups = lanes / kRun;
    // Two groups at once for bytes (the 16-bit lines have only the one-group kernels).
    const auto lanes2 =
        std::is_same_v<T, unsigned char> ? kivcore::pick_avx2(KIV_AVX2_KERNEL(iir_lanes2_avx2)) : nullptr;
    for (int g = 0; g < groups; ++g) {
        if (g + 1 < groups && lanes2) {
            lanes2(c, n, reinterpret_cast<const unsigned char*>(s.x.data() + static_cast<std::size_t>(g) * plane),
                   static_cast<long long>(plane), s.yp.data(),
                   reinterpret_cast<unsigned char*>(s.out.data() + static_cast<std::size_t>(g) * plane));
            ++g;
            continue;
        }
        iir_run(c, n, s.x.data() + static_cast<std::size_t>(g) * plane, s.yp.data(), s.out.data() + static_cast<std::size_t>(g) * plane);
    }
    move(
        used, [&](int i) { return &outp(q0, i); }, put, put_run);
}

// Runs `lines` lines in batches, parallel within a batch, and reports each finished batch.
template <bool Across, int Ch, class T = unsigned char, class In, class Out>
void iir_pass(const IirCoef& c, int n, int lines, In in, Out out, LineProgress* progress) {
    constexpr int kSpan = lines_per_run<Ch>() * kSweep;
    ScratchPool<Scratch<T>> pool;
    for (int b0 = 0; b0 < lines; b0 += kProgressBatch) {
        const int b1 = std::min(lines, b0 + kProgressBatch);
        const kivcore::Part part(static_cast<double>(b0) / lines, static_cast<double>(b1) / lines);
        const int sweeps = (b1 - b0 + kSpan - 1) / kSpan;
        // Both directions of a fourth-order recursion a sample: several pixel steps each.
        kivcore::parallel_chunks(0, sweeps, kivcore::row_work(static_cast<long long>(kSpan) * n, 6), [&](int gb, int ge) {
            std::unique_ptr<Scratch<T>> s = pool.take([&] { return std::make_unique<Scratch<T>>(n); });
            for (int g = gb; g < ge; ++g) {
                const int q0 = b0 + g * kSpan;
                // A sweep may not reach past this batch's last line.
                iir_sweep<Across, Ch, T>(c, n, q0, std::min(b1, q0 + kSpan), *s, in, out);
            }
            pool.give(std::move(s));
        });
        if (progress) progress->done(b1 - b0);
    }
}

}  // namespace

bool iir_blur_block(const tagRGBA* src, std::ptrdiff_t src_stride, tagRGBA* dst, std::ptrdiff_t dst_stride,
                    int w, int h, double sx, double sy, LineProgress* progress) {
    if (w < 1 || h < 1 || !(sx > 0.0) || !(sy > 0.0)) return false;
    const IirCoef cy = iir_coefficients(sy);
    const IirCoef cx = sx == sy ? cy : iir_coefficients(sx);
    if (!cy.ok || !cx.ok) return false;
    // Columns of src into dst, then rows of dst in place. A sweep reads all of its lines
    // before it writes them and sweeps own disjoint lines, so dst may be src itself.
    kivcore::Stages stages({1, 1});
    iir_pass<true, 3>(
        cy, h, w,
        [&](int q, int i) -> const tagRGBA& { return src[static_cast<std::ptrdiff_t>(i) * src_stride + q]; },
        [&](int q, int i) -> tagRGBA& { return dst[static_cast<std::ptrdiff_t>(i) * dst_stride + q]; },
        progress);
    stages.next();
    iir_pass<false, 3>(
        cx, w, h,
        [&](int q, int i) -> const tagRGBA& { return dst[static_cast<std::ptrdiff_t>(q) * dst_stride + i]; },
        [&](int q, int i) -> tagRGBA& { return dst[static_cast<std::ptrdiff_t>(q) * dst_stride + i]; },
        progress);
    return true;
}

bool iir_blur_plane(const unsigned char* src, std::ptrdiff_t src_stride, unsigned char* dst, std::ptrdiff_t dst_stride,
                    int w, int h, double sx, double sy, LineProgress* progress) {
    if (w < 1 || h < 1 || !(sx > 0.0) || !(sy > 0.0)) return false;
    const IirCoef cy = iir_coefficients(sy);
    const IirCoef cx = sx == sy ? cy : iir_coefficients(sx);
    if (!cy.ok || !cx.ok) return false;
    kivcore::Stages stages({1, 1});
    iir_pass<true, 1>(
        cy, h, w,
        [&](int q, int i) -> const unsigned char& { return src[static_cast<std::ptrdiff_t>(i) * src_stride + q]; },
        [&](int q, int i) -> unsigned char& { return dst[static_cast<std::ptrdiff_t>(i) * dst_stride + q]; },
        progress);
    stages.next();
    iir_pass<false, 1>(
        cx, w, h,
        [&](int q, int i) -> const unsigned char& { return dst[static_cast<std::ptrdiff_t>(q) * dst_stride + i]; },
        [&](int q, int i) -> unsigned char& { return dst[static_cast<std::ptrdiff_t>(q) * dst_stride + i]; },
        progress);
    return true;
}

bool iir_blur_plane16(std::uint16_t* p, std::ptrdiff_t stride, int w, int h, double sx, double sy) {
    if (w < 1 || h < 1 || !(sx > 0.0) || !(sy > 0.0)) return false;
    const IirCoef cy = iir_coefficients(sy);
    const IirCoef cx = sx == sy ? cy : iir_coefficients(sx);
    if (!cy.ok || !cx.ok) return false;
    auto at = [&](std::ptrdiff_t row, std::ptrdiff_t col) -> std::uint16_t& { return p[row * stride + col]; };
    kivcore::Stages stages({1, 1});
    iir_pass<true, 1, std::uint16_t>(
        cy, h, w, [&](int q, int i) -> const std::uint16_t& { return at(i, q); },
        [&](int q, int i) -> std::uint16_t& { return at(i, q); }, nullptr);
    stages.next();
    iir_pass<false, 1, std::uint16_t>(
        cx, w, h, [&](int q, int i) -> const std::uint16_t& { return at(q, i); },
        [&](int q, int i) -> std::uint16_t& { return at(q, i); }, nullptr);
    return true;
}

}  // namespace kivfilter

int kiv::blur_gauss_iir(tagRECT* rect, double sx, double sy) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kivfilter;
        Area a;
        if (!clip_rect(*this, rect, &a)) return 0;
        if (!iir_sigma_ok(sx) || !iir_sigma_ok(sy)) return 0;
        raise_depth_24(*this);
        LineProgress progress(this, static_cast<long long>(a.w()) + a.h());
        tagRGBA* base = row_ptr(*this, a.top) + a.left;
        iir_blur_block(base, m_width, base, m_width, a.w(), a.h(), sx, sy, &progress);
        progress.term();
        return 1;
    });
}
