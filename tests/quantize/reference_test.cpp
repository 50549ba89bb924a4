// The median cut and the five mapping methods against plain per-cell / per-pixel models.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <vector>

#include "kiv.h"
#include "quantize/quantize.h"
#include "support/test_images.h"

using kivquant::Palette;
using kivquant::Rgb;
using kivtest::images_equal;

namespace {

// ---- Median cut, cell by cell ---------------------------------------------------------

struct RefBox {
    int lo[3], hi[3], split[3];
    std::uint64_t volume, var[3];
};

using Hist = std::vector<std::uint32_t>;

std::uint32_t at(const Hist& h, const int c[3]) { return h[static_cast<std::size_t>((c[0] * 64 + c[1]) * 32 + c[2])]; }
int centre(int axis, int s) { return axis == 2 ? s * 8 + 4 : s * 4 + 2; }

// Calls f(cell) for the box's cells with axis `fixed` held at s (or all cells for -1), the
// other axes ascending in red, green, blue order.
template <class F>
void each_cell(const RefBox& b, int fixed, int s, F f) {
    int lo[3] = {b.lo[0], b.lo[1], b.lo[2]}, hi[3] = {b.hi[0], b.hi[1], b.hi[2]};
    if (fixed >= 0) lo[fixed] = hi[fixed] = s;
    int c[3];
    for (c[0] = lo[0]; c[0] <= hi[0]; ++c[0])
        for (c[1] = lo[1]; c[1] <= hi[1]; ++c[1])
            for (c[2] = lo[2]; c[2] <= hi[2]; ++c[2]) f(c);
}

Rgb ref_mean(const Hist& h, const RefBox& b) {
    std::uint64_t total = 0, sum[3] = {};
    each_cell(b, -1, 0, [&](const int c[3]) {
        std::uint64_t n = at(h, c);
        total += n;
        for (int a = 0; a < 3; ++a) sum[a] += n * static_cast<std::uint64_t>(centre(a, c[a]));
    });
    if (total == 0) return Rgb{0, 0, 0};
    return Rgb{int((sum[0] + total / 2) / total), int((sum[1] + total / 2) / total), int((sum[2] + total / 2) / total)};
}

void ref_update(const Hist& h, RefBox& b) {
    for (int a = 0; a < 3; ++a) {  // red min, red max, green min, ...
        for (int s = b.lo[a]; s <= b.hi[a]; ++s) {
            bool any = false;
            each_cell(b, a, s, [&](const int c[3]) { any |= at(h, c) != 0; });
            if (any) {
                b.lo[a] = s;
                break;
            }
        }
        for (int s = b.hi[a]; s >= b.lo[a]; --s) {
            bool any = false;
            each_cell(b, a, s, [&](const int c[3]) { any |= at(h, c) != 0; });
            if (any) {
                b.hi[a] = s;
                break;
            }
        }
    }
    const long long w[3] = {120, 236, 88};
    b.volume = 0;
    for (int a = 0; a < 3; ++a) b.volume += std::uint64_t((b.hi[a] - b.lo[a]) * w[a] * (b.hi[a] - b.lo[a]) * w[a]);
    Rgb m = ref_mean(h, b);
    const int mean[3] = {m.r, m.g, m.b};
    b.var[0] = b.var[1] = b.var[2] = 0;
    each_cell(b, -1, 0, [&](const int c[3]) {
        for (int a = 0; a < 3; ++a) {
            long long d = centre(a, c[a]) - mean[a];
            b.var[a] += at(h, c) * std::uint64_t(d * d);
        }
    });
    for (int a = 0; a < 3; ++a) {
        b.split[a] = b.lo[a];
        std::uint64_t sum = 0;
        bool over = false;
        for (int s = b.lo[a]; s < b.hi[a] && !over; ++s)
            each_cell(b, a, s, [&](const int c[3]) {
                if (over || at(h, c) == 0) return;
                long long d = centre(a, s) - mean[a];
                sum += at(h, c) * std::uint64_t(d * d);
                if (2 * sum <= b.var[a]) b.split[a] = s;
                else over = true;
            });
    }
}

Palette ref_median_cut(const Hist& h, int colors) {
    std::vector<RefBox> boxes(1, RefBox{{0, 0, 0}, {63, 63, 31}, {}, 0, {}});
    ref_update(h, boxes[0]);
    const std::uint64_t wt[3] = {30, 59, 11};
    while (static_cast<int>(boxes.size()) < colors) {
        std::uint64_t best = 0;
        int pick = -1;
        for (std::size_t i = 0; i < boxes.size(); ++i)
            for (int a : {1, 0, 2})
                if (boxes[i].volume != 0 && boxes[i].var[a] * wt[a] > best) {
                    best = boxes[i].var[a] * wt[a];
                    pick = static_cast<int>(i);
                }
        if (pick < 0) break;
        RefBox nb = boxes[static_cast<std::size_t>(pick)];
        RefBox& b = boxes[static_cast<std::size_t>(pick)];
        int axis = 1;
        if (b.var[0] * 30 > b.var[1] * 59) axis = 0;
        if (b.var[2] * 11 > b.var[axis] * wt[axis]) axis = 2;
        b.hi[axis] = b.split[axis];
        nb.lo[axis] = b.split[axis] + 1;
        ref_update(h, b);
        ref_update(h, nb);
        boxes.push_back(nb);
    }
    Palette p;
    p.count = static_cast<int>(boxes.size());
    for (int i = 0; i < p.count; ++i) p.entry[i] = ref_mean(h, boxes[static_cast<std::size_t>(i)]);
    std::stable_sort(p.entry, p.entry + p.count, [](const Rgb& a, const Rgb& b) {
        int la = (std::min({a.r, a.g, a.b}) + std::max({a.r, a.g, a.b})) >> 1;
        int lb = (std::min({b.r, b.g, b.b}) + std::max({b.r, b.g, b.b})) >> 1;
        if (la != lb) return la < lb;
        return 77 * a.r + 150 * a.g + 29 * a.b < 77 * b.r + 150 * b.g + 29 * b.b;
    });
    return p;
}

// Images whose colours cluster around a few centres with random spread: the median cut
// then meets uneven boxes, empty slices and ties.
kiv clustered_image(int w, int h, std::uint64_t seed) {
    kivtest::Rng rng(seed);
    kiv img(w, h, 24);
    const int clusters = 1 + rng.below(12), spread = 1 + rng.below(90);
    std::vector<Rgb> c;
    for (int i = 0; i < clusters; ++i) c.push_back(Rgb{rng.byte(), rng.byte(), rng.byte()});
    auto jitter = [&](int v) { return std::clamp(v + rng.below(2 * spread + 1) - spread, 0, 255); };
    for (int i = 0; i < img.m_packets; ++i) {
        const Rgb& k = c[static_cast<std::size_t>(rng.below(clusters))];
        img.m_pixels[i] = tagRGBA{BYTE(jitter(k.r)), BYTE(jitter(k.g)), BYTE(jitter(k.b)), rng.byte()};
    }
    return img;
}

Hist histogram(const kiv& img) {
    Hist h(kivquant::kCells, 0);
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA& p = img.m_pixels[i];
        ++h[static_cast<std::size_t>(kivquant::cell_of(p.r, p.g, p.b))];
    }
    return h;
}

