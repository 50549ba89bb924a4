// GDI handles on Windows.
#include "platform/gdi.h"

namespace kivplat {

ScreenDc::ScreenDc(HPALETTE palette) : dc_(GetDC(nullptr)) {
    if (dc_ && palette) {
        old_ = SelectPalette(dc_, palette, FALSE);
        RealizePalette(dc_);
    }
}

ScreenDc::~ScreenDc() {
    if (!dc_) return;
    if (old_) SelectPalette(dc_, old_, FALSE);
    ReleaseDC(nullptr, dc_);
}

int ScreenDc::read_bitmap(HBITMAP bitmap, unsigned lines, void* rows, BITMAPINFO* info) const {
    return GetDIBits(dc_, bitmap, 0, lines, rows, info, DIB_RGB_COLORS);
}

HBITMAP ScreenDc::make_bitmap(const BITMAPINFO* info, const void* rows) const {
    HBITMAP bmp = CreateDIBitmap(dc_, &info->bmiHeader, CBM_INIT, rows, info, DIB_RGB_COLORS);
    if (!bmp) {
        void* bits = nullptr;
        bmp = CreateDIBSection(dc_, info, DIB_RGB_COLORS, &bits, nullptr, 0);
        if (bmp) SetDIBits(dc_, bmp, 0, static_cast<UINT>(info->bmiHeader.biHeight), rows, info, DIB_RGB_COLORS);
    }
    return bmp;
}

HPALETTE create_palette(const LOGPALETTE* palette) { return CreatePalette(palette); }

int palette_size(HPALETTE palette) {
    WORD count = 0;
    return GetObjectA(palette, sizeof count, &count) ? count : 0;
}

bool palette_entries(HPALETTE palette, int count, PALETTEENTRY* out) {
    return count > 0 && GetPaletteEntries(palette, 0, static_cast<UINT>(count), out) == static_cast<UINT>(count);
}

HPALETTE default_palette() { return static_cast<HPALETTE>(GetStockObject(DEFAULT_PALETTE)); }

bool bitmap_format(HBITMAP bitmap, int* width, int* height, int* bits_per_pixel) {
    BITMAP bm{};
    if (!GetObjectA(bitmap, sizeof bm, &bm)) return false;
    *width = bm.bmWidth;
    *height = bm.bmHeight;
    *bits_per_pixel = bm.bmPlanes * bm.bmBitsPixel;
    return true;
}

void delete_object(HGDIOBJ object) { DeleteObject(object); }

}  // namespace kivplat
