// Motion and directional blurs: mblur_linear, mblur_radial, mblur_round, mblur_zoom,
// sblur_wind, sblur_blast.
//
// The sampling blurs take nearest-pixel samples from the whole image (coordinates clamped)
// and average them with rounding; positions are computed once per call (linear, radial) or
// per pixel, always in the same order, so the result does not depend on the threads.
#include <cmath>
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/parallel.h"
#include "filter/filter.h"
#include "filter/motion_blur.h"
#include "core/kmath.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

namespace {

using namespace kivfilter;

constexpr int kMaxDistance = 1000;    // mblur_linear, mblur_round: pixels
constexpr int kMaxArcSamples = 256;   // mblur_radial, mblur_zoom
constexpr int kMaxStreak = 1000;      // sblur_wind, sblur_blast
constexpr double kTwoPi = 6.283185307179586;

// floor(v + 0.5), 64-bit: with the centre allowed a few image sizes outside, a sample of an
// image wider or taller than about 2^27 lies beyond int range. The truncation less one
// where it rounded up is the floor without a library call; positions stay far inside the
// range where a double converts exactly.
inline long long round_ll(double v) {
    const double t = v + 0.5;
    const long long k = static_cast<long long>(t);
    return k - (static_cast<double>(k) > t ? 1 : 0);
}
inline int clamp_ll(long long v, int n) { return v < 0 ? 0 : (v >= n ? n - 1 : static_cast<int>(v)); }

// Clamps a sample position to the image.
inline const tagRGBA& sample(kiv* img, long long x, long long y) {
    return row_ptr(*img, clamp_ll(y, img->m_height))[clamp_ll(x, img->m_width)];
}

// Sums samples and stores their rounded mean; alpha comes from the source pixel.
struct Mean {
    int r = 0, g = 0, b = 0, n = 0;
    void add(const tagRGBA& p) {
        r += p.r;
        g += p.g;
        b += p.b;
        ++n;
    }
    tagRGBA result(BYTE alpha) const {
        return tagRGBA{static_cast<BYTE>((r + n / 2) / n), static_cast<BYTE>((g + n / 2) / n),
                       static_cast<BYTE>((b + n / 2) / n), alpha};
    }
};

// Runs body(x, y) -> tagRGBA over the rectangle into a buffer (rows in parallel), then
// stores the buffer: every sample sees the original image.
template <class Body>
void per_pixel(kiv* img, const Area& a, Body body) {
    const int w = a.w();
    const UnzeroedBlock block(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()) * sizeof(tagRGBA));
    tagRGBA* const out = block.as<tagRGBA>();
    kivcore::parallel_for(a.top, a.bottom, [&](int y) {
        tagRGBA* o = out + static_cast<std::size_t>(y - a.top) * w;
        for (int x = a.left; x < a.right; ++x) o[x - a.left] = body(x, y);
    });
    img->setpacket(out, a.left, a.top, w, a.h());
}

// Runs body(y, out row) over the rectangle's rows into a buffer (in parallel), then stores
// the buffer.
template <class Body>
void per_row(kiv* img, const Area& a, Body body) {
    const int w = a.w();
    const UnzeroedBlock block(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()) * sizeof(tagRGBA));
    tagRGBA* const out = block.as<tagRGBA>();
    kivcore::parallel_for(a.top, a.bottom, [&](int y) { body(y, out + static_cast<std::size_t>(y - a.top) * w); });
    img->setpacket(out, a.left, a.top, w, a.h());
}

