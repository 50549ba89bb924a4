// Histogram-driven adjustments: autocontrast, equalize, normalize, autocolorenhance.
#include <array>
#include <mutex>

#include "adjust/adjust.h"
#include "adjust/histogram_simd.h"
#include "core/color_models.h"
#include "core/simd.h"
#include "core/watch.h"

using namespace kivadjust;

namespace {

using Histogram = std::array<u32, 256>;

inline u32 luminance(u32 w) {
    return static_cast<u32>(kivcore::luminance(static_cast<int>(w & 0xFF), static_cast<int>((w >> 8) & 0xFF),
                                               static_cast<int>((w >> 16) & 0xFF)));
}

// Luminance histogram of every pixel of the image.  Rows are counted in parallel into
// private histograms and summed: counts are exact, so the split changes nothing.
Histogram luminance_histogram(kiv& img) {
    Histogram total{};
    std::mutex mu;
    const tagRGBA* base = img.m_pixels;
    const std::size_t stride = static_cast<std::size_t>(img.m_width);
    const int n = img.m_width;
    const auto vec = kivcore::pick_sse2(KIV_SSE2_KERNEL(count_luminance_sse2));
    kivcore::parallel_chunks(0, img.m_height, kivcore::row_work(n, 1), [&](int y0, int y1) {
        // Eight interleaved counters per level so runs of equal levels do not serialise on
        // one memory location.
        u32 part[8][256] = {};
        for (int y = y0; y < y1; ++y) {
            const tagRGBA* p = base + static_cast<std::size_t>(y) * stride;
            int i = vec ? vec(reinterpret_cast<const u8*>(p), n, part) : 0;
            for (; i + 4 <= n; i += 4) {
                ++part[0][luminance(load(p + i))];
                ++part[1][luminance(load(p + i + 1))];
                ++part[2][luminance(load(p + i + 2))];
                ++part[3][luminance(load(p + i + 3))];
            }
            for (; i < n; ++i) ++part[0][luminance(load(p + i))];
        }
        std::lock_guard<std::mutex> lock(mu);
        for (int v = 0; v < 256; ++v)
            for (int k = 0; k < 8; ++k) total[v] += part[k][v];
    });
    return total;
}

// Applies one table to all three channels: rectangle rows in parallel, or the map.
void apply_one_table(kiv& img, const Area* rc, const u8 (&one)[256]) {
    Tables t;
    std::memcpy(t.r, one, 256);
    std::memcpy(t.g, one, 256);
    std::memcpy(t.b, one, 256);
    if (rc)
        tables_rect(img, *rc, t);
    else
        tables_colormap(img, t);
}

// Per-channel minimum and maximum of a set of words; lo starts at 255 and hi at 0.
struct Range {
    int lo[3] = {255, 255, 255}, hi[3] = {0, 0, 0};
    void add(u32 w) {
        for (int c = 0; c < 3; ++c) {
            const int v = static_cast<int>((w >> (8 * c)) & 0xFF);
            lo[c] = v < lo[c] ? v : lo[c];
            hi[c] = v > hi[c] ? v : hi[c];
        }
    }
    void merge(const Range& o) {
        for (int c = 0; c < 3; ++c) {
            lo[c] = o.lo[c] < lo[c] ? o.lo[c] : lo[c];
            hi[c] = o.hi[c] > hi[c] ? o.hi[c] : hi[c];
        }
    }
};

// Each channel's table stretches lo..hi to 0..255; with hi = lo the value stays.  Values
// outside lo..hi do not occur in the records the range was taken from.
void stretch_tables(const Range& r, Tables& t) {
    u8* out[3] = {t.r, t.g, t.b};
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v) {
            if (r.hi[c] > r.lo[c] && v >= r.lo[c] && v <= r.hi[c])
                out[c][v] = static_cast<u8>(255 * (v - r.lo[c]) / (r.hi[c] - r.lo[c]));
            else
                out[c][v] = static_cast<u8>(v);
        }
}

