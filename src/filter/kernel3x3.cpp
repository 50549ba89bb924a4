// The 3x3 filters: filter_3x3 (fifteen built-in modes), filter_custom3x3, filter_sharpen,
// filter_soften.
//
// Each mode is its own kernel, picked once per call, so the weights are constants. The
// vector kernels (kernel3x3_simd.h) filter the 4-byte pixels as they lie; the portable code
// runs over channel-planar rows.
#include <algorithm>
#include <cstdint>

#include "core/simd.h"
#include "core/watch.h"
#include "filter/filter.h"
#include "filter/kernel3x3_simd.h"

namespace {

using kivfilter::Rows3;

// Neighbour k (row-major, top-left first) of pixel i in channel c.
struct Nb {
    const unsigned char* t;
    const unsigned char* m;
    const unsigned char* b;
    int operator()(int k, int i) const {
        const unsigned char* r = k < 3 ? t : (k < 6 ? m : b);
        return r[i + k % 3];
    }
};

using kivcore::clamp255;

template <int K0, int K1, int K2, int K3, int K4, int K5, int K6, int K7, int K8>
inline int wsum(const Nb& n, int i) {
    return K0 * n(0, i) + K1 * n(1, i) + K2 * n(2, i) + K3 * n(3, i) + K4 * n(4, i) + K5 * n(5, i) +
           K6 * n(6, i) + K7 * n(7, i) + K8 * n(8, i);
}

inline int sharp3(const Nb& n, int i) { return clamp255(wsum<-1, -1, -1, -1, 18, -1, -1, -1, -1>(n, i) / 10); }
inline int soft4(const Nb& n, int i) { return clamp255(wsum<8, 12, 8, 12, 20, 12, 8, 12, 8>(n, i) / 100); }

// Median of nine by the 19-exchange network: exactly the fifth smallest.
inline int median9(const Nb& n, int i) {
    int p[9];
    for (int k = 0; k < 9; ++k) p[k] = n(k, i);
    auto s = [&](int x, int y) {
        const int lo = std::min(p[x], p[y]), hi = std::max(p[x], p[y]);
        p[x] = lo;
        p[y] = hi;
    };
    s(1, 2); s(4, 5); s(7, 8); s(0, 1); s(3, 4); s(6, 7); s(1, 2); s(4, 5); s(7, 8);
    s(0, 3); s(5, 8); s(4, 7); s(3, 6); s(1, 4); s(2, 5); s(4, 7); s(4, 2); s(6, 4); s(4, 2);
    return p[4];
}

// The adaptive modes' step from a toward b by the difference d of centre and sharpened value:
// a up to `from`, then four mixes in tenths, then b.
inline int step_toward(int a, int b, int d, int from) {
    if (d <= from) return a;
    if (d == from + 1) return clamp255(((b + 4 * a) * 2) / 10);
    if (d == from + 2) return clamp255((4 * b + 6 * a) / 10);
    if (d == from + 3) return clamp255((6 * b + 4 * a) / 10);
    if (d == from + 4) return clamp255(((a + 4 * b) * 2) / 10);
    return b;
}

// Mode 14 steps from the centre toward the sharpened value, mode 15 from the soft value toward
// the centre.
inline int adaptive_sharpen(const Nb& n, int i) {
    const int O = n(4, i), Sh = sharp3(n, i);
    return step_toward(O, Sh, O > Sh ? O - Sh : Sh - O, 7);
}

inline int adaptive_smooth(const Nb& n, int i) {
    const int O = n(4, i), Sh = sharp3(n, i);
    return step_toward(soft4(n, i), O, O > Sh ? O - Sh : Sh - O, 4);
}

template <unsigned Mode>
inline int mode_value(const Nb& n, int i) {
    if constexpr (Mode == 0) return wsum<1, 1, 1, 1, 1, 1, 1, 1, 1>(n, i) / 9;
    if constexpr (Mode == 1) return median9(n, i);
    if constexpr (Mode == 3) return sharp3(n, i);
    if constexpr (Mode == 4) return soft4(n, i);
    if constexpr (Mode == 5) return (n(8, i) - n(0, i) + 128) & 255;  // wraps, no clamp
    if constexpr (Mode == 6) return clamp255(wsum<-1, -1, -1, -1, 13, -1, -1, -1, -1>(n, i) / 5);
    if constexpr (Mode == 7) {
        int m = n(0, i);
        for (int k = 1; k < 9; ++k) m = std::max(m, n(k, i));
        return m;
    }
    if constexpr (Mode == 8) {
        int m = n(0, i);
        for (int k = 1; k < 9; ++k) m = std::min(m, n(k, i));
        return m;
    }
    if constexpr (Mode == 9) return clamp255(wsum<0, -1, 0, -1, 5, -1, 0, -1, 0>(n, i));
    if constexpr (Mode == 10) return clamp255(wsum<-1, -1, -1, -1, 9, -1, -1, -1, -1>(n, i));
    if constexpr (Mode == 11) return clamp255(wsum<1, 1, 1, 1, -8, 1, 1, 1, 1>(n, i));
    if constexpr (Mode == 12) return clamp255(wsum<1, 0, -1, 2, 0, -2, 1, 0, -1>(n, i));
    if constexpr (Mode == 13) return clamp255(wsum<1, 2, 1, 0, 0, 0, -1, -2, -1>(n, i));
    if constexpr (Mode == 14) return adaptive_sharpen(n, i);
    if constexpr (Mode == 15) return adaptive_smooth(n, i);
    return 0;
}

// One pixel of a mode from 4-byte pixel rows, its neighbours taken from columns xl, x and xr.
template <unsigned Mode>
tagRGBA mode_pixel(const tagRGBA* const* rows, int xl, int x, int xr) {
    tagRGBA o = rows[1][x];
    for (int c = 0; c < 3; ++c) {
        unsigned char p[3][3];
        for (int r = 0; r < 3; ++r) {
            p[r][0] = reinterpret_cast<const unsigned char*>(rows[r] + xl)[c];
            p[r][1] = reinterpret_cast<const unsigned char*>(rows[r] + x)[c];
            p[r][2] = reinterpret_cast<const unsigned char*>(rows[r] + xr)[c];
        }
        reinterpret_cast<unsigned char*>(&o)[c] = static_cast<unsigned char>(mode_value<Mode>(Nb{p[0], p[1], p[2]}, 0));
    }
    return o;
}

// One pixel of a Weighted3x3 from columns xl, x and xr: the vector lanes' arithmetic.
tagRGBA weighted_pixel(const tagRGBA* const* rows, int xl, int x, int xr, const kivfilter::Weighted3x3& k) {
    tagRGBA o = rows[1][x];
    const int col[3] = {xl, x, xr};
    for (int c = 0; c < 3; ++c) {
        int S = 0;
        for (int q = 0; q < 9; ++q) S += k.w[q] * reinterpret_cast<const unsigned char*>(rows[q / 3] + col[q % 3])[c];
        const int v = static_cast<int>(static_cast<float>(S) * k.mul / k.div) +
                      (k.add_centre ? reinterpret_cast<const unsigned char*>(rows[1] + x)[c] : 0);
        reinterpret_cast<unsigned char*>(&o)[c] = static_cast<unsigned char>(clamp255(v));
    }
    return o;
}

template <unsigned Mode>
void run_mode(kiv* img, const kivfilter::Area& a) {
    if (const auto row =
            kivcore::pick(KIV_AVX2_KERNEL(kivfilter::k3_row_avx2), KIV_SSE2_KERNEL(kivfilter::k3_row_sse2))) {
        kivfilter::run_inside_3x3(
            img, a,
            [row](const tagRGBA* const* rows, int x0, int x1, tagRGBA* out) {
                return row(Mode, kivfilter::bytes(rows), x0, x1, kivfilter::bytes(out));
            },
            mode_pixel<Mode>);
        return;
    }
    kivfilter::run_3x3(img, a, [](const Rows3& r, int w, unsigned char* const* out) {
        for (int c = 0; c < 3; ++c) {
            const Nb n{r.row[0][c], r.row[1][c], r.row[2][c]};
            unsigned char* o = out[c];
            for (int i = 0; i < w; ++i) o[i] = static_cast<unsigned char>(mode_value<Mode>(n, i));
        }
    });
}

}  // namespace

