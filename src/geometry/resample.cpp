// Filtered resampling (zoom): two separable passes through a 24-bit intermediate image.
//
// Each output pixel is Sum(weight * byte) over its contribution list, in list order, as
// doubles, then + 0.5, truncated and clamped. The lists are built once per output column
// (or row) and shared by every line. The vector loops (SSE2 here, AVX2 twins in
// resample_avx2.cpp) run four rows (horizontal pass) or colour samples (vertical pass) in
// lanes, each lane doing exactly the scalar sequence, on source pixels converted to doubles
// once into buffers small enough for L1.
#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "geometry/geometry.h"
#include "geometry/resample_filters.h"
#include "geometry/resample_kernels.h"

#if KIV_HAVE_SSE2
#  include <emmintrin.h>
#endif

namespace kivgeom {
namespace {

// Most list entries one pass may hold (about 24 GB of weights): larger requests, which only
// absurd shrink factors make, are refused rather than attempted.
constexpr long long kMaxEntries = 2LL << 30;

// Pixels a vertical-pass accumulator strip covers: 256 pixels = 8 KB of doubles, which
// stays in L1 while every contributing row is added in.
constexpr int kStripPixels = 256;

// A weighted sum to a byte: add a half, truncate toward zero, clamp to 0..255 (NaN gives 0).
// Every loop starts a sum from its first product rather than adding that to 0.0: the two
// sums can differ only while they are zeros of opposite sign (a nonzero term gives that
// term either way), and a zero sum gives 0 either way.
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
    // 255 times the largest total |weight| of a list is below 2^30, so no weighted sum of
    // bytes can leave +-2^30 and the AVX2 kernels convert sums to int32 without a clamp
    // first (false for NaN or infinite weights).
    bool small_sums = false;
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
    c.small_sums = true;
    for (int i = 0; i < n_out; ++i) {
        double total = 0.0;
        for (int k = 0, n = c.count[static_cast<std::size_t>(i)]; k < n; ++k) total += std::fabs(c.wt(i)[k]);
        if (!(total * 255.0 < 1073741824.0)) c.small_sums = false;
    }
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
            const int n = c.count[static_cast<std::size_t>(i)];
            double a0 = 0.0, a1 = 0.0, a2 = 0.0;
            if (n > 0) {  // the sums start from the first products (see sum_to_byte)
                const BYTE* p = s + 4 * static_cast<std::size_t>(ix[0]);
                a0 = w[0] * p[0];
                a1 = w[0] * p[1];
                a2 = w[0] * p[2];
            }
            for (int k = 1; k < n; ++k) {
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

// Four rows' pixels (one 32-bit pixel a lane) to the four-row layout at out: r of the four
// rows, then g, then b.
inline void quad_pixel_to_pd(__m128i px, double* out) {
    const __m128i m = _mm_set1_epi32(0xFF);
    const __m128i ch[3] = {_mm_and_si128(px, m), _mm_and_si128(_mm_srli_epi32(px, 8), m),
                           _mm_and_si128(_mm_srli_epi32(px, 16), m)};
    for (int t = 0; t < 3; ++t) {
        _mm_storeu_pd(out + 4 * t, _mm_cvtepi32_pd(ch[t]));
        _mm_storeu_pd(out + 4 * t + 2, _mm_cvtepi32_pd(_mm_shuffle_epi32(ch[t], 0xEE)));
    }
}

void quad_to_pd_sse2(const BYTE* const* s, int np, double* out) {
    int x = 0;
    for (; x + 4 <= np; x += 4) {  // a 4 x 4 transpose of pixels: rows in, columns out
        const std::size_t o = 4 * static_cast<std::size_t>(x);
        const __m128i v0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s[0] + o));
        const __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s[1] + o));
        const __m128i v2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s[2] + o));
        const __m128i v3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s[3] + o));
        const __m128i t0 = _mm_unpacklo_epi32(v0, v1), t1 = _mm_unpacklo_epi32(v2, v3);
        const __m128i t2 = _mm_unpackhi_epi32(v0, v1), t3 = _mm_unpackhi_epi32(v2, v3);
        double* d = out + 12 * static_cast<std::size_t>(x);
        quad_pixel_to_pd(_mm_unpacklo_epi64(t0, t1), d);
        quad_pixel_to_pd(_mm_unpackhi_epi64(t0, t1), d + 12);
        quad_pixel_to_pd(_mm_unpacklo_epi64(t2, t3), d + 24);
        quad_pixel_to_pd(_mm_unpackhi_epi64(t2, t3), d + 36);
    }
    for (; x < np; ++x) {
        int u[4];
        for (int r = 0; r < 4; ++r) std::memcpy(&u[r], s[r] + 4 * static_cast<std::size_t>(x), 4);
        quad_pixel_to_pd(_mm_setr_epi32(u[0], u[1], u[2], u[3]), out + 12 * static_cast<std::size_t>(x));
    }
}

