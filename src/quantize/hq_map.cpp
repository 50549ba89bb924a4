// Mapping pixels to the refined quantizer's palette: nearest colour, or error diffusion
// that holds back where it would only add noise.
#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <thread>
#include <vector>

#include "core/parallel.h"
#include "quantize/hq.h"

namespace kivhq {

void map_nearest(const Source& s, const Mapping& m) {
    const MapRunFn run = kernels().map_run;
    const std::size_t w = static_cast<std::size_t>(s.width), total = w * static_cast<std::size_t>(s.height);
    // Spans of rows, four a thread (so that a thread slowed down by others' work is waited
    // for less), each with a colour cache of up to 2^15 words (no larger than a quarter of
    // its pixels): the cache is what makes most pixels cheap.
    const int slots = std::max(1, std::min(kivcore::parallel_threads() * 4, s.height));
    std::size_t size = 64;
    while (size < (std::size_t{1} << 15) && size * 4 < total / static_cast<std::size_t>(slots)) size *= 2;
    std::vector<std::uint64_t> caches(size * static_cast<std::size_t>(slots), 0);  // before any pixel changes
    kivcore::parallel_for(0, slots, [&](int t) {
        const int y0 = static_cast<int>(static_cast<long long>(s.height) * t / slots);
        const int y1 = static_cast<int>(static_cast<long long>(s.height) * (t + 1) / slots);
        run(m.grid->view(), m.out, m.transparent, s.alpha, reinterpret_cast<unsigned char*>(s.px + static_cast<std::size_t>(y0) * w),
            static_cast<std::size_t>(y1 - y0) * w, caches.data() + size * static_cast<std::size_t>(t), static_cast<std::uint32_t>(size - 1));
    });
}

namespace {

// Steps between checks of the band above (another thread's) progress.
constexpr int kStepChunk = 64;
// Colours each thread remembers while diffusing.
constexpr std::uint32_t kDiffuseCache = 1 << 15;

// Strength per pixel from the contrast around it in the original (see HoldFn).
void hold_back(const Source& s, std::uint8_t* out) {
    const HoldFn hold = kernels().hold;
    const std::size_t w = static_cast<std::size_t>(s.width);
    kivcore::parallel_chunks(0, s.height, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const unsigned char* r = reinterpret_cast<const unsigned char*>(s.px + static_cast<std::size_t>(y) * w);
            hold(y > 0 ? r - 4 * w : r, r, y + 1 < s.height ? r + 4 * w : r, s.width, s.alpha, out + static_cast<std::size_t>(y) * w);
        }
    });
}

}  // namespace

void error_limits(const Palette& pal, int* limit, int* dead) {
    for (int j = 0; j < pal.count; ++j) {
        int g = INT_MAX;
        for (int i = 0; i < pal.count; ++i) {
            int d = 0;
            for (int c = 0; c < 4; ++c) d += kWeight[c] * (pal.c[i][c] - pal.c[j][c]) * (pal.c[i][c] - pal.c[j][c]);
            g = i == j ? g : std::min(g, d);
        }
        // The distance to the nearest other entry, in units of a colour channel.
        const double gap = g == INT_MAX ? 255.0 : std::sqrt(static_cast<double>(g) / kWeight[0]);
        limit[j] = static_cast<int>(std::max(2.0, std::min(255.0, gap)) * 256);
        dead[j] = static_cast<int>(gap * 64);
    }
}

void map_diffuse(const Source& s, const Mapping& m, int strength) {
    const int w = s.width, h = s.height;
    std::vector<std::uint8_t> hold(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
    hold_back(s, hold.data());

    const DiffuseFn diffuse = kernels().diffuse;
    int entry[kMaxColors][4];
    for (int j = 0; j < m.pal->count; ++j)
        for (int c = 0; c < 4; ++c) entry[j][c] = m.pal->c[j][c] * 256;
    int scales[256];
    for (int h = 0; h < 256; ++h) scales[h] = strength * 256 / 100 * (h & 127) >> 7;
    const DiffuseParams params{m.grid->view(), m.out, entry, m.limit, m.dead, scales, m.transparent, w, s.alpha};
    const int bands = (h + kBandRows - 1) / kBandRows;
    const int threads = std::max(1, std::min(kivcore::parallel_threads(), bands));
    // Error rows in a ring, zero at the start: row y reads slot y and writes slot y + 1.
    // Bands in flight touch at most (threads + 1) x kBandRows + 2 consecutive slots.
    const int ring = (threads + 1) * kBandRows + 2;
    const std::size_t span = 4 * (static_cast<std::size_t>(w) + 2);
    std::vector<int> errors(static_cast<std::size_t>(ring) * span, 0);
    std::vector<std::atomic<int>> done(static_cast<std::size_t>(bands));  // pixels finished in each band's last row
    for (auto& d : done) d.store(0, std::memory_order_relaxed);
    std::atomic<int> next_band{0};
    std::vector<std::uint64_t> caches(static_cast<std::size_t>(kDiffuseCache) * static_cast<std::size_t>(threads), 0);
    kivcore::parallel_for(0, threads, [&](int t) {
        std::uint64_t* cache = caches.data() + static_cast<std::size_t>(kDiffuseCache) * static_cast<std::size_t>(t);
        for (;;) {
            const int b = next_band.fetch_add(1);
            if (b >= bands) return;
            const int y0 = b * kBandRows, n = std::min(kBandRows, h - y0);
            DiffuseRow rows[kBandRows];
            for (int r = 0; r < n; ++r) {
                const int y = y0 + r;
                // Rows zero what they read, so a slot comes back zero but for the spare pixel
                // at each end (written, never read).
                int* next = errors.data() + static_cast<std::size_t>((y + 1) % ring) * span;
                std::fill(next, next + 4, 0);
                std::fill(next + span - 4, next + span, 0);
                rows[r] = DiffuseRow{cache, kDiffuseCache - 1, reinterpret_cast<unsigned char*>(s.px + static_cast<std::size_t>(y) * static_cast<std::size_t>(w)),
                                     hold.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(w),
                                     errors.data() + static_cast<std::size_t>(y % ring) * span, next, {0, 0, 0, 0}};
            }
            const int steps = w + 2 * (n - 1);
            for (int k0 = 0; k0 < steps; k0 += kStepChunk) {
                const int k1 = std::min(steps, k0 + kStepChunk);
                // The first row maps pixels up to k1 - 1; pixel x takes error from pixels
                // x - 1..x + 1 of the row above: the band above must have finished 0..k1.
                if (b > 0) {
                    const int need = std::min(w, k1 + 1);
                    while (done[static_cast<std::size_t>(b - 1)].load(std::memory_order_acquire) < need) std::this_thread::yield();
                }
                diffuse(params, rows, n, k0, k1);
                done[static_cast<std::size_t>(b)].store(std::max(0, std::min(w, k1 - 2 * (n - 1))), std::memory_order_release);
            }
        }
    });
}

}  // namespace kivhq
