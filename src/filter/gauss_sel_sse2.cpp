// The selective Gaussian's block kernel for SSE2: gauss_sel_simd.h over kivcore::Sse2.
#include "core/simd_sse2.h"
#include "filter/gauss_sel_simd.h"

#if KIV_HAVE_SSE2
namespace kivfilter {

void sel_block_sse2(const SelTile& t, int count, double* sum, double* wsum) {
    sel_block<kivcore::Sse2>(t, count, sum, wsum);
}

}  // namespace kivfilter
#endif