// Lanes (row a, row b) of the three sums to one pixel each.
inline void store_two(__m128d r, __m128d g, __m128d b, BYTE* da, BYTE* db, bool write_b) {
    const __m128i rg = _mm_unpacklo_epi32(sums_to_int(r), sums_to_int(g));
    const __m128i bz = _mm_unpacklo_epi32(sums_to_int(b), _mm_setzero_si128());
    const __m128i px = _mm_packs_epi32(_mm_unpacklo_epi64(rg, bz), _mm_unpackhi_epi64(rg, bz));
    const __m128i bytes = _mm_packus_epi16(px, px);
    const int wa = _mm_cvtsi128_si32(bytes), wb = _mm_cvtsi128_si32(_mm_srli_si128(bytes, 4));
    std::memcpy(da, &wa, 4);
    if (write_b) std::memcpy(db, &wb, 4);
}

// Each tap of an output column costs one weight broadcast, six loads, six products and six
// sums for four rows' three channels.
void hsum_sse2(const HsumArgs& a) {
    for (int i = a.i0; i < a.i1; ++i) {
        const int* ix = a.index + static_cast<std::size_t>(i) * static_cast<std::size_t>(a.cap);
        const double* w = a.weight + static_cast<std::size_t>(i) * static_cast<std::size_t>(a.cap);
        __m128d r0 = _mm_setzero_pd(), g0 = _mm_setzero_pd(), b0 = _mm_setzero_pd();
        __m128d r1 = _mm_setzero_pd(), g1 = _mm_setzero_pd(), b1 = _mm_setzero_pd();
        const int n = a.count[i];
        if (n > 0) {
            const double* p = a.buf + 12 * static_cast<std::size_t>(ix[0] - a.lo);
            const __m128d wk = _mm_set1_pd(w[0]);
            r0 = _mm_mul_pd(wk, _mm_loadu_pd(p));
            r1 = _mm_mul_pd(wk, _mm_loadu_pd(p + 2));
            g0 = _mm_mul_pd(wk, _mm_loadu_pd(p + 4));
            g1 = _mm_mul_pd(wk, _mm_loadu_pd(p + 6));
            b0 = _mm_mul_pd(wk, _mm_loadu_pd(p + 8));
            b1 = _mm_mul_pd(wk, _mm_loadu_pd(p + 10));
        }
        for (int k = 1; k < n; ++k) {
            const double* p = a.buf + 12 * static_cast<std::size_t>(ix[k] - a.lo);
            const __m128d wk = _mm_set1_pd(w[k]);
            r0 = _mm_add_pd(r0, _mm_mul_pd(wk, _mm_loadu_pd(p)));
            r1 = _mm_add_pd(r1, _mm_mul_pd(wk, _mm_loadu_pd(p + 2)));
            g0 = _mm_add_pd(g0, _mm_mul_pd(wk, _mm_loadu_pd(p + 4)));
            g1 = _mm_add_pd(g1, _mm_mul_pd(wk, _mm_loadu_pd(p + 6)));
            b0 = _mm_add_pd(b0, _mm_mul_pd(wk, _mm_loadu_pd(p + 8)));
            b1 = _mm_add_pd(b1, _mm_mul_pd(wk, _mm_loadu_pd(p + 10)));
        }
        const std::size_t o = 4 * static_cast<std::size_t>(i);
        store_two(r0, g0, b0, a.out[0] + o, a.out[1] + o, a.rows > 1);
        if (a.rows > 2) store_two(r1, g1, b1, a.out[2] + o, a.out[3] + o, a.rows > 3);
    }
}

// Blocks of output columns whose taps together span at most kBlockColumns source columns
// (an output that alone spans more is a block of its own): each block's source columns are
// converted for four rows at a time into a buffer that stays in L1.
constexpr int kBlockColumns = 256;

struct ColumnBlock {
    int i0, i1, lo, hi;
};