::testing::AssertionResult same_palette(const Palette& a, const Palette& b) {
    if (a.count != b.count) return ::testing::AssertionFailure() << a.count << " vs " << b.count << " entries";
    for (int i = 0; i < a.count; ++i)
        if (a.entry[i].r != b.entry[i].r || a.entry[i].g != b.entry[i].g || a.entry[i].b != b.entry[i].b)
            return ::testing::AssertionFailure() << "entry " << i << ": (" << a.entry[i].r << "," << a.entry[i].g << ","
                                                 << a.entry[i].b << ") vs (" << b.entry[i].r << "," << b.entry[i].g
                                                 << "," << b.entry[i].b << ")";
    return ::testing::AssertionSuccess();
}

// ---- Mapping, pixel by pixel ----------------------------------------------------------

// Nearest entry to the centre of v's cell over the whole palette, earliest on ties: what
// the pruned block cache must give.
int nearest(const Palette& p, int r, int g, int b) {
    const int cr = (r >> 2) * 4 + 2, cg = (g >> 2) * 4 + 2, cb = (b >> 3) * 8 + 4;
    long long best = LLONG_MAX;
    int win = 0;
    for (int i = 0; i < p.count; ++i) {
        long long dr = 30 * (cr - p.entry[i].r), dg = 59 * (cg - p.entry[i].g), db = 11 * (cb - p.entry[i].b);
        long long d = dr * dr + dg * dg + db * db;
        if (d < best) best = d, win = i;
    }
    return win;
}

