// Pixel packing, orientation and colour profiles shared by the kiv program's codecs.
#include <cstring>

#include "codec.h"

namespace kivcli {

namespace {

void must_create(kiv& img, int w, int h, int bits) {
    if (w < 1 || h < 1 || !img.create(w, h, bits)) throw CliError("image too large (" + std::to_string(w) + " x " + std::to_string(h) + ")");
}

// Whether the map is the plain grey ramp of the image's depth.
bool grey_ramp(const kiv& img) {
    const int n = 1 << img.m_bits;
    if (!img.m_map || img.m_colors != n || index_bits(img) != img.m_bits) return false;
    for (int i = 0; i < n; ++i) {
        const tagRGBA& e = img.m_map[i];
        const int v = i * 255 / (n - 1);
        if (e.r != v || e.g != v || e.b != v) return false;
    }
    return true;
}

}  // namespace

int index_bits(const kiv& img) { return img.m_bits <= 1 ? 1 : img.m_bits <= 2 ? 2 : img.m_bits <= 4 ? 4 : 8; }

Layout layout_of(const Picture& pic) {
    const kiv& img = pic.img;
    if (img.m_bits <= 8 && img.m_map && img.m_colors > 0)
        return pic.alpha == Alpha::None && grey_ramp(img) ? Layout::Grey : Layout::Indexed;
    return pic.alpha == Alpha::Pixels ? Layout::Rgba : Layout::Rgb;
}

unsigned char map_alpha(const Picture& pic, int entry) {
    return pic.alpha == Alpha::Map && entry < pic.img.m_colors ? pic.img.m_map[entry].a : 255;
}

Bytes packed_pixels(const Picture& pic, int channels) {
    const kiv& img = pic.img;
    Bytes out(static_cast<std::size_t>(img.m_packets) * channels);
    const bool pixel_alpha = pic.alpha == Alpha::Pixels && img.m_bits > 8;
    const bool indexed = img.m_bits <= 8 && img.m_map && img.m_colors > 0;
    for (int i = 0; i < img.m_packets; ++i) {
        const tagRGBA& p = img.m_pixels[i];
        unsigned char* d = out.data() + static_cast<std::size_t>(i) * channels;
        d[0] = p.r;
        d[1] = p.g;
        d[2] = p.b;
        if (channels == 4) d[3] = pixel_alpha ? p.a : indexed ? map_alpha(pic, p.a) : 255;
    }
    return out;
}

Bytes pixel_indices(const kiv& img) {
    Bytes out(static_cast<std::size_t>(img.m_packets));
    for (int i = 0; i < img.m_packets; ++i) out[i] = img.m_pixels[i].a;
    return out;
}

void set_true_colour(Picture& pic, int w, int h, const unsigned char* rgba, bool alpha) {
    must_create(pic.img, w, h, alpha ? 32 : 24);
    std::memcpy(pic.img.m_pixels, rgba, static_cast<std::size_t>(w) * h * 4);
    pic.alpha = alpha ? Alpha::Pixels : Alpha::None;
}

void set_indexed(Picture& pic, int w, int h, int bits, const unsigned char* palette, int n, const unsigned char* idx) {
    kiv& img = pic.img;
    must_create(img, w, h, bits <= 1 ? 1 : bits <= 4 ? 4 : 8);
    if (n > (1 << img.m_bits)) n = 1 << img.m_bits;
    img.alloccmap(n);
    for (int k = 0; k < n; ++k) img.m_map[k] = tagRGBA{palette[3 * k], palette[3 * k + 1], palette[3 * k + 2], 0};
    for (int i = 0; i < img.m_packets; ++i) {
        const BYTE k = idx[i] < n ? idx[i] : 0;
        img.m_pixels[i] = tagRGBA{img.m_map[k].r, img.m_map[k].g, img.m_map[k].b, k};
    }
    pic.alpha = Alpha::None;
}

void set_grey(Picture& pic, int w, int h, int bits, const unsigned char* values) {
    const int n = 1 << bits;
    Bytes ramp(static_cast<std::size_t>(3 * n));
    for (int k = 0; k < n; ++k) ramp[3 * k] = ramp[3 * k + 1] = ramp[3 * k + 2] = static_cast<unsigned char>(k * 255 / (n - 1));
    set_indexed(pic, w, h, bits, ramp.data(), n, values);
}

int jpeg_exif_orientation(const unsigned char* d, std::size_t n) {
    if (n < 4 || d[0] != 0xFF || d[1] != 0xD8) return 1;
    // Segments up to the first scan; APP1 holding "Exif\0\0" and a TIFF structure.
    for (std::size_t at = 2; at + 4 <= n && d[at] == 0xFF;) {
        const int marker = d[at + 1];
        if (marker == 0xDA || marker == 0xD9) break;
        const std::size_t len = static_cast<std::size_t>(d[at + 2]) << 8 | d[at + 3];
        if (len < 2 || at + 2 + len > n) break;
        const unsigned char* s = d + at + 4;
        const std::size_t sn = len - 2;
        if (marker == 0xE1 && sn >= 14 && std::memcmp(s, "Exif\0\0", 6) == 0) {
            const unsigned char* t = s + 6;
            const std::size_t tn = sn - 6;
            const bool le = t[0] == 'I' && t[1] == 'I';
            if (!le && !(t[0] == 'M' && t[1] == 'M')) return 1;
            auto u16 = [&](std::size_t o) { return le ? t[o] | t[o + 1] << 8 : t[o] << 8 | t[o + 1]; };
            auto u32 = [&](std::size_t o) {
                return le ? static_cast<std::size_t>(u16(o)) | static_cast<std::size_t>(u16(o + 2)) << 16
                          : static_cast<std::size_t>(u16(o)) << 16 | static_cast<std::size_t>(u16(o + 2));
            };
            const std::size_t ifd = u32(4);
            if (ifd > tn || tn - ifd < 2) return 1;
            const std::size_t count = static_cast<std::size_t>(u16(ifd));
            for (std::size_t e = 0; e < count && ifd + 2 + 12 * (e + 1) <= tn; ++e) {
                const std::size_t o = ifd + 2 + 12 * e;
                if (u16(o) == 0x0112 && u16(o + 2) == 3) {
                    const int v = u16(o + 8);
                    return v >= 1 && v <= 8 ? v : 1;
                }
            }
            return 1;
        }
        at += 2 + len;
    }
    return 1;
}

void apply_orientation(kiv& img, int o) {
    // 2 mirrored, 3 half turn, 4 flipped, 5 transposed, 6 turned clockwise to be upright,
    // 7 transversed, 8 counter-clockwise.
    if (o == 2) img.mirror(0, 0, 0, 0);
    if (o == 3) img.rotate180(0, 0, 0, 0);
    if (o == 4) img.flip(0, 0, 0, 0);
    if (o == 5 || o == 6) img.rotate(0);
    if (o == 7 || o == 8) img.rotate(1);
    if (o == 5 || o == 7) img.mirror(0, 0, 0, 0);
}

bool icc_fits(const Bytes& icc, bool grey) {
    // The profile header's colour space signature at offset 16.
    if (icc.size() < 132) return false;
    return std::memcmp(icc.data() + 16, grey ? "GRAY" : "RGB ", 4) == 0;
}

}  // namespace kivcli
