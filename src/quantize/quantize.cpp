// kiv::quantize and its fixed- and given-palette forms.
#include "quantize/quantize.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "core/checked.h"
#include "core/watch.h"

// Callers pass colour lists as packed three-byte records.
static_assert(sizeof(tagSYSCOL) == 3, "tagSYSCOL records follow one another every three bytes");

namespace {

bool valid_mode(int mode) { return mode >= kivquant::kNearest && mode <= kivquant::kOrdered; }

bool has_pixels(const kiv& img) {
    return img.m_pixels && kivcore::checked_packets(img.m_width, img.m_height) == img.m_packets;
}

int depth_for(int entries) { return entries <= 2 ? 1 : entries <= 16 ? 4 : 8; }

}  // namespace

void kiv::quantize(int mode, int colors, tagLOGPALETTE* pal) {
    kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        if (!has_pixels(*this) || !valid_mode(mode)) return 0;
        if (pal ? pal->palNumEntries < 1 || pal->palNumEntries > kivquant::kMaxEntries
                : colors < 1 || colors > kivquant::kMaxEntries)
            return 0;

        // Everything that can fail is allocated before the image changes.
        auto palette = std::make_unique<kivquant::Palette>();
        std::unique_ptr<std::uint32_t[]> cells(new std::uint32_t[kivquant::kCells]);
        std::unique_ptr<tagRGBA, decltype(&std::free)> map(nullptr, &std::free);
        if (pal) {
            palette->count = pal->palNumEntries;
            for (int i = 0; i < palette->count; ++i)
                palette->entry[i] =
                    kivquant::Rgb{pal->palPalEntry[i].peRed, pal->palPalEntry[i].peGreen, pal->palPalEntry[i].peBlue};
        } else if (std::fill_n(cells.get(), kivquant::kCells, 0u),
                   kivquant::prescan(m_pixels, m_packets, colors, cells.get(), palette.get())) {
            mode = kivquant::kExact;  // the palette holds every colour: nothing to dither
        } else {
            kivquant::median_cut(cells.get(), colors, palette.get());
        }
        map.reset(static_cast<tagRGBA*>(std::calloc(static_cast<std::size_t>(palette->count), sizeof(tagRGBA))));
        if (!map) throw std::bad_alloc();

        kivquant::map_pixels(m_pixels, m_width, m_height, mode, *palette, cells.get());

        // The colour map as alloccmap would leave it, filled with the palette.
        alloccmap(0);
        m_map = map.release();
        m_colors = palette->count;
        for (int i = 0; i < palette->count; ++i)
            m_map[i] = tagRGBA{static_cast<BYTE>(palette->entry[i].r), static_cast<BYTE>(palette->entry[i].g),
                               static_cast<BYTE>(palette->entry[i].b), 0};
        m_bits = depth_for(palette->count);
        return 1;
    });
}

void kiv::quantize_wpal(int mode, const tagSYSCOL* cols, int n) {
    if (!cols || n < 1 || n > kivquant::kMaxEntries) return;
    // tagLOGPALETTE declares one entry; room for n.
    const std::size_t bytes = sizeof(tagLOGPALETTE) + sizeof(PALETTEENTRY) * static_cast<std::size_t>(n - 1);
    std::unique_ptr<unsigned char[]> block(new unsigned char[bytes]);
    tagLOGPALETTE* lp = reinterpret_cast<tagLOGPALETTE*>(block.get());
    lp->palVersion = 0x300;
    lp->palNumEntries = static_cast<WORD>(n);
    for (int i = 0; i < n; ++i) lp->palPalEntry[i] = PALETTEENTRY{cols[i].r, cols[i].g, cols[i].b, 0};
    quantize(mode, 0, lp);
}

int kiv::quantize_wdp(int mode, int which) {
    return kivcore::watched(*this, kivcore::Keep::kCopy, [&]() -> int {
        int n = 0;
        const tagSYSCOL* cols = kivquant::fixed_palette(which, &n);
        if (!cols || !valid_mode(mode)) return 0;
        if (!has_pixels(*this)) return 1;  // nothing to map: a colour map without pixels would be a lie
        quantize_wpal(mode, cols, n);
        return 1;
    });
}
