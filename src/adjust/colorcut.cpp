// colorcut: quantization of the three channels of a colour space by per-channel steps.
#include "adjust/adjust.h"
#include "core/watch.h"

using namespace kivadjust;

namespace {

constexpr int kRgbSpace = KIV_CS_RGB;  // the pixels already are its channels

// Converts every pixel of img between RGB and colour space `code`, in place: forward = into
// the space, else back to RGB.  RGB itself needs nothing; unknown codes are refused (0) by
// the conversions before anything changes.
int convert_space(kiv& img, int code, bool forward) {
    if (code == kRgbSpace) return 1;
    return forward ? img.convert_colorspace(nullptr, code) : img.convert_rgb(nullptr, code);
}

// Channel c rounds i to a multiple of its step d (0 means 1): q = i / d kept in a byte, plus
// one (in the byte) when the remainder exceeds d / 2, so ties round down.  The second
// channel compares the first channel's remainder, not its own; the result depends on it.
void cut_tables(const tagKIV_COLORCUT& cc, Tables& t) {
    int d[3], half[3];
    for (int c = 0; c < 3; ++c) {
        d[c] = cc.step[c] != 0 ? cc.step[c] : 1;
        half[c] = d[c] / 2;
    }
    u8* out[3] = {t.r, t.g, t.b};
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 256; ++i) {
            if (cc.step[c] == 0) {  // channel left alone
                out[c][i] = static_cast<u8>(i);
                continue;
            }
            u8 q = static_cast<u8>(i / d[c]);
            const int rem = c == 1 ? i % d[0] : i % d[c];
            if (rem > half[c]) q = static_cast<u8>(q + 1);
            out[c][i] = static_cast<u8>(clamp255(static_cast<long long>(q) * d[c]));
        }
}

}  // namespace

int kiv::colorcut(tagRECT* rect, tagKIV_COLORCUT* cc) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!cc || !has_pixels(*this)) return 0;
        Area rc;
        if (!clip_rect(*this, rect, &rc)) return 0;
        Tables t;
        cut_tables(*cc, t);
        if (cc->colorspace == kRgbSpace) {
            m_bits = 24;  // whatever it was; a colour map stays but no longer speaks for the pixels
            tables_rect(*this, rc, t);
            return 1;
        }
        // Other spaces convert a copy of the rectangle, so the image changes only on success.
        const int w = rc.right - rc.left, h = rc.bottom - rc.top;
        kiv tmp;
        if (!tmp.create(w, h, 24)) return 0;
        tmp.blt(0, 0, w, h, this, rc.left, rc.top);
        if (!convert_space(tmp, cc->colorspace, true)) return 0;
        const Area all{0, 0, w, h};
        tables_rect(tmp, all, t);
        if (!convert_space(tmp, cc->colorspace, false)) return 0;
        m_bits = 24;
        blt(rc.left, rc.top, w, h, &tmp, 0, 0);
        return 1;
    });
}
