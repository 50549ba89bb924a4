// Oil paint: the mean colour of the most frequent intensity bucket around each pixel,
// through a histogram that slides along each row (cost per pixel grows with the radius,
// not with its square).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "core/parallel.h"
#include "core/watch.h"
#include "effect/effect.h"

namespace kiveffect {
namespace {

// The window histogram of one row position: counts and colour sums per bucket, apart so
// that the search for the most frequent bucket reads the counts alone.
class Histogram {
public:
    explicit Histogram(int levels) : n_(static_cast<std::size_t>(levels)), sum_(3 * static_cast<std::size_t>(levels)) {}
    void clear() {
        std::fill(n_.begin(), n_.end(), 0);
        std::fill(sum_.begin(), sum_.end(), 0);
    }
    void add(int k, const tagRGBA& p) {
        ++n_[static_cast<std::size_t>(k)];
        int* s = sum_.data() + 3 * static_cast<std::size_t>(k);
        s[0] += p.r, s[1] += p.g, s[2] += p.b;
    }
    void remove(int k, const tagRGBA& p) {
        --n_[static_cast<std::size_t>(k)];
        int* s = sum_.data() + 3 * static_cast<std::size_t>(k);
        s[0] -= p.r, s[1] -= p.g, s[2] -= p.b;
    }
    // The most frequent bucket, the lowest index among equals.
    int best() const {
        const int* n = n_.data();
        const int levels = static_cast<int>(n_.size());
        int top = 0;
        for (int k = 0; k < levels; ++k) top = n[k] > top ? n[k] : top;
        int k = 0;
        while (n[k] != top) ++k;
        return k;
    }
    // recip[n] = floor(2^40 / n) + 1 makes (sum * recip[n]) >> 40 equal sum / n exactly
    // whenever sum * n < 2^40; here sum <= 255 n and n <= 201^2.
    tagRGBA mean(BYTE alpha, const std::uint64_t* recip) const {
        const int k = best();
        const std::uint64_t m = recip[n_[static_cast<std::size_t>(k)]];
        const int* s = sum_.data() + 3 * static_cast<std::size_t>(k);
        auto q = [m](int sum) { return static_cast<BYTE>((static_cast<std::uint64_t>(sum) * m) >> 40); };
        return tagRGBA{q(s[0]), q(s[1]), q(s[2]), alpha};
    }

private:
    std::vector<int> n_, sum_;
};

}  // namespace
}  // namespace kiveffect

int kiv::oilpaint(tagRECT* rect, int radius, int levels) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        using namespace kiveffect;
        Area a;
        if (!clip_rect(*this, rect, &a) || radius < 1 || radius > 100 || levels < 2 || levels > 256) return 0;
        raise_depth_24(*this);
        const int W = m_width, H = m_height, r = radius, K = 2 * radius + 1;
        // Sums with r go through long long: an image may be nearly INT_MAX pixels wide or tall.
        const int bx0 = std::max(0, a.left - r);
        const int bx1 = static_cast<int>(std::min<long long>(W, static_cast<long long>(a.right) + r));
        const std::size_t bw = static_cast<std::size_t>(bx1 - bx0);
        const int w = a.w();
        std::vector<tagRGBA> out(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()));
        std::vector<std::uint64_t> recip(static_cast<std::size_t>(K) * static_cast<std::size_t>(K) + 1, 0);
        for (std::size_t n = 1; n < recip.size(); ++n) recip[n] = (std::uint64_t(1) << 40) / n + 1;
        kivcore::parallel_chunks(a.top, a.bottom, [&](int b, int e) {
            // The window's K rows, column-major: ring[x * K + s] is the pixel of column bx0 + x
            // in the row held by slot s (row yy sits in slot yy mod K), its fourth byte replaced
            // by its bucket. Walking an image column directly strides by the row length, which
            // for power-of-two widths keeps hitting the same cache sets.
            std::vector<tagRGBA> ring(bw * static_cast<std::size_t>(K));
            std::vector<long long> slot_row(static_cast<std::size_t>(K), -1);
            auto load = [&](long long yy) {
                const std::size_t slot = static_cast<std::size_t>(((yy % K) + K) % K);
                slot_row[slot] = yy;
                if (yy < 0 || yy >= H) return;
                const tagRGBA* s = row_ptr(*this, static_cast<int>(yy)) + bx0;
                tagRGBA* o = ring.data() + slot;
                for (std::size_t i = 0; i < bw; ++i, o += K)
                    *o = tagRGBA{s[i].r, s[i].g, s[i].b,
                                 static_cast<BYTE>((kivcore::luminance(s[i].r, s[i].g, s[i].b) * levels) >> 8)};
            };
            std::vector<int> valid;  // slots holding rows inside the image
            Histogram hist(levels);
            auto column = [&](int x, bool add) {
                const tagRGBA* c = ring.data() + static_cast<std::size_t>(x - bx0) * static_cast<std::size_t>(K);
                for (int s : valid) {
                    if (add)
                        hist.add(c[s].a, c[s]);
                    else
                        hist.remove(c[s].a, c[s]);
                }
            };
            for (long long yy = b - r; yy < static_cast<long long>(b) + r; ++yy) load(yy);
            for (int y = b; y < e; ++y) {
                load(static_cast<long long>(y) + r);  // takes the slot of row y - r - 1, now out of the window
                valid.clear();
                for (int s = 0; s < K; ++s) {
                    const long long yy = slot_row[static_cast<std::size_t>(s)];
                    if (yy >= 0 && yy < H) valid.push_back(s);
                }
                hist.clear();
                for (int x = bx0; x < bx1 && x - r <= a.left; ++x) column(x, true);
                const tagRGBA* src = row_ptr(*this, y);
                tagRGBA* o = out.data() + static_cast<std::size_t>(y - a.top) * w;
                for (int x = a.left; x < a.right; ++x) {
                    if (x > a.left) {
                        if (x - r - 1 >= 0) column(x - r - 1, false);
                        if (x < W - r) column(x + r, true);
                    }
                    o[x - a.left] = hist.mean(src[x].a, recip.data());
                }
            }
        });
        setpacket(out.data(), a.left, a.top, w, a.h());
        return 1;
    });
}
