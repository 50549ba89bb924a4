// Filtered resampling (zoom): two separable passes through a 24-bit intermediate image.
//
// Each output pixel is Sum(weight * byte) over its contribution list, in list order, as
// doubles, then + 0.5, truncated and clamped. The lists are built once per output column
// (or row) and shared by every line; the SSE2 loops run rows (horizontal pass) or colour
// samples (vertical pass) in lanes, each lane doing exactly the scalar sequence.
#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

#include "core/parallel.h"
#include "geometry/geometry.h"
#include "geometry/resample_filters.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

namespace kivgeom {
namespace {

std::atomic<bool> g_force_scalar{false};

// Most list entries one pass may hold (about 24 GB of weights): larger requests, which only
// absurd shrink factors make, are refused rather than attempted.
constexpr long long kMaxEntries = 2LL << 30;

// Pixels a vertical-pass accumulator strip covers: 256 pixels = 8 KB of doubles, which
// stays in L1 while every contributing row is added in.
constexpr int kStripPixels = 256;

// A weighted sum to a byte: add a half, truncate toward zero, clamp to 0..255 (NaN gives 0).
inline BYTE sum_to_byte(double v) {
    v += 0.5;
    if (v >= 255.0) return 255;
    if (v >= 1.0) return static_cast<BYTE>(static_cast<int>(v));
    return 0;
}

// Source index j reflected into 0..n-1: -1 reads 1, n reads n - 1. Indices that one
// reflection does not bring inside (tiny sources under wide filters) are clamped.
inline int mirror_index(long long j, long long n) {
    if (j < 0) j = -j;
    if (j >= n) j = 2 * n - j - 1;
    return static_cast<int>(std::clamp<long long>(j, 0, n - 1));
}

// Contribution lists of one pass: output index i owns count[i] (source index, weight)
// pairs starting at entry i * cap.
struct Contributions {
    long long cap = 0;
    std::vector<int> count;
    std::vector<int> index;
    std::vector<double> weight;
    const int* idx(int i) const { return index.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(cap); }
    const double* wt(int i) const { return weight.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(cap); }
};

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
    kivcore::parallel_chunks(0, n_out, [&](int i0, int i1) {
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
    return true;
}

// ---- Horizontal pass: every row of src (width = source length) to dst (width n_out).

void hpass_rows_scalar(kiv& src, kiv& dst, const Contributions& c, int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
        const BYTE* s = reinterpret_cast<const BYTE*>(row_ptr(src, y));
        tagRGBA* d = row_ptr(dst, y);
        for (int i = 0; i < dst.m_width; ++i) {
            const int* ix = c.idx(i);
            const double* w = c.wt(i);
            double a0 = 0.0, a1 = 0.0, a2 = 0.0;
            for (int k = 0, n = c.count[static_cast<std::size_t>(i)]; k < n; ++k) {
                const BYTE* p = s + 4 * static_cast<std::size_t>(ix[k]);
                a0 += w[k] * p[0];
                a1 += w[k] * p[1];
                a2 += w[k] * p[2];
            }
            d[i] = tagRGBA{sum_to_byte(a0), sum_to_byte(a1), sum_to_byte(a2), 0};
        }
    }
}

#if KIV_HAVE_SSE2
// Sums of channels (0, 1) and (2, 3) to a pixel: + 0.5, clamp, truncate; alpha becomes 0.
// max(v, 0) returns 0 for NaN, as the scalar rule does.
inline void store_pixel(__m128d a01, __m128d a23, tagRGBA* out) {
    const __m128d half = _mm_set1_pd(0.5), zero = _mm_setzero_pd(), top = _mm_set1_pd(255.0);
    a01 = _mm_min_pd(_mm_max_pd(_mm_add_pd(a01, half), zero), top);
    a23 = _mm_min_pd(_mm_max_pd(_mm_add_pd(a23, half), zero), top);
    __m128i i = _mm_unpacklo_epi64(_mm_cvttpd_epi32(a01), _mm_cvttpd_epi32(a23));
    i = _mm_packs_epi32(i, i);
    i = _mm_packus_epi16(i, i);
    int v = _mm_cvtsi128_si32(i) & 0x00FFFFFF;
    std::memcpy(out, &v, 4);
}

#endif

#if KIV_HAVE_SSE2
// Sums to bytes by saturation: + 0.5, min(255, v), truncate to int32, then signed and
// unsigned packs clamp below. This is sum_to_byte: NaN and sums below -2^31 truncate to
// INT_MIN (min keeps its second operand's NaN), which the packs turn into 0.
inline __m128i sums_to_int(__m128d v) {
    return _mm_cvttpd_epi32(_mm_min_pd(_mm_set1_pd(255.0), _mm_add_pd(v, _mm_set1_pd(0.5))));
}

// Eight pixels' sums (r0 g0 | b0 r1 | g1 b1 | r2 g2 ...) to eight pixels at out.
inline void store_rgb8(const __m128d (&a)[12], BYTE* out) {
    __m128i q[6];
    for (int m = 0; m < 6; ++m) q[m] = _mm_unpacklo_epi64(sums_to_int(a[2 * m]), sums_to_int(a[2 * m + 1]));
    const __m128i s0 = _mm_packs_epi32(q[0], q[1]), s1 = _mm_packs_epi32(q[2], q[3]), s2 = _mm_packs_epi32(q[4], q[5]);
    const __m128i lo = _mm_packus_epi16(s0, s1), hi = _mm_packus_epi16(s2, s2);  // 24 colour bytes
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), kivcore::spread_3_to_4(lo));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16),
                     kivcore::spread_3_to_4(_mm_or_si128(_mm_srli_si128(lo, 12), _mm_slli_si128(hi, 4))));
}
#endif

