// TIFF through libtiff. Palettized and grey files keep their colour map or grey levels,
// 16-bit samples are reduced to 8 bits with rounding, alpha (straight or premultiplied) is
// kept, the orientation tag applied; other layouts (tiles, planes, YCbCr, CMYK) come through
// libtiff's RGBA reader. Written with deflate compression, an ICC profile carried both ways.
#include <tiffio.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "codec.h"

namespace kivcli {

namespace {

bool sniff(const unsigned char* d, std::size_t n) {
    return n >= 4 && ((d[0] == 'I' && d[1] == 'I' && d[2] == 42 && d[3] == 0) || (d[0] == 'M' && d[1] == 'M' && d[2] == 0 && d[3] == 42));
}

// The file in memory: read from `in`, or written into `out`.
struct Memory {
    const Bytes* in;
    Bytes* out;
    toff_t pos;
    char message[200];
    std::size_t size() const { return in ? in->size() : out->size(); }
};
tsize_t mem_read(thandle_t h, tdata_t p, tsize_t n) {
    auto* m = static_cast<Memory*>(h);
    if (!m->in || m->pos >= m->in->size() || n <= 0) return 0;
    const std::size_t k = std::min<std::size_t>(static_cast<std::size_t>(n), m->in->size() - m->pos);
    std::memcpy(p, m->in->data() + m->pos, k);
    m->pos += k;
    return static_cast<tsize_t>(k);
}
tsize_t mem_write(thandle_t h, tdata_t p, tsize_t n) {
    auto* m = static_cast<Memory*>(h);
    if (!m->out || n < 0) return -1;
    if (m->pos + static_cast<std::size_t>(n) > m->out->size()) m->out->resize(m->pos + static_cast<std::size_t>(n));
    std::memcpy(m->out->data() + m->pos, p, static_cast<std::size_t>(n));
    m->pos += static_cast<toff_t>(n);
    return n;
}
toff_t mem_seek(thandle_t h, toff_t off, int whence) {
    auto* m = static_cast<Memory*>(h);
    const toff_t base = whence == SEEK_CUR ? m->pos : whence == SEEK_END ? m->size() : 0;
    m->pos = base + off;
    return m->pos;
}
int mem_close(thandle_t) { return 0; }
toff_t mem_size(thandle_t h) { return static_cast<Memory*>(h)->size(); }
int mem_map(thandle_t, tdata_t*, toff_t*) { return 0; }
void mem_unmap(thandle_t, tdata_t, toff_t) {}

int on_error(TIFF*, void* user, const char*, const char* fmt, va_list ap) {
    auto* m = static_cast<Memory*>(user);
    std::vsnprintf(m->message, sizeof m->message, fmt, ap);
    return 1;
}
int on_warning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

TIFF* open(Memory* m, const char* mode) {
    TIFFOpenOptions* o = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(o, on_error, m);
    TIFFOpenOptionsSetWarningHandlerExtR(o, on_warning, m);
    TIFF* t = TIFFClientOpenExt("memory", mode, m, mem_read, mem_write, mem_seek, mem_close, mem_size, mem_map, mem_unmap, o);
    TIFFOpenOptionsFree(o);
    return t;
}

struct Closer {
    TIFF* t;
    ~Closer() {
        if (t) TIFFClose(t);
    }
};

[[noreturn]] void fail(const Memory& m, const char* what) {
    throw CliError(std::string("TIFF: ") + (m.message[0] ? m.message : what));
}

// Sample k of a row at bits (1, 2, 4, 8 or 16), most significant bits first.
unsigned sample(const unsigned char* row, std::size_t k, int bits) {
    if (bits == 16) {
        std::uint16_t v;  // in the machine's byte order, as libtiff hands it over
        std::memcpy(&v, row + 2 * k, 2);
        return v;
    }
    if (bits == 8) return row[k];
    const std::size_t bit = k * bits;
    return (row[bit / 8] >> (8 - bits - bit % 8)) & ((1u << bits) - 1);
}

// Straight colour from premultiplied, rounded.
unsigned char unpremultiply(unsigned c, unsigned a) { return static_cast<unsigned char>(a ? (c * 255 + a / 2) / a > 255 ? 255 : (c * 255 + a / 2) / a : 0); }

void decode(const Bytes& data, Picture& pic, const ReadOptions& opt) {
    Memory m{&data, nullptr, 0, ""};
    Closer c{open(&m, "rm")};
    TIFF* t = c.t;
    if (!t) fail(m, "malformed file");
    std::uint32_t w = 0, h = 0;
    std::uint16_t bits = 1, spp = 1, photometric = PHOTOMETRIC_MINISBLACK, planar = PLANARCONFIG_CONTIG, orientation = 1;
    std::uint16_t nextra = 0, *extra = nullptr;
    if (!TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w) || !TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h)) fail(m, "no image size");
    if (w < 1 || h < 1 || static_cast<std::uint64_t>(w) * h > opt.max_pixels) throw CliError("TIFF: image too large or empty");
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(t, TIFFTAG_ORIENTATION, &orientation);
    TIFFGetFieldDefaulted(t, TIFFTAG_EXTRASAMPLES, &nextra, &extra);
    TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric);
    std::uint32_t icc_len = 0;
    void* icc = nullptr;
    if (TIFFGetField(t, TIFFTAG_ICCPROFILE, &icc_len, &icc) && icc)
        pic.icc.assign(static_cast<unsigned char*>(icc), static_cast<unsigned char*>(icc) + icc_len);
    pic.file_bits = bits;
    const int iw = static_cast<int>(w), ih = static_cast<int>(h);
    const bool alpha = nextra > 0 && extra && extra[0] != EXTRASAMPLE_UNSPECIFIED;
    const bool premultiplied = alpha && extra[0] == EXTRASAMPLE_ASSOCALPHA;
    const bool grey = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
    const bool plain_bits = bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16;
    const bool by_rows = !TIFFIsTiled(t) && (planar == PLANARCONFIG_CONTIG || spp == 1) && plain_bits &&
                         ((photometric == PHOTOMETRIC_PALETTE && spp == 1 && bits <= 8) || (grey && spp >= 1 && spp <= 2) ||
                          (photometric == PHOTOMETRIC_RGB && spp >= 3 && bits >= 8));
    Bytes values(static_cast<std::size_t>(w) * h);
    Bytes rgba(by_rows && spp == 1 ? 0 : static_cast<std::size_t>(w) * h * 4);
    if (by_rows) {
        Bytes row(static_cast<std::size_t>(TIFFScanlineSize(t)));
        if (row.size() < (static_cast<std::size_t>(w) * spp * bits + 7) / 8) fail(m, "bad row size");
        const unsigned top = (1u << (bits == 16 ? 8 : bits)) - 1;
        for (std::uint32_t y = 0; y < h; ++y) {
            if (TIFFReadScanline(t, row.data(), y, 0) < 0) fail(m, "truncated data");
            for (std::uint32_t x = 0; x < w; ++x) {
                const std::size_t i = static_cast<std::size_t>(y) * w + x;
                unsigned s[4] = {0, 0, 0, 0};
                for (unsigned k = 0; k < spp && k < 4; ++k) {
                    s[k] = sample(row.data(), static_cast<std::size_t>(x) * spp + k, bits);
                    if (bits == 16) s[k] = to8(s[k]);
                }
                if (grey && photometric == PHOTOMETRIC_MINISWHITE) s[0] = top - s[0];
                if (rgba.empty()) {
                    values[i] = static_cast<unsigned char>(s[0]);
                    continue;
                }
                const unsigned a = spp == 2 || spp >= 4 ? s[spp == 2 ? 1 : 3] : 255;
                const unsigned g = grey && bits < 8 ? s[0] * 255 / top : s[0];
                unsigned char* d = rgba.data() + 4 * i;
                const unsigned rgb[3] = {grey ? g : s[0], grey ? g : s[1], grey ? g : s[2]};
                for (int k = 0; k < 3; ++k) d[k] = premultiplied ? unpremultiply(rgb[k], a) : static_cast<unsigned char>(rgb[k]);
                d[3] = static_cast<unsigned char>(alpha ? a : 255);
            }
        }
    } else {
        std::vector<std::uint32_t> raster(static_cast<std::size_t>(w) * h);
        if (!TIFFReadRGBAImageOriented(t, w, h, raster.data(), ORIENTATION_TOPLEFT, 0)) fail(m, "unsupported layout");
        orientation = 1;
        for (std::size_t i = 0; i < raster.size(); ++i) {
            const std::uint32_t p = raster[i];
            const unsigned a = alpha ? TIFFGetA(p) : 255;
            // The RGBA reader premultiplies whatever alpha the file has.
            rgba[4 * i] = unpremultiply(TIFFGetR(p), a);
            rgba[4 * i + 1] = unpremultiply(TIFFGetG(p), a);
            rgba[4 * i + 2] = unpremultiply(TIFFGetB(p), a);
            rgba[4 * i + 3] = static_cast<unsigned char>(a);
        }
    }
    if (!rgba.empty()) {
        set_true_colour(pic, iw, ih, rgba.data(), alpha);
    } else if (photometric == PHOTOMETRIC_PALETTE) {
        std::uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
        if (!TIFFGetField(t, TIFFTAG_COLORMAP, &r, &g, &b)) fail(m, "palette image without a colour map");
        const int n = 1 << bits;
        // Some writers put 8-bit values in the 16-bit map.
        bool eight = true;
        for (int k = 0; k < n; ++k) eight = eight && r[k] < 256 && g[k] < 256 && b[k] < 256;
        Bytes pal(static_cast<std::size_t>(3 * n));
        for (int k = 0; k < n; ++k) {
            pal[3 * k] = static_cast<unsigned char>(eight ? r[k] : to8(r[k]));
            pal[3 * k + 1] = static_cast<unsigned char>(eight ? g[k] : to8(g[k]));
            pal[3 * k + 2] = static_cast<unsigned char>(eight ? b[k] : to8(b[k]));
        }
        set_indexed(pic, iw, ih, bits, pal.data(), n, values.data());
    } else if (bits == 2) {
        for (unsigned char& v : values) v = static_cast<unsigned char>(v * 85);
        set_grey(pic, iw, ih, 8, values.data());
    } else {
        set_grey(pic, iw, ih, bits == 16 ? 8 : bits, values.data());
    }
    apply_orientation(pic.img, orientation);
}

