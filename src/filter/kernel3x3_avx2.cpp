// The 3x3 filters' row kernels for AVX2: kernel3x3_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/kernel3x3_simd.h"

#if KIV_HAVE_AVX2
namespace kivfilter {

int k3_row_avx2(unsigned mode, const unsigned char* const* rows, int x0, int x1, unsigned char* out) {
    return k3_row_of_mode<kivcore::Avx2>(mode, rows, x0, x1, out);
}

int weighted_row_avx2(const unsigned char* const* rows, int x0, int x1, const Weighted3x3& k, unsigned char* out) {
    return weighted_row<kivcore::Avx2>(rows, x0, x1, k, out);
}

}  // namespace kivfilter
#endif
