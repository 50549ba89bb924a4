// The BMP packer; see bmpfile.h.
#include "interchange/bmpfile.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "interchange/dibformat.h"
#include "platform/global_memory.h"

namespace kivdib {
namespace {

constexpr std::uint64_t kMaxDib = std::uint64_t(1) << 40;

// A packed DIB with a 40-byte header from an info header and colour table (info_size bytes
// from info) and the rows (rows_size bytes from rows). rows null: they follow the table.
void* repack(const unsigned char* info, std::uint64_t info_size, const unsigned char* rows, std::uint64_t rows_size) {
    if (info_size < kHeaderBytes) return nullptr;
    BITMAPINFOHEADER h = read_header(info);
    const std::uint64_t info_header = h.biSize, table = dib_table_bytes(h);
    if (info_header < kHeaderBytes || info_header > info_size || table > info_size - info_header) return nullptr;
    if (!rows) {
        rows = info + info_header + table;
        rows_size = info_size - info_header - table;
    }
    const bool top_down = h.biHeight < 0 && h.biCompression == BI_RGB;
    const std::uint64_t height = h.biHeight < 0 ? 0 - static_cast<std::int64_t>(h.biHeight) : static_cast<std::uint64_t>(h.biHeight);
    const std::uint64_t stride = dib_stride(h.biWidth, h.biBitCount);
    if (height && stride > kMaxDib / height) return nullptr;
    // Compressed rows have no fixed size: take what there is.
    const std::uint64_t bytes = h.biCompression == BI_RGB ? stride * height : std::min(rows_size, kMaxDib);
    if (bytes > rows_size) return nullptr;  // rows missing
    void* dib = kivplat::global_alloc(static_cast<std::size_t>(kHeaderBytes + table + bytes), false);
    const kivplat::LockedBlock lock(dib);
    unsigned char* out = lock.data();
    if (!out) {
        kivplat::global_free(dib);
        return nullptr;
    }
    h.biSize = static_cast<DWORD>(kHeaderBytes);
    if (top_down) h.biHeight = static_cast<LONG>(height);
    std::memcpy(out, &h, sizeof h);
    std::memcpy(out + kHeaderBytes, info + info_header, static_cast<std::size_t>(table));
    out += kHeaderBytes + table;
    if (!top_down) {
        std::memcpy(out, rows, static_cast<std::size_t>(bytes));
    } else {
        // Row i of the source is row height - 1 - i of a bottom-up DIB.
        for (std::uint64_t i = 0; i < height; ++i)
            std::memcpy(out + (height - 1 - i) * stride, rows + i * stride, static_cast<std::size_t>(stride));
    }
    return dib;
}

}  // namespace

void* dib_from_bmp(const unsigned char* data, std::size_t size) {
    if (!data || size < kFileHeader + kHeaderBytes || data[0] != 'B' || data[1] != 'M') return nullptr;
    const std::uint64_t offbits = le32(data + 10);
    if (offbits < kFileHeader) return nullptr;
    // The info header and table must end before the rows begin.
    const std::uint64_t info_size = std::min<std::uint64_t>(offbits, size) - kFileHeader;
    const std::uint64_t rows_size = offbits < size ? size - offbits : 0;
    return repack(data + kFileHeader, info_size, data + std::min<std::uint64_t>(offbits, size), rows_size);
}

void* dib_from_packed(const unsigned char* data, std::size_t size) {
    if (!data) return nullptr;
    return repack(data, size, nullptr, 0);
}

bool bmp_from_dib(void* dib, std::vector<unsigned char>* out) {
    if (!dib || !out) return false;
    const std::uint64_t size = kivplat::global_size(dib);
    const kivplat::LockedBlock lock(dib);
    const unsigned char* p = lock.data();
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