#if KIV_HAVE_SSE2
// The rounded means of n samples of four pixels, sample k at rows[k] + x + dx[k] (four
// neighbours); alpha from self. Sums of up to 256 bytes fit 16-bit lanes, so they gather
// there and move to 32-bit ones every 256 samples; (sum + n / 2) / n is exact in float, the
// sums staying below 2^24.
void linear4(const tagRGBA* const* rows, const long long* dx, int n, int x, const tagRGBA* self, tagRGBA* out) {
    const __m128i z = _mm_setzero_si128();
    __m128i s32[4] = {z, z, z, z};
    for (int k0 = 0; k0 < n; k0 += 256) {
        __m128i lo = z, hi = z;
        for (int k = k0; k < std::min(n, k0 + 256); ++k) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + (x + dx[k])));
            lo = _mm_add_epi16(lo, _mm_unpacklo_epi8(v, z));
            hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(v, z));
        }
        s32[0] = _mm_add_epi32(s32[0], _mm_unpacklo_epi16(lo, z));
        s32[1] = _mm_add_epi32(s32[1], _mm_unpackhi_epi16(lo, z));
        s32[2] = _mm_add_epi32(s32[2], _mm_unpacklo_epi16(hi, z));
        s32[3] = _mm_add_epi32(s32[3], _mm_unpackhi_epi16(hi, z));
    }
    const __m128i h = _mm_set1_epi32(n / 2);
    const __m128 d = _mm_set1_ps(static_cast<float>(n));
    __m128i m[4];
    for (int i = 0; i < 4; ++i) m[i] = _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(_mm_add_epi32(s32[i], h)), d));
    const __m128i v = _mm_packus_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
    const __m128i keep = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(self));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_or_si128(_mm_and_si128(keep, a), _mm_andnot_si128(keep, v)));
}
#endif

// The farthest rectangle corner from (cx, cy).
double farthest(const Area& a, double cx, double cy) {
    double best = 0.0;
    for (double x : {static_cast<double>(a.left), static_cast<double>(a.right - 1)})
        for (double y : {static_cast<double>(a.top), static_cast<double>(a.bottom - 1)}) {
            const double d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
            best = d > best ? d : best;
        }
    return best;
}

// A centre far outside the image would push sample coordinates past int range.
bool centre_ok(kiv* img, int cx, int cy) {
    const long long lim = 4LL * (static_cast<long long>(img->m_width) + img->m_height) + 1024;
    return cx >= -lim && cx <= lim && cy >= -lim && cy <= lim;
}

// Fixed per-line variation of the streak length (a 32-bit integer hash).
inline int streak_length(int line, int strength) {
    std::uint32_t v = static_cast<std::uint32_t>(line) * 0x9E3779B1u;
    v ^= v >> 15;
    v *= 0x85EBCA77u;
    v ^= v >> 13;
    const int half = strength / 2;
    return std::max(1, half + static_cast<int>(v % static_cast<std::uint32_t>(strength - half + 1)));
}

// Runs line_fn(in, out, n, line) over the lines of the rectangle in the wind's direction:
// element 0 of a line is its upwind end.
template <class LineFn>
void per_wind_line(kiv* img, const Area& a, int direction, LineFn line_fn) {
    const int w = a.w(), h = a.h();
    std::vector<tagRGBA> in = read_area(img, a), out(in.size());
    const bool horizontal = direction < 2, reverse = direction == 1 || direction == 3;
    const int lines = horizontal ? h : w, n = horizontal ? w : h;
    kivcore::parallel_chunks(0, lines, [&](int qb, int qe) {
        std::vector<tagRGBA> li(static_cast<std::size_t>(n)), lo(li.size());
        for (int q = qb; q < qe; ++q) {
            auto at = [&](int k) {
                const int p = reverse ? n - 1 - k : k;
                return horizontal ? static_cast<std::size_t>(q) * w + p : static_cast<std::size_t>(p) * w + q;
            };
            for (int k = 0; k < n; ++k) li[static_cast<std::size_t>(k)] = in[at(k)];
            line_fn(li.data(), lo.data(), n, q);
            for (int k = 0; k < n; ++k) out[at(k)] = lo[static_cast<std::size_t>(k)];
        }
    });
    img->setpacket(out.data(), a.left, a.top, w, h);
}

#if KIV_HAVE_SSE2
inline __m128i load_pixel(const tagRGBA* p) {
    int v;
    std::memcpy(&v, p, 4);
    return _mm_cvtsi32_si128(v);
}
inline void store_pixel(tagRGBA* p, __m128i v) {
    const int x = _mm_cvtsi128_si32(v);
    std::memcpy(p, &x, 4);
}