// A row of values packed at bits (1, 2, 4 or 8), most significant bits first.
void pack_row(const unsigned char* values, int w, int bits, unsigned char* out) {
    if (bits == 8) {
        std::memcpy(out, values, static_cast<std::size_t>(w));
        return;
    }
    std::memset(out, 0, static_cast<std::size_t>((w * bits + 7) / 8));
    for (int x = 0; x < w; ++x) out[x * bits / 8] |= static_cast<unsigned char>(values[x] << (8 - bits - x * bits % 8));
}

Bytes encode(Picture& pic, const WriteOptions&) {
    Bytes out;
    Memory m{nullptr, &out, 0, ""};
    kiv& img = pic.img;
    const Layout layout = layout_of(pic);
    const bool mapped = layout == Layout::Indexed || layout == Layout::Grey;
    const int spp = mapped ? 1 : layout == Layout::Rgba ? 4 : 3, bits = mapped ? index_bits(img) : 8;
    {
        Closer c{open(&m, "w")};
        TIFF* t = c.t;
        if (!t) fail(m, "cannot start the file");
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(img.m_width));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(img.m_height));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, spp);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        const bool deflate = TIFFIsCODECConfigured(COMPRESSION_ADOBE_DEFLATE);
        TIFFSetField(t, TIFFTAG_COMPRESSION, deflate ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_LZW);
        if (bits == 8) TIFFSetField(t, TIFFTAG_PREDICTOR, mapped && layout == Layout::Indexed ? PREDICTOR_NONE : PREDICTOR_HORIZONTAL);
        std::vector<std::uint16_t> cmap;
        if (layout == Layout::Indexed) {
            TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
            const int n = 1 << bits;
            cmap.assign(static_cast<std::size_t>(3 * n), 0);
            for (int k = 0; k < n && k < img.m_colors; ++k) {
                cmap[k] = static_cast<std::uint16_t>(img.m_map[k].r * 257);
                cmap[n + k] = static_cast<std::uint16_t>(img.m_map[k].g * 257);
                cmap[2 * n + k] = static_cast<std::uint16_t>(img.m_map[k].b * 257);
            }
            TIFFSetField(t, TIFFTAG_COLORMAP, cmap.data(), cmap.data() + n, cmap.data() + 2 * n);
        } else {
            TIFFSetField(t, TIFFTAG_PHOTOMETRIC, layout == Layout::Grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
        }
        if (layout == Layout::Rgba) {
            std::uint16_t straight = EXTRASAMPLE_UNASSALPHA;
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &straight);
        }
        if (!pic.icc.empty() && icc_fits(pic.icc, layout == Layout::Grey))
            TIFFSetField(t, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(pic.icc.size()), pic.icc.data());
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
        const Bytes px = mapped ? pixel_indices(img) : packed_pixels(pic, spp);
        const std::size_t stride = static_cast<std::size_t>(img.m_width) * (mapped ? 1 : spp);
        Bytes row(stride);
        for (int y = 0; y < img.m_height; ++y) {
            if (mapped)
                pack_row(px.data() + stride * y, img.m_width, bits, row.data());
            else
                std::memcpy(row.data(), px.data() + stride * y, stride);
            if (TIFFWriteScanline(t, row.data(), static_cast<std::uint32_t>(y), 0) < 0) fail(m, "cannot write a row");
        }
        if (!TIFFWriteDirectory(t)) fail(m, "cannot finish the file");
    }
    if (m.message[0]) fail(m, "");
    return out;
}

}  // namespace

#define KIV_STR2(x) #x
#define KIV_STR(x) KIV_STR2(x)
Codec tiff_codec() {
    return Codec{"tiff", ".tif .tiff", "libtiff " KIV_STR(TIFFLIB_MAJOR_VERSION) "." KIV_STR(TIFFLIB_MINOR_VERSION) "." KIV_STR(TIFFLIB_MICRO_VERSION),
                 sniff, decode, encode};
}

}  // namespace kivcli
