// The one BMP packer: BMP files and packed DIBs in memory (bitmap resources) to packed DIBs
// in movable global memory, and packed DIBs back to BMP files. The library's texture store
// and the kiv program both read and write BMP files through it.
#ifndef KIV_INTERCHANGE_BMPFILE_H
#define KIV_INTERCHANGE_BMPFILE_H

#include <cstddef>
#include <vector>

namespace kivdib {

constexpr std::size_t kFileHeader = 14;  // BITMAPFILEHEADER, packed

// A new packed DIB (free it with kivplat::global_free) from the bytes of a BMP file: the
// 14-byte file header, an info header of 40 bytes or more (V4 and V5 headers are cut to
// their first 40 bytes, which mean the same in every version), the colour table after the
// info header, and the rows from bfOffBits. A top-down BI_RGB file is turned bottom-up.
// Null for bytes that are no BMP file, announce impossible sizes or lack any row.
void* dib_from_bmp(const unsigned char* data, std::size_t size);

// The same for a packed DIB in memory whose rows follow its colour table (a bitmap
// resource), with any info header of 40 bytes or more.
void* dib_from_packed(const unsigned char* data, std::size_t size);

// The bytes of a BMP file holding the packed DIB dib (header, table and the rows its header
// announces; any slack after them is dropped). False, *out untouched, when dib is unreadable
// or smaller than its header claims.
bool bmp_from_dib(void* dib, std::vector<unsigned char>* out);

}  // namespace kivdib

#endif
