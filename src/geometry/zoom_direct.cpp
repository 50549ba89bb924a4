// The direct resizers: pixel replication, nearest neighbour, bilinear, shrink to a frame.
#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "core/parallel.h"
#include "core/pixel_memory.h"
#include "core/watch.h"
#include "geometry/geometry.h"
#include "geometry/zoom_direct_simd.h"

namespace {

using kivcore::row_ptr;

// Sample position of output index x on an axis of n source pixels resized to m, in single
// precision: i = trunc(n * x / m) and its fraction, except that positions at or past the
// last pixel sample halfway between the last two. A one-pixel axis would then start at -1;
// callers clamp their reads.
struct Sample {
    int i;
    float frac;
};

Sample sample_at(int x, int n, int m) {
    const float f = static_cast<float>(n) * static_cast<float>(x) / static_cast<float>(m);
    // trunc(f) >= n - 1 exactly when f >= n - 1; comparing first keeps the conversion in range.
    if (static_cast<double>(f) >= static_cast<double>(n) - 1.0) return Sample{n - 2, 0.5f};
    const int i = static_cast<int>(f);
    return Sample{i, f - static_cast<float>(i)};
}

int clamp_index(long long i, int n) { return static_cast<int>(std::clamp<long long>(i, 0, n - 1)); }

// Nearest-neighbour index: the sample rounded up from a fraction of one half.
int nearest_at(int x, int n, int m) {
    Sample s = sample_at(x, n, m);
    return clamp_index(static_cast<long long>(s.i) + (s.frac >= 0.5f ? 1 : 0), n);
}

// Shared frame of zoom_pixel and zoom_near: result of the same depth and map, each pixel a
// whole copy of the source pixel (cols[x], rows[y]).
int resize_by_table(kiv& img, int w, int h, const std::vector<int>& cols, const std::vector<int>& rows) {
    kiv result;
    // Each row is written whole below.
    if (!kivcore::create_overwritten(&result, w, h, img.m_bits)) return 0;
    if (img.m_bits < 9 && !kivgeom::copy_colour_map(img, result)) return 0;
    kivcore::parallel_chunks(0, h, kivcore::row_work(w, 0.5), [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            tagRGBA* d = row_ptr(result, y);
            // Enlarging repeats source rows: a row equal to the one above (in this chunk) is
            // a plain copy of it.
            if (y > y0 && rows[static_cast<std::size_t>(y)] == rows[static_cast<std::size_t>(y) - 1]) {
                std::memcpy(d, d - w, static_cast<std::size_t>(w) * sizeof(tagRGBA));
                continue;
            }
            const tagRGBA* s = row_ptr(img, rows[static_cast<std::size_t>(y)]);
            for (int x = 0; x < w; ++x) d[x] = s[cols[static_cast<std::size_t>(x)]];
        }
    });
    result.validate_rgb();
    img.movefrom(&result);
    return 1;
}

using Tap = kivgeom::LinearTap;

// Rows y0..y1 of zoom_linear with the vector kernels. Results no taller than the source
// (whose rows seldom share source rows) read the four pixels of each output pixel directly;
// larger ones mix each source row across once, then combine the mixes of the two rows an
// output row reads (bottom mix * fy + top mix * (1 - fy), the order of the scalar
// expression), keeping the last two mixes.
struct LinearKernels {
    decltype(&kivgeom::linear_row_sse2) row;
    decltype(&kivgeom::linear_mix_row_sse2) mix;
    decltype(&kivgeom::linear_combine_sse2) combine;
};

void linear_rows_vector(kiv& src, kiv& dst, const Tap* tx, const Tap* ty, int y0, int y1, const LinearKernels& k) {
    const int w = dst.m_width;
    if (dst.m_height <= src.m_height) {
        for (int y = y0; y < y1; ++y)
            k.row(reinterpret_cast<const BYTE*>(row_ptr(src, ty[y].i0)),
                  reinterpret_cast<const BYTE*>(row_ptr(src, ty[y].i1)), tx, w, ty[y].f,
                  reinterpret_cast<BYTE*>(row_ptr(dst, y)));
        return;
    }
    std::vector<float> mix(8 * static_cast<std::size_t>(w));
    float* slot[2] = {mix.data(), mix.data() + 4 * static_cast<std::size_t>(w)};
    int held[2] = {-1, -1};
    // The mix of a source row, made in the slot that does not hold `keep` if not yet held.
    auto mixed = [&](int row, int keep) -> const float* {
        for (int i = 0; i < 2; ++i)
            if (held[i] == row) return slot[i];
        const int i = held[0] == keep ? 1 : 0;
        k.mix(reinterpret_cast<const BYTE*>(row_ptr(src, row)), tx, w, slot[i]);
        held[i] = row;
        return slot[i];
    };
    for (int y = y0; y < y1; ++y) {
        const Tap& v = ty[y];
        const float* top = mixed(v.i0, v.i1);
        const float* bot = mixed(v.i1, v.i0);
        k.combine(top, bot, v.f, 1.0f - v.f, w, reinterpret_cast<BYTE*>(row_ptr(dst, y)));
    }
}

