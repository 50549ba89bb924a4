// BMP files <-> packed DIBs.
#include "interchange/bmpfile.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "interchange/dibformat.h"

namespace kivdib {
namespace {

constexpr std::size_t kFileHeader = 14;  // BITMAPFILEHEADER, packed
constexpr std::uint64_t kMaxDib = std::uint64_t(1) << 40;

std::uint32_t le32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
}
void put16(unsigned char* p, std::uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}
void put32(unsigned char* p, std::uint32_t v) {
    put16(p, v);
    put16(p + 2, v >> 16);
}

}  // namespace

HGLOBAL dib_from_bmp(const unsigned char* data, std::size_t size) {
    if (!data || size < kFileHeader + kHeaderBytes || data[0] != 'B' || data[1] != 'M') return nullptr;
    const unsigned char* info = data + kFileHeader;
    BITMAPINFOHEADER h = read_header(info);
    if (h.biSize < kHeaderBytes) return nullptr;
    const std::uint64_t head = std::uint64_t(h.biSize) + dib_table_bytes(h);  // header + table
    const std::uint64_t avail = size - kFileHeader;
    const std::uint64_t offbits = le32(data + 10);
    const bool top_down = h.biHeight < 0 && h.biCompression == BI_RGB;
    const std::uint64_t height = h.biHeight < 0 ? 0 - static_cast<std::int64_t>(h.biHeight) : static_cast<std::uint64_t>(h.biHeight);
    const std::uint64_t stride = dib_stride(h.biWidth, h.biBitCount);
    if (head > avail || offbits < kFileHeader + head || (height && stride > kMaxDib / height)) return nullptr;
    // Compressed rows have no fixed size: take what the file holds after bfOffBits.
    const std::uint64_t file_rows = offbits < size ? size - offbits : 0;
    const std::uint64_t rows = h.biCompression == BI_RGB ? stride * height : std::min(file_rows, kMaxDib);
    HGLOBAL dib = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, static_cast<SIZE_T>(head + rows));
    if (!dib) return nullptr;
    const LockedDib lock(dib);
    BYTE* out = lock.data();
    if (!out) {
        GlobalFree(dib);
        return nullptr;
    }
    std::memcpy(out, info, static_cast<std::size_t>(head));
    const std::uint64_t have = std::min(rows, file_rows);
    if (!top_down) {
        std::memcpy(out + head, data + offbits, static_cast<std::size_t>(have));
    } else {
        // Row i of the file is row height - 1 - i of a bottom-up DIB.
        for (std::uint64_t i = 0; i < height && (i + 1) * stride <= have; ++i)
            std::memcpy(out + head + (height - 1 - i) * stride, data + offbits + i * stride, static_cast<std::size_t>(stride));
        h.biHeight = static_cast<LONG>(height);
        std::memcpy(out, &h, sizeof h);
    }
    return dib;
}

bool bmp_from_dib(HGLOBAL dib, std::vector<unsigned char>* out) {
    if (!dib || !out) return false;
    const std::uint64_t size = GlobalSize(dib);
    const LockedDib lock(dib);
    const BYTE* p = lock.data();
    if (!p || size < kHeaderBytes) return false;
    const BITMAPINFOHEADER h = read_header(p);
    if (h.biSize < kHeaderBytes) return false;
    const std::uint64_t head = std::uint64_t(h.biSize) + dib_table_bytes(h);
    const std::uint64_t height = h.biHeight < 0 ? 0 - static_cast<std::int64_t>(h.biHeight) : static_cast<std::uint64_t>(h.biHeight);
    const std::uint64_t stride = dib_stride(h.biWidth, h.biBitCount);
    if (head > size || (height && stride > (size - head) / height)) return false;
    const std::uint64_t rows = h.biCompression == BI_RGB ? stride * height : h.biSizeImage;
    const std::uint64_t total = kFileHeader + head + rows;
    if (head + rows > size || total > 0xFFFFFFFFu) return false;
    out->assign(static_cast<std::size_t>(total), 0);
    unsigned char* f = out->data();
    f[0] = 'B';
    f[1] = 'M';
    put32(f + 2, static_cast<std::uint32_t>(total));
    put32(f + 10, static_cast<std::uint32_t>(kFileHeader + head));
    std::memcpy(f + kFileHeader, p, static_cast<std::size_t>(head + rows));
    return true;
}

}  // namespace kivdib
