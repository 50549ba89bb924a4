// Adjustments through the integer HLS model: modulate, hue/saturation per hue sector, and
// colour balance (whose lightness-preserving form also goes through HLS).
#include <cmath>

#include "adjust/adjust.h"
#include "core/color_batch.h"
#include "core/color_models.h"
#include "core/watch.h"

using namespace kivadjust;

namespace {

// RGB of an HLS triple as a word; channels are stored as bytes (low byte of each).
u32 hls_word(int h, int l, int s) {
    int r, g, b;
    kivcore::hls_to_rgb(h, l, s, &r, &g, &b);
    return pack(r, g, b);
}

// Any hue beyond this many units is out of the circle after its one wrap whatever its size,
// so capping it changes no result and keeps the model's arithmetic inside int.
constexpr long long kHueCap = 1 << 24;

// The HLS triples and channels of one batch of colours.
struct HlsBatch {
    int h[kBatch], l[kBatch], s[kBatch], r[kBatch], g[kBatch], b[kBatch];
};

struct Modulate {
    int hue, saturation, lightness;
    // The adjusted triple; h ends within 2^24 + 255 of 0 (hue is capped).
    void adjust(int& h, int& l, int& s) const {
        l = clamp255(static_cast<long long>(l) + lightness);
        // Arithmetic shift (rounds toward minus infinity); 64-bit so no factor overflows.
        s = clamp255(s + ((static_cast<long long>(s) * saturation) >> 7));
        if (h != 0) {  // greys and pure reds share h = 0 and are never rotated
            long long t = static_cast<long long>(h) + hue;
            if (t < 0)
                t += 255;
            else if (t > 255)
                t -= 255;
            h = static_cast<int>(t);
        }
    }
    u32 operator()(u32 w) const {
        const kivcore::Hls c = kivcore::rgb_to_hls(static_cast<int>(w & 0xFF), static_cast<int>((w >> 8) & 0xFF),
                                                   static_cast<int>((w >> 16) & 0xFF));
        int h = c.h, l = c.l, s = c.s;
        adjust(h, l, s);
        int r, g, b;
        kivcore::hls_to_rgb(h, l, s, &r, &g, &b);
        return pack(clamp255(r), clamp255(g), clamp255(b));
    }
    void batch(const u32* in, u32* out, int n) const {
        HlsBatch t;
        const auto m = static_cast<std::size_t>(n);
        kivcore::hls_of_words(in, t.h, t.l, t.s, m);
        for (int i = 0; i < n; ++i) adjust(t.h[i], t.l[i], t.s[i]);
        kivcore::rgb_of_hls(t.h, t.l, t.s, t.r, t.g, t.b, m);
        for (int i = 0; i < n; ++i) out[i] = pack(clamp255(t.r[i]), clamp255(t.g[i]), clamp255(t.b[i]));
    }
};

// hue_saturation's three table sets, six sectors each.
struct HueSat {
    int hue[6][256], light[6][256], sat[6][256];

