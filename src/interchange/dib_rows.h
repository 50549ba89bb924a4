// Vector bodies of the DIB reader's and writer's 24-bit row conversions, one file per
// instruction set (dib_rows_sse2.cpp, dib_rows_avx2.cpp; the AVX2 ones called only when
// kivcore::use_avx2() holds). Each converts the first pixels of a row, giving the bytes of
// the scalar rows in dib.cpp, and returns how many (0 where its instruction set is not
// compiled in); dib.cpp converts the rest one at a time.
#ifndef KIV_INTERCHANGE_DIB_ROWS_H
#define KIV_INTERCHANGE_DIB_ROWS_H

#include <cstddef>

namespace kivdib {

// Pixels of 3 bytes (blue, green, red) to pixels of 4 (red, green, blue, 0); reads no byte
// past the 3 * w of the row.
std::size_t bgr_to_rgba_sse2(unsigned char* dst, const unsigned char* src, std::size_t w);
// Pixels of 4 bytes (red, green, blue, any) to 3 (blue, green, red); writes no byte past the
// 3 * w of the row.
std::size_t rgba_to_bgr_sse2(unsigned char* dst, const unsigned char* src, std::size_t w);

// The same with AVX2, which converts whole rows. With stream set, whole aligned vectors
// bypass the caches: for images larger than the caches, whose rows are not read again soon.
std::size_t bgr_to_rgba_avx2(unsigned char* dst, const unsigned char* src, std::size_t w, bool stream);
std::size_t rgba_to_bgr_avx2(unsigned char* dst, const unsigned char* src, std::size_t w, bool stream);

}  // namespace kivdib

#endif