Range rect_range(kiv& img, const Area& rc) {
    Range total;
    std::mutex mu;
    const tagRGBA* base = img.m_pixels;
    const std::size_t stride = static_cast<std::size_t>(img.m_width);
    const auto range = kivcore::pick_sse2(KIV_SSE2_KERNEL(byte_range_sse2));
    kivcore::parallel_chunks(rc.top, rc.bottom, kivcore::row_work(rc.right - rc.left, 0.5), [&](int y0, int y1) {
        Range part;
        for (int y = y0; y < y1; ++y) {
            const tagRGBA* p = base + static_cast<std::size_t>(y) * stride + rc.left;
            // The row as plain bytes into 16 running minima and maxima (lane k holds channel
            // k % 4), 16 bytes a step in the vector kernel; the tail, or everything on the
            // scalar path, byte by byte into the same lanes.  Folded per channel below.
            const u8* bytes = reinterpret_cast<const u8*>(p);
            const std::size_t nb = static_cast<std::size_t>(rc.right - rc.left) * sizeof(tagRGBA);
            u8 lo16[16], hi16[16];
            std::memset(lo16, 255, sizeof lo16);
            std::memset(hi16, 0, sizeof hi16);
            std::size_t j = range ? range(bytes, nb, lo16, hi16) : 0;
            for (; j < nb; ++j) {
                lo16[j % 16] = bytes[j] < lo16[j % 16] ? bytes[j] : lo16[j % 16];
                hi16[j % 16] = bytes[j] > hi16[j % 16] ? bytes[j] : hi16[j % 16];
            }
            u8 lo[3] = {255, 255, 255}, hi[3] = {0, 0, 0};
            for (int k = 0; k < 16; ++k) {
                if (k % 4 == 3) continue;  // the fourth byte takes no part
                lo[k % 4] = lo16[k] < lo[k % 4] ? lo16[k] : lo[k % 4];
                hi[k % 4] = hi16[k] > hi[k % 4] ? hi16[k] : hi[k % 4];
            }
            Range row;
            for (int c = 0; c < 3; ++c) {
                row.lo[c] = lo[c];
                row.hi[c] = hi[c];
            }
            part.merge(row);
        }
        std::lock_guard<std::mutex> lock(mu);
        total.merge(part);
    });
    return total;
}

// The colour model of autocolorenhance: inverted channels less their common black part K,
// in the library's HSV model.
struct Cmy {
    kivcore::Hsv hsv;
    int k;
};
inline Cmy to_cmy_hsv(u32 w) {
    const int c = 255 - static_cast<int>(w & 0xFF), m = 255 - static_cast<int>((w >> 8) & 0xFF),
              y = 255 - static_cast<int>((w >> 16) & 0xFF);
    int k = c < m ? c : m;
    k = y < k ? y : k;
    return Cmy{kivcore::rgb_to_hsv(c - k, m - k, y - k), k};
}

struct ValueRange {
    double vmax = 0.0, vmin = 1.0;
    void add(double v) {
        if (v > vmax) vmax = v;
        if (v < vmin) vmin = v;
    }
};

u32 enhance_word(u32 w, const ValueRange& vr) {
    Cmy x = to_cmy_hsv(w);
    if (vr.vmax != vr.vmin) x.hsv.v = (x.hsv.v - vr.vmin) / (vr.vmax - vr.vmin);
    int c, m, y;
    kivcore::hsv_to_rgb(x.hsv, &c, &m, &y);
    // The black part goes back in a byte (wrapping), then the channels are inverted again.
    return pack(255 - static_cast<u8>(c + x.k), 255 - static_cast<u8>(m + x.k), 255 - static_cast<u8>(y + x.k));
}

}  // namespace

int kiv::autocontrast(tagRECT* rect) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area rc;
        if (!clip_rect(*this, rect, &rc)) return 0;
        Tables t;
        if (m_bits > 8) {
            kivcore::Stages stages({1, 1});
            const Range r = rect_range(*this, rc);
            stages.next();
            stretch_tables(r, t);
            tables_rect(*this, rc, t);
        } else {
            Range r;
            for (int i = 0; i < map_entries(*this); ++i) r.add(load(m_map + i));
            stretch_tables(r, t);
            tables_colormap(*this, t);
            validate_rgb();
        }
        return 1;
    });
}

