// Recursive (Deriche, 4th order) Gaussian blur: blur_gauss_iir and the block filter the
// sharpening members share.
//
// Every line is an independent recursion, so lines are filtered several at a time: each
// lane of the inner loops is one channel of one line and runs exactly the scalar sequence
// of operations, which keeps the result identical to filtering the lines one by one.
#include <cmath>
#include <algorithm>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "core/kmath.h"
#include "filter/gauss_iir.h"

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

// L lanes, n positions, lane-interleaved (element i * L + l). Causal pass into yp, then the
// anticausal pass into ym, each output formed from both.
template <int L>
void iir_lanes(const IirCoef& c, int n, const double* x, double* yp, double* ym, unsigned char* out) {
    const double* first = x;
    const double* last = x + static_cast<std::size_t>(n - 1) * L;
    for (int i = 0; i < n; ++i) {
        const double* xi = x + static_cast<std::size_t>(i) * L;
        double* yi = yp + static_cast<std::size_t>(i) * L;
        double acc[L];
        // d0 = 0 and the position's own output is still 0, so the k = 0 term is p0 * x.
        for (int l = 0; l < L; ++l) acc[l] = c.p[0] * xi[l];
        if (i >= 4) {
            for (int k = 1; k <= 4; ++k) {
                const double pk = c.p[k], dk = c.d[k];
                const double* xk = xi - static_cast<std::size_t>(k) * L;
                const double* yk = yi - static_cast<std::size_t>(k) * L;
                for (int l = 0; l < L; ++l) acc[l] += pk * xk[l] - dk * yk[l];
            }
        } else {
            for (int k = 1; k <= 4; ++k) {
                if (k <= i) {
                    const double pk = c.p[k], dk = c.d[k];
                    const double* xk = xi - static_cast<std::size_t>(k) * L;
                    const double* yk = yi - static_cast<std::size_t>(k) * L;
                    for (int l = 0; l < L; ++l) acc[l] += pk * xk[l] - dk * yk[l];
                } else {
                    const double e = c.ep[k];
                    for (int l = 0; l < L; ++l) acc[l] += e * first[l];
                }
            }
        }
        for (int l = 0; l < L; ++l) yi[l] = acc[l];
    }
    for (int i = 0; i < n; ++i) {
        const int j = n - 1 - i;
        const double* xj = x + static_cast<std::size_t>(j) * L;
        double* yj = ym + static_cast<std::size_t>(j) * L;
        double acc[L];
        // m0 = 0 and d0 = 0: the k = 0 term adds nothing.
        for (int l = 0; l < L; ++l) acc[l] = 0.0;
        if (i >= 4) {
            for (int k = 1; k <= 4; ++k) {
                const double mk = c.m[k], dk = c.d[k];
                const double* xk = xj + static_cast<std::size_t>(k) * L;
                const double* yk = yj + static_cast<std::size_t>(k) * L;
                for (int l = 0; l < L; ++l) acc[l] += mk * xk[l] - dk * yk[l];
            }
        } else {
            for (int k = 1; k <= 4; ++k) {
                if (k <= i) {
                    const double mk = c.m[k], dk = c.d[k];
                    const double* xk = xj + static_cast<std::size_t>(k) * L;
                    const double* yk = yj + static_cast<std::size_t>(k) * L;
                    for (int l = 0; l < L; ++l) acc[l] += mk * xk[l] - dk * yk[l];
                } else {
                    const double e = c.em[k];
                    for (int l = 0; l < L; ++l) acc[l] += e * last[l];
                }
            }
        }
        const double* pj = yp + static_cast<std::size_t>(j) * L;
        unsigned char* oj = out + static_cast<std::size_t>(j) * L;
        for (int l = 0; l < L; ++l) {
            yj[l] = acc[l];
            oj[l] = clamp_trunc_byte(pj[l] + acc[l]);
        }
    }
}

// Four lines at a time, three channels each.
constexpr int kLines = 4;
constexpr int kLanes = 3 * kLines;

struct Scratch {
    std::vector<double> x, yp, ym;
    std::vector<unsigned char> out;
    explicit Scratch(int n)
        : x(static_cast<std::size_t>(n) * kLanes), yp(x.size()), ym(x.size()), out(x.size()) {}
};

// Filters lines [b, e) of a block. Line q, position i is pixel at(q, i). Lines beyond the
// last fill their lanes with a copy of the last line; their results are dropped.
template <class In, class Out>
void iir_group(const IirCoef& c, int n, int lines, int q0, Scratch& s, In in, Out outp) {
    for (int g = 0; g < kLines; ++g) {
        const int q = std::min(q0 + g, lines - 1);
        for (int i = 0; i < n; ++i) {
            const tagRGBA& p = in(q, i);
            double* xi = s.x.data() + static_cast<std::size_t>(i) * kLanes + 3 * g;
            xi[0] = p.r;
            xi[1] = p.g;
            xi[2] = p.b;
        }
    }
    iir_lanes<kLanes>(c, n, s.x.data(), s.yp.data(), s.ym.data(), s.out.data());
    for (int g = 0; g < kLines && q0 + g < lines; ++g)
        for (int i = 0; i < n; ++i) {
            tagRGBA& p = outp(q0 + g, i);
            const unsigned char* o = s.out.data() + static_cast<std::size_t>(i) * kLanes + 3 * g;
            p.r = o[0];
            p.g = o[1];
            p.b = o[2];
        }
}

// Runs `lines` lines in batches, parallel within a batch, and reports each finished batch.
template <class In, class Out>
void iir_pass(const IirCoef& c, int n, int lines, In in, Out out, LineProgress* progress) {
    for (int b0 = 0; b0 < lines; b0 += kProgressBatch) {
        const int b1 = std::min(lines, b0 + kProgressBatch);
        const int groups = (b1 - b0 + kLines - 1) / kLines;
        kivcore::parallel_chunks(0, groups, [&](int gb, int ge) {
            Scratch s(n);
            for (int g = gb; g < ge; ++g) {
                const int q0 = b0 + g * kLines;
                // The group may not reach past this batch's last line.
                const int q_end = std::min(b1, q0 + kLines);
                iir_group(c, n, q_end, q0, s, in, out);
            }
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
    // Columns into tmp, then rows of tmp into dst: dst may alias src.
    std::vector<tagRGBA> tmp(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
    tagRGBA* t = tmp.data();
    const std::size_t tw = static_cast<std::size_t>(w);
    iir_pass(
        cy, h, w,
        [&](int q, int i) -> const tagRGBA& { return src[static_cast<std::ptrdiff_t>(i) * src_stride + q]; },
        [&](int q, int i) -> tagRGBA& { return t[static_cast<std::size_t>(i) * tw + static_cast<std::size_t>(q)]; },
        progress);
    iir_pass(
        cx, w, h,
        [&](int q, int i) -> const tagRGBA& { return t[static_cast<std::size_t>(q) * tw + static_cast<std::size_t>(i)]; },
        [&](int q, int i) -> tagRGBA& { return dst[static_cast<std::ptrdiff_t>(q) * dst_stride + i]; },
        progress);
    return true;
}

}  // namespace kivfilter

int kiv::blur_gauss_iir(tagRECT* rect, double sx, double sy) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    if (!iir_sigma_ok(sx) || !iir_sigma_ok(sy)) return 0;
    raise_depth_24(this);
    LineProgress progress(this, static_cast<long long>(a.w()) + a.h());
    tagRGBA* base = row_ptr(this, a.top) + a.left;
    iir_blur_block(base, m_width, base, m_width, a.w(), a.h(), sx, sy, &progress);
    progress.term();
    return 1;
}
