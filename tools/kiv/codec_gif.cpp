// GIF through giflib: the first frame read (with its colour map and indices when it covers
// the screen and has no transparent colour, else as RGBA), one frame written. True colour is
// reduced to 256 colours by the library's median cut with Floyd-Steinberg diffusion first;
// pixels at alpha below 128 (or colour-map entries whose alpha is) become the transparent
// colour.
#include <gif_lib.h>

#include <algorithm>
#include <cstring>

#include "codec.h"

namespace kivcli {

namespace {

bool sniff(const unsigned char* d, std::size_t n) { return n >= 6 && (std::memcmp(d, "GIF87a", 6) == 0 || std::memcmp(d, "GIF89a", 6) == 0); }

struct Source {
    const Bytes* data;
    std::size_t pos;
};
int read_bytes(GifFileType* g, GifByteType* out, int n) {
    auto* s = static_cast<Source*>(g->UserData);
    const std::size_t k = std::min<std::size_t>(n < 0 ? 0 : static_cast<std::size_t>(n), s->data->size() - s->pos);
    if (k != 0) std::memcpy(out, s->data->data() + s->pos, k);  // an empty file has no data pointer
    s->pos += k;
    return static_cast<int>(k);
}
int write_bytes(GifFileType* g, const GifByteType* data, int n) {
    static_cast<Bytes*>(g->UserData)->insert(static_cast<Bytes*>(g->UserData)->end(), data, data + n);
    return n;
}

[[noreturn]] void fail(int error) { throw CliError(std::string("GIF: ") + (GifErrorString(error) ? GifErrorString(error) : "malformed file")); }

void decode(const Bytes& data, Picture& pic, const ReadOptions& opt) {
    Source src{&data, 0};
    int error = 0;
    GifFileType* g = DGifOpen(&src, read_bytes, &error);
    if (!g) fail(error);
    struct Closer {
        GifFileType* g;
        ~Closer() {
            int e;
            DGifCloseFile(g, &e);
        }
    } closer{g};
    // A truncated file may still hold a whole first frame.
    if (static_cast<std::uint64_t>(g->SWidth) * g->SHeight > opt.max_pixels) throw CliError("GIF: image too large");
    if (DGifSlurp(g) != GIF_OK && g->ImageCount < 1) fail(g->Error);
    if (g->ImageCount < 1) throw CliError("GIF: no image in the file");
    const SavedImage& f = g->SavedImages[0];
    const GifImageDesc& d = f.ImageDesc;
    const ColorMapObject* map = d.ColorMap ? d.ColorMap : g->SColorMap;
    if (!map || !f.RasterBits || d.Width < 1 || d.Height < 1) throw CliError("GIF: first frame without colours or pixels");
    GraphicsControlBlock gcb{};
    gcb.TransparentColor = NO_TRANSPARENT_COLOR;
    DGifSavedExtensionToGCB(g, 0, &gcb);
    const int sw = std::max(g->SWidth, d.Left + d.Width), sh = std::max(g->SHeight, d.Top + d.Height);
    if (static_cast<std::uint64_t>(sw) * sh > opt.max_pixels) throw CliError("GIF: image too large");
    const bool covers = d.Left == 0 && d.Top == 0 && d.Width == sw && d.Height == sh;
    if (covers && gcb.TransparentColor == NO_TRANSPARENT_COLOR) {
        Bytes pal(static_cast<std::size_t>(3 * map->ColorCount));
        for (int k = 0; k < map->ColorCount; ++k) {
            pal[3 * k] = map->Colors[k].Red;
            pal[3 * k + 1] = map->Colors[k].Green;
            pal[3 * k + 2] = map->Colors[k].Blue;
        }
        set_indexed(pic, sw, sh, map->BitsPerPixel, pal.data(), map->ColorCount, f.RasterBits);
    } else {
        // Outside the frame and at the transparent colour: transparent.
        Bytes rgba(static_cast<std::size_t>(sw) * sh * 4, 0);
        for (int y = 0; y < d.Height; ++y)
            for (int x = 0; x < d.Width; ++x) {
                const int k = f.RasterBits[static_cast<std::size_t>(y) * d.Width + x];
                if (k == gcb.TransparentColor || k >= map->ColorCount) continue;
                unsigned char* p = rgba.data() + (static_cast<std::size_t>(d.Top + y) * sw + d.Left + x) * 4;
                p[0] = map->Colors[k].Red;
                p[1] = map->Colors[k].Green;
                p[2] = map->Colors[k].Blue;
                p[3] = 255;
            }
        set_true_colour(pic, sw, sh, rgba.data(), true);
    }
}

Bytes encode(Picture& p, const WriteOptions& opt) {
    if (p.img.m_width > 65535 || p.img.m_height > 65535) throw CliError("GIF holds at most 65535 pixels a side");
    // A palettized copy when the image is not palettized: 255 colours and one transparent
    // entry when it has alpha.
    Picture reduced;
    Picture* src = &p;
    Layout layout = layout_of(p);
    if (layout == Layout::Rgb || layout == Layout::Rgba) {
        reduced.img.copyfrom(&p.img);
        reduced.img.quantize(1, layout == Layout::Rgba ? 255 : 256, nullptr);
        if (!reduced.img.m_map) throw CliError("GIF: cannot reduce the image to 256 colours");
        if (opt.note) opt.note("GIF: reduced to " + std::to_string(reduced.img.m_colors) + " colours");
        src = &reduced;
    }
    const kiv& img = src->img;
    int n = std::min(img.m_colors, 256), transparent = NO_TRANSPARENT_COLOR;
    Bytes idx = pixel_indices(img);
    std::vector<GifColorType> colors(256, GifColorType{0, 0, 0});
    for (int k = 0; k < n; ++k) colors[k] = GifColorType{img.m_map[k].r, img.m_map[k].g, img.m_map[k].b};
    if (layout == Layout::Rgba || p.alpha == Alpha::Map) {
        // One colour stands for every pixel below half opacity.
        for (int k = 0; layout != Layout::Rgba && k < n && transparent < 0; ++k)
            if (map_alpha(p, k) < 128) transparent = k;
        if (layout == Layout::Rgba && n < 256) transparent = n++;
        for (int i = 0; transparent >= 0 && i < img.m_packets; ++i) {
            const int a = layout == Layout::Rgba ? p.img.m_pixels[i].a : map_alpha(p, idx[i]);
            if (a < 128) idx[i] = static_cast<unsigned char>(transparent);
        }
    }
    const int bits = std::max(1, GifBitSize(n));
    int error = 0;
    ColorMapObject* cmap = GifMakeMapObject(1 << bits, colors.data());
    Bytes out;
    GifFileType* g = cmap ? EGifOpen(&out, write_bytes, &error) : nullptr;
    bool ok = g != nullptr;
    if (ok) {
        EGifSetGifVersion(g, transparent >= 0);
        ok = EGifPutScreenDesc(g, img.m_width, img.m_height, bits, 0, cmap) == GIF_OK;
        if (ok && transparent >= 0) {
            GraphicsControlBlock gcb{DISPOSAL_UNSPECIFIED, false, 0, transparent};
            GifByteType ext[4];
            EGifGCBToExtension(&gcb, ext);
            ok = EGifPutExtension(g, GRAPHICS_EXT_FUNC_CODE, 4, ext) == GIF_OK;
        }
        ok = ok && EGifPutImageDesc(g, 0, 0, img.m_width, img.m_height, false, nullptr) == GIF_OK;
        for (int y = 0; ok && y < img.m_height; ++y)
            ok = EGifPutLine(g, idx.data() + static_cast<std::size_t>(y) * img.m_width, img.m_width) == GIF_OK;
        if (!ok) error = g->Error;
        int close_error = 0;
        if (EGifCloseFile(g, &close_error) != GIF_OK && ok) {
            ok = false;
            error = close_error;
        }
    }
    GifFreeMapObject(cmap);
    if (!ok) fail(error);
    return out;
}

}  // namespace

#define KIV_STR2(x) #x
#define KIV_STR(x) KIV_STR2(x)
Codec gif_codec() {
    return Codec{"gif", ".gif", "giflib " KIV_STR(GIFLIB_MAJOR) "." KIV_STR(GIFLIB_MINOR) "." KIV_STR(GIFLIB_RELEASE), sniff, decode, encode};
}

}  // namespace kivcli
