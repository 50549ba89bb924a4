// PNG through libpng. Palettized files keep their colour map and indices, grey ones stay grey,
// 16-bit samples are reduced to 8 bits with rounding; an ICC profile is carried both ways.
#include <png.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "codec.h"

namespace kivcli {

namespace {

bool sniff(const unsigned char* d, std::size_t n) { return n >= 8 && png_sig_cmp(d, 0, 8) == 0; }

// libpng reports errors through these; the message is kept for the user.
struct Errors {
    char message[160];
};
void on_error(png_structp png, png_const_charp msg) {
    auto* e = static_cast<Errors*>(png_get_error_ptr(png));
    std::snprintf(e->message, sizeof e->message, "%s", msg);
    png_longjmp(png, 1);
}
void on_warning(png_structp, png_const_charp) {}

struct Source {
    const Bytes* data;
    std::size_t pos;
};
void read_bytes(png_structp png, png_bytep out, png_size_t n) {
    auto* s = static_cast<Source*>(png_get_io_ptr(png));
    if (n > s->data->size() - s->pos) png_error(png, "truncated file");
    std::memcpy(out, s->data->data() + s->pos, n);
    s->pos += n;
}
void write_bytes(png_structp png, png_bytep data, png_size_t n) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + n);
}
void flush(png_structp) {}

enum class Kind { Indexed, Grey, Colour };

// What the reader found; filled inside the setjmp region, so only plain values.
struct Found {
    Kind kind;
    png_uint_32 w, h;
    int bits;        // of the indices or grey values
    int file_bits;
    bool alpha;
    int ncolors;
};

// Everything that may longjmp runs here, with its buffers made by the caller.
bool read_png(png_structp png, png_infop info, Source* src, std::uint64_t max_pixels, Found* f, Bytes* pixels,
              std::vector<png_bytep>* rows, Bytes* palette, Bytes* icc) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_read_fn(png, src, read_bytes);
    png_set_user_limits(png, 1u << 20, 1u << 20);
    png_read_info(png, info);
    int depth = 0, ctype = 0;
    png_get_IHDR(png, info, &f->w, &f->h, &depth, &ctype, nullptr, nullptr, nullptr);
    if (static_cast<std::uint64_t>(f->w) * f->h > max_pixels) png_error(png, "image too large");
    f->file_bits = depth;
    png_charp name;
    png_bytep profile;
    png_uint_32 len = 0;
    int comp;
    if (png_get_valid(png, info, PNG_INFO_iCCP) && png_get_iCCP(png, info, &name, &comp, &profile, &len))
        icc->assign(profile, profile + len);
    const bool trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    png_colorp plte;
    int nplte = 0;
    int channels = 1;
    f->bits = depth;
    if (ctype == PNG_COLOR_TYPE_PALETTE && !trns && png_get_PLTE(png, info, &plte, &nplte) && nplte > 0) {
        f->kind = Kind::Indexed;
        f->ncolors = nplte;
        for (int k = 0; k < nplte; ++k) palette->insert(palette->end(), {plte[k].red, plte[k].green, plte[k].blue});
        png_set_packing(png);
    } else if (ctype == PNG_COLOR_TYPE_GRAY && !trns) {
        f->kind = Kind::Grey;
        // The depths a palettized image has (1, 4, 8); 2-bit grey widens to 8, 16 rounds to 8.
        if (depth == 2) png_set_expand_gray_1_2_4_to_8(png);
        if (depth == 16) png_set_scale_16(png);
        if (depth == 2 || depth == 16) f->bits = 8;
        png_set_packing(png);
    } else {
        f->kind = Kind::Colour;
        f->alpha = trns || (ctype & PNG_COLOR_MASK_ALPHA);
        png_set_expand(png);
        png_set_scale_16(png);
        png_set_gray_to_rgb(png);
        if (!f->alpha) png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
        channels = 4;
    }
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const std::size_t row = static_cast<std::size_t>(f->w) * channels;
    if (png_get_rowbytes(png, info) != row) png_error(png, "unexpected row layout");
    pixels->resize(row * f->h);
    rows->resize(f->h);
    for (png_uint_32 y = 0; y < f->h; ++y) (*rows)[y] = pixels->data() + row * y;
    png_read_image(png, rows->data());
    return true;
}