std::vector<ColumnBlock> column_blocks(const Contributions& c, int n_out, int* widest) {
    std::vector<ColumnBlock> blocks;
    *widest = 1;
    for (int i = 0; i < n_out;) {
        ColumnBlock b{i, i, 0, -1};
        for (; i < n_out; ++i) {
            const int* ix = c.idx(i);
            int lo = b.lo, hi = b.hi;
            for (int k = 0, n = c.count[static_cast<std::size_t>(i)]; k < n; ++k) {
                if (hi < lo) lo = hi = ix[k];
                lo = std::min(lo, ix[k]);
                hi = std::max(hi, ix[k]);
            }
            if (b.i1 > b.i0 && hi - lo >= kBlockColumns) break;
            b.lo = lo;
            b.hi = hi;
            b.i1 = i + 1;
        }
        if (b.hi < b.lo) b.lo = b.hi = 0;  // no taps at all: nothing is read
        *widest = std::max(*widest, b.hi - b.lo + 1);
        blocks.push_back(b);
    }
    return blocks;
}

void hpass_blocks(kiv& src, kiv& dst, const Contributions& c, const std::vector<ColumnBlock>& blocks, int widest,
                  int y0, int y1) {
#  if KIV_HAVE_AVX2
    const bool avx2 = kivcore::use_avx2();
#  endif
    std::vector<double> buf(12 * static_cast<std::size_t>(widest));
    HsumArgs a{};
    a.buf = buf.data();
    a.index = c.index.data();
    a.weight = c.weight.data();
    a.count = c.count.data();
    a.cap = c.cap;
    a.clamp = !c.small_sums;
    for (int y = y0; y < y1; y += 4) {
        // Missing rows at a chunk's end repeat the last one and are not written.
        a.rows = std::min(4, y1 - y);
        const BYTE* s[4];
        for (int r = 0; r < 4; ++r) {
            const int yr = y + std::min(r, a.rows - 1);
            s[r] = reinterpret_cast<const BYTE*>(row_ptr(src, yr));
            a.out[r] = reinterpret_cast<BYTE*>(row_ptr(dst, yr));
        }
        for (const ColumnBlock& b : blocks) {
            const BYTE* sb[4];
            for (int r = 0; r < 4; ++r) sb[r] = s[r] + 4 * static_cast<std::size_t>(b.lo);
            a.lo = b.lo;
            a.i0 = b.i0;
            a.i1 = b.i1;
#  if KIV_HAVE_AVX2
            if (avx2) {
                quad_to_pd_avx2(sb, b.hi - b.lo + 1, buf.data());
                hsum_avx2(a);
                continue;
            }
#  endif
            quad_to_pd_sse2(sb, b.hi - b.lo + 1, buf.data());
            hsum_sse2(a);
        }
    }
}
#endif

void hpass(kiv& src, kiv& dst, const Contributions& c) {
#if KIV_HAVE_SSE2
    if (kivcore::use_sse2()) {
        int widest = 1;
        const std::vector<ColumnBlock> blocks = column_blocks(c, dst.m_width, &widest);
        kivcore::parallel_chunks(0, dst.m_height,
                                 [&](int y0, int y1) { hpass_blocks(src, dst, c, blocks, widest, y0, y1); });
        return;
    }
#endif
    kivcore::parallel_chunks(0, dst.m_height, [&](int y0, int y1) { hpass_rows_scalar(src, dst, c, y0, y1); });
}

// ---- Vertical pass: dst row i is the weighted sum of the listed rows of src.

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

