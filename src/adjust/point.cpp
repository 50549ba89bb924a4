// Point adjustments driven by per-call byte tables: brightness/contrast, gamma, per-channel
// percentages, posterize, inversion, desaturation and tint.
#include <cmath>

#include "adjust/adjust.h"
#include "core/kmath.h"

using namespace kivadjust;

namespace {

// Applies a table set on either path: the rectangle's pixels (true colour) or the colour
// map followed by a refresh of the pixels (palettized, rectangle ignored).
int apply_tables(kiv& img, tagRECT* rect, const Tables& t) {
    return has_pixels(img) &&
                   pixels_or_map(
                       img, rect, [&](const Area& rc) { tables_rect(img, rc, t); }, [&] { tables_colormap(img, t); })
               ? 1
               : 0;
}

void same_for_all(Tables& t, const u8 (&one)[256]) {
    std::memcpy(t.r, one, 256);
    std::memcpy(t.g, one, 256);
    std::memcpy(t.b, one, 256);
}

// The tables below are rounded from kmath::pow. Its estimate is within 1e-9 of it once scaled
// to 0..256, so an entry whose estimate lies farther than this from an integer has the floor
// (and so the entry) the exact value would give; only the others pay for pow itself.
constexpr double kSettled = 1e-6;
bool settled(double v) {
    if (!(v >= 0.0 && v < 1e15)) return false;  // NaN, and the rare others, take pow
    const double f = v - static_cast<double>(static_cast<long long>(v));
    return f > kSettled && f < 1.0 - kSettled;
}

void bright_contrast_table(int brightness, int contrast, u8 (&out)[256]) {
    brightness = brightness < -127 ? -127 : brightness > 127 ? 127 : brightness;
    contrast = contrast < -127 ? -127 : contrast > 127 ? 127 : contrast;
    const double b = brightness / 255.0, c = contrast / 127.0;
    // Full contrast would divide by zero: exponent 127 makes the curve a step at mid-grey.
    const double e = c < 0.0 ? c + 1.0 : (c == 1.0 ? 127.0 : 1.0 / (1.0 - c));
    double base[256], guess[256];  // 2 t per level, then its estimated power
    bool upper[256];
    for (int i = 0; i < 256; ++i) {
        const double x = i / 255.0;
        const double y = b < 0.0 ? x * (b + 1.0) : x + (1.0 - x) * b;
        upper[i] = y > 0.5;
        double t = upper[i] ? 1.0 - y : y;
        if (t < 0.0) t = 0.0;
        base[i] = 2.0 * t;
    }
    kivcore::kmath::pow_estimates(base, e, guess, 256);
    for (int i = 0; i < 256; ++i) {
        auto scaled = [up = upper[i]](double p) {
            double r = p * 0.5;
            if (up) r = 1.0 - r;
            return r * 255.0 + 0.5;
        };
        const double g = scaled(guess[i]);
        out[i] = entry_from_double(settled(g) ? g : scaled(kivcore::kmath::pow(base[i], e)));
    }
}

// log(i / 255) for the levels 1..255, made once: a gamma table's estimates then need only
// an exponential each.
struct LevelLogs {
    double v[256];
    LevelLogs() {
        v[0] = 0.0;  // unused: level 0 takes pow itself
        for (int i = 1; i < 256; ++i) v[i] = kivcore::kmath::log(i / 255.0);
    }
};

// Entry i of one gamma table, i^(1/p) on the unit scale rounded half up, from the estimate
// of its power where that settles it.
int gamma_entry(int i, double e, double estimate) {
    if (i > 0) {
        const double guess = estimate * 255.0 + 0.5;
        if (settled(guess)) return guess >= 255.0 ? 255 : static_cast<int>(guess);
    }
    const double v = std::floor(kivcore::kmath::pow(i / 255.0, e) * 255.0 + 0.5);
    if (!(v > 0.0)) return 0;  // also NaN
    return v >= 255.0 ? 255 : static_cast<int>(v);
}

void gamma_table(double p, int (&t)[256]) {
    if (p == 1.0) {
        for (int i = 0; i < 256; ++i) t[i] = i;
        return;
    }
    static const LevelLogs logs;
    const double e = 1.0 / p;
    double z[256], estimate[256];
    for (int i = 0; i < 256; ++i) z[i] = e * logs.v[i];
    kivcore::kmath::exp_estimates(z, estimate, 256);
    for (int i = 0; i < 256; ++i) t[i] = gamma_entry(i, e, estimate[i]);
}

// c -> c + c * p / 100 on the 16-bit scale c * 257.  The product is a 32-bit one and wraps
// for percentages beyond about +-32768 (unsigned multiply, so the wrap is defined); the
// quotient then fits easily, and the sum is clamped.
u8 percent_entry(int c, int p) {
    int v = c * 257;
    const auto product = static_cast<std::int32_t>(static_cast<std::uint32_t>(v) * static_cast<std::uint32_t>(p));
    v += product / 100;
    if (v < 0) v = 0;
    if (v > 65535) v = 65535;
    return static_cast<u8>(v >> 8);
}

void complement_rect(kiv& img, const Area& rc) {
    // XOR with all-ones in the colour bytes is 255 - c; plain words, so it vectorises.
    for_rows(img, rc, [](tagRGBA* p, int n) {
        for (int i = 0; i < n; ++i) store(p + i, load(p + i) ^ 0x00FFFFFFu);
    });
}

void complement_colormap(kiv& img) {
    map_colormap(img, [](u32 w) { return w ^ 0x00FFFFFFu; });
}

u32 desaturate_word(u32 w) {
    const u32 r = w & 0xFF, g = (w >> 8) & 0xFF, b = (w >> 16) & 0xFF;
    u32 mn = r < g ? r : g, mx = r < g ? g : r;
    mn = b < mn ? b : mn;
    mx = b > mx ? b : mx;
    const u32 v = (mn + mx) >> 1;
    return v | v << 8 | v << 16 | (w & kFourthByte);
}

}  // namespace

