// Row conversions between packed 24-bit BGR and RGBA pixels with AVX2 (dib_rows_avx2.cpp),
// called only when kivcore::use_avx2() holds. Each gives the bytes of the SSE2 and scalar
// rows in dib.cpp. With stream set, whole aligned vectors bypass the caches: for images
// larger than the caches, whose rows are not read again soon.
#ifndef KIV_INTERCHANGE_DIB_ROWS_H
#define KIV_INTERCHANGE_DIB_ROWS_H

#include <cstddef>

namespace kivdib {

// w pixels of 3 bytes (blue, green, red) to w pixels of 4 (red, green, blue, 0); reads
// exactly 3 * w bytes.
void bgr_to_rgba_avx2(unsigned char* dst, const unsigned char* src, std::size_t w, bool stream);
// w pixels of 4 bytes (red, green, blue, any) to 3 (blue, green, red); writes exactly 3 * w
// bytes.
void rgba_to_bgr_avx2(unsigned char* dst, const unsigned char* src, std::size_t w, bool stream);

}  // namespace kivdib

#endif
