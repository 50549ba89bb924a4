// Gradient tables and gradient fills: colour stops at thousandths of the gradient length.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

#include "core/toolkit.h"
#include "core/watch.h"
#include "fill/blend.h"
#include "fill/fill_private.h"

namespace {

constexpr int kGradientEntries = 1000;      // the length of the position scale
constexpr WORD kLogPaletteVersion = 0x300;  // what GDI expects of a logical palette
constexpr int kMaxTableEntries = 0xFFFF;    // the entry count is a 16-bit field

struct FreeDeleter {
    void operator()(tagLOGPALETTE* p) const { std::free(p); }
};
using TablePtr = std::unique_ptr<tagLOGPALETTE, FreeDeleter>;

PALETTEENTRY entry_of(COLORREF c) {
    PALETTEENTRY e{};
    e.peRed = static_cast<BYTE>(c & 0xFF);
    e.peGreen = static_cast<BYTE>((c >> 8) & 0xFF);
    e.peBlue = static_cast<BYTE>((c >> 16) & 0xFF);
    return e;
}

BYTE ramp_value(int i, double step, int base) {
    return static_cast<BYTE>(std::clamp(static_cast<int>(i * step + base), 0, 255));
}

// Segments are appended one after another from the start of the table whatever their
// positions say; entries past the table's end are not written, entries never reached stay
// zero.
void build_table(tagLOGPALETTE* t, const std::vector<tagGRADCOLORS>& s, int size) {
    PALETTEENTRY* out = t->palPalEntry;
    if (s.size() == 1 || (s.size() == 2 && s[0].color == s[1].color)) {
        std::fill(out, out + size, entry_of(s[0].color));
        return;
    }
    int filled = 0;
    for (std::size_t k = 0; k + 1 < s.size() && filled < size; ++k) {
        const long long len = static_cast<long long>(s[k + 1].pos) - s[k].pos;
        if (len <= 0) continue;
        const PALETTEENTRY a = entry_of(s[k].color), b = entry_of(s[k + 1].color);
        const double dl = static_cast<double>(len);
        const double sr = (b.peRed - a.peRed) / dl, sg = (b.peGreen - a.peGreen) / dl, sb = (b.peBlue - a.peBlue) / dl;
        const int count = static_cast<int>(std::min<long long>(len, size - filled));
        for (int i = 0; i < count; ++i) {
            PALETTEENTRY& e = out[filled + i];
            e.peRed = ramp_value(i, sr, a.peRed);
            e.peGreen = ramp_value(i, sg, a.peGreen);
            e.peBlue = ramp_value(i, sb, a.peBlue);
        }
        filled += count;
    }
}

int gradient_fill(kiv& img, long long x, long long y, long long w, long long h, tagGRADCOLORS* stops, int n, int dir,
                  int op, int mode) {
    op = kivfill::clamp_opacity(op);
    if (!img.m_pixels || !stops || w < 1 || h < 1 || n < 1 || op == 0) return 0;
    if (n == 1) return kivfill::solid_fill(img, x, y, w, h, stops[0].color, op, mode);
    const TablePtr pal(img.make_gradtable(stops, n, kGradientEntries));
    if (!pal) return 0;
    img.m_bits = 24;
    kivfill::RampDirection d;
    if (!kivfill::resolve_direction(dir, &d)) return 0;
    std::vector<tagRGBA> table(kGradientEntries);
    for (int i = 0; i < kGradientEntries; ++i) {
        const PALETTEENTRY& e = pal->palPalEntry[d.reversed ? kGradientEntries - 1 - i : i];
        table[i] = tagRGBA{e.peRed, e.peGreen, e.peBlue, 0};
    }
    return kivfill::ramp_fill(img, x, y, w, h, table.data(), kGradientEntries - 1, d.code, op, mode);
}

}  // namespace

tagLOGPALETTE* kiv::make_gradtable(tagGRADCOLORS* stops, int n, int size) {
    // Size 0 is a valid, empty table; sizes the 16-bit count cannot hold are refused.
    if (!stops || n < 1 || size < 0 || size > kMaxTableEntries) return nullptr;
    // Pad the stops to run from 0 to 1000.
    std::vector<tagGRADCOLORS> s;
    s.reserve(static_cast<std::size_t>(n) + 2);
    if (stops[0].pos >= 1) s.push_back(tagGRADCOLORS{stops[0].color, 0});
    s.insert(s.end(), stops, stops + n);
    if (stops[n - 1].pos < kGradientEntries) s.push_back(tagGRADCOLORS{stops[n - 1].color, kGradientEntries});

    // calloc: entries no segment reaches (stops out of order or outside 0..1000) stay zero.
    const std::size_t bytes = offsetof(tagLOGPALETTE, palPalEntry) + static_cast<std::size_t>(size) * sizeof(PALETTEENTRY);
    auto* t = static_cast<tagLOGPALETTE*>(std::calloc(1, std::max(bytes, sizeof(tagLOGPALETTE))));
    if (!t) return nullptr;
    t->palVersion = kLogPaletteVersion;
    t->palNumEntries = static_cast<WORD>(size);
    build_table(t, s, size);
    return t;
}

void kiv::free_gradtable(tagLOGPALETTE* t) { std::free(t); }

int kiv::gradientfill(int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op, int mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy,
                            [&]() -> int { return gradient_fill(*this, x, y, w, h, stops, n, dir, op, mode); });
}

int kiv::gradientfill(tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op, int mode) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        return kivfill::over_rect(*this, r, gradient_fill, stops, n, dir, op, mode);
    });
}

int kiv::fillgradientrect(int x, int y, int w, int h, tagGRADCOLORS* stops, int n, int dir, int op) {
    return gradient_fill(*this, x, y, w, h, stops, n, dir, op, kivfill::kNormal);
}

int kiv::fillgradientrect(tagRECT* r, tagGRADCOLORS* stops, int n, int dir, int op) {
    return gradientfill(r, stops, n, dir, op, kivfill::kNormal);
}
