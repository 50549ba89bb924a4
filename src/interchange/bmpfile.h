// The BMP packer: packed DIBs in movable global memory to the bytes of BMP files, for the
// library's texture store and the kiv program (files are read by the full reader, loadbmp).
#ifndef KIV_INTERCHANGE_BMPFILE_H
#define KIV_INTERCHANGE_BMPFILE_H

#include <cstddef>
#include <vector>

namespace kivdib {

constexpr std::size_t kFileHeader = 14;  // BITMAPFILEHEADER, packed

// The bytes of a BMP file holding the packed DIB dib (header, table and the rows its header
// announces; any slack after them is dropped). False, *out untouched, when dib is unreadable
// or smaller than its header claims.
bool bmp_from_dib(void* dib, std::vector<unsigned char>* out);

}  // namespace kivdib

#endif