#if KIV_HAVE_SSE2
// Four rows at once, two per register: the rows' pixels are converted once into (row y,
// row y + 1) and (row y + 2, row y + 3) double pairs, three of each per pixel (alpha is
// never summed), so a tap of an output pixel costs one weight broadcast, six loads, six
// products and six sums for four results. Missing rows at a chunk's end repeat the last
// one and are not written.
inline void two_rows_to_pd(const BYTE* p0, const BYTE* p1, double* out) {
    int u0, u1;
    std::memcpy(&u0, p0, 4);
    std::memcpy(&u1, p1, 4);
    const __m128i z = _mm_setzero_si128();
    const __m128i w = _mm_unpacklo_epi8(_mm_unpacklo_epi8(_mm_cvtsi32_si128(u0), _mm_cvtsi32_si128(u1)), z);
    const __m128i rg = _mm_unpacklo_epi16(w, z), ba = _mm_unpackhi_epi16(w, z);  // r0 r1 g0 g1 | b0 b1 a0 a1
    _mm_storeu_pd(out, _mm_cvtepi32_pd(rg));
    _mm_storeu_pd(out + 2, _mm_cvtepi32_pd(_mm_shuffle_epi32(rg, 0xEE)));
    _mm_storeu_pd(out + 4, _mm_cvtepi32_pd(ba));
}

// Lanes (row a, row b) of the three sums to one pixel each.
inline void store_two(__m128d r, __m128d g, __m128d b, tagRGBA* da, tagRGBA* db, bool write_b) {
    const __m128i rg = _mm_unpacklo_epi32(sums_to_int(r), sums_to_int(g));
    const __m128i bz = _mm_unpacklo_epi32(sums_to_int(b), _mm_setzero_si128());
    const __m128i px = _mm_packs_epi32(_mm_unpacklo_epi64(rg, bz), _mm_unpackhi_epi64(rg, bz));
    const __m128i bytes = _mm_packus_epi16(px, px);
    const int wa = _mm_cvtsi128_si32(bytes), wb = _mm_cvtsi128_si32(_mm_srli_si128(bytes, 4));
    std::memcpy(da, &wa, 4);
    if (write_b) std::memcpy(db, &wb, 4);
}