// body(b, e) over strips of groups [b, e) of `group` columns covering w columns, one strip a
// thread: a strip runs down every row, so wide strips keep its rows' pieces long.
template <class Body>
void for_strips(int w, int group, Body body) {
    const int groups = (w + group - 1) / group;
    const int strips = std::max(1, std::min(groups, kivcore::parallel_threads()));
    kivcore::parallel_for(0, strips, [&](int k) {
        body(static_cast<int>(static_cast<long long>(groups) * k / strips),
             static_cast<int>(static_cast<long long>(groups) * (k + 1) / strips));
    });
}

// The streak blurs in place with SSE2, line by line across (rows), all the lines of a strip
// at once along (columns). Each line runs the scalar sequence of per_wind_line's bodies.
// The wind's trail: t = max(in, t - fade) per byte, the subtraction saturating at 0 where
// the scalar difference goes negative and loses to in anyway.
void wind_sse2(kiv* img, const Area& a, int direction, int strength) {
    const int w = a.w(), h = a.h();
    const bool reverse = direction == 1 || direction == 3;
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u)), z = _mm_setzero_si128();
    auto fade_of = [&](int line) { return std::max(1, 255 / streak_length(line, strength)); };
    auto step = [&](__m128i& t, __m128i in, __m128i fade) {
        t = _mm_max_epu8(in, _mm_subs_epu8(t, fade));
        return _mm_or_si128(_mm_and_si128(alpha, in), _mm_andnot_si128(alpha, t));
    };
    if (direction < 2) {
        kivcore::parallel_for(0, h, [&](int q) {
            tagRGBA* p = row_ptr(*img, a.top + q) + a.left;
            const __m128i fade = _mm_set1_epi8(static_cast<char>(fade_of(q)));
            __m128i t = z;
            for (int k = 0; k < w; ++k) {
                tagRGBA* px = p + (reverse ? w - 1 - k : k);
                store_pixel(px, step(t, load_pixel(px), fade));
            }
        });
        return;
    }
    // Four columns a vector; a last, partial group goes through a copy.
    for_strips(w, 4, [&](int gb, int ge) {
        std::vector<int> fades(4 * static_cast<std::size_t>(ge - gb));
        for (int c = 4 * gb; c < 4 * ge; ++c)
            fades[static_cast<std::size_t>(c - 4 * gb)] =
                c < w ? static_cast<int>(static_cast<unsigned>(fade_of(c)) * 0x01010101u) : 0;
        std::vector<tagRGBA> trail(4 * static_cast<std::size_t>(ge - gb), tagRGBA{0, 0, 0, 0});
        for (int k = 0; k < h; ++k) {
            tagRGBA* row = row_ptr(*img, a.top + (reverse ? h - 1 - k : k)) + a.left;
            for (int g = gb; g < ge; ++g) {
                const std::size_t at = 4 * static_cast<std::size_t>(g - gb);
                const int c0 = 4 * g, m = std::min(4, w - c0);
                tagRGBA part[4] = {};
                tagRGBA* src = m == 4 ? row + c0 : part;
                if (m < 4) std::copy(row + c0, row + c0 + m, part);
                __m128i t = _mm_loadu_si128(reinterpret_cast<const __m128i*>(trail.data() + at));
                const __m128i fade = _mm_loadu_si128(reinterpret_cast<const __m128i*>(fades.data() + at));
                const __m128i o = step(t, _mm_loadu_si128(reinterpret_cast<const __m128i*>(src)), fade);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(trail.data() + at), t);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(src), o);
                if (m < 4) std::copy(part, part + m, row + c0);
            }
        }
    });
}

