// BMP through the library: every form read by its full reader; written at the image's depth
// (palettized images as 1, 4 or 8-bit files with their colour map and indices), images with
// alpha as 32-bit V5 files that keep it.
#include <cstdint>

#include "codec.h"
#include "interchange/bmpfile.h"
#include "platform/global_memory.h"

namespace kivcli {

namespace {

bool sniff(const unsigned char* d, std::size_t n) { return n >= 2 && d[0] == 'B' && d[1] == 'M'; }

std::uint32_t le(const Bytes& b, std::size_t at, int n) {
    std::uint32_t v = 0;
    for (int k = n - 1; k >= 0; --k) v = v << 8 | b[at + static_cast<std::size_t>(k)];
    return v;
}

// The pixel count the header claims, so an absurd one is refused before the reader allocates
// (0 when the header is too short to say; the reader then refuses it).
std::uint64_t claimed_pixels(const Bytes& b) {
    if (b.size() < 26) return 0;
    if (le(b, 14, 4) == 12) return static_cast<std::uint64_t>(le(b, 18, 2)) * le(b, 20, 2);
    const std::int64_t w = static_cast<std::int32_t>(le(b, 18, 4)), h = static_cast<std::int32_t>(le(b, 22, 4));
    return static_cast<std::uint64_t>(w < 0 ? -w : w) * static_cast<std::uint64_t>(h < 0 ? -h : h);
}

void decode(const Bytes& bytes, Picture& pic, const ReadOptions& opt) {
    if (claimed_pixels(bytes) > opt.max_pixels) throw CliError("BMP: image too large");
    const char* why = nullptr;
    if (!pic.img.loadbmp_bytes(bytes.data(), bytes.size(), &why)) throw CliError(std::string("unreadable BMP file: ") + why);
    // The reader gives 32 bits only when some pixel carries alpha.
    pic.alpha = pic.img.m_bits == 32 ? Alpha::Pixels : Alpha::None;
}

Bytes encode(Picture& pic, const WriteOptions& opt) {
    kiv* img = &pic.img;
    void* dib = nullptr;
    kiv rgb;
    if (pic.alpha == Alpha::Pixels && img->m_bits == 32) {
        dib = img->createdib_alpha(0);
    } else {
        if (pic.alpha != Alpha::None && opt.note) opt.note("BMP holds no colour-map alpha: written opaque");
        // An opaque 32-bit image as 24 bits: its fourth bytes are no alpha to keep.
        if (img->m_bits == 32) {
            if (!rgb.create(img->m_width, img->m_height, 24)) throw std::bad_alloc();
            rgb.blt(0, 0, img->m_width, img->m_height, img, 0, 0);
            img = &rgb;
        }
        dib = img->createdib();
    }
    Bytes out;
    const bool ok = dib && kivdib::bmp_from_dib(dib, &out);
    kivplat::global_free(dib);
    if (!ok) throw CliError("cannot encode the image as BMP");
    return out;
}

}  // namespace

Codec bmp_codec() { return Codec{"bmp", ".bmp .dib", "kivlib", sniff, decode, encode}; }

}  // namespace kivcli