// Rows streamed strip by strip: one accumulator strip per chunk, each source row added in
// whole. The scalar path, and the vector path's fallback for spans too tall to buffer.
void vpass_rows(kiv& src, kiv& dst, const Contributions& c, int y0, int y1) {
    const std::size_t line = static_cast<std::size_t>(dst.m_width) * 4;  // bytes of a row
    const std::size_t strip = static_cast<std::size_t>(kStripPixels) * 4;
    std::vector<double> acc(strip);
#if KIV_HAVE_SSE2
    const bool sse = kivcore::use_sse2();
#endif
    for (int y = y0; y < y1; ++y) {
        const int* ix = c.idx(y);
        const double* w = c.wt(y);
        const int n = c.count[static_cast<std::size_t>(y)];
        BYTE* d = reinterpret_cast<BYTE*>(row_ptr(dst, y));
        for (std::size_t x0 = 0; x0 < line; x0 += strip) {
            const std::size_t len = std::min(strip, line - x0);  // a multiple of 4
            if (n == 0) std::fill(acc.begin(), acc.begin() + static_cast<std::ptrdiff_t>(len), 0.0);
            for (int k = 0; k < n; ++k) {
                const bool first = k == 0;  // the first products start the sums
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
                            if (first) {
                                _mm_storeu_pd(a + 4 * t, _mm_mul_pd(wv, v0));
                                _mm_storeu_pd(a + 4 * t + 2, _mm_mul_pd(wv, v1));
                            } else {
                                _mm_storeu_pd(a + 4 * t, _mm_add_pd(_mm_loadu_pd(a + 4 * t), _mm_mul_pd(wv, v0)));
                                _mm_storeu_pd(a + 4 * t + 2,
                                              _mm_add_pd(_mm_loadu_pd(a + 4 * t + 2), _mm_mul_pd(wv, v1)));
                            }
                        }
                    }
                }
#endif
                for (; j < len; ++j) acc[j] = first ? wk * s[j] : acc[j] + wk * s[j];
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
// Strips of np pixels of source rows as 3 doubles a pixel (alpha dropped).
void rgb_to_pd_sse2(const BYTE* s, int np, double* b) {
    int p = 0;
    for (; p + 4 <= np; p += 4) {  // four pixels: twelve doubles
        const __m128i z = _mm_setzero_si128();
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * p));
        const __m128i lo = _mm_unpacklo_epi8(v, z), hi = _mm_unpackhi_epi8(v, z);
        const __m128i q[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z), _mm_unpacklo_epi16(hi, z),
                              _mm_unpackhi_epi16(hi, z)};
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

// Each run of eight output pixels keeps its 24 sums in registers while all its taps are
// added in list order; the strip's last few pixels take one lane each.
void vsum_sse2(const VsumArgs& a) {
    int p0 = 0;
    for (; p0 + 8 <= a.np; p0 += 8) {
        __m128d acc[12];
        for (int m = 0; m < 12; ++m) acc[m] = _mm_setzero_pd();
        for (int k = 0; k < a.n; ++k) {
            const double* q = a.rows[k] + 3 * static_cast<std::size_t>(p0);
            const __m128d wk = _mm_set1_pd(a.w[k]);
            if (k == 0)
                for (int m = 0; m < 12; ++m) acc[m] = _mm_mul_pd(wk, _mm_loadu_pd(q + 2 * m));
            else
                for (int m = 0; m < 12; ++m) acc[m] = _mm_add_pd(acc[m], _mm_mul_pd(wk, _mm_loadu_pd(q + 2 * m)));
        }
        store_rgb8(acc, a.out + 4 * static_cast<std::size_t>(p0));
    }
    for (int p = p0; p < a.np; ++p) {
        BYTE* d = a.out + 4 * static_cast<std::size_t>(p);
        for (int ch = 0; ch < 3; ++ch) {
            const std::size_t o = 3 * static_cast<std::size_t>(p) + static_cast<std::size_t>(ch);
            double acc = a.n > 0 ? a.w[0] * a.rows[0][o] : 0.0;
            for (int k = 1; k < a.n; ++k) acc += a.w[k] * a.rows[k][o];
            d[ch] = sum_to_byte(acc);
        }
        d[3] = 0;
    }
}

// The vertical pass a column strip at a time. Each converted source row strip lives in a
// ring of slots (row r in slot r mod ring, ring at least the tallest span of one output's
// taps), so walking down the strip converts each source row once and every output row finds
// all its rows in the ring. The ring holds about 32 KB, so the sums read L1.
constexpr std::size_t kRingDoubles = 4096;
constexpr int kMaxRing = 2048;  // taller spans (huge shrink factors) go to vpass_rows
constexpr int kPrefetchRows = 8;

int ring_strip(int ring, int width) {
    const int s = std::max(8, static_cast<int>(kRingDoubles / (3 * static_cast<std::size_t>(ring))) / 8 * 8);
    return std::min(s, width);
}