// The blast's running sums, four 32-bit lanes a pixel; (sum + cnt / 2) / cnt is exact in
// float (sums below 2^24) and the larger of it and the pixel stays below 2^16, where the
// 16-bit maximum serves.
struct BlastLine {
    __m128i sum = _mm_setzero_si128();
    int len;
    explicit BlastLine(int l) : len(l) {}
    // Element k of the line, in; old is element k - len when k >= len.
    __m128i step(int k, __m128i in, const tagRGBA* old) {
        const __m128i z = _mm_setzero_si128();
        const __m128i in32 = _mm_unpacklo_epi16(_mm_unpacklo_epi8(in, z), z);
        sum = _mm_add_epi32(sum, in32);
        if (k >= len) sum = _mm_sub_epi32(sum, _mm_unpacklo_epi16(_mm_unpacklo_epi8(load_pixel(old), z), z));
        const int cnt = std::min(k + 1, len);
        const __m128i mean = _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(_mm_add_epi32(sum, _mm_set1_epi32(cnt / 2))),
                                                         _mm_set1_ps(static_cast<float>(cnt))));
        const __m128i v = _mm_max_epi16(in32, mean);
        const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
        return _mm_or_si128(_mm_and_si128(alpha, in),
                            _mm_andnot_si128(alpha, _mm_packus_epi16(_mm_packs_epi32(v, z), z)));
    }
};

void blast_sse2(kiv* img, const Area& a, int direction, int strength) {
    const int w = a.w(), h = a.h();
    const bool reverse = direction == 1 || direction == 3;
    if (direction < 2) {
        // Each row from a copy of itself: the line reads inputs len elements back.
        kivcore::parallel_chunks(0, h, [&](int qb, int qe) {
            std::vector<tagRGBA> in(static_cast<std::size_t>(w));
            for (int q = qb; q < qe; ++q) {
                tagRGBA* p = row_ptr(*img, a.top + q) + a.left;
                std::copy(p, p + w, in.begin());
                BlastLine line(streak_length(q, strength));
                for (int k = 0; k < w; ++k) {
                    const int pos = reverse ? w - 1 - k : k;
                    const tagRGBA* old = k >= line.len
                                             ? &in[static_cast<std::size_t>(reverse ? pos + line.len : pos - line.len)]
                                             : nullptr;
                    store_pixel(p + pos, line.step(k, load_pixel(&in[static_cast<std::size_t>(pos)]), old));
                }
            }
        });
        return;
    }
    // Columns: every input from a copy of the rectangle, the results into the image.
    const std::size_t sw = static_cast<std::size_t>(w);
    const UnzeroedBlock block(sw * static_cast<std::size_t>(h) * sizeof(tagRGBA));
    tagRGBA* const in = block.as<tagRGBA>();
    kivcore::parallel_for(0, h, [&](int j) {
        const tagRGBA* p = row_ptr(*img, a.top + j) + a.left;
        std::copy(p, p + w, in + j * sw);
    });
    kivcore::parallel_chunks(0, w, [&](int cb, int ce) {
        std::vector<BlastLine> lines;
        lines.reserve(static_cast<std::size_t>(ce - cb));
        for (int c = cb; c < ce; ++c) lines.emplace_back(streak_length(c, strength));
        for (int k = 0; k < h; ++k) {
            const int j = reverse ? h - 1 - k : k;
            tagRGBA* row = row_ptr(*img, a.top + j) + a.left;
            const tagRGBA* src = in + j * sw;
            for (int c = cb; c < ce; ++c) {
                BlastLine& line = lines[static_cast<std::size_t>(c - cb)];
                const tagRGBA* old = k >= line.len ? in + (reverse ? j + line.len : j - line.len) * sw + c : nullptr;
                store_pixel(row + c, line.step(k, load_pixel(src + c), old));
            }
        }
    });
}
#endif

bool streak_args_ok(int direction, int strength) {
    return direction >= 0 && direction <= 3 && strength >= 1 && strength <= kMaxStreak;
}

}  // namespace