bool kivfilter::weighted_3x3(kiv* img, const Area& a, const Weighted3x3& k) {
    const auto row = kivcore::pick(KIV_AVX2_KERNEL(weighted_row_avx2), KIV_SSE2_KERNEL(weighted_row_sse2));
    if (!row) return false;
    run_inside_3x3(
        img, a,
        [&](const tagRGBA* const* rows, int x0, int x1, tagRGBA* out) {
            return row(bytes(rows), x0, x1, k, bytes(out));
        },
        [&](const tagRGBA* const* rows, int xl, int x, int xr) { return weighted_pixel(rows, xl, x, xr, k); });
    return true;
}

int kiv::filter_3x3(tagRECT* rect, unsigned mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kivfilter;
        Area a;
        if (!clip_rect(*this, rect, &a)) return 0;
        set_depth_24(this);  // also for a refused mode
        switch (mode) {
            case 0:
                run_mode<0>(this, a);
                break;
            case 1:
                run_mode<1>(this, a);
                break;
            case 3:
                run_mode<3>(this, a);
                break;
            case 4:
                run_mode<4>(this, a);
                break;
            case 5:
                run_mode<5>(this, a);
                break;
            case 6:
                run_mode<6>(this, a);
                break;
            case 7:
                run_mode<7>(this, a);
                break;
            case 8:
                run_mode<8>(this, a);
                break;
            case 9:
                run_mode<9>(this, a);
                break;
            case 10:
                run_mode<10>(this, a);
                break;
            case 11:
                run_mode<11>(this, a);
                break;
            case 12:
                run_mode<12>(this, a);
                break;
            case 13:
                run_mode<13>(this, a);
                break;
            case 14:
                run_mode<14>(this, a);
                break;
            case 15:
                run_mode<15>(this, a);
                break;
            default:
                return 0;
        }
        return 1;
    });
}