int limit(int mode, int e) {
    int a = std::abs(e), l;
    if (mode == 1) l = std::min(a, 190);
    else l = a < 24 ? a : a < 72 ? 24 + (a - 24) / 2 : 48;
    return e < 0 ? -l : l;
}

std::vector<int> ref_map(const kiv& img, int mode, const Palette& p) {
    const int w = img.m_width, h = img.m_height;
    std::vector<int> idx(static_cast<std::size_t>(img.m_packets));
    auto pix = [&](int x, int y) { return img.m_pixels[static_cast<std::size_t>(y) * w + x]; };
    if (mode == 1 || mode == 3) {
        // Whole-image error planes instead of two swapped rows.
        std::vector<int> err(static_cast<std::size_t>(3) * (w + 2) * (h + 1), 0);
        auto E = [&](int c, int x, int y) -> int& { return err[(static_cast<std::size_t>(c) * (h + 1) + y) * (w + 2) + x + 1]; };
        for (int y = 0; y < h; ++y) {
            int dir = y % 2 ? -1 : 1;
            for (int k = 0; k < w; ++k) {
                int x = dir > 0 ? k : w - 1 - k;
                tagRGBA s = pix(x, y);
                int v[3] = {s.r, s.g, s.b};
                for (int c = 0; c < 3; ++c) v[c] = std::clamp(v[c] + limit(mode, E(c, x, y)), 0, 255);
                int i = nearest(p, v[0], v[1], v[2]);
                int q[3] = {p.entry[i].r, p.entry[i].g, p.entry[i].b};
                for (int c = 0; c < 3; ++c) {
                    int e = v[c] - q[c];
                    E(c, x + dir, y) += e * 7 / 16;
                    E(c, x - dir, y + 1) += e * 3 / 16;
                    E(c, x, y + 1) += e * 5 / 16;
                    E(c, x + dir, y + 1) += e - e * 7 / 16 - e * 3 / 16 - e * 5 / 16;
                }
                idx[static_cast<std::size_t>(y) * w + x] = i;
            }
        }
        return idx;
    }
    const std::uint8_t* m = kivquant::threshold_matrix();
    int prev = 0;
    for (int i = 0; i < img.m_packets; ++i) {
        tagRGBA s = img.m_pixels[i];
        if (mode == 0) {
            idx[static_cast<std::size_t>(i)] = nearest(p, s.r, s.g, s.b);
        } else if (mode == 2) {
            int found = -1;
            for (int k = 0; k < p.count && found < 0; ++k)
                if (p.entry[k].r == s.r && p.entry[k].g == s.g && p.entry[k].b == s.b) found = k;
            idx[static_cast<std::size_t>(i)] = prev = found >= 0 ? found : prev;
        } else {
            int x = i % w, y = i / w, t = m[(x & 127) * 128 + (y & 127)];
            const Rgb& n = p.entry[nearest(p, s.r, s.g, s.b)];
            int vr = std::clamp(n.r + 2 * (s.r - n.r) * t / 63, 0, 255);
            int vg = std::clamp(n.g + 2 * (s.g - n.g) * t / 63, 0, 255);
            int vb = std::clamp(n.b + 2 * (s.b - n.b) * t / 63, 0, 255);
            idx[static_cast<std::size_t>(i)] = nearest(p, vr, vg, vb);
        }
    }
    return idx;
}

Palette random_palette(kivtest::Rng& rng, const kiv& img) {
    Palette p;
    p.count = 1 + rng.below(256);
    for (int i = 0; i < p.count; ++i) {
        if (rng.below(3) == 0) {  // some image colours, so exact matching finds something
            tagRGBA s = img.m_pixels[rng.below(img.m_packets)];
            p.entry[i] = Rgb{s.r, s.g, s.b};
        } else if (i > 0 && rng.below(8) == 0) {  // repeated entries: the first must win
            p.entry[i] = p.entry[rng.below(i)];
        } else {
            p.entry[i] = Rgb{rng.byte(), rng.byte(), rng.byte()};
        }
    }
    return p;
}