bool valid_target(kiv& img, int w, int h) { return img.m_pixels && kivcore::checked_packets(w, h) > 0; }

// resize_by_table with the tables made from col(x) and row(y), for a valid target size.
template <class Col, class Row>
int resize_by_index(kiv& img, int w, int h, Col col, Row row) {
    if (!valid_target(img, w, h)) return 0;
    try {
        std::vector<int> cols(static_cast<std::size_t>(w)), rows(static_cast<std::size_t>(h));
        for (int x = 0; x < w; ++x) cols[static_cast<std::size_t>(x)] = col(x);
        for (int y = 0; y < h; ++y) rows[static_cast<std::size_t>(y)] = row(y);
        return resize_by_table(img, w, h, cols, rows);
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

}  // namespace

int kiv::zoom_pixel(int w, int h) {
    return kivcore::watched(*this, kivcore::Keep::kAside, [&]() -> int {
        // Columns truncate; rows round to nearest like MulDiv, which reaches row H when
        // enlarging by 2 or more, so they are clamped to the last row.
        const long long W = m_width, H = m_height;
        return resize_by_index(
            *this, w, h, [&](int x) { return clamp_index(W * x / w, m_width); },
            [&](int y) { return clamp_index((H * y + h / 2) / h, m_height); });
    });
}

int kiv::zoom_near(int w, int h) {
    return kivcore::watched(*this, kivcore::Keep::kAside, [&]() -> int {
        return resize_by_index(
            *this, w, h, [&](int x) { return nearest_at(x, m_width, w); },
            [&](int y) { return nearest_at(y, m_height, h); });
    });
}

int kiv::zoom_linear(int w, int h) {
    return kivcore::watched(*this, kivcore::Keep::kAside, [&]() -> int {
        if (!valid_target(*this, w, h)) return 0;
        try {
            // Per axis, once per call: the two neighbours read and the fraction toward the second.
            auto taps = [](int m, int n) {
                std::vector<Tap> t(static_cast<std::size_t>(m));
                for (int x = 0; x < m; ++x) {
                    Sample s = sample_at(x, n, m);
                    t[static_cast<std::size_t>(x)] =
                        Tap{clamp_index(s.i, n), clamp_index(static_cast<long long>(s.i) + 1, n), s.frac};
                }
                return t;
            };
            const std::vector<Tap> tx = taps(w, m_width), ty = taps(h, m_height);
            kiv result;
            if (!result.create(w, h, 24)) return 0;
            const LinearKernels k{kivcore::pick_sse2(KIV_SSE2_KERNEL(kivgeom::linear_row_sse2)),
                                  KIV_SSE2_KERNEL(kivgeom::linear_mix_row_sse2),
                                  kivcore::pick(KIV_AVX2_KERNEL(kivgeom::linear_combine_avx2),
                                                KIV_SSE2_KERNEL(kivgeom::linear_combine_sse2))};
            kivcore::parallel_chunks(0, h, kivcore::row_work(w, 3), [&](int y0, int y1) {
                if (k.row) return linear_rows_vector(*this, result, tx.data(), ty.data(), y0, y1, k);
                for (int y = y0; y < y1; ++y) {
                    const Tap& v = ty[static_cast<std::size_t>(y)];
                    const tagRGBA* r0 = row_ptr(*this, v.i0);
                    const tagRGBA* r1 = row_ptr(*this, v.i1);
                    const float fy = v.f, gy = 1.0f - v.f;
                    tagRGBA* d = row_ptr(result, y);
                    for (int x = 0; x < w; ++x) {
                        const Tap& u = tx[static_cast<std::size_t>(x)];
                        const float fx = u.f, gx = 1.0f - u.f;
                        const BYTE* p00 = &r0[u.i0].r;
                        const BYTE* p01 = &r0[u.i1].r;
                        const BYTE* p10 = &r1[u.i0].r;
                        const BYTE* p11 = &r1[u.i1].r;
                        BYTE out[3];
                        for (int c = 0; c < 3; ++c) {
                            float s = (p10[c] * gx + p11[c] * fx) * fy + (p00[c] * gx + p01[c] * fx) * gy;
                            out[c] = static_cast<BYTE>(std::min(s, 255.0f));  // a convex mix: never negative
                        }
                        d[x] = tagRGBA{out[0], out[1], out[2], 0};
                    }
                }
            });
            movefrom(&result);
            return 1;
        } catch (const std::bad_alloc&) {
            return 0;
        }
    });
}

int kiv::zoom_inframe(int w, int h) {
    if (!m_pixels) return 0;
    if (w >= m_width && h >= m_height) return 1;  // already fits
    const double s = std::min(std::min(static_cast<double>(w) / m_width, 1.0), std::min(static_cast<double>(h) / m_height, 1.0));
    const double nw = std::floor(m_width * s), nh = std::floor(m_height * s);
    if (!(nw >= 1.0 && nh >= 1.0)) return 0;  // the frame leaves no whole pixel
    return zoom_linear(static_cast<int>(nw), static_cast<int>(nh));
}
