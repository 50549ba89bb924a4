// The weighted Gaussian members, blur_gauss_rgba and unsharp_mask_rgba: the rectangle as
// planes of 16-bit values (core/wide_pixels.h: premultiplied by alpha, or linear light),
// each blurred by the recursive Gaussian of blur_gauss_iir, then turned back to bytes.
#include <cmath>
#include <cstdint>

#include "core/watch.h"
#include "core/wide_pixels.h"
#include "filter/filter.h"

namespace {

using namespace kivfilter;
using kivcore::WideFormat;

// The checks every weighted member shares: known flags, and no alpha to weight by in a
// palettized image, whose fourth byte is a colour index.
bool flags_ok(const kiv& img, int flags) {
    return !(flags & ~kivcore::kWideFlags) && !((flags & KIV_FILTER_ALPHA) && img.m_bits < 24);
}

// Whether the plain member gives the bytes: nothing to turn into linear light, and alpha not
// weighted or 255 throughout the rectangle.
bool plain_will_do(kiv& img, const Area& a, int flags) {
    return !(flags & KIV_FILTER_LINEAR) && (!(flags & KIV_FILTER_ALPHA) || kivcore::opaque(img, &a));
}

// The rectangle as planes of w x h 16-bit values: red, green, blue and, weighted, alpha.
class Planes {
public:
    Planes(kiv& img, const Area& a, const WideFormat& f)
        : img_(img),
          a_(a),
          n_(f.alpha ? 4 : 3),
          size_(static_cast<std::size_t>(a.w()) * static_cast<std::size_t>(a.h())),
          block_(size_ * static_cast<std::size_t>(n_) * sizeof(std::uint16_t)) {
        // A weighted load and a rounding per value: a few pixel steps a pixel.
        kivcore::parallel_for(0, a.h(), kivcore::row_work(a.w(), 4), [&](int j) {
            const tagRGBA* s = row_ptr(img, a.top + j) + a.left;
            for (int i = 0; i < a.w(); ++i) {
                float v[4];
                f.load(s[i], v);
                for (int c = 0; c < n_; ++c) plane(c)[at(i, j)] = kivcore::to_word(v[c]);
            }
        });
    }
    // Each plane blurred in turn; false when a sigma has no filter.
    bool blur(double sx, double sy) {
        kivcore::Stages stages({1, 1, 1, 1});
        for (int c = 0; c < n_; ++c, stages.next())
            if (!iir_blur_plane16(plane(c), a_.w(), a_.w(), a_.h(), sx, sy)) return false;
        return true;
    }
    // Every pixel of the rectangle from its original and its values: px(original, v, out).
    template <class Px>
    void write(Px px) {
        // px divides by alpha and may look up linear light: about twice the load's work.
        kivcore::parallel_for(0, a_.h(), kivcore::row_work(a_.w(), 8), [&](int j) {
            tagRGBA* d = row_ptr(img_, a_.top + j) + a_.left;
            for (int i = 0; i < a_.w(); ++i) {
                float v[4];
                for (int c = 0; c < n_; ++c) v[c] = plane(c)[at(i, j)];
                d[i] = px(d[i], v);
            }
        });
    }
    int count() const { return n_; }

private:
    std::uint16_t* plane(int c) const { return block_.as<std::uint16_t>() + static_cast<std::size_t>(c) * size_; }
    std::size_t at(int i, int j) const {
        return static_cast<std::size_t>(j) * static_cast<std::size_t>(a_.w()) + static_cast<std::size_t>(i);
    }
    kiv& img_;
    Area a_;
    int n_;
    std::size_t size_;
    kivcore::UnzeroedBlock block_;
};

// The depth a weighted member leaves: 32 bits when it filtered alpha, else at least 24.
void weighted_depth(kiv& img, int flags) {
    if (flags & KIV_FILTER_ALPHA)
        img.m_bits = 32;
    else
        raise_depth_24(img);
}

// unsharp_mask's step on values of the weighted scale: O + D * amount / 100 where
// |D| = |O - B| reaches the threshold (already on that scale), clamped.
inline float sharpened(float O, float B, float amount, float threshold) {
    const float D = O - B;
    if (std::fabs(D) < threshold) return O;
    return kivcore::clamp_f(O + D * amount / 100.0f, 0.0f, 65535.0f);
}

}  // namespace

int kiv::blur_gauss_rgba(tagRECT* rect, double sx, double sy, int flags) {
    Area a;
    if (!clip_rect(*this, rect, &a) || !iir_sigma_ok(sx) || !iir_sigma_ok(sy) || !flags_ok(*this, flags)) return 0;
    if (plain_will_do(*this, a, flags)) {
        if (!blur_gauss_iir(rect, sx, sy)) return 0;
        weighted_depth(*this, flags);
        return 1;
    }
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&] {
        const WideFormat f = WideFormat::of(flags, true);
        kivcore::Stages stages({1, 8, 1});
        Planes p(*this, a, f);
        stages.next();
        p.blur(sx, sy);
        stages.next();
        p.write([&](const tagRGBA& o, float* v) {
            if (!f.alpha) v[3] = static_cast<float>(o.a) * 257.0f;  // alpha kept
            return f.store(v);
        });
        weighted_depth(*this, flags);
        return 1;
    });
}

int kiv::unsharp_mask_rgba(tagRECT* rect, double radius, int amount, int threshold, int flags) {
    Area a;
    if (!clip_rect(*this, rect, &a) || !(radius > 0.0 && radius <= 1000.0 && iir_sigma_ok(radius)) || amount < 0 ||
        amount > 1000 || threshold < 0 || threshold > 255 || !flags_ok(*this, flags))
        return 0;
    if (plain_will_do(*this, a, flags)) {
        if (!unsharp_mask(rect, radius, amount, threshold)) return 0;
        weighted_depth(*this, flags);
        return 1;
    }
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&] {
        const WideFormat f = WideFormat::of(flags, true);
        // Originals and blurs are compared straight (divided by alpha), so a transparent
        // neighbour's colour adds no fringe; the result is written straight too.
        WideFormat straight = f;
        straight.alpha = false;
        const float t = static_cast<float>(threshold) * 257.0f, k = static_cast<float>(amount);
        kivcore::Stages stages({1, 8, 1});
        Planes p(*this, a, f);
        stages.next();
        p.blur(radius, radius);
        stages.next();
        p.write([&](const tagRGBA& o, float* b) {
            float v[4];
            straight.load(o, v);
            if (f.alpha) {
                const float unweight = b[3] > 0.0f ? 65535.0f / b[3] : 0.0f;
                for (int c = 0; c < 3; ++c) b[c] = b[3] > 0.0f ? b[c] * unweight : v[c];
            } else {
                b[3] = v[3];  // alpha kept
            }
            for (int c = 0; c < 4; ++c) v[c] = sharpened(v[c], b[c], k, t);
            const tagRGBA r = straight.store(v);
            return f.alpha && r.a == 0 ? tagRGBA{0, 0, 0, 0} : r;
        });
        weighted_depth(*this, flags);
        return 1;
    });
}