// Each pixel of out is entry want[i] of p with that index in byte 3.
::testing::AssertionResult mapped_as(const kiv& out, const std::vector<int>& want, const Palette& p) {
    int bad = 0;
    ::testing::AssertionResult res = ::testing::AssertionSuccess();
    for (int i = 0; i < out.m_packets && bad < 5; ++i) {
        const tagRGBA& q = out.m_pixels[i];
        const int k = want[static_cast<std::size_t>(i)];
        const Rgb& e = p.entry[k];
        if (q.a != k || q.r != e.r || q.g != e.g || q.b != e.b) {
            if (bad++ == 0) res = ::testing::AssertionFailure();
            res << " pixel " << i << ": " << kivtest::rgba_str(q) << " want index " << k << ";";
        }
    }
    return res;
}

}  // namespace

TEST(QuantizeReference, MedianCutMatchesCellByCellModel) {
    kivtest::Rng rng(7);
    for (int round = 0; round < 24; ++round) {
        kiv img = round % 3 == 0 ? kivtest::random_image(1 + rng.below(90), 1 + rng.below(90), 24, 100 + round)
                                 : clustered_image(1 + rng.below(120), 1 + rng.below(120), 200 + round);
        Hist h = histogram(img);
        for (int colors : {1, 2, 3 + rng.below(14), 17 + rng.below(240), 256}) {
            Palette got;
            kivquant::median_cut(h.data(), colors, &got);
            ASSERT_TRUE(same_palette(ref_median_cut(h, colors), got)) << "round " << round << " colors " << colors;
            ASSERT_LE(got.count, colors);
        }
    }
}

TEST(QuantizeReference, UniformHistogramGivesOneEntry) {
    Hist h(kivquant::kCells, 0);
    h[static_cast<std::size_t>(kivquant::cell_of(200, 17, 99))] = 5000;
    Palette got;
    kivquant::median_cut(h.data(), 256, &got);
    ASSERT_EQ(1, got.count);
    EXPECT_EQ(202, got.entry[0].r);  // the cell's centre
    EXPECT_EQ(18, got.entry[0].g);
    EXPECT_EQ(100, got.entry[0].b);
}

// Every method, on odd sizes and on images large enough for the block-filled cache and the
// parallel paths, with one thread and with all of them.
TEST(QuantizeReference, MappingMatchesPixelByPixelModel) {
    kivtest::Rng rng(11);
    const int sizes[][2] = {{1, 1}, {1, 7}, {9, 1}, {2, 3}, {17, 5}, {33, 31}, {130, 3}, {200, 100}, {521, 509}};
    for (int threads : {1, 0}) {
        kiv::setthreads(threads);
        for (const auto& s : sizes)
            for (int mode = 0; mode <= 4; ++mode) {
                kiv img = rng.below(2) ? clustered_image(s[0], s[1], rng.next())
                                       : kivtest::random_image(s[0], s[1], 24, rng.next());
                Palette p = random_palette(rng, img);
                std::vector<int> want = ref_map(img, mode, p);
                kiv out(img);
                std::vector<std::uint32_t> cache(kivquant::kCells);
                kivquant::map_pixels(out.m_pixels, out.m_width, out.m_height, mode, p, cache.data());
                EXPECT_TRUE(mapped_as(out, want, p)) << "mode " << mode << " " << s[0] << "x" << s[1] << " threads "
                                                     << threads;
            }
    }
    kiv::setthreads(0);
}

