// GDI bitmaps and palettes to and from images (Windows), through packed DIBs.
#ifdef _WIN32
#  include <algorithm>
#  include <cstdint>
#  include <cstdlib>
#  include <vector>

#  include "interchange/dibformat.h"
#  include "kiv.h"
#  include "platform/gdi.h"
#  include "platform/global_memory.h"

kiv::kiv(HBITMAP bitmap, HPALETTE palette) {
    clearparam();
    attachbitmap(bitmap, palette);
}

HPALETTE kiv::createpalette() {
    tagLOGPALETTE* lp = createlogpalette();
    if (!lp) return nullptr;
    HPALETTE h = kivplat::create_palette(lp);
    std::free(lp);
    return h;
}

int kiv::replace_palette(HPALETTE palette) {
    if (!palette) return 0;
    const int count = kivplat::palette_size(palette);
    if (count != m_colors || !m_map || count == 0) return 0;  // the map is never resized here
    std::vector<PALETTEENTRY> entries(static_cast<std::size_t>(count));
    if (!kivplat::palette_entries(palette, count, entries.data())) return 0;
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
    int width = 0, height = 0, pb = 0;
    if (!kivplat::bitmap_format(bitmap, &width, &height, &pb) || width < 1 || height < 1) return 0;
    if (!palette) palette = kivplat::default_palette();
    const WORD depth = static_cast<WORD>(pb < 2 ? 1 : pb <= 4 ? 4 : pb <= 8 ? 8 : 24);
    const std::size_t table = depth <= 8 ? (std::size_t(4) << depth) : 0;

    void* dib = nullptr;
    {
        kivplat::ScreenDc dc(palette);
        if (!dc.ok()) return 0;
        dib = kivplat::global_alloc(sizeof(BITMAPINFOHEADER) + table, true);
        if (!dib) return 0;
        bool ok = false;
        std::uint64_t image = 0;
        {
            const kivplat::LockedBlock lock(dib);
            auto* bi = reinterpret_cast<BITMAPINFO*>(lock.data());
            if (bi) {
                bi->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
                bi->bmiHeader.biWidth = width;
                bi->bmiHeader.biHeight = height;
                bi->bmiHeader.biPlanes = 1;
                bi->bmiHeader.biBitCount = depth;
                bi->bmiHeader.biCompression = BI_RGB;
                // First call: GDI completes the header (biSizeImage among others).
                ok = dc.read_bitmap(bitmap, static_cast<UINT>(height), nullptr, bi) != 0;
                // biSizeImage, or the rows' size when it is 0; never less than the rows
                // GetDIBits is about to write, whatever GDI announced.
                const std::uint64_t rows_bytes = kivdib::dib_stride(width, depth) * static_cast<std::uint64_t>(height);
                image = std::max<std::uint64_t>(bi->bmiHeader.biSizeImage, rows_bytes);
                // Our table size regardless of what GDI wrote, so the rows land where we allocated.
                bi->bmiHeader.biBitCount = depth;
                bi->bmiHeader.biCompression = BI_RGB;
                bi->bmiHeader.biClrUsed = 0;
            }
        }
        const std::uint64_t total = sizeof(BITMAPINFOHEADER) + table + image;
        void* grown = ok && total <= SIZE_MAX ? kivplat::global_realloc(dib, static_cast<std::size_t>(total)) : nullptr;
        if (!grown) {
            kivplat::global_free(dib);
            return 0;
        }
        dib = grown;
        int lines = 0;
        {
            const kivplat::LockedBlock lock(dib);
            auto* bi = reinterpret_cast<BITMAPINFO*>(lock.data());
            if (bi) {
                lines = dc.read_bitmap(bitmap, static_cast<UINT>(height), lock.data() + sizeof(BITMAPINFOHEADER) + table, bi);
                // GDI may announce a shorter table; the rows sit after the full one.
                bi->bmiHeader.biClrUsed = 0;
                bi->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
            }
        }
        if (lines == 0) {
            kivplat::global_free(dib);
            return 0;
        }
    }
    const int result = attachdib(dib);
    kivplat::global_free(dib);
    return result;
}

HBITMAP kiv::createbitmap(HPALETTE* palette) {
    if (palette) *palette = nullptr;
    void* dib = createdib();
    if (!dib) return nullptr;
    HPALETTE pal = nullptr;
    HBITMAP bmp = nullptr;
    {
        const kivplat::LockedBlock lock(dib);
        const auto* bi = reinterpret_cast<const BITMAPINFO*>(lock.data());
        if (!bi) {
            kivplat::global_free(dib);
            return nullptr;
        }
        // The table as the header announces it (biClrUsed 0 below 9 bits: 1 << depth entries).
        const std::uint64_t entries = kivdib::dib_table_entries(bi->bmiHeader);
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
                pal = kivplat::create_palette(lp);
                std::free(lp);
            }
        }
        const kivplat::ScreenDc dc(pal);
        if (dc.ok()) bmp = dc.make_bitmap(bi, lock.data() + sizeof(BITMAPINFOHEADER) + 4 * static_cast<std::size_t>(entries));
    }
    kivplat::global_free(dib);
    if (palette)
        *palette = pal;
    else if (pal)
        kivplat::delete_object(pal);
    return bmp;
}
#endif
