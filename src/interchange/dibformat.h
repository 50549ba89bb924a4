// Layout of packed DIBs (header, colour table, rows), shared by the DIB reader and writer,
// the BMP packer and the GDI bitmap code.  All sizes are 64-bit and overflow-free for any
// header values.
#ifndef KIV_INTERCHANGE_DIBFORMAT_H
#define KIV_INTERCHANGE_DIBFORMAT_H

#include <cstdint>
#include <cstring>

#include "kiv.h"

namespace kivdib {

constexpr std::uint64_t kHeaderBytes = 40;  // BITMAPINFOHEADER; the table starts here

// Bytes of one row of depth-bit pixels, padded to 4 bytes; width may be any 32-bit value
// (negative widths give 0).
inline std::uint64_t dib_stride(std::int64_t width, std::uint32_t depth) {
    if (width <= 0) return 0;
    return ((static_cast<std::uint64_t>(width) * depth + 31) / 32) * 4;
}

// Entries of the colour table a header announces: biClrUsed, or 1 << depth when that is 0
// and the depth is at most 8.
inline std::uint64_t dib_table_entries(const BITMAPINFOHEADER& h) {
    if (h.biClrUsed) return h.biClrUsed;
    return h.biBitCount <= 8 ? (std::uint64_t(1) << h.biBitCount) : 0;
}

// Bytes of the colour table, with the three masks BI_BITFIELDS stores after a 40-byte header
// (longer headers hold them).
inline std::uint64_t dib_table_bytes(const BITMAPINFOHEADER& h) {
    return 4 * dib_table_entries(h) + (h.biCompression == BI_BITFIELDS && h.biSize == kHeaderBytes ? 12 : 0);
}

// Little-endian fields at any alignment.
inline std::uint32_t le16(const unsigned char* p) { return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8; }
inline std::uint32_t le32(const unsigned char* p) { return le16(p) | le16(p + 2) << 16; }
inline void put32(unsigned char* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

// Header read without assuming alignment of the block.
inline BITMAPINFOHEADER read_header(const void* p) {
    BITMAPINFOHEADER h;
    std::memcpy(&h, p, sizeof h);
    return h;
}

}  // namespace kivdib

#endif
