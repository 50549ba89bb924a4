// The selective Gaussian's block kernel for AVX2: gauss_sel_simd.h over kivcore::Avx2.
#include "core/simd_avx2.h"
#include "filter/gauss_sel_simd.h"

#if KIV_HAVE_AVX2
namespace kivfilter {

void sel_block_avx2(const SelTile& t, int count, double* sum, double* wsum) {
    sel_block<kivcore::Avx2>(t, count, sum, wsum);
}

}  // namespace kivfilter
#endif
