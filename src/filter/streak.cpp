// Streak blurs: sblur_wind (a fading trail of the brightest recent pixel) and sblur_blast
// (the larger of a pixel and the mean of the pixels upwind), along rows or columns.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "core/simd.h"
#include "core/watch.h"
#include "filter/filter.h"
#include "filter/streak_simd.h"

namespace {

using namespace kivfilter;

constexpr int kMaxStreak = 1000;  // pixels

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

// body(b, e) over strips of groups [b, e) of `group` columns covering w columns, one strip a
// thread: a strip runs down every row, so wide strips keep its rows' pieces long.
template <class Body>
void for_strips(int w, int group, Body body) {
    const int groups = (w + group - 1) / group;
    const int strips = kivcore::watched_pieces(std::max(1, std::min(groups, kivcore::parallel_threads())), groups);
    kivcore::parallel_for(0, strips, [&](int k) {
        body(static_cast<int>(static_cast<long long>(groups) * k / strips),
             static_cast<int>(static_cast<long long>(groups) * (k + 1) / strips));
    });
}

// The streak blurs in place with the SSE2 kernels (line: across, rows; columns: along, all
// the lines of a strip at once).
void wind_vector(kiv* img, const Area& a, int direction, int strength, decltype(&wind_line_sse2) line,
                 decltype(&wind_columns_sse2) columns) {
    const int w = a.w(), h = a.h();
    const bool reverse = direction == 1 || direction == 3;
    auto fade_of = [&](int line) { return std::max(1, 255 / streak_length(line, strength)); };
    if (direction < 2) {
        kivcore::parallel_for(0, h, kivcore::row_work(w, 4),
                              [&](int q) { line(bytes(row_ptr(*img, a.top + q) + a.left), w, reverse, fade_of(q)); });
        return;
    }
    // Four columns a vector; a last, partial group goes through a copy.
    for_strips(w, 4, [&](int gb, int ge) {
        std::vector<int> fades(4 * static_cast<std::size_t>(ge - gb));
        for (int c = 4 * gb; c < 4 * ge; ++c)
            fades[static_cast<std::size_t>(c - 4 * gb)] =
                c < w ? static_cast<int>(static_cast<unsigned>(fade_of(c)) * 0x01010101u) : 0;
        std::vector<tagRGBA> trail(4 * static_cast<std::size_t>(ge - gb), tagRGBA{0, 0, 0, 0});
        const int whole = std::min(ge, w / 4) - gb;  // groups of four inside the rectangle
        for (int k = 0; k < h; ++k) {
            tagRGBA* row = row_ptr(*img, a.top + (reverse ? h - 1 - k : k)) + a.left + 4 * gb;
            auto* f = reinterpret_cast<const unsigned char*>(fades.data());
            if (whole > 0) columns(bytes(row), bytes(trail.data()), f, whole);
            if (gb + whole < ge) {
                const int m = w - 4 * (gb + whole);
                tagRGBA part[4] = {};
                std::copy(row + 4 * whole, row + 4 * whole + m, part);
                columns(bytes(part), bytes(trail.data() + 4 * whole), f + 16 * whole, 1);
                std::copy(part, part + m, row + 4 * whole);
            }
        }
    });
}

void blast_vector(kiv* img, const Area& a, int direction, int strength, decltype(&blast_line_sse2) line,
                  decltype(&blast_columns_sse2) columns) {
    const int w = a.w(), h = a.h();
    const bool reverse = direction == 1 || direction == 3;
    if (direction < 2) {
        // Each row from a copy of itself: the line reads inputs len elements back.
        kivcore::parallel_chunks(0, h, kivcore::row_work(w, 4), [&](int qb, int qe) {
            std::vector<tagRGBA> in(static_cast<std::size_t>(w));
            for (int q = qb; q < qe; ++q) {
                tagRGBA* p = row_ptr(*img, a.top + q) + a.left;
                std::copy(p, p + w, in.begin());
                line(bytes(in.data()), bytes(p), w, reverse, streak_length(q, strength));
            }
        });
        return;
    }
    // Columns: every input from a copy of the rectangle, the results into the image.
    const std::size_t sw = static_cast<std::size_t>(w);
    const UnzeroedBlock block(sw * static_cast<std::size_t>(h) * sizeof(tagRGBA));
    tagRGBA* const in = block.as<tagRGBA>();
    kivcore::parallel_for(0, h, kivcore::row_work(w, 0.25), [&](int j) {
        const tagRGBA* p = row_ptr(*img, a.top + j) + a.left;
        std::copy(p, p + w, in + j * sw);
    });
    kivcore::parallel_chunks(0, w, kivcore::row_work(h, 4), [&](int cb, int ce) {
        std::vector<int> len(static_cast<std::size_t>(ce - cb)), sums(4 * len.size(), 0);
        for (int c = cb; c < ce; ++c) len[static_cast<std::size_t>(c - cb)] = streak_length(c, strength);
        for (int k = 0; k < h; ++k) {
            const int j = reverse ? h - 1 - k : k;
            columns(bytes(in), static_cast<long long>(sw), j, reverse ? 1 : -1,
                    bytes(row_ptr(*img, a.top + j) + a.left), cb, ce - cb, k, len.data(), sums.data());
        }
    });
}

// What both streak blurs do: check the arguments, raise the depth, then run the vector form
// (its SSE2 kernels: line across, columns along) where it runs, else line_fn on every line.
template <class Line, class Columns, class LineFn>
int streak(kiv* img, tagRECT* rect, int direction, int strength, Line line, Columns columns,
           void (*vector)(kiv*, const Area&, int, int, Line, Columns), LineFn line_fn) {
    Area a;
    if (!clip_rect(*img, rect, &a) || direction < 0 || direction > 3 || strength < 1 || strength > kMaxStreak) return 0;
    raise_depth_24(*img);
    if (line)
        vector(img, a, direction, strength, line, columns);
    else
        per_wind_line(img, a, direction, line_fn);
    return 1;
}

}  // namespace

int kiv::sblur_wind(tagRECT* rect, int direction, int strength) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        return streak(
            this, rect, direction, strength, kivcore::pick_sse2(KIV_SSE2_KERNEL(wind_line_sse2)),
            KIV_SSE2_KERNEL(wind_columns_sse2), wind_vector, [&](const tagRGBA* in, tagRGBA* out, int n, int line) {
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
    });
}

int kiv::sblur_blast(tagRECT* rect, int direction, int strength) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        return streak(
            this, rect, direction, strength, kivcore::pick_sse2(KIV_SSE2_KERNEL(blast_line_sse2)),
            KIV_SSE2_KERNEL(blast_columns_sse2), blast_vector, [&](const tagRGBA* in, tagRGBA* out, int n, int line) {
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
    });
}
