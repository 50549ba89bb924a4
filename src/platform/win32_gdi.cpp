// GDI interchange on Windows: palettes of the colour map, bitmaps to and from images through
// packed DIBs.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kiv.h"
#include "interchange/dibformat.h"

namespace {

// The screen DC with a palette selected and realized; both restored on every path.
class ScreenDc {
public:
    explicit ScreenDc(HPALETTE palette) : dc_(GetDC(nullptr)) {
        if (dc_ && palette) {
            old_ = SelectPalette(dc_, palette, FALSE);
            RealizePalette(dc_);
        }
    }
    ~ScreenDc() {
        if (!dc_) return;
        if (old_) SelectPalette(dc_, old_, FALSE);
        ReleaseDC(nullptr, dc_);
    }
    ScreenDc(const ScreenDc&) = delete;
    ScreenDc& operator=(const ScreenDc&) = delete;
    HDC get() const { return dc_; }

private:
    HDC dc_;
    HPALETTE old_ = nullptr;
};

}  // namespace

kiv::kiv(HBITMAP bitmap, HPALETTE palette) {
    clearparam();
    attachbitmap(bitmap, palette);
}

HPALETTE kiv::createpalette() {
    tagLOGPALETTE* lp = createlogpalette();
    if (!lp) return nullptr;
    HPALETTE h = CreatePalette(lp);
    std::free(lp);
    return h;
}

int kiv::replace_palette(HPALETTE palette) {
    if (!palette) return 0;
    WORD count = 0;
    if (!GetObjectA(palette, sizeof count, &count)) return 0;
    if (count != m_colors || !m_map || count == 0) return 0;  // the map is never resized here
    std::vector<PALETTEENTRY> entries(count);
    if (GetPaletteEntries(palette, 0, count, entries.data()) != count) return 0;
    for (int i = 0; i < m_colors; ++i) {
        m_map[i].r = entries[static_cast<std::size_t>(i)].peRed;
        m_map[i].g = entries[static_cast<std::size_t>(i)].peGreen;
        m_map[i].b = entries[static_cast<std::size_t>(i)].peBlue;
    }
    validate_rgb();
    return 1;
}

int kiv::attachbitmap(HBITMAP bitmap, HPALETTE palette) {
    if (!bitmap) return 0;
    BITMAP bm{};
    if (!GetObjectA(bitmap, sizeof bm, &bm) || bm.bmWidth < 1 || bm.bmHeight < 1) return 0;
    if (!palette) palette = static_cast<HPALETTE>(GetStockObject(DEFAULT_PALETTE));
    const int pb = bm.bmPlanes * bm.bmBitsPixel;
    const WORD depth = static_cast<WORD>(pb < 2 ? 1 : pb <= 4 ? 4 : pb <= 8 ? 8 : 24);
    const std::size_t table = depth <= 8 ? (std::size_t(4) << depth) : 0;

    HGLOBAL dib = nullptr;
    {
        ScreenDc dc(palette);
        if (!dc.get()) return 0;
        dib = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(BITMAPINFOHEADER) + table);
        if (!dib) return 0;
        auto* bi = static_cast<BITMAPINFO*>(GlobalLock(dib));
        if (!bi) {
            GlobalFree(dib);
            return 0;
        }
        bi->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
        bi->bmiHeader.biWidth = bm.bmWidth;
        bi->bmiHeader.biHeight = bm.bmHeight;
        bi->bmiHeader.biPlanes = 1;
        bi->bmiHeader.biBitCount = depth;
        bi->bmiHeader.biCompression = BI_RGB;
        // First call: GDI completes the header (biSizeImage among others).
        const bool ok = GetDIBits(dc.get(), bitmap, 0, static_cast<UINT>(bm.bmHeight), nullptr, bi, DIB_RGB_COLORS) != 0;
        // biSizeImage, or the rows' size when it is 0; never less than the rows GetDIBits
        // is about to write, whatever GDI announced.
        const std::uint64_t rows_bytes = kivdib::dib_stride(bm.bmWidth, depth) * static_cast<std::uint64_t>(bm.bmHeight);
        const std::uint64_t image = std::max<std::uint64_t>(bi->bmiHeader.biSizeImage, rows_bytes);
        // Our table size regardless of what GDI wrote, so the rows land where we allocated.
        bi->bmiHeader.biBitCount = depth;
        bi->bmiHeader.biCompression = BI_RGB;
        bi->bmiHeader.biClrUsed = 0;
        GlobalUnlock(dib);
        const std::uint64_t total = sizeof(BITMAPINFOHEADER) + table + image;
        HGLOBAL grown = ok && total <= SIZE_MAX ? GlobalReAlloc(dib, static_cast<SIZE_T>(total), GMEM_MOVEABLE | GMEM_ZEROINIT) : nullptr;
        if (!grown) {
            GlobalFree(dib);
            return 0;
        }
        dib = grown;
        bi = static_cast<BITMAPINFO*>(GlobalLock(dib));
        int lines = 0;
        if (bi) {
            BYTE* rows = reinterpret_cast<BYTE*>(bi) + sizeof(BITMAPINFOHEADER) + table;
            lines = GetDIBits(dc.get(), bitmap, 0, static_cast<UINT>(bm.bmHeight), rows, bi, DIB_RGB_COLORS);
            // GDI may announce a shorter table; the rows sit after the full one.
            bi->bmiHeader.biClrUsed = 0;
            bi->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
            GlobalUnlock(dib);
        }
        if (lines == 0) {
            GlobalFree(dib);
            return 0;
        }
    }
    const int result = attachdib(dib);
    GlobalFree(dib);
    return result;
}

