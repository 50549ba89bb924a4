// Oil paint: the mean colour of the most frequent intensity bucket around each pixel,
// through a histogram that slides along each row (cost per pixel grows with the radius,
// not with its square).
#include <algorithm>
#include <vector>

#include "core/parallel.h"
#include "effect/effect.h"

namespace kiveffect {
namespace {

struct Bucket {
    int n, r, g, b;
};

// The window histogram of one row position. `best` is the most frequent bucket (the lowest
// index among equals) after every completed step.
class Histogram {
public:
    explicit Histogram(int levels) : h_(static_cast<std::size_t>(levels)) {}
    void clear() {
        std::fill(h_.begin(), h_.end(), Bucket{0, 0, 0, 0});
        best_ = 0;
    }
    void add(int k, const tagRGBA& p) {
        Bucket& b = h_[static_cast<std::size_t>(k)];
        ++b.n, b.r += p.r, b.g += p.g, b.b += p.b;
        const int bn = h_[static_cast<std::size_t>(best_)].n;
        if (b.n > bn || (b.n == bn && k < best_)) best_ = k;
    }
    // Removing from the best bucket may hand the lead to another: rescan after the
    // removals of a step (see settle).
    void remove(int k, const tagRGBA& p) {
        Bucket& b = h_[static_cast<std::size_t>(k)];
        --b.n, b.r -= p.r, b.g -= p.g, b.b -= p.b;
        if (k == best_) dirty_ = true;
    }
    void settle() {
        if (!dirty_) return;
        dirty_ = false;
        int best = 0;
        for (int k = 1; k < static_cast<int>(h_.size()); ++k)
            if (h_[static_cast<std::size_t>(k)].n > h_[static_cast<std::size_t>(best)].n) best = k;
        best_ = best;
    }
    tagRGBA mean(BYTE alpha) const {
        const Bucket& b = h_[static_cast<std::size_t>(best_)];
        return tagRGBA{static_cast<BYTE>(b.r / b.n), static_cast<BYTE>(b.g / b.n), static_cast<BYTE>(b.b / b.n), alpha};
    }

private:
    std::vector<Bucket> h_;
    int best_ = 0;
    bool dirty_ = false;
};

}  // namespace
}  // namespace kiveffect

int kiv::oilpaint(tagRECT* rect, int radius, int levels) {
    using namespace kiveffect;
    Area a;
    if (!normalise(this, rect, &a) || radius < 1 || radius > 100 || levels < 2 || levels > 256) return 0;
    raise_depth_24(this);
    const int W = m_width, H = m_height, r = radius;
    // Buckets of every pixel any window reaches, computed once.
    const int bx0 = std::max(0, a.left - r), bx1 = std::min(W, a.right + r);
    const int by0 = std::max(0, a.top - r), by1 = std::min(H, a.bottom + r);
    const std::size_t bw = static_cast<std::size_t>(bx1 - bx0);
    std::vector<BYTE> bucket(bw * static_cast<std::size_t>(by1 - by0));
    kivcore::parallel_for(by0, by1, [&](int y) {
        const tagRGBA* s = row_ptr(this, y) + bx0;
        BYTE* o = bucket.data() + static_cast<std::size_t>(y - by0) * bw;
        for (std::size_t i = 0; i < bw; ++i) o[i] = static_cast<BYTE>((intensity(s[i]) * levels) >> 8);
    });
    const int w = a.w();
    std::vector<tagRGBA> out(static_cast<std::size_t>(w) * static_cast<std::size_t>(a.h()));
    kivcore::parallel_chunks(a.top, a.bottom, [&](int b, int e) {
        Histogram hist(levels);
        for (int y = b; y < e; ++y) {
            const int y0 = std::max(0, y - r), y1 = std::min(H - 1, y + r);
            auto column = [&](int x, bool add) {
                for (int yy = y0; yy <= y1; ++yy) {
                    const tagRGBA& p = m_pixels[static_cast<std::size_t>(yy) * W + x];
                    const int k = bucket[static_cast<std::size_t>(yy - by0) * bw + static_cast<std::size_t>(x - bx0)];
                    if (add)
                        hist.add(k, p);
                    else
                        hist.remove(k, p);
                }
            };
            hist.clear();
            for (int x = std::max(0, a.left - r); x <= std::min(W - 1, a.left + r); ++x) column(x, true);
            const tagRGBA* src = row_ptr(this, y);
            tagRGBA* o = out.data() + static_cast<std::size_t>(y - a.top) * w;
            for (int x = a.left; x < a.right; ++x) {
                if (x > a.left) {
                    if (x - r - 1 >= 0) column(x - r - 1, false);
                    hist.settle();
                    if (x + r < W) column(x + r, true);
                }
                o[x - a.left] = hist.mean(src[x].a);
            }
        }
    });
    setpacket(out.data(), a.left, a.top, w, a.h());
    return 1;
}