void hpass_quads_sse2(kiv& src, kiv& dst, const Contributions& c, int y0, int y1) {
    const int W = src.m_width;
    std::vector<double> quad(static_cast<std::size_t>(W) * 12);
    double* buf = quad.data();
    for (int y = y0; y < y1; y += 4) {
        const int rows = std::min(4, y1 - y);
        const BYTE* s[4];
        tagRGBA* d[4];
        for (int r = 0; r < 4; ++r) {
            const int yr = y + std::min(r, rows - 1);
            s[r] = reinterpret_cast<const BYTE*>(row_ptr(src, yr));
            d[r] = row_ptr(dst, yr);
        }
        for (int x = 0; x < W; ++x) {
            const std::size_t o = 4 * static_cast<std::size_t>(x);
            two_rows_to_pd(s[0] + o, s[1] + o, buf + 12 * static_cast<std::size_t>(x));
            two_rows_to_pd(s[2] + o, s[3] + o, buf + 12 * static_cast<std::size_t>(x) + 6);
        }
        for (int i = 0; i < dst.m_width; ++i) {
            const int* ix = c.idx(i);
            const double* w = c.wt(i);
            __m128d r0 = _mm_setzero_pd(), g0 = _mm_setzero_pd(), b0 = _mm_setzero_pd();
            __m128d r1 = _mm_setzero_pd(), g1 = _mm_setzero_pd(), b1 = _mm_setzero_pd();
            for (int k = 0, n = c.count[static_cast<std::size_t>(i)]; k < n; ++k) {
                const double* p = buf + 12 * static_cast<std::size_t>(ix[k]);
                const __m128d wk = _mm_set1_pd(w[k]);
                r0 = _mm_add_pd(r0, _mm_mul_pd(wk, _mm_loadu_pd(p)));
                g0 = _mm_add_pd(g0, _mm_mul_pd(wk, _mm_loadu_pd(p + 2)));
                b0 = _mm_add_pd(b0, _mm_mul_pd(wk, _mm_loadu_pd(p + 4)));
                r1 = _mm_add_pd(r1, _mm_mul_pd(wk, _mm_loadu_pd(p + 6)));
                g1 = _mm_add_pd(g1, _mm_mul_pd(wk, _mm_loadu_pd(p + 8)));
                b1 = _mm_add_pd(b1, _mm_mul_pd(wk, _mm_loadu_pd(p + 10)));
            }
            store_two(r0, g0, b0, d[0] + i, d[1] + i, rows > 1);
            if (rows > 2) store_two(r1, g1, b1, d[2] + i, d[3] + i, rows > 3);
        }
    }
}
#endif

void hpass(kiv& src, kiv& dst, const Contributions& c) {
    kivcore::parallel_chunks(0, dst.m_height, [&](int y0, int y1) {
#if KIV_HAVE_SSE2
        if (!force_scalar()) return hpass_quads_sse2(src, dst, c, y0, y1);
#endif
        hpass_rows_scalar(src, dst, c, y0, y1);
    });
}

// ---- Vertical pass: dst row i is the weighted sum of the listed rows of src. Rows are
// streamed strip by strip: one accumulator strip per chunk, each source row added in whole.

