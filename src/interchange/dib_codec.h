// Every form of packed DIB and BMP file read into an image, and 32-bit DIBs with alpha
// written: the parsing works on plain bytes; dib_members.cpp brings them in and out.
#ifndef KIV_INTERCHANGE_DIB_CODEC_H
#define KIV_INTERCHANGE_DIB_CODEC_H

#include <cstddef>
#include <cstdint>

#include "interchange/dibformat.h"
#include "kiv.h"

namespace kivdib {

constexpr std::size_t kV5HeaderBytes = 124;  // BITMAPV5HEADER

// Both readers fill the empty image *out and return null, or return why they refused (a
// static text) and leave *out empty. Nothing outside data[0 .. size) is read.
const char* read_packed_dib(const unsigned char* data, std::size_t size, kiv* out);
const char* read_bmp_file(const unsigned char* data, std::size_t size, kiv* out);

// Run-length rows of depth 4 or 8 (BI_RLE4, BI_RLE8), for read_packed_dib.
struct RleSource {
    const unsigned char* data;  // the run data, size bytes
    std::size_t size;
    int width, height;
    bool top_down;
    unsigned depth;
    const tagRGBA* colours;  // 256 colours by index, black past the table
    int table_colours;       // entries the table gives, at most 1 << depth
};
const char* read_rle(const RleSource& src, kiv* out);

// Bytes of img as a bottom-up 32-bit V5 DIB (header and rows, no table), or 0 for an empty
// image; and the DIB itself, written to out.
std::uint64_t dibv5_bytes(const kiv& img);
void write_dibv5(const kiv& img, bool premultiplied, unsigned char* out);

}  // namespace kivdib

#endif
