// GDI handles (Windows): palettes, bitmaps and the screen's device context, as thin calls
// that the DIB and palette code builds on.
#ifndef KIV_PLATFORM_GDI_H
#define KIV_PLATFORM_GDI_H

#include <windows.h>

namespace kivplat {

// The screen's device context with a palette selected and realized (null: none); the
// previous palette is selected again and the context released on every path.
class ScreenDc {
public:
    explicit ScreenDc(HPALETTE palette);
    ~ScreenDc();
    ScreenDc(const ScreenDc&) = delete;
    ScreenDc& operator=(const ScreenDc&) = delete;
    bool ok() const { return dc_ != nullptr; }

    // GetDIBits over lines rows of bitmap: with rows null, completes the header in info;
    // otherwise fills info's colour table and the rows. The rows read; 0 on failure.
    int read_bitmap(HBITMAP bitmap, unsigned lines, void* rows, BITMAPINFO* info) const;
    // A bitmap holding the rows of a packed DIB (a DIB section when GDI refuses a
    // device-dependent one); null on failure.
    HBITMAP make_bitmap(const BITMAPINFO* info, const void* rows) const;

private:
    HDC dc_;
    HPALETTE old_ = nullptr;
};

// A logical palette's GDI palette, or null.
HPALETTE create_palette(const LOGPALETTE* palette);
// The number of entries of a palette; 0 when it cannot be read.
int palette_size(HPALETTE palette);
// Entries 0 .. count - 1 of a palette into out; false unless all were read.
bool palette_entries(HPALETTE palette, int count, PALETTEENTRY* out);
// The system's default palette.
HPALETTE default_palette();
// A bitmap's width, height and bits per pixel (planes times bits); false when it cannot be
// read.
bool bitmap_format(HBITMAP bitmap, int* width, int* height, int* bits_per_pixel);
void delete_object(HGDIOBJ object);

}  // namespace kivplat

#endif