int kiv::bright_contrast(tagRECT* rect, int brightness, int contrast) {
    u8 one[256];
    bright_contrast_table(brightness, contrast, one);
    Tables t;
    same_for_all(t, one);
    return apply_tables(*this, rect, t);
}

int kiv::gamma_rgb(tagRECT* rect, double red, double green, double blue, double master) {
    Area rc;
    if (!clip_rect(*this, rect, &rc)) return 0;  // also for palettized images
    int tr[256], tg[256], tb[256], tm[256];
    gamma_table(red, tr);
    gamma_table(green, tg);
    gamma_table(blue, tb);
    gamma_table(master, tm);
    Tables t;  // master after each channel, composed once
    for (int i = 0; i < 256; ++i) {
        t.r[i] = static_cast<u8>(tm[tr[i]]);
        t.g[i] = static_cast<u8>(tm[tg[i]]);
        t.b[i] = static_cast<u8>(tm[tb[i]]);
    }
    if (true_colour(*this)) {
        tables_rect(*this, rc, t);
    } else {
        tables_colormap(*this, t);
        validate_rgb();
    }
    return 1;
}

int kiv::gamma(tagRECT* rect, double g) { return gamma_rgb(rect, 1.0, 1.0, 1.0, g); }

int kiv::adjust_rgb(tagRECT* rect, int red, int green, int blue) {
    Area rc;
    if (!clip_rect(*this, rect, &rc)) return 0;  // also for palettized images
    Tables t;
    for (int i = 0; i < 256; ++i) {
        t.r[i] = percent_entry(i, red);
        t.g[i] = percent_entry(i, green);
        t.b[i] = percent_entry(i, blue);
    }
    // Only exactly 24 bits maps pixels; a 32-bit image goes the map way and, having no map
    // and no refresh at that depth, stays as it is.
    if (m_bits == 24) {
        tables_rect(*this, rc, t);
    } else {
        tables_colormap(*this, t);
        validate_rgb();
    }
    return 1;
}

void kiv::negative(tagRECT* rect) {
    if (!has_pixels(*this)) return;
    if (true_colour(*this)) {
        Area rc;
        if (clip_rect(*this, rect, &rc)) complement_rect(*this, rc);
    } else {
        // The pixels keep their old colour bytes until the map is next applied to them.
        complement_colormap(*this);
    }
}

namespace {
// Sizes in 64 bits, so a rectangle's width or right edge never overflows on the way.
void invert_block(kiv& img, long long x, long long y, long long w, long long h) {
    if (w < 1 || h < 1 || !has_pixels(img)) return;
    if (!true_colour(img)) {
        // Map and every pixel are complemented, so they stay in agreement.
        complement_colormap(img);
        x = 0;
        y = 0;
        w = img.m_width;
        h = img.m_height;
    }
    Area rc;
    if (!kivcore::clip_box(img, x, y, w, h, &rc)) return;
    complement_rect(img, rc);
}
}  // namespace

void kiv::invertrect(int x, int y, int w, int h) { invert_block(*this, x, y, w, h); }

void kiv::invertrect(tagRECT* rect) {
    const kivcore::Box b = kivcore::box_of(*this, rect);
    invert_block(*this, b.x, b.y, b.w, b.h);
}

int kiv::desaturate(tagRECT* rect) {
    return has_pixels(*this) && pixels_or_map(
                                    *this, rect,
                                    [&](const Area& rc) {
                                        for_rows(*this, rc, [](tagRGBA* p, int n) {
                                            for (int i = 0; i < n; ++i) store(p + i, desaturate_word(load(p + i)));
                                        });
                                    },
                                    [&] { map_colormap(*this, desaturate_word); })
               ? 1
               : 0;
}

int kiv::posterize(tagRECT* rect, int levels) {
    const double m = (levels < 2 ? 2 : static_cast<double>(levels)) - 1.0;
    u8 one[256];
    for (int i = 0; i < 256; ++i) {
        const double q = std::floor(m * (i / 255.0) + 0.5) / m;
        one[i] = entry_from_double(q * 255.0 + 0.5);
    }
    Tables t;
    same_for_all(t, one);
    return apply_tables(*this, rect, t);
}

int kiv::colorify(tagRECT* rect, COLORREF color) {
    Area rc;
    if (!clip_rect(*this, rect, &rc)) return 0;
    m_bits = 24;  // whatever it was; a colour map stays but no longer speaks for the pixels
    const int cr = static_cast<int>(color & 0xFF), cg = static_cast<int>((color >> 8) & 0xFF),
              cb = static_cast<int>((color >> 16) & 0xFF);
    double lr[256], lg[256], lb[256];
    u8 tr[256], tg[256], tb[256];
    for (int i = 0; i < 256; ++i) {
        lr[i] = i * 0.3;
        lg[i] = i * 0.59;
        lb[i] = i * 0.11;
        tr[i] = static_cast<u8>(i * cr / 255);
        tg[i] = static_cast<u8>(i * cg / 255);
        tb[i] = static_cast<u8>(i * cb / 255);
    }
    map_rect(*this, rc, [&](u32 w) {
        // Summed red, green, blue in that order, as the weights are not exact in binary.
        const double sum = lr[w & 0xFF] + lg[(w >> 8) & 0xFF] + lb[(w >> 16) & 0xFF];
        const int l = sum >= 255.0 ? 255 : static_cast<int>(sum);
        return pack(tr[l], tg[l], tb[l]);
    });
    return 1;
}
