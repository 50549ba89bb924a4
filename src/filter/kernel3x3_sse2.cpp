// The 3x3 filters' row kernels for SSE2: kernel3x3_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/kernel3x3_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

int k3_row_sse2(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out) {
    return k3_row_of_mode<kivcore::Sse2>(mode, rows, x0, x1, out);
}

int weighted_row_sse2(const unsigned char* const* rows, int x0, int x1, const Weighted3x3& k, unsigned char* out) {
    return weighted_row<kivcore::Sse2>(rows, x0, x1, k, out);
}

}  // namespace kivfilter
#endif