void decode(const Bytes& data, Picture& pic, const ReadOptions& opt) {
    Errors errors{"malformed PNG"};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &errors, on_error, on_warning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        throw std::bad_alloc();
    }
    Source src{&data, 0};
    Found f{};
    Bytes pixels, palette, icc;
    std::vector<png_bytep> rows;
    const bool ok = read_png(png, info, &src, opt.max_pixels, &f, &pixels, &rows, &palette, &icc);
    png_destroy_read_struct(&png, &info, nullptr);
    if (!ok) throw CliError(std::string("PNG: ") + errors.message);
    const int w = static_cast<int>(f.w), h = static_cast<int>(f.h);
    if (f.kind == Kind::Indexed)
        set_indexed(pic, w, h, f.bits, palette.data(), f.ncolors, pixels.data());
    else if (f.kind == Kind::Grey)
        set_grey(pic, w, h, f.bits, pixels.data());
    else
        set_true_colour(pic, w, h, pixels.data(), f.alpha);
    pic.icc = std::move(icc);
    pic.file_bits = f.file_bits;
}

bool write_png(png_structp png, png_infop info, Picture* pic, Layout layout, Bytes* pixels, std::vector<png_bytep>* rows,
               std::vector<png_color>* plte, Bytes* trns, Bytes* out) {
    if (setjmp(png_jmpbuf(png))) return false;
    kiv& img = pic->img;
    png_set_write_fn(png, out, write_bytes, flush);
    png_set_benign_errors(png, 1);
    int ctype = PNG_COLOR_TYPE_RGB, depth = 8, channels = 3;
    if (layout == Layout::Indexed || layout == Layout::Grey) {
        ctype = layout == Layout::Grey ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_PALETTE;
        depth = index_bits(img);
        channels = 1;
    } else if (layout == Layout::Rgba) {
        ctype = PNG_COLOR_TYPE_RGB_ALPHA;
        channels = 4;
    }
    png_set_IHDR(png, info, static_cast<png_uint_32>(img.m_width), static_cast<png_uint_32>(img.m_height), depth, ctype,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (layout == Layout::Indexed) {
        const int n = img.m_colors < 256 ? img.m_colors : 256;
        for (int k = 0; k < n; ++k) plte->push_back(png_color{img.m_map[k].r, img.m_map[k].g, img.m_map[k].b});
        png_set_PLTE(png, info, plte->data(), n);
        // Entries past the last translucent one are opaque without being listed.
        for (int k = 0; k < n; ++k) trns->push_back(map_alpha(*pic, k));
        while (!trns->empty() && trns->back() == 255) trns->pop_back();
        if (!trns->empty()) png_set_tRNS(png, info, trns->data(), static_cast<int>(trns->size()), nullptr);
    }
    if (!pic->icc.empty() && icc_fits(pic->icc, layout == Layout::Grey))
        png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, pic->icc.data(), static_cast<png_uint_32>(pic->icc.size()));
    png_write_info(png, info);
    if (channels == 1) png_set_packing(png);
    *pixels = channels == 1 ? pixel_indices(img) : packed_pixels(*pic, channels);
    const std::size_t row = static_cast<std::size_t>(img.m_width) * channels;
    rows->resize(static_cast<std::size_t>(img.m_height));
    for (int y = 0; y < img.m_height; ++y) (*rows)[y] = pixels->data() + row * y;
    png_write_image(png, rows->data());
    png_write_end(png, nullptr);
    return true;
}

Bytes encode(Picture& pic, const WriteOptions&) {
    Errors errors{"cannot encode the image as PNG"};
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &errors, on_error, on_warning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        throw std::bad_alloc();
    }
    Bytes pixels, trns, out;
    std::vector<png_bytep> rows;
    std::vector<png_color> plte;
    const bool ok = write_png(png, info, &pic, layout_of(pic), &pixels, &rows, &plte, &trns, &out);
    png_destroy_write_struct(&png, &info);
    if (!ok) throw CliError(std::string("PNG: ") + errors.message);
    return out;
}

}  // namespace

Codec png_codec() { return Codec{"png", ".png", "libpng " PNG_LIBPNG_VER_STRING, sniff, decode, encode}; }

}  // namespace kivcli