int kiv::mblur_linear(tagRECT* rect, double angle, int distance) {
    Area a;
    if (!clip_rect(*this, rect, &a) || !std::isfinite(angle) || distance < 0 || distance > kMaxDistance) return 0;
    raise_depth_24(*this);
    if (distance == 0) return 1;
    const double rad = angle * kivcore::kmath::kDegToRad, c = kivcore::kmath::cos(rad), s = kivcore::kmath::sin(rad);
    std::vector<long long> dx, dy;
    for (int k = 0; k <= distance; ++k) {
        const double t = k - distance / 2.0;
        dx.push_back(round_ll(t * c));
        dy.push_back(round_ll(-t * s));  // image y grows downwards; 90 degrees is up
    }
    auto one = [&](int x, int y) {
        Mean m;
        for (std::size_t k = 0; k < dx.size(); ++k) m.add(sample(this, x + dx[k], y + dy[k]));
        return m.result(row_ptr(*this, y)[x].a);
    };
#if KIV_HAVE_SSE2
    if (kivcore::use_sse2()) {
        // Every pixel takes its samples at the same offsets: a row's sample k of pixels
        // x .. x + 3 is four neighbouring pixels of one row, wherever no column is clamped.
        const long long dxmin = *std::min_element(dx.begin(), dx.end()), dxmax = *std::max_element(dx.begin(), dx.end());
        const int x0 = static_cast<int>(std::max<long long>(a.left, -dxmin));
        const int x1 = static_cast<int>(std::min<long long>(a.right, m_width - dxmax));  // pixels x0 .. x1 - 1
        const int n = static_cast<int>(dx.size());
        per_row(this, a, [&](int y, tagRGBA* o) {
            std::vector<const tagRGBA*> rows(dx.size());
            for (std::size_t k = 0; k < dx.size(); ++k) rows[k] = row_ptr(*this, clamp_ll(y + dy[k], m_height));
            const tagRGBA* self = row_ptr(*this, y);
            int x = a.left;
            for (; x < std::min(x0, a.right); ++x) o[x - a.left] = one(x, y);
            for (; x + 4 <= x1; x += 4) linear4(rows.data(), dx.data(), n, x, self + x, o + (x - a.left));
            for (; x < a.right; ++x) o[x - a.left] = one(x, y);
        });
        return 1;
    }
#endif
    per_pixel(this, a, one);
    return 1;
}

int kiv::mblur_radial(tagRECT* rect, int cx, int cy, double angle) {
    Area a;
    if (!clip_rect(*this, rect, &a) || !(angle >= 0.0 && angle <= 360.0) || !centre_ok(this, cx, cy)) return 0;
    raise_depth_24(*this);
    if (angle == 0.0) return 1;
    const double span = angle * kivcore::kmath::kDegToRad;
    // About one sample per pixel of arc at the farthest corner.
    const double want = std::ceil(farthest(a, cx, cy) * span) + 1.0;
    const int n = want < 2.0 ? 2 : (want > kMaxArcSamples ? kMaxArcSamples : static_cast<int>(want));
    std::vector<double> cs(static_cast<std::size_t>(n)), sn(cs.size());
    for (int k = 0; k < n; ++k) {
        const double t = span * (static_cast<double>(k) / (n - 1) - 0.5);
        kivcore::kmath::sincos(t, &sn[static_cast<std::size_t>(k)], &cs[static_cast<std::size_t>(k)]);
    }
    auto one = [&](int x, int y) {
        const double ox = static_cast<double>(x) - cx, oy = static_cast<double>(y) - cy;
        Mean m;
        for (std::size_t k = 0; k < cs.size(); ++k)
            m.add(sample(this, cx + round_ll(ox * cs[k] - oy * sn[k]), cy + round_ll(ox * sn[k] + oy * cs[k])));
        return m.result(row_ptr(*this, y)[x].a);
    };
#if KIV_HAVE_AVX2
    if (kivcore::use_avx2()) {
        const MotionSrc msrc{reinterpret_cast<const unsigned char*>(m_pixels), m_width, m_width, m_height,
                             static_cast<double>(cx), static_cast<double>(cy)};
        per_row(this, a, [&](int y, tagRGBA* o) {
            const int whole = a.w() / 4 * 4;
            spin_pixels_avx2(&msrc, static_cast<double>(a.left) - cx, static_cast<double>(y) - cy, cs.data(), sn.data(),
                             n, whole, reinterpret_cast<const unsigned char*>(row_ptr(*this, y) + a.left),
                             reinterpret_cast<unsigned char*>(o));
            for (int x = a.left + whole; x < a.right; ++x) o[x - a.left] = one(x, y);
        });
        return 1;
    }
#endif
    per_pixel(this, a, one);
    return 1;
}