void vpass_rows(kiv& src, kiv& dst, const Contributions& c, int y0, int y1) {
    const std::size_t line = static_cast<std::size_t>(dst.m_width) * 4;  // bytes of a row
    const std::size_t strip = static_cast<std::size_t>(kStripPixels) * 4;
    std::vector<double> acc(strip);
#if KIV_HAVE_SSE2
    const bool sse = !force_scalar();
#endif
    for (int y = y0; y < y1; ++y) {
        const int* ix = c.idx(y);
        const double* w = c.wt(y);
        const int n = c.count[static_cast<std::size_t>(y)];
        BYTE* d = reinterpret_cast<BYTE*>(row_ptr(dst, y));
        for (std::size_t x0 = 0; x0 < line; x0 += strip) {
            const std::size_t len = std::min(strip, line - x0);  // a multiple of 4
            std::fill(acc.begin(), acc.begin() + static_cast<std::ptrdiff_t>(len), 0.0);
            for (int k = 0; k < n; ++k) {
                const BYTE* s = reinterpret_cast<const BYTE*>(row_ptr(src, ix[k])) + x0;
                const double wk = w[k];
                std::size_t j = 0;
#if KIV_HAVE_SSE2
                if (sse) {
                    const __m128i z = _mm_setzero_si128();
                    const __m128d wv = _mm_set1_pd(wk);
                    for (; j + 16 <= len; j += 16) {
                        __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + j));
                        __m128i lo = _mm_unpacklo_epi8(b, z), hi = _mm_unpackhi_epi8(b, z);
                        __m128i q[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z),
                                        _mm_unpacklo_epi16(hi, z), _mm_unpackhi_epi16(hi, z)};
                        double* a = acc.data() + j;
                        for (int t = 0; t < 4; ++t) {
                            __m128d v0 = _mm_cvtepi32_pd(q[t]);
                            __m128d v1 = _mm_cvtepi32_pd(_mm_shuffle_epi32(q[t], 0xEE));
                            _mm_storeu_pd(a + 4 * t, _mm_add_pd(_mm_loadu_pd(a + 4 * t), _mm_mul_pd(wv, v0)));
                            _mm_storeu_pd(a + 4 * t + 2,
                                          _mm_add_pd(_mm_loadu_pd(a + 4 * t + 2), _mm_mul_pd(wv, v1)));
                        }
                    }
                }
#endif
                for (; j < len; ++j) acc[j] += wk * s[j];
            }
            std::size_t j = 0;
#if KIV_HAVE_SSE2
            if (sse)
                for (; j < len; j += 4)
                    store_pixel(_mm_loadu_pd(&acc[j]), _mm_loadu_pd(&acc[j + 2]),
                                reinterpret_cast<tagRGBA*>(d + x0 + j));
#endif
            for (; j < len; j += 4) {
                d[x0 + j] = sum_to_byte(acc[j]);
                d[x0 + j + 1] = sum_to_byte(acc[j + 1]);
                d[x0 + j + 2] = sum_to_byte(acc[j + 2]);
                d[x0 + j + 3] = 0;
            }
        }
    }
}

#if KIV_HAVE_SSE2
// Blocked vertical pass: up to kRowBlock output rows at a time, column strip by column
// strip. The strip of every source row the block reads is converted to doubles once
// (alpha dropped, so three per pixel), then each run of eight output pixels keeps its 24
// sums in registers while all its taps are added in list order. Blocks whose source span
// would not fit the buffer go to vpass_rows.
constexpr int kRowBlock = 16;
constexpr std::size_t kStripDoubles = 8192;   // 64 KB: strips narrow enough for L1/L2, wide enough to share setup
constexpr std::size_t kSpanDoubles = 24576;   // the buffer: tall spans spill to L2
constexpr int kMaxSpanRows = static_cast<int>(kSpanDoubles / 24);  // a strip of 8 pixels at least

