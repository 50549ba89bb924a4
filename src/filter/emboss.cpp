// Lit relief (emboss) and bevelled frame (raise_edge).
#include <cmath>
#include <algorithm>

#include "filter/filter.h"
#include "filter/kernel3x3_avx2.h"
#include "core/kmath.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

namespace {

using kivfilter::EmbossLight;

// One pixel from columns xl, x and xr of the three rows.
tagRGBA emboss_pixel(const tagRGBA* const* rows, int xl, int x, int xr, const EmbossLight& L) {
    const tagRGBA *r0 = rows[0], *r1 = rows[1], *r2 = rows[2];
    const int TL = r0[xl].r, T = r0[x].r, TR = r0[xr].r, Lf = r1[xl].r, R = r1[xr].r;
    const int BL = r2[xl].r, B = r2[x].r, BR = r2[xr].r;
    const int Nx = (TL + Lf + BL) - (TR + R + BR);
    const int Ny = (BL + B + BR) - (TL + T + TR);
    int shade;
    if (Nx == 0 && Ny == 0) {
        shade = L.flat;
    } else {
        const int d = static_cast<int>(Nx * L.lx + Ny * L.ly + L.nzlz);
        shade = d < 0 ? 0 : static_cast<int>(d / std::sqrt(static_cast<double>(Nx * Nx + Ny * Ny) + L.nz2));
        shade = shade > 255 ? 255 : shade;
    }
    if (L.mono) return tagRGBA{static_cast<BYTE>(shade), static_cast<BYTE>(shade), static_cast<BYTE>(shade), 0};
    // The pixel above lends the colour: a one-row offset that is part of the look.
    const tagRGBA& s = r0[x];
    return tagRGBA{static_cast<BYTE>((s.r * shade) >> 8), static_cast<BYTE>((s.g * shade) >> 8),
                   static_cast<BYTE>((s.b * shade) >> 8), 0};
}

#if KIV_HAVE_SSE2
// Shades of two pixels (the low lanes of nx, ny) in the low two 32-bit lanes: the scalar
// double sequence lane by lane, the square root and division exact in vector form too.
inline __m128i shade2(__m128i nx, __m128i ny, const EmbossLight& L) {
    const __m128d x = _mm_cvtepi32_pd(nx), y = _mm_cvtepi32_pd(ny);
    const __m128d t = _mm_add_pd(_mm_add_pd(_mm_mul_pd(x, _mm_set1_pd(L.lx)), _mm_mul_pd(y, _mm_set1_pd(L.ly))),
                                 _mm_set1_pd(L.nzlz));
    const __m128d d = _mm_cvtepi32_pd(_mm_cvttpd_epi32(t));
    // Nx^2 + Ny^2 + Nz^2 is an integer below 2^22: exact in double whatever the order.
    const __m128d q = _mm_add_pd(_mm_add_pd(_mm_mul_pd(x, x), _mm_mul_pd(y, y)), _mm_set1_pd(L.nz2));
    return _mm_cvttpd_epi32(_mm_div_pd(d, _mm_sqrt_pd(q)));
}

// Pixels x0 .. x1 - 1, four at a time, reading columns x0 - 1 .. x1; x0 when the span is
// under four pixels.
int emboss_row_sse2(const tagRGBA* const* rows, int x0, int x1, const EmbossLight& L, tagRGBA* out) {
    if (x1 - x0 < 4) return x0;
    const __m128i red = _mm_set1_epi32(0xFF), z = _mm_setzero_si128(), rgb = _mm_set1_epi32(0xFFFFFF);
    const __m128i flat = _mm_set1_epi16(static_cast<short>(L.flat));
    auto four = [&](int x) {
        __m128i h[9];
        for (int k = 0; k < 9; ++k)
            if (k != 4)
                h[k] =
                    _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k / 3] + x - 1 + k % 3)), red);
        const __m128i nx = _mm_sub_epi32(_mm_add_epi32(_mm_add_epi32(h[0], h[3]), h[6]),
                                         _mm_add_epi32(_mm_add_epi32(h[2], h[5]), h[8]));
        const __m128i ny = _mm_sub_epi32(_mm_add_epi32(_mm_add_epi32(h[6], h[7]), h[8]),
                                         _mm_add_epi32(_mm_add_epi32(h[0], h[1]), h[2]));
        const __m128i s = _mm_unpacklo_epi64(shade2(nx, ny, L), shade2(_mm_srli_si128(nx, 8), _mm_srli_si128(ny, 8), L));
        // To 16 bits with saturation, then 0 .. 255; the flat shade where Nx = Ny = 0.
        const __m128i is_flat = _mm_cmpeq_epi32(_mm_or_si128(nx, ny), z);
        __m128i s16 = _mm_min_epi16(_mm_max_epi16(_mm_packs_epi32(s, s), z), _mm_set1_epi16(255));
        const __m128i f16 = _mm_packs_epi32(is_flat, is_flat);
        s16 = _mm_or_si128(_mm_and_si128(f16, flat), _mm_andnot_si128(f16, s16));
        const __m128i s32 = _mm_unpacklo_epi16(s16, z);  // shade of pixel i in lane i
        __m128i v;
        if (L.mono) {
            v = _mm_or_si128(_mm_or_si128(s32, _mm_slli_epi32(s32, 8)), _mm_slli_epi32(s32, 16));
        } else {
            const __m128i above = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[0] + x));
            const __m128i m = _mm_or_si128(s32, _mm_slli_epi32(s32, 16));
            const __m128i lo = _mm_srli_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(above, z), _mm_unpacklo_epi32(m, m)), 8);
            const __m128i hi = _mm_srli_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(above, z), _mm_unpackhi_epi32(m, m)), 8);
            v = _mm_and_si128(_mm_packus_epi16(lo, hi), rgb);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), v);
    };
    int x = x0;
    for (; x + 4 <= x1; x += 4) four(x);
    if (x < x1) four(x1 - 4);  // overlaps: the same values again
    return x1;
}
#endif

}  // namespace

