// JPEG through libjpeg-turbo: RGB and grey, CMYK converted to RGB; the EXIF orientation is
// applied on reading unless asked not to; an ICC profile is carried both ways.
#include <cstdio>
#include <csetjmp>
#include <cstdint>
#include <cstdlib>

#include <jpeglib.h>

#include "codec.h"

namespace kivcli {

namespace {

bool sniff(const unsigned char* d, std::size_t n) { return n >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF; }

// libjpeg's error manager, jumping back with its message instead of exiting.
struct Errors {
    jpeg_error_mgr mgr;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};
void on_error(j_common_ptr c) {
    auto* e = reinterpret_cast<Errors*>(c->err);
    c->err->format_message(c, e->message);
    std::longjmp(e->jump, 1);
}
void on_message(j_common_ptr, int) {}
jpeg_error_mgr* errors_of(Errors* e) {
    jpeg_std_error(&e->mgr);
    e->mgr.error_exit = on_error;
    e->mgr.emit_message = on_message;
    return &e->mgr;
}

struct Found {
    int w, h, channels;
    bool cmyk, inverted;
};

bool read_jpeg(jpeg_decompress_struct* d, Errors* e, const Bytes* data, std::uint64_t max_pixels, Found* f, Bytes* pixels, Bytes* icc) {
    if (setjmp(e->jump)) return false;
    jpeg_mem_src(d, data->data(), static_cast<unsigned long>(data->size()));
    jpeg_save_markers(d, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(d, TRUE);
    JOCTET* profile = nullptr;
    unsigned len = 0;
    if (jpeg_read_icc_profile(d, &profile, &len)) {
        icc->assign(profile, profile + len);
        std::free(profile);
    }
    f->cmyk = d->jpeg_color_space == JCS_CMYK || d->jpeg_color_space == JCS_YCCK;
    f->inverted = f->cmyk && d->saw_Adobe_marker;
    d->out_color_space = f->cmyk ? JCS_CMYK : d->jpeg_color_space == JCS_GRAYSCALE ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(d);
    f->w = static_cast<int>(d->output_width);
    f->h = static_cast<int>(d->output_height);
    f->channels = d->output_components;
    if (static_cast<std::uint64_t>(d->output_width) * d->output_height > max_pixels) {
        std::snprintf(e->message, sizeof e->message, "image too large");
        return false;
    }
    const std::size_t row = static_cast<std::size_t>(f->w) * f->channels;
    pixels->resize(row * f->h);
    while (d->output_scanline < d->output_height) {
        JSAMPROW r = pixels->data() + row * d->output_scanline;
        jpeg_read_scanlines(d, &r, 1);
    }
    jpeg_finish_decompress(d);
    return true;
}

void decode(const Bytes& data, Picture& pic, const ReadOptions& opt) {
    jpeg_decompress_struct d;
    Errors e;
    d.err = errors_of(&e);
    jpeg_create_decompress(&d);
    Found f{};
    Bytes pixels, icc;
    const bool ok = read_jpeg(&d, &e, &data, opt.max_pixels, &f, &pixels, &icc);
    jpeg_destroy_decompress(&d);
    if (!ok) throw CliError(std::string("JPEG: ") + e.message);
    if (f.channels == 1) {
        set_grey(pic, f.w, f.h, 8, pixels.data());
    } else {
        Bytes rgba(static_cast<std::size_t>(f.w) * f.h * 4);
        for (std::size_t i = 0, n = rgba.size() / 4; i < n; ++i) {
            const unsigned char* s = pixels.data() + i * f.channels;
            if (f.cmyk) {
                // Adobe writes CMYK inverted (255 = no ink); either way colour = (1 - c)(1 - k).
                const int c = f.inverted ? s[0] : 255 - s[0], m = f.inverted ? s[1] : 255 - s[1];
                const int y = f.inverted ? s[2] : 255 - s[2], k = f.inverted ? s[3] : 255 - s[3];
                rgba[4 * i] = static_cast<unsigned char>((c * k + 127) / 255);
                rgba[4 * i + 1] = static_cast<unsigned char>((m * k + 127) / 255);
                rgba[4 * i + 2] = static_cast<unsigned char>((y * k + 127) / 255);
            } else {
                rgba[4 * i] = s[0];
                rgba[4 * i + 1] = s[1];
                rgba[4 * i + 2] = s[2];
            }
            rgba[4 * i + 3] = 255;
        }
        set_true_colour(pic, f.w, f.h, rgba.data(), false);
    }
    // A CMYK profile describes the ink, not the RGB written from here on.
    if (!f.cmyk) pic.icc = std::move(icc);
    if (opt.autorotate) apply_orientation(pic.img, jpeg_exif_orientation(data.data(), data.size()));
}

bool write_jpeg(jpeg_compress_struct* c, Errors* e, const Picture* pic, bool grey, int quality, const Bytes* pixels,
                unsigned char** out, unsigned long* size) {
    if (setjmp(e->jump)) return false;
    jpeg_mem_dest(c, out, size);
    c->image_width = static_cast<JDIMENSION>(pic->img.m_width);
    c->image_height = static_cast<JDIMENSION>(pic->img.m_height);
    c->input_components = grey ? 1 : 3;
    c->in_color_space = grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(c);
    jpeg_set_quality(c, quality, TRUE);
    jpeg_start_compress(c, TRUE);
    if (!pic->icc.empty() && icc_fits(pic->icc, grey))
        jpeg_write_icc_profile(c, pic->icc.data(), static_cast<unsigned>(pic->icc.size()));
    const std::size_t row = static_cast<std::size_t>(pic->img.m_width) * c->input_components;
    while (c->next_scanline < c->image_height) {
        JSAMPROW r = const_cast<unsigned char*>(pixels->data()) + row * c->next_scanline;
        jpeg_write_scanlines(c, &r, 1);
    }
    jpeg_finish_compress(c);
    return true;
}

Bytes encode(Picture& pic, const WriteOptions& opt) {
    const Layout layout = layout_of(pic);
    if (pic.alpha != Alpha::None && opt.note) opt.note("JPEG holds no alpha: written opaque");
    const bool grey = layout == Layout::Grey;
    Bytes pixels;
    if (grey) {
        // The ramp's values at depth 8; 1- and 4-bit grey widen to it.
        pixels = pixel_indices(pic.img);
        const int n = (1 << pic.img.m_bits) - 1;
        for (unsigned char& v : pixels) v = static_cast<unsigned char>(v * 255 / n);
    } else {
        pixels = packed_pixels(pic, 3);
    }
    jpeg_compress_struct c;
    Errors e;
    c.err = errors_of(&e);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    const bool ok = write_jpeg(&c, &e, &pic, grey, opt.quality, &pixels, &out, &size);
    jpeg_destroy_compress(&c);
    Bytes result;
    if (ok) result.assign(out, out + size);
    std::free(out);
    if (!ok) throw CliError(std::string("JPEG: ") + e.message);
    return result;
}

}  // namespace

#define KIV_STR2(x) #x
#define KIV_STR(x) KIV_STR2(x)
#ifdef LIBJPEG_TURBO_VERSION
#define KIV_JPEG_LIBRARY "libjpeg-turbo " KIV_STR(LIBJPEG_TURBO_VERSION)
#else
#define KIV_JPEG_LIBRARY "libjpeg " KIV_STR(JPEG_LIB_VERSION)
#endif
Codec jpeg_codec() { return Codec{"jpeg", ".jpg .jpeg .jpe", KIV_JPEG_LIBRARY, sniff, decode, encode}; }

}  // namespace kivcli