int kiv::mblur_round(tagRECT* rect, int cx, int cy, int amount) {
    Area a;
    if (!clip_rect(*this, rect, &a) || amount < 0 || amount > kMaxDistance || !centre_ok(this, cx, cy)) return 0;
    raise_depth_24(*this);
    if (amount == 0) return 1;
    const int w = a.w(), n = amount + 1;
    // A pixel's arc depends on its offset from the centre only through |ox| and |oy|: rows
    // mirrored about the centre are done together, and each distance's turn (the sines and
    // cosines of the step and of half the span) is worked out once for both halves of them.
    struct Turn {
        double c, s;    // one step
        double ch, sh;  // cosine and sine of minus half the span
        bool still;     // the centre: the pixel does not move
    };
    const long long lo = static_cast<long long>(a.left) - cx, hi = static_cast<long long>(a.right) - 1 - cx;
    const long long amin = lo <= 0 && hi >= 0 ? 0 : std::min(lo < 0 ? -lo : lo, hi < 0 ? -hi : hi);
    const long long amax = std::max(lo < 0 ? -lo : lo, hi < 0 ? -hi : hi);
    // A row whose mirror lies above it inside the rectangle is done with that mirror.
    std::vector<int> firsts;
    for (int y = a.top; y < a.bottom; ++y) {
        const long long m = 2LL * cy - y;
        if (m >= y || m < a.top || m >= a.bottom) firsts.push_back(y);
    }
    const UnzeroedBlock block(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()) * sizeof(tagRGBA));
    tagRGBA* const out = block.as<tagRGBA>();
#if KIV_HAVE_AVX2
    const bool avx2 = kivcore::use_avx2();
    const MotionSrc msrc{reinterpret_cast<const unsigned char*>(m_pixels), m_width, m_width, m_height,
                         static_cast<double>(cx), static_cast<double>(cy)};
