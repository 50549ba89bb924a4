// The BMP packer; see bmpfile.h.
#include "interchange/bmpfile.h"

#include <cstdint>
#include <cstring>

#include "interchange/dibformat.h"
#include "platform/global_memory.h"

namespace kivdib {

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