    static int sector(int h) { return h < 43 ? 0 : h < 85 ? 1 : h < 128 ? 2 : h < 171 ? 3 : h < 213 ? 4 : 5; }
    u32 operator()(u32 w) const {
        const kivcore::Hls c = kivcore::rgb_to_hls(static_cast<int>(w & 0xFF), static_cast<int>((w >> 8) & 0xFF),
                                                   static_cast<int>((w >> 16) & 0xFF));
        const int k = sector(c.h);
        return hls_word(hue[k][c.h], light[k][c.l], sat[k][c.s]);
    }
    // Table entries all lie in 0..255, as rgb_of_hls needs.
    void batch(const u32* in, u32* out, int n) const {
        HlsBatch t;
        const auto m = static_cast<std::size_t>(n);
        kivcore::hls_of_words(in, t.h, t.l, t.s, m);
        for (int i = 0; i < n; ++i) {
            const int k = sector(t.h[i]);
            t.h[i] = hue[k][t.h[i]];
            t.l[i] = light[k][t.l[i]];
            t.s[i] = sat[k][t.s[i]];
        }
        kivcore::rgb_of_hls(t.h, t.l, t.s, t.r, t.g, t.b, m);
        for (int i = 0; i < n; ++i) out[i] = pack(t.r[i], t.g[i], t.b[i]);
    }
};

void build_hue_sat(HueSat& t, int range, int hue, int saturation, int lightness) {
    const double hv = hue < -180 ? -180.0 : hue > 180 ? 180.0 : hue;
    const double sv = saturation < -100 ? -100.0 : saturation > 100 ? 100.0 : saturation;
    const double lv = lightness < -100 ? -100.0 : lightness > 100 ? 100.0 : lightness;
    // Index 0 acts on all colours, 1..6 on one sector of the hue circle each.
    double hs[7] = {}, ls[7] = {}, ss[7] = {};
    hs[range] = hv;
    ls[range] = lv;
    ss[range] = sv;
    for (int k = 0; k < 6; ++k) {
        const int dh = static_cast<int>((hs[k + 1] + hs[0]) * 255.0 / 360.0);
        int al = static_cast<int>((ls[0] + ls[k + 1]) * 127.0 / 100.0);
        al = al > 255 ? 255 : al < -255 ? -255 : al;
        int as = static_cast<int>((ss[k + 1] + ss[0]) * 255.0 / 100.0);
        as = as > 255 ? 255 : as < -255 ? -255 : as;
        for (int i = 0; i < 256; ++i) {
            int h = dh + i;
            if (h < 0)
                h += 255;
            else if (h > 255)
                h -= 255;
            t.hue[k][i] = h;
            t.light[k][i] = al >= 0 ? i + (255 - i) * al / 255 : (al + 255) * i / 255;
            t.sat[k][i] = clamp255((as + 255) * i / 255);
        }
    }
}

// colorbalance's transfer curves, the same for every call: built on first use.
struct BalanceCurves {
    double shadows_add[256], shadows_sub[256], midtones_add[256], midtones_sub[256], highlights_add[256],
        highlights_sub[256];
    BalanceCurves() {
        for (int i = 0; i < 256; ++i) {
            const double a = 1.075 - 1.0 / (i * 0.0625 + 1.0);
            const double x = (i - 127) / 127.0;
            const double q = 0.667 * (1.0 - x * x);
            highlights_add[i] = a;
            shadows_sub[255 - i] = a;
            shadows_add[i] = midtones_add[i] = midtones_sub[i] = highlights_sub[i] = q;
        }
    }
};

const BalanceCurves& balance_curves() {
    static const BalanceCurves curves;  // once per process
    return curves;
}

int clamp_shift(int p) { return p > 100 ? 100 : p < -100 ? -100 : p; }

// One channel: shadows, midtones, highlights in that order, each step clamped.
void balance_table(const int (&shift)[3], u8 (&out)[256]) {
    const BalanceCurves& c = balance_curves();
    const double* tone[3] = {shift[0] > 0 ? c.shadows_add : c.shadows_sub,
                             shift[1] > 0 ? c.midtones_add : c.midtones_sub,
                             shift[2] > 0 ? c.highlights_add : c.highlights_sub};
    for (int i = 0; i < 256; ++i) {
        int n = i;
        for (int k = 0; k < 3; ++k) n = clamp255(n + static_cast<long long>(tone[k][n] * shift[k]));
        out[i] = static_cast<u8>(n);
    }
}

struct Preserve {
    const Tables* t;
    // The lightness of the colour before the tables.
    static int lightness(u32 w) {
        const int r = static_cast<int>(w & 0xFF), g = static_cast<int>((w >> 8) & 0xFF),
                  b = static_cast<int>((w >> 16) & 0xFF);
        int mx = r > g ? r : g, mn = r < g ? r : g;
        mx = b > mx ? b : mx;
        mn = b < mn ? b : mn;
        return (mx + mn) >> 1;
    }
    u32 operator()(u32 w) const {
        const u32 m = map_word(w, *t);
        const kivcore::Hls c = kivcore::rgb_to_hls(static_cast<int>(m & 0xFF), static_cast<int>((m >> 8) & 0xFF),
                                                   static_cast<int>((m >> 16) & 0xFF));
        return hls_word(c.h, lightness(w), c.s);
    }
    void batch(const u32* in, u32* out, int n) const {
        HlsBatch b;
        u32 mapped[kBatch];
        const auto m = static_cast<std::size_t>(n);
        for (int i = 0; i < n; ++i) mapped[i] = map_word(in[i], *t);
        kivcore::hls_of_words(mapped, b.h, b.l, b.s, m);
        for (int i = 0; i < n; ++i) b.l[i] = lightness(in[i]);
        kivcore::rgb_of_hls(b.h, b.l, b.s, b.r, b.g, b.b, m);
        for (int i = 0; i < n; ++i) out[i] = pack(b.r[i], b.g[i], b.b[i]);
    }
};

// The per-colour rule on either path: rectangle (validated) or the whole colour map.
template <class F>
int apply_rule(kiv& img, tagRECT* rect, const F& fn, bool refresh) {
    return pixels_or_map(
               img, rect, [&](const Area& rc) { map_rect_cached(img, rc, fn); }, [&] { map_colormap(img, fn); },
               refresh)
               ? 1
               : 0;
}

}  // namespace

int kiv::modulate(tagRECT* rect, int hue, int saturation, int lightness) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!has_pixels(*this)) return 0;
        const int h = static_cast<int>(hue > kHueCap ? kHueCap : hue < -kHueCap ? -kHueCap : hue);
        return apply_rule(*this, rect, Modulate{h, saturation, lightness}, true);
    });
}

int kiv::hue_saturation(tagRECT* rect, int range, int hue, int saturation, int lightness) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!has_pixels(*this) || range < 0 || range > 6) return 0;
        HueSat t;
        build_hue_sat(t, range, hue, saturation, lightness);
        return apply_rule(*this, rect, t, true);
    });
}

int kiv::colorbalance(tagRECT* rect, tagKIV_COLORBALANCE* cb) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!cb || !has_pixels(*this)) return 0;
        int red[3], green[3], blue[3];
        for (int k = 0; k < 3; ++k) {
            red[k] = clamp_shift(cb->red[k]);
            green[k] = clamp_shift(cb->green[k]);
            blue[k] = clamp_shift(cb->blue[k]);
        }
        Tables t;
        balance_table(red, t.r);
        balance_table(green, t.g);
        balance_table(blue, t.b);
        // The colour map is changed without refreshing the pixels.
        if (cb->preserve) return apply_rule(*this, rect, Preserve{&t}, false);
        if (!true_colour(*this)) {
            tables_colormap(*this, t);
            return 1;
        }
        Area rc;
        if (!clip_rect(*this, rect, &rc)) return 0;
        tables_rect(*this, rc, t);
        return 1;
    });
}
