// BMP through the library's own DIB code, at the image's depth: palettized images as 1, 4 or
// 8-bit files with their colour map and indices.
#include "codec.h"
#include "interchange/bmpfile.h"
#include "platform/global_memory.h"

namespace kivcli {

namespace {

bool sniff(const unsigned char* d, std::size_t n) { return n >= 2 && d[0] == 'B' && d[1] == 'M'; }

void decode(const Bytes& bytes, Picture& pic, const ReadOptions&) {
    void* dib = kivdib::dib_from_bmp(bytes.data(), bytes.size());
    const bool ok = dib && pic.img.attachdib(dib);
    kivplat::global_free(dib);
    if (!ok) throw CliError("unsupported or malformed BMP file");
    pic.alpha = Alpha::None;
}

Bytes encode(Picture& pic, const WriteOptions& opt) {
    if (pic.alpha != Alpha::None && opt.note) opt.note("BMP holds no alpha here: written opaque");
    // 32-bit DIBs are written as 24-bit ones: the library reads 32-bit ones back black.
    kiv rgb;
    kiv* img = &pic.img;
    if (img->m_bits == 32) {
        if (!rgb.create(img->m_width, img->m_height, 24)) throw std::bad_alloc();
        rgb.blt(0, 0, img->m_width, img->m_height, img, 0, 0);
        img = &rgb;
    }
    void* dib = img->createdib();
    Bytes out;
    const bool ok = dib && kivdib::bmp_from_dib(dib, &out);
    kivplat::global_free(dib);
    if (!ok) throw CliError("cannot encode the image as BMP");
    return out;
}

}  // namespace

Codec bmp_codec() { return Codec{"bmp", ".bmp .dib", "kivlib", sniff, decode, encode}; }

}  // namespace kivcli