// quantize as a whole against the models: the prescan's histogram (also across the pixel
// that ends the first-appearance list), the forced exact match, the median cut, the colour
// map and depth; and with a given palette, no prescan even on a few-coloured image.
TEST(QuantizeReference, QuantizeMatchesModelPipeline) {
    kivtest::Rng rng(23);
    for (int round = 0; round < 40; ++round) {
        const int mode = round % 5;
        kiv img = round % 4 == 0 ? kivtest::random_image(1 + rng.below(24), 1 + rng.below(24), 24, rng.next())
                                 : clustered_image(1 + rng.below(60), 1 + rng.below(60), rng.next());
        Palette firsts;
        std::vector<std::uint32_t> seen;
        for (int i = 0; i < img.m_packets; ++i) {
            const tagRGBA& s = img.m_pixels[i];
            const std::uint32_t key = s.r | s.g << 8 | s.b << 16;
            if (std::find(seen.begin(), seen.end(), key) != seen.end()) continue;
            seen.push_back(key);
            if (firsts.count < kivquant::kMaxEntries) firsts.entry[firsts.count++] = Rgb{s.r, s.g, s.b};
        }
        const int distinct = static_cast<int>(seen.size());
        const int pick[3] = {distinct - 1, distinct, 1 + rng.below(256)};
        const int colors = std::clamp(pick[rng.below(3)], 1, 256);
        kiv out(img);
        Palette p;
        std::vector<int> want;
        if (round % 5 == 4 && distinct <= 256) {
            p = random_palette(rng, img);
            std::vector<unsigned char> block(sizeof(tagLOGPALETTE) + sizeof(PALETTEENTRY) * 256);
            tagLOGPALETTE* lp = reinterpret_cast<tagLOGPALETTE*>(block.data());
            lp->palVersion = 0x300;
            lp->palNumEntries = static_cast<WORD>(p.count);
            for (int i = 0; i < p.count; ++i)
                lp->palPalEntry[i] = PALETTEENTRY{BYTE(p.entry[i].r), BYTE(p.entry[i].g), BYTE(p.entry[i].b), 0};
            out.quantize(round % 3, 0, lp);
            want = ref_map(img, round % 3, p);
        } else {
            const bool few = distinct <= colors;
            p = few ? firsts : ref_median_cut(histogram(img), colors);
            out.quantize(mode, colors, nullptr);
            want = ref_map(img, few ? 2 : mode, p);
        }
        ASSERT_EQ(p.count, out.m_colors) << "round " << round;
        EXPECT_EQ(p.count <= 2 ? 1 : p.count <= 16 ? 4 : 8, out.m_bits) << "round " << round;
        for (int i = 0; i < p.count; ++i)
            EXPECT_TRUE(out.m_map[i].r == p.entry[i].r && out.m_map[i].g == p.entry[i].g &&
                        out.m_map[i].b == p.entry[i].b && out.m_map[i].a == 0)
                << "round " << round << " entry " << i;
        EXPECT_TRUE(mapped_as(out, want, p)) << "round " << round << " mode " << mode << " colors " << colors;
    }
}

// An entry whose nearest point of a block is exactly the smallest farthest distance can
// still tie at that corner, and as the earlier entry it must win: pruning keeps it.
TEST(QuantizeReference, PruningKeepsAnEntryTyingAtTheBlockCorner) {
    Palette p;
    p.count = 2;
    p.entry[0] = Rgb{58, 58, 52};  // beyond the corner (30, 30, 28) of the first block
    p.entry[1] = Rgb{2, 2, 4};     // at the opposite corner: just as far from (30, 30, 28)
    kiv img(2, 1, 24);
    img.m_pixels[0] = tagRGBA{30, 30, 28, 0};
    img.m_pixels[1] = tagRGBA{3, 3, 5, 0};
    std::vector<std::uint32_t> cache(kivquant::kCells);
    kivquant::map_pixels(img.m_pixels, 2, 1, 0, p, cache.data());
    EXPECT_EQ(0, img.m_pixels[0].a);
    EXPECT_EQ(1, img.m_pixels[1].a);
    EXPECT_EQ(0, nearest(p, 30, 30, 28));
}

// The per-cell search of small images visits entries by green distance: on ties (repeated
// colours, and pairs mirrored in green about a cell centre) the earlier entry must still win.
TEST(QuantizeReference, CellSearchKeepsTheEarlierEntryOnTies) {
    kivtest::Rng rng(5);
    Palette p;
    p.count = 256;
    for (int i = 0; i < 256; i += 2) {
        const int r = rng.below(256), g = rng.below(240), b = rng.below(256);
        p.entry[i] = Rgb{r, g, b};
        p.entry[i + 1] = i % 4 == 0 ? p.entry[i] : Rgb{r, g + 16, b};  // a repeat, or its mirror in green
    }
    kiv img = kivtest::random_image(40, 30, 24, 9);
    for (int mode : {0, 1, 4}) {
        kiv out(img);
        std::vector<std::uint32_t> cache(kivquant::kCells);
        kivquant::map_pixels(out.m_pixels, out.m_width, out.m_height, mode, p, cache.data());
        EXPECT_TRUE(mapped_as(out, ref_map(img, mode, p), p)) << "mode " << mode;
    }
}