void vpass_block_sse2(kiv& src, kiv& dst, const Contributions& c, int y0, int y1, int lo, int hi,
                      std::vector<double>& buf) {
    const int W = dst.m_width, rows = hi - lo + 1;
    const int strip = std::max(8, static_cast<int>(kStripDoubles / (3 * static_cast<std::size_t>(rows))) / 8 * 8);
    for (int x0 = 0; x0 < W; x0 += strip) {
        const int np = std::min(strip, W - x0);
        const std::size_t line = 3 * static_cast<std::size_t>(np);
        for (int r = 0; r < rows; ++r) {
            const BYTE* s = reinterpret_cast<const BYTE*>(row_ptr(src, lo + r) + x0);
            double* b = buf.data() + static_cast<std::size_t>(r) * line;
            int p = 0;
            for (; p + 4 <= np; p += 4) {  // four pixels: twelve doubles, alpha skipped
                const __m128i z = _mm_setzero_si128();
                const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * p));
                const __m128i lo = _mm_unpacklo_epi8(v, z), hi = _mm_unpackhi_epi8(v, z);
                const __m128i q[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z),
                                      _mm_unpacklo_epi16(hi, z), _mm_unpackhi_epi16(hi, z)};
                double* o = b + 3 * p;
                for (int t = 0; t < 4; t += 2) {  // pixels t, t + 1: (r g) (b r') (g' b')
                    _mm_storeu_pd(o + 3 * t, _mm_cvtepi32_pd(q[t]));
                    _mm_storeu_pd(o + 3 * t + 2, _mm_cvtepi32_pd(_mm_unpacklo_epi32(_mm_shuffle_epi32(q[t], 2), q[t + 1])));
                    _mm_storeu_pd(o + 3 * t + 4, _mm_cvtepi32_pd(_mm_shuffle_epi32(q[t + 1], 0x09)));
                }
            }
            for (; p < np; ++p) {
                b[3 * p] = s[4 * p];
                b[3 * p + 1] = s[4 * p + 1];
                b[3 * p + 2] = s[4 * p + 2];
            }
        }
        for (int y = y0; y < y1; ++y) {
            const int* ix = c.idx(y);
            const double* w = c.wt(y);
            const int n = c.count[static_cast<std::size_t>(y)];
            BYTE* d = reinterpret_cast<BYTE*>(row_ptr(dst, y) + x0);
            int p0 = 0;
            for (; p0 + 8 <= np; p0 += 8) {
                __m128d a[12];
                for (int m = 0; m < 12; ++m) a[m] = _mm_setzero_pd();
                const double* base = buf.data() + 3 * static_cast<std::size_t>(p0);
                for (int k = 0; k < n; ++k) {
                    const double* q = base + static_cast<std::size_t>(ix[k] - lo) * line;
                    const __m128d wk = _mm_set1_pd(w[k]);
                    for (int m = 0; m < 12; ++m) a[m] = _mm_add_pd(a[m], _mm_mul_pd(wk, _mm_loadu_pd(q + 2 * m)));
                }
                store_rgb8(a, d + 4 * static_cast<std::size_t>(p0));
            }
            for (int p = p0; p < np; ++p)  // the strip's last few pixels, one lane each
                for (int ch = 0; ch < 3; ++ch) {
                    double acc = 0.0;
                    for (int k = 0; k < n; ++k)
                        acc += w[k] * buf[static_cast<std::size_t>(ix[k] - lo) * line + 3 * static_cast<std::size_t>(p) + static_cast<std::size_t>(ch)];
                    d[4 * static_cast<std::size_t>(p) + static_cast<std::size_t>(ch)] = sum_to_byte(acc);
                    d[4 * static_cast<std::size_t>(p) + 3] = 0;
                }
        }
    }
}
#endif

void vpass(kiv& src, kiv& dst, const Contributions& c) {
    kivcore::parallel_chunks(0, dst.m_height, [&](int y0, int y1) {
#if KIV_HAVE_SSE2
        if (!force_scalar()) {
            std::vector<double> buf;
            for (int b0 = y0; b0 < y1; b0 += kRowBlock) {
                const int b1 = std::min(y1, b0 + kRowBlock);
                int lo = src.m_height, hi = -1;
                for (int y = b0; y < b1; ++y) {
                    const int* ix = c.idx(y);
                    for (int k = 0, n = c.count[static_cast<std::size_t>(y)]; k < n; ++k) {
                        lo = std::min(lo, ix[k]);
                        hi = std::max(hi, ix[k]);
                    }
                }
                if (hi >= lo && hi - lo < kMaxSpanRows) {
                    if (buf.empty()) buf.resize(kSpanDoubles);
                    vpass_block_sse2(src, dst, c, b0, b1, lo, hi, buf);
                } else {
                    vpass_rows(src, dst, c, b0, b1);
                }
            }
            return;
        }
#endif
        vpass_rows(src, dst, c, y0, y1);
    });
}

}  // namespace

void set_force_scalar(bool on) { g_force_scalar.store(on); }
bool force_scalar() { return g_force_scalar.load(std::memory_order_relaxed); }

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
        kiv mid;
        if (!mid.create(vertical_first ? W : w, vertical_first ? h : H, 24)) return false;
        if (vertical_first)
            vpass(src, mid, cy);
        else
            hpass(src, mid, cx);
        if (!(mapped ? dst.create_width_mapfile(w, h, 24) : dst.create(w, h, 24))) return false;
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