int kiv::filter_custom3x3(tagRECT* rect, int* kernel, int divisor) {
    using namespace kivfilter;
    Area a;
    if (!kernel || !clip_rect(*this, rect, &a)) return 0;
    set_depth_24(this);
    std::uint32_t k[9];
    for (int i = 0; i < 9; ++i) k[i] = static_cast<std::uint32_t>(kernel[i]);
    const long long div = divisor == 0 ? 1 : divisor;
    // The vector kernels take kernels whose sums stay below 2^24 in magnitude: then no sum
    // wraps, and a divisor of 2^24 or more gives 0 everywhere, as zero weights over 1 do. A
    // negative divisor divides the negated sum by its magnitude.
    long long pos = 0, neg = 0;
    bool small = true;
    for (int i = 0; i < 9; ++i) {
        small = small && kernel[i] >= -32767 && kernel[i] <= 32767;
        (kernel[i] > 0 ? pos : neg) += kernel[i] > 0 ? kernel[i] : -static_cast<long long>(kernel[i]);
    }
    if (small && 255 * std::max(pos, neg) < (1 << 24)) {
        const long long mag = div < 0 ? -div : div;
        const bool zero = mag >= (1 << 24);
        Weighted3x3 wk{};
        for (int i = 0; i < 9; ++i) wk.w[i] = static_cast<short>(zero ? 0 : (div < 0 ? -kernel[i] : kernel[i]));
        wk.add_centre = 0;
        wk.mul = 1.0f;
        wk.div = zero ? 1.0f : static_cast<float>(mag);
        if (weighted_3x3(this, a, wk)) return 1;
    }
    run_3x3(this, a, [&](const Rows3& r, int w, unsigned char* const* out) {
        for (int c = 0; c < 3; ++c) {
            const Nb n{r.row[0][c], r.row[1][c], r.row[2][c]};
            for (int i = 0; i < w; ++i) {
                // The sum wraps in 32 bits like the signed sum it stands for.
                std::uint32_t s = 0;
                for (int q = 0; q < 9; ++q) s += k[q] * static_cast<std::uint32_t>(n(q, i));
                const long long v = static_cast<long long>(static_cast<std::int32_t>(s)) / div;
                out[c][i] = static_cast<unsigned char>(v < 0 ? 0 : (v > 255 ? 255 : v));
            }
        }
    });
    return 1;
}

int kiv::filter_sharpen(tagRECT* rect, int strength) {
    const int s = strength >= 1 && strength <= 40 ? strength : 10;
    int k[9] = {-1, -1, -1, -1, s + 8, -1, -1, -1, -1};
    return filter_custom3x3(rect, k, s);
}

int kiv::filter_soften(tagRECT* rect, int strength) {
    const int s = strength >= 1 && strength <= 40 ? strength : 10;
    int k[9] = {1, 1, 1, 1, s, 1, 1, 1, 1};
    return filter_custom3x3(rect, k, s + 8);
}