#endif
    kivcore::parallel_chunks(0, static_cast<int>(firsts.size()), [&](int fb, int fe) {
        const std::size_t turns = static_cast<std::size_t>(amax - amin + 1);
        std::vector<Turn> turn(turns);
        std::vector<double> arg(2 * turns), sn(arg.size()), cs(arg.size());
#if KIV_HAVE_AVX2
        std::vector<double> lanes(avx2 ? 4 * static_cast<std::size_t>(w) : 0);
#endif
        for (int f = fb; f < fe; ++f) {
            const int y0 = firsts[static_cast<std::size_t>(f)];
            const double oy0 = static_cast<double>(y0) - cy;
            // The angles first, then their sines and cosines in one batch.
            for (long long k = amin; k <= amax; ++k) {
                const std::size_t i = static_cast<std::size_t>(k - amin);
                const double ox = static_cast<double>(k), r = std::sqrt(ox * ox + oy0 * oy0);
                turn[i].still = r < 0.5;
                const double span = turn[i].still ? 1.0 : std::min(amount / r, kTwoPi);
                arg[2 * i] = span / amount;
                arg[2 * i + 1] = -span / 2;
            }
            kivcore::kmath::sincos_many(arg.data(), sn.data(), cs.data(), static_cast<int>(arg.size()));
            for (std::size_t i = 0; i < turns; ++i)
                turn[i] = Turn{cs[2 * i], sn[2 * i], cs[2 * i + 1], sn[2 * i + 1], turn[i].still};
            const long long m = 2LL * cy - y0;
            const int rows[2] = {y0, m != y0 && m >= a.top && m < a.bottom ? static_cast<int>(m) : -1};
            for (int y : rows) {
                if (y < 0) continue;
                const double oy = static_cast<double>(y) - cy;
                const tagRGBA* src = row_ptr(*this, y);
                tagRGBA* o = out + static_cast<std::size_t>(y - a.top) * w;
                int x = a.left;
#if KIV_HAVE_AVX2
                if (avx2) {
                    // Starting points and turns of the row's pixels, then the vector kernel;
                    // the centre pixel is put back after it.
                    const int whole = w / 4 * 4;
                    for (int i = 0; i < whole; ++i) {
                        const double ox = static_cast<double>(a.left + i) - cx;
                        const long long ax = a.left + i - static_cast<long long>(cx);
                        const Turn& t = turn[static_cast<std::size_t>((ax < 0 ? -ax : ax) - amin)];
                        const bool go = !t.still;
                        lanes[i] = go ? ox * t.ch - oy * t.sh : 0.0;
                        lanes[whole + i] = go ? ox * t.sh + oy * t.ch : 0.0;
                        lanes[2 * whole + i] = go ? t.c : 1.0;
                        lanes[3 * whole + i] = go ? t.s : 0.0;
                    }
                    arc_pixels_avx2(&msrc, lanes.data(), lanes.data() + whole, lanes.data() + 2 * whole,
                                    lanes.data() + 3 * whole, whole, n,
                                    reinterpret_cast<const unsigned char*>(src + a.left),
                                    reinterpret_cast<unsigned char*>(o));
                    for (int i = 0; i < whole; ++i) {
                        const long long ax = a.left + i - static_cast<long long>(cx);
                        if (turn[static_cast<std::size_t>((ax < 0 ? -ax : ax) - amin)].still) o[i] = src[a.left + i];
                    }
                    x += whole;
                }
#endif
                for (; x < a.right; ++x) {
                    const double ox = static_cast<double>(x) - cx;
                    const long long ax = x - static_cast<long long>(cx);
                    const Turn& t = turn[static_cast<std::size_t>((ax < 0 ? -ax : ax) - amin)];
                    if (t.still) {
                        o[x - a.left] = src[x];
                        continue;
                    }
                    // Start half the arc back, then rotate by one step per sample.
                    double vx = ox * t.ch - oy * t.sh;
                    double vy = ox * t.sh + oy * t.ch;
                    Mean mean;
                    for (int k = 0; k < n; ++k) {
                        mean.add(sample(this, cx + round_ll(vx), cy + round_ll(vy)));
                        const double nx = vx * t.c - vy * t.s;
                        vy = vx * t.s + vy * t.c;
                        vx = nx;
                    }
                    o[x - a.left] = mean.result(src[x].a);
                }
            }
        }
    });
    setpacket(out, a.left, a.top, w, a.h());
    return 1;
}

int kiv::mblur_zoom(tagRECT* rect, int cx, int cy, int amount) {
    Area a;
    if (!clip_rect(*this, rect, &a) || amount < 0 || amount > 100 || !centre_ok(this, cx, cy)) return 0;
    raise_depth_24(*this);
    if (amount == 0) return 1;
    const double reach = amount / 100.0;
    // The scale of sample k of a pixel with n samples, f[n][k] = 1 - reach k / (n - 1), for
    // every count a pixel can have; zeros to pair with them in the vector kernel.
    std::vector<double> f(static_cast<std::size_t>(kMaxArcSamples + 1) * kMaxArcSamples), zeros(kMaxArcSamples, 0.0);
    for (int n = 2; n <= kMaxArcSamples; ++n)
        for (int k = 0; k < n; ++k) f[static_cast<std::size_t>(n) * kMaxArcSamples + k] = 1.0 - reach * k / (n - 1);
    auto count = [&](double ox, double oy) {
        const double want = std::ceil(std::sqrt(ox * ox + oy * oy) * reach) + 1.0;
        return want < 2.0 ? 2 : (want > kMaxArcSamples ? kMaxArcSamples : static_cast<int>(want));
    };
    auto one = [&](int x, int y) {
        const double ox = static_cast<double>(x) - cx, oy = static_cast<double>(y) - cy;
        const int n = count(ox, oy);
        const double* fn = f.data() + static_cast<std::size_t>(n) * kMaxArcSamples;
        Mean m;
        for (int k = 0; k < n; ++k) m.add(sample(this, cx + round_ll(ox * fn[k]), cy + round_ll(oy * fn[k])));
        return m.result(row_ptr(*this, y)[x].a);
    };
#if KIV_HAVE_AVX2
    if (kivcore::use_avx2()) {
        // Four neighbours with the same sample count go to the vector kernel together: the
        // products with zero it adds change no position (floor(+-0 + 0.5) = 0 either way).
        const MotionSrc msrc{reinterpret_cast<const unsigned char*>(m_pixels), m_width, m_width, m_height,
                             static_cast<double>(cx), static_cast<double>(cy)};
        per_row(this, a, [&](int y, tagRGBA* o) {
            const double oy = static_cast<double>(y) - cy;
            const tagRGBA* src = row_ptr(*this, y);
            int x = a.left;
            for (; x + 4 <= a.right; x += 4) {
                const double ox = static_cast<double>(x) - cx;
                const int n = count(ox, oy);
                if (count(ox + 3.0, oy) != n || count(ox + 1.0, oy) != n || count(ox + 2.0, oy) != n) {
                    for (int i = 0; i < 4; ++i) o[x + i - a.left] = one(x + i, y);
                    continue;
                }
                spin_pixels_avx2(&msrc, ox, oy, f.data() + static_cast<std::size_t>(n) * kMaxArcSamples, zeros.data(),
                                 n, 4, reinterpret_cast<const unsigned char*>(src + x),
                                 reinterpret_cast<unsigned char*>(o + (x - a.left)));
            }
            for (; x < a.right; ++x) o[x - a.left] = one(x, y);
        });
        return 1;
    }
#endif
    per_pixel(this, a, one);
    return 1;
}

