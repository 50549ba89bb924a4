// The 3x3 filters: filter_3x3 (fifteen built-in modes), filter_custom3x3, filter_sharpen,
// filter_soften.
//
// Each mode is its own kernel function over channel-planar rows, picked once per call, so
// the weights are constants and the inner loops vectorise.
#include <algorithm>
#include <cstdint>

#include "filter/filter.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

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

inline int clamp255(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

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

inline int adaptive_sharpen(const Nb& n, int i) {
    const int O = n(4, i), Sh = sharp3(n, i), d = O > Sh ? O - Sh : Sh - O;
    if (d <= 7) return O;
    if (d == 8) return clamp255(((Sh + 4 * O) * 2) / 10);
    if (d == 9) return clamp255((4 * Sh + 6 * O) / 10);
    if (d == 10) return clamp255((6 * Sh + 4 * O) / 10);
    if (d == 11) return clamp255(((O + 4 * Sh) * 2) / 10);
    return Sh;
}

inline int adaptive_smooth(const Nb& n, int i) {
    const int O = n(4, i), Sh = sharp3(n, i), Bl = soft4(n, i), d = O > Sh ? O - Sh : Sh - O;
    if (d <= 4) return Bl;
    if (d == 5) return clamp255(((O + 4 * Bl) * 2) / 10);
    if (d == 6) return clamp255((6 * Bl + 4 * O) / 10);
    if (d == 7) return clamp255((4 * Bl + 6 * O) / 10);
    if (d == 8) return clamp255(((Bl + 4 * O) * 2) / 10);
    return O;
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

#if KIV_HAVE_SSE2
// Modes 1 (median), 7 (maximum) and 8 (minimum) are order statistics of bytes: sixteen
// pixels at once with byte-wise min and max, the same exchanges as the scalar code.
template <unsigned Mode>
int order_stat_sse2(const Nb& n, int w, unsigned char* o) {
    int i = 0;
    for (; i + 16 <= w; i += 16) {
        __m128i p[9];
        for (int k = 0; k < 9; ++k) {
            const unsigned char* r = k < 3 ? n.t : (k < 6 ? n.m : n.b);
            p[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + i + k % 3));
        }
        __m128i v;
        if constexpr (Mode == 1) {
            auto s = [&](int x, int y) {
                const __m128i lo = _mm_min_epu8(p[x], p[y]);
                p[y] = _mm_max_epu8(p[x], p[y]);
                p[x] = lo;
            };
            s(1, 2); s(4, 5); s(7, 8); s(0, 1); s(3, 4); s(6, 7); s(1, 2); s(4, 5); s(7, 8);
            s(0, 3); s(5, 8); s(4, 7); s(3, 6); s(1, 4); s(2, 5); s(4, 7); s(4, 2); s(6, 4); s(4, 2);
            v = p[4];
        } else {
            v = p[0];
            for (int k = 1; k < 9; ++k) v = Mode == 7 ? _mm_max_epu8(v, p[k]) : _mm_min_epu8(v, p[k]);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o + i), v);
    }
    return i;
}
#endif

template <unsigned Mode>
void run_mode(kiv* img, const kivfilter::Area& a) {
    kivfilter::run_3x3(img, a, [](const Rows3& r, int w, unsigned char* const* out) {
        for (int c = 0; c < 3; ++c) {
            const Nb n{r.row[0][c], r.row[1][c], r.row[2][c]};
            unsigned char* o = out[c];
            int i = 0;
#if KIV_HAVE_SSE2
            if constexpr (Mode == 1 || Mode == 7 || Mode == 8)
                if (!kivfilter::force_scalar()) i = order_stat_sse2<Mode>(n, w, o);
#endif
            for (; i < w; ++i) o[i] = static_cast<unsigned char>(mode_value<Mode>(n, i));
        }
    });
}

}  // namespace

int kiv::filter_3x3(tagRECT* rect, unsigned mode) {
    using namespace kivfilter;
    Area a;
    if (!normalise(this, rect, &a)) return 0;
    set_depth_24(this);  // also for a refused mode
    switch (mode) {
        case 0: run_mode<0>(this, a); break;
        case 1: run_mode<1>(this, a); break;
        case 3: run_mode<3>(this, a); break;
        case 4: run_mode<4>(this, a); break;
        case 5: run_mode<5>(this, a); break;
        case 6: run_mode<6>(this, a); break;
        case 7: run_mode<7>(this, a); break;
        case 8: run_mode<8>(this, a); break;
        case 9: run_mode<9>(this, a); break;
        case 10: run_mode<10>(this, a); break;
        case 11: run_mode<11>(this, a); break;
        case 12: run_mode<12>(this, a); break;
        case 13: run_mode<13>(this, a); break;
        case 14: run_mode<14>(this, a); break;
        case 15: run_mode<15>(this, a); break;
        default: return 0;
    }
    return 1;
}

int kiv::filter_custom3x3(tagRECT* rect, int* kernel, int divisor) {
    using namespace kivfilter;
    Area a;
    if (!kernel || !normalise(this, rect, &a)) return 0;
    set_depth_24(this);
    std::uint32_t k[9];
    for (int i = 0; i < 9; ++i) k[i] = static_cast<std::uint32_t>(kernel[i]);
    const long long div = divisor == 0 ? 1 : divisor;
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
