// BMP files <-> packed DIBs in movable global memory, for tools that read and write files
// through the DIB code (internal, not part of the public header).
#ifndef KIV_INTERCHANGE_BMPFILE_H
#define KIV_INTERCHANGE_BMPFILE_H

#include <cstddef>
#include <vector>

#include "kiv.h"

namespace kivdib {

// A new packed DIB (GlobalFree it) from the bytes of a BMP file: BITMAPFILEHEADER, an info
// header of at least 40 bytes, the colour table, and rows from bfOffBits.  Rows that the
// file ends early on are left zero; a top-down BI_RGB file is turned bottom-up.  Null for
// bytes that are no BMP file or announce impossible sizes.
HGLOBAL dib_from_bmp(const unsigned char* data, std::size_t size);

// The bytes of a BMP file holding the packed DIB dib (header, table and the rows its header
// announces; any slack after them is dropped).  False, *out untouched, when dib is unreadable
// or smaller than its header claims.
bool bmp_from_dib(HGLOBAL dib, std::vector<unsigned char>* out);

}  // namespace kivdib

#endif