int kiv::sblur_wind(tagRECT* rect, int direction, int strength) {
    Area a;
    if (!clip_rect(*this, rect, &a) || !streak_args_ok(direction, strength)) return 0;
    raise_depth_24(*this);
#if KIV_HAVE_SSE2
    if (kivcore::use_sse2()) {
        wind_sse2(this, a, direction, strength);
        return 1;
    }
#endif
    per_wind_line(this, a, direction, [&](const tagRGBA* in, tagRGBA* out, int n, int line) {
        // The trail of the brightest recent pixel fades linearly over the streak length.
        const int fade = std::max(1, 255 / streak_length(line, strength));
        int tr = 0, tg = 0, tb = 0;
        for (int k = 0; k < n; ++k) {
            tr = std::max<int>(in[k].r, tr - fade);
            tg = std::max<int>(in[k].g, tg - fade);
            tb = std::max<int>(in[k].b, tb - fade);
            out[k] = tagRGBA{static_cast<BYTE>(tr), static_cast<BYTE>(tg), static_cast<BYTE>(tb), in[k].a};
        }
    });
    return 1;
}

int kiv::sblur_blast(tagRECT* rect, int direction, int strength) {
    Area a;
    if (!clip_rect(*this, rect, &a) || !streak_args_ok(direction, strength)) return 0;
    raise_depth_24(*this);
#if KIV_HAVE_SSE2
    if (kivcore::use_sse2()) {
        blast_sse2(this, a, direction, strength);
        return 1;
    }
#endif
    per_wind_line(this, a, direction, [&](const tagRGBA* in, tagRGBA* out, int n, int line) {
        // Running mean over the last `len` pixels upwind (fewer at the line's start).
        const int len = streak_length(line, strength);
        int sr = 0, sg = 0, sb = 0;
        for (int k = 0; k < n; ++k) {
            sr += in[k].r;
            sg += in[k].g;
            sb += in[k].b;
            if (k >= len) {
                sr -= in[k - len].r;
                sg -= in[k - len].g;
                sb -= in[k - len].b;
            }
            const int cnt = std::min(k + 1, len);
            out[k] = tagRGBA{static_cast<BYTE>(std::max<int>(in[k].r, (sr + cnt / 2) / cnt)),
                             static_cast<BYTE>(std::max<int>(in[k].g, (sg + cnt / 2) / cnt)),
                             static_cast<BYTE>(std::max<int>(in[k].b, (sb + cnt / 2) / cnt)), in[k].a};
        }
    });
    return 1;
}