void vpass_ring(kiv& src, kiv& dst, const Contributions& c, int ring, int y0, int y1) {
#  if KIV_HAVE_AVX2
    const bool avx2 = kivcore::use_avx2();
#  endif
    const int W = dst.m_width, strip = ring_strip(ring, W);
    const std::size_t slot_len = 3 * static_cast<std::size_t>(strip), cap = static_cast<std::size_t>(c.cap);
    std::vector<double> buf(static_cast<std::size_t>(ring) * slot_len);
    // The schedule is the same for every strip: the slot each tap reads, and the rows each
    // output row converts before its sums (fills[fill_at[y - y0]] onwards).
    std::vector<int> slot(static_cast<std::size_t>(y1 - y0) * cap), fill_at(static_cast<std::size_t>(y1 - y0) + 1);
    std::vector<int> fills, held(static_cast<std::size_t>(ring), -1);
    for (int y = y0; y < y1; ++y) {
        const int* ix = c.idx(y);
        for (int k = 0, n = c.count[static_cast<std::size_t>(y)]; k < n; ++k) {
            const int sl = ix[k] % ring;
            if (held[static_cast<std::size_t>(sl)] != ix[k]) {
                held[static_cast<std::size_t>(sl)] = ix[k];
                fills.push_back(ix[k]);
            }
            slot[static_cast<std::size_t>(y - y0) * cap + static_cast<std::size_t>(k)] = sl;
        }
        fill_at[static_cast<std::size_t>(y - y0) + 1] = static_cast<int>(fills.size());
    }
    const std::size_t nfills = fills.size();
    std::vector<const double*> rows(cap);
    VsumArgs a{};
    a.rows = rows.data();
    a.clamp = !c.small_sums;
    for (int x0 = 0; x0 < W; x0 += strip) {
        a.np = std::min(strip, W - x0);
        for (int y = y0; y < y1; ++y) {
            const std::size_t t = static_cast<std::size_t>(y - y0);
            for (int f = fill_at[t]; f < fill_at[t + 1]; ++f) {
                // A strip is a short piece of each row, too short for the hardware to see the
                // stream: ask for the piece a few conversions ahead now (the next strip's
                // first ones near the end).
                std::size_t ahead = static_cast<std::size_t>(f) + kPrefetchRows;
                int ax = x0;
                if (ahead >= nfills) {
                    ahead -= nfills;
                    ax += strip;
                }
                if (ahead < nfills && ax < W) {
                    const char* p = reinterpret_cast<const char*>(row_ptr(src, fills[ahead]) + ax);
                    for (int line = 0, len = 4 * std::min(strip, W - ax); line < len; line += 64)
                        _mm_prefetch(p + line, _MM_HINT_T0);
                }
                const int r = fills[static_cast<std::size_t>(f)];
                const BYTE* s = reinterpret_cast<const BYTE*>(row_ptr(src, r) + x0);
                double* b = buf.data() + static_cast<std::size_t>(r % ring) * slot_len;
#  if KIV_HAVE_AVX2
                if (avx2)
                    rgb_to_pd_avx2(s, a.np, b);
                else
#  endif
                    rgb_to_pd_sse2(s, a.np, b);
            }
            a.n = c.count[static_cast<std::size_t>(y)];
            const int* sl = slot.data() + t * cap;
            for (int k = 0; k < a.n; ++k)
                rows[static_cast<std::size_t>(k)] = buf.data() + static_cast<std::size_t>(sl[k]) * slot_len;
            a.w = c.wt(y);
            a.out = reinterpret_cast<BYTE*>(row_ptr(dst, y) + x0);
#  if KIV_HAVE_AVX2
            if (avx2) {
                vsum_avx2(a);
                continue;
            }
#  endif
            vsum_sse2(a);
        }
    }
}
#endif

void vpass(kiv& src, kiv& dst, const Contributions& c) {
#if KIV_HAVE_SSE2
    if (kivcore::use_sse2()) {
        int ring = 1;  // the tallest span of one output row's taps
        for (int y = 0; y < dst.m_height; ++y) {
            const int* ix = c.idx(y);
            const int n = c.count[static_cast<std::size_t>(y)];
            if (n == 0) continue;
            const auto mm = std::minmax_element(ix, ix + n);
            ring = std::max(ring, *mm.second - *mm.first + 1);
        }
        if (ring <= kMaxRing) {
            kivcore::parallel_chunks(0, dst.m_height, [&](int y0, int y1) { vpass_ring(src, dst, c, ring, y0, y1); });
            return;
        }
    }
#endif
    kivcore::parallel_chunks(0, dst.m_height, [&](int y0, int y1) { vpass_rows(src, dst, c, y0, y1); });
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