HBITMAP kiv::createbitmap(HPALETTE* palette) {
    if (palette) *palette = nullptr;
    HGLOBAL dib = createdib();
    if (!dib) return nullptr;
    auto* bi = static_cast<BITMAPINFO*>(GlobalLock(dib));
    if (!bi) {
        GlobalFree(dib);
        return nullptr;
    }
    // The table as the header announces it (biClrUsed 0 below 9 bits: 1 << depth entries).
    const std::uint64_t entries = kivdib::dib_table_entries(bi->bmiHeader);
    HPALETTE pal = nullptr;
    if (entries > 0) {
        const std::size_t bytes = 8 + 4 * static_cast<std::size_t>(entries);
        auto* lp = static_cast<LOGPALETTE*>(std::malloc(bytes));
        if (lp) {
            lp->palVersion = 0x300;
            lp->palNumEntries = static_cast<WORD>(entries);
            for (std::size_t i = 0; i < entries; ++i) {
                const RGBQUAD& q = bi->bmiColors[i];
                lp->palPalEntry[i] = PALETTEENTRY{q.rgbRed, q.rgbGreen, q.rgbBlue, 0};
            }
            pal = CreatePalette(lp);
            std::free(lp);
        }
    }
    HBITMAP bmp = nullptr;
    {
        ScreenDc dc(pal);
        if (dc.get()) {
            const BYTE* rows = reinterpret_cast<const BYTE*>(bi) + sizeof(BITMAPINFOHEADER) + 4 * static_cast<std::size_t>(entries);
            bmp = CreateDIBitmap(dc.get(), &bi->bmiHeader, CBM_INIT, rows, bi, DIB_RGB_COLORS);
            if (!bmp) {
                void* bits = nullptr;
                bmp = CreateDIBSection(dc.get(), bi, DIB_RGB_COLORS, &bits, nullptr, 0);
                if (bmp) SetDIBits(dc.get(), bmp, 0, static_cast<UINT>(bi->bmiHeader.biHeight), rows, bi, DIB_RGB_COLORS);
            }
        }
    }
    GlobalUnlock(dib);
    GlobalFree(dib);
    if (palette)
        *palette = pal;
    else if (pal)
        DeleteObject(pal);
    return bmp;
}