int kiv::emboss(tagRECT* rect, tagKIV_EMBOSS* param) {
    using namespace kivfilter;
    Area a;
    if (!clip_rect(*this, rect, &a)) return 0;
    const tagKIV_EMBOSS p = param ? *param : tagKIV_EMBOSS{30.0, 45.0, 20, 1};
    const unsigned depth = static_cast<unsigned>(p.depth) & 0xFFFFu;
    if (depth == 0 || !std::isfinite(p.azimuth) || !std::isfinite(p.elevation)) return 0;
    set_depth_24(this);
    const double az = p.azimuth * kivcore::kmath::kDegToRad, el = p.elevation * kivcore::kmath::kDegToRad;
    const double Lx = kivcore::kmath::cos(az) * kivcore::kmath::cos(el) * 255.9;
    const double Ly = kivcore::kmath::sin(az) * kivcore::kmath::cos(el) * 255.9;
    const double Lz = kivcore::kmath::sin(el) * 255.9;
    const int Nz = static_cast<int>(1530u / depth);  // 6 * 255 over the relief depth
    const EmbossLight light{Lx, Ly, Nz * Lz, static_cast<double>(Nz * Nz), clamp255(static_cast<int>(Lz)), p.mono != 0};
    // Neighbours come from the whole image, coordinates clamped to it.
    run_clamped_3x3(
        this, a,
        [&](const tagRGBA* const* rows, int x0, int x1, tagRGBA* out) {
#if KIV_HAVE_AVX2
            if (kivcore::use_avx2())
                return emboss_row_avx2(reinterpret_cast<const unsigned char* const*>(rows), x0, x1, &light,
                                       reinterpret_cast<unsigned char*>(out));
#endif
#if KIV_HAVE_SSE2
            return emboss_row_sse2(rows, x0, x1, light, out);
#else
            (void)rows, (void)x1, (void)out;
            return x0;
#endif
        },
        [&](const tagRGBA* const* rows, int xl, int x, int xr) { return emboss_pixel(rows, xl, x, xr, light); });
    return 1;
}

int kiv::raise_edge(tagRECT* rect, int n) {
    using namespace kivfilter;
    Area a;
    if (!clip_rect(*this, rect, &a)) return 0;
    const int w = a.w(), h = a.h();
    if (n < 0 || w < 2LL * n || h < 2LL * n) return 0;
    set_depth_24(this);
    auto apply = [](tagRGBA& p, int mul, int add) {
        p.r = static_cast<BYTE>((mul * p.r + add) / 255);
        p.g = static_cast<BYTE>((mul * p.g + add) / 255);
        p.b = static_cast<BYTE>((mul * p.b + add) / 255);
    };
    auto left = [&](tagRGBA& p) { apply(p, 190, 16575); };   // 190/255 of c plus 65
    auto top = [&](tagRGBA& p) { apply(p, 135, 30600); };    // 135/255 of c plus 120
    auto right = [&](tagRGBA& p) { apply(p, 190, 0); };
    auto bottom = [&](tagRGBA& p) { apply(p, 135, 0); };
    // Per row: `side` pixels left, the middle band, `side` pixels right.
    auto band = [&](int j, int side, bool middle, auto&& mid) {
        tagRGBA* row = row_ptr(*this, a.top + j) + a.left;
        for (int i = 0; i < side; ++i) left(row[i]);
        if (middle)
            for (int i = side; i < w - side; ++i) mid(row[i]);
        for (int i = w - side; i < w; ++i) right(row[i]);
    };
    auto none = [](tagRGBA&) {};
    for (int j = 0; j < h; ++j) {
        if (j < n)
            band(j, j, true, top);  // top mitre starts with no side pixel
        else if (j < h - n)
            band(j, n, false, none);
        else
            band(j, n - (j - (h - n)), true, bottom);  // bottom mitre keeps one side pixel
    }
    return 1;
}