int kiv::equalize(tagRECT* rect) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area rc;
        if (!clip_rect(*this, rect, &rc)) return 0;
        kivcore::Stages stages({1, 1});
        const Histogram hist = luminance_histogram(*this);  // of the whole image
        stages.next();
        u32 cum[256];
        u32 run = 0;
        for (int i = 0; i < 256; ++i) cum[i] = run += hist[i];
        if (cum[255] == 0) return 0;
        const u32 d = cum[255] - cum[0] != 0 ? cum[255] - cum[0] : 1;
        u8 table[256];
        // Unsigned 32-bit on purpose: the product wraps for images over 2^24 pixels, and the
        // quotient then still fits a byte.
        for (int i = 0; i < 256; ++i) table[i] = static_cast<u8>((cum[i] - cum[0]) * 255u / d);
        if (true_colour(*this)) {
            apply_one_table(*this, &rc, table);
        } else {
            apply_one_table(*this, nullptr, table);
            validate_rgb();
        }
        return 1;
    });
}

int kiv::normalize(tagRECT* rect) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        Area rc;
        if (!clip_rect(*this, rect, &rc)) return 0;
        kivcore::Stages stages({1, 1});
        const Histogram hist = luminance_histogram(*this);  // of the whole image
        stages.next();
        int lo = 255, hi = 0;
        // The first level from below and from above at which the running count exceeds
        // `limit`; lo stays 255 and hi 0 when none does.
        auto walk = [&](u32 limit) {
            u32 sum = 0;
            for (lo = 0; lo < 255; ++lo)
                if ((sum += hist[lo]) > limit) break;
            sum = 0;
            for (hi = 255; hi > 0; --hi)
                if ((sum += hist[hi]) > limit) break;
        };
        walk(static_cast<u32>(m_packets) / 100);  // one per cent of the pixels at each end
        if (lo == hi) walk(0);                     // narrow histogram: the outermost levels
        if (lo >= hi) {
            // A single luminance level: the image is destroyed, by contract.
            destroy();
            return 0;
        }
        u8 table[256];
        for (int i = 0; i < 256; ++i) {
            if (i < lo)
                table[i] = 0;
            else if (i > hi)
                table[i] = 255;
            else  // the high point maps to 254, not 255
                table[i] = static_cast<u8>(254u * static_cast<u32>(i - lo) / static_cast<u32>(hi - lo));
        }
        // 32-bit images count as true colour too (they have no map to change).
        if (true_colour(*this))
            apply_one_table(*this, &rc, table);
        else
            apply_one_table(*this, nullptr, table);  // map only: pixels keep their colours
        return 1;
    });
}

int kiv::autocolorenhance(tagRECT* rect) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!has_pixels(*this)) return 0;
        if (true_colour(*this)) {
            Area rc;
            if (!clip_rect(*this, rect, &rc)) return 0;
            // Extremes are exact whatever the order, so rows are scanned in parallel.
            ValueRange total;
            std::mutex mu;
            kivcore::Stages stages({1, 3});
            kivcore::parallel_chunks(rc.top, rc.bottom, kivcore::row_work(rc.right - rc.left, 16), [&](int y0, int y1) {
                ValueRange part;
                for (int y = y0; y < y1; ++y) {
                    const tagRGBA* p = pos(rc.left, y);
                    for (int i = 0; i < rc.right - rc.left; ++i) part.add(to_cmy_hsv(load(p + i)).hsv.v);
                }
                std::lock_guard<std::mutex> lock(mu);
                total.add(part.vmax);
                total.add(part.vmin);
            });
            stages.next();
            map_rect_cached(*this, rc, [&](u32 w) { return enhance_word(w, total); });
        } else {
            ValueRange vr;
            for (int i = 0; i < map_entries(*this); ++i) vr.add(to_cmy_hsv(load(m_map + i)).hsv.v);
            // The map changes; the pixels keep their old colours until it is applied to them.
            map_colormap(*this, [&](u32 w) { return enhance_word(w, vr); });
        }
        return 1;
    });
}
