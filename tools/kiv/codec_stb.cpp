// The built-in codecs, from the stb single-file libraries, for builds without the system's
// codec libraries (the Windows cross-build): PNG, JPEG and GIF (first frame) read as 8-bit
// RGB or RGBA (16-bit samples rounded), PNG and JPEG written.
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_ONLY_GIF
#define STBI_FAILURE_USERMSG
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_WRITE_IMPLEMENTATION
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#endif
#include "stb_image.h"
#include "stb_image_write.h"
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

#include <cstdint>
#include <cstring>
#include <string>

#include "codec.h"

namespace kivcli {

namespace {

bool sniff_png(const unsigned char* d, std::size_t n) { return n >= 8 && std::memcmp(d, "\x89PNG\r\n\x1a\n", 8) == 0; }
bool sniff_jpeg(const unsigned char* d, std::size_t n) { return n >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF; }
bool sniff_gif(const unsigned char* d, std::size_t n) { return n >= 6 && (std::memcmp(d, "GIF87a", 6) == 0 || std::memcmp(d, "GIF89a", 6) == 0); }

void decode(const Bytes& data, Picture& pic, const ReadOptions& opt) {
    if (data.size() > static_cast<std::size_t>(INT32_MAX)) throw CliError("file too large");
    const int n = static_cast<int>(data.size());
    int w = 0, h = 0, channels = 0;
    if (stbi_info_from_memory(data.data(), n, &w, &h, &channels) && static_cast<std::uint64_t>(w) * h > opt.max_pixels)
        throw CliError("image too large");
    Bytes rgba;
    if (stbi_is_16_bit_from_memory(data.data(), n)) {
        stbi_us* p = stbi_load_16_from_memory(data.data(), n, &w, &h, &channels, 4);
        if (!p) throw CliError(std::string("cannot decode image: ") + stbi_failure_reason());
        rgba.resize(static_cast<std::size_t>(w) * h * 4);
        for (std::size_t i = 0; i < rgba.size(); ++i) rgba[i] = to8(p[i]);
        stbi_image_free(p);
        pic.file_bits = 16;
    } else {
        unsigned char* p = stbi_load_from_memory(data.data(), n, &w, &h, &channels, 4);
        if (!p) throw CliError(std::string("cannot decode image: ") + stbi_failure_reason());
        rgba.assign(p, p + static_cast<std::size_t>(w) * h * 4);
        stbi_image_free(p);
    }
    set_true_colour(pic, w, h, rgba.data(), channels == 2 || channels == 4);
    if (opt.autorotate && sniff_jpeg(data.data(), data.size())) apply_orientation(pic.img, jpeg_exif_orientation(data.data(), data.size()));
}

void sink(void* ctx, void* data, int size) {
    auto* v = static_cast<Bytes*>(ctx);
    v->insert(v->end(), static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + size);
}

// Grey images as one channel, the rest as RGB or RGBA.
Bytes pixels_for(const Picture& pic, int* comp, bool alpha_ok) {
    if (layout_of(pic) == Layout::Grey) {
        *comp = 1;
        Bytes v = pixel_indices(pic.img);
        const int top = (1 << pic.img.m_bits) - 1;
        for (unsigned char& x : v) x = static_cast<unsigned char>(x * 255 / top);
        return v;
    }
    *comp = alpha_ok && pic.alpha != Alpha::None ? 4 : 3;
    return packed_pixels(pic, *comp);
}

Bytes encode_png(Picture& pic, const WriteOptions& opt) {
    if (layout_of(pic) == Layout::Indexed && opt.note) opt.note("PNG written as true colour (this build has no indexed PNG)");
    int comp = 0;
    Bytes px = pixels_for(pic, &comp, true), out;
    if (!stbi_write_png_to_func(sink, &out, pic.img.m_width, pic.img.m_height, comp, px.data(), pic.img.m_width * comp))
        throw CliError("cannot encode the image as PNG");
    return out;
}

Bytes encode_jpeg(Picture& pic, const WriteOptions& opt) {
    if (pic.alpha != Alpha::None && opt.note) opt.note("JPEG holds no alpha: written opaque");
    int comp = 0;
    Bytes px = pixels_for(pic, &comp, false), out;
    if (!stbi_write_jpg_to_func(sink, &out, pic.img.m_width, pic.img.m_height, comp, px.data(), opt.quality))
        throw CliError("cannot encode the image as JPEG");
    return out;
}

}  // namespace

void add_builtin_codecs(std::vector<Codec>& list) {
    auto have = [&](const char* name) {
        for (const Codec& c : list)
            if (std::strcmp(c.name, name) == 0) return true;
        return false;
    };
    if (!have("png")) list.push_back(Codec{"png", ".png", "stb_image/stb_image_write (built in): written as RGB, RGBA or grey, no colour profile", sniff_png, decode, encode_png});
    if (!have("jpeg")) list.push_back(Codec{"jpeg", ".jpg .jpeg .jpe", "stb_image/stb_image_write (built in): 8-bit baseline and progressive, no colour profile", sniff_jpeg, decode, encode_jpeg});
    if (!have("gif")) list.push_back(Codec{"gif", ".gif", "stb_image (built in): first frame", sniff_gif, decode, nullptr});
}

}  // namespace kivcli
